#include "vakdtm/contour/ContourList.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vak {

ContourList::Iterator ContourList::LowerBound(const Iterator& from, double level) const {
  return std::lower_bound(from, contours_.cend(), level,
                          [](const Contour& contour, double least) { return contour.Level() < least; });
}

void ContourList::Add(const Contour& contour) {
  contours_.insert(LowerBound(contours_.cbegin(), contour.Level()), contour);
}

void ContourList::Add(const std::deque<Contour>& contours) {
  if (contours.empty()) return;
  // What is made of one level goes where it belongs, and only the fewer of those before and behind it are moved.
  const double level = contours.front().Level();
  if (std::all_of(contours.begin(), contours.end(), [&](const Contour& added) { return added.Level() == level; })) {
    contours_.insert(LowerBound(contours_.cbegin(), level), contours.begin(), contours.end());
    return;
  }
  std::deque<Contour> added = contours;
  std::stable_sort(added.begin(), added.end());
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
  if (first >= Size()) return -1;
  const Iterator found = LowerBound(contours_.cbegin() + std::max(first, 0), level);
  if (found == contours_.cend() || found->Level() != level) return -1;
  return static_cast<int>(found - contours_.cbegin());
}

}  // namespace vak
