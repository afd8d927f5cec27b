#pragma once

#include <memory>
#include <string>

namespace vak {

class ProjectDefinition;

/// Formats coordinates, depths and values in a project's units and with its decimals.
///
/// The texts have a point as decimal mark and no groups of thousands, whatever any locale says; what rounds to zero has
/// no minus. Cheap to build, a line at a time; several threads may use one at once.
class VakFormatter {
 public:
  /// Formats for the project that is current now, and keeps to it.
  VakFormatter();
  /// @param project  not null.
  explicit VakFormatter(std::shared_ptr<const ProjectDefinition> project);

  /// @param x  metres. The text has no unit.
  std::wstring FormatXCoordinate(double x) const;
  /// @param y  metres. The text has no unit.
  std::wstring FormatYCoordinate(double y) const;

  /// A height or a depth: `FormatValue` of the height with the project's decimals.
  std::wstring FormatDepth(double value, bool withUnit, bool convert) const;

  /// A value of a kind (1 horizontal length, 4 height, 5 volume); one of another kind has no unit and the decimals of
  /// heights.
  /// @param withUnit  a blank and the unit's short text follow.
  /// @param convert   true: the value is in metres, or cubic metres, and is converted. False: it is in the project's
  /// unit as it stands.
  /// @param decimals  how many; negative: as many as the project has for the kind.
  std::wstring FormatValue(int unitKind, double value, bool withUnit, bool convert, int decimals) const;

 private:
  std::shared_ptr<const ProjectDefinition> project_;
};

}  // namespace vak
