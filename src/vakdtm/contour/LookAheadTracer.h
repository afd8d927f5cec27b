#pragma once

#include "vakdtm/contour/DtmContourLevelProc.h"
#include "vakdtm/contour/SquareMarks.h"

namespace vak {

/// A tracer that first looks where in an area the level may pass, and goes through those squares alone, on its own when
/// the area is announced: the walker then skips the area.
///
/// For walks on which nobody changes cells on the same thread: the lines are the same then, and so is their order.
/// Goes through all squares as long as there are ranges to be learned, and where heights aren't kept as doubles.
class LookAheadTracer final : public DtmContourLevelProc {
 public:
  LookAheadTracer(const PolyClipLine& polygon, double level, int block, const std::atomic<bool>& running)
      : DtmContourLevelProc(polygon, level, block, running), sought_(level) {}

  /// @return false when the run flag reads false, which ends the walk.
  bool ProcessArea(int row, int col, double& weight) override;

 private:
  bool MayLookAhead() const { return IsRunning() && !UpdatesAreaExt() && !GetUpdateExtents(); }
  bool TraceMarked(int row, int col, unsigned side);

  const double sought_;
  SquareMarks marks_;
};

}  // namespace vak
