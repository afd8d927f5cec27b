#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/geometry/Line.h"

#include "support/RecordingDevice.h"

namespace vak {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kLargest = std::numeric_limits<double>::max();

const Page kPage(0, 0, 10, 20);

TEST(Line, IsCutToThePage) {
  const struct {
    const char* name;
    Line line;
    bool seen;
    Line left;
  } kCases[] = {
      {"inside", {{1, 2}, {9, 18}}, true, {{1, 2}, {9, 18}}},
      {"from corner to corner", {{0, 0}, {10, 20}}, true, {{0, 0}, {10, 20}}},
      {"through both sides", {{-10, 5}, {20, 5}}, true, {{0, 5}, {10, 5}}},
      {"and back", {{20, 5}, {-10, 5}}, true, {{10, 5}, {0, 5}}},
      {"in at the left", {{-2, 4}, {2, 8}}, true, {{0, 6}, {2, 8}}},
      {"out at the top", {{2, 16}, {6, 24}}, true, {{2, 16}, {4, 20}}},
      {"upright", {{3, -7}, {3, 77}}, true, {{3, 0}, {3, 20}}},
      {"along the edge", {{-5, 20}, {5, 20}}, true, {{0, 20}, {5, 20}}},
      {"touches a corner", {{-1, 1}, {1, -1}}, true, {{0, 0}, {0, 0}}},
      {"a point", {{3, 3}, {3, 3}}, true, {{3, 3}, {3, 3}}},
      {"heights go along", {{-10, 5, 0}, {10, 5, 40}}, true, {{0, 5, 20}, {10, 5, 40}}},
      {"past a corner", {{-3, 1}, {1, -3}}, false, {}},
      {"left of it", {{-3, 1}, {-1, 9}}, false, {}},
      {"above", {{3, 21}, {5, 21}}, false, {}},
      {"a point outside", {{11, 3}, {11, 3}}, false, {}},
      {"not a number", {{1, 1}, {kNan, 5}}, false, {}},
      {"endless", {{1, 1}, {5, kInfinity}}, false, {}},
      {"of the largest numbers", {{-kLargest, 5}, {kLargest, 5}}, true, {{0, 5}, {10, 5}}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Line line = c.line;
    EXPECT_EQ(line.ClipTo(kPage), c.seen);
    if (c.seen) {
      EXPECT_EQ(line, c.left);
    } else {
      EXPECT_EQ(line.start, c.line.start);  // of the end one coordinate may be no number, which equals nothing
      EXPECT_EQ(line.end.y, c.line.end.y);
    }
  }
}

TEST(Line, IsNotSeenInAnInvalidPage) {
  Line line({1, 1}, {2, 2});
  EXPECT_FALSE(line.ClipTo(Page()));
  EXPECT_FALSE(line.ClipTo(Page(0, 0, kNan, 5)));
}

TEST(Line, OfAnyLengthLeavesWhatSamplingFinds) {
  std::mt19937_64 random(20260101);
  std::uniform_real_distribution<double> near(-15, 35);
  int seen = 0;
  int missed = 0;
  for (int i = 0; i < 2000; ++i) {
    const Line whole({near(random), near(random)}, {near(random), near(random)});
    Line line = whole;
    const bool left = line.ClipTo(kPage);
    (left ? seen : missed)++;
    for (int k = 0; k <= 200; ++k) {
      const double share = k / 200.0;
      const Point at(whole.start.x + share * (whole.end.x - whole.start.x),
                     whole.start.y + share * (whole.end.y - whole.start.y));
      // A sample clearly inside lies between the ends of what is left, one clearly outside doesn't.
      const bool inside = Page(1e-9, 1e-9, 10 - 1e-9, 20 - 1e-9).IsPointInPage(at.x, at.y);
      const auto [lowX, highX] = std::minmax(line.start.x, line.end.x);
      const auto [lowY, highY] = std::minmax(line.start.y, line.end.y);
      if (inside) {
        ASSERT_TRUE(left);
        ASSERT_TRUE(Page(lowX - 1e-9, lowY - 1e-9, highX + 1e-9, highY + 1e-9).IsPointInPage(at.x, at.y));
      }
    }
    if (left) {
      ASSERT_TRUE(kPage.IsPointInPage(line.start.x, line.start.y));
      ASSERT_TRUE(kPage.IsPointInPage(line.end.x, line.end.y));
    }
  }
  EXPECT_GT(seen, 200);
  EXPECT_GT(missed, 200);
}

TEST(Line, IsDrawnAsFarAsTheViewGoes) {
  const CoordinateSystem system(Page(0, 0, 100, 100), 200, 200);
  test::RecordingDevice device;
  Line({10, 10}, {20, 30}).DrawLine(&device, system, Page(0, 0, 100, 100));
  Line({-50, 50}, {150, 50}).DrawLine(&device, system, Page(0, 0, 100, 100));
  Line({-50, 50}, {150, 50}).DrawLine(&device, system, Page(40, 0, 60, 100));
  Line({-50, 50}, {-10, 50}).DrawLine(&device, system, Page(0, 0, 100, 100));
  Line({0, 0}, {1, 1}).DrawLine(nullptr, system, Page(0, 0, 100, 100));
  EXPECT_EQ(device.Text(),
            "line 20 180 40 140\n"
            "line 0 100 200 100\n"
            "line 80 100 120 100\n");
}

}  // namespace
}  // namespace vak
