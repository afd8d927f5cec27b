#include <cstddef>
#include <gtest/gtest.h>
#include <string>

#include "vakdtm/services/files/memfile.h"

#include "limits/LargestPiece.h"

namespace vak::test {
namespace {

TEST(memfile, WithoutMemoryAWriteFailsAndSoDoAllAfterIt) {
  memfile file;
  const std::string much(100'000, 'x');
  ASSERT_TRUE(file.Write("abc", 3));
  bool written = true;
  {
    const PiecesUpTo pieces(50'000);
    written = file.Write(much.data(), static_cast<unsigned>(much.size()));
  }
  EXPECT_FALSE(written);
  EXPECT_TRUE(file.Failed());
  EXPECT_FALSE(file.Write("d", 1)) << "though there would be memory";
  EXPECT_FALSE(file.Write(nullptr, 0));
  ASSERT_EQ(file.Size(), 3U);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(file.Bytes().data()), 3), "abc") << "what was there stays";
}

}  // namespace
}  // namespace vak::test
