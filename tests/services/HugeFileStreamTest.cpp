#include <gtest/gtest.h>

#include "vakdtm/services/files/HugeFileStream.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

using test::TestFolder;

TEST(HugeFileStream, WhatIsWrittenIsReadBack) {
  const TestFolder folder;
  HugeFileStream stream(folder.WideFile("a.dtm").c_str(), true, true);
  ASSERT_TRUE(stream.IsOpen());
  EXPECT_TRUE(stream.IsReadWrite());
  ASSERT_TRUE(stream.Write("abcdef", 6));
  EXPECT_EQ(stream.Position(), 6);
  ASSERT_TRUE(stream.Seek(-4, DataStream::kFromEnd));
  char got[2] = {};
  ASSERT_TRUE(stream.Read(got, 2));
  EXPECT_EQ(std::string(got, 2), "cd");
  EXPECT_EQ(stream.Position(), 4);
  EXPECT_TRUE(stream.Sync());
  EXPECT_EQ(folder.Text("a.dtm"), "abcdef");
}

}  // namespace
}  // namespace vak
