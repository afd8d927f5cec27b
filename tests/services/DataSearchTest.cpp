#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

using test::TestFolder;

/// Works below a folder that is the current one, and leaves no folders behind.
class DataSearchInFolder : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::current_path(folder_.Path()); }
  void TearDown() override {
    DataSearch::GetDataSearch().ClearFolders(kPolygonFile);
    std::filesystem::current_path(before_);
  }

  std::wstring Full(const std::wstring& name, unsigned kind = kPolygonFile) const {
    std::wstring path = name;
    EXPECT_TRUE(DataSearch::GetDataSearch().GetFullPath(kind, path));
    return path;
  }
  std::wstring Here(const std::string& name) const {
    return FromUtf8((std::filesystem::canonical(folder_.Path()) / name).native());
  }

  std::filesystem::path before_ = std::filesystem::current_path();
  TestFolder folder_;
};

TEST_F(DataSearchInFolder, PathFromTheRootStandsAsItIs) {
  DataSearch::GetDataSearch().AddFolder(kPolygonFile, folder_.WideFile("sub"));
  EXPECT_EQ(Full(L"/no/such/area.txt"), L"/no/such/area.txt");
  EXPECT_EQ(Full(L"/no/./such/area.txt"), L"/no/such/area.txt");
}

TEST_F(DataSearchInFolder, WayUpBehindALinkLeadsWhereTheLinkPointsTo) {
  std::filesystem::create_directories(folder_.Path() / "far/away");
  std::filesystem::create_directories(folder_.Path() / "near");
  std::filesystem::create_directory_symlink(folder_.Path() / "far/away", folder_.Path() / "near/link");
  folder_.Write("far/area.txt", "");
  folder_.Write("near/area.txt", "");
  for (const std::wstring& name : {std::wstring(L"near/link/../area.txt"), folder_.WideFile("near/link/../area.txt")}) {
    EXPECT_TRUE(std::filesystem::equivalent(ToUtf8(Full(name)), folder_.Path() / "far/area.txt"));
  }
}

TEST_F(DataSearchInFolder, NameIsLookedForHereThenInTheFoldersOfItsKindInOrder) {
  std::filesystem::create_directories(folder_.Path() / "one");
  std::filesystem::create_directories(folder_.Path() / "two");
  folder_.Write("two/area.txt", "");
  DataSearch::GetDataSearch().AddFolder(kPolygonFile, folder_.WideFile("one"));
  DataSearch::GetDataSearch().AddFolder(kPolygonFile, folder_.WideFile("two"));
  EXPECT_EQ(Full(L"area.txt"), folder_.WideFile("two/area.txt"));
  EXPECT_EQ(Full(L"area.txt", kColorTableFile), Here("area.txt"));
  folder_.Write("one/area.txt", "");
  EXPECT_EQ(Full(L"area.txt"), folder_.WideFile("one/area.txt"));
  folder_.Write("area.txt", "");
  EXPECT_EQ(Full(L"area.txt"), Here("area.txt"));
  EXPECT_EQ(Full(L"new.txt"), Here("new.txt"));
}

TEST_F(DataSearchInFolder, EmptyNameIsRefused) {
  std::wstring path;
  EXPECT_FALSE(DataSearch::GetDataSearch().GetFullPath(kPolygonFile, path));
  EXPECT_EQ(path, L"");
}

}  // namespace
}  // namespace vak
