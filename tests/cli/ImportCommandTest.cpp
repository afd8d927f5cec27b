#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>

#include "vakdtm/services/files/HugeFileStream.h"

#include "Command.h"
#include "support/CommandModels.h"
#include "support/SharedModel.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using test::CommandResult;
using test::RunCommand;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

class ImportCommand : public testing::Test {
 protected:
  CommandResult Import(const Words& words, const std::string& input = {}) const {
    Words all = {"import", models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return models_.Run(all, input);
  }
  json ImportJson(Words words, const std::string& input = {}) const {
    words.push_back("--json");
    const CommandResult result = Import(words, input);
    EXPECT_EQ(result.status, kDone) << result.err;
    return json::parse(result.out);
  }
  json Info(const std::string& name) const {
    return json::parse(models_.Run({"info", models_.File(name), "--json"}).out);
  }
  std::string Text(const std::string& name, const std::string& text) const {
    return models_.Folder().Write(name, text);
  }

  /// The command refuses, with this one line, and everything is as it was.
  void ExpectRefuses(const Words& words, const std::string& error, const std::string& input = {}) const {
    const bool there = models_.Folder().Has("a.dtm");
    std::optional<test::FileState> state;
    if (there) state.emplace(models_.Folder(), "a.dtm");
    const CommandResult result = Import(words, input);
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm import: " + error + "\n");
    EXPECT_EQ(models_.Folder().Has("a.dtm"), there);
    if (there) {
      EXPECT_TRUE(state->IsUnchanged());
    }
  }

  test::CommandModels models_;
};

// ---- What it does

TEST_F(ImportCommand, ATextMakesAModel) {
  const CommandResult result =
      Import({Text("s.xyz", "x,y,z\n1.5,102.5,-3\n1.5,102.5,-5\n70.5,102.5,8\n"), "--cell-size", "1"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.out, testing::MatchesRegex("3 of 4 lines taken \\(1 skipped, 0 refused, 0 not a number\\) into 2 "
                                                "cells in 2 areas, z -5 to 8, [0-9]+\\.[0-9][0-9] s\n"));
  EXPECT_EQ(result.err, "vakdtm import: warning: " + models_.File("s.xyz") +
                            ":1: skipped, three numbers wanted: \"x,y,z\"\n"
                            "");
  EXPECT_EQ(models_.Cells("a.dtm", "VAL,NUM"), "1.5 102.5 -4 2\n70.5 102.5 8 1\n");
  EXPECT_EQ(Info("a.dtm")["opened_by"], "index");
}

TEST_F(ImportCommand, JsonHasEveryKeyInOrderAndTheLinesAddUp) {
  const CommandResult result =
      Import({"-", "--cell-size", "1", "--json", "-q"}, "x\n1.5,102.5,-3\n1e300,2,3\n1.5,3.5,-nan\n1.5,102.5,-4\n\n");
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(
      result.out,
      StartsWith("{\"lines\":6,\"taken\":2,\"skipped\":2,\"refused\":1,\"not_a_number\":1,\"outside_polygon\":0,"
                 "\"cells\":1,\"areas\":1,\"z_range\":[-4.0,-3.0],\"seconds\":"));
  EXPECT_EQ(result.err, "");
  const json summary = json::parse(result.out);
  EXPECT_GE(summary["seconds"], 0.0);
  EXPECT_EQ(summary.size(), 10u);
}

TEST_F(ImportCommand, SeveralFilesAndStandardInputGoIntoOneModel) {
  const json summary = ImportJson(
      {Text("1.xyz", "1.5,102.5,-3\n"), "-", Text("2.xyz", "1.5 102.5 -5\n3.5 102.5 -7\n"), "--cell-size", "1"},
      "1.5\t102.5\t-7\n");
  EXPECT_EQ(summary["taken"], 4);
  EXPECT_EQ(summary["cells"], 2);
  EXPECT_EQ(summary["z_range"], (json{-7.0, -3.0}));
  EXPECT_EQ(models_.Cells("a.dtm", "VAL,NUM"), "1.5 102.5 -5 3\n3.5 102.5 -7 1\n");
}

TEST_F(ImportCommand, AModelThatIsThereIsAddedTo) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  EXPECT_EQ(ImportJson({"-"}, "1.5,102.5,-5\n")["taken"], 1);
  EXPECT_EQ(ImportJson({"-", "--cell-size", "1"}, "1.5,102.5,-7\n")["taken"], 1);
  EXPECT_EQ(models_.Cells("a.dtm", "VAL,NUM"), "1.5 102.5 -5 3\n");
}

TEST_F(ImportCommand, AreaSizeAndBlocksAreOfAModelToBeMade) {
  ImportJson({"-", "--cell-size", "0.5", "--area-size", "16", "--blocks", "VAL,MAX"}, "1.5,102.5,-3\n");
  EXPECT_EQ(Info("a.dtm")["area_size"], 16);
  EXPECT_EQ(Info("a.dtm")["cell_size"], 0.5);
  EXPECT_EQ(Info("a.dtm")["blocks"], (json{"VAL", "MAX", "XMAX", "YMAX"}));
}

TEST_F(ImportCommand, ClearFirstLetsTheLastSoundingOfACellWin) {
  models_.Make("a.dtm", "1.5,102.5,-3\n3.5,102.5,-3\n");
  ImportJson({"-", "--clear-first"}, "1.5,102.5,-9\n1.4,102.5,-11\n");
  EXPECT_EQ(models_.Cells("a.dtm", "VAL,NUM"), "1.5 102.5 -11 1\n3.5 102.5 -3 1\n");
}

TEST_F(ImportCommand, NegateFlipsTheSign) {
  EXPECT_EQ(ImportJson({"-", "--cell-size", "1", "--negate"}, "1.5,102.5,3\n")["z_range"], (json{-3.0, -3.0}));
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n");
}

TEST_F(ImportCommand, StandardInputIsReadFromWhereItStands) {
  Text("s.xyz", "9.5,9.5,-9\n1.5,102.5,-3\n");
  const CommandResult result =
      RunCommand({"sh", "-c", "{ read -r first; exec \"$0\" import \"$1\" - --cell-size 1 --json; } < \"$2\"",
                  VAKDTM_COMMAND, models_.File("a.dtm"), models_.File("s.xyz")})
          .Wait();
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n");
}

TEST_F(ImportCommand, APipeCanBeNamedToo) {
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  RunCommand command({VAKDTM_COMMAND, "import", models_.File("a.dtm"), models_.File("pipe"), "--cell-size", "1"});
  std::ofstream(models_.File("pipe")) << "heading\n1.5,102.5,-3\n";
  EXPECT_EQ(command.Wait().status, kDone);
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n");
}

TEST_F(ImportCommand, LittleMemoryMakesTheSameModel) {
  std::string text;
  // Back and forth over 30 areas, so that none stays in a small memory.
  for (int i = 0; i < 3000; ++i) {
    text += std::to_string(i * 7 % 30 * 16) + ".5," + std::to_string(i % 11) + ".5," + std::to_string(i % 97) + "\n";
  }
  const std::string source = Text("s.xyz", text);
  const Words options = {"import", "", source, "--cell-size", "1", "--area-size", "16", "-q"};
  std::string cells;
  for (const char* memory : {"1", "1M", "256M"}) {
    SCOPED_TRACE(memory);
    Words words = options;
    words[1] = models_.File(std::string(memory) + ".dtm");
    words.insert(words.end(), {"--memory", memory});
    ASSERT_EQ(models_.Run(words).status, kDone);
    const std::string found = models_.Cells(std::string(memory) + ".dtm", "NUM,VAL,SDV,MIN,XMIN,YMIN,MAX,XMAX,YMAX");
    EXPECT_GT(found.size(), 1000u);
    if (!cells.empty()) {
      EXPECT_EQ(found, cells);
    }
    cells = found;
  }
}

TEST_F(ImportCommand, QuietSaysNothingWhenAllIsWell) {
  const CommandResult result = Import({"-", "--cell-size", "1", "--quiet"}, "x\n1.5,102.5,-3\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
}

// ---- Backups

TEST_F(ImportCommand, BackupKeepsTwoGenerationsAndSeveralFilesMakeOne) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  const test::Bytes first = models_.Folder().Content("a.dtm");
  ImportJson({Text("1.xyz", "1.5,102.5,-3\n"), Text("2.xyz", "1.5,102.5,-3\n"), "--backup"});
  EXPECT_EQ(models_.Folder().Content("a.bk1"), first);
  EXPECT_FALSE(models_.Folder().Has("a.bk2"));
  const test::Bytes second = models_.Folder().Content("a.dtm");
  ImportJson({models_.File("1.xyz"), models_.File("2.xyz"), "--backup"});
  EXPECT_EQ(models_.Folder().Content("a.bk1"), second);
  EXPECT_EQ(models_.Folder().Content("a.bk2"), first);
}

TEST_F(ImportCommand, AModelToBeMadeHasNothingToKeep) {
  ImportJson({"-", "--cell-size", "1", "--backup"}, "1.5,102.5,-3\n");
  EXPECT_FALSE(models_.Folder().Has("a.bk1"));
}

TEST_F(ImportCommand, NothingIsImportedWhenTheBackupCannotBeMade) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  fs::create_directory(models_.File("a.bk1"));
  ExpectRefuses({"-", "--backup"},
                models_.File("a.bk1") + ": no backup can be made, nothing was imported - check its folder",
                "1.5,102.5,-3\n");
}

// ---- Warnings

TEST_F(ImportCommand, TheFirstTenLinesNotTakenAreToldByNumber) {
  std::string text = "1.5,102.5,-3\n";
  for (int i = 2; i <= 13; ++i) text += i % 2 == 0 ? "bad\r\n" : "1e300,1,1\n";
  const CommandResult result = Import({Text("s.xyz", text), "--cell-size", "1"});
  EXPECT_EQ(result.status, kDone);
  std::istringstream errors(result.err);
  const std::string head = "vakdtm import: warning: " + models_.File("s.xyz") + ":";
  std::string line;
  for (int i = 2; i <= 11; ++i) {
    std::getline(errors, line);
    EXPECT_EQ(line, head + std::to_string(i) +
                        (i % 2 == 0 ? ": skipped, three numbers wanted: \"bad\""
                                    : ": refused, no cell can lie there: \"1e300,1,1\""));
  }
  std::getline(errors, line);
  EXPECT_EQ(line, "vakdtm import: warning: " + models_.File("a.dtm") + ": 2 more lines were not taken");
  EXPECT_FALSE(std::getline(errors, line));
}

TEST_F(ImportCommand, OneOfAKindIsToldInTheSingular) {
  std::string text = "1.5,102.5,-3\n";
  for (int i = 0; i < 11; ++i) text += "bad\n";
  const CommandResult result = Import({Text("s.xyz", text), "--cell-size", "1"});
  EXPECT_THAT(result.out, HasSubstr(" into 1 cell in 1 area, z -3 to -3, "));
  EXPECT_THAT(result.err, HasSubstr(": 1 more line was not taken\n"));
  EXPECT_THAT(Import({"-"}, "1.5,102.5,-3\n").out, StartsWith("1 of 1 line taken (0 skipped, "));
}

TEST_F(ImportCommand, NamesThatLookLikeListsAreTakenAsTheyAre) {
  const Words names = {"[a,b]", "[]", "[x]", "[[a],b]", "[x]\x01", "{}", "%%"};
  // Bare names: in a path the brackets wouldn't come first.
  Words words = {"sh", "-c", "cd \"$1\" && shift && exec \"$0\" import \"[m,n]\" --cell-size 1 --json \"$@\"",
                 VAKDTM_COMMAND, models_.Folder().Path().string()};
  for (const std::string& name : names) {
    Text(name, "1.5,1002.5,-3\n");
    words.push_back(name);
  }
  const CommandResult result = RunCommand(words).Wait();
  ASSERT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(json::parse(result.out)["taken"], static_cast<int>(names.size()));
  EXPECT_TRUE(models_.Folder().Has("[m,n]"));
}

TEST_F(ImportCommand, TextThatDoesNotParseIsDoneWithAWarningAndMakesNoModel) {
  const CommandResult result =
      Import({Text("s.txt", "Dear sir,\nno soundings today.\n"), "--cell-size", "1", "--json"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm import: warning: " + models_.File("s.txt") +
                            ": no line holds three numbers; the first is \"Dear sir,\" - give x, y and z parted by "
                            "commas or blanks\n");
  const json summary = json::parse(result.out);
  EXPECT_EQ(summary["lines"], 2);
  EXPECT_EQ(summary["skipped"], 2);
  EXPECT_TRUE(summary["z_range"].is_null());
  EXPECT_FALSE(models_.Folder().Has("a.dtm"));
}

TEST_F(ImportCommand, TextThatDoesNotParseLeavesAModelAsItIs) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  const test::FileState state(models_.Folder(), "a.dtm");
  EXPECT_EQ(Import({"-", "--backup"}, "1;2;3\n").status, kDone);
  EXPECT_TRUE(state.IsUnchanged());
  EXPECT_FALSE(models_.Folder().Has("a.bk1"));
}

TEST_F(ImportCommand, AnEmptyTextIsDoneWithAWarning) {
  const CommandResult result = Import({"-", "--cell-size", "1"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm import: warning: standard input: is empty\n");
  EXPECT_FALSE(models_.Folder().Has("a.dtm"));
}

TEST_F(ImportCommand, OneTextThatParsesIsEnough) {
  const json summary = ImportJson({Text("1.txt", "nothing\n"), Text("2.xyz", "1.5,102.5,-3\n"), "--cell-size", "1"});
  EXPECT_EQ(summary["lines"], 2);
  EXPECT_EQ(summary["taken"], 1);
  EXPECT_EQ(summary["skipped"], 1);
}

TEST_F(ImportCommand, CoordinatesThatLookLikeDegreesAreWarnedAboutWithLargeCells) {
  const struct {
    const char* name;
    const char* text;
    const char* cellSize;
    bool warns;
  } cases[] = {
      {"degrees and half a unit", "8.65,53.92,-3\n8.66,53.93,-3\n", "0.5", true},
      {"degrees and small cells", "8.65,53.92,-3\n8.66,53.93,-3\n", "0.001", false},
      {"west and south", "-170.5,-53.92,-3\n359.5,89.9,-3\n", "1", true},
      {"metres", "431234.5,5712345.5,-3\n", "1", false},
      {"metres behind a first line near the origin", "1,1,-3\n431234.5,5712345.5,-3\n", "1", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove(models_.File("a.dtm"));
    const CommandResult result = Import({"-", "--cell-size", c.cellSize}, c.text);
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.err, c.warns
                              ? "vakdtm import: warning: standard input: the coordinates look like degrees, and a "
                                "cell is " +
                                    std::string(c.cellSize) + (std::string(c.cellSize) == "1" ? " unit" : " units") +
                                    " wide - project them first, or use a small cell size\n"
                              : "");
  }
}

TEST_F(ImportCommand, TheCellSizeOfTheModelThatIsThereCountsForTheWarning) {
  models_.Make("a.dtm", "1000.5,102.5,-3\n");
  EXPECT_THAT(Import({"-"}, "8.65,53.92,-3\n").err, HasSubstr("look like degrees, and a cell is 1 unit wide"));
}

// ---- What can't be done

TEST_F(ImportCommand, AModelThatIsNotThereNeedsACellSize) {
  ExpectRefuses({"-"}, models_.File("a.dtm") + ": no such file - give --cell-size to make it", "1,2,3\n");
}

TEST_F(ImportCommand, AModelWithOtherCellsIsLeftAlone) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  ExpectRefuses({"-", "--cell-size", "0.5"}, models_.File("a.dtm") + ": has cells of 1 m - leave --cell-size out",
                "1,2,3\n");
}

TEST_F(ImportCommand, SettingsThatTheModelDoesNotHaveAreRefused) {
  models_.Make("a.dtm", "1.5,102.5,-3\n", {"--area-size", "16", "--blocks", "NUM,VAL,MIN"});
  const std::string path = models_.File("a.dtm");
  ExpectRefuses({"-", "--area-size", "32"}, path + ": has areas of 16 cells on a side - leave --area-size out",
                "1,2,3\n");
  ExpectRefuses({"-", "--area-size", "64"}, path + ": has areas of 16 cells on a side - leave --area-size out",
                "1,2,3\n");
  for (const char* blocks : {"NUM,VAL", "NUM,VAL,MIN,MAX", "NUM,VAL,TIM"}) {
    SCOPED_TRACE(blocks);
    ExpectRefuses({"-", "--blocks", blocks}, path + ": records NUM,VAL,MIN,XMIN,YMIN - leave --blocks out", "1,2,3\n");
  }
}

TEST_F(ImportCommand, SettingsThatTheModelHasMayBeRepeatedAndTheOrderOfItsBlocksIsItsOwn) {
  models_.Make("a.dtm", "1.5,102.5,-3\n", {"--area-size", "16", "--blocks", "NUM,VAL,MIN"});
  for (const char* blocks : {"NUM,VAL,MIN", "MIN,VAL,NUM"}) {
    SCOPED_TRACE(blocks);
    EXPECT_EQ(ImportJson({"-", "--cell-size", "1", "--area-size", "16", "--blocks", blocks}, "1.5,102.5,-3\n")["taken"],
              1);
  }
}

TEST_F(ImportCommand, AModelThatAnotherProcessWritesIsRefusedBeforeInputIsRead) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  const HugeFileStream other(models_.Folder().WideFile("a.dtm").c_str(), false, true);
  ExpectRefuses({"-"}, models_.File("a.dtm") + ": another process is writing it - wait until that has ended",
                "1,2,3\n");
}

TEST_F(ImportCommand, AModelThatAnotherMakesMeanwhileIsLeftAlone) {
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  RunCommand command({VAKDTM_COMMAND, "import", models_.File("a.dtm"), models_.File("pipe"), "--cell-size", "1"});
  std::ofstream writer(models_.File("pipe"));  // waits for the reader, which has found no model
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  const test::FileState state(models_.Folder(), "a.dtm");
  writer << "1.5,102.5,-9\n";
  writer.close();
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm import: " + models_.File("a.dtm") +
                            ": somebody else has made it meanwhile, nothing was changed - import again\n");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(ImportCommand, ATextThatGoesMeanwhileIsTold) {
  const std::string gone = Text("s.xyz", "1.5,102.5,-3\n");
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  RunCommand command({VAKDTM_COMMAND, "import", models_.File("a.dtm"), gone, models_.File("pipe"), "--cell-size", "1"});
  std::ofstream writer(models_.File("pipe"));  // waits for the reader, which has looked at the text before it
  fs::remove(gone);
  writer.close();
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, HasSubstr("vakdtm import: " + gone + ": cannot be opened any more - check the file\n"));
}

TEST_F(ImportCommand, ADamagedModelIsRefusedWithTheOffset) {
  models_.Make("a.dtm", "1.5,102.5,-3\n70.5,102.5,-4\n");
  const std::string offset = std::to_string(models_.Damage("a.dtm"));
  ExpectRefuses({"-"},
                models_.File("a.dtm") + ": damaged at offset " + offset +
                    ", nothing was changed - run \"vakdtm verify --repair " + models_.File("a.dtm") + "\" first",
                "1,2,3\n");
}

TEST_F(ImportCommand, AModelWithoutAnIndexIsAddedToAndGetsOne) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  models_.CutIndex("a.dtm");
  ImportJson({"-"}, "70.5,102.5,-4\n");
  EXPECT_EQ(Info("a.dtm")["opened_by"], "index");
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n70.5 102.5 -4\n");
}

TEST_F(ImportCommand, ASourceThatCannotBeReadStopsItBeforeAnythingIsChanged) {
  const std::string good = Text("good.xyz", "1.5,102.5,-3\n");
  const std::string folder = models_.Folder().Path().string();
  const struct {
    const char* name;
    std::string path;
    const char* error;
  } cases[] = {
      {"missing", models_.File("none.xyz"), "no such file - check the name"},
      {"a file as a folder", good + "/s.xyz", "no such file - check the name"},
      {"a folder", folder, "is a folder - name a file"},
      {"a file that gives no bytes", "/proc/self/mem", "cannot be read to its end - check the file"},
      {"a link to nothing", models_.File("nowhere"), "is a link that leads nowhere - mend the link, or name a file"},
      {"a loop of links", models_.File("loop"), "is a link that leads nowhere - mend the link, or name a file"},
      {"a name too long", models_.File(std::string(256, 'n')), "the name is too long - check the name"},
  };
  fs::create_symlink("none.xyz", models_.File("nowhere"));
  fs::create_symlink("loop", models_.File("loop"));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove(models_.File("a.dtm"));
    ExpectRefuses({good, c.path, "--cell-size", "1"}, c.path + ": " + c.error);
    models_.Make("a.dtm", "1.5,102.5,-3\n");
    ExpectRefuses({good, c.path}, c.path + ": " + c.error);
    models_.CutIndex("a.dtm");
    ExpectRefuses({good, c.path}, c.path + ": " + c.error);
  }
}

TEST_F(ImportCommand, ASourceThatMayNotBeReadIsToldInOneLine) {
  const std::string source = Text("s.xyz", "1.5,102.5,-3\n");
  fs::permissions(models_.Folder().Path(), fs::perms(0777));
  fs::permissions(source, fs::perms::none);
  const CommandResult result = models_.RunAsStranger({"import", models_.File("a.dtm"), source, "--cell-size", "1"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err,
            "vakdtm import: " + source + ": cannot be read - check the permissions of the file and its folder\n");
  EXPECT_FALSE(models_.Folder().Has("a.dtm"));
}

TEST_F(ImportCommand, AModelThatMayNotBeWrittenIsToldInOneLine) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  Text("s.xyz", "1.5,102.5,-3\n");
  fs::permissions(models_.Folder().Path(), fs::perms(0755));
  fs::permissions(models_.File("a.dtm"), fs::perms(0444));
  const CommandResult result = models_.RunAsStranger({"import", models_.File("a.dtm"), models_.File("s.xyz")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm import: " + models_.File("a.dtm") +
                            ": cannot be written - check the permissions of the file and its folder\n");
}

TEST_F(ImportCommand, MoreTextsThanAProcessMayHaveOpenAreTaken) {
  Words words = {"sh", "-c", "ulimit -n 16; exec \"$0\" import \"$@\" --cell-size 1 --json", VAKDTM_COMMAND,
                 models_.File("a.dtm")};
  for (int i = 0; i < 40; ++i) words.push_back(Text(std::to_string(i) + ".xyz", "1.5,102.5,-3\n"));
  const CommandResult result = RunCommand(words).Wait();
  ASSERT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(json::parse(result.out)["taken"], 40);
}

TEST_F(ImportCommand, MorePipesThanAProcessMayHaveOpenAreToldAsThat) {
  // What comes through a pipe is copied to files without a name, which stay open.
  Words words = {"sh", "-c", "ulimit -n 16; exec \"$0\" import \"$@\" --cell-size 1", VAKDTM_COMMAND,
                 models_.File("a.dtm")};
  for (int i = 0; i < 20; ++i) words.push_back("/dev/null");
  const CommandResult result = RunCommand(words).Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err,
            "vakdtm import: /dev/null: too many files are open - name fewer at once, or raise the limit (ulimit -n)\n");
  EXPECT_FALSE(models_.Folder().Has("a.dtm"));
}

TEST_F(ImportCommand, WithStandardOutputClosedNoMessageGoesIntoAModel) {
  // The first file that a program opens gets the number of a descriptor that was closed.
  for (const std::string closing : {">&-", "2>&-", ">&- 2>&-"}) {
    SCOPED_TRACE(closing);
    fs::remove(models_.File("a.dtm"));
    fs::remove(models_.File("a.dtm.before-repair"));
    ASSERT_EQ(Import({Text("s.xyz", "1,2,-3\n"), "--cell-size", "1"}).status, kDone);
    fs::resize_file(models_.File("a.dtm"), fs::file_size(models_.File("a.dtm")) - 3);
    const auto damaged = models_.Folder().Content("a.dtm");
    const std::string line = "exec \"$0\" verify --repair \"$1\" " + closing;
    RunCommand({"sh", "-c", line, VAKDTM_COMMAND, models_.File("a.dtm")}).Wait();
    // Without anywhere to print its faults it may give up, but then with everything as it was.
    if (!models_.Folder().Has("a.dtm.before-repair")) {
      EXPECT_EQ(models_.Folder().Content("a.dtm"), damaged);
      continue;
    }
    EXPECT_EQ(models_.Folder().Content("a.dtm.before-repair"), damaged);
    EXPECT_EQ(models_.Run({"verify", models_.File("a.dtm")}).status, kDone);
  }
}

TEST_F(ImportCommand, TheModelIsRefusedAsItsOwnInput) {
  Import({Text("s.xyz", "1,2,-3\n"), "--cell-size", "1"});
  const CommandResult result = Import({models_.File("a.dtm")});
  EXPECT_EQ(result.status, kUsedWrongly);
  EXPECT_EQ(result.err, "vakdtm import: the model is named as its own input - name a text of soundings\n");
}

TEST_F(ImportCommand, ClosedStandardInputIsToldInOneLine) {
  const CommandResult result =
      RunCommand({"sh", "-c", "exec \"$0\" import \"$1\" - --cell-size 1 <&-", VAKDTM_COMMAND, models_.File("a.dtm")})
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm import: standard input: cannot be read - is it closed?\n");
}

TEST_F(ImportCommand, WhatIsNoModelIsLeftAlone) {
  Text("a.dtm", "1,2,3\n");
  ExpectRefuses({"-"}, models_.File("a.dtm") + ": is no grid model, or its header is damaged - check the name",
                "1,2,3\n");
  fs::remove(models_.File("a.dtm"));
  fs::create_directory(models_.File("a.dtm"));
  EXPECT_EQ(Import({"-"}, "1,2,3\n").err, "vakdtm import: " + models_.File("a.dtm") + ": is a folder - name a file\n");
}

TEST_F(ImportCommand, ANameThatLeadsToNoModelIsToldForWhatItIs) {
  fs::create_symlink("none.dtm", models_.File("nowhere"));
  fs::create_symlink("loop", models_.File("loop"));
  const struct {
    const char* name;
    std::string path;
    const char* error;
  } cases[] = {
      {"a link to nothing", models_.File("nowhere"), "is a link that leads nowhere - mend the link, or name a file"},
      {"a loop of links", models_.File("loop"), "is a link that leads nowhere - mend the link, or name a file"},
      {"a name too long", models_.File(std::string(256, 'n')), "the name is too long - check the name"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const Words& words :
         {Words{"import", c.path, "-", "--cell-size", "1"}, Words{"import", c.path, "-"},
          Words{"create", c.path, "--cell-size", "1"}, Words{"create", c.path, "--cell-size", "1", "--force"},
          Words{"info", c.path}, Words{"verify", c.path}}) {
      const CommandResult result = models_.Run(words, "1,2,3\n");
      EXPECT_EQ(result.status, kCouldNotBeDone);
      EXPECT_EQ(result.err, "vakdtm " + words[0] + ": " + c.path + ": " + c.error + "\n");
    }
  }
  EXPECT_FALSE(models_.Folder().Has("none.dtm"));
}

TEST_F(ImportCommand, AFolderThatMayNotBeEnteredIsNotTakenForAMissingFile) {
  fs::permissions(models_.Folder().Path(), fs::perms(0777));
  fs::create_directory(models_.File("closed"));
  models_.Make("closed/a.dtm", "1.5,102.5,-3\n");
  Text("s.xyz", "1.5,102.5,-3\n");
  fs::permissions(models_.File("closed"), fs::perms::none);
  const std::string command = models_.CopyForStrangers();
  for (const char* name : {"closed/a.dtm", "closed/new.dtm"}) {
    SCOPED_TRACE(name);
    const std::string path = models_.File(name);
    for (const Words& words :
         {Words{"import", path, models_.File("s.xyz"), "--cell-size", "1"}, Words{"create", path, "--cell-size", "1"},
          Words{"create", path, "--cell-size", "1", "--force"}, Words{"info", path}}) {
      const CommandResult result = test::CommandModels::RunAsStranger(command, words);
      EXPECT_EQ(result.status, kCouldNotBeDone);
      EXPECT_EQ(result.err, "vakdtm " + words[0] + ": " + path +
                                ": a folder on the way to it may not be entered - check the permissions of the "
                                "folders\n");
    }
  }
  fs::permissions(models_.File("closed"), fs::perms(0755));
}

TEST_F(ImportCommand, AnEmptyNameIsNoModel) {
  const CommandResult result = models_.Run({"import", "", "-", "--cell-size", "1"}, "1,2,3\n");
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm import: '': is no name for a model - name a file\n");
}

TEST_F(ImportCommand, AFullDiskThatTakesNoModelAtAllIsToldInOneLine) {
  const std::string source = Text("s.xyz", "1001.5,102.5,-3\n");
  const test::FullDisk full(16);
  const CommandResult result = models_.RunOnTerminal({"import", models_.File("a.dtm"), source, "--cell-size", "1"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err,
            "vakdtm import: " + models_.File("a.dtm") + ": no space left on the disk - make room and try again\n");
  EXPECT_FALSE(models_.Folder().Has("a.dtm"));
}

TEST_F(ImportCommand, AFullDiskIsToldWithTheLineAndTheModelOpensWithWhatFitted) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  const std::string source = Text("s.xyz", "2.5,102.5,-4\n1000.5,102.5,-5\n");
  {
    const test::FullDisk full(fs::file_size(models_.File("a.dtm")));
    const CommandResult result = Import({source});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm import: " + source +
                              ":2: the sounding cannot be stored, no space left on the disk - make room or check the "
                              "disk, then run \"vakdtm verify " +
                              models_.File("a.dtm") + "\"\n");
  }
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n2.5 102.5 -4\n");
}

TEST_F(ImportCommand, CellsThatHadToBeGivenUpAreTold) {
  const std::string source = Text("s.xyz", "1.5,1002.5,-3\n101.5,1002.5,-4\n201.5,1002.5,-5\n");
  models_.Make("a.dtm", models_.Folder().Text("s.xyz"));
  // Sounding after sounding the areas, which are made already, leave the memory and find no room.
  const test::FullDisk full(10000);
  const CommandResult result = Import({source, "--memory", "1"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "vakdtm import: " + models_.File("a.dtm") +
                ": cells were lost because they cannot be written, no space left on the disk - make room or "
                "check the disk, then run \"vakdtm verify " +
                models_.File("a.dtm") + "\"\n");
}

TEST_F(ImportCommand, AFullDiskWithABackupNamesIt) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  const std::string source = Text("s.xyz", "2.5,102.5,-4\n1000.5,102.5,-5\n");
  const test::FullDisk full(fs::file_size(models_.File("a.dtm")));
  const CommandResult result = Import({source, "--backup"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(
      result.err,
      "vakdtm import: Cannot update grid model. Please exit Acquisition and replace the active grid model file: " +
          models_.File("a.dtm") + " by its backup: " + models_.File("a.bk1") + "\nvakdtm import: " + source +
          ":2: the sounding cannot be stored, no space left on the disk - put " + models_.File("a.bk1") +
          " in the place of the model\n");
}

TEST_F(ImportCommand, OutputThatCannotBeWrittenIsAFailure) {
  const CommandResult result = RunCommand({"sh", "-c", "\"$0\" import \"$1\" \"$2\" --cell-size 1 > /dev/full",
                                           VAKDTM_COMMAND, models_.File("a.dtm"), Text("s.xyz", "1.5,102.5,-3\n")})
                                   .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(
      result.err,
      "vakdtm import: standard output: cannot write: no space left on the device - make room, or send it elsewhere\n");
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 102.5 -3\n") << "the import itself is done";
}

TEST_F(ImportCommand, WrongUseIsTold) {
  const struct {
    Words words;
    const char* error;
  } cases[] = {
      {{}, "files is required"},
      {{"-", "-", "--cell-size", "1"}, "standard input is named twice - name it once"},
      {{"-", "--cell-size", "0"}, "'0' is no number above 0"},
      {{"-", "--cell-size", "1", "--memory", "0"}, "'0' is less than 1 bytes"},
      {{"-", "--cell-size", "1", "--memory", "much"}, "'much' is no size such as 256M or 1G"},
      {{"-", "--cell-size", "1", "--blocks", "XYZ"}, "--blocks: no kind of value is called \"XYZ\""},
      {{"-", "--cell-size", "1", "--area-size", "0"}, "'0' is no whole number from 1 to 46340"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    const CommandResult result = Import(c.words, "1,2,3\n");
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, HasSubstr(c.error));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
  }
  EXPECT_FALSE(models_.Folder().Has("a.dtm"));
}

// ---- Stopping

/// Waits for a condition, a minute at most.
template <typename Condition>
void Await(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    ASSERT_LT(std::chrono::steady_clock::now(), end);
    std::this_thread::yield();
  }
}

TEST_F(ImportCommand, CtrlCLeavesAValidFileAndStatus130) {
  std::string text;
  // Each line in another area than the last, of which one at a time stays in memory: slow enough to be stopped.
  for (int i = 0; i < 400000; ++i) text += std::to_string(i % 20 * 200) + ".5,0.5,-3\n";
  const std::string source = Text("s.xyz", text);
  RunCommand command({VAKDTM_COMMAND, "import", models_.File("a.dtm"), source, "--cell-size", "1", "--area-size", "200",
                      "--memory", "1", "--json"});
  Await([&] { return models_.Folder().Has("a.dtm") && fs::file_size(models_.File("a.dtm")) > 1000000; });
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_EQ(result.err, "vakdtm import: stopped - the model holds what was imported so far\n");
  EXPECT_EQ(Info("a.dtm")["opened_by"], "index");
  const json summary = json::parse(result.out);
  EXPECT_GT(summary["taken"], 0);
  EXPECT_LT(summary["taken"], 400000);
  // The model holds what the summary says, to the last sounding.
  std::istringstream cells(models_.Cells("a.dtm", "NUM"));
  long long hits = 0;
  double x = 0;
  double y = 0;
  for (long long count = 0; cells >> x >> y >> count;) hits += count;
  EXPECT_EQ(hits, summary["taken"].get<long long>());
}

TEST_F(ImportCommand, CtrlCWhileStandardInputIsCopiedChangesNothing) {
  models_.Make("a.dtm", "1.5,102.5,-3\n");
  const test::FileState state(models_.Folder(), "a.dtm");
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  RunCommand command({VAKDTM_COMMAND, "import", models_.File("a.dtm"), models_.File("pipe")});
  std::ofstream writer(models_.File("pipe"));  // waits for the reader
  writer << "1.5,102.5,-3\n" << std::flush;
  // In the wait for more: asleep, with all of the pipe taken.
  Await([&] {
    std::ifstream file("/proc/" + std::to_string(command.Process()) + "/stat");
    std::string line;
    std::getline(file, line);
    return line.substr(line.rfind(')') + 2, 1) == "S";
  });
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_EQ(result.err, "vakdtm import: stopped - nothing was changed\n");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(ImportCommand, ABarIsDrawnOnATerminalAndErasedAtTheEnd) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "1.5,102.5,-3\n";
  const std::string source = Text("s.xyz", text);
  RunCommand command({VAKDTM_COMMAND, "import", models_.File("a.dtm"), source, "--cell-size", "1"}, "",
                     RunCommand::StandardError::kTerminal);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.err, HasSubstr("\rvakdtm import"));
  EXPECT_THAT(result.err, testing::EndsWith("\r\033[K"));
}

TEST_F(ImportCommand, HelpExplainsEveryOptionWithAnExample) {
  const CommandResult result = models_.Run({"import", "--help"});
  EXPECT_EQ(result.status, kDone);
  for (const char* word : {"--cell-size", "--area-size", "--blocks", "--clear-first", "--negate", "--backup",
                           "--memory", "--json", "--quiet", "Example:\n  vakdtm import "}) {
    EXPECT_THAT(result.out, HasSubstr(word));
  }
}

}  // namespace
}  // namespace vak
