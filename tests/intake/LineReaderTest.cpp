#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <stdio.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "vakdtm/intake/LineReader.h"
#include "vakdtm/intake/SoundingScanner.h"

#include "support/RandomSeed.h"

namespace vak {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

struct Piece {
  std::string text;
  std::int64_t position;  // behind it
  std::int64_t number;    // of its line
  bool operator==(const Piece&) const = default;
};

void PrintTo(const Piece& piece, std::ostream* out) {
  *out << testing::PrintToString(piece.text) << " up to " << piece.position << " in line " << piece.number;
}

File TempFile(std::string_view text) {
  File file(std::tmpfile());
  if (file) {
    std::fwrite(text.data(), 1, text.size(), file.get());
    std::rewind(file.get());
  }
  return file;
}

// Bytes that come in portions of any size, and after which the stream ends or fails.
class DripStream {
 public:
  DripStream(std::string bytes, std::size_t portion, bool fails)
      : bytes_(std::move(bytes)), portion_(portion), fails_(fails) {}

  File Open() {
    File file(fopencookie(this, "r", {.read = &Read, .write = nullptr, .seek = nullptr, .close = nullptr}));
    return file;
  }

 private:
  static ssize_t Read(void* self, char* buffer, size_t size) {
    auto& stream = *static_cast<DripStream*>(self);
    const std::size_t count = std::min({size, stream.portion_, stream.bytes_.size() - stream.at_});
    if (count == 0 && stream.fails_) {
      errno = EIO;
      return -1;
    }
    std::memcpy(buffer, stream.bytes_.data() + stream.at_, count);
    stream.at_ += count;
    return static_cast<ssize_t>(count);
  }

  std::string bytes_;
  std::size_t portion_;
  bool fails_;
  std::size_t at_ = 0;
};

// A text cut by fgets itself. Every byte of the buffer is set before each call, so that what fgets has written tells
// where the piece ends even when the piece holds NULs: the last NUL in the buffer is the one behind it.
std::vector<Piece> CutByFgets(std::FILE* file) {
  std::vector<Piece> pieces;
  std::array<char, 256> buffer;
  std::int64_t number = 1;
  std::int64_t position = 0;
  while (true) {
    buffer.fill('\1');
    if (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file) == nullptr) return pieces;
    const auto last = std::find(buffer.rbegin(), buffer.rend(), '\0');
    const std::string text(buffer.data(), static_cast<std::size_t>(buffer.rend() - last - 1));
    position += static_cast<std::int64_t>(text.size());
    pieces.push_back({text, position, number});
    if (text.back() == '\n') ++number;
  }
}

std::vector<Piece> CutByReader(LineReader& reader) {
  std::vector<Piece> pieces;
  std::string_view line;
  while (reader.Next(line)) pieces.push_back({std::string(line), reader.Position(), reader.LineNumber()});
  return pieces;
}

std::vector<Piece> CutByReader(std::FILE* file, std::size_t blockSize) {
  LineReader reader(file, blockSize);
  return CutByReader(reader);
}

std::string RandomText(std::mt19937_64& rng) {
  std::string text;
  const unsigned lines = static_cast<unsigned>(rng() % 40);
  for (unsigned i = 0; i < lines; ++i) {
    const std::size_t length = rng() % 4 == 0 ? 250 + rng() % 12 : rng() % 8 == 0 ? rng() % 1200 : rng() % 40;
    std::string line(length, 'a');
    for (char& c : line) c = rng() % 30 == 0 ? '\0' : static_cast<char>('a' + rng() % 26);
    text += line;
    if (i + 1 != lines || rng() % 2 == 0) text += rng() % 5 == 0 ? "\r\n" : "\n";
  }
  return text;
}

}  // namespace

static_assert(LineReader::kPadding >= SoundingScanner::kPadding);

TEST(LineReader, NamedTextsAreCutAsFgetsCutsThem) {
  struct Case {
    const char* name;
    std::string text;
    std::size_t pieces;
  };
  const std::string nul(1, '\0');
  const std::vector<Case> cases = {
      {"nothing", "", 0},
      {"one line", "1,2,3\n", 1},
      {"no last newline", "1,2,3\n4,5,6", 2},
      {"newlines alone", "\n\n\n", 3},
      {"carriage returns", "1\r\n2\r3\n", 2},
      {"254 characters and the newline", std::string(254, 'a') + "\nb\n", 2},
      {"255 characters and the newline", std::string(255, 'a') + "\nb\n", 3},
      {"256 characters and the newline", std::string(256, 'a') + "\nb\n", 3},
      {"255 characters at the end", std::string(255, 'a'), 1},
      {"256 characters at the end", std::string(256, 'a'), 2},
      {"510 characters and the newline", std::string(510, 'a') + "\n", 3},
      {"NUL in a line", "a" + nul + "b\nc\n", 2},
      {"NUL alone", nul, 1},
      {"NUL behind the last line", "a\n" + nul, 2},
      {"line of NULs", std::string(300, '\0') + "\n", 2},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const File expected = TempFile(one.text);
    const std::vector<Piece> pieces = CutByFgets(expected.get());
    ASSERT_EQ(pieces.size(), one.pieces);
    for (const std::size_t blockSize : {std::size_t{0}, std::size_t{256}, std::size_t{511}, LineReader::kBlockSize}) {
      const File file = TempFile(one.text);
      EXPECT_EQ(CutByReader(file.get(), blockSize), pieces);
    }
  }
}

TEST(LineReader, RandomTextsAreCutAsFgetsCutsThem) {
  const std::uint64_t seed = RandomSeed();
  std::mt19937_64 rng(seed);
  std::size_t pieces = 0;
  std::size_t cut = 0;
  for (int i = 0; i < 3000; ++i) {
    const std::string text = RandomText(rng);
    DripStream forFgets(text, 1 + rng() % 2000, false);
    DripStream forReader(text, 1 + rng() % 2000, false);
    const std::vector<Piece> expected = CutByFgets(forFgets.Open().get());
    ASSERT_EQ(CutByReader(forReader.Open().get(), 255 + rng() % 600), expected)
        << "rerun with --gtest_random_seed=" << seed;
    pieces += expected.size();
    cut += static_cast<std::size_t>(
        expected.empty() ? 0 : static_cast<std::int64_t>(expected.size()) - expected.back().number);
  }
  EXPECT_GT(pieces, 10'000U);
  EXPECT_GT(cut, 1'000U);
}

TEST(LineReader, PositionIsWhatFtellTellsAfterTheFgets) {
  std::mt19937_64 rng(7);
  const std::string text = RandomText(rng) + "a\n" + RandomText(rng);
  const File byFgets = TempFile(text);
  const File byReader = TempFile(text);
  LineReader reader(byReader.get(), 300);
  EXPECT_EQ(reader.Position(), 0);
  std::array<char, 256> buffer;
  std::string_view line;
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), byFgets.get()) != nullptr) {
    ASSERT_TRUE(reader.Next(line));
    ASSERT_EQ(reader.Position(), ftello(byFgets.get()));
  }
  EXPECT_FALSE(reader.Next(line));
  EXPECT_EQ(reader.Position(), static_cast<std::int64_t>(text.size()));
}

TEST(LineReader, PositionIsRightOnBothSidesOfTwoGibibytes) {
  constexpr std::int64_t kEdge = std::int64_t{1} << 31;
  const std::string text = "1,2,3\n4,5,6\n7,8,9\n";
  const File file(std::tmpfile());
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(fseeko(file.get(), kEdge - 8, SEEK_SET), 0);  // a hole up to here
  ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file.get()), text.size());
  ASSERT_EQ(fseeko(file.get(), kEdge - 8, SEEK_SET), 0);
  LineReader reader(file.get());
  EXPECT_EQ(reader.Size(), kEdge + 10);
  EXPECT_EQ(CutByReader(reader),
            (std::vector<Piece>{{"1,2,3\n", kEdge - 2, 1}, {"4,5,6\n", kEdge + 4, 2}, {"7,8,9\n", kEdge + 10, 3}}));
}

TEST(LineReader, PiecesOfOneLineHaveItsNumber) {
  const File file = TempFile(std::string(600, 'a') + "\nb\n" + std::string(255, 'c') + "\nd");
  LineReader reader(file.get());
  EXPECT_EQ(reader.LineNumber(), 0);
  std::vector<std::int64_t> numbers;
  for (const Piece& piece : CutByReader(reader)) numbers.push_back(piece.number);
  EXPECT_EQ(numbers, (std::vector<std::int64_t>{1, 1, 1, 2, 3, 3, 4}));
}

TEST(LineReader, RewindStartsAgain) {
  const File file = TempFile("1\n2\n3");
  LineReader reader(file.get());
  const std::vector<Piece> first = CutByReader(reader);
  ASSERT_EQ(first.size(), 3U);
  ASSERT_TRUE(reader.Rewind());
  EXPECT_EQ(reader.Position(), 0);
  EXPECT_EQ(reader.LineNumber(), 0);
  EXPECT_EQ(CutByReader(reader), first);
  ASSERT_TRUE(reader.Rewind());
  std::string_view line;
  ASSERT_TRUE(reader.Next(line));  // in the middle of a block
  ASSERT_TRUE(reader.Rewind());
  EXPECT_EQ(CutByReader(reader), first);
}

TEST(LineReader, SizeLeavesTheReadingWhereItIs) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += std::to_string(i) + "\n";
  const File expected = TempFile(text);
  const File file = TempFile(text);
  LineReader reader(file.get(), 256);
  std::vector<Piece> pieces;
  std::string_view line;
  while (reader.Next(line)) {
    pieces.push_back({std::string(line), reader.Position(), reader.LineNumber()});
    ASSERT_EQ(reader.Size(), static_cast<std::int64_t>(text.size()));
  }
  EXPECT_EQ(pieces, CutByFgets(expected.get()));
}

TEST(LineReader, AReadErrorIsToldFromTheEnd) {
  for (const std::string text : {"1\n2\n3\n", "1\n2\nhalf a line", "", "half a line"}) {
    for (const bool fails : {false, true}) {
      SCOPED_TRACE(testing::PrintToString(text) + (fails ? " then an error" : " then the end"));
      DripStream forFgets(text, 4, fails);
      DripStream forReader(text, 4, fails);
      const File byFgets = forFgets.Open();
      const File byReader = forReader.Open();
      LineReader reader(byReader.get());
      EXPECT_FALSE(reader.Failed());
      EXPECT_EQ(CutByReader(reader), CutByFgets(byFgets.get()));
      EXPECT_EQ(reader.Failed(), fails);
      std::string_view line = "unchanged";
      EXPECT_FALSE(reader.Next(line));
      EXPECT_EQ(line, "unchanged");
    }
  }
}

TEST(LineReader, AnErrorBehindAFullPieceComesAfterIt) {
  DripStream stream(std::string(300, 'a'), 4, true);
  const File file = stream.Open();
  LineReader reader(file.get());
  const std::vector<Piece> pieces = CutByReader(reader);
  ASSERT_EQ(pieces.size(), 1U);
  EXPECT_EQ(pieces[0].text.size(), 255U);
  EXPECT_TRUE(reader.Failed());
}

TEST(LineReader, APipeHasNoSizeAndIsNotRewound) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "1\n2\n", 4), 4);
  close(ends[1]);
  const File file(fdopen(ends[0], "r"));
  LineReader reader(file.get());
  EXPECT_EQ(reader.Size(), -1);
  std::string_view line;
  ASSERT_TRUE(reader.Next(line));
  EXPECT_FALSE(reader.Rewind());
  EXPECT_EQ(reader.Position(), 2);
  ASSERT_TRUE(reader.Next(line));
  EXPECT_EQ(line, "2\n");
  EXPECT_FALSE(reader.Next(line));
  EXPECT_FALSE(reader.Failed());
}

// The scanner reads behind the piece: also behind the last one of a full block.
TEST(LineReader, BehindEveryPieceThePaddingIsReadable) {
  std::string text;
  for (int i = 0; i < 400; ++i) text += std::string(static_cast<std::size_t>(i) % 37, '5') + "\n";
  for (std::size_t blockSize = 255; blockSize < 300; ++blockSize) {
    const File file = TempFile(text);
    LineReader reader(file.get(), blockSize);
    std::string_view line;
    unsigned sum = 0;  // the address sanitizer is the judge
    while (reader.Next(line)) {
      for (std::size_t i = 0; i < LineReader::kPadding; ++i) {
        sum += static_cast<unsigned char>(*(line.data() + line.size() + i));
      }
    }
    EXPECT_GT(sum, 0U);
  }
}

}  // namespace vak
