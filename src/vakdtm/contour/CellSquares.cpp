#include "vakdtm/contour/CellSquares.h"

#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// How many rows before it is read a cell of the area at the right is asked for.
constexpr unsigned kRowsAhead = 4;

/// One past a row or column; none of the cells at the type's end is allowed.
int After(int rowOrCol) { return static_cast<int>(static_cast<unsigned>(rowOrCol) + 1U); }
int RowOf(int row, int vertex) { return vertex >= 2 ? After(row) : row; }
int ColOf(int col, int vertex) { return vertex == 1 || vertex == 2 ? After(col) : col; }

/// Reads where in its cell a sounding was. @return false when that isn't known.
bool FindOffset(DtmAccess& access, int row, int col, int block, double& offset) {
  const std::byte* const cell = access.FindCell(row, col, block);
  if (cell == nullptr) return false;
  const float stored = LoadCell(reinterpret_cast<const float*>(cell));
  offset = static_cast<double>(stored);
  return !IsEmptyValue(stored);
}

/// How many cells from the first on are above the level, or, when that one isn't, below it. Of an empty cell neither
/// holds.
unsigned CountOnOneSide(const double* cells, unsigned most, double level) {
  unsigned count = 0;
  if (LoadCell(cells) > level) {
    while (count < most && LoadCell(cells + count) > level) ++count;
  } else {
    while (count < most && LoadCell(cells + count) < level) ++count;
  }
  return count;
}

}  // namespace

void CellSquares::SetAccess(DtmAccess* access) {
  access_ = access;
  side_ = 0;
  inner_ = 0;
  const DtmFile* const file = access == nullptr ? nullptr : access->GetDtmFile();
  cellSize_ = file == nullptr ? 0 : file->CellSize();
}

void CellSquares::SetArea(int row, int col, int side) {
  firstRow_ = row;
  firstCol_ = col;
  endRow_ = static_cast<int>(static_cast<unsigned>(row) + static_cast<unsigned>(side));
  endCol_ = static_cast<int>(static_cast<unsigned>(col) + static_cast<unsigned>(side));
}

bool CellSquares::TouchesBorder(int edge, int row, int col) const {
  switch (edge) {
    case kLowerEdge:
      return row == firstRow_;
    case kRightEdge:
      return After(col) == endCol_;
    case kUpperEdge:
      return After(row) == endRow_;
    default:
      return col == firstCol_;
  }
}

/// Reads a square that may reach into other areas, or lie in another area than the one before.
bool CellSquares::ReadAcross(int row, int col) {
  const DtmFile* const file = access_->GetDtmFile();
  const bool isIn = static_cast<unsigned>(row) - static_cast<unsigned>(row_) < side_ &&
                    static_cast<unsigned>(col) - static_cast<unsigned>(col_) < side_;
  // A reader of a live model notices here that an area has appeared where there was none.
  if (file != nullptr && (!isIn || IsStale() || file->NumAreas() != areaCount_)) Enter(row, col);
  bool read = true;
  for (int vertex = 0; vertex < 4; ++vertex) {
    double& z = vertices_[static_cast<std::size_t>(vertex)].z;
    if (!ReadHeight(RowOf(row, vertex), ColOf(col, vertex), z)) read = false;
  }
  return read;
}

bool CellSquares::ReadHeight(int row, int col, double& z) {
  const auto up = static_cast<unsigned>(row) - static_cast<unsigned>(row_);
  const auto right = static_cast<unsigned>(col) - static_cast<unsigned>(col_);
  const Cells& cells = cells_[(up < side_ ? 0U : 2U) + (right < side_ ? 0U : 1U)];
  // A fallback that was used for another vertex may have closed blocks.
  if (!cells.known || IsStale()) return access_->GetDoubleValue(row, col, block_, z);
  z = EmptyDouble();
  if (cells.first == nullptr) return false;
  const unsigned inRow = up < side_ ? up : up - side_;
  const unsigned inCol = right < side_ ? right : right - side_;
  const double* const cell = cells.first + (static_cast<std::size_t>(inRow) * side_ + inCol);
  // Down a column each cell would have to be waited for.
  if (right >= side_ && inRow + kRowsAhead < side_) __builtin_prefetch(cell + std::size_t{kRowsAhead} * side_);
  z = LoadCell(cell);
  return true;
}

/// Looks up where the cells of the area at this cell and its neighbours are.
void CellSquares::Enter(int row, int col) {
  const DtmFile& file = *access_->GetDtmFile();
  const int size = file.AreaSize();
  side_ = static_cast<unsigned>(size);
  inner_ = 0;
  cells_ = {};
  row_ = static_cast<int>(static_cast<unsigned>(CalcAreaIndex(size, row)) * side_);
  col_ = static_cast<int>(static_cast<unsigned>(CalcAreaIndex(size, col)) * side_);
  areaCount_ = file.NumAreas();
  releases_ = access_->NumReleases();
  if (DtmDataBlock::GetDataType(block_) != 'd') return;
  // To enter an area may push another out of the access. The second time all of them are in it, unless it keeps none.
  if (!FindAreas() && !FindAreas()) {
    for (std::size_t i = 1; i < cells_.size(); ++i) cells_[i] = {};
  }
  if (cells_[0].first != nullptr) inner_ = side_ - 1;
}

/// @return whether no block was closed meanwhile.
bool CellSquares::FindAreas() {
  releases_ = access_->NumReleases();
  const std::uint64_t before = releases_;
  // The area itself last: it stays the current one.
  for (unsigned i = 4; i-- > 0;) {
    const auto row = static_cast<int>(static_cast<unsigned>(row_) + (i >= 2 ? side_ : 0U));
    const auto col = static_cast<int>(static_cast<unsigned>(col_) + (i % 2 != 0 ? side_ : 0U));
    cells_[i] = {reinterpret_cast<const double*>(access_->FindCell(row, col, block_)), true};
  }
  releases_ = access_->NumReleases();
  return releases_ == before;
}

CellSquares::Side CellSquares::SideOfRow(int row, int col, double level) const {
  const auto up = static_cast<unsigned>(row) - static_cast<unsigned>(row_);
  // Of an area that is read straight the neighbours are known.
  if (up >= side_ || inner_ == 0 || col != col_ || IsStale()) return Side::kBoth;
  const std::size_t start = static_cast<std::size_t>(up) * side_;
  const double* const cells = cells_[0].first + start;
  if (CountOnOneSide(cells, side_, level) < side_) return Side::kBoth;
  const bool above = LoadCell(cells) > level;
  if (!cells_[1].known) return Side::kBoth;
  if (cells_[1].first != nullptr) {
    const double right = LoadCell(cells_[1].first + start);
    if (above ? !(right > level) : !(right < level)) return Side::kBoth;
  }
  return above ? Side::kAbove : Side::kBelow;
}

unsigned CellSquares::CountOffLevel(int row, int col, double level) const {
  const auto up = static_cast<unsigned>(row) - static_cast<unsigned>(row_);
  const auto right = static_cast<unsigned>(col) - static_cast<unsigned>(col_);
  if (up >= inner_ || right >= inner_ || IsStale()) return 0;
  const double* const lower = cells_[0].first + (static_cast<std::size_t>(up) * side_ + right);
  const double* const upper = lower + side_;
  if ((LoadCell(lower) > level) != (LoadCell(upper) > level)) return 0;
  const unsigned below = CountOnOneSide(lower, side_ - right, level);
  const unsigned both = below < 2 ? 0 : CountOnOneSide(upper, below, level);
  return both < 2 ? 0 : both - 1;
}

void CellSquares::FillVertex(int row, int col, int vertex) {
  Vertex& place = vertices_[static_cast<std::size_t>(vertex)];
  row = RowOf(row, vertex);
  col = ColOf(col, vertex);
  place.x = (col + 0.5) * cellSize_;
  place.y = (row + 0.5) * cellSize_;
  if (block_ != dMIN && block_ != dMAX) return;
  double x = 0;
  double y = 0;
  const bool known = FindOffset(*access_, row, col, block_ == dMIN ? fXMN : fXMX, x) &&
                     FindOffset(*access_, row, col, block_ == dMIN ? fYMN : fYMX, y);
  if (!known) return;
  place.x += x;
  place.y += y;
}

void CellSquares::FillVertices(int row, int col) {
  for (int vertex = 0; vertex < 4; ++vertex) FillVertex(row, col, vertex);
}

}  // namespace vak
