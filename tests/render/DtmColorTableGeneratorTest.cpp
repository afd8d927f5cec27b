#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <utility>

#include "vakdtm/render/DtmColorTableGenerator.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/services/geometry/Page.h"

#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestFolder;
using test::TestGrid;
using test::TimeStands;

constexpr Color kBlack = 0;
constexpr Color kBlue = 0xFF0000;
constexpr Color kRed = 0x0000FF;
constexpr Color kYellow = 0x00FFFF;
constexpr Color kBrown = 273825;
constexpr Color kWhite = 0xFFFFFF;
constexpr long long kNoon = 20000LL * 86400 + 43200;

/// Heights from -9 to -1, and a folder for tables.
struct Survey {
  Survey() : grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM, tTIM}}) { grid.Draw("-9 -1 -5"); }

  std::wstring Path() const { return folder.WideFile("t.tab"); }
  ColorTable Saved() const {
    SmartFileImpl file;
    EXPECT_TRUE(file.FileOpen(kColorTableFile, Path()));
    ColorTable table;
    EXPECT_TRUE(table.FileOpen(file.GetFileObject()));
    return table;
  }

  TestFolder folder;
  TestGrid grid;
};

TEST(DtmColorTableGenerator, WritesATableForTheValuesThatItSaw) {
  Survey survey;
  DtmColorTableGenerator generator(dVAL, survey.Path(), 4, true, false, false);
  ASSERT_TRUE(generator.ProcessAllCells(survey.grid.Access()));
  ColorTable expected;
  ASSERT_TRUE(expected.SetRange(-9.0, -1.0, 4, kBlue, kRed));
  EXPECT_EQ(survey.Saved(), expected);
}

TEST(DtmColorTableGenerator, ChoosesItsColoursAsTold) {
  const struct {
    const char* name;
    bool colored, reversed, three;
    Color first, second;
  } kCases[] = {{"coloured", true, false, false, kBlue, kRed},
                {"coloured, reversed", true, true, false, kRed, kBlue},
                {"grey", false, false, false, kBlack, kWhite},
                {"grey, reversed", false, true, false, kWhite, kBlack},
                {"three colours", true, false, true, kBrown, kYellow},
                {"three colours whether coloured or not", false, false, true, kBrown, kYellow},
                {"three colours, reversed", true, true, true, kYellow, kBrown}};
  Survey survey;
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.name);
    DtmColorTableGenerator generator(dVAL, survey.Path(), 16, each.colored, each.reversed, each.three);
    ASSERT_TRUE(generator.ProcessAllCells(survey.grid.Access()));
    ColorTable expected;
    ASSERT_TRUE(each.three ? expected.SetRangeRGB3(-9, -1, 16, kBlack, each.first, each.second)
                           : expected.SetRange(-9.0, -1.0, 16, each.first, each.second));
    EXPECT_EQ(survey.Saved(), expected);
    if (each.three) {
      EXPECT_EQ(expected.GetColor(-8.9), kBlack) << "black is always first";
    }
  }
}

TEST(DtmColorTableGenerator, TakesTwoColoursAsTheyCome) {
  Survey survey;
  DtmColorTableGenerator generator(dVAL, survey.Path(), 7, Color{0x102030}, Color{0xF0E0D0});
  ASSERT_TRUE(generator.ProcessAllCells(survey.grid.Access()));
  ColorTable expected;
  ASSERT_TRUE(expected.SetRange(-9.0, -1.0, 7, Color{0x102030}, Color{0xF0E0D0}));
  EXPECT_EQ(survey.Saved(), expected);
}

TEST(DtmColorTableGenerator, TimesAreAgesWithTheEarliestFirst) {
  const TimeStands now(kNoon);
  Survey survey;
  survey.grid.Set(0, 0, tTIM, kNoon - 43200 - 9 * 86400);  // ten days before the midnight that comes
  survey.grid.Set(0, 1, tTIM, kNoon - 21600);              // and three quarters of one
  DtmColorTableGenerator generator(tTIM, survey.Path(), 5, Color{0x000001}, Color{0x0000FF});
  ASSERT_TRUE(generator.ProcessAllCells(survey.grid.Access()));
  ColorTable expected;
  ASSERT_TRUE(expected.SetRange(10.0, 0.75, 5, Color{0x000001}, Color{0x0000FF}));
  EXPECT_EQ(survey.Saved(), expected);
  EXPECT_EQ(survey.Saved().GetColor(9.9), Color{0x000001});
  EXPECT_EQ(survey.Saved().GetColor(0.8), Color{0x0000FF});
}

TEST(DtmColorTableGenerator, WithoutAValueThereIsNoFile) {
  Survey survey;
  TestGrid empty;
  empty.Set(0, 0, iNUM, 1);
  DtmColorTableGenerator generator(dVAL, survey.Path(), 4, true, false, false);
  EXPECT_TRUE(generator.ProcessAllCells(empty.Access()));
  EXPECT_FALSE(survey.folder.Has("t.tab"));
}

TEST(DtmColorTableGenerator, AnswersFalseWhenTheTableCannotBeWrittenOrMade) {
  Survey survey;
  DtmColorTableGenerator nowhere(dVAL, survey.folder.WideFile("no/such/folder/t.tab"), 4, true, false, false);
  EXPECT_FALSE(nowhere.ProcessAllCells(survey.grid.Access()));
  DtmColorTableGenerator unnamed(dVAL, L"", 4, true, false, false);
  EXPECT_FALSE(unnamed.ProcessAllCells(survey.grid.Access()));
  DtmColorTableGenerator without(dVAL, survey.Path(), 0, true, false, false);
  EXPECT_FALSE(without.ProcessAllCells(survey.grid.Access()));
  EXPECT_FALSE(survey.folder.Has("t.tab"));
}

TEST(DtmColorTableGenerator, CanBeMovedAndNotCopied) {
  static_assert(!std::is_copy_constructible_v<DtmColorTableGenerator>);
  static_assert(!std::is_copy_assignable_v<DtmColorTableGenerator>);
  static_assert(std::is_nothrow_move_constructible_v<DtmColorTableGenerator>);
  Survey survey;
  DtmColorTableGenerator first(dVAL, survey.Path(), 3, true, false, false);
  DtmColorTableGenerator second(std::move(first));
  DtmColorTableGenerator third(iNUM, L"elsewhere", 9, false, true, true);
  third = std::move(second);
  ASSERT_TRUE(third.ProcessAllCells(survey.grid.Access()));
  ColorTable expected;
  ASSERT_TRUE(expected.SetRange(-9.0, -1.0, 3, kBlue, kRed));
  EXPECT_EQ(survey.Saved(), expected);
}

TEST(DtmColorTableGenerator, AWalkStartsAnew) {
  Survey survey;
  DtmColorTableGenerator generator(dVAL, survey.Path(), 2, true, false, false);
  ASSERT_TRUE(generator.ProcessAllCells(survey.grid.Access()));
  ASSERT_TRUE(generator.ProcessRect(survey.grid.Access(), Page(1.1, 0.1, 2.9, 0.9)));
  ColorTable expected;
  ASSERT_TRUE(expected.SetRange(-5.0, -1.0, 2, kBlue, kRed));
  EXPECT_EQ(survey.Saved(), expected);
}

}  // namespace
}  // namespace vak
