#include <cmath>
#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "vakdtm/services/color/ColorNames.h"
#include "vakdtm/services/color/ColorTable.h"

namespace vak {
namespace {

constexpr Color Rgb(Color red, Color green, Color blue) { return red | green << 8 | blue << 16; }

ColorTable Read(const std::string& text) {
  ColorTable table;
  EXPECT_TRUE(table.ReadCpt(text)) << text << testing::PrintToString(table.LastError());
  return table;
}

std::wstring ErrorOf(const std::string& text) {
  ColorTable table;
  EXPECT_TRUE(table.SetRange(0, 1, 2, true, false));
  const ColorTable before = table;
  EXPECT_FALSE(table.ReadCpt(text)) << text;
  EXPECT_EQ(table, before);
  return table.LastError();
}

TEST(CptReader, SlicesWithColoursAtBothEnds) {
  const ColorTable table = Read(
      "# a palette\n"
      "-10\t0/0/255\t0\t255/255/255\tL\t;under water\r\n"
      "\n"
      "   0  black  5  200  U ; land\n"
      "5 #336699 1e1 - B\n"
      "B\tnavy\nF 1/2/3\nN\t#808080\n");
  ASSERT_EQ(table.Classes().size(), 3u);
  EXPECT_EQ(table.End(), 10.0);
  EXPECT_EQ(table.GetColor(-10), Rgb(0, 0, 255));
  EXPECT_EQ(table.GetColor(-5), Rgb(128, 128, 255));
  EXPECT_EQ(table.GetColor(0), Rgb(0, 0, 0));
  EXPECT_EQ(table.GetColor(2.5), Rgb(100, 100, 100));
  EXPECT_EQ(table.GetColor(9), Rgb(0x33, 0x66, 0x99));
  EXPECT_EQ(table.GetColor(-11), Rgb(0, 0, 128));
  EXPECT_EQ(table.GetColor(11), Rgb(1, 2, 3));
  EXPECT_EQ(table.GetColor(std::nan("")), Rgb(128, 128, 128));
  EXPECT_EQ(table.GetName(-1), L"under water");
  EXPECT_EQ(table.GetName(1), L"land");
  EXPECT_EQ(table.GetName(6), L"");
}

TEST(CptReader, CategoriesByTheirKeysInAnyOrder) {
  const ColorTable table = Read("3\tred\tL\t;Rock\n-1.5\t0/255/0\n2\tblue\t;Sand; coarse\n");
  ASSERT_EQ(table.Classes().size(), 3u);
  EXPECT_EQ(table.End(), std::nullopt);
  EXPECT_EQ(table.GetColor(-1.5), Rgb(0, 255, 0));
  EXPECT_EQ(table.GetName(2), L"Sand; coarse");
  EXPECT_EQ(table.GetName(2.9), L"Sand; coarse");
  EXPECT_EQ(table.GetName(3), L"Rock");
}

TEST(CptReader, EveryWayToWriteAColour) {
  const struct {
    const char* text;
    Color color;
  } kCases[] = {
      {"0", Rgb(0, 0, 0)},
      {"+127.6", Rgb(128, 128, 128)},
      {"255/128/0", Rgb(255, 128, 0)},
      {"12.4/12.6/0.5", Rgb(12, 13, 1)},
      {"#FF8000", Rgb(255, 128, 0)},
      {"#ff8000@25", Rgb(255, 128, 0)},
      {"red@50", Rgb(255, 0, 0)},
      {"240-1-1", Rgb(0, 0, 255)},
      {"360-1-0.5", Rgb(128, 0, 0)},
      {"60-5e-1-1", Rgb(255, 255, 128)},
      {"0-0-0.50196", Rgb(128, 128, 128)},
      {"0/100/100/0", Rgb(255, 0, 0)},
      {"0/0/0/100", Rgb(0, 0, 0)},
      {"50/0/0/50", Rgb(64, 128, 128)},
      {"SteelBlue2", Rgb(92, 172, 238)},
      {"grey50", Rgb(127, 127, 127)},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Read(std::string("0 ") + c.text).GetColor(0), c.color);
  }
}

TEST(CptReader, OldFormHasThreeColumnsAColour) {
  const ColorTable table = Read("0 255 0 0 1 0 255 0\n1 0 255 0 2 0 0 255 L\nB 1 2 3\n");
  EXPECT_EQ(table.GetColor(0), Rgb(255, 0, 0));
  EXPECT_EQ(table.GetColor(2), Rgb(0, 0, 255));
  EXPECT_EQ(table.GetColor(-1), Rgb(1, 2, 3));
  const ColorTable hues = Read("# COLOR_MODEL = HSV\n0 0 1 1 1 120 1 1\n");
  EXPECT_EQ(hues.Classes().size(), 1u);  // told in hues, but not run through
  EXPECT_EQ(hues.GetColor(0.5), Rgb(128, 128, 0));
}

TEST(CptReader, SmallOrMarkedHsvRunsThroughTheHues) {
  for (const std::string model : {"hsv", "+HSV", "+hsv"}) {
    SCOPED_TRACE(model);
    const ColorTable table = Read("# COLOR_MODEL = " + model + "\n0 magenta 1 0-1-1\n1 red 2 red\n");
    EXPECT_EQ(table.GetColor(0), Rgb(255, 0, 255));
    EXPECT_EQ(table.GetColor(0.2), Rgb(0, 0, 255));
    EXPECT_EQ(table.GetColor(0.4), Rgb(0, 255, 255));
    EXPECT_EQ(table.GetColor(0.6), Rgb(0, 255, 0));
    EXPECT_EQ(table.GetColor(0.8), Rgb(255, 255, 0));
    EXPECT_EQ(table.GetColor(1), Rgb(255, 0, 0));
    EXPECT_EQ(table.Classes().size(), 201u);
  }
}

TEST(CptReader, StretchesToItsRangeWithTheHingeInPlace) {
  const std::string slices = "-1 0 0 100\n0 150 1 250\n";
  const ColorTable hard = Read("# HARD_HINGE\n# RANGE = -8000/2000\n" + slices);
  EXPECT_EQ(hard.GetColor(-8000), Rgb(0, 0, 0));
  EXPECT_EQ(hard.GetColor(-4000), Rgb(50, 50, 50));
  EXPECT_EQ(hard.GetColor(0), Rgb(150, 150, 150));
  EXPECT_EQ(hard.GetColor(1000), Rgb(200, 200, 200));
  EXPECT_EQ(hard.End(), 2000.0);
  const ColorTable soft = Read("# SOFT_HINGE\n# RANGE = -8000/2000\n" + slices);
  EXPECT_EQ(soft.GetColor(-3000), Rgb(150, 150, 150));
  const ColorTable placed = Read("# RANGE = -8000/2000\n# HINGE = -10\n" + slices);
  EXPECT_EQ(placed.GetColor(-10), Rgb(150, 150, 150));
  EXPECT_EQ(placed.GetColor(-10.001), Rgb(100, 100, 100));
  EXPECT_EQ(Read("#RANGE=0/50\n0 0 1 100\n").GetColor(25), Rgb(50, 50, 50));
}

TEST(CptReader, ValuesThatAreNoSharesStayWhateverTheRange) {
  const ColorTable table = Read("# HARD_HINGE\n# RANGE = -8000/2000\n-3 0 2 100\n");
  EXPECT_EQ(table.Classes().front().lower, -3.0);
  EXPECT_EQ(table.End(), 2.0);
  const struct {
    const char* slice;
    double lower, upper;
  } kCases[] = {{"0 0 2 100", 0, 2},
                {"-1 0 2 100", -1, 2},
                {"-1 0 0 100", -1, 0},
                {"0.5 0 1 100", 0.5, 1},
                {"-2 0 1 100", -2, 1}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.slice);
    const ColorTable other = Read("# RANGE = -8000/2000\n" + std::string(c.slice) + "\n");
    EXPECT_EQ(other.Classes().front().lower, c.lower);
    EXPECT_EQ(other.End(), c.upper);
  }
  EXPECT_EQ(Read("# RANGE = 0/50\n0 1\n1 2\n").Classes().back().lower, 1.0);  // categories
  EXPECT_EQ(Read("# Range changed to -1/+1\n# RANGE of no numbers\n0 0 1 9\n").End(), 1.0);
}

TEST(CptReader, BoundsThatWerePrintedShortStillMeet) {
  const ColorTable table = Read("0 1 0.333333333333 2\n0.33333333333333 2 1 3\n");
  EXPECT_EQ(table.Classes()[1].lower, 0.333333333333);
}

TEST(CptReader, WhatIsNoPaletteIsRefusedWithItsLine) {
  const struct {
    const char* text;
    std::wstring error;
  } kCases[] = {
      {"", L"it has no classes"},
      {"# nothing\n\nN 5\n", L"it has no classes"},
      {"0 red 1 blue\n2 red 3 blue\n", L"line 2: it doesn't begin where the one before ends"},
      {"0 red 1 blue\n0.5 red 3 blue\n", L"line 2: it doesn't begin where the one before ends"},
      {"0 red 1 blue\n1.5 red 1e9 blue\n", L"line 2: it doesn't begin where the one before ends"},
      {"0 red 1 blue\n0.5 red 1e9 blue\n", L"line 2: it doesn't begin where the one before ends"},
      {"0 red 1 blue\n-1.7e308 red 1.7e308 blue\n", L"line 2: it doesn't begin where the one before ends"},
      {"\n1 red 0 blue\n", L"line 2: the values don't rise"},
      {"1 red 1 blue\n", L"line 1: the values don't rise"},
      {"1 red\n2 blue\n1 green\n", L"a key is there twice"},
      {"1 red\n2 blue 3 green\n", L"line 2: categories and ranges of values don't go together"},
      {"1\n", L"line 1: 2, 4 or 8 columns wanted, 1 found"},
      {"1 2 3\n", L"line 1: 2, 4 or 8 columns wanted, 3 found"},
      {"B\n", L"line 1: 2, 4 or 8 columns wanted, 1 found"},
      {"; name\n", L"line 1: a name without a class before it"},
      {"x red\n", L"line 1: no number: \"x\""},
      {"nan red\n", L"line 1: no number: \"nan\""},
      {"1e999 red\n", L"line 1: no number: \"1e999\""},
      {"0 red inf blue\n", L"line 1: no number: \"inf\""},
      {"0 reddish\n", L"line 1: no colour: \"reddish\""},
      {"0 256\n", L"line 1: no colour: \"256\""},
      {"0 -1\n", L"line 1: no colour: \"-1\""},
      {"0 1/2\n", L"line 1: no colour: \"1/2\""},
      {"0 1/2/3/4/5\n", L"line 1: no colour: \"1/2/3/4/5\""},
      {"0 1/2/\n", L"line 1: no colour: \"1/2/\""},
      {"0 1/2/nan\n", L"line 1: no colour: \"1/2/nan\""},
      {"0 0/0/0/101\n", L"line 1: no colour: \"0/0/0/101\""},
      {"0 361-1-1\n", L"line 1: no colour: \"361-1-1\""},
      {"0 #12345\n", L"line 1: no colour: \"#12345\""},
      {"0 #12345g\n", L"line 1: no colour: \"#12345g\""},
      {"0 #1234567\n", L"line 1: no colour: \"#1234567\""},
      {"0 - 1 -\n", L"line 1: no colour: \"-\""},
      {"0 1 2 3 4 5 6 x\n", L"line 1: no colour: \"5\""},
      {"F nowhere\n0 1\n", L"line 1: no colour: \"nowhere\""},
      {"# RANGE = 5/5\n0 1\n", L"line 1: the range doesn't rise"},
      {"# RANGE = a/b\n0 1\n", L"line 1: no number: \"a/b\""},
      {"# HINGE = deep\n0 1\n", L"line 1: no number: \"deep\""},
      {"# RANGE = 1e300/1.0000000000000001e300\n0 1 0.5 2\n0.5 1 1 2\n", L"line 1: the range doesn't rise"},
      {"# RANGE = 1/1.0000000000000002\n0 1 0.2 2\n0.2 1 1 2\n", L"the values don't rise"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ErrorOf(c.text), c.error);
  }
}

TEST(CptReader, LongWordsAreCutInMessages) {
  EXPECT_EQ(ErrorOf("0 " + std::string(100'000, 'x')), L"line 1: no colour: \"" + std::wstring(40, L'x') + L"...\"");
}

TEST(CptReader, NumberOfClassesIsBounded) {
  std::string text;
  for (std::size_t i = 0; i < ColorTable::kMostClasses; ++i) text += std::to_string(i) + " 7\n";
  EXPECT_EQ(Read(text).Classes().size(), ColorTable::kMostClasses);
  EXPECT_EQ(ErrorOf(text + "70000 7\n"), L"line 65537: more than 65536 classes");
  std::string hues = "# COLOR_MODEL = hsv\n";
  for (int i = 0; i < 1000; ++i) hues += std::to_string(i) + " 0-1-1 " + std::to_string(i + 1) + " 360-1-1\n";
  EXPECT_EQ(ErrorOf(hues), L"it has more than 65536 classes");
}

TEST(ColorNames, NamesOfThePalettes) {
  EXPECT_EQ(FindColorName("white"), Rgb(255, 255, 255));
  EXPECT_EQ(FindColorName("AliceBlue"), Rgb(240, 248, 255));
  EXPECT_EQ(FindColorName("yellowgreen"), Rgb(154, 205, 50));
  EXPECT_EQ(FindColorName("gray"), Rgb(190, 190, 190));
  EXPECT_EQ(FindColorName("DarkSlateGrey"), FindColorName("darkslategray"));
  EXPECT_EQ(FindColorName("gray0"), Rgb(0, 0, 0));
  EXPECT_EQ(FindColorName("grey100"), Rgb(255, 255, 255));
  for (const char* const none : {"", "gray101", "gray-1", "reddish", "zzz", "a"}) {
    EXPECT_EQ(FindColorName(none), std::nullopt) << none;
  }
}

}  // namespace
}  // namespace vak
