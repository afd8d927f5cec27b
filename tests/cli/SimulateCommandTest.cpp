#include <bit>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "Command.h"
#include "SurveySimulator.h"
#include "support/RunCommand.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using test::CommandResult;
using test::RunCommand;

std::vector<std::string> Words(std::vector<std::string> options) {
  options.insert(options.begin(), {VAKDTM_COMMAND, "simulate"});
  return options;
}

CommandResult Simulate(std::vector<std::string> options) { return RunCommand(Words(std::move(options))).Wait(); }

class SimulateCommand : public testing::Test {
 protected:
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.Path())) names.push_back(entry.path().filename().string());
    return names;
  }

  /// Waits until the command has begun to write, a minute at most.
  void AwaitUnfinishedFile() const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    const auto hasBegun = [&] {
      for (const auto& entry : fs::directory_iterator(folder_.Path())) {
        if (entry.path().extension() == ".part" && entry.file_size() > 0) return true;
      }
      return false;
    };
    while (!hasBegun()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end);
      std::this_thread::yield();
    }
  }

  test::TestFolder folder_;
};

TEST_F(SimulateCommand, TheTextReadsBackToTheSimulatorsDoublesToTheBit) {
  const CommandResult result = Simulate({"-o", "-", "--count", "50000", "--seed", "9", "--cell-size-hint", "0.25"});
  ASSERT_EQ(result.status, kDone);
  SurveySimulator simulator({9, 50000, 0.25});
  const char* at = result.out.data();
  const char* const end = at + result.out.size();
  int lines = 0;
  for (Sounding s; simulator.Next(s); ++lines) {
    for (const double wanted : {s.x, s.y, s.z}) {
      double found = 0.0;
      const auto [after, error] = std::from_chars(at, end, found);
      ASSERT_EQ(error, std::errc()) << "line " << lines + 1;
      ASSERT_EQ(std::bit_cast<std::uint64_t>(found), std::bit_cast<std::uint64_t>(wanted)) << "line " << lines + 1;
      ASSERT_TRUE(after - at >= 5 && after[-4] == '.') << "line " << lines + 1;
      at = after + 1;
    }
    ASSERT_EQ(at[-1], '\n');
  }
  EXPECT_EQ(lines, 50000);
  EXPECT_EQ(at, end);
}

TEST_F(SimulateCommand, ALineIsXAndYAndZWithThreeDecimals) {
  EXPECT_THAT(Simulate({"-o", "-", "--count", "1"}).out,
              testing::MatchesRegex("[0-9]+\\.[0-9][0-9][0-9],[0-9]+\\.[0-9][0-9][0-9],-[0-9]+\\.[0-9][0-9][0-9]\n"));
}

TEST_F(SimulateCommand, AFileAndStandardOutputHaveTheSameBytes) {
  const CommandResult printed = Simulate({"-o", "-", "--count", "30000", "--seed", "5"});
  const CommandResult written = Simulate({"-o", folder_.File("s.xyz"), "--count", "30000", "--seed", "5"});
  EXPECT_EQ(written.status, kDone);
  EXPECT_EQ(written.out, "");
  EXPECT_EQ(written.err, "");
  EXPECT_EQ(folder_.Text("s.xyz"), printed.out);
  EXPECT_NE(Simulate({"-o", "-", "--count", "30000", "--seed", "6"}).out, printed.out);
}

TEST_F(SimulateCommand, AnExistingFileIsReplacedOnlyWhenTheNewOneIsComplete) {
  folder_.Write("s.xyz", "old");
  RunCommand command(Words({"-o", folder_.File("s.xyz"), "--count", "1000000000000"}));
  AwaitUnfinishedFile();
  EXPECT_EQ(folder_.Text("s.xyz"), "old");
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_EQ(result.err, "vakdtm simulate: stopped - nothing was kept\n");
  EXPECT_EQ(folder_.Text("s.xyz"), "old");
  EXPECT_THAT(Names(), testing::ElementsAre("s.xyz"));
}

TEST_F(SimulateCommand, WhatAKilledOneLeftIsInNobodysWay) {
  folder_.Write("s.xyz", "old");
  {
    RunCommand killed(Words({"-o", folder_.File("s.xyz"), "--count", "1000000000000"}));
    AwaitUnfinishedFile();
    killed.Signal(SIGKILL);
    EXPECT_EQ(killed.Wait().signal, SIGKILL);
  }
  EXPECT_EQ(folder_.Text("s.xyz"), "old");
  EXPECT_EQ(Names().size(), 2u) << "nobody could remove it";
  // The next one, and one that gets the number of a process that was killed.
  EXPECT_EQ(Simulate({"-o", folder_.File("s.xyz"), "--count", "5"}).status, kDone);
  EXPECT_EQ(folder_.Text("s.xyz"), Simulate({"-o", "-", "--count", "5"}).out);
  RunCommand reused({"sh", "-c", "echo left > \"$1/.vakdtm-$$-0.part\"; exec \"$0\" simulate -o \"$1/s.xyz\" --count 7",
                     VAKDTM_COMMAND, folder_.Path().string()});
  EXPECT_EQ(reused.Wait().status, kDone);
  EXPECT_EQ(folder_.Text("s.xyz"), Simulate({"-o", "-", "--count", "7"}).out);
  EXPECT_EQ(Names().size(), 3u);
}

TEST_F(SimulateCommand, CtrlCEndsTheWaitForAReaderThatDoesNotRead) {
  ASSERT_EQ(mkfifo(folder_.File("pipe").c_str(), 0600), 0);
  // Held open from here, never read: the command fills the pipe and waits.
  std::fstream reader(folder_.File("pipe"), std::ios::in | std::ios::out);
  ASSERT_TRUE(reader);
  RunCommand command(Words({"-o", folder_.File("pipe"), "--count", "1000000000000"}));
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  const auto state = [&] {
    std::ifstream file("/proc/" + std::to_string(command.Process()) + "/stat");
    std::string text;
    std::getline(file, text);
    return text.substr(text.rfind(')') + 2, 1);
  };
  while (state() != "S") {
    ASSERT_LT(std::chrono::steady_clock::now(), end);
    std::this_thread::yield();
  }
  command.Signal(SIGINT);
  EXPECT_EQ(command.Wait().status, kStopped);
  EXPECT_TRUE(fs::is_fifo(folder_.File("pipe")));
}

TEST_F(SimulateCommand, AFullDiskIsOneLineAndStatusOne) {
  const CommandResult device = Simulate({"-o", "/dev/full", "--count", "100000"});
  EXPECT_EQ(device.status, kCouldNotBeDone);
  EXPECT_EQ(device.err,
            "vakdtm simulate: /dev/full: cannot write: no space left on the device - name another file with -o\n");

  RunCommand redirected({"sh", "-c", "\"$0\" simulate -o - --count 10 > /dev/full", VAKDTM_COMMAND});
  EXPECT_EQ(redirected.Wait().status, kCouldNotBeDone);
  EXPECT_EQ(
      redirected.Wait().err,
      "vakdtm simulate: standard output: cannot write: no space left on the device - name another file with -o\n");
}

TEST_F(SimulateCommand, AFileThatMayNotGrowLeavesTheOldOne) {
  folder_.Write("s.xyz", "old");
  RunCommand limited({"sh", "-c", "trap '' XFSZ; ulimit -f 8; exec \"$0\" simulate -o \"$1\" --count 100000",
                      VAKDTM_COMMAND, folder_.File("s.xyz")});
  EXPECT_EQ(limited.Wait().status, kCouldNotBeDone);
  EXPECT_THAT(limited.Wait().err, testing::HasSubstr("s.xyz: cannot write: "));
  EXPECT_EQ(folder_.Text("s.xyz"), "old");
  EXPECT_THAT(Names(), testing::ElementsAre("s.xyz"));
}

TEST_F(SimulateCommand, WhereNothingCanBeWrittenItSaysWhy) {
  const struct {
    const char* name;
    std::string path;
    std::string error;
  } cases[] = {
      {"a folder", folder_.Path().string(), "it is a folder"},
      {"no such folder", folder_.File("none/s.xyz"), "there is no such folder"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const CommandResult result = Simulate({"-o", c.path, "--count", "1"});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.err,
              "vakdtm simulate: " + c.path + ": cannot write: " + c.error + " - name another file with -o\n");
  }
  EXPECT_THAT(Names(), testing::IsEmpty());
}

TEST_F(SimulateCommand, AReaderThatHasEnoughEndsItQuietly) {
  RunCommand command(
      {"sh", "-c", "{ \"$0\" simulate -o - --count 1000000000000; echo $? >&2; } | head -n 1", VAKDTM_COMMAND});
  const CommandResult& result = command.Wait();
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1);
  EXPECT_EQ(result.err, "1\n");
}

}  // namespace
}  // namespace vak
