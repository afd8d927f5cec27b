#include <cstddef>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/export/DtmAsciiExporter.h"
#include "vakdtm/export/DtmAsciiPhiTextExporter.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/text/CVakUnitCnv.h"
#include "vakdtm/services/text/LocaleSeparators.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/DecimalComma.h"
#include "support/RunGdal.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::DecimalComma;
using test::TestFolder;
using test::TestGrid;

constexpr int cPHT = MakeBlockId("cPHT");

/// A point and a comma, or what a test sets, and metres, for a scope.
class Settled {
 public:
  explicit Settled(const wchar_t* decimal = L".", const wchar_t* list = L",") {
    SetLocaleSeparators(LocaleSeparators{decimal, list});
    SetCurrentProjectDefinition({});
  }
  ~Settled() {
    SetLocaleSeparators(std::nullopt);
    SetCurrentProjectDefinition({});
  }
  Settled(const Settled&) = delete;
  Settled& operator=(const Settled&) = delete;
};

/// The table of the types of bottom, where it is looked for, for a scope.
class PhiTable {
 public:
  explicit PhiTable(const std::wstring& first = L"sand") {
    ColorTable table;
    EXPECT_TRUE(table.SetClasses({{.lower = 0, .name = first}, {.lower = 4, .name = L"silt \u00e4"}}, 8.0));
    SmartFileImpl file;
    file.FileClose();
    EXPECT_TRUE(table.FileSave(file.GetFileObject()));
    EXPECT_TRUE(file.FileSave(kColorTableFile, folder_.WideFile("phi[bottom-type]")));
    DataSearch::GetDataSearch().AddFolder(kColorTableFile, folder_.WideFile(""));
  }
  ~PhiTable() { DataSearch::GetDataSearch().ClearFolders(kColorTableFile); }
  PhiTable(const PhiTable&) = delete;
  PhiTable& operator=(const PhiTable&) = delete;

 private:
  TestFolder folder_;
};

/// The list of all cells of a model, or "failed". @param set  further settings of the exporter.
template <typename Exporter = DtmAsciiExporter>
std::string Exported(TestGrid& grid, int blockId, const std::function<void(DtmAsciiExporter&)>& set = nullptr) {
  const TestFolder folder;
  Exporter exporter(blockId, folder.WideFile("a.csv").c_str());
  if (set) set(exporter);
  const bool walked = exporter.ProcessAllCells(grid.Access());
  return exporter.Close() && walked ? folder.Text("a.csv") : "failed";
}

TestGrid Grid(std::vector<int> kinds, double cellSize = 1.0) {
  return TestGrid(GridSettings{.cellSize = cellSize, .areaSize = 4, .blockIds = std::move(kinds)});
}

TEST(DtmAsciiExporter, OneKindHasNoHeadings) {
  const Settled settled;
  TestGrid grid;
  grid.Draw(
      "-1.5 .\n"
      ".    -2.0625");
  EXPECT_EQ(Exported(grid, dVAL), "1.500,0.500,-2.062\n0.500,1.500,-1.500\n");
}

TEST(DtmAsciiExporter, TwoKindsHaveHeadingsAndAKindWithoutAValueAnEmptyColumn) {
  const Settled settled;
  TestGrid grid;
  grid.Draw("-1.5 . -2");
  grid.Set(0, 1, iNUM, 7);
  grid.Set(0, 2, iNUM, 3);
  EXPECT_EQ(Exported(grid, dVAL, [](auto& exporter) { exporter.AddExtraBlockId(iNUM); }),
            "X,Y,VAL,NUM\n"
            "0.500,0.500,-1.500,\n"
            "1.500,0.500,,7.000\n"
            "2.500,0.500,-2.000,3.000\n");
}

TEST(DtmAsciiExporter, AKindThatTheModelDoesNotHaveIsAnEmptyColumn) {
  const Settled settled;
  TestGrid grid;
  grid.Draw("-1.5");
  EXPECT_EQ(Exported(grid, fBKS, [](auto& exporter) { exporter.AddExtraBlockId(dVAL); }),
            "X,Y,BSS,VAL\n0.500,0.500,,-1.500\n");
}

TEST(DtmAsciiExporter, AnEmptyModelHasHeadingsAlone) {
  const Settled settled;
  TestGrid grid;
  EXPECT_EQ(Exported(grid, dVAL), "");
  EXPECT_EQ(Exported(grid, dVAL, [](auto& exporter) { exporter.AddExtraBlockId(iNUM); }), "X,Y,VAL,NUM\n");
}

TEST(DtmAsciiExporter, HeadingsSayWhatIsInTheColumns) {
  const Settled settled(L",", L";");
  struct Case {
    const char* name;
    std::vector<int> kinds;
    bool invert;
    bool positions;
    const char* headings;
  };
  const std::vector<Case> cases = {
      {"plain", {dVAL, dMIN, dMAX}, false, false, "X;Y;VAL;MIN;MAX"},
      {"inverted", {dVAL, iNUM, dSDV, dMIN, dMAX}, true, false, "X;Y;(-)VAL;NUM;SDV;(-)MIN;(-)MAX"},
      {"positions", {dMAX, dVAL, dMIN}, false, true, "X;Y;XMAX;YMAX;MAX;VAL;XMIN;YMIN;MIN"},
      {"both", {dMIN, dMAX}, true, true, "X;Y;XMIN;YMIN;(-)MIN;XMAX;YMAX;(-)MAX"},
      {"positions of nothing", {dVAL, fXMN, fYMN}, false, true, "X;Y;VAL;XMIN;YMIN"},
      {"bottom types", {dVAL, cPHT, iNUM}, true, false, "X;Y;(-)VAL;;TYPE;NUM"},
      {"a kind of nobody's", {MakeBlockId("dXYZ"), dVAL}, true, false, "X;Y;;(-)VAL"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TestGrid grid;
    EXPECT_EQ(Exported(grid, c.kinds[0],
                       [&c](auto& exporter) {
                         for (std::size_t i = 1; i < c.kinds.size(); ++i) exporter.AddExtraBlockId(c.kinds[i]);
                         exporter.SetInvert(c.invert);
                         exporter.SetAddMinMaxPos(c.positions);
                       }),
              std::string(c.headings) + "\n");
  }
}

TEST(DtmAsciiExporter, AUsersDecimalCommaStandsInTheNumbersAndItsSemicolonBetweenThem) {
  const Settled settled(L",", L";");
  TestGrid grid;
  grid.Draw("-1.5");
  EXPECT_EQ(Exported(grid, dVAL), "0,500;0,500;-1,500\n");
}

TEST(DtmAsciiExporter, ATextThatHoldsTheSeparatorIsQuotedAsItIsFormatted) {
  TestGrid grid;
  grid.Draw("-1.5");
  {
    // The separator is a point, as the formatter writes: found before the point becomes a comma.
    const Settled settled(L",", L".");
    EXPECT_EQ(Exported(grid, dVAL), "\"0,500\".\"0,500\".\"-1,500\"\n");
  }
  {
    // A comma comes into the text later only, and isn't found.
    const Settled settled(L",", L",");
    EXPECT_EQ(Exported(grid, dVAL), "0,500,0,500,-1,500\n");
  }
  {
    const Settled settled(L".", L"-");
    EXPECT_EQ(Exported(grid, dVAL), "0.500-0.500-\"-1.500\"\n");
  }
}

TEST(DtmAsciiExporter, LongMarksAreMarksToo) {
  const Settled settled(L"::", L"\u2192\u2192");
  TestGrid grid;
  grid.Draw("-1.5");
  EXPECT_EQ(Exported(grid, dVAL),
            "0::500\xe2\x86\x92\xe2\x86\x92"
            "0::500\xe2\x86\x92\xe2\x86\x92-1::500\n");
}

TEST(DtmAsciiExporter, InvertingShowsDepthsAndLeavesCounts) {
  const Settled settled;
  TestGrid grid = Grid({dVAL, iNUM, dMIN, dMAX, dSDV});
  grid.Draw("-1.5");
  for (const auto& [id, value] : {std::pair{iNUM, 4.0}, {dMIN, -2.0}, {dMAX, 1.0}, {dSDV, 0.25}})
    grid.Set(0, 0, id, value);
  EXPECT_EQ(Exported(grid, dVAL,
                     [](auto& exporter) {
                       for (const int id : {iNUM, dMIN, dMAX, dSDV}) exporter.AddExtraBlockId(id);
                       exporter.SetInvert(true);
                     }),
            "X,Y,(-)VAL,NUM,(-)MIN,(-)MAX,SDV\n0.500,0.500,1.500,4.000,2.000,-1.000,0.250\n");
}

TEST(DtmAsciiExporter, PositionsOfExtremesStandBeforeThem) {
  const Settled settled;
  TestGrid grid = Grid({dVAL, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX}, 2.0);
  grid.Draw("-1.5 -3 -4");
  grid.Set(0, 0, dMIN, -2.0);
  grid.Set(0, 0, fXMN, 0.25);
  grid.Set(0, 0, fYMN, -0.5);
  grid.Set(0, 0, dMAX, -1.0);
  grid.Set(0, 0, fXMX, -0.125);
  grid.Set(0, 0, fYMX, 0.75);
  grid.Set(0, 1, dMIN, -5.0);
  grid.Set(0, 1, fXMN, 0.25);  // and no y
  grid.Set(0, 2, fXMX, 0.5);   // a position without a maximum
  grid.Set(0, 2, fYMX, 0.5);
  EXPECT_EQ(Exported(grid, dMIN,
                     [](auto& exporter) {
                       for (const int id : {dVAL, dMAX}) exporter.AddExtraBlockId(id);
                       exporter.SetAddMinMaxPos(true);
                     }),
            "X,Y,XMIN,YMIN,MIN,VAL,XMAX,YMAX,MAX\n"
            "1.000,1.000,1.250,0.500,-2.000,-1.500,0.875,1.750,-1.000\n"
            "3.000,1.000,,,-5.000,-3.000,,,\n"
            "5.000,1.000,,,,-4.000,5.500,1.500,\n");
}

TEST(DtmAsciiExporter, PositionsHaveTheUsersDecimalMarkToo) {
  const Settled settled(L",", L";");
  TestGrid grid = Grid({dMAX, fXMX, fYMX}, 2.0);
  grid.Set(0, 0, dMAX, -1.0);
  grid.Set(0, 0, fXMX, -0.125);
  grid.Set(0, 0, fYMX, 0.75);
  EXPECT_EQ(Exported(grid, dMAX, [](auto& exporter) { exporter.SetAddMinMaxPos(true); }),
            "1,000;1,000;0,875;1,750;-1,000\n");
}

TEST(DtmAsciiExporter, PositionsWithoutTheExtremesAddNoColumns) {
  const Settled settled;
  TestGrid grid = Grid({dVAL, iNUM, dMIN, fXMN, fYMN});
  grid.Draw("-1.5");
  for (const int id : {dMIN, fXMN, fYMN}) grid.Set(0, 0, id, 0.25);
  EXPECT_EQ(Exported(grid, dVAL,
                     [](auto& exporter) {
                       exporter.AddExtraBlockId(iNUM);
                       exporter.SetAddMinMaxPos(true);
                     }),
            "X,Y,VAL,NUM\n0.500,0.500,-1.500,\n");
}

TEST(DtmAsciiExporter, ResamplingGivesTheCornerBetweenFourCells) {
  const Settled settled;
  TestGrid grid = Grid({dVAL, dMIN, fXMN, fYMN}, 2.0);
  grid.Draw(
      "-4 -8\n"
      "-1 -3");
  grid.Set(0, 0, dMIN, -9.0);
  grid.Set(0, 0, fXMN, 0.5);
  grid.Set(0, 0, fYMN, 0.5);
  EXPECT_EQ(Exported(grid, dVAL, [](auto& exporter) { exporter.SetResampleToCenterCellZero(true); }),
            "2.000,2.000,-4.000\n")
      << "the other corners have not all of their cells";
  EXPECT_EQ(Exported(grid, dVAL,
                     [](auto& exporter) {
                       exporter.AddExtraBlockId(dMIN);
                       exporter.SetAddMinMaxPos(true);
                       exporter.SetResampleToCenterCellZero(true);
                     }),
            "X,Y,VAL,XMIN,YMIN,MIN\n2.000,2.000,-4.000,1.500,1.500,\n")
      << "the place of an extreme is where it was measured";
}

TEST(DtmAsciiExporter, WhatIsInterpolatedIsInvertedAsWell) {
  const Settled settled;
  TestGrid grid = Grid({dVAL, iNUM}, 2.0);
  grid.Draw(
      "-4 -8\n"
      "-1 -3");
  for (const auto& [row, col] : {std::pair{0, 0}, {0, 1}, {1, 0}, {1, 1}}) grid.Set(row, col, iNUM, 2);
  EXPECT_EQ(Exported(grid, dVAL,
                     [](auto& exporter) {
                       exporter.AddExtraBlockId(iNUM);
                       exporter.SetInvert(true);
                       exporter.SetResampleToCenterCellZero(true);
                     }),
            "X,Y,(-)VAL,NUM\n2.000,2.000,4.000,2.000\n");
}

TEST(DtmAsciiExporter, NumbersAreInTheProjectsUnits) {
  const Settled settled;
  ProjectDefinition project;
  project.SetUnitCnv(CVakUnitCnv(LengthUnit::kMetre, LengthUnit::kFoot, LengthUnit::kMetre));
  project.SetCoordinateDecimals(1);
  project.SetHeightDecimals(2);
  SetCurrentProjectDefinition(project);
  TestGrid grid;
  grid.Draw("-3.048");
  EXPECT_EQ(Exported(grid, dVAL), "0.5,0.5,-10.00\n");
}

TEST(DtmAsciiExporter, ADecimalCommaInTheProcessLocaleChangesNothing) {
  const Settled settled;
  TestGrid grid;
  grid.Draw("-1.5");
  const DecimalComma locale;
  ASSERT_TRUE(locale.Set());
  EXPECT_EQ(Exported(grid, dVAL), "0.500,0.500,-1.500\n");
}

TEST(DtmAsciiExporter, BottomTypesHaveNames) {
  const Settled settled;
  const PhiTable table;
  TestGrid grid = Grid({dVAL, cPHT, iNUM});
  for (const auto& [col, phi] : {std::pair{0, 2}, {1, 5}, {2, 200}}) {
    grid.Set(0, col, cPHT, phi);
    grid.Set(0, col, iNUM, 1);
  }
  grid.Set(0, 3, iNUM, 4);
  EXPECT_EQ(Exported(grid, cPHT, [](auto& exporter) { exporter.AddExtraBlockId(iNUM); }),
            "X,Y,,TYPE,NUM\n"
            "0.500,0.500,2.000,sand,1.000\n"
            "1.500,0.500,5.000,silt \xc3\xa4,1.000\n"
            "2.500,0.500,200.000,,1.000\n"
            "3.500,0.500,,4.000\n")
      << "without a type its column falls away";
}

TEST(DtmAsciiExporter, ANameIsWrittenAsItIs) {
  const Settled settled(L",", L";");
  const PhiTable table(L"sand 1.5; fine");
  TestGrid grid = Grid({cPHT});
  grid.Set(0, 0, cPHT, 2);
  EXPECT_EQ(Exported(grid, cPHT), "0,500;0,500;2,000;sand 1.5; fine\n");
}

TEST(DtmAsciiExporter, WithoutATableNamesAreEmpty) {
  const Settled settled;
  TestGrid grid = Grid({cPHT});
  grid.Set(0, 0, cPHT, 2);
  EXPECT_EQ(Exported(grid, cPHT), "0.500,0.500,2.000,\n");
}

TEST(DtmAsciiExporter, AFileThatCannotBeOpenedFailsAtInit) {
  TestGrid grid;
  const TestFolder folder;
  DtmAsciiExporter nowhere(dVAL, folder.WideFile("none/a.csv").c_str());
  EXPECT_FALSE(nowhere.Init(grid.Access()));
  EXPECT_FALSE(nowhere.Close());
  DtmAsciiExporter unnamed(dVAL, nullptr);
  EXPECT_FALSE(unnamed.Init(grid.Access()));
}

TEST(DtmAsciiExporter, AFileThatWasThereIsReplaced) {
  const Settled settled;
  const TestFolder folder;
  folder.Write("\xc3\xa4.csv", "a long text of an earlier export, much longer than this one\n");
  TestGrid grid;
  grid.Draw("-1.5");
  DtmAsciiExporter exporter(dVAL, (folder.WideFile("") + L"\u00e4.csv").c_str());
  ASSERT_TRUE(exporter.ProcessAllCells(grid.Access()));
  ASSERT_TRUE(exporter.Close());
  EXPECT_EQ(folder.Text("\xc3\xa4.csv"), "0.500,0.500,-1.500\n");
}

TEST(DtmAsciiExporter, AFullDiskIsNoticedAtTheLatestWhenTheFileIsClosed) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL}});
  grid.Draw("-1.5");
  DtmAsciiExporter little(dVAL, L"/dev/full");
  little.ProcessAllCells(grid.Access());
  EXPECT_FALSE(little.Close());
  for (int row = 0; row < 64; ++row) {
    for (int col = 0; col < 64; ++col) grid.Set(row, col, dVAL, -1.0);
  }
  DtmAsciiExporter much(dVAL, L"/dev/full");
  EXPECT_FALSE(much.ProcessAllCells(grid.Access())) << "more than stays in memory ends the walk";
  EXPECT_FALSE(much.Close());
}

TEST(DtmAsciiExporter, ASecondWalkWritesSecondHeadings) {
  const Settled settled;
  TestGrid grid;
  const TestFolder folder;
  DtmAsciiExporter exporter(dVAL, folder.WideFile("a.csv").c_str());
  exporter.AddExtraBlockId(iNUM);
  ASSERT_TRUE(exporter.ProcessAllCells(grid.Access()));
  ASSERT_TRUE(exporter.ProcessAllCells(grid.Access()));
  ASSERT_TRUE(exporter.Close());
  EXPECT_EQ(folder.Text("a.csv"), "X,Y,VAL,NUM\nX,Y,VAL,NUM\n");
}

TEST(DtmAsciiExporter, CannotBeRunInParallel) {
  DtmAsciiExporter exporter(dVAL, nullptr);
  EXPECT_EQ(exporter.Clone(), nullptr);
}

TEST(DtmAsciiExporter, AnotherReaderFindsEveryCell) {
  const Settled settled;
  TestGrid grid = Grid({dVAL, iNUM}, 0.25);
  std::mt19937 rng(20150703);
  for (int i = 0; i < 400; ++i) {
    const int row = static_cast<int>(rng() % 40) - 20;
    const int col = static_cast<int>(rng() % 40) + 1000;
    grid.Set(row, col, dVAL, -static_cast<double>(rng() % 100000) / 1000.0);
    if (rng() % 4 > 0) grid.Set(row, col, iNUM, static_cast<double>(1 + rng() % 9));
  }
  std::string expected;
  for (int areaRow = -20; areaRow < 20; ++areaRow) {
    for (int col = 1000; col < 1040; ++col) {
      const double z = grid.Get(areaRow, col);
      if (IsEmptyValue(z)) continue;
      const double hits = grid.Get(areaRow, col, iNUM);
      char text[120];
      std::snprintf(text, sizeof text, "%.3f %.3f %.3f %s\n", (col + 0.5) * 0.25, (areaRow + 0.5) * 0.25, z,
                    IsEmptyValue(hits) ? "none" : std::to_string(static_cast<int>(hits)).c_str());
      expected += text;
    }
  }
  const TestFolder folder;
  DtmAsciiExporter exporter(dVAL, folder.WideFile("a.csv").c_str());
  exporter.AddExtraBlockId(iNUM);
  ASSERT_TRUE(exporter.ProcessAllCells(grid.Access()));
  ASSERT_TRUE(exporter.Close());
  const std::string script =
      "file = gdal.OpenEx(sys.argv[1], gdal.OF_VECTOR,\n"
      "                   open_options=['X_POSSIBLE_NAMES=X', 'Y_POSSIBLE_NAMES=Y', 'AUTODETECT_TYPE=YES'])\n"
      "cells = []\n"
      "for cell in file.GetLayer(0):\n"
      "    place = cell.GetGeometryRef()\n"
      "    hits = '%d' % cell['NUM'] if cell.IsFieldSetAndNotNull('NUM') else 'none'\n"
      "    cells.append((place.GetY(), place.GetX(), cell['VAL'], hits))\n"
      "for y, x, z, hits in sorted(cells):\n"
      "    print('%.3f %.3f %.3f %s' % (x, y, z, hits))\n";
  const auto result = test::RunGdal(script, folder.File("a.csv"));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, expected);
}

// ---- Bottom types

TEST(DtmAsciiPhiTextExporter, WritesValueAndNameWithCommasAndPointsInEveryLocale) {
  const Settled settled(L",", L";");
  const PhiTable table;
  TestGrid grid = Grid({fPHI});
  grid.Set(0, 0, fPHI, 2.5);
  grid.Set(0, 2, fPHI, 4.0);
  grid.Set(1, 0, fPHI, -1.0);
  EXPECT_EQ(Exported<DtmAsciiPhiTextExporter>(grid, fPHI),
            "0.500,0.500,2.500,sand\n2.500,0.500,4.000,silt \xc3\xa4\n0.500,1.500,-1.000,\n");
}

TEST(DtmAsciiPhiTextExporter, NumbersAreInTheProjectsUnitsAndNamesAreThoseOfTheValue) {
  const Settled settled;
  const PhiTable table;
  ProjectDefinition project;
  project.SetUnitCnv(CVakUnitCnv(LengthUnit::kFoot, LengthUnit::kFoot, LengthUnit::kFoot));
  project.SetCoordinateDecimals(1);
  project.SetHeightDecimals(2);
  SetCurrentProjectDefinition(project);
  TestGrid grid = Grid({fPHI}, 0.6096);
  grid.Set(0, 1, fPHI, 3.048);
  EXPECT_EQ(Exported<DtmAsciiPhiTextExporter>(grid, fPHI), "3.0,1.0,10.00,sand\n");
}

TEST(DtmAsciiPhiTextExporter, ACellThatCannotBeReadEndsTheWalk) {
  TestGrid grid;
  grid.Draw("-1");
  EXPECT_EQ(Exported<DtmAsciiPhiTextExporter>(grid, fPHI), "failed") << "the model has no such kind";
  EXPECT_EQ(Exported(grid, fPHI), "") << "which is an empty column to its base";
}

TEST(DtmAsciiPhiTextExporter, AFullDiskIsNoticed) {
  TestGrid grid = Grid({fPHI});
  grid.Set(0, 0, fPHI, 2.5);
  DtmAsciiPhiTextExporter exporter(fPHI, L"/dev/full");
  EXPECT_TRUE(exporter.Init(grid.Access()));
  double area = 1.0;
  exporter.ProcessCell(0, 0, area);
  EXPECT_FALSE(exporter.Close());
}

}  // namespace
}  // namespace vak
