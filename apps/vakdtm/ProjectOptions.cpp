#include "ProjectOptions.h"

#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

LengthUnit UnitOf(const std::string& name) {
  if (name == "ft") return LengthUnit::kFoot;
  return name == "us-ft" ? LengthUnit::kUsSurveyFoot : LengthUnit::kMetre;
}

}  // namespace

void AddUnitOptions(CLI::App& command, ProjectOptions& options) {
  AddText(command, "--project", options.project, "FILE", "Project file with the units and decimals to show");
  AddChoice(command, "--units", options.units, {"m", "ft", "us-ft"},
            "Unit to show: metres, international feet, US survey feet (default: the project's, or metres)");
}

void AddProjectOptions(CLI::App& command, ProjectOptions& options) {
  AddUnitOptions(command, options);
  AddWholeNumber(command, "--decimals", options.decimals,
                 "Decimals of coordinates and heights (default: the project's, or 3)", 0,
                 ProjectDefinition::kMostDecimals);
}

bool UseProject(const CommandContext& context, const ProjectOptions& options, ProjectOptions::UnitsOf unitsOf) {
  ProjectDefinition project;
  if (!options.project.empty()) {
    FileObject file;
    if (!file.FileOpen(FromUtf8(options.project))) {
      context.Fail(options.project, "the project file cannot be read", "check the name");
      return false;
    }
    std::wstring error;
    if (!project.FileOpen(file, &error)) {
      context.Fail(options.project, ToUtf8(error), "mend the project file");
      return false;
    }
  }
  if (!options.units.empty()) {
    const LengthUnit unit = UnitOf(options.units);
    const CVakUnitCnv& own = project.GetUnitCnv();
    project.SetUnitCnv(unitsOf == ProjectOptions::UnitsOf::kHeights
                           ? CVakUnitCnv(own.Unit(kUnitHorizontalLength), unit, own.Unit(kUnitVolume))
                           : CVakUnitCnv(unit, unit, unit));
  }
  if (options.decimals != ProjectOptions::kNotGiven) {
    const int decimals = static_cast<int>(options.decimals);
    if (!project.SetCoordinateDecimals(decimals) || !project.SetHeightDecimals(decimals)) return false;
  }
  SetCurrentProjectDefinition(project);
  return true;
}

}  // namespace vak
