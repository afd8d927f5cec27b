#include "vakdtm/services/geometry/Line.h"

#include <algorithm>
#include <cmath>

#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/device/CoordinateSystem.h"

namespace vak {
namespace {

bool IsFinite(const Point& point) { return std::isfinite(point.x) && std::isfinite(point.y); }

/// Narrows the shares of a line, from 0 at its start to 1 at its end, between which it is between two bounds.
/// Liang and Barsky, "A new concept and method for line clipping", ACM Transactions on Graphics 3(1), 1984.
bool Narrow(double from, double to, double lowest, double highest, double& first, double& last) {
  if (from == to) return lowest <= from && from <= highest;
  // Halved, as the difference of two doubles may be beyond the largest.
  const double half = to / 2 - from / 2;
  const double atLowest = (lowest / 2 - from / 2) / half;
  const double atHighest = (highest / 2 - from / 2) / half;
  first = std::max(first, std::min(atLowest, atHighest));
  last = std::min(last, std::max(atLowest, atHighest));
  return first <= last;
}

Point Between(const Point& a, const Point& b, double share) {
  return {a.x * (1 - share) + b.x * share, a.y * (1 - share) + b.y * share, a.z * (1 - share) + b.z * share};
}

/// Takes back what rounding moved: a point on the line stays between its ends, and within the page.
Point Within(Point point, const Line& line, const Page& page) {
  const auto [lowX, highX] = std::minmax(line.start.x, line.end.x);
  const auto [lowY, highY] = std::minmax(line.start.y, line.end.y);
  point.x = std::clamp(std::clamp(point.x, lowX, highX), page.left(), page.right());
  point.y = std::clamp(std::clamp(point.y, lowY, highY), page.bottom(), page.top());
  return point;
}

}  // namespace

bool Line::ClipTo(const Page& page) {
  if (!page.IsValid() || !IsFinite(start) || !IsFinite(end)) return false;
  double first = 0.0;
  double last = 1.0;
  if (!Narrow(start.x, end.x, page.left(), page.right(), first, last)) return false;
  if (!Narrow(start.y, end.y, page.bottom(), page.top(), first, last)) return false;
  const Line whole = *this;
  if (first > 0.0) start = Within(Between(whole.start, whole.end, first), whole, page);
  if (last < 1.0) end = Within(Between(whole.start, whole.end, last), whole, page);
  return true;
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
