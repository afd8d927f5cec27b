#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/repair/DtmCircularInterpolator.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

constexpr double kRoot2 = 1.4142135623730951;

/// Ends the walk at a cell.
class StopsAt final : public DtmProcessor {
 public:
  explicit StopsAt(int cells) : left_(cells) {}
  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*weight*/) override { return --left_ > 0; }

 private:
  int left_;
};

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

  /// Hits on both sides of an area of four cells a side, which the model lacks.
  void MakeGap() {
    Make({dVAL, iNUM}, 4);
    for (int row = 0; row < 4; ++row) {
      Hit(row, -1, -1);
      Hit(row, 4, -1);
    }
  }

  std::unique_ptr<TestGrid> grid_;
  double weight_ = 1;
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

TEST_F(DtmCircularInterpolatorTest, OppositeNeighboursOnADiagonalAreJustEnough) {
  Make({dVAL, iNUM});
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

TEST_F(DtmCircularInterpolatorTest, TellsThatTheOrderMattersWhereItCannotKnow) {
  Make({dVAL, iNUM}, 4);
  Hit(0, 0, -4);
  DtmCircularInterpolator interpolator(dVAL, 2);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  EXPECT_TRUE(interpolator.DependsOnOrder()) << "before any area";
  EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
  EXPECT_FALSE(interpolator.DependsOnOrder());
  EXPECT_TRUE(interpolator.ProcessArea(400, 400, weight_));
  EXPECT_EQ(weight_, 0.0);
  EXPECT_TRUE(interpolator.DependsOnOrder()) << "the area before was another";
  EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
  EXPECT_TRUE(interpolator.Fini());
  EXPECT_TRUE(interpolator.DependsOnOrder()) << "after the end";
}

TEST_F(DtmCircularInterpolatorTest, OrderMattersAsFarAsTheMarginAboveAndBelow) {
  for (const auto& [row, depends] : {std::pair(-3, false), {-2, true}, {5, true}, {6, false}}) {
    SCOPED_TRACE(row);
    Make({dVAL, iNUM}, 4);
    Hit(0, 0, -4);
    ASSERT_TRUE(grid_->Set(row, 1, iNUM, 1));
    DtmCircularInterpolator interpolator(dVAL, 2);
    ASSERT_TRUE(interpolator.Init(grid_->Access()));
    EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
    EXPECT_EQ(interpolator.DependsOnOrder(), depends);
  }
}

// ---- What changes while an area is walked

TEST_F(DtmCircularInterpolatorTest, CellThatGotItsValueInANewAreaIsNoHole) {
  MakeGap();
  DtmCircularInterpolator interpolator(dVAL, 4);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
  EXPECT_FALSE(interpolator.DependsOnOrder()) << "all areas around are looked for here";
  grid_->Set(0, 0, dVAL, -99);
  EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
  EXPECT_EQ(grid_->Get(0, 0), -99.0);
  EXPECT_TRUE(interpolator.ProcessCell(1, 1, weight_));
  EXPECT_EQ(grid_->Get(1, 1), -1.0);
}

TEST_F(DtmCircularInterpolatorTest, LaterOneOfAChainLeavesWhatTheEarlierHasFilled) {
  MakeGap();
  for (int col = 0; col < 4; ++col) Hit(8, col, -50);
  DtmMultiProcessor chain;
  chain.AddProcessor(new DtmCircularInterpolator(dVAL, 4));
  chain.AddProcessor(new DtmCircularInterpolator(dVAL, 9));
  EXPECT_TRUE(chain.ProcessRect(grid_->Access(), Page(0, 0, 4, 4)));
  for (int cell = 0; cell < 16; ++cell) EXPECT_EQ(grid_->Get(cell / 4, cell % 4), -1.0) << cell;
}

TEST_F(DtmCircularInterpolatorTest, ValuesInANeighbourAreaThatIsNewAreUsed) {
  for (const bool hasHits : {true, false}) {
    SCOPED_TRACE(hasHits);
    Make(hasHits ? std::vector<int>{dVAL, iNUM} : std::vector<int>{dVAL}, 2);
    Hit(0, -1, -4);
    DtmCircularInterpolator interpolator(dVAL, 2);
    ASSERT_TRUE(interpolator.Init(grid_->Access()));
    EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
    EXPECT_TRUE(interpolator.ProcessCell(1, 1, weight_));
    Hit(0, 2, -8);
    EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
    EXPECT_EQ(grid_->Get(0, 0), hasHits ? (-4.0 - 8.0 / 2) / 1.5 : -4.0)
        << "without hits the empty cell beside it counts";
    EXPECT_TRUE(interpolator.ProcessCell(0, 1, weight_));
    EXPECT_EQ(grid_->Get(0, 1), hasHits ? (-8.0 - 4.0 / 2) / 1.5 : (-8.0 + grid_->Get(0, 0)) / 2);
  }
}

TEST_F(DtmCircularInterpolatorTest, CellsThatGetHitsDuringTheAreaAreSources) {
  for (const bool sounding : {true, false}) {
    SCOPED_TRACE(sounding);
    Make({dVAL, iNUM}, 4);
    Hit(3, 3, -4);
    DtmCircularInterpolator interpolator(dVAL, 1);
    ASSERT_TRUE(interpolator.Init(grid_->Access()));
    EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
    EXPECT_TRUE(interpolator.ProcessCell(1, 1, weight_));
    EXPECT_TRUE(IsEmptyValue(grid_->Get(1, 1)));
    for (const int col : {0, 2}) {
      if (sounding) {
        ASSERT_TRUE(grid_->Sound(col + 0.5, 1.5, -6));
      } else {
        Hit(1, col, -6);
      }
    }
    EXPECT_TRUE(interpolator.ProcessCell(1, 1, weight_));
    EXPECT_EQ(grid_->Get(1, 1), -6.0);
  }
}

TEST_F(DtmCircularInterpolatorTest, StoppedWalkLeavesNothingOldBehind) {
  Make({dVAL, iNUM}, 4);
  Hit(3, 3, -4);
  DtmMultiProcessor chain;
  auto* const interpolator = new DtmCircularInterpolator(dVAL, 1);
  chain.AddProcessor(interpolator);
  chain.AddProcessor(new StopsAt(5));
  EXPECT_FALSE(chain.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(interpolator->NumLeft(), 5);
  for (const int col : {0, 2}) Hit(1, col, -6);
  EXPECT_TRUE(interpolator->ProcessCell(1, 1, weight_));
  EXPECT_EQ(grid_->Get(1, 1), -6.0);
}

TEST_F(DtmCircularInterpolatorTest, BlockThatCouldNotBeReadIsTriedAgain) {
  for (const bool announced : {true, false}) {
    SCOPED_TRACE(announced);
    MakeGap();
    Hit(3, 1, -1);
    grid_->Clear(3, 1);
    grid_->Reopen();
    DtmCircularInterpolator interpolator(dVAL, 4);
    ASSERT_TRUE(interpolator.Init(grid_->Access()));
    if (announced) {
      EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
    }
    grid_->Get(0, 0);
    for (const int col : {-1, 4}) grid_->Get(0, col, iNUM);  // so that these are there, and VAL has to be read
    grid_->Memory().failReadsFrom = grid_->Memory().counts.reads;
    EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
    EXPECT_TRUE(IsEmptyValue(grid_->Get(0, 0)));
    grid_->Memory().failReadsFrom = ~std::uint64_t{0};
    EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
    EXPECT_EQ(grid_->Get(0, 0), -1.0);
  }
}

TEST_F(DtmCircularInterpolatorTest, AreaThatDoesNotBeginAtTheCellIsFilledAllTheSame) {
  Make({dVAL, iNUM}, 4);
  for (const int col : {0, 2}) Hit(1, col, -4);
  DtmCircularInterpolator interpolator(dVAL, 1);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  EXPECT_TRUE(interpolator.ProcessArea(1, 1, weight_));
  EXPECT_TRUE(interpolator.ProcessCell(1, 1, weight_));
  EXPECT_EQ(grid_->Get(1, 1), -4.0);
}

// ---- The ends of what cells may be

TEST_F(DtmCircularInterpolatorTest, FillsInTheLastRowsAndColumns) {
  for (const int areaSize : {1, 4, 7}) {
    for (const int sign : {1, -1}) {
      SCOPED_TRACE(testing::Message() << areaSize << ", " << sign);
      Make({dVAL, iNUM}, areaSize);
      const int end = sign * grid_->File().LargestAllowed();
      for (const int col : {-1, 1}) {
        Hit(end, col, -4);
        Hit(col, end, -4);
      }
      for (const int radius : {1, 30}) {
        EXPECT_EQ(Filled(end, 0, dVAL, radius), -4.0);
        EXPECT_EQ(Filled(0, end, dVAL, radius), -4.0);
      }
    }
  }
}

TEST_F(DtmCircularInterpolatorTest, OneEndIsNotTheNeighbourOfTheOther) {
  Make({dVAL, iNUM}, 8);  // of which rows and columns past the last would be the first after 34
  const int end = grid_->File().LargestAllowed();
  for (const int sign : {1, -1}) {
    Hit(sign * (end - 1), 0, -4);
    Hit(0, sign * (end - 1), -4);
  }
  for (const int radius : {36, 40, 60}) {
    for (const int sign : {1, -1}) {
      EXPECT_EQ(Filled(sign * end, 0, dVAL, radius), std::nullopt);
      EXPECT_EQ(Filled(0, sign * end, dVAL, radius), std::nullopt);
    }
  }
}

TEST_F(DtmCircularInterpolatorTest, CellsThatThereCannotBeStayUntouched) {
  Make({dVAL, iNUM}, 4);
  Hit(0, 0, -4);
  const int areas = grid_->File().NumAreas();
  for (const int radius : {0, 1, 9, 100}) {
    DtmCircularInterpolator interpolator(dVAL, radius);
    ASSERT_TRUE(interpolator.Init(grid_->Access()));
    for (const int row : {INT_MIN, INT_MIN + 1, -4, 0, INT_MAX - 1, INT_MAX}) {
      for (const int col : {INT_MIN, INT_MAX}) {
        double value = 7;
        EXPECT_TRUE(interpolator.ProcessArea(row, col, weight_));
        EXPECT_TRUE(interpolator.ProcessCell(row, col, weight_));
        EXPECT_TRUE(interpolator.ProcessArea(col, row, weight_));
        EXPECT_TRUE(interpolator.ProcessCell(col, row, weight_));
        EXPECT_TRUE(interpolator.InterpolateCell(row, col, value));
        EXPECT_EQ(value, 7.0);
      }
    }
  }
  EXPECT_EQ(grid_->File().NumAreas(), areas);
}

TEST_F(DtmCircularInterpolatorTest, RadiusBeyondTheLimitIsRefusedAndTakesNoMemory) {
  Make({dVAL, iNUM});
  for (const int radius : {DtmCircularInterpolator::kLargestRadius + 1, INT_MAX}) {
    DtmCircularInterpolator interpolator(dVAL, radius);
    EXPECT_FALSE(interpolator.Init(grid_->Access()));
    EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
  }
}

// ---- The accesses

TEST_F(DtmCircularInterpolatorTest, KeepsAllAreasThatASearchCanReach) {
  Make({dVAL, iNUM}, 2);
  for (int row = -10; row <= 10; row += 2) {
    for (int col = -10; col <= 10; col += 2) grid_->Set(row, col, iNUM, -1);  // areas without sources
  }
  grid_->Reopen();
  DtmCircularInterpolator interpolator(dVAL, 10);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
  const std::uint64_t reads = grid_->Memory().counts.reads;
  EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
  EXPECT_EQ(grid_->Memory().counts.reads, reads);
}

TEST_F(DtmCircularInterpolatorTest, KeepsNineAreasHoweverFewASearchCanReach) {
  Make({dVAL}, 4);
  for (int area = 0; area < 9; ++area) {
    Hit(area * 4, 0, -4);
    Hit(area * 4, 2, -4);
  }
  grid_->Reopen();
  grid_->Access().SetCacheSize(0);
  DtmCircularInterpolator interpolator(dVAL, 1);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  std::uint64_t reads = 0;
  for (int round = 0; round < 2; ++round) {
    reads = grid_->Memory().counts.reads;
    for (int area = 0; area < 9; ++area) {
      double value = 7;
      EXPECT_TRUE(interpolator.InterpolateCell(area * 4, 1, value));
      EXPECT_EQ(value, -4.0);
    }
  }
  EXPECT_EQ(grid_->Memory().counts.reads, reads) << "the second time";
}

TEST_F(DtmCircularInterpolatorTest, SearchLeavesTheWalkersAreasAlone) {
  Make({dVAL, iNUM}, 4);
  for (int col = -2; col <= 2; ++col) {
    Hit(-1, col, -4);
    Hit(0, 0, -4);
  }
  grid_->Set(0, 0, dVAL, EmptyDouble());
  DtmAccess& access = grid_->Access();
  access.SetCacheSize(0);
  grid_->Get(0, 0);
  const std::uint64_t releases = access.NumReleases();
  DtmCircularInterpolator interpolator(dVAL, 2);
  ASSERT_TRUE(interpolator.Init(access));
  double value = 7;
  EXPECT_TRUE(interpolator.InterpolateCell(0, 0, value));
  EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
  EXPECT_EQ(access.NumReleases(), releases);
}

TEST_F(DtmCircularInterpolatorTest, EndOfTheWalkGivesUpTheBlocks) {
  Make({dVAL, iNUM}, 4);
  for (const int col : {-1, 1}) Hit(0, col, -4);
  DtmCircularInterpolator interpolator(dVAL, 1);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
  EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
  const auto readsOf = [this](int col) {
    const std::uint64_t before = grid_->Memory().counts.reads;
    EXPECT_EQ(grid_->Get(0, col), -4.0);
    grid_->Leave();
    return grid_->Memory().counts.reads - before;
  };
  grid_->Leave();
  EXPECT_EQ(readsOf(-1), 0U);
  EXPECT_TRUE(interpolator.Fini());
  EXPECT_GT(readsOf(-1), 0U);
  EXPECT_GT(readsOf(0), 0U);
}

TEST_F(DtmCircularInterpolatorTest, AreasThatFollowOneAnotherShareWhatIsRead) {
  Make({dVAL, iNUM}, 4);
  for (int row = 0; row < 40; row += 2) {
    for (int col = 0; col < 40; col += 2) Hit(row, col, -4);
  }
  grid_->Reopen();
  grid_->Access().SetCacheSize(0);
  DtmCircularInterpolator interpolator(dVAL, 4);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  const std::uint64_t before = grid_->Memory().counts.reads;
  for (int left = 0; left < 40; left += 4) {
    EXPECT_TRUE(interpolator.ProcessArea(8, left, weight_));
    for (int cell = 0; cell < 16; ++cell) {
      EXPECT_TRUE(interpolator.ProcessCell(8 + cell / 4, left + cell % 4, weight_));
    }
  }
  EXPECT_LE(grid_->Memory().counts.reads - before, 30U * 4) << "of thirty areas two blocks, and where they lie";
}

TEST_F(DtmCircularInterpolatorTest, CloneIsAFullCopy) {
  Make({dVAL, iNUM});
  for (const int col : {-1, 1}) Hit(0, col, -4);
  auto first = std::make_unique<DtmCircularInterpolator>(dVAL, 1);
  ASSERT_TRUE(first->Init(grid_->Access()));
  EXPECT_TRUE(first->ProcessCell(9, 9, weight_));
  EXPECT_EQ(first->NumLeft(), 1);
  const std::unique_ptr<DtmProcessor> clone(first->Clone());
  first.reset();
  const auto* const copy = dynamic_cast<DtmCircularInterpolator*>(clone.get());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->NumLeft(), 0);
  EXPECT_TRUE(clone->ProcessCell(0, 0, weight_)) << "on the same access, with no Init of its own";
  EXPECT_EQ(grid_->Get(0, 0), -4.0);
  EXPECT_EQ(copy->NumFilled(), 1);
}

TEST_F(DtmCircularInterpolatorTest, SecondInitKeepsTheKindsOfTheFirstFile) {
  Make({dVAL, dMIN, iNUM}, 4);
  DtmCircularInterpolator interpolator(0, 1);
  const std::unique_ptr<TestGrid> other = std::move(grid_);
  ASSERT_TRUE(interpolator.Init(other->Access()));
  Make({dVAL, iNUM}, 4);
  for (const int col : {-1, 1}) Hit(0, col, -5);
  Hit(0, 0, -70);
  ASSERT_TRUE(interpolator.Init(grid_->Access()));
  EXPECT_TRUE(interpolator.ProcessArea(0, 0, weight_));
  EXPECT_TRUE(interpolator.ProcessCell(0, 0, weight_));
  EXPECT_EQ(grid_->Get(0, 0), -5.0) << "it lacks the kind that this file doesn't have, and so all are made anew";
}

TEST_F(DtmCircularInterpolatorTest, AreaThatCannotBeMadeEndsTheRun) {
  for (const bool announced : {true, false}) {
    SCOPED_TRACE(announced);
    MakeGap();
    grid_->Memory().failFrom = grid_->Memory().changes;
    EXPECT_FALSE(Fill(0, 0, dVAL, 4, announced));
    EXPECT_EQ(grid_->Area(0, 0), nullptr);
    grid_->Memory().failFrom = test::MemoryFile::kNever;
    EXPECT_TRUE(Fill(0, 0, dVAL, 4, announced));
    EXPECT_EQ(grid_->Get(0, 0), -1.0);
  }
}

TEST_F(DtmCircularInterpolatorTest, CountsAreTheSameWithoutAreas) {
  Make({dVAL, iNUM}, 4);
  Hit(1, 0, -4);
  Hit(1, 2, -4);
  for (const int col : {0, 2}) ASSERT_TRUE(grid_->Set(2, col, iNUM, 1));
  DtmCircularInterpolator interpolator(dVAL, 1);
  EXPECT_TRUE(interpolator.ProcessLinearRect(grid_->Access(), Page(0, 0, 3.5, 3.5)));
  EXPECT_EQ(interpolator.NumFilled(), 1);
  EXPECT_EQ(interpolator.NumLeft(), 13) << "one of them between measured cells that lack the value";
}

}  // namespace
}  // namespace vak
