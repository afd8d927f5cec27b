#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "vakdtm/store/ChunkWalk.h"

#include "support/GridStreamLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

std::vector<std::uint8_t> Chunks(int count, int length) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < count; ++i) {
    const std::vector<std::uint8_t> header = Hex("61 62 63 64 00 00 00 00");
    bytes.insert(bytes.end(), header.begin(), header.end());
    bytes[bytes.size() - 4] = static_cast<std::uint8_t>(length);
    bytes.insert(bytes.end(), static_cast<std::size_t>(length), std::uint8_t{1});
  }
  return bytes;
}

TEST(ChunkWalk, ManySmallChunksAreReadInFewLargePieces) {
  auto memory = std::make_shared<MemoryFile>();
  memory->bytes = Chunks(10000, 0);
  MemoryStream stream(memory);
  StreamWindow window(stream, static_cast<std::int64_t>(memory->bytes.size()));
  ChunkWalk walk(window, 0, window.End());
  int count = 0;
  while (walk.Next()) ++count;
  EXPECT_EQ(count, 10000);
  EXPECT_LE(memory->counts.reads, 12u);
  EXPECT_LE(memory->counts.bytesRead, memory->bytes.size());
}

TEST(ChunkWalk, LargeChunksAreReadAtTheirHeadersAlone) {
  auto memory = std::make_shared<MemoryFile>();
  memory->bytes = Chunks(100, 200);
  MemoryStream stream(memory);
  StreamWindow window(stream, static_cast<std::int64_t>(memory->bytes.size()));
  ChunkWalk walk(window, 0, window.End());
  while (walk.Next()) {
  }
  EXPECT_EQ(walk.End(), window.End());
  EXPECT_EQ(memory->counts.bytesRead, 800u);
}

TEST(ChunkWalk, EndsAtAZeroTagANegativeLengthAndALengthBeyondTheEnd) {
  const char* const second[] = {"00 00 00 00 00 00 00 00 61 62 63 64 00 00 00 00",
                                "61 62 63 64 FF FF FF FF 61 62 63 64 00 00 00 00",
                                "61 62 63 64 09 00 00 00 61 62 63 64 00 00 00 00", "61 62 63 64 00 00 00"};
  for (const char* const text : second) {
    SCOPED_TRACE(text);
    std::vector<std::uint8_t> bytes = Chunks(1, 3);
    const std::vector<std::uint8_t> rest = Hex(text);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    MemoryStream stream(bytes);
    StreamWindow window(stream, static_cast<std::int64_t>(bytes.size()));
    ChunkWalk walk(window, 0, window.End());
    ASSERT_TRUE(walk.Next());
    EXPECT_EQ(walk.Body(), 8);
    EXPECT_EQ(walk.Header().length, 3);
    EXPECT_FALSE(walk.Next());
    EXPECT_EQ(walk.End(), 11) << "the position stays behind the last good chunk";
  }
}

}  // namespace
}  // namespace vak::test
