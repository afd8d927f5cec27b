#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "vakdtm/services/files/FileObject.h"

#include "support/DecimalComma.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

using test::TestFolder;

class FileObjectOnDisk : public testing::Test {
 protected:
  bool Open(std::string_view content) {
    folder_.Write("settings", content);
    return file_.FileOpen(folder_.WideFile("settings"));
  }
  std::string Saved() {
    EXPECT_TRUE(file_.FileSave(folder_.WideFile("saved")));
    return folder_.Text("saved");
  }
  /// A value, or the text "none".
  std::wstring Get(const std::wstring& section, const std::wstring& key) const {
    std::wstring value = L"none";
    file_.GetString(section, key, value);
    return value;
  }

  TestFolder folder_;
  FileObject file_;
};

constexpr std::string_view kSettings =
    "; what this is\n"
    "first = 1\n"
    "\n"
    "[FILTERS]\r\n"
    "1=HIGH,MIN,2.5,false\r\n"
    "# in between\r\n"
    "  2 =\tPOLYCLIP, a b ,0.5,true  \r\n"
    "no key and no section\r\n"
    "[colours]\n"
    "\n"
    "name=\" blanks \\\"and\\\" \\\\ more\\n \"\n"
    "empty=\n"
    "first=2\n"
    "first=3\n"
    "[FILTERS]\n"
    "3=last=of all";

TEST_F(FileObjectOnDisk, SectionsAndKeysAreFound) {
  ASSERT_TRUE(Open(kSettings));
  EXPECT_EQ(Get(L"", L"first"), L"1");
  EXPECT_EQ(Get(L"FILTERS", L"1"), L"HIGH,MIN,2.5,false");
  EXPECT_EQ(Get(L"FILTERS", L"2"), L"POLYCLIP, a b ,0.5,true");
  EXPECT_EQ(Get(L"FILTERS", L"3"), L"last=of all");
  EXPECT_EQ(Get(L"colours", L"name"), L" blanks \"and\" \\ more\n ");
  EXPECT_EQ(Get(L"colours", L"empty"), L"");
  EXPECT_EQ(Get(L"colours", L"first"), L"2");
  EXPECT_EQ(Get(L"colours", L"First"), L"none");
  EXPECT_EQ(Get(L"Colours", L"first"), L"none");
  EXPECT_EQ(Get(L"FILTERS", L"4"), L"none");
  EXPECT_TRUE(file_.HasSection(L"colours"));
  EXPECT_TRUE(file_.HasSection(L""));
  EXPECT_FALSE(file_.HasSection(L"other"));
  EXPECT_EQ(file_.GetSections(), (std::vector<std::wstring>{L"", L"FILTERS", L"colours"}));
  EXPECT_EQ(file_.GetKeys(L"FILTERS"), (std::vector<std::wstring>{L"1", L"2", L"3"}));
  EXPECT_EQ(file_.GetKeys(L"colours"), (std::vector<std::wstring>{L"name", L"empty", L"first"}));
  EXPECT_EQ(file_.GetPath(), folder_.WideFile("settings"));
  EXPECT_EQ(file_.GetContent(), kSettings);
}

TEST_F(FileObjectOnDisk, UnchangedItSavesTheSameBytes) {
  for (const std::string_view text :
       {kSettings, std::string_view(), std::string_view("\xEF\xBB\xBF[a]\nb=c"), std::string_view("\n\n"),
        std::string_view("[a\n=b\n]=c\n[]\nx=\xFF\xFE\n"), std::string_view("\0[a]\n", 5)}) {
    ASSERT_TRUE(Open(text));
    EXPECT_EQ(Saved(), text);
    EXPECT_EQ(file_.GetPath(), folder_.WideFile("saved"));
  }
}

TEST_F(FileObjectOnDisk, AChangeLeavesAllOtherLinesAsTheyWere) {
  ASSERT_TRUE(Open(kSettings));
  EXPECT_TRUE(file_.SetString(L"FILTERS", L"1", L"LOW"));
  EXPECT_TRUE(file_.SetString(L"FILTERS", L"4", L"new"));
  EXPECT_TRUE(file_.SetString(L"other", L"k", L" v"));
  EXPECT_TRUE(file_.SetString(L"", L"second", L"x"));
  std::string wanted(kSettings);
  wanted.replace(wanted.find("1=HIGH,MIN,2.5,false\r\n"), 22, "1=LOW\n");
  wanted.insert(wanted.find("first = 1\n") + 10, "second=x\n");
  EXPECT_EQ(Saved(), wanted + "\n4=new\n[other]\nk=\" v\"\n");
  EXPECT_EQ(Get(L"FILTERS", L"4"), L"new");
}

TEST_F(FileObjectOnDisk, SettingsCanBeginWithNothing) {
  EXPECT_TRUE(file_.SetInt(L"", L"a", 1));
  EXPECT_TRUE(file_.SetInt(L"s", L"a", 2));
  EXPECT_TRUE(file_.SetInt(L"", L"b", 3));
  EXPECT_EQ(Saved(), "a=1\nb=3\n[s]\na=2\n");
  file_.FileClose();
  EXPECT_EQ(file_.GetPath(), L"");
  EXPECT_EQ(Saved(), "");
  ASSERT_TRUE(Open("\xEF\xBB\xBF"));
  EXPECT_TRUE(file_.SetInt(L"", L"a", 1));
  EXPECT_EQ(Saved(),
            "\xEF\xBB\xBF"
            "a=1\n");
  ASSERT_TRUE(Open("; remark"));
  EXPECT_TRUE(file_.SetInt(L"", L"a", 1));
  EXPECT_EQ(Saved(), "; remark\na=1\n");
}

TEST_F(FileObjectOnDisk, WhatWasSetIsGotAgain) {
  const std::wstring values[] = {L"",
                                 L"plain",
                                 L" blanks ",
                                 L"\ttab\t",
                                 L"a=b;c#d[e]",
                                 L"\"",
                                 L"\"quoted\"",
                                 L"\"half",
                                 L"back\\slash",
                                 L"two\nlines\r\n",
                                 L"\u00e4\u4e2d\U0001F41F",
                                 std::wstring(1, L'\0'),
                                 std::wstring(100'000, L'x')};
  for (std::size_t i = 0; i < std::size(values); ++i) {
    ASSERT_TRUE(file_.SetString(L"s\u00e9ction", std::to_wstring(i), values[i]));
  }
  ASSERT_TRUE(file_.FileSave(folder_.WideFile("saved")));
  FileObject read;
  ASSERT_TRUE(read.FileOpen(folder_.WideFile("saved")));
  for (std::size_t i = 0; i < std::size(values); ++i) {
    std::wstring value = L"none";
    EXPECT_TRUE(read.GetString(L"s\u00e9ction", std::to_wstring(i), value));
    EXPECT_EQ(value, values[i]) << i;
    EXPECT_EQ(Get(L"s\u00e9ction", std::to_wstring(i)), values[i]);
  }
}

TEST_F(FileObjectOnDisk, NumbersReadBackToTheSameInAnyLocale) {
  const test::DecimalComma comma;
  ASSERT_TRUE(comma.Set());
  for (const double number : {0.0, -0.1, 1.0 / 3, 1e300, 5e-324, 512'030.125}) {
    ASSERT_TRUE(file_.SetDouble(L"n", L"d", number));
    double value = -1;
    EXPECT_TRUE(file_.GetDouble(L"n", L"d", value));
    EXPECT_EQ(value, number);
  }
  EXPECT_EQ(Saved(), "[n]\nd=512030.125\n");
  for (const std::int64_t number : {std::int64_t{0}, std::numeric_limits<std::int64_t>::min()}) {
    ASSERT_TRUE(file_.SetInt(L"n", L"i", number));
    std::int64_t value = -1;
    EXPECT_TRUE(file_.GetInt(L"n", L"i", value));
    EXPECT_EQ(value, number);
  }
  for (const bool yes : {true, false}) {
    ASSERT_TRUE(file_.SetBool(L"n", L"b", yes));
    bool value = !yes;
    EXPECT_TRUE(file_.GetBool(L"n", L"b", value));
    EXPECT_EQ(value, yes);
  }
}

TEST_F(FileObjectOnDisk, ValueOfAnotherFormIsLeftAlone) {
  ASSERT_TRUE(Open("[n]\na=1.5x\nb=nan\nc=1e400\nd=99999999999999999999\ne=1.5\nf=yes\ng=\nh=1\n"));
  double number = 7;
  std::int64_t whole = 7;
  bool flag = true;
  for (const wchar_t* key : {L"a", L"b", L"c", L"g", L"f", L"missing"})
    EXPECT_FALSE(file_.GetDouble(L"n", key, number));
  for (const wchar_t* key : {L"a", L"d", L"e", L"g", L"missing"}) EXPECT_FALSE(file_.GetInt(L"n", key, whole));
  for (const wchar_t* key : {L"a", L"e", L"f", L"g", L"missing"}) EXPECT_FALSE(file_.GetBool(L"n", key, flag));
  EXPECT_EQ(number, 7);
  EXPECT_EQ(whole, 7);
  EXPECT_TRUE(flag);
  EXPECT_TRUE(file_.GetBool(L"n", L"h", flag));
  EXPECT_TRUE(file_.GetDouble(L"n", L"e", number));
  EXPECT_EQ(number, 1.5);
}

TEST_F(FileObjectOnDisk, NamesThatAFileCantHoldAreRefused) {
  ASSERT_TRUE(Open(kSettings));
  for (const wchar_t* key : {L"", L" a", L"a ", L"a=b", L"[a", L";a", L"#a", L"a\nb", L"\ta"}) {
    EXPECT_FALSE(file_.SetString(L"s", key, L"v")) << key;
  }
  for (const wchar_t* section : {L"a]b", L" a", L"a ", L"a\rb"}) EXPECT_FALSE(file_.SetString(section, L"k", L"v"));
  EXPECT_FALSE(file_.SetDouble(L"s", L"k", std::numeric_limits<double>::quiet_NaN()));
  EXPECT_FALSE(file_.SetDouble(L"s", L"k", std::numeric_limits<double>::infinity()));
  EXPECT_EQ(Saved(), kSettings);
}

TEST_F(FileObjectOnDisk, SectionsAndKeysCanBeTakenOut) {
  ASSERT_TRUE(Open(kSettings));
  EXPECT_TRUE(file_.RemoveKey(L"colours", L"first"));
  EXPECT_FALSE(file_.RemoveKey(L"colours", L"first"));
  EXPECT_EQ(Get(L"colours", L"first"), L"none");
  EXPECT_TRUE(file_.RemoveSection(L"FILTERS"));
  EXPECT_FALSE(file_.RemoveSection(L"FILTERS"));
  EXPECT_EQ(Saved(), "; what this is\nfirst = 1\n\n[colours]\n\nname=\" blanks \\\"and\\\" \\\\ more\\n \"\nempty=\n");
  EXPECT_TRUE(file_.RemoveSection(L""));
  EXPECT_TRUE(Saved().starts_with("; what this is\n"));
}

TEST_F(FileObjectOnDisk, FileThatCantBeReadChangesNothing) {
  ASSERT_TRUE(Open(kSettings));
  const std::wstring path = file_.GetPath();
  EXPECT_FALSE(file_.FileOpen(folder_.WideFile("missing")));
  EXPECT_FALSE(file_.FileOpen(L""));
  EXPECT_FALSE(file_.FileOpen(folder_.WideFile("")));  // a folder
  ASSERT_EQ(mkfifo(folder_.File("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(file_.FileOpen(folder_.WideFile("pipe")));
  folder_.Write("huge", "x");
  std::filesystem::resize_file(folder_.File("huge"), FileObject::kMaxLength + 1);
  EXPECT_FALSE(file_.FileOpen(folder_.WideFile("huge")));
  EXPECT_EQ(file_.GetPath(), path);
  EXPECT_EQ(file_.GetContent(), kSettings);
  EXPECT_EQ(Get(L"", L"first"), L"1");
}

TEST_F(FileObjectOnDisk, FileOfTooManyEntriesHoldsNoSettings) {
  std::string text = "a=1\n";
  for (std::size_t i = 1; i < FileObject::kMaxEntries; ++i) text += "b=\n";
  ASSERT_TRUE(Open(text));
  EXPECT_EQ(Get(L"", L"a"), L"1");
  text += "c=1\n";  // a line of another form may look like one: they are told apart when settings are asked for
  ASSERT_TRUE(Open(text));
  EXPECT_EQ(file_.GetContent(), text);
  EXPECT_EQ(file_.GetText(), text);
  EXPECT_TRUE(file_.GetSections().empty());
  EXPECT_FALSE(file_.SetInt(L"a", L"b", 1));
  EXPECT_FALSE(file_.RemoveKey(L"", L"a"));
  EXPECT_EQ(file_.GetText(), text);
  ASSERT_TRUE(Open("a=1\n"));
  EXPECT_TRUE(file_.SetInt(L"", L"a", 2));
  EXPECT_EQ(file_.GetText(), "a=2\n");
}

TEST_F(FileObjectOnDisk, NewFileIsAsOpenAsTheUsersMaskLetsItBe) {
  const mode_t before = umask(027);
  const bool saved = file_.SetInt(L"a", L"b", 1) && file_.FileSave(folder_.WideFile("new"));
  EXPECT_EQ(umask(before), 027U);
  ASSERT_TRUE(saved);
  struct stat info{};
  ASSERT_EQ(stat(folder_.File("new").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST_F(FileObjectOnDisk, SavingReplacesTheFileAsAWhole) {
  folder_.Write("saved", "before");
  ASSERT_EQ(chmod(folder_.File("saved").c_str(), 0640), 0);
  std::filesystem::create_symlink(folder_.File("saved"), folder_.File("link"));
  ASSERT_TRUE(file_.SetInt(L"a", L"b", 1));
  EXPECT_TRUE(file_.FileSave(folder_.WideFile("link")));
  EXPECT_EQ(folder_.Text("saved"), "[a]\nb=1\n");
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.File("link")));
  struct stat info{};
  ASSERT_EQ(stat(folder_.File("saved").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640U);
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder_.Path())) ++entries;
  EXPECT_EQ(entries, 2U);  // nothing is left beside it
}

TEST_F(FileObjectOnDisk, SavingWhereNothingCanBeWrittenChangesNothing) {
  ASSERT_TRUE(file_.SetInt(L"a", L"b", 1));
  EXPECT_FALSE(file_.FileSave(L""));
  EXPECT_FALSE(file_.FileSave(folder_.WideFile("no/such/folder")));
  EXPECT_FALSE(file_.FileSave(folder_.WideFile("")));
  EXPECT_EQ(file_.GetPath(), L"");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.Path()));
}

}  // namespace
}  // namespace vak
