#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "vakdtm/services/files/FileName.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

TEST(FileName, PartsOfAPath) {
  const struct {
    const char* name;
    std::wstring path, folder, title, backup;
  } kCases[] = {
      {"plain", L"/data/river.dtm", L"/data/", L"river", L"/data/river.bk1"},
      {"no folder", L"river.dtm", L"", L"river", L"river.bk1"},
      {"two dots", L"a/2024.north.dtm", L"a/", L"2024.north", L"a/2024.north.bk1"},
      {"dot in the folder alone", L"a.b/river", L"a.b/", L"river", L"a.b/river.bk1"},
      {"no extension", L"river", L"", L"river", L"river.bk1"},
      {"hidden", L"a/.river", L"a/", L".river", L"a/.river.bk1"},
      {"hidden with extension", L".river.dtm", L"", L".river", L".river.bk1"},
      {"dot at the end", L"river.", L"", L"river", L"river.bk1"},
      {"in the root", L"/river.dtm", L"/", L"river", L"/river.bk1"},
      {"folder above", L"..", L"", L"..", L"...bk1"},
      {"a folder", L"a/b/", L"a/b/", L"", L"a/b/.bk1"},
      {"empty", L"", L"", L"", L".bk1"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    FileName name(c.path);
    EXPECT_EQ(*name, c.path);
    EXPECT_EQ(std::wstring(name.c_str()), c.path);
    EXPECT_EQ(name.Path(true, false), c.path);
    EXPECT_EQ(name.Path(false, true), c.folder);
    EXPECT_EQ(GetTitleFromPath(c.path), c.title);
    name.SetExtension(L"bk1");
    EXPECT_EQ(*name, c.backup);
  }
}

TEST(FileName, ExtensionComesWithOrWithoutItsDotOrGoes) {
  FileName name(L"a/river.dtm");
  name.SetExtension(L".zip");
  EXPECT_EQ(*name, L"a/river.zip");
  name.SetExtension(L"");
  EXPECT_EQ(*name, L"a/river");
  name.SetExtension(L"tar.gz");
  EXPECT_EQ(*name, L"a/river.tar.gz");
}

TEST(FileName, FolderIsReplacedWithOrWithoutItsSeparator) {
  FileName name(L"a/river.dtm");
  name.SetPath(L"/surveys");
  EXPECT_EQ(*name, L"/surveys/river.dtm");
  name.SetPath(L"b/c/");
  EXPECT_EQ(*name, L"b/c/river.dtm");
  name.SetPath(L"");
  EXPECT_EQ(*name, L"river.dtm");
}

TEST(FileName, NameIsTheTitleAloneOrBringsItsExtension) {
  FileName name(L"a/river.dtm");
  name.SetName(L"lake.2024", true);
  EXPECT_EQ(*name, L"a/lake.2024.dtm");
  name.SetExtension(L"txt");
  EXPECT_EQ(*name, L"a/lake.2024.txt");
  name.SetName(L"sea.bin", false);
  EXPECT_EQ(*name, L"a/sea.bin");
  name.SetName(L"sea", false);
  EXPECT_EQ(*name, L"a/sea");
}

TEST(FileName, FolderWithoutSeparatorKeepsTheRoot) {
  EXPECT_EQ(FileName(L"a/b/river.dtm").Path(false, false), L"a/b");
  EXPECT_EQ(FileName(L"/river.dtm").Path(false, false), L"/");
  EXPECT_EQ(FileName(L"river.dtm").Path(false, false), L"");
}

TEST(GetCanonicalPath, NamesOfOneFileGiveTheSame) {
  const test::TestFolder folder;
  folder.Write("river.dtm", "x");
  std::filesystem::create_directory(folder.Path() / "sub");
  std::filesystem::create_symlink("../river.dtm", folder.Path() / "sub" / "link.dtm");
  const std::wstring there = GetCanonicalPath(folder.WideFile("river.dtm"));
  EXPECT_EQ(there.front(), L'/');
  EXPECT_EQ(GetCanonicalPath(folder.WideFile("sub/../river.dtm")), there);
  EXPECT_EQ(GetCanonicalPath(folder.WideFile("sub/link.dtm")), there);
  EXPECT_EQ(GetCanonicalPath(folder.WideFile(".//river.dtm")), there);
  const std::wstring relative = std::filesystem::relative(folder.Path()).wstring() + L"/river.dtm";
  EXPECT_EQ(GetCanonicalPath(relative), there);
}

TEST(GetCanonicalPath, NameOfAFileThatIsNotThereYetStaysTheSameWhenItIs) {
  const test::TestFolder folder;
  std::filesystem::create_directory_symlink(folder.Path(), folder.Path() / "again");
  const std::wstring before = GetCanonicalPath(folder.WideFile("again/new.dtm"));
  folder.Write("new.dtm", "x");
  EXPECT_EQ(GetCanonicalPath(folder.WideFile("new.dtm")), before);
  // A relative name without any folder that exists has to become absolute as well.
  EXPECT_EQ(GetCanonicalPath(L"not-there.dtm"), (std::filesystem::current_path() / "not-there.dtm").wstring());
}

TEST(GetCanonicalPath, NothingForAnEmptyNameOrALoopOfLinksAndTheReasonIsTold) {
  const test::TestFolder folder;
  std::filesystem::create_symlink("loop", folder.Path() / "loop");
  EXPECT_EQ(GetCanonicalPath(L""), L"");
  EXPECT_EQ(GetCanonicalPath(folder.WideFile("loop")), L"");
  std::error_code error;
  EXPECT_EQ(GetCanonicalPath(folder.WideFile("loop"), error), L"");
  EXPECT_EQ(error, std::errc::too_many_symbolic_link_levels);
  EXPECT_NE(GetCanonicalPath(folder.WideFile("new.dtm"), error), L"");
  EXPECT_FALSE(error);
}

TEST(GetCanonicalPath, BytesThatAreNoUtf8StayInTheName) {
  const test::TestFolder folder;
  const std::wstring path = folder.WideFile("") + L"m\xDCFCll.dtm";
  EXPECT_EQ(GetCanonicalPath(path).substr(GetCanonicalPath(path).size() - 8), L"m\xDCFCll.dtm");
}

}  // namespace
}  // namespace vak
