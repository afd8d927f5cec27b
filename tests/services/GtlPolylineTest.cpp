#include <cmath>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "vakdtm/services/geometry/GtlPolyline.h"

namespace vak::GTL {
namespace {

using Flat = Point2D<double>;
using Deep = Point3D<double>;

Polyline<Flat> Make(const std::vector<Flat>& points) {
  Polyline<Flat> line;
  for (const Flat& point : points) line.AddBack(point);
  return line;
}

template <typename T>
std::vector<T> PointsOf(const Polyline<T>& line) {
  std::vector<T> points;
  for (int i = 0; i < line.NumPoints(); ++i) points.push_back(line[i]);
  return points;
}

template <typename T>
Extents3D<double> ExtentsOf(const Polyline<T>& line) {
  Extents3D<double> extents;
  line.AddExtents(extents);
  return extents;
}

Extents3D<double> Box(double x0, double y0, double x1, double y1) {
  Extents3D<double> extents;
  extents.Update(Deep(x0, y0, 0));
  extents.Update(Deep(x1, y1, 0));
  return extents;
}

TEST(GtlPolyline, NewOneHasNoPointsAndNoExtents) {
  const Polyline<Flat> line;
  EXPECT_EQ(line.NumPoints(), 0);
  EXPECT_TRUE(line.IsEmpty());
  EXPECT_FALSE(line.IsClosed());
  EXPECT_EQ(line.Length(false), 0);
  EXPECT_EQ(line.NumCurves(), 0);
  EXPECT_FALSE(ExtentsOf(line).IsValid());
  EXPECT_FALSE(line.SharesPoints(Polyline<Flat>()));
}

TEST(GtlPolyline, GrowsAndShrinksAtBothEnds) {
  Polyline<Flat> line;
  line.AddBack({2, 0});
  line.AddFront({1, 0});
  line.AddBack({3, 0});
  line.AddFront({0, 0});
  EXPECT_EQ(PointsOf(line), (std::vector<Flat>{{0, 0}, {1, 0}, {2, 0}, {3, 0}}));
  line.RemoveFront();
  line.RemoveBack();
  EXPECT_EQ(PointsOf(line), (std::vector<Flat>{{1, 0}, {2, 0}}));
  line.RemoveBack();
  line.RemoveFront();
  EXPECT_TRUE(line.IsEmpty());
  line.AddFront({7, 7});
  EXPECT_EQ(PointsOf(line), (std::vector<Flat>{{7, 7}}));
  line.Clear();
  EXPECT_TRUE(line.IsEmpty());
  EXPECT_FALSE(ExtentsOf(line).IsValid());
}

TEST(GtlPolyline, ForgetsTheHeightOfAPointWithoutAPlaceWhenItIsGone) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  Polyline<Deep> other;
  other.AddBack({1, 1, 1});
  const std::vector<std::pair<std::string, std::function<void(Polyline<Deep>&)>>> ways = {
      {"add front", [](auto& line) { line.AddFront({1, 1, 1}); }},
      {"add back", [](auto& line) { line.AddBack({1, 1, 1}); }},
      {"insert", [&](auto& line) { line.Insert(0, other); }}};
  for (const auto& [name, add] : ways) {
    SCOPED_TRACE(name);
    Polyline<Deep> line;
    line.AddBack({kNaN, kNaN, 7});
    line.RemoveBack();
    add(line);
    Extents3D<double> extents;
    line.AddExtents(extents);
    EXPECT_EQ(extents.MinZ(), 1);
    EXPECT_EQ(extents.MaxZ(), 1);
  }
}

TEST(GtlPolyline, TakesAPointOfItsOwnWhileItMoves) {
  Polyline<Flat> line = Make({{1, 2}});
  for (int i = 0; i < 5; ++i) line.AddFront(line[0]);
  for (int i = 0; i < 5; ++i) line.AddBack(line[0]);
  line.Replace(3, line[0]);
  EXPECT_EQ(PointsOf(line), std::vector<Flat>(11, Flat(1, 2)));
}

TEST(GtlPolyline, InsertsAllPointsOfAnotherAtAnyIndex) {
  const std::vector<Flat> base = {{0, 0}, {1, 0}, {2, 0}};
  const Polyline<Flat> other = Make({{8, 0}, {9, 0}});
  for (int index = 0; index <= 3; ++index) {
    SCOPED_TRACE(index);
    Polyline<Flat> line = Make(base);
    line.Insert(index, other);
    std::vector<Flat> expected = base;
    expected.insert(expected.begin() + index, {{8, 0}, {9, 0}});
    EXPECT_EQ(PointsOf(line), expected);
    EXPECT_EQ(ExtentsOf(line), Box(0, 0, 9, 0));
  }
  Polyline<Flat> empty;
  empty.Insert(0, other);
  EXPECT_EQ(PointsOf(empty), PointsOf(other));
  EXPECT_EQ(ExtentsOf(empty), Box(8, 0, 9, 0));
  empty.Insert(1, Polyline<Flat>());
  EXPECT_EQ(empty.NumPoints(), 2);
}

TEST(GtlPolyline, InsertsItsOwnPoints) {
  Polyline<Flat> line = Make({{0, 0}, {1, 0}});
  line.Insert(1, line);
  EXPECT_EQ(PointsOf(line), (std::vector<Flat>{{0, 0}, {0, 0}, {1, 0}, {1, 0}}));
}

TEST(GtlPolyline, CopiesShareTheirPointsUntilOneIsWrittenTo) {
  const Polyline<Flat> line = Make({{0, 0}, {1, 1}});
  const std::vector<std::pair<std::string, void (*)(Polyline<Flat>&)>> writes = {
      {"replace", [](Polyline<Flat>& copy) { copy.Replace(0, {5, 5}); }},
      {"apply", [](Polyline<Flat>& copy) { copy.Apply([](Flat& point) { point.x += 1; }); }},
      {"add front", [](Polyline<Flat>& copy) { copy.AddFront({5, 5}); }},
      {"add back", [](Polyline<Flat>& copy) { copy.AddBack({5, 5}); }},
      {"remove front", [](Polyline<Flat>& copy) { copy.RemoveFront(); }},
      {"remove back", [](Polyline<Flat>& copy) { copy.RemoveBack(); }},
      {"insert", [](Polyline<Flat>& copy) { copy.Insert(1, copy); }},
      {"clear", [](Polyline<Flat>& copy) { copy.Clear(); }}};
  for (const auto& [name, write] : writes) {
    SCOPED_TRACE(name);
    Polyline<Flat> copy = line;
    Polyline<Flat> assigned;
    assigned = line;
    EXPECT_TRUE(copy.SharesPoints(line));
    write(copy);
    EXPECT_FALSE(copy.SharesPoints(line));
    EXPECT_TRUE(assigned.SharesPoints(line));
    EXPECT_EQ(PointsOf(line), (std::vector<Flat>{{0, 0}, {1, 1}}));
    EXPECT_NE(PointsOf(copy), PointsOf(line));
  }
}

TEST(GtlPolyline, WritesInPlaceOnceItsCopiesAreGone) {
  Polyline<Flat> line = Make({{0, 0}, {1, 1}});
  const Flat* const before = &line[0];
  {
    const Polyline<Flat> copy = line;
  }
  line.Replace(0, {5, 5});
  EXPECT_EQ(&line[0], before);
}

TEST(GtlPolyline, MovingLeavesNothingBehind) {
  Polyline<Flat> line = Make({{0, 0}, {1, 1}});
  Polyline<Flat> moved = std::move(line);
  EXPECT_EQ(moved.NumPoints(), 2);
  EXPECT_TRUE(line.IsEmpty());  // NOLINT(bugprone-use-after-move): what is said of it is what is tested
  EXPECT_FALSE(ExtentsOf(line).IsValid());
  line = std::move(moved);
  EXPECT_EQ(ExtentsOf(line), Box(0, 0, 1, 1));
  EXPECT_TRUE(moved.IsEmpty());  // NOLINT(bugprone-use-after-move)
}

TEST(GtlPolyline, ExtentsGrowWithPointsAtEitherEnd) {
  Polyline<Flat> line;
  line.AddBack({1, 1});
  EXPECT_EQ(ExtentsOf(line), Box(1, 1, 1, 1));
  line.AddFront({-1, 4});
  EXPECT_EQ(ExtentsOf(line), Box(-1, 1, 1, 4));
  Extents3D<double> wider = Box(-5, -5, 0, 0);
  line.AddExtents(wider);
  EXPECT_EQ(wider, Box(-5, -5, 1, 4));
}

TEST(GtlPolyline, ExtentsAreFoundAnewWhenAPointOnTheirEdgeGoes) {
  const std::vector<Flat> cross = {{0, 5}, {5, 0}, {5, 5}, {10, 5}, {5, 10}};
  Polyline<Flat> line = Make(cross);
  line.RemoveFront();
  EXPECT_EQ(ExtentsOf(line), Box(5, 0, 10, 10));
  line.RemoveBack();
  EXPECT_EQ(ExtentsOf(line), Box(5, 0, 10, 5));
  line.Replace(0, {6, 4});
  EXPECT_EQ(ExtentsOf(line), Box(5, 4, 10, 5));
}

TEST(GtlPolyline, ExtentsThatAreUnknownAreNotMistakenForThoseOfThePointThatIsAdded) {
  Polyline<Flat> line = Make({{0, 0}, {5, 5}, {10, 10}});
  line.RemoveBack();
  line.AddBack({6, 6});
  EXPECT_EQ(ExtentsOf(line), Box(0, 0, 6, 6));
  line.RemoveFront();
  line.AddFront({4, 4});
  line.Insert(1, Make({{4, 9}}));
  EXPECT_EQ(ExtentsOf(line), Box(4, 4, 6, 9));
}

TEST(GtlPolyline, ExtentsHoldAReplacementWithinThem) {
  Polyline<Flat> line = Make({{0, 0}, {5, 5}, {10, 10}});
  line.Replace(1, {5, 20});
  EXPECT_EQ(ExtentsOf(line), Box(0, 0, 10, 20));
}

TEST(GtlPolyline, HeightsOfExtentsStayWhenAPointWithinTheirEdgesGoes) {
  Polyline<Deep> line;
  for (const Deep& point : {Deep(0, 0, 1), Deep(10, 10, 1), Deep(5, 5, 9)}) line.AddBack(point);
  line.RemoveBack();
  EXPECT_EQ(ExtentsOf(line).MaxZ(), 9);
  line.RemoveBack();
  EXPECT_EQ(ExtentsOf(line).MaxZ(), 1);
}

TEST(GtlPolyline, ApplyShowsEveryPointAndFindsTheExtents) {
  Polyline<Flat> line = Make({{0, 0}, {1, 2}});
  int shown = 0;
  line.Apply([&](Flat& point) {
    ++shown;
    point.x = 10 - point.x;
  });
  EXPECT_EQ(shown, 2);
  EXPECT_EQ(PointsOf(line), (std::vector<Flat>{{10, 0}, {9, 2}}));
  EXPECT_EQ(ExtentsOf(line), Box(9, 0, 10, 2));
}

TEST(GtlPolyline, LinesAndLengthAreThoseFromPointToPoint) {
  const Polyline<Flat> flat = Make({{0, 0}, {3, 4}, {3, 5}});
  EXPECT_EQ(flat.GetLine(0), (Line{{0, 0, 0}, {3, 4, 0}}));
  EXPECT_EQ(flat.GetLine(1), (Line{{3, 4, 0}, {3, 5, 0}}));
  EXPECT_EQ(flat.Length(false), 6);
  EXPECT_EQ(flat.Length(true), 26);
  Polyline<Deep> deep;
  deep.AddBack({0, 0, 0});
  deep.AddBack({2, 3, 6});
  EXPECT_EQ(deep.GetLine(0), (Line{{0, 0, 0}, {2, 3, 6}}));
  EXPECT_EQ(deep.Length(false), 7);
  EXPECT_EQ(deep.Length(true), 49);
}

TEST(GtlPolyline, IsClosedWhenItsEndsAreEqual) {
  EXPECT_TRUE(Make({{0, 0}, {1, 0}, {1, 1}, {0, 0}}).IsClosed());
  EXPECT_FALSE(Make({{0, 0}, {1, 0}, {1, 1}}).IsClosed());
  EXPECT_TRUE(Make({{0, 0}}).IsClosed());
}

TEST(GtlPolyline, TakesOverAListOfPoints) {
  const Polyline<Flat> line(std::vector<Flat>{{1, 1}, {4, 0}});
  EXPECT_EQ(PointsOf(line), (std::vector<Flat>{{1, 1}, {4, 0}}));
  EXPECT_EQ(ExtentsOf(line), Box(1, 0, 4, 1));
  EXPECT_TRUE(Polyline<Flat>(std::vector<Flat>()).IsEmpty());
}

TEST(GtlPolyline, AnyWorkAgreesWithADeque) {
  std::mt19937_64 random(7);
  Polyline<Flat> line;
  std::deque<Flat> model;
  std::vector<Polyline<Flat>> copies;
  for (int step = 0; step < 4000; ++step) {
    const Flat point(static_cast<double>(random() % 50), static_cast<double>(random() % 50));
    switch (random() % 8) {
      case 0:
      case 1:
        line.AddFront(point);
        model.push_front(point);
        break;
      case 2:
      case 3:
        line.AddBack(point);
        model.push_back(point);
        break;
      case 4:
        if (model.empty()) break;
        line.RemoveFront();
        model.pop_front();
        break;
      case 5:
        if (model.empty()) break;
        line.RemoveBack();
        model.pop_back();
        break;
      case 6: {
        if (model.empty()) break;
        const auto index = random() % model.size();
        line.Replace(static_cast<int>(index), point);
        model[index] = point;
        break;
      }
      default:
        copies.assign(1, line);
    }
    ASSERT_EQ(PointsOf(line), std::vector<Flat>(model.begin(), model.end())) << step;
    Extents3D<double> expected;
    for (const Flat& held : model) expected.Update(Deep(held));
    ASSERT_EQ(ExtentsOf(line), expected) << step;
  }
  EXPECT_GT(model.size(), 20U);
}

static_assert(std::is_nothrow_move_constructible_v<Polyline<Flat>>, "lists of them move them");

}  // namespace
}  // namespace vak::GTL
