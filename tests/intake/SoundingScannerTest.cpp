#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <locale.h>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/intake/SoundingScanner.h"

#include "support/DecimalComma.h"
#include "support/LongForm.h"
#include "support/RandomSeed.h"

namespace vak {
namespace {

using namespace std::string_view_literals;

constexpr double kUntouched = -123.456e77;

// What may stand behind a line in memory: more of the same, line ends, NULs, what a number could go on with.
const std::vector<std::string> kBehind = {"7",   ",1,2,3\n", "\n",   std::string(1, '\0'), ".5", ".\n", ". ",
                                          "e5 ", " 4 5 6",   "x-nan"};

// A line with something behind it, in memory of its own that ends where the scanner may read no further.
class PaddedLine {
 public:
  PaddedLine(std::string_view line, std::string_view behind) : memory_(line.begin(), line.end()), size_(line.size()) {
    for (std::size_t i = 0; i < SoundingScanner::kPadding; ++i) memory_.push_back(behind[i % behind.size()]);
    memory_.shrink_to_fit();
  }

  const char* Begin() const { return memory_.data(); }
  const char* End() const { return memory_.data() + size_; }

 private:
  std::vector<char> memory_;
  std::size_t size_;
};

ScannedSounding Fresh() { return {kUntouched, kUntouched, kUntouched, -7, {}}; }

ScannedSounding ScanBySscanf(SoundingFormat format, const std::string& line) {
  ScannedSounding sounding = Fresh();
  // NOLINTBEGIN(cert-err34-c): sscanf is the judge here, whatever it makes of a number.
  sounding.fields = format == SoundingFormat::kComma
                        ? std::sscanf(line.c_str(), "%lf,%lf,%lf", &sounding.x, &sounding.y, &sounding.z)
                        : std::sscanf(line.c_str(), "%lf %lf %lf", &sounding.x, &sounding.y, &sounding.z);
  // NOLINTEND(cert-err34-c)
  return sounding;
}

bool SameBits(double a, double b) { return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b); }

std::string Shown(std::string_view line) {
  std::string text;
  for (const char c : line) {
    char code[8];
    std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    text += c >= ' ' && c <= '~' ? std::string(1, c) : std::string(code);
  }
  return '"' + text + '"';
}

// Empty when the scanner agrees with sscanf about the line, else what differs.
std::string Difference(SoundingFormat format, const std::string& line, std::string_view behind) {
  const ScannedSounding expected = ScanBySscanf(format, line);
  const PaddedLine padded(line, behind);
  ScannedSounding actual = Fresh();
  const int fields = SoundingScanner(format).Scan(padded.Begin(), padded.End(), actual);
  const bool marker = std::strstr(line.c_str(), "-nan") != nullptr;
  if (fields == expected.fields && actual.fields == fields && SameBits(actual.x, expected.x) &&
      SameBits(actual.y, expected.y) && SameBits(actual.z, expected.z) && HoldsMarker(actual) == marker) {
    return {};
  }
  char text[256];
  std::snprintf(text, sizeof text, ": %d %a %a %a marker %d, sscanf has %d %a %a %a marker %d", fields, actual.x,
                actual.y, actual.z, HoldsMarker(actual), expected.fields, expected.x, expected.y, expected.z, marker);
  return (format == SoundingFormat::kComma ? "comma format, " : "blank format, ") + Shown(line) + " followed by " +
         Shown(behind) + text;
}

void ExpectAsSscanf(const std::string& line) {
  for (const SoundingFormat format : {SoundingFormat::kComma, SoundingFormat::kBlank}) {
    for (const std::string& behind : kBehind) EXPECT_EQ(Difference(format, line, behind), "");
  }
}

std::string Join(std::initializer_list<std::string_view> parts) {
  std::string joined;
  for (const std::string_view part : parts) joined += part;
  return joined;
}

std::string Repeat(std::size_t count, char c) { return std::string(count, c); }

ScannedSounding Scan(SoundingFormat format, const PaddedLine& line) {
  ScannedSounding sounding = Fresh();
  SoundingScanner(format).Scan(line.Begin(), line.End(), sounding);
  return sounding;
}

}  // namespace

TEST(SoundingScanner, NamedLinesScanAsSscanfScansThem) {
  struct Case {
    const char* name;
    std::string line;
  };
  const std::string nul(1, '\0');
  const std::vector<Case> cases = {
      {"plain", "500012.345,5800123.456,-12.345\n"},
      {"plain with blanks", "500012.345 5800123.456 -12.345\n"},
      {"no newline", "500012.345,5800123.456,-12.345"},
      {"carriage return", "500012.345,5800123.456,-12.345\r\n"},
      {"whole numbers", "1,2,3\n"},
      {"point at the end", "1.,2.,3.\n"},
      {"point at the start", ".5,-.5,.25\n"},
      {"point alone", "1,2,.\n"},
      {"sign and point alone", "1,2,-.\n"},
      {"sign alone", "1,2,-\n"},
      {"two points", "1.5.5.5\n"},
      {"two signs", "1,--2,3\n"},
      {"sign and blank", "1,- 2,3\n"},
      {"plus", "+1,+2.5,+3\n"},
      {"plus and minus", "+-1,2,3\n"},
      {"minus zero", "-0,-0.0,-.0\n"},
      {"no separator but the sign", "1-2-3\n"},
      {"no separator but the plus", "1+2+3\n"},
      {"blank in front of the comma", "1 ,2,3\n"},
      {"blank behind the comma", "1, 2,\t3\n"},
      {"blanks in front", " \t 1,2,3\n"},
      {"vertical tab and form feed", "\v1,\f2,\v3\n"},
      {"vertical tab and form feed as separators", "1\v2\f3\n"},
      {"several blanks", "1   2 \t 3\n"},
      {"line ends as separators", "1\n2\r\n3\n"},
      {"mixed separators", "1,2 3\n"},
      {"mixed the other way", "1 2,3\n"},
      {"empty field", "1,,3\n"},
      {"two numbers", "1,2\n"},
      {"two numbers and a comma", "1,2,\n"},
      {"one number", "1\n"},
      {"more columns", "1,2,3,4,5\n"},
      {"more columns with blanks", "1 2 3 4 text\n"},
      {"text behind z", "1,2,3abc\n"},
      {"blank line", "\n"},
      {"nothing", ""},
      {"blanks alone", "   \t\r\n"},
      {"heading", "# X,Y,Z\n"},
      {"semicolons", "1;2;3\n"},
      {"hexadecimal", "0x10,0X1F,0x.8\n"},
      {"hexadecimal with exponent", "0x1p-3,0x1.8P4,0x1p\n"},
      {"hexadecimal without digits", "1,2,0x\n"},
      {"zero and an x far off", "0 x,0,0 x\n"},
      {"exponents", "1e5,-2.5E-3,3e+2\n"},
      {"exponent without digits", "1e,2,3\n"},
      {"exponent without digits at the end", "1,2,3e\n"},
      {"exponent with a sign alone", "1,2,3e+\n"},
      {"too large", "1e999,-1e999,1e308\n"},
      {"too small", "1e-999,-1e-999,1e-320\n"},
      {"exponent beyond all integers", "1e99999999999999999999,2,3e-99999999999999999999\n"},
      {"subnormal", "4.9e-324,2.2250738585072011e-308,-2.4e-324\n"},
      {"largest", "1.7976931348623157e308,1.7976931348623158e308,1.7976931348623159e308\n"},
      {"infinity", "inf,-inf,+INFINITY\n"},
      {"infinity cut short", "1,2,infinit\n"},
      {"not a number", "nan,-nan,NaN\n"},
      {"not a number with a text", "nan(123),-nan(0x7),nan()\n"},
      {"not a number with a broken text", "1,2,nan(a b)\n"},
      {"marker as z", "1.0,2.0,-nan\n"},
      {"marker as z with blanks", "1.0 2.0 -nan\n"},
      {"marker behind z", "1,2,3 -nan\n"},
      {"marker right behind z", "1,2,3-nan\n"},
      {"marker as x", "-nan,2,3\n"},
      {"half a marker", "1,2,3 -na\n"},
      {"NUL in front", Join({nul, "1,2,3\n"})},
      {"NUL behind x", Join({"1", nul, ",2,3\n"})},
      {"NUL in z", Join({"1,2,3", nul, "4\n"})},
      {"NUL behind z", Join({"1,2,3 ", nul, "-nan\n"})},
      {"NUL behind the marker", Join({"1,2,3 -nan", nul, "\n"})},
      {"NUL in the marker", Join({"1,2,3 -n", nul, "an\n"})},
      {"bytes above ASCII", "1,2,3\xB5\n"},
      {"bytes above ASCII as separators",
       "1\xA0"
       "2\xFF"
       "3\n"},
      {"fifteen digits", "123456789.012345,0.000000000000001,-99999999.9999999\n"},
      {"sixteen digits", "12345678.12345678,90071992.54740993,99999999.99999999\n"},
      {"largest exact integer and its neighbours", "9007199254740991,9007199254740992,9007199254740993\n"},
      {"largest exact integer and its neighbours, with point",
       "90071992.54740991,90071992.54740992,90071992.54740993\n"},
      {"seventeen digits", "500012.34567890123,5800123.4567890123,-12.345678901234567\n"},
      {"many leading zeros", "000000000000000000000001.5,-00000000000000000000,00.50\n"},
      {"many trailing zeros", "1.50000000000000000000000000000000,2.000000000000000000,3\n"},
      {"halfway between two doubles", "1.00000000000000011102230246251565404236316680908203125,1,1\n"},
      {"just above halfway", "1.00000000000000011102230246251565404236316680908203126,1,1\n"},
      {"eight and nine digits", "12345678.87654321,123456789.987654321,1.123456789\n"},
      {"scientific columns", "5.000123449999999721e+05 5.800123456000000238e+06 -1.234500000000000064e+01\n"},
      {"huge whole number", Join({Repeat(400, '9'), ",1,2\n"})},
      {"huge fraction", Join({"0.", Repeat(400, '0'), "1,1,2\n"})},
      {"long line", Join({"1,2,3,", Repeat(1000, 'a'), "-nan\n"})},
      {"blanks up to the longest line", Join({Repeat(250, ' '), "1,2,3"})},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    ExpectAsSscanf(one.line);
  }
}

TEST(SoundingScanner, EveryCutOfALineScansAsSscanfScansIt) {
  for (const std::string line : {"500012.345,5800123.456,-12.345,7\r\n", "  0.5 \t+17.25 -1.25e-03 -nan\r\n",
                                 "-116.12345678901234,32.123456789012345,-4321.12345678901234567890\n"}) {
    for (std::size_t length = 0; length <= line.size(); ++length) ExpectAsSscanf(line.substr(0, length));
  }
}

// The seam of the first way to read a line, and of the block of bytes that it looks at.
TEST(SoundingScanner, NumbersAtAnyDistanceFromTheLinesStartScanAsSscanfScansThem) {
  for (const std::string numbers :
       {"1,2,3\n", "1.5,-2.5,-3.25", "123.456 789.012 -345.678\r\n", "1,2,.5\n", "1 -2 -.\n"}) {
    for (std::size_t blanks = 0; blanks < 80; ++blanks) {
      ExpectAsSscanf(std::string(blanks, ' ') + numbers);
      ExpectAsSscanf(std::string(blanks, '0') + numbers);
    }
  }
}

TEST(SoundingScanner, EveryByteInAnyPlaceScansAsSscanfScansIt) {
  const std::string line = "-12.5,+7.25 .5\n";
  for (std::size_t at = 0; at < line.size(); ++at) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = line;
      changed[at] = static_cast<char>(byte);
      ASSERT_EQ(Difference(SoundingFormat::kComma, changed, "7"), "");
      ASSERT_EQ(Difference(SoundingFormat::kBlank, changed, "7"), "");
    }
  }
}

TEST(SoundingScanner, DecimalsOfAllLengthsAreRoundedAsSscanfRoundsThem) {
  const std::uint64_t seed = RandomSeed();
  std::mt19937_64 rng(seed);
  for (unsigned whole = 0; whole <= 20; ++whole) {
    for (unsigned decimals = 0; decimals <= 20; ++decimals) {
      for (int repeat = 0; repeat < 20; ++repeat) {
        std::string line;
        for (int field = 0; field < 3; ++field) {
          line += (rng() & 1) != 0 ? "-" : "";
          for (unsigned i = 0; i < whole; ++i) line += static_cast<char>('0' + rng() % 10);
          if (decimals != 0 || repeat % 2 != 0) line += '.';
          for (unsigned i = 0; i < decimals; ++i) line += static_cast<char>('0' + rng() % 10);
          line += field == 2 ? '\n' : ',';
        }
        ASSERT_EQ(Difference(SoundingFormat::kComma, line, "7"), "") << "rerun with --gtest_random_seed=" << seed;
      }
    }
  }
}

namespace {

// Lines made of what numbers and separators are made of, mostly well formed.
class LineMaker {
 public:
  explicit LineMaker(std::uint64_t seed) : rng_(seed) {}

  std::string Line() {
    std::string line = Sometimes(8) ? Blanks() : std::string();
    const unsigned fields = Sometimes(10) ? Below(5) : 3;
    const bool comma = Sometimes(2);
    for (unsigned i = 0; i < fields; ++i) {
      if (i != 0) line += Separator(comma);
      line += Number();
    }
    if (Sometimes(4)) line += Tail();
    if (Sometimes(6)) Damage(line);
    if (!Sometimes(5)) line += Sometimes(3) ? "\r\n" : "\n";
    return line;
  }

  const std::string& OneOf(const std::vector<std::string>& texts) { return texts[Below(texts.size())]; }

 private:
  unsigned Below(std::size_t count) { return static_cast<unsigned>(rng_() % count); }
  bool Sometimes(unsigned oneIn) { return Below(oneIn) == 0; }

  std::string Digits(unsigned most) {
    std::string digits(Below(most + 1), '0');
    for (char& digit : digits) digit = static_cast<char>('0' + Below(10));
    return digits;
  }

  std::string Number() {
    static const std::vector<std::string> nasty = {
        "inf", "-inf", "nan",  "-nan", "nan(7)", "infinity", "infinit", "0x1p-3", "0x",   "0X.8",  "1e999",   "1e-999",
        "1e",  "1e+",  "1e-5", ".",    "-",      "+",        "-.",      "",       "-0.0", "1.5.5", "4.9e-324"};
    if (Sometimes(12)) return OneOf(nasty);
    std::string number = Sometimes(3) ? "-" : Sometimes(10) ? "+" : "";
    number += Digits(Sometimes(10) ? 25 : 8);
    if (!Sometimes(5)) number += "." + Digits(Sometimes(10) ? 25 : Sometimes(3) ? 12 : 4);
    if (Sometimes(12)) number += (Sometimes(2) ? "e" : "E-") + Digits(3);
    return number;
  }

  std::string Blanks() {
    static const std::vector<std::string> blanks = {" ", "\t", "  ", "\v", "\f", "\r", " \t ", "\n"};
    return OneOf(blanks);
  }

  std::string Separator(bool comma) {
    static const std::vector<std::string> nasty = {" ,", ", ", ",,", ";", "", " , ", ",\t", std::string(1, '\0')};
    if (Sometimes(12)) return OneOf(nasty);
    return comma ? "," : Sometimes(4) ? Blanks() : " ";
  }

  std::string Tail() {
    static const std::vector<std::string> tails = {",4", " 4", " -nan", "-nan", "abc", ".",
                                                   "e5", " ",  ",",     "x1",   "\xB5"};
    return OneOf(tails);
  }

  void Damage(std::string& line) {
    static const std::string_view bytes = "0123456789.,+-eExXpPnaNif() \t\v\f\r\n\0\x80\xFF/:;'\""sv;
    if (!line.empty()) line[Below(line.size())] = bytes[Below(bytes.size())];
  }

  std::mt19937_64 rng_;
};

}  // namespace

TEST(SoundingScanner, RandomLinesScanAsSscanfScansThem) {
  const std::uint64_t seed = RandomSeed();
  const int lines = LongForm(400'000, 10'000'000, 80'000);
  LineMaker maker(seed);
  int soundings = 0;
  int plain = 0;
  int marked = 0;
  for (int i = 0; i < lines; ++i) {
    const std::string line = maker.Line();
    const std::string& behind = maker.OneOf(kBehind);
    for (const SoundingFormat format : {SoundingFormat::kComma, SoundingFormat::kBlank}) {
      ASSERT_EQ(Difference(format, line, behind), "") << "rerun with --gtest_random_seed=" << seed;
    }
    const PaddedLine padded(line, behind);
    const ScannedSounding sounding = Scan(SoundingFormat::kComma, padded);
    soundings += sounding.fields == 3 ? 1 : 0;
    plain += sounding.RestIsEmpty() ? 1 : 0;
    marked += HoldsMarker(sounding) ? 1 : 0;
  }
  // The run met what it is for.
  EXPECT_GT(soundings, lines / 10);
  EXPECT_GT(plain, lines / 20);
  EXPECT_GT(soundings - plain, lines / 100);
  EXPECT_GT(marked, lines / 100);
}

TEST(SoundingScanner, RestIsEmptyOnlyWhereNothingButTheLinesEndFollowsThreePlainNumbers) {
  struct Case {
    const char* name;
    std::string line;
    bool empty;
  };
  const std::vector<Case> cases = {
      {"newline", "1.5,2.5,3.5\n", true},       {"carriage return", "1.5,2.5,3.5\r\n", true},
      {"no line end", "1.5,2.5,3.5", true},     {"exponents", "1e3,2e3,3e-3\n", true},
      {"blank", "1.5,2.5,3.5 \n", false},       {"comma", "1.5,2.5,3.5,\n", false},
      {"marker", "1.5,2.5,3.5 -nan\n", false},  {"NUL", std::string("1.5,2.5,3.5\0\n", 13), false},
      {"two numbers", "1.5,2.5\n", false},      {"nothing", "", false},
      {"marker as z", "1.5,2.5,-nan\n", false},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    for (const std::string& behind : kBehind) {
      const PaddedLine padded(one.line, behind);
      EXPECT_EQ(Scan(SoundingFormat::kComma, padded).RestIsEmpty(), one.empty);
    }
  }
}

TEST(SoundingScanner, NumbersNotConvertedKeepTheirValue) {
  const PaddedLine padded("7,8;9\n", "7");
  ScannedSounding sounding{1.0, 2.0, 3.0, 3, {}};
  EXPECT_EQ(SoundingScanner(SoundingFormat::kComma).Scan(padded.Begin(), padded.End(), sounding), 2);
  EXPECT_EQ(sounding.x, 7.0);
  EXPECT_EQ(sounding.y, 8.0);
  EXPECT_EQ(sounding.z, 3.0);
}

TEST(SoundingScanner, TheCallingThreadsLocaleIsGivenBack) {
  const locale_t own = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
  ASSERT_NE(own, nullptr);
  const locale_t before = uselocale(own);
  const PaddedLine padded("0x10,inf,-nan\n", "7");
  EXPECT_EQ(Scan(SoundingFormat::kComma, padded).fields, 3);
  EXPECT_EQ(uselocale(before), own);
  freelocale(own);
}

TEST(SoundingScanner, ADecimalCommaInTheProcessLocaleChangesNothing) {
  const test::DecimalComma locale;
  ASSERT_TRUE(locale.Set());
  double number = 0.0;
  ASSERT_EQ(std::sscanf("1,5", "%lf", &number), 1);  // NOLINT(cert-err34-c): shows that the locale is in force
  ASSERT_EQ(number, 1.5);
  for (const char* line : {"1.5,2.5,3.25\n", "1.5e0,+2.5,3.25\n", "0x1.8p0,+2.5,3.25\n"}) {
    SCOPED_TRACE(line);
    const PaddedLine padded(line, "7");
    const ScannedSounding sounding = Scan(SoundingFormat::kComma, padded);
    EXPECT_EQ(sounding.fields, 3);
    EXPECT_EQ(sounding.x, 1.5);
    EXPECT_EQ(sounding.y, 2.5);
    EXPECT_EQ(sounding.z, 3.25);
  }
}

}  // namespace vak
