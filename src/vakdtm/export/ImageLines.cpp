#include "vakdtm/export/ImageLines.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "vakdtm/render/EndOfToday.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmBlockId.h"

namespace vak {
namespace {

constexpr double kRightAngle = 1.570796327;  // as shading has always had it, not the nearest double to a half pi

/// The neighbour of a cell towards the sun; the opposite one is on the other side.
struct SunStep {
  int rows;
  int cols;
};

/// By compass steps from the north over the east.
constexpr std::array<SunStep, 8> kSunSteps{{{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}}};

constexpr std::byte kOpaque{0xFF};

/// Whether heights are asked for.
bool Shades(const ImageRules& rules) { return rules.colourImage && rules.shaded && rules.blockId != tTIM; }

std::vector<int> KindsToRead(const ImageRules& rules, bool shades) {
  std::vector<int> kinds{rules.blockId};
  if (shades && !rules.isHeight) kinds.push_back(dVAL);
  return kinds;
}

}  // namespace

ImageLines::ImageLines(DtmAccess& access, const ImageRules& rules, int firstCol, int lastCol)
    : rules_(rules),
      firstCol_(firstCol),
      width_(static_cast<std::size_t>(std::int64_t{lastCol} - firstCol + 1)),
      shades_(Shades(rules)),
      heights_(rules.isHeight ? 0 : 1),
      rows_(access, KindsToRead(rules, shades_), std::int64_t{firstCol} - (shades_ ? 1 : 0),
            std::int64_t{lastCol} + (shades_ ? 1 : 0)),
      values_(rows_.Width()) {
  if (!shades_) return;
  for (std::vector<double>& each : neighbours_) each.resize(rows_.Width());
}

std::uint64_t ImageLines::MemoryOfPixel(const ImageRules& rules) { return (Shades(rules) ? 4 : 1) * sizeof(double); }

void ImageLines::Make(std::int64_t row, std::byte* line) {
  if (shades_) ReadOwnHeights(row);
  if (shades_ && rules_.isHeight) {
    values_ = neighbours_[kOwn];
  } else {
    rows_.Read(row, 0, rules_.noValue, values_.data());
  }
  // After the values: it may lie in the next row of areas, which takes the place of this one.
  if (shades_) ReadHeights(row - 1, kBelow);
  if (rules_.colourImage) {
    MakeColours(row, line);
  } else {
    MakeRaster(row, line);
  }
}

void ImageLines::ReadHeights(std::int64_t row, Neighbour to) {
  rows_.Read(row, heights_, rules_.noValue, neighbours_[to].data());
}

void ImageLines::ReadOwnHeights(std::int64_t row) {
  if (heightsRead_) {
    std::rotate(neighbours_.begin(), neighbours_.begin() + kOwn, neighbours_.end());
    return;
  }
  ReadHeights(row + 1, kAbove);
  ReadHeights(row, kOwn);
  heightsRead_ = true;
}

bool ImageLines::IsEmpty(std::int64_t row, std::size_t pixel, double value) const {
  if (IsEmptyValue(value)) return true;
  if (rules_.polygon == nullptr) return false;
  const double column = static_cast<double>(firstCol_ + static_cast<std::int64_t>(pixel));
  const Point centre((column + 0.5) * rules_.cellSize, (static_cast<double>(row) + 0.5) * rules_.cellSize);
  return !rules_.polygon->IsPointInPoly(centre);
}

void ImageLines::MakeRaster(std::int64_t row, std::byte* line) {
  std::int64_t filled = 0;
  std::int64_t likeEmpty = 0;
  std::int64_t beyondFloats = 0;
  for (std::size_t pixel = 0; pixel < width_; ++pixel) {
    const double value = values_[pixel];
    const bool empty = IsEmpty(row, pixel, value);
    const float sample = empty ? rules_.emptyRasterValue : static_cast<float>(value);
    filled += empty ? 0 : 1;
    likeEmpty += !empty && sample == rules_.emptyRasterValue ? 1 : 0;
    beyondFloats += !empty && std::isinf(sample) && std::isfinite(value) ? 1 : 0;
    std::memcpy(line + pixel * kPixelBytes, &sample, kPixelBytes);
  }
  pixelsWithValue_ += filled;
  pixelsLikeEmpty_ += likeEmpty;
  pixelsBeyondFloats_ += beyondFloats;
}

void ImageLines::MakeColours(std::int64_t row, std::byte* line) {
  constexpr std::array<std::byte, kPixelBytes> kEmpty{kOpaque, kOpaque, kOpaque, std::byte{0}};
  const std::size_t before = shades_ ? 1 : 0;  // columns in front of the image
  for (std::size_t pixel = 0; pixel < width_; ++pixel, line += kPixelBytes) {
    const double value = values_[pixel + before];
    if (IsEmpty(row, pixel, value)) {
      std::memcpy(line, kEmpty.data(), kPixelBytes);
      continue;
    }
    ++pixelsWithValue_;
    Color colour = PlainColour(value);
    if (shades_) colour = Shaded(pixel + before, colour);
    for (unsigned i = 0; i < 3; ++i) line[i] = static_cast<std::byte>(colour >> 8 * i);
    line[3] = kOpaque;
  }
}

Color ImageLines::PlainColour(double value) const {
  if (rules_.blockId == tTIM) return rules_.table->GetColor((rules_.endOfToday - value) / kSecondsOfDay);
  return rules_.table->GetColor(value * rules_.factor + rules_.offset);
}

Color ImageLines::Shaded(std::size_t pixel, Color colour) {
  const double height = neighbours_[kOwn][pixel];
  double slope = 0;
  if (IsEmptyValue(height) || !FindSlope(pixel, height, slope)) return colour;
  const ColorShade& shade = shadesOfColours_(colour);
  const double angle = std::clamp((kRightAngle - rules_.elevation) - std::atan(slope), -kRightAngle, kRightAngle);
  return shade.WithLightness(std::cos(angle) * shade.Lightness() + rules_.ambientLight);
}

bool ImageLines::FindSlope(std::size_t pixel, double height, double& slope) const {
  const SunStep& step = kSunSteps[static_cast<std::size_t>(rules_.sunStep)];
  const auto neighbour = [&](int side) {
    const std::size_t row = static_cast<std::size_t>(static_cast<int>(kOwn) - side * step.rows);
    const std::ptrdiff_t col = static_cast<std::ptrdiff_t>(pixel) + std::ptrdiff_t{side} * step.cols;
    return neighbours_[row][static_cast<std::size_t>(col)];
  };
  if (const double sunSide = neighbour(1); !IsEmptyValue(sunSide)) {
    slope = (height - sunSide) * rules_.strength / rules_.sunDistance;
    return true;
  }
  if (const double opposite = neighbour(-1); !IsEmptyValue(opposite)) {
    slope = (opposite - height) * rules_.strength / rules_.sunDistance;
    return true;
  }
  return false;
}

}  // namespace vak
