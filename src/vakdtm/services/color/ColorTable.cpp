#include "vakdtm/services/color/ColorTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "vakdtm/services/color/ColorShade.h"
#include "vakdtm/services/color/CptReader.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

constexpr Color kBlack = 0;
constexpr Color kWhite = 0xFFFFFF;
constexpr Color kBlue = 0xFF0000;
constexpr Color kRed = 0x0000FF;
constexpr Color kAllColors = 0xFFFFFF;

constexpr const wchar_t* kSection = L"COLORTABLE";
constexpr const wchar_t* kCountKey = L"Classes";
constexpr const wchar_t* kEndKey = L"End";
constexpr const wchar_t* kBelowKey = L"Below";
constexpr const wchar_t* kAboveKey = L"Above";
constexpr const wchar_t* kNoValueKey = L"No Value";

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

std::optional<Color> Masked(std::optional<Color> color) {
  return color ? std::optional<Color>(*color & kAllColors) : std::nullopt;
}

/// As colours are usually written: #, then red, green and blue in two digits each.
std::string ColorText(Color color) {
  std::string text = "#";
  for (int channel = 0; channel < 3; ++channel) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    text += kDigits[Channel(color, channel) >> 4];
    text += kDigits[Channel(color, channel) & 15U];
  }
  return text;
}

bool ReadColor(std::string_view text, Color& color) {
  if (text.size() != 7 || text.front() != '#') return false;
  std::uint32_t rgb = 0;
  const auto read = std::from_chars(text.data() + 1, text.data() + text.size(), rgb, 16);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return false;
  color = (rgb >> 16 & 0xFFU) | (rgb & 0xFF00U) | (rgb & 0xFFU) << 16;
  return true;
}

/// `lower,color,upper,name`: no upper colour where it is the same, and the name is all that follows.
std::string ClassText(const ColorClass& each) {
  std::string text;
  AppendNumber(text, each.lower);
  text += ',' + ColorText(each.color) + ',';
  if (each.upper != each.color) text += ColorText(each.upper);
  return text + ',' + ToUtf8(each.name);
}

bool ReadClass(std::string_view text, ColorClass& each) {
  std::array<std::string_view, 3> fields;
  for (std::string_view& field : fields) {
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos) return false;
    field = text.substr(0, comma);
    text.remove_prefix(comma + 1);
  }
  const auto read = std::from_chars(fields[0].data(), fields[0].data() + fields[0].size(), each.lower);
  if (read.ec != std::errc() || read.ptr != fields[0].data() + fields[0].size()) return false;
  if (!ReadColor(fields[1], each.color)) return false;
  each.upper = each.color;
  if (!fields[2].empty() && !ReadColor(fields[2], each.upper)) return false;
  each.name = FromUtf8(text);
  return true;
}

/// Reads the colour of a key that may be missing. @return false when it is no colour.
bool ReadColorKey(const FileObject& file, const wchar_t* key, std::optional<Color>& color) {
  std::wstring text;
  if (!file.GetString(kSection, key, text)) return true;
  Color read = 0;
  if (!ReadColor(ToUtf8(text), read)) return false;
  color = read;
  return true;
}

bool WriteColorKey(FileObject& file, const wchar_t* key, std::optional<Color> color) {
  return !color || file.SetString(kSection, key, FromUtf8(ColorText(*color)));
}

}  // namespace

const ColorClass* ColorTable::Holder(double value) const {
  if (classes_.empty() || std::isnan(value) || value < classes_.front().lower || (end_ && value > *end_))
    return nullptr;
  const ColorClass* const first = classes_.data();
  const ColorClass* const last = first + (classes_.size() - 1);
  // Most tables have classes of one width, and then the place of a value in the range tells its class, but for
  // rounding. What isn't found there is searched: the last lower bound that isn't above the value.
  const double guess = (value - first->lower) * classesPerUnit_;
  const double most = static_cast<double>(classes_.size() - 1);
  const ColorClass* holder = first + static_cast<std::ptrdiff_t>(guess < most ? guess : most);
  if (holder->lower > value)
    --holder;
  else if (holder < last && (holder + 1)->lower <= value)
    ++holder;
  if (holder->lower <= value && (holder == last || value < (holder + 1)->lower)) return holder;
  return std::prev(std::upper_bound(first, last + 1, value,
                                    [](double wanted, const ColorClass& next) { return wanted < next.lower; }));
}

Color ColorTable::GetColor(double value) const {
  if (std::isnan(value)) return noValue_.value_or(kBlack);
  if (classes_.empty()) return kBlack;
  const ColorClass* const holder = Holder(value);
  if (holder == nullptr) {
    return value < classes_.front().lower ? below_.value_or(classes_.front().color)
                                          : above_.value_or(classes_.back().upper);
  }
  if (holder->color == holder->upper) return holder->color;
  const bool last = holder == &classes_.back();
  const double upper = last ? end_.value_or(holder->lower) : std::next(holder)->lower;
  if (!(upper > holder->lower)) return holder->color;
  const double width = upper - holder->lower;
  // Halves, where the width of a class over all doubles would be none.
  const double share = std::isfinite(width) ? (value - holder->lower) / width
                                            : (value / 2 - holder->lower / 2) / (upper / 2 - holder->lower / 2);
  return Between(holder->color, holder->upper, share);
}

std::wstring ColorTable::GetName(double value) const {
  const ColorClass* const holder = Holder(value);
  return holder != nullptr ? holder->name : std::wstring();
}

bool ColorTable::SetRange(double min, double max, int steps, bool colored, bool reversed) {
  Color first = colored ? kBlue : kBlack;
  Color second = colored ? kRed : kWhite;
  if (reversed) std::swap(first, second);
  return SetRange(min, max, steps, first, second);
}

bool ColorTable::SetRange(double low, double high, int steps, Color first, Color second) {
  return SetEvenClasses(low, high, steps, [&](double share) { return BetweenHues(first, second, share); });
}

bool ColorTable::SetRangeRGB3(double low, double high, int steps, Color first, Color middle, Color last) {
  return SetEvenClasses(low, high, steps, [&](double share) {
    return share <= 0.5 ? Between(first, middle, 2 * share) : Between(middle, last, 2 * share - 1);
  });
}

template <typename ColorAt>
bool ColorTable::SetEvenClasses(double low, double high, int steps, ColorAt colorAt) {
  if (!std::isfinite(low) || !std::isfinite(high) || steps < 1) return false;
  if (static_cast<std::size_t>(steps) > kMostClasses) return false;
  const bool falls = low > high;
  if (falls) std::swap(low, high);
  std::vector<ColorClass> classes;
  classes.reserve(static_cast<std::size_t>(steps));
  for (int step = 0; step < steps; ++step) {
    const double lower = std::lerp(low, high, static_cast<double>(step) / steps);
    if (!classes.empty() && !(lower > classes.back().lower)) continue;
    const double share = steps > 1 ? static_cast<double>(step) / (steps - 1) : 0.0;
    const Color color = colorAt(falls ? 1 - share : share);
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
  for (ColorClass& each : classes_) {
    each.color &= kAllColors;
    each.upper &= kAllColors;
  }
  end_ = end;
  const double width = classes_.empty() ? 0 : end_.value_or(classes_.back().lower) - classes_.front().lower;
  const double perUnit = static_cast<double>(classes_.size() - (end_ || classes_.empty() ? 0 : 1)) / width;
  classesPerUnit_ = std::isfinite(perUnit) ? perUnit : 0;
  return true;
}

void ColorTable::SetBelowColor(std::optional<Color> color) { below_ = Masked(color); }

void ColorTable::SetAboveColor(std::optional<Color> color) { above_ = Masked(color); }

void ColorTable::SetNoValueColor(std::optional<Color> color) { noValue_ = Masked(color); }

bool ColorTable::FileOpen(const FileObject& file) {
  const std::wstring place = file.GetPath().empty() ? L"colour table" : file.GetPath();
  if (file.HasSection(kSection)) return ReadSettings(file) || Refuse(place + L": " + lastError_);
  return ReadCpt(file.GetContent()) ||
         Refuse(place + L": neither a section [" + kSection + L"] nor a colour palette: " + lastError_);
}

bool ColorTable::ReadCpt(std::string_view text) {
  CptTable palette;
  CptError error;
  if (!ReadCptText(text, kMostClasses, palette, error)) {
    return Refuse((error.line > 0 ? L"line " + std::to_wstring(error.line) + L": " : std::wstring()) + error.what);
  }
  std::vector<ColorClass> classes;
  classes.reserve(palette.slices.size());
  for (CptTable::Slice& slice : palette.slices) {
    classes.push_back({slice.lower, slice.color, slice.upperColor, std::move(slice.name)});
  }
  ColorTable read;
  const auto end = palette.categories ? std::nullopt : std::optional<double>(palette.slices.back().upper);
  if (!read.SetClasses(std::move(classes), end)) return Refuse(L"the values don't rise");
  read.below_ = palette.below;
  read.above_ = palette.above;
  read.noValue_ = palette.noValue;
  *this = std::move(read);
  return true;
}

bool ColorTable::ReadSettings(const FileObject& file) {
  std::int64_t count = 0;
  if (!file.GetInt(kSection, kCountKey, count) || count < 0 || count > static_cast<std::int64_t>(kMostClasses)) {
    return Refuse(std::wstring(kCountKey) + L" isn't a number from 0 to " + std::to_wstring(kMostClasses));
  }
  std::vector<ColorClass> classes;
  for (std::int64_t number = 1; number <= count; ++number) {
    const std::wstring key = std::to_wstring(number);
    std::wstring text;
    if (!file.GetString(kSection, key, text)) return Refuse(L"class " + key + L" is missing");
    if (!ReadClass(ToUtf8(text), classes.emplace_back())) {
      return Refuse(L"class " + key + L" isn't \"lower,#rrggbb,#rrggbb,name\"");
    }
  }
  ColorTable read;
  std::optional<double> end;
  if (std::wstring text; file.GetString(kSection, kEndKey, text)) {
    if (!file.GetDouble(kSection, kEndKey, end.emplace())) return Refuse(std::wstring(kEndKey) + L" isn't a number");
  }
  if (!read.SetClasses(std::move(classes), end)) return Refuse(L"the bounds of the classes don't rise");
  if (!ReadColorKey(file, kBelowKey, read.below_) || !ReadColorKey(file, kAboveKey, read.above_) ||
      !ReadColorKey(file, kNoValueKey, read.noValue_)) {
    return Refuse(L"a colour isn't \"#rrggbb\"");
  }
  *this = std::move(read);
  return true;
}

bool ColorTable::Refuse(std::wstring why) {
  lastError_ = std::move(why);
  return false;
}

bool ColorTable::FileSave(FileObject& file) const {
  file.RemoveSection(kSection);
  if (!file.SetInt(kSection, kCountKey, static_cast<std::int64_t>(classes_.size()))) return false;
  if (end_ && !file.SetDouble(kSection, kEndKey, *end_)) return false;
  if (!WriteColorKey(file, kBelowKey, below_) || !WriteColorKey(file, kAboveKey, above_) ||
      !WriteColorKey(file, kNoValueKey, noValue_)) {
    return false;
  }
  for (std::size_t index = 0; index < classes_.size(); ++index) {
    const std::string text = ClassText(classes_[index]);
    if (!file.SetString(kSection, std::to_wstring(index + 1), FromUtf8(text))) return false;
  }
  return true;
}

bool ColorTable::operator==(const ColorTable& other) const {
  return classes_ == other.classes_ && end_ == other.end_ && below_ == other.below_ && above_ == other.above_ &&
         noValue_ == other.noValue_;
}

Color ColorTable::GetContrastColor(Color color) {
  // Relative luminance, and the contrast (l1 + 0.05) / (l2 + 0.05), after the Web Content Accessibility Guidelines 2.0.
  const auto light = [&](int channel) {
    const double coded = Channel(color, channel) / 255.0;
    return coded <= 0.03928 ? coded / 12.92 : std::pow((coded + 0.055) / 1.055, 2.4);
  };
  constexpr double kGlare = 0.05;
  const double luminance = 0.2126 * light(0) + 0.7152 * light(1) + 0.0722 * light(2);
  return (luminance + kGlare) / kGlare >= (1 + kGlare) / (luminance + kGlare) ? kBlack : kWhite;
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
  saturation = std::min(spread / (1 - std::fabs(2 * lightness - 1)), 1.0);
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
  return ColorShade(hue, saturation).WithLightness(lightness);
}

}  // namespace vak
