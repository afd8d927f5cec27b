#pragma once

#include "vakdtm/frame/DtmWalker.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/Point.h"

namespace vak {

/// Shows the cells of a rectangle row by row across all of it, upwards and to the right, whole cells always; at a
/// drawing scale at which not all of them can be seen, some of them. For drawing.
///
/// With steps above 1 rows and columns are multiples of the step, so that the same cells are shown while a view is
/// moved; the range may then go beyond the rectangle by up to a step, and progress ends near 1 / (row step x column
/// step).
///
/// `ProcessArea` is never called. `InitRow` false skips a row; its `colEnd` is behind the last column, by up to a step.
/// The walk can be stopped before each cell. Infinite and invalid rectangles are as for `DtmRectProcessor`.
class DtmLinearRectProcessor : public DtmWalker {
 public:
  /// @param rect  in model units (metres).
  /// @param owns  `access` and `processor` are deleted with the walker, the processor first.
  DtmLinearRectProcessor(const Page& rect, DtmAccess* access, DtmProcessor* processor, bool owns);

  /// Sets the steps so that no more cells are shown than pixels. Without effect when the access has no file yet.
  /// @param scale  pixels a model unit (metre); negative in y, since rows of pixels go downwards. One that makes a step
  ///               below 1, or none, makes it 1: of the wrong sign, infinite, not a number. With 0, of either sign, all
  ///               is in one pixel, and the step is the largest there is.
  void SetDrawScale(const Point& scale);

  /// Says that the processor also looks at cells beside the one that it is shown, a step away. Not so at first.
  void SetLooksAround(bool looks) { looksAround_ = looks; }

  /// Gives the access a cache that holds the areas of a row across the rectangle, or, for a processor that looks
  /// around, of two rows that reach beyond it by one area each way; the access keeps that size afterwards.
  bool Process() override;

 private:
  const Page rect_;
  int rowStep_ = 1;
  int colStep_ = 1;
  bool looksAround_ = false;
};

}  // namespace vak
