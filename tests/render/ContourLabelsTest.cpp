#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numbers>
#include <string>
#include <vector>

#include "vakdtm/render/ChartContour.h"
#include "vakdtm/render/ContourLabels.h"

#include "PlainMeasure.h"

namespace vak {
namespace {

using test::PlainMeasure;
using testing::ElementsAre;

const PixelRect kMap{0, 0, 1000, 1000};
const TextMeasure kMeasure = PlainMeasure;

PixelLine Circle(double x, double y, double radius) {
  PixelLine line;
  for (int i = 0; i <= 360; ++i) {
    const double angle = i * std::numbers::pi / 180;
    line.push_back({x + radius * std::cos(angle), y + radius * std::sin(angle)});
  }
  return line;
}

TEST(ContourLabels, LieOnTheLineAndReadUpright) {
  const struct {
    const char* name;
    PixelPoint from, to;
    double degrees;
  } cases[] = {
      {"to the right", {100, 500}, {300, 500}, 0}, {"to the left", {300, 500}, {100, 500}, 0},
      {"rising", {100, 500}, {300, 300}, 45},      {"rising, from above", {300, 300}, {100, 500}, 45},
      {"falling", {100, 300}, {300, 500}, -45},    {"falling, from below", {300, 500}, {100, 300}, -45},
      {"straight up", {500, 500}, {500, 300}, 90}, {"straight down", {500, 300}, {500, 500}, 90},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ContourLabels labels(kMap, 10, kMeasure);
    labels.Add({c.from, c.to}, L"-12");
    ASSERT_EQ(labels.Labels().size(), 1U);
    const ContourLabel& label = labels.Labels().front();
    EXPECT_NEAR(label.angle * 180 / std::numbers::pi, c.degrees, 1e-6);
    const double dx = c.to.x - c.from.x;
    const double dy = c.to.y - c.from.y;
    EXPECT_NEAR((label.centre.x - c.from.x) * dy - (label.centre.y - c.from.y) * dx, 0, 1e-6) << "not on the line";
  }
}

TEST(ContourLabels, NeedRoomOnTheLineAndOnTheMap) {
  ContourLabels labels(kMap, 10, kMeasure);
  labels.Add({{100, 500}, {150, 500}}, L"-12");  // two and a half labels are 55
  EXPECT_EQ(labels.Labels().size(), 0U);
  labels.Add({{100, 2}, {500, 2}}, L"-12");  // half a label would lie beyond the upper edge
  EXPECT_EQ(labels.Labels().size(), 0U);
  labels.Add(Circle(500, 500, 12), L"-12");  // bends too much
  EXPECT_EQ(labels.Labels().size(), 0U);
  labels.Add({}, L"-12");
  labels.Add({{1, 1}}, L"-12");
  labels.Add({{100, 500}, {160, 500}}, L"-12");
  EXPECT_EQ(labels.Labels().size(), 1U);
}

TEST(ContourLabels, NeedALineThatDoesNotLeaveThem) {
  // Under a label of 22 pixels the arc rises by 3.7 of them, and by 2.4; 3 are what it may.
  ContourLabels labels(kMap, 10, kMeasure);
  labels.Add(Circle(500, 500, 16), L"-12");
  EXPECT_EQ(labels.Labels().size(), 0U);
  labels.Add(Circle(500, 500, 25), L"-12");
  EXPECT_GE(labels.Labels().size(), 1U);
}

TEST(ContourLabels, ComeAgainAfterAWhileOfLine) {
  ContourLabels labels(kMap, 10, kMeasure);
  labels.Add({{0, 500}, {1000, 500}}, L"-12");
  ASSERT_EQ(labels.Labels().size(), 4U);
  for (std::size_t i = 1; i < 4; ++i) {
    EXPECT_NEAR(labels.Labels()[i].centre.x - labels.Labels()[i - 1].centre.x, 300, 1e-6);
  }
}

/// Whether two boxes have a point of a fine grid over the first in common.
bool Overlap(const ContourLabel& a, const ContourLabel& b) {
  const auto isIn = [](const ContourLabel& label, double x, double y) {
    for (std::size_t i = 0; i < 4; ++i) {
      const PixelPoint& p = label.box[i];
      const PixelPoint& q = label.box[(i + 1) % 4];
      if ((q.x - p.x) * (y - p.y) - (q.y - p.y) * (x - p.x) < 0) return false;
    }
    return true;
  };
  for (int i = 0; i <= 20; ++i) {
    for (int k = 0; k <= 20; ++k) {
      const auto at = [&](auto part) {
        return part(a.box[0]) + (part(a.box[1]) - part(a.box[0])) * i / 20 + (part(a.box[3]) - part(a.box[0])) * k / 20;
      };
      if (isIn(b, at([](const PixelPoint& p) { return p.x; }), at([](const PixelPoint& p) { return p.y; })))
        return true;
    }
  }
  return false;
}

TEST(ContourLabels, OfDenseLinesNeverOverlapNorLeaveTheMap) {
  ContourLabels labels(kMap, 10, kMeasure);
  for (int i = 1; i < 120; ++i) labels.Add(Circle(480, 520, i * 5), L"-12.5");
  for (int i = 0; i < 100; ++i) labels.Add({{0, i * 10.0}, {1000, i * 8.0 + 40}}, L"100");
  const std::vector<ContourLabel>& all = labels.Labels();
  ASSERT_GT(all.size(), 50U);
  for (std::size_t i = 0; i < all.size(); ++i) {
    for (const PixelPoint& corner : all[i].box) {
      EXPECT_TRUE(corner.x >= 0 && corner.x <= 1000 && corner.y >= 0 && corner.y <= 1000);
    }
    for (std::size_t k = 0; k < i; ++k) {
      if (std::hypot(all[i].centre.x - all[k].centre.x, all[i].centre.y - all[k].centre.y) > 100) continue;
      EXPECT_FALSE(Overlap(all[i], all[k]) || Overlap(all[k], all[i])) << i << " and " << k;
    }
  }
}

TEST(ChartContour, IndexLevelsAreRound) {
  EXPECT_THAT(FindIndexLevels({-12, -11, -10, -9, -5, 0}, 1), ElementsAre(false, false, true, false, true, true));
  EXPECT_THAT(FindIndexLevels({0.5, 1, 1.5, 2, 2.5, 4}, 0.5), ElementsAre(false, false, false, true, false, true));
  EXPECT_THAT(FindIndexLevels({0.75, 1, 1.25, 2}, 0.25), ElementsAre(false, true, false, true));
  EXPECT_THAT(FindIndexLevels({0.8, 1, 1.2}, 0.2), ElementsAre(false, true, false));
  EXPECT_THAT(FindIndexLevels({3, 6, 15}, 3), ElementsAre(false, false, true));
  EXPECT_THAT(FindIndexLevels({1, 2}, 1), ElementsAre(true, true)) << "none would have a label";
  EXPECT_TRUE(FindIndexLevels({}, 1).empty());
}

}  // namespace
}  // namespace vak
