#pragma once

#include <memory>
#include <string>

#include "vakdtm/services/text/CVakUnitCnv.h"

namespace vak {

class FileObject;

/// The section of a settings text that holds a project's units and decimals.
inline constexpr const wchar_t* UNITS_SECTION = L"UNITS";  // NOLINT(readability-identifier-naming): a known name

/// What a project has settled: the units in which numbers are shown, and how many decimals they get. A plain value.
///
/// As built: metres and cubic metres, 3 decimals for coordinates and heights, 2 for volumes.
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

  /// Takes over the settings of a project file; docs/files.md has its keys. A key that isn't there gives what a new
  /// definition has; without a unit for heights or volumes, they have the project's.
  /// @param error  gets what is wrong, when not null.
  /// @return false when a value can't be understood; nothing has changed then.
  bool FileOpen(const FileObject& file, std::wstring* error = nullptr);

  /// Writes the settings into the section of a settings text, beside what else is there. What was saved opens as an
  /// equal definition. @return false when the text took one of them not.
  bool FileSave(FileObject& file) const;

  bool operator==(const ProjectDefinition&) const = default;

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
};

/// The definition of the current project, never null. Who holds it keeps what it was when asked; any thread may ask.
std::shared_ptr<const ProjectDefinition> GetCurrentProjectDefinition();

/// Makes a copy of a definition the current one, for the whole process. Any thread may call it.
void SetCurrentProjectDefinition(const ProjectDefinition& project);

}  // namespace vak
