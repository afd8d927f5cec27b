#include <algorithm>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/geometry/PolyClipper.h"

namespace vak {
namespace {

using Cover = PolyClipper::Cover;
using Ring = std::vector<Point>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Ring Backwards(const Ring& ring) { return {ring.rbegin(), ring.rend()}; }

Ring Moved(Ring ring, double dx, double dy) {
  for (Point& point : ring) point += {dx, dy};
  return ring;
}

/// Cuts by the stream. @return whether anything is left.
bool Stream(PolyClipper& clipper, const Ring& ring) {
  if (!clipper.InitPoly()) return false;
  bool first = true;
  for (const Point& point : ring) {
    if (!clipper.AddPoint(point, std::exchange(first, false))) return false;
  }
  return clipper.ProcessPoly() && clipper.ClipOtherSides();
}

void Store(PolyClipper& clipper, const Ring& ring) {
  clipper.ResetOutputList();
  bool first = true;
  for (const Point& point : ring) clipper.StoreOutputPoint(point, std::exchange(first, false));
}

/// The output list as text: vertices in order, a '|' before each that begins a ring.
std::string Output(const PolyClipper& clipper) {
  std::string text;
  for (int i = 0; i < clipper.GetOutputSize(); ++i) {
    const Point point = clipper.GetOutputPoint(i);
    const auto number = [](double value) {
      std::string digits = std::to_string(value);
      digits.erase(digits.find_last_not_of('0') + 1);
      if (digits.back() == '.') digits.pop_back();
      return digits;
    };
    if (clipper.GetOutputFlag(i)) text += '|';
    text += number(point.x) + ',' + number(point.y);
    if (point.z != 0) text += ',' + number(point.z);
    text += ' ';
  }
  return text;
}

struct AreaCase {
  const char* name;
  Ring ring;
  double area;
  Cover cover;
};

/// All on the page from (0, 0) to (4, 4).
const std::vector<AreaCase>& AreaCases() {
  static const std::vector<AreaCase> cases = {
      {"inside it", {{1, 1}, {3, 1}, {3, 2}, {1, 2}}, 2, Cover::kPartly},
      {"around it", {{-1, -1}, {9, -1}, {9, 9}, {-1, 9}}, 16, Cover::kInside},
      {"the page itself", {{0, 0}, {4, 0}, {4, 4}, {0, 4}}, 16, Cover::kInside},
      {"shares three edges", {{0, 0}, {9, 0}, {9, 4}, {0, 4}}, 16, Cover::kInside},
      {"beside it", {{5, 0}, {9, 0}, {9, 4}, {5, 4}}, 0, Cover::kOutside},
      {"touches an edge from outside", {{4, 0}, {9, 0}, {9, 4}, {4, 4}}, 0, Cover::kOutside},
      {"touches a corner from outside", {{4, 4}, {9, 4}, {9, 9}}, 0, Cover::kOutside},
      {"passes a corner slantwise from outside", {{6, 2}, {9, 9}, {2, 6}}, 0, Cover::kOutside},
      {"a corner inside", {{2, 2}, {9, 2}, {9, 9}, {2, 9}}, 4, Cover::kPartly},
      {"all vertices outside, edges through", {{-2, 1}, {6, 1}, {6, 3}, {-2, 3}}, 8, Cover::kPartly},
      {"a diamond over all corners", {{2, -2}, {6, 2}, {2, 6}, {-2, 2}}, 16, Cover::kInside},
      {"a diamond through the middles", {{2, 0}, {4, 2}, {2, 4}, {0, 2}}, 8, Cover::kPartly},
      {"half, along the diagonal", {{0, 0}, {4, 4}, {0, 4}}, 8, Cover::kPartly},
      {"a horseshoe, legs in the page",
       {{1, -1}, {1, 3}, {2, 3}, {2, -2}, {3, -2}, {3, 3}, {3.5, 3}, {3.5, -3}, {1, -3}},
       3 + 1.5,
       Cover::kPartly},
      {"a horseshoe around it",
       {{-1, -1}, {-1, 9}, {9, 9}, {9, -1}, {8, -1}, {8, 8}, {-0.5, 8}, {-0.5, -1}},
       0,
       Cover::kOutside},
      {"touches itself in a vertex", {{0, 0}, {2, 2}, {4, 0}, {4, 4}, {2, 2}, {0, 4}}, 8, Cover::kPartly},
      {"runs forth and back along a line", {{1, 1}, {3, 1}, {3, 3}, {3, 1}, {3, 3}, {1, 3}}, 4, Cover::kPartly},
      {"around it, with a spike into it",
       {{-1, -1}, {9, -1}, {9, 2}, {3, 2}, {9, 2}, {9, 9}, {-1, 9}},
       16,
       Cover::kInside},
      {"beside it, with a spike into it", {{5, 0}, {9, 0}, {9, 9}, {5, 9}, {1, 3}, {5, 9}}, 0, Cover::kOutside},
      {"a line", {{1, 1}, {3, 3}}, 0, Cover::kOutside},
      {"a line through it", {{-1, -1}, {6, 6}, {5, 5}}, 0, Cover::kOutside},
      {"a point", {{1, 1}}, 0, Cover::kOutside},
      {"the same vertex again and again", {{1, 1}, {1, 1}, {3, 1}, {3, 1}, {3, 3}, {3, 3}, {1, 1}}, 2, Cover::kPartly},
  };
  return cases;
}

TEST(PolyClipper, SurfaceIsWhatTheRingAndThePageHaveInCommon) {
  for (const AreaCase& one : AreaCases()) {
    SCOPED_TRACE(one.name);
    for (const auto& [dx, dy] : {std::pair(0.0, 0.0), std::pair(4096.0, -512.0), std::pair(512'000.0, 5'402'000.0)}) {
      SCOPED_TRACE(dx);
      const Page page(dx, dy, dx + 4, dy + 4);
      for (const Ring& ring : {Moved(one.ring, dx, dy), Backwards(Moved(one.ring, dx, dy))}) {
        PolyClipper stream;
        stream.SetPage(page);
        Stream(stream, ring);
        EXPECT_EQ(stream.Area(), one.area);
        PolyClipper list;
        list.SetPage(page);
        Store(list, ring);
        EXPECT_TRUE(list.DoPolyClip(false));
        EXPECT_EQ(list.Area(), one.area);
        EXPECT_EQ(stream.GetCover(), one.cover);
        EXPECT_EQ(list.GetCover(), one.cover);
      }
    }
  }
}

TEST(PolyClipper, RingThatRepeatsItsFirstVertexIsTheSame) {
  for (const AreaCase& one : AreaCases()) {
    SCOPED_TRACE(one.name);
    PolyClipper clipper;
    clipper.SetPage(Page(0, 0, 4, 4));
    Ring closed = one.ring;
    closed.push_back(closed.front());
    Stream(clipper, closed);
    EXPECT_EQ(clipper.Area(), one.area);
  }
}

TEST(PolyClipper, WhereTheRingBeginsDoesntMatter) {
  for (const AreaCase& one : AreaCases()) {
    SCOPED_TRACE(one.name);
    Ring ring = one.ring;
    for (std::size_t i = 0; i < one.ring.size(); ++i) {
      std::rotate(ring.begin(), ring.begin() + 1, ring.end());
      PolyClipper clipper;
      clipper.SetPage(Page(0, 0, 4, 4));
      Stream(clipper, ring);
      EXPECT_EQ(clipper.Area(), one.area);
    }
  }
}

// 3 x 0.1 is 0.30000000000000004: the square ends one unit in the last place before the cell does, or begins one
// behind.
TEST(PolyClipper, RoundedPageEdgesGiveAllOrNothing) {
  const double cell = 0.1;
  for (int row = -40; row < 40; ++row) {
    for (int col = -40; col < 40; ++col) {
      const auto tenth = [](int count) { return count / 10.0; };  // the nearest to the decimal number
      const Ring square = {{tenth(col), tenth(row)},
                           {tenth(col + 1), tenth(row)},
                           {tenth(col + 1), tenth(row + 1)},
                           {tenth(col), tenth(row + 1)}};
      for (int r = row - 1; r <= row + 1; ++r) {
        for (int c = col - 1; c <= col + 1; ++c) {
          PolyClipper clipper;
          clipper.SetPage(Page(c * cell, r * cell, c * cell + cell, r * cell + cell));
          const bool left = Stream(clipper, square);
          const bool same = r == row && c == col;
          ASSERT_EQ(left, same) << row << ' ' << col << ' ' << r << ' ' << c;
          ASSERT_EQ(clipper.GetCover(), same ? Cover::kInside : Cover::kOutside);
          ASSERT_EQ(clipper.Area(), same ? clipper.GetPage().Area() : 0.0);
        }
      }
    }
  }
}

// A slanted edge through the corners of cells touches those on both sides of the diagonal and enters none of them, also
// after it was cut to the area and the row, which moves its ends by a rounding.
TEST(PolyClipper, EdgeThroughCornersEntersNoCellBesideTheDiagonal) {
  for (const double cell : {1.0, 0.1, 0.3}) {
    SCOPED_TRACE(cell);
    const double far = 30'000 * cell;
    const Ring half = {{-far, -far}, {far, far}, {-far, far}};
    PolyClipper area;
    area.SetPage(Page(-32 * cell, -32 * cell, 32 * cell, 32 * cell));
    ASSERT_TRUE(Stream(area, half));
    area.SetReach(Page(-far, -far, far, far));
    for (int row = -32; row < 32; ++row) {
      PolyClipper rows;
      rows.SetPage(Page(-32 * cell, row * cell, 32 * cell, row * cell + cell));
      ASSERT_TRUE(rows.ClipResultOf(area));
      for (int col = -32; col < 32; ++col) {
        PolyClipper clipper;
        clipper.SetPage(Page(col * cell, row * cell, col * cell + cell, row * cell + cell));
        clipper.ClipResultOf(rows);
        const Cover wanted = col < row ? Cover::kInside : col == row ? Cover::kPartly : Cover::kOutside;
        ASSERT_EQ(clipper.GetCover(), wanted) << row << ' ' << col;
      }
    }
  }
}

TEST(PolyClipper, HoleCountsNegative) {
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  clipper.ResetOutputList();
  for (const auto& [x, y] : {std::pair(-1.0, -1.0), std::pair(9.0, -1.0), std::pair(9.0, 9.0), std::pair(-1.0, 9.0)}) {
    clipper.StoreOutputPoint({x, y}, x == -1 && y == -1);
  }
  clipper.SetHole(true);
  clipper.StoreOutputPoint({1, 1}, true);
  clipper.StoreOutputPoint({3, 1}, false);
  clipper.StoreOutputPoint({3, 3}, false);
  clipper.StoreOutputPoint({1, 3}, false);
  EXPECT_TRUE(clipper.DoPolyClip(false));
  EXPECT_EQ(clipper.Area(), 12);
  // Once more, of the result: the hole is still one.
  clipper.SetPage(Page(0, 0, 2, 2));
  EXPECT_TRUE(clipper.DoPolyClip(false));
  EXPECT_EQ(clipper.Area(), 3);
}

TEST(PolyClipper, HoleOverAllOfThePageLeavesNothingOfTheRingAroundIt) {
  PolyClipLine lake;
  lake.AddRing({{-9, -9}, {9, -9}, {9, 9}, {-9, 9}}, false);
  lake.AddRing({{-2, -2}, {5, -2}, {5, 5}, {-2, 5}}, true);
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  EXPECT_FALSE(lake.FillPolyClipper(clipper));
  EXPECT_EQ(clipper.Area(), 0);
  EXPECT_EQ(clipper.GetCover(), Cover::kOutside);
  EXPECT_EQ(clipper.GetOutputSize(), 0);
}

TEST(PolyClipper, OutputIsTheClippedRingWithoutRepetitions) {
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  Store(clipper, {{1, 1}, {3, 1}, {3, 3}, {1, 1}});
  EXPECT_TRUE(clipper.DoPolyClip(false));
  EXPECT_EQ(Output(clipper), "|1,1 3,1 3,3 ");
  Store(clipper, {{2, 2}, {9, 2}, {9, 9}, {2, 9}});
  EXPECT_TRUE(clipper.DoPolyClip(false));
  EXPECT_EQ(clipper.GetOutputSize(), 4);
  EXPECT_EQ(clipper.Area(), 4);
}

TEST(PolyClipper, EveryRingOfTheOutputBeginsWithAFlag) {
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  clipper.ResetOutputList();
  clipper.StoreOutputPoint({0, 0}, true);
  clipper.StoreOutputPoint({1, 0}, false);
  clipper.StoreOutputPoint({1, 1}, false);
  clipper.StoreOutputPoint({8, 8}, true);  // nothing of this one is left
  clipper.StoreOutputPoint({9, 8}, false);
  clipper.StoreOutputPoint({9, 9}, false);
  clipper.StoreOutputPoint({3, 3}, true);
  clipper.StoreOutputPoint({4, 3}, false);
  clipper.StoreOutputPoint({4, 4}, false);
  EXPECT_TRUE(clipper.DoPolyClip(false));
  EXPECT_EQ(Output(clipper), "|0,0 1,0 1,1 |3,3 4,3 4,4 ");
  EXPECT_EQ(clipper.Area(), 1);
}

TEST(PolyClipper, FirstStoredPointBeginsARingWhateverItsFlag) {
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  clipper.ResetOutputList();
  for (const Point& point : Ring{{0, 0}, {4, 0}, {0, 4}}) clipper.StoreOutputPoint(point, false);
  EXPECT_TRUE(clipper.DoPolyClip(false));
  EXPECT_TRUE(clipper.GetOutputFlag(0));
  EXPECT_EQ(clipper.Area(), 8);
}

TEST(PolyClipper, HeightIsInterpolatedAtNewVertices) {
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  Store(clipper, {{2, 2, 10}, {10, 2, 18}, {2, 10, 26}});  // z = x + 2 y + 4
  EXPECT_TRUE(clipper.DoPolyClip(true));
  ASSERT_EQ(clipper.GetOutputSize(), 4);
  for (int i = 0; i < 4; ++i) {
    const Point point = clipper.GetOutputPoint(i);
    EXPECT_EQ(point.z, point.x + 2 * point.y + 4) << point.x << ' ' << point.y;
  }
  Store(clipper, {{2, 2, 10}, {10, 2, 18}, {2, 10, 26}});
  EXPECT_TRUE(clipper.DoPolyClip(false));
  for (int i = 0; i < clipper.GetOutputSize(); ++i) {
    const Point point = clipper.GetOutputPoint(i);
    EXPECT_EQ(point.z, point.x == 2 && point.y == 2 ? 10 : 0);
  }
}

TEST(PolyClipper, HeightAtThePagesCornersComesFromTheTriangleAroundIt) {
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  Store(clipper, {{-100, -100, -300}, {200, -100, 0}, {-100, 200, 300}});  // z = x + 2 y
  EXPECT_TRUE(clipper.DoPolyClip(true));
  EXPECT_EQ(clipper.GetCover(), Cover::kInside);
  ASSERT_EQ(clipper.GetOutputSize(), 4);
  double sum = 0;
  for (int i = 0; i < 4; ++i) sum += clipper.GetOutputPoint(i).z;
  EXPECT_NEAR(sum / 4, 6, 1e-12);
}

TEST(PolyClipper, NothingLeftIsNoFailureOfTheListAndEndsTheStream) {
  PolyClipper clipper;
  clipper.SetPage(Page(0, 0, 4, 4));
  Store(clipper, {{8, 8}, {9, 8}, {9, 9}});
  EXPECT_TRUE(clipper.DoPolyClip(true));
  EXPECT_EQ(clipper.GetOutputSize(), 0);

  ASSERT_TRUE(clipper.InitPoly());
  for (const Point& point : Ring{{8, 8}, {9, 8}, {9, 9}}) EXPECT_TRUE(clipper.AddPoint(point, false));
  EXPECT_FALSE(clipper.ProcessPoly());
  EXPECT_FALSE(clipper.ClipOtherSides());

  // Beside the page, at its height: what is left after the first cut goes with the second.
  ASSERT_TRUE(clipper.InitPoly());
  for (const Point& point : Ring{{5, 1}, {-5, 6}, {5, 6}}) EXPECT_TRUE(clipper.AddPoint(point, false));
  EXPECT_TRUE(clipper.ProcessPoly());
  EXPECT_TRUE(clipper.ClipOtherSides());
}

TEST(PolyClipper, EmptyListGivesAnEmptyResult) {
  PolyClipper clipper;
  EXPECT_EQ(clipper.Area(), 0);
  clipper.SetPage(Page(0, 0, 4, 4));
  clipper.ResetOutputList();
  EXPECT_TRUE(clipper.DoPolyClip(false));
  EXPECT_EQ(clipper.GetOutputSize(), 0);
  ASSERT_TRUE(clipper.InitPoly());
  EXPECT_FALSE(clipper.ProcessPoly());
}

TEST(PolyClipper, PageWithoutSurfaceLetsNothingThrough) {
  const std::vector<std::pair<const char*, Page>> pages = {{"never set", Page()},
                                                           {"flat", Page(0, 0, 4, 0)},
                                                           {"thin", Page(0, 0, 0, 4)},
                                                           {"the wrong way round", Page(4, 0, 0, 4)},
                                                           {"not a number", Page(0, 0, kNaN, 4)},
                                                           {"endless", Page(0, 0, kInfinity, 4)},
                                                           {"too large for products", Page(0, 0, 1e200, 1e200)}};
  for (const auto& [name, page] : pages) {
    SCOPED_TRACE(name);
    PolyClipper clipper;
    clipper.SetPage(page);
    EXPECT_FALSE(clipper.InitPoly());
    EXPECT_FALSE(clipper.AddPoint({1, 1}, true));
    EXPECT_FALSE(clipper.ProcessPoly());
    EXPECT_FALSE(clipper.ClipOtherSides());
    Store(clipper, {{0, 0}, {4, 0}, {0, 4}});
    EXPECT_FALSE(clipper.DoPolyClip(false));
    EXPECT_EQ(clipper.GetOutputSize(), 0);
    PolyClipper wide;
    wide.SetPage(Page(0, 0, 4, 4));
    Stream(wide, {{0, 0}, {4, 0}, {0, 4}});
    EXPECT_FALSE(clipper.ClipResultOf(wide));
    EXPECT_EQ(clipper.Area(), 0);
  }
}

TEST(PolyClipper, CoordinatesThatAreNoNumbersAreRefused) {
  for (const Point& bad :
       {Point(kNaN, 0), Point(0, kNaN), Point(kInfinity, 0), Point(0, -kInfinity), Point(1e101, 0)}) {
    PolyClipper clipper;
    clipper.SetPage(Page(0, 0, 4, 4));
    ASSERT_TRUE(clipper.InitPoly());
    EXPECT_TRUE(clipper.AddPoint({0, 0}, true));
    EXPECT_FALSE(clipper.AddPoint(bad, false));
    EXPECT_TRUE(clipper.AddPoint({4, 0}, false));
    EXPECT_TRUE(clipper.AddPoint({0, 4}, false));
    EXPECT_TRUE(clipper.ProcessPoly());
    EXPECT_TRUE(clipper.ClipOtherSides());
    EXPECT_EQ(clipper.Area(), 8);
    Store(clipper, {{0, 0}, {4, 0}, bad});
    EXPECT_FALSE(clipper.DoPolyClip(false));
    EXPECT_EQ(clipper.GetOutputSize(), 0);
  }
}

TEST(PolyClipper, OutputOnThePagesEdgesHasThePagesCoordinates) {
  const double cell = 0.1;
  const Page page(5'000'003 * cell, 54'000'007 * cell, 5'000'003 * cell + cell, 54'000'007 * cell + cell);
  PolyClipper clipper;
  clipper.SetPage(page);
  ASSERT_TRUE(Stream(clipper, {{0, 0}, {9e6, 0}, {9e6, 9e6}, {0, 9e6}}));
  ASSERT_EQ(clipper.GetOutputSize(), 4);
  for (int i = 0; i < 4; ++i) {
    const Point point = clipper.GetOutputPoint(i);
    EXPECT_TRUE(point.x == page.left() || point.x == page.right());
    EXPECT_TRUE(point.y == page.bottom() || point.y == page.top());
  }
}

// What one clipper has left of a ring, cut further by another, is what this one would leave of the ring: the way of the
// row and the cell, and that of storing the output points in another clipper.
TEST(PolyClipper, CutsCanFollowEachOther) {
  Ring star;
  for (int i = 0; i < 40; ++i) {
    const double radius = i % 2 == 0 ? 30 : 11.3;
    star.push_back({32.2 + radius * std::cos(i * 0.157079632679), 31.7 + radius * std::sin(i * 0.157079632679)});
  }
  double all = 0;
  for (int row = 0; row < 64; ++row) {
    PolyClipper rows;
    rows.SetPage(Page(0, row, 64, row + 1));
    Stream(rows, star);
    for (int col = 0; col < 64; ++col) {
      const Page cell(col, row, col + 1, row + 1);
      PolyClipper direct;
      direct.SetPage(cell);
      Stream(direct, star);
      PolyClipper further;
      further.SetPage(cell);
      further.ClipResultOf(rows);
      ASSERT_NEAR(further.Area(), direct.Area(), 1e-13);
      ASSERT_EQ(further.GetCover(), direct.GetCover());
      PolyClipper stored;
      stored.SetPage(cell);
      stored.ResetOutputList();
      for (int i = 0; i < rows.GetOutputSize(); ++i) {
        stored.StoreOutputPoint(rows.GetOutputPoint(i), rows.GetOutputFlag(i));
      }
      ASSERT_TRUE(stored.DoPolyClip(false));
      ASSERT_NEAR(stored.Area(), direct.Area(), 1e-13);
      all += direct.Area();
    }
  }
  PolyClipLine ring;
  ring.AddRing(star, false);
  EXPECT_NEAR(all, ring.GetArea(), 1e-10);
}

TEST(PolyClipper, SurfaceNeverLeavesItsBounds) {
  // A needle along an edge of the page, a billion times as long as the page is wide.
  for (const double y : {1e-12, 1e-9, 0.5, 4 - 1e-9}) {
    PolyClipper clipper;
    clipper.SetPage(Page(0, 0, 4, 4));
    Stream(clipper, {{-4e9, -1e9}, {4e9, y}, {4e9, 1e9}, {-4e9, 1e9}});
    EXPECT_GE(clipper.Area(), 0);
    EXPECT_LE(clipper.Area(), 16);
  }
}

}  // namespace
}  // namespace vak
