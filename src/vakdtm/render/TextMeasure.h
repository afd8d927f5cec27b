#pragma once

#include <functional>
#include <string>

namespace vak {

/// What a line of text takes, pixels.
struct TextSize {
  int width = 0;
  int height = 0;
};

/// How large a line of text is in a font of so many pixels. A layout asks it in place of a device.
using TextMeasure = std::function<TextSize(const std::wstring& text, int fontHeight)>;

}  // namespace vak
