#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "LineFormat.h"
#include "UnfinishedSet.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class UnfinishedSetTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.File(name); }

  Names Files() const {
    Names names;
    for (const auto& entry : fs::directory_iterator(folder_.Path())) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  /// Makes the files of a set, with their endings as their content.
  static void Fill(const UnfinishedSet& set, const Names& endings) {
    const std::string stem = set.Path().substr(0, set.Path().rfind('.'));
    for (const std::string& ending : endings) std::ofstream(stem + ending) << "new " << ending;
  }

  static const LineFormat& Shapefile() { return *FindLineFormat("a.shp"); }
  static const LineFormat& Database() { return *FindLineFormat("a.gpkg"); }

  test::TestFolder folder_;
};

TEST_F(UnfinishedSetTest, AllItsFilesAppearTogetherUnderTheTargetsName) {
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("lines.of.a.shp"), Shapefile()));
  Fill(set, {".shp", ".shx", ".dbf", ".cpg"});
  EXPECT_EQ(Files().size(), 1u) << "a hidden folder";
  EXPECT_EQ(Files().front().front(), '.');
  EXPECT_TRUE(set.Commit());
  EXPECT_EQ(Files(), (Names{"lines.of.a.cpg", "lines.of.a.dbf", "lines.of.a.shp", "lines.of.a.shx"}));
  EXPECT_EQ(folder_.Text("lines.of.a.dbf"), "new .dbf");
}

TEST_F(UnfinishedSetTest, WhatTheOldSetHadGoesWithItAndNothingElse) {
  for (const char* name : {"a.shp", "a.shx", "a.dbf", "a.prj", "a.QIX", "a.shp.xml", "a.txt", "b.prj", "a"}) {
    folder_.Write(name, "old");
  }
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("a.shp"), Shapefile()));
  Fill(set, {".shp", ".shx", ".dbf"});
  EXPECT_TRUE(set.Commit());
  EXPECT_EQ(Files(), (Names{"a", "a.dbf", "a.shp", "a.shx", "a.txt", "b.prj"}));
  for (const char* name : {"a.shp", "a.shx", "a.dbf"}) EXPECT_EQ(folder_.Text(name).substr(0, 3), "new") << name;
}

TEST_F(UnfinishedSetTest, AJournalOfAnOldDatabaseGoesWithIt) {
  for (const char* name : {"a.gpkg", "a.gpkg-wal", "a.gpkg-journal"}) folder_.Write(name, "old");
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("a.gpkg"), Database()));
  Fill(set, {".gpkg"});
  EXPECT_TRUE(set.Commit());
  EXPECT_EQ(Files(), Names{"a.gpkg"}) << "it would be played back into the new one";
}

TEST_F(UnfinishedSetTest, WithoutCommitTheOldSetStaysAndNothingElseIsLeft) {
  folder_.Write("a.shp", "old");
  folder_.Write("a.prj", "old");
  {
    UnfinishedSet set;
    ASSERT_TRUE(set.Make(Path("a.shp"), Shapefile()));
    Fill(set, {".shp", ".shx", ".dbf"});
  }
  EXPECT_EQ(Files(), (Names{"a.prj", "a.shp"}));
  EXPECT_EQ(folder_.Text("a.shp"), "old");
}

TEST_F(UnfinishedSetTest, AFailureOnTheWayPutsTheOldSetBack) {
  for (const char* name : {"a.shp", "a.shx", "a.dbf", "a.prj"}) folder_.Write(name, "old");
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("a.shp"), Shapefile()));
  Fill(set, {".shp", ".shx", ".dbf"});
  // What has appeared meanwhile cannot be replaced: the last step fails, when all the others are done.
  fs::remove(Path("a.shp"));
  fs::create_directories(Path("a.shp/in/the/way"));
  EXPECT_FALSE(set.Commit());
  EXPECT_EQ(errno, EISDIR);
  set.Abandon();
  EXPECT_EQ(Files(), (Names{"a.dbf", "a.prj", "a.shp", "a.shx"}));
  for (const char* name : {"a.dbf", "a.prj", "a.shx"}) EXPECT_EQ(folder_.Text(name), "old") << name;
}

TEST_F(UnfinishedSetTest, EndingsInLargeLettersAreKept) {
  folder_.Write("A.SHP", "old");
  folder_.Write("A.DBF", "old");
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("A.SHP"), Shapefile()));
  Fill(set, {".shp", ".shx", ".dbf"});
  EXPECT_TRUE(set.Commit());
  EXPECT_EQ(Files(), (Names{"A.SHP", "A.dbf", "A.shx"}));
  EXPECT_EQ(folder_.Text("A.SHP"), "new .shp");
}

TEST_F(UnfinishedSetTest, ALinkStaysOneAndPermissionsStayAsTheyWere) {
  fs::create_directory(Path("far"));
  folder_.Write("far/b.gpkg", "old");
  ASSERT_EQ(chmod(Path("far/b.gpkg").c_str(), 0640), 0);
  fs::create_symlink("far/b.gpkg", Path("a.gpkg"));
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("a.gpkg"), Database()));
  Fill(set, {".gpkg"});
  EXPECT_TRUE(set.Commit());
  EXPECT_TRUE(fs::is_symlink(Path("a.gpkg")));
  EXPECT_EQ(folder_.Text("far/b.gpkg"), "new .gpkg");
  EXPECT_EQ(fs::status(Path("far/b.gpkg")).permissions(), fs::perms(0640));
}

TEST_F(UnfinishedSetTest, WhatCannotBeReplacedIsRefusedBeforeAnythingIsMade) {
  fs::create_directory(Path("folder.shp"));
  ASSERT_EQ(mkfifo(Path("pipe.shp").c_str(), 0600), 0);
  const struct {
    const char* name;
    int error;
  } cases[] = {{"folder.shp", EISDIR}, {"pipe.shp", EINVAL}, {"nowhere/a.shp", ENOENT}};
  const Names before = Files();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    UnfinishedSet set;
    EXPECT_FALSE(set.Make(Path(c.name), Shapefile()));
    EXPECT_EQ(errno, c.error);
    EXPECT_EQ(Files(), before);
  }
}

}  // namespace
}  // namespace vak
