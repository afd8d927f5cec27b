#pragma once

#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/services/geometry/GtlPolyline.h"

namespace vak {

/// A contour: a line in the plane along which a surface has one level. A value; copies share their points.
class Contour {
 public:
  /// A contour without points.
  explicit Contour(double level) : level_(level) {}

  double Level() const { return level_; }
  int NumPoints() const { return line_.NumPoints(); }
  /// @param index  from 0 to below `NumPoints`.
  const GTL::Point2D<double>& operator[](int index) const { return line_[index]; }

  const GTL::Polyline<GTL::Point2D<double>>& Line() const { return line_; }
  GTL::Polyline<GTL::Point2D<double>>& Line() { return line_; }

  /// Turns the line round.
  void Reverse();

  /// By level.
  bool operator<(const Contour& other) const { return level_ < other.level_; }

 private:
  double level_;
  GTL::Polyline<GTL::Point2D<double>> line_;
};

}  // namespace vak
