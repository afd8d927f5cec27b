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

SourceWindow::SourceWindow(DtmAccess& access, int margin, std::vector<int> blocks, int hits)
    : access_(access),
      file_(*access.GetDtmFile()),
      areaSize_(file_.AreaSize()),
      margin_(margin),
      size_(areaSize_ + 2 * margin),
      words_((size_ + kBits - 1) / kBits),
      side_(static_cast<std::size_t>(2 * AreasInMargin(areaSize_, margin) + 1)),
      centre_(side_ * side_ / 2),
      ids_(std::move(blocks)),
      hits_(hits),
      places_(side_ * side_),
      own_(ids_.size()) {
  const int before = AreasInMargin(areaSize_, margin) * areaSize_ - margin;  // cells of the first areas left of it
  for (int i = 0; i < size_; ++i) {
    areaIn_.push_back(static_cast<std::size_t>((i + before) / areaSize_));
    cellIn_.push_back((i + before) % areaSize_);
  }
}

void SourceWindow::MoveTo(int bottom, int left) {
  GiveUpSurplus();
  std::fill(places_.begin(), places_.end(), Place{});
  std::fill(own_.begin(), own_.end(), nullptr);
  bottom_ = bottom;
  left_ = left;
  stands_ = true;
  looked_ = false;
}

SourceWindow::Area* SourceWindow::LookFor(std::size_t place) {
  const int reach = static_cast<int>(side_ / 2);
  const int row = bottom_ + (static_cast<int>(place / side_) - reach) * areaSize_;
  const int col = left_ + (static_cast<int>(place % side_) - reach) * areaSize_;
  Place& found = places_[place];
  found.numAreas = file_.NumAreas();  // before: what comes meanwhile is looked for again
  DtmArea* const area = access_.GetArea(row, col, false);
  found.area = area != nullptr ? Keep(*area) : nullptr;
  return found.area;
}

SourceWindow::Area* SourceWindow::Keep(DtmArea& area) {
  const auto [known, isNew] = inKept_.try_emplace(&area);
  if (isNew) {
    kept_.emplace_front();
    kept_.front().area = &area;
    kept_.front().blocks.resize(ids_.size());
    known->second = kept_.begin();
  } else {
    kept_.splice(kept_.begin(), kept_, known->second);
  }
  return &kept_.front();
}

/// When all areas of the window have been looked for, or the window goes on: the others have been needed longer ago.
void SourceWindow::GiveUpSurplus() {
  while (kept_.size() > keep_ + places_.size()) {
    inKept_.erase(kept_.back().area);
    kept_.pop_back();
  }
}

void SourceWindow::Leave() {
  StepAside();
  inKept_.clear();
  kept_.clear();
}

const DtmDataBlock* SourceWindow::Open(Area& area, std::size_t block) const {
  area.blocks[block].reset(area.area->OpenDataBlock(ids_[block]));
  return area.blocks[block].get();
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

bool SourceWindow::HasChanged() {
  return std::any_of(seen_.begin(), seen_.end(),
                     [](const Seen& seen) { return seen.hits->NumChanges() != seen.changes; }) ||
         std::any_of(hitless_.begin(), hitless_.end(),
                     [this](std::size_t place) { return Hold(place, static_cast<std::size_t>(hits_)) != nullptr; });
}

void SourceWindow::FindSources() {
  looked_ = true;
  seen_.clear();
  hitless_.clear();
  rows_.assign(static_cast<std::size_t>(size_ * words_), hits_ < 0 ? ~Word{0} : 0);
  for (std::size_t place = 0; hits_ >= 0 && place < places_.size(); ++place) FindSources(place);
  GiveUpSurplus();
  TurnRows();
  Overlay(rows_, across_);
  Overlay(cols_, along_);
}

void SourceWindow::FindSources(std::size_t place) {
  const DtmDataBlock* const block = Hold(place, static_cast<std::size_t>(hits_));
  if (block == nullptr) {
    hitless_.push_back(place);
    return;
  }
  seen_.push_back({block, block->NumChanges()});
  const auto* const hits = reinterpret_cast<const std::int32_t*>(block->CellData());
  TestCells(
      place / side_, place % side_, [hits](int cell) { return LoadCell(hits + cell) > 0; },
      [](Word& word, Word bits) {
        word |= bits;
        return false;
      });
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

bool SourceWindow::HasSourceWithout(std::size_t count) {
  Look();
  for (std::size_t place = 0; place < places_.size(); ++place) {
    for (std::size_t block = 0; block < count; ++block) {
      if (HasSourceWithout(place, block)) return true;
    }
  }
  return false;
}

bool SourceWindow::HasSourceWithout(std::size_t place, std::size_t block) {
  if (Find(place) == nullptr) return hits_ < 0;
  const std::byte* const cells = Cells(place, block);
  const int id = ids_[block];
  const auto isSource = [](const Word& word, Word bits) { return (word & bits) != 0; };
  if (cells == nullptr) return TestCells(place / side_, place % side_, [](int) { return true; }, isSource);
  return TestCells(
      place / side_, place % side_,
      [cells, id](int cell) {
        double value = 0;
        return !LoadAsDouble(cells, id, cell, value) || IsEmptyValue(value);
      },
      isSource);
}

}  // namespace vak
