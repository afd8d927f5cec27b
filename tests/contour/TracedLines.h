#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "vakdtm/services/geometry/GtlPolyline.h"

#include "contour/ReferenceTracer.h"

/// Lines of the library's tracers as plain lists, to be held against others.
namespace vak::test {

inline reference::Point2 Plain(const GTL::Point2D<double>& point) { return {point.x, point.y}; }
inline reference::Point3 Plain(const GTL::Point3D<double>& point) { return {point.x, point.y, point.z}; }

template <typename P>
auto Plain(const std::vector<GTL::Polyline<P>>& lines) {
  reference::Lines<decltype(Plain(P()))> plain;
  for (const GTL::Polyline<P>& line : lines) {
    auto& points = plain.emplace_back();
    for (int i = 0; i < line.NumPoints(); ++i) points.push_back(Plain(line[i]));
  }
  return plain;
}

/// By `==`, except that a not-a-number is taken for another.
inline bool IsSame(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }
inline bool IsSame(const reference::Point2& a, const reference::Point2& b) {
  return IsSame(a.x, b.x) && IsSame(a.y, b.y);
}
inline bool IsSame(const reference::Point3& a, const reference::Point3& b) {
  return IsSame(a.x, b.x) && IsSame(a.y, b.y) && IsSame(a.z, b.z);
}

inline void Print(std::ostream& out, const reference::Point2& point) { out << point.x << ' ' << point.y; }
inline void Print(std::ostream& out, const reference::Point3& point) {
  out << point.x << ' ' << point.y << ' ' << point.z;
}

/// @return where two lists of lines differ first, in words; empty when nowhere.
template <typename P>
std::string Difference(const reference::Lines<P>& lines, const reference::Lines<P>& expected) {
  std::ostringstream out;
  out.precision(17);
  const std::size_t count = std::max(lines.size(), expected.size());
  for (std::size_t i = 0; i < count; ++i) {
    const reference::Line<P> none;
    const reference::Line<P>& line = i < lines.size() ? lines[i] : none;
    const reference::Line<P>& other = i < expected.size() ? expected[i] : none;
    const bool same = line.size() == other.size() && std::equal(line.begin(), line.end(), other.begin(),
                                                                [](const P& a, const P& b) { return IsSame(a, b); });
    if (same) continue;
    out << "line " << i << " of " << lines.size() << ", expected " << expected.size() << ":";
    for (const P& point : line) Print(out << "\n  ", point);
    out << "\nexpected:";
    for (const P& point : other) Print(out << "\n  ", point);
    return out.str();
  }
  return {};
}

}  // namespace vak::test
