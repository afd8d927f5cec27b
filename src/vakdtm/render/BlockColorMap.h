#pragma once

#include <string_view>

namespace vak {

/// The name of the built-in colour table (`MakeColorTable`) that suits a kind of value when nobody says which: "depth"
/// for heights and for what has no table of its own. @param blockId  of the kind.
std::string_view DefaultColorMap(int blockId);

}  // namespace vak
