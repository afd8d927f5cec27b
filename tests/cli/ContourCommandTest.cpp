#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "Command.h"
#include "support/CommandModels.h"
#include "support/RunGdal.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using test::CommandResult;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

/// Three by three cells of 1 m on a slope that falls to the east.
constexpr const char* kSlope =
    "0.5,0.5,-1\n1.5,0.5,-2\n2.5,0.5,-3\n0.5,1.5,-1\n1.5,1.5,-2\n2.5,1.5,-3\n0.5,2.5,-1\n1.5,2.5,-2\n2.5,2.5,-3\n";

/// One cell of 1 m that stands out of 3 x 3.
constexpr const char* kPeak =
    "0.5,0.5,-5\n1.5,0.5,-5\n2.5,0.5,-5\n0.5,1.5,-5\n1.5,1.5,-1\n2.5,1.5,-5\n0.5,2.5,-5\n1.5,2.5,-5\n2.5,2.5,-5\n";

std::string Feature(const std::string& level, bool closed, const std::string& length, const std::string& coordinates) {
  return "{\"type\":\"Feature\",\"properties\":{\"level\":" + level + ",\"closed\":" + (closed ? "true" : "false") +
         ",\"length\":" + length + "},\"geometry\":{\"type\":\"LineString\",\"coordinates\":[" + coordinates + "]}}";
}

std::string Collection(const Words& features) {
  std::string text = "{\n\"type\":\"FeatureCollection\",\n\"name\":\"contours\",\n\"features\":[";
  for (const std::string& feature : features) text += (&feature == &features.front() ? "\n" : ",\n") + feature;
  return text + "\n]\n}\n";
}

class ContourCommand : public testing::Test {
 protected:
  CommandResult Contour(const Words& words) const {
    Words all = {"contour", models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return test::CommandModels::Run(all);
  }
  void ExpectFails(const Words& words, int status, const std::string& error) const {
    const Words before = models_.Names();
    const CommandResult result = Contour(words);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm contour: " + error + "\n");
    EXPECT_EQ(models_.Names(), before) << "something was left behind";
  }

  test::CommandModels models_;
};

TEST_F(ContourCommand, LinesAreThoseOfTheLevelsFromTheLowest) {
  models_.Make("a.dtm", kSlope);
  const test::FileState state(models_.Folder(), "a.dtm");
  const CommandResult result = Contour({"--levels", "-1.5,-2.25,-1.5", "-o", "-"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "");
  // The lower ground is on the left of each line.
  EXPECT_EQ(result.out, Collection({Feature("-2.25", false, "2.0", "[1.75,2.5],[1.75,1.5],[1.75,0.5]"),
                                    Feature("-1.5", false, "2.0", "[1,2.5],[1,1.5],[1,0.5]")}));
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(ContourCommand, AnIntervalMeansAllItsLevelsInTheModelsRange) {
  models_.Make("a.dtm", kSlope);
  EXPECT_EQ(Contour({"--interval", "0.75", "-o", "-"}).out, Contour({"--levels", "-2.25,-1.5", "-o", "-"}).out);
  EXPECT_EQ(Contour({"--interval", "0.75", "--base", "-1.75", "-o", "-"}).out,
            Contour({"--levels", "-2.5,-1.75,-1", "-o", "-"}).out)
      << "-1 is the highest value and counts";
}

TEST_F(ContourCommand, ARingIsClosed) {
  models_.Make("a.dtm", kPeak);
  EXPECT_EQ(Contour({"--levels", "-3", "-o", "-"}).out,
            Collection({Feature("-3.0", true, "2.8284271247461903", "[1.5,2],[2,1.5],[1.5,1],[1,1.5],[1.5,2]")}));
}

TEST_F(ContourCommand, OtherKindsOfValueHaveLinesToo) {
  models_.Make("a.dtm", "0.5,0.5,-1\n1.5,0.5,-1\n1.6,0.5,-1\n0.5,1.5,-1\n1.5,1.5,-1\n1.6,1.5,-1\n");
  EXPECT_EQ(Contour({"--block", "NUM", "--interval", "1", "--base", "0.5", "-o", "-"}).out,
            Collection({Feature("1.5", false, "1.0", "[1,0.5],[1,1.5]")}));
}

TEST_F(ContourCommand, APolygonLimitsIt) {
  models_.Make("a.dtm", kSlope);
  const std::string polygon = models_.Folder().Write("p.txt", "0,0\n3,0\n3,1.5\n0,1.5\n0,0\n");
  EXPECT_EQ(Contour({"--levels", "-1.5", "-o", "-", "--polygon", polygon}).out,
            Collection({Feature("-1.5", false, "1.0", "[1,1.5],[1,0.5]")}));
  const std::string far = models_.Folder().Write("far.txt", "1000,0\n1001,0\n1001,1\n1000,0\n");
  ExpectFails({"--levels", "-1.5", "-o", models_.File("c.gpkg"), "--polygon", far}, kCouldNotBeDone,
              far + ": lies outside the model, whose areas reach from x 0 to 64 and y 0 to 64 - check its coordinates");
}

TEST_F(ContourCommand, WhatWasFoundIsToldAsJsonWithAFileOrWithout) {
  models_.Make("a.dtm", kSlope);
  const Words before = models_.Names();
  const CommandResult without = Contour({"--interval", "0.75", "--json"});
  EXPECT_EQ(without.err, "");
  EXPECT_THAT(without.out, StartsWith("{\"lines\":2,\"closed\":0,\"vertices\":6,\"length\":4,\"levels\":["
                                      "{\"level\":-2.25,\"lines\":1,\"length\":2},"
                                      "{\"level\":-1.5,\"lines\":1,\"length\":2}],\"seconds\":"));
  EXPECT_EQ(models_.Names(), before);
  EXPECT_THAT(Contour({"--interval", "0.75", "--json", "-o", models_.File("c.json")}).out,
              StartsWith(without.out.substr(0, without.out.find("\"seconds\""))));
  EXPECT_EQ(models_.Folder().Text("c.json"), Contour({"--interval", "0.75", "-o", "-"}).out);
}

TEST_F(ContourCommand, NoNumberThatIsNotFiniteGetsIntoAFile) {
  const std::string model = models_.File("a.dtm");
  // Where a sounding lay in its cell is stored as it is read.
  models_.Make("a.dtm", kSlope, {"--blocks", "VAL,MIN,XMIN,YMIN"});
  const std::string good = Contour({"--levels", "-1.5", "--block", "MIN", "-o", "-"}).out;
  EXPECT_THAT(good, HasSubstr("\"LineString\""));
  std::string bytes = models_.Folder().Text("a.dtm");
  const std::size_t place = bytes.find("NMXf", bytes.rfind("aera"));
  ASSERT_NE(place, std::string::npos);
  const std::string infinity("\x00\x00\x80\x7f", 4);
  bytes.replace(place + 8, 4, infinity);
  models_.Folder().Write("a.dtm", bytes);
  for (const Words& words : {Words{"-o", models_.File("c.geojson")}, Words{"-o", models_.File("c.gpkg")}, {"--json"}}) {
    Words all = {"--levels", "-1.5", "--block", "MIN"};
    all.insert(all.end(), words.begin(), words.end());
    ExpectFails(all, kCouldNotBeDone,
                model +
                    ": a line of level -1.5 has a vertex that is no finite number - look for such values with "
                    "\"vakdtm cells\"");
  }
}

TEST_F(ContourCommand, AnAreaThatCannotBeReadEndsItWithoutAFile) {
  models_.Make("a.dtm", "0.5,0.5,-3\n1.5,0.5,-4\n0.5,1.5,-3\n1.5,1.5,-4\n100.5,0.5,-4\n", {"--blocks", "VAL"});
  std::string bytes = models_.Folder().Text("a.dtm");
  // The length of the second area's first block, behind the tags of the area and the block.
  const std::size_t block = bytes.find("LAVd", bytes.rfind("aera"));
  ASSERT_NE(block, std::string::npos);
  bytes[block + 4] = static_cast<char>(bytes[block + 4] ^ 0x40);
  models_.Folder().Write("a.dtm", bytes);
  const std::string error =
      models_.File("a.dtm") + ": an area cannot be read - run \"vakdtm verify " + models_.File("a.dtm") + "\"";
  for (const Words& words : {Words{"--interval", "1"}, Words{"--levels", "-3.5"}}) {
    Words all = words;
    all.insert(all.end(), {"-o", models_.File("c.geojson")});
    ExpectFails(all, kCouldNotBeDone, error);
  }
  // Who limits it to what can be read has its lines.
  const std::string polygon = models_.Folder().Write("p.txt", "0,0\n3,0\n3,3\n0,3\n0,0\n");
  for (const Words& words : {Words{"--interval", "0.5", "--base", "0.25"}, Words{"--levels", "-3.75,-3.25"}}) {
    Words all = words;
    all.insert(all.end(), {"-o", "-", "--polygon", polygon});
    const CommandResult result = Contour(all);
    EXPECT_EQ(result.status, kDone) << result.err;
    EXPECT_EQ(result.out, Collection({Feature("-3.75", false, "1.0", "[1.25,1.5],[1.25,0.5]"),
                                      Feature("-3.25", false, "1.0", "[0.75,1.5],[0.75,0.5]")}));
  }
}

TEST_F(ContourCommand, TheRangeUnderAPolygonHoldsAllThatItsLinesNeed) {
  // The one square lies between four areas and belongs to the lower left one. The polygon holds its middle, and
  // leaves nothing of the areas on the right and above, in which the highest and the lowest value are.
  models_.Make("a.dtm", "63.5,63.5,-2\n64.5,63.5,-1\n63.5,64.5,-4\n64.5,64.5,-3\n", {"--blocks", "VAL"});
  const std::string polygon = models_.Folder().Write(
      "p.txt", "63,63\n63.5,63\n63.5,63.5\n63,63\n\n64,64\n64.5,64\n64.5,64.5\n64,64.5\n64,64\n");
  const std::string named = Contour({"--levels", "-3.5,-2.5,-1.5", "-o", "-", "--polygon", polygon}).out;
  EXPECT_THAT(named, AllOf(HasSubstr("\"level\":-3.5"), HasSubstr("\"level\":-1.5")));
  EXPECT_EQ(Contour({"--interval", "1", "--base", "0.5", "-o", "-", "--polygon", polygon}).out, named);
  const std::string below = models_.Folder().Write("q.txt", "63,63\n63.9,63\n63.9,63.9\n63,63.9\n63,63\n");
  EXPECT_EQ(Contour({"--interval", "1", "--base", "0.5", "-o", "-", "--polygon", below}).out, Collection({}));
}

TEST_F(ContourCommand, ALevelOfAnIntervalIsTheOneThatIsNamed) {
  models_.Make("a.dtm", "0.5,0.5,-12.75\n1.5,0.5,-12.65\n0.5,1.5,-12.75\n1.5,1.5,-12.65\n");
  const std::string all = Contour({"--interval", "0.1", "-o", "-"}).out;
  EXPECT_THAT(all, HasSubstr("{\"level\":-12.7,"));
  EXPECT_EQ(all, Contour({"--levels", "-12.7", "-o", "-"}).out);
}

TEST_F(ContourCommand, ProgressIsDrawnWhereThereIsATerminalAndErased) {
  models_.Make("a.dtm", kSlope);
  for (const char* command : {"contour", "outline"}) {
    Words words = {command, models_.File("a.dtm"), "-o", models_.File("c.geojson")};
    if (*command == 'c') words.insert(words.end(), {"--interval", "0.75"});
    const CommandResult result = test::CommandModels::RunOnTerminal(words);
    EXPECT_EQ(result.status, kDone);
    // How far it is at the first look depends on the other thread.
    EXPECT_THAT(result.err, HasSubstr(std::string("vakdtm ") + command));
    EXPECT_THAT(result.err, HasSubstr(" % ["));
    EXPECT_THAT(result.err, testing::EndsWith("\033[K"));
    words.emplace_back("--quiet");
    EXPECT_EQ(test::CommandModels::RunOnTerminal(words).err, "");
  }
}

TEST_F(ContourCommand, AReaderThatGoesAwayIsNoErrorToTellAbout) {
  models_.MakeWaves("a.dtm", 70);
  const CommandResult result =
      test::RunCommand({"bash", "-c", "\"$0\" contour \"$1\" --interval 0.01 -o - | head -n 1; exit ${PIPESTATUS[0]}",
                        VAKDTM_COMMAND, models_.File("a.dtm")})
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.out, "{\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(ContourCommand, WhereThereAreNoLinesAWarningSaysSo) {
  models_.Make("a.dtm", kSlope);
  const CommandResult result = Contour({"--levels", "5", "-o", models_.File("c.geojson")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm contour: warning: " + models_.File("a.dtm") + ": there are no contours\n");
  EXPECT_EQ(models_.Folder().Text("c.geojson"), Collection({}));
  models_.Run({"create", models_.File("a.dtm"), "--cell-size", "1", "--force"});
  EXPECT_EQ(Contour({"--interval", "1", "-o", "-"}).out, Collection({}));
}

TEST_F(ContourCommand, AllLinesOfALongRunAreTheSameWithOneThreadWaitingForTheOther) {
  models_.MakeWaves("a.dtm", 70);
  const CommandResult all = Contour({"--interval", "0.01", "-o", "-"});
  ASSERT_EQ(all.status, kDone) << all.err;
  // Each level by itself passes no queue.
  std::string features;
  for (const char* level : {"-12.5", "-10.01", "-7.25"}) {
    const std::string one = Contour({"--levels", level, "-o", "-"}).out;
    const std::size_t from = one.find("{\"type\":\"Feature\"");
    ASSERT_NE(from, std::string::npos) << level;
    EXPECT_THAT(all.out, HasSubstr(one.substr(from, one.rfind("\n]\n") - from))) << level;
  }
}

TEST_F(ContourCommand, ReplacesAFileOnlyByAWholeOne) {
  models_.Make("a.dtm", kSlope);
  models_.Folder().Write("c.geojson", "old");
  ExpectFails({"--interval", "1e-7", "-o", models_.File("c.geojson")}, kCouldNotBeDone,
              "that makes more than 100000 levels - give a greater --interval");
  EXPECT_EQ(models_.Folder().Text("c.geojson"), "old");
  EXPECT_EQ(Contour({"--interval", "1", "-o", models_.File("c.geojson")}).status, kDone);
  EXPECT_EQ(models_.Folder().Text("c.geojson"), Contour({"--interval", "1", "-o", "-"}).out);
}

TEST_F(ContourCommand, StoppedInTheMiddleItLeavesNothing) {
  models_.MakeWaves("a.dtm", 300);
  models_.Folder().Write("c.geojson", "old");
  const Words before = models_.Names();
  test::RunCommand command(
      {VAKDTM_COMMAND, "contour", models_.File("a.dtm"), "--interval", "0.0001", "-o", models_.File("c.geojson")});
  // It has begun to write when the hidden file is there.
  while (models_.Names() == before && !command.HasEnded()) std::this_thread::yield();
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_EQ(result.err, "vakdtm contour: stopped - nothing was kept\n");
  EXPECT_EQ(models_.Names(), before);
  EXPECT_EQ(models_.Folder().Text("c.geojson"), "old");
}

TEST_F(ContourCommand, AFullDiskIsToldInOneLineAndLeavesNothing) {
  models_.MakeWaves("a.dtm", 70);
  const Words before = models_.Names();
  EXPECT_EQ(Contour({"--interval", "0.1", "-o", "/dev/full"}).status, kUsedWrongly) << "it has no ending";
  const CommandResult result =
      test::RunCommand({"sh", "-c", "trap '' XFSZ; ulimit -f 8; exec \"$0\" contour \"$1\" --interval 0.01 -o \"$2\"",
                        VAKDTM_COMMAND, models_.File("a.dtm"), models_.File("c.geojson")},
                       {}, test::RunCommand::StandardError::kTerminal)
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, HasSubstr(": cannot write: File too large - make room, or name another file with -o"));
  EXPECT_EQ(models_.Names(), before);
}

TEST_F(ContourCommand, WrongUseIsMisuse) {
  models_.Make("a.dtm", kSlope);
  const std::string out = models_.File("c.geojson");
  const struct {
    Words words;
    const char* error;
  } cases[] = {
      {{"-o", out}, "one of --interval and --levels has to be given - say --interval 0.5, or --levels -10,-12"},
      {{"--interval", "0", "-o", out}, "--interval: '0' is no number above 0 - see 'vakdtm contour --help'"},
      {{"--interval", "-1", "-o", out}, "--interval: '-1' is no number above 0 - see 'vakdtm contour --help'"},
      {{"--interval", "inf", "-o", out}, "--interval: 'inf' is no number above 0 - see 'vakdtm contour --help'"},
      {{"--interval", "nan", "-o", out}, "--interval: 'nan' is no number above 0 - see 'vakdtm contour --help'"},
      {{"--interval", "1", "--base", "inf", "-o", out}, "--base: 'inf' is no number - see 'vakdtm contour --help'"},
      {{"--levels", "1,x", "-o", out}, "--levels: 'x' is no number - give them as in --levels -10,-12.5"},
      {{"--levels", "1", "--base", "1", "-o", out}, "--base is for --interval - leave it out, or say --interval"},
      {{"--interval", "1"}, "-o is missing - name a file that ends in .geojson, .json, .gpkg, .shp, .dxf or .fgb"},
      {{"--interval", "1", "-o", "-", "--json"},
       "--json and -o - would both write to standard output - name a file with -o"},
      {{"--interval", "1", "-o", "c.tif"},
       "-o: the ending of 'c.tif' names no format - let it end in .geojson, .json, .gpkg, .shp, .dxf or .fgb"},
      {{"--interval", "1", "-o", out, "--crs", "25831"},
       "--crs: '25831' is no coordinate system - give one as EPSG:25831"},
      {{"--interval", "1", "-o", out, "--crs", "EPSG:0"},
       "--crs: 'EPSG:0' is no coordinate system - give one as EPSG:25831"},
      {{"--interval", "1", "-o", out, "--crs", "EPSG:1\"}"},
       "--crs: 'EPSG:1\"}' is no coordinate system - give one as EPSG:25831"},
      {{"--interval", "1", "-o", out, "--block", "VAL,NUM"},
       "--block: lines are of one kind of value - name one as in --block VAL"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    ExpectFails(c.words, kUsedWrongly, c.error);
  }
  EXPECT_EQ(Contour({"--interval", "1", "--levels", "1", "-o", out}).status, kUsedWrongly);
}

TEST_F(ContourCommand, WhatCannotBeDoneIsToldInOneLine) {
  models_.Make("a.dtm", kSlope, {"--blocks", "VAL"});
  const std::string model = models_.File("a.dtm");
  ExpectFails({"--interval", "1", "--block", "NUM", "-o", models_.File("c.json")}, kCouldNotBeDone,
              model + ": records no NUM - ask \"vakdtm info\" which kinds it has");
  const std::string nowhere = models_.File("nowhere/c.json");
  ExpectFails({"--interval", "1", "-o", nowhere}, kCouldNotBeDone,
              nowhere + ": cannot write: there is no such folder - name another file with -o");
  fs::create_symlink(model, models_.File("link.json"));
  ExpectFails({"--interval", "1", "-o", models_.File("link.json")}, kUsedWrongly,
              "the model would be replaced by its own contours - name another file with -o");
  const std::string polygon = models_.Folder().Write("p.json", "0,0\n3,0\n3,3\n0,0\n");
  ExpectFails({"--interval", "1", "-o", polygon, "--polygon", polygon}, kUsedWrongly,
              "the polygon would be replaced by the contours - name another file with -o");
}

TEST_F(ContourCommand, InputsThatTheFilesOfASetWouldReplaceAreRefused) {
  const std::string model = models_.Make("a.dtm", kSlope, {"--blocks", "VAL"});
  const std::string polygon = models_.Folder().Write("p.txt", "0,0\n3,0\n3,3\n0,0\n");
  const struct {
    const char* target;
    const char* name;
  } cases[] = {{"c.shp", "c.dbf"}, {"c.shp", "c.IND"}, {"c.shp", "c.shp.xml"}, {"c.gpkg", "c.gpkg-wal"},
               {"c.shp", "c.PRJ"}, {"c.SHP", "c.shx"}, {"c.fgb", "c.fgb"}};
  const struct {
    const char* how;
    void (*make)(const std::string&, const std::string&);
  } ways[] = {{"copy", [](const std::string& from, const std::string& to) { fs::copy_file(from, to); }},
              {"hard link", [](const std::string& from, const std::string& to) { fs::create_hard_link(from, to); }},
              {"link", [](const std::string& from, const std::string& to) { fs::create_symlink(from, to); }}};
  for (const auto& c : cases) {
    for (const auto& way : ways) {
      SCOPED_TRACE(std::string(c.name) + " as a " + way.how);
      const std::string name = models_.File(c.name);
      const std::string target = models_.File(c.target);
      way.make(polygon, name);
      ExpectFails({"--interval", "1", "-o", target, "--polygon", name}, kUsedWrongly,
                  "the polygon would be replaced by the contours - name another file with -o");
      fs::remove(name);
      way.make(model, name);
      const CommandResult result = test::CommandModels::Run({"contour", name, "--interval", "1", "-o", target});
      EXPECT_EQ(result.status, kUsedWrongly);
      EXPECT_EQ(result.err,
                "vakdtm contour: the model would be replaced by its own contours - name another file with -o\n");
      EXPECT_EQ(models_.Folder().Content(c.name), models_.Folder().Content("a.dtm"));
      fs::remove(name);
    }
  }
}

TEST_F(ContourCommand, DamagedModelHasNoContours) {
  models_.Make("a.dtm", "0.5,0.5,-3\n100.5,0.5,-4\n");
  const std::size_t place = models_.Damage("a.dtm");
  ExpectFails({"--interval", "1", "-o", models_.File("c.json")}, kCouldNotBeDone,
              models_.File("a.dtm") + ": damaged at offset " + std::to_string(place) + " - run \"vakdtm verify " +
                  models_.File("a.dtm") + "\"");
}

}  // namespace
}  // namespace vak
