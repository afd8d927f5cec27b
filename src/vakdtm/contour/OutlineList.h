#pragma once

#include <cstddef>
#include <deque>

#include "vakdtm/contour/Outline.h"

namespace vak {

/// Outlines in ascending order of their levels; among those of one level the last one added comes first. A value; takes
/// no lock.
class OutlineList {
 public:
  /// @param index  from 0 to below `Size`.
  const Outline& operator[](int index) const { return outlines_[static_cast<std::size_t>(index)]; }

  int Size() const { return static_cast<int>(outlines_.size()); }
  bool IsEmpty() const { return outlines_.empty(); }
  void Clear() { outlines_.clear(); }
  /// Does nothing when there is no such index.
  void Remove(int index);

  /// Puts it in front of the first whose level isn't below its own. Moves the fewer of those before and behind it.
  void Add(const Outline& outline);
  /// Puts all of them, in their own order, where `Add` would put the first: they are taken to be of one level.
  void Add(const std::deque<Outline>& outlines);

  /// @param first  where to begin: behind the last one found, to go through the outlines of a level. A negative one is
  ///               taken for 0.
  /// @return the index of the first one from there on whose level equals this one, -1 when there is none.
  int Find(double level, int first) const;

 private:
  using Iterator = std::deque<Outline>::const_iterator;

  /// The first from `from` on whose level isn't below this one.
  Iterator LowerBound(const Iterator& from, double level) const;

  std::deque<Outline> outlines_;
};

}  // namespace vak
