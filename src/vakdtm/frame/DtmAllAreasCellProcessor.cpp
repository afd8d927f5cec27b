#include "vakdtm/frame/DtmAllAreasCellProcessor.h"

#include <cstdint>

#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

DtmAllAreasCellProcessor::DtmAllAreasCellProcessor(DtmAccess* access, DtmProcessor* processor,
                                                   DtmExtentsProcessor* extents, bool owns)
    : DtmWalker(access, processor, owns), extents_(extents) {}

bool DtmAllAreasCellProcessor::Process() {
  if (extents_ == nullptr) return false;
  const DtmFile* const file = Begin();
  if (file == nullptr) return false;
  DtmProcessor& processor = Shown();
  // In 64 bits, so that the row below the type's lowest ends the walk.
  const std::int64_t lowestRow = extents_->MinRow();
  const std::int64_t highestRow = extents_->MaxRow();
  const std::int64_t lowestCol = extents_->MinCol();
  const std::int64_t highestCol = extents_->MaxCol();
  SetTotal(highestRow - lowestRow + 1, highestCol - lowestCol + 1);
  const double cellArea = file->CellSize() * file->CellSize();
  for (std::int64_t row = highestRow; row >= lowestRow; --row) {
    for (std::int64_t col = lowestCol; col <= highestCol; ++col) {
      if (IsStopped()) return false;
      double weight = cellArea;
      if (!processor.ProcessCell(static_cast<int>(row), static_cast<int>(col), weight)) return false;
      AddDone(1);
    }
  }
  return processor.Fini();
}

double DtmAllAreasCellProcessor::GetProgress() const {
  const std::int64_t total = Total();
  if (total == 0) return 0.0;
  const std::int64_t perCent = Done() * 100 / total;
  return static_cast<double>(perCent) / 100.0;
}

}  // namespace vak
