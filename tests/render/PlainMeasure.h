#pragma once

#include <cmath>
#include <string>

#include "vakdtm/render/TextMeasure.h"

namespace vak::test {

/// Characters of one width, in lines a fifth higher than the font: no device is needed.
inline TextSize PlainMeasure(const std::wstring& text, int fontHeight) {
  return {static_cast<int>(std::ceil(static_cast<double>(text.size()) * fontHeight * 0.6)),
          static_cast<int>(std::ceil(fontHeight * 1.2))};
}

}  // namespace vak::test
