#include <algorithm>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <string>
#include <vector>

#include "vakdtm/services/text/Utf8.h"

#include "Command.h"
#include "ModelFile.h"
#include "support/CommandModels.h"
#include "support/RunCommand.h"
#include "support/SharedModel.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using test::CommandResult;
using test::RunCommand;
using testing::HasSubstr;
using testing::MatchesRegex;
using Words = std::vector<std::string>;

class WatchCommand : public testing::Test {
 protected:
  void SetUp() override { models_.Make("a.dtm", "10.5,20.5,-3\n"); }

  Words Watch(Words options = {}) const {
    options.insert(options.begin(), {VAKDTM_COMMAND, "watch", Path(), "--sync", "500"});
    return options;
  }
  std::string Path() const { return models_.File("a.dtm"); }

  /// Waits until the command watches the file: until it tells of a change that is made for this, again and again.
  /// @return how many lines it has printed.
  std::size_t AwaitWatching(RunCommand& command) {
    while (command.OutputSoFar().empty()) Import("10.5,20.5,-3\n");
    return command.AwaitLines(1).size();
  }

  void Import(const std::string& soundings) const {
    const CommandResult result = models_.Run({"import", Path(), "-", "--quiet"}, soundings);
    ASSERT_EQ(result.status, kDone) << result.err;
  }

  test::CommandModels models_;
};

json Rect(double x0, double y0, double x1, double y1) { return {{"x0", x0}, {"y0", y0}, {"x1", x1}, {"y1", y1}}; }

TEST_F(WatchCommand, PrintsWhereAreasChangedAndWereAddedWithTheFlag) {
  RunCommand command(Watch({"--json"}));
  const std::size_t before = AwaitWatching(command);
  const json changed = json::parse(command.AwaitLines(before).back());
  EXPECT_EQ(changed["rect"], Rect(0, 0, 64, 64));
  EXPECT_EQ(changed["flag"], true);
  EXPECT_THAT(changed["time"].get<std::string>(), MatchesRegex("20[0-9-]+T[0-9:]+\\.[0-9][0-9][0-9]Z"));

  Import("-100.5,300.5,-4\n");
  const auto isAdded = [](const std::string& line) {
    return json::parse(line)["rect"] == Rect(-128, 256, -64, 320) && json::parse(line)["flag"] == false;
  };
  std::vector<std::string> lines;
  for (std::size_t wanted = before + 1;; ++wanted) {
    lines = command.AwaitLines(wanted);
    if (std::any_of(lines.begin(), lines.end(), isAdded)) break;
  }
  command.Signal(SIGINT);
  EXPECT_EQ(command.Wait().status, kStopped);
}

TEST_F(WatchCommand, WithoutJsonALineIsForPeople) {
  RunCommand command(Watch());
  AwaitWatching(command);
  command.Signal(SIGINT);
  EXPECT_THAT(command.Wait().out,
              MatchesRegex("(20[0-9-]+T[0-9:]+\\.[0-9][0-9][0-9]Z  x 0 to 64, y 0 to 64  changed\n)+"));
}

TEST_F(WatchCommand, CtrlCEndsItWithoutAWord) {
  RunCommand command(Watch());
  AwaitWatching(command);
  command.Signal(SIGINT);
  EXPECT_EQ(command.Wait().status, kStopped);
  EXPECT_EQ(command.Wait().err, "");
}

TEST_F(WatchCommand, LeavesNoTraceInTheFile) {
  RunCommand command(Watch());
  AwaitWatching(command);
  const test::FileState state(models_.Folder(), "a.dtm");
  command.Signal(SIGINT);
  EXPECT_EQ(command.Wait().status, kStopped);
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(WatchCommand, HoldsNobodyUpFromWritingAndFollowsTheNextWriterWhenOneIsKilled) {
  RunCommand command(Watch({"--json"}));
  AwaitWatching(command);
  const auto simulate = [&] {
    return Words{VAKDTM_COMMAND, "simulate", "--live", Path(), "--rate", "2000", "--sync", "500", "--json"};
  };
  const auto surveyed = [](const std::string& line) { return json::parse(line)["rect"]["x1"] > 400000; };
  for (int writer = 0; writer < 2; ++writer) {
    SCOPED_TRACE(writer);
    const std::size_t seen = command.AwaitLines(1).size();
    RunCommand survey(simulate());
    for (std::size_t wanted = seen + 1; !surveyed(command.AwaitLines(wanted).back());) ++wanted;
    survey.Signal(SIGKILL);
    EXPECT_EQ(survey.Wait().signal, SIGKILL);
  }
  command.Signal(SIGINT);
  EXPECT_EQ(command.Wait().status, kStopped);
  EXPECT_EQ(command.Wait().err, "");
}

TEST_F(WatchCommand, AFileThatGoesAwayIsToldInOneLine) {
  const struct {
    const char* name;
    std::function<void()> happen;
    const char* error;
  } cases[] = {
      {"removed", [this] { fs::remove(Path()); }, "has been removed or renamed"},
      {"renamed", [this] { fs::rename(Path(), models_.File("b.dtm")); }, "has been removed or renamed"},
      {"replaced", [this] { test::CommandModels::Run({"create", Path(), "--cell-size", "1", "--force"}); },
       "has been replaced by another file"},
      {"made anew", [this] { test::CreateShared(FromUtf8(Path()), {0, 2.0, {}}); },
       "has been made anew, with other cells"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove(Path());
    models_.Make("a.dtm", "10.5,20.5,-3\n");
    RunCommand command(Watch());
    AwaitWatching(command);
    c.happen();
    EXPECT_EQ(command.Wait().status, kCouldNotBeDone);
    EXPECT_EQ(command.Wait().err, "vakdtm watch: " + Path() + ": " + c.error + " - watch it anew\n");
  }
}

TEST_F(WatchCommand, AModelThatIsMadeAnewWithTheSameCellsIsFollowed) {
  RunCommand command(Watch({"--json"}));
  std::size_t seen = AwaitWatching(command);
  ASSERT_TRUE(test::CreateShared(FromUtf8(Path()), {64, 1.0, DefaultBlocks()}));
  // The area has gone; a line may still be on its way from before.
  seen = command.AwaitLines(seen + 1).size();
  Import("1000.5,20.5,-3\n");
  const auto isThere = [](const std::string& line) { return json::parse(line)["rect"]["x1"] == 1024; };
  while (!isThere(command.AwaitLines(seen).back())) ++seen;
  command.Signal(SIGINT);
  EXPECT_EQ(command.Wait().status, kStopped);
}

TEST_F(WatchCommand, WhatCannotBeWatchedIsToldInOneLine) {
  models_.Folder().Write("text.dtm", "no model");
  const struct {
    std::string model;
    const char* error;
  } cases[] = {
      {models_.File("none.dtm"), "no such file - check the name"},
      {models_.File("text.dtm"), "is no grid model, or its header is damaged - check the name"},
      {models_.Folder().Path().string(), "is a folder - name a file"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.model);
    const CommandResult result = models_.Run({"watch", c.model});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.err, "vakdtm watch: " + c.model + ": " + c.error + "\n");
  }
}

TEST_F(WatchCommand, WrongUseIsTold) {
  for (const char* sync : {"0", "499", "65536", "soon"}) {
    const CommandResult result = models_.Run({"watch", Path(), "--sync", sync});
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_EQ(result.err, std::string("vakdtm watch: --sync: '") + sync +
                              "' is no whole number from 500 to 65535 - see 'vakdtm watch --help'\n");
  }
  EXPECT_THAT(test::CommandModels::Run({"watch"}).err, HasSubstr("model is required"));
}

TEST_F(WatchCommand, AReaderThatHasEnoughEndsIt) {
  RunCommand command(
      {"sh", "-c", "{ \"$0\" watch \"$1\" --sync 500; echo $? >&2; } | head -n 1", VAKDTM_COMMAND, Path()});
  AwaitWatching(command);
  while (!command.HasEnded()) Import("10.5,20.5,-3\n");
  EXPECT_EQ(std::count(command.Wait().out.begin(), command.Wait().out.end(), '\n'), 1);
  EXPECT_EQ(command.Wait().err, "1\n");
}

}  // namespace
}  // namespace vak
