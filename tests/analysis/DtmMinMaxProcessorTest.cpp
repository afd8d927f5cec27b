#include <cmath>
#include <gtest/gtest.h>

#include "vakdtm/analysis/DtmMinMaxProcessor.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

TEST(DtmMinMaxProcessor, FindsTheLimitsOfItsKind) {
  TestGrid grid;
  grid.Draw("-3 . -7 -5 . -1 -4");
  grid.Set(0, 0, iNUM, 100);
  DtmMinMaxProcessor limits(dVAL);
  ASSERT_TRUE(limits.ProcessAllCells(grid.Access()));
  EXPECT_TRUE(limits.HaveValues());
  EXPECT_EQ(limits.MinValue(), -7.0);
  EXPECT_EQ(limits.MaxValue(), -1.0);
}

TEST(DtmMinMaxProcessor, OneValueIsBothLimits) {
  TestGrid grid;
  grid.Draw(". 5");
  DtmMinMaxProcessor limits(dVAL);
  ASSERT_TRUE(limits.ProcessAllCells(grid.Access()));
  EXPECT_EQ(limits.MinValue(), 5.0);
  EXPECT_EQ(limits.MaxValue(), 5.0);
}

TEST(DtmMinMaxProcessor, EmptyCellsHaveNoLimits) {
  TestGrid grid;
  grid.Set(0, 0, iNUM, 1);
  DtmMinMaxProcessor limits(dVAL);
  ASSERT_TRUE(limits.ProcessAllCells(grid.Access()));
  EXPECT_FALSE(limits.HaveValues());
}

TEST(DtmMinMaxProcessor, WhatIsNoNumberIsAValueThoughItIsNotTheEmptyOne) {
  TestGrid grid;
  grid.Draw(". -5");
  grid.Set(0, 0, dVAL, std::nan("3"));
  DtmMinMaxProcessor limits(dVAL);
  ASSERT_TRUE(limits.ProcessRect(grid.Access(), Page(0.1, 0.1, 0.9, 0.9)));
  EXPECT_TRUE(limits.HaveValues());
  ASSERT_TRUE(limits.ProcessAllCells(grid.Access()));
  EXPECT_TRUE(std::isnan(limits.MinValue())) << "nothing is below or above the first";
  EXPECT_TRUE(std::isnan(limits.MaxValue()));
  grid.Set(0, 0, dVAL, -6);
  grid.Set(0, 1, dVAL, std::nan("3"));
  ASSERT_TRUE(limits.ProcessAllCells(grid.Access()));
  EXPECT_EQ(limits.MinValue(), -6.0);
  EXPECT_EQ(limits.MaxValue(), -6.0);
}

TEST(DtmMinMaxProcessor, AWalkStartsAnew) {
  TestGrid grid;
  grid.Draw("-9 -1 -5");
  DtmMinMaxProcessor limits(dVAL);
  ASSERT_TRUE(limits.ProcessAllCells(grid.Access()));
  ASSERT_TRUE(limits.ProcessRect(grid.Access(), Page(2.1, 0.1, 2.9, 0.9)));
  EXPECT_EQ(limits.MinValue(), -5.0);
  EXPECT_EQ(limits.MaxValue(), -5.0);
}

TEST(DtmMinMaxProcessor, ACellThatCannotBeReadEndsTheWalk) {
  TestGrid grid;
  grid.Draw("-9");
  DtmMinMaxProcessor ofAKindThatIsNotThere(fBKS);
  EXPECT_FALSE(ofAKindThatIsNotThere.ProcessAllCells(grid.Access()));
  DtmMinMaxProcessor limits(dVAL);
  EXPECT_FALSE(limits.ProcessLinearRect(grid.Access(), Page(0, 0, 1000, 1))) << "there are no areas";
}

}  // namespace
}  // namespace vak
