#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/render/DtmValueSample.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

TEST(DtmValueSample, KnowsExtremesAndQuantilesOfWhatItIsShown) {
  TestGrid grid;
  for (int i = 0; i < 101; ++i) ASSERT_TRUE(grid.Set(i % 10, i / 10, dVAL, i == 100 ? 1000 : i));
  DtmValueSample sample(dVAL, 2, false);
  ASSERT_TRUE(sample.ProcessAllCells(grid.Access()));
  EXPECT_EQ(sample.Count(), 101U);
  EXPECT_EQ(sample.Lowest(), 0);
  EXPECT_EQ(sample.Highest(), 2000) << "as shown, in units of half a metre";
  EXPECT_EQ(sample.Quantile(0), 0);
  EXPECT_EQ(sample.Quantile(0.5), 100);
  EXPECT_EQ(sample.Quantile(0.99), 198);
  EXPECT_EQ(sample.Quantile(0.005), 1) << "half-way between two";
  EXPECT_EQ(sample.Quantile(1), 2000);
}

TEST(DtmValueSample, WhatIsNoFiniteNumberIsNotCounted) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(0, 0, dVAL, std::numeric_limits<double>::infinity()));
  ASSERT_TRUE(grid.Set(0, 1, dVAL, std::nan("")));
  DtmValueSample sample(dVAL, 1, false);
  ASSERT_TRUE(sample.ProcessAllCells(grid.Access()));
  EXPECT_TRUE(sample.IsEmpty());
}

TEST(DtmValueSample, OfTimesItSeesAges) {
  const test::TimeStands clock(86400 * 10 + 100);
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, tTIM}});
  ASSERT_TRUE(grid.Set(0, 0, dVAL, -1));
  ASSERT_TRUE(grid.Set(0, 0, tTIM, 86400 * 10));
  ASSERT_TRUE(grid.Set(0, 1, tTIM, 86400 * 8));
  DtmValueSample sample(tTIM, 3, false);
  ASSERT_TRUE(sample.ProcessAllCells(grid.Access()));
  EXPECT_EQ(sample.Lowest(), 1) << "from the midnight to come, and without the factor";
  EXPECT_EQ(sample.Highest(), 3);
}

TEST(DtmValueSample, InGradientModeItSeesSlopes) {
  TestGrid grid;
  grid.Draw("-1 -2 -4");
  DtmValueSample sample(dVAL, 3, true);
  ASSERT_TRUE(sample.ProcessAllCells(grid.Access()));
  EXPECT_EQ(sample.Count(), 0U) << "a slope is known only with a neighbour above or below";
  grid.Draw("-1 -2 -4\n-1 -3 -4");
  DtmValueSample with(dVAL, 3, true);
  ASSERT_TRUE(with.ProcessAllCells(grid.Access()));
  EXPECT_GT(with.Count(), 0U);
  EXPECT_EQ(with.Highest(), 3) << "metres a metre, without the factor";
}

TEST(DtmValueSample, OfVeryManyValuesSomeStandForAll) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL}});
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  ASSERT_TRUE(grid.Set(0, 1, dVAL, 2));
  ASSERT_TRUE(grid.Set(0, 2, dVAL, 3));
  DtmValueSample sample(dVAL, 1, false);
  ASSERT_TRUE(sample.Init(grid.Access()));
  double weight = 1;
  // Two thirds are ones, one in three thousand a three.
  for (int i = 0; i < 3000000; ++i) ASSERT_TRUE(sample.ProcessCell(0, i % 3000 == 17 ? 2 : i % 3 == 0 ? 1 : 0, weight));
  EXPECT_EQ(sample.Count(), 3000000U);
  EXPECT_EQ(sample.Quantile(0.6), 1);
  EXPECT_EQ(sample.Quantile(0.7), 2);
  EXPECT_EQ(sample.Highest(), 3);
}

TEST(DtmValueSample, OfVeryManyValuesTheFirstCountNoMoreThanTheLast) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL}});
  constexpr int kValues = 13;
  for (int i = 0; i < kValues; ++i) ASSERT_TRUE(grid.Set(0, i, dVAL, i));
  DtmValueSample sample(dVAL, 1, false);
  ASSERT_TRUE(sample.Init(grid.Access()));
  double weight = 1;
  // More than are kept, the low ones first.
  for (int i = 0; i < kValues * 100'000; ++i) ASSERT_TRUE(sample.ProcessCell(0, i / 100'000, weight));
  for (int i = 0; i < kValues; ++i) EXPECT_EQ(sample.Quantile((i + 0.5) / kValues), i);
}

TEST(DtmValueSample, KnowsOfCellsWithoutASlope) {
  TestGrid grid;
  grid.Draw(
      "-1 -2\n"
      "-1 -3");
  DtmValueSample steep(dVAL, 1, true);
  ASSERT_TRUE(steep.ProcessAllCells(grid.Access()));
  EXPECT_FALSE(steep.HasSlopeless());
  ASSERT_TRUE(grid.Set(9, 9, dVAL, -1));
  DtmValueSample lonely(dVAL, 1, true);
  ASSERT_TRUE(lonely.ProcessAllCells(grid.Access()));
  EXPECT_TRUE(lonely.HasSlopeless());
  DtmValueSample heights(dVAL, 1, false);
  ASSERT_TRUE(heights.ProcessAllCells(grid.Access()));
  EXPECT_FALSE(heights.HasSlopeless());
}

}  // namespace
}  // namespace vak
