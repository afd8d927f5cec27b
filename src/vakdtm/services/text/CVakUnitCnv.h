#pragma once

#include <string>

namespace vak {

/// What is measured; the numbers are those that unit kinds are passed as.
enum UnitKind : int { kUnitHorizontalLength = 1, kUnitHeight = 4, kUnitVolume = 5 };

/// A unit of length; a volume is measured in its cube.
enum class LengthUnit {
  kMetre,
  kFoot,          // international: 0.3048 m exactly
  kUsSurveyFoot,  // 1200/3937 m exactly
};

/// A project's units: from metres and cubic metres, in which everything is kept, to what is shown. A plain value.
class CVakUnitCnv {
 public:
  /// Metres and cubic metres.
  CVakUnitCnv() = default;
  CVakUnitCnv(LengthUnit horizontal, LengthUnit height, LengthUnit volume)
      : horizontal_(horizontal), height_(height), volume_(volume) {}

  /// The unit's short text: "m", "ft" or "ftUS"; for the volume "m³", "ft³" or "ftUS³". Empty for a kind that there
  /// isn't.
  std::wstring GetUnitMnem(int unitKind) const;

  /// @param value  in metres or cubic metres.
  /// @return the value in the project's unit, correctly rounded: the double nearest to the exact quotient, as long as
  /// that is a normal number. A kind that there isn't changes nothing; nor do infinities and what isn't a number.
  double ConvertUnit(int unitKind, double value) const;

  LengthUnit Unit(UnitKind kind) const;

  bool operator==(const CVakUnitCnv&) const = default;

 private:
  LengthUnit horizontal_ = LengthUnit::kMetre;
  LengthUnit height_ = LengthUnit::kMetre;
  LengthUnit volume_ = LengthUnit::kMetre;  // its cube
};

}  // namespace vak
