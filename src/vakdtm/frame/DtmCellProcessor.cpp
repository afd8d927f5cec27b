#include "vakdtm/frame/DtmCellProcessor.h"

#include <cstdint>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

DtmCellProcessor::DtmCellProcessor(DtmAccess* access, DtmProcessor* processor, bool owns)
    : DtmWalker(access, processor, owns) {}

bool DtmCellProcessor::Process() {
  SetDone(0);
  const DtmFile* const file = Begin();
  if (file == nullptr) return false;
  const std::int64_t areaCells = std::int64_t{file->AreaSize()} * file->AreaSize();
  const int count = file->NumAreas();
  SetTotal(areaCells, count);
  for (int i = 0; i < count; ++i) {
    if (IsStopped()) return false;
    DtmArea* const area = file->GetArea(i);
    // An area that was given back during the walk has no cells either.
    if (area == nullptr || area->IsEmpty()) {
      AddDone(areaCells);
      continue;
    }
    if (!WalkArea(*area, file->CellSize())) return false;
  }
  return Shown().Fini();
}

bool DtmCellProcessor::WalkArea(const DtmArea& area, double cellSize) {
  DtmProcessor& processor = Shown();
  const int size = area.AreaSize();
  const int bottom = area.BottomLeftRow();
  const int left = area.BottomLeftCol();
  double weight = size * cellSize * (size * cellSize);
  if (!processor.ProcessArea(bottom, left, weight)) return false;
  if (weight <= 0.0) {
    AddDone(std::int64_t{size} * size);
    return true;
  }
  const double cellArea = cellSize * cellSize;
  for (int row = bottom; row < bottom + size; ++row) {
    if (!processor.InitRow(row, left, left + size)) continue;
    for (int col = left; col < left + size; ++col) {
      if (IsStopped()) return false;
      weight = cellArea;
      if (!processor.ProcessCell(row, col, weight)) return false;
      AddDone(1);
    }
  }
  return true;
}

}  // namespace vak
