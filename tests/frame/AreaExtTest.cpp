#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/frame/AreaExt.h"
#include "vakdtm/frame/AreaExtMap.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(AreaExt, NewOneHoldsNothing) {
  const AreaExt range;
  EXPECT_FALSE(range.IsValid());
  for (const double value : {0.0, 0.5, 1.0}) EXPECT_FALSE(range.Inside(value));
  EXPECT_EQ(range.Min(), 1.0);
  EXPECT_EQ(range.Max(), 0.0);
}

TEST(AreaExt, OneValueIsBothEnds) {
  AreaExt range;
  range += -3.5;
  EXPECT_TRUE(range.IsValid());
  EXPECT_TRUE(range.Inside(-3.5));
  EXPECT_FALSE(range.Inside(-3.4));
  EXPECT_FALSE(range.Inside(-3.6));
  EXPECT_FALSE(range.Inside(kNaN));
}

TEST(AreaExt, FurtherValuesWidenEitherEndAndBothBelong) {
  AreaExt range;
  ((range += 2) += 5) += -1;
  range += 3;
  EXPECT_EQ(range.Min(), -1.0);
  EXPECT_EQ(range.Max(), 5.0);
  EXPECT_TRUE(range.Inside(-1) && range.Inside(5) && range.Inside(0));
  EXPECT_FALSE(range.Inside(5.5) || range.Inside(-1.5));
}

TEST(AreaExt, NotANumberIsNoValue) {
  AreaExt range;
  range += kNaN;
  EXPECT_FALSE(range.IsValid());
  EXPECT_FALSE(range.Inside(0));
  range += 4;
  range += kNaN;
  EXPECT_EQ(range.Min(), 4.0);
  EXPECT_EQ(range.Max(), 4.0);
}

TEST(AreaExtMap, RemembersTheRangeOfEachAreaUntilCleared) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(9, 9, dVAL, 1));
  const DtmArea* const one = grid.Area(0, 0);
  const DtmArea* const two = grid.Area(9, 9);
  AreaExtMap map;
  EXPECT_FALSE(map[one].IsValid());
  map[one] += 3;
  EXPECT_TRUE(map[one].Inside(3));
  EXPECT_FALSE(map[two].IsValid());
  AreaExtMap copy = map;
  map.Clear();
  EXPECT_FALSE(map[one].IsValid());
  EXPECT_TRUE(copy[one].Inside(3));
}

}  // namespace
}  // namespace vak::test
