#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "vakdtm/services/files/OutputFile.h"
#include "vakdtm/services/files/memfile.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

bool WriteText(CFile& file, const std::string& text) {
  return file.Write(text.data(), static_cast<unsigned>(text.size()));
}

std::string TextOf(const memfile& file) {
  return {reinterpret_cast<const char*>(file.Bytes().data()), file.Bytes().size()};
}

TEST(OutputFile, HoldsWhatWasWrittenBytesAndAll) {
  const test::TestFolder folder;
  folder.Write("result.txt", "what was there before, and longer than all that comes");
  const std::string text("line\r\n\0\xFF end", 12);
  OutputFile file;
  ASSERT_TRUE(file.Open(folder.WideFile("result.txt")));
  EXPECT_TRUE(file.IsOpen());
  EXPECT_TRUE(WriteText(file, text));
  EXPECT_TRUE(file.Write(nullptr, 0));
  EXPECT_TRUE(WriteText(file, "more"));
  EXPECT_TRUE(file.Close());
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(folder.Text("result.txt"), text + "more");
}

TEST(OutputFile, AppendsWhenAskedTo) {
  const test::TestFolder folder;
  for (const char* const line : {"1\n", "2\n"}) {
    OutputFile file;
    ASSERT_TRUE(file.Open(folder.WideFile("result.txt"), true));
    EXPECT_TRUE(WriteText(file, line) && file.Close());
  }
  EXPECT_EQ(folder.Text("result.txt"), "1\n2\n");
}

TEST(OutputFile, ClosesWithTheObject) {
  const test::TestFolder folder;
  {
    OutputFile file;
    ASSERT_TRUE(file.Open(folder.WideFile("result.txt")) && WriteText(file, "text"));
  }
  EXPECT_EQ(folder.Text("result.txt"), "text");
}

TEST(OutputFile, WhatCannotBeOpenedTakesNothing) {
  const test::TestFolder folder;
  OutputFile file;
  EXPECT_FALSE(file.Write("x", 1));  // never opened
  EXPECT_TRUE(file.Failed());
  EXPECT_FALSE(file.Open(folder.WideFile("no/such/folder")));
  EXPECT_FALSE(file.Open(folder.WideFile("")));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_FALSE(file.Close());
  ASSERT_TRUE(file.Open(folder.WideFile("result.txt")));
  EXPECT_FALSE(file.Failed());  // opened anew, it starts anew
  EXPECT_TRUE(WriteText(file, "x") && file.Close());
}

TEST(OutputFile, FullDiskShowsAtTheLatestWhenClosed) {
  OutputFile file;
  ASSERT_TRUE(file.Open(L"/dev/full"));
  WriteText(file, "lost");
  EXPECT_FALSE(file.Close());
  EXPECT_TRUE(file.Failed());
}

TEST(OutputFile, FailureStaysUntilTheEnd) {
  OutputFile file;
  ASSERT_TRUE(file.Open(L"/dev/full"));
  const std::string block(1 << 20, 'x');
  EXPECT_FALSE(WriteText(file, block) && WriteText(file, block));
  EXPECT_TRUE(file.Failed());
  EXPECT_FALSE(WriteText(file, "x"));
  EXPECT_FALSE(file.Close());
}

TEST(memfile, GrowsByWhatIsWritten) {
  memfile file;
  EXPECT_EQ(file.Size(), 0u);
  EXPECT_TRUE(file.Write(nullptr, 0));
  EXPECT_TRUE(WriteText(file, std::string("a\0b", 3)));
  EXPECT_TRUE(WriteText(file, "c"));
  EXPECT_EQ(TextOf(file), std::string("a\0bc", 4));
  EXPECT_FALSE(file.Failed());
}

TEST(memfile, KeepsAllOfManySmallWrites) {
  memfile file;
  for (unsigned i = 0; i < 100'000; ++i) ASSERT_TRUE(file.Write(&i, sizeof i));
  ASSERT_EQ(file.Size(), 400'000u);
  for (unsigned i = 0; i < 100'000; i += 999) {
    unsigned read = 0;
    std::memcpy(&read, file.Bytes().data() + i * sizeof i, sizeof read);
    EXPECT_EQ(read, i);
  }
}

}  // namespace
}  // namespace vak
