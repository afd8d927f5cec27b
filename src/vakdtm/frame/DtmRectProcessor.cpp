#include "vakdtm/frame/DtmRectProcessor.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// A coordinate that is a multiple of the cell size but for rounding, as exactly that product: otherwise a sliver of
/// the next cell, some 1e-17 of it, would be shown as a cell. By 0 the rounding is that of what was subtracted, which
/// isn't known: a cell's size stands for it.
double MoveOntoEdge(double coordinate, double cellSize) {
  constexpr double kRounding = 4 * std::numeric_limits<double>::epsilon();
  const double edge = std::round(coordinate / cellSize) * cellSize;
  return std::abs(coordinate - edge) <= kRounding * std::max(std::abs(edge), cellSize) ? edge : coordinate;
}

}  // namespace

/// What stays the same during a walk.
struct DtmRectProcessor::Walk {
  CellRange range;
  int areaSize;
  double cellSize;
  Page rect;  // with its edges on those of cells, where they are meant to be
};

DtmRectProcessor::DtmRectProcessor(const Page& rect, DtmAccess* access, DtmProcessor* processor, bool owns)
    : DtmWalker(access, processor, owns),
      rect_(rect),
      counter_(std::make_shared<AtomicCounter>()),
      range_(std::make_shared<SharedCellRange>()) {
  DtmRectProcessor::Initialize();
}

void DtmRectProcessor::SetSharedCounter(const std::shared_ptr<AtomicCounter>& counter) {
  if (counter != nullptr) counter_ = counter;
}

void DtmRectProcessor::SetSharedRange(const std::shared_ptr<SharedCellRange>& range) {
  if (range != nullptr) range_ = range;
}

bool DtmRectProcessor::Initialize() {
  if (!Processor::Initialize()) return false;
  const DtmFile* const file = File();
  SetDone(0);
  SetTotal(file != nullptr ? CellRange::Find(*file, rect_) : std::nullopt);
  counter_->Reset();
  range_->Reset();
  return true;
}

void DtmRectProcessor::SetTotal(const std::optional<CellRange>& range) {
  const bool hasCells = range && !range->IsEmpty();
  DtmWalker::SetTotal(hasCells ? range->NumRows() : 0, hasCells ? range->NumCols() : 0);
}

bool DtmRectProcessor::Process() {
  const DtmFile* const file = Begin();
  if (file == nullptr) return false;
  // Not what `Initialize` found: the processor's `Init` may have brought the file, or areas.
  const std::optional<CellRange> range = range_->Find(*file, rect_);
  SetTotal(range);
  if (!range) return false;
  if (range->IsEmpty()) return Shown().Fini();
  const double c = file->CellSize();
  const Walk walk{*range, file->AreaSize(), c,
                  Page(MoveOntoEdge(rect_.left(), c), MoveOntoEdge(rect_.bottom(), c), MoveOntoEdge(rect_.right(), c),
                       MoveOntoEdge(rect_.top(), c))};
  const CellRange areas = range->Areas(walk.areaSize);
  const std::int64_t width = areas.NumCols();
  const std::int64_t positions = width * areas.NumRows();
  for (std::int64_t k = counter_->Increment(); k < positions; k = counter_->Increment()) {
    if (IsStopped()) return false;
    const auto areaRow = static_cast<int>(areas.lowestRow + k / width);
    const auto areaCol = static_cast<int>(areas.lowestCol + k % width);
    if (!WalkPosition(walk, areaRow, areaCol)) return false;
  }
  return Shown().Fini();
}

bool DtmRectProcessor::WalkPosition(const Walk& walk, int areaRow, int areaCol) {
  const int bottom = areaRow * walk.areaSize;
  const int left = areaCol * walk.areaSize;
  double weight = CalcArea(walk, bottom, left, walk.areaSize);
  if (!Shown().ProcessArea(bottom, left, weight)) return true;
  const CellRange cells = {
      std::max(walk.range.lowestRow, bottom), std::min(walk.range.highestRow, bottom + (walk.areaSize - 1)),
      std::max(walk.range.lowestCol, left), std::min(walk.range.highestCol, left + (walk.areaSize - 1))};
  if (weight > 0.0) return WalkCells(walk, cells);
  AddDone(cells.NumCols() * cells.NumRows());
  return true;
}

bool DtmRectProcessor::WalkCells(const Walk& walk, const CellRange& cells) {
  DtmProcessor& processor = Shown();
  const double cellArea = walk.cellSize * walk.cellSize;
  for (int row = cells.lowestRow; row <= cells.highestRow; ++row) {
    if (!processor.InitRow(row, cells.lowestCol, cells.highestCol)) continue;
    for (int col = cells.lowestCol; col <= cells.highestCol; ++col) {
      if (IsStopped()) return false;
      double weight = walk.range.IsOnRing(row, col) ? CalcArea(walk, row, col, 1) : cellArea;
      if (weight > 0.0 && !processor.ProcessCell(row, col, weight)) return false;
      AddDone(1);
    }
  }
  return true;
}

/// What the rectangle leaves of the square whose bottom-left cell is this one, in square model units (square metres).
/// @param size  of the square, in cells.
double DtmRectProcessor::CalcArea(const Walk& walk, int row, int col, int size) {
  const double c = walk.cellSize;
  // The upper edges as the neighbour's lower ones, so that no gap is between the two.
  const Page square(col * c, row * c, (static_cast<double>(col) + size) * c, (static_cast<double>(row) + size) * c);
  Page left = square;
  if (!walk.rect.ClipRect(left)) return 0.0;
  const bool isWhole = left.left() == square.left() && left.bottom() == square.bottom() &&
                       left.right() == square.right() && left.top() == square.top();
  // As for the inner cells: the difference of two edges isn't the size to the last bit.
  return isWhole ? size * c * (size * c) : left.Area();
}

}  // namespace vak
