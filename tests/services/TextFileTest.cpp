#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "vakdtm/services/files/TextFile.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/FaultyText.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

using namespace std::string_literals;

struct Piece {
  std::wstring text;
  std::int64_t line;
  std::int64_t position;
  bool operator==(const Piece&) const = default;
};

void PrintTo(const Piece& piece, std::ostream* out) {
  *out << '"' << ToUtf8(piece.text) << "\" of line " << piece.line << " up to " << piece.position;
}

std::vector<Piece> PiecesOf(TextFile& file, std::size_t bufferSize) {
  std::vector<Piece> pieces;
  std::vector<wchar_t> buffer(bufferSize);
  while (file.ReadLine(buffer.data(), buffer.size())) {
    pieces.push_back({buffer.data(), file.LineNumber(), file.GetPosition()});
  }
  return pieces;
}

std::string Utf16(const std::u16string& text, bool bigEndian) {
  std::string bytes;
  for (const char16_t unit : text) {
    const char low = static_cast<char>(unit & 0xFF);
    const char high = static_cast<char>(unit >> 8);
    bytes += bigEndian ? high : low;
    bytes += bigEndian ? low : high;
  }
  return bytes;
}

struct TextFileTest : testing::Test {
  TextFile Of(const std::string& bytes) const {
    return TextFile(std::fopen(folder.Write("a.txt", bytes).c_str(), "rb"));
  }
  TestFolder folder;
};

TEST_F(TextFileTest, LinesComeAsWideTextWhateverTheEncoding) {
  const std::u16string text =
      u"\xFEFF"
      "a\xE4\x20AC\n\xD83D\xDE00 b\r\nlast";
  const std::vector<std::wstring> lines = {L"a\xE4\x20AC\n", L"\x1F600 b\r\n", L"last"};
  const struct {
    const char* name;
    std::string bytes;
    std::vector<std::int64_t> positions;
  } cases[] = {
      {"UTF-8", "a\xC3\xA4\xE2\x82\xAC\n\xF0\x9F\x98\x80 b\r\nlast", {7, 15, 19}},
      {"UTF-8 with a mark",
       "\xEF\xBB\xBF"
       "a\xC3\xA4\xE2\x82\xAC\n\xF0\x9F\x98\x80 b\r\nlast",
       {10, 18, 22}},
      {"UTF-16, low byte first", Utf16(text, false), {10, 22, 30}},
      {"UTF-16, high byte first", Utf16(text, true), {10, 22, 30}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TextFile file = Of(c.bytes);
    for (int round = 0; round < 2; ++round) {
      const std::vector<Piece> pieces = PiecesOf(file, 256);
      ASSERT_EQ(pieces.size(), lines.size());
      for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(pieces[i], (Piece{lines[i], static_cast<std::int64_t>(i) + 1, c.positions[i]}));
      }
      ASSERT_TRUE(file.SeekToBegin());
    }
  }
}

TEST_F(TextFileTest, LongLineComesInPiecesOfThatManyCharacters) {
  TextFile file =
      Of("\xC3\xA4\xC3\xB6\xC3\xBC"
         "abc\nx\n"
         "1234\n"
         "12345");
  const std::vector<Piece> pieces = {{L"\xE4\xF6\xFC"
                                      L"a",
                                      1, 7},
                                     {L"bc\n", 1, 10},
                                     {L"x\n", 2, 12},
                                     {L"1234", 3, 16},
                                     {L"\n", 3, 17},
                                     {L"1234", 4, 21},
                                     {L"5", 4, 22}};
  EXPECT_EQ(PiecesOf(file, 5), pieces);
}

TEST_F(TextFileTest, LinesAndPairsAcrossBlocksStayWhole) {
  std::u16string text = u"\xFEFF";
  std::wstring wide;
  // Three units a character pair and its neighbour, so that pairs and blocks fall on one another in every way.
  for (int i = 0; i < 300000; ++i) {
    text += i % 100 == 99 ? u"\n" : u"\xD83D\xDE00x";
    wide += i % 100 == 99 ? L"\n" : L"\x1F600x";
  }
  for (const bool utf16 : {true, false}) {
    TextFile file = Of(utf16 ? Utf16(text, false) : ToUtf8(wide));
    std::wstring seen;
    std::vector<wchar_t> buffer(256);
    while (file.ReadLine(buffer.data(), buffer.size())) seen += buffer.data();
    EXPECT_TRUE(seen == wide);
    EXPECT_EQ(file.LineNumber(), 3000);
    EXPECT_EQ(file.GetPosition(),
              utf16 ? static_cast<std::int64_t>(2 * text.size()) : static_cast<std::int64_t>(ToUtf8(wide).size()));
  }
}

TEST_F(TextFileTest, PairThatABlockEndsWithinStaysWhole) {
  // Blocks have 131072 units; that many and one, the mark among them, stand before the second half of the pair.
  constexpr std::size_t kUnits = 131072;
  for (const std::size_t before : {kUnits - 2, kUnits - 1, kUnits}) {
    for (const bool bigEndian : {false, true}) {
      SCOPED_TRACE(std::to_string(before) + (bigEndian ? " high byte first" : " low byte first"));
      std::u16string text = u"\xFEFF";
      while (text.size() < before) text += text.size() % 100 == 0 ? u'\n' : u'x';
      TextFile file = Of(Utf16(text + u"\xD83D\xDE00!", bigEndian));
      const std::vector<Piece> pieces = PiecesOf(file, 256);
      const std::size_t lineBreak = text.rfind(u'\n');
      EXPECT_EQ(pieces.back().text, std::wstring(before - lineBreak - 1, L'x') + L"\x1F600!");
      EXPECT_EQ(file.GetPosition(), static_cast<std::int64_t>(2 * (before + 3)));
    }
  }
}

TEST_F(TextFileTest, ErrorIsForgottenAtTheStart) {
  FaultyText text("one\ntwo\n");
  text.failsAt = 6;
  text.failsOnce = true;
  TextFile file(text.Open());
  EXPECT_EQ(PiecesOf(file, 16), (std::vector<Piece>{{L"one\n", 1, 4}}));
  EXPECT_TRUE(file.Failed());
  ASSERT_TRUE(file.SeekToBegin());
  EXPECT_FALSE(file.Failed());
  EXPECT_EQ(PiecesOf(file, 16), (std::vector<Piece>{{L"one\n", 1, 4}, {L"two\n", 2, 8}}));
  EXPECT_FALSE(file.Failed());
}

TEST_F(TextFileTest, EndIsWhereTheBytesEnd) {
  TextFile file = Of("one\ntwo\n");
  ASSERT_TRUE(file.SeekToEnd());
  EXPECT_EQ(file.GetPosition(), 8);
  wchar_t buffer[16];
  EXPECT_FALSE(file.ReadLine(buffer, 16));
  ASSERT_TRUE(file.SeekToBegin());
  EXPECT_EQ(file.GetPosition(), 0);
  EXPECT_TRUE(file.ReadLine(buffer, 16));
  EXPECT_EQ(buffer, L"one\n"s);
}

TEST_F(TextFileTest, WhatCannotBeReadGivesNoLine) {
  wchar_t buffer[16] = L"before";
  TextFile nothing(TextFile::Open(folder.WideFile("nowhere.txt")));
  EXPECT_FALSE(nothing.IsOpen());
  EXPECT_FALSE(nothing.SeekToBegin());
  EXPECT_FALSE(nothing.SeekToEnd());
  EXPECT_FALSE(nothing.ReadLine(buffer, 16));
  TextFile asFolder(std::fopen(folder.Path().c_str(), "rb"));
  EXPECT_FALSE(asFolder.ReadLine(buffer, 16));
  EXPECT_TRUE(asFolder.Failed());
  TextFile onlyAMark = Of("\xEF\xBB\xBF");
  EXPECT_FALSE(onlyAMark.ReadLine(buffer, 16));
  EXPECT_FALSE(onlyAMark.Failed());
  TextFile some = Of("text");
  EXPECT_FALSE(some.ReadLine(buffer, 1));
  EXPECT_EQ(buffer, L"before"s);
}

TEST_F(TextFileTest, BytesOfNoEncodingComeThrough) {
  TextFile file = Of("caf\xE9 \xC0\x80\n");
  const std::vector<Piece> pieces = {{L"caf\xDCE9 \xDCC0\xDC80\n", 1, 8}};
  EXPECT_EQ(PiecesOf(file, 256), pieces);
  TextFile halves = Of(Utf16(u"\xFEFF\xD83D"
                             "a\xDE00\n\xD83D",
                             false) +
                       "x");
  EXPECT_EQ(PiecesOf(halves, 256)[0].text,
            L"\xFFFD"
            L"a\xFFFD\n");
  ASSERT_TRUE(halves.SeekToBegin());
  EXPECT_EQ(PiecesOf(halves, 256)[1].text, L"\xFFFD");
}

}  // namespace
}  // namespace vak::test
