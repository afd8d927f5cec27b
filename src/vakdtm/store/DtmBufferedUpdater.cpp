#include "vakdtm/store/DtmBufferedUpdater.h"

#include <algorithm>

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {

DtmBufferedUpdater::DtmBufferedUpdater(DtmUpdateFile* model, unsigned long waitMs)
    : model_(model),
      cellSize_(model->CellSize()),
      areaSize_(model->AreaSize()),
      wait_(static_cast<std::uint32_t>(std::min<unsigned long>(waitMs, std::numeric_limits<std::uint32_t>::max()))) {}

DtmBufferedUpdater::~DtmBufferedUpdater() {
  FlushUpdateRect();
  model_->FlushUpdateRect();
}

DtmUpdater* DtmBufferedUpdater::Clone() const { return new DtmBufferedUpdater(*this); }

void DtmBufferedUpdater::UpdateCell(int row, int col, bool flag) { Gather(row, col, 1, flag); }

void DtmBufferedUpdater::UpdateArea(int row, int col, bool flag) { Gather(row, col, areaSize_, flag); }

void DtmBufferedUpdater::Gather(int row, int col, int size, bool flag) {
  lowestRow_ = std::min(lowestRow_, row);
  highestRow_ = std::max(highestRow_, row + size - 1);
  lowestCol_ = std::min(lowestCol_, col);
  highestCol_ = std::max(highestCol_, col + size - 1);
  flag_ = flag_ || flag;
  const std::uint32_t now = timeGetTime();
  // The counter wraps; then the time that has passed isn't known.
  if (now < lastFlush_ || now - lastFlush_ > wait_) FlushUpdateRect();
}

void DtmBufferedUpdater::FlushUpdateRect() {
  if (lowestRow_ > highestRow_) return;
  model_->AddUpdateRect(
      {lowestCol_ * cellSize_, lowestRow_ * cellSize_, (highestCol_ + 1) * cellSize_, (highestRow_ + 1) * cellSize_},
      flag_);
  lowestRow_ = lowestCol_ = kNoLowest;
  highestRow_ = highestCol_ = kNoHighest;
  flag_ = false;
  lastFlush_ = timeGetTime();
}

}  // namespace vak
