#include <gtest/gtest.h>
#include <random>
#include <string>

#include "vakdtm/services/text/Utf8.h"

#include "support/RandomSeed.h"

namespace vak {
namespace {

TEST(Utf8, WideTextAndItsBytes) {
  const struct {
    const char* name;
    std::wstring text;
    std::string bytes;
  } kCases[] = {
      {"empty", L"", ""},
      {"plain", L"dtm/a b.dtm", "dtm/a b.dtm"},
      {"nul inside", std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
      {"last of one byte", L"\x7F", "\x7F"},
      {"first of two bytes", L"\x80", "\xC2\x80"},
      {"last of two bytes", L"\x7FF", "\xDF\xBF"},
      {"first of three bytes", L"\x800", "\xE0\xA0\x80"},
      {"before the surrogates", L"\xD7FF", "\xED\x9F\xBF"},
      {"behind the surrogates", L"\xE000", "\xEE\x80\x80"},
      {"last of three bytes", L"\xFFFF", "\xEF\xBF\xBF"},
      {"first of four bytes", L"\x10000", "\xF0\x90\x80\x80"},
      {"last of all", L"\x10FFFF", "\xF4\x8F\xBF\xBF"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ToUtf8(c.text), c.bytes);
    EXPECT_EQ(FromUtf8(c.bytes), c.text);
  }
}

TEST(Utf8, InvalidBytesBecomeEscapesOneByOne) {
  const struct {
    const char* name;
    std::string bytes;
    std::wstring text;
  } kCases[] = {
      {"Latin-1 letter", "m\xFCll", L"m\xDCFCll"},
      {"continuation alone", "\x80", L"\xDC80"},
      {"cut off", "\xE2\x82", L"\xDCE2\xDC82"},
      {"cut off by a letter",
       "\xE2"
       "a",
       L"\xDCE2"
       L"a"},
      {"overlong slash", "\xC0\xAF", L"\xDCC0\xDCAF"},
      {"overlong of three", "\xE0\x9F\xBF", L"\xDCE0\xDC9F\xDCBF"},
      {"overlong of four", "\xF0\x8F\xBF\xBF", L"\xDCF0\xDC8F\xDCBF\xDCBF"},
      {"an escape written out", "\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},
      {"above the last", "\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},
      {"no lead byte", "\xFF", L"\xDCFF"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(FromUtf8(c.bytes), c.text);
    EXPECT_EQ(ToUtf8(c.text), c.bytes);
  }
}

TEST(Utf8, AnyBytesComeBack) {
  const std::uint32_t seed = RandomSeed();
  SCOPED_TRACE("rerun with --gtest_random_seed=" + std::to_string(seed));
  std::mt19937 rng(seed);
  // Leads and continuations more often than evenly spread bytes would have them, so that sequences come about.
  const std::string kLikely =
      "\xC2\xE0\xE2\xED\xF0\xF4\x80\x82\xA0\xBF\x90"
      "a";
  for (int run = 0; run < 20000; ++run) {
    std::string bytes;
    for (unsigned i = rng() % 8; i > 0; --i) {
      bytes += rng() % 2 ? kLikely[rng() % kLikely.size()] : static_cast<char>(static_cast<unsigned char>(rng() % 256));
    }
    ASSERT_EQ(ToUtf8(FromUtf8(bytes)), bytes);
  }
}

TEST(Utf8, WhatIsNoCodePointBecomesTheReplacementCharacter) {
  EXPECT_EQ(ToUtf8(L"\xD800"), "\xEF\xBF\xBD");
  EXPECT_EQ(ToUtf8(L"\xDC7F"), "\xEF\xBF\xBD");
  EXPECT_EQ(ToUtf8(L"\xDD00"), "\xEF\xBF\xBD");
  EXPECT_EQ(ToUtf8(std::wstring(1, static_cast<wchar_t>(0x110000))), "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace vak
