#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vak {

/// More levels are refused: nobody means them.
constexpr std::size_t kMostLevels = 100000;

/// The levels base + k * interval, k a whole number, from `lowest` to `highest`, as `SpreadMultiples` makes them.
/// @param interval  above 0; all numbers finite.
/// @return false, with the reason in `error`, when there are too many, or a double can't tell neighbours apart.
[[nodiscard]] bool SpreadLevels(double interval, double base, double lowest, double highest,
                                std::vector<double>& levels, std::string& error);

/// Reads a list of numbers, "-10,-12.5": ascending, each once.
/// @return false, with the reason in `error`, for anything that is no finite number.
[[nodiscard]] bool ParseLevels(const std::string& text, std::vector<double>& levels, std::string& error);

}  // namespace vak
