#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sstream>
#include <string>
#include <vector>

#include "Command.h"
#include "ModelFile.h"
#include "support/CommandModels.h"
#include "support/RunCommand.h"
#include "support/SharedModel.h"

namespace vak {
namespace {

using nlohmann::json;
using test::CommandResult;
using test::RunCommand;
using testing::HasSubstr;
using testing::MatchesRegex;
using Words = std::vector<std::string>;

constexpr const char* kKinds = "NUM,VAL,SDV,MIN,XMIN,YMIN,MAX,XMAX,YMAX";

class SimulateLive : public testing::Test {
 protected:
  Words Live(Words options) const {
    options.insert(options.begin(), {VAKDTM_COMMAND, "simulate", "--live", Path()});
    return options;
  }
  CommandResult Simulate(Words options) const { return RunCommand(Live(std::move(options))).Wait(); }
  std::string Path() const { return models_.File("live.dtm"); }

  /// All soundings that are in the cells.
  std::uint64_t Hits() const {
    std::istringstream cells(models_.Cells("live.dtm", "NUM"));
    std::uint64_t hits = 0;
    double x = 0;
    double y = 0;
    for (std::uint64_t count = 0; cells >> x >> y >> count;) hits += count;
    return hits;
  }
  json Info() const { return json::parse(models_.Run({"info", Path(), "--json"}).out); }

  test::CommandModels models_;
};

TEST_F(SimulateLive, InsertsTheValuesThatItWritesAsText) {
  const Words survey = {"--count", "60000", "--seed", "11", "--cell-size-hint", "0.7"};
  Words live = {"--cell-size", "1", "--rate", "0"};
  live.insert(live.end(), survey.begin(), survey.end());
  const CommandResult result = Simulate(live);
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_THAT(result.out, MatchesRegex("60000 soundings inserted in [0-9]+\\.[0-9][0-9] s\n"));
  EXPECT_EQ(result.err, "");

  Words text = {"simulate", "-o", "-"};
  text.insert(text.end(), survey.begin(), survey.end());
  models_.Make("imported.dtm", models_.Run(text).out);
  // Deviations, means and the first of equal extremes depend on the order of the soundings.
  EXPECT_EQ(models_.Cells("live.dtm", kKinds), models_.Cells("imported.dtm", kKinds));
}

TEST_F(SimulateLive, MakesTheModelWithTheCommandsUsualKinds) {
  ASSERT_EQ(Simulate({"--cell-size", "0.5", "--rate", "0", "--count", "10"}).status, kDone);
  json blocks = json::array();
  for (const int id : DefaultBlocks()) blocks.push_back(BlockLabel(id));
  EXPECT_EQ(Info()["blocks"], blocks);
  EXPECT_EQ(Info()["cell_size"], 0.5);
  EXPECT_EQ(Info()["area_size"], 64);
  EXPECT_EQ(Info()["opened_by"], "index");
}

TEST_F(SimulateLive, GoesOnInAModelThatIsThere) {
  ASSERT_EQ(models_.Run({"create", Path(), "--cell-size", "2", "--blocks", "VAL,NUM"}).status, kDone);
  ASSERT_EQ(Simulate({"--rate", "0", "--count", "100"}).status, kDone);
  ASSERT_EQ(Simulate({"--cell-size", "2", "--rate", "0", "--count", "50"}).status, kDone);
  EXPECT_EQ(Info()["blocks"], json::array({"VAL", "NUM"}));
  EXPECT_EQ(Hits(), 150U);
}

TEST_F(SimulateLive, KeepsTheRate) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Simulate({"--cell-size", "1", "--rate", "1000", "--count", "1001"}).status, kDone);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(SimulateLive, JsonTellsAfterEachSyncHowManySoundingsAreOnTheDiskAndAtTheEndAll) {
  RunCommand command(Live({"--cell-size", "1", "--rate", "20000", "--count", "30000", "--sync", "500", "--json"}));
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "");
  std::istringstream lines(result.out);
  std::vector<std::uint64_t> synced;
  for (std::string line; std::getline(lines, line);) {
    const json one = json::parse(line);
    EXPECT_EQ(one.size(), 1U);
    synced.push_back(one["synced"]);
  }
  EXPECT_GE(synced.size(), 3U) << "1.5 s, a sync each half second";
  EXPECT_TRUE(std::is_sorted(synced.begin(), synced.end()));
  ASSERT_FALSE(synced.empty());
  EXPECT_GT(synced.front(), 0U);
  EXPECT_LT(synced.front(), 30000U);
  EXPECT_EQ(synced.back(), 30000U);
}

TEST_F(SimulateLive, WhatASyncToldIsOnTheDiskAlthoughTheProcessIsKilled) {
  RunCommand command(Live({"--cell-size", "1", "--rate", "5000", "--sync", "500", "--json"}));
  const std::uint64_t synced = json::parse(command.AwaitLines(1).front())["synced"];
  command.Signal(SIGKILL);
  EXPECT_EQ(command.Wait().signal, SIGKILL);
  EXPECT_GT(synced, 0U);
  EXPECT_GE(Hits(), synced);
}

TEST_F(SimulateLive, CtrlCLeavesAllThatWasInsertedAndStatus130) {
  RunCommand command(Live({"--cell-size", "1", "--rate", "5000", "--sync", "500", "--json"}));
  command.AwaitLines(1);
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_EQ(result.err, "vakdtm simulate: stopped - the model holds what was inserted so far\n");
  const std::size_t last = result.out.rfind("{");
  EXPECT_EQ(Hits(), json::parse(result.out.substr(last))["synced"].get<std::uint64_t>());
  EXPECT_EQ(Info()["opened_by"], "index");
}

TEST_F(SimulateLive, CtrlCIsHeardWhileTheNextSoundingIsFarOff) {
  RunCommand command(Live({"--cell-size", "1", "--rate", "0.001", "--sync", "500", "--json"}));
  command.AwaitLines(1);  // the first sounding is there
  const auto start = std::chrono::steady_clock::now();
  command.Signal(SIGTERM);
  EXPECT_EQ(command.Wait().status, kStopped);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST_F(SimulateLive, QuietSaysNothingWhenAllIsWell) {
  const CommandResult result = Simulate({"--cell-size", "1", "--rate", "0", "--count", "10", "--quiet"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out + result.err, "");
}

TEST_F(SimulateLive, AModelThatAnotherProcessWritesIsRefusedInOneLine) {
  RunCommand first(Live({"--cell-size", "1", "--rate", "100", "--sync", "500", "--json"}));
  first.AwaitLines(1);
  const CommandResult second = Simulate({"--cell-size", "1", "--count", "5"});
  EXPECT_EQ(second.status, kCouldNotBeDone);
  EXPECT_EQ(second.out, "");
  EXPECT_EQ(second.err, "vakdtm simulate: " + Path() + ": another process is writing it - wait until that has ended\n");
}

TEST_F(SimulateLive, WhatCannotBeDoneIsOneLineAndChangesNothing) {
  ASSERT_EQ(models_.Run({"create", models_.File("two.dtm"), "--cell-size", "2"}).status, kDone);
  models_.Make("cut.dtm", "1.5,2.5,-3\n");
  const std::size_t damaged = models_.Damage("cut.dtm");
  const std::string cut = models_.File("cut.dtm");
  const struct {
    std::string model;
    Words options;
    std::string error;
  } cases[] = {
      {models_.File("none.dtm"), {}, "no such file - give --cell-size to make it"},
      {models_.File("two.dtm"), {"--cell-size", "1"}, "has cells of 2 m - leave --cell-size out"},
      {models_.File("no/live.dtm"), {"--cell-size", "1"}, "no such folder - make the folder first"},
      {cut,
       {},
       "damaged at offset " + std::to_string(damaged) + ", nothing was changed - run \"vakdtm verify --repair " + cut +
           "\" first"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    Words words = {"simulate", "--live", c.model, "--count", "5"};
    words.insert(words.end(), c.options.begin(), c.options.end());
    const CommandResult result = models_.Run(words);
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm simulate: " + c.model + ": " + c.error + "\n");
  }
  EXPECT_FALSE(models_.Folder().Has("none.dtm"));
}

TEST_F(SimulateLive, WrongUseIsTold) {
  const struct {
    Words options;
    const char* error;
  } cases[] = {
      {{"--rate", "-1"}, "--rate: '-1' is no number from 0 up"},
      {{"--sync", "499"}, "--sync: '499' is no whole number from 500 to 65535"},
      {{"--cell-size", "0"}, "--cell-size: '0' is no number above 0"},
      {{"--count", "0"}, "--count: '0' is no whole number from 1 up"},
      {{"-o", "s.xyz"}, "either --output or --live is required"},
      {{"-o", "s.xyz", "--json"}, "excludes"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    const CommandResult result = Simulate(c.options);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, HasSubstr(c.error));
    EXPECT_THAT(result.err, HasSubstr("see 'vakdtm simulate --help'\n"));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
  }
  EXPECT_FALSE(models_.Folder().Has("live.dtm"));
}

TEST_F(SimulateLive, TextHasAnEndAndNoModelsOptions) {
  const CommandResult endless = models_.Run({"simulate", "-o", "-"});
  EXPECT_EQ(endless.status, kUsedWrongly);
  EXPECT_EQ(endless.err, "vakdtm simulate: --count is required with --output - see 'vakdtm simulate --help'\n");
  for (const Words& options :
       {Words{"--rate", "5"}, Words{"--sync", "500"}, Words{"--cell-size", "1"}, Words{"--json"}}) {
    Words words = {"simulate", "-o", "-", "--count", "1"};
    words.insert(words.end(), options.begin(), options.end());
    const CommandResult result = models_.Run(words);
    EXPECT_EQ(result.status, kUsedWrongly) << options.front();
    EXPECT_THAT(result.err, HasSubstr("excludes"));
    EXPECT_THAT(result.err, HasSubstr(options.front()));
  }
}

TEST_F(SimulateLive, CellsTooSmallForTheSurveyAreToldWithTheSounding) {
  const CommandResult result = Simulate({"--cell-size", "0.0001", "--count", "5"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err,
            "vakdtm simulate: " + Path() + ": sounding 1 lies where no cell of this size can - take larger cells\n");
}

// ---- Disks that take no more

TEST_F(SimulateLive, ASoundingThatFindsNoRoomIsToldAndWhatWasSyncedStays) {
  std::uint64_t synced = 0;
  {
    const test::FullDisk full(1000000);  // four areas and a bit
    const CommandResult result = Simulate({"--cell-size", "1", "--rate", "0", "--count", "1000000", "--json"});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_THAT(result.err,
                MatchesRegex("vakdtm simulate: .*: sounding [0-9]+ cannot be stored, no space left on the disk"
                             " - make room or check the disk, then run \"vakdtm verify .*\"\n"));
    for (std::size_t at = 0; (at = result.out.find("{", at)) != std::string::npos; ++at) {
      synced = json::parse(result.out.substr(at, result.out.find('\n', at) - at))["synced"];
    }
  }
  EXPECT_EQ(Info()["areas"].get<int>(), 4);
  EXPECT_GE(Hits(), synced);
}

TEST_F(SimulateLive, CellsThatHadToBeGivenUpAreTold) {
  // More areas than stay in memory, which the same survey then finds made.
  ASSERT_EQ(Simulate({"--cell-size", "1", "--rate", "0", "--count", "200000", "--quiet"}).status, kDone);
  const test::FullDisk full(100000);
  const CommandResult result = Simulate({"--rate", "0", "--count", "200000", "--json"});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.out, "") << "a sync that lacks cells isn't told";
  EXPECT_EQ(result.err,
            "vakdtm simulate: " + Path() +
                ": cells were lost because they cannot be written, no space left on the disk - make room or "
                "check the disk, then run \"vakdtm verify " +
                Path() + "\"\n");
}

TEST_F(SimulateLive, AnIndexThatFindsNoRoomAtTheEndIsTold) {
  ASSERT_EQ(Simulate({"--cell-size", "1", "--rate", "0", "--count", "100", "--quiet"}).status, kDone);
  // The cells go to their place; only the index, which says when they did, would be written behind them.
  models_.CutIndex("live.dtm");
  const auto size = std::filesystem::file_size(Path());
  std::filesystem::resize_file(Path(), size - 20);
  {
    const test::FullDisk full(size - 20);
    const CommandResult result = Simulate({"--rate", "0", "--count", "100", "--json"});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.out, "") << "what isn't synced isn't told as if it were";
    EXPECT_EQ(result.err,
              "vakdtm simulate: " + Path() +
                  ": cannot be written to the end, no space left on the disk - make room or check the disk, "
                  "then run \"vakdtm verify " +
                  Path() + "\"\n");
  }
  EXPECT_EQ(Hits(), 200U);
}

TEST_F(SimulateLive, OutputThatCannotBeWrittenEndsItInOrder) {
  const CommandResult result =
      RunCommand({"sh", "-c", "\"$0\" simulate --live \"$1\" --cell-size 1 --rate 0 --count 100 --json > /dev/full",
                  VAKDTM_COMMAND, Path()})
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err,
            "vakdtm simulate: standard output: cannot write: no space left on the device - make room, or send it "
            "elsewhere\n");
  EXPECT_EQ(Hits(), 100U);
  EXPECT_EQ(Info()["opened_by"], "index");
}

}  // namespace
}  // namespace vak
