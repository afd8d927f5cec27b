#include "vakdtm/services/device/CDC.h"

#include <array>
#include <utility>

namespace vak {

Color CDC::SetBkColor(Color color) { return std::exchange(bkColor_, color); }

Pen CDC::SelectPen(const Pen& pen) { return std::exchange(pen_, pen); }

Color CDC::SetTextColor(Color color) { return std::exchange(textColor_, color); }

unsigned CDC::SetTextAlign(unsigned align) { return std::exchange(textAlign_, align); }

VakFont CDC::SelectFont(const VakFont& font) { return std::exchange(font_, font); }

void CDC::DrawLine(double x0, double y0, double x1, double y1) {
  const std::array<PixelPoint, 2> points = {{{x0, y0}, {x1, y1}}};
  DrawPolyline(points);
}

}  // namespace vak
