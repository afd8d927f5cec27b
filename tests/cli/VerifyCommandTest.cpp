#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/store/GridFormat.h"

#include "Command.h"
#include "support/MemoryStream.h"
#include "support/RunCommand.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::Bytes;
using test::CommandResult;
using test::RunCommand;
using test::TestFolder;
using test::TestGrid;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::size_t kAreas = 64;
constexpr std::size_t kWhole = 248;
constexpr std::size_t kSecond = kAreas + kWhole;
constexpr std::size_t kValHeader = 40;

/// Area size 4, dVAL and iNUM, areas at (0, 0), (0, 4) and (4, 0).
Bytes Model() {
  TestGrid grid;
  for (const auto& [x, y] : {std::pair(0.5, 0.5), std::pair(5.5, 1.5), std::pair(2.5, 6.5)}) {
    EXPECT_TRUE(grid.Sound(x, y, -10.0 - x));
  }
  grid.Close();
  return grid.Bytes();
}

Bytes WithoutSecondBlock(Bytes bytes) {
  std::memset(bytes.data() + kSecond + kValHeader, 0, 4);
  return bytes;
}

Bytes WithCellOutside(Bytes bytes) {
  const double value = 99.0;
  std::memcpy(bytes.data() + kSecond + kValHeader + 8, &value, sizeof value);
  return bytes;
}

CommandResult Verify(const std::string& model, std::vector<std::string> options = {}) {
  std::vector<std::string> words = {VAKDTM_COMMAND, "verify", model};
  words.insert(words.end(), options.begin(), options.end());
  return RunCommand(words).Wait();
}

std::string OneLineOf(const CommandResult& result) {
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  return result.err;
}

TEST(VerifyCommand, ASoundModelGivesTheSummaryAlone) {
  const TestFolder folder;
  const std::string model = folder.Write("model.dtm", Model());
  const CommandResult result = Verify(model);
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out, "3 areas, 0 faults, 0 warnings\n");
  EXPECT_EQ(result.err, "");
}

TEST(VerifyCommand, QuietSaysNothingOfASoundModel) {
  const TestFolder folder;
  const CommandResult result = Verify(folder.Write("model.dtm", Model()), {"--quiet"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out + result.err, "");
}

TEST(VerifyCommand, AFaultIsALineWithItsOffsetAndStatusOne) {
  const TestFolder folder;
  const CommandResult result = Verify(folder.Write("model.dtm", WithoutSecondBlock(Model())));
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.out, AllOf(StartsWith("352: fault: the area at row 0, column 4 lacks block dVAL"),
                                EndsWith("\n2 areas, 1 fault, 0 warnings\n")));
  EXPECT_EQ(result.err, "");
}

TEST(VerifyCommand, AWarningAloneIsDone) {
  const TestFolder folder;
  const std::string model = folder.Write("model.dtm", WithCellOutside(Model()));
  const CommandResult result = Verify(model);
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.out, StartsWith("360: warning: cell at row 0, column 4: dVAL 99 outside"));
  EXPECT_THAT(result.out, EndsWith("3 areas, 0 faults, 1 warning\n"));
  EXPECT_EQ(Verify(model, {"--quiet"}).out, "");
}

TEST(VerifyCommand, NothingOfAFileChangesThatIsOnlyLookedAt) {
  const TestFolder folder;
  Bytes torn = Model();
  torn.resize(torn.size() - 5);
  for (const Bytes& bytes : {Model(), WithoutSecondBlock(Model()), torn, Bytes(100, 7), Bytes()}) {
    const std::string model = folder.Write("model.dtm", bytes);
    const auto long_ago = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1000);
    std::filesystem::last_write_time(model, long_ago);
    struct stat before{};
    ASSERT_EQ(stat(model.c_str(), &before), 0);
    Verify(model);
    struct stat after{};
    ASSERT_EQ(stat(model.c_str(), &after), 0);
    EXPECT_EQ(before.st_mtim.tv_sec, after.st_mtim.tv_sec);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(folder.Content("model.dtm"), bytes);
    EXPECT_FALSE(folder.Has("model.dtm.before-repair"));
  }
}

TEST(VerifyCommand, RepairKeepsACopyOfTheFileAsItWasAndMakesItSound) {
  const TestFolder folder;
  const Bytes damaged = WithoutSecondBlock(Model());
  const std::string model = folder.Write("model.dtm", damaged);
  const CommandResult result = Verify(model, {"--repair"});
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_THAT(result.out, AllOf(HasSubstr("352: fault: "),
                                HasSubstr("312: given up: the area at row 0, column 4, which isn't whole"),
                                HasSubstr("kept 2 areas, moved 1, put in order 0, gave up 1 and 248 bytes in all"),
                                HasSubstr("the file as it was: " + model + ".before-repair"),
                                EndsWith("\n2 areas, 0 faults, 0 warnings\n")));
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(folder.Content("model.dtm.before-repair"), damaged);
  EXPECT_EQ(Verify(model).status, kDone);

  TestGrid grid(folder.Content("model.dtm"));
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(grid.File().NumAreas(), 2);
  EXPECT_EQ(grid.Get(0, 0), -10.5);
  EXPECT_EQ(grid.Get(6, 2), -12.5);
}

TEST(VerifyCommand, RepairWorksARangeOutAnewWhenOnlyThatIsWrong) {
  const TestFolder folder;
  const std::string model = folder.Write("model.dtm", WithCellOutside(Model()));
  const CommandResult result = Verify(model, {"--repair"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.out, EndsWith("\n3 areas, 0 faults, 0 warnings\n"));
  TestGrid grid(folder.Content("model.dtm"));
  float lowest = 0;
  float highest = 0;
  ASSERT_NE(grid.Area(0, 4), nullptr);
  EXPECT_TRUE(grid.Area(0, 4)->GetMinMaxZ(lowest, highest));
  EXPECT_EQ(lowest, -15.5F);
  EXPECT_EQ(highest, 99.0F);
}

TEST(VerifyCommand, NothingToRepairIsSaidAndLeavesTheFileAlone) {
  const TestFolder folder;
  const Bytes bytes = Model();  // made once: another one made in the next second has another time in its index
  const std::string model = folder.Write("model.dtm", bytes);
  const auto former = std::filesystem::last_write_time(model);
  const CommandResult result = Verify(model, {"--repair"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out, "3 areas, 0 faults, 0 warnings\nnothing to repair\n");
  EXPECT_EQ(std::filesystem::last_write_time(model), former);
  EXPECT_EQ(folder.Content("model.dtm"), bytes);
  EXPECT_FALSE(folder.Has("model.dtm.before-repair"));
}

TEST(VerifyCommand, AnEarlierCopyIsNeverReplaced) {
  const TestFolder folder;
  const Bytes damaged = WithoutSecondBlock(Model());
  const std::string model = folder.Write("model.dtm", damaged);
  folder.Write("model.dtm.before-repair", "the only good one");
  const CommandResult result = Verify(model, {"--repair"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm verify: " + model +
                            ".before-repair: is there already, from an earlier repair - move it away or delete it\n");
  EXPECT_EQ(folder.Content("model.dtm"), damaged);
  EXPECT_EQ(folder.Text("model.dtm.before-repair"), "the only good one");
}

TEST(VerifyCommand, AHeaderThatCannotBeUsedIsNotRepaired) {
  const TestFolder folder;
  Bytes damaged = Model();
  std::memset(damaged.data() + 28, 0, 8);  // the cell size
  const std::string model = folder.Write("model.dtm", damaged);
  const CommandResult result = Verify(model, {"--repair"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.out, StartsWith("20: fault: no model can have this 'csiz'\n"));
  EXPECT_THAT(result.err, HasSubstr("the header is damaged, which can't be repaired - nothing was changed"));
  EXPECT_EQ(folder.Content("model.dtm"), damaged);
  EXPECT_FALSE(folder.Has("model.dtm.before-repair"));
}

TEST(VerifyCommand, RepairIsRefusedWhileAnotherProcessWrites) {
  const TestFolder folder;
  const Bytes damaged = WithoutSecondBlock(Model());
  const std::string model = folder.Write("model.dtm", damaged);
  HugeFileStream writer(folder.WideFile("model.dtm").c_str(), false, true);
  ASSERT_TRUE(writer.IsOpen());
  const CommandResult result = Verify(model, {"--repair"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(OneLineOf(result), HasSubstr("another process is writing it"));
  EXPECT_EQ(folder.Content("model.dtm"), damaged);
  EXPECT_EQ(Verify(model).status, kCouldNotBeDone) << "looking is allowed";
}

TEST(VerifyCommand, WhatIsNoModelIsOneLineEach) {
  const TestFolder folder;
  const std::string secret = folder.Write("secret.dtm", Model());
  std::filesystem::permissions(secret, std::filesystem::perms::none);
  struct {
    const char* name;
    std::string path;
    const char* words;
  } const cases[] = {
      {"missing", folder.File("none.dtm"), "there is no such file"},
      {"missing folder", folder.File("none/none.dtm"), "there is no such file"},
      {"a folder", folder.Path().string(), "is a folder"},
      {"empty", folder.Write("empty.dtm", ""), "is no grid model"},
      {"text", folder.Write("text.dtm", "1 2 3\n"), "is no grid model"},
      {"no permission", secret, "cannot be read"},
      {"no name", "", "there is no such file"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    if (one.path == secret && geteuid() == 0) continue;  // root may read everything
    for (const bool repair : {false, true}) {
      const CommandResult result =
          Verify(one.path, repair ? std::vector<std::string>{"--repair"} : std::vector<std::string>{});
      EXPECT_EQ(result.status, kCouldNotBeDone);
      EXPECT_THAT(OneLineOf(result), AllOf(StartsWith("vakdtm verify: "), HasSubstr(one.words)));
    }
  }
  EXPECT_FALSE(folder.Has("none.dtm"));
}

TEST(VerifyCommand, TheModelHasToBeNamed) {
  EXPECT_EQ(RunCommand({VAKDTM_COMMAND, "verify"}).Wait().status, kUsedWrongly);
}

TEST(VerifyCommand, AFullOutputIsAnError) {
  const TestFolder folder;
  const std::string model = folder.Write("model.dtm", Model());
  const CommandResult result =
      RunCommand({"/bin/sh", "-c", "exec \"$0\" verify \"$1\" > /dev/full", VAKDTM_COMMAND, model}).Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, HasSubstr("cannot write"));
}

}  // namespace
}  // namespace vak
