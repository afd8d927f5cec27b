#include "vakdtm/services/color/ColorTable.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vak {
namespace {

constexpr Color kBlack = 0;
constexpr Color kWhite = 0xFFFFFF;
constexpr Color kBlue = 0xFF0000;
constexpr Color kRed = 0x0000FF;

unsigned Channel(Color color, int channel) { return static_cast<unsigned>(color >> (8 * channel)) & 0xFFU; }

Color Join(double red, double green, double blue) {
  const auto byte = [](double share) { return static_cast<Color>(std::lround(std::clamp(share, 0.0, 1.0) * 255.0)); };
  return byte(red) | byte(green) << 8 | byte(blue) << 16;
}

Color Between(Color from, Color to, double share) {
  if (from == to) return from;
  const auto mix = [&](int channel) {
    return std::lerp(Channel(from, channel) / 255.0, Channel(to, channel) / 255.0, share);
  };
  return Join(mix(0), mix(1), mix(2));
}

/// The colour `share` of the way through hue, saturation and lightness.
Color BetweenHues(Color from, Color to, double share) {
  double hue[2];
  double saturation[2];
  double lightness[2];
  ColorTable::RGBtoHSL(from, hue[0], saturation[0], lightness[0]);
  ColorTable::RGBtoHSL(to, hue[1], saturation[1], lightness[1]);
  if (saturation[0] == 0) hue[0] = hue[1];
  if (saturation[1] == 0) hue[1] = hue[0];
  return ColorTable::HSLtoRGB(std::lerp(hue[0], hue[1], share), std::lerp(saturation[0], saturation[1], share),
                              std::lerp(lightness[0], lightness[1], share));
}

/// The class that holds a value, or none: the last lower bound that isn't above it.
const ColorClass* Holder(const std::vector<ColorClass>& classes, std::optional<double> end, double value) {
  if (std::isnan(value) || (end && value > *end)) return nullptr;
  const auto above = std::upper_bound(classes.begin(), classes.end(), value,
                                      [](double wanted, const ColorClass& next) { return wanted < next.lower; });
  return above == classes.begin() ? nullptr : &*std::prev(above);
}

}  // namespace

Color ColorTable::GetColor(double value) const {
  if (std::isnan(value)) return noValue_.value_or(kBlack);
  if (classes_.empty()) return kBlack;
  const ColorClass* const holder = Holder(classes_, end_, value);
  if (holder == nullptr) {
    return value < classes_.front().lower ? below_.value_or(classes_.front().color)
                                          : above_.value_or(classes_.back().upper);
  }
  if (holder->color == holder->upper) return holder->color;
  const bool last = holder == &classes_.back();
  const double upper = last ? end_.value_or(holder->lower) : std::next(holder)->lower;
  if (!(upper > holder->lower)) return holder->color;
  // Halves, so that the width of a class over all doubles is still one.
  const double share = (value / 2 - holder->lower / 2) / (upper / 2 - holder->lower / 2);
  return Between(holder->color, holder->upper, share);
}

std::wstring ColorTable::GetName(double value) const {
  const ColorClass* const holder = Holder(classes_, end_, value);
  return holder != nullptr ? holder->name : std::wstring();
}

bool ColorTable::SetRange(double min, double max, int steps, bool colored, bool reversed) {
  Color first = colored ? kBlue : kBlack;
  Color second = colored ? kRed : kWhite;
  if (reversed) std::swap(first, second);
  return SetRange(min, max, steps, first, second);
}

bool ColorTable::SetRange(double low, double high, int steps, Color first, Color second) {
  if (!std::isfinite(low) || !std::isfinite(high) || steps < 1) return false;
  if (static_cast<std::size_t>(steps) > kMostClasses) return false;
  if (low > high) {
    std::swap(low, high);
    std::swap(first, second);
  }
  if (low == high) steps = 1;
  std::vector<ColorClass> classes;
  classes.reserve(static_cast<std::size_t>(steps));
  for (int step = 0; step < steps; ++step) {
    const double lower = std::lerp(low, high, static_cast<double>(step) / steps);
    if (!classes.empty() && !(lower > classes.back().lower)) continue;
    const double share = steps > 1 ? static_cast<double>(step) / (steps - 1) : 0.0;
    const Color color = BetweenHues(first, second, share);
    classes.push_back({lower, color, color, L""});
  }
  ColorTable range;
  if (!range.SetClasses(std::move(classes), high)) return false;
  *this = std::move(range);
  return true;
}

bool ColorTable::SetClasses(std::vector<ColorClass> classes, std::optional<double> end) {
  if (classes.size() > kMostClasses) return false;
  const auto finite = [](const ColorClass& each) { return std::isfinite(each.lower); };
  if (!std::all_of(classes.begin(), classes.end(), finite)) return false;
  const auto notBelow = [](const ColorClass& a, const ColorClass& b) { return !(a.lower < b.lower); };
  if (std::adjacent_find(classes.begin(), classes.end(), notBelow) != classes.end()) return false;
  if (end && (classes.empty() || !std::isfinite(*end) || *end < classes.back().lower)) return false;
  classes_ = std::move(classes);
  end_ = end;
  return true;
}

bool ColorTable::operator==(const ColorTable& other) const {
  return classes_ == other.classes_ && end_ == other.end_ && below_ == other.below_ && above_ == other.above_ &&
         noValue_ == other.noValue_;
}

void ColorTable::RGBtoHSL(Color color, double& hue, double& saturation, double& lightness) {
  const double red = Channel(color, 0) / 255.0;
  const double green = Channel(color, 1) / 255.0;
  const double blue = Channel(color, 2) / 255.0;
  const double most = std::max({red, green, blue});
  const double least = std::min({red, green, blue});
  const double spread = most - least;
  lightness = (most + least) / 2;
  hue = 0;
  saturation = 0;
  if (spread == 0) return;
  saturation = spread / (1 - std::fabs(2 * lightness - 1));
  if (most == red) {
    hue = 60 * ((green - blue) / spread);
  } else if (most == green) {
    hue = 60 * ((blue - red) / spread + 2);
  } else {
    hue = 60 * ((red - green) / spread + 4);
  }
  if (hue < 0) hue += 360;
}

Color ColorTable::HSLtoRGB(double hue, double saturation, double lightness) {
  const double turn = std::isfinite(hue) ? hue - 360 * std::floor(hue / 360) : 0;
  const double light = std::clamp(lightness, 0.0, 1.0);
  const double reach = std::clamp(saturation, 0.0, 1.0) * std::min(light, 1 - light);
  const auto channel = [&](double offset) {
    const double k = std::fmod(offset + turn / 30, 12);
    return light - reach * std::clamp(std::min(k - 3, 9 - k), -1.0, 1.0);
  };
  return Join(channel(0), channel(8), channel(4));
}

}  // namespace vak
