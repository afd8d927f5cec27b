#pragma once

#include <compare>
#include <cstdint>

namespace vak {

class DtmArea;

/// Floor division of a row or column by the area size: -1 lies in area -1, not 0.
inline int CalcAreaIndex(int areaSize, int rowOrCol) {
  // Truncating division goes towards zero, so a negative value is first moved to its area's low end. 64 bits, since a
  // caller may ask about the ends of the type.
  const std::int64_t value = rowOrCol;
  return static_cast<int>((value < 0 ? value - areaSize + 1 : value) / areaSize);
}

/// Place of an area in the lattice of areas: area row and area column, each in units of whole areas.
///
/// Never the row and column of a cell. Ordered by area row, then area column. A value.
class DtmAreaPos {
 public:
  DtmAreaPos() = default;
  explicit DtmAreaPos(const DtmArea* area);
  /// The area that holds the cell (row, col). @param areaSize cells per side, at least 1.
  DtmAreaPos(int areaSize, int row, int col)
      : areaRow_(CalcAreaIndex(areaSize, row)), areaCol_(CalcAreaIndex(areaSize, col)) {}

  int AreaRow() const { return areaRow_; }
  int AreaCol() const { return areaCol_; }

  bool operator==(const DtmAreaPos&) const = default;
  bool operator<(const DtmAreaPos& other) const {
    return areaRow_ != other.areaRow_ ? areaRow_ < other.areaRow_ : areaCol_ < other.areaCol_;
  }

 private:
  int areaRow_ = 0;
  int areaCol_ = 0;
};

}  // namespace vak
