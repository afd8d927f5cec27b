#pragma once

#include "vakdtm/services/geometry/GtlPoint.h"

namespace vak::GTL {

/// A straight line between two positions; at z 0 where they have none.
struct Line {
  Point3D<double> start;
  Point3D<double> end;

  friend bool operator==(const Line& a, const Line& b) = default;
};

}  // namespace vak::GTL
