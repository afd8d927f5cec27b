#pragma once

#include <string>

namespace vak {

/// A value with a fixed number of decimals and a point before them, whatever any locale says; rounded as `%.*f` rounds:
/// to the nearest, and where the binary value lies exactly halfway, to the even digit.
///
/// What rounds to zero has no minus: -0.001 with 2 decimals is "0.00". Infinities are "inf" and "-inf"; whatever isn't
/// a number is "nan".
/// @param decimals  fewer than 0 count as 0, more than 99 as 99.
/// @param flags     0. No other form is defined; other bits say nothing.
std::wstring FormatDouble(double value, int decimals, unsigned flags);

}  // namespace vak
