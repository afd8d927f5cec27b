#pragma once

#include <atomic>
#include <vector>

#include "vakdtm/contour/ContourCreator.h"
#include "vakdtm/frame/AreaExtMap.h"
#include "vakdtm/services/geometry/GtlExtents3D.h"
#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/services/geometry/GtlPolyline.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

namespace vak {

class DtmAccess;
class DtmContourLevelProc;

/// Makes contours of a block of a grid model, one level after the other. What one level learns of the range of heights,
/// of the model and of each area, saves the later ones work: a level outside the model's range costs nothing, and areas
/// that a level can't cross aren't read.
///
/// What was learned isn't forgotten when the model changes: for a model that did, a new creator is due. Lines go as
/// `DtmContourLevelProc` traces them, with lower ground on the left. A run that was stopped gives the lines that reach
/// the border of an area, as far as they were joined; those that lie within one area are left out, though complete.
class DtmContourCreator : public ContourCreator {
 public:
  /// @param access  not owned; must outlive this.
  /// @param block   id of the block.
  DtmContourCreator(DtmAccess* access, int block) : access_(access), block_(block) {}

  /// @return 0, with `out` untouched, also for a level outside the model's range, once that is known. It is the first
  /// call of this operation that finds it; one that is stopped finds that of what it saw, and that then holds.
  int AddLevel(double level, ContourList& out, const std::atomic<bool>& running) override;

  /// Adds all contours to the list at once, also when there are none. Doesn't look at the model's range and doesn't
  /// find it, but uses and finds that of the areas. Does nothing more of consequence once the flag has fallen.
  int AddLevels(const std::vector<double>& levels, ContourList& out, const std::atomic<bool>& running) override;

  /// Limits contours to a polygon, copied, or to nothing by one without rings. The model's range is found anew; those
  /// of the areas stay, and are those of what the former polygon let through: with another polygon goes another map.
  void SetPoly(const PolyClipLine& polygon);

  /// Has the areas counted that calls come to, for who watches from another thread. Not owned; null: nobody does.
  void SetAreaCounter(std::atomic<int>* areas) { areaCounter_ = areas; }

  /// The ranges of the areas, to be kept for another creator on the same model and block.
  const AreaExtMap& GetExtMap() const { return areaExtents_; }
  void SetExtMap(const AreaExtMap& map) { areaExtents_ = map; }

 private:
  void ConnectSegments(const std::vector<GTL::Polyline<GTL::Point2D<double>>>& list, double level);
  void SignContours();
  int Vote(const Contour& contour, int segment) const;

  DtmAccess* access_;
  PolyClipLine polygon_;
  AreaExtMap areaExtents_;
  std::atomic<int>* areaCounter_ = nullptr;
  int block_;
  GTL::Extents3D<double> extents_;  // of the model; not valid until a run has filled them
};

}  // namespace vak
