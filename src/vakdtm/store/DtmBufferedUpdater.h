#pragma once

#include <cstdint>
#include <limits>

#include "vakdtm/store/DtmUpdater.h"

namespace vak {

class DtmUpdateFile;

/// Gathers the rectangle of all changed cells and areas and hands it to the model from time to time: for jobs that
/// change millions of cells.
///
/// A change costs four comparisons and one reading of the millisecond clock; no lock, no allocation. Belongs to one
/// thread, as its access does; a clone gathers on its own. Doesn't own the model, which must outlive it.
class DtmBufferedUpdater final : public DtmUpdater {
 public:
  /// @param waitMs  a change is handed on when more than this many milliseconds have passed since the last time. The
  /// first change is handed on at once.
  DtmBufferedUpdater(DtmUpdateFile* model, unsigned long waitMs);
  /// The copy holds what is gathered as well, and hands it on as well.
  DtmBufferedUpdater(const DtmBufferedUpdater&) = default;
  DtmBufferedUpdater& operator=(const DtmBufferedUpdater&) = delete;
  /// Hands on what is gathered and has the model announce it.
  ~DtmBufferedUpdater() override;

  DtmUpdater* Clone() const override;
  /// `flag` true stays until the next handing on.
  void UpdateCell(int row, int col, bool flag) override;
  void UpdateArea(int row, int col, bool flag) override;

 private:
  static constexpr int kNoLowest = std::numeric_limits<int>::max();
  static constexpr int kNoHighest = std::numeric_limits<int>::min();

  void Gather(int row, int col, int size, bool flag);
  void FlushUpdateRect();

  DtmUpdateFile* model_;
  double cellSize_;  // metres
  int areaSize_;     // cells
  int lowestRow_ = kNoLowest;
  int highestRow_ = kNoHighest;
  int lowestCol_ = kNoLowest;
  int highestCol_ = kNoHighest;
  bool flag_ = false;
  std::uint32_t wait_;           // ms
  std::uint32_t lastFlush_ = 0;  // ms
};

}  // namespace vak
