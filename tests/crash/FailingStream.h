#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "vakdtm/services/files/DataStream.h"

#include "crash/DiskRecording.h"

namespace vak::test {

/// A disk that fails when told to. Outlives the streams on it.
struct FailingDisk {
  enum Kind { kRead, kWrite, kSeek, kSize, kSync };
  static constexpr int kKinds = 5;
  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

  ByteList bytes;
  /// What the last sync that went well left.
  ByteList durable;
  bool canShorten = true;

  /// The call of this kind with this number, from 0, fails; and with `forGood` all of that kind behind it.
  Kind kind = kRead;
  std::int64_t number = kNever;
  bool forGood = false;
  /// Half of what fails in a write or read arrives all the same, in whole numbers of eight bytes.
  bool halfway = false;
  /// Beyond this there is no room: what fits of a write arrives.
  std::int64_t room = kNever;

  std::array<std::int64_t, kKinds> calls{};
  /// How many calls have failed.
  int failures = 0;

  bool Fails(Kind called) {
    const std::int64_t at = calls[called]++;
    const bool fails = called == kind && (forGood ? at >= number : at == number);
    if (fails) ++failures;
    return fails;
  }
  void Heal() {
    number = kNever;
    room = kNever;
  }
};

/// A stream on a failing disk.
class FailingStream final : public DataStream {
 public:
  explicit FailingStream(std::shared_ptr<FailingDisk> disk) : disk_(std::move(disk)) {}

  bool Sync() override {
    if (disk_->Fails(FailingDisk::kSync)) return false;
    disk_->durable = disk_->bytes;
    return true;
  }

  bool Read(void* buffer, std::uint64_t count) override {
    const bool fails = disk_->Fails(FailingDisk::kRead);
    if (fails && !disk_->halfway) return false;
    const std::uint64_t wanted = fails ? Half(count) : count;
    const auto size = static_cast<std::int64_t>(disk_->bytes.size());
    const std::uint64_t there =
        std::min(wanted, static_cast<std::uint64_t>(std::max<std::int64_t>(0, size - position_)));
    if (there > 0) std::memcpy(buffer, disk_->bytes.data() + position_, there);
    position_ += static_cast<std::int64_t>(there);
    return there == count;
  }

  bool Write(const void* buffer, std::uint64_t count) override {
    const bool fails = disk_->Fails(FailingDisk::kWrite);
    if (fails && !disk_->halfway) return false;
    std::uint64_t fits = fails ? Half(count) : count;
    if (position_ + static_cast<std::int64_t>(fits) > disk_->room) {
      fits = static_cast<std::uint64_t>(std::max<std::int64_t>(0, disk_->room - position_));
      ++disk_->failures;
    }
    const auto end = static_cast<std::size_t>(position_) + fits;
    if (fits > 0) {
      if (end > disk_->bytes.size()) disk_->bytes.resize(end);
      std::memcpy(disk_->bytes.data() + position_, buffer, fits);
    }
    position_ += static_cast<std::int64_t>(fits);
    return fits == count;
  }

  bool Seek(std::int64_t offset, int origin) override {
    if (disk_->Fails(FailingDisk::kSeek)) return false;
    const std::int64_t base = origin == kFromEnd ? static_cast<std::int64_t>(disk_->bytes.size()) : 0;
    if (base + offset < 0) return false;
    position_ = base + offset;
    return true;
  }

  std::int64_t Position() override { return position_; }

  bool SetSize(std::int64_t size) override {
    if (disk_->Fails(FailingDisk::kSize)) return false;
    if (!disk_->canShorten && size < static_cast<std::int64_t>(disk_->bytes.size())) return false;
    if (size > disk_->room) return false;
    disk_->bytes.resize(static_cast<std::size_t>(size));
    return true;
  }

 private:
  static std::uint64_t Half(std::uint64_t count) { return count / 16 * 8; }

  std::shared_ptr<FailingDisk> disk_;
  std::int64_t position_ = 0;
};

}  // namespace vak::test
