#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/repair/DtmCircularInterpolator.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

constexpr double kRoot2 = 1.4142135623730951;

/// A model with hits where a value is drawn.
class DtmCircularInterpolatorTest : public testing::Test {
 protected:
  void Make(std::vector<int> blocks, int areaSize = 16) {
    grid_ = std::make_unique<TestGrid>(GridSettings{.cellSize = 1.0, .areaSize = areaSize, .blockIds = blocks});
  }
  void Hit(int row, int col, double value, int id = dVAL) {
    ASSERT_TRUE(grid_->Set(row, col, id, value));
    if (grid_->File().HasBlockId(iNUM)) {
      ASSERT_TRUE(grid_->Set(row, col, iNUM, 1));
    }
  }
  /// One cell by the processor, with or without its area announced.
  bool Fill(int row, int col, int block, int radius, bool announced = true) {
    DtmCircularInterpolator interpolator(block, radius);
    EXPECT_TRUE(interpolator.Init(grid_->Access()));
    double weight = 1;
    const int size = grid_->File().AreaSize();
    if (announced) {
      EXPECT_TRUE(interpolator.ProcessArea(CalcAreaIndex(size, row) * size, CalcAreaIndex(size, col) * size, weight));
      if (weight == 0) return true;
    }
    const bool done = interpolator.ProcessCell(row, col, weight);
    EXPECT_EQ(weight, 1.0);
    return done;
  }
  /// The value that a cell gets, both ways; nothing when it stays empty.
  std::optional<double> Filled(int row, int col, int block, int radius) {
    std::vector<double> values;
    for (const bool announced : {true, false}) {
      const double before = grid_->Get(row, col, block);
      EXPECT_TRUE(Fill(row, col, block, radius, announced));
      values.push_back(grid_->Get(row, col, block));
      grid_->Set(row, col, block, before);
    }
    EXPECT_EQ(std::bit_cast<std::uint64_t>(values[0]), std::bit_cast<std::uint64_t>(values[1]));
    if (IsEmptyValue(values[0])) return std::nullopt;
    return values[0];
  }

  std::unique_ptr<TestGrid> grid_;
};

TEST_F(DtmCircularInterpolatorTest, RadiusZeroFillsNothing) {
  Make({dVAL, iNUM});
  for (int row = -2; row <= 2; ++row) {
    for (int col = -2; col <= 2; ++col) {
      if (row != 0 || col != 0) Hit(row, col, -5);
    }
  }
  EXPECT_EQ(Filled(0, 0, dVAL, 0), std::nullopt);
  EXPECT_EQ(Filled(0, 0, dVAL, -3), std::nullopt);
  EXPECT_EQ(Filled(0, 0, dVAL, 1), -5.0);
}

TEST_F(DtmCircularInterpolatorTest, HoleWithDataOnOneSideStaysOne) {
  Make({dVAL, iNUM});
  // From 45 to 135 degrees, and then to one that lacks a little of half the circle.
  Hit(1, 1, -1);
  Hit(1, 0, -1);
  Hit(1, -1, -1);
  EXPECT_EQ(Filled(0, 0, dVAL, 9), std::nullopt);
  Hit(1, -8, -1);
  Hit(0, 9, -1);
  EXPECT_EQ(Filled(0, 0, dVAL, 9), std::nullopt) << "the arc is " << std::atan2(1, -8) / 3.14159265 * 180;
}

TEST_F(DtmCircularInterpolatorTest, TwoOppositeNeighboursAreJustEnough) {
  Make({dVAL, iNUM});
  Hit(0, 2, -10);
  Hit(0, -1, -4);
  EXPECT_EQ(Filled(0, 0, dVAL, 2), (-10.0 / 2 + -4.0 / 1) / (1.0 / 2 + 1.0 / 1));
  Make({dVAL, iNUM});
  Hit(3, 3, -10);
  Hit(-1, -1, -4);
  ASSERT_TRUE(Filled(0, 0, dVAL, 5).has_value());
  EXPECT_EQ(Filled(0, 0, dVAL, 4), std::nullopt) << "the farther one lies 4.24 cells away";
}

TEST_F(DtmCircularInterpolatorTest, CellOfTheRingOutsideTheCircleIsNoNeighbour) {
  Make({dVAL, iNUM});
  Hit(2, 2, -10);
  Hit(-1, -1, -4);
  EXPECT_EQ(Filled(0, 0, dVAL, 2), std::nullopt);
  EXPECT_TRUE(Filled(0, 0, dVAL, 3).has_value());
}

TEST_F(DtmCircularInterpolatorTest, FirstCellOfADirectionInTheOrderOfTheRingCounts) {
  // Two in the same eighth and ring; the one that the walk around the ring meets first is taken.
  const struct {
    const char* name;
    int row, col, laterRow, laterCol;
  } cases[] = {
      {"right side, upwards", 0, 3, 1, 3},          {"upper side, to the left", 3, 2, 3, 1},
      {"upper side beyond the axis", 3, 0, 3, -1},  {"left side, downwards", 2, -3, 1, -3},
      {"left side beyond the axis", 0, -3, -1, -3}, {"lower side, to the right", -3, -2, -3, -1},
      {"lower side beyond the axis", -3, 0, -3, 1}, {"right side from below", -2, 3, -1, 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Make({dVAL, iNUM});
    Hit(c.laterRow, c.laterCol, -99);
    Hit(c.row, c.col, -1);
    Hit(-4 * c.row, -4 * c.col, -1);  // straight opposite
    EXPECT_EQ(Filled(0, 0, dVAL, 20), -1.0);
  }
}

TEST_F(DtmCircularInterpolatorTest, NearerRingGoesBeforeNearerCell) {
  Make({dVAL, iNUM});
  // 2.83 away in ring 2, in the eighth from 45 degrees; 3.0 would be ring 3 of the next eighth. In one eighth: ring 4
  // at 4.12, ring 3 at 4.24.
  Hit(3, 3, -1);
  Hit(4, 1, -99);
  Hit(-3, -3, -1);
  EXPECT_DOUBLE_EQ(Filled(0, 0, dVAL, 5).value_or(0), -1.0);
}

TEST_F(DtmCircularInterpolatorTest, MeanIsWeighedByInverseDistance) {
  Make({dVAL, iNUM});
  Hit(1, 1, -7.3);
  Hit(0, -2, -2.9);
  Hit(-3, 0, -11.1);
  const double sum = -7.3 / kRoot2 + -2.9 / 2 + -11.1 / 3;
  const double weights = 1 / kRoot2 + 1.0 / 2 + 1.0 / 3;
  EXPECT_EQ(Filled(0, 0, dVAL, 3), sum / weights);
}

TEST_F(DtmCircularInterpolatorTest, ArcGrowsInTheOrderOfSearchAndIsNotTheSmallestOne) {
  Make({dVAL, iNUM});
  // Met as 45, 225: opposite, so that forward and backward tie and the arc grows at its last end.
  Hit(1, 1, -1);
  Hit(-1, -1, -1);
  EXPECT_EQ(Filled(0, 0, dVAL, 1), std::nullopt);
  EXPECT_EQ(Filled(0, 0, dVAL, 2), -1.0);
}

TEST_F(DtmCircularInterpolatorTest, EveryHeightIsMadeAnewWhereOneIsMissing) {
  Make({dVAL, iNUM, dMIN});
  for (const int col : {-1, 1}) {
    Hit(0, col, -4);
    Hit(0, col, -6, dMIN);
  }
  grid_->Set(0, 0, dVAL, -50);
  EXPECT_TRUE(Fill(0, 0, 0, 1));
  EXPECT_EQ(grid_->Get(0, 0, dVAL), -4.0);
  EXPECT_EQ(grid_->Get(0, 0, dMIN), -6.0);
  grid_->Set(0, 0, dVAL, -50);
  EXPECT_TRUE(Fill(0, 0, 0, 1));
  EXPECT_EQ(grid_->Get(0, 0, dVAL), -50.0) << "nothing is missing any more";
}

TEST_F(DtmCircularInterpolatorTest, BlockZeroLeavesOtherKindsAlone) {
  Make({dVAL, iNUM, dSDV, dTVU});
  for (const int col : {-1, 1}) {
    Hit(0, col, -4);
    Hit(0, col, 0.5, dSDV);
    Hit(0, col, 0.5, dTVU);
  }
  EXPECT_TRUE(Fill(0, 0, 0, 1));
  EXPECT_EQ(grid_->Get(0, 0, dVAL), -4.0);
  EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 0, dSDV)));
  EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 0, dTVU)));
  EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 0, iNUM))) << "a filled cell has no hits";
}

TEST_F(DtmCircularInterpolatorTest, ModelWithoutAHeightHasNoHoles) {
  Make({iNUM, dSDV});
  Hit(0, 1, 1, dSDV);
  Hit(0, -1, 1, dSDV);
  EXPECT_TRUE(Fill(0, 0, 0, 1));
  EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 0, dSDV)));
}

TEST_F(DtmCircularInterpolatorTest, RunNeverUsesWhatItHasFilledWhereThereAreHits) {
  Make({dVAL, iNUM});
  // The first hole is filled from above and below; the next has it on its left, and one measured cell on its right.
  Hit(1, 0, -4);
  Hit(-1, 0, -4);
  Hit(0, 2, -4);
  EXPECT_TRUE(Fill(0, 0, dVAL, 1));
  EXPECT_EQ(grid_->Get(0, 0), -4.0);
  EXPECT_EQ(Filled(0, 1, dVAL, 1), std::nullopt);

  DtmCircularInterpolator interpolator(dVAL, 1);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  double value = 7;
  EXPECT_TRUE(interpolator.InterpolateCell(0, 1, value));
  EXPECT_EQ(value, -4.0) << "the query uses it";
  EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 1))) << "and writes nothing";
}

TEST_F(DtmCircularInterpolatorTest, WithoutHitsAFilledCellIsASource) {
  Make({dVAL});
  Hit(1, 0, -4);
  Hit(-1, 0, -4);
  EXPECT_EQ(Filled(0, 1, dVAL, 1), std::nullopt) << "no cell within the radius has a value";
  EXPECT_TRUE(Fill(0, 0, dVAL, 1));
  EXPECT_EQ(Filled(0, 1, dVAL, 1), -4.0);
}

TEST_F(DtmCircularInterpolatorTest, EmptyNeighbourUsesUpItsDirection) {
  Make({dVAL, iNUM, dMIN});
  Hit(0, 1, -6, dMIN);  // hits, and no VAL
  Hit(0, 2, -99);
  Hit(0, -1, -4);
  Hit(1, 0, -5);
  EXPECT_EQ(Filled(0, 0, dVAL, 2), (-5.0 + -4.0) / 2) << "the one behind the empty one isn't reached";
}

TEST_F(DtmCircularInterpolatorTest, QueryIsStoppedByEmptyCellsInEveryDirection) {
  Make({dVAL, iNUM});
  Hit(0, 2, -1);
  Hit(0, -2, -1);
  EXPECT_EQ(Filled(0, 0, dVAL, 2), -1.0);
  DtmCircularInterpolator interpolator(dVAL, 2);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  double value = 7;
  EXPECT_TRUE(interpolator.InterpolateCell(0, 0, value));
  EXPECT_EQ(value, 7.0) << "ring 1 is empty, and all there is to a cell without hits to look at";
}

TEST_F(DtmCircularInterpolatorTest, QueryOfACompleteCellLeavesTheValue) {
  Make({dVAL, iNUM});
  for (int col = -1; col <= 1; ++col) Hit(0, col, -1);
  DtmCircularInterpolator interpolator(dVAL, 2);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  double value = 7;
  EXPECT_TRUE(interpolator.InterpolateCell(0, 0, value));
  EXPECT_EQ(value, 7.0);
}

TEST_F(DtmCircularInterpolatorTest, QueryGivesTheLastOfTheHeights) {
  Make({dMIN, dVAL, iNUM, dMAX});
  for (const int col : {-1, 1}) {
    Hit(0, col, -2);
    Hit(0, col, -3, dMIN);
    Hit(0, col, -1, dMAX);
  }
  DtmCircularInterpolator interpolator(0, 1);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  double value = 7;
  EXPECT_TRUE(interpolator.InterpolateCell(0, 0, value));
  EXPECT_EQ(value, -1.0) << "MAX stands last in the table of kinds, wherever it stands in the file";
}

TEST_F(DtmCircularInterpolatorTest, DeepestAndHighestAreWeighedByTheSoundingsDistance) {
  for (const bool deepest : {true, false}) {
    SCOPED_TRACE(deepest);
    const int block = deepest ? dMIN : dMAX;
    Make({dVAL, iNUM, dMIN, fXMN, fYMN, dMAX, fXMX, fYMX});
    Hit(0, 1, -10, block);
    Hit(0, -1, -4, block);
    grid_->Set(0, 1, deepest ? fXMN : fXMX, 0.5);
    grid_->Set(0, 1, deepest ? fYMN : fYMX, 0.25);
    const double d = std::sqrt(1.5 * 1.5 + 0.25 * 0.25);
    EXPECT_EQ(Filled(0, 0, block, 2), (-4.0 / 1 + -10 / d) / (1 / 1.0 + 1 / d)) << "found from the left side on";
    EXPECT_EQ(Filled(0, 0, block, 1), std::nullopt) << "the sounding lies outside, though its cell's centre doesn't";
    grid_->Set(0, 1, deepest ? fXMN : fXMX, EmptyDouble());
    EXPECT_EQ(Filled(0, 0, block, 1), (-4.0 + -10) / 2) << "one offset tells nothing";
    Hit(0, 1, -10);
    Hit(0, -1, -4);
    grid_->Set(0, 1, deepest ? fXMN : fXMX, 0.5);
    EXPECT_EQ(Filled(0, 0, dVAL, 1), -7.0) << "means have no place";
  }
}

TEST_F(DtmCircularInterpolatorTest, SoundingNearerThanItsCellIsReached) {
  Make({iNUM, dMIN, fXMN, fYMN});
  Hit(2, 2, -10, dMIN);
  Hit(-1, -1, -4, dMIN);
  EXPECT_EQ(Filled(0, 0, dMIN, 2), std::nullopt);
  grid_->Set(2, 2, fXMN, -0.75);
  grid_->Set(2, 2, fYMN, -0.75);
  EXPECT_TRUE(Filled(0, 0, dMIN, 2).has_value());
}

TEST_F(DtmCircularInterpolatorTest, OffsetsAreMetresAndDistancesCells) {
  grid_ =
      std::make_unique<TestGrid>(GridSettings{.cellSize = 0.5, .areaSize = 16, .blockIds = {iNUM, dMIN, fXMN, fYMN}});
  Hit(0, 1, -10, dMIN);
  Hit(0, -1, -4, dMIN);
  grid_->Set(0, 1, fXMN, 0.25);
  grid_->Set(0, 1, fYMN, 0);
  EXPECT_EQ(Filled(0, 0, dMIN, 2), (-4.0 + -10 / 1.5) / (1 + 1 / 1.5));
}

TEST_F(DtmCircularInterpolatorTest, HeightsWidenTheAreasRangeAndOtherKindsDont) {
  for (const bool isHeight : {true, false}) {
    const int block = isHeight ? dVAL : dSDV;
    Make({dVAL, iNUM, dSDV});
    for (const int col : {-1, 1}) {
      grid_->Set(0, col, iNUM, 1);
      grid_->Access().SetDoubleValue(0, col, block, -4, false);
    }
    grid_->Area(0, 0)->SetMinMaxZ(1, 2);
    EXPECT_TRUE(Fill(0, 0, block, 1));
    EXPECT_EQ(grid_->Get(0, 0, block), -4.0);
    float lowest = 0;
    float highest = 0;
    EXPECT_TRUE(grid_->Area(0, 0)->GetMinMaxZ(lowest, highest));
    EXPECT_EQ(lowest, isHeight ? -4.0F : 1.0F);
  }
}

TEST_F(DtmCircularInterpolatorTest, FillsAcrossAMissingArea) {
  Make({dVAL, iNUM}, 2);
  Hit(0, -1, -4);
  Hit(0, 2, -4);
  ASSERT_EQ(grid_->Area(0, 0), nullptr);
  EXPECT_TRUE(Fill(0, 0, dVAL, 2));
  EXPECT_EQ(grid_->Get(0, 0), -4.0);
  EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 0, iNUM)));
}

TEST_F(DtmCircularInterpolatorTest, AreaWithNothingInItsMarginIsSkipped) {
  Make({dVAL, iNUM}, 4);
  Hit(0, 12, -4);
  DtmCircularInterpolator near(dVAL, 8);
  DtmCircularInterpolator far(dVAL, 9);
  ASSERT_TRUE(near.Init(grid_->Access()));
  ASSERT_TRUE(far.Init(grid_->Access()));
  double weight = 16;
  EXPECT_TRUE(near.ProcessArea(0, 0, weight));
  EXPECT_EQ(weight, 0.0) << "the margin ends with column 11";
  weight = 16;
  EXPECT_TRUE(far.ProcessArea(0, 0, weight));
  EXPECT_EQ(weight, 16.0);
  grid_->Clear(0, 12);
  grid_->Leave();
  ASSERT_TRUE(far.Init(grid_->Access()));
  EXPECT_TRUE(far.ProcessArea(0, 0, weight));
  EXPECT_EQ(weight, 0.0) << "an area without data is as none";
}

TEST_F(DtmCircularInterpolatorTest, AreaThatWasNotReadCountsAsData) {
  Make({dVAL, iNUM}, 4);
  Hit(0, 4, -4);
  grid_->Clear(0, 4);
  Hit(0, 8, -4);
  grid_->Reopen();
  DtmCircularInterpolator interpolator(dVAL, 1);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  double weight = 16;
  EXPECT_TRUE(interpolator.ProcessArea(4 * 0, 4, weight));
  EXPECT_EQ(weight, 16.0);
}

TEST_F(DtmCircularInterpolatorTest, InitNeedsAFile) {
  DtmAccess none(nullptr);
  DtmCircularInterpolator interpolator(dVAL, 1);
  EXPECT_FALSE(interpolator.Init(none));
  double value = 7;
  EXPECT_TRUE(interpolator.InterpolateCell(0, 0, value));
  EXPECT_EQ(value, 7.0);
}

TEST_F(DtmCircularInterpolatorTest, SecondInitOnAnotherFileWorksThere) {
  DtmCircularInterpolator interpolator(dVAL, 1);
  TestGrid other;
  ASSERT_TRUE(interpolator.Init(other.Access()));
  Make({dVAL, iNUM});
  Hit(0, 1, -4);
  Hit(0, -1, -6);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  double weight = 1;
  EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight));
  EXPECT_EQ(grid_->Get(0, 0), -5.0);
}

TEST_F(DtmCircularInterpolatorTest, FailedWriteEndsTheRun) {
  Make({dVAL, iNUM, uFCT});
  for (const int col : {-1, 1}) {
    Hit(0, col, -4);
    ASSERT_TRUE(grid_->Access().InsertValue(col + 0.5, 0.5, -4, 0, nullptr, nullptr, 3));
  }
  EXPECT_FALSE(Fill(0, 0, uFCT, 1)) << "this kind can't be set";
  EXPECT_FALSE(Fill(0, 0, uFCT, 1, false));
  EXPECT_TRUE(Fill(5, 5, uFCT, 1)) << "where nothing is written nothing fails";
}

TEST_F(DtmCircularInterpolatorTest, KindThatTheModelLacksIsNeverFilled) {
  Make({dVAL, iNUM});
  Hit(0, 1, -4);
  Hit(0, -1, -4);
  EXPECT_TRUE(Fill(0, 0, dMIN, 1));
  EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 0)));
}

TEST_F(DtmCircularInterpolatorTest, CloneWorksOnItsOwn) {
  Make({dVAL, iNUM});
  Hit(0, 1, -4);
  Hit(0, -1, -4);
  auto first = std::make_unique<DtmCircularInterpolator>(dVAL, 1);
  ASSERT_TRUE(first->Init(grid_->Access()));
  const std::unique_ptr<DtmProcessor> clone(first->Clone());
  first.reset();
  DtmAccess access(grid_->Access());
  ASSERT_TRUE(clone->Init(access));
  double weight = 1;
  EXPECT_TRUE(clone->ProcessArea(0, 0, weight));
  EXPECT_TRUE(clone->ProcessCell(0, 0, weight));
  EXPECT_EQ(grid_->Get(0, 0), -4.0);
}

TEST_F(DtmCircularInterpolatorTest, CountsWhatItFilledAndWhatItLeft) {
  Make({dVAL, iNUM}, 4);
  Hit(1, 0, -4);
  Hit(1, 2, -4);
  DtmCircularInterpolator interpolator(dVAL, 1);
  EXPECT_TRUE(interpolator.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(interpolator.NumFilled(), 1);
  EXPECT_EQ(interpolator.NumLeft(), 13);
  EXPECT_TRUE(interpolator.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(interpolator.NumFilled(), 1) << "the filled cell is no hole, and no source";
  EXPECT_EQ(interpolator.NumLeft(), 26);
}

TEST_F(DtmCircularInterpolatorTest, HoleBetweenEmptyNeighboursIsLeft) {
  Make({dVAL, iNUM}, 4);
  for (const int col : {0, 2}) ASSERT_TRUE(grid_->Set(0, col, iNUM, 1));
  DtmCircularInterpolator interpolator(dVAL, 1);
  EXPECT_TRUE(interpolator.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(interpolator.NumFilled(), 0);
  EXPECT_EQ(interpolator.NumLeft(), 16);
}

TEST_F(DtmCircularInterpolatorTest, CellThatLosesItsHitsDuringTheAreaIsNoSourceAnyMore) {
  Make({dVAL, iNUM});
  for (int col = 0; col < 5; ++col) Hit(1, col, -4);
  DtmCircularInterpolator interpolator(dVAL, 2);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  double weight = 1;
  EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight));
  EXPECT_TRUE(interpolator.ProcessCell(3, 3, weight));  // a hole: the surroundings are looked at
  grid_->Clear(1, 1);
  EXPECT_TRUE(interpolator.ProcessCell(1, 1, weight));
  EXPECT_EQ(grid_->Get(1, 1), -4.0);
  grid_->Set(1, 1, dVAL, -99);
  grid_->Clear(1, 2);
  EXPECT_TRUE(interpolator.ProcessCell(1, 2, weight));
  EXPECT_EQ(grid_->Get(1, 2), (-4.0 / 2 + -4.0) / (1.0 / 2 + 1)) << "by the cell behind the filled one";
}

TEST_F(DtmCircularInterpolatorTest, TellsWhereTheOrderMatters) {
  const auto dependsOnOrder = [this](int block, int row, int col) {
    DtmCircularInterpolator interpolator(block, 2);
    EXPECT_TRUE(interpolator.Init(grid_->Access()));
    double weight = 1;
    EXPECT_TRUE(interpolator.ProcessArea(row, col, weight));
    EXPECT_NE(weight, 0.0);
    return interpolator.DependsOnOrder();
  };
  Make({dVAL, iNUM, dMIN}, 4);
  for (int col = 0; col < 16; ++col) {
    Hit(0, col, -4);
    Hit(0, col, -5, dMIN);
  }
  grid_->Set(2, 2, dVAL, -4);
  EXPECT_FALSE(dependsOnOrder(0, 0, 0)) << "a cell without hits is no source, whatever it lacks";
  EXPECT_TRUE(dependsOnOrder(iNUM, 0, 0));
  grid_->Set(0, 6, dMIN, EmptyDouble());
  EXPECT_TRUE(dependsOnOrder(0, 0, 4));
  EXPECT_FALSE(dependsOnOrder(0, 0, 0)) << "the margin ends with column 5";
  EXPECT_TRUE(dependsOnOrder(0, 0, 8)) << "it begins with column 6";
  EXPECT_FALSE(dependsOnOrder(0, 0, 12));
  EXPECT_FALSE(dependsOnOrder(dVAL, 0, 4));
  Make({dVAL}, 4);
  Hit(0, 0, -4);
  EXPECT_TRUE(dependsOnOrder(dVAL, 0, 0));
}

}  // namespace
}  // namespace vak
