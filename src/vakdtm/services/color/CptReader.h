#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/services/color/Color.h"

namespace vak {

/// What a `.cpt` text says: slices of values, each with a colour at either end, side by side and rising.
struct CptTable {
  struct Slice {
    double lower, upper;  // a category has both the same
    Color color, upperColor;
    std::wstring name;
  };

  std::vector<Slice> slices;
  bool categories = false;
  std::optional<Color> below, above, noValue;
};

/// Why a text wasn't taken.
struct CptError {
  std::size_t line = 0;  // from 1; 0: the whole
  std::wstring what;
};

/// Reads a colour palette of the mapping world.
///
/// A slice is `z0 color z1 color`, a category `key color`, either with a letter for the annotation (L, U, B), which is
/// passed over, and with its name behind a ';'. B, F and N before a colour give it to what lies below, above, and to
/// what is no number. A colour is a grey (0 to 255), `r/g/b` (0 to 255), `h-s-v` (degrees, 0 to 1, 0 to 1), `c/m/y/k`
/// (per cent), `#rrggbb` or a name; the old form with three columns a colour is read too. In lines that begin with '#'
/// these count: COLOR_MODEL (a small or a plus before HSV: slices run through hue, saturation and value, and come as
/// several slices of red, green and blue), RANGE (where values run over 0 to 1 or -1 to 1, they are stretched to it),
/// and HARD_HINGE, SOFT_HINGE or HINGE (the value to which RANGE brings 0; only the hard one does it unasked).
///
/// @param most  more slices than this are refused.
/// @return false when the text isn't such a palette: gaps, falling values, unknown colours; `table` is untouched then.
bool ReadCptText(std::string_view text, std::size_t most, CptTable& table, CptError& error);

}  // namespace vak
