#pragma once

#include <string>

namespace vak {

// Numbers as text, with a point for the decimals whatever the locale of the process.

/// Appends the shortest decimal text that reads back to the same double.
///
/// Plain decimals (512345.5, 1000000, 0.00001) for 0 and for magnitudes from 1e-6 up to below 1e17, with an exponent
/// (1e+17, 2.5e-07) beyond. Negative zero is "-0"; infinities are "inf" and "-inf"; whatever isn't a number is "nan".
void AppendNumber(std::string& out, double value);

/// Appends the value with exactly `digits` decimals, rounded to the nearest as `%.*f` rounds: exactly halfway, which a
/// binary fraction can be, goes to the even digit. Infinities and "nan" as above.
/// @param digits  0 to 99.
void AppendFixed(std::string& out, double value, int digits);

}  // namespace vak
