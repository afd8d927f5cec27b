#include "vakdtm/services/geodesy/ProjectDefinition.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/jobs/Installed.h"
#include "vakdtm/services/text/CVakUnitCnv.h"

namespace vak {
namespace {

constexpr const wchar_t* kSystemUnitsKey = L"System Units";
constexpr const wchar_t* kHeightUnitsKey = L"Height Units";
constexpr const wchar_t* kVolumeUnitsKey = L"Volume Units";
constexpr const wchar_t* kCoordinateDecimalsKey = L"Coordinate Decimals";
constexpr const wchar_t* kHeightDecimalsKey = L"Height Decimals";
constexpr const wchar_t* kVolumeDecimalsKey = L"Volume Decimals";
constexpr const wchar_t* kCoordinateSystemKey = L"Coordinate System";

Installed<const ProjectDefinition>& Current() {
  static Installed<const ProjectDefinition> current;
  return current;
}

struct UnitName {
  LengthUnit unit;
  const wchar_t* name;
  const wchar_t* mnemonic;
};

constexpr std::array kUnitNames{UnitName{LengthUnit::kMetre, L"Metre", L"m"},
                                UnitName{LengthUnit::kFoot, L"Foot", L"ft"},
                                UnitName{LengthUnit::kUsSurveyFoot, L"US Survey Foot", L"ftUS"}};

const wchar_t* NameOf(LengthUnit unit) {
  for (const UnitName& each : kUnitNames) {
    if (each.unit == unit) return each.name;
  }
  return L"";
}

bool SameLetters(std::wstring_view a, std::wstring_view b) {
  const auto small = [](wchar_t letter) { return letter >= L'A' && letter <= L'Z' ? letter - L'A' + L'a' : letter; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](wchar_t left, wchar_t right) { return small(left) == small(right); });
}

bool Complain(std::wstring* error, const std::wstring& key, const std::wstring& wanted) {
  if (error != nullptr) *error = key + L": " + wanted + L" wanted";
  return false;
}

/// Reads the unit of a key that may be missing. @return false when it is no unit.
bool ReadUnit(const FileObject& file, const wchar_t* key, LengthUnit& unit, std::wstring* error) {
  std::wstring text;
  if (!file.GetString(UNITS_SECTION, key, text)) return true;
  for (const UnitName& each : kUnitNames) {
    if (!SameLetters(text, each.name) && !SameLetters(text, each.mnemonic)) continue;
    unit = each.unit;
    return true;
  }
  return Complain(error, key, L"Metre, Foot or US Survey Foot");
}

/// Reads the decimals of a key that may be missing. @return false when they are no number in range.
bool ReadDecimals(const FileObject& file, const wchar_t* key, int& decimals, std::wstring* error) {
  std::wstring text;
  if (!file.GetString(UNITS_SECTION, key, text)) return true;
  std::int64_t read = 0;
  if (!file.GetInt(UNITS_SECTION, key, read) || read < 0 || read > ProjectDefinition::kMostDecimals) {
    return Complain(error, key, L"0 to " + std::to_wstring(ProjectDefinition::kMostDecimals));
  }
  decimals = static_cast<int>(read);
  return true;
}

/// Reads the coordinate system, which may be missing. @return false when the text is none.
bool ReadSystem(const FileObject& file, std::shared_ptr<VakGeoCoordSysBase>& system, std::wstring* error) {
  std::wstring text;
  if (!file.GetString(GEODESY_SECTION, kCoordinateSystemKey, text)) return true;
  std::wstring fault;
  system = VakGeoCoordSysBase::FromText(text, &fault);
  if (system) return true;
  if (error != nullptr) *error = std::wstring(kCoordinateSystemKey) + L": " + fault;
  return false;
}

/// A definition without a system leaves none behind that was there before.
bool SaveSystem(FileObject& file, const VakGeoCoordSysBase* system) {
  if (system != nullptr) return file.SetString(GEODESY_SECTION, kCoordinateSystemKey, system->GetDefinition());
  file.RemoveKey(GEODESY_SECTION, kCoordinateSystemKey);
  return true;
}

}  // namespace

bool ProjectDefinition::FileOpen(const FileObject& file, std::wstring* error) {
  if (!file.HasSection(UNITS_SECTION) && !file.HasSection(GEODESY_SECTION)) {
    if (error != nullptr) *error = std::wstring(L"no section [") + UNITS_SECTION + L"]";
    return false;
  }
  LengthUnit horizontal = LengthUnit::kMetre;
  if (!ReadUnit(file, kSystemUnitsKey, horizontal, error)) return false;
  LengthUnit height = horizontal;
  LengthUnit volume = horizontal;
  if (!ReadUnit(file, kHeightUnitsKey, height, error) || !ReadUnit(file, kVolumeUnitsKey, volume, error)) return false;
  ProjectDefinition read;
  read.units_ = CVakUnitCnv(horizontal, height, volume);
  if (!ReadDecimals(file, kCoordinateDecimalsKey, read.coordinateDecimals_, error) ||
      !ReadDecimals(file, kHeightDecimalsKey, read.heightDecimals_, error) ||
      !ReadDecimals(file, kVolumeDecimalsKey, read.volumeDecimals_, error) || !ReadSystem(file, read.system_, error)) {
    return false;
  }
  *this = read;
  return true;
}

bool ProjectDefinition::FileSave(FileObject& file) const {
  const auto saveUnit = [&](const wchar_t* key, UnitKind kind) {
    return file.SetString(UNITS_SECTION, key, NameOf(units_.Unit(kind)));
  };
  return saveUnit(kSystemUnitsKey, kUnitHorizontalLength) && saveUnit(kHeightUnitsKey, kUnitHeight) &&
         saveUnit(kVolumeUnitsKey, kUnitVolume) &&
         file.SetInt(UNITS_SECTION, kCoordinateDecimalsKey, coordinateDecimals_) &&
         file.SetInt(UNITS_SECTION, kHeightDecimalsKey, heightDecimals_) &&
         file.SetInt(UNITS_SECTION, kVolumeDecimalsKey, volumeDecimals_) && SaveSystem(file, system_.get());
}

bool ProjectDefinition::GetAttribute(const std::wstring& section, const std::wstring& key, std::wstring& value) const {
  FileObject saved;
  return FileSave(saved) && saved.GetString(section, key, value);
}

bool ProjectDefinition::operator==(const ProjectDefinition& other) const {
  if (!(units_ == other.units_) || coordinateDecimals_ != other.coordinateDecimals_ ||
      heightDecimals_ != other.heightDecimals_ || volumeDecimals_ != other.volumeDecimals_) {
    return false;
  }
  if (system_ == nullptr || other.system_ == nullptr) return system_ == other.system_;
  return system_->GetDefinition() == other.system_->GetDefinition();
}

int ProjectDefinition::Decimals(int unitKind) const {
  switch (unitKind) {
    case kUnitHorizontalLength:
      return coordinateDecimals_;
    case kUnitVolume:
      return volumeDecimals_;
    default:
      return heightDecimals_;
  }
}

std::shared_ptr<const ProjectDefinition> GetCurrentProjectDefinition() {
  if (auto current = Current().Get()) return current;
  static const auto asBuilt = std::make_shared<const ProjectDefinition>();
  return asBuilt;
}

void SetCurrentProjectDefinition(const ProjectDefinition& project) {
  Current().Exchange(std::make_shared<const ProjectDefinition>(project));
}

}  // namespace vak
