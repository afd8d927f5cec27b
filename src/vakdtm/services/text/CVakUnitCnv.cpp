#include "vakdtm/services/text/CVakUnitCnv.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

namespace vak {
namespace {

__extension__ using Wide = unsigned __int128;

/// How many of a unit make a metre, as a fraction in lowest terms.
struct Ratio {
  std::uint64_t over, under;
};

Ratio PerMetre(LengthUnit unit) {
  switch (unit) {
    case LengthUnit::kFoot:
      return {1250, 381};
    case LengthUnit::kUsSurveyFoot:
      return {3937, 1200};
    case LengthUnit::kMetre:
      break;
  }
  return {1, 1};
}

Ratio Cube(Ratio ratio) { return {ratio.over * ratio.over * ratio.over, ratio.under * ratio.under * ratio.under}; }

/// value * over / under, rounded once: the mantissa's 53 bits and `over` fit 128 bits with room for the quotient's.
double Scale(double value, Ratio ratio) {
  int exponent = 0;
  const double fraction = std::frexp(std::fabs(value), &exponent);
  const auto mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
  const int shift = 128 - 53 - static_cast<int>(std::bit_width(ratio.over));
  const Wide dividend = (static_cast<Wide>(mantissa) * ratio.over) << shift;
  Wide quotient = dividend / ratio.under;
  const bool inexact = quotient * ratio.under != dividend;
  exponent -= 53 + shift;
  // 64 bits and one that stands for all below them are enough to round to 53 as the whole would.
  const auto high = static_cast<std::uint64_t>(quotient >> 64);
  const int dropped = static_cast<int>(std::bit_width(high));
  const bool sticky = inexact || (quotient & ((Wide{1} << dropped) - 1)) != 0;
  quotient >>= dropped;
  exponent += dropped;
  const auto kept = static_cast<std::uint64_t>(quotient) | (sticky ? 1U : 0U);
  // The conversion to double is the one rounding, to the nearest and to even.
  return std::copysign(std::ldexp(static_cast<double>(kept), exponent), value);
}

std::wstring Mnemonic(LengthUnit unit) {
  switch (unit) {
    case LengthUnit::kFoot:
      return L"ft";
    case LengthUnit::kUsSurveyFoot:
      return L"ftUS";
    case LengthUnit::kMetre:
      break;
  }
  return L"m";
}

bool IsKind(int unitKind) {
  return unitKind == kUnitHorizontalLength || unitKind == kUnitHeight || unitKind == kUnitVolume;
}

}  // namespace

LengthUnit CVakUnitCnv::Unit(UnitKind kind) const {
  switch (kind) {
    case kUnitHeight:
      return height_;
    case kUnitVolume:
      return volume_;
    case kUnitHorizontalLength:
      break;
  }
  return horizontal_;
}

std::wstring CVakUnitCnv::GetUnitMnem(int unitKind) const {
  if (!IsKind(unitKind)) return {};
  const std::wstring length = Mnemonic(Unit(static_cast<UnitKind>(unitKind)));
  return unitKind == kUnitVolume ? length + L'\u00B3' : length;
}

double CVakUnitCnv::ConvertUnit(int unitKind, double value) const {
  if (!IsKind(unitKind) || !std::isfinite(value) || value == 0) return value;
  const LengthUnit unit = Unit(static_cast<UnitKind>(unitKind));
  if (unit == LengthUnit::kMetre) return value;
  const Ratio ratio = PerMetre(unit);
  return Scale(value, unitKind == kUnitVolume ? Cube(ratio) : ratio);
}

}  // namespace vak
