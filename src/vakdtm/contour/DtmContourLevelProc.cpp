#include "vakdtm/contour/DtmContourLevelProc.h"

#include <cmath>

namespace vak {
namespace {

/// What lifts a corner off the level.
constexpr double kRaise = 1e-7;

}  // namespace

DtmContourLevelProc::DtmContourLevelProc(const PolyClipLine& polygon, double level, int block,
                                         const std::atomic<bool>& running)
    : SquareTracer(polygon, true, level, block, running), level_(level) {}

bool DtmContourLevelProc::ProcessCell(int row, int col, double& /*weight*/) {
  const bool hasAccess = Access() != nullptr;
  if (hasAccess) {
    double weight = 1.0;
    PipFractionalCell(row + 0.5, col + 0.5, weight);
    if (weight == 0.0) return true;
  }
  if (!IsRunning()) return false;
  if (hasAccess && !Squares().ReadHeights(row, col)) return true;
  // Most squares end here. Neither an empty corner nor a raised one passes.
  const bool offLevel = IsOffLevel();
  const bool learns = UpdatesAreaExt() || GetUpdateExtents();
  if (offLevel && !learns) return true;
  if (IsEmptySquare() || IsFlat()) return true;
  if (learns) LearnFrom(row, col);
  if (!offLevel) TraceSquare(row, col);
  return true;
}

/// Whether all corners are above the level, or all below.
bool DtmContourLevelProc::IsOffLevel() const {
  if (At(0).z > level_) return At(1).z > level_ && At(2).z > level_ && At(3).z > level_;
  return At(0).z < level_ && At(1).z < level_ && At(2).z < level_ && At(3).z < level_;
}

/// Takes a square into the ranges that are to be found.
void DtmContourLevelProc::LearnFrom(int row, int col) {
  if (UpdatesAreaExt()) UpdateAreaExt();
  if (!GetUpdateExtents()) return;
  if (Access() != nullptr) Squares().FillVertices(row, col);
  UpdateExtents();
}

/// Traces a square of which the heights are known, and the positions when ranges were found.
void DtmContourLevelProc::TraceSquare(int row, int col) {
  RaiseFromLevel();
  const int mask = ClassifyCell();
  if (mask != 0 && Access() != nullptr && !GetUpdateExtents()) Squares().FillVertices(row, col);
  AddSegment(mask, row, col);
}

bool DtmContourLevelProc::IsEmptySquare() const {
  return IsEmptyValue(At(0).z) || IsEmptyValue(At(1).z) || IsEmptyValue(At(2).z) || IsEmptyValue(At(3).z);
}

/// Corners on the level go a little above it, so that a line passes each of them on one side. The same cell is raised
/// alike in every square.
void DtmContourLevelProc::RaiseFromLevel() {
  for (int vertex = 0; vertex < 4; ++vertex) {
    if (At(vertex).z == level_) At(vertex).z += kRaise;
  }
}

bool DtmContourLevelProc::CutsOffLowerLeft() const {
  const double odd = std::fabs((At(1).z - level_) + (At(3).z - level_));
  const double even = std::fabs((At(0).z - level_) + (At(2).z - level_));
  return odd > even;
}

void DtmContourLevelProc::Cross(const SquareEdge& edge, Segment& segment, bool& haveStart, bool& haveEnd) {
  double x = 0;
  double y = 0;
  InterpolateXY(edge.from, edge.to, x, y);
  HandlePoint(segment, haveStart, haveEnd, x, y, At(edge.decision).z);
}

void DtmContourLevelProc::InterpolateXY(int from, int to, double& x, double& y) const {
  const double part = CompCutDist(At(from).z, At(to).z);
  x = At(from).x + (At(to).x - At(from).x) * part;
  y = At(from).y + (At(to).y - At(from).y) * part;
}

/// Going round the square anticlockwise, a line starts at the edge that leads from below the level to above it.
/// @param z  of the edge's vertex that comes first on the way round.
void DtmContourLevelProc::HandlePoint(Segment& segment, bool& haveStart, bool& haveEnd, double x, double y,
                                      double z) const {
  if (!haveStart && (haveEnd || level_ > z)) {
    segment.start = {x, y};
    haveStart = true;
  } else {
    segment.end = {x, y};
    haveEnd = true;
  }
}

}  // namespace vak
