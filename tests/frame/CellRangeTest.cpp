#include <gtest/gtest.h>
#include <limits>
#include <optional>

#include "vakdtm/frame/CellRange.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(CellRange, PositionsAreCountedWithAPlaceLeftForEachWalkersLastClaim) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL}});
  ASSERT_TRUE(grid.Set(0, 5, dVAL, 1));
  constexpr double kMost = std::numeric_limits<int>::max() - 65536;
  const std::optional<CellRange> most = CellRange::Find(grid.File(), {0.5, 0.5, kMost - 0.5, 0.5});
  ASSERT_TRUE(most);
  EXPECT_EQ(most->NumCols(), std::numeric_limits<int>::max() - 65536);
  // One more, and it is cut to the one area that there is.
  const std::optional<CellRange> more = CellRange::Find(grid.File(), {0.5, 0.5, kMost + 0.5, 0.5});
  ASSERT_TRUE(more);
  EXPECT_EQ(more->NumCols(), 1);
  EXPECT_EQ(more->lowestCol, 5);
}

TEST(CellRange, AreasOfTheModelAreFoundWholeAlsoWhereTheirEdgesAreRounded) {
  // 43 x 0.1 is 4.3 rounded, and that divided by 0.1 a little less than 43.
  const Page everything(-kInfinity, -kInfinity, kInfinity, kInfinity);
  for (const double cellSize : {0.1, 0.3, 0.7, 1.1}) {
    for (const int place : {-2046, -2031, -6, 3, 15, 30, 31, 43, 62, 81, 162, 167}) {
      TestGrid grid({.cellSize = cellSize, .areaSize = 1, .blockIds = {dVAL}});
      ASSERT_TRUE(grid.Set(place, place, dVAL, 1));
      const std::optional<CellRange> range = CellRange::Find(grid.File(), everything);
      ASSERT_TRUE(range);
      EXPECT_EQ(range->lowestRow, place) << cellSize;
      EXPECT_EQ(range->highestRow, place) << cellSize;
      EXPECT_EQ(range->lowestCol, place) << cellSize;
      EXPECT_EQ(range->highestCol, place) << cellSize;
    }
  }
}

}  // namespace
}  // namespace vak::test
