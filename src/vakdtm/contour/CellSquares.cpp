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

}  // namespace

CellSquares::CellSquares(int block)
    : block_(block),
      width_(static_cast<unsigned>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(block)))),
      isDouble_(DtmDataBlock::GetDataType(block) == 'd') {}

void CellSquares::SetAccess(DtmAccess* access) {
  access_ = access;
  side_ = 0;
  inner_ = 0;
  cells_ = {};
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
  if (file != nullptr && (!isIn || file->NumAreas() != areaCount_)) Enter(row, col);
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
  const unsigned area = (up < side_ ? 0U : 2U) + (right < side_ ? 0U : 1U);
  // Also between the vertices of a square: one of them may have taken the place of another's area.
  if (IsStale()) Forget();
  if (cells_[area].state == Cells::kUnknown) LookUp(area);
  const Cells& cells = cells_[area];
  if (cells.state != Cells::kKnown) return access_->GetDoubleValue(row, col, block_, z);
  z = EmptyDouble();
  if (cells.first == nullptr) return false;
  const unsigned inRow = up < side_ ? up : up - side_;
  const unsigned inCol = right < side_ ? right : right - side_;
  const auto cell = static_cast<int>(inRow * side_ + inCol);
  // Down a column each cell would have to be waited for.
  if (right >= side_ && inRow + kRowsAhead < side_) {
    __builtin_prefetch(cells.first + (static_cast<std::size_t>(cell) + std::size_t{kRowsAhead} * side_) * width_);
  }
  if (!isDouble_) return LoadAsDouble(cells.first, block_, cell, z);
  z = LoadCell(reinterpret_cast<const double*>(cells.first) + cell);
  return true;
}

/// Makes the area at this cell the one that is read in, with nothing known of it and its neighbours.
void CellSquares::Enter(int row, int col) {
  const DtmFile& file = *access_->GetDtmFile();
  const int size = file.AreaSize();
  side_ = static_cast<unsigned>(size);
  row_ = static_cast<int>(static_cast<unsigned>(CalcAreaIndex(size, row)) * side_);
  col_ = static_cast<int>(static_cast<unsigned>(CalcAreaIndex(size, col)) * side_);
  areaCount_ = file.NumAreas();
  Forget();
}

/// For blocks that may have been closed.
void CellSquares::Forget() {
  cells_ = {};
  inner_ = 0;
  releases_ = access_->NumReleases();
}

/// Looks up where the cells of the area or of one of its neighbours are.
void CellSquares::LookUp(unsigned area) {
  const auto row = static_cast<int>(static_cast<unsigned>(row_) + (area >= 2 ? side_ : 0U));
  const auto col = static_cast<int>(static_cast<unsigned>(col_) + (area % 2 != 0 ? side_ : 0U));
  if (!IsStraight(row, col)) {
    cells_[area].state = Cells::kOneByOne;
    return;
  }
  const std::byte* const first = access_->FindCell(row, col, block_);
  // What was known before may have gone to make room for this one.
  if (IsStale()) Forget();
  cells_[area] = {Cells::kKnown, first};
  if (area == 0 && first != nullptr && isDouble_) inner_ = side_ - 1;
}

/// Whether all cells of the area that begins at this one can be read where they lie: an area at the end of what is
/// allowed also holds cells that aren't, which are no cells to the access.
bool CellSquares::IsStraight(int row, int col) const {
  const DtmFile* const file = access_->GetDtmFile();
  if (file == nullptr || width_ == 0) return false;
  const auto isAllowed = [&](int first) {
    return file->IsAllowed(first) && file->IsAllowed(static_cast<int>(static_cast<unsigned>(first) + (side_ - 1)));
  };
  return isAllowed(row) && isAllowed(col);
}

const double* CellSquares::FindDoubles(int row, int col) {
  if (access_->GetDtmFile() == nullptr) return nullptr;
  Enter(row, col);
  LookUp(0);
  return inner_ > 0 && row == row_ && col == col_ ? Doubles(0) : nullptr;
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
