#include "vakdtm/services/text/VakFormatter.h"

#include <memory>
#include <string>
#include <utility>

#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/text/FormatDouble.h"

namespace vak {

VakFormatter::VakFormatter() : project_(GetCurrentProjectDefinition()) {}

VakFormatter::VakFormatter(std::shared_ptr<const ProjectDefinition> project) : project_(std::move(project)) {}

std::wstring VakFormatter::FormatXCoordinate(double x) const {
  return FormatValue(kUnitHorizontalLength, x, false, true, -1);
}

std::wstring VakFormatter::FormatYCoordinate(double y) const {
  return FormatValue(kUnitHorizontalLength, y, false, true, -1);
}

std::wstring VakFormatter::FormatDepth(double value, bool withUnit, bool convert) const {
  return FormatValue(kUnitHeight, value, withUnit, convert, -1);
}

std::wstring VakFormatter::FormatValue(int unitKind, double value, bool withUnit, bool convert, int decimals) const {
  const CVakUnitCnv& units = project_->GetUnitCnv();
  const double shown = convert ? units.ConvertUnit(unitKind, value) : value;
  std::wstring text = FormatDouble(shown, decimals < 0 ? project_->Decimals(unitKind) : decimals, 0);
  if (!withUnit) return text;
  const std::wstring unit = units.GetUnitMnem(unitKind);
  return unit.empty() ? text : text + L' ' + unit;
}

}  // namespace vak
