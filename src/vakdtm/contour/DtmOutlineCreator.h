#pragma once

#include <atomic>
#include <deque>
#include <vector>

#include "vakdtm/contour/Outline.h"
#include "vakdtm/contour/OutlineList.h"
#include "vakdtm/frame/AreaExtMap.h"
#include "vakdtm/services/geometry/GtlExtents3D.h"
#include "vakdtm/services/geometry/GtlPolyline.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

namespace vak {

class DtmAccess;

/// Finds the outlines of one block of a model, once for each polygon: the lines between cells with a value and cells
/// without, as `DtmOutlineProc` traces them.
///
/// A value whose copies walk with the same access. For one thread at a time.
class DtmOutlineCreator {
 public:
  /// @param access  not owned, good as long as this is used; with null there are no outlines.
  /// @param block   id of the block whose empty cells count (`dVAL`).
  DtmOutlineCreator(DtmAccess* access, int block);

  /// Walks the model and adds its outlines to `out`, all at level 0.
  /// @param level    not looked at.
  /// @param running  true while the work may go on; may be lowered by another thread.
  /// @return how many were added. 0, with `out` as it was, when the model has no empty place that the walk came by, the
  /// polygon isn't valid, or the outlines were delivered before: a call that came by any makes all further ones answer
  /// 0 until `SetPoly`. That holds for a stopped run too, which delivers the lines that reach the border of their area,
  /// as far as they were joined.
  int AddLevel(double level, OutlineList& out, const std::atomic<bool>& running);

  /// Takes another polygon, and is ready to run again. The polygon acts by whole areas: those that it leaves nothing of
  /// aren't walked, and no line is cut at it.
  void SetPoly(const PolyClipLine& polygon);

  /// Has the areas counted that a call comes to, for who watches from another thread. Not owned; null: nobody does.
  void SetAreaCounter(std::atomic<int>* areas) { areaCounter_ = areas; }

  /// The ranges of values of areas. A walk leaves out an area whose range doesn't hold 0: that is of use with ranges of
  /// one's own alone, as the walk itself enters none, and those that contours have learned make it leave out the areas
  /// whose heights don't span 0.
  const AreaExtMap& GetExtMap() const { return ranges_; }
  void SetExtMap(const AreaExtMap& ranges) { ranges_ = ranges; }

 private:
  void ConnectSegments(const std::vector<GTL::Polyline<GTL::Point3D<double>>>& lines, double level);

  DtmAccess* access_;
  PolyClipLine polygon_;
  AreaExtMap ranges_;
  std::atomic<int>* areaCounter_ = nullptr;
  int block_;
  GTL::Extents3D<double> extents_;  // valid when there is nothing more to deliver
  std::deque<Outline> outlines_;    // of the latest call
};

}  // namespace vak
