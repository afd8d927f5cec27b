#pragma once

#include <ostream>
#include <vector>

#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/services/geometry/GtlPolyline.h"

namespace vak::GTL {

inline void PrintTo(const Point2D<double>& point, std::ostream* out) {
  const auto precision = out->precision(17);
  *out << '(' << point.x << ' ' << point.y << ')';
  out->precision(precision);
}

}  // namespace vak::GTL

namespace vak::test {

using Lines = std::vector<std::vector<GTL::Point2D<double>>>;

/// The points of each line.
inline Lines LinesOf(const std::vector<GTL::Polyline<GTL::Point2D<double>>>& list) {
  Lines lines;
  for (const auto& line : list) {
    lines.emplace_back();
    for (int i = 0; i < line.NumPoints(); ++i) lines.back().push_back(line[i]);
  }
  return lines;
}

}  // namespace vak::test
