#pragma once

#include <limits>

namespace vak {

/// How many cells a painted one stands for along an axis, so that no more are painted than there are pixels.
/// @param scale  pixels a model unit (metre), positive. With 0, of either sign, all is in one pixel, and the step is
/// the
///               largest there is; with one that makes a step below 1, or none, it is 1: negative, infinite, not a
///               number.
inline int CalcDrawStep(double scale, double cellSize) {
  constexpr int kLargest = std::numeric_limits<int>::max();
  // Its quotient is infinite with either sign, and that of the zero means nothing.
  if (scale == 0.0) return kLargest;
  const double step = 1.0 / scale / cellSize;
  if (!(step >= 1.0)) return 1;
  return step < kLargest ? static_cast<int>(step) : kLargest;
}

}  // namespace vak
