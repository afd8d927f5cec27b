#include "ContourLevels.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace vak {
namespace {

// Whole numbers beyond have gaps, so that a factor could be left out.
constexpr double kHighestFactor = 9007199254740992.0;

const char* const kTooMany = "that makes more than 100000 levels";

}  // namespace

bool SpreadLevels(double interval, double base, double lowest, double highest, std::vector<double>& levels,
                  std::string& error) {
  levels.clear();
  const double first = std::floor((lowest - base) / interval) - 1;
  const double last = std::ceil((highest - base) / interval) + 1;
  if (last - first > static_cast<double>(kMostLevels) + 4) {
    error = kTooMany;
    return false;
  }
  if (std::fabs(first) >= kHighestFactor || std::fabs(last) >= kHighestFactor) {
    error = "the interval is too small beside the heights";
    return false;
  }
  for (auto k = static_cast<std::int64_t>(first); k <= static_cast<std::int64_t>(last); ++k) {
    // 0 without a sign.
    const double level = base + static_cast<double>(k) * interval + 0.0;
    if (level < lowest || level > highest) continue;
    if (!levels.empty() && level == levels.back()) {
      error = "the interval is too small beside the heights";
      return false;
    }
    levels.push_back(level);
  }
  if (levels.size() <= kMostLevels) return true;
  error = kTooMany;
  return false;
}

bool ParseLevels(const std::string& text, std::vector<double>& levels, std::string& error) {
  std::vector<double> parsed;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t comma = std::min(text.find(',', from), text.size());
    const char* const end = text.data() + comma;
    double level = 0;
    const auto [stop, code] = std::from_chars(text.data() + from, end, level);
    if (code != std::errc() || stop != end || !std::isfinite(level)) {
      error = "'" + text.substr(from, comma - from) + "' is no number";
      return false;
    }
    parsed.push_back(level + 0.0);
    from = comma + 1;
  }
  std::sort(parsed.begin(), parsed.end());
  parsed.erase(std::unique(parsed.begin(), parsed.end()), parsed.end());
  if (parsed.size() > kMostLevels) {
    error = kTooMany;
    return false;
  }
  levels = std::move(parsed);
  return true;
}

}  // namespace vak
