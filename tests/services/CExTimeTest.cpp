#include <cmath>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "vakdtm/services/text/CExTime.h"

namespace vak {
namespace {

/// The local time zone of a scope. For a program with one thread.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    if (const char* const before = std::getenv("TZ")) before_ = before;
    setenv("TZ", zone, 1);
  }
  ~ScopedTimeZone() {
    if (before_.empty()) {
      unsetenv("TZ");
    } else {
      setenv("TZ", before_.c_str(), 1);
    }
    tzset();
  }
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

 private:
  std::string before_;
};

TEST(CExTime, DateAndTimeOfTheLocalZone) {
  const double summer = 1435926896.0 * 1000.0;  // 2015-07-03 12:34:56 UTC
  {
    const ScopedTimeZone utc("UTC0");
    EXPECT_EQ(CExTime::TimeToString(summer, false, true, true), L"2015-07-03 12:34:56");
    EXPECT_EQ(CExTime::TimeToString(0, false, true, true), L"1970-01-01 00:00:00");
  }
  {
    const ScopedTimeZone berlin("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(CExTime::TimeToString(summer, false, true, true), L"2015-07-03 14:34:56");
    EXPECT_EQ(CExTime::TimeToString(1420070400.0 * 1000.0, false, true, true), L"2015-01-01 01:00:00");
  }
  const ScopedTimeZone west("XST8");
  EXPECT_EQ(CExTime::TimeToString(0, false, true, true), L"1969-12-31 16:00:00");
}

TEST(CExTime, PartsCanBeLeftOut) {
  const ScopedTimeZone utc("UTC0");
  const double time = 1435926896789.0;
  EXPECT_EQ(CExTime::TimeToString(time, true, true, true), L"2015-07-03 12:34:56.789");
  EXPECT_EQ(CExTime::TimeToString(time, true, false, true), L"12:34:56.789");
  EXPECT_EQ(CExTime::TimeToString(time, false, false, true), L"12:34:56");
  EXPECT_EQ(CExTime::TimeToString(time, true, true, false), L"2015-07-03");
  EXPECT_EQ(CExTime::TimeToString(time, true, false, false), L"");
}

TEST(CExTime, FractionsAreCutNotRounded) {
  const ScopedTimeZone utc("UTC0");
  EXPECT_EQ(CExTime::TimeToString(999.999, false, true, true), L"1970-01-01 00:00:00");
  EXPECT_EQ(CExTime::TimeToString(999.999, true, false, true), L"00:00:00.999");
  EXPECT_EQ(CExTime::TimeToString(-1, true, true, true), L"1969-12-31 23:59:59.999");
}

TEST(CExTime, TimesBeyondTheCalendarHaveNoText) {
  const ScopedTimeZone utc("UTC0");
  EXPECT_EQ(CExTime::TimeToString(253402300799.0 * 1000.0, false, true, true), L"9999-12-31 23:59:59");
  EXPECT_EQ(CExTime::TimeToString(253402300800.0 * 1000.0, false, true, true), L"");
  EXPECT_EQ(CExTime::TimeToString(-62135596800.0 * 1000.0, false, true, true), L"0001-01-01 00:00:00");
  EXPECT_EQ(CExTime::TimeToString(-62135596801.0 * 1000.0, false, true, true), L"");
  EXPECT_EQ(CExTime::TimeToString(1e300, false, true, true), L"");
  EXPECT_EQ(CExTime::TimeToString(-1e18, false, true, true), L"");
  EXPECT_EQ(CExTime::TimeToString(std::numeric_limits<double>::infinity(), false, true, true), L"");
  EXPECT_EQ(CExTime::TimeToString(std::nan(""), false, true, true), L"");
}

}  // namespace
}  // namespace vak
