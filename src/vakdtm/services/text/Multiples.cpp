#include "vakdtm/services/text/Multiples.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <system_error>

namespace vak {
namespace {

// Beyond, the quotient that factors are found by is no longer good to a whole number.
constexpr double kHighestFactor = 1e15;

__extension__ using Whole = __int128;

/// A number as digits * 10^exponent.
struct Decimal {
  Whole digits = 0;
  int count = 1;  ///< of the digits, at most 17
  int exponent = 0;
};

/// The shortest decimal number that reads back to the value: the one that was written, if it had up to 15 digits.
Decimal ToDecimal(double value) {
  char text[32];
  const char* const end = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr;
  Decimal decimal;
  decimal.count = 0;
  const char* at = text + (text[0] == '-' ? 1 : 0);
  for (bool behindPoint = false; *at != 'e'; ++at) {
    if (*at == '.') {
      behindPoint = true;
      continue;
    }
    decimal.digits = decimal.digits * 10 + (*at - '0');
    ++decimal.count;
    decimal.exponent -= behindPoint ? 1 : 0;
  }
  int power = 0;
  std::from_chars(at + (at[1] == '+' ? 2 : 1), end, power);
  decimal.exponent += power;
  if (text[0] == '-') decimal.digits = -decimal.digits;
  return decimal;
}

/// Adds zeros until the exponent is this one. @return false when there are more than `most` digits then.
bool Extend(Decimal& decimal, int exponent, int most) {
  if (decimal.digits == 0) {
    decimal.exponent = exponent;
    return true;
  }
  if (decimal.count + decimal.exponent - exponent > most) return false;
  for (; decimal.exponent > exponent; --decimal.exponent, ++decimal.count) decimal.digits *= 10;
  return true;
}

/// Makes numbers of factors as a person would, in decimals, and finds the double nearest to the outcome: -12.7 for -127
/// times 0.1, where doubles give -12.700000000000001. Only so is it the number that the same text is read as
/// elsewhere.
class MultipleMaker {
 public:
  MultipleMaker(double step, double base)
      : plainStep_(step), base_(base), step_(ToDecimal(step)), start_(ToDecimal(base)) {
    const int exponent = start_.digits == 0 ? step_.exponent : std::min(step_.exponent, start_.exponent);
    // A factor has 16 digits at most, so that sums have no more than 37, and 38 go into a whole number.
    isExact_ = Extend(step_, exponent, 20) && Extend(start_, exponent, 36);
    power_ = "e" + std::to_string(exponent);
  }

  double operator()(std::int64_t factor) const {
    double number = 0;
    if (isExact_ && Nearest(start_.digits + factor * step_.digits, number)) return number;
    // 0 without a sign.
    return base_ + static_cast<double>(factor) * plainStep_ + 0.0;
  }

 private:
  bool Nearest(Whole digits, double& number) const {
    const bool negative = digits < 0;
    if (negative) digits = -digits;
    std::string text = power_;
    do {
      text.insert(text.begin(), static_cast<char>('0' + static_cast<int>(digits % 10)));
      digits /= 10;
    } while (digits != 0);
    if (negative) text.insert(text.begin(), '-');
    return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
  }

  double plainStep_;
  double base_;
  Decimal step_;
  Decimal start_;      // with the exponent of the step
  std::string power_;  // the exponent as a text has it
  bool isExact_ = false;
};

}  // namespace

MultiplesFault SpreadMultiples(double step, double base, double lowest, double highest, std::size_t most,
                               std::vector<double>& numbers) {
  numbers.clear();
  const double first = std::floor((lowest - base) / step) - 1;
  const double last = std::ceil((highest - base) / step) + 1;
  if (last - first > static_cast<double>(most) + 4) return MultiplesFault::kTooMany;
  if (std::fabs(first) >= kHighestFactor || std::fabs(last) >= kHighestFactor) return MultiplesFault::kTooFine;
  const MultipleMaker makeNumber(step, base);
  for (auto k = static_cast<std::int64_t>(first); k <= static_cast<std::int64_t>(last); ++k) {
    const double number = makeNumber(k);
    if (number < lowest || number > highest) continue;
    if (!numbers.empty() && number == numbers.back()) return MultiplesFault::kTooFine;
    numbers.push_back(number);
  }
  return numbers.size() <= most ? MultiplesFault::kNone : MultiplesFault::kTooMany;
}

}  // namespace vak
