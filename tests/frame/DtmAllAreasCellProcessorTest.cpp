#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/frame/DtmAllAreasCellProcessor.h"
#include "vakdtm/frame/DtmExtentsProcessor.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

TEST(DtmAllAreasCellProcessor, ShowsRowsFromTheTopAndCellsThatHaveNoArea) {
  TestGrid grid({.cellSize = 2.0, .areaSize = 1, .blockIds = {dVAL}});
  ASSERT_TRUE(grid.Set(-1, 1, dVAL, 1));
  ASSERT_TRUE(grid.Set(1, 2, dVAL, 1));
  DtmExtentsProcessor extents(dVAL);
  ASSERT_TRUE(extents.ProcessAllCells(grid.Access()));
  WalkLog log;
  DtmAllAreasCellProcessor walker(&grid.Access(), &log, &extents, false);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Cell(1, 1, 4.0), Cell(1, 2, 4.0), Cell(0, 1, 4.0), Cell(0, 2, 4.0),
                              Cell(-1, 1, 4.0), Cell(-1, 2, 4.0), Fini()}));
  EXPECT_EQ(grid.Area(0, 1), nullptr);
  EXPECT_EQ(walker.GetProgress(), 1.0);
}

TEST(DtmAllAreasCellProcessor, ProgressMovesInWholePerCentsAndIsNotReset) {
  TestGrid grid;
  double weight = 1;
  DtmExtentsProcessor extents(0);
  ASSERT_TRUE(extents.Init(grid.Access()));
  ASSERT_TRUE(extents.ProcessCell(0, 0, weight));
  ASSERT_TRUE(extents.ProcessCell(0, 2, weight));
  WalkLog log;
  DtmAllAreasCellProcessor walker(&grid.Access(), &log, &extents, false);
  EXPECT_EQ(walker.GetProgress(), 0.0);
  std::vector<double> progress;
  log.react = [&](const Call& call, double&) {
    if (call.kind == Call::kCell) progress.push_back(walker.GetProgress());
    return true;
  };
  EXPECT_TRUE(walker.Process());
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(progress, (std::vector<double>{0.0, 0.33, 0.66, 1.0, 1.33, 1.66}));
}

TEST(DtmAllAreasCellProcessor, ExtentsAreReadWhenTheWalkBegins) {
  TestGrid grid;
  double weight = 1;
  DtmExtentsProcessor extents(0);
  WalkLog log;
  DtmAllAreasCellProcessor walker(&grid.Access(), &log, &extents, false);
  ASSERT_TRUE(extents.ProcessCell(5, 6, weight));
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell), (Calls{Cell(5, 6, 1.0)}));
}

TEST(DtmAllAreasCellProcessor, ExtentsAreReadBehindInit) {
  TestGrid grid;
  DtmExtentsProcessor extents(0);
  WalkLog log;
  log.react = [&extents](const Call& call, double&) {
    double weight = 1;
    return call.kind != Call::kInit || extents.ProcessCell(5, 6, weight);
  };
  EXPECT_TRUE(DtmAllAreasCellProcessor(&grid.Access(), &log, &extents, false).Process());
  EXPECT_EQ(log.Of(Call::kCell), (Calls{Cell(5, 6, 1.0)}));
}

TEST(DtmAllAreasCellProcessor, NothingFoundLeavesInitAndFini) {
  TestGrid grid;
  DtmExtentsProcessor extents(dVAL);
  for (const bool answer : {true, false}) {
    WalkLog log(answer ? Deeds() : Deeds{{1, Deed::kFalse}});
    DtmAllAreasCellProcessor walker(&grid.Access(), &log, &extents, false);
    EXPECT_EQ(walker.Process(), answer);
    EXPECT_EQ(log.calls, (Calls{Init(), Fini()}));
    EXPECT_EQ(walker.GetProgress(), 0.0);
  }
}

TEST(DtmAllAreasCellProcessor, ReachesTheEndsOfTheType) {
  TestGrid grid;
  constexpr int kLow = std::numeric_limits<int>::min();
  constexpr int kHigh = std::numeric_limits<int>::max();
  for (const int end : {kLow, kHigh}) {
    double weight = 1;
    DtmExtentsProcessor extents(0);
    ASSERT_TRUE(extents.ProcessCell(end, end, weight));
    WalkLog log;
    DtmAllAreasCellProcessor walker(&grid.Access(), &log, &extents, false);
    EXPECT_TRUE(walker.Process());
    EXPECT_EQ(log.calls, (Calls{Init(), Cell(end, end, 1.0), Fini()}));
  }
  // As many cells as the type can't count: the first one stops the walk.
  double weight = 1;
  DtmExtentsProcessor extents(0);
  ASSERT_TRUE(extents.ProcessCell(kLow, kLow, weight));
  ASSERT_TRUE(extents.ProcessCell(kHigh, kHigh, weight));
  WalkLog log({{3, Deed::kStop}});
  DtmAllAreasCellProcessor walker(&grid.Access(), &log, &extents, false);
  log.SetWalker(&walker);
  EXPECT_FALSE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Cell(kHigh, kLow, 1.0), Cell(kHigh, kLow + 1, 1.0), Cell(kHigh, kLow + 2, 1.0)}));
  EXPECT_EQ(walker.GetProgress(), 0.0);
}

TEST(DtmAllAreasCellProcessor, FalseOfACellEndsTheWalkWithoutFini) {
  TestGrid grid;
  double weight = 1;
  DtmExtentsProcessor extents(0);
  ASSERT_TRUE(extents.ProcessCell(0, 0, weight));
  for (const std::size_t at : {0U, 1U}) {
    WalkLog log({{at, Deed::kFalse}});
    EXPECT_FALSE(DtmAllAreasCellProcessor(&grid.Access(), &log, &extents, false).Process());
    EXPECT_EQ(log.calls.size(), at + 1);
  }
}

TEST(DtmAllAreasCellProcessor, WithoutProcessorAccessFileOrExtentsAnswersFalse) {
  TestGrid grid;
  DtmExtentsProcessor extents(0);
  DtmAccess nowhere(nullptr);
  WalkLog log;
  EXPECT_FALSE(DtmAllAreasCellProcessor(nullptr, &log, &extents, false).Process());
  EXPECT_FALSE(DtmAllAreasCellProcessor(&grid.Access(), nullptr, &extents, false).Process());
  EXPECT_FALSE(DtmAllAreasCellProcessor(&grid.Access(), &log, nullptr, false).Process());
  EXPECT_EQ(log.calls, Calls()) << "the processor is told nothing";
  EXPECT_FALSE(DtmAllAreasCellProcessor(&nowhere, &log, &extents, false).Process());
  EXPECT_EQ(log.Of(Call::kFini), Calls());
}

}  // namespace
}  // namespace vak::test
