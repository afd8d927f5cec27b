#pragma once

#include <cstddef>
#include <vector>

namespace vak {

/// Why multiples of a step can't be told one by one.
enum class MultiplesFault {
  kNone,
  kTooMany,
  kTooFine,  // a double can't tell neighbours apart
};

/// The numbers base + k * step, k a whole number, from `lowest` to `highest`, ends included: ascending, each once.
///
/// Each is the double nearest to what the sum is in decimals, of the shortest ones that `base` and `step` are read
/// from: with a step of 0.1 they are the doubles that -12.7 or 0.3 are read as. Where the two together have too many
/// digits for that, it is the sum of the doubles.
/// @param step  above 0; all numbers finite.
/// @param most  how many there may be.
[[nodiscard]] MultiplesFault SpreadMultiples(double step, double base, double lowest, double highest, std::size_t most,
                                             std::vector<double>& numbers);

}  // namespace vak
