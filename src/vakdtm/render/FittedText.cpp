#include "vakdtm/render/FittedText.h"

#include <cstddef>

namespace vak {
namespace {

bool IsControl(wchar_t c) { return (c >= 0 && c < 0x20) || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029; }

}  // namespace

FittedText FitText(const std::wstring& text, int width, int fontHeight, int smallestFont, const TextMeasure& measure) {
  FittedText fitted{text, fontHeight, {}};
  for (wchar_t& c : fitted.text) {
    if (IsControl(c)) c = L' ';
  }
  for (;; --fitted.fontHeight) {
    fitted.size = measure(fitted.text, fitted.fontHeight);
    if (fitted.size.width <= width) return fitted;
    if (fitted.fontHeight <= smallestFont) break;
  }
  // The longest beginning that has room. Widths grow with the text but for kerning, which a search doesn't mind.
  const std::wstring whole = fitted.text;
  const auto shorten = [&](std::size_t count) {
    std::wstring start = whole.substr(0, count);
    while (!start.empty() && start.back() == L' ') start.pop_back();
    fitted.text = start + L'\u2026';
    fitted.size = measure(fitted.text, fitted.fontHeight);
    return fitted.size.width <= width;
  };
  std::size_t fits = 0;
  for (std::size_t tooLong = whole.size(); tooLong - fits > 1;) {
    const std::size_t middle = (fits + tooLong) / 2;
    (shorten(middle) ? fits : tooLong) = middle;
  }
  if (fits > 0 && shorten(fits)) return fitted;
  return {L"", fitted.fontHeight, {}};
}

}  // namespace vak
