// Interpolation, extrapolation and slope.
#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <vector>

#include "vakdtm/store/DtmAccess.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

using Value = std::optional<double>;

constexpr double kCellSize = 0.5;

class Surface : public TestGrid {
 public:
  Surface() : TestGrid({.cellSize = kCellSize, .areaSize = 3, .blockIds = {dVAL, iNUM}}) {}
  // A point given in cells from the centre of cell (0, 0).
  Value Interpolate(double tx, double ty, bool partialOk) {
    double value = 0;
    if (!Access().GetInterpolatedValue((tx + 0.5) * kCellSize, (ty + 0.5) * kCellSize, dVAL, value, partialOk)) {
      return std::nullopt;
    }
    return value;
  }
  Value Extrapolate(double tx, double ty) {
    double value = 0;
    if (!Access().GetInterpolatedExtrapolatedValue((tx + 0.5) * kCellSize, (ty + 0.5) * kCellSize, dVAL, value)) {
      return std::nullopt;
    }
    return value;
  }
};

// The rules for the four corners, said with optional values.
Value Expected(Value a, Value b, Value c, Value d, double tx, double ty, bool partialOk) {
  const bool rightNeeded = tx != 0;
  const bool upperNeeded = ty != 0;
  const bool complete = a && (!rightNeeded || b) && (!upperNeeded || c) && (!rightNeeded || !upperNeeded || d);
  if (!partialOk && !complete) return std::nullopt;
  const auto along = [](Value from, Value to, double t, bool needed) -> Value {
    if (!needed || !to) return from;
    if (!from) return to;
    return (*to - *from) * t + *from;
  };
  return along(along(a, b, tx, rightNeeded), upperNeeded ? along(c, d, tx, rightNeeded) : Value(), ty, upperNeeded);
}

TEST(DtmAccessInterpolation, EveryCombinationOfMissingCornersInBothForms) {
  const double corners[] = {-10.3, -11.7, -9.2, -14.9};
  for (unsigned mask = 0; mask < 16; ++mask) {
    Surface grid;
    grid.File().GetArea(2, 2, true);
    const auto corner = [&](unsigned i) { return mask & (1U << i) ? Value(corners[i]) : Value(); };
    for (unsigned i = 0; i < 4; ++i) {
      // Around the corner of four areas, so that each lies in another one.
      if (!corner(i)) continue;
      ASSERT_TRUE(grid.Set(2 + static_cast<int>(i / 2), 2 + static_cast<int>(i % 2), dVAL, corners[i]));
    }
    for (const double tx : {0.0, 0.25, 0.875}) {
      for (const double ty : {0.0, 0.5, 0.625}) {
        for (const bool partialOk : {false, true}) {
          const Value got = grid.Interpolate(2 + tx, 2 + ty, partialOk);
          const Value expected = Expected(corner(0), corner(1), corner(2), corner(3), tx, ty, partialOk);
          EXPECT_EQ(got, expected) << mask << " " << tx << " " << ty << " " << partialOk;
        }
      }
    }
  }
}

TEST(DtmAccessInterpolation, PlaneIsReproducedAtNegativeCoordinatesToo) {
  Surface grid;
  for (int row = -5; row < 5; ++row) {
    for (int col = -5; col < 5; ++col) grid.Set(row, col, dVAL, 3.0 + 2 * row - col);
  }
  for (const double ty : {-4.0, -2.75, -0.5, 0.25, 3.5}) {
    for (const double tx : {-4.5, -1.25, 0.0, 2.5}) {
      const Value got = grid.Interpolate(tx, ty, false);
      ASSERT_TRUE(got.has_value());
      EXPECT_NEAR(*got, 3.0 + 2 * ty - tx, 1e-12);
    }
  }
}

TEST(DtmAccessInterpolation, AtAnExactCellCentreReadsOneCell) {
  Surface grid;
  grid.Set(2, 2, dVAL, -4);  // its other corners lie in three further areas
  for (const auto& [row, col] : {std::pair(2, 3), {3, 2}, {3, 3}}) grid.Set(row, col, iNUM, 1);
  grid.Reopen();
  EXPECT_EQ(grid.Interpolate(2, 2, false), Value(-4));
  for (const auto& [row, col] : {std::pair(2, 3), {3, 2}, {3, 3}}) {
    EXPECT_EQ(grid.Area(row, col)->BlockSize(), 0) << "no cell of it was looked at";
  }
  EXPECT_NE(grid.Area(2, 2)->BlockSize(), 0);
}

TEST(DtmAccessInterpolation, OnALineOfCentresOnlyThatLinesCellsAreRead) {
  Surface grid;
  grid.Set(2, 2, dVAL, -4);
  grid.Set(2, 3, dVAL, -8);
  EXPECT_EQ(grid.Interpolate(2.5, 2, false), Value(-6));
  EXPECT_FALSE(grid.Interpolate(2.5, 2.5, false).has_value());
  grid.Set(3, 2, dVAL, -5);
  EXPECT_EQ(grid.Interpolate(2, 2.5, false), Value(-4.5));
}

TEST(DtmAccessInterpolation, OutsideTheAllowedRangeIsFalse) {
  Surface grid;
  double value = 0;
  for (const double far : {1e300, -1e300, std::nan(""), 3e9}) {
    EXPECT_FALSE(grid.Access().GetInterpolatedValue(far, 0, dVAL, value, true));
    EXPECT_FALSE(grid.Access().GetInterpolatedValue(0, far, dVAL, value, true));
    EXPECT_FALSE(grid.Access().GetInterpolatedExtrapolatedValue(far, far, dVAL, value));
  }
}

// ---- Extrapolation

struct Step {
  int row, col;
};
const std::vector<std::vector<Step>> kRings = {{{0, 0}, {1, 0}, {1, 1}, {0, 1}},
                                               {{-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}},
                                               {{2, -1}, {2, 0}, {2, 1}, {2, 2}, {1, 2}, {0, 2}, {-1, 2}}};

TEST(DtmAccessExtrapolation, AllCornersInterpolate) {
  Surface grid;
  grid.Draw("3 5\n1 3\n");
  EXPECT_EQ(grid.Extrapolate(0.5, 0.5), Value(3));
  EXPECT_EQ(grid.Extrapolate(0.5, 0.5), grid.Interpolate(0.5, 0.5, false));
}

TEST(DtmAccessExtrapolation, EveryCellOfEveryRingAloneGivesItsValue) {
  for (const auto& ring : kRings) {
    for (const Step& step : ring) {
      Surface grid;
      ASSERT_TRUE(grid.Set(step.row, step.col, dVAL, -7));
      EXPECT_EQ(grid.Extrapolate(0.5, 0.25), Value(-7)) << step.row << " " << step.col;
    }
  }
}

TEST(DtmAccessExtrapolation, CellsBeyondTheRingsDontCount) {
  Surface grid;
  for (int row = -4; row <= 5; ++row) {
    for (int col = -4; col <= 5; ++col) {
      if (row < -1 || row > 2 || col < -1 || col > 2) grid.Set(row, col, dVAL, 1);
    }
  }
  EXPECT_FALSE(grid.Extrapolate(0.5, 0.25).has_value());
}

TEST(DtmAccessExtrapolation, FirstRingWithAValueAloneIsAveraged) {
  Surface grid;
  double height = 1;
  for (auto ring = kRings.rbegin(); ring != kRings.rend(); ++ring) {
    double sum = 0;
    for (const Step& step : *ring) {
      height *= 1.37;
      if (ring == kRings.rend() - 1 && step.row == 1 && step.col == 1) continue;  // else it would interpolate
      ASSERT_TRUE(grid.Set(step.row, step.col, dVAL, height));
    }
    int count = 0;
    for (const Step& step : *ring) {
      const double value = grid.Get(step.row, step.col);
      if (IsEmptyValue(value)) continue;
      sum += value;
      ++count;
    }
    EXPECT_EQ(grid.Extrapolate(0.5, 0.25), Value(sum / count));
  }
}

TEST(DtmAccessExtrapolation, NoneInTheRingsIsFalse) {
  Surface grid;
  EXPECT_FALSE(grid.Extrapolate(0.5, 0.5).has_value());
  grid.File().GetArea(0, 0, true);
  EXPECT_FALSE(grid.Extrapolate(0.5, 0.5).has_value());
}

TEST(DtmAccessExtrapolation, CellUnderACentreWithoutNeighboursIsItsOwnValue) {
  Surface grid;
  grid.Set(0, 0, dVAL, -3);
  grid.Set(0, 1, dVAL, -9);
  EXPECT_EQ(grid.Extrapolate(0, 0), Value(-3)) << "interpolated: it needs just that cell";
}

// ---- Slope

// The four pairs in their order, with the distances as they stand.
double ExpectedSlope(double v, const Value (&n)[3][3], double c) {
  const auto pair = [&](const Value& a, const Value& b, double both, double one) {
    if (a && b) return std::abs(*a - *b) / both;
    const double p = a ? *a : b ? *b : EmptyDouble();
    return std::abs(p - v) / one;
  };
  const double slopes[] = {pair(n[2][1], n[0][1], 2 * c, c), pair(n[2][2], n[0][0], c * 2.828427, c * 1.414213),
                           pair(n[1][2], n[1][0], c, c), pair(n[2][0], n[0][2], c * 2.828427, c * 1.414213)};
  double greatest = slopes[0];
  for (int i = 1; i < 4; ++i) {
    if (slopes[i] > greatest) greatest = slopes[i];
  }
  return greatest;
}

TEST(DtmAccessGradient, EveryCombinationOfNeighboursGivesTheGreatestOfFourSlopes) {
  std::mt19937_64 rng(7);
  int withoutNumber = 0;
  for (unsigned mask = 0; mask < 256; ++mask) {
    Surface grid;
    const double v = std::uniform_real_distribution<double>(-20, -10)(rng);
    ASSERT_TRUE(grid.Set(2, 2, dVAL, v));
    Value neighbours[3][3];
    unsigned bit = 0;
    for (int row = 0; row < 3; ++row) {
      for (int col = 0; col < 3; ++col) {
        if (row == 1 && col == 1) continue;
        if (mask & (1U << bit++)) {
          neighbours[row][col] = std::uniform_real_distribution<double>(-20, -10)(rng);
          ASSERT_TRUE(grid.Set(1 + row, 1 + col, dVAL, *neighbours[row][col]));
        }
      }
    }
    double got = 0;
    ASSERT_TRUE(grid.Access().GetGradientValue(2, 2, dVAL, got)) << mask;
    const double expected = ExpectedSlope(v, neighbours, kCellSize);
    if (std::isnan(expected)) {
      ++withoutNumber;
      EXPECT_TRUE(std::isnan(got)) << mask;
    } else {
      EXPECT_EQ(got, expected) << mask;
    }
  }
  EXPECT_EQ(withoutNumber, 64) << "a quarter has neither neighbour of the first pair";
}

TEST(DtmAccessGradient, NoNeighbourAboveOrBelowGivesANotANumberAndTrue) {
  Surface grid;
  grid.Draw("2 3 4\n");
  double value = 0;
  EXPECT_TRUE(grid.Access().GetGradientValue(0, 1, dVAL, value));
  EXPECT_TRUE(std::isnan(value)) << "nothing ever replaces it";
}

TEST(DtmAccessGradient, SlopeAlongTheRowCountsDouble) {
  Surface grid;
  grid.Draw(
      ". 3 .\n"
      "3 2 1\n"
      ". 1 .\n");
  double value = 0;
  ASSERT_TRUE(grid.Access().GetGradientValue(1, 1, dVAL, value));
  EXPECT_EQ(value, 2 / kCellSize);
}

TEST(DtmAccessGradient, CellWithoutAValueIsFalse) {
  Surface grid;
  grid.Draw(
      ". 3 .\n"
      "3 . 1\n");
  double value = 4;
  EXPECT_FALSE(grid.Access().GetGradientValue(0, 1, dVAL, value));
  EXPECT_FALSE(grid.Access().GetGradientValue(50, 50, dVAL, value));
}

}  // namespace
}  // namespace vak::test
