#pragma once

#include "vakdtm/services/color/Color.h"

namespace vak {

/// What lines are drawn with. A plain value: a pen that is selected is a copy, and nothing has to be given back.
struct Pen {
  static constexpr int kSolid = 0;
  static constexpr int kDashed = 1;
  static constexpr int kDotted = 2;
  static constexpr int kNone = 5;  ///< draws nothing

  int style = kSolid;  ///< one of the above; any other is as solid
  int width = 1;       ///< in pixels; below 1 counts as 1
  Color color = 0;

  friend bool operator==(const Pen&, const Pen&) = default;
};

inline Pen CreatePen(int style, int width, Color color) { return {style, width, color}; }

}  // namespace vak
