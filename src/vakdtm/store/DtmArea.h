#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "vakdtm/services/files/DataStream.h"
#include "vakdtm/services/platform/RecursiveMutex.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmDataBlock.h"

namespace vak {

class DtmFile;
class StreamWindow;

/// A square of S x S cells, S the model's area size: the unit in which a grid model grows, and one chunk of its file.
///
/// Cell (row, col) has index (row - bottom-left row) x S + (col - bottom-left col): the bottom row comes first, columns
/// run from left to right. Bottom-left row and column are multiples of S. An area is *written* when it has a place in
/// the file; a new one gets its place at once. Its blocks come into being when they are first needed.
///
/// The area lock is re-entrant; writers of cells hold it across the update of a cell in all blocks. Lock order: file
/// lock, area lock, stream lock. Owned by its file; lives until the file's last `Close`.
class DtmArea {
 public:
  /// A new, empty, unwritten area: its Z range is valid from the start.
  DtmArea(DtmFile* file, int row, int col);

  /// An area that lies in the file, as the index or a walk tells of it; nothing is read. No valid Z range until one is
  /// set.
  DtmArea(DtmFile* file, int row, int col, DataStream* stream, long long position, long long time);

  DtmArea(const DtmArea&) = delete;
  DtmArea& operator=(const DtmArea&) = delete;
  /// Frees the blocks without writing them.
  ~DtmArea();

  DtmFile* GetDtmFile() const { return file_; }
  int AreaSize() const { return areaSize_; }
  void GetBottomLeft(int& row, int& col) const {
    row = bottomLeftRow_;
    col = bottomLeftCol_;
  }
  int BottomLeftRow() const { return bottomLeftRow_; }
  int BottomLeftCol() const { return bottomLeftCol_; }
  /// Length of the area's body in the file, bytes; 0 while it isn't known.
  int BlockSize() const;
  /// File offset of the body, -1 when unwritten.
  long long BlockPosition() const;
  /// Seconds since 1970 of the last writing; 0 when never.
  long long LastWritten() const;
  bool IsWritten() const;
  /// Whether any block differs from the file.
  bool IsModified() const;
  /// Whether reading the blocks' headers failed: no block can be opened, and the area's bytes stay as they are.
  bool HasReadError() const;
  /// The same for a caller that holds the area lock.
  bool HasReadErrorLocked() const { return readError_; }

  bool Lock() {
    mutex_.lock();
    return true;
  }
  void Unlock() { mutex_.unlock(); }
  /// The same lock for a scope: `std::scoped_lock lock(area->Mutex())`.
  RecursiveMutex& Mutex() const { return mutex_; }

  bool IsInArea(int row, int col) const {
    return Offset(row, bottomLeftRow_) < static_cast<unsigned>(areaSize_) &&
           Offset(col, bottomLeftCol_) < static_cast<unsigned>(areaSize_);
  }
  /// Index of a cell in the blocks; not checked, the cell must lie in the area.
  int CalcCell(int row, int col) const { return (row - bottomLeftRow_) * areaSize_ + (col - bottomLeftCol_); }
  /// The inverse of `CalcCell`.
  void CalcRowCol(int cell, int& row, int& col) const {
    row = bottomLeftRow_ + cell / areaSize_;
    col = bottomLeftCol_ + cell % areaSize_;
  }

  /// The block with this id, with one open count that the caller owns; null when there is none or it can't be read.
  DtmDataBlock* OpenDataBlock(int id);
  /// The same by place in the file's block list.
  DtmDataBlock* OpenDataBlockAt(int index);

  /// The same block as it is, resident or not; null when the area's blocks can't be found. Requires: area lock held.
  DtmDataBlock* FindDataBlockAt(int index);

  /// Whether the area lies in the file and its blocks were never needed, so that all its cells are those of the file.
  /// Requires: area lock held.
  bool IsUntouched() const { return blocks_.empty() && stream_ && !readError_; }

  enum class Reading {
    kDone,
    kFailed,    ///< the bytes can't be had
    kElsewhere  ///< the area isn't as areas are written, or is cut off: only the walk by `FindDataBlockAt` can tell
  };

  /// Reads cells of a block of an untouched area from where the block is in areas as they are written, for who looks at
  /// few cells of many areas: of the area's own chunk nothing but its beginning, that block's header and the cells is
  /// looked at, and damage elsewhere in it isn't noticed; and these once, until the area's place is known anew. Leaves
  /// the area untouched.
  /// @param out  gets them, in the width of the letter.
  /// Requires: area lock held, `IsUntouched()`.
  [[nodiscard]] Reading ReadUntouched(int index, int cell, int count, std::byte* out);

  /// Grows whenever the area's place, or what another process may have put into it, is known anew. Requires: area lock
  /// held.
  std::uint32_t NumRefreshes() const { return refreshes_; }

  /// Whether all blocks are known to be empty. False for a written area whose blocks were never needed or can't be
  /// read: unknown counts as data.
  bool IsEmpty();
  /// Looks whether an area has lost all its data, cell by cell, and sets the empty flags of the blocks that have.
  void CheckEmpty();
  /// Empties every cell: resident blocks are filled, the others only said to be empty. The Z range starts anew.
  void MakeEmpty();

  /// Moves the area to another place in the file (null and -1: to none) without touching cells. With a stream the
  /// blocks' headers are read afresh there, if there are blocks.
  void SetBlockPosition(DataStream* stream, long long position);
  /// Cuts the area off from the file, all its data in memory. @return false when a block can't be read.
  bool MakeUnwritten();

  /// Copies the range of Z. @return whether it may be trusted.
  bool GetMinMaxZ(float& lo, float& hi) const;
  void SetMinMaxZ(float lo, float hi);
  /// Widens a valid range by z; does nothing to one that isn't.
  void UpdateMinMaxZ(float z);
  /// The same for a caller that holds the area lock.
  void UpdateMinMaxZLocked(float z) {
    if (!rangeValid_) return;
    if (z < lowestZ_) lowestZ_ = z;
    if (z > highestZ_) highestZ_ = z;
  }
  /// Works the range out from the cells of these blocks and marks it valid, unless one of them can't be read: then
  /// there is no valid range. Kinds that the model doesn't have add nothing.
  void FindMinMaxZ(const int* ids, int count);

  /// Writes the blocks that differ from the file to their places. @return false when unwritten or a write failed.
  bool SyncWrite();
  /// Reads the resident blocks afresh over the present cells. @param time becomes the last-written time.
  /// @return false when a block has no place or a read failed.
  bool SyncRead(long long time);

  /// What the stream has where an area is to be written.
  enum class Target {
    kAnything,  ///< everything is written
    kRoom,      ///< an area's empty cells, of which those that hold nothing else stay
    kHole       ///< a place in front of other areas: everything but the tag, by which the chunk becomes an area, later
  };

  /// Writes the area as a chunk at the stream's offset, and takes that as its place.
  /// @return false when the area is written already, its blocks can't be made or the write failed.
  bool WriteArea(DataStream* stream, Target target = Target::kAnything);

 private:
  friend class AreaMoves;
  friend class DtmDataBlock;
  friend class DtmFile;

  /// Reads the resident blocks afresh that weren't changed here.
  bool RefreshUnmodified();
  bool WriteBlocks(DataStream* stream, Target target);
  /// Whether the chunk at the area's place is still this area's. Requires: area lock and stream lock held.
  bool IsStillThere();
  static unsigned Offset(int value, int base) { return static_cast<unsigned>(value) - static_cast<unsigned>(base); }

  /// Makes the blocks if there are none yet, and finds their places if the area is written.
  void CreateDataBlocks();
  /// Finds the place of every block in the area's chunk. @return false when the chunk isn't this area's or lacks a
  /// block.
  bool ReadDataBlocks();
  bool ReadOwnHeader(StreamWindow& window);
  bool FindBlocks(StreamWindow& window);
  /// Whether the area begins as areas are written, so that the places of its blocks follow.
  bool BeginsAsWritten(StreamWindow& window) const;
  /// Finds how far the file may be read.
  bool FindEndOfFile(std::int64_t& end) const;
  /// Whether this block's header is there.
  bool IsHeaderOf(int index, StreamWindow& window, std::int64_t header) const;
  void MakeBlocks();
  void ResetMinMaxZ();
  /// For an index entry that can't be true: the area is there, none of its blocks ever is.
  void MarkUnreadable() { readError_ = falseClaim_ = true; }
  /// Whether the place is one that the index can't rightly have meant, so that nothing in the file is this area's.
  bool IsFalseClaim() const { return falseClaim_; }

  DtmFile* const file_;
  const int areaSize_;
  int bodyLength_ = 0;            // guarded by mutex_, like all below that isn't const
  DataStream* stream_ = nullptr;  // null: unwritten; not owned
  std::int64_t position_ = -1;
  int bottomLeftRow_ = 0;  // never changes once the constructor is done
  int bottomLeftCol_ = 0;  // never changes once the constructor is done
  std::vector<std::unique_ptr<DtmDataBlock>> blocks_;
  mutable RecursiveMutex mutex_;
  std::int64_t lastWritten_ = 0;
  float lowestZ_ = kNoLowestZ;
  float highestZ_ = kNoHighestZ;
  std::uint32_t refreshes_ = 0;
  std::uint32_t headersAt_ = 0;   // refreshes when headersMet_ began
  std::uint64_t headersMet_ = 0;  // a bit for each of the first blocks whose header was met while untouched
  bool rangeValid_ = false;
  bool readError_ = false;
  bool falseClaim_ = false;
  bool lookedAt_ = false;  // whether cells were read while untouched
};

}  // namespace vak
