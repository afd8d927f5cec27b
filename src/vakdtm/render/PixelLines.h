#pragma once

#include <vector>

#include "vakdtm/services/device/PixelRect.h"

namespace vak {

/// A line on a picture, pixels.
using PixelLine = std::vector<PixelPoint>;

/// Leaves out points that are closer than this to the one kept before them, but never the first and the last: what
/// several cells a pixel trace is too fine to be seen.
/// @param distance  pixels.
PixelLine Thinned(const PixelLine& line, double distance);

/// The parts of a line within a rectangle, in order, cut at its edges. Points are finite.
std::vector<PixelLine> Clipped(const PixelLine& line, const PixelRect& rect);

}  // namespace vak
