#include "ContourLevels.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>
#include <system_error>

#include "vakdtm/services/text/Multiples.h"

namespace vak {
namespace {

const char* const kTooMany = "that makes more than 100000 levels";

}  // namespace

bool SpreadLevels(double interval, double base, double lowest, double highest, std::vector<double>& levels,
                  std::string& error) {
  switch (SpreadMultiples(interval, base, lowest, highest, kMostLevels, levels)) {
    case MultiplesFault::kTooMany:
      error = kTooMany;
      return false;
    case MultiplesFault::kTooFine:
      error = "the interval is too small beside the heights";
      return false;
    case MultiplesFault::kNone:
      break;
  }
  return true;
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
