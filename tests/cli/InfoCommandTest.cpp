#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>

#include "vakdtm/services/files/HugeFileStream.h"

#include "Command.h"
#include "support/CommandModels.h"
#include "support/SharedModel.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using test::CommandResult;

class InfoCommand : public testing::Test {
 protected:
  json Json(const std::string& name) const {
    const CommandResult result = models_.Run({"info", models_.File(name), "--json"});
    EXPECT_EQ(result.status, kDone) << result.err;
    return json::parse(result.out);
  }
  CommandResult Text(const std::string& name) const { return models_.Run({"info", models_.File(name)}); }

  test::CommandModels models_;
};

TEST_F(InfoCommand, JsonHasEveryKeyInOrder) {
  models_.Make("a.dtm", "-1.5,2.5,-3.25\n70.5,2.5,8\n", {"--blocks", "VAL,NUM,MIN"});
  const CommandResult result = models_.Run({"info", models_.File("a.dtm"), "--json"});
  const auto size = std::to_string(fs::file_size(models_.File("a.dtm")));
  EXPECT_EQ(result.out,
            "{\"cell_size\":1.0,\"area_size\":64,\"blocks\":[\"VAL\",\"NUM\",\"MIN\",\"XMIN\",\"YMIN\"],\"areas\":2,"
            "\"extents\":{\"x0\":-64.0,\"y0\":0.0,\"x1\":128.0,\"y1\":64.0},\"z_range\":[-3.25,8.0],"
            "\"opened_by\":\"index\",\"file_size\":" +
                size + "}\n");
}

TEST_F(InfoCommand, TextTellsTheSame) {
  models_.Make("a.dtm", "-1.5,2.5,-3.2\n70.5,2.5,8\n", {"--blocks", "VAL,NUM", "--cell-size", "0.5"});
  EXPECT_EQ(Text("a.dtm").out,
            "cell size   0.5 m\n"
            "area size   64 cells\n"
            "blocks      VAL NUM\n"
            "areas       2\n"
            "extents     x -32 to 96, y 0 to 32\n"
            "z range     -3.2 to 8\n"
            "opened by   index\n"
            "file size   " +
                std::to_string(fs::file_size(models_.File("a.dtm"))) + " bytes\n");
  EXPECT_EQ(Text("a.dtm").err, "");
}

TEST_F(InfoCommand, AnEmptyModelHasNeitherExtentsNorRange) {
  ASSERT_EQ(models_.Run({"create", models_.File("a.dtm"), "--cell-size", "1"}).status, kDone);
  EXPECT_TRUE(Json("a.dtm")["extents"].is_null());
  EXPECT_TRUE(Json("a.dtm")["z_range"].is_null());
  EXPECT_EQ(Json("a.dtm")["areas"], 0);
}

TEST_F(InfoCommand, AModelOpenedByAWalkHasItsRangeWorkedOutAndNothingStored) {
  models_.Make("a.dtm", "-1.5,2.5,-3.25\n70.5,2.5,8\n");
  models_.CutIndex("a.dtm");
  const test::FileState state(models_.Folder(), "a.dtm");
  const json info = Json("a.dtm");
  EXPECT_EQ(info["opened_by"], "walk");
  EXPECT_EQ(info["z_range"], (json{-3.25, 8.0}));
  EXPECT_EQ(info["areas"], 2);
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(InfoCommand, AnOldIndexIsToldAndItsRangesWorkedOut) {
  models_.Make("a.dtm", "-1.5,2.5,-3.25\n70.5,2.5,8\n");
  models_.MakeIndexOld("a.dtm");
  const test::FileState state(models_.Folder(), "a.dtm");
  const json info = Json("a.dtm");
  EXPECT_EQ(info["opened_by"], "old index");
  EXPECT_EQ(info["z_range"], (json{-3.25, 8.0}));
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(InfoCommand, LeavesEveryByteAndTheTimeAsTheyWere) {
  models_.Make("a.dtm", "-1.5,2.5,-3.25\n");
  const test::FileState state(models_.Folder(), "a.dtm");
  Json("a.dtm");
  Text("a.dtm");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(InfoCommand, ADamagedFileIsShownWithAWarningAndLeftAsItIs) {
  models_.Make("a.dtm", "-1.5,2.5,-3.25\n70.5,2.5,8\n");
  const std::string offset = std::to_string(models_.Damage("a.dtm"));
  const test::FileState state(models_.Folder(), "a.dtm");
  const CommandResult result = Text("a.dtm");
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.out, testing::HasSubstr("areas       1\n"));
  EXPECT_EQ(result.err, "vakdtm info: warning: " + models_.File("a.dtm") + ": damaged at offset " + offset +
                            ", what lies behind is not shown - run \"vakdtm verify " + models_.File("a.dtm") + "\"\n");
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(InfoCommand, QuietLeavesTheStatusAndTheResult) {
  models_.Make("good.dtm", "-1.5,2.5,-3.25\n70.5,2.5,8\n");
  models_.Make("damaged.dtm", "-1.5,2.5,-3.25\n70.5,2.5,8\n");
  models_.Damage("damaged.dtm");
  models_.Folder().Write("text.dtm", "1,2,3\n");
  for (const char* file : {"good.dtm", "damaged.dtm", "text.dtm", "none.dtm"}) {
    SCOPED_TRACE(file);
    const CommandResult loud = models_.Run({"info", models_.File(file)});
    const CommandResult quiet = models_.Run({"info", models_.File(file), "-q"});
    EXPECT_EQ(quiet.status, loud.status);
    EXPECT_EQ(quiet.out, loud.out);
    EXPECT_EQ(quiet.err, loud.status == kDone ? "" : loud.err);
  }
}

TEST_F(InfoCommand, AModelThatAnotherProcessWritesCanBeLookedAt) {
  models_.Make("a.dtm", "-1.5,2.5,-3.25\n");
  const HugeFileStream other(models_.Folder().WideFile("a.dtm").c_str(), false, true);
  EXPECT_EQ(Json("a.dtm")["areas"], 1);
}

TEST_F(InfoCommand, AModelThatMayNotBeWrittenCanBeLookedAt) {
  models_.Make("a.dtm", "-1.5,2.5,-3.25\n");
  fs::permissions(models_.File("a.dtm"), fs::perms(0444));
  EXPECT_EQ(Json("a.dtm")["areas"], 1);
}

TEST_F(InfoCommand, WhatIsNoReadableModelIsToldInOneLine) {
  models_.Folder().Write("text.xyz", "1,2,3\n");
  models_.Folder().Write("empty.dtm", "");
  ASSERT_EQ(mkfifo(models_.File("pipe").c_str(), 0600), 0);
  const std::string folder = models_.Folder().Path().string();
  const struct {
    const char* name;
    std::string path;
    const char* error;
  } cases[] = {
      {"missing", models_.File("none.dtm"), "no such file - check the name"},
      {"in no folder", models_.File("none/a.dtm"), "no such file - check the name"},
      {"a folder", folder, "is a folder - name a file"},
      {"a text", models_.File("text.xyz"), "is no grid model, or its header is damaged - check the name"},
      {"empty", models_.File("empty.dtm"), "is no grid model, or its header is damaged - check the name"},
      {"a pipe", models_.File("pipe"), "cannot be opened - check the file"},
      {"a file that gives no bytes", "/proc/self/mem", "cannot be opened - check the file"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const char* command : {"info", "cells"}) {
      const CommandResult result = models_.Run({command, c.path});
      EXPECT_EQ(result.status, kCouldNotBeDone);
      EXPECT_EQ(result.out, "");
      EXPECT_EQ(result.err, std::string("vakdtm ") + command + ": " + c.path + ": " + c.error + "\n");
    }
  }
}

TEST_F(InfoCommand, AFileThatMayNotBeReadIsToldInOneLine) {
  models_.Make("a.dtm", "1,2,3\n");
  fs::permissions(models_.Folder().Path(), fs::perms(0755));
  fs::permissions(models_.File("a.dtm"), fs::perms::none);
  const CommandResult result = models_.RunAsStranger({"info", models_.File("a.dtm")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm info: " + models_.File("a.dtm") +
                            ": cannot be read - check the permissions of the file and its folder\n");
}

TEST_F(InfoCommand, OutputThatCannotBeWrittenIsAFailure) {
  models_.Make("a.dtm", "1,2,3\n");
  for (const char* option : {"--quiet", "--json"}) {
    const CommandResult result = test::RunCommand({"sh", "-c", "\"$0\" info \"$1\" $2 > /dev/full", VAKDTM_COMMAND,
                                                   models_.File("a.dtm"), option})
                                     .Wait();
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(
        result.err,
        "vakdtm info: standard output: cannot write: no space left on the device - make room, or send it elsewhere\n");
  }
}

}  // namespace
}  // namespace vak
