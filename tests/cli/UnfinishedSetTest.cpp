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

TEST_F(UnfinishedSetTest, FoldersAndTheLikeThatHaveANameOfTheSetAreNobodysToRemove) {
  const struct {
    const char* target;
    const char* obstacle;
  } cases[] = {{"a.shp", "a.prj"}, {"a.shp", "a.IND"}, {"a.shp", "a.shp.xml"}, {"c.gpkg", "c.gpkg-wal"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.obstacle);
    for (const bool isFolder : {true, false}) {
      if (isFolder) {
        fs::create_directories(Path(c.obstacle) + "/deep");
        folder_.Write(std::string(c.obstacle) + "/deep/x", "mine");
      } else {
        ASSERT_EQ(mkfifo(Path(c.obstacle).c_str(), 0600), 0);
      }
      UnfinishedSet set;
      EXPECT_FALSE(set.Make(Path(c.target), *FindLineFormat(c.target)));
      EXPECT_EQ(errno, isFolder ? EISDIR : EINVAL);
      EXPECT_EQ(set.Obstacle(), Path(c.obstacle));
      EXPECT_EQ(Files(), Names{c.obstacle});
      EXPECT_TRUE(!isFolder || folder_.Text(std::string(c.obstacle) + "/deep/x") == "mine");
      fs::remove_all(Path(c.obstacle));
    }
  }
}

TEST_F(UnfinishedSetTest, AFolderThatAppearsMeanwhileStaysAndSoDoesTheOldSet) {
  for (const char* name : {"a.shp", "a.shx", "a.dbf"}) folder_.Write(name, "old");
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("a.shp"), Shapefile()));
  Fill(set, {".shp", ".shx", ".dbf"});
  fs::create_directories(Path("a.sbx/deep"));
  EXPECT_FALSE(set.Commit());
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(set.Obstacle(), Path("a.sbx"));
  set.Abandon();
  EXPECT_EQ(Files(), (Names{"a.dbf", "a.sbx", "a.shp", "a.shx"}));
  EXPECT_TRUE(fs::is_directory(Path("a.sbx/deep")));
  for (const char* name : {"a.shp", "a.shx", "a.dbf"}) EXPECT_EQ(folder_.Text(name), "old") << name;
}

TEST_F(UnfinishedSetTest, ALinkWithANameOfTheSetGoesAndWhatItLeadsToStays) {
  fs::create_directories(Path("far/deep"));
  fs::create_symlink("far", Path("a.prj"));
  UnfinishedSet set;
  ASSERT_TRUE(set.Make(Path("a.shp"), Shapefile()));
  Fill(set, {".shp", ".shx", ".dbf"});
  EXPECT_TRUE(set.Commit());
  EXPECT_EQ(Files(), (Names{"a.dbf", "a.shp", "a.shx", "far"}));
  EXPECT_TRUE(fs::is_directory(Path("far/deep")));
}

TEST_F(UnfinishedSetTest, ASetWithTheSameNameInOtherLettersIsRefused) {
  const struct {
    const char* there;
    const char* target;
  } cases[] = {{"a.shp", "a.SHP"}, {"a.SHP", "a.shp"}, {"a.shp", "a.Shp"}, {"a.sHP", "a.SHP"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    folder_.Write(c.there, "old");
    UnfinishedSet set;
    EXPECT_FALSE(set.Make(Path(c.target), Shapefile()));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(set.Obstacle(), Path(c.there));
    // A second name of one file is another file to whoever opens it.
    fs::create_hard_link(Path(c.there), Path(c.target));
    UnfinishedSet linked;
    EXPECT_FALSE(linked.Make(Path(c.target), Shapefile()));
    EXPECT_EQ(Files().size(), 2u);
    fs::remove(Path(c.target));
    fs::remove(Path(c.there));
  }
  folder_.Write("a.gpkg", "old");
  UnfinishedSet alone;
  EXPECT_TRUE(alone.Make(Path("a.GPKG"), Database())) << "they share nothing";
}

TEST_F(UnfinishedSetTest, ItsNamesAreThoseOfAllThatIsWrittenOrReplaced) {
  folder_.Write("b.shp", "");
  fs::create_symlink("b.shp", Path("a.shp"));
  const Names names = UnfinishedSet::Names(Path("a.shp"), Shapefile());
  EXPECT_EQ(names.front(), Path("b.shp"));
  for (const char* name : {"b.dbf", "b.DBF", "b.shx", "b.prj", "b.cpg", "b.ind", "b.shp.xml"}) {
    EXPECT_EQ(std::count(names.begin(), names.end(), Path(name)), 1) << name;
  }
  EXPECT_EQ(UnfinishedSet::Names("c.fgb", *FindLineFormat("c.fgb")), Names{"c.fgb"});
}

TEST_F(UnfinishedSetTest, APathThatLooksLikeAnAddressIsAPath) {
  UnfinishedSet set;
  const fs::path before = fs::current_path();
  fs::create_directory(Path("file:x"));
  fs::current_path(folder_.Path());
  ASSERT_TRUE(set.Make("file:x/a.gpkg", Database()));
  EXPECT_EQ(set.Path().substr(0, 9), "./file:x/");
  Fill(set, {".gpkg"});
  EXPECT_TRUE(set.Commit());
  fs::current_path(before);
  EXPECT_EQ(folder_.Text("file:x/a.gpkg"), "new .gpkg");
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
