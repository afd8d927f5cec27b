#pragma once

#include "vakdtm/export/DtmAsciiExporter.h"

namespace vak {

/// Writes the type of bottom at each cell: x, y, the value and the name of its type, always with commas and points,
/// whatever the locale.
///
/// A line for each cell with a value; a cell that can't be read ends the walk with false. All else, the line of
/// headings of a second kind too, is as in `DtmAsciiExporter`, though only the first kind is written.
class DtmAsciiPhiTextExporter : public DtmAsciiExporter {
 public:
  DtmAsciiPhiTextExporter(int blockId, const wchar_t* path) : DtmAsciiExporter(blockId, path) {}

  bool ProcessCell(int row, int col, double& area) override;

 private:
  PhiColorTable types_;
};

}  // namespace vak
