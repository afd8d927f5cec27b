#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/services/geometry/Point.h"

namespace vak {

/// A ring as a polygon file has it.
struct PolygonFileRing {
  std::vector<Point> points;  ///< without the repetition of the first at the end
  bool hole = false;
  bool closed = false;  ///< the first was repeated at the end
  int group = 0;        ///< rings that make a polygon with holes together
  std::wstring place;   ///< L"line 12" of its first vertex, or L"polygon 2, ring 1"
};

/// Reads the content of a polygon file, GeoJSON or text; which of them is told by its first character. What the forms
/// are stands at `PolyClipLine::FileOpen`.
/// @param rings  gets at least one.
/// @param error  gets, on false, what is wrong, with the line where there is one.
/// @return false when it is no such file or holds no polygon. Time and memory are bounded by the length.
bool ReadPolygonFile(std::string_view content, std::vector<PolygonFileRing>& rings, std::wstring& error);

}  // namespace vak
