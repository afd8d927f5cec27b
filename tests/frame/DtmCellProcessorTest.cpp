#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/frame/DtmCellProcessor.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// Cells of 0.5 m in areas of 2.
GridSettings Small() { return {.cellSize = 0.5, .areaSize = 2, .blockIds = {dVAL}}; }

TEST(DtmCellProcessor, ShowsAreasInTheOrderOfTheListRowsUpwardsAndColumnsToTheRight) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(3, 3, dVAL, 1));
  ASSERT_TRUE(grid.Set(-1, -1, dVAL, 1));
  WalkLog log;
  DtmCellProcessor walker(&grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  const Calls expected = {Init(),
                          Area(2, 2, 1.0),
                          Row(2, 2, 4),
                          Cell(2, 2, 0.25),
                          Cell(2, 3, 0.25),
                          Row(3, 2, 4),
                          Cell(3, 2, 0.25),
                          Cell(3, 3, 0.25),
                          Area(-2, -2, 1.0),
                          Row(-2, -2, 0),
                          Cell(-2, -2, 0.25),
                          Cell(-2, -1, 0.25),
                          Row(-1, -2, 0),
                          Cell(-1, -2, 0.25),
                          Cell(-1, -1, 0.25),
                          Fini()};
  EXPECT_EQ(log.calls, expected);
  EXPECT_EQ(log.shown, &grid.Access());
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmCellProcessor, EmptyModelHasInitAndFiniAndAnswersWhatFiniDoes) {
  for (const bool answer : {true, false}) {
    TestGrid grid(Small());
    WalkLog log(answer ? Deeds() : Deeds{{1, Deed::kFalse}});
    EXPECT_EQ(log.ProcessAllCells(grid.Access()), answer);
    EXPECT_EQ(log.calls, (Calls{Init(), Fini()}));
  }
}

TEST(DtmCellProcessor, AreaThatIsNotWantedCountsAsDone) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  for (const double left : {0.0, -1.0}) {
    WalkLog log;
    log.react = [left](const Call&, double& weight) {
      weight = left;
      return true;
    };
    DtmCellProcessor walker(&grid.Access(), &log, false);
    EXPECT_TRUE(walker.Process());
    EXPECT_EQ(log.calls, (Calls{Init(), Area(0, 0, 1.0), Fini()}));
    EXPECT_EQ(walker.GetProgress(), 1.0);
  }
}

TEST(DtmCellProcessor, NotANumberLeftOfAnAreaDoesNotKeepFromItsCells) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log;
  log.react = [](const Call&, double& weight) {
    weight = std::numeric_limits<double>::quiet_NaN();
    return true;
  };
  EXPECT_TRUE(log.ProcessAllCells(grid.Access()));
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
}

TEST(DtmCellProcessor, WhatOneCellLeavesOfTheWeightIsNotTheNextOnes) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log;
  log.react = [](const Call& call, double& weight) {
    if (call.kind == Call::kCell) weight = 0;
    return true;
  };
  EXPECT_TRUE(log.ProcessAllCells(grid.Access()));
  for (const Call& cell : log.Of(Call::kCell)) EXPECT_EQ(cell.weight, 0.25);
}

TEST(DtmCellProcessor, FalseOfInitAreaAndCellEndsTheWalkWithoutFini) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  const Calls all = {Init(), Area(0, 0, 1.0), Row(0, 0, 2), Cell(0, 0, 0.25)};
  for (const std::size_t at : {0U, 1U, 3U}) {
    WalkLog log({{at, Deed::kFalse}});
    EXPECT_FALSE(log.ProcessAllCells(grid.Access()));
    EXPECT_EQ(log.calls, Calls(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(at) + 1));
  }
}

TEST(DtmCellProcessor, SkippedRowIsNotCountedAsDone) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log({{2, Deed::kFalse}});
  DtmCellProcessor walker(&grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls,
            (Calls{Init(), Area(0, 0, 1.0), Row(0, 0, 2), Row(1, 0, 2), Cell(1, 0, 0.25), Cell(1, 1, 0.25), Fini()}));
  EXPECT_EQ(walker.GetProgress(), 0.5);
}

TEST(DtmCellProcessor, StopsBeforeTheNextCellAndSaysSo) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log({{3, Deed::kStop}});
  DtmCellProcessor walker(&grid.Access(), &log, false);
  log.SetWalker(&walker);
  EXPECT_FALSE(walker.Process());
  EXPECT_TRUE(walker.IsStopped());
  EXPECT_EQ(log.calls, (Calls{Init(), Area(0, 0, 1.0), Row(0, 0, 2), Cell(0, 0, 0.25)}));
}

TEST(DtmCellProcessor, StopsBeforeTheNextAreaToo) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log({{0, Deed::kStop}});
  DtmCellProcessor walker(&grid.Access(), &log, false);
  log.SetWalker(&walker);
  EXPECT_FALSE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init()}));
}

TEST(DtmCellProcessor, RunsOnWhenStoppingIsNotAllowed) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log({{3, Deed::kStop}});
  DtmCellProcessor walker(&grid.Access(), &log, false);
  walker.SetAllowStop(false);
  log.SetWalker(&walker);
  EXPECT_TRUE(walker.Process());
}

TEST(DtmCellProcessor, EmptiedAreasAreSkippedAndCountAsDone) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  ASSERT_TRUE(grid.Set(2, 2, dVAL, 1));
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Leave();  // looks whether the area has become empty
  WalkLog log;
  DtmCellProcessor walker(&grid.Access(), &log, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kArea), (Calls{Area(2, 2, 1.0)}));
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmCellProcessor, AreasThatWereNotReadYetAreVisited) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  grid.Reopen();
  WalkLog log;
  EXPECT_TRUE(log.ProcessAllCells(grid.Access()));
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
}

TEST(DtmCellProcessor, AreasThatComeDuringTheWalkAreNotVisited) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log;
  log.react = [&grid](const Call& call, double&) {
    return call.kind != Call::kCell || grid.Set(call.row + 10, call.col + 10, dVAL, 1);
  };
  EXPECT_TRUE(log.ProcessAllCells(grid.Access()));
  EXPECT_EQ(log.Of(Call::kArea).size(), 1U);
  EXPECT_EQ(grid.File().NumAreas(), 2);
}

TEST(DtmCellProcessor, ProgressIsThatOfTheCellsSoFar) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log;
  DtmCellProcessor walker(&grid.Access(), &log, false);
  EXPECT_EQ(walker.GetProgress(), 0.0);
  std::vector<double> progress;
  log.react = [&](const Call& call, double&) {
    if (call.kind == Call::kCell) progress.push_back(walker.GetProgress());
    return true;
  };
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(progress, (std::vector<double>{0.0, 0.25, 0.5, 0.75}));
  progress.clear();
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(progress, (std::vector<double>{0.0, 0.25, 0.5, 0.75})) << "a second walk starts anew";
}

TEST(DtmCellProcessor, WithoutProcessorAccessOrFileAnswersFalse) {
  TestGrid grid(Small());
  WalkLog log;
  DtmAccess nowhere(nullptr);
  EXPECT_FALSE(DtmCellProcessor(nullptr, &log, false).Process());
  EXPECT_FALSE(DtmCellProcessor(&grid.Access(), nullptr, false).Process());
  EXPECT_EQ(log.calls, Calls());
  EXPECT_FALSE(log.ProcessAllCells(nowhere));
  EXPECT_EQ(log.Of(Call::kFini), Calls());
}

TEST(DtmCellProcessor, ProcessorMayAttachTheFileInInit) {
  TestGrid grid(Small());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  WalkLog log;
  DtmAccess access(nullptr);
  log.react = [&](const Call& call, double&) {
    if (call.kind == Call::kInit) access.SetDtmFile(&grid.File());
    return true;
  };
  EXPECT_TRUE(log.ProcessAllCells(access));
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
}

class Mortal final : public WalkLog {
 public:
  explicit Mortal(int& gone) : gone_(gone) {}
  ~Mortal() override { ++gone_; }
  Mortal(const Mortal&) = delete;
  Mortal& operator=(const Mortal&) = delete;

 private:
  int& gone_;
};

TEST(DtmCellProcessor, DeletesWhatItOwnsAndNothingElse) {
  TestGrid grid(Small());
  const int counts = grid.File().OpenCount();
  int gone = 0;
  {
    Mortal kept(gone);
    {
      const DtmCellProcessor walker(&grid.Access(), &kept, false);
    }
    EXPECT_EQ(gone, 0);
    {
      const DtmCellProcessor walker(new DtmAccess(&grid.File()), new Mortal(gone), true);
    }
    EXPECT_EQ(gone, 1);
  }
  EXPECT_EQ(grid.File().OpenCount(), counts);
}

}  // namespace
}  // namespace vak::test
