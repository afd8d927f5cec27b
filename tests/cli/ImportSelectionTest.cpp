#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>

#include "Command.h"
#include "support/CommandModels.h"

// What `import --polygon` and `import --dated` take.

namespace vak {
namespace {

using nlohmann::json;
using test::CommandResult;
using testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr const char* kSquare = "0,0\n10,0\n10,10\n0,10\n0,0\n";

class ImportSelection : public testing::Test {
 protected:
  CommandResult Import(const Words& words, const std::string& input = {}) const {
    Words all = {"env", "TZ=UTC0", VAKDTM_COMMAND, "import", models_.File("a.dtm"), "--cell-size", "1"};
    all.insert(all.end(), words.begin(), words.end());
    return test::RunCommand(all, input).Wait();
  }
  std::string Text(const std::string& name, const std::string& text) const {
    return models_.Folder().Write(name, text);
  }
  void ExpectRefuses(const Words& words, const std::string& error) const {
    const CommandResult result = Import(words, "1,2,3\n");
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm import: " + error + "\n");
    EXPECT_FALSE(models_.Folder().Has("a.dtm")) << "something was made";
  }

  test::CommandModels models_;
};

// ---- Polygons

TEST_F(ImportSelection, LinesOutsideThePolygonAreLeftOutAndCounted) {
  const std::string polygon = Text("p.txt", kSquare);
  const CommandResult result = Import({"-", "--polygon", polygon}, "1.5,2.5,-3\n10.5,2.5,-4\n9.5,9.5,-5\n-0.5,2,1\n");
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_THAT(result.out,
              HasSubstr("2 of 4 lines taken (0 skipped, 0 refused, 0 not a number, 2 outside) into 2 cells"));
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 2.5 -3\n9.5 9.5 -5\n");
  const json summary = json::parse(Import({"-", "--polygon", polygon, "--json"}, "50,50,-3\n1.5,2.5,-5\n").out);
  EXPECT_EQ(summary["outside_polygon"], 1);
  EXPECT_EQ(summary["taken"], 1);
  EXPECT_EQ(summary["lines"], 2);
}

TEST_F(ImportSelection, HolesOfAGeoJsonPolygonAreOutside) {
  const std::string polygon = Text("p.geojson", R"({"type":"Polygon","coordinates":[
      [[0,0],[10,0],[10,10],[0,10],[0,0]],[[4,4],[6,4],[6,6],[4,6],[4,4]]]})");
  EXPECT_EQ(Import({"-", "--polygon", polygon}, "1.5,2.5,-3\n5,5,-4\n").status, kDone);
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 2.5 -3\n");
}

TEST_F(ImportSelection, OnePolygonLimitsEverySource) {
  const std::string polygon = Text("p.txt", kSquare);
  EXPECT_EQ(
      Import({Text("1.xyz", "1.5,2.5,-3\n50,50,0\n"), Text("2.xyz", "2.5 2.5 -3\n60 50 0\n"), "--polygon", polygon})
          .status,
      kDone);
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 2.5 -3\n2.5 2.5 -3\n");
}

TEST_F(ImportSelection, PolygonMayLieOutsideTheModel) {
  const std::string polygon = Text("p.txt", "100,100\n110,100\n110,110\n100,100\n");
  const CommandResult result = Import({"-", "--polygon", polygon}, "1.5,102.5,-3\n");
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.out, HasSubstr("0 of 1 line taken"));
  EXPECT_EQ(result.err, "vakdtm import: warning: " + polygon +
                            ": no sounding lies in it, all were left out - check its coordinates\n");
  EXPECT_EQ(Import({"-", "--polygon", polygon}, "1.5,102.5,-3\n109,105,-3\n").err, "") << "one lies in it";
  EXPECT_EQ(Import({"-", "--polygon", polygon}, "109,105,-nan\n1.5,102.5,-3\n").err, "");
}

TEST_F(ImportSelection, BadPolygonIsToldBeforeAnythingIsTouched) {
  const auto refuses = [this](const std::string& name, const std::string& content, const std::string& error) {
    SCOPED_TRACE(name);
    const std::string file = Text(name, content);
    ExpectRefuses({"-", "--polygon", file}, file + error);
  };
  refuses("open.txt", "# berth\n0,0\n10,0\n10,10\n",
          ":2: the ring isn't closed: it begins at 0, 0 and ends at 10, 10 - repeat its first vertex at its end");
  refuses(
      "open.geojson", R"({"type":"Polygon","coordinates":[[[0,0],[10,0],[10,10]]]})",
      ": polygon 1, ring 1: isn't closed: it begins at 0, 0 and ends at 10, 10 - repeat its first vertex at its end");
  refuses("two.txt", "0,0\n10,0\n0,0\n",
          ":1: the ring has fewer than three different points - a ring needs three different points");
  refuses("eight.txt", "0,0\n10,10\n10,0\n0,10\n0,0\n",
          ":1: the ring intersects itself at 5, 5 - put its vertices in order, or part it into rings");
  refuses("word.txt", "0,0\n10,zero\n10,10\n0,0\n",
          ":2: no vertex \"x,y\" or \"x y\", but \"10,zero\" - give a GeoJSON polygon, or a text with a vertex x,y a "
          "line");
  ExpectRefuses({"-", "--polygon", models_.File("none.txt")},
                models_.File("none.txt") + ": no such file - check the name of the polygon");
  ExpectRefuses({"-", "--polygon", models_.Folder().Path().string()},
                models_.Folder().Path().string() + ": is a folder - name a file with a polygon");
}

TEST_F(ImportSelection, PolygonOfAnotherKindOfFileIsToldAsSuch) {
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  for (const std::string& file : {models_.File("pipe"), std::string("/dev/null")}) {
    ExpectRefuses({"-", "--polygon", file}, file + ": is not a regular file - name a file with a polygon");
  }
  for (const bool big : {false, true}) {
    for (const bool mark : {false, true}) {
      SCOPED_TRACE(std::string(big ? "high" : "low") + (mark ? " byte first, with a mark" : " byte first"));
      std::string utf16 = mark ? big ? "\xFE\xFF" : "\xFF\xFE" : "";
      for (const char* c = kSquare; *c != '\0'; ++c) utf16 += big ? std::string{'\0', *c} : std::string{*c, '\0'};
      const std::string file = Text("wide.txt", utf16);
      ExpectRefuses({"-", "--polygon", file}, file + ": the polygon is written in UTF-16 - save it as UTF-8");
    }
  }
}

TEST_F(ImportSelection, PolygonWithoutANameIsMisuseAndNotLeftOut) {
  for (const char* option : {"--polygon", "--blocks"}) {
    SCOPED_TRACE(option);
    const CommandResult result = Import({"-", option, ""}, "1,2,3\n");
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_EQ(result.err, std::string("vakdtm import: ") + option + ": '' is empty - see 'vakdtm import --help'\n");
    EXPECT_FALSE(models_.Folder().Has("a.dtm"));
  }
}

TEST_F(ImportSelection, FileWithoutAPolygonIsNone) {
  for (const char* content : {"", "# nothing\n", R"({"type":"Point","coordinates":[1,2]})", "{"}) {
    SCOPED_TRACE(content);
    const CommandResult result = Import({"-", "--polygon", Text("p", content)}, "1,2,3\n");
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    EXPECT_FALSE(models_.Folder().Has("a.dtm"));
  }
}

// ---- Dates

TEST_F(ImportSelection, DatedSoundingsGetTheirDate) {
  const CommandResult result = Import({"-", "--dated"}, "1.5,102.5,-3,03-07-2015\n2.5,102.5,-4,04-07-2015\n");
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(models_.Cells("a.dtm", "VAL,TIM"), "1.5 102.5 -3 1435881600\n2.5 102.5 -4 1435968000\n");
}

TEST_F(ImportSelection, DatedTextIsTakenFromFilesAndPipesToo) {
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  test::RunCommand command({VAKDTM_COMMAND, "import", models_.File("a.dtm"), models_.File("pipe"),
                            Text("b.txt", "2.5 102.5 -4 04-07-2015\n"), "--cell-size", "1", "--dated"});
  std::ofstream(models_.File("pipe")) << "1.5 102.5 -3 03-07-2015\n";
  EXPECT_EQ(command.Wait().status, kDone);
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n2.5 102.5 -4\n");
}

TEST_F(ImportSelection, WideTextWithDatesIsTaken) {
  std::string utf16 = "\xFF\xFE";
  for (const char c : std::string("1.5,102.5,-3,03-07-2015\r\n")) utf16 += {c, '\0'};
  EXPECT_EQ(Import({Text("a.txt", utf16), "--dated"}).status, kDone);
  EXPECT_EQ(models_.Cells("a.dtm", "VAL,TIM"), "1.5 102.5 -3 1435881600\n");
}

TEST_F(ImportSelection, TextOfAnotherFormatIsRefusedBeforeAnythingIsTouched) {
  const std::string file = Text("a.txt", "x,y,z,date\n1,2,3,03-07-2015\n");
  ExpectRefuses({file, "--dated"},
                file +
                    ":1: unknown file format: \"x,y,z,date\" - begin with a line x,y,z,dd-mm-yyyy, or the same parted "
                    "by blanks");
}

TEST_F(ImportSelection, DateThatNoSoundingHasEndsTheImportWithItsLineAndKeepsTheRest) {
  const std::string file = Text("a.txt", "1.5,102.5,-3,03-07-2015\n2.5,102.5,-4,31-12-1969\n3.5,102.5,-5,03-07-2015\n");
  const CommandResult result = Import({file, "--dated"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "vakdtm import: " + file +
                            ":2: no sounding can be of 31-12-1969 - mend the line; what stands before it is in the "
                            "model\n");
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n");
}

TEST_F(ImportSelection, DateOfTheFirstLineIsLookedAtBeforeAnythingIsTouched) {
  const std::string bad = Text("bad.txt", "1.5,102.5,-3,07-13-2015\n2.5,102.5,-3,07-12-2015\n");
  ExpectRefuses({bad, "--dated"}, bad + ":1: no sounding can be of 7-13-2015 - mend the line; nothing was changed");
  ExpectRefuses({Text("good.txt", "1.5,102.5,-3,03-07-2015\n"), bad, "--dated"},
                bad + ":1: no sounding can be of 7-13-2015 - mend the line; nothing was changed");
}

TEST_F(ImportSelection, FirstLineThatIsNotInsertedMayHaveAnyDate) {
  const std::string polygon = Text("p.txt", kSquare);
  for (const char* first : {"50,2.5,-4,31-12-1969\n", "1.5,2.5,-4,31-12-1969,#QNAN\n", "1e20,2.5,-4,31-12-1969\n",
                            "inf,2.5,-4,31-12-1969\n"}) {
    SCOPED_TRACE(first);
    const CommandResult result =
        Import({"-", "--dated", "-q", "--polygon", polygon}, std::string(first) + "2.5,2.5,-3,03-07-2015\n");
    EXPECT_EQ(result.status, kDone) << result.err;
  }
  EXPECT_EQ(Import({"-", "--dated", "-q"}, "1e20,2.5,-4,31-12-1969\n2.5,2.5,-3,03-07-2015\n").status, kDone);
  EXPECT_EQ(models_.Cells("a.dtm", "NUM"), "2.5 2.5 5\n");
}

TEST_F(ImportSelection, DateThatTheModelCannotHoldGetsOneWarning) {
  const std::string file = Text("a.txt",
                                "1.5,102.5,-3,19-01-2038\n2.5,102.5,-3,20-01-2038\n3.5,102.5,-3,01-01-2100\n"
                                "4.5,102.5,-3,20-01-2038\n");
  const CommandResult result = Import({file, "--dated"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm import: warning: " + file +
                            ":2: a model's times end on 19-01-2038, a later date is stored as a wrong one - check the "
                            "date\n");
  EXPECT_THAT(models_.Cells("a.dtm", "TIM"), testing::StartsWith("1.5 102.5 2147472000\n"));
  models_.Make("plain.dtm", "1,2,3\n", {"--blocks", "VAL"});
  EXPECT_EQ(models_.Run({"import", models_.File("plain.dtm"), file, "--dated"}).err, "") << "it holds no times";
}

TEST_F(ImportSelection, RepeatedSoundingsGetAWarning) {
  const std::string file = Text("a.txt", "1.5,102.5,-3,03-07-2015\n\n");
  const CommandResult result = Import({file, "--dated"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err,
            "vakdtm import: warning: " + file +
                ": 1 line lacks a number, and took what it lacks from the line before - look for blank lines and "
                "for NULs at the end, which insert a sounding once more\n");
  EXPECT_EQ(models_.Cells("a.dtm", "NUM"), "1.5 102.5 2\n");
}

TEST_F(ImportSelection, UndatedTextGetsAWarningAndTheTimeOfImport) {
  const std::string file = Text("a.txt", "1.5,102.5,-3\n");
  const CommandResult result = Import({file, "--dated"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm import: warning: " + file +
                            ": the first line holds no date, its soundings get the time of import\n");
}

TEST_F(ImportSelection, EmptyTextGetsAWarningAndIsNoError) {
  const std::string file = Text("a.txt", "");
  const CommandResult result = Import({file, "-", "--dated"}, "1.5,102.5,-3,03-07-2015\n");
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm import: warning: " + file + ": is empty\n");
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n");
}

TEST_F(ImportSelection, DatedTextOfAByteOrderMarkAloneIsEmptyAndNothingElse) {
  for (const char* mark : {"\xEF\xBB\xBF", "\xFF\xFE", "\xFE\xFF"}) {
    const std::string file = Text("a.txt", mark);
    const CommandResult result = Import({file, "--dated"});
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.err, "vakdtm import: warning: " + file + ": is empty\n");
    EXPECT_THAT(result.out, testing::StartsWith("0 of 0 lines taken (0 skipped"));
    EXPECT_FALSE(models_.Folder().Has("a.dtm"));
  }
}

TEST_F(ImportSelection, DatesAndAPolygonGoTogether) {
  const CommandResult result = Import({"-", "--dated", "--json", "-q", "--polygon", Text("p.txt", kSquare)},
                                      "1.5,2.5,-3,03-07-2015\n50,2.5,-4,31-12-1969\n");
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(json::parse(result.out)["outside_polygon"], 1);
}

}  // namespace
}  // namespace vak
