#include "vakdtm/export/BlockRange.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "vakdtm/export/CellRows.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

bool FindBlockRange(DtmAccess& access, int blockId, const std::function<bool()>& stop, double& low, double& high) {
  DtmFile* const file = access.GetDtmFile();
  if (file == nullptr) return false;
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -std::numeric_limits<double>::infinity();
  const int size = file->AreaSize();
  std::vector<double> values(static_cast<std::size_t>(size));
  const int count = file->NumAreas();
  for (int index = 0; index < count; ++index) {
    if (stop && stop()) return false;
    const DtmArea* const area = file->GetArea(index);
    if (area == nullptr) continue;
    const std::int64_t left = area->BottomLeftCol();
    CellRows rows(access, {blockId}, left, left + size - 1);
    for (int row = 0; row < size; ++row) {
      rows.Read(std::int64_t{area->BottomLeftRow()} + row, 0, std::numeric_limits<double>::quiet_NaN(), values.data());
      for (const double value : values) {
        if (!std::isfinite(value)) continue;
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
      }
    }
  }
  if (!(lowest <= highest)) return false;
  low = lowest;
  high = highest;
  return true;
}

}  // namespace vak
