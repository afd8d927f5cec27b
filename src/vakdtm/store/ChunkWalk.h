#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vakdtm/services/files/DataStream.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {

/// Reads small pieces of a stream without a system call for each: a window that grows while what is asked for lies
/// close together, so that a file of a million tiny chunks is read in large pieces and one of large chunks only at its
/// headers.
///
/// Requires: stream lock held while in use.
class StreamWindow {
 public:
  /// @param end  nothing at or behind this offset is read.
  StreamWindow(DataStream& stream, std::int64_t end) : stream_(stream), end_(end) {}

  /// @return `count` bytes at `position`, valid until the next call; null when they don't all lie before the end or
  /// can't be read.
  const std::byte* At(std::int64_t position, std::int64_t count);

  std::int64_t End() const { return end_; }
  /// Whether the stream has failed to give bytes that it has: what was read then says nothing about the file.
  bool HasFailed() const { return failed_; }

 private:
  static constexpr std::int64_t kLargest = 1 << 14;

  DataStream& stream_;
  std::int64_t end_;
  std::int64_t start_ = 0;
  std::int64_t reach_ = 0;  // how much to read ahead next time
  std::vector<std::byte> bytes_;
  bool failed_ = false;
};

/// One pass over chunks that lie back to back.
class ChunkWalk {
 public:
  /// Over `remaining` bytes from `position` on.
  ChunkWalk(StreamWindow& window, std::int64_t position, std::int64_t remaining)
      : window_(window), next_(position), remaining_(remaining) {}

  /// Goes to the next chunk. @return false when fewer than 8 bytes remain, the header can't be read, its tag is 0, its
  /// length is negative or goes beyond the end; the present chunk stays what it was.
  bool Next();
  /// Goes on to the next chunk with this tag.
  bool Find(std::int32_t tag);
  /// The same, but not further than `most` chunks.
  bool Find(std::int32_t tag, int most);

  const grid::ChunkHeader& Header() const { return header_; }
  /// Offset of the present chunk's body.
  std::int64_t Body() const { return start_ + grid::kHeaderSize; }
  /// Offset of the present chunk's header.
  std::int64_t Start() const { return start_; }
  /// Offset behind the present chunk: where the next one begins.
  std::int64_t End() const { return next_; }

 private:
  StreamWindow& window_;
  std::int64_t start_ = 0;
  std::int64_t next_;
  std::int64_t remaining_;
  grid::ChunkHeader header_;
};

/// Row and column of an area's bottom-left cell, from the `attr` in its body.
struct AreaPlace {
  std::int32_t row = 0;
  std::int32_t col = 0;
};

/// Looks row and column up in an area's body. @return false when `attr`, `blrw` or `blcl` isn't there.
bool ReadAreaPlace(StreamWindow& window, std::int64_t body, std::int64_t length, AreaPlace& place);

/// The same at a small cost whatever the bytes are: each of the three has to be among the first few chunks where it
/// belongs, as in every area that was ever written.
bool ReadAreaPlaceNearby(StreamWindow& window, std::int64_t body, std::int64_t length, AreaPlace& place);

}  // namespace vak
