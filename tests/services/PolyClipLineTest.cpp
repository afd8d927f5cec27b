#include <algorithm>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/geometry/PolyClipper.h"

namespace vak {
namespace {

using Ring = std::vector<Point>;
using Kind = PolyClipFault::Kind;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Ring Rectangle(double x0, double y0, double x1, double y1) { return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}; }

Ring Backwards(const Ring& ring) { return {ring.rbegin(), ring.rend()}; }

PolyClipLine Polygon(const Ring& ring) {
  PolyClipLine polygon;
  polygon.AddRing(ring, false);
  return polygon;
}

/// A lake with an island in it, and a pond outside.
PolyClipLine Lake() {
  PolyClipLine polygon;
  polygon.AddRing(Rectangle(0, 0, 10, 10), false);
  polygon.AddRing(Rectangle(2, 2, 8, 8), true);
  polygon.AddRing(Rectangle(4, 4, 6, 6), false);
  polygon.AddRing(Rectangle(20, 0, 21, 1), false);
  return polygon;
}

std::size_t CountRings(const PolyClipLine& polygon) {
  std::size_t count = 0;
  const PolyClipLine* ring = nullptr;
  for (bool more = polygon.GetFirstPolyClipLine(ring); more; more = polygon.GetNextPolyClipLine(ring)) ++count;
  EXPECT_EQ(ring, nullptr);
  return count;
}

TEST(PolyClipLine, WithoutRingsItIsValidAndHoldsNoPoint) {
  PolyClipLine none;
  EXPECT_TRUE(none.IsEmpty());
  EXPECT_TRUE(none.IsValid());
  EXPECT_FALSE(none.IsPointInPoly({0, 0}));
  EXPECT_EQ(none.GetArea(), 0);
  EXPECT_EQ(none.NumRings(), 0U);
  EXPECT_EQ(none.NumPoints(), 0U);
  EXPECT_EQ(CountRings(none), 0U);
  EXPECT_FALSE(none.IsSelfIntersecting());
  Page page(1, 2, 3, 4);
  EXPECT_FALSE(none.GetExtents(page));
  EXPECT_EQ(page.right(), 3);
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 1, 1));
  EXPECT_FALSE(none.FillPolyClipper(clipper));
  PolyClipFault fault;
  EXPECT_FALSE(none.FindFault(fault));
  EXPECT_EQ(fault.Text(), L"");
}

TEST(PolyClipLine, ElementsMakeOneRing) {
  PolyClipLine polygon;
  for (const Point& point : Rectangle(0, 0, 4, 3)) {
    EXPECT_EQ(polygon.IsValid(), polygon.IsEmpty());
    polygon.AddElem(point);
    if (polygon.NumPoints() == 3) break;
  }
  EXPECT_TRUE(polygon.IsValid());
  EXPECT_EQ(polygon.GetArea(), 6);
  polygon.AddElem({0, 3});
  EXPECT_EQ(polygon.GetArea(), 12);  // what was worked out before is worked out again
  EXPECT_TRUE(polygon.IsPointInPoly({1, 2.5}));
  EXPECT_EQ(polygon.NumRings(), 1U);
  polygon.Clear();
  EXPECT_TRUE(polygon.IsEmpty());
  EXPECT_TRUE(polygon.IsValid());
}

TEST(PolyClipLine, ElementsGoToTheLastRing) {
  PolyClipLine polygon = Lake();
  polygon.AddElem({20, 1.5});
  EXPECT_EQ(polygon.NumRings(), 4U);
  EXPECT_EQ(polygon.NumPoints(), 17U);
  EXPECT_EQ(polygon.GetPoint(16).y, 1.5);
  EXPECT_EQ(polygon.GetPoint(4).x, 2);
}

TEST(PolyClipLine, ValidNeedsThreeDifferentFinitePointsInEveryRing) {
  const struct {
    const char* name;
    Ring ring;
    bool valid;
  } cases[] = {{"a triangle", {{0, 0}, {1, 0}, {0, 1}}, true},
               {"points on a line", {{0, 0}, {1, 1}, {2, 2}}, true},
               {"no point", {}, false},
               {"two points", {{0, 0}, {1, 0}}, false},
               {"two points, again and again", {{0, 0}, {1, 0}, {0, 0}, {1, 0}, {1, 0}}, false},
               {"two points and back", {{0, 0}, {1, 0}, {0, 0}}, false},
               {"points above each other", {{0, 0, 1}, {0, 0, 2}, {0, 0, 3}, {1, 1, 1}}, false},
               {"not a number", {{0, 0}, {1, 0}, {0, kNaN}}, false},
               {"endless", {{0, 0}, {kInfinity, 0}, {0, 1}}, false},
               {"a height that is no number", {{0, 0, kNaN}, {1, 0}, {0, 1}}, true},
               {"beyond measure", {{0, 0}, {1e101, 0}, {0, 1}}, false}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(Polygon(one.ring).IsValid(), one.valid);
    PolyClipLine second = Lake();
    second.AddRing(one.ring, false);
    EXPECT_EQ(second.IsValid(), one.valid);
  }
}

TEST(PolyClipLine, RingsAreWalkedInOrderAndEachIsAPolygon) {
  const PolyClipLine lake = Lake();
  EXPECT_EQ(CountRings(lake), 4U);
  const PolyClipLine* ring = nullptr;
  ASSERT_TRUE(lake.GetFirstPolyClipLine(ring));
  EXPECT_EQ(ring->GetArea(), 100);
  EXPECT_FALSE(ring->IsHole());
  const PolyClipLine* same = nullptr;
  ASSERT_TRUE(ring->GetFirstPolyClipLine(same));
  EXPECT_EQ(same, ring);
  EXPECT_FALSE(ring->GetNextPolyClipLine(same));
  // Two walks at the same time.
  const PolyClipLine* other = nullptr;
  ASSERT_TRUE(lake.GetFirstPolyClipLine(other));
  ASSERT_TRUE(lake.GetNextPolyClipLine(ring));
  EXPECT_TRUE(ring->IsHole());
  EXPECT_EQ(ring->GetArea(), -36);
  EXPECT_TRUE(ring->IsPointInPoly({3, 3}));  // within the ring
  EXPECT_EQ(other->GetArea(), 100);
  other = nullptr;
  EXPECT_FALSE(lake.GetNextPolyClipLine(other));
}

TEST(PolyClipLine, HolesTakeOffAndIslandsCountAgain) {
  EXPECT_EQ(Lake().GetArea(), 100 - 36 + 4 + 1);
  PolyClipLine backwards;
  backwards.AddRing(Backwards(Rectangle(0, 0, 10, 10)), false);
  backwards.AddRing(Backwards(Rectangle(2, 2, 8, 8)), true);
  EXPECT_EQ(backwards.GetArea(), 64);
}

TEST(PolyClipLine, PointCountsByTheRingsAroundIt) {
  const PolyClipLine lake = Lake();
  const PolyClipLine* found = nullptr;
  EXPECT_TRUE(lake.IsPointInPoly({1, 1}, &found));
  EXPECT_EQ(found->GetArea(), 100);
  EXPECT_FALSE(lake.IsPointInPoly({3, 3}));
  EXPECT_TRUE(lake.IsPointInPoly({5, 5}, &found));
  EXPECT_EQ(found->GetArea(), 4);  // the smallest
  EXPECT_TRUE(lake.IsPointInPoly({20.5, 0.5}, &found));
  EXPECT_EQ(found->GetArea(), 1);
  found = nullptr;
  EXPECT_FALSE(lake.IsPointInPoly({15, 0.5}, &found));
  EXPECT_EQ(found, nullptr);
  EXPECT_FALSE(lake.IsPointInPoly({kNaN, 1}));
  EXPECT_FALSE(lake.IsPointInPoly({1, kNaN}));
  EXPECT_FALSE(lake.IsPointInPoly({1, kInfinity}));
  const PolyClipLine one = Polygon(Rectangle(0, 0, 1, 1));
  EXPECT_TRUE(one.IsPointInPoly({0.5, 0.5}, &found));
  EXPECT_EQ(found, &one);
}

TEST(PolyClipLine, LowerAndLeftEndsAreInside) {
  for (const Ring& ring : {Rectangle(2, 3, 5, 7), Backwards(Rectangle(2, 3, 5, 7))}) {
    const PolyClipLine polygon = Polygon(ring);
    EXPECT_TRUE(polygon.IsPointInPoly({2, 3}));
    EXPECT_TRUE(polygon.IsPointInPoly({3, 3}));
    EXPECT_TRUE(polygon.IsPointInPoly({2, 4}));
    EXPECT_FALSE(polygon.IsPointInPoly({5, 3}));
    EXPECT_FALSE(polygon.IsPointInPoly({5, 4}));
    EXPECT_FALSE(polygon.IsPointInPoly({2, 7}));
    EXPECT_FALSE(polygon.IsPointInPoly({3, 7}));
    EXPECT_FALSE(polygon.IsPointInPoly({5, 7}));
  }
}

/// Triangles around points of a lattice, far from the origin in steps of a millimetre, cut a square without gap or
/// overlap: each point on their edges and corners is in exactly one.
TEST(PolyClipLine, PointOnTheLineBetweenPolygonsIsInExactlyOne) {
  constexpr double kFarX = 512'030.125;
  constexpr double kFarY = 5'401'200.001;
  std::mt19937_64 random(20260106);
  const auto step = [&] { return std::uniform_int_distribution<int>(1, 7)(random); };
  for (int round = 0; round < 50; ++round) {
    const Point middle(kFarX + 0.001 * step(), kFarY + 0.001 * step());
    const Ring corners = Rectangle(kFarX, kFarY, kFarX + 0.008, kFarY + 0.008);
    std::vector<PolyClipLine> parts;
    for (std::size_t i = 0; i < 4; ++i) {
      Ring ring = {corners[i], corners[(i + 1) % 4], middle};
      std::rotate(ring.begin(), ring.begin() + step() % 3, ring.end());
      parts.push_back(Polygon(step() % 2 == 0 ? ring : Backwards(ring)));
    }
    const PolyClipLine square = Polygon(corners);
    const auto check = [&](const Point& point) {
      const auto holders = std::count_if(parts.begin(), parts.end(),
                                         [&](const PolyClipLine& part) { return part.IsPointInPoly(point); });
      ASSERT_EQ(holders, square.IsPointInPoly(point) ? 1 : 0) << round << ": " << point.x << ' ' << point.y;
    };
    check(middle);
    for (std::size_t i = 0; i < 4; ++i) check(corners[i]);
    // As near to the edges as doubles come.
    for (std::size_t i = 0; i < 4; ++i) {
      for (int k = 0; k <= 64; ++k) {
        const Point on = {corners[i].x + (middle.x - corners[i].x) * k / 64,
                          corners[i].y + (middle.y - corners[i].y) * k / 64};
        check(on);
        check({std::nextafter(on.x, 0), on.y});
        check({on.x, std::nextafter(on.y, 1e9)});
      }
    }
  }
}

TEST(PolyClipLine, PointOnAHolesEdgeIsInTheHoleOrAroundItButNotInBoth) {
  const Ring ring = {{1, 1}, {9, 2}, {8, 8}, {5, 3}, {2, 9}};
  for (const bool turned : {false, true}) {
    PolyClipLine around;
    around.AddRing(Rectangle(-5, -5, 15, 15), false);
    around.AddRing(turned ? Backwards(ring) : ring, true);
    const PolyClipLine filling = Polygon(ring);
    for (std::size_t i = 0; i < ring.size(); ++i) {
      const Point& from = ring[i];
      const Point& to = ring[(i + 1) % ring.size()];
      for (int k = 0; k < 32; ++k) {
        const Point on(from.x + (to.x - from.x) * k / 32, from.y + (to.y - from.y) * k / 32);
        EXPECT_NE(around.IsPointInPoly(on), filling.IsPointInPoly(on)) << on.x << ' ' << on.y;
      }
    }
  }
}

// The index must not change an answer: against the plain loop over all edges, for rings of all kinds.
TEST(PolyClipLine, IndexAgreesWithTheLoopOverAllEdges) {
  std::mt19937_64 random(20260107);
  const auto number = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  const auto plain = [](const Ring& ring, const Point& point) {
    bool inside = false;
    for (std::size_t i = 0; i < ring.size(); ++i) {
      const Point& a = ring[i];
      const Point& b = ring[(i + 1) % ring.size()];
      if ((a.y <= point.y) == (b.y <= point.y)) continue;
      if (a.x + (b.x - a.x) * (point.y - a.y) / (b.y - a.y) > point.x) inside = !inside;
    }
    return inside;
  };
  for (int round = 0; round < 60; ++round) {
    Ring ring;
    const int count = 3 + round * 7;
    for (int i = 0; i < count; ++i) {
      // Up and down at each step, a spiral's slow climb, or anything.
      const double t = static_cast<double>(i) / count;
      const double y = round % 3 == 0 ? (i % 2 == 0 ? 0.0 : 100.0) + t : round % 3 == 1 ? 100 * t : number(0, 100);
      ring.push_back({number(0, 100), y});
    }
    const PolyClipLine polygon = Polygon(ring);
    for (int k = 0; k < 300; ++k) {
      const Point point(number(-5, 105), number(-5, 105));
      ASSERT_EQ(polygon.IsPointInPoly(point), plain(ring, point)) << round;
    }
  }
}

TEST(PolyClipLine, ExtentsWidenThePage) {
  Page page;
  EXPECT_TRUE(Lake().GetExtents(page));
  EXPECT_EQ(page.left(), 0);
  EXPECT_EQ(page.right(), 21);
  EXPECT_EQ(page.top(), 10);
  EXPECT_TRUE(Polygon(Rectangle(-3, -4, -1, -2)).GetExtents(page));
  EXPECT_EQ(page.left(), -3);
  EXPECT_EQ(page.bottom(), -4);
  EXPECT_EQ(page.right(), 21);
}

TEST(PolyClipLine, AreaFarFromTheOriginKeepsItsDigits) {
  EXPECT_EQ(Polygon(Rectangle(512'000.25, 5'402'000.5, 512'000.375, 5'402'000.75)).GetArea(), 0.03125);
}

TEST(PolyClipLine, CopiesStandAlone) {
  PolyClipLine first = Lake();
  EXPECT_TRUE(first.IsPointInPoly({1, 1}));
  PolyClipLine second = first;
  second.AddElem({100, 100});
  EXPECT_EQ(first.NumPoints(), 16U);
  EXPECT_EQ(second.NumPoints(), 17U);
  EXPECT_NE(first.GetArea(), second.GetArea());
  second.AddRing(Rectangle(0, 0, 1, 1), false);
  EXPECT_EQ(first.NumRings(), 4U);
  const PolyClipLine third = std::move(second);
  EXPECT_EQ(third.NumRings(), 5U);
  second = first;
  EXPECT_EQ(second.NumRings(), 4U);
  first.Clear();
  EXPECT_EQ(second.NumRings(), 4U);
}

TEST(PolyClipLine, CutToAPage) {
  PolyClipLine cut;
  EXPECT_TRUE(Lake().ClipToPage(Page(5, 5, 30, 30), cut));
  EXPECT_EQ(cut.NumRings(), 3U);
  EXPECT_EQ(cut.GetArea(), 25 - 9 + 1);
  EXPECT_FALSE(cut.IsPointInPoly({1, 1}));
  EXPECT_FALSE(cut.IsPointInPoly({7, 7}));
  EXPECT_TRUE(cut.IsPointInPoly({9, 9}));
  EXPECT_FALSE(Lake().ClipToPage(Page(50, 50, 60, 60), cut));
  EXPECT_TRUE(cut.IsEmpty());
  PolyClipLine self = Lake();
  EXPECT_TRUE(self.ClipToPage(Page(0, 0, 5, 10), self));
  EXPECT_EQ(self.GetArea(), 50 - 18 + 2);
}

struct CrossingCase {
  const char* name;
  Ring ring;
  bool crosses;
};

TEST(PolyClipLine, SelfIntersectionIsCrossingOrLyingOnItself) {
  const CrossingCase cases[] = {
      {"a square", Rectangle(0, 0, 4, 4), false},
      {"a bow tie", {{0, 0}, {2, 2}, {2, 0}, {0, 2}}, true},
      {"a concave ring", {{0, 0}, {4, 0}, {4, 4}, {2, 1}, {0, 4}}, false},
      {"touches itself in a vertex", {{0, 0}, {2, 2}, {4, 0}, {4, 4}, {2, 2}, {0, 4}}, false},
      {"goes across itself in a vertex", {{0, 0}, {2, 2}, {4, 4}, {4, 0}, {2, 2}, {0, 4}}, true},
      {"a vertex touches an edge", {{0, 0}, {4, 0}, {4, 4}, {2, 0}, {0, 4}}, false},
      {"goes across an edge in a vertex", {{0, 0}, {4, 0}, {4, 4}, {2, 0}, {2, -4}, {0, 4}}, true},
      {"touches an edge from both sides in one place", {{-4, 0}, {4, 0}, {4, 4}, {0, 0}, {-4, 4}}, false},
      {"lies on itself for a while", {{0, 0}, {4, 0}, {4, 4}, {3, 0}, {1, 0}, {0, 4}}, true},
      {"a spike", {{0, 0}, {4, 0}, {4, 4}, {4, 6}, {4, 4}, {0, 4}}, true},
      {"a spike into the ring", {{0, 0}, {4, 0}, {4, 4}, {2, 2}, {4, 4}, {0, 4}}, true},
      {"a hole by a cut", {{0, 0}, {9, 0}, {9, 9}, {0, 9}, {0, 0}, {3, 3}, {3, 6}, {6, 6}, {6, 3}, {3, 3}}, true},
      {"vertices repeat", {{0, 0}, {0, 0}, {4, 0}, {4, 0}, {4, 4}, {4, 4}, {0, 4}, {0, 0}}, false},
      {"all on a line", {{0, 0}, {2, 2}, {4, 4}}, true},
      {"two points", {{0, 0}, {2, 2}}, true},
      {"one point", {{0, 0}}, false},
      {"verticals that share a part", {{0, 0}, {0, 5}, {3, 5}, {3, 8}, {0, 8}, {0, 2}, {-3, 2}, {-3, 0}}, true},
      {"verticals that touch in a point", {{0, 0}, {0, 4}, {3, 4}, {3, 8}, {0, 8}, {0, 4}, {-3, 4}, {-3, 0}}, false},
      {"three loops in a vertex", {{0, 0}, {2, -1}, {2, 1}, {0, 0}, {1, 2}, {-1, 2}, {0, 0}, {-1, -2}, {1, -2}}, false},
      {"loops that go across each other",
       {{0, 0}, {1, 2}, {-1, 2}, {0, 0}, {2, 1}, {2, -1}, {0, 0}, {-1, -2}, {1, -2}},
       true},
      {"a millimetre far away",
       {{512'000, 5'402'000},
        {512'001, 5'402'000},
        {512'001, 5'402'000.001},
        {512'000.5, 5'402'000.0005},
        {512'000, 5'402'000.001}},
       false},
      {"half a millimetre too far",
       {{512'000, 5'402'000},
        {512'001, 5'402'000},
        {512'001, 5'402'000.001},
        {512'000.5, 5'401'999.9995},
        {512'000, 5'402'000.001}},
       true},
  };
  for (const CrossingCase& one : cases) {
    SCOPED_TRACE(one.name);
    Ring ring = one.ring;
    for (std::size_t turn = 0; turn < one.ring.size(); ++turn) {
      std::rotate(ring.begin(), ring.begin() + 1, ring.end());
      EXPECT_EQ(Polygon(ring).IsSelfIntersecting(), one.crosses);
      EXPECT_EQ(Polygon(Backwards(ring)).IsSelfIntersecting(), one.crosses);
      Ring mirrored = ring;
      for (Point& point : mirrored) std::swap(point.x, point.y);
      EXPECT_EQ(Polygon(mirrored).IsSelfIntersecting(), one.crosses);
    }
  }
}

TEST(PolyClipLine, RingsOfOnePolygonMustNotCrossButOthersMay) {
  PolyClipLine hole;
  hole.AddRing(Rectangle(0, 0, 4, 4), false);
  hole.AddRing(Rectangle(2, 2, 6, 3), true);
  EXPECT_TRUE(hole.IsSelfIntersecting());

  PolyClipLine touching;
  touching.AddRing(Rectangle(0, 0, 4, 4), false);
  touching.AddRing({{0, 0}, {2, 1}, {1, 2}}, true);
  touching.AddRing({{4, 2}, {3, 3}, {3, 1}}, true);
  EXPECT_FALSE(touching.IsSelfIntersecting());

  PolyClipLine neighbours;
  neighbours.AddRing(Rectangle(0, 0, 4, 4), false);
  neighbours.AddRing(Rectangle(4, 0, 8, 4), false);
  neighbours.AddRing(Rectangle(2, 2, 6, 6), false);
  EXPECT_FALSE(neighbours.IsSelfIntersecting());
}

TEST(PolyClipLine, SelfIntersectionIsFoundAmongAHundredThousandVertices) {
  constexpr std::size_t kCount = 100'000;
  const auto at = [](std::size_t step, double radius) {
    const double angle = 2 * 3.14159265358979 * static_cast<double>(step) / kCount;
    return Point(512'000 + radius * std::cos(angle), 5'402'000 + radius * std::sin(angle));
  };
  Ring ring;
  for (std::size_t i = 0; i < kCount; ++i) ring.push_back(at(i, i % 2 == 0 ? 1000 : 999));
  EXPECT_FALSE(Polygon(ring).IsSelfIntersecting());
  ring[70'002] = at(70'006, 999.5);  // through the next teeth
  PolyClipFault fault;
  ASSERT_TRUE(Polygon(ring).FindFault(fault));
  EXPECT_EQ(fault.kind, Kind::kSelfIntersecting);
  EXPECT_NEAR(fault.at.x, ring[70'001].x, 2);
  EXPECT_NEAR(fault.at.y, ring[70'001].y, 2);
}

// Every pair of edges, for rings of small whole numbers in which everything touches everything.
TEST(PolyClipLine, SelfIntersectionAgreesWithTheLoopOverAllPairs) {
  const auto side = [](const Point& a, const Point& b, const Point& c) {
    const double cross = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    return cross > 0 ? 1 : cross < 0 ? -1 : 0;
  };
  // Crossing inside both, or a common piece of a line.
  const auto meet = [&](const Point& a, const Point& b, const Point& c, const Point& d) {
    const int c1 = side(a, b, c);
    const int d1 = side(a, b, d);
    if (c1 * d1 < 0 && side(c, d, a) * side(c, d, b) < 0) return true;
    if (c1 != 0 || d1 != 0) return false;
    const auto along = [&](const Point& p) { return (b.x - a.x) * (p.x - a.x) + (b.y - a.y) * (p.y - a.y); };
    const double low = std::max(0.0, std::min(along(c), along(d)));
    const double high = std::min(along(b), std::max(along(c), along(d)));
    return low < high;
  };
  std::mt19937_64 random(20260108);
  int crossing = 0;
  int free = 0;
  for (int round = 0; round < 30'000; ++round) {
    Ring ring;
    const int count = std::uniform_int_distribution<int>(3, 9)(random);
    for (int i = 0; i < count; ++i) {
      const auto number = [&] { return static_cast<double>(std::uniform_int_distribution<int>(0, 5)(random)); };
      const Point point(number(), number());
      if (ring.empty() || !(ring.back() == point)) ring.push_back(point);
    }
    while (ring.size() > 1 && ring.back() == ring.front()) ring.pop_back();
    if (ring.size() < 3) continue;
    bool found = false;
    for (std::size_t i = 0; i < ring.size(); ++i) {
      for (std::size_t k = i + 1; k < ring.size(); ++k) {
        found = found || meet(ring[i], ring[(i + 1) % ring.size()], ring[k], ring[(k + 1) % ring.size()]);
      }
    }
    const bool ours = Polygon(ring).IsSelfIntersecting();
    // Where edges only touch, the ring may still go across itself there: the loop doesn't see that.
    if (found) {
      ASSERT_TRUE(ours) << round;
    }
    if (!ours) {
      ASSERT_FALSE(found) << round;
    }
    ++(ours ? crossing : free);
  }
  EXPECT_GT(crossing, 1000);
  EXPECT_GT(free, 1000);
}

TEST(PolyClipLine, VertexThatUnderflowsIsAtTheOrigin) {
  PolyClipLine polygon;
  for (const Point& point : Ring{{0, 2.5e-162}, {9e-162, 0}, {2e-300, 3e-162}}) polygon.AddElem(point);
  EXPECT_FALSE(polygon.IsValid());
  const PolyClipLine ring = Polygon({{-1e-320, 5e-324}, {4, 1e-310}, {4, 3}});
  EXPECT_TRUE(ring.IsPointInPoly({0, 0}));
  EXPECT_EQ(ring.GetArea(), 6);
}

TEST(PolyClipLine, CutThatAHoleTakesWhollyIsNone) {
  PolyClipLine polygon;
  polygon.AddRing({{-0.1, -7}, {19.7, -9}, {19, 29.3}, {-9, 29}}, false);
  polygon.AddRing(Rectangle(1.1, 1.3, 9.7, 9.9), true);
  PolyClipLine cut = Polygon(Rectangle(0, 0, 1, 1));
  EXPECT_FALSE(polygon.ClipToPage(Page(2.1, 2.7, 3.3, 5.1), cut));
  EXPECT_TRUE(cut.IsEmpty());
  EXPECT_TRUE(polygon.ClipToPage(Page(9, 9, 10, 10), cut));
  EXPECT_NEAR(cut.GetArea(), 1 - 0.7 * 0.9, 1e-12);
}

/// Whether the surfaces of two triangles have anything in common: what the second leaves of the first, cut edge by
/// edge.
bool HaveCommonSurface(Ring first, Ring second) {
  const auto side = [](const Point& a, const Point& b, const Point& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
  };
  if (side(second[0], second[1], second[2]) < 0) std::swap(second[0], second[1]);
  for (std::size_t i = 0; i < 3; ++i) {
    const Point& from = second[i];
    const Point& to = second[(i + 1) % 3];
    Ring left;
    for (std::size_t k = 0; k < first.size(); ++k) {
      const Point& a = first[k];
      const Point& b = first[(k + 1) % first.size()];
      const double atA = side(from, to, a);
      const double atB = side(from, to, b);
      if (atA >= 0) left.push_back(a);
      if (atA * atB < 0) left.push_back({a.x + (b.x - a.x) * atA / (atA - atB), a.y + (b.y - a.y) * atA / (atA - atB)});
    }
    first = left;
  }
  double twice = 0;
  for (std::size_t k = 1; k + 1 < first.size(); ++k) twice += side(first[0], first[k], first[k + 1]);
  return std::fabs(twice) > 1e-9;
}

// Small whole numbers, so that vertices and edges lie on each other all the time.
TEST(PolyClipLine, OverlapAgreesWithTheCommonSurfaceOfEveryPair) {
  std::mt19937_64 random(20260109);
  const auto number = [&] { return static_cast<double>(std::uniform_int_distribution<int>(0, 6)(random)); };
  int overlapping = 0;
  int apart = 0;
  for (int round = 0; round < 20'000; ++round) {
    PolyClipLine polygon;
    std::vector<Ring> rings;
    while (rings.size() < 2 + static_cast<std::size_t>(round) % 3) {
      const Ring ring = {{number(), number()}, {number(), number()}, {number(), number()}};
      if (Polygon(ring).GetArea() == 0) continue;
      rings.push_back(ring);
      polygon.AddRing(ring, false);
    }
    bool wanted = false;
    for (std::size_t i = 0; i < rings.size(); ++i) {
      for (std::size_t k = 0; k < i; ++k) wanted = wanted || HaveCommonSurface(rings[i], rings[k]);
    }
    PolyClipFault overlap;
    ASSERT_EQ(polygon.FindOverlap(overlap), wanted) << round;
    ++(wanted ? overlapping : apart);
    if (!wanted) continue;
    EXPECT_EQ(overlap.kind, Kind::kOverlap);
    EXPECT_NE(overlap.ring, overlap.other);
  }
  EXPECT_GT(overlapping, 1000);
  EXPECT_GT(apart, 1000);
}

TEST(PolyClipLine, HolesAndWhatFillsThemDontOverlap) {
  const Ring hole = {{1, 1}, {9, 2}, {8, 8}, {5, 3}, {2, 9}};
  PolyClipLine filled;
  filled.AddRing(Rectangle(0, 0, 10, 10), false);
  filled.AddRing(hole, true);
  filled.AddRing(Backwards(hole), false);
  filled.AddRing(Rectangle(10, 3, 12, 5), false);
  PolyClipFault overlap;
  EXPECT_FALSE(filled.FindOverlap(overlap));
  EXPECT_EQ(overlap.kind, Kind::kNone);
  filled.AddRing(Rectangle(4, 0.5, 5, 0.75), false);
  ASSERT_TRUE(filled.FindOverlap(overlap));
  EXPECT_EQ(overlap.Text(), L"ring 5: overlaps ring 1 at 4, 0.5");
}

TEST(PolyClipLine, FirstFaultHasItsKindRingAndPlace) {
  PolyClipFault fault;
  PolyClipLine polygon = Lake();
  EXPECT_FALSE(polygon.FindFault(fault));
  EXPECT_EQ(fault.kind, Kind::kNone);

  polygon.AddRing({{30, 30}, {32, 32}, {32, 30}, {30, 32}}, false);
  ASSERT_TRUE(polygon.FindFault(fault));
  EXPECT_EQ(fault.kind, Kind::kSelfIntersecting);
  EXPECT_EQ(fault.ring, L"ring 5");
  EXPECT_EQ(fault.at, Point(31, 31));
  EXPECT_EQ(fault.Text(), L"ring 5: intersects itself at 31, 31");

  polygon.AddRing({{40, 40}, {41, 41}}, false);
  ASSERT_TRUE(polygon.FindFault(fault));
  EXPECT_EQ(fault.kind, Kind::kTooFewPoints);
  EXPECT_EQ(fault.Text(), L"ring 6: has fewer than three different points");

  PolyClipLine endless = Polygon({{0, 0}, {1, 0}, {1, kInfinity}});
  ASSERT_TRUE(endless.FindFault(fault));
  EXPECT_EQ(fault.kind, Kind::kNotFinite);
  EXPECT_EQ(fault.Text(), L"ring 1: has a coordinate that is no number or beyond 1e12, in the vertex 1, inf");
  EXPECT_FALSE(endless.IsSelfIntersecting());
}

}  // namespace
}  // namespace vak
