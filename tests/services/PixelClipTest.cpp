#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "vakdtm/services/device/PixelClip.h"

namespace vak {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kLargest = std::numeric_limits<double>::max();
constexpr PixelWindow kWindow = {0, 0, 10, 10};

using Points = std::vector<PixelPoint>;

std::string Text(const std::vector<PixelRun>& runs) {
  std::string text;
  for (const PixelRun& run : runs) {
    if (!text.empty()) text += " | ";
    for (const PixelPoint& point : run.points) {
      if (&point != run.points.data()) text += ' ';
      text += std::to_string(std::lround(point.x)) + ',' + std::to_string(std::lround(point.y));
    }
    if (run.closed) text += " closed";
  }
  return text;
}

TEST(PixelClip, CutsAPolylineIntoTheRunsThatAreSeen) {
  const struct {
    const char* name;
    Points points;
    const char* runs;
  } kCases[] = {
      {"nothing", {}, ""},
      {"one point", {{1, 1}}, ""},
      {"inside", {{1, 1}, {2, 2}, {3, 1}}, "1,1 2,2 3,1"},
      {"closed", {{1, 1}, {2, 2}, {3, 1}, {1, 1}}, "1,1 2,2 3,1 closed"},
      {"there and back", {{1, 1}, {2, 2}, {1, 1}}, "1,1 2,2 closed"},
      {"out and in", {{1, 1}, {20, 1}, {20, 5}, {1, 5}}, "1,1 10,1 | 10,5 1,5"},
      {"out at a corner of it", {{1, 1}, {5, -5}, {9, 1}}, "1,1 2,0 | 8,0 9,1"},
      {"closed, but cut", {{1, 1}, {20, 1}, {20, 5}, {1, 5}, {1, 1}}, "1,1 10,1 | 10,5 1,5 1,1"},
      {"a gap", {{1, 1}, {2, 2}, {kNan, 3}, {4, 4}, {5, 5}}, "1,1 2,2 | 4,4 5,5"},
      {"an endless one", {{1, 1}, {2, 2}, {3, kInfinity}, {4, 4}}, "1,1 2,2"},
      {"far out", {{-1e300, -1e300}, {1e300, 1e300}}, "0,0 10,10"},
      {"the largest numbers", {{-kLargest, 5}, {kLargest, 5}}, "0,5 10,5"},
      {"past it", {{-5, 3}, {3, -6}}, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Text(ClipPolyline(c.points, kWindow)), c.runs);
  }
}

double Area(const Points& points) {
  double twice = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const PixelPoint& a = points[i];
    const PixelPoint& b = points[(i + 1) % points.size()];
    twice += a.x * b.y - a.y * b.x;
  }
  return std::fabs(twice) / 2;
}

TEST(PixelClip, CutsAPolygonToItsPartInTheWindow) {
  const struct {
    const char* name;
    Points points;
    double area;
  } kCases[] = {
      {"inside", {{1, 1}, {3, 1}, {3, 4}, {1, 4}}, 6},
      {"closed in so many words", {{1, 1}, {3, 1}, {3, 4}, {1, 4}, {1, 1}}, 6},
      {"round the window", {{-5, -5}, {15, -5}, {15, 15}, {-5, 15}}, 100},
      {"a corner of it", {{5, 5}, {15, 5}, {15, 15}, {5, 15}}, 25},
      {"a tip beyond", {{2, 5}, {5, -5}, {8, 5}}, 22.5},
      {"elsewhere", {{12, 1}, {13, 1}, {13, 4}}, 0},
      {"not everywhere a number", {{1, 1}, {kNan, 7}, {3, 1}, {3, 4}, {2, kInfinity}, {1, 4}}, 6},
      {"huge", {{-1e300, -1e300}, {1e300, -1e300}, {1e300, 1e300}, {-1e300, 1e300}}, 100},
      {"the largest numbers", {{-kLargest, 2}, {kLargest, 2}, {kLargest, 7}, {-kLargest, 7}}, 50},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Points cut = ClipPolygon(c.points, kWindow);
    EXPECT_NEAR(Area(cut), c.area, 1e-9);
    for (const PixelPoint& point : cut) {
      EXPECT_TRUE(point.x >= 0 && point.x <= 10 && point.y >= 0 && point.y <= 10) << point.x << ' ' << point.y;
    }
  }
}

}  // namespace
}  // namespace vak
