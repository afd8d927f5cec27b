#pragma once

#include <cstdint>
#include <optional>

#include "vakdtm/services/geometry/Page.h"

namespace vak {

class DtmFile;

/// Rows and columns of the cells that a rectangle meets, be it with its edges alone; all inclusive. None when a highest
/// is below its lowest.
struct CellRange {
  int lowestRow = 0;
  int highestRow = -1;
  int lowestCol = 0;
  int highestCol = -1;

  bool IsEmpty() const { return highestRow < lowestRow || highestCol < lowestCol; }
  std::int64_t NumRows() const { return std::int64_t{highestRow} - lowestRow + 1; }
  std::int64_t NumCols() const { return std::int64_t{highestCol} - lowestCol + 1; }
  /// Whether a cell of the range is one of its outermost.
  bool IsOnRing(int row, int col) const {
    return row == lowestRow || row == highestRow || col == lowestCol || col == highestCol;
  }

  /// The positions of areas that the range meets, rows and columns of areas. Of a range with cells.
  CellRange Areas(int areaSize) const;

  /// The range of a rectangle in a model.
  ///
  /// It has the cells that the model may have (`DtmFile::IsAllowed`), none for an invalid rectangle. A rectangle over
  /// more positions of areas than can be counted, an infinite one say, is cut to the areas that the model has.
  /// @return nothing when these lie so far apart that they can't be counted either.
  static std::optional<CellRange> Find(const DtmFile& file, const Page& rect);
};

}  // namespace vak
