#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/services/device/FontInfo.h"
#include "vakdtm/services/device/VakFont.h"

#include "support/RecordingDevice.h"

namespace vak {
namespace {

TEST(VakFont, BecomesWhatAUserChoseInPixelsOfTheDevice) {
  const test::RecordingDevice device(144);
  VakFont font;
  font.escapement = 900;
  font.Create(FontInfo(L"Some Serif", 10, true, false), &device);
  EXPECT_EQ(font, (VakFont{L"Some Serif", 20, VakFont::kBold, false, 0}));
  font.Create(FontInfo(L"Some Serif", 12, false, true), nullptr);
  EXPECT_EQ(font, (VakFont{L"Some Serif", 16, VakFont::kNormal, true, 0}));
}

TEST(VakFont, IsRoundedAndHasAHeightWhateverTheSize) {
  const test::RecordingDevice device(100);
  VakFont font;
  font.Create(FontInfo(L"A", 9, false, false), &device);  // 12.5
  EXPECT_EQ(font.height, 13);
  for (const int size : {0, -5, std::numeric_limits<int>::min()}) {
    font.Create(FontInfo(L"A", size, false, false), &device);
    EXPECT_EQ(font.height, 1);
  }
  font.Create(FontInfo(L"A", std::numeric_limits<int>::max(), false, false), &device);
  EXPECT_EQ(font.height, 1000);
}

}  // namespace
}  // namespace vak
