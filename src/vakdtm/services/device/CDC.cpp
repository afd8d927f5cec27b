#include "vakdtm/services/device/CDC.h"

#include <array>

namespace vak {

void CDC::DrawLine(double x0, double y0, double x1, double y1) {
  const std::array<PixelPoint, 2> points = {{{x0, y0}, {x1, y1}}};
  DrawPolyline(points);
}

}  // namespace vak
