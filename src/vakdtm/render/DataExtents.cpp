#include "vakdtm/render/DataExtents.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// Rows and columns of cells, all inclusive.
struct Bounds {
  int bottom = std::numeric_limits<int>::max();
  int left = std::numeric_limits<int>::max();
  int top = std::numeric_limits<int>::min();
  int right = std::numeric_limits<int>::min();

  bool IsEmpty() const { return top < bottom; }
};

struct Candidate {
  DtmArea* area = nullptr;
  bool isRead = false;
};

Page PageOf(const DtmArea& area, double cellSize) {
  const double side = area.AreaSize() * cellSize;
  const double x = area.BottomLeftCol() * cellSize;
  const double y = area.BottomLeftRow() * cellSize;
  return {x, y, x + side, y + side};
}

void ReadArea(DtmAccess& access, int block, Candidate& candidate, Bounds& bounds) {
  if (candidate.isRead) return;
  candidate.isRead = true;
  const DtmArea& area = *candidate.area;
  double value = 0;
  for (int cell = 0; cell < area.AreaSize() * area.AreaSize(); ++cell) {
    int row = 0;
    int col = 0;
    area.CalcRowCol(cell, row, col);
    if (!access.GetDoubleValue(row, col, block, value) || IsEmptyValue(value)) continue;
    bounds.bottom = std::min(bounds.bottom, row);
    bounds.top = std::max(bounds.top, row);
    bounds.left = std::min(bounds.left, col);
    bounds.right = std::max(bounds.right, col);
  }
}

}  // namespace

bool FindDataExtents(DtmAccess& access, int block, const Page& limit, const std::atomic<bool>& running, Page& extents) {
  DtmFile* const file = access.GetDtmFile();
  if (file == nullptr) return false;
  const double cellSize = file->CellSize();
  std::vector<Candidate> candidates;
  for (int i = 0; DtmArea* const area = file->GetArea(i); ++i) {
    if (area->IsEmpty()) continue;
    if (limit.IsValid() && !limit.IsRectInPage(PageOf(*area, cellSize))) continue;
    candidates.push_back({area, false});
  }
  Bounds bounds;
  // @param outermost  orders areas by how far they reach to a side. @param mayReach  whether one may reach beyond what
  // was found on that side.
  const auto readFrom = [&](auto outermost, auto mayReach) {
    std::sort(candidates.begin(), candidates.end(),
              [&](const Candidate& a, const Candidate& b) { return outermost(*a.area, *b.area); });
    for (Candidate& candidate : candidates) {
      if (!running || !mayReach(*candidate.area)) break;
      ReadArea(access, block, candidate, bounds);
    }
  };
  readFrom([](const DtmArea& a, const DtmArea& b) { return a.BottomLeftCol() < b.BottomLeftCol(); },
           [&](const DtmArea& area) { return area.BottomLeftCol() < bounds.left; });
  readFrom([](const DtmArea& a, const DtmArea& b) { return a.BottomLeftCol() > b.BottomLeftCol(); },
           [&](const DtmArea& area) { return area.BottomLeftCol() + area.AreaSize() - 1 > bounds.right; });
  readFrom([](const DtmArea& a, const DtmArea& b) { return a.BottomLeftRow() < b.BottomLeftRow(); },
           [&](const DtmArea& area) { return area.BottomLeftRow() < bounds.bottom; });
  readFrom([](const DtmArea& a, const DtmArea& b) { return a.BottomLeftRow() > b.BottomLeftRow(); },
           [&](const DtmArea& area) { return area.BottomLeftRow() + area.AreaSize() - 1 > bounds.top; });
  if (!running || bounds.IsEmpty()) return false;
  Page found(bounds.left * cellSize, bounds.bottom * cellSize, (bounds.right + 1.0) * cellSize,
             (bounds.top + 1.0) * cellSize);
  if (limit.IsValid() && !limit.ClipRect(found)) return false;
  extents = found;
  return true;
}

}  // namespace vak
