#pragma once

#include "vakdtm/frame/DtmWalker.h"

namespace vak {

class DtmArea;

/// Shows all cells of the areas that aren't empty, in the order of the file's list of areas; in each area rows upwards
/// and columns to the right. Areas that come to the model during the walk aren't visited.
///
/// An area counts as empty when that is known of it (`DtmArea::IsEmpty`). The walk can be stopped before each area and
/// each cell. `ProcessArea` false ends it with false; `InitRow` false skips the row, which then isn't counted as done,
/// so that progress needn't reach 1. `colEnd` is behind the last column.
class DtmCellProcessor : public DtmWalker {
 public:
  /// @param owns  `access` and `processor` are deleted with the walker, the processor first.
  DtmCellProcessor(DtmAccess* access, DtmProcessor* processor, bool owns);

  bool Process() override;

 private:
  bool WalkArea(const DtmArea& area, double cellSize);
};

}  // namespace vak
