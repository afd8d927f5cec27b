#pragma once

#include <string>

namespace vak {

/// The name of the world file of an image: every ".tif" in the path becomes ".tfw".
std::wstring WorldFilePath(std::wstring imagePath);

/// Writes a world file: the size of a pixel, two zeros, minus the size, and the outer corner of the top left pixel,
/// each in a line, with six decimals and a point whatever the locale.
/// @param cellSize,left,top  model units (metres).
/// @return false when it couldn't be written.
bool WriteWorldFile(const std::wstring& path, double cellSize, double left, double top);

}  // namespace vak
