#include "vakdtm/store/DtmRectUpdater.h"

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {
namespace {

Page SquareAt(int row, int col, double cellSize, double span) {
  const double left = col * cellSize;
  const double bottom = row * cellSize;
  return {left, bottom, left + span, bottom + span};
}

}  // namespace

DtmRectUpdater::DtmRectUpdater(DtmUpdateFile* model)
    : model_(model), cellSize_(model->CellSize()), areaSpan_(model->CellSize() * model->AreaSize()) {}

DtmRectUpdater::~DtmRectUpdater() { model_->FlushUpdateRect(); }

DtmUpdater* DtmRectUpdater::Clone() const { return new DtmRectUpdater(*this); }

void DtmRectUpdater::UpdateCell(int row, int col, bool flag) {
  model_->AddUpdateRect(SquareAt(row, col, cellSize_, cellSize_), flag);
}

void DtmRectUpdater::UpdateArea(int row, int col, bool flag) {
  model_->AddUpdateRect(SquareAt(row, col, cellSize_, areaSpan_), flag);
}

}  // namespace vak
