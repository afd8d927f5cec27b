#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/files/SmartFileImpl.h"

#include "support/LongForm.h"
#include "support/RandomSeed.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

constexpr Color kBlack = 0;
constexpr Color kWhite = 0xFFFFFF;
constexpr Color kRed = 0x0000FF;
constexpr Color kGreen = 0x00FF00;
constexpr Color kBlue = 0xFF0000;
constexpr Color kYellow = 0x00FFFF;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

ColorTable TableOf(std::vector<ColorClass> classes, std::optional<double> end) {
  ColorTable table;
  EXPECT_TRUE(table.SetClasses(std::move(classes), end));
  return table;
}

ColorTable Bottoms() {
  return TableOf({{-1, kBlue, kBlue, L"Rock"}, {2.5, kGreen, kGreen, L"Sand"}, {8, kRed, kRed, L"Clay"}}, {});
}

TEST(ColorTable, EmptyOneIsBlackAndNameless) {
  const ColorTable table;
  EXPECT_EQ(table.GetColor(1), kBlack);
  EXPECT_EQ(table.GetColor(std::nan("")), kBlack);
  EXPECT_EQ(table.GetName(1), L"");
}

TEST(ColorTable, ValueBelongsToTheHighestClassThatBeginsNotAboveIt) {
  const ColorTable table = Bottoms();
  const struct {
    const char* name;
    double value;
    Color color;
    std::wstring text;
  } kCases[] = {
      {"below all", std::nextafter(-1, -2), kBlue, L""},
      {"far below all", -kInfinity, kBlue, L""},
      {"first bound", -1, kBlue, L"Rock"},
      {"just below a bound", std::nextafter(2.5, 0), kBlue, L"Rock"},
      {"on a bound", 2.5, kGreen, L"Sand"},
      {"last class", 8, kRed, L"Clay"},
      {"without an end", 1e300, kRed, L"Clay"},
      {"without any end", kInfinity, kRed, L"Clay"},
      {"no number", std::nan(""), kBlack, L""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(table.GetColor(c.value), c.color);
    EXPECT_EQ(table.GetName(c.value), c.text);
  }
}

TEST(ColorTable, UpperEndBelongsToTheLastClass) {
  const ColorTable table = TableOf({{0, kBlue, kBlue, L"low"}, {1, kRed, kRed, L"high"}}, 2);
  EXPECT_EQ(table.GetName(2), L"high");
  EXPECT_EQ(table.GetName(std::nextafter(2, 3)), L"");
  EXPECT_EQ(table.GetColor(std::nextafter(2, 3)), kRed);
}

TEST(ColorTable, ColoursOutsideTheClassesAreThoseSetForThere) {
  ColorTable table = TableOf({{0, kBlue, kBlue, L""}}, 1);
  table.SetBelowColor(kWhite);
  table.SetAboveColor(kYellow);
  table.SetNoValueColor(kGreen);
  EXPECT_EQ(table.GetColor(-0.1), kWhite);
  EXPECT_EQ(table.GetColor(0), kBlue);
  EXPECT_EQ(table.GetColor(1), kBlue);
  EXPECT_EQ(table.GetColor(1.1), kYellow);
  EXPECT_EQ(table.GetColor(std::nan("")), kGreen);
}

TEST(ColorTable, ColourRunsThroughAClassThatHasTwo) {
  const ColorTable table = TableOf({{0, kBlack, kWhite, L""}, {10, kRed, kBlue, L""}}, 20);
  EXPECT_EQ(table.GetColor(0), kBlack);
  EXPECT_EQ(table.GetColor(4), 0x666666U);
  EXPECT_EQ(table.GetColor(std::nextafter(10, 0)), kWhite);
  EXPECT_EQ(table.GetColor(10), kRed);
  EXPECT_EQ(table.GetColor(15), 0x800080U);
  EXPECT_EQ(table.GetColor(20), kBlue);
  EXPECT_EQ(table.GetColor(21), kBlue);
  // Over all doubles, too.
  const double most = std::numeric_limits<double>::max();
  EXPECT_EQ(TableOf({{-most, kBlack, kWhite, L""}}, most).GetColor(0), 0x808080U);
  // And between two that are next to each other.
  const double least = std::numeric_limits<double>::denorm_min();
  EXPECT_EQ(TableOf({{0, kRed, kBlue, L""}}, least).GetColor(0), kRed);
  EXPECT_EQ(TableOf({{0, kRed, kBlue, L""}}, least).GetColor(least), kBlue);
}

TEST(ColorTable, ClassesThatAreNoneAreRefused) {
  ColorTable table = Bottoms();
  const struct {
    const char* name;
    std::vector<ColorClass> classes;
    std::optional<double> end;
  } kCases[] = {
      {"falling", {{1, 0, 0, L""}, {0, 0, 0, L""}}, {}},
      {"twice", {{1, 0, 0, L""}, {1, 0, 0, L""}}, {}},
      {"not a number", {{std::nan(""), 0, 0, L""}}, {}},
      {"without bound", {{-kInfinity, 0, 0, L""}}, {}},
      {"end below", {{1, 0, 0, L""}}, 0.5},
      {"end that is no number", {{1, 0, 0, L""}}, std::nan("")},
      {"end without bound", {{1, 0, 0, L""}}, kInfinity},
      {"end of nothing", {}, 1.0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(table.SetClasses(c.classes, c.end));
    EXPECT_EQ(table, Bottoms());
  }
  std::vector<ColorClass> many(ColorTable::kMostClasses + 1);
  for (std::size_t i = 0; i < many.size(); ++i) many[i].lower = static_cast<double>(i);
  EXPECT_FALSE(table.SetClasses(many, {}));
  many.pop_back();
  EXPECT_TRUE(table.SetClasses(many, {}));
}

TEST(ColorTable, OnlyThreeBytesOfAColourCount) {
  ColorTable table = TableOf({{0, 0xAB0000FF, 0xFF0000FF, L""}}, {});
  table.SetBelowColor(0xAB00FF00);
  EXPECT_EQ(table.GetColor(1), kRed);
  EXPECT_EQ(table.GetColor(-1), kGreen);
}

TEST(ColorTable, RangeRunsFromBlueOverGreenToRed) {
  ColorTable table;
  ASSERT_TRUE(table.SetRange(-50, -10, 5, true, false));
  ASSERT_EQ(table.Classes().size(), 5u);
  EXPECT_EQ(table.GetColor(-50), kBlue);
  EXPECT_EQ(table.GetColor(-40), 0xFFFF00U);  // cyan
  EXPECT_EQ(table.GetColor(-34.0001), 0xFFFF00U);
  EXPECT_EQ(table.GetColor(-30), kGreen);
  EXPECT_EQ(table.GetColor(-20), kYellow);
  EXPECT_EQ(table.GetColor(-18), kRed);
  EXPECT_EQ(table.GetColor(-10), kRed);
  EXPECT_EQ(table.GetColor(-9), kRed);
  EXPECT_EQ(table.GetColor(-51), kBlue);
  EXPECT_EQ(table.End(), -10.0);
}

TEST(ColorTable, RangeHasAsManyEqualClassesAsAsked) {
  ColorTable table;
  ASSERT_TRUE(table.SetRange(-3.4, 17.9, 256, true, false));
  ASSERT_EQ(table.Classes().size(), 256u);
  EXPECT_EQ(table.Classes().front().lower, -3.4);
  for (int i = 0; i < 256; ++i) {
    EXPECT_NEAR(table.Classes()[static_cast<std::size_t>(i)].lower, -3.4 + i * 21.3 / 256, 1e-12);
  }
}

TEST(ColorTable, GreyAndReversedRanges) {
  ColorTable table;
  ASSERT_TRUE(table.SetRange(0, 3, 3, false, false));
  EXPECT_EQ(table.GetColor(0), kBlack);
  EXPECT_EQ(table.GetColor(1.5), 0x808080U);
  EXPECT_EQ(table.GetColor(3), kWhite);
  ASSERT_TRUE(table.SetRange(0, 3, 3, false, true));
  EXPECT_EQ(table.GetColor(0), kWhite);
  EXPECT_EQ(table.GetColor(3), kBlack);
  ASSERT_TRUE(table.SetRange(0, 3, 3, true, true));
  EXPECT_EQ(table.GetColor(0), kRed);
  EXPECT_EQ(table.GetColor(1.5), kGreen);
  EXPECT_EQ(table.GetColor(3), kBlue);
}

TEST(ColorTable, FallingRangeGivesItsFirstColourToTheHigherValues) {
  ColorTable table;
  ASSERT_TRUE(table.SetRange(365.0, 1.0, 2, kBlue, kYellow));  // ages: the oldest is first
  EXPECT_EQ(table.GetColor(365), kBlue);
  EXPECT_EQ(table.GetColor(1), kYellow);
  EXPECT_EQ(table.GetColor(182.9), kYellow);
  EXPECT_EQ(table.GetColor(183.1), kBlue);
}

TEST(ColorTable, GreyTakesTheHueOfTheOtherEnd) {
  ColorTable table;
  ASSERT_TRUE(table.SetRange(0.0, 1.0, 3, kBlack, kYellow));
  double hue = 0;
  double saturation = 0;
  double lightness = 0;
  ColorTable::RGBtoHSL(table.GetColor(0.5), hue, saturation, lightness);
  EXPECT_NEAR(hue, 60, 1);
  EXPECT_NEAR(saturation, 0.5, 0.01);
  EXPECT_NEAR(lightness, 0.25, 0.01);
}

TEST(ColorTable, NarrowRangesHaveFewerClasses) {
  ColorTable table;
  ASSERT_TRUE(table.SetRange(5, 5, 256, true, false));
  ASSERT_EQ(table.Classes().size(), 1u);
  EXPECT_EQ(table.GetColor(5), kBlue);
  const double next = std::nextafter(5.0, 6);
  ASSERT_TRUE(table.SetRange(5, next, 256, true, false));
  EXPECT_LE(table.Classes().size(), 2u);
  const double most = std::numeric_limits<double>::max();
  ASSERT_TRUE(table.SetRange(-most, most, 4, true, false));
  EXPECT_EQ(table.Classes().size(), 4u);
  EXPECT_EQ(table.GetColor(most), kRed);
}

TEST(ColorTable, ThreeColoursMakeTwoHalves) {
  ColorTable table;
  ASSERT_TRUE(table.SetRangeRGB3(0, 5, 5, kBlack, 0x0000C8, 0x00F0FE));
  ASSERT_EQ(table.Classes().size(), 5u);
  EXPECT_EQ(table.GetColor(0.5), kBlack);
  EXPECT_EQ(table.GetColor(1.5), 0x000064U);
  EXPECT_EQ(table.GetColor(2.5), 0x0000C8U);
  EXPECT_EQ(table.GetColor(3.5), 0x0078E3U);
  EXPECT_EQ(table.GetColor(4.5), 0x00F0FEU);
  EXPECT_EQ(table.End(), 5.0);
  ASSERT_TRUE(table.SetRangeRGB3(0, 1, 2, kBlue, kGreen, kRed));
  EXPECT_EQ(table.GetColor(0.2), kBlue);
  EXPECT_EQ(table.GetColor(0.8), kRed);
  ASSERT_TRUE(table.SetRangeRGB3(5, 5, 256, kBlue, kGreen, kRed));
  EXPECT_EQ(table.GetColor(5), kBlue);
}

TEST(ColorTable, FallingRangeOfThreeColoursGivesTheFirstToTheHigherValues) {
  ColorTable table;
  ASSERT_TRUE(table.SetRangeRGB3(3, 0, 3, kBlue, kGreen, kRed));
  EXPECT_EQ(table.GetColor(2.5), kBlue);
  EXPECT_EQ(table.GetColor(1.5), kGreen);
  EXPECT_EQ(table.GetColor(0.5), kRed);
}

TEST(ColorTable, TheClassOfAValueIsTheOneThatASearchFinds) {
  std::mt19937_64 random(1);
  std::size_t compared = 0;
  for (int round = 0; round < LongForm(300, 5000); ++round) {
    // Even tables, even ones with a class moved, and those of any widths; some with an end, some of one class.
    const std::size_t count = 1 + random() % (round % 3 == 0 ? 256 : 12);
    const double width =
        std::ldexp(1.0, static_cast<int>(random() % 40) - 20) * (1 + static_cast<double>(random() % 7) / 7);
    const double first = static_cast<double>(random() % 2000) - 1000;
    std::vector<ColorClass> classes;
    double lower = first;
    for (std::size_t i = 0; i < count; ++i) {
      lower = round % 3 == 2 && i > 0
                  ? lower + width * static_cast<double>(1 + random() % 1000) / 10
                  : std::lerp(first, first + width, static_cast<double>(i) / static_cast<double>(count));
      if (!classes.empty() && !(lower > classes.back().lower)) continue;
      const Color color = static_cast<Color>(i);
      classes.push_back({lower, color, color, std::to_wstring(i)});
    }
    if (round % 5 == 0 && classes.size() > 2) {
      classes[1].lower = std::lerp(classes[0].lower, classes[2].lower, 0.01);
      if (!(classes[1].lower > classes[0].lower)) continue;
    }
    const bool hasEnd = round % 4 != 0;
    const double end = classes.back().lower + width;
    const ColorTable table = TableOf(classes, hasEnd ? std::optional(end) : std::nullopt);
    std::vector<double> values = {-kInfinity, kInfinity, 0.0, -0.0, end, std::nextafter(end, kInfinity)};
    for (const ColorClass& each : classes) {
      values.insert(values.end(),
                    {each.lower, std::nextafter(each.lower, -kInfinity), std::nextafter(each.lower, kInfinity)});
    }
    for (int i = 0; i < 20; ++i)
      values.push_back(std::lerp(first - width, end + width, static_cast<double>(random() % 1000) / 999));
    for (const double value : values) {
      const ColorClass* wanted = nullptr;
      for (const ColorClass& each : classes) wanted = each.lower <= value ? &each : wanted;
      const bool isAbove = hasEnd && value > end;
      const Color color = isAbove ? classes.back().color : wanted ? wanted->color : classes.front().color;
      ASSERT_EQ(table.GetColor(value), color) << round << ": " << value;
      ASSERT_EQ(table.GetName(value), wanted && !isAbove ? wanted->name : L"") << round << ": " << value;
      ++compared;
    }
  }
  EXPECT_GT(compared, 5000u);
}

TEST(ColorTable, BlackOrWhiteReadsBestOnAColour) {
  EXPECT_EQ(ColorTable::GetContrastColor(kWhite), kBlack);
  EXPECT_EQ(ColorTable::GetContrastColor(kBlack), kWhite);
  EXPECT_EQ(ColorTable::GetContrastColor(kYellow), kBlack);
  EXPECT_EQ(ColorTable::GetContrastColor(kGreen), kBlack);
  EXPECT_EQ(ColorTable::GetContrastColor(kBlue), kWhite);
  EXPECT_EQ(ColorTable::GetContrastColor(0x800000), kWhite);
  // Equal contrast is at a luminance of 0.179: between these two greys.
  EXPECT_EQ(ColorTable::GetContrastColor(0x757575), kWhite);
  EXPECT_EQ(ColorTable::GetContrastColor(0x767676), kBlack);
}

TEST(ColorTable, RangesThatAreNoneAreRefused) {
  ColorTable table = Bottoms();
  EXPECT_FALSE(table.SetRange(0, std::nan(""), 2, true, false));
  EXPECT_FALSE(table.SetRange(-kInfinity, 0, 2, true, false));
  EXPECT_FALSE(table.SetRange(0, 1, 0, true, false));
  EXPECT_FALSE(table.SetRange(0, 1, -1, true, false));
  EXPECT_FALSE(table.SetRange(0, 1, static_cast<int>(ColorTable::kMostClasses) + 1, true, false));
  EXPECT_FALSE(table.SetRangeRGB3(0, std::nan(""), 2, kBlack, kRed, kYellow));
  EXPECT_FALSE(table.SetRangeRGB3(0, 1, 0, kBlack, kRed, kYellow));
  EXPECT_EQ(table, Bottoms());
}

TEST(ColorTable, ColoursGoThroughHueAndBackUnchanged) {
  const int step = LongForm(5, 1);
  for (int red = 0; red < 256; red += step) {
    for (int green = 0; green < 256; green += step) {
      for (int blue = 0; blue < 256; blue += step) {
        const auto color = static_cast<Color>(red | green << 8 | blue << 16);
        double hue = -1;
        double saturation = -1;
        double lightness = -1;
        ColorTable::RGBtoHSL(color, hue, saturation, lightness);
        ASSERT_EQ(ColorTable::HSLtoRGB(hue, saturation, lightness), color);
        ASSERT_TRUE(hue >= 0 && hue < 360 && saturation >= 0 && saturation <= 1 && lightness >= 0 && lightness <= 1);
      }
    }
  }
}

TEST(ColorTable, HuesTurnAndTheRestIsCut) {
  EXPECT_EQ(ColorTable::HSLtoRGB(120, 1, 0.5), kGreen);
  EXPECT_EQ(ColorTable::HSLtoRGB(-120, 1, 0.5), kBlue);
  EXPECT_EQ(ColorTable::HSLtoRGB(360, 1, 0.5), kRed);
  EXPECT_EQ(ColorTable::HSLtoRGB(480, 2, 0.5), kGreen);
  EXPECT_EQ(ColorTable::HSLtoRGB(0, 1, 7), kWhite);
  EXPECT_EQ(ColorTable::HSLtoRGB(0, 1, -7), kBlack);
  EXPECT_EQ(ColorTable::HSLtoRGB(std::nan(""), 1, 0.5), kRed);
  EXPECT_EQ(ColorTable::HSLtoRGB(0, std::nan(""), 1), kWhite);
  EXPECT_EQ(ColorTable::HSLtoRGB(0, std::nan(""), 0.5), Color{0x808080});
  EXPECT_EQ(ColorTable::HSLtoRGB(0, 1, std::nan("")), kBlack);
}

double AnyDouble(std::mt19937_64& random) {
  double value = 0;
  do {
    const std::uint64_t bits = random();
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&value, &bits, sizeof value);
  } while (!std::isfinite(value));
  return value;
}

std::wstring AnyName(std::mt19937_64& random) {
  static const std::wstring kLetters = L"ab ,;=\"\\[]#\n\r\t\u00B2\u6D77\U0001F30A";
  std::wstring name;
  for (std::size_t length = random() % 6; length > 0; --length) name += kLetters[random() % kLetters.size()];
  return name;
}

std::optional<Color> AnyColor(std::mt19937_64& random) {
  return random() % 3 == 0 ? std::nullopt : std::optional<Color>(random() & 0xFFFFFFU);
}

ColorTable AnyTable(std::mt19937_64& random) {
  std::vector<double> bounds(random() % 8);
  for (double& bound : bounds) bound = AnyDouble(random);
  std::sort(bounds.begin(), bounds.end());
  bounds.erase(std::unique(bounds.begin(), bounds.end()), bounds.end());
  std::optional<double> end;
  if (bounds.size() > 1 && random() % 2 == 0) {
    end = bounds.back();
    bounds.pop_back();
  }
  std::vector<ColorClass> classes;
  for (const double bound : bounds) {
    const Color color = AnyColor(random).value_or(0);
    classes.push_back({bound, color, AnyColor(random).value_or(color), AnyName(random)});
  }
  ColorTable table = TableOf(std::move(classes), end);
  table.SetBelowColor(AnyColor(random));
  table.SetAboveColor(AnyColor(random));
  table.SetNoValueColor(AnyColor(random));
  return table;
}

TEST(ColorTable, WhatWasSavedReadsBackToAnEqualTable) {
  const test::TestFolder folder;
  const std::wstring path = folder.WideFile("table.ctb");
  const std::uint64_t seed = RandomSeed();
  std::mt19937_64 random(seed);
  SmartFileImpl file;
  int withClasses = 0;
  for (int round = 0; round < LongForm(40, 600); ++round) {
    const ColorTable table = AnyTable(random);
    file.FileClose();
    ASSERT_TRUE(table.FileSave(file.GetFileObject()) && file.FileSave(kColorTableFile, path));
    SmartFileImpl again;
    ColorTable read;
    ASSERT_TRUE(again.FileOpen(kColorTableFile, path) && read.FileOpen(again.GetFileObject()))
        << "seed " << seed << "\n"
        << folder.Text("table.ctb");
    ASSERT_EQ(read, table) << "seed " << seed << "\n" << folder.Text("table.ctb");
    if (!table.Classes().empty()) ++withClasses;
  }
  EXPECT_GT(withClasses, 20);
}

TEST(ColorTable, FileIsAsItsPageSays) {
  ColorTable table = TableOf({{-12.5, 0x0000FF, 0x00FF00, L"Sand, fine"}, {0.1, 0xC08040, 0xC08040, L""}}, 2e20);
  table.SetNoValueColor(kWhite);
  FileObject file;
  ASSERT_TRUE(table.FileSave(file));
  EXPECT_EQ(file.GetText(),
            "[COLORTABLE]\nClasses=2\nEnd=2e+20\nNo Value=#ffffff\n1=-12.5,#ff0000,#00ff00,Sand, fine\n"
            "2=0.1,#4080c0,,\n");
}

TEST(ColorTable, SavingReplacesTheTableThatWasThereAndNothingElse) {
  FileObject file;
  ASSERT_TRUE(file.SetString(L"OTHER", L"key", L"value"));
  ColorTable large;
  ASSERT_TRUE(large.SetRange(0, 1, 9, true, false) && large.FileSave(file));
  ASSERT_TRUE(Bottoms().FileSave(file));
  EXPECT_EQ(file.GetKeys(L"COLORTABLE"), (std::vector<std::wstring>{L"Classes", L"1", L"2", L"3"}));
  EXPECT_TRUE(file.HasSection(L"OTHER"));
}

TEST(ColorTable, LargestTableReadsBack) {
  ColorTable table;
  ASSERT_TRUE(table.SetRange(0, 1, static_cast<int>(ColorTable::kMostClasses), true, false));
  FileObject file;
  ASSERT_TRUE(table.FileSave(file));
  ColorTable read;
  ASSERT_TRUE(read.FileOpen(file));
  EXPECT_EQ(read, table);
}

std::wstring ErrorOf(const std::string& text) {
  const test::TestFolder folder;
  folder.Write("table.ctb", text);
  FileObject file;
  EXPECT_TRUE(file.FileOpen(folder.WideFile("table.ctb")));
  ColorTable table = Bottoms();
  EXPECT_FALSE(table.FileOpen(file)) << text;
  EXPECT_EQ(table, Bottoms());
  const std::wstring path = folder.WideFile("table.ctb") + L": ";
  EXPECT_EQ(table.LastError().substr(0, path.size()), path);
  return table.LastError().substr(std::min(path.size(), table.LastError().size()));
}

TEST(ColorTable, DamagedFilesAreRefusedAndSaidWhy) {
  const std::string start = "[COLORTABLE]\n";
  EXPECT_EQ(ErrorOf(start), L"Classes isn't a number from 0 to 65536");
  for (const std::string count : {"-1", "65537", "99999999999999999999", "1.5", "", "x"}) {
    EXPECT_EQ(ErrorOf(start + "Classes=" + count + "\n"), L"Classes isn't a number from 0 to 65536") << count;
  }
  EXPECT_EQ(ErrorOf(start + "Classes=2\n1=0,#000000,,\n"), L"class 2 is missing");
  EXPECT_EQ(ErrorOf(start + "Classes=60000\n"), L"class 1 is missing");
  for (const std::string line : {"", "0", "0,#000000", "0,#000000,", "x,#000000,,", "0,000000,,", "0,#00000,,",
                                 "0,#00000g,,", "0,#0000000,,", "0,#000000,#1,", "0,#000000, ,", " ,#000000,,"}) {
    EXPECT_EQ(ErrorOf(start + "Classes=1\n1=" + line + "\n"), L"class 1 isn't \"lower,#rrggbb,#rrggbb,name\"") << line;
  }
  EXPECT_EQ(ErrorOf(start + "Classes=2\n1=1,#000000,,\n2=0,#000000,,\n"), L"the bounds of the classes don't rise");
  EXPECT_EQ(ErrorOf(start + "Classes=1\n1=nan,#000000,,\n"), L"the bounds of the classes don't rise");
  EXPECT_EQ(ErrorOf(start + "Classes=1\n1=inf,#000000,,\n"), L"the bounds of the classes don't rise");
  EXPECT_EQ(ErrorOf(start + "Classes=1\n1=1,#000000,,\nEnd=0\n"), L"the bounds of the classes don't rise");
  EXPECT_EQ(ErrorOf(start + "Classes=0\nEnd=x\n"), L"End isn't a number");
  EXPECT_EQ(ErrorOf(start + "Classes=0\nBelow=red\n"), L"a colour isn't \"#rrggbb\"");
}

TEST(ColorTable, TextWithoutTheSectionIsReadAsAPalette) {
  EXPECT_EQ(ErrorOf(""), L"neither a section [COLORTABLE] nor a colour palette: it has no classes");
  EXPECT_EQ(ErrorOf("[OTHER]\n"),
            L"neither a section [COLORTABLE] nor a colour palette: line 1: 2, 4 or 8 columns wanted, 1 found");
  const test::TestFolder folder;
  folder.Write("bottom.cpt", "0\tred\t;Sand\n1\tblue\t;Clay\n");
  FileObject file;
  ColorTable table;
  ASSERT_FALSE(table.FileOpen(file));
  EXPECT_NE(table.LastError(), L"");
  ASSERT_TRUE(file.FileOpen(folder.WideFile("bottom.cpt")));
  ASSERT_TRUE(table.FileOpen(file)) << testing::PrintToString(table.LastError());
  EXPECT_EQ(table.LastError(), L"");
  EXPECT_EQ(table.GetName(0.5), L"Sand");
  EXPECT_EQ(table.GetColor(7), kBlue);
  EXPECT_EQ(table.GetName(7), L"Clay");
}

}  // namespace
}  // namespace vak
