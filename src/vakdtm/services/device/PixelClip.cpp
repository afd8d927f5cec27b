#include "vakdtm/services/device/PixelClip.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

#include "vakdtm/services/geometry/Line.h"

namespace vak {
namespace {

PixelPoint At(const Point& point) { return {point.x, point.y}; }

/// Where a line crosses the value `edge` of one of its coordinates; only asked of lines that do. Reckoned from `a`:
/// what is near stays right when the other end is very far away.
PixelPoint Crossing(const PixelPoint& a, const PixelPoint& b, double PixelPoint::* across, double PixelPoint::* along,
                    double edge) {
  // Halved, as the difference of two doubles may be beyond the largest.
  const double share = std::clamp((edge / 2 - a.*across / 2) / (b.*across / 2 - a.*across / 2), 0.0, 1.0);
  PixelPoint point;
  point.*across = edge;
  point.*along = a.*along * (1 - share) + b.*along * share;
  return point;
}

/// One step after Sutherland and Hodgman, "Reentrant polygon clipping", Communications of the ACM 17(1), 1974.
/// @param side  1: what is above the edge stays; -1: what is below.
std::vector<PixelPoint> ClipSide(const std::vector<PixelPoint>& points, double PixelPoint::* across,
                                 double PixelPoint::* along, double edge, int side) {
  const auto isIn = [&](const PixelPoint& point) { return side > 0 ? point.*across >= edge : point.*across <= edge; };
  std::vector<PixelPoint> kept;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const PixelPoint& from = points[i == 0 ? points.size() - 1 : i - 1];
    const PixelPoint& to = points[i];
    if (isIn(from) && !isIn(to)) kept.push_back(Crossing(from, to, across, along, edge));
    if (isIn(to) && !isIn(from)) kept.push_back(Crossing(to, from, across, along, edge));
    if (isIn(to)) kept.push_back(to);
  }
  return kept;
}

}  // namespace

bool IsFinite(const PixelPoint& point) { return std::isfinite(point.x) && std::isfinite(point.y); }

std::vector<PixelRun> ClipPolyline(std::span<const PixelPoint> points, const PixelWindow& window) {
  const Page page(window.left, window.top, window.right, window.bottom);
  std::vector<PixelRun> runs;
  bool whole = true;    // nothing has been cut off so far
  bool goesOn = false;  // the last run ends where the next line begins
  for (std::size_t i = 1; i < points.size(); ++i) {
    Line line({points[i - 1].x, points[i - 1].y}, {points[i].x, points[i].y});
    const bool seen = line.ClipTo(page);
    const bool startSeen = seen && At(line.start) == points[i - 1];
    const bool endSeen = seen && At(line.end) == points[i];
    whole = whole && startSeen && endSeen;
    if (seen && !(goesOn && startSeen)) runs.push_back({{At(line.start)}, false});
    if (seen) runs.back().points.push_back(At(line.end));
    goesOn = endSeen;
  }
  if (whole && runs.size() == 1 && points.size() > 2 && points.front() == points.back()) {
    runs.front().points.pop_back();
    runs.front().closed = true;
  }
  return runs;
}

std::vector<PixelPoint> ClipPolygon(std::span<const PixelPoint> points, const PixelWindow& window) {
  std::vector<PixelPoint> kept;
  std::copy_if(points.begin(), points.end(), std::back_inserter(kept), IsFinite);
  if (kept.size() > 1 && kept.front() == kept.back()) kept.pop_back();
  kept = ClipSide(kept, &PixelPoint::x, &PixelPoint::y, window.left, 1);
  kept = ClipSide(kept, &PixelPoint::x, &PixelPoint::y, window.right, -1);
  kept = ClipSide(kept, &PixelPoint::y, &PixelPoint::x, window.top, 1);
  kept = ClipSide(kept, &PixelPoint::y, &PixelPoint::x, window.bottom, -1);
  return kept;
}

}  // namespace vak
