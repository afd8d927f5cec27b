#include "vakdtm/render/ChartContour.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "vakdtm/render/RoundSteps.h"

namespace vak {
namespace {

/// Whether a number is 1, 2 or 5 times a power of ten, but for rounding.
bool IsRound(double number) { return std::fabs(RoundStepUpTo(number * (1 + 1e-9)) / number - 1) < 1e-9; }

}  // namespace

std::vector<bool> FindIndexLevels(const std::vector<double>& levels, double interval) {
  const int every = !IsRound(5 * interval) && IsRound(4 * interval) ? 4 : 5;
  std::vector<bool> isIndex(levels.size());
  for (std::size_t i = 0; i < levels.size(); ++i) {
    isIndex[i] = std::fmod(std::round(levels[i] / interval), every) == 0;
  }
  if (std::find(isIndex.begin(), isIndex.end(), true) == isIndex.end()) isIndex.assign(levels.size(), true);
  return isIndex;
}

}  // namespace vak
