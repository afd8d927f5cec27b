#include <gtest/gtest.h>

#include "vakdtm/services/color/ColorControl.h"

namespace vak {
namespace {

TEST(ColorControl, GivesWhatItIsGivenUntilAFilterIsInstalled) {
  ColorControl& control = ColorControl::Instance();
  EXPECT_EQ(control.GetColor(0x123456, false), Color{0x123456});
  control.SetFilter([](Color wanted, bool flag) { return flag ? wanted : wanted ^ 0xFFFFFF; });
  EXPECT_EQ(control.GetColor(0x123456, false), Color{0xEDCBA9});
  EXPECT_EQ(control.GetColor(0x123456, true), Color{0x123456});
  control.SetFilter({});
  EXPECT_EQ(control.GetColor(0x123456, false), Color{0x123456});
}

TEST(ColorControl, IsOneForTheProcess) { EXPECT_EQ(&ColorControl::Instance(), &ColorControl::Instance()); }

TEST(ColorControl, AFilterMayReplaceItself) {
  ColorControl& control = ColorControl::Instance();
  control.SetFilter([&](Color, bool) {
    control.SetFilter({});
    return Color{7};
  });
  EXPECT_EQ(control.GetColor(1, false), Color{7});
  EXPECT_EQ(control.GetColor(1, false), Color{1});
}

}  // namespace
}  // namespace vak
