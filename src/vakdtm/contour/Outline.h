#pragma once

#include "vakdtm/services/geometry/GtlPolyline.h"

namespace vak {

/// A line around data of a grid model, with the level that it is filed under. Each point has the height of the cell
/// beside it; the side without data lies on the left. A value whose copies share their points until one is changed.
class Outline {
 public:
  explicit Outline(double level) : level_(level) {}

  double Level() const { return level_; }
  GTL::Polyline<GTL::Point3D<double>>& Line() { return line_; }
  const GTL::Polyline<GTL::Point3D<double>>& Line() const { return line_; }

  /// @param index  from 0 to below `NumPoints`.
  const GTL::Point3D<double>& operator[](int index) const { return line_[index]; }
  int NumPoints() const { return line_.NumPoints(); }
  bool IsEmpty() const { return line_.NumPoints() == 0; }
  /// In space, in model units (metres).
  double Length() const { return line_.Length(false); }
  /// Whether it ends where it begins; not without points.
  bool IsClosed() const { return line_.IsClosed(); }

  /// By level alone.
  bool operator<(const Outline& other) const { return level_ < other.level_; }

  /// Removes all points; the level stays.
  void Clear() { line_.Clear(); }
  /// Makes it run the other way.
  void Reverse();

 private:
  double level_;
  GTL::Polyline<GTL::Point3D<double>> line_;
};

}  // namespace vak
