#pragma once

#include <memory>
#include <optional>

#include "vakdtm/frame/AtomicCounter.h"
#include "vakdtm/frame/CellRange.h"
#include "vakdtm/frame/DtmWalker.h"
#include "vakdtm/frame/SharedCellRange.h"
#include "vakdtm/services/geometry/Page.h"

namespace vak {

/// Shows the cells of a rectangle, each with the plan area that the rectangle leaves of it; area by area, so that an
/// area's blocks are loaded once. For volumes and statistics.
///
/// The rectangle is walked by positions of areas, rows of them from the bottom, each from left to right; in a position,
/// rows of cells upwards and columns to the right. `ProcessArea` is called for every position, whether the model has an
/// area there or not; its false skips the position's cells, which then aren't counted as done. `InitRow` false skips a
/// row in the same way; its `colEnd` is the last column itself. The walk can be stopped before each position and each
/// cell.
///
/// The upper and right edges belong to the rectangle: cells that they only touch are counted, but have no plan area and
/// aren't shown. An edge that lies on one of cells but for the rounding of their product counts as lying on it. What
/// isn't cut has exactly the plan area c x c, or (S x c) x (S x c) for a position, with cells of c and areas of S cells
/// a side. An infinite rectangle is the whole model, as it is when the walk begins, see `CellRange::Find`; an invalid
/// one has no cells, and the walk answers what `Fini` does.
///
/// Several walkers on one rectangle, each on a thread of its own with its own processor and access, divide the work
/// when they share a counter and a range: each position is claimed by exactly one of them. The progress of each is the
/// part of the whole rectangle that it has done.
class DtmRectProcessor : public DtmWalker {
 public:
  /// @param rect  in model units (metres).
  /// @param owns  `access` and `processor` are deleted with the walker, the processor first.
  DtmRectProcessor(const Page& rect, DtmAccess* access, DtmProcessor* processor, bool owns);

  /// Replaces the walker's own counter. Before `Initialize` of all walkers that share it. Null leaves it as it is.
  void SetSharedCounter(const std::shared_ptr<AtomicCounter>& counter);

  /// Replaces the walker's own range, likewise. Walkers that share a counter need it as well: the range of a rectangle
  /// that is cut to the model's areas depends on when it is found, and with it what a number of the counter means.
  void SetSharedRange(const std::shared_ptr<SharedCellRange>& range);

  /// Starts anew, with the shared counter and range too: of a group, all are initialised before any runs.
  bool Initialize() override;

  bool Process() override;

 private:
  struct Walk;

  void SetTotal(const std::optional<CellRange>& range);
  bool WalkPosition(const Walk& walk, int areaRow, int areaCol);
  bool WalkCells(const Walk& walk, const CellRange& cells);
  static double CalcArea(const Walk& walk, int row, int col, int size);

  const Page rect_;
  std::shared_ptr<AtomicCounter> counter_;  // neither of them null
  std::shared_ptr<SharedCellRange> range_;
};

}  // namespace vak
