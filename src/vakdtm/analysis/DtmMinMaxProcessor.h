#pragma once

#include "vakdtm/frame/DtmProcessor.h"

namespace vak {

/// Lowest and highest value of one kind over the cells that it is shown, and nothing else.
///
/// Starts anew with each walk. A cell that can't be read ends the walk with false: limits found in a part of the cells
/// would lie. A value that is no number, but not the empty one, is a limit when it is met first, and stays both; later
/// it is none. Can't be run in parallel.
class DtmMinMaxProcessor : public DtmProcessor {
 public:
  explicit DtmMinMaxProcessor(int blockId) : blockId_(blockId) {}

  bool Init(DtmAccess& access) override;
  bool ProcessCell(int row, int col, double& area) override;

  /// Whether any cell had a value; without one, the limits mean nothing.
  bool HaveValues() const { return !first_; }
  double MinValue() const { return minimum_; }
  double MaxValue() const { return maximum_; }

 private:
  int blockId_;
  DtmAccess* access_ = nullptr;
  bool first_ = true;
  double minimum_ = 0.0;
  double maximum_ = 0.0;
};

}  // namespace vak
