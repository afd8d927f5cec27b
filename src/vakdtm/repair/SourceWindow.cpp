#include "vakdtm/repair/SourceWindow.h"

#include <algorithm>
#include <bit>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"

namespace vak {
namespace {

/// How many areas the margin reaches into on each side.
int AreasInMargin(int areaSize, int margin) { return (margin - 1) / areaSize + (margin > 0 ? 1 : 0); }

constexpr int LastBit(int bits) { return bits - 1; }

}  // namespace

bool SourceWindow::Pays(int areaSize, int margin) {
  constexpr std::int64_t kMostCells = std::int64_t{1} << 22;
  const std::int64_t side = std::int64_t{2} * AreasInMargin(areaSize, margin) + 1;
  const std::int64_t size = std::int64_t{areaSize} + std::int64_t{2} * margin;
  // To open the blocks of an area costs about as much as to look at two cells by a cursor.
  return side * side <= 16 + std::int64_t{2} * areaSize * areaSize && size * size <= kMostCells;
}

SourceWindow::SourceWindow(int areaSize, int margin, std::vector<int> blocks, int hits)
    : areaSize_(areaSize),
      margin_(margin),
      size_(areaSize + 2 * margin),
      words_((size_ + kBits - 1) / kBits),
      side_(static_cast<std::size_t>(2 * AreasInMargin(areaSize, margin) + 1)),
      centre_(side_ * side_ / 2),
      ids_(std::move(blocks)),
      hits_(hits),
      areas_(side_ * side_),
      blocks_(side_ * side_ * ids_.size()) {
  const int before = AreasInMargin(areaSize, margin) * areaSize - margin;  // cells of the first areas left of it
  for (int i = 0; i < size_; ++i) {
    areaIn_.push_back(static_cast<std::size_t>((i + before) / areaSize));
    cellIn_.push_back((i + before) % areaSize);
  }
}

void SourceWindow::MoveTo(DtmAccess& access, int bottom, int left) {
  Leave();
  const int reach = static_cast<int>(side_ / 2);
  auto area = areas_.begin();
  for (int i = -reach; i <= reach; ++i) {
    for (int j = -reach; j <= reach; ++j) *area++ = access.GetArea(bottom + i * areaSize_, left + j * areaSize_, false);
  }
  bottom_ = bottom;
  left_ = left;
  stands_ = true;
}

void SourceWindow::TakeArea(DtmArea* area) {
  areas_[centre_] = area;
  for (std::size_t block = 0; block < ids_.size(); ++block) blocks_[centre_ * ids_.size() + block] = {};
}

void SourceWindow::Leave() {
  if (!stands_) return;
  for (Block& block : blocks_) block = {};
  stands_ = false;
  looked_ = false;
}

void SourceWindow::Open(Block& block, std::size_t area, std::size_t slot) {
  block.tried = true;
  if (areas_[area] != nullptr) block.held.reset(areas_[area]->OpenDataBlock(ids_[slot]));
}

void SourceWindow::FindSources() {
  looked_ = true;
  rows_.assign(static_cast<std::size_t>(size_ * words_), hits_ < 0 ? ~Word{0} : 0);
  cols_ = rows_;
  if (hits_ < 0) return;
  for (std::size_t areaRow = 0; areaRow < side_; ++areaRow) {
    for (std::size_t areaCol = 0; areaCol < side_; ++areaCol) FindSourcesIn(areaRow, areaCol);
  }
  TurnRows();
}

void SourceWindow::FindSourcesIn(std::size_t areaRow, std::size_t areaCol) {
  const std::byte* const cells = Cells(areaRow * side_ + areaCol, static_cast<std::size_t>(hits_));
  if (cells == nullptr) return;
  const auto range = [this](std::size_t place) {
    const auto [first, last] = std::equal_range(areaIn_.begin(), areaIn_.end(), place);
    return std::pair(static_cast<int>(first - areaIn_.begin()), static_cast<int>(last - areaIn_.begin()));
  };
  const auto [bottom, top] = range(areaRow);
  const auto [left, right] = range(areaCol);
  const auto* const hits = reinterpret_cast<const std::int32_t*>(cells);
  for (int i = bottom; i < top; ++i) {
    const std::int32_t* cell = hits + std::ptrdiff_t{cellIn_[static_cast<std::size_t>(i)]} * areaSize_ +
                               cellIn_[static_cast<std::size_t>(left)];
    Word* const line = rows_.data() + i * words_;
    for (int j = left; j < right;) {
      const int end = std::min(right, (j / kBits + 1) * kBits);
      Word word = 0;
      Word bit = Word{1} << (j % kBits);
      Word& target = line[j / kBits];
      for (; j < end; ++j, ++cell, bit <<= 1) word |= LoadCell(cell) > 0 ? bit : 0;
      target |= word;
    }
  }
}

void SourceWindow::TurnRows() {
  for (int i = 0; i < size_; ++i) {
    const Word bit = Word{1} << (i % kBits);
    const Word* const line = rows_.data() + i * words_;
    Word* const to = cols_.data() + i / kBits;
    for (std::ptrdiff_t w = 0; w < words_; ++w) {
      for (Word word = line[w]; word != 0; word &= word - 1) to[(w * kBits + std::countr_zero(word)) * words_] |= bit;
    }
  }
}

bool SourceWindow::IsStillSource(int row, int col) {
  if (hits_ < 0) return true;
  double hits = 0;
  if (Read(row, col, static_cast<std::size_t>(hits_), hits) && hits > 0) return true;
  rows_[static_cast<std::size_t>(row * words_ + col / kBits)] &= ~(Word{1} << (col % kBits));
  cols_[static_cast<std::size_t>(col * words_ + row / kBits)] &= ~(Word{1} << (row % kBits));
  return false;
}

bool SourceWindow::HasSourceWithout(std::size_t count) {
  Look();
  for (int i = 0; i < size_; ++i) {
    for (int j = LowestInRow(i, 0, size_ - 1); j >= 0; j = LowestInRow(i, j + 1, size_ - 1)) {
      for (std::size_t block = 0; block < count; ++block) {
        double value = 0;
        if (!Read(i, j, block, value) || IsEmptyValue(value)) return true;
      }
    }
  }
  return false;
}

int SourceWindow::Lowest(const Word* line, int from, int to) {
  if (from > to) return -1;
  const int last = to / kBits;
  int at = from / kBits;
  for (Word bits = line[at] & ~Word{0} << (from % kBits);; bits = line[++at]) {
    if (at == last) bits &= ~Word{0} >> (LastBit(kBits) - to % kBits);
    if (bits != 0) return at * kBits + std::countr_zero(bits);
    if (at == last) return -1;
  }
}

int SourceWindow::Highest(const Word* line, int from, int to) {
  if (from > to) return -1;
  const int last = from / kBits;
  int at = to / kBits;
  for (Word bits = line[at] & ~Word{0} >> (LastBit(kBits) - to % kBits);; bits = line[--at]) {
    if (at == last) bits &= ~Word{0} << (from % kBits);
    if (bits != 0) return at * kBits + LastBit(kBits) - std::countl_zero(bits);
    if (at == last) return -1;
  }
}

}  // namespace vak
