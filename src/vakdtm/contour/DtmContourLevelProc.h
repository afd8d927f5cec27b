#pragma once

#include <atomic>

#include "vakdtm/contour/SquareTracer.h"
#include "vakdtm/services/geometry/GtlPoint.h"

namespace vak {

/// Traces the lines of one level through one block of a grid model.
///
/// The surface between four neighbouring cell centres is cut at the level: where an edge has the level between the
/// heights at its ends, a line crosses it at the place that is linear between them. Walking along a line, lower ground
/// is on the left. A square with an empty corner gives nothing, so that lines end half a cell short of the data's edge;
/// neither does a square of one height. A corner exactly on the level counts as 1e-7 higher. In a saddle the mean of
/// the corners decides which of them are connected; when it is on the level, the lower left one and its opposite are.
///
/// Of the deepest and the highest depths (`dMIN`, `dMAX`) corners are where in their cells the soundings were.
///
/// Squares belong to the area of their lower left cell, and count by their middle when a polygon is given. Both squares
/// at an edge compute the same crossing, to the last bit, so that pieces are joined where their ends are equal. See
/// `SquareTracer` for how it is used.
class DtmContourLevelProc : public SquareTracer<DtmContourLevelProc, GTL::Point2D<double>> {
 public:
  using Segment = SquareSegment<GTL::Point2D<double>>;

  /// @param polygon  copied; without rings it limits nothing.
  /// @param level    in the block's units, metres for depths.
  /// @param block    id of the block.
  /// @param running  true while work may go on; must outlive this.
  DtmContourLevelProc(const PolyClipLine& polygon, double level, int block, const std::atomic<bool>& running);

  /// @return false when the run flag reads false, which ends the walk.
  bool ProcessCell(int row, int col, double& weight) override;

 private:
  friend SquareTracer;

  bool IsCrossed(int a, int b) const {
    return (level_ >= At(a).z && At(b).z > level_) || (At(a).z >= level_ && level_ > At(b).z);
  }
  bool CutsOffLowerLeft() const;
  void Cross(const SquareEdge& edge, Segment& segment, bool& haveStart, bool& haveEnd);

  bool IsOffLevel() const;
  void LearnFrom(int row, int col);
  void TraceSquare(int row, int col);
  bool IsEmptySquare() const;
  bool IsFlat() const { return At(0).z == At(1).z && At(1).z == At(2).z && At(2).z == At(3).z; }
  void RaiseFromLevel();
  double CompCutDist(double z1, double z2) const { return (level_ - z1) / (z2 - z1); }
  void InterpolateXY(int from, int to, double& x, double& y) const;
  void HandlePoint(Segment& segment, bool& haveStart, bool& haveEnd, double x, double y, double z) const;

  double level_;
};

}  // namespace vak
