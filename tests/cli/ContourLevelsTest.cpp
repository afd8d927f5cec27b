#include <cmath>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "ContourLevels.h"

namespace vak {
namespace {

using testing::ElementsAre;

TEST(ContourLevels, AreThoseOfTheIntervalInTheRangeWithItsEnds) {
  const struct {
    const char* name;
    double interval, base, lowest, highest;
    std::vector<double> levels;
  } cases[] = {
      {"both ends are levels", 0.5, 0, -2, -1, {-2, -1.5, -1}},
      {"neither end is one", 0.5, 0, -1.9, -0.6, {-1.5, -1}},
      {"through zero, which has no sign", 1, 0, -1.5, 1.5, {-1, 0, 1}},
      {"from another base", 0.5, 0.2, -1, 0, {-0.8, -0.3}},
      {"the base lies above", 10, 1005, -20, 0, {-15, -5}},
      {"none in between", 10, 5, 6, 14, {}},
      {"one height alone", 1, 0, 3, 3, {3}},
      {"tenths", 0.1, 0, 0.25, 0.75, {0.3, 0.4, 0.5, 0.6, 0.7}},
      {"tenths below zero", 0.1, 0, -12.75, -12.35, {-12.7, -12.6, -12.5, -12.4}},
      {"twentieths", 0.05, 0, -10.36, -10.09, {-10.35, -10.3, -10.25, -10.2, -10.15, -10.1}},
      {"thousandths", 1e-3, 0, -7.6005, -7.5975, {-7.6, -7.599, -7.598}},
      {"a base with more decimals", 0.1, -0.35, -0.5, 0.2, {-0.45, -0.35, -0.25, -0.15, -0.05, 0.05, 0.15}},
      {"a base with fewer decimals", 0.025, 1.1, 1.02, 1.18, {1.025, 1.05, 1.075, 1.1, 1.125, 1.15, 1.175}},
      {"a base far away", 0.1, 1e6, -0.25, 0.05, {-0.2, -0.1, 0}},
      {"an interval with an exponent", 3e22, 0, 2e23, 3e23, {2.1e23, 2.4e23, 2.7e23, 3e23}},
      {"the smallest numbers", 5e-324, 0, 0, 1e-323, {0, 5e-324, 1e-323}},
      {"the greatest numbers", 1e308, 0, -1.5e308, std::numeric_limits<double>::max(), {-1e308, 0, 1e308}},
      {"digits too far apart for a sum in decimals", 1, 1e-30, 0.5, 3.5, {1, 2, 3}},
      {"sixteen digits", 0.3333333333333333, 0, 0.9, 1.7, {0.9999999999999999, 1.3333333333333332, 1.6666666666666665}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<double> levels = {99};
    std::string error;
    EXPECT_TRUE(SpreadLevels(c.interval, c.base, c.lowest, c.highest, levels, error)) << error;
    EXPECT_EQ(levels, c.levels);
    for (const double level : levels) EXPECT_FALSE(level == 0 && std::signbit(level));
  }
}

TEST(ContourLevels, OfAnIntervalAreTheSameDoublesAsWhenTheyAreNamed) {
  const struct {
    double interval, base;
    int decimals;
  } cases[] = {{0.1, 0, 1}, {0.05, 0, 2}, {1e-3, 0, 3}, {0.1, -0.35, 2}, {0.7, 0.01, 2}, {2.5e-3, 0, 4}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.interval);
    std::vector<double> levels;
    std::string error;
    ASSERT_TRUE(SpreadLevels(c.interval, c.base, -20, 20, levels, error)) << error;
    EXPECT_GT(levels.size(), 50u);
    std::string names;
    for (const double level : levels) {
      char name[40];
      std::snprintf(name, sizeof name, ",%.*f", c.decimals, level);
      names += name;
    }
    std::vector<double> named;
    ASSERT_TRUE(ParseLevels(names.substr(1), named, error)) << error;
    EXPECT_TRUE(levels == named);
  }
}

TEST(ContourLevels, MoreThanAnybodyMeansAreRefused) {
  std::vector<double> levels;
  std::string error;
  EXPECT_TRUE(SpreadLevels(1, 0, 1, 100000, levels, error));
  EXPECT_EQ(levels.size(), 100000u);
  for (const double interval : {1.0, 1e-3, 1e-300}) {
    EXPECT_FALSE(SpreadLevels(interval, 0, 0, 100000, levels, error)) << interval;
    EXPECT_EQ(error, "that makes more than 100000 levels");
  }
}

TEST(ContourLevels, AnIntervalThatIsLostInTheHeightsIsRefused) {
  std::vector<double> levels;
  std::string error;
  EXPECT_FALSE(SpreadLevels(1e-16, 0, 1, 1 + 1e-15, levels, error));
  EXPECT_EQ(error, "the interval is too small beside the heights");
  EXPECT_FALSE(SpreadLevels(1e-3, 0, 1e15, 1e15 + 1, levels, error)) << "the factor has no exact double";
  EXPECT_EQ(error, "the interval is too small beside the heights");
}

TEST(ContourLevels, AListIsSortedAndHasEachLevelOnce) {
  std::vector<double> levels;
  std::string error;
  ASSERT_TRUE(ParseLevels("-1,-12.5,3e1,-1,-0,0", levels, error)) << error;
  EXPECT_THAT(levels, ElementsAre(-12.5, -1, 0, 30));
  EXPECT_FALSE(std::signbit(levels[2]));
}

TEST(ContourLevels, AListWithAnythingElseIsRefusedAsAWhole) {
  const std::vector<double> before = {7};
  const struct {
    const char* text;
    const char* error;
  } cases[] = {{"", "'' is no number"},       {"1,", "'' is no number"},        {",1", "'' is no number"},
               {"1,x", "'x' is no number"},   {"1 2", "'1 2' is no number"},    {"nan", "'nan' is no number"},
               {"inf", "'inf' is no number"}, {"1e999", "'1e999' is no number"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::vector<double> levels = before;
    std::string error;
    EXPECT_FALSE(ParseLevels(c.text, levels, error));
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(levels, before);
  }
}

}  // namespace
}  // namespace vak
