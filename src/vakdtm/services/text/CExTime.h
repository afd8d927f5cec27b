#pragma once

#include <string>

namespace vak {

/// A point in time, in milliseconds since 1970-01-01 UTC.
class CExTime {
 public:
  /// The time as text, in the local time zone: "2015-07-03 12:34:56". The same text in every locale.
  /// @param milliseconds      since 1970-01-01 UTC; what is less than a unit shown is cut off, not rounded.
  /// @param withMilliseconds  ".789" behind the seconds; only where the time of day is shown.
  /// @param withDate          the date.
  /// @param withTime          the time of day.
  /// @return empty for what is no number, and for years before 1 or after 9999.
  static std::wstring TimeToString(double milliseconds, bool withMilliseconds, bool withDate, bool withTime);
};

}  // namespace vak
