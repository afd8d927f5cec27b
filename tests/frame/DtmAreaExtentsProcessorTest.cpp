#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/frame/DtmAreaExtentsProcessor.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

void ExpectPage(const DtmAreaExtentsProcessor& extents, double x0, double y0, double x1, double y1) {
  Page page;
  ASSERT_TRUE(extents.GetExtents(page));
  EXPECT_EQ(page.left(), x0);
  EXPECT_EQ(page.bottom(), y0);
  EXPECT_EQ(page.right(), x1);
  EXPECT_EQ(page.top(), y1);
}

void ExpectCells(const DtmAreaExtentsProcessor& extents, int minRow, int minCol, int maxRow, int maxCol) {
  int row0 = 0;
  int col0 = 0;
  int row1 = 0;
  int col1 = 0;
  ASSERT_TRUE(extents.GetExtents(row0, col0, row1, col1));
  EXPECT_EQ(row0, minRow);
  EXPECT_EQ(col0, minCol);
  EXPECT_EQ(row1, maxRow);
  EXPECT_EQ(col1, maxCol);
}

TEST(DtmAreaExtentsProcessor, OneAreaIsItsOwnReach) {
  TestGrid grid({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL}});
  ASSERT_TRUE(grid.Set(-3, 9, dVAL, 1));
  DtmAreaExtentsProcessor extents;
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  ExpectPage(extents, 4.0, -2.0, 6.0, 0.0);
  ExpectCells(extents, -4, 8, -1, 11);
}

TEST(DtmAreaExtentsProcessor, AreasWidenRowsAndColumnsEachForThemselves) {
  TestGrid grid({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL}});
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(-3, 9, dVAL, 1) && grid.Set(8, -8, dVAL, 1));
  DtmAreaExtentsProcessor extents;
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  ExpectCells(extents, -4, -8, 11, 11);
  ExpectPage(extents, -4.0, -2.0, 6.0, 6.0);
}

TEST(DtmAreaExtentsProcessor, NothingSeenAnswersFalseAndChangesNothing) {
  TestGrid grid;
  DtmAreaExtentsProcessor extents;
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  Page page(1, 2, 3, 4);
  EXPECT_FALSE(extents.GetExtents(page));
  EXPECT_EQ(page.right(), 3);
  int kept = 7;
  int other = 8;
  EXPECT_FALSE(extents.GetExtents(kept, other, kept, other));
  EXPECT_EQ(kept, 7);
  EXPECT_EQ(other, 8);
}

TEST(DtmAreaExtentsProcessor, SeveralWalksAreMeasuredAsOne) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  TestGrid other;
  ASSERT_TRUE(other.Set(8, 8, dVAL, 1));
  DtmAreaExtentsProcessor extents;
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  EXPECT_TRUE(extents.ProcessAllCells(other.Access()));
  ExpectCells(extents, 0, 0, 11, 11);
}

TEST(DtmAreaExtentsProcessor, ReadsNoCellAndDoesNotWantAny) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  grid.Reopen();
  const std::uint64_t reads = grid.Memory().counts.reads;
  DtmAreaExtentsProcessor extents;
  EXPECT_TRUE(extents.ProcessAllCells(grid.Access()));
  EXPECT_EQ(grid.Memory().counts.reads, reads);
  double weight = 1;
  EXPECT_TRUE(extents.ProcessArea(0, 0, weight));
  EXPECT_EQ(weight, 0.0);
  EXPECT_TRUE(extents.ProcessCell(100, 100, weight));
  ExpectCells(extents, 0, 0, 3, 3);
}

TEST(DtmAreaExtentsProcessor, OutermostAreasDoNotOverflow) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 100, .blockIds = {dVAL}});
  DtmAreaExtentsProcessor extents;
  ASSERT_TRUE(extents.Init(grid.Access()));
  double weight = 1;
  EXPECT_TRUE(extents.ProcessArea(2147483500, 2147483500, weight));
  ExpectPage(extents, 2147483500.0, 2147483500.0, 2147483600.0, 2147483600.0);
}

TEST(DtmAreaExtentsProcessor, WithoutAFileAnswersFalse) {
  DtmAccess nowhere(nullptr);
  DtmAreaExtentsProcessor extents;
  EXPECT_FALSE(extents.ProcessAllCells(nowhere));
  EXPECT_EQ(extents.Clone(), nullptr);
}

}  // namespace
}  // namespace vak::test
