#include "vakdtm/contour/Outline.h"

namespace vak {

void Outline::Reverse() {
  const int count = NumPoints();
  for (int k = 0; k < count / 2; ++k) {
    const GTL::Point3D<double> first = line_[k];
    line_.Replace(k, line_[count - 1 - k]);
    line_.Replace(count - 1 - k, first);
  }
}

}  // namespace vak
