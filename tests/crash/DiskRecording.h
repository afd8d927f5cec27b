#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "vakdtm/services/files/DataStream.h"

namespace vak::test {

using ByteList = std::vector<std::uint8_t>;

/// What a disk writes as a whole or not at all.
constexpr std::int64_t kSectorSize = 512;

/// One thing that happened to a file, in the order in which it was asked for.
struct DiskEvent {
  enum Kind { kWrite, kSize, kSync };

  Kind kind = kWrite;
  std::int64_t at = 0;  ///< offset of a write; the new size of a change of size
  ByteList bytes;       ///< of a write
};

/// A file whose whole life is remembered, from the bytes that were there at first. Outlives the streams on it.
struct DiskRecording {
  ByteList first;
  ByteList now;
  std::vector<DiskEvent> events;
  /// False: `SetSize` answers false instead of shortening.
  bool canShorten = true;

  void Apply(DiskEvent event) {
    ApplyTo(now, event);
    events.push_back(std::move(event));
  }

  static void ApplyTo(ByteList& bytes, const DiskEvent& event) { ApplyTo(bytes, event, event.bytes.size()); }
  /// @param count  how many bytes of a write arrive.
  static void ApplyTo(ByteList& bytes, const DiskEvent& event, std::size_t count) {
    if (event.kind == DiskEvent::kSize) bytes.resize(static_cast<std::size_t>(event.at));
    if (event.kind != DiskEvent::kWrite || count == 0) return;
    const auto at = static_cast<std::size_t>(event.at);
    if (at + count > bytes.size()) bytes.resize(at + count);
    std::memcpy(bytes.data() + at, event.bytes.data(), count);
  }
};

/// A stream that records every write, size change and sync.
class RecordingStream final : public DataStream {
 public:
  explicit RecordingStream(std::shared_ptr<DiskRecording> disk) : disk_(std::move(disk)) {}

  bool Sync() override {
    disk_->Apply({DiskEvent::kSync, 0, {}});
    return true;
  }

  bool Read(void* buffer, std::uint64_t count) override {
    const auto size = static_cast<std::int64_t>(disk_->now.size());
    if (count > static_cast<std::uint64_t>(std::max<std::int64_t>(0, size - position_))) return false;
    if (count > 0) std::memcpy(buffer, disk_->now.data() + position_, count);
    position_ += static_cast<std::int64_t>(count);
    return true;
  }

  bool Write(const void* buffer, std::uint64_t count) override {
    const auto* const from = static_cast<const std::uint8_t*>(buffer);
    disk_->Apply({DiskEvent::kWrite, position_, ByteList(from, from + count)});
    position_ += static_cast<std::int64_t>(count);
    return true;
  }

  bool Seek(std::int64_t offset, int origin) override {
    const std::int64_t base = origin == kFromEnd ? static_cast<std::int64_t>(disk_->now.size()) : 0;
    if (base + offset < 0) return false;
    position_ = base + offset;
    return true;
  }

  std::int64_t Position() override { return position_; }

  bool SetSize(std::int64_t size) override {
    if (!disk_->canShorten && size < static_cast<std::int64_t>(disk_->now.size())) return false;
    if (size != static_cast<std::int64_t>(disk_->now.size())) disk_->Apply({DiskEvent::kSize, size, {}});
    return true;
  }

 private:
  std::shared_ptr<DiskRecording> disk_;
  std::int64_t position_ = 0;
};

/// What can be on the disk when the power goes at some moment between two syncs.
///
/// What the earlier sync covered is there. Of each sector touched since, the disk may have any of the forms that it has
/// had, and the file any of the sizes: what was never written out below the size reads as zeros.
class Epoch {
 public:
  /// @param base   what the earlier sync left.
  /// @param begin  index of the first event since. @param end  index of the sync that ends it, or the count of events.
  Epoch(ByteList base, const DiskRecording& disk, std::size_t begin, std::size_t end)
      : base_(std::move(base)), begin_(begin), end_(end) {
    sizes_.push_back(static_cast<std::int64_t>(base_.size()));
    ByteList now = base_;
    for (std::size_t i = begin; i < end; ++i) {
      const DiskEvent& event = disk.events[i];
      const auto former = static_cast<std::int64_t>(now.size());
      DiskRecording::ApplyTo(now, event);
      const auto size = static_cast<std::int64_t>(now.size());
      if (std::find(sizes_.begin(), sizes_.end(), size) == sizes_.end()) sizes_.push_back(size);
      if (event.kind == DiskEvent::kWrite && !event.bytes.empty()) {
        Touch(now, event.at, event.at + static_cast<std::int64_t>(event.bytes.size()));
      } else if (event.kind == DiskEvent::kSize) {
        // What is cut off is gone with the size; of the sector with the new end the rest becomes zeros.
        const std::int64_t cut = std::min(former, size);
        Touch(now, cut, size < former ? std::min(former, (cut / kSectorSize + 1) * kSectorSize) : size);
      }
    }
    final_ = static_cast<std::int64_t>(now.size());
  }

  struct Sector {
    std::int64_t number = 0;
    std::vector<ByteList> forms;  ///< the first is what the base has
  };

  /// The size, and of each sector touched the form that the disk has.
  struct State {
    std::int64_t size = 0;
    std::vector<std::size_t> forms;
  };

  std::size_t Begin() const { return begin_; }
  std::size_t End() const { return end_; }
  const ByteList& Base() const { return base_; }
  const std::vector<Sector>& Sectors() const { return sectors_; }
  /// Every size that the file has had, the earliest first.
  const std::vector<std::int64_t>& Sizes() const { return sizes_; }
  std::int64_t FinalSize() const { return final_; }

  State Old() const { return {sizes_.front(), std::vector<std::size_t>(sectors_.size(), 0)}; }
  State New() const {
    State state{final_, {}};
    for (const Sector& sector : sectors_) state.forms.push_back(sector.forms.size() - 1);
    return state;
  }

  /// Whether all events up to this one left the base as it is.
  bool IsBase(const DiskRecording& disk, std::size_t end) const {
    ByteList bytes = base_;
    for (std::size_t i = begin_; i < end; ++i) DiskRecording::ApplyTo(bytes, disk.events[i]);
    return bytes == base_;
  }

  ByteList Build(const State& state) const {
    ByteList bytes = base_;
    bytes.resize(static_cast<std::size_t>(state.size));
    for (std::size_t i = 0; i < sectors_.size(); ++i) {
      const std::int64_t at = sectors_[i].number * kSectorSize;
      const std::int64_t count = std::min(kSectorSize, state.size - at);
      if (count > 0)
        std::memcpy(bytes.data() + at, sectors_[i].forms[state.forms[i]].data(), static_cast<std::size_t>(count));
    }
    return bytes;
  }

 private:
  static ByteList TakeSector(const ByteList& bytes, std::int64_t number) {
    ByteList sector(static_cast<std::size_t>(kSectorSize));
    const std::int64_t at = number * kSectorSize;
    const std::int64_t count = std::min(kSectorSize, static_cast<std::int64_t>(bytes.size()) - at);
    if (count > 0) std::memcpy(sector.data(), bytes.data() + at, static_cast<std::size_t>(count));
    return sector;
  }

  void Touch(const ByteList& now, std::int64_t from, std::int64_t to) {
    for (std::int64_t number = from / kSectorSize; number * kSectorSize < to; ++number) {
      auto found = std::lower_bound(sectors_.begin(), sectors_.end(), number,
                                    [](const Sector& sector, std::int64_t wanted) { return sector.number < wanted; });
      if (found == sectors_.end() || found->number != number) {
        found = sectors_.insert(found, {number, {TakeSector(base_, number)}});
      }
      ByteList form = TakeSector(now, number);
      if (form != found->forms.back()) found->forms.push_back(std::move(form));
    }
  }

  ByteList base_;
  std::size_t begin_;
  std::size_t end_;
  std::vector<Sector> sectors_;  // ascending
  std::vector<std::int64_t> sizes_;
  std::int64_t final_ = 0;
};

/// Cuts a recording at its syncs. @param leftOut  indices of syncs that had no effect.
inline std::vector<Epoch> CutAtSyncs(const DiskRecording& disk, const std::set<std::size_t>& leftOut = {}) {
  std::vector<Epoch> epochs;
  ByteList base = disk.first;
  std::size_t begin = 0;
  for (std::size_t i = 0; i <= disk.events.size(); ++i) {
    if (i < disk.events.size() && (disk.events[i].kind != DiskEvent::kSync || leftOut.contains(i))) continue;
    epochs.emplace_back(base, disk, begin, i);
    for (std::size_t k = begin; k < i; ++k) DiskRecording::ApplyTo(base, disk.events[k]);
    begin = i + 1;
  }
  return epochs;
}

}  // namespace vak::test
