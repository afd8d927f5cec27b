#include <cmath>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "vakdtm/contour/Outline.h"

namespace vak {
namespace {

using Point = GTL::Point3D<double>;

Outline Through(const std::vector<Point>& points, double level = 0.0) {
  Outline outline(level);
  for (const Point& point : points) outline.Line().AddBack(point);
  return outline;
}

std::vector<Point> PointsOf(const Outline& outline) {
  std::vector<Point> points;
  for (int i = 0; i < outline.NumPoints(); ++i) points.push_back(outline[i]);
  return points;
}

TEST(Outline, NewOneHasItsLevelAndNoPoints) {
  const Outline outline(2.5);
  EXPECT_EQ(outline.Level(), 2.5);
  EXPECT_TRUE(outline.IsEmpty());
  EXPECT_EQ(outline.NumPoints(), 0);
  EXPECT_EQ(outline.Length(), 0.0);
  EXPECT_FALSE(outline.IsClosed());
}

TEST(Outline, LengthIsMeasuredInSpace) {
  EXPECT_EQ(Through({{0, 0, 0}, {2, 3, 6}, {2, 3, 8}}).Length(), 9.0);
  EXPECT_EQ(Through({{1, 1, 1}}).Length(), 0.0);
}

TEST(Outline, IsClosedWhenItEndsWhereItBegins) {
  EXPECT_TRUE(Through({{0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {0, 0, 1}}).IsClosed());
  EXPECT_FALSE(Through({{0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {0, 0, 2}}).IsClosed());
}

TEST(Outline, IsOrderedByLevelAlone) {
  EXPECT_LT(Outline(1), Outline(2));
  EXPECT_FALSE(Outline(2) < Outline(1));
  EXPECT_FALSE(Through({{0, 0, 0}}, 1) < Through({{5, 5, 5}}, 1));
}

TEST(Outline, ReverseSwapsTheEndsAndLeavesTheMiddle) {
  const Point a{0, 0, 1};
  const Point b{1, 0, 2};
  const Point c{1, 1, 3};
  const Point d{0, 1, 4};
  const std::vector<std::pair<std::vector<Point>, std::vector<Point>>> cases = {
      {{}, {}}, {{a}, {a}}, {{a, b}, {b, a}}, {{a, b, c}, {c, b, a}}, {{a, b, c, d}, {d, c, b, a}}};
  for (const auto& [points, reversed] : cases) {
    SCOPED_TRACE(points.size());
    Outline outline = Through(points);
    outline.Reverse();
    EXPECT_EQ(PointsOf(outline), reversed);
  }
}

TEST(Outline, ClearLeavesTheLevel) {
  Outline outline = Through({{0, 0, 1}, {1, 0, 1}}, 3.0);
  outline.Clear();
  EXPECT_TRUE(outline.IsEmpty());
  EXPECT_EQ(outline.Level(), 3.0);
  outline.Line().AddBack({7, 8, 9});
  EXPECT_EQ(PointsOf(outline), (std::vector<Point>{{7, 8, 9}}));
}

TEST(Outline, CopyStandsAlone) {
  const std::vector<Point> points = {{0, 0, 1}, {1, 0, 2}};
  const Outline original = Through(points, 4.0);
  Outline copy = original;
  copy.Reverse();
  EXPECT_EQ(PointsOf(original), points);
  EXPECT_EQ(copy.Level(), 4.0);
  Outline assigned(0.0);
  assigned = original;
  assigned.Clear();
  EXPECT_EQ(PointsOf(original), points);
  const Outline moved = std::move(copy);
  EXPECT_EQ(PointsOf(moved), (std::vector<Point>{{1, 0, 2}, {0, 0, 1}}));
  EXPECT_EQ(moved.Level(), 4.0);
}

}  // namespace
}  // namespace vak
