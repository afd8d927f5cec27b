#pragma once

#include <cstddef>
#include <deque>

#include "vakdtm/contour/Contour.h"

namespace vak {

/// Contours of a surface, ascending by level. Of those with the same level, what was added later comes first, and what
/// was added together keeps its order. For one thread at a time.
class ContourList {
 public:
  ContourList() = default;
  ContourList(const ContourList&) = default;
  ContourList& operator=(const ContourList&) = default;
  virtual ~ContourList() = default;

  /// @param index  from 0 to below `Size`.
  const Contour& operator[](int index) const { return contours_[static_cast<std::size_t>(index)]; }
  int Size() const { return static_cast<int>(contours_.size()); }
  bool IsEmpty() const { return contours_.empty(); }
  void Clear() { contours_.clear(); }

  /// Adds a copy of a contour.
  void Add(const Contour& contour);
  /// Adds copies of contours, of any levels and none alike. It is this that a creator calls: whoever wants to be told
  /// of what it hands over overrides it.
  virtual void Add(const std::deque<Contour>& contours);

  /// The first contour of a level among those from an index on, a negative one being 0; -1 when there is none.
  int Find(double level, int first) const;

 private:
  using Iterator = std::deque<Contour>::const_iterator;

  /// The first from `from` on whose level isn't below this one.
  Iterator LowerBound(const Iterator& from, double level) const;

  std::deque<Contour> contours_;
};

}  // namespace vak
