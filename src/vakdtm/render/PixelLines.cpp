#include "vakdtm/render/PixelLines.h"

#include <cmath>
#include <cstddef>

namespace vak {
namespace {

/// The part of a line from one point to another that lies in a rectangle, from 0 to 1, after Liang and Barsky, "A new
/// concept and method for line clipping", ACM Transactions on Graphics 3(1), 1984.
struct Part {
  double from = 0;
  double to = 1;

  /// Cuts it at one edge. @return false when nothing is left.
  bool Cut(double step, double room) {
    if (step == 0) return room >= 0;
    const double at = room / step;
    if (step < 0) {
      if (at > from) from = at;
    } else if (at < to) {
      to = at;
    }
    return from <= to;
  }
};

bool FindPart(const PixelPoint& a, const PixelPoint& b, const PixelRect& rect, Part& part) {
  const double dx = b.x - a.x;
  const double dy = b.y - a.y;
  return part.Cut(-dx, a.x - rect.left) && part.Cut(dx, rect.right - a.x) && part.Cut(-dy, a.y - rect.top) &&
         part.Cut(dy, rect.bottom - a.y);
}

PixelPoint Between(const PixelPoint& a, const PixelPoint& b, double share) {
  if (share <= 0) return a;
  if (share >= 1) return b;
  return {a.x + share * (b.x - a.x), a.y + share * (b.y - a.y)};
}

}  // namespace

PixelLine Thinned(const PixelLine& line, double distance) {
  PixelLine kept;
  kept.reserve(line.size());
  for (std::size_t i = 0; i < line.size(); ++i) {
    const bool isEnd = i == 0 || i + 1 == line.size();
    if (isEnd || std::hypot(line[i].x - kept.back().x, line[i].y - kept.back().y) >= distance) kept.push_back(line[i]);
  }
  return kept;
}

std::vector<PixelLine> Clipped(const PixelLine& line, const PixelRect& rect) {
  std::vector<PixelLine> parts;
  bool isInside = false;  // the last part goes on
  for (std::size_t i = 0; i + 1 < line.size(); ++i) {
    Part part;
    if (!FindPart(line[i], line[i + 1], rect, part)) {
      isInside = false;
      continue;
    }
    if (!isInside || part.from > 0) parts.push_back({Between(line[i], line[i + 1], part.from)});
    parts.back().push_back(Between(line[i], line[i + 1], part.to));
    isInside = part.to >= 1;
  }
  return parts;
}

}  // namespace vak
