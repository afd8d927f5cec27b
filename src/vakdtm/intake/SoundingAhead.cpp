#include "vakdtm/intake/SoundingAhead.h"

#include <cmath>
#include <utility>

namespace vak {
namespace {

constexpr std::size_t kLinesABatch = 4096;

SoundingLine::Kind Judge(const ScannedSounding& sounding) {
  if (sounding.fields != 3 || !std::isfinite(sounding.x) || !std::isfinite(sounding.y) || std::isinf(sounding.z)) {
    return SoundingLine::Kind::kNotParsed;
  }
  return std::isnan(sounding.z) || HoldsMarker(sounding) ? SoundingLine::Kind::kNotANumber
                                                         : SoundingLine::Kind::kSounding;
}

}  // namespace

SoundingAhead::SoundingAhead(LineReader& lines, SoundingScanner scanner)
    : lines_(lines), scanner_(scanner), thread_([this] { Run(); }) {}

SoundingAhead::~SoundingAhead() {
  {
    const std::scoped_lock lock(mutex_);
    stop_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

const SoundingBatch* SoundingAhead::Next() {
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return full_ || ended_; });
    if (!full_) return nullptr;
    std::swap(used_, waiting_);
    full_ = false;
  }
  changed_.notify_all();
  return &used_;
}

void SoundingAhead::Run() {
  SoundingBatch batch;
  bool more = true;
  while (more) {
    more = Fill(batch);
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return !full_ || stop_; });
      if (stop_) return;
      std::swap(batch, waiting_);
      full_ = !waiting_.lines.empty();
      ended_ = !more;
    }
    changed_.notify_all();
  }
}

bool SoundingAhead::Fill(SoundingBatch& batch) {
  batch.lines.clear();
  batch.text.clear();
  std::string_view line;
  while (batch.lines.size() < kLinesABatch) {
    if (!lines_.Next(line)) return false;
    ScannedSounding scanned;
    scanner_.Scan(line.data(), line.data() + line.size(), scanned);
    batch.lines.push_back({scanned.x, scanned.y, scanned.z, lines_.LineNumber(), lines_.Position(), batch.text.size(),
                           line.size(), Judge(scanned)});
    batch.text.append(line);
  }
  return true;
}

}  // namespace vak
