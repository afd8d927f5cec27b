#pragma once

#include <string>

#include "vakdtm/render/TextMeasure.h"

namespace vak {

/// A line of text as it goes into a width: shrunk, or else cut and ended by an ellipsis.
struct FittedText {
  std::wstring text;
  int fontHeight = 0;
  TextSize size;
};

/// Fits a line into a width. What isn't to be seen in a line (a tab, a line feed) becomes a blank.
/// @param fontHeight    pixels; the font shrinks from this
/// @param smallestFont  to this before anything is cut.
/// @return an empty text where not even an ellipsis has room.
FittedText FitText(const std::wstring& text, int width, int fontHeight, int smallestFont, const TextMeasure& measure);

}  // namespace vak
