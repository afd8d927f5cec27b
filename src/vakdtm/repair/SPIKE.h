#pragma once

#include <array>
#include <cstddef>

namespace vak {

/// A cell that stands out from the surface around it, as the search for spikes marks it and the drawing shows it. A
/// plain value.
///
/// In a `std::set<SPIKE>` a cell is once, by row and then column; what else a record says isn't compared, and in the
/// sets that are handed on it is zero.
struct SPIKE {
  int row = 0;
  int col = 0;
  double z = 0.0;                    ///< the cell's value
  double reference = 0.0;            ///< the value of the envelope that it stands out from
  double interpolated = 0.0;         ///< what the surface is without the spikes; 99999.0: nothing could be said
  std::array<std::byte, 32> rest{};  ///< carried along

  friend constexpr bool operator<(const SPIKE& a, const SPIKE& b) {
    return a.row != b.row ? a.row < b.row : a.col < b.col;
  }
};

}  // namespace vak
