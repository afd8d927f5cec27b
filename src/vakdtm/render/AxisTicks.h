#pragma once

#include <string>
#include <vector>

#include "vakdtm/render/TextMeasure.h"

namespace vak {

/// A round number on an axis.
struct AxisTick {
  double value = 0;
  double at = 0;       ///< pixels from the axis's start
  std::wstring label;  ///< empty: there is no room for one
  TextSize size;       ///< of the label, as it reads
};

/// The round numbers of an axis, with labels of which none overlaps another or sticks out further than it may.
struct AxisTicks {
  /// How a label lies.
  enum class Lie {
    kEither,  ///< along, or across where that leaves room for fewer than two labels
    kAlong,   ///< as the axis runs
    kAcross,
  };

  /// An axis and the room for its labels.
  struct Span {
    double start = 0;         ///< value at pixel 0
    double end = 0;           ///< value at pixel `length`; below `start` on an axis that falls
    int length = 0;           ///< pixels
    int before = 0;           ///< how far labels may stick out, pixels
    int behind = 0;           ///< the same at the end
    int fontHeight = 0;       ///< pixels
    double spacing = 4;       ///< from tick to tick at least, in heights of the font
    double smallestStep = 0;  ///< no step is below this, unless no number were left
    Lie lie = Lie::kEither;
  };

  /// Finds them. An axis without a length, or one that doubles can't tell numbers apart on, has none.
  static AxisTicks Find(const Span& span, const TextMeasure& measure);

  int NumLabels() const;
  /// What the labels take beside the axis, pixels.
  int Depth() const;

  double step = 0;
  bool across = false;
  std::vector<AxisTick> ticks;  ///< by rising value
};

/// A number as a label of ticks has it: with as many decimals as the step needs, and a true minus.
std::wstring TickLabel(double value, double step);

}  // namespace vak
