#include "vakdtm/contour/ContourList.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vak {

void ContourList::Add(const std::deque<Contour>& contours) {
  if (contours.empty()) return;
  std::deque<Contour> added = contours;
  std::stable_sort(added.begin(), added.end());
  // Levels are mostly added from the lowest to the highest.
  if (contours_.empty() || contours_.back() < added.front()) {
    contours_.insert(contours_.end(), added.begin(), added.end());
    return;
  }
  std::deque<Contour> merged;
  std::merge(std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()),
             std::make_move_iterator(contours_.begin()), std::make_move_iterator(contours_.end()),
             std::back_inserter(merged));
  contours_ = std::move(merged);
}

int ContourList::Find(double level, int first) const {
  if (first < 0 || first >= Size()) return -1;
  const auto found = std::lower_bound(contours_.begin() + first, contours_.end(), Contour(level));
  if (found == contours_.end() || found->Level() != level) return -1;
  return static_cast<int>(found - contours_.begin());
}

}  // namespace vak
