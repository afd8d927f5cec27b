#include <gtest/gtest.h>
#include <string>

#include "vakdtm/render/FittedText.h"

#include "PlainMeasure.h"

namespace vak {
namespace {

using test::PlainMeasure;

TEST(FittedText, StaysAsItIsWhereItHasRoom) {
  const FittedText fitted = FitText(L"Harbour", 84, 20, 10, PlainMeasure);
  EXPECT_EQ(fitted.text, L"Harbour");
  EXPECT_EQ(fitted.fontHeight, 20);
  EXPECT_EQ(fitted.size.width, 84);
  EXPECT_EQ(fitted.size.height, 24);
}

TEST(FittedText, ShrinksBeforeItIsCut) {
  const FittedText fitted = FitText(L"Harbour", 83, 20, 10, PlainMeasure);
  EXPECT_EQ(fitted.text, L"Harbour");
  EXPECT_EQ(fitted.fontHeight, 19);
}

TEST(FittedText, IsCutToTheLongestBeginningWithAnEllipsis) {
  for (int width = 6; width < 90; ++width) {
    SCOPED_TRACE(width);
    const FittedText fitted = FitText(L"Harbour, inner basin", width, 20, 10, PlainMeasure);
    EXPECT_LE(fitted.size.width, width);
    EXPECT_EQ(fitted.fontHeight, 10);
    if (width < 12) {
      EXPECT_EQ(fitted.text, L"") << "there is no room for a character and the ellipsis";
      continue;
    }
    EXPECT_EQ(fitted.text.back(), L'\u2026');
    const std::wstring start = fitted.text.substr(0, fitted.text.size() - 1);
    EXPECT_TRUE(std::wstring(L"Harbour, inner basin").starts_with(start));
    // One more would be too long; a blank in front of the ellipsis goes.
    EXPECT_GT((static_cast<double>(start.size()) + 3) * 6, width - 6);
  }
}

TEST(FittedText, ABlankInFrontOfTheEllipsisGoes) {
  EXPECT_EQ(FitText(L"Harbour, inner", 60, 10, 10, PlainMeasure).text, L"Harbour,\u2026");
}

TEST(FittedText, WhatCantBeSeenInALineBecomesABlank) {
  EXPECT_EQ(FitText(L"a\tb\nc\x7F"
                    L"d\u0085e\u2028f",
                    1000, 10, 10, PlainMeasure)
                .text,
            L"a b c d e f");
}

TEST(FittedText, NothingTakesNoRoom) { EXPECT_EQ(FitText(L"", 0, 10, 10, PlainMeasure).text, L""); }

}  // namespace
}  // namespace vak
