#pragma once

#include <atomic>

#include "vakdtm/contour/SquareTracer.h"
#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/store/CellValue.h"

namespace vak {

/// Traces the lines between the cells that have a value in a block and those that have none.
///
/// Of the edges of the squares that four neighbouring cell centres form, a line crosses those between an empty cell and
/// a filled one, half way, at the height of the filled one. Walking along a line, the empty side is on the left. Where
/// filled and empty cells alternate around a square, the filled ones stay connected. In `dMIN` and `dMAX` a cell is
/// where in it the sounding was.
///
/// A square belongs to the area of its lower left cell, so that those below and to the left of the model's areas belong
/// to none. The first cell of an area brings them along where no area is, one fewer below than on the left: a line has
/// a gap at the lower left and at the lower right corner of an area when these squares belong to no area. An area that
/// is there counts, even without a value: the side that it is on has no line then, as it isn't walked itself.
///
/// The polygon acts by whole areas: those that it leaves nothing of aren't walked, and no line is cut at it. Nor is an
/// area whose known range of values doesn't hold 0; the walk itself learns no ranges. See `SquareTracer` for how it is
/// used. With values of the caller's own, squares are as they are shown, and none are brought along.
class DtmOutlineProc : public SquareTracer<DtmOutlineProc, GTL::Point3D<double>> {
 public:
  using Segment3d = SquareSegment<GTL::Point3D<double>>;

  /// @param polygon  copied; without rings it limits nothing.
  /// @param block    id of the block.
  /// @param running  true while work may go on; must outlive this.
  DtmOutlineProc(const PolyClipLine& polygon, int block, const std::atomic<bool>& running);

  bool Init(DtmAccess& access) override;

  /// @return false when the run flag reads false, which ends the walk.
  bool ProcessCell(int row, int col, double& weight) override;

 private:
  friend SquareTracer;

  bool IsEmpty(int vertex) const { return IsEmptyValue(At(vertex).z); }
  bool IsCrossed(int a, int b) const { return IsEmpty(a) != IsEmpty(b); }
  bool CutsOffLowerLeft() const { return IsEmpty(0); }
  void Cross(const SquareEdge& edge, Segment3d& segment, bool& haveStart, bool& haveEnd);

  bool StartsArea(int row, int col);
  void ProcessStrips(int row, int col);
  void TraceSquare(int row, int col);
  void InterpolateXY(int from, int to, double& x, double& y, double& z) const;
  static void HandlePoint(Segment3d& segment, bool& haveStart, bool& haveEnd, double x, double y, double z, bool empty);

  int side_ = 64;          // cells of an area's
  bool inStrip_ = false;   // the square shown is brought along
  int row_ = 0;            // of the square before, and
  bool rowStarts_ = true;  // whether areas begin in it
};

}  // namespace vak
