#include <cmath>
#include <gtest/gtest.h>
#include <random>

#include "vakdtm/services/color/ColorShade.h"
#include "vakdtm/services/color/ColorTable.h"

namespace vak {
namespace {

TEST(ColorShade, IsToTheLastBitWhatTheTwoConversionsGive) {
  std::mt19937_64 random(1);
  ColorShades shades;
  for (int round = 0; round < 20000; ++round) {
    const Color color =
        round % 3 == 0 ? static_cast<Color>(random() % 256 * 0x010101) : static_cast<Color>(random() & 0xFFFFFF);
    const double light = static_cast<double>(random() % 1201) / 1000 - 0.1;
    double hue = 0;
    double saturation = 0;
    double lightness = 0;
    ColorTable::RGBtoHSL(color, hue, saturation, lightness);
    const ColorShade shade(color);
    ASSERT_EQ(shade.Lightness(), lightness);
    ASSERT_EQ(shade.WithLightness(light), ColorTable::HSLtoRGB(hue, saturation, light)) << color << ' ' << light;
    ASSERT_EQ(shades(color).Lightness(), lightness);
    ASSERT_EQ(shades(color).WithLightness(light), shade.WithLightness(light));
  }
}

TEST(ColorShade, AColourInItsOwnLightnessIsItself) {
  for (const Color color : {0x000000UL, 0xFFFFFFUL, 0x0000FFUL, 0x7F7F7FUL, 0xC4D5E1UL}) {
    EXPECT_EQ(ColorShade(color).WithLightness(ColorShade(color).Lightness()), color);
  }
  EXPECT_EQ(ColorShade(0x507090).WithLightness(0), 0U);
  EXPECT_EQ(ColorShade(0x507090).WithLightness(1), 0xFFFFFFU);
  EXPECT_EQ(ColorShade(0x507090).WithLightness(std::nan("")), 0U);
}

TEST(ColorShades, ColoursThatShareAPlaceDoNotMix) {
  ColorShades shades;
  for (int round = 0; round < 2; ++round) {
    for (Color color = 0; color < 5000; ++color) {
      ASSERT_EQ(shades(color * 3331 & 0xFFFFFF).WithLightness(0.5),
                ColorShade(color * 3331 & 0xFFFFFF).WithLightness(0.5));
    }
  }
}

}  // namespace
}  // namespace vak
