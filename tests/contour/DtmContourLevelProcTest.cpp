#include <algorithm>
#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/contour/DtmContourLevelProc.h"
#include "vakdtm/frame/AreaExtMap.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "contour/LinesOf.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::Lines;
using test::LinesOf;
using test::TestGrid;
using Point2 = GTL::Point2D<double>;
using Point3 = GTL::Point3D<double>;

/// What a level on a corner is taken to be there.
constexpr double kRaised = 2.0 + 1e-7;

PolyClipLine Rectangle(double x0, double y0, double x1, double y1) {
  PolyClipLine polygon;
  polygon.AddRing({{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}, false);
  return polygon;
}

/// A model of cells of 1 m in areas of 4 x 4.
class DtmContourLevelProcInModel : public testing::Test {
 protected:
  DtmContourLevelProc Tracer(double level, const PolyClipLine& polygon = {}, int block = dVAL) {
    DtmContourLevelProc tracer(polygon, level, block, running_);
    tracer.SetAreaExtMap(&ranges_);
    return tracer;
  }

  Lines Trace(double level, const PolyClipLine& polygon = {}, int block = dVAL) {
    DtmContourLevelProc tracer = Tracer(level, polygon, block);
    EXPECT_TRUE(tracer.ProcessAllCells(grid_.Access()));
    return LinesOf(tracer.GetList());
  }

  /// The same with nothing known of the areas.
  Lines TraceAfresh(double level) {
    ranges_.Clear();
    return Trace(level);
  }

  static double AreaWeight(DtmContourLevelProc& tracer, int row, int col) {
    double weight = 16;
    EXPECT_TRUE(tracer.ProcessArea(row, col, weight));
    return weight;
  }

  static bool ShowCell(DtmContourLevelProc& tracer, int row, int col) {
    double weight = 1;
    const bool more = tracer.ProcessCell(row, col, weight);
    EXPECT_EQ(weight, 1);
    return more;
  }

  TestGrid grid_;
  AreaExtMap ranges_;
  std::atomic<bool> running_{true};
};

TEST_F(DtmContourLevelProcInModel, LineCrossesEdgesInProportionWithLowerGroundOnTheLeft) {
  grid_.Draw(
      "1 5\n"
      "1 5\n");
  // Upwards, with the lower cells at the left.
  EXPECT_EQ(Trace(2), (Lines{{{0.75, 0.5}, {0.75, 1.5}}}));
  grid_.Draw(
      "5 1\n"
      "5 1\n");
  EXPECT_EQ(TraceAfresh(2), (Lines{{{1.25, 1.5}, {1.25, 0.5}}}));
  grid_.Draw(
      "5 5\n"
      "1 1\n");
  EXPECT_EQ(TraceAfresh(2), (Lines{{{1.5, 0.75}, {0.5, 0.75}}}));
  grid_.Draw(
      "1 1\n"
      "5 5\n");
  EXPECT_EQ(TraceAfresh(2), (Lines{{{0.5, 1.25}, {1.5, 1.25}}}));
}

TEST_F(DtmContourLevelProcInModel, EachCornerIsCutOff) {
  struct Case {
    const char* name;
    const char* drawing;
    std::vector<Point2> line;
  };
  const std::vector<Case> cases = {
      {"lower left low", "5 5\n1 5", {{0.75, 0.5}, {0.5, 0.75}}},
      {"lower right low", "5 5\n5 1", {{1.5, 0.75}, {1.25, 0.5}}},
      {"upper right low", "5 1\n5 5", {{1.25, 1.5}, {1.5, 1.25}}},
      {"upper left low", "1 5\n5 5", {{0.5, 1.25}, {0.75, 1.5}}},
      {"lower left high", "1 1\n5 1", {{0.5, 1.25}, {1.25, 0.5}}},
      {"lower right high", "1 1\n1 5", {{0.75, 0.5}, {1.5, 1.25}}},
      {"upper right high", "1 5\n1 1", {{1.5, 0.75}, {0.75, 1.5}}},
      {"upper left high", "5 1\n1 1", {{1.25, 1.5}, {0.5, 0.75}}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    grid_.Draw(std::string(test.drawing) + "\n");
    EXPECT_EQ(TraceAfresh(2), Lines{test.line});
  }
}

TEST_F(DtmContourLevelProcInModel, CornersOnTheLevelAreRaisedAHairAboveIt) {
  grid_.Draw(
      "2 3\n"
      "1 2\n");
  const double part = (2.0 - 1.0) / (kRaised - 1.0);
  EXPECT_LT(part, 1);
  EXPECT_EQ(Trace(2), (Lines{{{0.5 + part, 0.5}, {0.5, 0.5 + part}}}));
}

TEST_F(DtmContourLevelProcInModel, RaisedCornerIsTheSameInAllSquaresAroundIt) {
  grid_.Draw(
      "1 1 1\n"
      "1 2 1\n"
      "1 1 1\n");
  const Lines lines = Trace(2);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].size(), 5U);
  EXPECT_EQ(lines[0].front(), lines[0].back());
  for (const Point2& point : lines[0]) {
    EXPECT_NEAR(point.x, 1.5, 2e-7);
    EXPECT_NEAR(point.y, 1.5, 2e-7);
    EXPECT_NE(point, Point2(1.5, 1.5));
  }
}

TEST_F(DtmContourLevelProcInModel, FlatSquareOnTheLevelGivesNothingAndIsNotMeasured) {
  grid_.Draw(
      "2 2\n"
      "2 2\n");
  DtmContourLevelProc tracer = Tracer(2);
  tracer.SetUpdateExtents(true);
  EXPECT_TRUE(tracer.ProcessAllCells(grid_.Access()));
  EXPECT_TRUE(tracer.GetList().empty());
  EXPECT_FALSE(tracer.Extents().IsValid());
  EXPECT_FALSE(ranges_[grid_.Area(0, 0)].IsValid());
}

TEST_F(DtmContourLevelProcInModel, SaddleIsCutAsItsMeanLies) {
  grid_.Draw(
      "2 0\n"
      "0 2\n");
  // A tie: corners 3 and 1 are cut off, 0 and 2 stay connected.
  EXPECT_EQ(Trace(1), (Lines{{{1, 1.5}, {0.5, 1}}, {{1, 0.5}, {1.5, 1}}}));
  // The mean is above the level: the low corners 0 and 2 are cut off.
  EXPECT_EQ(TraceAfresh(0.5), (Lines{{{0.75, 0.5}, {0.5, 0.75}}, {{1.25, 1.5}, {1.5, 1.25}}}));
  // It is below: the high corners 3 and 1 are.
  EXPECT_EQ(TraceAfresh(1.5), (Lines{{{0.75, 1.5}, {0.5, 1.25}}, {{1.25, 0.5}, {1.5, 0.75}}}));
}

TEST_F(DtmContourLevelProcInModel, OtherSaddleIsCutTheOtherWay) {
  grid_.Draw(
      "0 2\n"
      "2 0\n");
  EXPECT_EQ(Trace(1), (Lines{{{0.5, 1}, {1, 1.5}}, {{1.5, 1}, {1, 0.5}}}));
  EXPECT_EQ(TraceAfresh(0.5), (Lines{{{0.5, 1.25}, {0.75, 1.5}}, {{1.5, 0.75}, {1.25, 0.5}}}));
  EXPECT_EQ(TraceAfresh(1.5), (Lines{{{0.5, 0.75}, {0.75, 0.5}}, {{1.5, 1.25}, {1.25, 1.5}}}));
}

TEST_F(DtmContourLevelProcInModel, PiecesOfASaddleTouchTheBorderEachForItself) {
  grid_.Draw(
      "2 0 0\n"
      "0 2 0\n"
      "0 0 0\n");
  // At 0.5 the saddle's second piece is away from the border, but part of a line that isn't.
  const Lines lines = Trace(0.5);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].front(), Point2(1.25, 2.5));
  EXPECT_EQ(lines[0].back(), Point2(0.5, 1.75));
}

TEST_F(DtmContourLevelProcInModel, SquareWithAnEmptyCornerGivesNothing) {
  grid_.Draw(
      "1 5 5\n"
      "1 5 .\n"
      "1 5 5\n");
  EXPECT_EQ(Trace(2), (Lines{{{0.75, 0.5}, {0.75, 1.5}, {0.75, 2.5}}}));
  grid_.Draw(
      "1 5\n"
      "1 5\n");
  ASSERT_TRUE(grid_.Clear(0, 0));
  EXPECT_EQ(TraceAfresh(2), (Lines{{{0.75, 1.5}, {0.75, 2.5}}}));
}

TEST_F(DtmContourLevelProcInModel, RingInsideAnAreaComesOnceAndBehindLinesThatTouchABorder) {
  grid_.Draw(
      "9 9 9 9 1\n"
      "9 1 9 9 1\n"
      "9 9 9 9 1\n"
      "9 9 9 9 1\n");
  const Lines lines = Trace(5);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0], (std::vector<Point2>{{4, 3.5}, {4, 2.5}, {4, 1.5}, {4, 0.5}}));
  ASSERT_EQ(lines[1].size(), 5U);
  EXPECT_EQ(lines[1].front(), lines[1].back());
}

TEST_F(DtmContourLevelProcInModel, LineAcrossTwoAreasIsOneWhicheverComesFirst) {
  for (const bool rightFirst : {false, true}) {
    SCOPED_TRACE(rightFirst);
    TestGrid grid;
    if (rightFirst) grid.Set(0, 7, dVAL, 1);
    grid.Draw(
        "9 9 9 9 9 9 9 9\n"
        "1 1 1 1 1 1 1 1\n");
    AreaExtMap ranges;
    DtmContourLevelProc tracer({}, 5, dVAL, running_);
    tracer.SetAreaExtMap(&ranges);
    ASSERT_TRUE(tracer.ProcessAllCells(grid.Access()));
    const Lines lines = LinesOf(tracer.GetList());
    ASSERT_EQ(lines.size(), 1U);
    std::vector<Point2> expected;
    for (int col = 7; col >= 0; --col) expected.emplace_back(col + 0.5, 1.0);
    EXPECT_EQ(lines[0], expected);
  }
}

TEST_F(DtmContourLevelProcInModel, AreasThatTouchAtACornerAreJoinedThroughTheSquareThatSpansThem) {
  std::array<std::pair<int, int>, 4> corners{{{0, 0}, {0, 7}, {7, 0}, {7, 7}}};
  std::sort(corners.begin(), corners.end());
  do {
    TestGrid grid;
    for (const auto& [row, col] : corners) grid.Set(row, col, dVAL, 0);
    // A line from the upper left area through the square (3, 3) into the lower right one.
    for (int row = 0; row < 8; ++row) {
      for (int col = 0; col < 8; ++col) grid.Set(row, col, dVAL, row + col < 7 ? 1 : 9);
    }
    AreaExtMap ranges;
    DtmContourLevelProc tracer({}, 4, dVAL, running_);
    tracer.SetAreaExtMap(&ranges);
    ASSERT_TRUE(tracer.ProcessAllCells(grid.Access()));
    ASSERT_EQ(tracer.GetList().size(), 1U);
    EXPECT_EQ(tracer.GetList()[0].NumPoints(), 14);
    EXPECT_EQ(tracer.GetList()[0][0].y, 0.5);  // with the lower ground on the left
  } while (std::next_permutation(corners.begin(), corners.end()));
}

TEST_F(DtmContourLevelProcInModel, SquareThatReachesIntoAMissingAreaGivesNothing) {
  grid_.Draw(
      "1 5 1 5\n"
      "1 5 1 5\n"
      "1 5 1 5\n"
      "1 5 1 5\n");
  for (const auto& line : Trace(2)) EXPECT_EQ(line.size(), 4U);
  EXPECT_EQ(Trace(2).size(), 3U);
}

TEST_F(DtmContourLevelProcInModel, CornersOfExtremesAreWhereTheSoundingWas) {
  struct Case {
    int block, xBlock, yBlock;
  };
  for (const Case& test : {Case{dMIN, fXMN, fYMN}, Case{dMAX, fXMX, fYMX}}) {
    SCOPED_TRACE(test.block);
    TestGrid grid({.cellSize = 2.0, .areaSize = 4, .blockIds = {test.block, test.xBlock, test.yBlock}});
    for (int row = 0; row < 2; ++row) {
      for (int col = 0; col < 2; ++col) grid.Set(row, col, test.block, col == 0 ? 1 : 5);
    }
    grid.Set(0, 0, test.xBlock, 0.25);
    grid.Set(0, 0, test.yBlock, -0.5);
    grid.Set(0, 1, test.xBlock, 0.75);  // its y is empty: it stays at the centre
    grid.Set(1, 1, test.yBlock, 0.75);  // its x is
    AreaExtMap ranges;
    DtmContourLevelProc tracer({}, 2, test.block, running_);
    tracer.SetAreaExtMap(&ranges);
    tracer.SetUpdateExtents(true);
    ASSERT_TRUE(tracer.ProcessAllCells(grid.Access()));
    EXPECT_EQ(LinesOf(tracer.GetList()), (Lines{{{1.25 + 1.75 * 0.25, 0.5 + 0.5 * 0.25}, {1.5, 3}}}));
    EXPECT_EQ(tracer.Extents().MinY(), 0.5);
    EXPECT_EQ(tracer.Extents().MaxX(), 3);

    DtmContourLevelProc further({}, 2, test.block, running_);
    further.SetAreaExtMap(&ranges);
    ASSERT_TRUE(further.ProcessAllCells(grid.Access()));
    EXPECT_EQ(LinesOf(further.GetList()), LinesOf(tracer.GetList()));
  }
}

TEST_F(DtmContourLevelProcInModel, CornersOfOtherBlocksAreAtCentresWhateverOffsetsThereAre) {
  TestGrid grid({.cellSize = 2.0, .areaSize = 4, .blockIds = {dVAL, dMIN, fXMN, fYMN}});
  for (int row = 0; row < 2; ++row) {
    for (int col = 0; col < 2; ++col) {
      grid.Set(row, col, dVAL, col == 0 ? 1 : 5);
      grid.Set(row, col, fXMN, 0.5);
      grid.Set(row, col, fYMN, 0.5);
    }
  }
  DtmContourLevelProc tracer({}, 2, dVAL, running_);
  AreaExtMap ranges;
  tracer.SetAreaExtMap(&ranges);
  ASSERT_TRUE(tracer.ProcessAllCells(grid.Access()));
  EXPECT_EQ(LinesOf(tracer.GetList()), (Lines{{{1.5, 1}, {1.5, 3}}}));
}

TEST_F(DtmContourLevelProcInModel, ExtremesWithoutOffsetBlocksAreAtCentres) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dMIN}});
  for (int row = 0; row < 2; ++row) {
    for (int col = 0; col < 2; ++col) grid.Set(row, col, dMIN, col == 0 ? 1 : 5);
  }
  DtmContourLevelProc tracer({}, 2, dMIN, running_);
  AreaExtMap ranges;
  tracer.SetAreaExtMap(&ranges);
  ASSERT_TRUE(tracer.ProcessAllCells(grid.Access()));
  EXPECT_EQ(LinesOf(tracer.GetList()), (Lines{{{0.75, 0.5}, {0.75, 1.5}}}));
}

TEST_F(DtmContourLevelProcInModel, AnyKindOfBlockCanBeContoured) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}});
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) grid.Set(row, col, iNUM, col == 0 ? 1 : 5);
  }
  grid.Set(2, 2, iNUM, 0);  // no value
  DtmContourLevelProc tracer({}, 2, iNUM, running_);
  AreaExtMap ranges;
  tracer.SetAreaExtMap(&ranges);
  ASSERT_TRUE(tracer.ProcessAllCells(grid.Access()));
  EXPECT_EQ(LinesOf(tracer.GetList()), (Lines{{{0.75, 0.5}, {0.75, 1.5}, {0.75, 2.5}}}));
  DtmContourLevelProc missing({}, 2, dMAX, running_);
  AreaExtMap none;
  missing.SetAreaExtMap(&none);
  EXPECT_TRUE(missing.ProcessAllCells(grid.Access()));
  EXPECT_TRUE(missing.GetList().empty());
}

TEST_F(DtmContourLevelProcInModel, MeasuresHeightsAsReadAndPositionsOfSquaresThatAreWhole) {
  grid_.Draw(
      ". 7 7\n"
      "1 2 2\n"
      "0 3 2\n");
  DtmContourLevelProc tracer = Tracer(2);
  EXPECT_FALSE(tracer.GetUpdateExtents());
  tracer.SetUpdateExtents(true);
  EXPECT_TRUE(tracer.GetUpdateExtents());
  ASSERT_TRUE(tracer.ProcessAllCells(grid_.Access()));
  EXPECT_EQ(tracer.Extents().MinX(), 0.5);
  EXPECT_EQ(tracer.Extents().MaxX(), 2.5);
  EXPECT_EQ(tracer.Extents().MinY(), 0.5);
  EXPECT_EQ(tracer.Extents().MaxY(), 2.5);
  EXPECT_EQ(tracer.Extents().MinZ(), 0);
  EXPECT_EQ(tracer.Extents().MaxZ(), 7);
  EXPECT_EQ(ranges_[grid_.Area(0, 0)].Min(), 0);
  EXPECT_EQ(ranges_[grid_.Area(0, 0)].Max(), 7);
}

TEST_F(DtmContourLevelProcInModel, RangesHoldRawHeightsNotRaisedOnes) {
  grid_.Draw(
      "1 2\n"
      "1 2\n");
  DtmContourLevelProc tracer = Tracer(2);
  tracer.SetUpdateExtents(true);
  ASSERT_TRUE(tracer.ProcessAllCells(grid_.Access()));
  EXPECT_EQ(ranges_[grid_.Area(0, 0)].Max(), 2);
  EXPECT_EQ(tracer.Extents().MaxZ(), 2);
}

TEST_F(DtmContourLevelProcInModel, KnownRangeIsNotWidenedAndExtentsOnlyWhenAsked) {
  grid_.Draw(
      "1 9\n"
      "1 9\n");
  ranges_[grid_.Area(0, 0)] += 2;
  const Lines lines = Trace(2);
  EXPECT_EQ(lines.size(), 1U);
  EXPECT_EQ(ranges_[grid_.Area(0, 0)].Max(), 2);
  DtmContourLevelProc tracer = Tracer(2);
  ASSERT_TRUE(tracer.ProcessAllCells(grid_.Access()));
  EXPECT_FALSE(tracer.Extents().IsValid());
}

TEST_F(DtmContourLevelProcInModel, RangeOfAnAreaComesFromItsOwnSquaresOverhangIncluded) {
  grid_.Draw(
      "1 1 1 2 8\n"
      "1 1 1 3 9\n");
  Trace(0);
  EXPECT_EQ(ranges_[grid_.Area(0, 0)].Min(), 1);
  EXPECT_EQ(ranges_[grid_.Area(0, 0)].Max(), 9);
  EXPECT_FALSE(ranges_[grid_.Area(0, 4)].IsValid());  // its squares have empty corners
}

TEST_F(DtmContourLevelProcInModel, AreaWhoseRangeLacksTheLevelIsSkippedButTheOneBeforeIsJoined) {
  grid_.Draw(
      "9 9 9 9 9 9\n"
      "1 1 1 1 1 9\n");
  DtmContourLevelProc tracer = Tracer(5);
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  EXPECT_EQ(AreaWeight(tracer, 0, 0), 16);
  for (int col = 0; col < 4; ++col) EXPECT_TRUE(ShowCell(tracer, 0, col));
  EXPECT_TRUE(tracer.GetList().empty());
  ranges_[grid_.Area(0, 4)] += 6;
  EXPECT_EQ(AreaWeight(tracer, 0, 4), 0);
  ASSERT_EQ(tracer.GetList().size(), 1U);
  EXPECT_EQ(tracer.GetList()[0].NumPoints(), 5);
}

TEST_F(DtmContourLevelProcInModel, EndsOfARangeBelongToIt) {
  grid_.Set(0, 0, dVAL, 1);
  ranges_[grid_.Area(0, 0)] += 3;
  ranges_[grid_.Area(0, 0)] += 9;
  for (const auto& [level, weight] : std::vector<std::pair<double, double>>{{2.9, 0}, {3, 16}, {9, 16}, {9.1, 0}}) {
    SCOPED_TRACE(level);
    DtmContourLevelProc tracer = Tracer(level);
    ASSERT_TRUE(tracer.Init(grid_.Access()));
    EXPECT_EQ(AreaWeight(tracer, 0, 0), weight);
  }
}

TEST_F(DtmContourLevelProcInModel, AreaThatThePolygonLeavesOutIsNotLookedUp) {
  grid_.Draw(
      "1 9\n"
      "1 9\n");
  grid_.Set(100, 100, dVAL, 1);
  DtmContourLevelProc tracer = Tracer(5, Rectangle(0, 0, 4, 4));
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  EXPECT_GT(AreaWeight(tracer, 0, 0), 0);
  EXPECT_EQ(AreaWeight(tracer, 100, 100), 0);
  // So the area before is still the current one: it gets the range, and has the line that begins at its border.
  ASSERT_TRUE(ShowCell(tracer, 0, 0));
  EXPECT_EQ(ranges_[grid_.Area(0, 0)].Max(), 9);
  EXPECT_FALSE(ranges_[grid_.Area(100, 100)].IsValid());
  EXPECT_GT(AreaWeight(tracer, 0, 0), 0);
  EXPECT_EQ(tracer.GetList().size(), 1U);
}

TEST_F(DtmContourLevelProcInModel, AreaAtTheLowestRowAndColumnHasItsLines) {
  const int lowest = -grid_.File().LargestAllowed();
  ASSERT_NE(lowest % 4, 0);
  for (int row = lowest; row < lowest + 3; ++row) {
    for (int col = lowest; col < lowest + 3; ++col) grid_.Set(row, col, dVAL, col == lowest ? 1 : 5);
  }
  const Lines lines = Trace(2);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].size(), 3U);
}

TEST_F(DtmContourLevelProcInModel, PlaceWithoutAnAreaStaysWithoutOne) {
  grid_.Draw(
      "1 9\n"
      "1 9\n");
  DtmContourLevelProc tracer = Tracer(5);
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  EXPECT_EQ(AreaWeight(tracer, 0, 0), 16);
  EXPECT_EQ(AreaWeight(tracer, 40, 40), 16);
  EXPECT_EQ(grid_.File().NumAreas(), 1);
  EXPECT_EQ(grid_.Area(40, 40), nullptr);
}

TEST_F(DtmContourLevelProcInModel, PolygonTakesSquaresByTheirMiddle) {
  grid_.Draw(
      "1 1 1\n"
      "9 9 9\n");
  // The middles of the squares are at x = 1 and x = 2, though neither cell of the first is within.
  EXPECT_EQ(Trace(5, Rectangle(0.9, 0.9, 1.1, 1.1)), (Lines{{{0.5, 1}, {1.5, 1}}}));
  EXPECT_EQ(Trace(5, Rectangle(1.9, 0.9, 2.1, 1.1)), (Lines{{{1.5, 1}, {2.5, 1}}}));
  EXPECT_EQ(Trace(5, Rectangle(1.1, 0.9, 1.9, 1.1)), Lines());
}

TEST_F(DtmContourLevelProcInModel, PolygonThatIsNotValidEndsTheWalkAtInit) {
  grid_.Draw(
      "1 9\n"
      "1 9\n");
  PolyClipLine invalid;
  invalid.AddRing({{0, 0}, {1, 1}}, false);
  ASSERT_FALSE(invalid.IsValid());
  DtmContourLevelProc tracer = Tracer(5, invalid);
  EXPECT_FALSE(tracer.ProcessAllCells(grid_.Access()));
  EXPECT_TRUE(tracer.GetList().empty());
}

TEST_F(DtmContourLevelProcInModel, StoppedOneEndsAtTheFirstCellInsideThePolygon) {
  grid_.Draw(
      "1 9 9\n"
      "1 9 9\n");
  DtmContourLevelProc tracer = Tracer(5, Rectangle(1.5, 0, 3, 3));
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  EXPECT_GT(AreaWeight(tracer, 0, 0), 0);
  running_ = false;
  EXPECT_TRUE(ShowCell(tracer, 0, 0));   // its middle is at (1, 1)
  EXPECT_FALSE(ShowCell(tracer, 0, 1));  // (2, 1)
}

TEST_F(DtmContourLevelProcInModel, StoppedWalkLeavesOutWhatHasNotReachedTheBorderList) {
  grid_.Draw(
      "1 1 1 1 1 1 1 1\n"
      "1 1 1 1 1 1 1 1\n"
      "1 9 1 1 9 1 1 1\n"
      "1 1 1 1 1 1 1 1\n");
  // Around column 1 a ring within the first area, around column 4 one that goes on in the second.
  DtmContourLevelProc tracer = Tracer(5);
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  AreaWeight(tracer, 0, 0);
  for (int row = 0; row < 4; ++row) {
    for (int col = 0; col < 4; ++col) ASSERT_TRUE(ShowCell(tracer, row, col));
  }
  AreaWeight(tracer, 0, 4);
  ASSERT_TRUE(ShowCell(tracer, 0, 4));
  running_ = false;
  ASSERT_FALSE(ShowCell(tracer, 0, 5));
  ASSERT_EQ(tracer.GetList().size(), 1U);
  EXPECT_EQ(tracer.GetList()[0].NumPoints(), 3);
}

TEST_F(DtmContourLevelProcInModel, WalkWithTheFlagDownFailsAndGivesNothing) {
  grid_.Draw(
      "1 9\n"
      "1 9\n");
  running_ = false;
  DtmContourLevelProc tracer = Tracer(5);
  EXPECT_FALSE(tracer.ProcessAllCells(grid_.Access()));
  EXPECT_TRUE(tracer.GetList().empty());
}

TEST_F(DtmContourLevelProcInModel, NextRunBeginsWithAnEmptyList) {
  grid_.Draw(
      "1 9\n"
      "1 9\n");
  DtmContourLevelProc tracer = Tracer(5);
  ASSERT_TRUE(tracer.ProcessAllCells(grid_.Access()));
  ASSERT_TRUE(tracer.ProcessAllCells(grid_.Access()));
  EXPECT_EQ(tracer.GetList().size(), 1U);
}

TEST_F(DtmContourLevelProcInModel, CloneIsAPlainClipper) {
  DtmContourLevelProc tracer = Tracer(5);
  const std::unique_ptr<DtmProcessor> clone(tracer.Clone());
  ASSERT_NE(clone, nullptr);
  EXPECT_EQ(dynamic_cast<DtmContourLevelProc*>(clone.get()), nullptr);
  EXPECT_NE(dynamic_cast<DtmPolyClipper*>(clone.get()), nullptr);
}

TEST_F(DtmContourLevelProcInModel, CopyGoesOnByItself) {
  grid_.Draw(
      "9 9 9\n"
      "1 1 1\n");
  DtmContourLevelProc tracer = Tracer(5);
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  AreaWeight(tracer, 0, 0);
  ASSERT_TRUE(ShowCell(tracer, 0, 0));
  DtmContourLevelProc copy = tracer;
  ASSERT_TRUE(ShowCell(copy, 0, 1));
  ASSERT_TRUE(copy.Fini());
  ASSERT_TRUE(tracer.Fini());
  EXPECT_EQ(LinesOf(copy.GetList()), (Lines{{{2.5, 0.5 + 0.5}, {1.5, 1}, {0.5, 1}}}));
  EXPECT_EQ(LinesOf(tracer.GetList()), (Lines{{{1.5, 1}, {0.5, 1}}}));
}

TEST_F(DtmContourLevelProcInModel, SeesWhatWasChangedSinceTheAreaWasBegun) {
  grid_.Draw(
      "1 1 1 1\n"
      "1 1 1 1\n");
  DtmContourLevelProc tracer = Tracer(5);
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  AreaWeight(tracer, 0, 0);
  ASSERT_TRUE(ShowCell(tracer, 0, 0));
  grid_.Set(0, 2, dVAL, 9);
  grid_.Set(1, 2, dVAL, 9);
  ASSERT_TRUE(ShowCell(tracer, 0, 1));
  ASSERT_TRUE(tracer.Fini());
  EXPECT_EQ(LinesOf(tracer.GetList()), (Lines{{{2, 0.5}, {2, 1.5}}}));
}

TEST_F(DtmContourLevelProcInModel, CellsCanBeShownWithoutTheirArea) {
  grid_.Draw(
      "1 9\n"
      "1 9\n");
  DtmContourLevelProc tracer = Tracer(5);
  ASSERT_TRUE(tracer.Init(grid_.Access()));
  ASSERT_TRUE(ShowCell(tracer, 0, 0));
  ASSERT_TRUE(ShowCell(tracer, 100, 100));
  ASSERT_TRUE(tracer.Fini());
  EXPECT_EQ(tracer.GetList().size(), 1U);
}

/// Squares with values of the caller's.
class DtmContourLevelProcWithoutAccess : public testing::Test {
 protected:
  DtmContourLevelProcWithoutAccess() { tracer_.InitNoAccess(); }

  /// A square of cells of 10 m with heights anticlockwise from the lower left.
  bool Show(int row, int col, double z0, double z1, double z2, double z3) {
    const double x = 10.0 * col;
    const double y = 10.0 * row;
    return tracer_.ProcessCellData(row, col, {x, y, z0}, {x + 10, y, z1}, {x + 10, y + 10, z2}, {x, y + 10, z3});
  }

  std::atomic<bool> running_{true};
  DtmContourLevelProc tracer_{Rectangle(-9, -9, -8, -8), 5, dVAL, running_};
};

TEST_F(DtmContourLevelProcWithoutAccess, TracesTheCallersSquaresWhateverThePolygon) {
  EXPECT_TRUE(Show(3, 1, 0, 10, 10, 0));
  EXPECT_TRUE(Show(4, 1, 0, 10, 10, 0));
  EXPECT_TRUE(tracer_.GetList().empty());
  EXPECT_TRUE(tracer_.Fini());
  EXPECT_EQ(LinesOf(tracer_.GetList()), (Lines{{{15, 30}, {15, 40}, {15, 50}}}));
  EXPECT_TRUE(tracer_.InitNoAccess());
  EXPECT_TRUE(tracer_.GetList().empty());
}

TEST_F(DtmContourLevelProcWithoutAccess, TakesPositionsAndHeightsAsTheyAre) {
  EXPECT_TRUE(tracer_.ProcessCellData(0, 0, {1, 2, 0}, {5, 3, 10}, {6, 7, 10}, {2, 8, 0}));
  tracer_.Fini();
  EXPECT_EQ(LinesOf(tracer_.GetList()), (Lines{{{3, 2.5}, {4, 7.5}}}));
}

TEST_F(DtmContourLevelProcWithoutAccess, HeedsEmptyCornersAndTheFlag) {
  EXPECT_TRUE(Show(0, 0, 0, 10, EmptyDouble(), 0));
  running_ = false;
  EXPECT_FALSE(Show(0, 0, 0, 10, 10, 0));
  running_ = true;
  tracer_.Fini();
  EXPECT_TRUE(tracer_.GetList().empty());
}

TEST_F(DtmContourLevelProcWithoutAccess, MeasuresExtentsWithoutAMap) {
  tracer_.SetUpdateExtents(true);
  EXPECT_TRUE(Show(0, 0, 1, 2, 3, 4));
  EXPECT_EQ(tracer_.Extents().MaxX(), 10);
  EXPECT_EQ(tracer_.Extents().MinZ(), 1);
  EXPECT_EQ(tracer_.Extents().MaxZ(), 4);
}

TEST_F(DtmContourLevelProcWithoutAccess, AfterARunOnAModelThePolygonPlaysNoPartEither) {
  TestGrid grid;
  AreaExtMap ranges;
  tracer_.SetAreaExtMap(&ranges);
  ASSERT_TRUE(tracer_.ProcessAllCells(grid.Access()));
  ASSERT_TRUE(tracer_.InitNoAccess());
  EXPECT_TRUE(Show(3, 1, 0, 10, 10, 0));
  tracer_.Fini();
  EXPECT_EQ(tracer_.GetList().size(), 1U);
}

TEST_F(DtmContourLevelProcWithoutAccess, CallersSquaresCountRightAfterInitToo) {
  TestGrid grid;
  grid.Draw(
      "9 9\n"
      "1 1\n");
  ASSERT_TRUE(tracer_.Init(grid.Access()));
  EXPECT_TRUE(Show(0, 0, 0, 10, 10, 0));
  tracer_.Fini();
  EXPECT_EQ(LinesOf(tracer_.GetList()), (Lines{{{5, 0}, {5, 10}}}));
}

TEST_F(DtmContourLevelProcWithoutAccess, HeightsTooGreatToBeRaisedMayCrossThreeEdgesAndStillGiveAPiece) {
  // 1e-7 is nothing beside 1e12: corner 0 stays on the level, edge 0-1 counts as crossed there and edge 3-0 doesn't.
  DtmContourLevelProc tracer({}, 1e12, dVAL, running_);
  EXPECT_TRUE(tracer.ProcessCellData(0, 0, {0, 0, 1e12}, {8, 0, 2e12}, {8, 8, 0}, {0, 8, 2e12}));
  tracer.Fini();
  EXPECT_EQ(LinesOf(tracer.GetList()), (Lines{{{8, 4}, {4, 8}}}));
}

}  // namespace
}  // namespace vak
