#pragma once

#include <string>

#include "vakdtm/services/geometry/PolyClipLine.h"

#include "Command.h"

namespace vak {

class DtmFile;

/// Reads the polygon that a subcommand is limited to, and looks whether it is a good one: every ring closed in the
/// file, of three points or more, none crossing itself or its holes, and holes within their rings. Prints why when it
/// isn't.
[[nodiscard]] bool LoadPolygon(const CommandContext& context, const std::string& path, PolyClipLine& polygon);

/// Warns when rings of a good polygon overlap, for those who weigh surfaces: common surface counts once for each.
void WarnOfOverlap(const CommandContext& context, const std::string& path, const PolyClipLine& polygon);

/// The rectangle of a model's areas. @return false when it has none.
[[nodiscard]] bool FindExtents(DtmFile& model, Page& extents);

/// Looks whether a polygon has anything in common with the areas of a model. Prints it when it hasn't, with the model's
/// extents.
[[nodiscard]] bool MeetsModel(const CommandContext& context, const std::string& path, const PolyClipLine& polygon,
                              DtmFile& model);

/// The same for a rectangle, which is told as `name`.
[[nodiscard]] bool MeetsModel(const CommandContext& context, const std::string& name, const Page& rect, DtmFile& model);

/// The name of a polygon in reports: that of its file, without folders.
std::wstring PolygonName(const std::string& path);

}  // namespace vak
