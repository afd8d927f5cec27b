#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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
      {"from another base", 0.5, 0.2, -1, 0, {0.2 - 2 * 0.5, 0.2 - 0.5}},
      {"the base lies above", 10, 1005, -20, 0, {-15, -5}},
      {"none in between", 10, 5, 6, 14, {}},
      {"one height alone", 1, 0, 3, 3, {3}},
      {"no whole interval is a double", 0.1, 0, 0.25, 0.45, {3 * 0.1, 4 * 0.1}},
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
