#include "vakdtm/services/geometry/Page.h"

#include <array>

#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/device/CoordinateSystem.h"

namespace vak {

void Page::DrawRect(CDC* device, const CoordinateSystem& coordinates, const Page& view) const {
  if (device == nullptr || !IsRectInPage(view)) return;
  const auto draw = [&](double left, double bottom, double right, double top, std::size_t corners) {
    PixelPoint a;
    PixelPoint b;
    coordinates.WorldToPixel(left, bottom, &a.x, &a.y);
    coordinates.WorldToPixel(right, top, &b.x, &b.y);
    if (corners == 2) {
      device->DrawLine(a.x, a.y, b.x, b.y);
    } else {
      const std::array<PixelPoint, 5> frame = {a, {b.x, a.y}, b, {a.x, b.y}, a};
      device->DrawPolyline(frame);
    }
  };
  const Page seen(std::max(left_, view.left_), std::max(bottom_, view.bottom_), std::min(right_, view.right_),
                  std::min(top_, view.top_));
  const bool hasWidth = seen.left_ < seen.right_;
  const bool hasHeight = seen.bottom_ < seen.top_;
  const bool hasLeft = view.left_ <= left_;
  const bool hasBottom = view.bottom_ <= bottom_;
  const bool hasRight = right_ <= view.right_;
  const bool hasTop = top_ <= view.top_;
  if (hasLeft && hasBottom && hasRight && hasTop) {
    draw(seen.left_, seen.bottom_, seen.right_, seen.top_, 4);
    return;
  }
  if (hasBottom && hasWidth) draw(seen.left_, bottom_, seen.right_, bottom_, 2);
  if (hasRight && hasHeight) draw(right_, seen.bottom_, right_, seen.top_, 2);
  if (hasTop && hasWidth) draw(seen.left_, top_, seen.right_, top_, 2);
  if (hasLeft && hasHeight) draw(left_, seen.bottom_, left_, seen.top_, 2);
}

}  // namespace vak
