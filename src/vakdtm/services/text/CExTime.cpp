#include "vakdtm/services/text/CExTime.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string>

namespace vak {
namespace {

// Far beyond the years that are shown, and well inside the range of a time_t.
constexpr double kMostSeconds = 1e12;

bool LocalTime(double seconds, std::tm& local) {
  tzset();  // localtime_r alone follows a change of the time zone only by chance
  const auto time = static_cast<std::time_t>(seconds);
  if (localtime_r(&time, &local) == nullptr) return false;
  const int year = local.tm_year + 1900;
  return year >= 1 && year <= 9999;
}

}  // namespace

std::wstring CExTime::TimeToString(double milliseconds, bool withMilliseconds, bool withDate, bool withTime) {
  const double seconds = std::floor(milliseconds / 1000.0);
  if (!(std::fabs(seconds) < kMostSeconds)) return {};
  std::tm local{};
  if (!LocalTime(seconds, local)) return {};
  std::array<char, 64> part;
  std::string text;
  if (withDate) {
    std::snprintf(part.data(), part.size(), "%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    text += part.data();
  }
  if (withTime) {
    if (withDate) text += ' ';
    std::snprintf(part.data(), part.size(), "%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
    text += part.data();
    if (withMilliseconds) {
      const int rest = static_cast<int>(std::floor(milliseconds - seconds * 1000.0));
      std::snprintf(part.data(), part.size(), ".%03d", rest);
      text += part.data();
    }
  }
  return {text.begin(), text.end()};
}

}  // namespace vak
