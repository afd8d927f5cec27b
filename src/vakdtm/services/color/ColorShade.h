#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "vakdtm/services/color/Color.h"

namespace vak {

/// A colour in other lightnesses: hue and saturation taken apart once, since shading changes nothing else and does so
/// for every cell of a picture. A plain value.
class ColorShade {
 public:
  /// Black.
  ColorShade() = default;
  explicit ColorShade(Color color);
  /// @param hue,saturation  as `ColorTable::HSLtoRGB`.
  ColorShade(double hue, double saturation);

  /// Of the colour that this was made from, 0 to 1; 0 where it was made from hue and saturation.
  double Lightness() const { return lightness_; }

  /// To the last bit what `ColorTable::HSLtoRGB` gives for the hue, the saturation and this lightness.
  Color WithLightness(double lightness) const;

 private:
  double lightness_ = 0;
  double saturation_ = 0;
  std::array<double, 3> pull_{};  // of red, green and blue away from the lightness, -1 to 1
};

/// Remembers the shades of the colours that were asked for last: tables have few. Not for several threads at once.
class ColorShades {
 public:
  ColorShades();

  /// The shade of a colour; good until the next call. No allocation.
  const ColorShade& operator()(Color color);

 private:
  struct Place {
    Color color = 0;
    ColorShade shade;
  };
  std::vector<Place> places_;
};

}  // namespace vak
