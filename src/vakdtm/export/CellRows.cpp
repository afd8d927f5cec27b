#include "vakdtm/export/CellRows.h"

#include <algorithm>
#include <utility>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

std::int64_t FloorDivide(std::int64_t value, std::int64_t by) { return (value < 0 ? value - by + 1 : value) / by; }

/// @param stored  cells side by side, of a kind whose empty value is all ones.
template <typename T>
void CopyCells(const std::byte* stored, std::size_t count, double noValue, double* to) {
  const T* const cells = reinterpret_cast<const T*>(stored);
  for (std::size_t i = 0; i < count; ++i) {
    const T value = LoadCell(cells + i);
    to[i] = IsEmptyValue(value) ? noValue : static_cast<double>(value);
  }
}

void CopyOtherCells(const std::byte* stored, int block, std::size_t count, double noValue, double* to) {
  for (std::size_t i = 0; i < count; ++i) {
    double value = EmptyDouble();
    // Of a letter that isn't known there is nothing to be read, which isn't the same as no value.
    const bool read = LoadAsDouble(stored, block, static_cast<int>(i), value);
    to[i] = read && IsEmptyValue(value) ? noValue : value;
  }
}

void CopyCells(const std::byte* stored, int block, std::size_t count, double noValue, double* to) {
  switch (DtmDataBlock::GetDataType(block)) {
    case 'd':
      return CopyCells<double>(stored, count, noValue, to);
    case 'f':
      return CopyCells<float>(stored, count, noValue, to);
    default:
      return CopyOtherCells(stored, block, count, noValue, to);
  }
}

}  // namespace

CellRows::CellRows(DtmAccess& access, std::vector<int> blocks, std::int64_t firstCol, std::int64_t lastCol)
    : access_(access),
      blocks_(std::move(blocks)),
      firstCol_(firstCol),
      width_(static_cast<std::size_t>(lastCol - firstCol + 1)),
      areaSize_(access.GetDtmFile()->AreaSize()),
      largest_(access.GetDtmFile()->LargestAllowed()),
      firstAreaCol_(FloorDivide(firstCol, areaSize_)),
      numAreas_(static_cast<std::size_t>(FloorDivide(lastCol, areaSize_) - firstAreaCol_ + 1)),
      firstCells_(numAreas_ * blocks_.size()) {}

void CellRows::Enter(std::int64_t areaRow, int row) {
  // The row before is given up first: then nothing is while the cells of this one are in use.
  access_.SetCacheSize(0);
  access_.SetCacheSize(numAreas_);
  for (std::size_t area = 0; area < numAreas_; ++area) {
    const std::int64_t left = (firstAreaCol_ + static_cast<std::int64_t>(area)) * areaSize_;
    const auto col = static_cast<int>(std::max<std::int64_t>(left, -std::int64_t{largest_}));
    const std::int64_t offset = (row - areaRow * areaSize_) * areaSize_ + (col - left);
    for (std::size_t block = 0; block < blocks_.size(); ++block) {
      const std::byte* const cell = col <= largest_ ? access_.FindCell(row, col, blocks_[block]) : nullptr;
      const int width = DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(blocks_[block]));
      firstCells_[block * numAreas_ + area] = cell != nullptr ? cell - offset * width : nullptr;
    }
  }
  areaRow_ = areaRow;
  entered_ = true;
}

void CellRows::Read(std::int64_t row, std::size_t block, double noValue, double* values) {
  std::fill_n(values, width_, EmptyDouble());
  if (row < -std::int64_t{largest_} || row > largest_) return;
  const std::int64_t areaRow = FloorDivide(row, areaSize_);
  if (!entered_ || areaRow != areaRow_) Enter(areaRow, static_cast<int>(row));
  const int cellWidth = DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(blocks_[block]));
  const std::int64_t rowOffset = (row - areaRow * areaSize_) * areaSize_;
  const std::int64_t begin = std::max(firstCol_, -std::int64_t{largest_});
  const std::int64_t end = std::min(firstCol_ + static_cast<std::int64_t>(width_), std::int64_t{largest_} + 1);
  for (std::size_t area = 0; area < numAreas_; ++area) {
    const std::byte* const first = firstCells_[block * numAreas_ + area];
    if (first == nullptr) continue;
    const std::int64_t left = (firstAreaCol_ + static_cast<std::int64_t>(area)) * areaSize_;
    const std::int64_t from = std::max(left, begin);
    const std::int64_t to = std::min(left + areaSize_, end);
    if (from >= to) continue;
    CopyCells(first + (rowOffset + from - left) * cellWidth, blocks_[block], static_cast<std::size_t>(to - from),
              noValue, values + (from - firstCol_));
  }
}

}  // namespace vak
