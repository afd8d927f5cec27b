#pragma once

namespace vak {

/// A colour: red in the lowest byte, then green, then blue, each 0 to 255.
using Color = unsigned long;

}  // namespace vak
