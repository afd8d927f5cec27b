#include "vakdtm/services/color/CptReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "vakdtm/services/color/ColorNames.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

// A slice that runs through the hues is cut into parts that run through red, green and blue: so many degrees of hue
// each, which keeps them within two of 255 levels of the run itself, and so many at least, for a run of saturation and
// value at once.
constexpr double kHuePart = 1.5;
constexpr double kLeastParts = 16;
// Neighbouring bounds that were printed with ten digits still count as one.
constexpr double kGap = 1e-8;
constexpr std::string_view kBlanks = " \t\r";

struct Components {
  double a = 0, b = 0, c = 0;  // red, green, blue, each 0 to 1; or hue in degrees, saturation, value
  bool operator==(const Components&) const = default;
};

struct Paint {
  Components hsv;
  Color color = 0;
};

struct RawSlice {
  double lower, upper;
  Paint first, second;
  std::wstring name;
};

Color FromShares(const Components& rgb) {
  const auto byte = [](double share) { return static_cast<Color>(std::lround(std::clamp(share, 0.0, 1.0) * 255)); };
  return byte(rgb.a) | byte(rgb.b) << 8 | byte(rgb.c) << 16;
}

Color FromHsv(const Components& hsv) {
  const double hue = hsv.a - 360 * std::floor(hsv.a / 360);
  const auto channel = [&](double offset) {
    const double k = std::fmod(offset + hue / 60, 6);
    return hsv.c * (1 - hsv.b * std::clamp(std::min(k, 4 - k), 0.0, 1.0));
  };
  return FromShares({channel(5), channel(3), channel(1)});
}

Components ToHsv(const Components& rgb) {
  const double most = std::max({rgb.a, rgb.b, rgb.c});
  const double spread = most - std::min({rgb.a, rgb.b, rgb.c});
  if (spread == 0) return {0, 0, most};
  double hue = 60 * (rgb.a - rgb.b) / spread + 240;
  if (most == rgb.a) {
    hue = 60 * (rgb.b - rgb.c) / spread;
  } else if (most == rgb.b) {
    hue = 60 * (rgb.c - rgb.a) / spread + 120;
  }
  return {hue < 0 ? hue + 360 : hue, spread / most, most};
}

Paint PaintOf(const Components& rgb) { return {ToHsv(rgb), FromShares(rgb)}; }

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::vector<std::string_view> Words(std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t at = 0; (at = text.find_first_not_of(kBlanks, at)) != std::string_view::npos;) {
    const std::size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

bool ReadNumber(std::string_view text, double& value) {
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() && std::isfinite(value);
}

/// Numbers with one mark between them: 3 or 4 of them. @return how many; 0 when it isn't that.
std::size_t ReadMarked(std::string_view text, char mark, std::array<double, 4>& values) {
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::size_t count = 0; count < values.size(); ++count) {
    const auto read = std::from_chars(at, end, values.at(count));
    if (read.ec != std::errc() || !std::isfinite(values.at(count))) return 0;
    if (read.ptr == end) return count >= 2 ? count + 1 : 0;
    if (*read.ptr != mark) return 0;
    at = read.ptr + 1;
  }
  return 0;
}

bool Within(double value, double most) { return value >= 0 && value <= most; }

std::optional<Paint> RgbPaint(double red, double green, double blue) {
  if (!Within(red, 255) || !Within(green, 255) || !Within(blue, 255)) return {};
  return PaintOf({red / 255, green / 255, blue / 255});
}

std::optional<Paint> HsvPaint(double hue, double saturation, double value) {
  if (!Within(hue, 360) || !Within(saturation, 1) || !Within(value, 1)) return {};
  const Components hsv{hue, saturation, value};
  return Paint{hsv, FromHsv(hsv)};
}

std::optional<Paint> CmykPaint(const std::array<double, 4>& ink) {
  if (!std::all_of(ink.begin(), ink.end(), [](double share) { return Within(share, 100); })) return {};
  const auto left = [&](double share) { return (1 - share / 100) * (1 - ink[3] / 100); };
  return PaintOf({left(ink[0]), left(ink[1]), left(ink[2])});
}

std::optional<Paint> HexPaint(std::string_view digits) {
  unsigned rgb = 0;
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), rgb, 16);
  if (digits.size() != 6 || read.ec != std::errc() || read.ptr != digits.data() + digits.size()) return {};
  return RgbPaint(rgb >> 16 & 0xFFU, rgb >> 8 & 0xFFU, rgb & 0xFFU);
}

std::optional<Paint> ReadPaint(std::string_view text) {
  text = text.substr(0, text.find('@'));  // what follows is transparency, which colours here have none of
  if (text.starts_with('#')) return HexPaint(text.substr(1));
  std::array<double, 4> values{};
  if (ReadNumber(text, values[0])) return RgbPaint(values[0], values[0], values[0]);
  switch (ReadMarked(text, '/', values)) {
    case 3:
      return RgbPaint(values[0], values[1], values[2]);
    case 4:
      return CmykPaint(values);
    default:
      break;
  }
  if (ReadMarked(text, '-', values) == 3) return HsvPaint(values[0], values[1], values[2]);
  const std::optional<Color> named = FindColorName(text);
  if (!named) return {};
  return RgbPaint(static_cast<double>(*named & 0xFFU), static_cast<double>(*named >> 8 & 0xFFU),
                  static_cast<double>(*named >> 16));
}

/// Reads a text line by line; `Finish` makes the table of what was read.
class Parser {
 public:
  Parser(std::size_t most, CptError& error) : most_(most), error_(error) {}

  bool ReadLine(std::string_view line) {
    ++error_.line;
    const std::string_view text = Trim(line);
    if (text.empty()) return true;
    if (text.front() == '#') return ReadComment(text.substr(1));
    const std::size_t mark = text.find(';');
    std::vector<std::string_view> words = Words(text.substr(0, mark));
    const std::string_view name = mark == std::string_view::npos ? std::string_view() : Trim(text.substr(mark + 1));
    if (words.empty()) return Refuse(L"a name without a class before it");
    if (words[0] == "B" || words[0] == "F" || words[0] == "N") return ReadOutside(words);
    if (words.size() > 2 && (words.back() == "L" || words.back() == "U" || words.back() == "B")) words.pop_back();
    return ReadSlice(words, FromUtf8(name));
  }

  bool Finish(CptTable& table) {
    error_.line = 0;
    if (slices_.empty()) return Refuse(L"it has no classes");
    if (categories_) SortCategories();
    Stretch();
    if (!Rises()) return false;
    CptTable read;
    read.categories = categories_;
    read.below = below_;
    read.above = above_;
    read.noValue = noValue_;
    for (const RawSlice& slice : slices_) {
      if (!Put(slice, read.slices)) return Refuse(L"it has more than " + std::to_wstring(most_) + L" classes");
    }
    table = std::move(read);
    return true;
  }

 private:
  bool Refuse(std::wstring what) {
    error_.what = std::move(what);
    return false;
  }

  std::optional<Paint> ReadPaints(std::span<const std::string_view> words) const {
    if (words.size() == 1) return ReadPaint(words[0]);
    std::array<double, 3> values{};
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (!ReadNumber(words[i], values.at(i))) return {};
    }
    return hsv_ ? HsvPaint(values[0], values[1], values[2]) : RgbPaint(values[0], values[1], values[2]);
  }

  bool ReadOutside(std::span<const std::string_view> words) {
    if (words.size() != 2 && words.size() != 4) return RefuseColumns(words.size());
    const std::optional<Paint> paint = ReadPaints(words.subspan(1));
    if (!paint) return RefuseColor(words[1]);
    (words[0] == "B" ? below_ : words[0] == "F" ? above_ : noValue_) = paint->color;
    return true;
  }

  bool ReadSlice(std::span<const std::string_view> words, std::wstring name) {
    const std::size_t count = words.size();
    if (count != 2 && count != 4 && count != 8) return RefuseColumns(count);
    if (slices_.empty()) categories_ = count == 2;
    if (categories_ != (count == 2)) return Refuse(L"categories and ranges of values don't go together");
    if (slices_.size() >= most_) return Refuse(L"more than " + std::to_wstring(most_) + L" classes");
    const std::size_t half = count == 2 ? 2 : count / 2;
    RawSlice slice{0, 0, {}, {}, std::move(name)};
    if (!ReadNumber(words[0], slice.lower)) return RefuseNumber(words[0]);
    const std::optional<Paint> first = ReadPaints(words.subspan(1, half - 1));
    if (!first) return RefuseColor(words[1]);
    slice.first = slice.second = *first;
    slice.upper = slice.lower;
    if (!categories_ && !ReadUpper(words.subspan(half), slice)) return false;
    slices_.push_back(std::move(slice));
    return true;
  }

  bool ReadUpper(std::span<const std::string_view> words, RawSlice& slice) {
    if (!ReadNumber(words[0], slice.upper)) return RefuseNumber(words[0]);
    if (words.size() == 2 && words[1] == "-") return Adjoins(slice);  // the same colour at both ends
    const std::optional<Paint> second = ReadPaints(words.subspan(1));
    if (!second) return RefuseColor(words[1]);
    slice.second = *second;
    return Adjoins(slice);
  }

  bool Adjoins(RawSlice& slice) {
    if (!(slice.lower < slice.upper)) return Refuse(L"the values don't rise");
    if (slices_.empty()) return true;
    const double before = slices_.back().upper;
    const double size = std::max(std::fabs(before), std::fabs(slice.lower));
    if (!(std::fabs(slice.lower - before) <= kGap * size)) return Refuse(L"it doesn't begin where the one before ends");
    slice.lower = before;
    return slice.lower < slice.upper || Refuse(L"the values don't rise");
  }

  bool ReadComment(std::string_view text) {
    if (text.find("COLOR_MODEL") != std::string_view::npos) {
      const std::string_view model = Trim(text.substr(text.find('=') + 1));
      hues_ = model.starts_with("hsv") || model.starts_with("+HSV") || model.starts_with("+hsv");
      hsv_ = hues_ || model.starts_with("HSV");
      return true;
    }
    const std::string_view words = Trim(text);
    const std::size_t equals = words.find('=');
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view() : Trim(words.substr(equals + 1));
    if (words.starts_with("RANGE")) return ReadRange(value);
    if (!words.starts_with("HARD_HINGE") && !words.starts_with("HINGE")) return true;
    hinge_ = true;
    return value.empty() || ReadNumber(value, hingeValue_) || RefuseNumber(value);
  }

  bool ReadRange(std::string_view text) {
    const std::size_t mark = text.find('/');
    if (mark == std::string_view::npos) return true;  // a remark
    std::pair<double, double> range;
    if (!ReadNumber(Trim(text.substr(0, mark)), range.first) ||
        !ReadNumber(Trim(text.substr(mark + 1)), range.second)) {
      return RefuseNumber(text);
    }
    if (!(range.first < range.second)) return Refuse(L"the range doesn't rise");
    range_ = range;
    return true;
  }

  void SortCategories() {
    std::stable_sort(slices_.begin(), slices_.end(),
                     [](const RawSlice& a, const RawSlice& b) { return a.lower < b.lower; });
  }

  /// Brings a table over 0 to 1 or -1 to 1 to its range, its middle to the hinge.
  void Stretch() {
    if (!range_ || categories_) return;
    const double from = slices_.front().lower;
    if (slices_.back().upper != 1 || (from != 0 && from != -1)) return;
    const double low = range_->first;
    const double high = range_->second;
    const bool bent = hinge_ && from == -1 && low < hingeValue_ && hingeValue_ < high;
    const auto place = [&](double z) {
      if (!bent) return std::lerp(low, high, (z - from) / (1 - from));
      return z < 0 ? std::lerp(hingeValue_, low, -z) : std::lerp(hingeValue_, high, z);
    };
    for (RawSlice& slice : slices_) {
      slice.lower = place(slice.lower);
      slice.upper = place(slice.upper);
    }
  }

  /// What rose before it was stretched may have become one value.
  bool Rises() {
    for (std::size_t i = 0; i < slices_.size(); ++i) {
      const bool thin = !categories_ && !(slices_[i].lower < slices_[i].upper);
      const bool twice = i > 0 && !(slices_[i - 1].lower < slices_[i].lower);
      if (thin || twice) return Refuse(categories_ ? L"a key is there twice" : L"the values don't rise");
    }
    return true;
  }

  bool Put(const RawSlice& slice, std::vector<CptTable::Slice>& to) const {
    const bool parted = hues_ && slice.first.hsv != slice.second.hsv;
    const double turn = std::fabs(slice.second.hsv.a - slice.first.hsv.a);
    const int parts = parted ? static_cast<int>(std::ceil(std::max(turn / kHuePart, kLeastParts))) : 1;
    const auto color = [&](double share) {
      if (share == 0) return slice.first.color;
      if (share == 1) return slice.second.color;
      const Components& a = slice.first.hsv;
      const Components& b = slice.second.hsv;
      return FromHsv({std::lerp(a.a, b.a, share), std::lerp(a.b, b.b, share), std::lerp(a.c, b.c, share)});
    };
    for (int part = 0; part < parts; ++part) {
      const double begin = static_cast<double>(part) / parts;
      const double end = static_cast<double>(part + 1) / parts;
      const double lower = std::lerp(slice.lower, slice.upper, begin);
      const double upper = std::lerp(slice.lower, slice.upper, end);
      if (parted && !(lower < upper)) continue;  // doubles are too coarse for so many
      if (to.size() >= most_) return false;
      to.push_back({lower, upper, color(begin), color(end), slice.name});
    }
    return true;
  }

  bool RefuseColumns(std::size_t count) {
    return Refuse(L"2, 4 or 8 columns wanted, " + std::to_wstring(count) + L" found");
  }
  bool RefuseColor(std::string_view text) { return Refuse(L"no colour: " + Shown(text)); }
  bool RefuseNumber(std::string_view text) { return Refuse(L"no number: " + Shown(text)); }

  /// A word for a message of one line, however long it is.
  static std::wstring Shown(std::string_view text) {
    constexpr std::size_t kMost = 40;
    return L"\"" + FromUtf8(text.substr(0, kMost)) + (text.size() > kMost ? L"...\"" : L"\"");
  }

  std::size_t most_;
  CptError& error_;
  std::vector<RawSlice> slices_;
  std::optional<Color> below_, above_, noValue_;
  std::optional<std::pair<double, double>> range_;
  double hingeValue_ = 0;
  bool categories_ = false;
  bool hsv_ = false;   // three columns are hue, saturation and value
  bool hues_ = false;  // slices run through the hues
  bool hinge_ = false;
};

}  // namespace

bool ReadCptText(std::string_view text, std::size_t most, CptTable& table, CptError& error) {
  error = {};
  Parser parser(most, error);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    if (!parser.ReadLine(text.substr(at, end - at))) return false;
    at = end + 1;
  }
  return parser.Finish(table);
}

}  // namespace vak
