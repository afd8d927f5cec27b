#pragma once

#include <memory>
#include <string>
#include <utility>

#include "vakdtm/services/text/CVakUnitCnv.h"

namespace vak {

class FileObject;
class VakGeoCoordSysBase;

/// The section of a settings text that holds a project's units and decimals.
inline constexpr const wchar_t* UNITS_SECTION = L"UNITS";  // NOLINT(readability-identifier-naming): a known name

/// The section that holds its coordinate system.
inline constexpr const wchar_t* GEODESY_SECTION = L"GEODESY";  // NOLINT(readability-identifier-naming): as above

/// What a project has settled: the units in which numbers are shown, how many decimals they get, and the coordinate
/// system of its models. A plain value.
///
/// As built: metres and cubic metres, 3 decimals for coordinates and heights, 2 for volumes, no coordinate system.
class ProjectDefinition {
 public:
  static constexpr int kMostDecimals = 15;

  const CVakUnitCnv& GetUnitCnv() const { return units_; }
  void SetUnitCnv(const CVakUnitCnv& units) { units_ = units; }

  /// The decimals of a value of a kind: those of coordinates for horizontal lengths, those of volumes for volumes, and
  /// those of heights for all others.
  int Decimals(int unitKind) const;

  /// @return false outside 0 to `kMostDecimals`; nothing has changed then.
  bool SetCoordinateDecimals(int decimals) { return SetDecimals(coordinateDecimals_, decimals); }
  bool SetHeightDecimals(int decimals) { return SetDecimals(heightDecimals_, decimals); }
  bool SetVolumeDecimals(int decimals) { return SetDecimals(volumeDecimals_, decimals); }

  /// The coordinate system of the project's models, or null. Good as long as this definition, or a copy, has it.
  VakGeoCoordSysBase* GetGeoCoordSys() const { return system_.get(); }
  void SetGeoCoordSys(std::shared_ptr<VakGeoCoordSysBase> system) { system_ = std::move(system); }

  /// Reads a setting by its section and key, as `FileSave` writes it: L"System Units" of `UNITS_SECTION` is the name of
  /// the unit of horizontal lengths. @return false, with `value` untouched, when there is none of that name.
  bool GetAttribute(const std::wstring& section, const std::wstring& key, std::wstring& value) const;

  /// Takes over the settings of a project file; docs/files.md has its keys. A key that isn't there gives what a new
  /// definition has; without a unit for heights or volumes, they have the project's.
  /// @param error  gets what is wrong, when not null.
  /// @return false when a value can't be understood; nothing has changed then.
  bool FileOpen(const FileObject& file, std::wstring* error = nullptr);

  /// Writes the settings into the sections of a settings text, beside what else is there. What was saved opens as an
  /// equal definition. @return false when the text took one of them not.
  bool FileSave(FileObject& file) const;

  /// Coordinate systems are equal when they were made of the same text.
  bool operator==(const ProjectDefinition& other) const;

 private:
  static bool SetDecimals(int& to, int decimals) {
    if (decimals < 0 || decimals > kMostDecimals) return false;
    to = decimals;
    return true;
  }

  CVakUnitCnv units_;
  int coordinateDecimals_ = 3;
  int heightDecimals_ = 3;
  int volumeDecimals_ = 2;
  std::shared_ptr<VakGeoCoordSysBase> system_;  // never changes, so that copies share it
};

/// The definition of the current project, never null. Who holds it keeps what it was when asked; any thread may ask.
std::shared_ptr<const ProjectDefinition> GetCurrentProjectDefinition();

/// Makes a copy of a definition the current one, for the whole process. Any thread may call it.
void SetCurrentProjectDefinition(const ProjectDefinition& project);

}  // namespace vak
