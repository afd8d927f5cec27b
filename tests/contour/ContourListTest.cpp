#include <deque>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "vakdtm/contour/ContourList.h"
#include "vakdtm/contour/DtmContourInfo.h"

namespace vak {
namespace {

/// A contour that is told by the X of its only point.
Contour Named(double level, double name) {
  Contour contour(level);
  contour.Line().AddBack({name, 0});
  return contour;
}

/// Level and name of each contour.
std::vector<std::vector<double>> Content(const ContourList& list) {
  std::vector<std::vector<double>> content;
  for (int i = 0; i < list.Size(); ++i) content.push_back({list[i].Level(), list[i][0].x});
  return content;
}
using Expected = std::vector<std::vector<double>>;

TEST(Contour, HasALevelAndALine) {
  Contour contour(-2.5);
  EXPECT_EQ(contour.Level(), -2.5);
  EXPECT_EQ(contour.NumPoints(), 0);
  contour.Line().AddBack({1, 2});
  contour.Line().AddBack({3, 4});
  EXPECT_EQ(contour.NumPoints(), 2);
  EXPECT_EQ(contour[1], GTL::Point2D<double>(3, 4));
  const Contour copy = contour;
  EXPECT_TRUE(copy.Line().SharesPoints(contour.Line()));
}

TEST(Contour, ReverseTurnsItsPointsRoundAndLeavesCopiesAlone) {
  for (const int count : {0, 1, 2, 5, 6}) {
    SCOPED_TRACE(count);
    Contour contour(0);
    for (int i = 0; i < count; ++i) contour.Line().AddBack({1.0 * i, 0});
    const Contour copy = contour;
    contour.Reverse();
    ASSERT_EQ(contour.NumPoints(), count);
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(contour[i].x, count - 1 - i);
      EXPECT_EQ(copy[i].x, i);
    }
  }
}

TEST(ContourList, StaysAscendingByLevel) {
  ContourList list;
  EXPECT_TRUE(list.IsEmpty());
  list.Add(Named(1, 10));
  list.Add(Named(3, 30));
  list.Add(Named(2, 20));
  EXPECT_EQ(Content(list), (Expected{{1, 10}, {2, 20}, {3, 30}}));
  EXPECT_EQ(list.Size(), 3);
  EXPECT_FALSE(list.IsEmpty());
  list.Clear();
  EXPECT_TRUE(list.IsEmpty());
}

TEST(ContourList, NewerContoursGoAheadOfOlderOnesOfTheirLevel) {
  ContourList list;
  list.Add(Named(1, 10));
  list.Add(Named(1, 11));
  EXPECT_EQ(Content(list), (Expected{{1, 11}, {1, 10}}));
}

TEST(ContourList, ContoursThatAreAddedTogetherKeepTheirOrderWithinALevel) {
  ContourList list;
  list.Add(Named(2, 20));
  list.Add(Named(4, 40));
  list.Add(std::deque<Contour>{Named(4, 41), Named(2, 21), Named(3, 31), Named(2, 22), Named(9, 91)});
  EXPECT_EQ(Content(list), (Expected{{2, 21}, {2, 22}, {2, 20}, {3, 31}, {4, 41}, {4, 40}, {9, 91}}));
  list.Add(std::deque<Contour>());
  EXPECT_EQ(list.Size(), 7);
  list.Add(std::deque<Contour>{Named(2, 23), Named(2, 24)});
  list.Add(std::deque<Contour>{Named(10, 1), Named(9.5, 2), Named(10, 3)});
  EXPECT_EQ(Content(list), (Expected{{2, 23},
                                     {2, 24},
                                     {2, 21},
                                     {2, 22},
                                     {2, 20},
                                     {3, 31},
                                     {4, 41},
                                     {4, 40},
                                     {9, 91},
                                     {9.5, 2},
                                     {10, 1},
                                     {10, 3}}));
}

TEST(ContourList, FindsTheFirstOfALevelFromAnIndexOn) {
  ContourList list;
  list.Add(std::deque<Contour>{Named(1, 10), Named(2, 20), Named(2, 21), Named(5, 50)});
  EXPECT_EQ(list.Find(2, 0), 1);
  EXPECT_EQ(list.Find(2, 2), 2);
  EXPECT_EQ(list.Find(2, 3), -1);
  EXPECT_EQ(list.Find(3, 0), -1);
  EXPECT_EQ(list.Find(5, 3), 3);
  EXPECT_EQ(list.Find(5, 4), -1);
  EXPECT_EQ(list.Find(9, 0), -1);
  EXPECT_EQ(ContourList().Find(1, 0), -1);
  EXPECT_EQ(list.Find(2, -1), 1);
  EXPECT_EQ(list.Find(1, std::numeric_limits<int>::min()), 0);
  EXPECT_EQ(list.Find(3, -1), -1);
  EXPECT_EQ(ContourList().Find(1, -1), -1);
}

TEST(ContourList, CopiesStandAlone) {
  ContourList list;
  list.Add(Named(1, 10));
  ContourList copy = list;
  copy.Add(Named(2, 20));
  EXPECT_EQ(list.Size(), 1);
  list = copy;
  EXPECT_EQ(list.Size(), 2);
}

TEST(DtmContourInfo, CarriesATextAndAnObjectThatItDoesNotOwn) {
  int object = 7;
  const DtmContourInfo info(L"Vertiefung", &object);
  DtmContourInfo copy(L"", nullptr);
  copy = info;
  const NotificationInfo& base = copy;
  EXPECT_NE(dynamic_cast<const DtmContourInfo*>(&base), nullptr);
  EXPECT_EQ(copy.Text(), L"Vertiefung");
  EXPECT_EQ(copy.Object(), &object);
}

}  // namespace
}  // namespace vak
