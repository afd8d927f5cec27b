#pragma once

#include <optional>
#include <string_view>

#include "vakdtm/services/color/Color.h"

namespace vak {

/// The colour of an English name ("steelblue2", "gray50"), in capitals or not.
/// @return none for a name that isn't known.
std::optional<Color> FindColorName(std::string_view name);

}  // namespace vak
