#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "ResultFile.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

class ResultFileTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.File(name); }

  std::size_t Files() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_.Path()), fs::directory_iterator()));
  }

  test::TestFolder folder_;
};

TEST_F(ResultFileTest, NothingAppearsUnderTheNameBeforeItIsComplete) {
  const std::vector<std::string> parts = {std::string(1000000, 'x'), "end\n"};
  ResultFile output;
  ASSERT_TRUE(output.Open(Path("a.xyz")));
  ASSERT_TRUE(output.Write(parts[0]));
  EXPECT_FALSE(folder_.Has("a.xyz"));
  ASSERT_TRUE(output.Write(parts[1]));
  ASSERT_TRUE(output.Commit());
  EXPECT_EQ(folder_.Text("a.xyz"), parts[0] + parts[1]);
  EXPECT_EQ(Files(), 1u);
}

TEST_F(ResultFileTest, WithoutCommitTheOldFileStaysAndNothingElseIsLeft) {
  folder_.Write("a.xyz", "old");
  {
    ResultFile output;
    ASSERT_TRUE(output.Open(Path("a.xyz")));
    ASSERT_TRUE(output.Write("new"));
  }
  EXPECT_EQ(folder_.Text("a.xyz"), "old");
  EXPECT_EQ(Files(), 1u);
}

TEST_F(ResultFileTest, AReplacedFileKeepsItsPermissions) {
  folder_.Write("a.xyz", "old");
  ASSERT_EQ(chmod(Path("a.xyz").c_str(), 0640), 0);
  ResultFile output;
  ASSERT_TRUE(output.Open(Path("a.xyz")));
  ASSERT_TRUE(output.Write("new"));
  ASSERT_TRUE(output.Commit());
  EXPECT_EQ(folder_.Text("a.xyz"), "new");
  EXPECT_EQ(fs::status(Path("a.xyz")).permissions(), fs::perms(0640));
}

TEST_F(ResultFileTest, ALinkIsFollowedAndStays) {
  folder_.Write("real.xyz", "old");
  fs::create_symlink("real.xyz", Path("link.xyz"));
  ResultFile output;
  ASSERT_TRUE(output.Open(Path("link.xyz")));
  ASSERT_TRUE(output.Write("new"));
  ASSERT_TRUE(output.Commit());
  EXPECT_TRUE(fs::is_symlink(Path("link.xyz")));
  EXPECT_EQ(folder_.Text("real.xyz"), "new");
}

TEST_F(ResultFileTest, ANameAsLongAsNamesMayBeIsWritten) {
  const std::string name(255, 'n');
  ResultFile output;
  ASSERT_TRUE(output.Open(Path(name)));
  ASSERT_TRUE(output.Commit());
  EXPECT_EQ(folder_.Text(name), "");
}

TEST_F(ResultFileTest, WhatCannotBeWrittenSaysWhy) {
  fs::create_directory(Path("folder"));
  folder_.Write("file", "");
  const struct {
    const char* name;
    std::string path;
    const char* error;
  } cases[] = {
      {"a folder", Path("folder"), "it is a folder"},
      {"no such folder", Path("none/a.xyz"), "there is no such folder"},
      {"a file in place of a folder", Path("file/a.xyz"), "there is no such folder"},
      {"a folder that isn't there", Path("none/"), "there is no such folder"},
      {"no name", "", "there is no such folder"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ResultFile output;
    EXPECT_FALSE(output.Open(c.path));
    EXPECT_EQ(output.Error(), c.error);
    EXPECT_FALSE(output.Write("x"));
    EXPECT_FALSE(output.Commit());
  }
  EXPECT_EQ(Files(), 2u);
}

TEST_F(ResultFileTest, AReadOnlyFileIsNotReplaced) {
  folder_.Write("a.xyz", "old");
  ASSERT_EQ(chmod(Path("a.xyz").c_str(), 0444), 0);
  ASSERT_EQ(chmod(folder_.Path().c_str(), 0777), 0);
  EXPECT_EXIT(
      {
        // The superuser may write every file.
        if (geteuid() == 0 && setuid(65534) != 0) _exit(44);
        ResultFile output;
        const bool opened = output.Open(Path("a.xyz"));
        std::cerr << output.Error();
        _exit(opened ? 43 : 42);
      },
      testing::ExitedWithCode(42), "^permission denied$");
  EXPECT_EQ(folder_.Text("a.xyz"), "old");
  EXPECT_EQ(Files(), 1u);
}

TEST_F(ResultFileTest, AFullDeviceIsReportedByTheWriteThatMeetsIt) {
  ResultFile output;
  ASSERT_TRUE(output.Open("/dev/full"));
  ASSERT_TRUE(output.Write("buffered"));
  EXPECT_FALSE(output.Commit());
  EXPECT_EQ(output.Error(), "no space left on the device");
  EXPECT_TRUE(fs::exists("/dev/full"));
}

}  // namespace
}  // namespace vak
