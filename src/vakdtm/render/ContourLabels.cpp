#include "vakdtm/render/ContourLabels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace vak {
namespace {

// In heights of the font.
constexpr double kPause = 30;       // from label to label on a line
constexpr double kSag = 0.3;        // how far a line may leave the straight one under its label
constexpr double kClearance = 0.4;  // around a label

PixelPoint PointAt(const PixelLine& line, const std::vector<double>& lengths, double at) {
  const auto next = std::upper_bound(lengths.begin(), lengths.end(), at);
  if (next == lengths.end()) return line.back();
  const auto i = static_cast<std::size_t>(next - lengths.begin());
  const double share = (at - lengths[i - 1]) / (lengths[i] - lengths[i - 1]);
  return {line[i - 1].x + share * (line[i].x - line[i - 1].x), line[i - 1].y + share * (line[i].y - line[i - 1].y)};
}

/// Whether two convex quadrilaterals have nothing in common: there is an edge of one with all of the other beyond.
bool AreApart(const std::array<PixelPoint, 4>& a, const std::array<PixelPoint, 4>& b) {
  const auto hasEdgeBetween = [](const std::array<PixelPoint, 4>& one, const std::array<PixelPoint, 4>& other) {
    for (std::size_t i = 0; i < 4; ++i) {
      const PixelPoint& from = one[i];
      const PixelPoint& to = one[(i + 1) % 4];
      const auto side = [&](const PixelPoint& p) {
        return (to.x - from.x) * (p.y - from.y) - (to.y - from.y) * (p.x - from.x);
      };
      const double own = side(one[(i + 2) % 4]);
      if (std::all_of(other.begin(), other.end(), [&](const PixelPoint& p) { return side(p) * own < 0; })) return true;
    }
    return false;
  };
  return hasEdgeBetween(a, b) || hasEdgeBetween(b, a);
}

std::array<PixelPoint, 4> BoxAround(const PixelPoint& centre, double dirX, double dirY, double width, double height) {
  const PixelPoint along{dirX * width / 2, dirY * width / 2};
  const PixelPoint down{-dirY * height / 2, dirX * height / 2};
  return {{{centre.x - along.x - down.x, centre.y - along.y - down.y},
           {centre.x + along.x - down.x, centre.y + along.y - down.y},
           {centre.x + along.x + down.x, centre.y + along.y + down.y},
           {centre.x - along.x + down.x, centre.y - along.y + down.y}}};
}

}  // namespace

void ContourLabels::Add(const PixelLine& line, const std::wstring& text) {
  if (line.size() < 2) return;
  std::vector<double> lengths(line.size(), 0.0);
  for (std::size_t i = 1; i < line.size(); ++i) {
    lengths[i] = lengths[i - 1] + std::hypot(line[i].x - line[i - 1].x, line[i].y - line[i - 1].y);
  }
  const TextSize size = measure_(text, fontHeight_);
  const double width = size.width + fontHeight_ * 0.4;
  const double height = fontHeight_ * 1.15;
  const double whole = lengths.back();
  // A ring that is all label says little.
  if (whole < 2.5 * width) return;
  // In from the end, so that several lines that leave the map don't have them side by side at its edge.
  for (double at = std::min(width, (whole - width) / 2); at + width <= whole;) {
    ContourLabel label;
    label.text = text;
    if (TryPlace(line, lengths, at, width, height, label)) {
      labels_.push_back(label);
      longest_ = std::max(longest_, std::hypot(width, height));
      at += kPause * fontHeight_;
    } else {
      at += fontHeight_ * 0.5;
    }
  }
}

bool ContourLabels::TryPlace(const PixelLine& line, const std::vector<double>& lengths, double from, double width,
                             double height, ContourLabel& label) const {
  PixelPoint start = PointAt(line, lengths, from);
  PixelPoint end = PointAt(line, lengths, from + width);
  double dx = end.x - start.x;
  double dy = end.y - start.y;
  const double chord = std::hypot(dx, dy);
  if (chord < width * 0.9) return false;
  dx /= chord;
  dy /= chord;
  const auto first = std::upper_bound(lengths.begin(), lengths.end(), from) - lengths.begin();
  const auto last = std::lower_bound(lengths.begin(), lengths.end(), from + width) - lengths.begin();
  for (auto i = first; i < last; ++i) {
    const PixelPoint& point = line[static_cast<std::size_t>(i)];
    if (std::fabs((point.x - start.x) * dy - (point.y - start.y) * dx) > kSag * fontHeight_) return false;
  }
  // Upright: a text never runs to the left, and up rather than down.
  constexpr double kUpright = 1e-9;
  if (dx < -kUpright || (dx < kUpright && dy > 0)) {
    dx = -dx;
    dy = -dy;
  }
  label.centre = {(start.x + end.x) / 2, (start.y + end.y) / 2};
  label.angle = std::atan2(-dy, dx);
  label.box = BoxAround(label.centre, dx, dy, width, height);
  return IsFree(label);
}

bool ContourLabels::IsFree(const ContourLabel& label) const {
  for (const PixelPoint& corner : label.box) {
    if (corner.x < map_.left || corner.x > map_.right || corner.y < map_.top || corner.y > map_.bottom) return false;
  }
  const double dx = std::cos(label.angle);
  const double dy = -std::sin(label.angle);
  const double width = std::hypot(label.box[1].x - label.box[0].x, label.box[1].y - label.box[0].y);
  const double height = std::hypot(label.box[3].x - label.box[0].x, label.box[3].y - label.box[0].y);
  const double clearance = 2 * kClearance * fontHeight_;
  const auto wide = BoxAround(label.centre, dx, dy, width + clearance, height + clearance);
  // Most lie far away: so far that not even the ends of the longest would meet.
  const double reach = std::hypot(width + clearance, height + clearance) / 2 + longest_ / 2;
  return std::all_of(labels_.begin(), labels_.end(), [&](const ContourLabel& other) {
    const double x = other.centre.x - label.centre.x;
    const double y = other.centre.y - label.centre.y;
    return x * x + y * y > reach * reach || AreApart(wide, other.box);
  });
}

}  // namespace vak
