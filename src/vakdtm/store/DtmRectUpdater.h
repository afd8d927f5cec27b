#pragma once

#include "vakdtm/store/DtmUpdater.h"

namespace vak {

class DtmUpdateFile;

/// Hands the rectangle of every changed cell or area straight on to the model.
///
/// Doesn't own the model, which must outlive it. Destruction flushes the model's pending rectangle.
class DtmRectUpdater final : public DtmUpdater {
 public:
  explicit DtmRectUpdater(DtmUpdateFile* model);
  DtmRectUpdater(const DtmRectUpdater&) = default;
  DtmRectUpdater& operator=(const DtmRectUpdater&) = delete;
  ~DtmRectUpdater() override;

  DtmUpdater* Clone() const override;
  void UpdateCell(int row, int col, bool flag) override;
  void UpdateArea(int row, int col, bool flag) override;

 private:
  DtmUpdateFile* model_;
  double cellSize_;  // metres
  double areaSpan_;  // metres
};

}  // namespace vak
