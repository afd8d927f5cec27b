#include <algorithm>
#include <deque>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

#include "vakdtm/contour/OutlineList.h"

namespace vak {
namespace {

/// An outline that is told from others of its level by the x of its point.
Outline Named(double level, double name) {
  Outline outline(level);
  outline.Line().AddBack({name, 0, 0});
  return outline;
}

using Entries = std::vector<std::pair<double, double>>;

/// Level and name of each.
Entries EntriesOf(const OutlineList& list) {
  Entries entries;
  for (int i = 0; i < list.Size(); ++i) entries.emplace_back(list[i].Level(), list[i][0].x);
  return entries;
}

TEST(OutlineList, NewOneIsEmpty) {
  const OutlineList list;
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(list.Size(), 0);
  EXPECT_EQ(list.Find(0.0, 0), -1);
}

TEST(OutlineList, KeepsLevelsAscending) {
  OutlineList list;
  for (const double level : {1.0, 3.0, 2.0}) list.Add(Named(level, level));
  EXPECT_EQ(EntriesOf(list), (Entries{{1, 1}, {2, 2}, {3, 3}}));
  EXPECT_FALSE(list.IsEmpty());
}

TEST(OutlineList, PutsTheNewerOfOneLevelAheadOfTheOlder) {
  OutlineList list;
  list.Add(Named(5, 1));
  list.Add(Named(5, 2));
  EXPECT_EQ(EntriesOf(list), (Entries{{5, 2}, {5, 1}}));
}

// Near the front, near the back, in the middle, between equals: beside a plain insertion.
TEST(OutlineList, AddsWhereTheFirstLevelIsThatIsNotBelow) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    OutlineList list;
    Entries expected;
    for (int name = 0; name < 12; ++name) {
      const double level = std::uniform_int_distribution<int>(0, 6)(random);
      list.Add(Named(level, name));
      const auto at = std::find_if(expected.begin(), expected.end(), [&](auto& entry) { return entry.first >= level; });
      expected.insert(at, {level, name});
      ASSERT_EQ(EntriesOf(list), expected);
    }
  }
}

TEST(OutlineList, TakesASequenceAsItIsByTheLevelOfItsFirst) {
  OutlineList list;
  for (const double level : {1.0, 2.0, 3.0}) list.Add(Named(level, 0));
  list.Add(std::deque<Outline>{Named(2, 1), Named(9, 2), Named(0, 3)});
  EXPECT_EQ(EntriesOf(list), (Entries{{1, 0}, {2, 1}, {9, 2}, {0, 3}, {2, 0}, {3, 0}}));
  list.Add(std::deque<Outline>());
  EXPECT_EQ(list.Size(), 6);
  OutlineList fresh;
  fresh.Add(std::deque<Outline>{Named(4, 1), Named(4, 2)});
  EXPECT_EQ(EntriesOf(fresh), (Entries{{4, 1}, {4, 2}}));
}

TEST(OutlineList, FindStepsThroughTheOutlinesOfALevel) {
  OutlineList list;
  for (const double level : {1.0, 2.0, 2.0, 4.0}) list.Add(Named(level, 0));
  struct Case {
    const char* name;
    double level;
    int first;
    int index;
  };
  const Case cases[] = {
      {"first of its level", 2, 0, 1},
      {"next of its level", 2, 2, 2},
      {"none left of its level", 2, 3, -1},
      {"last", 4, 0, 3},
      {"last, from itself", 4, 3, 3},
      {"last, one past it", 4, 4, -1},
      {"between levels", 3, 0, -1},
      {"below all", 0, 0, -1},
      {"above all", 5, 0, -1},
      {"level is in front of it", 1, 1, -1},
      {"far past the end", 1, 99, -1},
      {"before the beginning", 1, -5, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(list.Find(c.level, c.first), c.index);
  }
}

TEST(OutlineList, RemovesOneOrAll) {
  OutlineList list;
  for (const double level : {1.0, 2.0, 3.0}) list.Add(Named(level, 0));
  list.Remove(3);
  list.Remove(-1);
  EXPECT_EQ(list.Size(), 3);
  list.Remove(1);
  EXPECT_EQ(EntriesOf(list), (Entries{{1, 0}, {3, 0}}));
  list.Clear();
  EXPECT_TRUE(list.IsEmpty());
}

TEST(OutlineList, CopyStandsAlone) {
  OutlineList list;
  list.Add(Named(1, 7));
  OutlineList copy = list;
  copy.Add(Named(2, 8));
  EXPECT_EQ(list.Size(), 1);
  list = copy;
  EXPECT_EQ(list.Size(), 2);
  const OutlineList moved = std::move(copy);
  EXPECT_EQ(EntriesOf(moved), (Entries{{1, 7}, {2, 8}}));
}

}  // namespace
}  // namespace vak
