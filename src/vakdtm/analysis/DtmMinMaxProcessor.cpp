#include "vakdtm/analysis/DtmMinMaxProcessor.h"

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"

namespace vak {

bool DtmMinMaxProcessor::Init(DtmAccess& access) {
  access_ = &access;
  first_ = true;
  return true;
}

bool DtmMinMaxProcessor::ProcessCell(int row, int col, double& /*area*/) {
  double value = 0;
  if (!access_->GetDoubleValue(row, col, blockId_, value)) return false;
  if (IsEmptyValue(value)) return true;
  if (first_) {
    minimum_ = maximum_ = value;
    first_ = false;
  } else if (value < minimum_) {
    minimum_ = value;
  } else if (value > maximum_) {
    maximum_ = value;
  }
  return true;
}

}  // namespace vak
