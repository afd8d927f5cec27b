#pragma once

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/frame/ModelPolygonHandler.h"
#include "vakdtm/services/geometry/Point.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

namespace vak {

class DtmAccess;
class DtmFile;

/// Limits what stands behind it in a `DtmMultiProcessor` to a polygon that was drawn on a view of the model: a cell
/// whose centre, at the cell's height, isn't in it gets weight 0. An empty cell is tested at the height of the cell
/// tested before it, the first at 0: so the polygon's edge is no ragged one over holes.
///
/// What a cell gets depends on the one before, so that it never runs in parallel.
class DtmPolyClipper3D final : public DtmProcessor {
 public:
  /// Takes the view that is drawn now, see `ModelPolygonHandler`.
  /// @param block  the id of the block that gives the heights.
  DtmPolyClipper3D(const PolyClipLine& polygon, const Point& origin, int block);

  bool Init(DtmAccess& access) override;
  bool ProcessCell(int row, int col, double& weight) override;

 private:
  DtmAccess* access_ = nullptr;
  DtmFile* file_ = nullptr;
  ModelPolygonHandler handler_;
  int block_;
  double lastZ_ = 0;
};

}  // namespace vak
