#include "vakdtm/render/AxisTicks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>

#include "vakdtm/render/RoundSteps.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Multiples.h"

namespace vak {
namespace {

constexpr std::size_t kMostTicks = 1000;
// From the step that suits the spacing: enough for labels of any width, and for an axis between two round numbers.
constexpr int kTriesUp = 12;
constexpr int kTriesDown = 6;

/// What a label takes along the axis.
int Reach(const AxisTick& tick, bool across) { return across ? tick.size.height : tick.size.width; }

/// What is left free between two labels.
double Gap(const AxisTicks::Span& span, bool across) { return span.fontHeight * (across ? 0.3 : 1.2); }

/// Takes the labels that have no room; ticks come in the order of their places.
void DropLabels(const AxisTicks::Span& span, bool across, std::vector<AxisTick>& ticks) {
  const double gap = Gap(span, across);
  double free = -static_cast<double>(span.before);
  for (AxisTick& tick : ticks) {
    const double half = Reach(tick, across) / 2.0;
    if (tick.at - half >= free && tick.at + half <= span.length + span.behind) {
      free = tick.at + half + gap;
    } else {
      tick.label.clear();
    }
  }
}

std::optional<AxisTicks> TryStep(const AxisTicks::Span& span, bool across, double step, const TextMeasure& measure) {
  AxisTicks found;
  found.step = step;
  found.across = across;
  std::vector<double> values;
  // An end that is a round number but for the rounding of units is one.
  const double slack = 1e-9 * std::fabs(span.end - span.start);
  const double lowest = std::min(span.start, span.end) - slack;
  const double highest = std::max(span.start, span.end) + slack;
  if (SpreadMultiples(step, 0, lowest, highest, kMostTicks, values) != MultiplesFault::kNone) return std::nullopt;
  if (span.end < span.start) std::reverse(values.begin(), values.end());
  for (const double value : values) {
    AxisTick tick;
    tick.value = value;
    tick.at = std::clamp((value - span.start) / (span.end - span.start), 0.0, 1.0) * span.length;
    tick.label = TickLabel(value, step);
    tick.size = measure(tick.label, span.fontHeight);
    found.ticks.push_back(tick);
  }
  return found;
}

/// Whether every label has room between its neighbours.
bool IsAiry(const AxisTicks& found, const AxisTicks::Span& span) {
  const double pitch = found.step / std::fabs(span.end - span.start) * span.length;
  return std::all_of(found.ticks.begin(), found.ticks.end(), [&](const AxisTick& tick) {
    return Reach(tick, found.across) + Gap(span, found.across) <= pitch;
  });
}

AxisTicks FindSo(const AxisTicks::Span& span, bool across, const TextMeasure& measure) {
  const double perPixel = std::fabs(span.end - span.start) / span.length;
  const double first = RoundStepFrom(std::max(span.spacing * span.fontHeight * perPixel, span.smallestStep));
  AxisTicks best;
  best.across = across;
  double next = first;
  for (int i = 0; i < kTriesUp; ++i) {
    const double step = std::exchange(next, NextRoundStep(next));
    std::optional<AxisTicks> found = TryStep(span, across, step, measure);
    if (!found || (found->ticks.size() > 1 && !IsAiry(*found, span))) continue;
    DropLabels(span, across, found->ticks);
    if (found->NumLabels() > 0) return *found;
    break;
  }
  // No round number of that size lies on the axis: of finer ones, some.
  double step = first;
  for (int i = 0; i < kTriesDown; ++i) {
    step = RoundStepUpTo(step * 0.6);
    std::optional<AxisTicks> found = TryStep(span, across, step, measure);
    if (!found) break;
    DropLabels(span, across, found->ticks);
    if (found->NumLabels() > 0) return *found;
  }
  return best;
}

}  // namespace

AxisTicks AxisTicks::Find(const Span& span, const TextMeasure& measure) {
  AxisTicks found;
  const double range = std::fabs(span.end - span.start);
  if (span.length > 0 && range > 0 && std::isfinite(range)) {
    found = FindSo(span, span.lie == Lie::kAcross, measure);
    // Labels across may stand closer, as close as they must.
    for (const double spacing : {2.5, 1.6}) {
      if (span.lie != Lie::kEither || found.NumLabels() >= 2) break;
      Span closer = span;
      closer.spacing = std::min(span.spacing, spacing);
      const AxisTicks other = FindSo(closer, true, measure);
      if (other.NumLabels() > found.NumLabels()) found = other;
    }
  }
  if (span.end < span.start) std::reverse(found.ticks.begin(), found.ticks.end());
  return found;
}

int AxisTicks::NumLabels() const {
  return static_cast<int>(
      std::count_if(ticks.begin(), ticks.end(), [](const AxisTick& tick) { return !tick.label.empty(); }));
}

int AxisTicks::Depth() const {
  int depth = 0;
  for (const AxisTick& tick : ticks) {
    if (!tick.label.empty()) depth = std::max(depth, across ? tick.size.width : tick.size.height);
  }
  return depth;
}

std::wstring TickLabel(double value, double step) {
  std::string text;
  AppendFixed(text, value, DecimalsOf(step));
  std::wstring label(text.begin(), text.end());
  // What rounds to 0 has no sign.
  if (label.find_first_of(L"123456789") == std::wstring::npos && label.front() == L'-') label.erase(0, 1);
  if (label.front() == L'-') label.front() = L'\u2212';
  return label;
}

}  // namespace vak
