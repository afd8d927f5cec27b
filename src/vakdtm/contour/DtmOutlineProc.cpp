#include "vakdtm/contour/DtmOutlineProc.h"

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// A row or column so many further on, round the ends of the type: none of the cells there is allowed.
int Beside(int rowOrCol, int steps) {
  return static_cast<int>(static_cast<unsigned>(rowOrCol) + static_cast<unsigned>(steps));
}

}  // namespace

// What contours ask of an area, whether its range holds the level, is asked of it for a level of 0.
DtmOutlineProc::DtmOutlineProc(const PolyClipLine& polygon, int block, const std::atomic<bool>& running)
    : SquareTracer(polygon, false, 0.0, block, running) {}

bool DtmOutlineProc::Init(DtmAccess& access) {
  if (const DtmFile* const file = access.GetDtmFile()) side_ = file->AreaSize();
  row_ = 0;
  rowStarts_ = true;
  return SquareTracer::Init(access);
}

bool DtmOutlineProc::ProcessCell(int row, int col, double& /*weight*/) {
  if (!IsRunning()) return false;
  if (Access() != nullptr) {
    if (StartsArea(row, col)) ProcessStrips(row, col);
    // What can't be read is empty.
    Squares().ReadHeights(row, col);
  }
  if (IsEmpty(0) || IsEmpty(1) || IsEmpty(2) || IsEmpty(3)) TraceSquare(row, col);
  return true;
}

void DtmOutlineProc::TraceSquare(int row, int col) {
  const int mask = ClassifyCell();
  if (mask == 0 && !GetUpdateExtents()) return;
  if (Access() != nullptr) Squares().FillVertices(row, col);
  if (GetUpdateExtents()) UpdateExtents();
  AddSegment(mask, row, col);
}

/// Whether this is an area's first cell, which brings squares along. Such a square never does, though it may be where
/// an area begins, as all are when areas are of one cell: there would be no end.
bool DtmOutlineProc::StartsArea(int row, int col) {
  if (row != row_) {
    row_ = row;
    rowStarts_ = row % side_ == 0;
  }
  return rowStarts_ && !inStrip_ && col % side_ == 0;
}

/// The squares below and to the left of an area, where there is no other area to bring them.
void DtmOutlineProc::ProcessStrips(int row, int col) {
  DtmAccess& access = *Access();
  const int below = Beside(row, -1);
  const int left = Beside(col, -1);
  double weight = 0;
  inStrip_ = true;
  if (access.GetArea(below, col, false) == nullptr) {
    for (int k = 0; k < side_ - 1; ++k) ProcessCell(below, Beside(col, k), weight);
  }
  if (access.GetArea(row, left, false) == nullptr) {
    for (int k = 0; k < side_; ++k) ProcessCell(Beside(row, k), left, weight);
  }
  inStrip_ = false;
}

void DtmOutlineProc::Cross(const SquareEdge& edge, Segment3d& segment, bool& haveStart, bool& haveEnd) {
  double x = 0;
  double y = 0;
  double z = 0;
  InterpolateXY(edge.from, edge.to, x, y, z);
  HandlePoint(segment, haveStart, haveEnd, x, y, z, IsEmpty(edge.decision));
}

void DtmOutlineProc::InterpolateXY(int from, int to, double& x, double& y, double& z) const {
  x = At(from).x + (At(to).x - At(from).x) * 0.5;
  y = At(from).y + (At(to).y - At(from).y) * 0.5;
  z = IsEmpty(from) ? At(to).z : At(from).z;
}

/// Going round the square anticlockwise, a line starts at the edge that leads from an empty cell to a filled one.
/// @param empty  whether the edge's vertex that comes first on the way round is.
void DtmOutlineProc::HandlePoint(Segment3d& segment, bool& haveStart, bool& haveEnd, double x, double y, double z,
                                 bool empty) {
  if (!haveStart && (haveEnd || empty)) {
    segment.start = {x, y, z};
    haveStart = true;
  } else {
    segment.end = {x, y, z};
    haveEnd = true;
  }
}

}  // namespace vak
