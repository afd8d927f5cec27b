#include "vakdtm/frame/SharedCellRange.h"

namespace vak {

std::optional<CellRange> SharedCellRange::Find(const DtmFile& file, const Page& rect) {
  const std::scoped_lock lock(mutex_);
  if (!found_) range_ = CellRange::Find(file, rect);
  found_ = true;
  return range_;
}

void SharedCellRange::Reset() {
  const std::scoped_lock lock(mutex_);
  found_ = false;
}

}  // namespace vak
