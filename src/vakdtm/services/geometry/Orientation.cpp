#include "vakdtm/services/geometry/Orientation.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

namespace vak {
namespace {

/// A sum of doubles without rounding: parts that don't overlap, smallest first.
class Expansion {
 public:
  void Add(double term) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < size_; ++i) {
      const double sum = term + parts_[i];
      const double virtualPart = sum - term;
      const double lost = (term - (sum - virtualPart)) + (parts_[i] - virtualPart);
      if (lost != 0) parts_[used++] = lost;
      term = sum;
    }
    if (term != 0) parts_[used++] = term;
    size_ = used;
  }

  void AddProduct(double a, double b) {
    const double product = a * b;
    Add(std::fma(a, b, -product));
    Add(product);
  }

  /// The largest part outweighs all others.
  int Sign() const {
    if (size_ == 0) return 0;
    return parts_[size_ - 1] > 0 ? 1 : -1;
  }

 private:
  std::array<double, 12> parts_{};
  std::size_t size_ = 0;
};

int ExactSign(const Point& a, const Point& b, const Point& c) {
  Expansion sum;
  sum.AddProduct(a.x, b.y);
  sum.AddProduct(-a.y, b.x);
  sum.AddProduct(b.x, c.y);
  sum.AddProduct(-b.y, c.x);
  sum.AddProduct(c.x, a.y);
  sum.AddProduct(-c.y, a.x);
  return sum.Sign();
}

}  // namespace

int OrientationSign(const Point& a, const Point& b, const Point& c) {
  constexpr double kUnit = std::numeric_limits<double>::epsilon() / 2;
  const double left = (a.x - c.x) * (b.y - c.y);
  const double right = (a.y - c.y) * (b.x - c.x);
  const double cross = left - right;
  const double bound = (3 + 16 * kUnit) * kUnit * (std::fabs(left) + std::fabs(right));
  if (cross > bound) return 1;
  if (-cross > bound) return -1;
  return ExactSign(a, b, c);
}

}  // namespace vak
