#pragma once

#include <array>
#include <string>
#include <vector>

#include "vakdtm/services/geometry/Point.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

namespace vak {

/// Judges points of a model against a polygon, in the plane or as it was drawn on a view of the model, less any number
/// of exclude polygons.
///
/// On a view a point is first projected to the screen, in pixels from the lower left of the window: the polygon and the
/// exclude polygons are in those coordinates then. In the plane, and without a polygon, they are in model coordinates.
/// A polygon without rings limits nothing.
///
/// Nothing of it changes in a test: any number of threads may test at the same time.
class ModelPolygonHandler {
 public:
  /// Judges on the view that is drawn now: takes the matrices and the viewport of the calling thread's current OpenGL
  /// context, which has to have one. Later calls need none. In a library built without OpenGL it judges in the plane,
  /// as the other form does.
  /// @param origin  what was subtracted from model coordinates before they were drawn.
  ModelPolygonHandler(const PolyClipLine& polygon, const Point& origin);

  /// Judges in the plane. @param polygon  copied; null: every point is in, but for the exclude polygons.
  explicit ModelPolygonHandler(const PolyClipLine* polygon);

  /// Replaces the exclude polygons by those of polygon files. One that can't be read is left out.
  void SetExcludePolygons(const std::vector<std::wstring>& paths);

  /// @return whether the point, in model coordinates, is in the polygon and in no exclude polygon.
  bool IsPointInPolygon(double x, double y, double z) const;

  /// Whether this library can judge on a view.
  static bool HasViews();

 private:
  Point OnScreen(const Point& point) const;

  PolyClipLine polygon_;
  Point origin_;
  [[maybe_unused]] std::array<double, 16> modelView_{};  // of the view; a library without OpenGL has none
  [[maybe_unused]] std::array<double, 16> projection_{};
  [[maybe_unused]] std::array<int, 4> viewport_{};
  bool useView_ = false;
  std::vector<PolyClipLine> exclude_;
  bool hasPolygon_ = false;
};

}  // namespace vak
