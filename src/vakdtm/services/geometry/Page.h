#pragma once

#include <algorithm>
#include <limits>

#include "vakdtm/services/geometry/Point.h"

namespace vak {

class CDC;
class CoordinateSystem;

/// An axis-parallel rectangle in model units, or none.
///
/// Held as two corners, left bottom and right top; its edges belong to it. It is valid, that is, holds a rectangle,
/// when left <= right and bottom <= top; a rectangle of no width or height is valid, one with a not-a-number isn't.
/// Corners aren't put in order: a page built the wrong way round is invalid.
///
/// (1) A page united with an invalid one is unchanged; an invalid one united with a page becomes that page.
/// (2) a.IsRectInPage(b) == b.IsRectInPage(a), and it is true when they have a point in common, be it on the edges
/// alone. (3) a.ClipRect(b) is true when they have an area in common; then b is that area. What does not hold: that (2)
/// implies (3). Two pages that touch meet, but have nothing left to clip.
class Page {
 public:
  /// Invalid.
  constexpr Page() = default;

  /// Left, bottom, right, top.
  constexpr Page(double x0, double y0, double x1, double y1) : left_(x0), bottom_(y0), right_(x1), top_(y1) {}

  constexpr void Set(double x0, double y0, double x1, double y1) { *this = Page(x0, y0, x1, y1); }

  /// From the left bottom corner to the right top one.
  constexpr void Set(const Point& leftBottom, const Point& rightTop) {
    *this = Page(leftBottom.x, leftBottom.y, rightTop.x, rightTop.y);
  }

  constexpr bool IsValid() const { return left_ <= right_ && bottom_ <= top_; }
  constexpr void Invalidate() { *this = Page(); }

  constexpr double left() const { return left_; }
  constexpr double bottom() const { return bottom_; }
  constexpr double right() const { return right_; }
  constexpr double top() const { return top_; }

  /// The smallest page that holds both; see (1).
  constexpr Page& operator|=(const Page& other) {
    if (!other.IsValid()) return *this;
    if (!IsValid()) return *this = other;
    left_ = std::min(left_, other.left_);
    bottom_ = std::min(bottom_, other.bottom_);
    right_ = std::max(right_, other.right_);
    top_ = std::max(top_, other.top_);
    return *this;
  }

  /// The smallest page that holds this one and the point. A point with a not-a-number changes nothing.
  constexpr Page& operator|=(const Point& point) { return *this |= Page(point.x, point.y, point.x, point.y); }

  /// Cuts `other` down to what it has in common with this page.
  /// @return false, with `other` unchanged, when that has no area: pages apart, touching, flat or invalid.
  constexpr bool ClipRect(Page& other) const {
    const Page common(std::max(left_, other.left_), std::max(bottom_, other.bottom_), std::min(right_, other.right_),
                      std::min(top_, other.top_));
    const bool hasArea = common.left_ < common.right_ && common.bottom_ < common.top_;
    if (!hasArea || !IsValid() || !other.IsValid()) return false;
    other = common;
    return true;
  }

  /// Width x height, in square model units; 0 when invalid.
  constexpr double Area() const { return IsValid() ? (right_ - left_) * (top_ - bottom_) : 0.0; }

  /// 0 when invalid.
  constexpr double Width() const { return IsValid() ? right_ - left_ : 0.0; }

  /// The middle, with z 0. Of a valid page only.
  constexpr Point GetCenter() const { return {(left_ + right_) / 2, (bottom_ + top_) / 2}; }

  /// True inside and on the edges; never in an invalid page.
  constexpr bool IsPointInPage(double x, double y) const {
    return left_ <= x && x <= right_ && bottom_ <= y && y <= top_;
  }

  /// True when the two meet, see (2); never with an invalid page.
  constexpr bool IsRectInPage(const Page& other) const {
    return IsValid() && other.IsValid() && left_ <= other.right_ && other.left_ <= right_ && bottom_ <= other.top_ &&
           other.bottom_ <= top_;
  }

  /// Draws the frame with the selected pen: of each side what lies in the view, edges included, and so nothing where
  /// the view lies inside. A frame that is wholly in the view is one closed line, one that isn't a line a side; sides
  /// that only touch the view aren't drawn.
  /// @param device  null: nothing is drawn.
  void DrawRect(CDC* device, const CoordinateSystem& coordinates, const Page& view) const;

 private:
  double left_ = std::numeric_limits<double>::infinity();
  double bottom_ = std::numeric_limits<double>::infinity();
  double right_ = -std::numeric_limits<double>::infinity();
  double top_ = -std::numeric_limits<double>::infinity();
};

}  // namespace vak
