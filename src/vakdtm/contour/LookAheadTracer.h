#pragma once

#include "vakdtm/contour/DtmContourLevelProc.h"

namespace vak {

/// A tracer that looks ahead for what the level misses, row by row and in a row square by square, so that it costs a
/// fraction of going through it. For walks on which nobody changes cells on the same thread: the result is the same
/// then. Looking ahead begins where the ranges that the tracer learns are known.
class LookAheadTracer final : public DtmContourLevelProc {
 public:
  LookAheadTracer(const PolyClipLine& polygon, double level, int block, const std::atomic<bool>& running)
      : DtmContourLevelProc(polygon, level, block, running), sought_(level) {}

  /// @return false for a row of the current area of which no square meets the level.
  bool InitRow(int row, int colBegin, int colEnd) override;

  bool ProcessCell(int row, int col, double& weight) override;

 private:
  bool MayLookAhead() const { return IsRunning() && Access() != nullptr && !UpdatesAreaExt() && !GetUpdateExtents(); }
  CellSquares::Side SideOfRow(int row, int col);
  bool IsPassed(int row, int col) const {
    return row == passedRow_ && static_cast<unsigned>(col) - static_cast<unsigned>(passedCol_) < passedCount_;
  }

  const double sought_;

  // The row of cells that was looked at last, of the area that begins at this column.
  bool hasSide_ = false;
  int sideRow_ = 0;
  int sideCol_ = 0;
  CellSquares::Side side_ = CellSquares::Side::kBoth;

  // Squares of a row that the level misses: the first, and how many.
  int passedRow_ = 0;
  int passedCol_ = 0;
  unsigned passedCount_ = 0;
};

}  // namespace vak
