#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>

#include "vakdtm/services/text/CVakUnitCnv.h"

#include "support/LongForm.h"
#include "support/RandomSeed.h"

namespace vak {
namespace {

const CVakUnitCnv kMetres;
const CVakUnitCnv kFeet(LengthUnit::kFoot, LengthUnit::kFoot, LengthUnit::kFoot);
const CVakUnitCnv kSurveyFeet(LengthUnit::kUsSurveyFoot, LengthUnit::kUsSurveyFoot, LengthUnit::kUsSurveyFoot);
const CVakUnitCnv kMixed(LengthUnit::kMetre, LengthUnit::kFoot, LengthUnit::kUsSurveyFoot);

TEST(CVakUnitCnv, UnitsHaveShortTexts) {
  EXPECT_EQ(kMetres.GetUnitMnem(1), L"m");
  EXPECT_EQ(kMetres.GetUnitMnem(4), L"m");
  EXPECT_EQ(kMetres.GetUnitMnem(5), L"m\u00B3");
  EXPECT_EQ(kMixed.GetUnitMnem(1), L"m");
  EXPECT_EQ(kMixed.GetUnitMnem(4), L"ft");
  EXPECT_EQ(kMixed.GetUnitMnem(5), L"ftUS\u00B3");
  for (const int kind : {-1, 0, 2, 3, 6}) EXPECT_EQ(kFeet.GetUnitMnem(kind), L"") << kind;
}

TEST(CVakUnitCnv, FeetComeOutExactWhereTheyAre) {
  EXPECT_EQ(kFeet.ConvertUnit(1, 0.3048), 1.0);
  EXPECT_EQ(kFeet.ConvertUnit(4, -3048), -10000.0);
  EXPECT_EQ(kFeet.ConvertUnit(4, 381), 1250.0);
  EXPECT_EQ(kSurveyFeet.ConvertUnit(1, 1200), 3937.0);
  EXPECT_EQ(kSurveyFeet.ConvertUnit(1, 0.3048), 0.999998);
  EXPECT_EQ(kFeet.ConvertUnit(5, 381.0 * 381.0 * 381.0), 1953125000.0);
  EXPECT_EQ(kSurveyFeet.ConvertUnit(5, 1728000000), 61023377953.0);
}

TEST(CVakUnitCnv, EachKindHasItsOwnUnit) {
  EXPECT_EQ(kMixed.ConvertUnit(1, 381), 381.0);
  EXPECT_EQ(kMixed.ConvertUnit(4, 381), 1250.0);
  EXPECT_EQ(kMixed.ConvertUnit(5, 1728000000), 61023377953.0);
}

TEST(CVakUnitCnv, MetresAndUnknownKindsPassThrough) {
  for (const int kind : {1, 4, 5}) EXPECT_EQ(kMetres.ConvertUnit(kind, 0.1), 0.1);
  for (const int kind : {-1, 0, 2, 3, 6}) EXPECT_EQ(kFeet.ConvertUnit(kind, 0.1), 0.1);
}

TEST(CVakUnitCnv, OddNumbersPassThroughOrStayInOrder) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(kFeet.ConvertUnit(1, infinity), infinity);
  EXPECT_EQ(kFeet.ConvertUnit(1, -infinity), -infinity);
  EXPECT_TRUE(std::isnan(kFeet.ConvertUnit(1, std::nan(""))));
  EXPECT_EQ(std::bit_cast<std::uint64_t>(kFeet.ConvertUnit(1, -0.0)), std::bit_cast<std::uint64_t>(-0.0));
  EXPECT_EQ(kFeet.ConvertUnit(1, std::numeric_limits<double>::max()), infinity);
  EXPECT_EQ(kFeet.ConvertUnit(1, std::numeric_limits<double>::denorm_min()),
            3 * std::numeric_limits<double>::denorm_min());
}

/// value * over / under in integers: whether `converted` is the nearest double. Both are multiples of a power of two,
/// so that |converted * under - value * over| compares exactly with half a step of `converted` times `under`.
bool IsNearest(double value, double converted, std::uint64_t over, std::uint64_t under) {
  __extension__ using Wide = __int128;
  int valueExponent = 0;
  int convertedExponent = 0;
  const auto valueMantissa = static_cast<Wide>(std::ldexp(std::frexp(value, &valueExponent), 53));
  const auto convertedMantissa = static_cast<Wide>(std::ldexp(std::frexp(converted, &convertedExponent), 53));
  const int shift = convertedExponent - valueExponent;
  const Wide wanted = valueMantissa * static_cast<Wide>(over);
  const Wide found = (convertedMantissa * static_cast<Wide>(under)) << shift;
  const Wide halfStep = static_cast<Wide>(under) << shift;  // of twice the difference
  const Wide twice = 2 * (found > wanted ? found - wanted : wanted - found);
  return twice < halfStep || (twice == halfStep && convertedMantissa % 2 == 0);
}

TEST(CVakUnitCnv, EveryQuotientIsTheNearestDouble) {
  const std::uint64_t seed = RandomSeed();
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> exponent(-12, 12);
  int differsFromDivision = 0;
  for (int i = 0; i < LongForm(20'000, 2'000'000); ++i) {
    const double value = std::pow(10.0, exponent(random));
    ASSERT_TRUE(IsNearest(value, kFeet.ConvertUnit(1, value), 1250, 381)) << value << " seed " << seed;
    ASSERT_TRUE(IsNearest(value, kSurveyFeet.ConvertUnit(1, value), 3937, 1200)) << value << " seed " << seed;
    ASSERT_TRUE(IsNearest(value, kFeet.ConvertUnit(5, value), 1953125000, 55306341)) << value << " seed " << seed;
    ASSERT_TRUE(IsNearest(value, kSurveyFeet.ConvertUnit(5, value), 61023377953, 1728000000))
        << value << " seed " << seed;
    if (kFeet.ConvertUnit(1, value) != value / 0.3048) ++differsFromDivision;
  }
  EXPECT_GT(differsFromDivision, 0);  // the run met values for which it matters
}

TEST(CVakUnitCnv, GoesThereAndBackWithinAStep) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> metres(-1e7, 1e7);
  for (int i = 0; i < 1000; ++i) {
    const double value = metres(random);
    const double back = kFeet.ConvertUnit(1, value) * 381 / 1250;
    EXPECT_LE(std::fabs(back - value), std::fabs(value) * 3e-16) << value;
  }
}

}  // namespace
}  // namespace vak
