#include "vakdtm/services/device/CoordinateSystem.h"

#include <algorithm>
#include <cmath>

namespace vak {
namespace {

/// @param edge  not a not-a-number.
int ToPixel(double edge) {
  constexpr double kFarthest = 1 << 30;
  const double kept = std::clamp(edge + 0.5, -kFarthest, kFarthest);
  // The floor by truncation: it is asked for four times a cell, and std::floor is slow where the processor's own
  // rounding can't be counted on.
  const int towardsZero = static_cast<int>(kept);
  return towardsZero - (kept < towardsZero ? 1 : 0);
}

bool IsScale(double scale) { return scale > 0 && std::isfinite(scale) && std::isfinite(1.0 / scale); }

}  // namespace

CoordinateSystem::CoordinateSystem(const Page& world, const PixelRect& pixels) {
  const double width = static_cast<double>(pixels.right) - pixels.left;
  const double height = static_cast<double>(pixels.bottom) - pixels.top;
  const double scaleX = width / (world.right() - world.left());
  const double scaleY = height / (world.top() - world.bottom());
  // A side of no length, or of one that no double holds, makes a scale that is none.
  if (!world.IsValid() || pixels.IsEmpty() || !IsScale(scaleX) || !IsScale(scaleY)) return;
  left_ = world.left();
  top_ = world.top();
  scaleX_ = scaleX;
  scaleY_ = -scaleY;
  pixelLeft_ = pixels.left;
  pixelTop_ = pixels.top;
  valid_ = true;
}

PixelRect CoordinateSystem::WorldToPixel(const Page& world) const {
  if (!world.IsValid()) return {};
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
  WorldToPixel(world.left(), world.top(), &left, &top);
  WorldToPixel(world.right(), world.bottom(), &right, &bottom);
  return {ToPixel(left), ToPixel(top), ToPixel(right), ToPixel(bottom)};
}

void CoordinateSystem::WorldToPixel(const Page& world, Page* pixels) const {
  if (!world.IsValid()) {
    pixels->Invalidate();
    return;
  }
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
  WorldToPixel(world.left(), world.top(), &left, &top);
  WorldToPixel(world.right(), world.bottom(), &right, &bottom);
  pixels->Set(left, top, right, bottom);
}

void CoordinateSystem::WorldToPixel(double x, double y, double* pixelX, double* pixelY) const {
  *pixelX = pixelLeft_ + (x - left_) * scaleX_;
  *pixelY = pixelTop_ + (y - top_) * scaleY_;
}

void CoordinateSystem::PixelToWorld(const Page& pixels, Page* world) const {
  double left = 0;
  double right = 0;
  double one = 0;
  double other = 0;
  PixelToWorld(pixels.left(), pixels.bottom(), &left, &one);
  PixelToWorld(pixels.right(), pixels.top(), &right, &other);
  world->Set(left, std::min(one, other), right, std::max(one, other));
}

void CoordinateSystem::PixelToWorld(double pixelX, double pixelY, double* x, double* y) const {
  *x = left_ + (pixelX - pixelLeft_) / scaleX_;
  *y = top_ + (pixelY - pixelTop_) / scaleY_;
}

}  // namespace vak
