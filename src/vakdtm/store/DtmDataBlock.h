#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "vakdtm/services/files/DataStream.h"

namespace vak {

class DtmArea;

/// The cells of one kind in one area: S x S values in the order of `DtmArea::CalcCell`.
///
/// The cells are in memory while somebody holds the block open, or while they are the only copy (modified, and no place
/// in the file). The open count keeps the cells where they are, it doesn't protect their values: writers hold the
/// area lock across an update, readers take none and go through `LoadCell`.
///
/// Two flags go with the cells. `IsModified`: they differ from the file. `IsEmpty`: a set flag promises that every cell
/// is empty, so that nothing needs reading; a clear flag promises nothing.
///
/// Owned by its area. Unless said otherwise, operations take the locks that they need (area lock, then stream lock).
class DtmDataBlock {
 public:
  /// A block without a place in the file: not modified, empty, no cells.
  /// @param blockSize  bytes: S x S x bytes per cell.
  DtmDataBlock(DtmArea* area, int id, int blockSize);

  DtmDataBlock(const DtmDataBlock&) = delete;
  DtmDataBlock& operator=(const DtmDataBlock&) = delete;

  DtmArea* GetArea() const { return area_; }
  int BlockId() const { return id_; }
  int BlockSize() const { return size_; }
  /// File offset of the first cell, -1 when unwritten. Requires: area lock held.
  long long BlockPosition() const { return position_; }
  /// Requires: area lock held.
  void SetBlockPosition(DataStream* stream, long long position);
  /// Whether the block has a place in the file. Requires: area lock held.
  bool IsWritten() const { return stream_ != nullptr; }

  char DataType() const { return GetDataType(id_); }
  int BytesPerCell() const { return GetBytesPerCell(DataType()); }
  int FillByte() const { return GetFillByte(DataType()); }

  /// The cells, or null. Stay where they are while the caller holds an open count.
  std::byte* CellData() const { return cells_.get(); }

  /// To be said with every change of a cell: modified, and no longer known to be empty.
  void SetModified() { PutFlags(kModified); }
  bool IsModified() const { return (state_.load(std::memory_order_relaxed) & kModified) != 0; }
  bool IsEmpty() const { return (state_.load(std::memory_order_relaxed) & kEmpty) != 0; }
  /// Grows with every change of resident cells, for those who keep what they have worked out of them: take the number
  /// first, then look at the cells. Starts anew behind its greatest value, 2^29 - 1.
  std::uint32_t NumChanges() const { return state_.load(std::memory_order_acquire) / kOneChange; }
  /// Sets the empty flag, cells untouched.
  void SetEmpty() { state_.fetch_or(kEmpty, std::memory_order_relaxed); }
  /// Resident cells are filled with the fill byte and count as modified; otherwise only the flag is set, and what the
  /// file has is emptied when the area is next written.
  void MakeEmpty();

  /// Makes the cells resident, reading them unless the block is unwritten or empty, and adds an open count.
  /// @return false when they can't be read; nothing has changed then.
  bool Open();

  /// Copies cells, from memory if the block is resident and from the file if not, and leaves the block as it is.
  /// @param out  gets them, in the width of the letter. @return false when they can't be read. Requires: area lock
  /// held.
  bool ReadCells(int cell, int count, std::byte* out);
  /// Whether cells would have to be read from the file. Requires: area lock held.
  bool IsInFileOnly() const { return !cells_ && stream_ && !IsEmpty(); }

  /// Gives one open count back. The last one writes modified cells into the file, if they have a place there, and frees
  /// the cells. A write that fails loses them; `DtmFile::HasLostData` then answers true.
  void Close();

  /// Writes modified resident cells to their place, and empty ones over those that the block was emptied of. @return
  /// false when the block has no place or the write failed (the flag stays set); true when there was nothing to write.
  bool SyncWrite();

  /// Reads resident cells afresh over the present ones, where they are; the open counts stay.
  /// @return false when the block has no place or the read failed.
  bool SyncRead();

  /// Cuts the block off from the file, keeping its data in memory. @return false when they can't be read.
  bool MakeUnwritten();

  /// Writes header and cells at the stream's offset, for a block that has no place yet, and takes that as its place.
  /// Requires: area lock and stream lock held.
  bool WriteBlock(DataStream* stream);
  /// The same for an empty block where the stream has its header and empty cells already: goes past them.
  bool TakePlace(DataStream* stream);

  /// Lowers `lo` and raises `hi` by the values of a `d` or `f` block that isn't empty. The caller holds it open.
  void FindMinMax(float& lo, float& hi) const;

  /// Whether every byte of the resident cells is the fill byte. Requires: area lock and an open count held.
  bool HoldsOnlyFill() const;

  /// The letter of an id, its high byte.
  static char GetDataType(int id) { return static_cast<char>(id >> 24); }
  /// 1, 4 or 8; 0 for a letter other than c, d, f, i, t, u.
  static int GetBytesPerCell(char letter);
  /// 0xFF for d and f, else 0.
  static int GetFillByte(char letter);
  /// @return false, with 0 bytes and the fill byte untouched, for an unknown letter.
  static bool GetBlockInfo(int id, int& bytesPerCell, int& fillByte);

 private:
  static constexpr std::uint32_t kModified = 1;
  static constexpr std::uint32_t kEmpty = 2;
  static constexpr std::uint32_t kStale = 4;  // the file still has the cells that this block was emptied of
  static constexpr std::uint32_t kOneChange = 8;

  friend class DtmArea;

  void ClearEmpty() { state_.fetch_and(~(kEmpty | kStale), std::memory_order_relaxed); }
  void ClearModified() { state_.fetch_and(~(kModified | kStale), std::memory_order_relaxed); }
  bool NeedsWriting() const { return (state_.load(std::memory_order_relaxed) & (kModified | kStale)) != 0; }
  /// Sets these flags and no others, and counts a change. A load and a store: who changes cells holds the area lock.
  void PutFlags(std::uint32_t flags) {
    const std::uint32_t changes = state_.load(std::memory_order_relaxed) & ~(kOneChange - 1);
    state_.store((changes + kOneChange) | flags, std::memory_order_release);
  }
  /// Frees or writes the cells if nobody holds them. Requires: area lock held.
  void Release();
  void FillCells();
  /// The cells, or as many empty ones when none are resident.
  bool WriteCells(DataStream* stream) const;
  /// Reads bytes of the block from its place. @return false when that failed, or the place was another's by the end.
  /// Requires: stream lock held.
  bool ReadPlace(std::int64_t begin, std::byte* out, std::size_t count);

  std::unique_ptr<std::byte[]> cells_;  // replaced under the area lock, and only while the open count is 0
  DtmArea* area_;
  int id_;
  int size_;
  DataStream* stream_ = nullptr;  // guarded by the area lock; not owned
  std::int64_t position_ = -1;    // guarded by the area lock
  std::atomic<int> openCount_{0};
  std::atomic<std::uint32_t> state_{kEmpty};  // flags, and above them the changes
};

/// Holds a block open for a scope.
class BlockHold {
 public:
  /// Opens the block, unless it is null; ask whether that went well.
  explicit BlockHold(DtmDataBlock* block) : block_(block && block->Open() ? block : nullptr) {}
  ~BlockHold() {
    if (block_) block_->Close();
  }
  BlockHold(BlockHold&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  BlockHold(const BlockHold&) = delete;
  BlockHold& operator=(const BlockHold&) = delete;
  BlockHold& operator=(BlockHold&&) = delete;

  explicit operator bool() const { return block_ != nullptr; }
  DtmDataBlock* operator->() const { return block_; }

 private:
  DtmDataBlock* block_;
};

}  // namespace vak
