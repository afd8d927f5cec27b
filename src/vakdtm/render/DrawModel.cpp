#include "vakdtm/render/DrawModel.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>

#include "vakdtm/frame/CellRange.h"
#include "vakdtm/frame/DrawStep.h"
#include "vakdtm/frame/DtmLinearRectProcessor.h"
#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/frame/DtmRectProcessor.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/geometry/Point.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// From this step of rows on, cells are read by themselves. Below it a walk meets most pages of a block anyway, and
/// reading the block at once costs less than its rows one by one.
constexpr int kSparseStep = 8;

/// Has the access read single cells for a scope.
class SparseReading {
 public:
  SparseReading(DtmAccess& access, bool sparse) : access_(access), before_(access.SetSparseReading(sparse)) {}
  ~SparseReading() { access_.SetSparseReading(before_); }
  SparseReading(const SparseReading&) = delete;
  SparseReading& operator=(const SparseReading&) = delete;

 private:
  DtmAccess& access_;
  const bool before_;
};

/// The last multiple of a step that isn't above a row or column.
std::int64_t AlignDown(std::int64_t value, int step) {
  const std::int64_t rest = value % step;
  return value - (rest < 0 ? rest + step : rest);
}

/// The first multiple of a step that isn't below a row or column.
std::int64_t AlignUp(std::int64_t value, int step) { return -AlignDown(-value, step); }

/// An edge of a view, moved outwards into the cell that stands for those that the view begins with, so that it is shown
/// however the walker rounds. Into its middle: what is on an edge may count for the cell before.
double AlignEdge(double edge, double cellSize, int step) {
  if (step == 1) return edge;
  const double first = std::floor(edge / cellSize);
  return std::min(edge, (std::floor(first / step) * step + 0.5) * cellSize);
}

/// The walk that `DtmRectProcessor` makes, without the cells that stand for nothing.
class SteppedWalk {
 public:
  SteppedWalk(DtmProcessor& processor, const DtmFile& file, const CellRange& range, int rowStep, int colStep)
      : processor_(processor),
        areaSize_(file.AreaSize()),
        cellSize_(file.CellSize()),
        range_(range),
        rowStep_(rowStep),
        colStep_(colStep) {}

  bool ShowAreas() const {
    const CellRange areas = range_.Areas(areaSize_);
    for (int areaRow = areas.lowestRow; areaRow <= areas.highestRow; ++areaRow) {
      for (int areaCol = areas.lowestCol; areaCol <= areas.highestCol; ++areaCol) {
        if (!ShowArea(areaRow * areaSize_, areaCol * areaSize_)) return false;
      }
    }
    return true;
  }

 private:
  bool ShowArea(int bottom, int left) const {
    const double side = areaSize_ * cellSize_;
    double weight = side * side;
    if (!processor_.ProcessArea(bottom, left, weight) || !(weight > 0.0)) return true;
    const std::int64_t firstRow = AlignUp(std::max(range_.lowestRow, bottom), rowStep_);
    const std::int64_t firstCol = AlignUp(std::max(range_.lowestCol, left), colStep_);
    const int lastRow = std::min(range_.highestRow, bottom + (areaSize_ - 1));
    const int lastCol = std::min(range_.highestCol, left + (areaSize_ - 1));
    for (std::int64_t row = firstRow; row <= lastRow; row += rowStep_) {
      const int shownRow = static_cast<int>(row);
      if (!processor_.InitRow(shownRow, std::max(range_.lowestCol, left), lastCol)) continue;
      for (std::int64_t col = firstCol; col <= lastCol; col += colStep_) {
        double cellWeight = cellSize_ * cellSize_;
        if (!processor_.ProcessCell(shownRow, static_cast<int>(col), cellWeight)) return false;
      }
    }
    return true;
  }

  DtmProcessor& processor_;
  const int areaSize_;
  const double cellSize_;
  const CellRange range_;
  const int rowStep_;
  const int colStep_;
};

bool WalkStepped(DtmProcessor& processor, DtmAccess& access, const Page& view, int rowStep, int colStep) {
  if (!processor.Init(access)) return false;
  const DtmFile* const file = access.GetDtmFile();
  if (file == nullptr) return false;
  std::optional<CellRange> range = CellRange::Find(*file, view);
  if (!range) return false;
  if (range->IsEmpty()) return processor.Fini();
  const std::int64_t lowest = -file->LargestAllowed();
  range->lowestRow = static_cast<int>(std::max(lowest, AlignDown(range->lowestRow, rowStep)));
  range->lowestCol = static_cast<int>(std::max(lowest, AlignDown(range->lowestCol, colStep)));
  return SteppedWalk(processor, *file, *range, rowStep, colStep).ShowAreas() && processor.Fini();
}

}  // namespace

bool DrawModel(DtmProcessor& processor, DtmAccess& access, const CoordinateSystem& system, const Page& view,
               bool showAreas) {
  const DtmFile* const file = access.GetDtmFile();
  if (file == nullptr) return false;
  const double cellSize = file->CellSize();
  const Point scale = system.GetScale();
  const int rowStep = CalcDrawStep(-scale.y, cellSize);
  const int colStep = CalcDrawStep(scale.x, cellSize);
  if (rowStep == 1 && colStep == 1) return DtmRectProcessor(view, &access, &processor, false).Process();
  const SparseReading reading(access, rowStep >= kSparseStep);
  if (showAreas) return WalkStepped(processor, access, view, rowStep, colStep);
  const Page aligned(AlignEdge(view.left(), cellSize, colStep), AlignEdge(view.bottom(), cellSize, rowStep),
                     view.right(), view.top());
  DtmLinearRectProcessor walk(view.IsValid() ? aligned : view, &access, &processor, false);
  walk.SetDrawScale(scale);
  // For the sun, which shines from the next row: else each of two rows of areas would drive the other out.
  walk.SetLooksAround(true);
  return walk.Process();
}

}  // namespace vak
