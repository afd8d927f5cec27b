#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/resource.h>
#include <system_error>
#include <vector>

#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/services/device/PngChunks.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/RunCommand.h"
#include "support/RunGdal.h"
#include "support/TestFolder.h"
#include "support/Worker.h"

namespace vak {
namespace {

/// Prints a text where no font is installed.
const test::Worker kWithoutFonts("image-without-fonts", [](const test::Worker::Words& arguments) {
  setenv("FONTCONFIG_FILE", arguments.at(0).c_str(), 1);
  ImageDevice image;
  if (!image.Create(100, 100) || !image.SavePng(FromUtf8(arguments.at(1)))) return 2;
  if (image.GetTextExtent(L"text").height != VakFont().height) return 3;
  image.TextOut(0, 0, L"text");
  if (image.SavePng(FromUtf8(arguments.at(1)))) return 4;
  std::fputs(ToUtf8(image.LastError()).c_str(), stdout);
  return 0;
});

/// Makes the largest image with too little memory for it, and then a small one.
const test::Worker kWithoutMemory("image-without-memory", [](const test::Worker::Words& /*arguments*/) {
  const rlimit limit{1U << 30U, 1U << 30U};
  if (setrlimit(RLIMIT_AS, &limit) != 0) return 2;
  ImageDevice image;
  if (image.Create(ImageDevice::kLongestSide, ImageDevice::kLongestSide)) return 3;
  std::fputs(ToUtf8(image.LastError()).c_str(), stdout);
  return image.Width() == 0 && image.Create(100, 100) ? 0 : 4;
});

constexpr Color kWhite = 0xFFFFFF;
constexpr Color kBlack = 0x000000;
constexpr Color kRed = 0x0000FF;
constexpr Color kGreen = 0x00FF00;
constexpr Color kBlue = 0xFF0000;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kLargest = std::numeric_limits<double>::max();

using Points = std::vector<PixelPoint>;

std::wstring Reason(int error) { return FromUtf8(std::error_code(error, std::generic_category()).message()); }

/// An image as letters, a line a row: those of the colours by name, '.' for white, '+' for others.
std::string Picture(const ImageDevice& image) {
  std::string picture;
  for (int y = 0; y < image.Height(); ++y) {
    for (int x = 0; x < image.Width(); ++x) {
      const Color color = image.GetPixel(x, y);
      const char* letter = "+";
      if (color == kWhite) letter = ".";
      if (color == kBlack) letter = "#";
      if (color == kRed) letter = "r";
      if (color == kGreen) letter = "g";
      if (color == kBlue) letter = "b";
      picture += letter;
    }
    picture += '\n';
  }
  return picture;
}

/// Where something other than white is; empty where nothing is.
PixelRect Inked(const ImageDevice& image) {
  PixelRect box{INT_MAX, INT_MAX, INT_MIN, INT_MIN};
  for (int y = 0; y < image.Height(); ++y) {
    for (int x = 0; x < image.Width(); ++x) {
      if (image.GetPixel(x, y) == kWhite) continue;
      box = {std::min(box.left, x), std::min(box.top, y), std::max(box.right, x + 1), std::max(box.bottom, y + 1)};
    }
  }
  return box.left == INT_MAX ? PixelRect{} : box;
}

/// Whether `inner` lies in `outer`, give or take pixels: glyphs may reach a little beyond the box of their text.
testing::AssertionResult Lies(const PixelRect& inner, const PixelRect& outer, int tolerance = 1) {
  if (inner.left >= outer.left - tolerance && inner.top >= outer.top - tolerance &&
      inner.right <= outer.right + tolerance && inner.bottom <= outer.bottom + tolerance) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << inner.left << ' ' << inner.top << ' ' << inner.right << ' ' << inner.bottom
                                     << " in " << outer.left << ' ' << outer.top << ' ' << outer.right << ' '
                                     << outer.bottom;
}

TEST(ImageDevice, BeginsInItsBackgroundColour) {
  ImageDevice image;
  EXPECT_EQ(image.Width(), 0);
  EXPECT_EQ(image.GetPixel(0, 0), kWhite);
  ASSERT_TRUE(image.Create(3, 2, 300.0, 0x123456));
  EXPECT_EQ(image.Width(), 3);
  EXPECT_EQ(image.Height(), 2);
  EXPECT_EQ(image.GetPixel(0, 0), 0x123456U);
  EXPECT_EQ(image.GetPixel(2, 1), 0x123456U);
  EXPECT_EQ(image.GetBkColor(), kWhite);
  EXPECT_EQ(image.GetDeviceCaps(90), 300);
  EXPECT_EQ(image.GetDeviceCaps(88), 300);
  EXPECT_EQ(image.GetDeviceCaps(12), 0);
}

TEST(ImageDevice, GivesAllColoursOfAFillBack) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(256, 3));
  for (int v = 0; v < 256; ++v) {
    for (int band = 0; band < 3; ++band) {
      image.FillSolidRect({v, band, v + 1, band + 1}, static_cast<Color>(v) << (8 * band));
    }
  }
  for (int v = 0; v < 256; ++v) {
    for (int band = 0; band < 3; ++band) ASSERT_EQ(image.GetPixel(v, band), static_cast<Color>(v) << (8 * band));
  }
}

TEST(ImageDevice, FillsThePixelsOfARectangleAndNoOther) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(6, 4));
  image.FillSolidRect({1, 1, 3, 3}, kRed);
  image.FillSolidRect({3, 1, 3, 3}, kBlack);
  image.FillSolidRect({5, 3, 4, 2}, kBlack);
  image.FillSolidRect({4, -5, 90, 1}, kGreen);
  image.FillSolidRect({INT_MIN, 3, INT_MAX, INT_MAX}, kBlue);
  image.FillSolidRect({INT_MIN, INT_MIN, 0, INT_MAX}, kBlack);
  image.FillSolidRect({6, 4, 10, 10}, kBlack);
  EXPECT_EQ(Picture(image),
            "....gg\n"
            ".rr...\n"
            ".rr...\n"
            "bbbbbb\n");
}

TEST(ImageDevice, AFillChangesTheBackgroundColourAndSettersGiveTheFormerOne) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(2, 2));
  EXPECT_EQ(image.GetBkColor(), kWhite);
  image.FillSolidRect({}, kRed);
  EXPECT_EQ(image.SetBkColor(kBlue), kRed);
  EXPECT_EQ(image.GetBkColor(), kBlue);
  EXPECT_EQ(image.SetTextColor(kRed), kBlack);
  EXPECT_EQ(image.SetTextColor(kGreen), kRed);
  EXPECT_EQ(image.SetTextAlign(6), 0U);
  EXPECT_EQ(image.SetTextAlign(0), 6U);
  EXPECT_EQ(image.SelectPen(CreatePen(0, 2, kRed)), CreatePen(0, 1, kBlack));
  EXPECT_EQ(image.SelectPen(Pen()), CreatePen(0, 2, kRed));
  VakFont font;
  font.height = 40;
  EXPECT_EQ(image.SelectFont(font), VakFont());
  EXPECT_EQ(image.GetFont(), font);
}

TEST(ImageDevice, LinesAlongTheAxesPaintThePixelsOfBothEndsAndWhatIsBetween) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(9, 7));
  image.SelectPen(CreatePen(0, 1, kRed));
  image.DrawLine(1.0, 0.9, 4.0, 0.9);
  image.SelectPen(CreatePen(0, 1, kBlue));
  image.DrawLine(8.2, 6.7, 8.2, 4.0);
  image.SelectPen(CreatePen(0, 1, kBlack));
  image.DrawPolyline(Points{{1, 2}, {5, 2}, {5, 5}, {1, 5}, {1, 2}});
  image.SelectPen(CreatePen(0, 1, kGreen));
  image.DrawLine(3.5, 3.5, 3.5, 3.5);
  EXPECT_EQ(Picture(image),
            ".rrrr....\n"
            ".........\n"
            ".#####...\n"
            ".#.g.#...\n"
            ".#...#..b\n"
            ".#####..b\n"
            "........b\n");
}

TEST(ImageDevice, WidePensLieRoundTheLine) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(8, 9));
  image.SelectPen(CreatePen(0, 3, kRed));
  image.DrawLine(2, 1.5, 5, 1.5);
  image.SelectPen(CreatePen(0, 2, kBlue));
  image.DrawLine(2, 6, 5, 6);
  EXPECT_EQ(Picture(image),
            ".rrrrrr.\n"
            ".rrrrrr.\n"
            ".rrrrrr.\n"
            "........\n"
            "........\n"
            ".bbbbb..\n"
            ".bbbbb..\n"
            "........\n"
            "........\n");
}

TEST(ImageDevice, DashesLeaveGapsAndNoPenDrawsNothing) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(20, 4));
  image.SelectPen(CreatePen(Pen::kDashed, 1, kRed));
  image.DrawLine(0, 0, 19, 0);
  image.SelectPen(CreatePen(Pen::kDotted, 1, kBlue));
  image.DrawLine(0, 1, 19, 1);
  image.SelectPen(CreatePen(Pen::kNone, 1, kBlack));
  image.DrawLine(0, 2, 19, 2);
  image.SelectPen(CreatePen(77, -3, kGreen));
  image.DrawLine(0, 3, 19, 3);
  const std::string picture = Picture(image);
  EXPECT_GT(std::count(picture.begin(), picture.end(), 'r'), 8);
  EXPECT_LT(std::count(picture.begin(), picture.end(), 'r'), 16);
  EXPECT_GT(std::count(picture.begin(), picture.end(), 'b'), 6);
  EXPECT_LT(std::count(picture.begin(), picture.end(), 'b'), 14);
  EXPECT_EQ(std::count(picture.begin(), picture.end(), '#'), 0);
  EXPECT_EQ(std::count(picture.begin(), picture.end(), 'g'), 20);
}

TEST(ImageDevice, SlantedLinesHaveColoursInBetweenUnlessToldOtherwise) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(20, 20));
  image.SelectPen(CreatePen(0, 1, kRed));
  image.DrawLine(2, 3, 17, 12);
  std::string picture = Picture(image);
  EXPECT_GT(std::count(picture.begin(), picture.end(), '+'), 10);
  ASSERT_TRUE(image.Create(20, 20));
  image.SetAntialiasing(false);
  image.DrawLine(2, 3, 17, 12);
  picture = Picture(image);
  EXPECT_EQ(std::count(picture.begin(), picture.end(), '+'), 0);
  EXPECT_GE(std::count(picture.begin(), picture.end(), 'r'), 15);
}

TEST(ImageDevice, WhatIsDrawnLaterCoversWhatWasDrawnBefore) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(40, 20));
  image.SelectPen(CreatePen(0, 1, kBlue));
  VakFont font;
  font.height = 18;
  font.weight = VakFont::kBold;
  image.SelectFont(font);

  image.FillSolidRect({0, 0, 40, 20}, kRed);
  image.DrawLine(0, 10, 39, 10);
  EXPECT_EQ(image.GetPixel(5, 10), kBlue);
  image.FillSolidRect({0, 0, 20, 20}, kGreen);
  EXPECT_EQ(image.GetPixel(5, 10), kGreen);
  EXPECT_EQ(image.GetPixel(25, 10), kBlue);

  image.TextOut(0, 0, L"MMMM");
  std::string picture = Picture(image);
  EXPECT_GT(std::count(picture.begin(), picture.end(), '#'), 40);
  image.FillSolidRect({0, 0, 40, 20}, kGreen);
  EXPECT_EQ(Inked(image), (PixelRect{0, 0, 40, 20}));
  picture = Picture(image);
  EXPECT_EQ(std::count(picture.begin(), picture.end(), 'g'), 800);
  image.DrawLine(0, 10, 39, 10);
  image.FillPolygon(Points{{0, 0}, {40, 0}, {40, 5}, {0, 5}}, kRed);
  EXPECT_EQ(image.GetPixel(20, 10), kBlue);
  EXPECT_EQ(image.GetPixel(20, 2), kRed);
  EXPECT_EQ(image.GetPixel(20, 7), kGreen);
}

TEST(ImageDevice, FillsWhatAPolygonEnclosesAnOddNumberOfTimes) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(7, 7));
  image.FillPolygon(Points{{0, 0}, {7, 0}, {7, 7}, {0, 7}, {0, 0}, {2, 2}, {5, 2}, {5, 5}, {2, 5}, {2, 2}}, kRed);
  EXPECT_EQ(image.GetPixel(0, 3), kRed);
  EXPECT_EQ(image.GetPixel(3, 3), kWhite);
  EXPECT_EQ(image.GetPixel(5, 6), kRed);
}

TEST(ImageDevice, NoCoordinateHarms) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(50, 30));
  image.SelectPen(CreatePen(0, 1, kRed));
  const double values[] = {0,          25,    -25,   1e5,       -1e5,     8388608.5, -8388608.5, 1e9, -1e9,
                           4294967296, 1e100, 1e300, -kLargest, kLargest, kInfinity, -kInfinity, kNan};
  for (const double a : values) {
    for (const double b : values) {
      image.DrawLine(a, b, b, a);
      image.DrawLine(a, b, 25, 15);
      image.DrawPolyline(Points{{a, a}, {b, a}, {b, b}, {a, a}});
      image.FillPolygon(Points{{a, 5}, {b, 5}, {25, a}, {b, b}}, kGreen);
    }
  }
  image.DrawPolyline({});
  image.FillPolygon({}, kRed);
  for (const int at : {INT_MIN, -100'000'000, 100'000'000, INT_MAX}) {
    image.TextOut(at, at, L"text");
    image.TextOut(at, 10, {at, at, at, at}, L"text");
  }
  image.FillSolidRect({0, 0, 50, 30}, kWhite);
  EXPECT_TRUE(Inked(image).IsEmpty());
}

TEST(ImageDevice, LinesFromFarAwayPassWhereTheyShould) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(101, 101));
  image.SelectPen(CreatePen(0, 1, kRed));
  // Beyond 2^23 pixels the drawing library's own coordinates would come back from the other side.
  for (const double far : {1e4, 1e7, 1e9, 1e12}) {
    SCOPED_TRACE(far);
    image.FillSolidRect({0, 0, 101, 101}, kWhite);
    image.DrawLine(-far, -far, far, far);
    for (int i = 5; i < 96; i += 10) {
      EXPECT_NE(image.GetPixel(i, i), kWhite);
      EXPECT_EQ(image.GetPixel(i + 3, i), kWhite);
      EXPECT_EQ(image.GetPixel(i, i + 3), kWhite);
    }
    image.FillSolidRect({0, 0, 101, 101}, kWhite);
    image.DrawPolyline(Points{{-far, 50}, {far, 50}, {far, far}, {-far, far}, {-far, 50}});
    EXPECT_EQ(Inked(image), (PixelRect{0, 50, 101, 51}));
    image.FillSolidRect({0, 0, 101, 101}, kWhite);
    image.FillPolygon(Points{{-far, 30}, {far, 30}, {far, 60}, {-far, 60}}, kRed);
    EXPECT_EQ(Inked(image), (PixelRect{0, 30, 101, 60}));
  }
}

TEST(ImageDevice, TextLiesInTheBoxThatItsExtentAndAlignmentGive) {
  const std::wstring kText = L"-12.34 Hgj";
  const struct {
    const char* name;
    unsigned align;
    double x;  // the point, as a share of the box
    double y;
  } kCases[] = {
      {"left, top", 0, 0, 0},         {"centre, top", 6, 0.5, 0},         {"right, top", 2, 1, 0},
      {"left, bottom", 8, 0, 1},      {"right, bottom", 10, 1, 1},        {"centre, bottom", 14, 0.5, 1},
      {"left, baseline", 24, 0, 0.8}, {"centre, baseline", 30, 0.5, 0.8},
  };
  ImageDevice image;
  ASSERT_TRUE(image.Create(300, 120));
  VakFont font;
  font.height = 20;
  image.SelectFont(font);
  const TextExtent extent = image.GetTextExtent(kText);
  EXPECT_GE(extent.height, 20);
  EXPECT_LE(extent.height, 30);
  EXPECT_GT(extent.width, 70);
  EXPECT_LT(extent.width, 140);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    image.FillSolidRect({0, 0, 300, 120}, kWhite);
    image.SetTextAlign(c.align);
    image.TextOut(150, 60, kText);
    const PixelRect ink = Inked(image);
    ASSERT_FALSE(ink.IsEmpty());
    const int left = 150 - static_cast<int>(std::lround(c.x * extent.width));
    const int top = 60 - static_cast<int>(std::lround(c.y * extent.height));
    EXPECT_TRUE(Lies(ink, {left, top, left + extent.width, top + extent.height}, 3));
    // And it fills that box rather than a corner of it.
    EXPECT_GT(ink.right - ink.left, extent.width - 8);
    EXPECT_GT(ink.bottom - ink.top, extent.height / 2);
    if ((c.align & 24) == 24) {
      EXPECT_GT(ink.bottom, 60);  // g and j hang below the line
    }
  }
}

TEST(ImageDevice, ExtentsGrowWithTextAndFontAndNotWithTheTurn) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(10, 10));
  const TextExtent one = image.GetTextExtent(L"1");
  EXPECT_EQ(image.GetTextExtent(L"").width, 0);
  EXPECT_EQ(image.GetTextExtent(L"").height, one.height);
  EXPECT_GT(image.GetTextExtent(L"11").width, one.width);
  // Digits are as wide as each other, so that numbers below each other stand in columns.
  EXPECT_EQ(image.GetTextExtent(L"1111"), image.GetTextExtent(L"8888"));
  VakFont font;
  font.escapement = 450;
  image.SelectFont(font);
  EXPECT_EQ(image.GetTextExtent(L"1"), one);
  font.height = 48;
  image.SelectFont(font);
  EXPECT_GT(image.GetTextExtent(L"1").width, 3 * one.width);
  EXPECT_GT(image.GetTextExtent(L"1").height, 3 * one.height);
  const TextExtent plain = image.GetTextExtent(L"mmmm");
  font.weight = VakFont::kBold;
  image.SelectFont(font);
  EXPECT_GT(image.GetTextExtent(L"mmmm").width, plain.width);
}

TEST(ImageDevice, AMissingFontIsReplacedByTheDefaultOne) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(10, 10));
  const TextExtent plain = image.GetTextExtent(L"Depth 12.5");
  for (const wchar_t* name : {L"No Such Font Anywhere", L"", L",", L"\xDC80\x1", L"DejaVu Sans"}) {
    VakFont font;
    font.name = name;
    image.SelectFont(font);
    EXPECT_EQ(image.GetTextExtent(L"Depth 12.5"), plain);
  }
}

TEST(ImageDevice, TextTurnsAnticlockwiseAboutItsPoint) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(200, 200));
  VakFont font;
  font.height = 16;
  const struct {
    int escapement;
    PixelRect quarter;  // what the text, left and at its baseline, has to be in
  } kCases[] = {
      {0, {100, 80, 200, 106}},    {900, {80, 0, 106, 100}},    {1800, {0, 94, 100, 120}},
      {2700, {94, 100, 120, 200}}, {-900, {94, 100, 120, 200}}, {4500, {80, 0, 106, 100}},
  };
  image.SetTextAlign(24);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.escapement);
    image.FillSolidRect({0, 0, 200, 200}, kWhite);
    font.escapement = c.escapement;
    image.SelectFont(font);
    image.TextOut(100, 100, L"12.34 m");
    const PixelRect ink = Inked(image);
    ASSERT_FALSE(ink.IsEmpty());
    EXPECT_TRUE(Lies(ink, c.quarter));
    EXPECT_GT(std::max(ink.right - ink.left, ink.bottom - ink.top), 40);
  }
  image.FillSolidRect({0, 0, 200, 200}, kWhite);
  font.escapement = 450;
  image.SelectFont(font);
  image.TextOut(100, 100, L"12.34 m");
  const PixelRect ink = Inked(image);
  EXPECT_TRUE(Lies(ink, {90, 0, 200, 106}, 0));
  EXPECT_LT(ink.top, 70);
  EXPECT_GT(ink.right, 130);
}

TEST(ImageDevice, ClippedTextStaysInItsRectangle) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(100, 40));
  image.TextOut(5, 5, {10, 8, 30, 14}, L"MMMMMMMMM");
  const PixelRect ink = Inked(image);
  EXPECT_FALSE(ink.IsEmpty());
  EXPECT_TRUE(Lies(ink, {10, 8, 30, 14}, 0));
  image.FillSolidRect({0, 0, 100, 40}, kWhite);
  image.TextOut(5, 5, {60, 30, 60, 40}, L"MMMMMMMMM");
  EXPECT_TRUE(Inked(image).IsEmpty());
  // What was clipped once isn't clipped for ever.
  image.TextOut(5, 5, L"MMMMMMMMM");
  EXPECT_GT(Inked(image).right, 60);
}

TEST(ImageDevice, AnyTextIsPrinted) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(200, 30));
  const std::wstring kTexts[] = {
      L"\n\t\x1",
      std::wstring(1, L'\0') + L"x",
      {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0xDC80), static_cast<wchar_t>(0x110000)},
      L"\x4E2D\x6587 \x05D0\x05D1",
      L"Tiefe \x00F6\x00DF\x2212",
  };
  testing::internal::CaptureStderr();
  for (const std::wstring& text : kTexts) {
    image.FillSolidRect({0, 0, 200, 30}, kWhite);
    image.TextOut(20, 5, text);
    EXPECT_FALSE(Inked(image).IsEmpty());
    EXPECT_GT(image.GetTextExtent(text).width, 0);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  image.FillSolidRect({0, 0, 200, 30}, kWhite);
  image.TextOut(20, 5, L"");
  EXPECT_TRUE(Inked(image).IsEmpty());
}

TEST(ImageDevice, AnImageOnAnImageTakesWhatLiesUnderTheMiddles) {
  ImageDevice small;
  ASSERT_TRUE(small.Create(2, 2));
  small.FillSolidRect({0, 0, 1, 1}, kRed);
  small.FillSolidRect({1, 1, 2, 2}, kBlue);
  ImageDevice image;
  ASSERT_TRUE(image.Create(8, 6));
  image.DrawImage({1, 1, 7, 5}, small);
  EXPECT_EQ(Picture(image),
            "........\n"
            ".rrr....\n"
            ".rrr....\n"
            "....bbb.\n"
            "....bbb.\n"
            "........\n");
  ImageDevice less;
  ASSERT_TRUE(less.Create(4, 3));
  less.DrawImage({0, 0, 4, 3}, image);
  EXPECT_EQ(Picture(less),
            "rr..\n"
            "..b.\n"
            "....\n");
  less.DrawImage({-4, -3, 4, 3}, less);
  EXPECT_EQ(Picture(less),
            "bb..\n"
            "....\n"
            "....\n");
  less.DrawImage({INT_MIN, INT_MIN, INT_MAX, INT_MAX}, image);
  less.DrawImage({2, 2, 2, 2}, image);
  less.DrawImage({0, 0, 4, 3}, ImageDevice());
  ImageDevice().DrawImage({0, 0, 4, 3}, less);
}

TEST(ImageDevice, WhatIsDrawnOnALentPartAppearsOnTheWhole) {
  ImageDevice whole;
  ASSERT_TRUE(whole.Create(8, 5, 300.0));
  whole.FillSolidRect({0, 0, 3, 5}, kRed);
  {
    ImageDevice part;
    ASSERT_TRUE(whole.LendPixels({2, 1, 6, 4}, part));
    EXPECT_EQ(Picture(part),
              "r...\n"
              "r...\n"
              "r...\n");
    EXPECT_EQ(part.DotsPerInch(), 300.0);
    part.FillSolidRect({-9, 1, 3, 9}, kBlue);
    part.FillPolygon(std::array<PixelPoint, 4>{{{3, -9}, {9, -9}, {9, 1}, {3, 1}}}, kBlue);
  }
  EXPECT_EQ(Picture(whole),
            "rrr.....\n"
            "rrr..b..\n"
            "rrbbb...\n"
            "rrbbb...\n"
            "rrr.....\n");
  whole.FillPolygon(std::array<PixelPoint, 4>{{{7, 0}, {8, 0}, {8, 5}, {7, 5}}}, kRed);
  EXPECT_EQ(whole.GetPixel(2, 2), kBlue);
  EXPECT_EQ(whole.GetPixel(7, 2), kRed);
}

TEST(ImageDevice, LendsOnlyWhatIsOnIt) {
  ImageDevice whole;
  ASSERT_TRUE(whole.Create(8, 5));
  ImageDevice part;
  ASSERT_TRUE(part.Create(3, 3));
  for (const PixelRect& rect : {PixelRect{-1, 0, 4, 4}, PixelRect{0, 0, 9, 4}, PixelRect{0, -1, 4, 4},
                                PixelRect{0, 0, 4, 6}, PixelRect{3, 3, 3, 4}, PixelRect{4, 4, 3, 3}}) {
    EXPECT_FALSE(whole.LendPixels(rect, part))
        << rect.left << ' ' << rect.top << ' ' << rect.right << ' ' << rect.bottom;
  }
  EXPECT_FALSE(whole.LendPixels({0, 0, 8, 5}, whole));
  EXPECT_FALSE(ImageDevice().LendPixels({0, 0, 1, 1}, part));
  EXPECT_EQ(part.Width(), 3) << "it is as it was";
  EXPECT_EQ(whole.Width(), 8);
  EXPECT_TRUE(whole.LendPixels({0, 0, 8, 5}, part));
}

TEST(ImageDevice, SavesAPngThatOthersRead) {
  const test::TestFolder folder;
  ImageDevice image;
  ASSERT_TRUE(image.Create(256, 4, 300.0, 0x102030));
  for (int v = 0; v < 256; ++v) {
    image.FillSolidRect({v, 0, v + 1, 1}, static_cast<Color>(v));
    image.FillSolidRect({v, 1, v + 1, 2}, static_cast<Color>(v) << 8);
    image.FillSolidRect({v, 2, v + 1, 3}, static_cast<Color>(v) << 16);
  }
  const PictureNote notes[] = {{"Title",
                                L"Gr\x00FC\x00DF"
                                L"e"},
                               {"Software", L"vakdtm"}};
  ASSERT_TRUE(image.SavePng(folder.WideFile("a.png"), notes)) << ToUtf8(image.LastError());
  EXPECT_EQ(image.LastError(), L"");
  // Once through GDAL, and once chunk by chunk, with the check sums made by another library.
  const test::CommandResult result = test::RunGdal(
      "import zlib, struct\n"
      "data = gdal.Open(sys.argv[1])\n"
      "a = data.ReadAsArray()\n"
      "assert a.shape == (3, 4, 256), a.shape\n"
      "for band in range(3):\n"
      "    for row in range(3):\n"
      "        for v in range(256):\n"
      "            assert a[band][row][v] == (v if band == row else 0)\n"
      "assert [a[b][3][7] for b in range(3)] == [0x30, 0x20, 0x10]\n"
      "raw = open(sys.argv[1], 'rb').read()\n"
      "assert raw[:8] == b'\\x89PNG\\r\\n\\x1a\\n'\n"
      "at, chunks = 8, []\n"
      "while at < len(raw):\n"
      "    n, kind = struct.unpack('>I4s', raw[at:at + 8])\n"
      "    body = raw[at + 8:at + 8 + n]\n"
      "    assert zlib.crc32(kind + body) == struct.unpack('>I', raw[at + 8 + n:at + 12 + n])[0], kind\n"
      "    chunks.append((kind, body))\n"
      "    at += 12 + n\n"
      "assert [k for k, b in chunks[:4]] == [b'IHDR', b'pHYs', b'iTXt', b'iTXt'], chunks\n"
      "assert chunks[-1] == (b'IEND', b'')\n"
      "assert chunks[1][1] == struct.pack('>IIB', 11811, 11811, 1)\n"
      "assert chunks[2][1] == b'Title\\0\\0\\0\\0\\0' + 'Gr\\u00fc\\u00dfe'.encode(), chunks[2]\n"
      "assert chunks[3][1] == b'Software\\0\\0\\0\\0\\0vakdtm'\n"
      "print('well')\n",
      folder.File("a.png"));
  EXPECT_EQ(result.out, "well\n") << result.err;
  // Drawing goes on after saving.
  image.FillSolidRect({0, 0, 1, 1}, kGreen);
  EXPECT_EQ(image.GetPixel(0, 0), kGreen);
}

TEST(ImageDevice, TheSameDrawingGivesTheSameBytes) {
  const test::TestFolder folder;
  for (const char* name : {"a.png", "b.png"}) {
    ImageDevice image;
    ASSERT_TRUE(image.Create(200, 100));
    image.FillSolidRect({10, 10, 50, 50}, kRed);
    image.DrawLine(3, 4, 99, 77);
    image.TextOut(20, 60, L"-12.34 m");
    ASSERT_TRUE(image.SavePng(folder.WideFile(name)));
  }
  EXPECT_EQ(folder.Content("a.png"), folder.Content("b.png"));
}

TEST(ImageDevice, TellsWhyItCannotBeMade) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(5, 5));
  EXPECT_FALSE(image.Create(32'768, 1));
  EXPECT_EQ(image.LastError(), L"a picture of 32768 x 1 pixels is too large: a side has 32767 at most");
  EXPECT_EQ(image.Width(), 0);
  EXPECT_FALSE(image.Create(1, INT_MAX));
  EXPECT_FALSE(image.Create(0, 5));
  EXPECT_EQ(image.LastError(), L"a picture of 0 x 5 pixels has nothing in it");
  EXPECT_FALSE(image.Create(5, -5));
  for (const double dots : {0.0, -96.0, 1e9, kNan, kInfinity}) {
    EXPECT_FALSE(image.Create(5, 5, dots));
    EXPECT_EQ(image.LastError(), L"dots per inch are between 1 and 100000");
  }
  EXPECT_TRUE(image.Create(32'767, 1));
  EXPECT_EQ(image.LastError(), L"");
  image.FillSolidRect({32'766, 0, 32'767, 1}, kRed);
  EXPECT_EQ(image.GetPixel(32'766, 0), kRed);
  EXPECT_EQ(image.GetPixel(32'765, 0), kWhite);
}

// Under a sanitizer, which takes address space in terabytes, there is no limit to be set.
#ifndef VAKDTM_SANITIZED
TEST(ImageDevice, TellsThatMemoryDoesNotSuffice) {
  const test::CommandResult result = test::RunCommand(kWithoutMemory.Line({})).Wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "no picture of 32767 x 32767 pixels: out of memory");
}
#endif

TEST(ImageDevice, TellsThatATextHasNoFont) {
  const test::TestFolder folder;
  const std::string fonts = folder.Write("fonts.conf",
                                         "<?xml version=\"1.0\"?><!DOCTYPE fontconfig SYSTEM \"fonts.dtd\"><fontconfig>"
                                         "<cachedir>" +
                                             folder.File("cache") + "</cachedir></fontconfig>");
  const test::CommandResult result = test::RunCommand(kWithoutFonts.Line({fonts, folder.File("a.png")})).Wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "no font is installed (the package fonts-dejavu-core has one)");
  EXPECT_EQ(result.err, "");
}

TEST(ImageDevice, StoppedItSavesNoMore) {
  const test::TestFolder folder;
  ImageDevice image;
  ASSERT_TRUE(image.Create(300, 300));
  for (int i = 0; i < 90'000; ++i)
    image.FillSolidRect({i % 300, i / 300, i % 300 + 1, i / 300 + 1}, static_cast<Color>(i) * 0x9E3779B1U);
  std::atomic<bool> running = true;
  ASSERT_TRUE(image.SavePng(folder.WideFile("a.png"), {}, &running));
  EXPECT_GT(folder.Content("a.png").size(), 10'000U);
  running = false;
  EXPECT_FALSE(image.SavePng(folder.WideFile("a.png"), {}, &running));
  EXPECT_FALSE(image.LastError().empty());
  EXPECT_EQ(folder.Content("a.png").size(), 0U);
  EXPECT_TRUE(image.SavePng(folder.WideFile("a.png"))) << "the image is as it was";
}

TEST(ImageDevice, WithoutAnImageNothingHappens) {
  const test::TestFolder folder;
  ImageDevice image;
  image.FillSolidRect({0, 0, 5, 5}, kRed);
  image.DrawLine(0, 0, 5, 5);
  image.FillPolygon(Points{{0, 0}, {5, 0}, {5, 5}}, kRed);
  image.TextOut(0, 0, L"text");
  image.SetAntialiasing(false);
  EXPECT_EQ(image.GetTextExtent(L"text"), TextExtent());
  EXPECT_EQ(image.GetDeviceCaps(90), 0);
  EXPECT_FALSE(image.SavePng(folder.WideFile("a.png")));
  EXPECT_EQ(image.LastError(), L"there is no image");
  EXPECT_FALSE(folder.Has("a.png"));
}

TEST(ImageDevice, TellsWhyItCannotBeSaved) {
  const test::TestFolder folder;
  ImageDevice image;
  ASSERT_TRUE(image.Create(300, 300));
  const std::wstring path = folder.WideFile("none/a.png");
  EXPECT_FALSE(image.SavePng(path));
  EXPECT_EQ(image.LastError(), path + L": " + Reason(ENOENT));
  EXPECT_FALSE(image.SavePng(folder.WideFile("")));
  // The header alone is small enough to wait for the closing of the file; much more isn't.
  EXPECT_FALSE(image.SavePng(L"/dev/full"));
  EXPECT_EQ(image.LastError(), L"/dev/full: " + Reason(ENOSPC));
  std::uint32_t noise = 1;
  for (int y = 0; y < 300; ++y) {
    for (int x = 0; x < 300; ++x) {
      noise = noise * 1'664'525U + 1'013'904'223U;
      image.FillSolidRect({x, y, x + 1, y + 1}, noise >> 8);
    }
  }
  EXPECT_FALSE(image.SavePng(L"/dev/full"));
  EXPECT_EQ(image.LastError(), L"/dev/full: " + Reason(ENOSPC));
  EXPECT_TRUE(image.SavePng(folder.WideFile("a.png")));
  EXPECT_EQ(image.LastError(), L"");
}

TEST(ImageDevice, RefusesANoteWithAKeyThatIsNone) {
  const test::TestFolder folder;
  ImageDevice image;
  ASSERT_TRUE(image.Create(3, 3));
  for (const std::string& key : {std::string(), std::string(" a"), std::string("a "), std::string("a  b"),
                                 std::string(80, 'a'), std::string("\xC3\xBC"), std::string("a\nb")}) {
    const PictureNote note{key, L"text"};
    EXPECT_FALSE(image.SavePng(folder.WideFile("a.png"), {&note, 1})) << key;
    EXPECT_FALSE(folder.Has("a.png"));
  }
  const PictureNote note{std::string(79, 'a'), std::wstring(1, L'\0')};
  EXPECT_TRUE(image.SavePng(folder.WideFile("a.png"), {&note, 1}));
}

TEST(PngChunks, ChecksAsTheStandardDoes) {
  EXPECT_EQ(PngCheck("123456789"), 0xCBF43926U);
  EXPECT_EQ(PngCheck("IEND"), 0xAE426082U);
}

}  // namespace
}  // namespace vak
