#pragma once

#include "vakdtm/frame/DtmProcessor.h"

namespace vak {

class Page;

/// Finds how far the areas of a model reach, without a look at a cell. Changes nothing; can't be run in parallel.
class DtmAreaExtentsProcessor : public DtmProcessor {
 public:
  DtmAreaExtentsProcessor() = default;

  /// Takes the sizes from the access's file. Areas seen before are kept, so that several walks can be measured as one.
  /// @return false when the access has no file.
  bool Init(DtmAccess& access) override;

  /// Notes the area, and doesn't want its cells.
  bool ProcessArea(int row, int col, double& area) override;
  bool ProcessCell(int row, int col, double& area) override;

  // False, with nothing changed, when no area was seen.

  /// @param page  gets the outer edges of the outermost areas, in model units (metres).
  bool GetExtents(Page& page) const;
  /// Rows and columns of cells, inclusive.
  bool GetExtents(int& minRow, int& minCol, int& maxRow, int& maxCol) const;

 private:
  int areaSize_ = 0;     // cells
  double cellSize_ = 0;  // metres
  bool set_ = false;     // an area was seen
  int minRow_ = 0;       // of the areas' first cells, like those below
  int minCol_ = 0;
  int maxRow_ = 0;
  int maxCol_ = 0;
};

}  // namespace vak
