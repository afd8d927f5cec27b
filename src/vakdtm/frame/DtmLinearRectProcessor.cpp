#include "vakdtm/frame/DtmLinearRectProcessor.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include "vakdtm/frame/CellRange.h"
#include "vakdtm/frame/DrawStep.h"
#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

constexpr int kLargestInt = std::numeric_limits<int>::max();

/// Rows or columns by a step. In 64 bits, since the end may lie a step beyond the type's.
struct Steps {
  Steps(std::int64_t lowest, std::int64_t highest, int by)
      : begin(lowest - lowest % by), end(highest + by - highest % by), step(by) {}

  std::int64_t begin;
  std::int64_t end;
  int step;
};

}  // namespace

DtmLinearRectProcessor::DtmLinearRectProcessor(const Page& rect, DtmAccess* access, DtmProcessor* processor, bool owns)
    : DtmWalker(access, processor, owns), rect_(rect) {}

void DtmLinearRectProcessor::SetDrawScale(const Point& scale) {
  const DtmFile* const file = File();
  if (file == nullptr) return;
  rowStep_ = CalcDrawStep(-scale.y, file->CellSize());
  colStep_ = CalcDrawStep(scale.x, file->CellSize());
}

bool DtmLinearRectProcessor::Process() {
  SetDone(0);
  const DtmFile* const file = Begin();
  if (file == nullptr) return false;
  const std::optional<CellRange> range = CellRange::Find(*file, rect_);
  if (!range) return false;
  DtmProcessor& processor = Shown();
  if (range->IsEmpty()) return processor.Fini();
  const auto across = static_cast<std::uint64_t>(range->Areas(file->AreaSize()).NumCols());
  Access()->SetCacheSize(looksAround_ ? 2 * (across + 2) : across);

  const Steps rows(range->lowestRow, range->highestRow, rowStep_);
  const Steps cols(range->lowestCol, range->highestCol, colStep_);
  SetTotal(rows.end - rows.begin, cols.end - cols.begin);
  const auto colBegin = static_cast<int>(cols.begin);
  const auto colEnd = static_cast<int>(std::min<std::int64_t>(cols.end, kLargestInt));
  const double cellArea = file->CellSize() * file->CellSize();
  for (std::int64_t row = rows.begin; row < rows.end; row += rows.step) {
    if (!processor.InitRow(static_cast<int>(row), colBegin, colEnd)) continue;
    for (std::int64_t col = cols.begin; col < cols.end; col += cols.step) {
      if (IsStopped()) return false;
      double weight = cellArea;
      if (!processor.ProcessCell(static_cast<int>(row), static_cast<int>(col), weight)) return false;
      AddDone(1);
    }
  }
  return processor.Fini();
}

}  // namespace vak
