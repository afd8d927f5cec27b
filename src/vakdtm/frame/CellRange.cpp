#include "vakdtm/frame/CellRange.h"

#include <algorithm>
#include <limits>

#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// As many as an `AtomicCounter` can hand out, and a claim beyond the last for each of many walkers.
constexpr std::int64_t kMostPositions = std::numeric_limits<int>::max() - 65536;

bool HasTooMany(const CellRange& range, int areaSize) {
  if (range.IsEmpty()) return false;
  const CellRange areas = range.Areas(areaSize);
  return areas.NumRows() > kMostPositions / areas.NumCols();
}

/// Rows or columns that the model may have, of those between two.
void CutToAllowed(const DtmFile& file, int& lowest, int& highest) {
  lowest = std::max(lowest, -file.LargestAllowed());
  highest = std::min(highest, file.LargestAllowed());
}

CellRange CutToAreas(const DtmFile& file, CellRange range) {
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  if (!file.GetAreaExtents(x0, y0, x1, y1)) return {};
  // By the middles of the corner cells: on their edges rounding might tell another cell.
  const double half = file.CellSize() / 2;
  CellRange areas;
  file.CalcRowCol(x0 + half, y0 + half, areas.lowestRow, areas.lowestCol);
  file.CalcRowCol(x1 - half, y1 - half, areas.highestRow, areas.highestCol);
  range.lowestRow = std::max(range.lowestRow, areas.lowestRow);
  range.lowestCol = std::max(range.lowestCol, areas.lowestCol);
  range.highestRow = std::min(range.highestRow, areas.highestRow);
  range.highestCol = std::min(range.highestCol, areas.highestCol);
  return range;
}

}  // namespace

CellRange CellRange::Areas(int areaSize) const {
  return {CalcAreaIndex(areaSize, lowestRow), CalcAreaIndex(areaSize, highestRow), CalcAreaIndex(areaSize, lowestCol),
          CalcAreaIndex(areaSize, highestCol)};
}

std::optional<CellRange> CellRange::Find(const DtmFile& file, const Page& rect) {
  if (!rect.IsValid()) return CellRange();
  CellRange range;
  file.CalcRowCol(rect.left(), rect.bottom(), range.lowestRow, range.lowestCol);
  file.CalcRowCol(rect.right(), rect.top(), range.highestRow, range.highestCol);
  CutToAllowed(file, range.lowestRow, range.highestRow);
  CutToAllowed(file, range.lowestCol, range.highestCol);
  if (HasTooMany(range, file.AreaSize())) range = CutToAreas(file, range);
  if (HasTooMany(range, file.AreaSize())) return std::nullopt;
  return range;
}

}  // namespace vak
