#include <atomic>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "vakdtm/contour/LineJoiner.h"

#include "contour/ReferenceTracer.h"
#include "contour/TracedLines.h"
#include "support/LongForm.h"

namespace vak::test {
namespace {

/// Pieces between few points, so that many meet in one, lie on one another and close in rings.
template <typename Point>
class Soup {
 public:
  explicit Soup(unsigned seed) : random_(seed) {
    const double odd[] = {-0.0, 0.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()};
    const int count = Pick(2, 30);
    const bool hasOdd = Pick(0, 2) == 0;
    for (int i = 0; i < count; ++i) {
      const double x = hasOdd && Pick(0, 3) == 0 ? odd[Pick(0, 3)] : Pick(-3, 3);
      const double y = hasOdd && Pick(0, 3) == 0 ? odd[Pick(0, 3)] : Pick(-3, 3);
      points_.push_back(MakePoint(x, y, Pick(0, 1)));
    }
  }

  int Pick(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }
  bool Chance(double part) { return std::uniform_real_distribution<double>(0, 1)(random_) < part; }
  Point PickPoint() { return points_[static_cast<std::size_t>(Pick(0, static_cast<int>(points_.size()) - 1))]; }

 private:
  static Point MakePoint(double x, double y, double z) {
    if constexpr (std::is_same_v<Point, GTL::Point2D<double>>) {
      return {x, y};
    } else {
      return {x, y, z};
    }
  }

  std::mt19937 random_;
  std::vector<Point> points_;
};

template <typename Point>
class LineJoinerPropertyTest : public testing::Test {
 protected:
  using Joiner = LineJoiner<Point>;
  using PlainPoint = decltype(Plain(Point()));
  using PlainJoining = reference::Joining<PlainPoint>;

  /// Does the same with both, in one run or more that come one upon the other.
  void Run(unsigned seed) {
    Soup<Point> soup(seed);
    std::atomic<bool> running{true};
    Joiner joiner(running);
    PlainJoining plain(running);
    for (int run = soup.Chance(0.2) ? 2 : 1; run > 0; --run) {
      ASSERT_NO_FATAL_FAILURE(AddPieces(soup, joiner, plain, running));
      Joiner copy(joiner);
      PlainJoining plainCopy(plain);
      joiner.Finish();
      plain.Finish();
      ASSERT_NO_FATAL_FAILURE(Compare(joiner, plain));
      ASSERT_FALSE(joiner.Join());
      GoOn(soup, copy, plainCopy);
      ASSERT_NO_FATAL_FAILURE(Compare(joiner, plain));
    }
  }

  std::size_t lines_ = 0;
  std::size_t rings_ = 0;

 private:
  /// The flag may fall on the way, and may be raised again.
  void AddPieces(Soup<Point>& soup, Joiner& joiner, PlainJoining& plain, std::atomic<bool>& running) {
    const double touching = soup.Pick(0, 4) / 4.0;
    const int stop = soup.Chance(0.3) ? soup.Pick(0, 200) : -1;
    const int restart = soup.Chance(0.5) ? stop + soup.Pick(1, 60) : -1;
    const int pieces = soup.Pick(0, 200);
    const int areaPieces = soup.Pick(1, 60);
    for (int i = 0; i < pieces; ++i) {
      if (i == stop) running = false;
      if (i == restart) running = true;
      const Point start = soup.PickPoint();
      const Point end = soup.PickPoint();
      const bool touches = soup.Chance(touching);
      ASSERT_EQ(joiner.Add(start, end, touches), plain.AddSegment(Plain(start), Plain(end), touches));
      if (soup.Pick(1, areaPieces) == 1) {
        ASSERT_EQ(joiner.Join(), plain.JoinSegments());
        ASSERT_NO_FATAL_FAILURE(Compare(joiner, plain));
      }
      if (soup.Chance(0.003)) {
        joiner.ClearBorder();
        plain.border.clear();
      }
    }
    if (stop >= pieces) running = false;
  }

  /// With a copy, beside which the original stays as it is.
  void GoOn(Soup<Point>& soup, Joiner& copy, PlainJoining& plain) {
    for (int i = soup.Pick(0, 20); i > 0; --i) {
      const Point start = soup.PickPoint();
      const Point end = soup.PickPoint();
      ASSERT_EQ(copy.Add(start, end, true), plain.AddSegment(Plain(start), Plain(end), true));
    }
    copy.Finish();
    plain.Finish();
    Compare(copy, plain);
  }

  void Compare(const Joiner& joiner, const PlainJoining& plain) {
    ASSERT_EQ(Difference(Plain(joiner.GetList()), plain.border), "");
    lines_ += plain.border.size();
    for (const auto& line : plain.border) rings_ += line.size() > 2 && line.front() == line.back() ? 1 : 0;
  }
};

using PointTypes = testing::Types<GTL::Point2D<double>, GTL::Point3D<double>>;
TYPED_TEST_SUITE(LineJoinerPropertyTest, PointTypes);

TYPED_TEST(LineJoinerPropertyTest, GivesWhatComparingAllPairsGives) {
  const int rounds = LongForm(1500, 200000, 500);
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    ASSERT_NO_FATAL_FAILURE(this->Run(static_cast<unsigned>(round)));
  }
  EXPECT_GT(this->lines_, static_cast<std::size_t>(rounds) * 20);
  EXPECT_GT(this->rings_, static_cast<std::size_t>(rounds));
}

}  // namespace
}  // namespace vak::test
