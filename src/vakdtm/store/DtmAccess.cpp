#include "vakdtm/store/DtmAccess.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <limits>
#include <mutex>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/FloorToInt.h"

namespace vak {
namespace {

/// A position that no area has: where a cursor starts.
constexpr int kNowhere = std::numeric_limits<int>::min();

template <typename T>
T* CellsOf(const DtmDataBlock& block) {
  return reinterpret_cast<T*>(block.CellData());
}

/// Truncation as the integer kinds want it, with the type's ends for what doesn't fit and 0 for not-a-number.
int Truncate(double value) {
  if (std::isnan(value)) return 0;
  return static_cast<int>(std::clamp(value, -2147483648.0, 2147483647.0));
}

std::uint32_t FileBit(int fileIndex) {
  const std::uint32_t magnitude =
      fileIndex < 0 ? 0U - static_cast<std::uint32_t>(fileIndex) : static_cast<std::uint32_t>(fileIndex);
  return std::uint32_t{1} << (magnitude % 32);
}

/// Running mean with the hit count as weight; a stored 0.0 counts as no value.
double MeanUncertainty(double stored, double n, float added) {
  if (stored == 0.0 || IsEmptyValue(stored)) return static_cast<double>(added);
  return (n * stored + static_cast<double>(added)) / (n + 1);
}

/// Deviation with divisor n for n + 1 soundings, rebuilt from the stored one, since sums are never kept.
double NextDeviation(double s, double n, double m, double z, double mNew) {
  const double q = n == 1 || IsEmptyValue(s) ? m * m : s * s * (n - 1) + m * m * n;
  return std::sqrt(std::max(0.0, q + z * z - mNew * mNew * (n + 1)) / n);
}

}  // namespace

template <typename T>
T DtmAccess::StatisticsBlock<T>::Get(int cell) const {
  return LoadCell(cells + cell);
}

template <typename T>
void DtmAccess::StatisticsBlock<T>::Set(int cell, T value) const {
  StoreCell(cells + cell, value);
  block->SetModified();
}

DtmAccess::DtmAccess(DtmFile* file) : areaRow_(kNowhere), areaCol_(kNowhere) { Attach(file); }

DtmAccess::DtmAccess(const DtmAccess& other) : areaRow_(kNowhere), areaCol_(kNowhere) { CopyFrom(other); }

DtmAccess& DtmAccess::operator=(const DtmAccess& other) {
  if (this == &other) return *this;
  // A further count first: giving up our own must not close a file that both share.
  DtmFile* const held = other.file_;
  if (held) held->Open();
  CloseDown();
  CopyFrom(other);
  if (held) held->Close();
  return *this;
}

DtmAccess::~DtmAccess() { CloseDown(); }

void DtmAccess::Attach(DtmFile* file) {
  // Of a file that can't be opened there are no cells, and no count to give back.
  if (!file || !file->Open()) return;
  file_ = file;
  areaSize_ = file_->AreaSize();
  cellSize_ = file_->CellSize();
  blockIds_.resize(static_cast<std::size_t>(file_->NumBlockIds()));
  for (std::size_t i = 0; i < blockIds_.size(); ++i) blockIds_[i] = file_->GetBlockId(static_cast<int>(i));
  const auto slot = [&](int id) { return file_->FindBlockSlot(id); };
  slots_ = {slot(dVAL), slot(iNUM), slot(dSDV), slot(tTIM), slot(dMIN), slot(dMAX), slot(fXMN),
            slot(fYMN), slot(fXMX), slot(fYMX), slot(dTVU), slot(dTHU), slot(uFCT)};
}

void DtmAccess::CopyFrom(const DtmAccess& other) {
  Attach(other.file_);
  if (other.updater_) updater_.reset(other.updater_->Clone());
  areaMap_ = other.areaMap_;
  areaRow_ = other.areaRow_;
  areaCol_ = other.areaCol_;
  cleared_ = other.cleared_;
  sparse_ = other.sparse_;
  cacheSize_ = other.cacheSize_;
  current_ = other.current_;
  cache_ = other.cache_;
  for (OpenList* list : {&current_, &cache_}) {
    for (auto open = list->begin(); open != list->end(); ++open) {
      open_.emplace(open->key, open);
      open->statisticsOpen = false;
      for (DtmDataBlock*& block : open->blocks) {
        // The other holds it open, so nothing has to be read.
        if (block && !block->Open()) block = nullptr;
      }
    }
  }
}

void DtmAccess::CloseDown() {
  updater_.reset();
  CloseOldArea();
  TrimCache(0);
  spare_.clear();
  areaMap_.clear();
  blockIds_.clear();
  areaRow_ = areaCol_ = kNowhere;
  if (file_) std::exchange(file_, nullptr)->Close();
}

void DtmAccess::SetDtmFile(DtmFile* file) {
  if (file == file_) return;
  CloseDown();
  Attach(file);
}

void DtmAccess::SetUpdater(DtmUpdater* updater) { updater_.reset(updater); }

void DtmAccess::SetCacheSize(std::uint64_t count) {
  cacheSize_ = count;
  TrimCache(count);
}

bool DtmAccess::HasBlock(int id) { return CurrentArea() && GetDataBlock(id); }

// ---- Areas

DtmArea* DtmAccess::GetArea(int row, int col, bool create) {
  if (!file_) return nullptr;
  file_->GetAreaMap(areaMap_);
  const auto found = areaMap_.find(DtmAreaPos(areaSize_, row, col));
  if (found != areaMap_.end()) return found->second;
  return create ? file_->GetArea(row, col, true) : nullptr;
}

int DtmAccess::GetAreaCell(int row, int col, bool create) {
  if (!file_ || !file_->IsAllowed(row) || !file_->IsAllowed(col)) return -1;
  DtmArea* const present = CurrentArea();
  if (present && present->IsInArea(row, col)) return present->CalcCell(row, col);

  const int areaRow = CalcAreaIndex(areaSize_, row);
  const int areaCol = CalcAreaIndex(areaSize_, col);
  const bool moved = areaRow != areaRow_ || areaCol != areaCol_;
  if (moved) {
    CloseOldArea();
    areaRow_ = areaRow;
    areaCol_ = areaCol;
  }
  if (moved && ReenterArea()) return CurrentArea()->CalcCell(row, col);
  // A reader of a live model notices here that an area has appeared where there was none.
  if (moved || create || static_cast<std::size_t>(file_->NumAreas()) != areaMap_.size()) {
    EnterArea(GetArea(row, col, create));
  }
  const DtmArea* const area = CurrentArea();
  return area ? area->CalcCell(row, col) : -1;
}

std::uint64_t DtmAccess::AreaKey() const {
  return std::uint64_t{static_cast<std::uint32_t>(areaRow_)} << 32 | static_cast<std::uint32_t>(areaCol_);
}

bool DtmAccess::ReenterArea() {
  const auto known = open_.find(AreaKey());
  if (known == open_.end()) return false;
  current_.splice(current_.begin(), cache_, known->second);
  return true;
}

void DtmAccess::EnterArea(DtmArea* area) {
  if (!area || CurrentArea()) return;
  if (spare_.empty()) spare_.emplace_back();
  current_.splice(current_.begin(), spare_, spare_.begin());
  OpenArea& open = current_.front();
  open.key = AreaKey();
  open.area = area;
  open.blocks.clear();
  open_.emplace(open.key, current_.begin());
}

void DtmAccess::CloseOldArea() {
  if (current_.empty()) return;
  if (std::exchange(cleared_, false)) CurrentArea()->CheckEmpty();
  cache_.splice(cache_.begin(), current_);
  TrimCache(cacheSize_);
}

void DtmAccess::TrimCache(std::uint64_t count) {
  while (cache_.size() > count) {
    ReleaseArea(cache_.back());
    spare_.splice(spare_.begin(), cache_, std::prev(cache_.end()));
  }
}

void DtmAccess::ReleaseArea(OpenArea& open) {
  ++releases_;
  open_.erase(open.key);
  for (DtmDataBlock* const block : open.blocks) {
    if (block) block->Close();
  }
  open.area = nullptr;
  open.sparse.Clear();
  open.statisticsOpen = false;
}

int DtmAccess::FindSlot(int id) const {
  // A few are looked through faster than searched.
  constexpr std::size_t kFew = 32;
  if (blockIds_.size() > kFew) return file_->FindBlockSlot(id);
  const auto found = std::find(blockIds_.begin(), blockIds_.end(), id);
  return found == blockIds_.end() ? -1 : static_cast<int>(found - blockIds_.begin());
}

DtmDataBlock* DtmAccess::GetDataBlock(int id) {
  const int slot = FindSlot(id);
  return slot < 0 ? nullptr : GetDataBlockAt(slot);
}

DtmDataBlock* DtmAccess::GetDataBlockAt(int slot) {
  OpenArea& open = current_.front();
  const auto place = static_cast<std::size_t>(slot);
  if (!open.blocks.empty() && open.blocks[place]) return open.blocks[place];
  DtmDataBlock* const block = open.area->OpenDataBlockAt(slot);
  // An area that can't be read takes no room for its blocks, of which a hostile file may list millions.
  if (block && open.blocks.empty()) open.blocks.resize(blockIds_.size());
  if (block) open.blocks[place] = block;
  return block;
}

// ---- Single values

bool DtmAccess::GetDoubleValue(int row, int col, int id, double& value) {
  value = EmptyDouble();
  const int cell = GetAreaCell(row, col, false);
  if (cell < 0) return false;
  if (sparse_) return ReadSparsely(cell, id, value);
  const DtmDataBlock* const block = GetDataBlock(id);
  if (!block) return false;
  return LoadAsDouble(block->CellData(), id, cell, value);
}

bool DtmAccess::SetSparseReading(bool sparse) { return std::exchange(sparse_, sparse); }

bool DtmAccess::ReadSparsely(int cell, int id, double& value) {
  const int slot = FindSlot(id);
  if (slot < 0) return false;
  OpenArea& open = current_.front();
  const DtmDataBlock* const block = open.blocks.empty() ? nullptr : open.blocks[static_cast<std::size_t>(slot)];
  if (block) return LoadAsDouble(block->CellData(), id, cell, value);
  alignas(double) std::array<std::byte, sizeof(double)> bytes{};
  return open.sparse.Read(*open.area, slot, cell, bytes.data()) && LoadAsDouble(bytes.data(), id, 0, value);
}

const std::byte* DtmAccess::FindCell(int row, int col, int id) {
  const int cell = GetAreaCell(row, col, false);
  if (cell < 0) return nullptr;
  const DtmDataBlock* const block = GetDataBlock(id);
  return block ? CellsOf<std::byte>(*block) + static_cast<std::ptrdiff_t>(cell) * block->BytesPerCell() : nullptr;
}

bool DtmAccess::GetCellValue(int row, int col, int id, double& value) {
  return GetDoubleValue(row, col, id, value) && !IsEmptyValue(value);
}

bool DtmAccess::SetDoubleValue(int row, int col, int id, double value, bool updateMinMax) {
  const char letter = DtmDataBlock::GetDataType(id);
  if (letter == 'u' || DtmDataBlock::GetBytesPerCell(letter) == 0) return false;
  const int cell = GetAreaCell(row, col, true);
  if (cell < 0) return false;
  DtmDataBlock* const block = GetDataBlock(id);
  if (!block) return false;
  {
    DtmArea* const area = CurrentArea();
    const std::scoped_lock lock(area->Mutex());
    if (area->HasReadErrorLocked()) return false;
    if (letter == 'd') {
      StoreCell(CellsOf<double>(*block) + cell, value);
    } else if (letter == 'f') {
      StoreCell(CellsOf<float>(*block) + cell, IsEmptyValue(value) ? EmptyFloat() : static_cast<float>(value));
    } else if (letter == 'c') {
      StoreCell(CellsOf<unsigned char>(*block) + cell, static_cast<unsigned char>(Truncate(value)));
    } else {
      StoreCell(CellsOf<std::int32_t>(*block) + cell, static_cast<std::int32_t>(Truncate(value)));
    }
    block->SetModified();
    if (updateMinMax) area->UpdateMinMaxZLocked(static_cast<float>(value));
  }
  FinishUpdate(row, col, false);
  return true;
}

void DtmAccess::FinishUpdate(int row, int col, bool flag) {
  if (updater_) updater_->UpdateCell(row, col, flag);
}

// ---- Soundings

bool DtmAccess::LocateCell(double x, double y, int& row, int& col) const {
  if (!file_ || !std::isfinite(x) || !std::isfinite(y)) return false;
  row = FloorToInt(y / cellSize_);
  col = FloorToInt(x / cellSize_);
  return file_->IsAllowed(row) && file_->IsAllowed(col);
}

template <typename T>
bool DtmAccess::OpenStatistics(int slot, StatisticsBlock<T>& target) {
  target = {};
  if (slot < 0) return true;
  target.block = GetDataBlockAt(slot);
  if (!target.block) return false;
  target.cells = CellsOf<T>(*target.block);
  return true;
}

bool DtmAccess::OpenStatistics() {
  OpenArea& open = current_.front();
  if (open.statisticsOpen) return true;
  Statistics& s = open.statistics;
  open.statisticsOpen =
      OpenStatistics(slots_.val, s.val) && OpenStatistics(slots_.num, s.num) && OpenStatistics(slots_.sdv, s.sdv) &&
      OpenStatistics(slots_.tim, s.tim) && OpenStatistics(slots_.min, s.min) && OpenStatistics(slots_.max, s.max) &&
      OpenStatistics(slots_.xmn, s.xmn) && OpenStatistics(slots_.ymn, s.ymn) && OpenStatistics(slots_.xmx, s.xmx) &&
      OpenStatistics(slots_.ymx, s.ymx) && OpenStatistics(slots_.tvu, s.tvu) && OpenStatistics(slots_.thu, s.thu) &&
      OpenStatistics(slots_.fct, s.fct);
  return open.statisticsOpen;
}

bool DtmAccess::InsertValue(double x, double y, double z, long long time, const float* tvu, const float* thu,
                            int fileIndex) {
  int row = 0;
  int col = 0;
  if (!std::isfinite(z) || !LocateCell(x, y, row, col)) return false;
  const int cell = GetAreaCell(row, col, true);
  if (cell < 0 || !OpenStatistics()) return false;
  {
    const std::scoped_lock lock(CurrentArea()->Mutex());
    if (CurrentArea()->HasReadErrorLocked()) return false;
    AddSounding(cell, x, y, z, time, tvu, thu, fileIndex);
  }
  FinishUpdate(row, col, false);
  return true;
}

void DtmAccess::AddSounding(int cell, double x, double y, double z, long long time, const float* tvu, const float* thu,
                            int fileIndex) {
  const Statistics& s = current_.front().statistics;
  double n = 0;  // soundings so far
  if (s.num) {
    const std::int32_t stored = std::max(0, s.num.Get(cell));
    n = stored;
    // Past the last count it turns negative, which the next sounding takes for 0.
    s.num.Set(cell, static_cast<std::int32_t>(static_cast<std::uint32_t>(stored) + 1U));
  }
  if (s.val) {
    const double m = s.val.Get(cell);
    if (n == 0 || IsEmptyValue(m)) {
      s.val.Set(cell, z);
    } else {
      const double mNew = (n * m + z) / (n + 1);
      s.val.Set(cell, mNew);
      if (s.sdv) s.sdv.Set(cell, NextDeviation(s.sdv.Get(cell), n, m, z, mNew));
    }
  }
  const auto storeExtreme = [&](const StatisticsBlock<double>& extreme, const StatisticsBlock<float>& offsetX,
                                const StatisticsBlock<float>& offsetY) {
    extreme.Set(cell, z);
    if (!offsetX || !offsetY) return;
    float dx = 0;
    float dy = 0;
    file_->CalcCellPos(x, y, dx, dy);
    offsetX.Set(cell, dx);
    offsetY.Set(cell, dy);
  };
  if (s.min) {
    const double deepest = s.min.Get(cell);
    if (IsEmptyValue(deepest) || deepest > z) storeExtreme(s.min, s.xmn, s.ymn);
  }
  if (s.max) {
    const double highest = s.max.Get(cell);
    if (IsEmptyValue(highest) || highest < z) storeExtreme(s.max, s.xmx, s.ymx);
  }
  if (s.tim && time > s.tim.Get(cell)) s.tim.Set(cell, static_cast<std::int32_t>(time));
  if (tvu && s.tvu) s.tvu.Set(cell, MeanUncertainty(s.tvu.Get(cell), n, *tvu));
  if (thu && s.thu) s.thu.Set(cell, MeanUncertainty(s.thu.Get(cell), n, *thu));
  if (s.fct) s.fct.Set(cell, s.fct.Get(cell) | FileBit(fileIndex));
  CurrentArea()->UpdateMinMaxZLocked(static_cast<float>(z));
}

bool DtmAccess::SetValue(double x, double y, double z, long long time, const float* tvu, const float* thu,
                         int fileIndex) {
  int row = 0;
  int col = 0;
  if (!std::isfinite(z) || !LocateCell(x, y, row, col)) return false;
  if ((slots_.tvu >= 0 || slots_.thu >= 0) && slots_.max < 0) return false;
  const int cell = GetAreaCell(row, col, true);
  if (cell < 0 || !OpenStatistics()) return false;
  {
    const std::scoped_lock lock(CurrentArea()->Mutex());
    if (CurrentArea()->HasReadErrorLocked()) return false;
    ReplaceCell(cell, x, y, z, time, tvu, thu, fileIndex);
  }
  FinishUpdate(row, col, false);
  return true;
}

void DtmAccess::ReplaceCell(int cell, double x, double y, double z, long long time, const float* tvu, const float* thu,
                            int fileIndex) {
  const Statistics& s = current_.front().statistics;
  float dx = 0;
  float dy = 0;
  file_->CalcCellPos(x, y, dx, dy);
  if (s.num) s.num.Set(cell, 1);
  if (s.val) s.val.Set(cell, z);
  if (s.sdv) s.sdv.Set(cell, EmptyDouble());
  // One value that was given, not measured, has no extremes: a mean without them is what users of this rely on.
  const auto clearExtreme = [&](const StatisticsBlock<double>& extreme, const StatisticsBlock<float>& offsetX,
                                const StatisticsBlock<float>& offsetY) {
    if (!extreme) return;
    extreme.Set(cell, EmptyDouble());
    if (!offsetX || !offsetY) return;
    offsetX.Set(cell, dx);
    offsetY.Set(cell, dy);
  };
  clearExtreme(s.min, s.xmn, s.ymn);
  clearExtreme(s.max, s.xmx, s.ymx);
  if (s.tim) s.tim.Set(cell, static_cast<std::int32_t>(time));
  // The mark for these two goes on the block of the highest values; readers of older models count on it.
  const auto setUncertainty = [&](const StatisticsBlock<double>& target, const float* given) {
    if (!target) return;
    StoreCell(target.cells + cell, given ? static_cast<double>(*given) : EmptyDouble());
    s.max.block->SetModified();
  };
  setUncertainty(s.tvu, tvu);
  setUncertainty(s.thu, thu);
  if (s.fct) s.fct.Set(cell, FileBit(fileIndex));
  CurrentArea()->UpdateMinMaxZLocked(static_cast<float>(z));
}

// ---- Interpolation and slope

bool DtmAccess::GetInterpolatedValue(double x, double y, int id, double& value, bool partialOk) {
  if (!file_) return false;
  const double fx = x / cellSize_ - 0.5;
  const double fy = y / cellSize_ - 0.5;
  const int col = FloorToInt(fx);
  const int row = FloorToInt(fy);
  if (!file_->IsAllowed(row) || !file_->IsAllowed(col)) return false;
  const double tx = fx - col;
  const double ty = fy - row;

  double other = 0;
  bool found = GetCellValue(row, col, id, value);
  if (!found && !partialOk) return false;
  if (tx != 0) {
    if (GetCellValue(row, col + 1, id, other)) {
      value = found ? (other - value) * tx + value : other;
      found = true;
    } else if (!partialOk) {
      return false;
    }
  }
  if (ty == 0) return found;

  double upper = 0;
  bool upperFound = GetCellValue(row + 1, col, id, upper);
  if (!upperFound && !partialOk) return false;
  if (tx != 0) {
    if (GetCellValue(row + 1, col + 1, id, other)) {
      upper = upperFound ? upper + (other - upper) * tx : other;
      upperFound = true;
    } else if (!partialOk) {
      return false;
    }
  }
  if (!upperFound) return found;
  value = found ? (upper - value) * ty + value : upper;
  return true;
}

bool DtmAccess::GetInterpolatedExtrapolatedValue(double x, double y, int id, double& value) {
  if (!file_) return false;
  if (GetInterpolatedValue(x, y, id, value, false)) return true;
  const int col = FloorToInt(x / cellSize_ - 0.5);
  const int row = FloorToInt(y / cellSize_ - 0.5);
  if (!file_->IsAllowed(row) || !file_->IsAllowed(col)) return false;

  struct Step {
    int row, col;
  };
  static constexpr std::array<Step, 4> kCorners = {{{0, 0}, {1, 0}, {1, 1}, {0, 1}}};
  static constexpr std::array<Step, 5> kBelowLeft = {{{-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}}};
  static constexpr std::array<Step, 7> kAboveRight = {{{2, -1}, {2, 0}, {2, 1}, {2, 2}, {1, 2}, {0, 2}, {-1, 2}}};
  const auto mean = [&](const auto& ring) {
    double sum = 0;
    int count = 0;
    for (const Step& step : ring) {
      double cell = 0;
      if (!GetCellValue(row + step.row, col + step.col, id, cell)) continue;
      sum += cell;
      ++count;
    }
    if (count > 0) value = sum / count;
    return count > 0;
  };
  return mean(kCorners) || mean(kBelowLeft) || mean(kAboveRight);
}

bool DtmAccess::GetGradientValue(int row, int col, int id, double& value) {
  double centre = 0;
  if (!file_ || !GetCellValue(row, col, id, centre)) return false;
  struct Pair {
    int row, col;  // of the first neighbour; the second lies opposite
    double both;   // distance between the two, in cells
    double one;    // distance of one from the centre, in cells
  };
  // The pair along the row isn't halved, and so counts double against the pair along the column: part of the result.
  static constexpr std::array<Pair, 4> kPairs = {
      {{1, 0, 2, 1}, {1, 1, 2.828427, 1.414213}, {0, 1, 1, 1}, {1, -1, 2.828427, 1.414213}}};
  for (std::size_t i = 0; i < kPairs.size(); ++i) {
    const Pair& pair = kPairs[i];
    double a = 0;
    double b = 0;
    const bool hasA = GetCellValue(row + pair.row, col + pair.col, id, a);
    const bool hasB = GetCellValue(row - pair.row, col - pair.col, id, b);
    // With neither neighbour, the slope comes out of the empty value as a not-a-number: never greater than another, but
    // the start when it is the first.
    const double slope = hasA && hasB ? std::abs(a - b) / (cellSize_ * pair.both)
                                      : std::abs((hasA ? a : b) - centre) / (cellSize_ * pair.one);
    if (i == 0 || slope > value) value = slope;
  }
  return true;
}

// ---- Emptying

bool DtmAccess::MakeCellEmpty(double x, double y) {
  if (!file_ || !std::isfinite(x) || !std::isfinite(y)) return false;
  return MakeCellEmpty(FloorToInt(y / cellSize_), FloorToInt(x / cellSize_));
}

bool DtmAccess::MakeCellEmpty(int row, int col) {
  if (!file_) return false;
  const int cell = GetAreaCell(row, col, false);
  if (cell < 0) return true;
  const int count = static_cast<int>(blockIds_.size());
  for (int slot = 0; slot < count; ++slot) {
    if (!GetDataBlockAt(slot)) return false;
  }
  {
    const std::scoped_lock lock(CurrentArea()->Mutex());
    if (CurrentArea()->HasReadErrorLocked()) return false;
    for (int slot = 0; slot < count; ++slot) EmptyCell(*GetDataBlockAt(slot), cell);
  }
  FinishUpdate(row, col, true);
  cleared_ = true;
  return true;
}

bool DtmAccess::ClearCellData(int row, int col, int id) {
  if (!file_) return false;
  const int cell = GetAreaCell(row, col, false);
  if (cell < 0) return true;
  DtmDataBlock* const block = GetDataBlock(id);
  if (!block || block->BytesPerCell() == 0) return false;
  {
    const std::scoped_lock lock(CurrentArea()->Mutex());
    if (CurrentArea()->HasReadErrorLocked()) return false;
    EmptyCell(*block, cell);
  }
  FinishUpdate(row, col, true);
  cleared_ = true;
  return true;
}

void DtmAccess::EmptyCell(DtmDataBlock& block, int cell) {
  switch (block.BytesPerCell()) {
    case 8:
      StoreCell(CellsOf<double>(block) + cell, EmptyDouble());
      break;
    case 4:
      StoreCell(CellsOf<std::uint32_t>(block) + cell, block.FillByte() == 0 ? 0U : ~0U);
      break;
    case 1:
      StoreCell(CellsOf<std::uint8_t>(block) + cell, std::uint8_t{0});
      break;
    default:
      return;
  }
  block.SetModified();
}

}  // namespace vak
