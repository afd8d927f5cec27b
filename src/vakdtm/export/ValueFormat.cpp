#include "vakdtm/export/ValueFormat.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <string_view>

#include "vakdtm/services/platform/PlainLocale.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

constexpr int kLargestWidth = 255;
/// Room for any double: sign, digits before the point, point, digits behind it, or an exponent.
constexpr std::size_t kLongest = std::numeric_limits<double>::max_exponent10 + kLargestWidth + 16;

/// What is left to be read of a pattern.
class Rest {
 public:
  explicit Rest(std::string_view text) : text_(text) {}

  bool AtEnd() const { return text_.empty(); }
  char Next() const { return text_.empty() ? '\0' : text_.front(); }
  char Take() {
    const char c = Next();
    if (!text_.empty()) text_.remove_prefix(1);
    return c;
  }
  bool TakeIf(char c) {
    const bool is = !text_.empty() && text_.front() == c;
    if (is) text_.remove_prefix(1);
    return is;
  }
  /// Digits, possibly none, which are 0. @return -1 when the number is above the limit.
  int TakeNumber() {
    int number = 0;
    while (Next() >= '0' && Next() <= '9') {
      const int digit = Take() - '0';
      if (number >= 0) number = number * 10 + digit;
      if (number > kLargestWidth) number = -1;
    }
    return number;
  }

 private:
  std::string_view text_;
};

}  // namespace

ValueFormat::ValueFormat(const wchar_t* pattern) : valid_(pattern && Parse(ToUtf8(pattern))) {}

bool ValueFormat::Parse(const std::string& pattern) {
  Rest rest(pattern);
  bool found = false;
  while (!rest.AtEnd()) {
    std::string& text = found ? after_ : before_;
    const char c = rest.Take();
    if (c != '%' || rest.TakeIf('%')) {
      text += c;
      continue;
    }
    if (found) return false;
    found = true;
    conversion_ = "%";
    while (!rest.AtEnd() && std::string_view("-+ #0").find(rest.Next()) != std::string_view::npos) {
      conversion_ += rest.Take();
    }
    const int width = rest.TakeNumber();
    if (width < 0) return false;
    plain_ = width == 0 && conversion_.size() == 1;
    if (width > 0) conversion_ += std::to_string(width);
    if (rest.TakeIf('.')) {
      precision_ = rest.TakeNumber();
      if (precision_ < 0) return false;
      conversion_ += '.' + std::to_string(precision_);
    }
    rest.TakeIf('l');
    letter_ = rest.Take();
    if (letter_ == '\0' || std::string_view("aAeEfFgG").find(letter_) == std::string_view::npos) return false;
    conversion_ += letter_;
  }
  return found;
}

void ValueFormat::Append(std::string& out, double value) const {
  out += before_;
  AppendConverted(out, value);
  out += after_;
}

void ValueFormat::AppendConverted(std::string& out, double value) const {
  std::array<char, kLongest> digits;
  // The usual pattern is printed without a look at any locale, several times as fast.
  if (plain_ && letter_ == 'f') {
    const auto end =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, precision_);
    if (end.ec == std::errc()) {
      out.append(digits.data(), end.ptr);
      return;
    }
  }
  const PlainLocale plain;
  // The conversion was put together from what is known to be harmless.
  const int length = std::snprintf(digits.data(), digits.size(), conversion_.c_str(), value);
  if (length > 0) out.append(digits.data(), static_cast<std::size_t>(length));
}

}  // namespace vak
