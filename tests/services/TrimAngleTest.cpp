#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

#include "vakdtm/services/geometry/TrimAngle.h"

namespace vak {
namespace {

TEST(TrimAngle, BringsEveryAngleIntoOneTurn) {
  const struct {
    const char* name;
    double degrees, trimmed;
  } cases[] = {
      {"nothing", 0, 0},
      {"within", 123.25, 123.25},
      {"just below a turn", std::nextafter(360.0, 0.0), std::nextafter(360.0, 0.0)},
      {"a turn", 360, 0},
      {"two turns", 720, 0},
      {"a turn and a bit", 361.5, 1.5},
      {"negative", -45, 315},
      {"half a turn back", -180, 180},
      {"a turn back", -360, 0},
      {"a turn back and a bit", -361, 359},
      {"many turns", 360.0 * 1e9 + 90, 90},
      {"many turns back", -360.0 * 1e9 - 90, 270},
      {"a double whose steps are longer than a turn", 0x1p60, std::fmod(0x1p60, 360.0)},
      {"so little back that the sum is a turn", -1e-20, 0},
      {"the least there is", -std::numeric_limits<double>::denorm_min(), 0},
      {"a turn back and the least step", std::nextafter(-360.0, -400.0), std::nextafter(360.0, 0.0)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(TrimAngle(c.degrees), c.trimmed);
    EXPECT_FALSE(std::signbit(TrimAngle(c.degrees)));
  }
}

TEST(TrimAngle, NegativeZeroLosesItsSign) { EXPECT_FALSE(std::signbit(TrimAngle(-0.0))); }

TEST(TrimAngle, NoNumberStaysNone) {
  EXPECT_TRUE(std::isnan(TrimAngle(std::nan(""))));
  EXPECT_TRUE(std::isnan(TrimAngle(std::numeric_limits<double>::infinity())));
  EXPECT_TRUE(std::isnan(TrimAngle(-std::numeric_limits<double>::infinity())));
}

TEST(TrimAngle, NeverLeavesTheTurn) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 100000; ++i) {
    const double exponent = std::uniform_real_distribution(-40.0, 40.0)(random);
    const double angle = TrimAngle(std::exp2(exponent) * (i % 2 == 0 ? 1 : -1));
    ASSERT_GE(angle, 0.0);
    ASSERT_LT(angle, 360.0);
  }
}

}  // namespace
}  // namespace vak
