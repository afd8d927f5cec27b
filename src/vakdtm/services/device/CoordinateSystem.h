#pragma once

#include "vakdtm/services/device/PixelRect.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/Point.h"

namespace vak {

/// Where the model lies on a picture: a page of the world shown in a rectangle of pixels, its left top at the
/// rectangle's. World coordinates are metres, y upwards; pixels have y downwards.
///
/// (1) Each edge becomes a pixel by itself, so that pages with a common edge become pixel rectangles with a common
/// edge: without a gap, without overlapping.
/// (2) `PixelToWorld` undoes `WorldToPixel` in doubles, up to rounding.
/// What does not hold: that pixels are square. The two scales are as the page and the rectangle make them.
///
/// A plain value. Several threads may use one at once.
class CoordinateSystem {
 public:
  /// A page of area 1 on a picture of one pixel.
  CoordinateSystem() = default;
  /// A whole picture of so many pixels. @param world  with an area; else, and without pixels, it is as one of 1 x 1.
  CoordinateSystem(const Page& world, int widthPixels, int heightPixels)
      : CoordinateSystem(world, PixelRect{0, 0, widthPixels, heightPixels}) {}
  /// A part of a picture.
  CoordinateSystem(const Page& world, const PixelRect& pixels);

  /// Whether it was given a page and pixels that fit each other.
  bool IsValid() const { return valid_; }

  /// Pixels a metre: x above 0, and y below 0 as rows count downwards.
  Point GetScale() const { return {scaleX_, scaleY_}; }

  /// A rectangle of the world in whole pixels: each edge rounded to the nearest, upwards from the middle. Edges are
  /// kept within -2^30 and 2^30, so that differences stay within an int. An invalid page gives an empty rectangle.
  PixelRect WorldToPixel(const Page& world) const;

  /// The same in doubles, unrounded and unbounded: left, upper row, right, lower row, and thus a valid page of pixels.
  /// An invalid page gives an invalid one. @param pixels  may be `&world`.
  void WorldToPixel(const Page& world, Page* pixels) const;
  void WorldToPixel(double x, double y, double* pixelX, double* pixelY) const;

  /// Back again. @param pixels  its bottom and top may have changed places, as rows count downwards: what comes out is
  /// in order, unless left and right aren't.
  void PixelToWorld(const Page& pixels, Page* world) const;
  void PixelToWorld(double pixelX, double pixelY, double* x, double* y) const;

 private:
  double left_ = 0.0;  // world
  double top_ = 1.0;
  double scaleX_ = 1.0;
  double scaleY_ = -1.0;
  double pixelLeft_ = 0.0;
  double pixelTop_ = 0.0;
  bool valid_ = false;
};

}  // namespace vak
