#include "vakdtm/services/text/FormatNumber.h"

#include <array>
#include <cassert>
#include <charconv>
#include <cmath>
#include <string>

namespace vak {

void AppendNumber(std::string& out, double value) {
  if (std::isnan(value)) {
    out += "nan";
    return;
  }
  std::array<char, 32> text;
  const double size = std::fabs(value);
  const bool plain = size == 0 || (size >= 1e-6 && size < 1e17);
  const auto format = plain ? std::chars_format::fixed : std::chars_format::scientific;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value, format);
  out.append(text.data(), end.ptr);
}

void AppendFixed(std::string& out, double value, int digits) {
  assert(digits >= 0 && digits <= 99);
  if (std::isnan(value)) {
    out += "nan";
    return;
  }
  std::array<char, 420> text;  // sign, 309 digits before the point, the point, 99 behind it
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, digits);
  out.append(text.data(), end.ptr);
}

}  // namespace vak
