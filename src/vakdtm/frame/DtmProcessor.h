#pragma once

#include "vakdtm/services/geometry/Page.h"

namespace vak {

class DtmAccess;

/// Something that is done with the cells of a grid model, one cell after the other: the base of statistics, filters,
/// contours, exports, drawing.
///
/// A processor doesn't know how it is driven. A walker (`DtmCellProcessor`, `DtmAllAreasCellProcessor`,
/// `DtmAreaCellProcessor`, `DtmRectProcessor`, `DtmLinearRectProcessor`) chooses the cells and their order, and calls
///
/// - `Init` once, first. False ends the walk with false; nothing else is called, `Fini` neither.
/// - `ProcessArea` before the cells of an area, which may also be a place where there is no area.
/// - `InitRow` before the cells of a row.
/// - `ProcessCell` for each cell. False ends the walk with false, at once.
/// - `Fini` once, when the walk has run to its end; its answer is the walk's. A walk that failed or was stopped doesn't
///   call it: what `Init` took is freed by the destructor.
///
/// | Walker                     | order                 | `ProcessArea` | `InitRow` | `colEnd`        | stop tested |
/// |----------------------------|-----------------------|---------------|-----------|-----------------|-------------|
/// | `DtmCellProcessor`         | areas as listed       | false ends    | called    | behind the last | area, cell  |
/// | `DtmAllAreasCellProcessor` | rows from the top     | never called  | never     |                 | cell        |
/// | `DtmAreaCellProcessor`     | areas as asked for    | false ends    | never     |                 | never       |
/// | `DtmRectProcessor`         | areas from the bottom | false skips   | called    | the last itself | area, cell  |
/// | `DtmLinearRectProcessor`   | rows from the bottom  | never called  | called    | behind the last | cell        |
///
/// `ProcessArea` false ends the walk with false, or skips the area's cells. Who sizes a buffer by `colEnd` allows for
/// one column more under `DtmRectProcessor`. In an area, rows go upwards and columns to the right. An override of
/// `InitRow` that answers false skips the cells of the row. A stop is tested before each of what the table names, and
/// ends the walk with false.
///
/// A processor belongs to the thread that runs its walker. It doesn't own the access that it is shown.
class DtmProcessor {
 public:
  virtual ~DtmProcessor() = default;

  /// A new processor, the caller's, that can do the same work on another thread with an access of its own.
  /// @return null when the processor can't be run in parallel.
  virtual DtmProcessor* Clone() { return nullptr; }

  /// @param access  what the walker walks on; good until the walk ends, for reading neighbouring cells too.
  virtual bool Init(DtmAccess& access) = 0;

  virtual bool Fini() { return true; }

  /// @param colEnd  depends on the walker, see the table.
  virtual bool InitRow([[maybe_unused]] int row, [[maybe_unused]] int colBegin, [[maybe_unused]] int colEnd) {
    return true;
  }

  /// @param row,col  of the area's bottom-left cell.
  /// @param area     plan area of what is to be walked of it, in square model units (square metres). Who leaves 0 or
  ///                 less in it doesn't want the area's cells: the walker skips them, and they count as done. A
  ///                 not-a-number isn't 0 or less to `DtmCellProcessor`, which goes on; it isn't above 0 to
  ///                 `DtmAreaCellProcessor` and `DtmRectProcessor`, which skip the cells.
  virtual bool ProcessArea([[maybe_unused]] int row, [[maybe_unused]] int col, [[maybe_unused]] double& area) {
    return true;
  }

  /// @param area  plan area of the cell, in square model units (square metres): less than the whole cell where a
  ///              rectangle or a polygon cuts it. A `DtmMultiProcessor` doesn't show the cell to its further members
  ///              when 0 or less is left in it.
  virtual bool ProcessCell(int row, int col, double& area) = 0;

  // Walks on the calling thread. They answer as the walk does.

  /// All cells of the areas that aren't empty.
  bool ProcessAllCells(DtmAccess& access);
  /// The cells of a rectangle, area by area.
  /// @param rect  in model units (metres).
  bool ProcessRect(DtmAccess& access, const Page& rect);
  /// The cells of a rectangle, row by row, with steps of 1.
  /// @param rect  in model units (metres).
  bool ProcessLinearRect(DtmAccess& access, const Page& rect);

 protected:
  DtmProcessor() = default;
  DtmProcessor(const DtmProcessor&) = default;
  DtmProcessor& operator=(const DtmProcessor&) = default;
};

}  // namespace vak
