#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>

#include "Command.h"
#include "support/CommandModels.h"
#include "support/RunGdal.h"
#include "support/TestLocale.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using test::CommandResult;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

/// Two rows of cells of 1 m; the north row has a gap.
constexpr const char* kCells =
    "1000.5,2000.5,-1.25\n1001.5,2000.5,-2\n1002.5,2000.5,-3\n1000.5,2001.5,-4\n1002.7,2001.6,-6\n";

class ExportCommand : public testing::Test {
 protected:
  CommandResult Export(const std::string& form, const Words& words) const {
    Words all = {"env", "LC_ALL=C", VAKDTM_COMMAND, "export", form, models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return test::RunCommand(all).Wait();
  }
  /// What an export writes.
  std::string Exported(const std::string& form, Words words = {}) const {
    words.insert(words.end(), {"-o", models_.File("out")});
    const CommandResult result = Export(form, words);
    EXPECT_EQ(result.status, kDone) << result.err;
    EXPECT_EQ(result.out + result.err, "");
    return result.status == kDone ? models_.Folder().Text("out") : std::string();
  }
  std::string Text(const std::string& name, const std::string& text) const {
    return models_.Folder().Write(name, text);
  }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(models_.Folder().Path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  void ExpectFails(const std::string& form, const Words& words, int status, const std::string& error) const {
    const std::vector<std::string> before = Names();
    const CommandResult result = Export(form, words);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm export " + form + ": " + error + "\n");
    EXPECT_EQ(Names(), before) << "something was left behind";
  }

  test::CommandModels models_;
};

// ---- csv

TEST_F(ExportCommand, ListHasALineForEachCellWithAValue) {
  models_.Make("a.dtm", kCells);
  const test::FileState state(models_.Folder(), "a.dtm");
  EXPECT_EQ(Exported("csv"),
            "1000.500,2000.500,-1.250\n1001.500,2000.500,-2.000\n1002.500,2000.500,-3.000\n1000.500,2001.500,-4.000\n"
            "1002.500,2001.500,-6.000\n");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(ExportCommand, ListTakesAllSettings) {
  models_.Make("a.dtm", kCells);
  const std::string all = Exported("csv", {"--blocks", "VAL,MIN,SDV", "--invert", "--extreme-positions", "--decimals",
                                           "2", "--decimal-mark", ",", "--list-separator", ";"});
  EXPECT_THAT(all, StartsWith("X;Y;(-)VAL;XMIN;YMIN;(-)MIN;SDV\n1000,50;2000,50;1,25;1000,50;2000,50;1,25;\n"));
  EXPECT_THAT(all, HasSubstr("1002,50;2001,50;6,00;1002,70;2001,60;6,00;\n"));
  EXPECT_THAT(Exported("csv", {"--units", "ft", "--decimals", "1"}), StartsWith("3282.5,6563.3,-4.1\n"));
}

TEST_F(ExportCommand, HitsThatAreConvertedLikeHeightsGetAWarning) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  const CommandResult result = Export("csv", {"-o", "-", "--blocks", "VAL,NUM", "--units", "ft"});
  EXPECT_EQ(result.out, "X,Y,VAL,NUM\n3282.480,6563.320,-4.101,3.281\n");
  EXPECT_EQ(result.err, "vakdtm export csv: warning: " + models_.File("a.dtm") +
                            ": NUM is converted like a height, which it is not - export it in metres\n");
}

TEST_F(ExportCommand, KindsThatAreNoHeightsAreNamedTogether) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  EXPECT_EQ(Export("csv", {"-o", "-", "--blocks", "NUM,VAL,TIM", "--units", "ft"}).err,
            "vakdtm export csv: warning: " + models_.File("a.dtm") +
                ": NUM, TIM are converted like heights, which they are not - export them in metres\n");
}

TEST_F(ExportCommand, PolygonWithoutTheCentreOfACellGetsAWarning) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n1001.5,2000.5,-2\n");
  const std::string polygon = Text("p.txt", "1000.6,2000\n1001.4,2000\n1001.4,2001\n1000.6,2001\n1000.6,2000\n");
  const struct {
    const char* form;
    const char* end;
    const char* content;
  } cases[] = {{"csv", "the list is empty", ""},
               {"esri", "the grid has no value",
                "NCOLS 2\nNROWS 1\nXLLCENTER 1000.500000\nYLLCENTER 2000.500000\n"
                "CELLSIZE  1.000000\nNODATA_VALUE -9999\n-9999 -9999 \n"},
               {"stream", "the stream has no cells", nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.form);
    const CommandResult result = Export(c.form, {"-o", models_.File("out"), "--polygon", polygon});
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.err, std::string("vakdtm export ") + c.form + ": warning: " + polygon +
                              ": the centre of no cell with a VAL lies in it, " + c.end + " - check its coordinates\n");
    if (c.content) {
      EXPECT_EQ(models_.Folder().Text("out"), c.content);
    }
  }
}

TEST_F(ExportCommand, ModelWithoutCellsMakesAnEmptyListAndNoGrid) {
  models_.Run({"create", models_.File("a.dtm"), "--cell-size", "1"});
  for (const char* form : {"csv", "stream"}) {
    SCOPED_TRACE(form);
    const CommandResult result = Export(form, {"-o", models_.File("out")});
    EXPECT_EQ(result.status, kDone);
    EXPECT_THAT(result.err, HasSubstr(": warning: " + models_.File("a.dtm") + ": no cell has a VAL, the "));
  }
  EXPECT_EQ(Export("csv", {"-o", "-", "--blocks", "VAL,NUM"}).out, "X,Y,VAL,NUM\n");
  ExpectFails("esri", {"-o", models_.File("grid")}, kCouldNotBeDone,
              models_.File("a.dtm") +
                  ": no cell has a VAL, and a grid of no cells has no extents - ask \"vakdtm info\" what it has");
}

TEST_F(ExportCommand, FolderThatIsClosedIsNoLackOfRoom) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  const std::string copy = models_.CopyForStrangers();
  fs::permissions(models_.Folder().Path(), static_cast<fs::perms>(0555));
  fs::permissions(models_.File("a.dtm"), static_cast<fs::perms>(0644));
  const std::string out = models_.File("out");
  const CommandResult result =
      test::CommandModels::RunAsStranger(copy, {"export", "csv", models_.File("a.dtm"), "-o", out});
  fs::permissions(models_.Folder().Path(), static_cast<fs::perms>(0700));
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err,
            "vakdtm export csv: " + out + ": cannot write: permission denied - name another file with -o\n");
}

TEST_F(ExportCommand, ListOfCornersInterpolates) {
  models_.Make("a.dtm", "0.5,0.5,-1\n1.5,0.5,-2\n0.5,1.5,-3\n1.5,1.5,-6\n");
  EXPECT_EQ(Exported("csv", {"--corners"}), "1.000,1.000,-3.000\n");
}

TEST_F(ExportCommand, ListIsInTheUsersLocale) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  const auto comma = test::TestLocale::OfDecimalPoint(",");
  const CommandResult result =
      test::RunCommand(comma.Line({VAKDTM_COMMAND, "export", "csv", models_.File("a.dtm"), "-o", "-"})).Wait();
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(result.out, "1000,500;2000,500;-1,250\n");
  const CommandResult overridden =
      test::RunCommand(comma.Line({VAKDTM_COMMAND, "export", "csv", models_.File("a.dtm"), "-o", "-", "--decimal-mark",
                                   ".", "--list-separator", "\t"}))
          .Wait();
  EXPECT_EQ(overridden.out, "1000.500\t2000.500\t-1.250\n");
}

TEST_F(ExportCommand, DecimalMarkAloneBringsItsListSeparator) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  const auto comma = test::TestLocale::OfDecimalPoint(",");
  const auto list = [&](const Words& words, bool inComma) {
    Words all = {VAKDTM_COMMAND, "export", "csv", models_.File("a.dtm"), "-o", "-"};
    all.insert(all.end(), words.begin(), words.end());
    if (!inComma) all.insert(all.begin(), {"env", "LC_ALL=C"});
    return test::RunCommand(inComma ? comma.Line(all) : all).Wait().out;
  };
  for (const bool inComma : {false, true}) {
    SCOPED_TRACE(inComma);
    EXPECT_EQ(list({"--decimal-mark", ","}, inComma), "1000,500;2000,500;-1,250\n");
    EXPECT_EQ(list({"--decimal-mark", "."}, inComma), "1000.500,2000.500,-1.250\n");
    EXPECT_EQ(list({"--decimal-mark", "\xD9\xAB"}, inComma),
              "1000\xD9\xAB"
              "500;2000\xD9\xAB"
              "500;-1\xD9\xAB"
              "250\n");
  }
  EXPECT_EQ(list({"--list-separator", "|"}, false), "1000.500|2000.500|-1.250\n");
  EXPECT_EQ(list({"--list-separator", "|"}, true), "1000,500|2000,500|-1,250\n") << "the locale's mark stays";
}

TEST_F(ExportCommand, MarksThatCannotBeToldFromTheNumbersAreMisuse) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  const std::string out = models_.File("out");
  for (const std::string option : {"--decimal-mark", "--list-separator"}) {
    for (const char* mark : {"::", "0", "9", "-", "+", "e", "Z", "\"", "'", " ", "\n", "\r", "\x01", "\x7f", "\xC3\xA4",
                             "\xC2\xA0", "\xC2\x85", "\xE2\x80\x83", "\xD9\xA1"}) {
      SCOPED_TRACE(option + " " + mark);
      const CommandResult result = Export("csv", {"-o", out, option, mark});
      EXPECT_EQ(result.status, kUsedWrongly);
      EXPECT_THAT(result.err, StartsWith("vakdtm export csv: " + option + ": '"));
      EXPECT_THAT(result.err, HasSubstr("is no mark"));
    }
  }
  EXPECT_EQ(Export("csv", {"-o", out, "--decimal-mark", "\t"}).status, kUsedWrongly);
  for (const Words& same : {Words{"--decimal-mark", ",", "--list-separator", ","}, Words{"--list-separator", "."},
                            Words{"--decimal-mark", ";"}}) {
    Words words = {"-o", out};
    words.insert(words.end(), same.begin(), same.end());
    const CommandResult result = Export("csv", words);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, HasSubstr("would be decimal mark and list separator"));
  }
  EXPECT_FALSE(models_.Folder().Has("out"));
}

TEST_F(ExportCommand, OptionWithNothingInItIsMisuseAndNotLeftOut) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  const struct {
    const char* form;
    const char* option;
  } cases[] = {{"csv", "--polygon"},      {"csv", "--project"},        {"csv", "--blocks"},    {"csv", "--units"},
               {"csv", "--decimal-mark"}, {"csv", "--list-separator"}, {"csv", "--decimals"},  {"esri", "--polygon"},
               {"esri", "--format"},      {"esri", "--no-data"},       {"stream", "--polygon"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.form) + " " + c.option);
    const CommandResult result = Export(c.form, {"-o", models_.File("out"), c.option, ""});
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, StartsWith(std::string("vakdtm export ") + c.form + ": " + c.option + ": '' is "));
  }
  EXPECT_EQ(Export("csv", {"-o", ""}).status, kUsedWrongly);
  EXPECT_FALSE(models_.Folder().Has("out"));
}

TEST_F(ExportCommand, PolygonLeavesOutCellsByTheirCentre) {
  models_.Make("a.dtm", kCells);
  const std::string polygon = Text("p.txt", "1000.4,2000\n1001.6,2000\n1001.6,2001.4\n1000.4,2001.4\n1000.4,2000\n");
  EXPECT_EQ(Exported("csv", {"--polygon", polygon}), "1000.500,2000.500,-1.250\n1001.500,2000.500,-2.000\n");
}

// ---- esri

TEST_F(ExportCommand, GridHasTheNorthRowFirst) {
  models_.Make("a.dtm", kCells);
  EXPECT_EQ(Exported("esri"),
            "NCOLS 3\nNROWS 2\nXLLCENTER 1000.500000\nYLLCENTER 2000.500000\nCELLSIZE  1.000000\nNODATA_VALUE -9999\n"
            "-4.000 -9999 -6.000 \n-1.250 -2.000 -3.000 \n");
}

TEST_F(ExportCommand, GridTakesAllSettings) {
  models_.Make("a.dtm", kCells);
  EXPECT_EQ(Exported("esri", {"--corner", "--no-data", "-1", "--digits", "1"}),
            "NCOLS 3\nNROWS 2\nXLLCORNER 1000.000000\nYLLCORNER 2000.000000\nCELLSIZE  1.000000\nNODATA_VALUE -1\n"
            "-4.0 -1 -6.0 \n-1.2 -2.0 -3.0 \n");
  EXPECT_THAT(Exported("esri", {"--format", "%g"}), HasSubstr("\n-4 -9999 -6 \n-1.25 -2 -3 \n"));
  EXPECT_THAT(Exported("esri", {"--block", "NUM", "--digits", "0"}), HasSubstr("\n1 -9999 1 \n1 1 1 \n"));
}

TEST_F(ExportCommand, GridKeepsItsExtentsWithinAPolygon) {
  models_.Make("a.dtm", kCells);
  const std::string polygon = Text("p.txt", "1000,2000\n1002,2000\n1002,2001\n1000,2001\n1000,2000\n");
  EXPECT_THAT(Exported("esri", {"--polygon", polygon}),
              HasSubstr("NODATA_VALUE -9999\n-9999 -9999 -9999 \n-1.250 -2.000 -9999 \n"));
}

TEST_F(ExportCommand, GridHasThePointWhateverTheLocale) {
  models_.Make("a.dtm", "1000.5,2000.5,-1.25\n");
  const auto comma = test::TestLocale::OfDecimalPoint(",");
  const CommandResult result =
      test::RunCommand(comma.Line({VAKDTM_COMMAND, "export", "esri", models_.File("a.dtm"), "-o", "-"})).Wait();
  EXPECT_THAT(result.out, testing::EndsWith("NODATA_VALUE -9999\n-1.250 \n"));
}

TEST_F(ExportCommand, AnotherReaderSeesTheCellsInGridAndList) {
  std::string soundings;
  for (int i = 0; i < 400; ++i) {
    if (i % 7 == 3) continue;
    soundings += std::to_string(500000 + i % 20) + ".5," + std::to_string(5800000 + i / 20) + ".5," +
                 std::to_string(-10 - std::sin(i)) + "\n";
  }
  models_.Make("a.dtm", soundings);
  Text("cells.txt", models_.Cells("a.dtm"));
  Exported("esri", {"--format", "%.17g"});
  fs::rename(models_.File("out"), models_.File("grid.asc"));
  Exported("csv", {"--blocks", "VAL,NUM", "--decimals", "9"});
  fs::rename(models_.File("out"), models_.File("list.csv"));
  const CommandResult result = test::RunGdal(
      "gdal.SetConfigOption('AAIGRID_DATATYPE', 'Float64')\n"
      "folder = sys.argv[1]\n"
      "cells = {tuple(map(float, l.split()[:2])): float(l.split()[2]) for l in open(folder + '/cells.txt')}\n"
      "grid = gdal.Open(folder + '/grid.asc')\n"
      "x0, dx, _, y0, _, dy = grid.GetGeoTransform()\n"
      "values = grid.ReadAsArray()\n"
      "none = grid.GetRasterBand(1).GetNoDataValue()\n"
      "seen = {(x0 + (c + .5) * dx, y0 + (r + .5) * dy): values[r][c]\n"
      "        for r in range(grid.RasterYSize) for c in range(grid.RasterXSize) if values[r][c] != none}\n"
      "assert seen == cells, 'the grid differs'\n"
      "file = gdal.OpenEx(folder + '/list.csv', gdal.OF_VECTOR)\n"
      "listed = {(float(f['X']), float(f['Y'])): float(f['VAL']) for f in file.GetLayer(0)}\n"
      "assert listed.keys() == cells.keys(), 'the list has other places'\n"
      "assert max(abs(listed[k] - cells[k]) for k in cells) < 1e-9, 'the list has other values'\n"
      "print(len(cells))\n",
      models_.Folder().Path().string());
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "343\n");
}

// ---- stream

TEST_F(ExportCommand, StreamHasTheKindsAndARecordForEachCell) {
  models_.Make("a.dtm", kCells, {"--blocks", "NUM,VAL"});
  const std::string stream = Exported("stream");
  std::int32_t head[3] = {};
  ASSERT_EQ(stream.size(), sizeof head + 5 * (4 + 4 + 4 + 8));
  std::memcpy(head, stream.data(), sizeof head);
  EXPECT_EQ(head[0], 2);
  std::int32_t row = 0;
  double z = 0;
  std::memcpy(&row, stream.data() + 12, sizeof row);
  std::memcpy(&z, stream.data() + 24, sizeof z);
  EXPECT_EQ(row, 2000);
  EXPECT_EQ(z, -1.25);
  const std::string polygon = Text("p.txt", "1000,2000\n1002,2000\n1002,2001\n1000,2001\n1000,2000\n");
  EXPECT_EQ(Exported("stream", {"--polygon", polygon}).size(), sizeof head + 2 * 20);
  EXPECT_EQ(Export("stream", {"-o", "-"}).out, stream);
}

// ---- What all of them do

TEST_F(ExportCommand, StandardOutputAndDevicesAreWrittenToo) {
  models_.Make("a.dtm", "1000.5,2000.5,-1\n");
  EXPECT_EQ(Export("csv", {"-o", "-"}).out, "1000.500,2000.500,-1.000\n");
  EXPECT_EQ(Export("csv", {"-o", "/dev/null"}).status, kDone);
  EXPECT_THAT(Export("esri", {"-o", "-"}).out, StartsWith("NCOLS 1\n"));
}

TEST_F(ExportCommand, FileThatIsThereIsReplacedWhenTheNewOneIsComplete) {
  models_.Make("a.dtm", "1000.5,2000.5,-1\n");
  Text("out", "old");
  fs::permissions(models_.File("out"), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Exported("csv"), "1000.500,2000.500,-1.000\n");
  EXPECT_EQ(fs::status(models_.File("out")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Names(), (std::vector<std::string>{"a.dtm", "out"}));
}

TEST_F(ExportCommand, FullDiskIsToldAndLeavesTheOldFile) {
  models_.Make("a.dtm", kCells);
  Text("out", "old");
  const std::vector<std::string> before = Names();
  for (const char* form : {"csv", "esri", "stream"}) {
    SCOPED_TRACE(form);
    // Messages go to a terminal, since no file may grow.
    const Words words = {"bash",
                         "-c",
                         "trap '' XFSZ; ulimit -f 0; exec \"$0\" export \"$1\" \"$2\" -q -o \"$3\"",
                         VAKDTM_COMMAND,
                         form,
                         models_.File("a.dtm"),
                         models_.File("out")};
    const CommandResult result = test::RunCommand(words, {}, test::RunCommand::StandardError::kTerminal).Wait();
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_THAT(result.err,
                StartsWith(std::string("vakdtm export ") + form + ": " + models_.File("out") + ": cannot write: "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    EXPECT_EQ(models_.Folder().Text("out"), "old");
    EXPECT_EQ(Names(), before);
    EXPECT_EQ(Export(form, {"-o", "/dev/full"}).err,
              std::string("vakdtm export ") + form +
                  ": /dev/full: cannot write: no space left on the device - make room, or name another file with -o\n");
  }
}

TEST_F(ExportCommand, CtrlCLeavesNoHalfFile) {
  // A grid of 400 million cells, nearly all of them empty.
  models_.Make("a.dtm", "0.5,0.5,-1\n19999.5,19999.5,-2\n", {"--blocks", "VAL"});
  const std::vector<std::string> before = Names();
  test::RunCommand command({VAKDTM_COMMAND, "export", "esri", models_.File("a.dtm"), "-o", models_.File("out")});
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  const auto grows = [this] {
    for (const auto& entry : fs::directory_iterator(models_.Folder().Path())) {
      if (entry.path().extension() == ".part" && entry.file_size() > 0) return true;
    }
    return false;
  };
  while (!grows() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_EQ(result.err, "vakdtm export esri: stopped - nothing was kept\n");
  EXPECT_EQ(Names(), before);
}

TEST_F(ExportCommand, GridThatCannotFitIsRefusedWithItsSize) {
  models_.Make("a.dtm", "0.5,0.5,-1\n1999999999.5,1999999999.5,-2\n", {"--blocks", "VAL"});
  const CommandResult result = Export("esri", {"-o", models_.File("out")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, testing::MatchesRegex(
                              "vakdtm export esri: .*/out: the grid has 2000000000 x 2000000000 cells and takes "
                              "8000000000 GB at least, with room for [0-9]+ - make room, or write the cells alone "
                              "with \"vakdtm export csv\"\n"));
  EXPECT_EQ(Names(), (std::vector<std::string>{"a.dtm"}));
}

TEST_F(ExportCommand, WhatCannotBeDoneIsToldInOneLine) {
  models_.Make("a.dtm", kCells, {"--blocks", "VAL,TVU"});
  const std::string out = models_.File("out");
  const std::string model = models_.File("a.dtm");
  const std::string far = Text("far.txt", "0,0\n1,0\n1,1\n0,0\n");
  for (const char* form : {"csv", "esri", "stream"}) {
    SCOPED_TRACE(form);
    ExpectFails(form, {"-o", out, "--polygon", far}, kCouldNotBeDone,
                far +
                    ": lies outside the model, whose areas reach from x 960 to 1024 and y 1984 to 2048 - check its "
                    "coordinates");
    ExpectFails(form, {"-o", model}, kUsedWrongly,
                "the model would be replaced by its own export - name another file with -o");
    ExpectFails(form, {"-o", models_.File("nowhere/out")}, kCouldNotBeDone,
                models_.File("nowhere/out") + ": cannot write: there is no such folder - name another file with -o");
    ExpectFails(form, {"-o", models_.Folder().Path().string()}, kCouldNotBeDone,
                models_.Folder().Path().string() + ": cannot write: it is a folder - name another file with -o");
  }
  ExpectFails("csv", {"-o", out, "--blocks", "NUM"}, kCouldNotBeDone,
              model + ": records no NUM - ask \"vakdtm info\" which kinds it has");
  ExpectFails("esri", {"-o", out, "--block", "TVU"}, kCouldNotBeDone,
              model + ": no cell has a TVU, and a grid of no cells has no extents - ask \"vakdtm info\" what it has");
}

TEST_F(ExportCommand, ExportReplacesNoneOfItsInputs) {
  models_.Make("a.dtm", kCells);
  const std::string polygon = Text("p.txt", "1000,2000\n1002,2000\n1002,2001\n1000,2001\n1000,2000\n");
  const std::string project = Text("project.ini", "[UNITS]\nSystem Units=m\n");
  fs::create_symlink("p.txt", models_.File("link.txt"));
  const test::FileState ring(models_.Folder(), "p.txt");
  for (const char* form : {"csv", "esri", "stream"}) {
    SCOPED_TRACE(form);
    for (const std::string& target : {polygon, models_.File("link.txt")}) {
      ExpectFails(form, {"-o", target, "--polygon", polygon}, kUsedWrongly,
                  "the polygon would be replaced by the export - name another file with -o");
    }
  }
  ExpectFails("csv", {"-o", project, "--project", project}, kUsedWrongly,
              "the project file would be replaced by the export - name another file with -o");
  EXPECT_TRUE(ring.IsUnchanged());
  EXPECT_EQ(models_.Folder().Text("project.ini"), "[UNITS]\nSystem Units=m\n");
}

TEST_F(ExportCommand, WrongUseIsMisuse) {
  models_.Make("a.dtm", kCells);
  const struct {
    const char* form;
    Words words;
    const char* error;
  } cases[] = {
      {"csv", {"--blocks", "ABC"}, "--blocks: no kind of value is called \"ABC\""},
      {"csv", {"--decimal-mark", "::"}, "'::' is no mark"},
      {"esri", {"--block", "VAL,NUM"}, "--block: a grid has one kind of value"},
      {"esri", {"--format", "%d"}, "--format: '%d' is no format for one number"},
      {"esri", {"--format", "%f %f"}, "is no format for one number"},
      {"esri", {"--format", "%f", "--digits", "2"}, "excludes"},
      {"esri", {"--no-data", "no data"}, "--no-data: 'no data' is no word"},
      {"stream", {"--blocks", "VAL"}, "--blocks"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    Words words = c.words;
    words.insert(words.end(), {"-o", models_.File("out")});
    const CommandResult result = Export(c.form, words);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, StartsWith(std::string("vakdtm export ") + c.form + ": "));
    EXPECT_THAT(result.err, HasSubstr(c.error));
  }
  const struct {
    Words words;
    const char* error;
  } groups[] = {{{"export"}, "one of csv|esri|stream|geotiff is missing"},
                {{"export", "dwg"}, "'dwg' is none of csv|esri|stream|geotiff"},
                {{"export", "dwg", models_.File("a.dtm"), "-o", "-"}, "'dwg' is none of csv|esri|stream|geotiff"},
                {{"export", "--quick", "dwg"}, "'dwg' is none of csv|esri|stream|geotiff"}};
  for (const auto& c : groups) {
    SCOPED_TRACE(c.error);
    EXPECT_EQ(models_.Run(c.words).status, kUsedWrongly);
    EXPECT_EQ(models_.Run(c.words).err, std::string("vakdtm export: ") + c.error + " - see 'vakdtm export --help'\n");
  }
  EXPECT_EQ(Export("csv", {}).status, kUsedWrongly) << "an output has to be named";
}

TEST_F(ExportCommand, HelpOfEveryFormHasAnExampleOfIt) {
  const std::string list = models_.Run({"export", "--help"}).out;
  for (const std::string form : {"csv", "esri", "stream"}) {
    EXPECT_THAT(list, HasSubstr("\n  " + form + " "));
    const CommandResult help = models_.Run({"export", form, "--help"});
    EXPECT_EQ(help.status, kDone);
    EXPECT_THAT(help.out, HasSubstr("Example:\n  vakdtm export " + form + " "));
  }
}

TEST_F(ExportCommand, DamagedModelIsNotExported) {
  models_.Make("a.dtm", "0.5,0.5,-3\n100.5,0.5,-4\n");
  const std::size_t place = models_.Damage("a.dtm");
  for (const char* form : {"csv", "esri", "stream"}) {
    ExpectFails(form, {"-o", models_.File("out")}, kCouldNotBeDone,
                models_.File("a.dtm") + ": damaged at offset " + std::to_string(place) + " - run \"vakdtm verify " +
                    models_.File("a.dtm") + "\"");
  }
}

}  // namespace
}  // namespace vak
