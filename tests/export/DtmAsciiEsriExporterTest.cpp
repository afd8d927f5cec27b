#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/export/DtmAsciiEsriExporter.h"
#include "vakdtm/frame/DtmAllAreasCellProcessor.h"
#include "vakdtm/frame/DtmEsriPolyClipper.h"
#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
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

/// How an export is asked for.
struct Settings {
  int blockId = dVAL;
  const wchar_t* noDataText = L"-9999";
  const wchar_t* valueFormat = L"%.2f ";
  bool corner = false;
};

/// The export of a model into a file of a temporary folder.
class EsriExport {
 public:
  explicit EsriExport(TestGrid& grid, const Settings& settings = {})
      : grid_(grid),
        extents_(settings.blockId),
        measured_(extents_.ProcessAllCells(grid.Access())),
        exporter_(settings.blockId, &extents_, settings.noDataText, settings.valueFormat, settings.corner,
                  folder_.WideFile("a.asc").c_str()) {}

  DtmAsciiEsriExporter& Exporter() { return exporter_; }
  const TestFolder& Folder() const { return folder_; }

  /// @return whether the whole walk and the closing went well.
  bool Run() { return RunBehind(exporter_); }

  /// The same with what the exporter is a part of.
  bool RunBehind(DtmProcessor& chain) {
    DtmAllAreasCellProcessor walker(&grid_.Access(), &chain, &extents_, false);
    return measured_ && walker.Process() && exporter_.Close();
  }

  std::string Text() const { return folder_.Text("a.asc"); }

 private:
  TestGrid& grid_;
  TestFolder folder_;
  DtmExtentsProcessor extents_;
  bool measured_;
  DtmAsciiEsriExporter exporter_;
};

std::string Exported(TestGrid& grid, const Settings& settings = {}) {
  EsriExport esri(grid, settings);
  EXPECT_TRUE(esri.Run());
  return esri.Text();
}

TEST(DtmAsciiEsriExporter, WritesEveryCellTheNorthRowFirst) {
  TestGrid grid({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL}});
  grid.Draw(
      "-1 .  -3\n"
      ".  .   .\n"
      ".  -8.125 -9");
  EXPECT_EQ(Exported(grid),
            "NCOLS 3\n"
            "NROWS 3\n"
            "XLLCENTER 0.250000\n"
            "YLLCENTER 0.250000\n"
            "CELLSIZE  0.500000\n"
            "NODATA_VALUE -9999\n"
            "-1.00 -9999 -3.00 \n"
            "-9999 -9999 -9999 \n"
            "-9999 -8.12 -9.00 \n");
}

TEST(DtmAsciiEsriExporter, TheCornerIsHalfACellFromTheCentreAndTheCellsStay) {
  TestGrid grid({.cellSize = 2.0, .areaSize = 4, .blockIds = {dVAL}});
  grid.Set(-3, 7, dVAL, -4.0);
  grid.Set(-2, 8, dVAL, -5.0);
  const std::string cells = "NODATA_VALUE -9999\n-9999 -5.00 \n-4.00 -9999 \n";
  EXPECT_EQ(Exported(grid), "NCOLS 2\nNROWS 2\nXLLCENTER 15.000000\nYLLCENTER -5.000000\nCELLSIZE  2.000000\n" + cells);
  EXPECT_EQ(Exported(grid, {.corner = true}),
            "NCOLS 2\nNROWS 2\nXLLCORNER 14.000000\nYLLCORNER -6.000000\nCELLSIZE  2.000000\n" + cells);
}

TEST(DtmAsciiEsriExporter, FormatAndTextOfEmptyCellsAreTheCallers) {
  TestGrid grid;
  grid.Draw("-1.5 . 1e6");
  EXPECT_EQ(Exported(grid, {.noDataText = L"leer", .valueFormat = L"<%+.1e>;"}),
            "NCOLS 3\nNROWS 1\nXLLCENTER 0.500000\nYLLCENTER 0.500000\nCELLSIZE  1.000000\nNODATA_VALUE leer\n"
            "<-1.5e+00>;leer <+1.0e+06>;\n");
}

TEST(DtmAsciiEsriExporter, AnyKindCanBeExported) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}});
  grid.Draw("-1 -2 -3");
  grid.Set(0, 1, iNUM, 4);
  grid.Set(0, 2, iNUM, 5);
  EXPECT_EQ(Exported(grid, {.blockId = iNUM, .valueFormat = L"%.0f "}),
            "NCOLS 2\nNROWS 1\nXLLCENTER 1.500000\nYLLCENTER 0.500000\nCELLSIZE  1.000000\nNODATA_VALUE -9999\n4 5 \n");
}

/// Hands on to an exporter that a chain must not own.
class Onwards final : public DtmProcessor {
 public:
  explicit Onwards(DtmProcessor& to) : to_(to) {}
  bool Init(DtmAccess& access) override { return to_.Init(access); }
  bool ProcessCell(int row, int col, double& area) override { return to_.ProcessCell(row, col, area); }

 private:
  DtmProcessor& to_;
};

TEST(DtmAsciiEsriExporter, ACellOutsideThePolygonIsEmptyThoughItHasAValue) {
  TestGrid grid;
  grid.Draw(
      "-1 -2\n"
      "-3 -4");
  EsriExport esri(grid);
  PolyClipLine polygon;
  for (const Point& corner : {Point{0, 0}, Point{2, 0}, Point{0.1, 2}}) polygon.AddElem(corner);
  DtmMultiProcessor chain;
  chain.AddProcessor(std::make_unique<DtmEsriPolyClipper>(polygon).release());
  chain.AddProcessor(std::make_unique<Onwards>(esri.Exporter()).release());
  ASSERT_TRUE(esri.RunBehind(chain));
  // The upper right centre is outside; those of the others are inside, though parts of their cells aren't.
  EXPECT_NE(esri.Text().find("\n-1.00 -9999 \n-3.00 -4.00 \n"), std::string::npos) << esri.Text();
}

TEST(DtmAsciiEsriExporter, AnotherNotANumberInTheAreaIsNoMark) {
  TestGrid grid;
  grid.Draw("-1");
  EsriExport esri(grid);
  ASSERT_TRUE(esri.Exporter().Init(grid.Access()));
  double area = std::nan("7");
  EXPECT_TRUE(esri.Exporter().ProcessCell(0, 0, area));
  EXPECT_TRUE(esri.Exporter().Close());
  EXPECT_NE(esri.Text().find("-1.00 \n"), std::string::npos);
}

TEST(DtmAsciiEsriExporter, AValueThatIsNoNumberIsNotAnEmptyOne) {
  TestGrid grid;
  grid.Draw("-1 . -3");
  grid.Set(0, 1, dVAL, std::nan("3"));
  EXPECT_NE(Exported(grid).find("\n-1.00 nan -3.00 \n"), std::string::npos);
}

TEST(DtmAsciiEsriExporter, MoreColumnsThanAnIntHoldsAreCounted) {
  TestGrid grid;
  constexpr int kFar = 2'000'000'000;
  for (const int place : {-kFar, kFar}) ASSERT_TRUE(grid.Set(place, place, dVAL, -1.0));
  EsriExport esri(grid);
  ASSERT_TRUE(esri.Exporter().Init(grid.Access()));
  ASSERT_TRUE(esri.Exporter().Close());
  EXPECT_EQ(esri.Text().find("NCOLS 4000000001\nNROWS 4000000001\nXLLCENTER -1999999999.500000\n"), 0U) << esri.Text();
}

TEST(DtmAsciiEsriExporter, AModelWithoutCellsIsAHeaderForNone) {
  TestGrid grid;
  EXPECT_EQ(Exported(grid),
            "NCOLS 0\nNROWS 0\nXLLCENTER 0.500000\nYLLCENTER 0.500000\nCELLSIZE  1.000000\nNODATA_VALUE -9999\n");
}

TEST(DtmAsciiEsriExporter, ASecondWalkWritesASecondHeader) {
  TestGrid grid;
  grid.Draw("-1");
  EsriExport esri(grid);
  ASSERT_TRUE(esri.Exporter().Init(grid.Access()));
  ASSERT_TRUE(esri.Run());
  const std::string text = esri.Text();
  EXPECT_NE(text.find("NCOLS", 1), std::string::npos) << text;
}

TEST(DtmAsciiEsriExporter, ADecimalCommaInTheProcessLocaleChangesNothing) {
  TestGrid grid({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL}});
  grid.Draw("-1.5 -2.5");
  const std::string plain = Exported(grid, {.valueFormat = L"%8.3f %%"});
  const DecimalComma locale;
  ASSERT_TRUE(locale.Set());
  EXPECT_EQ(Exported(grid, {.valueFormat = L"%8.3f %%"}), plain);
  EXPECT_NE(plain.find("  -1.500 %"), std::string::npos);
}

TEST(DtmAsciiEsriExporter, WhatCannotBeOpenedOrUsedFailsAtInit) {
  TestGrid grid;
  grid.Draw("-1");
  const TestFolder folder;
  DtmExtentsProcessor extents(dVAL);
  ASSERT_TRUE(extents.ProcessAllCells(grid.Access()));
  const std::wstring good = folder.WideFile("a.asc");
  const std::wstring none = folder.WideFile("none/a.asc");
  struct Case {
    const char* name;
    const wchar_t* path;
    const wchar_t* format;
    bool works;
  };
  for (const Case& c :
       {Case{"good", good.c_str(), L"%.3f ", true}, Case{"no folder", none.c_str(), L"%.3f ", false},
        Case{"no path", nullptr, L"%.3f ", false}, Case{"stores through a pointer", good.c_str(), L"%n", false},
        Case{"a string", good.c_str(), L"%s ", false}, Case{"two numbers", good.c_str(), L"%f %f", false},
        Case{"no number", good.c_str(), L"1.0", false}, Case{"wide", good.c_str(), L"%99999999f", false},
        Case{"no format", good.c_str(), nullptr, false}}) {
    SCOPED_TRACE(c.name);
    DtmAsciiEsriExporter exporter(dVAL, &extents, L"-9999", c.format, false, c.path);
    EXPECT_EQ(exporter.Init(grid.Access()), c.works);
  }
  DtmAsciiEsriExporter exporter(dVAL, nullptr, L"-9999", L"%f ", false, good.c_str());
  EXPECT_FALSE(exporter.Init(grid.Access())) << "no extents";
}

TEST(DtmAsciiEsriExporter, AFullDiskEndsTheWalk) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL}});
  grid.Draw("-1");
  DtmExtentsProcessor everyCell(0);
  ASSERT_TRUE(everyCell.ProcessAllCells(grid.Access()));
  DtmAsciiEsriExporter exporter(dVAL, &everyCell, L"-9999", L"%.3f ", false, L"/dev/full");
  DtmAllAreasCellProcessor walker(&grid.Access(), &exporter, &everyCell, false);
  EXPECT_FALSE(walker.Process());
  EXPECT_FALSE(exporter.Close());
}

TEST(DtmAsciiEsriExporter, AFullDiskIsNoticedWhenLittleWasWritten) {
  TestGrid grid;
  grid.Draw("-1");
  DtmExtentsProcessor extents(dVAL);
  ASSERT_TRUE(extents.ProcessAllCells(grid.Access()));
  DtmAsciiEsriExporter exporter(dVAL, &extents, L"-9999", L"%.3f ", false, L"/dev/full");
  DtmAllAreasCellProcessor walker(&grid.Access(), &exporter, &extents, false);
  walker.Process();
  EXPECT_FALSE(exporter.Close());
}

// ---- Read back by another program

TEST(DtmAsciiEsriExporter, AnotherReaderFindsEveryCellWhereItIs) {
  TestGrid grid({.cellSize = 0.25, .areaSize = 8, .blockIds = {dVAL}});
  std::mt19937 rng(20150703);
  std::string expected;
  constexpr int kSide = 30;
  // As the reader lists them: north row first, west to east.
  for (int row = kSide; row >= -kSide; --row) {
    for (int col = 1000; col < 1000 + kSide; ++col) {
      char text[100];
      const double x = (col + 0.5) * 0.25;
      const double y = (row + 0.5) * 0.25;
      // The corners have values, so that the extents are the whole rectangle.
      const bool corner = (row == kSide || row == -kSide) && (col == 1000 || col == 1000 + kSide - 1);
      if (!corner && rng() % 3 == 0) {
        std::snprintf(text, sizeof text, "%.3f %.3f none\n", x, y);
      } else {
        const double z = -static_cast<double>(rng() % 100000) / 1000.0;
        ASSERT_TRUE(grid.Set(row, col, dVAL, z));
        std::snprintf(text, sizeof text, "%.3f %.3f %.3f\n", x, y, z);
      }
      expected += text;
    }
  }
  for (const bool corner : {false, true}) {
    SCOPED_TRACE(corner ? "corner" : "centre");
    EsriExport esri(grid, {.valueFormat = L"%.3f ", .corner = corner});
    ASSERT_TRUE(esri.Run());
    const std::string script =
        "raster = gdal.Open(sys.argv[1])\n"
        "band = raster.GetRasterBand(1)\n"
        "left, width, _, top, _, height = raster.GetGeoTransform()\n"
        "cells = band.ReadAsArray()\n"
        "for row in range(raster.RasterYSize):\n"
        "    for col in range(raster.RasterXSize):\n"
        "        x, y, z = left + (col + 0.5) * width, top + (row + 0.5) * height, cells[row][col]\n"
        "        print('%.3f %.3f %s' % (x, y, 'none' if z == band.GetNoDataValue() else '%.3f' % z))\n";
    const auto result = test::RunGdal(script, esri.Folder().File("a.asc"));
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, expected);
  }
}

}  // namespace
}  // namespace vak
