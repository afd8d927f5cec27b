#include <chrono>
#include <gtest/gtest.h>

#include "Pace.h"

namespace vak {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr Pace::Time kStart{std::chrono::hours(5)};

TEST(Pace, TheFirstIsDueAtOnceAndTheNextOnesAtEvenSteps) {
  Pace pace(4, kStart);
  EXPECT_EQ(pace.Due(kStart, 0), 1U);
  EXPECT_EQ(pace.Due(kStart + milliseconds(249), 1), 1U);
  EXPECT_EQ(pace.Due(kStart + milliseconds(251), 1), 2U);
  EXPECT_EQ(pace.Due(kStart + milliseconds(999), 2), 4U);
}

TEST(Pace, ItTellsHowLongItIsToTheNext) {
  const Pace pace(4, kStart);
  EXPECT_EQ(pace.UntilNext(kStart, 0), seconds(0));
  EXPECT_EQ(pace.UntilNext(kStart, 1), milliseconds(250));
  EXPECT_EQ(pace.UntilNext(kStart + milliseconds(100), 3), milliseconds(650));
  EXPECT_EQ(pace.UntilNext(kStart + seconds(9), 3), seconds(0));
}

TEST(Pace, WithoutALimitAllAreDueAtAnyTime) {
  Pace pace(0, kStart);
  EXPECT_EQ(pace.Due(kStart, 0), Pace::kNoLimit);
  EXPECT_EQ(pace.UntilNext(kStart, 1000), seconds(0));
}

TEST(Pace, AfterAHoldUpOneSecondIsMadeUpForAndTheRestIsForgotten) {
  Pace pace(100, kStart);
  EXPECT_EQ(pace.Due(kStart + seconds(1), 50), 101U) << "a short one is made up for whole";
  const Pace::Time later = kStart + seconds(3600);
  EXPECT_NEAR(static_cast<double>(pace.Due(later, 101)), 201, 1);
  EXPECT_NEAR(static_cast<double>(pace.Due(later + seconds(1), 201)), 301, 1) << "and then it goes on as before";
}

TEST(Pace, ARateBelowOneASecondIsKeptToo) {
  Pace pace(0.1, kStart);
  EXPECT_EQ(pace.Due(kStart, 0), 1U);
  EXPECT_EQ(pace.Due(kStart + seconds(9), 1), 1U);
  EXPECT_EQ(pace.UntilNext(kStart + seconds(9), 1), seconds(1));
  EXPECT_EQ(pace.Due(kStart + milliseconds(10001), 1), 2U);
}

TEST(Pace, ARateThatIsHardlyOneWaitsWithoutOverflow) {
  Pace pace(1e-300, kStart);
  EXPECT_EQ(pace.Due(kStart, 0), 1U);
  EXPECT_GT(pace.UntilNext(kStart, 1), std::chrono::hours(24));
}

TEST(Pace, NeverFewerThanThereAre) {
  Pace pace(10, kStart);
  EXPECT_EQ(pace.Due(kStart, 5), 5U);
}

}  // namespace
}  // namespace vak
