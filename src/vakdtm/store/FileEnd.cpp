#include "vakdtm/store/FileEnd.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {
namespace {

/// As much room is made at once at most.
constexpr std::int64_t kMostRoom = std::int64_t{32} << 20;

/// Gathers bytes that follow each other into large writes.
class Gatherer {
 public:
  explicit Gatherer(DataStream& stream) : stream_(stream) { bytes_.reserve(kPiece); }

  void Put(const std::byte* bytes, std::size_t count) {
    bytes_.insert(bytes_.end(), bytes, bytes + count);
    if (bytes_.size() >= kPiece) Flush();
  }
  void Fill(std::byte byte, std::int64_t count) {
    while (count > 0) {
      const auto piece = std::min(count, static_cast<std::int64_t>(kPiece - bytes_.size()));
      bytes_.resize(bytes_.size() + static_cast<std::size_t>(piece), byte);
      count -= piece;
      if (bytes_.size() >= kPiece) Flush();
    }
  }
  /// @return false when any write has failed.
  bool Flush() {
    good_ = good_ && stream_.Write(bytes_.data(), bytes_.size());
    bytes_.clear();
    return good_;
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 18;

  DataStream& stream_;
  std::vector<std::byte> bytes_;
  bool good_ = true;
};

std::array<std::byte, grid::kHeaderSize> Header(std::int32_t tag, std::int32_t length) {
  std::array<std::byte, grid::kHeaderSize> bytes{};
  grid::StoreHeader(bytes.data(), {tag, length});
  return bytes;
}

void PutEmptyArea(Gatherer& out, const GridSettings& settings) {
  // No area yet, but all else that one begins with: whichever sector of its prefix arrives first, it is no area either.
  auto prefix = grid::AreaPrefix(0, grid::kNoPlace, grid::kNoPlace);
  grid::StoreHeader(prefix.data(), {0, grid::kFillerLength});
  out.Put(prefix.data(), prefix.size());
  for (const int id : settings.blockIds) {
    const int size = settings.BlockSize(id);
    const auto header = Header(id, size);
    out.Put(header.data(), header.size());
    out.Fill(static_cast<std::byte>(DtmDataBlock::GetFillByte(DtmDataBlock::GetDataType(id))), size);
  }
}

}  // namespace

void FileEnd::Reset(std::int64_t next, std::int64_t size, bool hasIndex) {
  next_ = roomEnd_ = next;
  size_ = size;
  hasIndex_ = hasIndex;
  settled_ = false;
  ahead_ = 1;
}

std::int64_t FileEnd::PhysicalEnd() { return stream_->Seek(0, DataStream::kFromEnd) ? stream_->Position() : -1; }

bool FileEnd::DropIndex() {
  if (!hasIndex_ && settled_) return true;
  if (hasIndex_) {
    constexpr std::array<std::byte, grid::kHeaderSize> kNothing{};
    if (!stream_->Seek(-grid::kHeaderSize, DataStream::kFromEnd) || !stream_->Write(kNothing.data(), kNothing.size())) {
      return false;
    }
  }
  if (!stream_->Sync()) return false;
  hasIndex_ = false;
  settled_ = true;
  return true;
}

bool FileEnd::EndWalkAt(std::int64_t position) {
  const auto filler = Header(0, grid::kFillerLength);
  return stream_->Seek(position, DataStream::kFromStart) && stream_->Write(filler.data(), filler.size());
}

std::int64_t FileEnd::AreasAhead(std::int64_t areaSize) {
  if (ahead_ <= 1) return 1;
  // What is made ahead has to be cut off again.
  if (!cuts_) {
    const std::int64_t end = PhysicalEnd();
    cuts_ = end >= 0 && stream_->SetSize(end);
  }
  return *cuts_ ? std::clamp<std::int64_t>(kMostRoom / areaSize, 1, ahead_) : 1;
}

bool FileEnd::FormatRoom(const GridSettings& settings, std::int64_t areaSize, std::int64_t areas) {
  const std::int64_t end = next_ + areas * areaSize;
  const std::int64_t physicalEnd = PhysicalEnd();
  if (physicalEnd < 0 || !stream_->Seek(next_, DataStream::kFromStart)) return false;
  Gatherer out(*stream_);
  for (std::int64_t i = 0; i < areas; ++i) PutEmptyArea(out, settings);
  if (!out.Flush()) return false;
  if (physicalEnd > end && !EndWalkAt(end)) return false;
  return stream_->Sync();
}

bool FileEnd::MakeRoom(const GridSettings& settings) {
  const std::int64_t areaSize = grid::kHeaderSize + settings.SmallestBody();
  if (next_ + areaSize <= roomEnd_) return true;
  if (!DropIndex()) return false;
  std::int64_t areas = AreasAhead(areaSize);
  roomEnd_ = next_;
  // A disk that hasn't the space for many may have it for one.
  while (!FormatRoom(settings, areaSize, areas)) {
    if (areas == 1) return false;
    areas = 1;
    const std::int64_t end = std::max(next_ + areaSize, size_);
    if (PhysicalEnd() > end) stream_->SetSize(end);
  }
  roomEnd_ = next_ + areas * areaSize;
  ahead_ = std::min(2 * ahead_, std::numeric_limits<std::int64_t>::max() / 4);
  return true;
}

bool FileEnd::MoveBack(std::int64_t next) {
  const std::int64_t end = PhysicalEnd();
  if (end < 0 || (next < end && !EndWalkAt(next)) || !stream_->Sync()) return false;
  next_ = roomEnd_ = next;
  // Now that a walk ends here, what lies behind can go too. Where it can't be cut off it stays behind the filler.
  stream_->SetSize(next);
  return true;
}

bool FileEnd::WriteIndex(const std::vector<grid::IndexEntry>& entries, bool inPlace) {
  std::vector<std::byte> bytes;
  if (!FormIndex(entries, bytes)) return false;
  const std::size_t tail = bytes.size() - grid::kHeaderSize;
  inPlace = inPlace && hasIndex_;
  ForgetRoom();  // it is written over
  if (!inPlace) {
    const std::array<std::byte, grid::kHeaderSize> nothing{};
    if (!DropIndex() || !stream_->Seek(next_, DataStream::kFromStart) || !stream_->Write(bytes.data(), tail) ||
        !stream_->Write(nothing.data(), nothing.size())) {
      return false;
    }
  }
  // What the index will name has to be on the disk before it is named.
  if (!stream_->Sync()) return false;
  const std::size_t from = inPlace ? 0 : tail;
  hasIndex_ = true;  // from the first byte of the tail on, whatever becomes of the rest
  if (!stream_->Seek(next_ + static_cast<std::int64_t>(from), DataStream::kFromStart) ||
      !stream_->Write(bytes.data() + from, bytes.size() - from)) {
    return false;
  }
  size_ = stream_->Position();
  if (!inPlace) EndFileAt(*stream_, size_);
  ahead_ = 1;
  const std::int64_t end = PhysicalEnd();
  hasIndex_ = end < 0 || end == size_;  // not behind a filler
  return stream_->Sync();
}

}  // namespace vak
