#pragma once

#include "vakdtm/frame/DtmWalker.h"

namespace vak {

class DtmExtentsProcessor;

/// Shows every cell of the rows and columns that an earlier walk found, with an area behind it or not: the way to fill
/// gaps, and to write a raster. Rows from the top to the bottom, columns to the right.
///
/// `ProcessArea` and `InitRow` are never called. The walk can be stopped before each cell.
class DtmAllAreasCellProcessor : public DtmWalker {
 public:
  /// @param extents  read when `Process` begins, after the processor's `Init`, and not owned. With nothing found there
  ///                 are no cells, and the walk answers what `Fini` does. With null it answers false, and the processor
  ///                 is told nothing.
  /// @param owns     `access` and `processor` are deleted with the walker, the processor first.
  DtmAllAreasCellProcessor(DtmAccess* access, DtmProcessor* processor, DtmExtentsProcessor* extents, bool owns);

  bool Process() override;

  /// In whole per cents, rounded down. A second `Process` goes on counting where the first one ended.
  double GetProgress() const override;

 private:
  const DtmExtentsProcessor* const extents_;
};

}  // namespace vak
