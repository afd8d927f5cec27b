#pragma once

namespace vak {

/// A point, or a vector, in model units; z upwards positive.
struct Point {
  constexpr Point() = default;
  constexpr Point(double px, double py, double pz = 0.0) : x(px), y(py), z(pz) {}

  constexpr Point& operator+=(const Point& other) {
    x += other.x;
    y += other.y;
    z += other.z;
    return *this;
  }
  constexpr Point& operator-=(const Point& other) {
    x -= other.x;
    y -= other.y;
    z -= other.z;
    return *this;
  }

  friend constexpr Point operator+(Point a, const Point& b) { return a += b; }
  friend constexpr Point operator-(Point a, const Point& b) { return a -= b; }

  /// Exact, coordinate by coordinate, z included. A point with a not-a-number equals none, itself included.
  friend constexpr bool operator==(const Point& a, const Point& b) = default;

  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

/// Whether two points lie above each other: x and y compared exactly, z not at all.
constexpr bool SamePlace(const Point& a, const Point& b) { return a.x == b.x && a.y == b.y; }

}  // namespace vak
