#include "vakdtm/frame/DtmExtentsProcessor.h"

#include <algorithm>
#include <limits>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"

namespace vak {

bool DtmExtentsProcessor::Init(DtmAccess& access) {
  access_ = &access;
  count_ = 0;
  minRow_ = minCol_ = 0;
  maxRow_ = maxCol_ = -1;
  return true;
}

bool DtmExtentsProcessor::ProcessCell(int row, int col, double& /*area*/) {
  if (block_ != 0) {
    double value = 0;
    if (access_ == nullptr || !access_->GetDoubleValue(row, col, block_, value)) return false;
    if (IsEmptyValue(value)) return true;
  }
  if (count_ == 0) {
    count_ = 1;
    minRow_ = maxRow_ = row;
    minCol_ = maxCol_ = col;
    return true;
  }
  if (count_ < std::numeric_limits<int>::max()) ++count_;
  minRow_ = std::min(minRow_, row);
  maxRow_ = std::max(maxRow_, row);
  minCol_ = std::min(minCol_, col);
  maxCol_ = std::max(maxCol_, col);
  return true;
}

}  // namespace vak
