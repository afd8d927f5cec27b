#pragma once

namespace vak::GTL {

/// A position in the plane, in model units.
template <typename T>
struct Point2D {
  constexpr Point2D() = default;
  constexpr Point2D(T px, T py) : x(px), y(py) {}

  /// Exact: -0 equals 0, and a point with a not-a-number equals none, itself included.
  friend constexpr bool operator==(const Point2D& a, const Point2D& b) { return a.x == b.x && a.y == b.y; }

  T x{};
  T y{};
};

/// A position in space, in model units, z upwards positive, with a fourth number for its user.
template <typename T>
struct Point3D {
  constexpr Point3D() = default;
  constexpr Point3D(T px, T py, T pz, T pw = T{}) : x(px), y(py), z(pz), w(pw) {}
  /// At z 0.
  constexpr explicit Point3D(const Point2D<T>& point) : x(point.x), y(point.y) {}

  /// By the position, as exact as that of `Point2D`; the fourth number isn't looked at.
  friend constexpr bool operator==(const Point3D& a, const Point3D& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
  }

  T x{};
  T y{};
  T z{};
  T w{};
};

}  // namespace vak::GTL
