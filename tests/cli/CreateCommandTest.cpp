#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"

#include "Command.h"
#include "support/CommandModels.h"
#include "support/SharedModel.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using test::CommandResult;
using testing::HasSubstr;

class CreateCommand : public testing::Test {
 protected:
  CommandResult Create(std::vector<std::string> words) const {
    words.insert(words.begin(), {"create"});
    return models_.Run(words);
  }
  nlohmann::json Info(const std::string& name) const {
    return nlohmann::json::parse(models_.Run({"info", models_.File(name), "--json"}).out);
  }

  std::size_t Files() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(models_.Folder().Path()), fs::directory_iterator()));
  }

  void ExpectFails(const std::vector<std::string>& words, int status, const std::string& error) const {
    const CommandResult result = Create(words);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm create: " + error + "\n");
  }

  test::CommandModels models_;
};

TEST_F(CreateCommand, MakesAnEmptyModelWithTheTenUsualBlocks) {
  const CommandResult result = Create({models_.File("a.dtm"), "--cell-size", "0.5"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  const nlohmann::json info = Info("a.dtm");
  EXPECT_EQ(info["cell_size"], 0.5);
  EXPECT_EQ(info["area_size"], 64);
  EXPECT_EQ(info["blocks"], (nlohmann::json{"NUM", "VAL", "SDV", "MIN", "XMIN", "YMIN", "MAX", "XMAX", "YMAX", "TIM"}));
  EXPECT_EQ(info["areas"], 0);
  EXPECT_EQ(info["opened_by"], "index");
}

TEST_F(CreateCommand, BlocksStandInTheOrderGivenAndExtremesBringTheirPlaces) {
  const struct {
    const char* list;
    nlohmann::json blocks;
  } cases[] = {
      {"VAL", {"VAL"}},
      {"NUM,VAL", {"NUM", "VAL"}},
      {"MIN,VAL", {"MIN", "XMIN", "YMIN", "VAL"}},
      {"MAX,MIN", {"MAX", "XMAX", "YMAX", "MIN", "XMIN", "YMIN"}},
      {"YMIN,MIN,VAL", {"YMIN", "MIN", "XMIN", "VAL"}},
      {"MAX,VAL,YMAX,XMAX", {"MAX", "VAL", "YMAX", "XMAX"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.list);
    EXPECT_EQ(Create({models_.File("a.dtm"), "--cell-size", "1", "--blocks", c.list, "--force"}).status, kDone);
    EXPECT_EQ(Info("a.dtm")["blocks"], c.blocks);
  }
}

TEST_F(CreateCommand, AreaSizeIsTaken) {
  EXPECT_EQ(Create({models_.File("a.dtm"), "--cell-size", "1", "--area-size", "7"}).status, kDone);
  EXPECT_EQ(Info("a.dtm")["area_size"], 7);
}

TEST_F(CreateCommand, AFileThatExistsIsReplacedWithForceOnly) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  const test::FileState state(models_.Folder(), "a.dtm");
  ExpectFails({models_.File("a.dtm"), "--cell-size", "2"}, kCouldNotBeDone,
              models_.File("a.dtm") + ": exists already - name another file, or say --force to replace it");
  EXPECT_TRUE(state.IsUnchanged());
  EXPECT_EQ(Create({models_.File("a.dtm"), "--cell-size", "2", "--force"}).status, kDone);
  EXPECT_EQ(Info("a.dtm")["cell_size"], 2.0);
  EXPECT_EQ(Info("a.dtm")["areas"], 0);
}

TEST_F(CreateCommand, AModelThatAnotherProcessWritesIsNotEvenCutWithForce) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  const HugeFileStream other(models_.Folder().WideFile("a.dtm").c_str(), false, true);
  const test::FileState state(models_.Folder(), "a.dtm");
  ExpectFails({models_.File("a.dtm"), "--cell-size", "2", "--force"}, kCouldNotBeDone,
              models_.File("a.dtm") + ": another process is writing it - wait until that has ended");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(CreateCommand, WhatCannotBeMadeIsToldInOneLine) {
  models_.Folder().Write("text", "");
  const std::string folder = models_.Folder().Path().string();
  const struct {
    const char* name;
    std::string path;
    const char* error;
  } cases[] = {
      {"a folder", folder, "is a folder - name a file"},
      {"no such folder", models_.File("none/a.dtm"), "no such folder - make the folder first"},
      {"a file as a folder", models_.File("text/a.dtm"), "no such folder - make the folder first"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ExpectFails({c.path, "--cell-size", "1"}, kCouldNotBeDone, c.path + ": " + c.error);
    ExpectFails({c.path, "--cell-size", "1", "--force"}, kCouldNotBeDone, c.path + ": " + c.error);
  }
  ExpectFails({"", "--cell-size", "1"}, kCouldNotBeDone, "'': is no name for a model - name a file");
}

TEST_F(CreateCommand, AFullDiskIsToldAndLeavesNoFile) {
  {
    const test::FullDisk full(16);
    const CommandResult result = models_.RunOnTerminal({"create", models_.File("a.dtm"), "--cell-size", "1"});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.err,
              "vakdtm create: " + models_.File("a.dtm") + ": no space left on the disk - make room and try again\n");
  }
  EXPECT_FALSE(models_.Folder().Has("a.dtm"));
}

TEST_F(CreateCommand, AFullDiskLeavesTheModelThatForceWasToReplace) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  const test::FileState state(models_.Folder(), "a.dtm");
  {
    const test::FullDisk full(16);
    const CommandResult result =
        models_.RunOnTerminal({"create", models_.File("a.dtm"), "--cell-size", "2", "--force"});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.err,
              "vakdtm create: " + models_.File("a.dtm") + ": no space left on the disk - make room and try again\n");
  }
  EXPECT_TRUE(state.IsUnchanged());
  EXPECT_EQ(Files(), 1u);
}

TEST_F(CreateCommand, ForceFollowsALinkAndKeepsThePermissions) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  fs::permissions(models_.File("a.dtm"), fs::perms(0640));
  fs::create_symlink("a.dtm", models_.File("link.dtm"));
  EXPECT_EQ(Create({models_.File("link.dtm"), "--cell-size", "2", "--force"}).status, kDone);
  EXPECT_TRUE(fs::is_symlink(models_.File("link.dtm")));
  EXPECT_EQ(Info("a.dtm")["cell_size"], 2.0);
  EXPECT_EQ(fs::status(models_.File("a.dtm")).permissions(), fs::perms(0640));
  EXPECT_EQ(Files(), 2u);
}

TEST_F(CreateCommand, ForceReplacesAFileInAFolderThatTakesNoNewOne) {
  models_.Make("a.dtm", "1.5,2.5,-3\n");
  fs::permissions(models_.File("a.dtm"), fs::perms(0666));
  const std::string command = models_.CopyForStrangers();
  fs::permissions(models_.Folder().Path(), fs::perms(0555));
  const CommandResult result =
      test::CommandModels::RunAsStranger(command, {"create", models_.File("a.dtm"), "--cell-size", "2", "--force"});
  const CommandResult another =
      test::CommandModels::RunAsStranger(command, {"create", models_.File("b.dtm"), "--cell-size", "2", "--force"});
  fs::permissions(models_.Folder().Path(), fs::perms(0755));
  EXPECT_EQ(result.status, kDone) << result.err;
  EXPECT_EQ(Info("a.dtm")["cell_size"], 2.0);
  EXPECT_EQ(another.status, kCouldNotBeDone);
  EXPECT_EQ(another.err, "vakdtm create: " + models_.File("b.dtm") +
                             ": cannot be written - check the permissions of the file and its folder\n");
}

TEST_F(CreateCommand, OfSeveralAtOnceOneMakesTheModel) {
  const std::string path = models_.File("a.dtm");
  for (int round = 0; round < 15; ++round) {
    SCOPED_TRACE(round);
    fs::remove(path);
    std::vector<std::unique_ptr<test::RunCommand>> commands;
    for (int i = 1; i <= 6; ++i) {
      commands.push_back(std::make_unique<test::RunCommand>(
          std::vector<std::string>{VAKDTM_COMMAND, "create", path, "--cell-size", std::to_string(i)}));
    }
    int made = 0;
    for (std::size_t i = 0; i < commands.size(); ++i) {
      const CommandResult& result = commands[i]->Wait();
      if (result.status != kDone) {
        EXPECT_EQ(result.status, kCouldNotBeDone);
        EXPECT_EQ(result.err,
                  "vakdtm create: " + path + ": exists already - name another file, or say --force to replace it\n");
        continue;
      }
      ++made;
      EXPECT_EQ(Info("a.dtm")["cell_size"], static_cast<double>(i + 1));
    }
    EXPECT_EQ(made, 1);
    EXPECT_EQ(Files(), 1u);
  }
}

TEST_F(CreateCommand, WrongUseIsToldBeforeAnythingIsMade) {
  const std::string path = models_.File("a.dtm");
  const struct {
    std::vector<std::string> words;
    const char* error;
  } cases[] = {
      {{path}, "--cell-size is required - see 'vakdtm create --help'"},
      {{"--cell-size", "1"}, "model is required - see 'vakdtm create --help'"},
      {{path, "--cell-size", "0"}, "'0' is no number above 0"},
      {{path, "--cell-size", "-1"}, "'-1' is no number"},
      {{path, "--cell-size", "nan"}, "'nan' is no number"},
      {{path, "--cell-size", "1", "--area-size", "0"}, "'0' is no whole number from 1 to 46340"},
      {{path, "--cell-size", "1", "--area-size", "46341"}, "'46341' is no whole number from 1 to 46340"},
      {{path, "--cell-size", "1", "--blocks", "VAL,XYZ"}, "--blocks: no kind of value is called \"XYZ\"; there are "},
      {{path, "--cell-size", "1", "--blocks", "VAL,VAL"}, "--blocks: VAL is named twice - name them as in"},
      {{path, "--cell-size", "1", "--blocks", "VAL,"}, "--blocks: no kind of value is called \"\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    const CommandResult result = Create(c.words);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_THAT(result.err, HasSubstr(c.error));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
  }
  EXPECT_TRUE(fs::is_empty(models_.Folder().Path()));
}

TEST_F(CreateCommand, SettingsThatMakeAreasTooLargeAreToldBeforeAnythingIsMade) {
  ExpectFails(
      {models_.File("a.dtm"), "--cell-size", "1", "--area-size", "46340"}, kCouldNotBeDone,
      models_.File("a.dtm") + ": no model can have this cell size, area size and blocks - areas must stay below 2 GiB");
  EXPECT_EQ(Files(), 0u);
}

}  // namespace
}  // namespace vak
