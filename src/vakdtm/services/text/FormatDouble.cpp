#include "vakdtm/services/text/FormatDouble.h"

#include <algorithm>
#include <string>

#include "vakdtm/services/text/FormatNumber.h"

namespace vak {

std::wstring FormatDouble(double value, int decimals, unsigned /*flags*/) {
  std::string text;
  AppendFixed(text, value, std::clamp(decimals, 0, 99));
  const bool zero = text.find_first_not_of("-0.") == std::string::npos;
  return {text.begin() + (zero && text.front() == '-' ? 1 : 0), text.end()};
}

}  // namespace vak
