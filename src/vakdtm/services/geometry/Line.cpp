#include "vakdtm/services/geometry/Line.h"

#include <algorithm>
#include <cmath>

#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/device/CoordinateSystem.h"

namespace vak {
namespace {

bool IsFinite(const Point& point) { return std::isfinite(point.x) && std::isfinite(point.y); }

/// Where a line from a point on one side of an edge to one on the other meets it: exactly on it, and between the two.
/// Reckoned from the first: what is near stays right when the other is very far away.
/// @param across  the coordinate that is the same all along the edge.
Point Meeting(const Point& from, const Point& to, double Point::* across, double edge) {
  // Halved, as the difference of two doubles may be beyond the largest.
  const double share = std::clamp((edge / 2 - from.*across / 2) / (to.*across / 2 - from.*across / 2), 0.0, 1.0);
  const auto between = [share](double a, double b) {
    const auto [low, high] = std::minmax(a, b);
    return std::clamp(a * (1 - share) + b * share, low, high);
  };
  Point point(between(from.x, to.x), between(from.y, to.y), from.z * (1 - share) + to.z * share);
  point.*across = edge;
  return point;
}

/// Cuts off what is beyond an edge. One end at a time, the second from where the first was cut: so what is left of a
/// line is right, however far away both ends were.
/// @param side  1: what is below the edge goes; -1: what is above. @return false when that is all.
bool CutOff(Line& line, double Point::* across, double edge, int side) {
  const auto isOut = [&](const Point& point) { return side > 0 ? point.*across < edge : point.*across > edge; };
  const bool startOut = isOut(line.start);
  const bool endOut = isOut(line.end);
  if (startOut && endOut) return false;
  if (startOut) line.start = Meeting(line.end, line.start, across, edge);
  if (endOut) line.end = Meeting(line.start, line.end, across, edge);
  return true;
}

}  // namespace

bool Line::ClipTo(const Page& page) {
  if (!page.IsValid() || !IsFinite(start) || !IsFinite(end)) return false;
  Line left = *this;
  const bool remains = CutOff(left, &Point::x, page.left(), 1) && CutOff(left, &Point::x, page.right(), -1) &&
                       CutOff(left, &Point::y, page.bottom(), 1) && CutOff(left, &Point::y, page.top(), -1);
  if (remains) *this = left;
  return remains;
}

void Line::DrawLine(CDC* device, const CoordinateSystem& coordinates, const Page& view) const {
  Line visible = *this;
  if (device == nullptr || !visible.ClipTo(view)) return;
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  coordinates.WorldToPixel(visible.start.x, visible.start.y, &x0, &y0);
  coordinates.WorldToPixel(visible.end.x, visible.end.y, &x1, &y1);
  device->DrawLine(x0, y0, x1, y1);
}

}  // namespace vak
