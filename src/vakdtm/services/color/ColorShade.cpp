#include "vakdtm/services/color/ColorShade.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "vakdtm/services/color/ColorTable.h"

namespace vak {
namespace {

constexpr std::size_t kPlaces = 1024;  // a power of two, more than most tables have colours

/// 0 to 1; what is no number counts as 0.
double Cut(double share) { return std::isnan(share) ? 0.0 : std::clamp(share, 0.0, 1.0); }

}  // namespace

ColorShade::ColorShade(Color color) {
  double hue = 0;
  double saturation = 0;
  double lightness = 0;
  ColorTable::RGBtoHSL(color, hue, saturation, lightness);
  *this = ColorShade(hue, saturation);
  lightness_ = lightness;
}

ColorShade::ColorShade(double hue, double saturation) : saturation_(Cut(saturation)) {
  const double turn = std::isfinite(hue) ? hue - 360 * std::floor(hue / 360) : 0;
  const auto pull = [&](double offset) {
    const double k = std::fmod(offset + turn / 30, 12);
    return std::clamp(std::min(k - 3, 9 - k), -1.0, 1.0);
  };
  pull_ = {pull(0), pull(8), pull(4)};
}

Color ColorShade::WithLightness(double lightness) const {
  const double light = Cut(lightness);
  const double reach = saturation_ * std::min(light, 1 - light);
  const auto byte = [&](double pull) {
    return static_cast<Color>(std::lround(std::clamp(light - reach * pull, 0.0, 1.0) * 255.0));
  };
  return byte(pull_[0]) | byte(pull_[1]) << 8 | byte(pull_[2]) << 16;
}

ColorShades::ColorShades() : places_(kPlaces) {}  // each with black, which is where a look-up of it ends too

const ColorShade& ColorShades::operator()(Color color) {
  // Multiplying by an odd number brings the bits of all three parts together at the top of 32.
  const auto mixed = static_cast<std::uint32_t>(color) * 0x9E3779B1U;
  Place& place = places_[mixed >> 22];
  if (place.color != color) place = {color, ColorShade(color)};
  return place.shade;
}

}  // namespace vak
