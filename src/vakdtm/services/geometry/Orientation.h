#pragma once

#include "vakdtm/services/geometry/Point.h"

namespace vak {

/// On which side of the line from a to b the point c lies in the plane: 1 to the left, -1 to the right, 0 on it.
///
/// Exact, without rounding, as long as no product of coordinates over- or underflows: magnitudes from 1e-100 to 1e100,
/// and 0. (1) Swapping two points changes the sign, cycling them changes nothing.
///
/// After Shewchuk, "Adaptive precision floating-point arithmetic and fast robust geometric predicates", Discrete &
/// Computational Geometry 18, 1997: the plain formula decides when it is larger than its rounding can be; else the sum
/// of its exact products is taken, in one go and not in steps.
int OrientationSign(const Point& a, const Point& b, const Point& c);

}  // namespace vak
