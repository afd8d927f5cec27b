#pragma once

namespace vak {

/// A rectangle of pixels, y downwards. `right` and `bottom` are the first column and row that don't belong to it; it is
/// empty when not left < right and top < bottom.
struct PixelRect {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;

  bool IsEmpty() const { return left >= right || top >= bottom; }

  friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

/// A position among pixels, y downwards: the pixel in column i and row j reaches from (i, j) to (i + 1, j + 1).
struct PixelPoint {
  double x = 0.0;
  double y = 0.0;

  friend bool operator==(const PixelPoint&, const PixelPoint&) = default;
};

}  // namespace vak
