#include "vakdtm/frame/DtmAreaCellProcessor.h"

#include <cstddef>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

DtmAreaCellProcessor::DtmAreaCellProcessor(DtmAccess* access, DtmProcessor* processor, const std::vector<int>& areas)
    : access_(access), processor_(processor), areas_(areas) {}

bool DtmAreaCellProcessor::Process() {
  if (access_ == nullptr || processor_ == nullptr || !processor_->Init(*access_)) return false;
  const DtmFile* const file = access_->GetDtmFile();
  if (file == nullptr) return false;
  // By places in the list, which may grow, and so move, while a processor works.
  std::size_t next = 0;
  while (next < areas_.size()) {
    if (!WalkArea(*file, areas_[next++])) return false;
  }
  return processor_->Fini();
}

bool DtmAreaCellProcessor::WalkArea(const DtmFile& file, int place) {
  const DtmArea* const area = file.GetArea(place);
  if (area == nullptr) return false;
  const int size = area->AreaSize();
  const int bottom = area->BottomLeftRow();
  const int left = area->BottomLeftCol();
  const double cellSize = file.CellSize();
  double weight = size * cellSize * (size * cellSize);
  if (!processor_->ProcessArea(bottom, left, weight)) return false;
  if (!(weight > 0.0)) return true;
  for (int row = bottom; row < bottom + size; ++row) {
    for (int col = left; col < left + size; ++col) {
      weight = cellSize * cellSize;
      if (!processor_->ProcessCell(row, col, weight)) return false;
    }
  }
  return true;
}

}  // namespace vak
