#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

class DtmAccess;

/// An area with a margin around it, as a search from the area's cells needs it: which of the cells are sources, that
/// is, have hits, and what the cells hold.
///
/// What cells hold is read when it is asked for, from areas too that come to be while the window stands. Where the
/// sources are is looked at anew only when hit counts have changed since the last look, whoever changed them. The
/// blocks that were needed stay open until as many other areas have been needed as it keeps, or it is told to leave.
/// For one thread at a time.
///
/// Cells are told by row and column within the window, from 0 at its lower left.
class SourceWindow {
 public:
  /// @param access  of an open model; finds the areas, and outlives the window.
  /// @param margin  cells on each side of the area.
  /// @param blocks  ids of what is read; a cell is asked for by its place in this list.
  /// @param hits    place of the hit counts in the list; below 0: all cells are sources, also where there is none.
  SourceWindow(DtmAccess& access, int margin, std::vector<int> blocks, int hits);

  /// Whether a window of these sizes pays, beside looking at cells one by one, and fits the memory.
  static bool Pays(int areaSize, int margin);

  /// How many areas it keeps, besides those that it stands over; none at first.
  void KeepAreas(std::size_t count) { keep_ = count; }

  /// Goes to an area, be there one or not. Nothing is looked for yet.
  void MoveTo(int bottom, int left);
  bool Stands() const { return stands_; }
  /// Whether it stands where a cell's area is.
  bool StandsOver(int row, int col) const {
    return stands_ && Offset(row, bottom_) < static_cast<unsigned>(areaSize_) &&
           Offset(col, left_) < static_cast<unsigned>(areaSize_);
  }
  int RowOf(int row) const { return row - bottom_ + margin_; }
  int ColOf(int col) const { return col - left_ + margin_; }

  /// The window stands nowhere then.
  void StepAside() { stands_ = looked_ = false; }
  /// The same, and gives up all blocks.
  void Leave();

  /// As `DtmAccess::GetDoubleValue`, blocks that could not be read being tried again.
  bool Read(int row, int col, std::size_t block, double& value) {
    const auto i = static_cast<std::size_t>(row);
    const auto j = static_cast<std::size_t>(col);
    return ReadIn(areaIn_[i] * side_ + areaIn_[j], block, cellIn_[i] * areaSize_ + cellIn_[j], value);
  }
  /// The same for a cell of the area itself, by its row and column in the model.
  bool ReadOwn(int row, int col, std::size_t block, double& value) {
    const std::byte*& cells = own_[block];
    if (cells == nullptr) cells = Cells(centre_, block);
    value = EmptyDouble();
    return cells != nullptr && LoadAsDouble(cells, ids_[block], (row - bottom_) * areaSize_ + (col - left_), value);
  }

  /// Finds the sources, unless they are still where they were.
  void Look() {
    if (!looked_ || HasChanged()) FindSources();
  }
  /// Whether any source lacks the value of one of the first `count` blocks.
  bool HasSourceWithout(std::size_t count);
  /// Whether there may be sources on both sides of a cell of the area, left and right of it or in its column, and above
  /// and below it or in its row, within the margin. Where there aren't, they cover less than half a circle around it.
  bool MaySurround(int row, int col) const {
    const Word* const across = Line(across_, row - margin_);
    const Word* const along = Line(along_, col - margin_);
    return Lowest(across, col - margin_, col) >= 0 && Lowest(across, col, col + margin_) >= 0 &&
           Lowest(along, row - margin_, row) >= 0 && Lowest(along, row, row + margin_) >= 0;
  }

  /// The source with the lowest column of `from` to `to` in a row; below 0: there is none. Behind `Look`, as all of
  /// these.
  int LowestInRow(int row, int from, int to) const { return Lowest(Line(rows_, row), from, to); }
  int HighestInRow(int row, int from, int to) const { return Highest(Line(rows_, row), from, to); }
  int LowestInCol(int col, int from, int to) const { return Lowest(Line(cols_, col), from, to); }
  int HighestInCol(int col, int from, int to) const { return Highest(Line(cols_, col), from, to); }

 private:
  using Word = std::uint64_t;
  static constexpr int kBits = 64;

  struct CloseBlock {
    void operator()(DtmDataBlock* block) const { block->Close(); }
  };
  using OpenBlock = std::unique_ptr<DtmDataBlock, CloseBlock>;  // one open count
  struct Area {
    DtmArea* area = nullptr;
    std::vector<OpenBlock> blocks;  // null: not needed so far, or can't be read
  };
  using AreaList = std::list<Area>;
  struct Place {
    Area* area = nullptr;
    int numAreas = -1;  // of the model when the area was last looked for
  };
  struct Seen {
    const DtmDataBlock* hits;
    std::uint32_t changes;
  };

  static unsigned Offset(int value, int base) { return static_cast<unsigned>(value) - static_cast<unsigned>(base); }

  const std::byte* Cells(std::size_t place, std::size_t block) {
    const DtmDataBlock* const held = Hold(place, block);
    return held != nullptr ? held->CellData() : nullptr;
  }
  const DtmDataBlock* Hold(std::size_t place, std::size_t block) {
    Area* const area = Find(place);
    if (area == nullptr) return nullptr;
    const OpenBlock& held = area->blocks[block];
    return held ? held.get() : Open(*area, block);
  }
  Area* Find(std::size_t place) {
    const Place& known = places_[place];
    return known.area != nullptr || known.numAreas == file_.NumAreas() ? known.area : LookFor(place);
  }
  bool ReadIn(std::size_t place, std::size_t block, int cell, double& value) {
    const std::byte* const cells = Cells(place, block);
    value = EmptyDouble();
    return cells != nullptr && LoadAsDouble(cells, ids_[block], cell, value);
  }
  Area* LookFor(std::size_t place);
  Area* Keep(DtmArea& area);
  void GiveUpSurplus();
  const DtmDataBlock* Open(Area& area, std::size_t block) const;

  bool HasChanged();
  void FindSources();
  void FindSources(std::size_t place);
  void TurnRows();
  void Overlay(const std::vector<Word>& lines, std::vector<Word>& overlaid) const;
  bool HasSourceWithout(std::size_t place, std::size_t block);
  /// Tests the cells of the window that lie in one of its areas. @param test  of a cell's place in the blocks.
  /// @param take  is given a word of `rows_` and the bits of the cells that passed. @return whether it answered true;
  /// the rest isn't tested then.
  template <typename Test, typename Take>
  bool TestCells(std::size_t areaRow, std::size_t areaCol, Test test, Take take);

  const Word* Line(const std::vector<Word>& lines, int line) const { return lines.data() + line * words_; }
  static int Lowest(const Word* line, int from, int to) {
    if (from > to) return -1;
    const int last = to / kBits;
    int at = from / kBits;
    for (Word bits = line[at] & ~Word{0} << (from % kBits);; bits = line[++at]) {
      if (at == last) bits &= ~Word{0} >> (kBits - 1 - to % kBits);
      if (bits != 0) return at * kBits + std::countr_zero(bits);
      if (at == last) return -1;
    }
  }
  static int Highest(const Word* line, int from, int to) {
    if (from > to) return -1;
    const int last = from / kBits;
    int at = to / kBits;
    for (Word bits = line[at] & ~Word{0} >> (kBits - 1 - to % kBits);; bits = line[--at]) {
      if (at == last) bits &= ~Word{0} << (from % kBits);
      if (bits != 0) return at * kBits + kBits - 1 - std::countl_zero(bits);
      if (at == last) return -1;
    }
  }

  DtmAccess& access_;
  const DtmFile& file_;
  int areaSize_;
  int margin_;
  int size_;              // of the window, in cells
  std::ptrdiff_t words_;  // in a line of bits
  std::size_t side_;      // of the window, in areas
  std::size_t centre_;
  std::vector<int> ids_;
  int hits_;
  std::vector<std::size_t> areaIn_;  // of a row or column of the window: row or column of areas
  std::vector<int> cellIn_;          // and of cells in that
  bool stands_ = false;
  bool looked_ = false;
  int bottom_ = 0;
  int left_ = 0;
  std::vector<Place> places_;          // of areas, in the window
  std::vector<const std::byte*> own_;  // cells of the area itself; null: not looked for, or none
  AreaList kept_;                      // those needed last in front
  std::unordered_map<const DtmArea*, AreaList::iterator> inKept_;
  std::size_t keep_ = 0;
  std::vector<Seen> seen_;            // the hit counts that were looked at, as they were then
  std::vector<std::size_t> hitless_;  // places where there were none
  std::vector<Word> rows_;            // a bit for each source; looked for from left to right
  std::vector<Word> cols_;            // the same, turned
  std::vector<Word> across_;          // of each row of the area: all rows within the margin laid over one another
  std::vector<Word> along_;           // of each column
};

}  // namespace vak
