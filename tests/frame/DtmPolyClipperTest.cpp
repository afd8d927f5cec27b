#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmEsriPolyClipper.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using Ring = std::vector<Point>;
using test::TestGrid;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Ring Rectangle(double x0, double y0, double x1, double y1) { return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}; }

PolyClipLine Polygon(const Ring& ring) {
  PolyClipLine polygon;
  polygon.AddRing(ring, false);
  return polygon;
}

double AreaWeight(DtmPolyClipper& clipper, int row, int col, double weight) {
  EXPECT_TRUE(clipper.ProcessArea(row, col, weight));
  return weight;
}

double CellWeight(DtmPolyClipper& clipper, int row, int col, double weight = 1) {
  EXPECT_TRUE(clipper.ProcessCell(row, col, weight));
  return weight;
}

double PointWeight(DtmPolyClipper& clipper, double row, double col, double weight = 1) {
  EXPECT_TRUE(clipper.PipFractionalCell(row, col, weight));
  return weight;
}

/// One that a test can hand on.
struct Begun final : DtmPolyClipper {
  using DtmPolyClipper::DtmPolyClipper;
};

/// A model of cells of 1 m in areas of 4 x 4, and clippers that have begun a walk over it.
class DtmPolyClipperInModel : public testing::Test {
 protected:
  Begun Begin(const PolyClipLine& polygon, bool centrePoint = false, bool inverted = false) {
    Begun clipper(polygon, centrePoint, inverted);
    EXPECT_TRUE(clipper.Init(grid_.Access()));
    return clipper;
  }

  TestGrid grid_;
};

TEST_F(DtmPolyClipperInModel, AreaInsideWeighsItsSurfaceAndLeavesItsCellsAlone) {
  for (const bool centrePoint : {false, true}) {
    Begun clipper = Begin(Polygon(Rectangle(-10, -10, 10, 10)), centrePoint);
    EXPECT_EQ(AreaWeight(clipper, 0, 0, 3), 16);
    EXPECT_EQ(CellWeight(clipper, 0, 0, 0.25), 0.25);
    EXPECT_EQ(CellWeight(clipper, 3, 3, 0.5), 0.5);
    EXPECT_EQ(PointWeight(clipper, 100.5, 100.5, 0.75), 0.75);  // no geometry at all
  }
}

TEST_F(DtmPolyClipperInModel, AreaOutsideWeighsNothingAndInvertedAllOfIt) {
  for (const bool centrePoint : {false, true}) {
    Begun clipper = Begin(Polygon(Rectangle(0, 0, 4, 4)), centrePoint);
    EXPECT_EQ(AreaWeight(clipper, 0, 8, 16), 0);
    EXPECT_EQ(AreaWeight(clipper, 0, 4, 16), 0);  // touches
    EXPECT_EQ(CellWeight(clipper, 0, 4), 0);
    EXPECT_EQ(PointWeight(clipper, 0, 4), 0);
    Begun inverted = Begin(Polygon(Rectangle(0, 0, 4, 4)), centrePoint, true);
    EXPECT_EQ(AreaWeight(inverted, 0, 4, 16), 16);
    EXPECT_EQ(CellWeight(inverted, 0, 4, 0.5), 0.5);
    EXPECT_EQ(AreaWeight(inverted, 0, 0, 16), 0);
    EXPECT_EQ(CellWeight(inverted, 0, 0), 0);
  }
}

TEST_F(DtmPolyClipperInModel, CellHalfCoveredWeighsHalf) {
  const PolyClipLine polygon = Polygon(Rectangle(0, 0, 2.5, 4));
  Begun exact = Begin(polygon);
  EXPECT_EQ(AreaWeight(exact, 0, 0, 16), 10);
  EXPECT_EQ(CellWeight(exact, 1, 1, 0.125), 1);
  EXPECT_EQ(CellWeight(exact, 1, 2, 0.125), 0.5);
  EXPECT_EQ(CellWeight(exact, 1, 3, 0.125), 0);
  Begun inverted = Begin(polygon, false, true);
  EXPECT_EQ(AreaWeight(inverted, 0, 0, 16), 6);
  EXPECT_EQ(CellWeight(inverted, 1, 1), 0);
  EXPECT_EQ(CellWeight(inverted, 1, 2), 0.5);
  EXPECT_EQ(CellWeight(inverted, 1, 3), 1);
}

TEST_F(DtmPolyClipperInModel, CentrePointCountsACellInWholeOrNotAtAll) {
  const PolyClipLine polygon = Polygon(Rectangle(0, 0, 2.75, 1.25));
  Begun clipper = Begin(polygon, true);
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 2.75 * 1.25);
  EXPECT_EQ(CellWeight(clipper, 0, 2, 0.25), 0.25);
  EXPECT_EQ(CellWeight(clipper, 0, 3, 0.25), 0);
  EXPECT_EQ(CellWeight(clipper, 1, 0, 0.25), 0);
  Begun inverted = Begin(polygon, true, true);
  EXPECT_EQ(AreaWeight(inverted, 0, 0, 16), 16 - 2.75 * 1.25);
  EXPECT_EQ(CellWeight(inverted, 0, 2, 0.25), 0);
  EXPECT_EQ(CellWeight(inverted, 0, 3, 0.25), 0.25);
}

// A centre on the edge between two polygons is in exactly one of them.
TEST_F(DtmPolyClipperInModel, CentreOnALowerOrLeftEdgeIsInside) {
  Begun lower = Begin(Polygon(Rectangle(0.5, 0.5, 2.5, 2.5)), true);
  EXPECT_EQ(CellWeight(lower, 0, 0), 1);
  EXPECT_EQ(CellWeight(lower, 0, 2), 0);
  EXPECT_EQ(CellWeight(lower, 2, 0), 0);
  Begun right = Begin(Polygon(Rectangle(2.5, 0.5, 3.5, 2.5)), true);
  EXPECT_EQ(CellWeight(right, 0, 2), 1);
}

TEST_F(DtmPolyClipperInModel, FractionalCellIsTestedByItsPointInEitherMode) {
  for (const bool centrePoint : {false, true}) {
    Begun clipper = Begin(Polygon(Rectangle(1, 1, 3, 3)), centrePoint);
    EXPECT_EQ(PointWeight(clipper, 0.5, 0.5), 1);  // the point (1, 1)
    EXPECT_EQ(PointWeight(clipper, 0.49, 0.5), 0);
    EXPECT_EQ(PointWeight(clipper, 2.49, 2.49), 1);
    EXPECT_EQ(PointWeight(clipper, 2.5, 1), 0);
    Begun inverted = Begin(Polygon(Rectangle(1, 1, 3, 3)), centrePoint, true);
    EXPECT_EQ(PointWeight(inverted, 0.5, 0.5), 0);
    EXPECT_EQ(PointWeight(inverted, 0.49, 0.5), 1);
  }
}

TEST_F(DtmPolyClipperInModel, FractionalCellInAnAreaOutsideWeighsNothingWithoutATest) {
  Begun clipper = Begin(Polygon(Rectangle(0, 0, 4, 4)), false, true);
  EXPECT_EQ(AreaWeight(clipper, 0, 4, 16), 16);
  EXPECT_EQ(PointWeight(clipper, 1, 1), 1);  // of another area: the current one decides
}

TEST_F(DtmPolyClipperInModel, PolygonWithoutRingsLetsEverythingThrough) {
  for (const bool centrePoint : {false, true}) {
    Begun clipper = Begin(PolyClipLine(), centrePoint);
    EXPECT_EQ(CellWeight(clipper, 7, 7, 0.25), 0.25);  // before any area
    EXPECT_EQ(PointWeight(clipper, 7, 7, 0.25), 0.25);
    EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 16);
    EXPECT_EQ(CellWeight(clipper, 0, 0, 0.25), 0.25);
    EXPECT_EQ(AreaWeight(clipper, 0, 0, 5), 5);  // as a walker of a rectangle announces it
    EXPECT_EQ(CellWeight(clipper, 0, 0, 0.25), 0.25);
    EXPECT_EQ(PointWeight(clipper, 0, 0, 0.25), 0.25);
    Begun inverted = Begin(PolyClipLine(), centrePoint, true);
    EXPECT_EQ(CellWeight(inverted, 7, 7, 1), 0);
    EXPECT_EQ(PointWeight(inverted, 7, 7, 1), 0);
    EXPECT_EQ(AreaWeight(inverted, 0, 0, 16), 0);
    EXPECT_EQ(CellWeight(inverted, 0, 0, 1), 0);
  }
}

TEST_F(DtmPolyClipperInModel, InitRefusesAnInvalidPolygon) {
  for (const Ring& ring :
       {Ring{{0, 0}, {1, 1}}, Ring{{0, 0}, {1, 1}, {0, 0}, {1, 1}}, Ring{{0, 0}, {1, 1}, {kNaN, 2}}}) {
    EXPECT_FALSE(DtmPolyClipper(Polygon(ring), false, false).Init(grid_.Access()));
    EXPECT_FALSE(DtmEsriPolyClipper(Polygon(ring)).Init(grid_.Access()));
  }
}

TEST(DtmPolyClipper, WithoutAFileThereIsNoWalk) {
  DtmAccess nowhere(nullptr);
  const PolyClipLine polygon = Polygon({{0, 0}, {4, 0}, {4, 4}});
  EXPECT_FALSE(DtmPolyClipper(polygon, false, false).ProcessAllCells(nowhere));
  EXPECT_FALSE(DtmEsriPolyClipper(polygon).ProcessRect(nowhere, {0, 0, 4, 4}));
}

TEST_F(DtmPolyClipperInModel, CellsAreRightWithoutAnyArea) {
  const PolyClipLine polygon = Polygon({{-3, -3}, {6, -3}, {6, 6}});
  Begun clipper = Begin(polygon);
  for (int row = 7; row >= -5; --row) {
    for (int col = -5; col <= 7; ++col) {
      const bool outside = row < -3 || row > 5 || col < -3 || col > 5 || row > col;
      EXPECT_EQ(CellWeight(clipper, row, col), outside ? 0 : row == col ? 0.5 : 1) << row << ' ' << col;
    }
  }
}

TEST_F(DtmPolyClipperInModel, CellsOutsideTheAreaAnnouncedAreRightTheSame) {
  Begun clipper = Begin(Polygon(Rectangle(0, 0, 9.5, 9.5)));
  EXPECT_EQ(AreaWeight(clipper, 8, 8, 16), 1.5 * 1.5);
  EXPECT_EQ(CellWeight(clipper, 9, 9), 0.25);
  EXPECT_EQ(CellWeight(clipper, 9, 0), 0.5);
  EXPECT_EQ(CellWeight(clipper, 9, 9), 0.25);
  EXPECT_EQ(CellWeight(clipper, -1, 0), 0);
}

// A row of cells across several areas, as a walker of a rectangle goes: what was cut for one area is of no use for the
// next.
TEST_F(DtmPolyClipperInModel, RowAcrossAreasIsCutForEachOfThem) {
  Begun clipper = Begin(Polygon(Rectangle(1.5, 0.5, 6.5, 3.5)));
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 7.5);
  EXPECT_EQ(CellWeight(clipper, 1, 1), 0.5);
  EXPECT_EQ(CellWeight(clipper, 1, 3), 1);
  EXPECT_EQ(AreaWeight(clipper, 0, 4, 16), 7.5);
  EXPECT_EQ(CellWeight(clipper, 1, 4), 1);
  EXPECT_EQ(CellWeight(clipper, 1, 6), 0.5);
  EXPECT_EQ(CellWeight(clipper, 1, 7), 0);
}

// Another walk may be over a model of other cells.
TEST_F(DtmPolyClipperInModel, InitForgetsWhatWasCut) {
  TestGrid half({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL}});
  Begun clipper = Begin(Polygon(Rectangle(0.25, 0.25, 3.25, 3.25)));
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 9);
  EXPECT_EQ(CellWeight(clipper, 0, 0), 0.5625);
  ASSERT_TRUE(clipper.Init(half.Access()));
  EXPECT_EQ(CellWeight(clipper, 0, 0), 0.0625);
  EXPECT_EQ(CellWeight(clipper, 0, 3), 0.125);
  ASSERT_TRUE(clipper.Init(grid_.Access()));
  EXPECT_EQ(CellWeight(clipper, 0, 3), 0.1875);
}

TEST_F(DtmPolyClipperInModel, HoleOverAllOfAnAreaTakesAllOfIt) {
  PolyClipLine polygon = Polygon(Rectangle(-8, -8, 3.5, 8));
  polygon.AddRing(Rectangle(-7, -7, -1, 7), true);
  polygon.AddRing({{-6.5, -6.5}, {-1.5, -6.5}, {-6.5, 6}}, false);
  Begun clipper = Begin(polygon);
  double sum = 0;
  for (const int row : {-8, -4, 0, 4}) {
    for (const int col : {-8, -4, 0}) {
      const double area = AreaWeight(clipper, row, col, 16);
      double cells = 0;
      for (int r = row; area > 0 && r < row + 4; ++r) {
        for (int c = col; c < col + 4; ++c) cells += CellWeight(clipper, r, c);
      }
      EXPECT_NEAR(cells, area, 1e-12) << row << ' ' << col;
      sum += area;
    }
  }
  EXPECT_NEAR(sum, polygon.GetArea(), 1e-12);
}

// A strip of a micrometre is small, but no rounding.
TEST_F(DtmPolyClipperInModel, StripOfAMicrometreCounts) {
  Begun clipper = Begin(Polygon(Rectangle(-100'000, -100'000, 1.000001, 2)));
  EXPECT_NEAR(AreaWeight(clipper, 0, 0, 16), 2.000002, 1e-10);
  EXPECT_NEAR(CellWeight(clipper, 1, 1), 1e-6, 1e-10);
  EXPECT_EQ(CellWeight(clipper, 1, 2), 0);
}

TEST_F(DtmPolyClipperInModel, RingsAddUpAndHolesTakeOff) {
  PolyClipLine polygon;
  polygon.AddRing(Rectangle(-8, -8, 8, 8), false);
  polygon.AddRing(Rectangle(1, 1, 3.5, 3.5), true);
  polygon.AddRing(Rectangle(2, 2, 3, 3), false);
  Begun clipper = Begin(polygon);
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 16 - 6.25 + 1);
  EXPECT_EQ(CellWeight(clipper, 0, 0), 1);
  EXPECT_EQ(CellWeight(clipper, 1, 1), 0);
  EXPECT_EQ(CellWeight(clipper, 2, 2), 1);
  EXPECT_EQ(CellWeight(clipper, 1, 3), 0.5);
  EXPECT_EQ(CellWeight(clipper, 3, 3), 0.75);
  EXPECT_EQ(AreaWeight(clipper, -4, -4, 16), 16);

  PolyClipLine twice;
  twice.AddRing(Rectangle(0, 0, 3, 4), false);
  twice.AddRing(Rectangle(2, 0, 4, 4), false);
  Begun overlapping = Begin(twice);
  EXPECT_EQ(AreaWeight(overlapping, 0, 0, 16), 20);
  Begun both = Begin(twice, false, true);
  EXPECT_EQ(AreaWeight(both, 0, 0, 16), -4);
}

// A hole that isn't within its ring takes nothing off nothing.
TEST_F(DtmPolyClipperInModel, HoleBesideItsRingLeavesNothing) {
  PolyClipLine polygon;
  polygon.AddRing(Rectangle(0, 0, 2, 2), false);
  polygon.AddRing(Rectangle(3.5, 3.5, 13, 13), true);
  Begun clipper = Begin(polygon);
  Begun inverted = Begin(polygon, false, true);
  EXPECT_EQ(AreaWeight(clipper, 8, 8, 16), 0);  // all of it in the hole
  EXPECT_EQ(AreaWeight(inverted, 8, 8, 16), 16);
  EXPECT_EQ(AreaWeight(clipper, 4, 0, 16), 0);  // part of it
  EXPECT_EQ(AreaWeight(inverted, 4, 0, 16), 16);
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 3.75);
  EXPECT_EQ(AreaWeight(inverted, 0, 0, 16), 12.25);
  EXPECT_EQ(CellWeight(clipper, 0, 0), 1);
  EXPECT_EQ(CellWeight(clipper, 3, 3), 0);
  EXPECT_EQ(CellWeight(inverted, 3, 3), 1);
  Begun cells = Begin(polygon);
  EXPECT_EQ(CellWeight(cells, 3, 3), 0);
  EXPECT_EQ(CellWeight(cells, 5, 3), 0);
  EXPECT_EQ(CellWeight(cells, 5, 5), 0);
}

// Hole and ring end along the same slanted line in the cell: what is left is nothing, not a rounding.
TEST_F(DtmPolyClipperInModel, HoleThatMeetsItsRingLeavesNothingInTheCell) {
  PolyClipLine polygon;
  polygon.AddRing({{0.1, -7}, {0.7, 9}, {-9, 9}, {-9, -7}}, false);
  polygon.AddRing({{0.7, 9}, {0.1, -7}, {-5, -7}, {-5, 9}}, true);
  Begun clipper = Begin(polygon);
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 0);
  Begun cells = Begin(polygon);
  EXPECT_EQ(CellWeight(cells, 0, 0), 0);
  PolyClipLine filled = Polygon({{0.1, -7}, {0.7, 9}, {-9, 9}, {-9, -7}});
  filled.AddRing({{0.7, 9}, {0.1, -7}, {9, -7}, {9, 9}}, false);
  Begun whole = Begin(filled);
  EXPECT_EQ(CellWeight(whole, 0, 0), 1);
}

TEST_F(DtmPolyClipperInModel, Set2DReplacesThePolygonAndItsExtents) {
  Begun clipper = Begin(Polygon(Rectangle(0, 0, 1, 1)));
  EXPECT_EQ(CellWeight(clipper, 0, 0), 1);
  EXPECT_FALSE(clipper.Set2D(nullptr, 3));
  EXPECT_EQ(clipper.GetExtents().right(), 1);
  EXPECT_EQ(CellWeight(clipper, 0, 0), 1);

  std::vector<double> xy = {2, 2, 6, 2, 6, 6, 2, 6};
  EXPECT_TRUE(clipper.Set2D(xy.data(), 4));
  EXPECT_EQ(clipper.GetExtents().left(), 2);
  EXPECT_EQ(clipper.GetExtents().top(), 6);
  EXPECT_TRUE(clipper.Init(grid_.Access()));
  EXPECT_EQ(CellWeight(clipper, 0, 0), 0);
  EXPECT_EQ(CellWeight(clipper, 2, 2), 1);
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 4);

  for (const int count : {0, -1}) {
    EXPECT_TRUE(clipper.Set2D(xy.data(), count));
    EXPECT_FALSE(clipper.GetExtents().IsValid());
    EXPECT_TRUE(clipper.Init(grid_.Access()));
    EXPECT_EQ(CellWeight(clipper, 2, 2), 1);
  }
}

TEST_F(DtmPolyClipperInModel, SelfIntersectionIsThePolygons) {
  EXPECT_FALSE(Begin(Polygon(Rectangle(0, 0, 1, 1))).IsSelfIntersecting());
  EXPECT_TRUE(Begin(Polygon({{0, 0}, {2, 2}, {2, 0}, {0, 2}})).IsSelfIntersecting());
}

TEST_F(DtmPolyClipperInModel, CloneWorksByItself) {
  Begun clipper = Begin(Polygon(Rectangle(0, 0, 2.5, 4)));
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 10);
  EXPECT_EQ(CellWeight(clipper, 0, 2), 0.5);
  const std::unique_ptr<DtmProcessor> clone(clipper.Clone());
  ASSERT_TRUE(clone);
  EXPECT_EQ(AreaWeight(clipper, 0, -4, 16), 0);
  double weight = 1;
  EXPECT_TRUE(clone->ProcessCell(1, 2, weight));  // still in its area
  EXPECT_EQ(weight, 0.5);
  EXPECT_EQ(CellWeight(clipper, 0, -4), 0);
}

TEST(DtmPolyClipper, CellsOfATenthOfAMetreAreAllOrNothing) {
  TestGrid grid({.cellSize = 0.1, .areaSize = 4, .blockIds = {dVAL}});
  const double side = 4 * 0.1;
  for (int row = -12; row < 12; row += 4) {
    for (int col = -12; col < 12; col += 4) {
      DtmPolyClipper clipper(Polygon(Rectangle(col / 10.0, row / 10.0, (col + 4) / 10.0, (row + 4) / 10.0)), false,
                             false);
      ASSERT_TRUE(clipper.Init(grid.Access()));
      for (int r = row - 4; r <= row + 4; r += 4) {
        for (int c = col - 4; c <= col + 4; c += 4) {
          const bool same = r == row && c == col;
          ASSERT_EQ(AreaWeight(clipper, r, c, 1), same ? side * side : 0) << r << ' ' << c;
        }
      }
      ASSERT_TRUE(clipper.Init(grid.Access()));
      for (int r = row - 1; r <= row + 4; ++r) {
        for (int c = col - 1; c <= col + 4; ++c) {
          const bool inside = r >= row && r < row + 4 && c >= col && c < col + 4;
          ASSERT_EQ(CellWeight(clipper, r, c), inside ? 0.1 * 0.1 : 0) << r << ' ' << c;
        }
      }
    }
  }
}

/// A walk, by what the clipper leaves of each cell. @param areas  announce areas, as most walkers do.
double SumOfCells(DtmPolyClipper& clipper, int cells, int areaSize, bool areas,
                  std::map<std::pair<int, int>, double>& all) {
  double sum = 0;
  for (int row = -cells; row < cells; row += areaSize) {
    for (int col = -cells; col < cells; col += areaSize) {
      double weight = areaSize * areaSize;
      if (areas) {
        clipper.ProcessArea(row, col, weight);
        if (weight <= 0) continue;
      }
      for (int r = row; r < row + areaSize; ++r) {
        for (int c = col; c < col + areaSize; ++c) {
          weight = 1;
          clipper.ProcessCell(r, c, weight);
          sum += weight;
          if (weight != 0) all[{r, c}] = weight;
        }
      }
    }
  }
  return sum;
}

// The cell by way of the area and the row is the cell cut from the ring itself, and all of them make up the polygon.
TEST(DtmPolyClipper, CellsAddUpToThePolygonWhateverTheWalkAnnounces) {
  TestGrid grid({.cellSize = 1, .areaSize = 16, .blockIds = {dVAL}});
  std::mt19937_64 random(20260105);
  std::uniform_real_distribution<double> radius(4, 60);
  for (int round = 0; round < 8; ++round) {
    Ring ring;
    Ring hole;
    const int count = 5 << round;
    for (int i = 0; i < count; ++i) {
      const double angle = 2 * 3.14159265358979 * i / count;
      const double at = radius(random);
      ring.push_back({at * std::cos(angle), at * std::sin(angle)});
      hole.push_back({0.4 * at * std::cos(angle), 0.4 * at * std::sin(angle)});
    }
    PolyClipLine polygon;
    polygon.AddRing(ring, false);
    polygon.AddRing(hole, true);
    DtmPolyClipper clipper(polygon, false, false);
    std::map<std::pair<int, int>, double> byArea;
    std::map<std::pair<int, int>, double> byCell;
    ASSERT_TRUE(clipper.Init(grid.Access()));
    const double sum = SumOfCells(clipper, 64, 16, true, byArea);
    EXPECT_NEAR(sum, polygon.GetArea(), 1e-9 * sum);
    ASSERT_TRUE(clipper.Init(grid.Access()));
    SumOfCells(clipper, 64, 16, false, byCell);
    ASSERT_EQ(byArea.size(), byCell.size());
    for (const auto& [cell, weight] : byArea) {
      ASSERT_NEAR(weight, byCell[cell], 1e-12);
      ASSERT_GT(weight, 0);
      ASSERT_LE(weight, 1);
      ASSERT_EQ(weight == 1, byCell[cell] == 1);
    }
  }
}

TEST(DtmEsriPolyClipper, NeverLowersAnAreaAndMarksCellsOutside) {
  TestGrid grid;
  DtmEsriPolyClipper clipper(Polygon(Rectangle(0, 0, 2, 2)));
  ASSERT_TRUE(clipper.Init(grid.Access()));
  EXPECT_EQ(AreaWeight(clipper, 8, 8, 3.5), 3.5);
  EXPECT_TRUE(IsEmptyValue(CellWeight(clipper, 8, 8)));
  EXPECT_EQ(AreaWeight(clipper, 0, 0, 16), 16);
  EXPECT_EQ(CellWeight(clipper, 1, 1, 0.5), 0.5);
  EXPECT_TRUE(IsEmptyValue(CellWeight(clipper, 2, 2, 0.5)));
  EXPECT_EQ(std::bit_cast<std::uint64_t>(CellWeight(clipper, 2, 2, 0.5)), ~std::uint64_t{0});
  EXPECT_TRUE(IsEmptyValue(CellWeight(clipper, 0, 0, 0)));  // nothing before the polygon was asked
}

TEST(DtmEsriPolyClipper, CloneIsOneToo) {
  TestGrid grid;
  DtmEsriPolyClipper clipper(Polygon(Rectangle(0, 0, 2, 2)));
  ASSERT_TRUE(clipper.Init(grid.Access()));
  const std::unique_ptr<DtmProcessor> clone(clipper.Clone());
  double weight = 7;
  EXPECT_TRUE(clone->ProcessArea(8, 8, weight));
  EXPECT_EQ(weight, 7);
  EXPECT_TRUE(clone->ProcessCell(8, 8, weight));
  EXPECT_TRUE(IsEmptyValue(weight));
}

/// Adds up the weights that come through a chain.
class Collector final : public DtmProcessor {
 public:
  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessCell(int row, int col, double& area) override {
    cells[{row, col}] = area;
    return true;
  }
  std::map<std::pair<int, int>, double> cells;
};

TEST(DtmPolyClipper, LimitsWhatStandsBehindItInAChain) {
  TestGrid grid;
  for (int row = 0; row < 8; ++row) {
    for (int col = 0; col < 8; ++col) ASSERT_TRUE(grid.Set(row, col, dVAL, 1));
  }
  for (const int walker : {0, 1, 2}) {
    SCOPED_TRACE(walker);
    DtmMultiProcessor chain;
    chain.AddProcessor(std::make_unique<DtmPolyClipper>(Polygon(Rectangle(1, 1, 4.5, 2)), false, false).release());
    auto* collector = std::make_unique<Collector>().release();
    chain.AddProcessor(collector);
    const bool done = walker == 0   ? chain.ProcessAllCells(grid.Access())
                      : walker == 1 ? chain.ProcessRect(grid.Access(), Page(0, 0, 7.5, 7.5))
                                    : chain.ProcessLinearRect(grid.Access(), Page(0, 0, 7.5, 7.5));
    EXPECT_TRUE(done);
    const std::map<std::pair<int, int>, double> wanted = {{{1, 1}, 1}, {{1, 2}, 1}, {{1, 3}, 1}, {{1, 4}, 0.5}};
    EXPECT_EQ(collector->cells, wanted);
  }
}

}  // namespace
}  // namespace vak
