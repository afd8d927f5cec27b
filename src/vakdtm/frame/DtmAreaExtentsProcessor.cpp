#include "vakdtm/frame/DtmAreaExtentsProcessor.h"

#include <algorithm>

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

bool DtmAreaExtentsProcessor::Init(DtmAccess& access) {
  const DtmFile* const file = access.GetDtmFile();
  if (file == nullptr) return false;
  areaSize_ = file->AreaSize();
  cellSize_ = file->CellSize();
  return true;
}

bool DtmAreaExtentsProcessor::ProcessArea(int row, int col, double& area) {
  area = 0.0;
  if (!set_) {
    minRow_ = maxRow_ = row;
    minCol_ = maxCol_ = col;
    set_ = true;
    return true;
  }
  minRow_ = std::min(minRow_, row);
  maxRow_ = std::max(maxRow_, row);
  minCol_ = std::min(minCol_, col);
  maxCol_ = std::max(maxCol_, col);
  return true;
}

bool DtmAreaExtentsProcessor::ProcessCell(int /*row*/, int /*col*/, double& /*area*/) { return true; }

bool DtmAreaExtentsProcessor::GetExtents(Page& page) const {
  if (!set_) return false;
  page.Set(minCol_ * cellSize_, minRow_ * cellSize_, (static_cast<double>(maxCol_) + areaSize_) * cellSize_,
           (static_cast<double>(maxRow_) + areaSize_) * cellSize_);
  return true;
}

bool DtmAreaExtentsProcessor::GetExtents(int& minRow, int& minCol, int& maxRow, int& maxCol) const {
  if (!set_) return false;
  minRow = minRow_;
  minCol = minCol_;
  maxRow = maxRow_ + (areaSize_ - 1);
  maxCol = maxCol_ + (areaSize_ - 1);
  return true;
}

}  // namespace vak
