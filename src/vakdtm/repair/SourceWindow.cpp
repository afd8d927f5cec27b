#include "vakdtm/repair/SourceWindow.h"

#include <algorithm>
#include <utility>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"

namespace vak {
namespace {

/// How many areas the margin reaches into on each side.
int AreasInMargin(int areaSize, int margin) { return (margin - 1) / areaSize + (margin > 0 ? 1 : 0); }

}  // namespace

bool SourceWindow::Pays(int areaSize, int margin) {
  constexpr std::int64_t kMostCells = std::int64_t{1} << 26;  // a bit each, twice
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
      own_(ids_.size()) {
  const int before = AreasInMargin(areaSize, margin) * areaSize - margin;  // cells of the first areas left of it
  for (int i = 0; i < size_; ++i) {
    areaIn_.push_back(static_cast<std::size_t>((i + before) / areaSize));
    cellIn_.push_back((i + before) % areaSize);
  }
}

void SourceWindow::MoveTo(DtmAccess& access, int bottom, int left) {
  const int reach = static_cast<int>(side_ / 2);
  auto place = areas_.begin();
  for (int i = -reach; i <= reach; ++i) {
    for (int j = -reach; j <= reach; ++j) {
      DtmArea* const area = access.GetArea(bottom + i * areaSize_, left + j * areaSize_, false);
      *place++ = area != nullptr ? Keep(*area) : nullptr;
    }
  }
  while (kept_.size() > keep_ + areas_.size()) {
    places_.erase(kept_.back().area);
    kept_.pop_back();
  }
  std::fill(own_.begin(), own_.end(), nullptr);
  bottom_ = bottom;
  left_ = left;
  stands_ = true;
  looked_ = false;
}

SourceWindow::Area* SourceWindow::Keep(DtmArea& area) {
  const auto [place, isNew] = places_.try_emplace(&area);
  if (isNew) {
    kept_.emplace_front();
    kept_.front().area = &area;
    kept_.front().blocks.resize(ids_.size());
    place->second = kept_.begin();
  } else {
    kept_.splice(kept_.begin(), kept_, place->second);
  }
  return &kept_.front();
}

void SourceWindow::Leave() {
  StepAside();
  places_.clear();
  kept_.clear();
}

void SourceWindow::Open(Area& area, std::size_t block) const {
  area.blocks[block].tried = true;
  area.blocks[block].held.reset(area.area->OpenDataBlock(ids_[block]));
}

template <typename Test, typename Take>
bool SourceWindow::TestCells(std::size_t areaRow, std::size_t areaCol, Test test, Take take) {
  const auto range = [this](std::size_t place) {
    const auto [first, last] = std::equal_range(areaIn_.begin(), areaIn_.end(), place);
    return std::pair(static_cast<int>(first - areaIn_.begin()), static_cast<int>(last - areaIn_.begin()));
  };
  const auto [bottom, top] = range(areaRow);
  const auto [left, right] = range(areaCol);
  for (int i = bottom; i < top; ++i) {
    int cell = cellIn_[static_cast<std::size_t>(i)] * areaSize_ + cellIn_[static_cast<std::size_t>(left)];
    Word* const line = rows_.data() + i * words_;
    for (int j = left; j < right;) {
      Word& word = line[j / kBits];
      const int end = std::min(right, (j / kBits + 1) * kBits);
      Word bits = 0;
      for (Word bit = Word{1} << (j % kBits); j < end; ++j, ++cell, bit <<= 1) bits |= test(cell) ? bit : 0;
      if (take(word, bits)) return true;
    }
  }
  return false;
}

void SourceWindow::FindSources() {
  looked_ = true;
  rows_.assign(static_cast<std::size_t>(size_ * words_), hits_ < 0 ? ~Word{0} : 0);
  for (std::size_t area = 0; hits_ >= 0 && area < areas_.size(); ++area) {
    const std::byte* const cells = Cells(area, static_cast<std::size_t>(hits_));
    if (cells == nullptr) continue;
    const auto* const hits = reinterpret_cast<const std::int32_t*>(cells);
    TestCells(
        area / side_, area % side_, [hits](int cell) { return LoadCell(hits + cell) > 0; },
        [](Word& word, Word bits) {
          word |= bits;
          return false;
        });
  }
  TurnRows();
  Overlay(rows_, across_);
  Overlay(cols_, along_);
}

void SourceWindow::Overlay(const std::vector<Word>& lines, std::vector<Word>& overlaid) const {
  overlaid.assign(static_cast<std::size_t>(areaSize_ * words_), 0);
  for (int i = 0; i < areaSize_; ++i) {
    Word* const to = overlaid.data() + i * words_;
    for (int line = i; line <= i + 2 * margin_; ++line) {
      const Word* const from = Line(lines, line);
      for (std::ptrdiff_t w = 0; w < words_; ++w) to[w] |= from[w];
    }
  }
}

void SourceWindow::TurnRows() {
  if (hits_ < 0) {
    cols_ = rows_;
    return;
  }
  cols_.assign(rows_.size(), 0);
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
  for (std::size_t area = 0; area < areas_.size(); ++area) {
    for (std::size_t block = 0; block < count; ++block) {
      if (HasSourceWithout(area / side_, area % side_, block)) return true;
    }
  }
  return false;
}

bool SourceWindow::HasSourceWithout(std::size_t areaRow, std::size_t areaCol, std::size_t block) {
  const std::size_t area = areaRow * side_ + areaCol;
  if (areas_[area] == nullptr) return hits_ < 0;
  const std::byte* const cells = Cells(area, block);
  const int id = ids_[block];
  const auto isSource = [](const Word& word, Word bits) { return (word & bits) != 0; };
  if (cells == nullptr) return TestCells(areaRow, areaCol, [](int) { return true; }, isSource);
  return TestCells(
      areaRow, areaCol,
      [cells, id](int cell) {
        double value = 0;
        return !LoadAsDouble(cells, id, cell, value) || IsEmptyValue(value);
      },
      isSource);
}

}  // namespace vak
