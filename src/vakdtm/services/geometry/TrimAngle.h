#pragma once

#include <cmath>

namespace vak {

/// Brings an angle in degrees into the range from 0 up to 360, never -0 and never 360 itself. Exact for what isn't
/// negative; of a negative angle the sum with 360 is rounded, and where that would give 360 the angle is 0. What is no
/// finite number gives a not-a-number.
inline double TrimAngle(double degrees) {
  constexpr double kFullTurn = 360.0;
  double angle = degrees >= 0.0 && degrees < kFullTurn ? degrees : std::fmod(degrees, kFullTurn);
  if (angle < 0.0) angle += kFullTurn;
  // Adding 0 takes the sign off a -0.
  return angle == kFullTurn ? 0.0 : angle + 0.0;
}

}  // namespace vak
