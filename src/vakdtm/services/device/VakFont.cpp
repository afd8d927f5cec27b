#include "vakdtm/services/device/VakFont.h"

#include <algorithm>
#include <cstdint>

#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/device/FontInfo.h"

namespace vak {

void VakFont::Create(const FontInfo& info, const CDC* device) {
  constexpr std::int64_t kPointsAnInch = 72;
  constexpr std::int64_t kTallest = 1000;
  const std::int64_t dotsPerInch = device != nullptr ? device->GetDeviceCaps(CDC::kVerticalDotsPerInch) : 96;
  const std::int64_t pixels = (info.GetSize() * dotsPerInch + kPointsAnInch / 2) / kPointsAnInch;
  *this = VakFont();
  name = info.GetName();
  height = static_cast<int>(std::clamp<std::int64_t>(pixels, 1, kTallest));
  weight = info.GetBold() ? kBold : kNormal;
  italic = info.GetItalic();
}

}  // namespace vak
