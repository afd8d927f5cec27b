#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmUpdater.h"
#include "vakdtm/store/SparseCells.h"

namespace vak {

class DtmFile;

/// Cursor over the cells of one grid model: the one way into the cells.
///
/// Cell (row, col) covers [col c, (col+1) c) x [row c, (row+1) c), c the cell size in metres; rows count upwards with
/// y. Heights are metres, upwards positive. An empty cell reads as the all-ones pattern (`IsEmptyValue`).
///
/// The cursor remembers the current area with the blocks open in it, and keeps the blocks of the areas it was in before
/// resident in a small cache. Leaving an area costs nothing but a place in the cache; what drops out of the cache is
/// written to the file if it was modified.
///
/// Owns one open count on the file, and its updater. Not thread safe; a copy stands alone and may go to another thread.
/// Cells themselves may be read and written by any number of cursors at the same time: an update holds the area lock
/// across all blocks of the cell, a read takes no lock and gives the old value or the new one.
///
/// All operations answer false without a word. Rows and columns outside `DtmFile::IsAllowed` have no cells.
class DtmAccess {
 public:
  static constexpr std::uint64_t kDefaultCacheSize = 9;

  /// @param file  opened here; may be null. The caller keeps it alive. One that can't be opened counts as null.
  explicit DtmAccess(DtmFile* file);
  DtmAccess(const DtmAccess& other);
  DtmAccess& operator=(const DtmAccess& other);
  ~DtmAccess();

  /// Goes over to another file (or null), giving up everything held on the old one, the updater too. No effect if it is
  /// the present file.
  void SetDtmFile(DtmFile* file);
  DtmFile* GetDtmFile() const { return file_; }

  /// Replaces the updater, which the cursor owns; null: nobody is told.
  void SetUpdater(DtmUpdater* updater);
  DtmUpdater* GetUpdater() const { return updater_.get(); }

  /// How many areas besides the current one stay resident; 9 at first. Surplus ones are given up at once, the longest
  /// unused first, modified blocks going to the file.
  void SetCacheSize(std::uint64_t count);

  /// Whether the current area offers this block. Means something only after a cell of the area was looked up with
  /// success.
  bool HasBlock(int id);

  /// The area that holds a cell. @param create  makes and writes a missing one. @return null when there is none.
  DtmArea* GetArea(int row, int col, bool create);

  /// Reads a cell as a double. @return true when the block is there, not that the cell has a value: ask
  /// `IsEmptyValue(value)`. False, with the empty value, without an area, a readable block or a known letter. A 0 of
  /// the kinds c, i, t and u reads as empty; `uFCT` gives the number of its bits that are set.
  bool GetDoubleValue(int row, int col, int id, double& value);

  /// The bytes of a cell as they lie in memory, for who takes values as they are: of the width of the kind's letter, to
  /// be read by `LoadCell`. @return null without an area or a readable block; good until the cursor is used for
  /// another area, and then for as long as `NumReleases` stays what it was at this call.
  const std::byte* FindCell(int row, int col, int id);
  /// How many areas the cursor has given up because their place was needed for others, or with the file.
  std::uint64_t NumReleases() const { return releases_; }

  /// Whether `GetDoubleValue`, and with it the slope and interpolation, reads single cells where a block isn't in
  /// memory, in place of making the block resident: for those who look at few cells of many areas. (1) A block that is
  /// in memory, whoever holds it, gives its cell as ever, so what another cursor has just written is seen. (2) What was
  /// read from the file is kept for an area as long as its blocks would be, and forgotten when they may have changed.
  /// (3) Of an area whose blocks nobody has needed yet, only its beginning and the wanted block's own header are looked
  /// at. The answers are thus the same, but for this: where the header of another block of the area is damaged, or the
  /// file has lost bytes since it was opened, cells that are still there answer until another block of the area, or a
  /// whole one, is needed. Off at first; a copy reads as the original does.
  /// @return what it was.
  bool SetSparseReading(bool sparse);

  /// Writes a cell, creating its area. Truncated to the integer kinds, narrowed to float; kind u can't be set this way.
  /// @param updateMinMax  whether the value is a height that the area's Z range has to hold.
  /// @return false when nothing was stored.
  bool SetDoubleValue(int row, int col, int id, double value, bool updateMinMax);

  /// Adds a sounding to the running statistics of the cell that holds it: hit count, mean, deviation, extremes and
  /// where in the cell they are, time, uncertainties, file bit, as far as the model records them.
  ///
  /// @param x,y,z  metres, finite.
  /// @param time   seconds since 1970; an older time never replaces a newer one.
  /// @param tvu,thu  vertical and horizontal uncertainty in metres, or null for "not known". Read during the call only.
  /// @param fileIndex  which source file; its absolute value modulo 32 is the bit set in `uFCT`.
  /// @return false when no file is attached, a coordinate isn't finite, the cell isn't allowed, or its area can't be
  /// written or read; nothing has changed then.
  ///
  /// Takes the area lock once. No allocation and no file access while soundings stay in one area.
  [[nodiscard]] bool InsertValue(double x, double y, double z, long long time, const float* tvu, const float* thu,
                                 int fileIndex);

  /// Replaces a cell's statistics by one value, for sources that aren't soundings: hit count 1, mean z, no deviation
  /// and no extremes (their offsets are set all the same). Parameters as `InsertValue`.
  /// @return false as `InsertValue`, and in a model with `dTVU` or `dTHU` and no `dMAX`: the mark for a change of these
  /// goes on the `dMAX` block.
  [[nodiscard]] bool SetValue(double x, double y, double z, long long time, const float* tvu, const float* thu,
                              int fileIndex);

  /// Bilinear between the four cell centres around a point. A point on a line of centres needs only that line's cells.
  /// @param partialOk  false: a missing corner answers false. True: what is there is taken as it stands.
  bool GetInterpolatedValue(double x, double y, int id, double& value, bool partialOk);
  /// The same with all corners, else the plain mean of the nearest of three rings of cells that holds any value.
  bool GetInterpolatedExtrapolatedValue(double x, double y, int id, double& value);

  /// The greatest of four directional slopes through a cell. The slope along the row counts double against that along
  /// the column. With no neighbour above or below, the value is a not-a-number and the answer still true.
  /// @return false when the cell has no value.
  bool GetGradientValue(int row, int col, int id, double& value);

  /// Empties a cell in every block. True also where there is no area, which isn't created. The Z range isn't narrowed.
  bool MakeCellEmpty(double x, double y);
  bool MakeCellEmpty(int row, int col);
  /// The same for one block. @return false when the area has no such block.
  bool ClearCellData(int row, int col, int id);

 private:
  /// The places of the 13 blocks of the statistics in the file's list; -1 for those that the file doesn't have.
  struct StatisticsSlots {
    int val, num, sdv, tim, min, max, xmn, ymn, xmx, ymx, tvu, thu, fct;
  };
  /// One of those blocks in the current area: null cells where there is none.
  template <typename T>
  struct StatisticsBlock {
    DtmDataBlock* block = nullptr;
    T* cells = nullptr;

    explicit operator bool() const { return cells != nullptr; }
    T Get(int cell) const;
    void Set(int cell, T value) const;  // and marks the block
  };
  struct Statistics {
    StatisticsBlock<double> val, sdv, min, max, tvu, thu;
    StatisticsBlock<std::int32_t> num, tim;
    StatisticsBlock<float> xmn, ymn, xmx, ymx;
    StatisticsBlock<std::uint32_t> fct;
  };

  /// An area and the blocks open in it, by place in the file's list; owns one open count on each that isn't null.
  struct OpenArea {
    std::uint64_t key = 0;  ///< of the area's place
    DtmArea* area = nullptr;
    std::vector<DtmDataBlock*> blocks;
    SparseCells sparse;
    Statistics statistics;
    bool statisticsOpen = false;  ///< whether `statistics` is worked out
  };
  using OpenList = std::list<OpenArea>;

  void Attach(DtmFile* file);
  void CopyFrom(const DtmAccess& other);
  void CloseDown();

  bool LocateCell(double x, double y, int& row, int& col) const;
  int GetAreaCell(int row, int col, bool create);
  bool ReenterArea();
  void EnterArea(DtmArea* area);
  std::uint64_t AreaKey() const;
  void CloseOldArea();
  void TrimCache(std::uint64_t count);
  void ReleaseArea(OpenArea& open);
  DtmArea* CurrentArea() const { return current_.empty() ? nullptr : current_.front().area; }

  /// The place of a block in the file's list; -1 when it isn't there.
  int FindSlot(int id) const;
  DtmDataBlock* GetDataBlock(int id);
  DtmDataBlock* GetDataBlockAt(int slot);
  bool GetCellValue(int row, int col, int id, double& value);
  bool ReadSparsely(int cell, int id, double& value);
  /// Opens the blocks of the statistics in the current area. @return false when one that the file has can't be read.
  bool OpenStatistics();
  template <typename T>
  bool OpenStatistics(int slot, StatisticsBlock<T>& target);
  void AddSounding(int cell, double x, double y, double z, long long time, const float* tvu, const float* thu,
                   int fileIndex);
  void ReplaceCell(int cell, double x, double y, double z, long long time, const float* tvu, const float* thu,
                   int fileIndex);
  void FinishUpdate(int row, int col, bool flag);
  void EmptyCell(DtmDataBlock& block, int cell);

  DtmFile* file_ = nullptr;
  std::unique_ptr<DtmUpdater> updater_;
  std::map<DtmAreaPos, DtmArea*> areaMap_;  // the cursor's own copy, so that a look-up needs no lock
  int areaRow_;
  int areaCol_;
  int areaSize_ = 1;
  double cellSize_ = 1.0;
  std::vector<int> blockIds_;
  StatisticsSlots slots_{};

  // The current area is a list of at most one, so that an area goes to the cache, back and out without allocation.
  OpenList current_;
  OpenList cache_;  // most recent first
  OpenList spare_;
  std::unordered_map<std::uint64_t, OpenList::iterator> open_;  // every area that is current or in the cache, by key
  std::uint64_t cacheSize_ = kDefaultCacheSize;
  std::uint64_t releases_ = 0;

  bool sparse_ = false;
  bool cleared_ = false;  // a cell of the current area was emptied since it was entered
};

}  // namespace vak
