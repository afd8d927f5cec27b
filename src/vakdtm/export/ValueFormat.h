#pragma once

#include <string>

namespace vak {

/// A `printf` pattern for one double, taken apart before it is used, so that a pattern of whatever origin prints a
/// number or is refused, and does nothing else.
///
/// Text around one conversion: `%`, flags out of `-+ #0`, a width, a precision, an `l` that changes nothing, and one of
/// a A e E f F g G. `%%` is a per cent sign. Refused are no conversion or a second one, conversions of other types,
/// `*`, `L` and numbered arguments, and a width or precision above 255.
///
/// Prints with a point for the decimals whatever the locale of the process.
class ValueFormat {
 public:
  /// @param pattern  may be null, which is no pattern.
  explicit ValueFormat(const wchar_t* pattern);

  bool IsValid() const { return valid_; }

  /// Appends the value with the text around it, in UTF-8. Of a valid format only.
  void Append(std::string& out, double value) const;

 private:
  bool Parse(const std::string& pattern);
  void AppendConverted(std::string& out, double value) const;

  std::string before_;
  std::string conversion_;  // "%", flags, width, precision, letter
  bool plain_ = false;      // no flags and no width
  char letter_ = 'f';
  int precision_ = 6;
  std::string after_;
  bool valid_;  // found out last, by filling the others
};

}  // namespace vak
