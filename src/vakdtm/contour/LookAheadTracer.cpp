#include "vakdtm/contour/LookAheadTracer.h"

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

bool LookAheadTracer::ProcessArea(int row, int col, double& weight) {
  if (!DtmContourLevelProc::ProcessArea(row, col, weight)) return false;
  if (weight == 0.0 || !MayLookAhead()) return true;
  const double* const cells = Squares().FindDoubles(row, col);
  if (cells == nullptr) return true;
  const auto side = static_cast<unsigned>(Access()->GetDtmFile()->AreaSize());
  marks_.Mark(cells, side, sought_);
  weight = 0.0;
  return TraceMarked(row, col, side);
}

/// In the order of a walk.
bool LookAheadTracer::TraceMarked(int row, int col, unsigned side) {
  for (unsigned up = 0; up < side; ++up) {
    if (!IsRunning()) return false;
    const bool goesOn = marks_.ForEach(up, [&](unsigned right) {
      double weight = 1.0;
      return ProcessCell(row + static_cast<int>(up), col + static_cast<int>(right), weight);
    });
    if (!goesOn) return false;
  }
  return true;
}

}  // namespace vak
