#include <cmath>
#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>

#include "vakdtm/services/text/FormatDouble.h"

#include "support/LongForm.h"
#include "support/RandomSeed.h"

namespace vak {
namespace {

TEST(FormatDouble, RoundsTheBinaryValueToTheNearest) {
  const struct {
    const char* name;
    double value;
    int decimals;
    std::wstring text;
  } kCases[] = {
      {"exact half goes to even, down", 0.125, 2, L"0.12"},
      {"exact half goes to even, up", 0.375, 2, L"0.38"},
      {"half of an integer", 2.5, 0, L"2"},
      {"the double below the half", 1.005, 2, L"1.00"},
      {"the double above the half", 1.015, 2, L"1.01"},
      {"one step above a half", std::nextafter(0.125, 1), 2, L"0.13"},
      {"one step below a half", std::nextafter(0.375, 0), 2, L"0.37"},
      {"carries through", 999.9999, 3, L"1000.000"},
      {"large coordinate", 4503599627370495.5, 1, L"4503599627370495.5"},
      {"beyond whole doubles", 1e22, 2, L"10000000000000000000000.00"},
      {"smallest", std::numeric_limits<double>::denorm_min(), 3, L"0.000"},
      {"no decimals", -12.6, 0, L"-13"},
      {"fewer than none", 12.6, -3, L"13"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(FormatDouble(c.value, c.decimals, 0), c.text);
  }
}

TEST(FormatDouble, ZeroHasNoMinus) {
  EXPECT_EQ(FormatDouble(-0.0, 2, 0), L"0.00");
  EXPECT_EQ(FormatDouble(-0.0, 0, 0), L"0");
  EXPECT_EQ(FormatDouble(-0.004, 2, 0), L"0.00");
  EXPECT_EQ(FormatDouble(-0.005000001, 2, 0), L"-0.01");
  EXPECT_EQ(FormatDouble(-1e-300, 99, 0).front(), L'0');
  EXPECT_EQ(FormatDouble(-10.0, 1, 0), L"-10.0");
}

TEST(FormatDouble, WhatIsNoFiniteNumberSaysSo) {
  EXPECT_EQ(FormatDouble(std::numeric_limits<double>::infinity(), 2, 0), L"inf");
  EXPECT_EQ(FormatDouble(-std::numeric_limits<double>::infinity(), 2, 0), L"-inf");
  EXPECT_EQ(FormatDouble(std::nan(""), 2, 0), L"nan");
  EXPECT_EQ(FormatDouble(-std::nan(""), 2, 0), L"nan");
}

TEST(FormatDouble, LargestNumberHasAllItsDigits) {
  const std::wstring text = FormatDouble(-std::numeric_limits<double>::max(), 1000, 0);
  EXPECT_EQ(text.size(), 1u + 309u + 1u + 99u);
  EXPECT_EQ(text.substr(0, 18), L"-17976931348623157");
}

TEST(FormatDouble, AgreesWithPrintfOnAnyNumber) {
  const std::uint64_t seed = RandomSeed();
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> exponent(-20, 20);
  for (int i = 0; i < LongForm(20'000, 2'000'000); ++i) {
    const double value = std::copysign(std::pow(10.0, exponent(random)), random() % 2 == 0 ? 1.0 : -1.0);
    const int decimals = static_cast<int>(random() % 12);
    char expected[64];
    std::snprintf(expected, sizeof expected, "%.*f", decimals, value);
    const std::string text(expected);
    const bool zero = text.find_first_not_of("-0.") == std::string::npos;
    const std::wstring wide(text.begin() + (zero && text[0] == '-' ? 1 : 0), text.end());
    ASSERT_EQ(FormatDouble(value, decimals, 0), wide) << "seed " << seed;
  }
}

}  // namespace
}  // namespace vak
