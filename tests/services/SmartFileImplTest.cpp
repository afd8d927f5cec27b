#include <gtest/gtest.h>
#include <string>

#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

using test::TestFolder;

TEST(SmartFileImpl, WritesAndReadsThroughTheFileObject) {
  const TestFolder folder;
  SmartFileImpl file;
  FileObject& object = file.GetFileObject();
  file.FileClose();
  ASSERT_TRUE(object.SetInt(L"FILTERS", L"1", 5));
  EXPECT_TRUE(file.FileSave(kFilterFile, folder.WideFile("f.ini")));
  EXPECT_EQ(folder.Text("f.ini"), "[FILTERS]\n1=5\n");
  file.FileClose();
  EXPECT_EQ(&file.GetFileObject(), &object);
  EXPECT_FALSE(object.HasSection(L"FILTERS"));
  EXPECT_TRUE(file.FileOpen(kFilterFile, folder.WideFile("f.ini")));
  EXPECT_TRUE(object.HasSection(L"FILTERS"));
  const SmartFileImpl& asConst = file;
  EXPECT_EQ(asConst.GetFileObject().GetPath(), folder.WideFile("f.ini"));
}

TEST(SmartFileImpl, FindsAFileInTheFoldersOfItsKind) {
  const TestFolder folder;
  folder.Write("only_here.txt", "0,0\n1,0\n0,1\n");
  SmartFileImpl file;
  EXPECT_FALSE(file.FileOpen(kPolygonFile, L"only_here.txt"));
  DataSearch::GetDataSearch().AddFolder(kPolygonFile, folder.WideFile(""));
  EXPECT_FALSE(file.FileOpen(kColorTableFile, L"only_here.txt"));
  EXPECT_TRUE(file.FileOpen(kPolygonFile, L"only_here.txt"));
  DataSearch::GetDataSearch().ClearFolders(kPolygonFile);
  EXPECT_EQ(file.GetFileObject().GetPath(), folder.WideFile("only_here.txt"));
  EXPECT_FALSE(file.FileOpen(kPolygonFile, L"only_here.txt"));
  EXPECT_EQ(file.GetFileObject().GetPath(), folder.WideFile("only_here.txt"));  // nothing has changed
}

TEST(SmartFileImpl, EmptyNameIsNoFile) {
  SmartFileImpl file;
  EXPECT_FALSE(file.FileOpen(kPolygonFile, L""));
  EXPECT_FALSE(file.FileSave(kPolygonFile, L""));
}

}  // namespace
}  // namespace vak
