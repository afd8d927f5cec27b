#pragma once

#include <algorithm>

namespace vak {

/// A range of values, ends included; a new one holds none.
class AreaExt {
 public:
  AreaExt() = default;

  /// Widens the range so that it holds the value. A not-a-number in an empty range leaves it empty.
  AreaExt& operator+=(double value) {
    if (!IsValid()) {
      min_ = max_ = value;
    } else {
      min_ = std::min(min_, value);
      max_ = std::max(max_, value);
    }
    return *this;
  }

  bool Inside(double value) const { return min_ <= value && value <= max_; }

  // Of a valid range only.
  double Min() const { return min_; }
  double Max() const { return max_; }

  /// Whether it holds any value.
  bool IsValid() const { return max_ >= min_; }

 private:
  double min_ = 1.0;
  double max_ = 0.0;
};

}  // namespace vak
