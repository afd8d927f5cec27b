#include <bit>
#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "vakdtm/intake/DatedSoundingScanner.h"

#include "support/LongForm.h"
#include "support/RandomSeed.h"

namespace vak {
namespace {

struct Scanned {
  int fields = -7;
  double numbers[3] = {-1, -2, -3};
  int date[3] = {41, 42, 43};
};

Scanned BySscanf(const DatedFormat& format, const std::string& line) {
  Scanned s;
  double* const n = s.numbers;
  int* const d = s.date;
  // NOLINTBEGIN(cert-err34-c): sscanf is the judge here, whatever it makes of a number.
  if (format.columns == SoundingFormat::kComma) {
    s.fields = format.dated
                   ? std::sscanf(line.c_str(), "%lf,%lf,%lf,%2d-%2d-%4d", &n[0], &n[1], &n[2], &d[0], &d[1], &d[2])
                   : std::sscanf(line.c_str(), "%lf,%lf,%lf", &n[0], &n[1], &n[2]);
  } else {
    s.fields = format.dated
                   ? std::sscanf(line.c_str(), "%lf %lf %lf %2d-%2d-%4d", &n[0], &n[1], &n[2], &d[0], &d[1], &d[2])
                   : std::sscanf(line.c_str(), "%lf %lf %lf", &n[0], &n[1], &n[2]);
  }
  // NOLINTEND(cert-err34-c)
  return s;
}

Scanned ByScanner(const DatedFormat& format, const std::string& line) {
  const std::string padded = line + "7-7-77" + std::string(DatedSoundingScanner::kPadding, '7');
  ScannedSounding sounding{-1, -2, -3, -7, {}, nullptr};
  ScannedDate date{41, 42, 43};
  const int fields = DatedSoundingScanner(format).Scan(padded.data(), padded.data() + line.size(), sounding, date);
  return {fields, {sounding.x, sounding.y, sounding.z}, {date.day, date.month, date.year}};
}

void ExpectAsSscanf(const std::string& line) {
  SCOPED_TRACE('"' + line + '"');
  for (const SoundingFormat columns : {SoundingFormat::kComma, SoundingFormat::kBlank}) {
    for (const bool dated : {true, false}) {
      const DatedFormat format{columns, dated};
      const Scanned expected = BySscanf(format, line);
      const Scanned actual = ByScanner(format, line);
      ASSERT_EQ(actual.fields, expected.fields);
      for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(std::bit_cast<std::uint64_t>(actual.numbers[i]), std::bit_cast<std::uint64_t>(expected.numbers[i]));
        ASSERT_EQ(actual.date[i], expected.date[i]);
      }
    }
  }
}

TEST(DatedSoundingScanner, ReadsDayMonthAndYear) {
  const struct {
    const char* line;
    SoundingFormat columns;
  } cases[] = {
      {"1.5,2.5,-3,03-07-2015\r\n", SoundingFormat::kComma},
      {"1.5,2.5,-3,3-7-2015", SoundingFormat::kComma},
      {"1.5, 2.5, -3, 03-07-2015 17:00\n", SoundingFormat::kComma},
      {"1.5 2.5 -3 03-07-2015\n", SoundingFormat::kBlank},
      {"1.5\t2.5\t-3\t3- 7- 2015", SoundingFormat::kBlank},
      {"1.5 2.5 -3.0e0 +3-+7-2015x", SoundingFormat::kBlank},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    const Scanned s = ByScanner({c.columns, true}, c.line);
    EXPECT_EQ(s.fields, 6);
    EXPECT_EQ(s.numbers[2], -3.0);
    EXPECT_EQ(s.date[0], 3);
    EXPECT_EQ(s.date[1], 7);
    EXPECT_EQ(s.date[2], 2015);
  }
}

TEST(DatedSoundingScanner, AgreesWithSscanfAboutOddDates) {
  for (const char* line : {"1,2,3,2015-07-03",
                           "1,2,3,123-4-5",
                           "1,2,3,-3-7-2015",
                           "1,2,3,--7-2015",
                           "1,2,3,3 -7-2015",
                           "1,2,3,3-7 -2015",
                           "1,2,3 ,3-7-2015",
                           "1,2,3,\v3-\f7-\r2015",
                           "1,2,3,3-7-20155",
                           "1,2,3,3-7--201",
                           "1,2,3,3-7-+2015",
                           "1,2,3,3-7-",
                           "1,2,3,3-",
                           "1,2,3,",
                           "1,2,3",
                           "1,2,",
                           "",
                           "1 2 3-4-5-2015",
                           "1 2 3 -4-5-2015",
                           "1 2 3.-4-5-2015",
                           "1 2 0x3 4-5-2015",
                           "1 2 nan4-5-2015",
                           "1 2 inf 4-5-2015",
                           "1,2,3,+",
                           "1,2,3,-",
                           "1,2,3,+-3-7-2015",
                           "1,2,1.#QNAN,3-7-2015",
                           "1 2 1.#QNAN 3-7-2015",
                           "1e400,2,3,0x-7-2015",
                           "1,2,3,03-07-2015,4"}) {
    ExpectAsSscanf(line);
  }
}

TEST(DatedSoundingScanner, AgreesWithSscanfAboutRandomLines) {
  std::mt19937 random(RandomSeed());
  const std::vector<std::string> parts = {"1", "23", "4.5",  "-6", "+7", ",",   ",", ",",  " ",  " ",     "-",
                                          "-", "-",  "2015", "03", "e1", "nan", "x", "\t", "\n", "#QNAN", "."};
  int dated = 0;
  for (int i = 0; i < LongForm(20000, 2000000); ++i) {
    // Half of them begin like a line that may go on with a date.
    std::string line = i % 4 == 0 ? "1,2.5,-3" : i % 4 == 1 ? "1 2.5 -3" : "";
    if (i % 8 == 0) line += ',';
    for (auto n = random() % 9; n > 0; --n) line += parts[random() % parts.size()];
    ExpectAsSscanf(line);
    if (testing::Test::HasFatalFailure()) return;
    dated += BySscanf({SoundingFormat::kBlank, true}, line).fields > 3 ? 1 : 0;
  }
  EXPECT_GT(dated, 500);
}

}  // namespace
}  // namespace vak
