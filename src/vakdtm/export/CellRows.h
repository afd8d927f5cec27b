#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vak {

class DtmAccess;

/// Reads cells of a range of columns, row by row from the top, as `DtmAccess::GetDoubleValue` would cell by cell.
///
/// What is resident is one row of areas. Belongs to the access's thread; nobody else may use the access meanwhile.
class CellRows {
 public:
  /// @param access    has a file; outlives this. Its cache is made as large as the range needs.
  /// @param blocks    which kinds of value are asked for.
  /// @param firstCol,lastCol  the columns, both inclusive.
  CellRows(DtmAccess& access, std::vector<int> blocks, std::int64_t firstCol, std::int64_t lastCol);

  /// How many columns there are.
  std::size_t Width() const { return width_; }

  /// Reads a row. @param block  its place among the kinds. @param noValue  what a cell without a value gives; a cell
  /// that can't be read, as there is no area, gives the empty value.
  void Read(std::int64_t row, std::size_t block, double noValue, double* values);

 private:
  void Enter(std::int64_t areaRow, int row);

  DtmAccess& access_;
  std::vector<int> blocks_;
  std::int64_t firstCol_;
  std::size_t width_;
  int areaSize_;
  int largest_;                // row or column that cells may have
  std::int64_t firstAreaCol_;  // in areas
  std::size_t numAreas_;       // across
  bool entered_ = false;
  std::int64_t areaRow_ = 0;                  // the row of areas that the cells below are of, when entered
  std::vector<const std::byte*> firstCells_;  // of each area, block by block; null where it can't be read
};

}  // namespace vak
