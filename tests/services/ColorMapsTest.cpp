#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/services/color/ColorTable.h"

namespace vak {
namespace {

using Triple = std::array<double, 3>;

/// Red, green and blue as light.
Triple LightOf(Color color) {
  Triple light;
  for (std::size_t i = 0; i < 3; ++i) {
    const double coded = static_cast<double>(color >> (8 * i) & 255) / 255;
    light[i] = coded <= 0.04045 ? coded / 12.92 : std::pow((coded + 0.055) / 1.055, 2.4);
  }
  return light;
}

/// Lightness and the two axes of colour, of light.
Triple OklabOf(const Triple& light) {
  const double l = std::cbrt(0.4122214708 * light[0] + 0.5363325363 * light[1] + 0.0514459929 * light[2]);
  const double m = std::cbrt(0.2119034982 * light[0] + 0.6806995451 * light[1] + 0.1073969566 * light[2]);
  const double s = std::cbrt(0.0883024619 * light[0] + 0.2817188376 * light[1] + 0.6299787005 * light[2]);
  return {0.2104542553 * l + 0.7936177850 * m - 0.0040720468 * s,
          1.9779984951 * l - 2.4285922050 * m + 0.4505937099 * s,
          0.0259040371 * l + 0.7827717662 * m - 0.8086757660 * s};
}

/// As those see light who lack one kind of receptor. Brettel's planes as one matrix a kind: Machado, Oliveira and
/// Fernandes, "A physiologically-based model for simulation of color vision deficiency", IEEE TVCG 15(6), 2009, at full
/// severity.
using Matrix = std::array<Triple, 3>;
constexpr Matrix kProtanopia = {
    {{0.152286, 1.052583, -0.204868}, {0.114503, 0.786281, 0.099216}, {-0.003882, -0.048116, 1.051998}}};
constexpr Matrix kDeuteranopia = {
    {{0.367322, 0.860646, -0.227968}, {0.280085, 0.672501, 0.047413}, {-0.011820, 0.042940, 0.968881}}};
constexpr Matrix kTritanopia = {
    {{1.255528, -0.076749, -0.178779}, {-0.078411, 0.930809, 0.147602}, {0.004733, 0.691367, 0.303900}}};
constexpr Matrix kFullSight = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};

Triple SeenBy(const Matrix& eye, Color color) {
  const Triple light = LightOf(color);
  Triple seen{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) seen[i] += eye[i][j] * light[j];
    seen[i] = std::clamp(seen[i], 0.0, 1.0);
  }
  return OklabOf(seen);
}

double Difference(const Triple& a, const Triple& b) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

double LightnessAt(std::string_view name, int number) {
  return OklabOf(LightOf(ColorMapColor(name, number / 255.0)))[0];
}

/// A byte of a colour is this much lightness at most, in the dark parts of a table.
constexpr double kOfAByte = 0.006;

TEST(ColorMaps, RunInEqualStepsOfLightness) {
  for (const std::string_view name : ColorMapNames()) {
    if (name == "difference") continue;
    SCOPED_TRACE(name);
    const double low = LightnessAt(name, 0);
    const double high = LightnessAt(name, 255);
    EXPECT_GT(std::abs(high - low), 0.6) << "a table without contrast";
    for (int number = 0; number < 256; ++number) {
      EXPECT_NEAR(LightnessAt(name, number), low + (high - low) * number / 255, kOfAByte) << number;
    }
  }
}

TEST(ColorMaps, DarkIsDeep) {
  ColorTable table;
  ASSERT_TRUE(MakeColorTable("depth", -60, -2, table));
  for (int number = 1; number < 256; ++number)
    EXPECT_GT(LightnessAt("depth", number), LightnessAt("depth", number - 1));
  const Color deep = table.GetColor(-59.9);
  EXPECT_GT(deep >> 16 & 255, deep & 255) << "blue or violet";
  const Color shoal = table.GetColor(-2.1);
  EXPECT_GT(shoal & 255, shoal >> 16 & 255) << "warm";
  EXPECT_LT(OklabOf(LightOf(deep))[0], 0.3);
  EXPECT_GT(OklabOf(LightOf(shoal))[0], 0.9);
}

TEST(ColorMaps, MoreIsDarkerElsewhere) {
  for (const std::string_view name : {"hits", "deviation", "time", "uncertainty", "slope"}) {
    EXPECT_GT(LightnessAt(name, 0), 0.9) << name;
    EXPECT_LT(LightnessAt(name, 255), 0.35) << name;
  }
}

TEST(ColorMaps, WhatIsFlatIsTakenNeitherForPaperNorForACellWithoutASlope) {
  constexpr Color kBeige = 12899809;  // what a drawing gives cells without a slope
  for (int number = 0; number < 256; ++number) {
    const Triple slope = OklabOf(LightOf(ColorMapColor("slope", number / 255.0)));
    EXPECT_GT(Difference(slope, OklabOf(LightOf(0xFFFFFF))), 0.09) << number;
    EXPECT_GT(Difference(slope, OklabOf(LightOf(kBeige))), 0.05) << number;
  }
}

TEST(ColorMaps, DifferencesAreEquallyStrongOnBothSidesOfZero) {
  for (int number = 0; number < 128; ++number) {
    const Triple below = OklabOf(LightOf(ColorMapColor("difference", number / 255.0)));
    const Triple above = OklabOf(LightOf(ColorMapColor("difference", 1 - number / 255.0)));
    EXPECT_NEAR(below[0], above[0], kOfAByte) << number;
    EXPECT_NEAR(std::hypot(below[1], below[2]), std::hypot(above[1], above[2]), 0.02) << number;
    if (number < 100) {
      EXPECT_LT(below[2], 0) << "blue below " << number;
      EXPECT_GT(above[1], 0) << "red above " << number;
    }
  }
  const Triple middle = OklabOf(LightOf(ColorMapColor("difference", 0.5)));
  EXPECT_GT(middle[0], 0.96);
  EXPECT_LT(std::hypot(middle[1], middle[2]), 0.02) << "nearly white";
}

TEST(ColorMaps, ZeroIsTheMiddleOfDifferencesWhateverTheRange) {
  for (const double low : {-4.0, -0.5, 0.0, 1.0}) {
    ColorTable table;
    ASSERT_TRUE(MakeColorTable("difference", low, 2.0, table));
    EXPECT_GT(OklabOf(LightOf(table.GetColor(0.0)))[0], 0.95) << low;
    EXPECT_EQ(table.Classes().front().lower, -*table.End());
    EXPECT_EQ(*table.End(), std::max(2.0, -low));
  }
}

/// Whoever sees fewer colours still sees what lies twenty classes apart, and which of the two is more.
TEST(ColorMaps, AreReadByThoseWhoSeeFewerColours) {
  const struct {
    const char* name;
    const Matrix& eye;
  } kEyes[] = {{"full sight", kFullSight},
               {"protanopia", kProtanopia},
               {"deuteranopia", kDeuteranopia},
               {"tritanopia", kTritanopia}};
  for (const auto& eye : kEyes) {
    for (const std::string_view name : ColorMapNames()) {
      SCOPED_TRACE(std::string(eye.name) + ", " + std::string(name));
      const auto seen = [&](int number) { return SeenBy(eye.eye, ColorMapColor(name, number / 255.0)); };
      const double turn = seen(255)[0] > seen(0)[0] ? 1 : -1;
      for (int number = 0; number + 20 < 256; ++number) {
        const bool acrossMiddle = name == "difference" && number < 128 && number + 20 > 127;
        if (acrossMiddle) continue;
        EXPECT_GT(Difference(seen(number), seen(number + 20)), 0.03) << number;
        if (name == "difference") continue;
        EXPECT_GT(turn * (seen(number + 20)[0] - seen(number)[0]), 0.0) << number;
      }
      if (name == "difference") {
        EXPECT_GT(Difference(seen(0), seen(255)), 0.15) << "the two sides";
        EXPECT_GT(Difference(seen(64), seen(191)), 0.1) << "the two sides";
      }
    }
  }
}

TEST(ColorMaps, NeighbouringClassesNeverJump) {
  for (const std::string_view name : ColorMapNames()) {
    for (int number = 1; number < 256; ++number) {
      const Triple one = OklabOf(LightOf(ColorMapColor(name, (number - 1) / 255.0)));
      const Triple other = OklabOf(LightOf(ColorMapColor(name, number / 255.0)));
      EXPECT_LT(Difference(one, other), 0.03) << name << ' ' << number;
    }
  }
}

TEST(ColorMaps, ATableHasClassesOfEqualWidth) {
  ColorTable table;
  ASSERT_TRUE(MakeColorTable("hits", 0, 512, table));
  ASSERT_EQ(table.Classes().size(), static_cast<std::size_t>(kColorMapClasses));
  for (std::size_t i = 0; i < table.Classes().size(); ++i) {
    EXPECT_EQ(table.Classes()[i].lower, 2.0 * static_cast<double>(i));
    EXPECT_EQ(table.Classes()[i].color, ColorMapColor("hits", static_cast<double>(i) / 255));
  }
  EXPECT_EQ(table.End(), 512.0);
}

TEST(ColorMaps, AFallingRangeGivesTheLowColoursToTheHighValues) {
  ColorTable table;
  ASSERT_TRUE(MakeColorTable("time", 30, 0, table));
  EXPECT_EQ(table.GetColor(29.99), ColorMapColor("time", 0));
  EXPECT_EQ(table.GetColor(0.01), ColorMapColor("time", 1));
  ASSERT_TRUE(MakeColorTable("difference", 3, -1, table));
  EXPECT_EQ(table.GetColor(2.99), ColorMapColor("difference", 0));
}

TEST(ColorMaps, ARangeOfOneValueHasTheMiddleColour) {
  ColorTable table;
  ASSERT_TRUE(MakeColorTable("depth", -7, -7, table));
  EXPECT_EQ(table.GetColor(-7), ColorMapColor("depth", 0.5));
}

TEST(ColorMaps, WhatIsNoRangeOrNoNameIsRefused) {
  ColorTable table;
  ASSERT_TRUE(MakeColorTable("depth", 0, 1, table));
  const ColorTable before = table;
  EXPECT_FALSE(MakeColorTable("deep", 0, 1, table));
  EXPECT_FALSE(MakeColorTable("depth", 0, std::numeric_limits<double>::infinity(), table));
  EXPECT_FALSE(MakeColorTable("depth", std::nan(""), 0, table));
  EXPECT_EQ(table, before);
  EXPECT_TRUE(IsColorMap("depth"));
  EXPECT_FALSE(IsColorMap("Depth"));
  EXPECT_EQ(ColorMapColor("deep", 0.5), 0U);
  EXPECT_EQ(ColorMapColor("depth", std::nan("")), ColorMapColor("depth", 0));
  EXPECT_EQ(ColorMapColor("depth", 7), ColorMapColor("depth", 1));
}

TEST(ColorMaps, EveryNameIsListedOnce) {
  EXPECT_EQ(ColorMapNames(), (std::vector<std::string_view>{"depth", "difference", "hits", "deviation", "time",
                                                            "uncertainty", "slope"}));
}

}  // namespace
}  // namespace vak
