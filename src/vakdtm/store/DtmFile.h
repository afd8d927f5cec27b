#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "vakdtm/services/files/DataStream.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/FileEnd.h"
#include "vakdtm/store/GridFormat.h"
#include "vakdtm/store/GridSettings.h"

namespace vak {

class AreaMoves;
class DtmUpdater;
class StreamWindow;

/// How the areas of a file were found when it was opened.
enum class DtmOpenedBy { kNothing, kCreation, kIndex, kOldIndex, kWalk };

/// One grid model file: an unbounded lattice of square cells, kept sparsely as square areas.
///
/// Cell (row, col) covers [col c, (col+1) c) x [row c, (row+1) c) in the model's plane coordinates, c the cell size in
/// metres. Row and column may be negative; allowed are those of which the whole area and its neighbours fit the type
/// (`IsAllowed`). The file owns its stream and its areas.
///
/// Opening reads the header and the index, nothing else; without a good index the chunks are walked from the front. The
/// last `Close` writes what is pending and then the index. Damage is met with an answer of false or with an area
/// that can't be read (`DtmArea::HasReadError`), never with one area's cells in the place of another's.
///
/// Any thread may call, with the exceptions said. Lock order: file lock, area lock, stream lock.
class DtmFile {
 public:
  /// @param stream  owned from now on. @param create  the first `Open` writes a new file.
  DtmFile(DataStream* stream, bool create);
  virtual ~DtmFile();
  DtmFile(const DtmFile&) = delete;
  DtmFile& operator=(const DtmFile&) = delete;

  /// Adds an open count; the first one reads (or, when creating, writes) the file. @return false when it can't be read
  /// as a grid model: wrong magic, cell size not finite or not above 0, area size below 1, no block ids, areas that
  /// don't fit 31 bits.
  virtual bool Open();

  /// Gives an open count back; the last one writes what is pending, writes the index and forgets the areas. Whether the
  /// writing went well isn't told: call `SyncWrite` before. @return the remaining count.
  virtual int Close();

  // Settings of a file to be created; refused, with false, while the file is open. No check of ranges is made here.
  bool SetCellSize(double cellSize);
  bool SetAreaSize(int areaSize);
  bool ClearBlockIds();
  bool AddBlockId(int id);
  /// Whether the settings can be a model's: what `Open` of a file to be created looks at first.
  bool HasUsableSettings() const;

  /// Metres.
  double CellSize() const { return settings_.cellSize; }
  /// Cells per side of an area.
  int AreaSize() const { return settings_.areaSize; }
  int NumBlockIds() const { return static_cast<int>(settings_.blockIds.size()); }
  int GetBlockId(int index) const { return settings_.blockIds[static_cast<std::size_t>(index)]; }
  bool HasBlockId(int id) const { return FindBlockSlot(id) >= 0; }
  /// Place of a block id in the file's list, the first where it is listed twice; -1 when it isn't.
  int FindBlockSlot(int id) const {
    const auto slots = FindBlockSlots(id);
    return slots.empty() ? -1 : slots.front().second;
  }
  int NumAreas() const { return areaCount_.load(std::memory_order_acquire); }
  int OpenCount() const;
  long long FileSize() const;
  DataStream* GetStream() const { return stream_.get(); }

  /// The area at this place in the order of addition; null outside 0 to `NumAreas()` - 1.
  DtmArea* GetArea(int index) const;
  /// The area that holds a cell. With `create` a missing one is made and written to the file at once.
  /// @return null when there is none, the cell isn't allowed or the area can't be written.
  DtmArea* GetArea(int row, int col, bool create);

  /// Brings a caller's copy of the map up to date. Takes no lock when the copy has as many areas as the file.
  void GetAreaMap(std::map<DtmAreaPos, DtmArea*>& out) const;
  /// Rectangle of all areas, empty ones too, in metres. @return false when there are none.
  bool GetAreaExtents(double& x0, double& y0, double& x1, double& y1) const;

  /// Row and column of the cell that holds a point: floor(y / c) and floor(x / c). A quotient beyond the type's ends
  /// comes out as the end, and not-a-number as the lower end: neither is allowed for a cell.
  void CalcRowCol(double x, double y, int& row, int& col) const;
  /// Centre of a cell.
  void CalcXY(int row, int col, double& x, double& y) const;
  /// Offset of a point from the centre of the cell that holds it, metres.
  void CalcCellPos(double x, double y, float& dx, float& dy) const;
  /// The largest row or column that cells may have, either way: 2^31 - 1 - 2S. Of an open file.
  int LargestAllowed() const { return largestAllowed_; }
  /// Whether cells may have this row or column.
  bool IsAllowed(int rowOrCol) const { return rowOrCol <= largestAllowed_ && rowOrCol >= -largestAllowed_; }

  /// Writes what was changed, gives emptied areas' space back, writes the index and has all of it on the disk.
  /// @return false when the file isn't open or something couldn't be written; what wasn't stays to be written.
  bool SyncWrite();
  /// Follows what another process has written: reads the new index, then the resident blocks of the areas whose time
  /// moved. @param updater  told of every area that changed; may be null. @return false when the index can't be read
  /// (the model is as it was) or an area can't be.
  bool SyncRead(DtmUpdater* updater);
  /// The same for one that is about to write, with `IsFollowing` still true: all that is resident is read afresh, and
  /// where the former writer's end has left no index, the areas are found by a walk. @return false when what that one
  /// left can't be followed to the end.
  bool CatchUp(DtmUpdater* updater);

  /// How the last opening found the areas.
  DtmOpenedBy OpenedBy() const { return openedBy_; }
  /// Where the walk of the last opening had to stop before the end of the file, at something that neither is an area
  /// nor belongs at an end; -1 when there was no such place.
  long long WalkStoppedAt() const { return walkStoppedAt_; }
  /// Whether cells had to be given up since the opening because they couldn't be written.
  bool HasLostData() const { return lostData_.load(std::memory_order_relaxed); }

  // For areas and blocks of this file.

  /// Says that another process may be writing the file, or has been and isn't caught up with: cells read from it are
  /// believed only when the area is still there behind the reading, and nothing is written.
  void SetFollowing(bool following) { following_.store(following, std::memory_order_relaxed); }
  bool IsFollowing() const { return following_.load(std::memory_order_relaxed); }

  /// Bytes that the cells of a block take.
  int BlockSize(int id) const;
  /// Where in an area's body the header of a block is, by its place in the file's list, in areas as they are written.
  std::int64_t BlockStart(int index) const;
  /// Body length of an area that holds the file's blocks and nothing else.
  int SmallestBody() const { return smallestBody_; }
  /// How much of an area's body is its own, whatever its header says: the next area that the index tells of ends it.
  /// Requires: stream lock held.
  std::int64_t OwnLength(std::int64_t position, int length);
  /// Buffer for transfers of at least this size. Requires: stream lock held.
  std::byte* Scratch(std::size_t size);
  /// To be said when cells went to their place in the file. Requires: stream lock held.
  void NoteCellsWritten() { unsynced_ = true; }
  void SetLostData() { lostData_.store(true, std::memory_order_relaxed); }
  /// All places of a block id in the file's list, ascending, each behind the id.
  std::span<const std::pair<int, int>> FindBlockSlots(int id) const;

 private:
  friend class AreaMoves;
  using EntryList = std::vector<grid::IndexEntry>;

  bool ReadDtm();
  bool WriteDtm();
  bool ReadMagic();
  bool ReadAttributes();
  /// Works out what follows from cell size, area size and block list. @return false when they can't be a file's.
  bool TakeSettings();
  void ForgetSlots() { slotsSorted_ = std::make_unique<std::once_flag>(); }

  /// Takes the index at the end of the file as the held one. @return its form, kNothing when there is none.
  DtmOpenedBy ReadAreaIndex();
  bool ReadIndexedAreas();
  bool ReadAreas();
  /// An index entry's claim to a place in the lattice.
  struct Claim {
    DtmAreaPos pos;
    std::uint32_t index = 0;  ///< of the entry
    bool operator<(const Claim& other) const { return pos == other.pos ? index < other.index : pos < other.pos; }
  };
  using ClaimList = std::vector<Claim>;
  /// What a walk from the front has found.
  struct WalkedArea {
    AreaPlace place;
    int length = 0;
    std::int64_t start = 0;
  };
  struct Walked {
    std::vector<WalkedArea> areas;
    ClaimList claims;       ///< by place; also of areas behind the end
    std::int64_t end = 0;   ///< behind the last area that counts
    bool readable = false;  ///< whether the stream gave every byte that it was asked for
  };
  Walked WalkAreas() const;
  using PositionList = std::vector<std::pair<std::int64_t, std::uint32_t>>;  // and the entry's index

  /// The claims of all entries with a place that an area can have, by place.
  ClaimList SortClaims(const EntryList& entries) const;
  /// Of entries that can't all be true, those that aren't believed.
  std::vector<bool> FindFalseClaims(const EntryList& entries, const ClaimList& claims);
  std::vector<bool> FindDoubtfulEntries(std::size_t count, const PositionList& order, const ClaimList& claims) const;
  /// What was believed of the index last read: the bounds for areas whose own length can't be.
  struct FromIndex {
    bool known = false;
    bool checked = false;  ///< whether areas that have no chunk have been taken out
    std::int64_t end = 0;  ///< where the index began
    EntryList areas;       ///< in the order of the file
  };
  void CheckIndexedAreas();
  /// Fills map, extents and count from `areas_`, which may have gaps, and closes these.
  /// @param claims  of the areas, by their index there.
  void EnterAreas(const ClaimList& claims);
  std::unique_ptr<DtmArea> MakeIndexedArea(const grid::IndexEntry& entry, bool isFalse);
  bool IsPlausible(const grid::IndexEntry& entry) const;
  bool IsAreaChunk(StreamWindow& window, const grid::IndexEntry& entry) const;
  DtmArea* FindArea(DtmAreaPos pos) const;
  bool BelongsAtAnEnd(long long position) const;

  void AddArea(std::unique_ptr<DtmArea> area);
  void NoteExtents(const DtmArea& area);
  bool WriteArea(DtmArea& area);
  bool WriteAll();
  bool WriteAreaIndex();
  /// Marks chunks that a failed move has left behind. @return false when that must be tried again.
  bool ClearDeadChunks();
  /// Writes the header, or the tag alone, of the chunk whose body is at `position`.
  bool WriteHeader(std::int64_t position, grid::ChunkHeader header);
  bool WriteTag(std::int64_t position, std::int32_t tag);
  EntryList GatherEntries() const;
  bool SyncCells();
  /// What of an index, or of a walk, tells whether an area's cells have changed.
  enum class Trust {
    kTimes,  ///< its time: for those who only look
    kIndex,  ///< nothing; the ranges are good
    kPlaces  ///< nothing, and nothing else is known
  };
  /// Reads the index that another process has written. @return false when there is none, or it was changed meanwhile.
  bool ReadFollowedIndex(EntryList& entries);
  /// Walks the chunks and holds what was found as an index without times. @return false, and the held index as it was,
  /// when the walk ends at something that doesn't belong at an end.
  bool WalkForIndex();
  bool Follow(EntryList entries, Trust trust, DtmUpdater* updater);
  bool FollowEntry(const grid::IndexEntry& entry, Trust trust, DtmUpdater* updater);
  static void TakeRange(DtmArea& area, const grid::IndexEntry& entry, Trust trust);
  /// An area that can't be read keeps the entry that the file has for it.
  void KeepHeldEntry(grid::IndexEntry& entry) const;
  void SyncRemoved(EntryList entries, DtmUpdater* updater) const;
  void ForgetAreas();

  std::unique_ptr<DataStream> stream_;
  bool creating_;          // guarded by fileMutex_
  int openCount_ = 0;      // guarded by fileMutex_
  GridSettings settings_;  // never change while the file is open
  // Id and place, sorted when first searched: a hostile list is long, and opening doesn't need it.
  mutable std::vector<std::pair<int, int>> slots_;
  std::unique_ptr<std::once_flag> slotsSorted_ = std::make_unique<std::once_flag>();
  int smallestBody_ = 0;
  int largestAllowed_ = -1;               // no cell, before the settings are known
  EntryList heldIndex_;                   // guarded by the stream lock, like the six members below
  bool indexHeld_ = false;                // whether heldIndex_ is what the file has
  std::int64_t heldIndexAt_ = -1;         // where it is, or was meant to be
  std::vector<std::int64_t> deadChunks_;  // bodies of chunks that look like areas and aren't any more
  bool unsynced_ = false;                 // whether cells were written since the last sync
  FromIndex fromIndex_;
  std::vector<std::byte> scratch_;
  std::mutex writeMutex_;  // one pass of writing out at a time; taken before all others
  mutable std::recursive_mutex fileMutex_;
  FileEnd end_;                                  // guarded by the stream lock
  std::vector<std::unique_ptr<DtmArea>> areas_;  // guarded by fileMutex_; in order of addition
  std::map<DtmAreaPos, DtmArea*> areaMap_;       // guarded by fileMutex_
  std::atomic<int> areaCount_{0};
  int lowestRow_, highestRow_, lowestCol_, highestCol_;  // guarded by fileMutex_: of the areas' bottom-left cells
  DtmOpenedBy openedBy_ = DtmOpenedBy::kNothing;
  long long walkStoppedAt_ = -1;
  std::atomic<bool> lostData_{false};
  std::atomic<bool> following_{false};
};

}  // namespace vak
