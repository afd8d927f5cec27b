#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"

namespace vak {

/// An edge of a square of four cell centres.
///
/// Vertices are numbered anticlockwise from the lower left: 0 is the centre of cell (row, col), 1 that of
/// (row, col + 1), 2 of (row + 1, col + 1), 3 of (row + 1, col).
struct SquareEdge {
  int bit;       ///< in a mask of edges
  int from, to;  ///< vertices, in the direction in which places on the edge are computed
  int decision;  ///< the vertex that tells which way a line crosses the edge
};

/// In the order in which they are visited. The upper and the left edge are computed against the way round, so that they
/// are computed as the lower edge of the square above and the right edge of the square to the left: to the last bit.
constexpr std::array<SquareEdge, 4> kSquareEdges{{{1, 0, 1, 0}, {2, 1, 2, 1}, {4, 3, 2, 2}, {8, 0, 3, 3}}};
constexpr int kLowerEdge = 0;
constexpr int kRightEdge = 1;
constexpr int kUpperEdge = 2;
constexpr int kLeftEdge = 3;
constexpr int kAllEdges = 15;

/// The squares that neighbouring cell centres form, one at a time: heights, positions, and whether an edge is part of
/// the border of the current area. A square belongs to the area of its vertex 0.
///
/// Heights are those that `DtmAccess::GetDoubleValue` gives at the moment of reading. Where an area keeps them is
/// looked up when a square first needs it, and again only after the access had to give up areas for others. Of a block
/// of kind d, reading a square within an area then costs a nanosecond or two; of other kinds, and where a square
/// reaches into other areas, some more. An area part of which lies outside the rows and columns that are allowed is
/// asked cell by cell.
class CellSquares {
 public:
  /// @param block  the block that heights are of.
  explicit CellSquares(int block);

  /// Sets where cells are read; null: nowhere, the vertices are the caller's to set. Not owned.
  /// What was known of another one is forgotten.
  void SetAccess(DtmAccess* access);
  DtmAccess* Access() const { return access_; }

  using Vertex = GTL::Point3D<double>;
  std::array<Vertex, 4>& Vertices() { return vertices_; }
  const std::array<Vertex, 4>& Vertices() const { return vertices_; }

  /// Reads the heights of a square into the vertices. What can't be read becomes the empty value.
  /// @return false when one couldn't be read: no area, or no block. Requires: an access.
  bool ReadHeights(int row, int col) {
    const auto up = static_cast<unsigned>(row) - static_cast<unsigned>(row_);
    const auto right = static_cast<unsigned>(col) - static_cast<unsigned>(col_);
    if (up >= inner_ || right >= inner_ || IsStale()) return ReadAcross(row, col);
    const double* const lower = Doubles(0) + (static_cast<std::size_t>(up) * side_ + right);
    const double* const upper = lower + side_;
    vertices_[0].z = LoadCell(lower);
    vertices_[1].z = LoadCell(lower + 1);
    vertices_[2].z = LoadCell(upper + 1);
    vertices_[3].z = LoadCell(upper);
    return true;
  }

  /// Where the cells of an area are, row by row: for who looks at many before squares are read. Good until the access
  /// is used for another area.
  /// @param row,col  of the area's first cell. @return null when they can't be read straight, or aren't doubles.
  /// Requires: an access.
  const double* FindDoubles(int row, int col);

  /// Sets the positions of a square's vertices: the centres of their cells, or where in the cell the sounding was that
  /// the height is from, for blocks that come with that. Requires: an access.
  void FillVertices(int row, int col);

  /// The area that borders are those of.
  void SetArea(int row, int col, int side);
  /// Whether an edge of this square lies along the border of the area. @param edge  place in `kSquareEdges`.
  bool TouchesBorder(int edge, int row, int col) const;

 private:
  /// What is known of an area's cells.
  struct Cells {
    enum { kUnknown, kOneByOne, kKnown } state = kUnknown;
    const std::byte* first = nullptr;  // when known; null: they can't be read
  };

  /// Whether blocks may have been closed since.
  bool IsStale() const { return access_->NumReleases() != releases_; }
  bool ReadAcross(int row, int col);
  bool ReadHeight(int row, int col, double& z);
  void Enter(int row, int col);
  void Forget();
  void LookUp(unsigned area);
  bool IsStraight(int row, int col) const;
  /// The cells of an area that are known to be doubles.
  const double* Doubles(unsigned area) const { return reinterpret_cast<const double*>(cells_[area].first); }
  void FillVertex(int row, int col, int vertex);

  DtmAccess* access_ = nullptr;
  int block_;
  unsigned width_;       // bytes of a cell of the block; 0 for an unknown kind
  bool isDouble_;        // the block is of kind d
  double cellSize_ = 0;  // metres
  std::array<Vertex, 4> vertices_;

  // The current area; the ends are one past it.
  int firstRow_ = 0;
  int firstCol_ = 0;
  int endRow_ = 0;
  int endCol_ = 0;

  // The area that heights were last read in, which may be a place without one, and those at its right, above it and at
  // its right above.
  int row_ = 0;
  int col_ = 0;
  unsigned side_ = 0;   // cells; 0 before any
  unsigned inner_ = 0;  // rows and columns of squares that lie wholly in it; 0 while they aren't known to be doubles
  std::array<Cells, 4> cells_;
  std::uint64_t releases_ = 0;
  int areaCount_ = 0;
};

}  // namespace vak
