#include "vakdtm/contour/LookAheadTracer.h"

namespace vak {

bool LookAheadTracer::InitRow(int row, int colBegin, int /*colEnd*/) {
  if (!MayLookAhead()) return true;
  const CellSquares::Side lower = SideOfRow(row, colBegin);
  if (lower == CellSquares::Side::kBoth) return true;
  return SideOfRow(row + 1, colBegin) != lower;
}

/// The upper row of one row of squares is the lower one of the next.
CellSquares::Side LookAheadTracer::SideOfRow(int row, int col) {
  if (hasSide_ && row == sideRow_ && col == sideCol_) return side_;
  side_ = Squares().SideOfRow(row, col, sought_);
  hasSide_ = true;
  sideRow_ = row;
  sideCol_ = col;
  return side_;
}

bool LookAheadTracer::ProcessCell(int row, int col, double& weight) {
  // Whether in the polygon or not, that is the answer for a square that the level misses.
  if (IsPassed(row, col) && IsRunning()) return true;
  if (MayLookAhead()) {
    passedCount_ = Squares().CountOffLevel(row, col, sought_);
    passedRow_ = row;
    passedCol_ = col;
    if (passedCount_ > 0) return true;
  }
  return DtmContourLevelProc::ProcessCell(row, col, weight);
}

}  // namespace vak
