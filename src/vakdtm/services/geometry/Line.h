#pragma once

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/Point.h"

namespace vak {

class CDC;
class CoordinateSystem;

/// A straight line between two points of the world. A plain value.
struct Line {
  constexpr Line() = default;
  constexpr Line(const Point& first, const Point& second) : start(first), end(second) {}

  /// Cuts it to what lies in a page, edges included; z goes along. A cut end lies exactly on the edge that cut it.
  /// @return false, with the line unchanged, when nothing of it lies in the page, when the page is invalid or a
  /// coordinate isn't finite. A line that only touches a corner remains, as a point.
  bool ClipTo(const Page& page);

  /// Draws what lies in the view with the selected pen: both ends are cut where they leave it.
  /// @param device  null: nothing is drawn.
  void DrawLine(CDC* device, const CoordinateSystem& coordinates, const Page& view) const;

  friend constexpr bool operator==(const Line&, const Line&) = default;

  Point start;
  Point end;
};

}  // namespace vak
