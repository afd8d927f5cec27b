#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "vakdtm/services/files/DataStream.h"
#include "vakdtm/store/AreaIndex.h"
#include "vakdtm/store/GridSettings.h"

namespace vak {

/// The end of a grid file that is written to: where the next area or the index goes, and what stands there meanwhile.
///
/// The power may go and the process may die at any moment, and the file must open with all that was last synced, no
/// cell showing what was never put into it. Of what is written between two syncs the disk takes any part in any order,
/// in sectors of 512 bytes. Steps that must follow each other are therefore parted by a sync:
///
/// - An index is believed by its tail alone. The tail is made invalid before anything goes over an index, and a new one
///   is written when what it speaks for is on the disk.
/// - A new area goes to where empty cells are on the disk already, so that of its cells only written ones differ. Such
///   room is made for several areas at once, for the sync that it costs; what is left over is cut off with the index.
/// - A walk from the front meets something behind the last area that ends it: an index head, the filler, or the end.
///
/// Once an index is written, the file has just the bytes of header, areas and index. All operations require the stream
/// lock.
class FileEnd {
 public:
  /// @param stream  not owned; may be null as long as only `Next` and `Size` are asked.
  explicit FileEnd(DataStream* stream) : stream_(stream) {}

  /// Begins anew with what an opening found.
  /// @param next  offset where the next area or index goes. @param size  of the file.
  /// @param hasIndex  whether the file ends in an index that is believed.
  void Reset(std::int64_t next, std::int64_t size, bool hasIndex);

  std::int64_t Next() const { return next_; }
  /// Size of the file with the last index written or found.
  std::int64_t Size() const { return size_; }
  /// To be said when an area was written into the room at `Next`.
  void Advance(std::int64_t by) { next_ += by; }
  /// Takes room that may have been partly written over out of use.
  void ForgetRoom() { roomEnd_ = next_; }

  /// Has no index believed from here on, also after a power cut. @return false when that can't be had.
  bool DropIndex();
  /// Has empty cells for one more area on the disk at `Next`, in a form that ends a walk.
  bool MakeRoom(const GridSettings& settings);
  /// Gives the file an earlier end: what lies behind belongs to no area any more. Requires: no index is believed, and
  /// all that was moved from behind is on the disk at its new place.
  bool MoveBack(std::int64_t next);
  /// Writes an index at `Next`, on the disk behind everything that was written before it.
  /// @param inPlace  the file ends in an index for the same areas at the same places, so that any mixture of both is
  /// good. @return false when a part failed; the file may have no index then.
  bool WriteIndex(const std::vector<grid::IndexEntry>& entries, bool inPlace);

 private:
  std::int64_t PhysicalEnd();
  std::int64_t AreasAhead(std::int64_t areaSize);
  bool FormatRoom(const GridSettings& settings, std::int64_t areaSize, std::int64_t areas);
  bool EndWalkAt(std::int64_t position);

  DataStream* stream_;
  std::int64_t next_ = 0;
  std::int64_t size_ = 0;
  std::int64_t roomEnd_ = 0;  // up to where room has been made
  bool hasIndex_ = false;     // whether the file ends in an index that is believed
  bool settled_ = false;      // whether what others left in the file has been synced since the opening
  std::int64_t ahead_ = 1;    // how many areas to make room for next time
  std::optional<bool> cuts_;  // whether the stream can be cut; unknown until it matters
};

}  // namespace vak
