#include <gtest/gtest.h>
#include <limits>
#include <vector>

#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/store/CellValue.h"

#include "support/LongForm.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

std::vector<int> Limits(const DtmExtentsProcessor& extents) {
  return {extents.Count(), extents.MinRow(), extents.MaxRow(), extents.MinCol(), extents.MaxCol()};
}

TEST(DtmExtentsProcessor, FindsTheCellsThatHaveAValue) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(2, 1, dVAL, -5) && grid.Set(-3, 9, dVAL, 0.0) && grid.Set(0, -2, dVAL, 1));
  ASSERT_TRUE(grid.Set(7, 7, iNUM, 3));
  DtmExtentsProcessor extents(dVAL);
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  EXPECT_EQ(Limits(extents), (std::vector{3, -3, 2, -2, 9}));
}

TEST(DtmExtentsProcessor, OneCellIsAllFourLimits) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(-6, 3, dVAL, 1));
  DtmExtentsProcessor extents(dVAL);
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  EXPECT_EQ(Limits(extents), (std::vector{1, -6, -6, 3, 3}));
}

TEST(DtmExtentsProcessor, WithoutABlockEveryCellThatIsShownCounts) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(5, -1, dVAL, 1));
  DtmExtentsProcessor extents(0);
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  EXPECT_EQ(Limits(extents), (std::vector{16, 4, 7, -4, -1}));
}

TEST(DtmExtentsProcessor, FindsNothingInAModelWithoutCells) {
  TestGrid grid;
  DtmExtentsProcessor extents(dVAL);
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  EXPECT_EQ(extents.Count(), 0);
  EXPECT_LT(extents.MaxRow(), extents.MinRow());
  EXPECT_LT(extents.MaxCol(), extents.MinCol());
}

TEST(DtmExtentsProcessor, StartsAnewWithEachWalk) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  TestGrid other;
  ASSERT_TRUE(other.Set(5, 6, dVAL, 1));
  TestGrid empty;
  DtmExtentsProcessor extents(dVAL);
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  EXPECT_TRUE(extents.ProcessAllCells(other.Access()));
  EXPECT_EQ(Limits(extents), (std::vector{1, 5, 5, 6, 6}));
  EXPECT_TRUE(extents.ProcessAllCells(empty.Access()));
  EXPECT_EQ(Limits(extents), (std::vector{0, 0, -1, 0, -1}));
}

TEST(DtmExtentsProcessor, CellThatCannotBeReadEndsTheWalk) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  DtmExtentsProcessor unknown(dMIN);
  EXPECT_FALSE(unknown.ProcessAllCells(grid.Access()));
  DtmExtentsProcessor beyond(dVAL);
  EXPECT_FALSE(beyond.ProcessRect(grid.Access(), {-1.5, 0, 0.5, 0.5})) << "there is no area at the left";
  DtmExtentsProcessor never(dVAL);
  double weight = 1;
  EXPECT_FALSE(never.ProcessCell(0, 0, weight)) << "it has no access";
}

TEST(DtmExtentsProcessor, CountsCellsUpToTheTypesEndAndStaysThere) {
  constexpr int kLargest = std::numeric_limits<int>::max();
  const int cells = LongForm(100'000, kLargest);  // the long form goes to the end itself
  DtmExtentsProcessor extents(0);
  double weight = 1;
  for (int cell = 0; cell < cells; ++cell) extents.ProcessCell(0, 0, weight);
  EXPECT_EQ(extents.Count(), cells);
  EXPECT_TRUE(extents.ProcessCell(7, -7, weight));
  const int counted = cells == kLargest ? kLargest : cells + 1;
  EXPECT_EQ(Limits(extents), (std::vector{counted, 0, 7, -7, 0}));
}

TEST(DtmExtentsProcessor, CannotBeCloned) { EXPECT_EQ(DtmExtentsProcessor(dVAL).Clone(), nullptr); }

}  // namespace
}  // namespace vak::test
