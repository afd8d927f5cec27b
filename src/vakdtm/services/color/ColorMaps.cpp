#include "vakdtm/services/color/ColorMaps.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "vakdtm/services/color/ColorTable.h"

namespace vak {
namespace {

constexpr double kDegree = 0.017453292519943295;

/// A colour in Oklab (B. Ottosson, "A perceptual color space for image processing", 2020), in which equal steps look
/// equally large: lightness 0 to 1, and two axes for hue and chroma.
struct Lab {
  double lightness = 0;
  double a = 0;
  double b = 0;
};

/// Red, green and blue as light, 0 to 1 each where a screen can show the colour.
using LinearRgb = std::array<double, 3>;

LinearRgb ToLinear(const Lab& lab) {
  const double l = lab.lightness + 0.3963377774 * lab.a + 0.2158037573 * lab.b;
  const double m = lab.lightness - 0.1055613458 * lab.a - 0.0638541728 * lab.b;
  const double s = lab.lightness - 0.0894841775 * lab.a - 1.2914855480 * lab.b;
  const double l3 = l * l * l;
  const double m3 = m * m * m;
  const double s3 = s * s * s;
  return {4.0767416621 * l3 - 3.3077115913 * m3 + 0.2309699292 * s3,
          -1.2684380046 * l3 + 2.6097574011 * m3 - 0.3413193965 * s3,
          -0.0041960863 * l3 - 0.7034186147 * m3 + 1.7076147010 * s3};
}

bool CanBeShown(const LinearRgb& rgb) {
  return std::all_of(rgb.begin(), rgb.end(), [](double light) { return light >= 0.0 && light <= 1.0; });
}

/// The byte of a screen's gamma (sRGB).
Color ToByte(double light) {
  const double cut = std::clamp(light, 0.0, 1.0);
  const double coded = cut <= 0.0031308 ? 12.92 * cut : 1.055 * std::pow(cut, 1 / 2.4) - 0.055;
  return static_cast<Color>(std::lround(255 * coded));
}

/// The nearest colour that a screen can show with the same lightness and hue: what has too much chroma gets less.
Color ToScreen(Lab lab) {
  LinearRgb rgb = ToLinear(lab);
  if (!CanBeShown(rgb)) {
    double shown = 0;
    double refused = 1;
    for (int halving = 0; halving < 30; ++halving) {
      const double share = (shown + refused) / 2;
      (CanBeShown(ToLinear({lab.lightness, share * lab.a, share * lab.b})) ? shown : refused) = share;
    }
    rgb = ToLinear({lab.lightness, shown * lab.a, shown * lab.b});
  }
  return ToByte(rgb[0]) | ToByte(rgb[1]) << 8 | ToByte(rgb[2]) << 16;
}

/// Where a table passes on its way: hue in degrees and chroma, at a share of it.
struct Station {
  double share;
  double hue;
  double chroma;
};

/// A table: its lightness runs evenly from one end to the other, or from both to the middle, and hue and chroma from
/// station to station.
struct Map {
  std::string_view name;
  double lowLightness;
  double middleLightness;  // of a two-sided table, else unused
  double highLightness;
  bool isTwoSided;
  std::array<Station, 7> stations;  // the last one repeats where a table has fewer
};

// clang-format off
constexpr std::array kMaps = std::to_array<Map>({
    {"depth", 0.23, 0, 0.95, false,
     {{{0.00, 295, 0.120}, {0.20, 275, 0.150}, {0.42, 242, 0.115}, {0.60, 198, 0.095}, {0.76, 150, 0.110}, {0.90, 104, 0.115}, {1.00, 84, 0.060}}}},
    {"difference", 0.38, 0.97, 0.38, true,
     {{{0.00, 262, 0.150}, {0.25, 257, 0.115}, {0.49, 252, 0.008}, {0.51, 32, 0.008}, {0.75, 30, 0.115}, {1.00, 25, 0.150}, {1.00, 25, 0.150}}}},
    {"hits", 0.97, 0, 0.28, false,
     {{{0.00, 105, 0.055}, {0.25, 135, 0.100}, {0.50, 185, 0.090}, {0.75, 240, 0.105}, {1.00, 268, 0.110}, {1.00, 268, 0.110}, {1.00, 268, 0.110}}}},
    {"deviation", 0.96, 0, 0.28, false,
     {{{0.00, 82, 0.035}, {0.30, 60, 0.105}, {0.60, 33, 0.150}, {0.80, 15, 0.140}, {1.00, 0, 0.100}, {1.00, 0, 0.100}, {1.00, 0, 0.100}}}},
    {"time", 0.95, 0, 0.26, false,
     {{{0.00, 140, 0.080}, {0.28, 165, 0.105}, {0.52, 215, 0.090}, {0.78, 275, 0.120}, {1.00, 305, 0.115}, {1.00, 305, 0.115}, {1.00, 305, 0.115}}}},
    {"uncertainty", 0.96, 0, 0.30, false,
     {{{0.00, 105, 0.025}, {0.30, 92, 0.085}, {0.60, 72, 0.110}, {0.80, 55, 0.100}, {1.00, 42, 0.070}, {1.00, 42, 0.070}, {1.00, 42, 0.070}}}},
    {"slope", 0.92, 0, 0.15, false,
     {{{0.00, 155, 0.065}, {0.50, 160, 0.040}, {1.00, 165, 0.0}, {1.00, 165, 0.0}, {1.00, 165, 0.0}, {1.00, 165, 0.0}, {1.00, 165, 0.0}}}},
});
// clang-format on

const Map* FindMap(std::string_view name) {
  const auto* const found = std::find_if(kMaps.begin(), kMaps.end(), [&](const Map& map) { return map.name == name; });
  return found == kMaps.end() ? nullptr : found;
}

double LightnessAt(const Map& map, double share) {
  if (!map.isTwoSided) return std::lerp(map.lowLightness, map.highLightness, share);
  return share <= 0.5 ? std::lerp(map.lowLightness, map.middleLightness, 2 * share)
                      : std::lerp(map.middleLightness, map.highLightness, 2 * share - 1);
}

/// The slope at a station of a curve that has the slopes `before` and `behind` beside it: smooth, and never beyond the
/// stations themselves. After Fritsch and Butland, "A method for constructing local monotone piecewise cubic
/// interpolants", SIAM Journal on Scientific and Statistical Computing 5(2), 1984.
double SlopeBetween(double before, double behind) {
  return before * behind > 0 ? 2 * before * behind / (before + behind) : 0.0;
}

/// Hue or chroma at a share of the way, along a smooth curve through all stations.
double Follow(const Map& map, double Station::* what, double share) {
  const auto& stations = map.stations;
  std::size_t at = 0;  // the station before the share, with another one behind
  while (at + 2 < stations.size() && share >= stations[at + 1].share &&
         stations[at + 2].share > stations[at + 1].share) {
    ++at;
  }
  const auto slope = [&](std::size_t from) {
    const double width = stations[from + 1].share - stations[from].share;
    return width > 0 ? (stations[from + 1].*what - stations[from].*what) / width : 0.0;
  };
  const double width = stations[at + 1].share - stations[at].share;
  const double own = slope(at);
  const double first = at > 0 ? SlopeBetween(slope(at - 1), own) : own;
  const double last = at + 2 < stations.size() && slope(at + 1) != 0 ? SlopeBetween(own, slope(at + 1)) : own;
  const double t = (share - stations[at].share) / width;
  const double u = 1 - t;
  return stations[at].*what * (1 + 2 * t) * u * u + stations[at + 1].*what * (3 - 2 * t) * t * t +
         width * t * u * (first * u - last * t);
}

Color ColorAt(const Map& map, double share) {
  const double hue = Follow(map, &Station::hue, share) * kDegree;
  const double chroma = Follow(map, &Station::chroma, share);
  return ToScreen({LightnessAt(map, share), chroma * std::cos(hue), chroma * std::sin(hue)});
}

}  // namespace

const std::vector<std::string_view>& ColorMapNames() {
  static const std::vector<std::string_view> names = [] {
    std::vector<std::string_view> list;
    list.reserve(kMaps.size());
    for (const Map& map : kMaps) list.push_back(map.name);
    return list;
  }();
  return names;
}

bool IsColorMap(std::string_view name) { return FindMap(name) != nullptr; }

Color ColorMapColor(std::string_view name, double share) {
  const Map* const map = FindMap(name);
  if (map == nullptr) return 0;
  return ColorAt(*map, std::isnan(share) ? 0.0 : std::clamp(share, 0.0, 1.0));
}

bool MakeColorTable(std::string_view name, double low, double high, ColorTable& table) {
  const Map* const map = FindMap(name);
  if (map == nullptr || !std::isfinite(low) || !std::isfinite(high)) return false;
  if (map->isTwoSided) {
    const double reach = std::max(std::abs(low), std::abs(high));
    const bool falls = low > high;
    low = falls ? reach : -reach;
    high = -low;
  }
  const bool falls = low > high;
  if (falls) std::swap(low, high);
  std::vector<ColorClass> classes;
  classes.reserve(kColorMapClasses);
  for (int number = 0; number < kColorMapClasses; ++number) {
    const double lower = std::lerp(low, high, static_cast<double>(number) / kColorMapClasses);
    if (!classes.empty() && !(lower > classes.back().lower)) continue;
    const double share = low < high ? static_cast<double>(number) / (kColorMapClasses - 1) : 0.5;
    const Color color = ColorAt(*map, falls ? 1 - share : share);
    classes.push_back({lower, color, color, L""});
  }
  ColorTable made;
  if (!made.SetClasses(std::move(classes), high)) return false;
  table = std::move(made);
  return true;
}

}  // namespace vak
