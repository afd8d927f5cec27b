#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>

#include "Command.h"
#include "StopSignals.h"
#include "support/CommandModels.h"
#include "support/TestGrid.h"
#include "support/TestLocale.h"

namespace vak {
namespace {

using nlohmann::json;
using test::CommandResult;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

/// Four cells of 1 m side by side, the first hit twice; z -2, -4, -6, -8 from the west.
constexpr const char* kFour =
    "1000.5,2000.5,-1\n1000.5,2000.5,-3\n1001.5,2000.5,-4\n1002.5,2000.5,-6\n1003.5,2000.5,-8\n";

/// The same cells with a sounding each.
constexpr const char* kPlain = "1000.5,2000.5,-2\n1001.5,2000.5,-4\n1002.5,2000.5,-6\n1003.5,2000.5,-8\n";

class StatsCommand : public testing::Test {
 protected:
  CommandResult Stats(const Words& words) const {
    Words all = {"env", "TZ=UTC0", "LC_ALL=C", VAKDTM_COMMAND, "stats", models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return test::RunCommand(all).Wait();
  }
  json StatsJson(Words words) const {
    words.push_back("--json");
    const CommandResult result = Stats(words);
    EXPECT_EQ(result.status, kDone) << result.err;
    return json::parse(result.out);
  }
  std::string Text(const std::string& name, const std::string& text) const {
    return models_.Folder().Write(name, text);
  }
  /// A rectangle as a polygon in a text.
  std::string Box(const std::string& name, const std::string& x0, const std::string& y0, const std::string& x1,
                  const std::string& y1) const {
    return Text(name, x0 + "," + y0 + "\n" + x1 + "," + y0 + "\n" + x1 + "," + y1 + "\n" + x0 + "," + y1 + "\n" + x0 +
                          "," + y0 + "\n");
  }
  void ExpectRefuses(const Words& words, const std::string& error) const {
    const CommandResult result = Stats(words);
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm stats: " + error + "\n");
  }

  test::CommandModels models_;
};

TEST_F(StatsCommand, ReportGoesToStandardOutput) {
  models_.Make("a.dtm", "1000.5,2000.5,-1,\n1000.5,2000.5,-3\n1001.5,2000.5,-4\n", {"--blocks", "VAL,NUM,SDV,MIN,MAX"});
  const test::FileState state(models_.Folder(), "a.dtm");
  const CommandResult result = Stats({});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "Used cells: \t\t2\n"
            "Used area: \t\t2.00 m²\n"
            "Empty area:\t\t4094.00 m²\n\n"
            "Z minimum(Deepest):\t-4.000 m\n"
            "Z maximum(Highest):\t-1.000 m\n"
            "Z average: \t\t-2.667 m\n"
            // The root of ((2 + 1) * 2 + 2 * 4 + 16 - 3 * (8 / 3)^2) / 2.
            "Z standard deviation: \t2.082 m\n\n"
            "Cells Z standard deviation: \t1.414 m\n\n"
            "Total hit count:\t\t3\n"
            "Latest time:\t\t-\n");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(StatsCommand, JsonHasEveryKeyInOrderAndNullForWhatIsNotThere) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  EXPECT_EQ(Stats({"--json"}).out,
            "{\"used_cells\":4.0,\"used_area\":4.0,\"empty_area\":4092.0,\"unused_area\":null,\"average\":-5.0,"
            "\"standard_deviation\":2.581988897471611,\"cells_standard_deviation\":null,\"minimum\":{\"z\":-8.0,"
            "\"x\":null,\"y\":null},\"maximum\":{\"z\":-2.0,\"x\":1003.5,\"y\":2000.5},\"total_number\":4,"
            "\"total_duration\":null,\"latest_time\":null}\n");
}

TEST_F(StatsCommand, ModelWithoutACellHasNoFigures) {
  models_.Run({"create", models_.File("a.dtm"), "--cell-size", "1"});
  const json figures = StatsJson({});
  EXPECT_EQ(figures["used_cells"], 0.0);
  for (const char* key : {"unused_area", "average", "standard_deviation", "cells_standard_deviation", "minimum",
                          "maximum", "total_duration", "latest_time"}) {
    EXPECT_TRUE(figures[key].is_null()) << key;
  }
  EXPECT_THAT(Stats({}).out, HasSubstr("Z minimum(Deepest):\t-\n"));
}

TEST_F(StatsCommand, FiguresThatAreNoNumbersAreNullOrSaySo) {
  test::TestGrid grid;
  grid.Draw("-1 . -3");
  grid.Set(0, 1, dVAL, std::nan("3"));
  grid.Close();
  models_.Folder().Write("a.dtm", grid.Bytes());
  const json figures = StatsJson({});
  EXPECT_EQ(figures["used_cells"], 3.0);
  EXPECT_TRUE(figures["average"].is_null() && figures["standard_deviation"].is_null()) << figures;
  EXPECT_THAT(Stats({"--results", models_.File("r.csv")}).out,
              HasSubstr("Z average: \t\tnan m\nZ standard deviation: \tnan m\n"));
  EXPECT_THAT(models_.Folder().Text("r.csv"), HasSubstr(",-3.000,-1.000,nan,nan,,3,"));
}

TEST_F(StatsCommand, AllKindsCount) {
  models_.Make("a.dtm", kFour);
  const json figures = StatsJson({});
  EXPECT_EQ(figures["total_number"], 5);
  EXPECT_DOUBLE_EQ(figures["average"], -22.0 / 5);
  EXPECT_EQ(figures["minimum"], (json{{"z", -8.0}, {"x", 1003.5}, {"y", 2000.5}}));
  EXPECT_EQ(figures["maximum"], (json{{"z", -1.0}, {"x", 1000.5}, {"y", 2000.5}}));
  EXPECT_GT(figures["latest_time"], 1.7e9);
}

TEST_F(StatsCommand, PolygonCountsCellsWithTheirSharesInIt) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  // Half of the second cell's height and a quarter of the third cell, and as much again where no sounding is.
  const json figures = StatsJson({"--polygon", Box("p.txt", "1001", "1999.5", "1002.5", "2000.5")});
  EXPECT_DOUBLE_EQ(figures["used_area"], 0.75);
  EXPECT_DOUBLE_EQ(figures["used_cells"], 0.75);
  EXPECT_DOUBLE_EQ(figures["unused_area"], 0.75);
  EXPECT_DOUBLE_EQ(figures["average"], (0.5 * -4 + 0.25 * -6) / 0.75);
  EXPECT_EQ(figures["minimum"]["z"], -6.0);
  EXPECT_EQ(figures["maximum"]["z"], -4.0);
  const CommandResult report = Stats({"--polygon", models_.File("p.txt")});
  EXPECT_THAT(report.out, StartsWith("Clipping polygon:\t\tp.txt\nUsed cells: \t\t0\nUsed area: \t\t0.75 m²\n"
                                     "Empty area:\t\t0.75 m²\n"));
}

TEST_F(StatsCommand, HoleTakesItsCellsOut) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const json figures = StatsJson({"--polygon", Text("p.geojson", R"({"type":"Polygon","coordinates":[
      [[1000,2000],[1004,2000],[1004,2001],[1000,2001],[1000,2000]],
      [[1001,2000.25],[1003,2000.25],[1003,2000.75],[1001,2000.75],[1001,2000.25]]]})")});
  EXPECT_DOUBLE_EQ(figures["used_area"], 3.0);
  EXPECT_NEAR(figures["unused_area"], 0.0, 1e-9);
  EXPECT_DOUBLE_EQ(figures["average"], (-2 - 0.5 * 4 - 0.5 * 6 - 8) / 3.0);
}

TEST_F(StatsCommand, OverlapCountsTwiceAndWarns) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string polygon = Text("p.txt",
                                   "1000,2000\n1002,2000\n1002,2001\n1000,2001\n1000,2000\n\n"
                                   "1001,2000\n1003,2000\n1003,2001\n1001,2001\n1001,2000\n");
  const CommandResult result = Stats({"--polygon", polygon, "--json"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm stats: warning: " + polygon +
                            ":7: the ring overlaps the ring at line 1 at 1001, 2000: what both hold counts twice - "
                            "merge them if it should count once\n");
  EXPECT_EQ(json::parse(result.out)["used_area"], 4.0);
  EXPECT_EQ(Stats({"--polygon", polygon, "--quiet"}).err, "");
}

TEST_F(StatsCommand, HoleBesideItsRingIsRefused) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string polygon = Text("p.geojson", R"({"type":"Polygon","coordinates":[
      [[1000,2000],[1001,2000],[1001,2001],[1000,2000]],[[1002,2000],[1003,2000],[1003,2001],[1002,2000]]]})");
  ExpectRefuses({"--polygon", polygon}, polygon +
                                            ": polygon 1, ring 2: is a hole, but not within its ring, at 1002, 2000 - "
                                            "make it a polygon of its own, or leave it out");
}

TEST_F(StatsCommand, RectangleCountsWhatLiesInIt) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const json figures = StatsJson({"--rect", "1000.5,2000,1002,2000.5"});
  EXPECT_DOUBLE_EQ(figures["used_area"], 0.25 + 0.5);
  EXPECT_DOUBLE_EQ(figures["average"], (0.25 * -2 + 0.5 * -4) / 0.75);
  EXPECT_TRUE(figures["unused_area"].is_null());
  EXPECT_EQ(StatsJson({"--rect", "-1e15,-1e15,1e15,1e15"}), StatsJson({})) << "however large";
}

TEST_F(StatsCommand, ExtremeMeasuredOutsideTheRectangleIsNone) {
  models_.Make("a.dtm", "1000.9,2000.5,-9\n1000.2,2000.5,-3\n");
  const json figures = StatsJson({"--rect", "1000,2000,1000.5,2001"});
  EXPECT_DOUBLE_EQ(figures["used_area"], 0.5);
  EXPECT_TRUE(figures["minimum"].is_null()) << "it lies in the cell's other half";
  EXPECT_EQ(figures["maximum"]["z"], -3.0);
}

TEST_F(StatsCommand, OfPolygonAndRectangleCountsWhatIsInBoth) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string polygon = Box("p.txt", "1000", "2000", "1002.5", "2000.5");
  const json figures = StatsJson({"--polygon", polygon, "--rect", "1000.5,1990,1002.25,2010"});
  EXPECT_DOUBLE_EQ(figures["used_area"], 0.25 + 0.5 + 0.125);
  EXPECT_NEAR(figures["unused_area"], 0.0, 1e-9);
}

TEST_F(StatsCommand, ReportIsInTheUnitsThatTheOptionsAndTheProjectSay) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string project = Text("project.ini", "[UNITS]\nSystem Units=ft\nHeight Decimals=1\n");
  const struct {
    Words words;
    const char* line;
  } cases[] = {
      {{}, "Z average: \t\t-5.000 m\n"},
      {{"--decimals", "1"}, "Z average: \t\t-5.0 m\n"},
      {{"--units", "ft"}, "Z average: \t\t-16.404 ft\n"},
      {{"--units", "us-ft", "--decimals", "5"}, "Z average: \t\t-16.40417 ftUS\n"},
      {{"--project", project}, "Z average: \t\t-16.4 ft\n"},
      {{"--project", project, "--units", "m"}, "Z average: \t\t-5.0 m\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_THAT(Stats(c.words).out, HasSubstr(c.line));
  }
  EXPECT_THAT(Stats({"--units", "ft"}).out, HasSubstr("Used area: \t\t4.00 m²\nEmpty area:\t\t4092.00 m²\n"))
      << "surfaces are square metres";
  Stats({"--units", "ft", "--results", models_.File("r.csv")});
  EXPECT_THAT(models_.Folder().Text("r.csv"), HasSubstr("Used area:  m²,Empty area: m²,Z minimum(Deepest): ft,"));
  EXPECT_EQ(StatsJson({"--units", "ft"}), StatsJson({})) << "JSON is in metres";
}

TEST_F(StatsCommand, ResultListGetsAHeadingOnceAndALineForEachRun) {
  models_.Make("a.dtm", kFour, {"--blocks", "VAL,NUM,SDV,TIM"});
  const std::string list = models_.File("results.csv");
  const std::string polygon = Box("berth.txt", "1000", "2000", "1001", "2001");
  EXPECT_EQ(Stats({"--polygon", polygon, "--results", list, "--json"}).status, kDone);
  const CommandResult second = Stats({"--results", list});
  EXPECT_EQ(second.status, kDone) << second.err;
  EXPECT_THAT(second.out, StartsWith("Used cells: \t\t4\n"));
  std::vector<std::string> lines;
  std::istringstream text(models_.Folder().Text("results.csv"));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0],
            "Clipping polygon:,Used cells: ,Used area:  m²,Empty area: m²,Z minimum(Deepest): m,Z maximum(Highest): m,"
            "Z average:  m,Z standard deviation:  m,Cells Z standard deviation:  m,Total hit count:,Latest time:");
  EXPECT_THAT(lines[1], StartsWith("berth.txt,1,1.00,0.00,-2.000,-2.000,-2.000,2.449,1.414,2,20"));
  EXPECT_THAT(lines[2], StartsWith(",4,4.00,4092.00,-8.000,-2.000,-4.400,"));
}

TEST_F(StatsCommand, ResultListMayBeNoneOfTheInputs) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string polygon = Box("p.txt", "1000", "2000", "1001", "2001");
  const std::string project = Text("project.ini", "[UNITS]\nSystem Units=m\n");
  std::filesystem::create_hard_link(polygon, models_.File("link.txt"));
  const struct {
    Words words;
    const char* name;
  } cases[] = {{{"--results", models_.File("a.dtm")}, "model"},
               {{"--polygon", polygon, "--results", polygon}, "polygon"},
               {{"--polygon", polygon, "--results", models_.File("./link.txt")}, "polygon"},
               {{"--project", project, "--results", project}, "project file"}};
  const test::FileState model(models_.Folder(), "a.dtm");
  const test::FileState ring(models_.Folder(), "p.txt");
  const test::FileState settings(models_.Folder(), "project.ini");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const CommandResult result = Stats(c.words);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, std::string("vakdtm stats: the results would be appended to the ") + c.name +
                              " - name another file with --results\n");
  }
  EXPECT_TRUE(model.IsUnchanged() && ring.IsUnchanged() && settings.IsUnchanged());
  EXPECT_EQ(Stats({"--results", "-"}).status, kUsedWrongly);
  EXPECT_THAT(Stats({"--results", "-"}).err, StartsWith("vakdtm stats: --results: a list is a file to append to - "));
  EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(StatsCommand, ResultListOfOtherHeadingsIsRefusedAndStaysAsItWas) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string list = models_.File("r.csv");
  ASSERT_EQ(Stats({"--results", list}).status, kDone);
  const std::string headings = models_.Folder().Text("r.csv").substr(0, models_.Folder().Text("r.csv").find('\n'));
  const struct {
    const char* name;
    std::string content;
    Words words;
  } cases[] = {{"heights in another unit", headings + "\n", {"--units", "ft"}},
               {"another file", "x,y,z\n1,2,3\n", {}},
               {"an empty line first", "\n" + headings + "\n", {}},
               {"a part of them", headings.substr(0, 40), {}},
               {"more than them", headings + ",\n", {}},
               {"another locale", "Clipping polygon:;Used cells: \n", {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Text("r.csv", c.content);
    Words words = c.words;
    words.insert(words.end(), {"--results", list});
    ExpectRefuses(words, list +
                             ":1: these are not the headings of this report, or those of other units or another "
                             "locale - name another file with --results");
    EXPECT_EQ(models_.Folder().Text("r.csv"), c.content);
  }
}

TEST_F(StatsCommand, ResultBeginsALineWhateverTheListEndsWith) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string list = models_.File("r.csv");
  ASSERT_EQ(Stats({"--results", list}).status, kDone);
  const std::string whole = models_.Folder().Text("r.csv");
  const std::size_t end = whole.find('\n');
  const std::string headings = whole.substr(0, end);
  const std::string line = whole.substr(end + 1);
  const std::string contents[] = {headings, headings + "\n1,2", headings + "\r\n1,2\r\n",
                                  "\xEF\xBB\xBF" + headings + "\n"};
  for (const std::string& content : contents) {
    SCOPED_TRACE(content);
    Text("r.csv", content);
    EXPECT_EQ(Stats({"--results", list}).status, kDone);
    EXPECT_EQ(models_.Folder().Text("r.csv"), content + (content.ends_with('\n') ? "" : "\n") + line);
  }
}

TEST_F(StatsCommand, ResultListIsInTheUsersLocale) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const auto comma = test::TestLocale::OfDecimalPoint(",");
  const CommandResult result =
      test::RunCommand(comma.Line({VAKDTM_COMMAND, "stats", models_.File("a.dtm"), "--results", models_.File("r.csv")}))
          .Wait();
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_THAT(models_.Folder().Text("r.csv"), EndsWith("\n;4;4,00;4092,00;-8,000;-2,000;-5,000;2,582;;4;\n"));
}

TEST_F(StatsCommand, WhatCannotBeDoneIsToldInOneLine) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string far = Box("far.txt", "0", "0", "1", "1");
  ExpectRefuses({"--polygon", far}, far +
                                        ": lies outside the model, whose areas reach from x 960 to 1024 and y 1984 to "
                                        "2048 - check its coordinates");
  ExpectRefuses(
      {"--rect", "0,0,1,1"},
      "the rectangle: lies outside the model, whose areas reach from x 960 to 1024 and y 1984 to 2048 - check "
      "its coordinates");
  const std::string polygon = Box("p.txt", "1000", "2000", "1001", "2001");
  ExpectRefuses({"--polygon", polygon, "--rect", "1002,2000,1003,2001"},
                polygon + ": lies outside the rectangle - check --rect");
  const std::string open = Text("open.txt", "0,0\n1,0\n1,1\n");
  ExpectRefuses({"--polygon", open}, open +
                                         ":1: the ring isn't closed: it begins at 0, 0 and ends at 1, 1 - repeat its "
                                         "first vertex at its end");
  ExpectRefuses({"--results", models_.File("nowhere/r.csv")},
                models_.File("nowhere/r.csv") +
                    ": the results cannot be written: there is no such folder - name another file with --results");
  ExpectRefuses({"--project", models_.File("none.ini")},
                models_.File("none.ini") + ": the project file cannot be read - check the name");
}

TEST_F(StatsCommand, ModelWithoutMeanHeightsIsRefused) {
  models_.Make("a.dtm", kFour, {"--blocks", "NUM"});
  ExpectRefuses({}, models_.File("a.dtm") + ": records no VAL - statistics are those of the mean heights");
}

TEST_F(StatsCommand, DamagedModelHasNoReportAndNoResult) {
  models_.Make("a.dtm", "0.5,0.5,-3\n100.5,0.5,-4\n");
  const std::size_t place = models_.Damage("a.dtm");
  const test::FileState state(models_.Folder(), "a.dtm");
  ExpectRefuses({"--results", models_.File("r.csv")}, models_.File("a.dtm") + ": damaged at offset " +
                                                          std::to_string(place) + " - run \"vakdtm verify " +
                                                          models_.File("a.dtm") + "\"");
  EXPECT_FALSE(models_.Folder().Has("r.csv"));
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(StatsCommand, AreaThatCannotBeReadEndsItWithoutAReport) {
  models_.Make("a.dtm", "0.5,0.5,-3\n100.5,0.5,-4\n", {"--blocks", "VAL"});
  std::string bytes = models_.Folder().Text("a.dtm");
  // The length of the second area's first block, behind the tags of the area and the block.
  const std::size_t block = bytes.find("LAVd", bytes.rfind("aera"));
  ASSERT_NE(block, std::string::npos);
  bytes[block + 4] = static_cast<char>(bytes[block + 4] ^ 0x40);
  models_.Folder().Write("a.dtm", bytes);
  for (const Words& words : {Words{}, Words{"--rect", "0,0,128,64"}}) {
    ExpectRefuses(words, models_.File("a.dtm") + ": an area cannot be read - run \"vakdtm verify " +
                             models_.File("a.dtm") + "\"");
  }
}

TEST_F(StatsCommand, RectangleThatIsNoneIsMisuse) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  for (const char* rect :
       {"1,2,3", "1,2,3,4,5", "1,2,3,x", "1,2,nan,4", "1,2,inf,4", "3,2,1,4", "1,4,3,4", "", "1,2,3,4,", "1 2 3 4"}) {
    SCOPED_TRACE(rect);
    const CommandResult result = Stats({"--rect", rect});
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, StartsWith("vakdtm stats: --rect: "));
  }
  EXPECT_EQ(Stats({"--units", "yd"}).err,
            "vakdtm stats: --units: 'yd' is none of m|ft|us-ft - see 'vakdtm stats --help'\n");
}

TEST_F(StatsCommand, OptionWithNothingInItIsMisuseAndNotLeftOut) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  for (const std::string option : {"--polygon", "--results", "--project", "--rect", "--units", "--decimals"}) {
    for (const Words& words : {Words{option, ""}, Words{option + "="}}) {
      SCOPED_TRACE(words.front());
      const CommandResult result = Stats(words);
      EXPECT_EQ(result.status, kUsedWrongly);
      EXPECT_EQ(result.out, "");
      EXPECT_THAT(result.err, StartsWith("vakdtm stats: "));
    }
  }
  EXPECT_EQ(Stats({"--polygon", ""}).err, "vakdtm stats: --polygon: '' is empty - see 'vakdtm stats --help'\n");
}

TEST_F(StatsCommand, FullDiskLeavesTheResultListAsItWas) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  EXPECT_EQ(Stats({"--results", models_.File("r.csv")}).status, kDone);
  const std::string before = models_.Folder().Text("r.csv");
  // A limit within the next line.
  const std::string padded = before + std::string(1024 - before.size() - 10, '\n');
  Text("r.csv", padded);
  const CommandResult result =
      test::RunCommand({"bash", "-c", "trap '' XFSZ; ulimit -f 1; exec \"$0\" stats \"$1\" --results \"$2\"",
                        VAKDTM_COMMAND, models_.File("a.dtm"), models_.File("r.csv")})
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  EXPECT_EQ(models_.Folder().Text("r.csv"), padded);
}

TEST_F(StatsCommand, ReportThatCannotBeWrittenIsToldButNotToAReaderThatHasGone) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const auto run = [this](const std::string& line) {
    return test::RunCommand({"bash", "-c", line, VAKDTM_COMMAND, models_.File("a.dtm")}).Wait();
  };
  const CommandResult full = run("\"$0\" stats \"$1\" > /dev/full");
  EXPECT_EQ(full.status, kCouldNotBeDone);
  EXPECT_EQ(full.err,
            "vakdtm stats: standard output: cannot write: no space left on the device - make room, or send it "
            "elsewhere\n");
  // A pipe that nobody has open for reading any more.
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  const CommandResult gone =
      run("pipe=${1%a.dtm}pipe; exec 4<>$pipe 3>$pipe 4<&-; \"$0\" stats \"$1\" >&3; echo $? >&2");
  EXPECT_EQ(gone.err, "1\n");
}

TEST_F(StatsCommand, CtrlCEndsItWithoutAReport) {
  models_.Make("a.dtm", kPlain, {"--blocks", "VAL"});
  const std::string model = models_.File("a.dtm");
  const std::string list = models_.File("r.csv");
  // In a process of its own, which is asked to stop before it begins to walk.
  const auto run = [&] {
    CatchStopSignals();
    std::raise(SIGINT);
    const std::vector<const char*> words = {"vakdtm", "stats", model.c_str(), "--results", list.c_str()};
    std::exit(RunCommandLine(static_cast<int>(words.size()), words.data(), {AddStatsCommand}));
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(kStopped), "^vakdtm stats: stopped - nothing was written\n$");
  EXPECT_FALSE(models_.Folder().Has("r.csv"));
}

}  // namespace
}  // namespace vak
