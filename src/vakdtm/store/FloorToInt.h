#pragma once

#include <limits>

namespace vak {

/// floor(value) as an int. Beyond the type's ends it is the end, and not-a-number gives the lower one.
inline int FloorToInt(double value) {
  constexpr double kEnd = 2147483648.0;
  if (!(value >= -kEnd)) return std::numeric_limits<int>::min();
  if (value >= kEnd) return std::numeric_limits<int>::max();
  const int truncated = static_cast<int>(value);
  return truncated - (value < truncated ? 1 : 0);
}

}  // namespace vak
