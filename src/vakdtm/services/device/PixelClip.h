#pragma once

#include <span>
#include <vector>

#include "vakdtm/services/device/PixelRect.h"

namespace vak {

// Cutting lines and polygons to a window of pixels, in doubles: for devices whose own arithmetic is narrow. Whatever
// goes in, what comes out lies in the window.

/// The window from (left, top) to (right, bottom), edges included; not empty.
struct PixelWindow {
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
};

/// A part of a polyline without a gap.
struct PixelRun {
  std::vector<PixelPoint> points;  ///< two or more
  bool closed = false;             ///< the last is joined to the first, which isn't repeated
};

bool IsFinite(const PixelPoint& point);

/// The parts of a polyline that lie in a window. A point that isn't finite makes a gap.
std::vector<PixelRun> ClipPolyline(std::span<const PixelPoint> points, const PixelWindow& window);

/// The part of a polygon that lies in a window, without the first point repeated at the end. Where it consists of
/// several, they hang together along the window's edges. Points that aren't finite are left out.
/// @return fewer than three points when nothing lies in it.
std::vector<PixelPoint> ClipPolygon(std::span<const PixelPoint> points, const PixelWindow& window);

}  // namespace vak
