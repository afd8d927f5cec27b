#pragma once

#include "vakdtm/frame/DtmProcessor.h"

namespace vak {

/// Finds the rows and columns of the cells that have a value, so that a later walk can go over a rectangle instead of
/// the whole model. Changes nothing; can't be run in parallel.
class DtmExtentsProcessor : public DtmProcessor {
 public:
  /// @param block  id of the block that tells whether a cell has a value; 0: every cell that is shown counts.
  explicit DtmExtentsProcessor(int block) : block_(block) {}

  /// Starts anew.
  bool Init(DtmAccess& access) override;

  /// False when the cell can't be read: extents measured from a part of the model would lie.
  bool ProcessCell(int row, int col, double& area) override;

  /// How many cells counted; the type's end when there were more.
  int Count() const { return count_; }

  // Limits of the cells that counted, all inclusive. While there are none, the highest is below the lowest.
  int MinRow() const { return minRow_; }
  int MaxRow() const { return maxRow_; }
  int MinCol() const { return minCol_; }
  int MaxCol() const { return maxCol_; }

 private:
  int block_;
  DtmAccess* access_ = nullptr;
  int count_ = 0;
  int minRow_ = 0;
  int maxRow_ = -1;
  int minCol_ = 0;
  int maxCol_ = -1;
};

}  // namespace vak
