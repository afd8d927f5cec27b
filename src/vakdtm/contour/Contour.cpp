#include "vakdtm/contour/Contour.h"

namespace vak {

void Contour::Reverse() {
  for (int first = 0, last = NumPoints() - 1; first < last; ++first, --last) {
    const GTL::Point2D<double> point = line_[first];
    line_.Replace(first, line_[last]);
    line_.Replace(last, point);
  }
}

}  // namespace vak
