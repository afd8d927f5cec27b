#pragma once

#include <string>

#include "vakdtm/export/ValueFormat.h"
#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/files/OutputFile.h"

namespace vak {

class DtmExtentsProcessor;

/// Writes one kind of a model as an Esri ASCII grid: a header, then every cell of a rectangle, the north row first.
///
/// To be walked by a `DtmAllAreasCellProcessor` over the same extents, which visits the cells in the file's order,
/// empty ones too. Behind a `DtmEsriPolyClipper` the cells outside the polygon count as empty.
///
/// The file is opened by the constructor. `Init` answers false when that failed, when the format can't be used or the
/// header can't be written; `ProcessCell` when a write fails. Written text goes to the disk in large pieces: ask
/// `Close` whether all of it has arrived. A second walk writes a second header.
class DtmAsciiEsriExporter : public DtmProcessor {
 public:
  /// @param extents      has run by the time of `Init`; not owned, outlives the walk.
  /// @param noDataText   what stands for an empty cell, a blank behind it.
  /// @param valueFormat  a `printf` pattern for one double with its own separator, as L"%.3f "; see `ValueFormat`.
  /// @param corner       true: the header has the grid's lower left corner. False: the centre of its lower left cell.
  /// @param path         created, or emptied.
  DtmAsciiEsriExporter(int blockId, DtmExtentsProcessor* extents, const wchar_t* noDataText, const wchar_t* valueFormat,
                       bool corner, const wchar_t* path);

  bool Init(DtmAccess& access) override;
  bool ProcessCell(int row, int col, double& area) override;

  /// Ends the file, once. @return whether all that was ever written has arrived. Nothing can be written afterwards.
  bool Close() { return file_.Close(); }

 private:
  std::string Header(double cellSize) const;
  bool Write(const std::string& text);

  int blockId_;
  DtmExtentsProcessor* extents_;
  std::string noDataText_;
  ValueFormat valueFormat_;
  bool corner_;
  OutputFile file_;
  DtmAccess* access_ = nullptr;
  std::string item_;  // kept for its memory
};

}  // namespace vak
