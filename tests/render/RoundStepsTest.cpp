#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "vakdtm/render/RoundSteps.h"

#include "support/RandomSeed.h"

namespace vak {
namespace {

TEST(RoundSteps, AreOneTwoAndFiveTimesPowersOfTen) {
  const struct {
    double number, from, upTo;
    int decimals;  // of what is not below
  } cases[] = {
      {1, 1, 1, 0},
      {1.0001, 2, 1, 0},
      {2, 2, 2, 0},
      {3, 5, 2, 0},
      {5, 5, 5, 0},
      {5.1, 10, 5, 0},
      {10, 10, 10, 0},
      {99, 100, 50, 0},
      {0.1, 0.1, 0.1, 1},
      {0.11, 0.2, 0.1, 1},
      {0.5, 0.5, 0.5, 1},
      {0.05, 0.05, 0.05, 2},
      {0.3, 0.5, 0.2, 1},
      {0.0021, 0.005, 0.002, 3},
      {123456, 200000, 100000, 0},
      {1e22, 1e22, 1e22, 0},
      {1e-7, 1e-7, 1e-7, 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.number);
    EXPECT_EQ(RoundStepFrom(c.number), c.from);
    EXPECT_EQ(RoundStepUpTo(c.number), c.upTo);
    EXPECT_EQ(DecimalsOf(c.from), c.decimals);
  }
}

TEST(RoundSteps, FollowOneAnother) {
  double step = 0.001;
  for (const double next : {0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0, 20.0}) {
    step = NextRoundStep(step);
    EXPECT_EQ(step, next);
  }
}

TEST(RoundSteps, EncloseAnyNumber) {
  std::mt19937 rng(RandomSeed());
  std::uniform_real_distribution<double> exponent(-200, 200);
  for (int i = 0; i < 2000; ++i) {
    const double number = std::pow(10.0, exponent(rng));
    SCOPED_TRACE(number);
    const double upper = RoundStepFrom(number);
    const double lower = RoundStepUpTo(number);
    EXPECT_LE(lower, number);
    EXPECT_GE(upper, number);
    EXPECT_TRUE(upper == lower || upper == NextRoundStep(lower));
  }
}

TEST(RoundSteps, WhatIsBeyondAllMeasureIsBroughtIn) {
  EXPECT_EQ(RoundStepUpTo(0), 1e-300);
  EXPECT_EQ(RoundStepUpTo(std::numeric_limits<double>::infinity()), 1e300);
}

}  // namespace
}  // namespace vak
