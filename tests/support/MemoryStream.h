#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "vakdtm/services/files/DataStream.h"

namespace vak::test {

/// How often each operation of a stream was called and how many bytes went through it, failed calls included.
struct StreamCounts {
  std::uint64_t reads = 0;
  std::uint64_t bytesRead = 0;
  std::uint64_t writes = 0;
  std::uint64_t bytesWritten = 0;
  std::uint64_t seeks = 0;
  std::uint64_t setSizes = 0;
  std::uint64_t syncs = 0;
};

/// What a `MemoryStream` is stored on. It outlives the stream, as a file does: keep the pointer, let a grid file delete
/// its stream, and look at the bytes or open the next stream over them.
struct MemoryFile {
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

  std::vector<std::uint8_t> bytes;
  StreamCounts counts;

  /// False: `SetSize` answers false instead of shortening.
  bool canShorten = true;

  /// Changes are writes, size settings and syncs, counted from 0 in `changes`. All from number `failFrom` on fail, and
  /// leave the bytes alone unless `tornWrite` is set: then the first half of the first failing write still arrives.
  std::int64_t failFrom = kNever;
  std::int64_t changes = 0;
  bool tornWrite = false;

  /// Reads from number `failReadsFrom` on (counted by `counts.reads`, from 0) fail.
  std::uint64_t failReadsFrom = std::numeric_limits<std::uint64_t>::max();

  /// A write or size setting that goes beyond this fails as on a full disk; it also keeps a wild seek from taking all
  /// memory.
  std::int64_t maxSize = std::int64_t{1} << 30;

  bool Faulted() const { return changes > failFrom; }
};

/// A stream over a vector of bytes that counts what is asked of it and fails when told to.
class MemoryStream final : public DataStream {
 public:
  explicit MemoryStream(std::shared_ptr<MemoryFile> file) : file_(std::move(file)) {}

  /// Over bytes of its own, to be had by `File`.
  explicit MemoryStream(std::vector<std::uint8_t> bytes = {}) : file_(std::make_shared<MemoryFile>()) {
    file_->bytes = std::move(bytes);
  }

  const std::shared_ptr<MemoryFile>& File() const { return file_; }

  bool Sync() override {
    ++file_->counts.syncs;
    return Change();
  }

  bool Read(void* buffer, std::uint64_t count) override {
    const bool fails = file_->counts.reads >= file_->failReadsFrom;
    ++file_->counts.reads;
    if (fails) return false;
    const auto size = static_cast<std::int64_t>(file_->bytes.size());
    const std::uint64_t left = position_ < size ? static_cast<std::uint64_t>(size - position_) : 0;
    const std::uint64_t taken = std::min(count, left);
    if (taken > 0) std::memcpy(buffer, file_->bytes.data() + position_, taken);
    position_ += static_cast<std::int64_t>(taken);
    file_->counts.bytesRead += taken;
    return taken == count;
  }

  bool Write(const void* buffer, std::uint64_t count) override {
    ++file_->counts.writes;
    const bool first = !file_->Faulted();
    if (!Change()) {
      if (first && file_->tornWrite) Put(buffer, count / 2);
      return false;
    }
    return Put(buffer, count);
  }

  bool Seek(std::int64_t offset, int origin) override {
    ++file_->counts.seeks;
    if (origin != kFromStart && origin != kFromEnd) return false;
    const std::int64_t base = origin == kFromEnd ? static_cast<std::int64_t>(file_->bytes.size()) : 0;
    std::int64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) return false;
    position_ = target;
    return true;
  }

  std::int64_t Position() override { return position_; }

  bool SetSize(std::int64_t size) override {
    ++file_->counts.setSizes;
    if (!Change()) return false;
    if (size < 0 || size > file_->maxSize) return false;
    if (!file_->canShorten && size < static_cast<std::int64_t>(file_->bytes.size())) return false;
    file_->bytes.resize(static_cast<std::size_t>(size));
    return true;
  }

 private:
  bool Change() { return file_->changes++ < file_->failFrom; }

  bool Put(const void* buffer, std::uint64_t count) {
    if (position_ > file_->maxSize || count > static_cast<std::uint64_t>(file_->maxSize - position_)) return false;
    if (count == 0) return true;
    const std::uint64_t end = static_cast<std::uint64_t>(position_) + count;
    if (end > file_->bytes.size()) file_->bytes.resize(end);
    std::memcpy(file_->bytes.data() + position_, buffer, count);
    position_ += static_cast<std::int64_t>(count);
    file_->counts.bytesWritten += count;
    return true;
  }

  std::shared_ptr<MemoryFile> file_;
  std::int64_t position_ = 0;
};

}  // namespace vak::test
