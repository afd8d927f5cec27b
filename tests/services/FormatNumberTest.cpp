#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>

#include "vakdtm/services/text/FormatNumber.h"

#include "support/RandomSeed.h"

namespace vak {
namespace {

std::string Number(double value) {
  std::string out;
  AppendNumber(out, value);
  return out;
}

std::string Fixed(double value, int digits) {
  std::string out;
  AppendFixed(out, value, digits);
  return out;
}

TEST(FormatNumber, PlainDecimalsWhereTheyAreReadable) {
  const struct {
    double value;
    const char* text;
  } kCases[] = {
      {0.0, "0"},
      {-0.0, "-0"},
      {1.0, "1"},
      {-12.345, "-12.345"},
      {0.1, "0.1"},
      {512345.5, "512345.5"},
      {1e6, "1000000"},
      {1e-5, "0.00001"},
      {1e-6, "0.000001"},
      {9.5e-7, "9.5e-07"},
      {123456789012345680.0, "1.2345678901234568e+17"},
      {12345678901234568.0, "12345678901234568"},
      {1e17, "1e+17"},
      {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
      {std::numeric_limits<double>::denorm_min(), "5e-324"},
      {-std::numeric_limits<double>::infinity(), "-inf"},
      {std::numeric_limits<double>::infinity(), "inf"},
      {-std::numeric_limits<double>::quiet_NaN(), "nan"},
      {std::bit_cast<double>(~std::uint64_t{0}), "nan"},
  };
  for (const auto& c : kCases) EXPECT_EQ(Number(c.value), c.text);
}

TEST(FormatNumber, AnyFiniteNumberReadsBackToTheSameBits) {
  const std::uint32_t seed = RandomSeed();
  SCOPED_TRACE("rerun with --gtest_random_seed=" + std::to_string(seed));
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> plane(-1e7, 1e7);
  int finite = 0;
  for (int run = 0; run < 100000; ++run) {
    const double value = run % 2 == 0 ? std::bit_cast<double>(rng()) : plane(rng);
    if (!std::isfinite(value)) continue;
    ++finite;
    const std::string text = Number(value);
    double back = 0.0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), back);
    ASSERT_EQ(end.ptr, text.data() + text.size()) << text;
    ASSERT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(value)) << text;
  }
  EXPECT_GT(finite, 90000);
}

TEST(FormatNumber, FixedDecimalsAreThoseOfPrintf) {
  const struct {
    double value;
    int digits;
    const char* text;
  } kCases[] = {
      {12.3456, 2, "12.35"}, {0.125, 2, "0.12"},   {0.375, 2, "0.38"},
      {2.5, 0, "2"},         {-0.001, 2, "-0.00"}, {1e22, 1, "10000000000000000000000.0"},
      {-7, 3, "-7.000"},
  };
  for (const auto& c : kCases) EXPECT_EQ(Fixed(c.value, c.digits), c.text);
  EXPECT_EQ(Fixed(std::nan(""), 3), "nan");
  EXPECT_EQ(Fixed(-std::numeric_limits<double>::infinity(), 3), "-inf");
  EXPECT_EQ(Fixed(-std::numeric_limits<double>::max(), 99).size(), 1u + 309u + 1u + 99u);
  std::mt19937_64 rng(7);
  for (int run = 0; run < 20000; ++run) {
    const double value = std::bit_cast<double>(rng());
    if (!std::isfinite(value)) continue;
    const int digits = static_cast<int>(rng() % 20);
    char wanted[512];
    std::snprintf(wanted, sizeof wanted, "%.*f", digits, value);
    ASSERT_EQ(Fixed(value, digits), wanted);
  }
}

TEST(FormatNumber, TextIsAppended) {
  std::string out = "x=";
  AppendNumber(out, 1.5);
  out += ' ';
  AppendFixed(out, 1.5, 2);
  EXPECT_EQ(out, "x=1.5 1.50");
}

}  // namespace
}  // namespace vak
