#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "vakdtm/intake/SoundingAhead.h"

namespace vak::test {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File TextFile(const std::string& text) {
  File file(std::tmpfile());
  if (file) {
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::rewind(file.get());
  }
  return file;
}

std::string ManyLines(int count) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += std::to_string(i) + ".5," + std::to_string(-i) + ",-" + std::to_string(i % 7) + ".25\n";
  return text;
}

TEST(SoundingAheadThreadTest, HandsOutEveryLineOnceAndInOrder) {
  constexpr int kLines = 20000;  // several batches, the last one not full
  const File file = TextFile(ManyLines(kLines));
  LineReader reader(file.get());
  SoundingAhead ahead(reader, SoundingScanner(SoundingFormat::kComma));
  int seen = 0;
  std::int64_t position = 0;
  while (const SoundingBatch* const batch = ahead.Next()) {
    for (const SoundingLine& line : batch->lines) {
      ASSERT_EQ(line.kind, SoundingLine::Kind::kSounding);
      ASSERT_EQ(line.x, seen + 0.5);
      ASSERT_EQ(line.y, -seen);
      ASSERT_EQ(line.z, -(seen % 7 + 0.25));
      ASSERT_EQ(line.number, seen + 1);
      position += static_cast<std::int64_t>(batch->TextOf(line).size());
      ASSERT_EQ(line.position, position);
      ++seen;
    }
  }
  EXPECT_EQ(seen, kLines);
  EXPECT_EQ(ahead.Next(), nullptr);
}

TEST(SoundingAheadThreadTest, JudgesEachLine) {
  using Kind = SoundingLine::Kind;
  const File file = TextFile("1,2,3\nheading\n1,2,nan\n1,2,-nan\n1,2,3 -nan\ninf,2,3\n1,nan,3\n1,2,-inf\n1,2\n\n");
  LineReader reader(file.get());
  SoundingAhead ahead(reader, SoundingScanner(SoundingFormat::kComma));
  const SoundingBatch* const batch = ahead.Next();
  ASSERT_NE(batch, nullptr);
  const Kind wanted[] = {Kind::kSounding,  Kind::kNotParsed, Kind::kNotANumber, Kind::kNotANumber, Kind::kNotANumber,
                         Kind::kNotParsed, Kind::kNotParsed, Kind::kNotParsed,  Kind::kNotParsed,  Kind::kNotParsed};
  ASSERT_EQ(batch->lines.size(), std::size(wanted));
  for (std::size_t i = 0; i < std::size(wanted); ++i) {
    SCOPED_TRACE(std::string(batch->TextOf(batch->lines[i])));
    EXPECT_EQ(batch->lines[i].kind, wanted[i]);
  }
}

TEST(SoundingAheadThreadTest, AnEmptyTextEndsAtOnce) {
  const File file = TextFile("");
  LineReader reader(file.get());
  SoundingAhead ahead(reader, SoundingScanner(SoundingFormat::kComma));
  EXPECT_EQ(ahead.Next(), nullptr);
}

TEST(SoundingAheadThreadTest, CanBeGivenUpAtAnyMoment) {
  const std::string text = ManyLines(20000);
  int taken = 0;
  for (int batches = 0; batches < 40; ++batches) {
    const File file = TextFile(text);
    LineReader reader(file.get());
    SoundingAhead ahead(reader, SoundingScanner(SoundingFormat::kComma));
    for (int i = 0; i < batches % 4; ++i) taken += ahead.Next() != nullptr ? 1 : 0;
  }
  EXPECT_EQ(taken, 10 * (0 + 1 + 2 + 3));
}

}  // namespace
}  // namespace vak::test
