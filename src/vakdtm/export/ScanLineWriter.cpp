#include "vakdtm/export/ScanLineWriter.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "vakdtm/services/platform/Thread.h"
#include "vakdtm/services/tiff/GeoTiffFile.h"

namespace vak {
namespace {

/// Enough for the hand-over not to count.
constexpr std::size_t kBatchBytes = std::size_t{256} << 10;

/// As the interface of images has it; without effect where samples lie together.
constexpr unsigned short kSample = 4;

}  // namespace

ScanLineWriter::ScanLineWriter(GeoTiffFile& image, std::size_t lineBytes)
    : image_(image), lineBytes_(lineBytes), mostLines_(std::max<std::size_t>(1, kBatchBytes / lineBytes)) {
  made_.bytes.resize(mostLines_ * lineBytes_);
  pending_.bytes.resize(mostLines_ * lineBytes_);
  try {
    thread_ = std::make_unique<Thread>(ThreadPriority::kNormal, [this] { Run(); });
  } catch (const std::system_error&) {
    thread_.reset();
  }
}

ScanLineWriter::~ScanLineWriter() {
  {
    const std::scoped_lock lock(mutex_);
    stop_ = true;
  }
  changed_.notify_all();
}

std::byte* ScanLineWriter::NextLine() {
  if (made_.lines == mostLines_ && !HandOver()) return nullptr;
  return made_.bytes.data() + made_.lines++ * lineBytes_;
}

bool ScanLineWriter::Finish() {
  if (made_.lines > 0) HandOver();
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !full_; });
  return !failed_;
}

/// Gives the lines that were made to the writer, and waits for it to have written those before.
bool ScanLineWriter::HandOver() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !full_; });
  if (failed_) return false;
  std::swap(made_, pending_);
  made_.lines = 0;
  if (!thread_) return Write(pending_) || !(failed_ = true);
  full_ = true;
  lock.unlock();
  changed_.notify_all();
  return true;
}

void ScanLineWriter::Run() {
  while (true) {
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return full_ || stop_; });
      if (stop_) return;
    }
    const bool written = Write(pending_);
    {
      const std::scoped_lock lock(mutex_);
      failed_ |= !written;
      full_ = false;
    }
    changed_.notify_all();
  }
}

bool ScanLineWriter::Write(Batch& batch) {
  std::byte* line = batch.bytes.data();
  for (std::size_t i = 0; i < batch.lines; ++i, line += lineBytes_) {
    if (image_.ExtTIFFWriteScanline(line, row_++, kSample) < 0) return false;
  }
  return true;
}

}  // namespace vak
