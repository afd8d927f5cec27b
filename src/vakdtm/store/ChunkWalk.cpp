#include "vakdtm/store/ChunkWalk.h"

#include <algorithm>
#include <limits>

namespace vak {

const std::byte* StreamWindow::At(std::int64_t position, std::int64_t count) {
  if (position < 0 || count < 0 || position > end_ - count) return nullptr;
  const auto held = static_cast<std::int64_t>(bytes_.size());
  if (position < start_ || position + count > start_ + held) {
    const bool near = held > 0 && position >= start_ && position <= start_ + held + reach_;
    reach_ = near ? std::min(kLargest, std::max<std::int64_t>(64, 4 * reach_)) : 0;
    const std::int64_t want = std::min(std::max(count, reach_), end_ - position);
    bytes_.resize(static_cast<std::size_t>(want));
    start_ = position;
    if (!stream_.Seek(position, DataStream::kFromStart) || !stream_.Read(bytes_.data(), bytes_.size())) {
      bytes_.clear();
      failed_ = true;
      return nullptr;
    }
  }
  return bytes_.data() + (position - start_);
}

bool ChunkWalk::Next() {
  if (remaining_ < grid::kHeaderSize) return false;
  const std::byte* bytes = window_.At(next_, grid::kHeaderSize);
  if (!bytes) return false;
  const grid::ChunkHeader header = grid::LoadHeader(bytes);
  if (header.tag == 0 || header.length < 0) return false;
  const std::int64_t whole = grid::kHeaderSize + header.length;
  if (whole > remaining_) return false;
  remaining_ -= whole;
  start_ = next_;
  next_ += whole;
  header_ = header;
  return true;
}

bool ChunkWalk::Find(std::int32_t tag) { return Find(tag, std::numeric_limits<int>::max()); }

bool ChunkWalk::Find(std::int32_t tag, int most) {
  // A body of 31 bits has fewer chunks than an int can count.
  for (; most > 0 && Next(); --most) {
    if (header_.tag == tag) return true;
  }
  return false;
}

namespace {

bool ReadInt(StreamWindow& window, const ChunkWalk& attributes, std::int32_t tag, int most, std::int32_t& value) {
  ChunkWalk walk(window, attributes.Body(), attributes.Header().length);
  if (!walk.Find(tag, most) || walk.Header().length < 4) return false;
  const std::byte* bytes = window.At(walk.Body(), 4);
  if (!bytes) return false;
  value = grid::Load<std::int32_t>(bytes);
  return true;
}

bool ReadAreaPlace(StreamWindow& window, std::int64_t body, std::int64_t length, int most, AreaPlace& place) {
  ChunkWalk attributes(window, body, length);
  if (!attributes.Find(grid::kAttributes, most)) return false;
  return ReadInt(window, attributes, grid::kBottomLeftRow, most, place.row) &&
         ReadInt(window, attributes, grid::kBottomLeftCol, most, place.col);
}

}  // namespace

bool ReadAreaPlace(StreamWindow& window, std::int64_t body, std::int64_t length, AreaPlace& place) {
  return ReadAreaPlace(window, body, length, std::numeric_limits<int>::max(), place);
}

bool ReadAreaPlaceNearby(StreamWindow& window, std::int64_t body, std::int64_t length, AreaPlace& place) {
  constexpr int kFew = 4;
  return ReadAreaPlace(window, body, length, kFew, place);
}

}  // namespace vak
