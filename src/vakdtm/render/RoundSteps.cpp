#include "vakdtm/render/RoundSteps.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

namespace vak {
namespace {

/// The steps by number: 0 is 1, 1 is 2, 2 is 5, 3 is 10, and -1 is 0.5.
double StepOf(int number) {
  const int decade = number >= 0 ? number / 3 : -((2 - number) / 3);
  std::string text = std::to_string(number - 3 * decade == 0 ? 1 : number - 3 * decade == 1 ? 2 : 5);
  text += "e" + std::to_string(decade);
  double step = 0;
  std::from_chars(text.data(), text.data() + text.size(), step);
  return step;
}

/// The number of the greatest step that isn't above.
int NumberUpTo(double atMost) {
  const double bounded = std::clamp(atMost, 1e-300, 1e300);
  // The logarithm may be off by a hair; from a step below it is looked up.
  int number = 3 * static_cast<int>(std::floor(std::log10(bounded))) - 1;
  while (StepOf(number + 1) <= bounded) ++number;
  return number;
}

}  // namespace

double RoundStepFrom(double atLeast) {
  const int number = NumberUpTo(atLeast);
  const double step = StepOf(number);
  return step >= atLeast ? step : StepOf(number + 1);
}

double RoundStepUpTo(double atMost) { return StepOf(NumberUpTo(atMost)); }

double NextRoundStep(double step) { return StepOf(NumberUpTo(step) + 1); }

int DecimalsOf(double step) {
  const int number = NumberUpTo(step);
  return number >= 0 ? 0 : (2 - number) / 3;
}

}  // namespace vak
