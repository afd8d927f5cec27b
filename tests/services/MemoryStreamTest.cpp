#include <cstdint>
#include <gtest/gtest.h>
#include <memory>

#include "support/MemoryStream.h"

namespace vak::test {
namespace {

TEST(MemoryStream, BytesOutliveTheStream) {
  const auto file = std::make_shared<MemoryFile>();
  {
    MemoryStream stream(file);
    ASSERT_TRUE(stream.Seek(2, DataStream::kFromStart));
    ASSERT_TRUE(stream.Write("ab", 2));
  }
  EXPECT_EQ(file->bytes, (std::vector<std::uint8_t>{0, 0, 'a', 'b'}));
  EXPECT_EQ(file->counts.writes, 1u);
  EXPECT_EQ(file->counts.bytesWritten, 2u);
  EXPECT_EQ(file->counts.seeks, 1u);
}

TEST(MemoryStream, ReadBeyondTheEndAnswersFalse) {
  MemoryStream stream({1, 2, 3});
  std::uint8_t got[4] = {};
  EXPECT_FALSE(stream.Read(got, 4));
  ASSERT_TRUE(stream.Seek(-3, DataStream::kFromEnd));
  EXPECT_TRUE(stream.Read(got, 3));
  EXPECT_EQ(stream.Position(), 3);
  EXPECT_FALSE(stream.Seek(-4, DataStream::kFromEnd));
  EXPECT_FALSE(stream.Seek(0, 1));
  EXPECT_EQ(stream.Position(), 3);
}

TEST(MemoryStream, ChangesFailFromTheGivenOneOn) {
  MemoryStream stream;
  stream.File()->failFrom = 2;
  EXPECT_TRUE(stream.Write("abcd", 4));
  EXPECT_TRUE(stream.Sync());
  EXPECT_FALSE(stream.File()->Faulted());
  EXPECT_FALSE(stream.SetSize(1));
  EXPECT_FALSE(stream.Write("ef", 2));
  EXPECT_FALSE(stream.Sync());
  EXPECT_TRUE(stream.File()->Faulted());
  EXPECT_EQ(stream.File()->bytes.size(), 4u);
}

TEST(MemoryStream, TornWriteLeavesItsFirstHalf) {
  MemoryStream stream;
  stream.File()->failFrom = 0;
  stream.File()->tornWrite = true;
  EXPECT_FALSE(stream.Write("abcd", 4));
  EXPECT_EQ(stream.File()->bytes.size(), 2u);
  EXPECT_FALSE(stream.Write("abcd", 4));
  EXPECT_EQ(stream.File()->bytes.size(), 2u);
}

TEST(MemoryStream, StreamThatCannotShortenStillLengthens) {
  MemoryStream stream({1, 2, 3});
  stream.File()->canShorten = false;
  EXPECT_FALSE(stream.SetSize(2));
  EXPECT_EQ(stream.File()->bytes.size(), 3u);
  EXPECT_TRUE(stream.SetSize(5));
  EXPECT_EQ(stream.File()->bytes.size(), 5u);
}

TEST(MemoryStream, WriteBeyondTheLargestSizeFails) {
  MemoryStream stream;
  ASSERT_TRUE(stream.Seek(std::int64_t{1} << 40, DataStream::kFromStart));
  EXPECT_FALSE(stream.Write("a", 1));
  EXPECT_TRUE(stream.File()->bytes.empty());
}

}  // namespace
}  // namespace vak::test
