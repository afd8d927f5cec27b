#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "vakdtm/frame/DtmRectProcessor.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Cells of 1 m in areas of 2.
GridSettings Small() { return {.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL}}; }

TEST(DtmRectProcessor, RectangleWithinOneCellIsOnePositionAndOneCell) {
  TestGrid grid(Small());
  WalkLog log;
  DtmRectProcessor walker({2.25, 1.5, 2.75, 1.75}, &grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Area(0, 2, 0.125), Row(1, 2, 2), Cell(1, 2, 0.125), Fini()}));
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmRectProcessor, ColumnThatTheRightEdgeTouchesIsCountedButNotShown) {
  TestGrid grid(Small());
  WalkLog log;
  DtmRectProcessor walker({0, 0.25, 1, 0.75}, &grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Area(0, 0, 0.5), Row(0, 0, 1), Cell(0, 0, 0.5), Fini()}));
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmRectProcessor, PositionThatTheEdgesOnlyTouchIsAnnouncedWithNothingAndCounted) {
  TestGrid grid(Small());
  WalkLog log;
  DtmRectProcessor walker({0, 0, 2, 1.5}, &grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kArea), (Calls{Area(0, 0, 3.0), Area(0, 2, 0.0)}));
  EXPECT_EQ(log.Of(Call::kCell), (Calls{Cell(0, 0, 1.0), Cell(0, 1, 1.0), Cell(1, 0, 0.5), Cell(1, 1, 0.5)}));
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmRectProcessor, WalksPositionsFromTheBottomRowAlsoWithNegativeCoordinates) {
  TestGrid grid(Small());
  WalkLog log;
  EXPECT_TRUE(log.ProcessRect(grid.Access(), {-2.5, -3.5, 0.5, -0.5}));
  EXPECT_EQ(log.Of(Call::kArea), (Calls{Area(-4, -4, 0.75), Area(-4, -2, 3.0), Area(-4, 0, 0.75), Area(-2, -4, 0.75),
                                        Area(-2, -2, 3.0), Area(-2, 0, 0.75)}));
  EXPECT_EQ(log.Of(Call::kRow).front(), Row(-4, -3, -3));
  EXPECT_EQ(log.Of(Call::kCell).front(), Cell(-4, -3, 0.25));
  EXPECT_EQ(log.Of(Call::kCell).back(), Cell(-1, 0, 0.25));
}

TEST(DtmRectProcessor, PositionsAreAnnouncedWithAnAreaBehindThemOrNot) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log;
  EXPECT_TRUE(log.ProcessRect(grid.Access(), {0.5, 0.5, 3.5, 1.5}));
  EXPECT_EQ(log.Of(Call::kArea).size(), 2U);
  EXPECT_EQ(grid.File().NumAreas(), 1);
}

TEST(DtmRectProcessor, AreaFalseSkipsItsCellsWhichAreNotDone) {
  TestGrid grid(Small());
  WalkLog log({{1, Deed::kFalse}});
  DtmRectProcessor walker({0.5, 0.5, 3.5, 1.5}, &grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Area(0, 0, 1.5), Area(0, 2, 1.5), Row(0, 2, 3), Cell(0, 2, 0.5), Cell(0, 3, 0.25),
                              Row(1, 2, 3), Cell(1, 2, 0.5), Cell(1, 3, 0.25), Fini()}));
  EXPECT_EQ(walker.GetProgress(), 0.5);
}

TEST(DtmRectProcessor, AreaThatIsNotWantedCountsAsDone) {
  TestGrid grid(Small());
  for (const double left : {0.0, -1.0, kNaN}) {
    WalkLog log;
    log.react = [left](const Call&, double& weight) {
      weight = left;
      return true;
    };
    DtmRectProcessor walker({0.5, 0.5, 3.5, 1.5}, &grid.Access(), &log, false);
    EXPECT_TRUE(walker.Process());
    EXPECT_EQ(log.Of(Call::kRow), Calls());
    EXPECT_EQ(log.Of(Call::kCell), Calls());
    EXPECT_EQ(walker.GetProgress(), 1.0);
  }
}

TEST(DtmRectProcessor, CellFalseEndsTheWalkWithoutFiniAndRowFalseSkipsTheRow) {
  TestGrid grid(Small());
  const Page rect(0.5, 0.5, 0.75, 1.5);
  WalkLog row({{2, Deed::kFalse}});
  DtmRectProcessor walker(rect, &grid.Access(), &row, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(row.calls, (Calls{Init(), Area(0, 0, 0.25), Row(0, 0, 0), Row(1, 0, 0), Cell(1, 0, 0.125), Fini()}));
  EXPECT_EQ(walker.GetProgress(), 0.5);
  WalkLog cell({{3, Deed::kFalse}});
  EXPECT_FALSE(cell.ProcessRect(grid.Access(), rect));
  EXPECT_EQ(cell.calls, (Calls{Init(), Area(0, 0, 0.25), Row(0, 0, 0), Cell(0, 0, 0.125)}));
}

TEST(DtmRectProcessor, StopsBeforeTheNextPositionAndTheNextCell) {
  TestGrid grid(Small());
  struct Case {
    std::size_t at;
    std::size_t calls;
  };
  // At Init, at the first cell, at the last cell of a position, at a position, whose first row still comes.
  for (const Case& one : {Case{0, 1}, Case{3, 4}, Case{7, 8}, Case{1, 3}}) {
    WalkLog log({{one.at, Deed::kStop}});
    DtmRectProcessor walker({0, 0, 3.5, 1.5}, &grid.Access(), &log, false);
    log.SetWalker(&walker);
    EXPECT_FALSE(walker.Process());
    EXPECT_EQ(log.calls.size(), one.calls) << "at " << one.at;
  }
}

TEST(DtmRectProcessor, EdgeThatIsACellsEdgeButForRoundingLeavesNoSliver) {
  // 0.3 is a little below 3 x 0.1, 0.9 a little above 3 x 0.3.
  struct Case {
    double cellSize;
    double lower;
    double upper;
  };
  for (const Case& one : {Case{0.1, 0.3, 0.6}, Case{0.3, 0.9, 1.8}, Case{0.3, 0.0, 0.9}, Case{0.7, -4.9, -0.7},
                          Case{0.1, 123456.3, 123456.7}}) {
    SCOPED_TRACE(std::to_string(one.cellSize) + " " + std::to_string(one.lower));
    TestGrid grid({.cellSize = one.cellSize, .areaSize = 4, .blockIds = {dVAL}});
    WalkLog log;
    EXPECT_TRUE(log.ProcessRect(grid.Access(), {one.lower, one.lower, one.upper, one.upper}));
    const auto wanted = static_cast<std::size_t>(std::lround((one.upper - one.lower) / one.cellSize));
    EXPECT_EQ(log.Of(Call::kCell).size(), wanted * wanted);
    for (const Call& cell : log.Of(Call::kCell)) EXPECT_EQ(cell.weight, one.cellSize * one.cellSize);
  }
}

TEST(DtmRectProcessor, EdgeBesideNoughtThatIsMeantToBeNoughtLeavesNoSliver) {
  TestGrid grid({.cellSize = 0.1, .areaSize = 4, .blockIds = {dVAL}});
  const double beside = 0.3 - 0.1 * 3;
  ASSERT_LT(beside, 0.0);
  WalkLog log;
  EXPECT_TRUE(log.ProcessRect(grid.Access(), {beside, beside, 0.2, 0.2}));
  constexpr double kCell = 0.1 * 0.1;
  EXPECT_EQ(log.Of(Call::kCell), (Calls{Cell(0, 0, kCell), Cell(0, 1, kCell), Cell(1, 0, kCell), Cell(1, 1, kCell)}));
}

TEST(DtmRectProcessor, EdgesUpToSomeRoundingsOffCountAsOnThoseOfCells) {
  constexpr double kCell = 0.1;
  TestGrid grid({.cellSize = kCell, .areaSize = 4, .blockIds = {dVAL}});
  for (int col = 1; col < 200; ++col) {
    double left = col * kCell;
    double right = (col + 1) * kCell;
    for (int ulps = 0; ulps < 3; ++ulps) {
      left = std::nextafter(left, 0.0);
      right = std::nextafter(right, kInfinity);
    }
    WalkLog log;
    EXPECT_TRUE(log.ProcessRect(grid.Access(), {left, 0, right, kCell}));
    EXPECT_EQ(log.Of(Call::kCell), (Calls{Cell(0, col, kCell * kCell)}));
  }
}

TEST(DtmRectProcessor, UpperEdgeOfACellIsTheLowerOneOfTheNext) {
  // Of 13 cells of 0.1 the edge is above that of twelve and 0.1 more, of 6 it is below that of five and 0.1 more.
  for (const double cellSize : {0.1, 0.3, 1.1}) {
    TestGrid grid({.cellSize = cellSize, .areaSize = 4, .blockIds = {dVAL}});
    for (int col = 1; col < 200; ++col) {
      // The column before is in the range, for its edge is touched from below.
      const double left = std::nextafter(col * cellSize, 0.0);
      WalkLog log;
      EXPECT_TRUE(log.ProcessRect(grid.Access(), {left, 0, (col + 1) * cellSize, cellSize}));
      EXPECT_EQ(log.Of(Call::kCell), (Calls{Cell(0, col, cellSize * cellSize)})) << cellSize;
    }
  }
}

TEST(DtmRectProcessor, WhatIsNotCutHasTheWholePlanAreaToTheLastBit) {
  for (const double cellSize : {0.1, 0.3, 1.1}) {
    TestGrid grid({.cellSize = cellSize, .areaSize = 4, .blockIds = {dVAL}});
    for (int first = -60; first < 60; first += 4) {
      const double lower = first * cellSize;
      const double upper = (first + 8) * cellSize;
      WalkLog log;
      EXPECT_TRUE(log.ProcessRect(grid.Access(), {lower, lower, upper, upper}));
      int whole = 0;
      for (const Call& area : log.Of(Call::kArea)) {
        if (area.weight == 0) continue;
        EXPECT_EQ(area.weight, 4 * cellSize * (4 * cellSize));
        ++whole;
      }
      EXPECT_EQ(whole, 4);
      EXPECT_EQ(log.Of(Call::kCell).size(), 64U);
      for (const Call& cell : log.Of(Call::kCell)) EXPECT_EQ(cell.weight, cellSize * cellSize);
    }
  }
}

TEST(DtmRectProcessor, TinyRectanglesAreNotTakenForSlivers) {
  TestGrid grid(Small());
  WalkLog log;
  EXPECT_TRUE(log.ProcessRect(grid.Access(), {0.5, 1.0, 0.5 + 1e-12, 1.0 + 1e-12}));
  EXPECT_EQ(log.Of(Call::kCell).size(), 1U);
}

TEST(DtmRectProcessor, FlatAndInvalidRectanglesShowNoCell) {
  TestGrid grid(Small());
  struct Case {
    std::string name;
    Page rect;
    std::size_t areas;
  };
  for (const Case& one : {Case{"line", {0.5, 0.5, 0.5, 1.5}, 1}, Case{"point", {0.5, 0.5, 0.5, 0.5}, 1},
                          Case{"none", Page(), 0}, Case{"wrong way round", {1, 0, 0, 1}, 0},
                          Case{"not a number", {kNaN, 0, 1, 1}, 0}, Case{"no numbers", {kNaN, kNaN, kNaN, kNaN}, 0}}) {
    SCOPED_TRACE(one.name);
    for (const bool answer : {true, false}) {
      WalkLog log;
      log.react = [answer](const Call& call, double&) { return answer || call.kind != Call::kFini; };
      EXPECT_EQ(log.ProcessRect(grid.Access(), one.rect), answer);
      EXPECT_EQ(log.Of(Call::kArea).size(), one.areas);
      EXPECT_EQ(log.Of(Call::kCell).size(), 0U);
      EXPECT_EQ(log.Of(Call::kFini).size(), 1U);
    }
  }
}

TEST(DtmRectProcessor, RectangleBeyondEverythingIsTheAreasOfTheModel) {
  TestGrid grid(Small());
  const Page everything(-kInfinity, -kInfinity, kInfinity, kInfinity);
  WalkLog none;
  EXPECT_TRUE(none.ProcessRect(grid.Access(), everything));
  EXPECT_EQ(none.calls, (Calls{Init(), Fini()}));

  ASSERT_TRUE(grid.Set(-1, 5, dVAL, 1));
  ASSERT_TRUE(grid.Set(3, 3, dVAL, 1));
  constexpr double kHuge = std::numeric_limits<double>::max();
  for (const Page& rect : {everything, Page(-kHuge, -kHuge, kHuge, kHuge), Page(-1e12, -1e12, 1e12, 1e12)}) {
    WalkLog log;
    DtmRectProcessor walker(rect, &grid.Access(), &log, false);
    EXPECT_TRUE(walker.Process());
    EXPECT_EQ(log.Of(Call::kArea).size(), 6U);
    ASSERT_EQ(log.Of(Call::kCell).size(), 24U);
    EXPECT_EQ(log.Of(Call::kCell).front(), Cell(-2, 2, 1.0));
    EXPECT_EQ(log.Of(Call::kCell).back(), Cell(3, 5, 1.0));
    EXPECT_EQ(walker.GetProgress(), 1.0);
  }
  WalkLog half;
  EXPECT_TRUE(half.ProcessRect(grid.Access(), {-kInfinity, 1.5, kInfinity, kInfinity}));
  EXPECT_EQ(half.Of(Call::kCell).size(), 12U);
  EXPECT_EQ(half.Of(Call::kCell).front(), Cell(1, 2, 0.5));
}

TEST(DtmRectProcessor, RectangleThatNoModelReachesHasNoCells) {
  TestGrid grid(Small());
  for (const Page& rect : {Page(1e10, 0, 1e11, 1), Page(-1e300, 0, -1e200, 1), Page(0, 1e10, 1, kInfinity)}) {
    WalkLog log;
    DtmRectProcessor walker(rect, &grid.Access(), &log, false);
    EXPECT_TRUE(walker.Process());
    EXPECT_EQ(log.calls, (Calls{Init(), Fini()}));
    EXPECT_EQ(walker.GetProgress(), 0.0);
  }
}

TEST(DtmRectProcessor, ReachesTheOutermostCellsThatAModelMayHave) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 3, .blockIds = {dVAL}});
  const int largest = grid.File().LargestAllowed();
  for (const int end : {-largest, largest}) {
    WalkLog log;
    EXPECT_TRUE(log.ProcessRect(grid.Access(), {end - 9.5, end + 0.25, end + 10.5, end + 0.5}));
    const Calls cells = log.Of(Call::kCell);
    ASSERT_EQ(cells.size(), 11U);
    EXPECT_EQ(end < 0 ? cells.front() : cells.back(), Cell(end, end, 0.25));
  }
}

TEST(DtmRectProcessor, AreasTooFarApartToBeCountedFailTheWalk) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(2000000000, 2000000000, dVAL, 1));
  ASSERT_TRUE(grid.Set(-2000000000, -2000000000, dVAL, 1));
  WalkLog log;
  DtmRectProcessor walker({-kInfinity, -kInfinity, kInfinity, kInfinity}, &grid.Access(), &log, false);
  EXPECT_FALSE(walker.Process());
  EXPECT_FALSE(walker.IsStopped());
  EXPECT_EQ(log.calls, (Calls{Init()}));
}

TEST(DtmRectProcessor, MoreCellsThanThirtyTwoBitsAreCounted) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 10000, .blockIds = {dVAL}});
  WalkLog log;
  log.react = [](const Call&, double& weight) {
    weight = 0;
    return true;
  };
  DtmRectProcessor walker({0.5, 0.5, 100000.5, 100000.5}, &grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kArea).size(), 121U);
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmRectProcessor, SharedCounterDividesThePositionsAndEachEnds) {
  TestGrid grid(Small());
  const Page rect(0.5, 0.5, 9.5, 3.5);  // ten positions
  const auto counter = std::make_shared<AtomicCounter>();
  WalkLog one;
  WalkLog two;
  DtmRectProcessor first(rect, &grid.Access(), &one, false);
  DtmRectProcessor second(rect, &grid.Access(), &two, false);
  first.SetSharedCounter(counter);
  second.SetSharedCounter(counter);
  EXPECT_TRUE(first.Initialize());
  EXPECT_TRUE(second.Initialize());
  // The second runs as a whole while the first is in its third position.
  one.react = [&](const Call& call, double&) {
    return one.Of(Call::kArea).size() != 3 || call.kind != Call::kArea || second.Process();
  };
  EXPECT_TRUE(first.Process());
  EXPECT_EQ(one.Of(Call::kArea).size(), 3U);
  EXPECT_EQ(two.Of(Call::kArea).size(), 7U);
  std::set<std::pair<int, int>> places;
  for (const WalkLog* log : {&one, &two}) {
    for (const Call& call : log->Of(Call::kArea)) places.emplace(call.row, call.col);
    EXPECT_EQ(log->Of(Call::kFini).size(), 1U);
  }
  EXPECT_EQ(places.size(), 10U);
  EXPECT_EQ(first.GetProgress() + second.GetProgress(), 1.0);
}

TEST(DtmRectProcessor, SharedRangeKeepsPositionsInPlaceWhileTheModelGrows) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  ASSERT_TRUE(grid.Set(5, 5, dVAL, 1));
  const Page everything(-kInfinity, -kInfinity, kInfinity, kInfinity);
  const auto counter = std::make_shared<AtomicCounter>();
  const auto range = std::make_shared<SharedCellRange>();
  WalkLog one;
  WalkLog two;
  DtmRectProcessor first(everything, &grid.Access(), &one, false);
  DtmRectProcessor second(everything, &grid.Access(), &two, false);
  for (DtmRectProcessor* const walker : {&first, &second}) {
    walker->SetSharedCounter(counter);
    walker->SetSharedRange(range);
    walker->SetSharedRange(nullptr);
  }
  EXPECT_TRUE(first.Initialize());
  // What comes before the first of them begins is walked, also if it comes between two.
  ASSERT_TRUE(grid.Set(0, 6, dVAL, 1));
  EXPECT_TRUE(second.Initialize());
  one.react = [&](const Call& call, double&) {
    if (one.Of(Call::kArea).size() != 3 || call.kind != Call::kArea) return true;
    return grid.Set(-9, -9, dVAL, 1) && second.Process();
  };
  EXPECT_TRUE(first.Process());
  std::set<std::pair<int, int>> places;
  std::size_t announced = 0;
  for (const WalkLog* log : {&one, &two}) {
    for (const Call& call : log->Of(Call::kArea)) {
      EXPECT_TRUE(call.row >= 0 && call.col >= 0);
      places.emplace(call.row, call.col);
      ++announced;
    }
  }
  EXPECT_EQ(two.Of(Call::kArea).size(), 9U);
  EXPECT_EQ(announced, 12U);
  EXPECT_EQ(places.size(), 12U);
  EXPECT_EQ(first.GetProgress() + second.GetProgress(), 1.0);
  // Initialised again, they walk what is there now: eight rows of nine positions.
  one.react = [](const Call&, double&) { return true; };
  one.calls.clear();
  EXPECT_TRUE(first.Initialize() && second.Initialize());
  EXPECT_TRUE(first.Process());
  EXPECT_EQ(one.Of(Call::kArea).size(), 72U);
}

TEST(DtmRectProcessor, ModelThatInitAttachesIsWalked) {
  TestGrid grid(Small());
  DtmAccess access(nullptr);
  WalkLog log;
  log.react = [&](const Call& call, double&) {
    if (call.kind == Call::kInit) access.SetDtmFile(&grid.File());
    return true;
  };
  DtmRectProcessor walker({0.5, 0.5, 1.5, 1.5}, &access, &log, false);
  EXPECT_TRUE(walker.Initialize());
  EXPECT_EQ(walker.GetProgress(), 0.0);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmRectProcessor, RunsAgainOnlyAfterInitialize) {
  TestGrid grid(Small());
  WalkLog log;
  DtmRectProcessor walker({0.5, 0.5, 1.5, 1.5}, &grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  log.calls.clear();
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Fini()}));
  log.calls.clear();
  EXPECT_TRUE(walker.Initialize());
  EXPECT_EQ(walker.GetProgress(), 0.0);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
}

TEST(DtmRectProcessor, NoCounterLeavesItsOwn) {
  TestGrid grid(Small());
  WalkLog log;
  DtmRectProcessor walker({0.5, 0.5, 1.5, 1.5}, &grid.Access(), &log, false);
  walker.SetSharedCounter(nullptr);
  EXPECT_TRUE(walker.Initialize());
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
}

TEST(DtmRectProcessor, WithoutProcessorAccessOrFileAnswersFalse) {
  TestGrid grid(Small());
  DtmAccess nowhere(nullptr);
  WalkLog log;
  const Page rect(0, 0, 1, 1);
  EXPECT_FALSE(DtmRectProcessor(rect, nullptr, &log, false).Process());
  EXPECT_FALSE(DtmRectProcessor(rect, &grid.Access(), nullptr, false).Process());
  EXPECT_FALSE(log.ProcessRect(nowhere, rect));
  EXPECT_EQ(log.Of(Call::kFini), Calls());
}

}  // namespace
}  // namespace vak::test
