#pragma once

#include <functional>
#include <vector>

#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/services/geometry/GtlPolyline.h"

namespace vak {

/// A contour for a chart.
struct ChartContour {
  double level = 0;                          ///< as it is told, in the unit of heights shown
  bool isIndex = false;                      ///< drawn heavier, and labelled where there is room
  GTL::Polyline<GTL::Point2D<double>> line;  ///< m
};

/// Hands contours over in the order of drawing, one by one, and needs none of them any more when `draw` returns.
/// @return false when it was stopped or failed.
using ContourSource = std::function<bool(const std::function<void(const ChartContour&)>& draw)>;

/// Which levels are index contours: every fourth or fifth, so that they are round numbers; all of them where that would
/// be none.
/// @param levels  multiples of the interval, ascending.
std::vector<bool> FindIndexLevels(const std::vector<double>& levels, double interval);

}  // namespace vak
