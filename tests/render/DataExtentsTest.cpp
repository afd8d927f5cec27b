#include <atomic>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "vakdtm/render/DataExtents.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/RandomSeed.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

const std::atomic<bool> kRunning{true};

TEST(DataExtents, AreThoseOfTheCellsWithTheirEdges) {
  TestGrid grid({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL, iNUM}});
  ASSERT_TRUE(grid.Set(-3, 7, dVAL, -1));
  ASSERT_TRUE(grid.Set(9, -6, dVAL, -1));
  ASSERT_TRUE(grid.Set(20, 20, iNUM, 1));
  Page extents;
  ASSERT_TRUE(FindDataExtents(grid.Access(), dVAL, Page(), kRunning, extents));
  EXPECT_EQ(extents.left(), -3);
  EXPECT_EQ(extents.bottom(), -1.5);
  EXPECT_EQ(extents.right(), 4);
  EXPECT_EQ(extents.top(), 5);
}

TEST(DataExtents, ThereAreNoneWithoutAValue) {
  TestGrid grid;
  Page extents(1, 2, 3, 4);
  EXPECT_FALSE(FindDataExtents(grid.Access(), dVAL, Page(), kRunning, extents));
  ASSERT_TRUE(grid.Set(0, 0, iNUM, 1));
  EXPECT_FALSE(FindDataExtents(grid.Access(), dVAL, Page(), kRunning, extents));
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  EXPECT_FALSE(FindDataExtents(grid.Access(), dVAL, Page(100, 100, 200, 200), kRunning, extents));
  const std::atomic<bool> stopped{false};
  EXPECT_FALSE(FindDataExtents(grid.Access(), dVAL, Page(), stopped, extents));
  EXPECT_EQ(extents.left(), 1);
  EXPECT_EQ(extents.top(), 4);
}

TEST(DataExtents, AreCutWithALimit) {
  TestGrid grid;
  for (int row = 0; row < 10; ++row) {
    for (int col = 0; col < 10; ++col) ASSERT_TRUE(grid.Set(row, col, dVAL, 1));
  }
  Page extents;
  ASSERT_TRUE(FindDataExtents(grid.Access(), dVAL, Page(2.5, -5, 7, 3), kRunning, extents));
  EXPECT_EQ(extents.left(), 2.5);
  EXPECT_EQ(extents.bottom(), 0);
  EXPECT_EQ(extents.right(), 7);
  EXPECT_EQ(extents.top(), 3);
}

TEST(DataExtents, OfAnyModelAreThoseOfAllItsCells) {
  const std::uint32_t seed = RandomSeed();
  std::mt19937 rng(seed);
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE(std::to_string(seed) + ", round " + std::to_string(round));
    TestGrid grid;
    Page expected;
    const int cells = 1 + static_cast<int>(rng() % 30);
    for (int i = 0; i < cells; ++i) {
      const int row = static_cast<int>(rng() % 60) - 30;
      const int col = static_cast<int>(rng() % 60) - 30;
      ASSERT_TRUE(grid.Set(row, col, dVAL, 1));
      expected |= Page(col, row, col + 1, row + 1);
    }
    Page extents;
    ASSERT_TRUE(FindDataExtents(grid.Access(), dVAL, Page(), kRunning, extents));
    EXPECT_EQ(extents.left(), expected.left());
    EXPECT_EQ(extents.bottom(), expected.bottom());
    EXPECT_EQ(extents.right(), expected.right());
    EXPECT_EQ(extents.top(), expected.top());
  }
}

TEST(DataExtents, TheMiddleOfASurveyIsNotRead) {
  TestGrid grid;
  for (int row = 0; row < 40; ++row) {
    for (int col = 0; col < 40; ++col) ASSERT_TRUE(grid.Set(row, col, dVAL, 1));
  }
  grid.Reopen();
  const std::uint64_t before = grid.Memory().counts.reads;
  Page extents;
  ASSERT_TRUE(FindDataExtents(grid.Access(), dVAL, Page(), kRunning, extents));
  EXPECT_EQ(extents.right(), 40);
  const std::uint64_t reads = grid.Memory().counts.reads - before;
  EXPECT_LE(reads, 20U) << "there are 100 areas";
}

}  // namespace
}  // namespace vak
