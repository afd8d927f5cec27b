#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <vector>

#include "vakdtm/contour/LineJoiner.h"

#include "contour/LinesOf.h"

namespace vak {
namespace {

using test::Lines;
using test::LinesOf;
using Joiner = LineJoiner<GTL::Point2D<double>>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// A joiner that is given pieces between places on a line, which stand for points.
class LineJoinerOfPlaces : public testing::Test {
 protected:
  bool Add(double start, double end, bool touches = true) { return joiner_.Add({start, 0}, {end, 0}, touches); }
  /// The X of each point of each line.
  std::vector<std::vector<double>> Result() const {
    std::vector<std::vector<double>> result;
    for (const auto& line : LinesOf(joiner_.GetList())) {
      result.emplace_back();
      for (const auto& point : line) result.back().push_back(point.x);
    }
    return result;
  }
  using Places = std::vector<std::vector<double>>;

  std::atomic<bool> running_{true};
  Joiner joiner_{running_};
};

TEST_F(LineJoinerOfPlaces, PieceGoesOntoTheEndThatItFits) {
  struct Case {
    const char* name;
    double start, end;
    std::vector<double> result;
  };
  const std::vector<Case> cases = {
      {"first equals start", 1, 9, {9, 1, 2}},       {"first equals end", 9, 1, {9, 1, 2}},
      {"last equals start", 2, 9, {1, 2, 9}},        {"last equals end", 9, 2, {1, 2, 9}},
      {"both, the first in front", 1, 2, {2, 1, 2}}, {"both the other way round", 2, 1, {2, 1, 2}}};
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    joiner_ = Joiner(running_);
    EXPECT_TRUE(Add(1, 2));
    EXPECT_TRUE(Add(test.start, test.end));
    EXPECT_TRUE(joiner_.Join());
    EXPECT_EQ(Result(), Places{test.result});
  }
}

TEST_F(LineJoinerOfPlaces, PieceWithoutLengthIsDropped) {
  EXPECT_FALSE(Add(1, 1));
  EXPECT_FALSE(joiner_.Join());
  EXPECT_EQ(Result(), Places());
}

TEST_F(LineJoinerOfPlaces, PieceGoesOntoTheFirstLineThatItFitsAndNoOther) {
  Add(1, 2);
  Add(3, 4);
  Add(2, 3);  // onto the first; the second then shares its new end
  Add(3, 9);  // onto the first again
  joiner_.Join();
  EXPECT_EQ(Result(), (Places{{1, 2, 3, 9}, {3, 4}}));
}

TEST_F(LineJoinerOfPlaces, OpenLinesAreMergedByTheFirstOfFourTests) {
  struct Case {
    const char* name;
    std::vector<std::vector<double>> pieces;
    Places result;
  };
  // The line between keeps its place, so that it shows in whose place a merged line is.
  const std::vector<Case> cases = {
      {"last of first, first of second", {{1, 2}, {20, 21}, {3, 4}, {2, 3}}, {{1, 2, 3, 4}, {20, 21}}},
      {"last of both", {{1, 2}, {20, 21}, {4, 3}, {2, 3}}, {{1, 2, 3, 4}, {20, 21}}},
      {"first of both", {{2, 1}, {20, 21}, {3, 4}, {2, 3}}, {{4, 3, 2, 1}, {20, 21}}},
      {"first of first, last of second", {{2, 1}, {20, 21}, {4, 3}, {2, 3}}, {{20, 21}, {4, 3, 2, 1}}}};
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    joiner_ = Joiner(running_);
    for (const auto& piece : test.pieces) Add(piece[0], piece[1]);
    joiner_.Join();
    EXPECT_EQ(Result(), test.result);
  }
}

TEST_F(LineJoinerOfPlaces, BorderLinesAreMergedIntoTheFirstWhicheverEndsMeet) {
  struct Case {
    const char* name;
    std::vector<double> first, second, result;
  };
  const std::vector<Case> cases = {{"last of first, first of second", {1, 2}, {2, 3}, {1, 2, 3}},
                                   {"last of both", {1, 2}, {3, 2}, {1, 2, 3}},
                                   {"first of both", {2, 1}, {2, 3}, {3, 2, 1}},
                                   {"first of first, last of second", {2, 1}, {3, 2}, {3, 2, 1}}};
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    joiner_ = Joiner(running_);
    Add(test.first[0], test.first[1]);
    Add(20, 21);
    joiner_.Join();
    Add(test.second[0], test.second[1]);
    joiner_.Join();
    EXPECT_EQ(Result(), (Places{test.result, {20, 21}}));
  }
}

TEST_F(LineJoinerOfPlaces, OneAreaCanLinkManyLinesOfOthers) {
  Add(10, 11);
  Add(20, 21);
  Add(30, 31);
  joiner_.Join();
  Add(31, 20);
  Add(21, 10);
  joiner_.Join();
  EXPECT_EQ(Result(), (Places{{30, 31, 20, 21, 10, 11}}));
}

TEST_F(LineJoinerOfPlaces, LineThatTouchesNoBorderIsNeverJoinedAgain) {
  Add(1, 2, false);
  joiner_.Join();
  Add(2, 3, true);
  joiner_.Join();
  EXPECT_EQ(Result(), (Places{{2, 3}}));
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{2, 3}, {1, 2}}));
}

TEST_F(LineJoinerOfPlaces, LineTouchesTheBorderWhenAnyOfItsPiecesDoes) {
  Add(1, 2, false);
  Add(2, 3, true);
  Add(3, 4, false);
  Add(11, 12, false);
  Add(13, 14, true);
  Add(12, 13, false);
  Add(21, 22, false);
  joiner_.Join();
  EXPECT_EQ(Result(), (Places{{1, 2, 3, 4}, {11, 12, 13, 14}}));
}

TEST_F(LineJoinerOfPlaces, FinishPutsInteriorLinesBehindTheOthers) {
  Add(1, 2, false);
  Add(5, 6, true);
  joiner_.Join();
  Add(3, 4, false);
  Add(7, 8, true);
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{5, 6}, {7, 8}, {1, 2}, {3, 4}}));
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{5, 6}, {7, 8}, {1, 2}, {3, 4}}));
}

TEST_F(LineJoinerOfPlaces, LinesThatWereFinishedAreJoinedToNewOnesWhenWorkGoesOn) {
  Add(1, 2, false);
  Add(5, 6, true);
  joiner_.Finish();
  Add(2, 3, true);
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{5, 6}, {1, 2, 3}}));
}

TEST_F(LineJoinerOfPlaces, RingStaysALineThatEndsWhereItBegins) {
  Add(1, 2);
  Add(2, 3);
  Add(3, 1);
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{3, 1, 2, 3}}));
}

TEST_F(LineJoinerOfPlaces, ListThatWasAskedForEarlyIsCompleteAfterFinish) {
  const auto& list = joiner_.GetList();
  Add(1, 2, false);
  joiner_.Finish();
  EXPECT_EQ(list.size(), 1U);
}

TEST_F(LineJoinerOfPlaces, StoppedOneAddsPiecesApartAndDropsThem) {
  Add(1, 2);
  joiner_.Join();
  running_ = false;
  EXPECT_TRUE(Add(2, 3));
  EXPECT_TRUE(joiner_.Join());
  EXPECT_EQ(Result(), (Places{{1, 2}}));
  running_ = true;
  EXPECT_FALSE(joiner_.Join());  // nothing is open
}

TEST_F(LineJoinerOfPlaces, StoppedOneFinishesWithTheBorderListAlone) {
  Add(1, 2, false);
  Add(5, 6, true);
  joiner_.Join();
  running_ = false;
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{5, 6}}));
  running_ = true;
  joiner_.Finish();  // the interior list was cleared all the same
  EXPECT_EQ(Result(), (Places{{5, 6}}));
}

TEST_F(LineJoinerOfPlaces, PiecesThatWereAddedWhileItWasStoppedAreJoinedWhenItGoesOn) {
  running_ = false;
  Add(1, 2);
  Add(2, 3);
  Add(3, 4);
  running_ = true;
  joiner_.Join();
  EXPECT_EQ(Result(), (Places{{1, 2, 3, 4}}));
}

TEST_F(LineJoinerOfPlaces, ClearBorderLeavesTheOtherLists) {
  Add(1, 2, false);
  Add(5, 6, true);
  joiner_.Join();
  Add(6, 7, true);
  joiner_.ClearBorder();
  EXPECT_EQ(Result(), Places());
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{6, 7}, {1, 2}}));
}

TEST_F(LineJoinerOfPlaces, CopyStandsAlone) {
  Add(1, 2, true);
  joiner_.Join();
  Add(2, 3, true);
  Joiner copy = joiner_;
  copy.Add({3, 0}, {4, 0}, true);
  copy.Finish();
  joiner_.Finish();
  EXPECT_EQ(Result(), (Places{{1, 2, 3}}));
  EXPECT_EQ(LinesOf(copy.GetList()).at(0).size(), 4U);
}

TEST_F(LineJoinerOfPlaces, ZeroJoinsMinusZeroAndTheFirstOfThemStays) {
  Add(1, 0.0);
  Add(-0.0, 2);
  joiner_.Join();
  ASSERT_EQ(Result(), (Places{{1, 0, 2}}));
  EXPECT_FALSE(std::signbit(joiner_.GetList()[0][1].x));
}

TEST_F(LineJoinerOfPlaces, NotANumberJoinsNothingNotEvenItself) {
  EXPECT_TRUE(Add(kNaN, kNaN));
  EXPECT_TRUE(Add(1, kNaN));
  EXPECT_TRUE(Add(kNaN, 1));
  joiner_.Finish();
  ASSERT_EQ(joiner_.GetList().size(), 2U);
  EXPECT_EQ(joiner_.GetList()[0].NumPoints(), 2);
  EXPECT_EQ(joiner_.GetList()[1].NumPoints(), 3);
}

TEST_F(LineJoinerOfPlaces, FinishedLinesAreJoinedToOneAnotherWhenWorkGoesOn) {
  Add(1, 2, false);
  joiner_.Join();
  Add(2, 3, true);
  joiner_.Finish();
  ASSERT_EQ(Result(), (Places{{2, 3}, {1, 2}}));
  Add(10, 11);
  joiner_.Join();
  EXPECT_EQ(Result(), (Places{{1, 2, 3}, {10, 11}}));
}

/// A point that counts how many of its kind there are and how often they are compared, and lowers a flag at one of
/// these comparisons.
struct CountedPoint : GTL::Point2D<double> {
  CountedPoint() { ++living; }
  CountedPoint(double place, double line) : Point2D(place, line) { ++living; }
  CountedPoint(const CountedPoint& other) : Point2D(other) { ++living; }
  CountedPoint& operator=(const CountedPoint&) = default;
  ~CountedPoint() { --living; }

  friend bool operator==(const CountedPoint& a, const CountedPoint& b) {
    if (++comparisons == stopAt) running = false;
    return static_cast<const Point2D&>(a) == static_cast<const Point2D&>(b);
  }

  static inline std::atomic<bool> running{true};
  static inline std::int64_t living = 0;
  static inline std::int64_t comparisons = 0;
  static inline std::int64_t stopAt = 0;  // 0: never
};

class LineJoinerOfCountedPoints : public testing::Test {
 protected:
  using CountedJoiner = LineJoiner<CountedPoint>;

  LineJoinerOfCountedPoints() {
    CountedPoint::running = true;
    StopAt(0);
  }
  ~LineJoinerOfCountedPoints() override { EXPECT_EQ(CountedPoint::living, 0); }

  /// Lowers the flag at one of the comparisons that come.
  static void StopAt(std::int64_t comparison) {
    CountedPoint::comparisons = 0;
    CountedPoint::stopAt = comparison;
  }
  static bool Add(CountedJoiner& joiner, double start, double end, bool touches = true) {
    return joiner.Add({start, 0}, {end, 0}, touches);
  }
  static std::size_t NumPoints(const CountedJoiner& joiner) {
    std::size_t points = 0;
    for (const auto& line : joiner.GetList()) points += static_cast<std::size_t>(line.NumPoints());
    return points;
  }

  static constexpr int kGaps = 20;
  /// Lines with gaps between them, and pieces that fill these: one line.
  static void AddLines(CountedJoiner& joiner) {
    for (int i = 0; i <= kGaps; ++i) Add(joiner, 2 * i, 2 * i + 1);
  }
  static void AddGaps(CountedJoiner& joiner) {
    for (int i = 0; i < kGaps; ++i) Add(joiner, 2 * i + 1, 2 * i + 2);
  }
  /// Lines far apart, and a piece that goes on from each.
  static void AddPairs(CountedJoiner& joiner) {
    for (int i = 0; i < kGaps; ++i) Add(joiner, 10 * i, 10 * i + 1);
  }
  static void AddPartners(CountedJoiner& joiner) {
    for (int i = 0; i < kGaps; ++i) Add(joiner, 10 * i + 1, 10 * i + 2);
  }
};

// At whatever comparison the flag falls, a join of the border list ends with what it is at, and the next one that finds
// the flag up does the rest.
TEST_F(LineJoinerOfCountedPoints, JoinOfTheBorderListStopsWhereTheFlagFallsAndIsMadeUpForLater) {
  for (const bool oneLine : {true, false}) {
    SCOPED_TRACE(oneLine);
    const std::size_t joined = oneLine ? 1 : kGaps;
    const std::size_t apart = 2 * kGaps + (oneLine ? 1 : 0);
    std::set<std::size_t> counts;
    bool done = false;
    for (int stop = 1; !done; ++stop) {
      CountedPoint::running = true;
      StopAt(0);
      CountedJoiner joiner(CountedPoint::running);
      oneLine ? AddLines(joiner) : AddPairs(joiner);
      joiner.Join();
      oneLine ? AddGaps(joiner) : AddPartners(joiner);
      StopAt(stop);
      joiner.Join();
      done = CountedPoint::running;
      const std::size_t count = joiner.GetList().size();
      counts.insert(count);
      if (done) {
        EXPECT_EQ(count, joined);
        continue;
      }
      const std::size_t points = NumPoints(joiner);
      CountedPoint::running = true;
      StopAt(0);
      Add(joiner, -10, -9);
      joiner.Join();
      // Of two lines that are one now, the common point is there once; nothing else of what was kept is lost.
      const std::size_t merges = count + 1 - joiner.GetList().size();
      EXPECT_EQ(NumPoints(joiner) + merges, points + 2) << stop;
      std::set<double> ends;
      for (const auto& line : joiner.GetList()) {
        EXPECT_TRUE(ends.insert(line[0].x).second) << stop;
        EXPECT_TRUE(ends.insert(line[line.NumPoints() - 1].x).second) << stop;
      }
    }
    // Each merge is a place to stop at.
    for (std::size_t count = joined; count <= apart; ++count) EXPECT_EQ(counts.count(count), 1U) << count;
  }
}

TEST_F(LineJoinerOfCountedPoints, ClosingOfAnAreaStopsWhereTheFlagFalls) {
  constexpr int kLines = 500;
  CountedJoiner joiner(CountedPoint::running);
  for (int i = 0; i < kLines; ++i) Add(joiner, 2 * i, 2 * i + 1, false);
  StopAt(20);
  EXPECT_TRUE(joiner.Join());
  // Two for each line to clear the list, and none to compare it.
  EXPECT_LT(CountedPoint::comparisons, 2 * kLines + 40);
  CountedPoint::running = true;
  joiner.Finish();
  EXPECT_TRUE(joiner.GetList().empty());
}

TEST_F(LineJoinerOfCountedPoints, InteriorLinesAreAppendedUpToWhereTheFlagFalls) {
  CountedJoiner joiner(CountedPoint::running);
  for (int i = 0; i < kGaps; ++i) Add(joiner, 2 * i, 2 * i + 1, false);
  joiner.Join();
  StopAt(7);
  joiner.Finish();
  const std::size_t count = joiner.GetList().size();
  EXPECT_GT(count, 0U);
  EXPECT_LT(count, 7U);
  CountedPoint::running = true;
  joiner.Finish();
  EXPECT_EQ(joiner.GetList().size(), count);
}

TEST_F(LineJoinerOfCountedPoints, PiecesAreFoundWithoutALookAtTheOthers) {
  constexpr int kPieces = 4000;
  CountedJoiner joiner(CountedPoint::running);
  StopAt(0);
  for (int i = 0; i < kPieces; ++i) Add(joiner, 2 * i, 2 * i + 1);
  joiner.Finish();
  EXPECT_LT(CountedPoint::comparisons, 40 * kPieces);
  EXPECT_EQ(joiner.GetList().size(), std::size_t{kPieces});
}

TEST_F(LineJoinerOfCountedPoints, PointsAreGivenBackByAllThatDropsThem) {
  struct Case {
    const char* name;
    void (*run)(CountedJoiner& joiner);
  };
  const std::vector<Case> cases = {
      {"area that was closed with the flag down",
       [](CountedJoiner& joiner) {
         AddLines(joiner);
         CountedPoint::running = false;
         joiner.Join();
         CountedPoint::running = true;
       }},
      {"interior lines that were finished with the flag down",
       [](CountedJoiner& joiner) {
         Add(joiner, 1, 2, false);
         joiner.Join();
         CountedPoint::running = false;
         joiner.Finish();
         CountedPoint::running = true;
       }},
      {"border list",
       [](CountedJoiner& joiner) {
         AddLines(joiner);
         joiner.Finish();
         joiner.ClearBorder();
       }},
      {"point that two lines had in common",
       [](CountedJoiner& joiner) {
         AddLines(joiner);
         joiner.Join();
         AddGaps(joiner);
         joiner.Finish();
         joiner.ClearBorder();
       }},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    CountedJoiner joiner(CountedPoint::running);
    for (int i = 0; i < 10; ++i) test.run(joiner);
    const std::int64_t living = CountedPoint::living;
    for (int i = 0; i < 1000; ++i) test.run(joiner);
    EXPECT_EQ(CountedPoint::living, living);
  }
}

TEST(LineJoiner, PointsInSpaceJoinWhereTheirHeightsAreEqualToo) {
  const std::atomic<bool> running{true};
  LineJoiner<GTL::Point3D<double>> joiner(running);
  joiner.Add({0, 0, 1}, {1, 0, 1}, true);
  joiner.Add({1, 0, 2}, {2, 0, 2}, true);
  joiner.Add({2, 0, 2}, {3, 0, 2}, true);
  joiner.Finish();
  ASSERT_EQ(joiner.GetList().size(), 2U);
  EXPECT_EQ(joiner.GetList()[0].NumPoints(), 2);
  EXPECT_EQ(joiner.GetList()[1].NumPoints(), 3);
}

TEST(LineJoiner, LongLineOfPiecesInAnyOrderIsOneLine) {
  const std::atomic<bool> running{true};
  constexpr int kPieces = 10007;  // a prime
  Joiner joiner(running);
  for (int area = 0; area < 4; ++area) {
    for (int i = area; i < kPieces; i += 4) {
      const int piece = static_cast<int>(static_cast<long long>(i) * 4999 % kPieces);
      const bool turned = piece % 3 == 0;
      joiner.Add({1.0 * piece + turned, 1}, {1.0 * piece + !turned, 1}, true);
    }
    joiner.Join();
  }
  joiner.Finish();
  ASSERT_EQ(joiner.GetList().size(), 1U);
  const auto& line = joiner.GetList()[0];
  ASSERT_EQ(line.NumPoints(), kPieces + 1);
  const double step = line[1].x - line[0].x;
  ASSERT_EQ(step * step, 1);
  for (int i = 0; i + 1 < line.NumPoints(); ++i) ASSERT_EQ(line[i + 1].x - line[i].x, step) << i;
}

}  // namespace
}  // namespace vak
