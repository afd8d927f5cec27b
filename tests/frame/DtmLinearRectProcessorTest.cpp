#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "vakdtm/frame/DtmLinearRectProcessor.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// In areas of 2.
GridSettings Small(double cellSize = 2.0) { return {.cellSize = cellSize, .areaSize = 2, .blockIds = {dVAL}}; }

TEST(DtmLinearRectProcessor, ShowsWholeCellsRowByRowAcrossAreas) {
  TestGrid grid(Small());
  WalkLog log;
  EXPECT_TRUE(log.ProcessLinearRect(grid.Access(), {-1, -1, 4, 3}));
  EXPECT_EQ(log.calls,
            (Calls{Init(), Row(-1, -1, 3), Cell(-1, -1, 4.0), Cell(-1, 0, 4.0), Cell(-1, 1, 4.0), Cell(-1, 2, 4.0),
                   Row(0, -1, 3), Cell(0, -1, 4.0), Cell(0, 0, 4.0), Cell(0, 1, 4.0), Cell(0, 2, 4.0), Row(1, -1, 3),
                   Cell(1, -1, 4.0), Cell(1, 0, 4.0), Cell(1, 1, 4.0), Cell(1, 2, 4.0), Fini()}));
}

TEST(DtmLinearRectProcessor, ShowsMultiplesOfTheStepsUpToAStepBeyondTheRectangle) {
  TestGrid grid(Small());
  WalkLog log;
  DtmLinearRectProcessor walker({10, 6, 20, 11}, &grid.Access(), &log, false);  // columns 5 to 10, rows 3 to 5
  walker.SetDrawScale({1.0 / 8, -1.0 / 4});                                     // four columns and two rows a pixel
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Row(2, 4, 12), Cell(2, 4, 4.0), Cell(2, 8, 4.0), Row(4, 4, 12), Cell(4, 4, 4.0),
                              Cell(4, 8, 4.0), Fini()}));
  EXPECT_EQ(walker.GetProgress(), 1.0 / 8);
}

TEST(DtmLinearRectProcessor, MultiplesOfNegativeRowsAndColumnsAreThoseTowardsZero) {
  TestGrid grid(Small());
  WalkLog log;
  DtmLinearRectProcessor walker({-14, -10, -7, -6}, &grid.Access(), &log, false);  // columns -7 to -4, rows -5 to -3
  walker.SetDrawScale({1.0 / 6, -1.0 / 8});                                        // three columns and four rows
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Row(-4, -6, 0), Cell(-4, -6, 4.0), Cell(-4, -3, 4.0), Row(0, -6, 0),
                              Cell(0, -6, 4.0), Cell(0, -3, 4.0), Fini()}));
}

TEST(DtmLinearRectProcessor, ScalesThatMakeNoStepMakeItOne) {
  TestGrid grid(Small());
  struct Case {
    std::string name;
    Point scale;
  };
  for (const Case& one : {Case{"less than a cell a pixel", {10, -10}}, Case{"just less than a cell", {0.51, -0.51}},
                          Case{"upside down", {-0.1, 0.1}}, Case{"not a number", {kNaN, kNaN}},
                          Case{"infinite", {kInfinity, -kInfinity}}, Case{"one cell", {0.5, -0.5}}}) {
    SCOPED_TRACE(one.name);
    WalkLog log;
    DtmLinearRectProcessor walker({1, 1, 7, 3}, &grid.Access(), &log, false);
    walker.SetDrawScale({0.01, -0.01});
    walker.SetDrawScale(one.scale);
    EXPECT_TRUE(walker.Process());
    EXPECT_EQ(log.Of(Call::kCell).size(), 8U);
    EXPECT_EQ(walker.GetProgress(), 1.0);
  }
}

TEST(DtmLinearRectProcessor, StepsBeyondTheTypeShowOneCell) {
  TestGrid grid(Small());
  for (const double scale : {0.0, -0.0, 1e-300, 1e-12}) {
    WalkLog log;
    DtmLinearRectProcessor walker({1, 1, 7, 3}, &grid.Access(), &log, false);
    walker.SetDrawScale({scale, -scale});
    EXPECT_TRUE(walker.Process());
    EXPECT_EQ(log.calls, (Calls{Init(), Row(0, 0, std::numeric_limits<int>::max()), Cell(0, 0, 4.0), Fini()}));
  }
}

TEST(DtmLinearRectProcessor, LargestStepsReachFromTheLowestCellsToTheHighest) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 10000, .blockIds = {dVAL}});
  WalkLog log;
  DtmLinearRectProcessor walker({-1e6, -1.2e9, 1e6, 1.2e9}, &grid.Access(), &log, false);
  constexpr int kStep = 1 << 29;  // a power of two, so that its reciprocal is exact
  walker.SetDrawScale({1.0 / kStep, -1.0 / kStep});
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell), (Calls{Cell(-2 * kStep, 0, 1.0), Cell(-kStep, 0, 1.0), Cell(0, 0, 1.0),
                                        Cell(kStep, 0, 1.0), Cell(2 * kStep, 0, 1.0)}));
}

TEST(DtmLinearRectProcessor, MoreCellsThanTheTypeCanCountAreAsManyAsItCan) {
  TestGrid grid(Small(1.0));
  WalkLog log;
  DtmLinearRectProcessor walker({0.5, -2.147e9, 0.6, 2.147e9}, &grid.Access(), &log, false);
  walker.SetDrawScale({1e-12, -1 / 1.07e9});
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell).size(), 5U);
  EXPECT_GT(walker.GetProgress(), 0.0);
  EXPECT_LT(walker.GetProgress(), 1e-9);
}

TEST(DtmLinearRectProcessor, ColumnBehindTheLastIsTheTypesEndWhenItLiesBeyond) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 10000, .blockIds = {dVAL}});
  WalkLog log;
  DtmLinearRectProcessor walker({-1.2e9, 0.5, 1.2e9, 0.5}, &grid.Access(), &log, false);
  constexpr int kStep = 1 << 30;
  walker.SetDrawScale({1.0 / kStep, -1.0});
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Row(0, -kStep, std::numeric_limits<int>::max()), Cell(0, -kStep, 1.0),
                              Cell(0, 0, 1.0), Cell(0, kStep, 1.0), Fini()}));
}

TEST(DtmLinearRectProcessor, CacheHoldsTheAreasOfARow) {
  TestGrid grid(Small());
  for (int col = 0; col < 40; ++col) ASSERT_TRUE(grid.Set(0, col, dVAL, 1) && grid.Set(1, col, dVAL, 1));
  grid.Reopen();
  grid.Access().SetCacheSize(1);
  const std::uint64_t before = grid.Memory().counts.reads;
  WalkLog log;
  // The first row reads the blocks of all areas, the second none.
  std::uint64_t first = 0;
  log.react = [&](const Call& call, double&) {
    if (call == Row(1, 0, 40)) first = grid.Memory().counts.reads;
    return call.kind != Call::kCell || grid.Get(call.row, call.col) == 1;
  };
  EXPECT_TRUE(log.ProcessLinearRect(grid.Access(), {0.5, 0.5, 79.5, 3.5}));
  EXPECT_GT(first, before);
  EXPECT_EQ(grid.Memory().counts.reads, first);
}

TEST(DtmLinearRectProcessor, RowFalseSkipsTheRowAndCellFalseEndsTheWalk) {
  TestGrid grid(Small());
  const Page rect(0.5, 0.5, 1, 3);
  WalkLog row({{1, Deed::kFalse}});
  DtmLinearRectProcessor walker(rect, &grid.Access(), &row, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(row.calls, (Calls{Init(), Row(0, 0, 1), Row(1, 0, 1), Cell(1, 0, 4.0), Fini()}));
  EXPECT_EQ(walker.GetProgress(), 0.5);
  WalkLog cell({{2, Deed::kFalse}});
  EXPECT_FALSE(cell.ProcessLinearRect(grid.Access(), rect));
  EXPECT_EQ(cell.calls, (Calls{Init(), Row(0, 0, 1), Cell(0, 0, 4.0)}));
}

TEST(DtmLinearRectProcessor, StopsBeforeTheNextCell) {
  TestGrid grid(Small());
  WalkLog log({{2, Deed::kStop}});
  DtmLinearRectProcessor walker({0.5, 0.5, 1, 3}, &grid.Access(), &log, false);
  log.SetWalker(&walker);
  EXPECT_FALSE(walker.Process());
  EXPECT_TRUE(walker.IsStopped());
  EXPECT_EQ(log.calls, (Calls{Init(), Row(0, 0, 1), Cell(0, 0, 4.0), Row(1, 0, 1)}));
}

TEST(DtmLinearRectProcessor, SecondWalkStartsAnew) {
  TestGrid grid(Small());
  WalkLog log;
  DtmLinearRectProcessor walker({0.5, 0.5, 1, 3}, &grid.Access(), &log, false);
  EXPECT_EQ(walker.GetProgress(), 0.0);
  EXPECT_TRUE(walker.Process());
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmLinearRectProcessor, RectangleBeyondEverythingIsTheAreasOfTheModelAndAnInvalidOneHasNoCells) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(5, 5, dVAL, 1));
  WalkLog all;
  EXPECT_TRUE(all.ProcessLinearRect(grid.Access(), {-kInfinity, -kInfinity, kInfinity, kInfinity}));
  EXPECT_EQ(all.Of(Call::kCell), (Calls{Cell(4, 4, 4.0), Cell(4, 5, 4.0), Cell(5, 4, 4.0), Cell(5, 5, 4.0)}));
  for (const Page& rect : {Page(), Page(kNaN, 0, 1, 1), Page(1e12, 0, 1e13, 1)}) {
    WalkLog none;
    EXPECT_TRUE(none.ProcessLinearRect(grid.Access(), rect));
    EXPECT_EQ(none.calls, (Calls{Init(), Fini()}));
  }
  ASSERT_TRUE(grid.Set(2000000000, 2000000000, dVAL, 1));
  ASSERT_TRUE(grid.Set(-2000000000, -2000000000, dVAL, 1));
  WalkLog log;
  EXPECT_FALSE(log.ProcessLinearRect(grid.Access(), {-kInfinity, -kInfinity, kInfinity, kInfinity}));
  EXPECT_EQ(log.calls, (Calls{Init()}));
}

TEST(DtmLinearRectProcessor, WithoutProcessorAccessOrFileAnswersFalse) {
  TestGrid grid(Small());
  DtmAccess nowhere(nullptr);
  WalkLog log;
  const Page rect(0, 0, 1, 1);
  EXPECT_FALSE(DtmLinearRectProcessor(rect, nullptr, &log, false).Process());
  EXPECT_FALSE(DtmLinearRectProcessor(rect, &grid.Access(), nullptr, false).Process());
  DtmLinearRectProcessor walker(rect, &nowhere, &log, false);
  walker.SetDrawScale({1, -1});
  EXPECT_FALSE(walker.Process());
  EXPECT_EQ(log.Of(Call::kFini), Calls());
}

}  // namespace
}  // namespace vak::test
