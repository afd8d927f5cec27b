#include <gtest/gtest.h>
#include <limits>
#include <vector>

#include "vakdtm/frame/DtmAreaCellProcessor.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

class DtmAreaCellProcessorTest : public testing::Test {
 protected:
  DtmAreaCellProcessorTest() {
    grid_.Set(0, 0, dVAL, 1);
    grid_.Set(2, 2, dVAL, 1);
  }

  TestGrid grid_{GridSettings{.cellSize = 0.5, .areaSize = 2, .blockIds = {dVAL}}};
};

TEST_F(DtmAreaCellProcessorTest, ShowsTheAreasAsListedAlsoTwiceAndNoRows) {
  const std::vector<int> places = {1, 0, 1};
  WalkLog log;
  DtmAreaCellProcessor walker(&grid_.Access(), &log, places);
  EXPECT_TRUE(walker.Process());
  const Calls first = {Area(2, 2, 1.0), Cell(2, 2, 0.25), Cell(2, 3, 0.25), Cell(3, 2, 0.25), Cell(3, 3, 0.25)};
  Calls expected = {Init()};
  expected.insert(expected.end(), first.begin(), first.end());
  for (const Call& call : {Area(0, 0, 1.0), Cell(0, 0, 0.25), Cell(0, 1, 0.25), Cell(1, 0, 0.25), Cell(1, 1, 0.25)}) {
    expected.push_back(call);
  }
  expected.insert(expected.end(), first.begin(), first.end());
  expected.push_back(Fini());
  EXPECT_EQ(log.calls, expected);
  EXPECT_EQ(walker.GetProgress(), 0.0);
}

TEST_F(DtmAreaCellProcessorTest, EmptyAreasAreShownToo) {
  ASSERT_TRUE(grid_.Clear(0, 0));
  grid_.Leave();
  ASSERT_TRUE(grid_.Area(0, 0)->IsEmpty());
  const std::vector<int> places = {0};
  WalkLog log;
  EXPECT_TRUE(DtmAreaCellProcessor(&grid_.Access(), &log, places).Process());
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
}

TEST_F(DtmAreaCellProcessorTest, ListIsLookedAtWhenTheWalkRuns) {
  std::vector<int> places;
  WalkLog log;
  DtmAreaCellProcessor walker(&grid_.Access(), &log, places);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.calls, (Calls{Init(), Fini()}));
  places.push_back(0);
  EXPECT_TRUE(walker.Process());
  EXPECT_EQ(log.Of(Call::kCell).size(), 4U);
}

TEST_F(DtmAreaCellProcessorTest, WhatIsAddedToTheListMeanwhileIsWalkedToo) {
  std::vector<int> places = {0};
  WalkLog log;
  log.react = [&places](const Call& call, double&) {
    // Often enough to have the list move.
    if (call.kind == Call::kArea && places.size() < 40) places.insert(places.end(), 3, 1);
    return true;
  };
  EXPECT_TRUE(DtmAreaCellProcessor(&grid_.Access(), &log, places).Process());
  EXPECT_EQ(log.Of(Call::kArea).size(), 40U);
  EXPECT_EQ(log.Of(Call::kArea)[1], Area(2, 2, 1.0));
}

TEST_F(DtmAreaCellProcessorTest, OnlyWhatIsAboveNothingIsWanted) {
  const std::vector<int> places = {0};
  for (const double left : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    WalkLog log;
    log.react = [left](const Call& call, double& weight) {
      if (call.kind == Call::kArea) weight = left;
      return true;
    };
    EXPECT_TRUE(DtmAreaCellProcessor(&grid_.Access(), &log, places).Process());
    EXPECT_EQ(log.calls, (Calls{Init(), Area(0, 0, 1.0), Fini()}));
  }
}

TEST_F(DtmAreaCellProcessorTest, CannotBeStopped) {
  const std::vector<int> places = {0, 1};
  WalkLog log({{1, Deed::kStop}});
  DtmAreaCellProcessor walker(&grid_.Access(), &log, places);
  log.SetWalker(&walker);
  EXPECT_TRUE(walker.Process());
  EXPECT_TRUE(walker.IsStopped());
  EXPECT_EQ(log.Of(Call::kCell).size(), 8U);
}

TEST_F(DtmAreaCellProcessorTest, FalseEndsTheWalkWithoutFini) {
  const std::vector<int> places = {0, 1};
  for (const std::size_t at : {0U, 1U, 2U}) {
    WalkLog log({{at, Deed::kFalse}});
    EXPECT_FALSE(DtmAreaCellProcessor(&grid_.Access(), &log, places).Process());
    EXPECT_EQ(log.calls.size(), at + 1);
  }
}

TEST_F(DtmAreaCellProcessorTest, PlaceThatTheFileDoesNotHaveEndsTheWalkWithFalse) {
  for (const int place : {-1, 2, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    const std::vector<int> places = {0, place, 1};
    WalkLog log;
    EXPECT_FALSE(DtmAreaCellProcessor(&grid_.Access(), &log, places).Process());
    EXPECT_EQ(log.Of(Call::kArea).size(), 1U);
    EXPECT_EQ(log.Of(Call::kFini), Calls());
  }
}

TEST_F(DtmAreaCellProcessorTest, WithoutProcessorAccessOrFileAnswersFalse) {
  const std::vector<int> places;
  DtmAccess nowhere(nullptr);
  WalkLog log;
  EXPECT_FALSE(DtmAreaCellProcessor(nullptr, &log, places).Process());
  EXPECT_FALSE(DtmAreaCellProcessor(&grid_.Access(), nullptr, places).Process());
  EXPECT_FALSE(DtmAreaCellProcessor(&nowhere, &log, places).Process());
  EXPECT_EQ(log.Of(Call::kFini), Calls());
}

}  // namespace
}  // namespace vak::test
