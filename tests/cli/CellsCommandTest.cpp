#include <charconv>
#include <cmath>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sstream>
#include <string>

#include "Command.h"
#include "support/CommandModels.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using test::CommandResult;

class CellsCommand : public testing::Test {
 protected:
  CommandResult Cells(std::vector<std::string> words) const {
    words.insert(words.begin(), {"cells"});
    return models_.Run(words);
  }

  test::CommandModels models_;
};

TEST_F(CellsCommand, ALineIsTheCentreAndTheMeanHeight) {
  models_.Make("a.dtm", "1.5,2.5,-3.25\n", {"--cell-size", "0.5"});
  const CommandResult result = Cells({models_.File("a.dtm")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out, "1.75 2.75 -3.25\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(CellsCommand, BlocksStandInTheOrderAsked) {
  models_.Make("a.dtm", "1.5,2.5,-3\n1.5,2.5,-5\n");
  EXPECT_EQ(models_.Cells("a.dtm", "NUM,VAL,MIN,MAX,SDV"), "1.5 2.5 2 -4 -5 -3 1.4142135623730951\n");
  EXPECT_EQ(models_.Cells("a.dtm", "MAX,NUM"), "1.5 2.5 -3 2\n");
}

TEST_F(CellsCommand, WhatACellLacksIsNanAndACellThatLacksAllIsLeftOut) {
  // One sounding makes no deviation.
  models_.Make("a.dtm", "1.5,2.5,-3\n4.5,2.5,-3\n4.5,2.5,-5\n", {"--blocks", "NUM,VAL,SDV"});
  EXPECT_EQ(models_.Cells("a.dtm", "VAL,SDV"), "1.5 2.5 -3 nan\n4.5 2.5 -4 1.4142135623730951\n");
  models_.Make("b.dtm", "1.5,2.5,-3\n3.5,2.5,-nan\n", {"--clear-first"});
  EXPECT_EQ(models_.Cells("b.dtm"), "1.5 2.5 -3\n");
}

TEST_F(CellsCommand, RowsGoUpwardsWithinAreasInTheOrderOfTheFile) {
  models_.Make("a.dtm", "9.5,9.5,-1\n3.5,1.5,-2\n0.5,3.5,-3\n0.5,0.5,-4\n-0.5,0.5,-5\n2.5,0.5,-6\n",
               {"--area-size", "4"});
  EXPECT_EQ(models_.Cells("a.dtm"),
            "9.5 9.5 -1\n"
            "0.5 0.5 -4\n2.5 0.5 -6\n3.5 1.5 -2\n0.5 3.5 -3\n"
            "-0.5 0.5 -5\n");
}

TEST_F(CellsCommand, NumbersReadBackToTheSameDouble) {
  const std::string third = "0.3333333333333333";
  models_.Make("a.dtm", "512345.5,5712345.5,-0.1\n512346.5,5712345.5," + third + "\n512347.5,5712345.5,1e-300\n");
  EXPECT_EQ(models_.Cells("a.dtm"),
            "512345.5 5712345.5 -0.1\n512346.5 5712345.5 " + third + "\n512347.5 5712345.5 1e-300\n");
}

TEST_F(CellsCommand, DigitsFixTheDecimalsOfEveryNumber) {
  models_.Make("a.dtm", "1.5,2.5,-3.14159\n1.5,2.5,-3.14159\n");
  const struct {
    const char* digits;
    const char* text;
  } cases[] = {{"0", "2 2 -3 2\n"}, {"1", "1.5 2.5 -3.1 2.0\n"}, {"4", "1.5000 2.5000 -3.1416 2.0000\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.digits);
    EXPECT_EQ(Cells({models_.File("a.dtm"), "--blocks", "VAL,NUM", "--digits", c.digits}).out, c.text);
  }
}

TEST_F(CellsCommand, AFileTakesWhatStandardOutputWouldGet) {
  models_.Make("a.dtm", "1.5,2.5,-3\n4.5,2.5,-3\n");
  const CommandResult result = Cells({models_.File("a.dtm"), "-o", models_.File("cells.txt")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(models_.Folder().Text("cells.txt"), models_.Cells("a.dtm"));
  EXPECT_EQ(Cells({models_.File("a.dtm"), "--output", "-"}).out, models_.Cells("a.dtm"));
}

TEST_F(CellsCommand, AnEmptyModelGivesAnEmptyText) {
  ASSERT_EQ(models_.Run({"create", models_.File("a.dtm"), "--cell-size", "1"}).status, kDone);
  const CommandResult result = Cells({models_.File("a.dtm"), "-o", models_.File("cells.txt")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(models_.Folder().Text("cells.txt"), "");
}

TEST_F(CellsCommand, TheModelIsNotReplacedByItsOwnCells) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  fs::create_symlink(models_.File("a.dtm"), models_.File("link"));
  const test::FileState state(models_.Folder(), "a.dtm");
  for (const char* output : {"a.dtm", "./a.dtm", "link"}) {
    const CommandResult result = Cells({models_.File("a.dtm"), "-o", models_.File(output)});
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_EQ(result.err, "vakdtm cells: the model would be replaced by its own cells - name another file with -o\n");
  }
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(CellsCommand, LeavesEveryByteAndTheTimeAsTheyWere) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  models_.CutIndex("a.dtm");
  const test::FileState state(models_.Folder(), "a.dtm");
  EXPECT_EQ(models_.Cells("a.dtm"), "1.5 2.5 -3\n");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(CellsCommand, OfADamagedFileTheGoodCellsAreWrittenAndTheStatusIsOne) {
  models_.Make("a.dtm", "1.5,2.5,-3\n70.5,2.5,-4\n");
  const std::string offset = std::to_string(models_.Damage("a.dtm"));
  const test::FileState state(models_.Folder(), "a.dtm");
  const CommandResult result = Cells({models_.File("a.dtm")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.out, "1.5 2.5 -3\n");
  EXPECT_EQ(result.err, "vakdtm cells: " + models_.File("a.dtm") + ": damaged at offset " + offset +
                            ", the cells of the others were written - run \"vakdtm verify " + models_.File("a.dtm") +
                            "\"\n");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(CellsCommand, KindsThatTheModelDoesNotRecordAreToldBeforeAnythingIsWritten) {
  models_.Make("a.dtm", "1.5,2.5,-3\n", {"--blocks", "VAL"});
  const CommandResult result = Cells({models_.File("a.dtm"), "--blocks", "VAL,NUM", "-o", models_.File("cells.txt")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err,
            "vakdtm cells: " + models_.File("a.dtm") + ": records no NUM - ask \"vakdtm info\" which kinds it has\n");
  EXPECT_FALSE(models_.Folder().Has("cells.txt"));
}

TEST_F(CellsCommand, WrongUseIsTold) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  const struct {
    std::vector<std::string> words;
    const char* error;
  } cases[] = {
      {{"--blocks", "ABC"}, "--blocks: no kind of value is called \"ABC\"; there are "},
      {{"--blocks", "VAL,VAL"}, "--blocks: VAL is named twice"},
      {{"--digits", "100"}, "'100' is no whole number up to 99"},
      {{"--digits", "-1"}, "'-1' is no whole number up to 99"},
      {{"one-more"}, "one-more"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    std::vector<std::string> words = {models_.File("a.dtm")};
    words.insert(words.end(), c.words.begin(), c.words.end());
    const CommandResult result = Cells(words);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, testing::HasSubstr(c.error));
  }
}

TEST_F(CellsCommand, AFullDiskIsToldAndLeavesTheOldFile) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  const CommandResult full = Cells({models_.File("a.dtm"), "-o", "/dev/full"});
  EXPECT_EQ(full.status, kCouldNotBeDone);
  EXPECT_EQ(full.err,
            "vakdtm cells: /dev/full: cannot write: no space left on the device - name another file with -o\n");
  models_.Folder().Write("cells.txt", "old");
  const CommandResult limited =
      test::RunCommand({"sh", "-c", "trap '' XFSZ; ulimit -f 0; exec \"$0\" cells \"$1\" -o \"$2\"", VAKDTM_COMMAND,
                        models_.File("a.dtm"), models_.File("cells.txt")})
          .Wait();
  EXPECT_EQ(limited.status, kCouldNotBeDone);
  EXPECT_EQ(models_.Folder().Text("cells.txt"), "old");
}

}  // namespace
}  // namespace vak
