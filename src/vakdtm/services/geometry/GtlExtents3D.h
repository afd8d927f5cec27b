#pragma once

#include <algorithm>
#include <limits>

#include "vakdtm/services/geometry/GtlPoint.h"

namespace vak::GTL {

/// The smallest box, parallel to the axes, that holds what it was shown; a new one holds nothing and isn't valid.
///
/// Each axis is for itself: a coordinate that is not-a-number leaves its axis as it is. So the heights of points that
/// have none aren't known to a valid box; its `MinZ` is above its `MaxZ` then.
template <typename T>
class Extents3D {
 public:
  /// Whether it holds anything in the plane.
  bool IsValid() const { return minX_ <= maxX_ && minY_ <= maxY_; }

  /// Makes it hold nothing.
  void Reset() { *this = Extents3D(); }

  void Update(const Point3D<T>& point) {
    minX_ = std::min(minX_, point.x);
    minY_ = std::min(minY_, point.y);
    minZ_ = std::min(minZ_, point.z);
    maxX_ = std::max(maxX_, point.x);
    maxY_ = std::max(maxY_, point.y);
    maxZ_ = std::max(maxZ_, point.z);
  }

  void Update(const Extents3D& other) {
    minX_ = std::min(minX_, other.minX_);
    minY_ = std::min(minY_, other.minY_);
    minZ_ = std::min(minZ_, other.minZ_);
    maxX_ = std::max(maxX_, other.maxX_);
    maxY_ = std::max(maxY_, other.maxY_);
    maxZ_ = std::max(maxZ_, other.maxZ_);
  }

  // Infinite, the lower one positive, on an axis of which nothing is held.
  T MinX() const { return minX_; }
  T MinY() const { return minY_; }
  T MinZ() const { return minZ_; }
  T MaxX() const { return maxX_; }
  T MaxY() const { return maxY_; }
  T MaxZ() const { return maxZ_; }

  friend bool operator==(const Extents3D& a, const Extents3D& b) = default;

 private:
  static constexpr T kInfinity = std::numeric_limits<T>::infinity();

  T minX_ = kInfinity;
  T minY_ = kInfinity;
  T minZ_ = kInfinity;
  T maxX_ = -kInfinity;
  T maxY_ = -kInfinity;
  T maxZ_ = -kInfinity;
};

}  // namespace vak::GTL
