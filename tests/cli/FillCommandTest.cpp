#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"

#include "Command.h"
#include "support/CommandModels.h"

namespace vak {
namespace {

using nlohmann::json;
using test::CommandResult;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using Words = std::vector<std::string>;

/// A row of five cells of 1 m, the second and the fourth empty; z -2, -4 and -8.
constexpr const char* kRow = "1000.5 2000.5 -2\n1002.5 2000.5 -4\n1004.5 2000.5 -8\n";
constexpr const char* kFilled =
    "1000.5 2000.5 -2\n1001.5 2000.5 -3\n1002.5 2000.5 -4\n1003.5 2000.5 -6\n1004.5 2000.5 -8\n";

class FillCommand : public testing::Test {
 protected:
  CommandResult Fill(const Words& words) const {
    Words all = {"fill", "circular", models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return models_.Run(all);
  }
  std::string Heights(const std::string& name, const std::string& block = "VAL") const {
    return models_.Cells(name, block);
  }
  void MakeRow() const { models_.Make("a.dtm", kRow, {"--blocks", "VAL,NUM"}); }
  void ExpectRefuses(const Words& words, int status, const std::string& error) const {
    const test::FileState state(models_.Folder(), "a.dtm");
    const CommandResult result = Fill(words);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm fill circular: " + error + "\n");
    EXPECT_TRUE(state.IsUnchanged());
    EXPECT_FALSE(models_.Folder().Has("b.dtm"));
    ExpectNothingUnfinished();
  }
  void ExpectNothingUnfinished() const {
    for (const auto& entry : std::filesystem::directory_iterator(models_.Folder().Path())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with(".vakdtm")) << entry.path();
    }
  }

  test::CommandModels models_;
};

TEST_F(FillCommand, FillsTheModelItself) {
  MakeRow();
  const CommandResult result = Fill({"--radius", "1", "--in-place"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, MatchesRegex("2 cells filled, 4091 holes left, [0-9]+\\.[0-9][0-9] s\n"));
  EXPECT_EQ(Heights("a.dtm"), kFilled);
  EXPECT_THAT(models_.Cells("a.dtm", "NUM"), testing::Not(HasSubstr("1001.5"))) << "filled cells have no hits";
}

TEST_F(FillCommand, CopyIsFilledAndTheModelStaysByteForByte) {
  MakeRow();
  const test::FileState state(models_.Folder(), "a.dtm");
  const CommandResult result = Fill({"--radius", "1", "-o", models_.File("b.dtm"), "--quiet"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_TRUE(state.IsUnchanged());
  EXPECT_EQ(Heights("a.dtm"), kRow);
  EXPECT_EQ(Heights("b.dtm"), kFilled);
  EXPECT_EQ(models_.Run({"verify", models_.File("b.dtm")}).status, kDone);
  ExpectNothingUnfinished();
}

TEST_F(FillCommand, CopyOfAModelThatMayOnlyBeReadCanBeFilled) {
  MakeRow();
  std::filesystem::permissions(models_.File("a.dtm"), std::filesystem::perms(0444));
  std::filesystem::permissions(models_.Folder().Path(), std::filesystem::perms(0777));
  const CommandResult result =
      models_.RunAsStranger({"fill", "circular", models_.File("a.dtm"), "--radius", "1", "-o", models_.File("b.dtm")});
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(Heights("b.dtm"), kFilled);
}

TEST_F(FillCommand, JsonHasEveryKeyInOrder) {
  MakeRow();
  const CommandResult result = Fill({"--radius", "1", "--in-place", "--json", "--quiet"});
  EXPECT_THAT(result.out, StartsWith("{\"filled\":2,\"left\":4091,\"new_areas\":0,\"fill_seconds\":"));
  const json summary = json::parse(result.out);
  EXPECT_EQ(summary.size(), 5U);
  EXPECT_GE(summary["seconds"].get<double>(), summary["fill_seconds"].get<double>());
}

TEST_F(FillCommand, ExactlyOneTargetIsAskedFor) {
  MakeRow();
  ExpectRefuses({"--radius", "1"}, kUsedWrongly,
                "--in-place or -o is missing - say --in-place to change the model, or -o for a filled copy");
  ExpectRefuses({"--radius", "1", "--in-place", "-o", models_.File("b.dtm")}, kUsedWrongly,
                "--in-place and -o exclude each other - say --in-place to change the model, or -o for a filled copy");
  ExpectRefuses({"--radius", "1", "-o", "-"}, kUsedWrongly, "-o: a model is a file - name one");
}

TEST_F(FillCommand, CopyNeverReplacesAnything) {
  MakeRow();
  ExpectRefuses({"--radius", "1", "-o", models_.File("a.dtm")}, kUsedWrongly,
                "-o names the model itself - say --in-place");
  models_.Folder().Write("c.dtm", "precious");
  ExpectRefuses({"--radius", "1", "-o", models_.File("c.dtm")}, kCouldNotBeDone,
                models_.File("c.dtm") + ": exists already - name another file with -o");
  EXPECT_EQ(models_.Folder().Text("c.dtm"), "precious");
  ExpectRefuses({"--radius", "1", "-o", models_.File("nowhere/b.dtm")}, kCouldNotBeDone,
                models_.File("nowhere/b.dtm") + ": cannot write: there is no such folder - name another file with -o");
}

TEST_F(FillCommand, RadiusIsAWholeNumberWithinReason) {
  MakeRow();
  for (const char* radius : {"0", "-1", "1001", "99999999999999999999", "1.5", "ten", "nan", ""}) {
    SCOPED_TRACE(radius);
    ExpectRefuses({"--radius", radius, "--in-place"}, kUsedWrongly,
                  "--radius: '" + std::string(radius) +
                      "' is no whole number from 1 to 1000 - see 'vakdtm fill circular --help'");
  }
  EXPECT_EQ(Fill({"--in-place"}).status, kUsedWrongly) << "there is no usual radius";
  EXPECT_EQ(Fill({"--radius", "1000", "--in-place"}).status, kDone);
}

TEST_F(FillCommand, BlockIsOneThatTheModelRecords) {
  MakeRow();
  ExpectRefuses({"--radius", "1", "--in-place", "--block", "MIN"}, kCouldNotBeDone,
                models_.File("a.dtm") + ": records no MIN - ask \"vakdtm info\" which kinds it has");
  ExpectRefuses({"--radius", "1", "--in-place", "--block", "NUM"}, kUsedWrongly,
                "--block: NUM is counted, not measured - name a kind that is measured");
  ExpectRefuses({"--radius", "1", "--in-place", "--block", "VAL,NUM"}, kUsedWrongly,
                "--block: names more than one kind - name one, as VAL");
  const CommandResult result = Fill({"--radius", "1", "--in-place", "--block", "val"});
  EXPECT_EQ(result.status, kUsedWrongly);
  EXPECT_THAT(result.err, StartsWith("vakdtm fill circular: --block: no kind of value is called \"val\""));
  models_.Make("a2.dtm", kRow, {"--blocks", "NUM,SDV"});
  const CommandResult none = models_.Run({"fill", "circular", models_.File("a2.dtm"), "--radius", "1", "--in-place"});
  EXPECT_EQ(none.status, kCouldNotBeDone);
  EXPECT_EQ(none.err, "vakdtm fill circular: " + models_.File("a2.dtm") +
                          ": records no height - name what is to be filled with --block\n");
}

TEST_F(FillCommand, AllHeightsAreFilledUnlessOneIsNamed) {
  models_.Make("a.dtm", kRow, {"--blocks", "VAL,NUM,MIN"});
  std::filesystem::copy_file(models_.File("a.dtm"), models_.File("c.dtm"));
  EXPECT_EQ(Fill({"--radius", "1", "--in-place", "--block", "VAL"}).status, kDone);
  EXPECT_EQ(Heights("a.dtm", "VAL"), kFilled);
  EXPECT_EQ(Heights("a.dtm", "MIN"), kRow);
  EXPECT_EQ(models_.Run({"fill", "circular", models_.File("c.dtm"), "--radius", "1", "--in-place"}).status, kDone);
  EXPECT_EQ(Heights("c.dtm", "VAL"), kFilled);
  EXPECT_EQ(Heights("c.dtm", "MIN"), kFilled);
}

TEST_F(FillCommand, RectangleAndPolygonTakeCellsByTheirCentre) {
  MakeRow();
  EXPECT_EQ(Fill({"--radius", "1", "--rect", "1000,2000,1001.6,2001", "-o", models_.File("b.dtm")}).status, kDone);
  EXPECT_EQ(Heights("b.dtm"), "1000.5 2000.5 -2\n1001.5 2000.5 -3\n1002.5 2000.5 -4\n1004.5 2000.5 -8\n");
  const std::string polygon =
      models_.Folder().Write("p.txt", "1003.4,2000\n1003.6,2000\n1003.6,2001\n1003.4,2001\n1003.4,2000\n");
  EXPECT_EQ(Fill({"--radius", "1", "--polygon", polygon, "-o", models_.File("c.dtm")}).status, kDone);
  EXPECT_EQ(Heights("c.dtm"), "1000.5 2000.5 -2\n1002.5 2000.5 -4\n1003.5 2000.5 -6\n1004.5 2000.5 -8\n");
}

TEST_F(FillCommand, RectangleAndPolygonAreLookedAtFirst) {
  MakeRow();
  ExpectRefuses(
      {"--radius", "1", "--in-place", "--rect", "0,0,10,10"}, kCouldNotBeDone,
      "the rectangle: lies outside the model, whose areas reach from x 960 to 1024 and y 1984 to 2048 - check "
      "its coordinates");
  const std::string open = models_.Folder().Write("open.txt", "1000,2000\n1010,2000\n1010,2010\n");
  ExpectRefuses({"--radius", "1", "--in-place", "--polygon", open}, kCouldNotBeDone,
                open +
                    ":1: the ring isn't closed: it begins at 1000, 2000 and ends at 1010, 2010 - repeat its first "
                    "vertex at its end");
  const std::string far = models_.Folder().Write("far.txt", "0,0\n1,0\n1,1\n0,0\n");
  ExpectRefuses({"--radius", "1", "-o", models_.File("b.dtm"), "--polygon", far}, kCouldNotBeDone,
                far +
                    ": lies outside the model, whose areas reach from x 960 to 1024 and y 1984 to 2048 - check its "
                    "coordinates");
  ExpectRefuses({"--radius", "1", "-o", far, "--polygon", far}, kUsedWrongly,
                "the polygon would be replaced by the filled model - name another file with -o");
}

TEST_F(FillCommand, MissingAreasAreFilledForGapsAlone) {
  // Areas of two cells; between the two there is one missing.
  models_.Make("a.dtm", "1.5,0.5,-2\n4.5,0.5,-8\n", {"--blocks", "VAL,NUM", "--area-size", "2"});
  EXPECT_EQ(Fill({"--radius", "2", "-o", models_.File("b.dtm")}).status, kDone);
  EXPECT_EQ(Heights("b.dtm"), "1.5 0.5 -2\n4.5 0.5 -8\n");
  const CommandResult result = Fill({"--radius", "2", "--gaps", "-o", models_.File("c.dtm")});
  EXPECT_THAT(result.out, StartsWith("2 cells filled (1 new area), "));
  EXPECT_EQ(Heights("c.dtm"), "1.5 0.5 -2\n4.5 0.5 -8\n2.5 0.5 -4\n3.5 0.5 -6\n");
}

TEST_F(FillCommand, ModelWithoutHitsIsWarnedOf) {
  models_.Make("a.dtm", kRow, {"--blocks", "VAL"});
  const CommandResult result = Fill({"--radius", "1", "--in-place"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm fill circular: warning: " + models_.File("a.dtm") +
                            ": records no NUM, so that filled cells count as measured ones - holes of any size are "
                            "filled, and the edge grows outwards\n");
}

TEST_F(FillCommand, ModelThatIsBeingWrittenIsLeftAlone) {
  MakeRow();
  HugeFileStream writer(models_.Folder().WideFile("a.dtm").c_str(), false, true);
  ASSERT_TRUE(writer.IsOpen());
  ExpectRefuses({"--radius", "1", "--in-place"}, kCouldNotBeDone,
                models_.File("a.dtm") + ": another process is writing it - wait until that has ended");
}

TEST_F(FillCommand, DamagedModelIsLeftAlone) {
  MakeRow();
  const std::string at = std::to_string(models_.Damage("a.dtm"));
  ExpectRefuses({"--radius", "1", "--in-place"}, kCouldNotBeDone,
                models_.File("a.dtm") + ": damaged at offset " + at +
                    ", nothing was changed - run \"vakdtm verify "
                    "--repair " +
                    models_.File("a.dtm") + "\" first");
  ExpectRefuses(
      {"--radius", "1", "-o", models_.File("b.dtm")}, kCouldNotBeDone,
      models_.File("a.dtm") + ": damaged at offset " + at + " - run \"vakdtm verify " + models_.File("a.dtm") + "\"");
}

TEST_F(FillCommand, FullDiskLeavesNoHalfCopy) {
  MakeRow();
  const auto size = std::filesystem::file_size(models_.File("a.dtm"));
  // The shell limits the size of files in blocks of 512 or 1024 bytes, as it likes: either is too little.
  const CommandResult result =
      test::RunCommand(
          {"sh", "-c", "trap '' XFSZ; ulimit -f " + std::to_string(size / 1024 / 2) + "; exec \"$0\" \"$@\"",
           VAKDTM_COMMAND, "fill", "circular", models_.File("a.dtm"), "--radius", "1", "-o", models_.File("b.dtm")})
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, StartsWith("vakdtm fill circular: " + models_.File("b.dtm") + ": cannot write: "));
  EXPECT_FALSE(models_.Folder().Has("b.dtm"));
  ExpectNothingUnfinished();
}

TEST_F(FillCommand, StoppedCopyLeavesNothing) {
  // Without hit counts filled cells are sources, so that this goes on for a while.
  models_.Make("a.dtm", "0.5,0.5,-1\n29999.5,29999.5,-1\n", {"--blocks", "VAL"});
  Words words = {VAKDTM_COMMAND, "fill", "circular",           models_.File("a.dtm"), "--radius", "9",
                 "--gaps",       "-o",   models_.File("b.dtm")};
  test::RunCommand command(words, {}, test::RunCommand::StandardError::kTerminal);
  // It has begun when the hidden copy is there.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  const auto hasCopy = [this] {
    for (const auto& entry : std::filesystem::directory_iterator(models_.Folder().Path())) {
      if (entry.path().filename().string().starts_with(".vakdtm")) return true;
    }
    return false;
  };
  while (!hasCopy() && std::chrono::steady_clock::now() < limit) std::this_thread::yield();
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_THAT(result.err, HasSubstr("stopped - nothing was kept"));
  EXPECT_FALSE(models_.Folder().Has("b.dtm"));
  ExpectNothingUnfinished();
}

}  // namespace
}  // namespace vak
