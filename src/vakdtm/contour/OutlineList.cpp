#include "vakdtm/contour/OutlineList.h"

#include <algorithm>

namespace vak {

OutlineList::Iterator OutlineList::LowerBound(const Iterator& from, double level) const {
  return std::lower_bound(from, outlines_.cend(), level,
                          [](const Outline& outline, double least) { return outline.Level() < least; });
}

void OutlineList::Remove(int index) {
  if (index < 0 || index >= Size()) return;
  outlines_.erase(outlines_.cbegin() + index);
}

void OutlineList::Add(const Outline& outline) {
  const auto index = LowerBound(outlines_.cbegin(), outline.Level()) - outlines_.cbegin();
  const auto size = static_cast<std::ptrdiff_t>(outlines_.size());
  if (index > size / 2) {
    outlines_.push_back(outline);
    std::rotate(outlines_.begin() + index, outlines_.end() - 1, outlines_.end());
  } else {
    outlines_.push_front(outline);
    std::rotate(outlines_.begin(), outlines_.begin() + 1, outlines_.begin() + index + 1);
  }
}

void OutlineList::Add(const std::deque<Outline>& outlines) {
  if (outlines.empty()) return;
  outlines_.insert(LowerBound(outlines_.cbegin(), outlines.front().Level()), outlines.begin(), outlines.end());
}

int OutlineList::Find(double level, int first) const {
  if (first >= Size()) return -1;
  const Iterator found = LowerBound(outlines_.cbegin() + std::max(first, 0), level);
  if (found == outlines_.cend() || found->Level() != level) return -1;
  return static_cast<int>(found - outlines_.cbegin());
}

}  // namespace vak
