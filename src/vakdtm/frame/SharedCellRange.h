#pragma once

#include <mutex>
#include <optional>

#include "vakdtm/frame/CellRange.h"

namespace vak {

class DtmFile;
class Page;

/// The range of a rectangle for all walkers that divide it: found by the first of them that begins, and the same for
/// those that begin later, also when areas have come to the model in between. Any thread may ask.
class SharedCellRange {
 public:
  SharedCellRange() = default;

  /// @return what `CellRange::Find` answered to the first who asked since `Reset`.
  std::optional<CellRange> Find(const DtmFile& file, const Page& rect);

  /// Not between the first and the last who ask for one walk.
  void Reset();

 private:
  std::mutex mutex_;
  bool found_ = false;  // guarded by mutex_, like the next
  std::optional<CellRange> range_;
};

}  // namespace vak
