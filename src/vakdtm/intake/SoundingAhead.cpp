#include "vakdtm/intake/SoundingAhead.h"

#include <cmath>
#include <utility>

namespace vak {
namespace {

constexpr std::size_t kLinesABatch = 4096;

bool FillUndated(LineReader& lines, SoundingScanner scanner, SoundingBatch& batch) {
  std::string_view line;
  while (!batch.IsFull()) {
    if (!lines.Next(line)) return false;
    ScannedSounding scanned;
    const int fields = scanner.Scan(line.data(), line.data() + line.size(), scanned);
    const auto kind = fields == 3 ? JudgeNumbers(scanned, HoldsMarker(scanned)) : SoundingLine::Kind::kNotParsed;
    batch.Add(scanned, kind, lines.LineNumber(), lines.Position(), line);
  }
  return true;
}

}  // namespace

SoundingLine::Kind JudgeNumbers(const ScannedSounding& sounding, bool marker) {
  if (!std::isfinite(sounding.x) || !std::isfinite(sounding.y)) return SoundingLine::Kind::kNotParsed;
  // The marker makes a z of any kind none, so that its cell is emptied.
  if (marker || std::isnan(sounding.z)) return SoundingLine::Kind::kNotANumber;
  return std::isinf(sounding.z) ? SoundingLine::Kind::kNotParsed : SoundingLine::Kind::kSounding;
}

bool SoundingBatch::IsFull() const { return lines.size() >= kLinesABatch; }

void SoundingBatch::Clear() {
  lines.clear();
  text.clear();
}

void SoundingBatch::Add(const ScannedSounding& sounding, SoundingLine::Kind kind, std::int64_t number,
                        std::int64_t position, std::string_view line) {
  lines.push_back(
      {sounding.x, sounding.y, sounding.z, number, position, text.size(), line.size(), kind, ScannedDate()});
  text.append(line);
}

SoundingAhead::SoundingAhead(FillBatch fill) : fill_(std::move(fill)), thread_([this] { Run(); }) {}

SoundingAhead::SoundingAhead(LineReader& lines, SoundingScanner scanner)
    : SoundingAhead([&lines, scanner](SoundingBatch& batch) { return FillUndated(lines, scanner, batch); }) {}

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
    batch.Clear();
    more = fill_(batch);
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

}  // namespace vak
