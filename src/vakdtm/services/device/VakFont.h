#pragma once

#include <string>

namespace vak {

class CDC;
class FontInfo;

/// A font as a device prints it. A plain value, like a `Pen`.
struct VakFont {
  static constexpr int kNormal = 400;
  static constexpr int kBold = 700;

  std::wstring name = L"DejaVu Sans";  ///< a family; where it is missing, DejaVu Sans takes its place
  int height = 12;                     ///< of the characters, without the space between lines, in pixels, above 0
  int weight = kNormal;
  bool italic = false;
  int escapement = 0;  ///< how far the text is turned, in tenths of a degree, anticlockwise on the picture

  /// Becomes the font that a user's choice gives on a device, not turned.
  /// @param device  whose dots per inch make pixels of points; null: as on one with 96.
  void Create(const FontInfo& info, const CDC* device);

  friend bool operator==(const VakFont&, const VakFont&) = default;
};

}  // namespace vak
