#include <cmath>
#include <cstddef>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/analysis/DtmTotalProcessor.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/LongForm.h"
#include "support/RandomSeed.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

/// A cell of a walk, with the plan area that a clipper may have left of it.
struct Visit {
  int row;
  int col;
  double weight;
};

/// Shows the cells to the processor, as a walker does.
bool Walk(DtmTotalProcessor& total, TestGrid& grid, const std::vector<Visit>& visits) {
  if (!total.Init(grid.Access())) return false;
  for (Visit visit : visits) {
    if (!total.ProcessCell(visit.row, visit.col, visit.weight)) return false;
  }
  return total.Fini();
}

TestGrid Grid(std::vector<int> kinds, double cellSize = 1.0) {
  return TestGrid(GridSettings{.cellSize = cellSize, .areaSize = 4, .blockIds = std::move(kinds)});
}

/// An answer of the getters with a bool, or nothing.
std::optional<double> Average(const DtmTotalProcessor& total) {
  double value = 0;
  return total.GetAverage(value) ? std::optional(value) : std::nullopt;
}
std::optional<double> Deviation(const DtmTotalProcessor& total) {
  double value = 0;
  return total.GetStandardDeviation(value) ? std::optional(value) : std::nullopt;
}
std::optional<double> DeviationSd(const DtmTotalProcessor& total) {
  double value = 0;
  return total.GetStandardDeviationSd(value) ? std::optional(value) : std::nullopt;
}
std::optional<float> Duration(const DtmTotalProcessor& total) {
  float value = 0;
  return total.TotalDuration(value) ? std::optional(value) : std::nullopt;
}

/// Height and place of an extreme; a coordinate that isn't known is the word "none".
std::string Place(double z, double x, double y) {
  const auto text = [](double value) {
    std::string digits;
    AppendNumber(digits, value);
    return IsEmptyValue(value) ? std::string("none") : digits;
  };
  return text(z) + " at " + text(x) + " " + text(y);
}
std::string Minimum(const DtmTotalProcessor& total) {
  double z = 0;
  double x = 0;
  double y = 0;
  return total.GetMinimum(z, x, y) ? Place(z, x, y) : "nothing";
}
std::string Maximum(const DtmTotalProcessor& total) {
  double z = 0;
  double x = 0;
  double y = 0;
  return total.GetMaximum(z, x, y) ? Place(z, x, y) : "nothing";
}

// ---- Surfaces, mean and deviation

TEST(DtmTotalProcessor, BeforeAWalkThereIsNothing) {
  const DtmTotalProcessor total;
  EXPECT_EQ(total.UsedArea(), 0.0);
  EXPECT_EQ(total.EmptyArea(), 0.0);
  EXPECT_EQ(total.TotalNumber(), 0);
  EXPECT_EQ(total.LatestTime(), 0);
  EXPECT_EQ(Average(total), std::nullopt);
  EXPECT_EQ(Deviation(total), std::nullopt);
  EXPECT_EQ(DeviationSd(total), std::nullopt);
  EXPECT_EQ(Duration(total), std::nullopt);
  EXPECT_EQ(Minimum(total), "nothing");
  EXPECT_EQ(Maximum(total), "nothing");
}

TEST(DtmTotalProcessor, UsedAndEmptyAreaAddUpWhatIsLeftOfTheCells) {
  TestGrid grid = Grid({dVAL, iNUM}, 2.0);
  grid.Draw("-3 .");
  grid.Set(0, 1, iNUM, 7);  // a count without a height is no used cell
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 3.5}, {0, 1, 4.0}, {100, 100, 2.0}}));
  EXPECT_EQ(total.UsedArea(), 3.5);
  EXPECT_EQ(total.UsedCells(), 0.875);
  EXPECT_EQ(total.EmptyArea(), 6.0);
}

TEST(DtmTotalProcessor, AModelWithoutHeightsIsEmpty) {
  TestGrid grid = Grid({iNUM, dMIN});
  grid.Set(0, 0, dMIN, -4.0);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(total.EmptyArea(), 1.0);
  EXPECT_EQ(total.UsedArea(), 0.0);
  EXPECT_EQ(Minimum(total), "-4 at 0.5 0.5") << "an extreme needs no mean";
}

TEST(DtmTotalProcessor, WithoutHitCountsTheAverageIsThatOfTheAreas) {
  TestGrid grid = Grid({dVAL});
  grid.Draw("-2 -5");
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 0.25}}));
  EXPECT_EQ(Average(total), (-2.0 - 5.0 * 0.25) / 1.25);
  EXPECT_EQ(total.TotalNumber(), 1);  // 1.25 cells
}

TEST(DtmTotalProcessor, ACellCountsByItsHits) {
  struct Case {
    const char* name;
    double hits;
    double counted;
  };
  for (const Case& c : {Case{"filled by a circle", 0, 1}, Case{"filled along lines", -1, 1}, Case{"far below", -7, 1},
                        Case{"once", 1, 1}, Case{"often", 5, 5}}) {
    SCOPED_TRACE(c.name);
    TestGrid grid = Grid({dVAL, iNUM});
    grid.Draw("-10 -20");
    grid.Set(0, 0, iNUM, c.hits);
    grid.Set(0, 1, iNUM, 3);
    DtmTotalProcessor total;
    ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}}));
    EXPECT_EQ(total.TotalNumber(), static_cast<int>(c.counted) + 3);
    EXPECT_EQ(Average(total), (-10.0 * c.counted - 60.0) / (c.counted + 3));
  }
}

TEST(DtmTotalProcessor, DeviationIsThatOfTheFormula) {
  TestGrid grid = Grid({dVAL, iNUM, dSDV}, 2.0);
  grid.Draw("-10 -12");
  grid.Set(0, 0, iNUM, 3);
  grid.Set(0, 0, dSDV, 0.5);
  grid.Set(0, 1, iNUM, 1);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 4.0}, {0, 1, 1.0}}));
  // Hits by area 3 x 4 + 1 x 1 = 13, so n = 3.25; heights 3 x -10 x 4 - 12 = -132. Squares: 4 x 0.25 + 100 x 3 for the
  // whole cell and a quarter of 144 for the other.
  EXPECT_EQ(total.TotalNumber(), 3);
  EXPECT_EQ(Average(total), -132.0 / 13.0);
  const double mean = -132.0 / 13.0;
  EXPECT_EQ(Deviation(total), std::sqrt((337.0 - mean * mean * 3.25) / 2.25));
}

TEST(DtmTotalProcessor, ADeviationCountsOnceMoreThanTheHits) {
  // All cells at 0, so that only the cells' own deviations count: sqrt((hits + 1) s^2 / (n - 1)).
  TestGrid grid = Grid({dVAL, iNUM, dSDV});
  grid.Draw("0");
  grid.Set(0, 0, iNUM, 5);
  grid.Set(0, 0, dSDV, 2.0);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(Deviation(total), std::sqrt(6.0 * 4.0 / 4.0));
}

TEST(DtmTotalProcessor, ADeviationOfACellHitOnceCountsForTheWhole) {
  TestGrid grid = Grid({dVAL, iNUM, dSDV});
  grid.Draw("0 0");
  grid.Set(0, 0, iNUM, 1);
  grid.Set(0, 0, dSDV, 3.0);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}}));
  EXPECT_EQ(Deviation(total), std::sqrt(2.0 * 9.0 / 1.0));
  EXPECT_EQ(DeviationSd(total), std::nullopt) << "but not for the cells'";
}

TEST(DtmTotalProcessor, BelowOneAndAHalfHitsThereIsNoDeviation) {
  TestGrid grid = Grid({dVAL});
  grid.Draw("-4 -6");
  for (const auto& [second, there] : {std::pair{0.49, false}, {0.5, true}}) {
    DtmTotalProcessor total;
    ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, second}}));
    EXPECT_EQ(Deviation(total).has_value(), there) << second;
  }
}

TEST(DtmTotalProcessor, RoundingNeverMakesADeviationNegative) {
  TestGrid grid = Grid({dVAL, iNUM});
  for (int col = 0; col < 4; ++col) {
    grid.Set(0, col, dVAL, 0.1);
    grid.Set(0, col, iNUM, 3);
  }
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 0.9}, {0, 1, 0.7}, {0, 2, 0.3}, {0, 3, 0.1}}));
  ASSERT_TRUE(Deviation(total).has_value());
  EXPECT_GE(*Deviation(total), 0.0);
  EXPECT_LT(*Deviation(total), 1e-7);
}

TEST(DtmTotalProcessor, CellsDeviationIsTheirQuadraticMeanWhateverTheirArea) {
  TestGrid grid = Grid({dVAL, iNUM, dSDV});
  grid.Draw("-1 -1 -1");
  const std::vector<std::pair<int, double>> hitsAndDeviation = {{2, 3.0}, {9, 4.0}, {2, 0.0}};
  for (int col = 0; col < 3; ++col) {
    grid.Set(0, col, iNUM, hitsAndDeviation[static_cast<std::size_t>(col)].first);
    if (col < 2) grid.Set(0, col, dSDV, hitsAndDeviation[static_cast<std::size_t>(col)].second);
  }
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 0.125}, {0, 2, 1.0}}));
  // The third has two hits and no deviation, which is one of 0.
  EXPECT_EQ(DeviationSd(total), std::sqrt((9.0 + 16.0 + 0.0) / 3.0));
}

TEST(DtmTotalProcessor, TotalNumberIsRoundedToTheNearest) {
  TestGrid grid = Grid({dVAL}, 2.0);
  grid.Draw("-1 -1");
  for (const auto& [weight, number] : {std::pair{1.99, 1}, {2.0, 2}, {4.0, 2}}) {
    DtmTotalProcessor total;
    ASSERT_TRUE(Walk(total, grid, {{0, 0, 4.0}, {0, 1, weight}}));
    EXPECT_EQ(total.TotalNumber(), number) << weight;
  }
}

TEST(DtmTotalProcessor, MoreHitsThanAnIntHoldsAreAnInts) {
  TestGrid grid = Grid({dVAL, iNUM});
  grid.Draw("-1 -1");
  const int most = std::numeric_limits<int>::max();
  for (const int col : {0, 1}) grid.Set(0, col, iNUM, most);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}}));
  EXPECT_EQ(total.TotalNumber(), most);
  EXPECT_EQ(Average(total), -1.0);
}

TEST(DtmTotalProcessor, FiguresAgreeToTheLastBit) {
  // Numbers that no binary fraction holds: each product and sum rounds, and another order shows. Worked out apart.
  TestGrid grid = Grid({dVAL, iNUM, dSDV}, 0.3);
  grid.Draw("0.9 2.3");
  for (const auto& [col, hits] : {std::pair{0, 3}, {1, 7}}) {
    grid.Set(0, col, iNUM, hits);
    grid.Set(0, col, dSDV, 0.1);
  }
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 0.09}, {0, 1, 0.01}}));
  EXPECT_EQ(Average(total), 0x1.3030303030302p+0);
  EXPECT_EQ(Deviation(total), 0x1.58c2745f16c52p-1);
}

TEST(DtmTotalProcessor, SumsThatAreNoNumbersHaveADeviationThatIsNone) {
  TestGrid grid = Grid({dVAL});
  grid.Draw("-1 . -3");
  grid.Set(0, 1, dVAL, std::nan("3"));
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}, {0, 2, 1.0}}));
  EXPECT_EQ(total.UsedArea(), 3.0) << "it isn't the empty value";
  ASSERT_TRUE(Average(total).has_value() && Deviation(total).has_value());
  EXPECT_TRUE(std::isnan(*Average(total)));
  EXPECT_TRUE(std::isnan(*Deviation(total)));
}

// ---- Durations, times, further kinds

TEST(DtmTotalProcessor, DurationsCountByArea) {
  TestGrid grid = Grid({dVAL, fDUR}, 2.0);
  grid.Draw("-1 .");
  grid.Set(0, 0, fDUR, 8.0);
  grid.Set(0, 1, fDUR, 2.0);  // of a cell without a height, which counts all the same
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 4.0}, {0, 1, 2.0}, {0, 2, 4.0}}));
  EXPECT_EQ(Duration(total), 9.0F);
}

TEST(DtmTotalProcessor, WithoutDurationsThereIsNone) {
  TestGrid grid = Grid({dVAL});
  grid.Draw("-1");
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(Duration(total), std::nullopt);
}

TEST(DtmTotalProcessor, ASecondWalkStartsAnewButForTheDuration) {
  TestGrid grid = Grid({dVAL, iNUM, dSDV, fDUR, tTIM});
  grid.Draw("-1 -3");
  for (const int col : {0, 1}) {
    grid.Set(0, col, iNUM, 2);
    grid.Set(0, col, dSDV, 0.5);
    grid.Set(0, col, fDUR, 4.0);
    grid.Set(0, col, tTIM, 100 + 100 * col);
  }
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}, {7, 7, 1.0}}));
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(total.UsedArea(), 1.0);
  EXPECT_EQ(total.EmptyArea(), 0.0);
  EXPECT_EQ(total.TotalNumber(), 2);
  EXPECT_EQ(Average(total), -1.0);
  EXPECT_EQ(Deviation(total), std::sqrt(3.0 * 0.25));
  EXPECT_EQ(DeviationSd(total), 0.5);
  EXPECT_EQ(Minimum(total), "-1 at none none");
  EXPECT_EQ(Maximum(total), "-1 at 0.5 0.5");
  EXPECT_EQ(total.LatestTime(), 100);
  EXPECT_EQ(Duration(total), 12.0F);
}

TEST(DtmTotalProcessor, LatestTimeIsTheGreatestAboveNought) {
  TestGrid grid = Grid({dVAL, tTIM});
  grid.Set(0, 0, tTIM, 1435926896);
  grid.Set(0, 1, tTIM, 1435926897);
  grid.Set(0, 2, tTIM, 17);
  grid.Set(1, 0, tTIM, -5);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}, {0, 2, 1.0}}));
  EXPECT_EQ(total.LatestTime(), 1435926897);
  ASSERT_TRUE(Walk(total, grid, {{1, 0, 1.0}, {3, 3, 1.0}}));
  EXPECT_EQ(total.LatestTime(), 0);
}

TEST(DtmTotalProcessor, ExtraDataIsTheFirstValueThatTheWalkMeets) {
  TestGrid grid = Grid({dVAL, fBKS, dTVU});
  grid.Set(0, 1, fBKS, 12.5);
  grid.Set(0, 2, fBKS, 13.5);
  grid.Set(0, 0, dTVU, 0.25);
  DtmTotalProcessor total;
  for (const int id : {fBKS, dTVU, fPHI}) total.AddExtraBlockId(id);
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}, {0, 2, 1.0}}));
  EXPECT_EQ(total.GetExtraData(0), 12.5);
  EXPECT_EQ(total.GetExtraData(1), 0.25);
  EXPECT_TRUE(IsEmptyValue(total.GetExtraData(2))) << "the model doesn't have it";
  ASSERT_TRUE(Walk(total, grid, {{0, 2, 1.0}}));
  EXPECT_EQ(total.GetExtraData(0), 13.5) << "a walk starts anew";
  EXPECT_TRUE(IsEmptyValue(total.GetExtraData(1)));
  total.ClearExtraBlockIds();
  total.AddExtraBlockId(dTVU);
  EXPECT_TRUE(IsEmptyValue(total.GetExtraData(0)));
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(total.GetExtraData(0), 0.25);
}

// ---- Extremes

TEST(DtmTotalProcessor, WithoutExtremesTheMeansAreAndThePlaceGoesToTheHighest) {
  TestGrid grid = Grid({dVAL});
  grid.Draw("-5 -2 -9 -4");
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}, {0, 2, 1.0}, {0, 3, 1.0}}));
  EXPECT_EQ(Minimum(total), "-9 at none none");
  EXPECT_EQ(Maximum(total), "-2 at 2.5 0.5") << "the extreme that was written last";
}

TEST(DtmTotalProcessor, APlaceOfTheDeepestStaysWhenAMeanGoesBelowIt) {
  TestGrid grid = Grid({dVAL, dMIN, dMAX});
  grid.Draw("-5 -8");
  grid.Set(0, 0, dMIN, -6.0);
  grid.Set(0, 0, dMAX, -1.0);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}}));
  EXPECT_EQ(Minimum(total), "-8 at 0.5 0.5");
  EXPECT_EQ(Maximum(total), "-1 at 1.5 0.5");
}

TEST(DtmTotalProcessor, AWalkForgetsTheExtremesAndNotTheirPlaces) {
  TestGrid grid = Grid({dVAL, dMIN});
  grid.Draw(". . -4");
  grid.Set(0, 0, dMIN, -9.0);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(Minimum(total), "-9 at 0.5 0.5");
  ASSERT_TRUE(Walk(total, grid, {{0, 2, 1.0}}));
  EXPECT_EQ(Minimum(total), "-4 at 0.5 0.5");
  EXPECT_EQ(Maximum(total), "-4 at 2.5 0.5");
}

TEST(DtmTotalProcessor, TheDeepestComesBeforeTheHighestSoThatItsOwnPlaceStays) {
  TestGrid grid = Grid({dVAL, dMIN, dMAX, fXMX, fYMX});
  grid.Draw("-5");
  grid.Set(0, 0, dMAX, -1.0);
  for (const int id : {fXMX, fYMX}) grid.Set(0, 0, id, 0.25);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(Minimum(total), "-5 at none none");
  EXPECT_EQ(Maximum(total), "-1 at 0.75 0.75");
}

TEST(DtmTotalProcessor, AnExtremeIsAtTheCentreUnlessBothOffsetsAreKnown) {
  struct Case {
    const char* name;
    std::optional<double> dx;
    std::optional<double> dy;
    const char* minimum;
    const char* maximum;
  };
  for (const Case& c :
       {Case{"both", 0.25, -0.5, "-9 at 7.25 4.5", "-3 at 7.25 4.5"},
        Case{"x alone", 0.25, {}, "-9 at 7 5", "-3 at 7 5"}, Case{"y alone", {}, -0.5, "-9 at 7 5", "-3 at 7 5"},
        Case{"none", {}, {}, "-9 at 7 5", "-3 at 7 5"}}) {
    SCOPED_TRACE(c.name);
    TestGrid grid = Grid({dVAL, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX}, 2.0);
    grid.Set(2, 3, dMIN, -9.0);
    grid.Set(2, 3, dMAX, -3.0);
    for (const auto& [id, offset] : {std::pair{fXMN, c.dx}, {fYMN, c.dy}, {fXMX, c.dx}, {fYMX, c.dy}}) {
      if (offset) grid.Set(2, 3, id, *offset);
    }
    DtmTotalProcessor total;
    total.SetRect(Page(7.0, 4.0, 8.0, 5.0));
    ASSERT_TRUE(Walk(total, grid, {{2, 3, 4.0}}));
    EXPECT_EQ(Minimum(total), c.minimum);
    EXPECT_EQ(Maximum(total), c.maximum);
  }
}

TEST(DtmTotalProcessor, TheDeepestAndTheHighestOfTheCellsAreTheExtremes) {
  TestGrid grid = Grid({dVAL, dMIN, dMAX});
  const std::vector<std::pair<double, double>> extremes = {{-5, -4}, {-9, -3}, {-7, -1}, {-9, -1}};
  for (int col = 0; col < 4; ++col) {
    grid.Set(0, col, dVAL, -4.5);
    grid.Set(0, col, dMIN, extremes[static_cast<std::size_t>(col)].first);
    grid.Set(0, col, dMAX, extremes[static_cast<std::size_t>(col)].second);
  }
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}, {0, 2, 1.0}, {0, 3, 1.0}}));
  EXPECT_EQ(Minimum(total), "-9 at 1.5 0.5") << "the first of equals";
  EXPECT_EQ(Maximum(total), "-1 at 2.5 0.5");
}

TEST(DtmTotalProcessor, ThePlacesOfTheDeepestAndOfTheHighestAreTheirOwn) {
  TestGrid grid = Grid({dVAL, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX});
  grid.Set(0, 0, dMIN, -9.0);
  grid.Set(0, 0, dMAX, -3.0);
  grid.Set(0, 0, fXMN, 0.125);
  grid.Set(0, 0, fYMN, 0.25);
  grid.Set(0, 0, fXMX, -0.125);
  grid.Set(0, 0, fYMX, -0.25);
  DtmTotalProcessor total;
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(Minimum(total), "-9 at 0.625 0.75");
  EXPECT_EQ(Maximum(total), "-3 at 0.375 0.25");
}

TEST(DtmTotalProcessor, ARectangleRejectsExtremesWhosePlaceIsKnown) {
  TestGrid grid = Grid({dVAL, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX});
  grid.Draw("-50 -5 -6");
  for (const int col : {0, 1}) {
    grid.Set(0, col, dMIN, col == 0 ? -60.0 : -7.0);
    grid.Set(0, col, dMAX, col == 0 ? 60.0 : 7.0);
    for (const int id : {fXMN, fXMX}) grid.Set(0, col, id, 0.25);
    for (const int id : {fYMN, fYMX}) grid.Set(0, col, id, 0.25);
  }
  DtmTotalProcessor total;
  total.SetRect(Page(1.0, 0.0, 3.0, 1.0));
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}}));
  EXPECT_EQ(Minimum(total), "nothing") << "the mean doesn't stand in";
  EXPECT_EQ(Maximum(total), "nothing");
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}}));
  EXPECT_EQ(Minimum(total), "-7 at 1.75 0.75");
  EXPECT_EQ(Maximum(total), "7 at 1.75 0.75");
}

TEST(DtmTotalProcessor, ARectangleNeverJudgesTheCentreOfACell) {
  TestGrid grid = Grid({dVAL, dMIN, dMAX});
  grid.Draw("-5 -6");
  grid.Set(0, 0, dMIN, -60.0);
  grid.Set(0, 0, dMAX, 60.0);
  DtmTotalProcessor total;
  total.SetRect(Page(100.0, 100.0, 101.0, 101.0));
  ASSERT_TRUE(Walk(total, grid, {{0, 0, 1.0}, {0, 1, 1.0}}));
  EXPECT_EQ(Minimum(total), "-60 at 0.5 0.5");
  EXPECT_EQ(Maximum(total), "60 at 0.5 0.5");
}

// ---- Driving

TEST(DtmTotalProcessor, AnAreaThatCannotBeReadEndsTheWalk) {
  TestGrid grid = Grid({dVAL, iNUM});
  grid.Draw("-5");
  DtmTotalProcessor total;
  ASSERT_TRUE(total.Init(grid.Access()));
  double weight = 16.0;
  EXPECT_TRUE(total.ProcessArea(0, 0, weight));
  EXPECT_FALSE(total.ProcessArea(40, 40, weight)) << "there is none";
  EXPECT_EQ(weight, 16.0);
}

TEST(DtmTotalProcessor, CannotBeRunInParallel) {
  DtmTotalProcessor total;
  EXPECT_EQ(total.Clone(), nullptr);
}

// ---- Against another computation

/// What a cell of a random model was given, by kind.
using CellData = std::map<int, double>;
using Cells = std::map<std::pair<int, int>, CellData>;

std::optional<double> Value(const CellData& cell, int id) {
  const auto found = cell.find(id);
  return found == cell.end() ? std::nullopt : std::optional(found->second);
}

/// The same figures, cell by cell in the order of the walk, from the cells' values as they were set.
struct Expected {
  long double used = 0, empty = 0, hits = 0, heights = 0, squares = 0, deviations = 0, durations = 0;
  int withDeviation = 0;
  long latest = 0;
  std::optional<double> minimum, maximum;
  double minX = EmptyDouble(), minY = EmptyDouble(), maxX = EmptyDouble(), maxY = EmptyDouble();

  void Add(const Visit& visit, const CellData& cell, double cellSize, const std::optional<Page>& rect) {
    const long double w = visit.weight;
    const std::optional<double> z = Value(cell, dVAL);
    if (z) {
      const long double n = std::max(1.0, Value(cell, iNUM).value_or(1.0));
      const long double s = Value(cell, dSDV).value_or(0.0);
      used += w;
      hits += n * w;
      heights += n * w * *z;
      squares += ((n + 1) * s * s + n * *z * *z) * w / (cellSize * cellSize);
      if (n > 1) deviations += s * s;
      if (n > 1) ++withDeviation;
    } else {
      empty += w;
    }
    durations += w * Value(cell, fDUR).value_or(0.0);
    latest = std::max(latest, static_cast<long>(Value(cell, tTIM).value_or(0.0)));
    const double x = (visit.col + 0.5) * cellSize;
    const double y = (visit.row + 0.5) * cellSize;
    // The deepest, whose fallback moves the place of the highest, before the highest.
    AddExtreme(Value(cell, dMIN), z, -1, {x, y}, Value(cell, fXMN), Value(cell, fYMN), rect, minimum, minX, minY);
    AddExtreme(Value(cell, dMAX), z, 1, {x, y}, Value(cell, fXMX), Value(cell, fYMX), rect, maximum, maxX, maxY);
  }

 private:
  void AddExtreme(std::optional<double> own, std::optional<double> mean, int sign, std::pair<double, double> centre,
                  std::optional<double> dx, std::optional<double> dy, const std::optional<Page>& rect,
                  std::optional<double>& extreme, double& extremeX, double& extremeY) {
    const std::optional<double> candidate = own ? own : mean;
    if (!candidate || (extreme && *candidate * sign <= *extreme * sign)) return;
    if (!own) {
      extreme = candidate;
      maxX = centre.first;
      maxY = centre.second;
      return;
    }
    const bool refined = dx && dy;
    const double x = centre.first + (refined ? *dx : 0.0);
    const double y = centre.second + (refined ? *dy : 0.0);
    if (refined && rect && !(x >= rect->left() && x <= rect->right() && y >= rect->bottom() && y <= rect->top()))
      return;
    extreme = candidate;
    extremeX = x;
    extremeY = y;
  }
};

void ExpectClose(double actual, long double expected, const char* what) {
  const double tolerance = 1e-11 * std::max(1.0, std::abs(static_cast<double>(expected)));
  EXPECT_NEAR(actual, static_cast<double>(expected), tolerance) << what;
}

std::string PlaceOf(const std::optional<double>& z, double x, double y) { return z ? Place(*z, x, y) : "nothing"; }

TEST(DtmTotalProcessor, AgreesWithAPlainComputationOnRandomModels) {
  const std::uint32_t seed = RandomSeed();
  SCOPED_TRACE("rerun with --gtest_random_seed=" + std::to_string(seed));
  std::mt19937_64 rng(seed);
  const auto pick = [&rng](int count) { return static_cast<int>(rng() % static_cast<std::uint64_t>(count)); };
  const std::vector<int> allKinds = {dVAL, iNUM, dSDV, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX, fDUR, tTIM, fBKS};
  int deviations = 0;
  int rejected = 0;
  for (int run = 0; run < LongForm(600, 3000); ++run) {
    std::vector<int> kinds;
    for (const int id : allKinds) {
      if (pick(4) > 0) kinds.push_back(id);
    }
    if (kinds.empty()) kinds.push_back(dVAL);
    const double cellSize = std::vector{0.5, 1.0, 3.0}[static_cast<std::size_t>(pick(3))];
    TestGrid grid = Grid(kinds, cellSize);
    Cells cells;
    std::vector<Visit> visits;
    for (int row = -3; row < 4; ++row) {
      for (int col = -3; col < 4; ++col) {
        visits.push_back({row, col, cellSize * cellSize * (pick(3) > 0 ? 1.0 : (1 + pick(1023)) / 1024.0)});
        for (const int id : kinds) {
          if (pick(3) == 0) continue;
          double value = -10.0 - pick(50);
          if (id == iNUM) value = std::vector{-1, 1, 1, 2, 40}[static_cast<std::size_t>(pick(5))];
          if (id == dSDV) value = pick(100) / 64.0;
          if (id == tTIM) value = 1000 + pick(100000);
          if (id == fXMN || id == fYMN || id == fXMX || id == fYMX)
            value = (pick(128) - 64) / 128.0 * cellSize;  // exact as floats
          ASSERT_TRUE(grid.Set(row, col, id, value));
          cells[{row, col}][id] = value;
        }
      }
    }
    std::optional<Page> rect;
    if (pick(2) == 0) rect = Page(-2.0 * cellSize, -1.75 * cellSize, 2.25 * cellSize, 3.0 * cellSize);
    DtmTotalProcessor total;
    if (rect) total.SetRect(*rect);
    ASSERT_TRUE(Walk(total, grid, visits));
    Expected expected;
    Expected anywhere;
    for (const Visit& visit : visits) {
      expected.Add(visit, cells[{visit.row, visit.col}], cellSize, rect);
      anywhere.Add(visit, cells[{visit.row, visit.col}], cellSize, std::nullopt);
    }
    SCOPED_TRACE("run " + std::to_string(run));
    ExpectClose(total.UsedArea(), expected.used, "used");
    ExpectClose(total.EmptyArea(), expected.empty, "empty");
    EXPECT_EQ(total.TotalNumber(), static_cast<int>(expected.hits / (cellSize * cellSize) + 0.5L));
    EXPECT_EQ(total.LatestTime(), expected.latest);
    EXPECT_EQ(Minimum(total), PlaceOf(expected.minimum, expected.minX, expected.minY));
    EXPECT_EQ(Maximum(total), PlaceOf(expected.maximum, expected.maxX, expected.maxY));
    rejected += expected.minimum != anywhere.minimum || expected.maximum != anywhere.maximum ? 1 : 0;
    ASSERT_EQ(Average(total).has_value(), expected.hits != 0);
    if (expected.hits != 0) ExpectClose(*Average(total), expected.heights / expected.hits, "average");
    ASSERT_EQ(Duration(total).has_value(), expected.durations != 0);
    if (Duration(total)) {
      EXPECT_FLOAT_EQ(*Duration(total), static_cast<float>(expected.durations / (cellSize * cellSize)));
    }
    ASSERT_EQ(DeviationSd(total).has_value(), expected.withDeviation > 0);
    if (DeviationSd(total)) {
      ExpectClose(*DeviationSd(total), sqrtl(expected.deviations / expected.withDeviation), "cells' deviation");
    }
    if (!Deviation(total)) continue;
    ++deviations;
    const long double n = expected.hits / (cellSize * cellSize);
    const long double mean = expected.heights / expected.hits;
    EXPECT_NEAR(*Deviation(total) * *Deviation(total),
                static_cast<double>((expected.squares - mean * mean * n) / (n - 1)), 1e-8);
  }
  EXPECT_GT(deviations, 20);
  EXPECT_GT(rejected, 0);
}

}  // namespace
}  // namespace vak
