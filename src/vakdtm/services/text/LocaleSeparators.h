#pragma once

#include <optional>
#include <string>

namespace vak {

/// The marks of the user's locale for lists of numbers.
///
/// As built: a decimal comma and a semicolon, which is what stays where a locale can't be read.
struct LocaleSeparators {
  std::wstring decimal = L",";
  std::wstring list = L";";

  bool operator==(const LocaleSeparators&) const = default;
};

/// Reads the marks of the locale that the environment names (LC_ALL, LC_NUMERIC, LANG; none of them, or one that isn't
/// installed: the locale "C").
/// The process's own locale is neither asked nor changed. The locales of this system know no list separator: it is ','
/// where the decimal mark is a point, else ';'.
///
/// Any thread may call it while nobody changes the environment.
/// @return false when no locale can be read; `separators` is untouched then.
bool ReadUserSeparators(LocaleSeparators& separators);

/// The marks for text in the user's locale: those that were set, else those of the environment, else a comma and a
/// semicolon. Any thread may call it; the environment is read anew each time.
LocaleSeparators GetLocaleSeparators();

/// Sets the marks for the whole process: for an application that lets its user choose, and for tests. Any thread may
/// call it.
/// @param separators  nothing: the environment's from now on.
void SetLocaleSeparators(std::optional<LocaleSeparators> separators);

/// Replaces every point of a number's text by the decimal mark of `separators`.
std::wstring ReplaceDecimalPoint(std::wstring text, const LocaleSeparators& separators);

}  // namespace vak
