#include "vakdtm/repair/DtmCircularInterpolator.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <utility>

#include "vakdtm/services/geometry/TrimAngle.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

constexpr int kDirections = 8;
constexpr unsigned kAllDirections = (1U << kDirections) - 1;
constexpr double kFullTurn = 360.0;
constexpr double kHalfTurn = 180.0;

int ToInt(std::int64_t value) {
  constexpr std::int64_t kLowest = std::numeric_limits<int>::min();
  constexpr std::int64_t kHighest = std::numeric_limits<int>::max();
  return static_cast<int>(std::clamp(value, kLowest, kHighest));
}

/// Reads a cell that may lie beyond the ends of the type.
bool ReadCell(DtmAccess& access, std::int64_t row, std::int64_t col, int block, double& value) {
  return row == ToInt(row) && col == ToInt(col) && access.GetDoubleValue(ToInt(row), ToInt(col), block, value);
}

bool ReadValue(DtmAccess& access, std::int64_t row, std::int64_t col, int block, double& value) {
  return ReadCell(access, row, col, block, value) && !IsEmptyValue(value);
}

/// Which cells of a ring lie in a direction, an eighth of the turn: a piece of one of its sides.
struct Piece {
  int side;          // 1: the ring's upper or right side; -1: its lower or left one
  bool isColumn;     // the left or right one
  bool isUpper;      // above or right of the axis, else below or left of it
  bool hasAxis;      // with the cell on the axis, else with the corner
  bool isDownwards;  // the order of search
};
constexpr Piece kPieces[kDirections] = {
    {1, true, true, true, false},   {1, false, true, false, true},  {1, false, false, true, true},
    {-1, true, true, false, true},  {-1, true, false, true, true},  {-1, false, false, false, false},
    {-1, false, true, true, false}, {1, true, false, false, false},
};

/// Where a cell stands in the order of search.
int PlaceInSearch(int ring, int direction, int offset) {
  const int before = 4 * ring * (ring - 1);
  switch (direction) {
    case 1:
    case 2:
      return before + ring - offset;
    case 3:
    case 4:
      return before + 3 * ring - offset;
    case 5:
    case 6:
      return before + 5 * ring + offset;
    default:
      return before + 7 * ring + offset;
  }
}

}  // namespace

// ---- The arc

void DtmCircularInterpolator::Arc::Widen(double angle) {
  if (!exists_) {
    exists_ = true;
    first_ = last_ = angle;
    return;
  }
  const bool isOn = first_ <= last_ ? first_ <= angle && angle <= last_ : first_ <= angle || angle <= last_;
  if (isOn) return;
  const double forward = angle < first_ ? angle - first_ + kFullTurn : angle - first_;
  const double backward = last_ < angle ? last_ - angle + kFullTurn : last_ - angle;
  if (forward <= backward) {
    last_ = angle;
  } else {
    first_ = angle;
  }
}

double DtmCircularInterpolator::Arc::Width() const {
  if (!exists_) return 0;
  return (last_ < first_ ? last_ + kFullTurn : last_) - first_;
}

// ---- Construction

DtmCircularInterpolator::DtmCircularInterpolator(int block, int radius) : block_(block), radius_(std::max(0, radius)) {
  if (radius_ > kLargestRadius) return;
  const auto stride = static_cast<std::size_t>(radius_) * 2 + 1;
  std::vector<Polar> pattern;
  pattern.reserve(stride * stride);
  for (int y = -radius_; y <= radius_; ++y) {
    for (int x = -radius_; x <= radius_; ++x) {
      const double dy = y;
      const double dx = x;
      pattern.push_back({std::sqrt(dx * dx + dy * dy), std::atan2(dy, dx) / std::numbers::pi * kHalfTurn});
    }
  }
  pattern_ = std::make_shared<const std::vector<Polar>>(std::move(pattern));
}

DtmCircularInterpolator::DtmCircularInterpolator(const DtmCircularInterpolator& other)
    : DtmProcessor(other),
      block_(other.block_),
      radius_(other.radius_),
      access_(other.access_),
      own_(other.own_),
      areaSize_(other.areaSize_),
      cellSize_(other.cellSize_),
      hasHits_(other.hasHits_),
      offsets_(other.offsets_),
      pattern_(other.pattern_),
      targets_(other.targets_),
      reach_(other.reach_),
      keep_(other.keep_) {}  // it has no window before it is told an area

DtmCircularInterpolator::~DtmCircularInterpolator() = default;

DtmProcessor* DtmCircularInterpolator::Clone() { return new DtmCircularInterpolator(*this); }

const DtmCircularInterpolator::Polar& DtmCircularInterpolator::PolarOf(int dRow, int dCol) const {
  const std::size_t stride = static_cast<std::size_t>(radius_) * 2 + 1;
  return (*pattern_)[static_cast<std::size_t>(dRow + radius_) * stride + static_cast<std::size_t>(dCol + radius_)];
}

bool DtmCircularInterpolator::Init(DtmAccess& access) {
  window_.reset();
  access_ = &access;
  DtmFile* const file = access.GetDtmFile();
  if (file == nullptr || pattern_ == nullptr) return false;
  own_.SetDtmFile(file);
  areaSize_ = file->AreaSize();
  cellSize_ = file->CellSize();
  hasHits_ = file->HasBlockId(iNUM);
  const std::uint64_t side =
      (std::uint64_t{2} * static_cast<unsigned>(radius_) + 1) / static_cast<unsigned>(areaSize_) + 2;
  own_.SetCacheSize(std::max(DtmAccess::kDefaultCacheSize, side * side));

  if (block_ != 0) {
    targets_.push_back({block_, DtmBlockId(block_).IsZ(), 0, 0});
  } else {
    DtmBlockId id(0);
    for (int i = 0; i < DtmBlockId::NumBlockIds(); ++i) {
      id.SetFromIndex(i);
      if (id.IsZ() && file->HasBlockId(id.BlockId())) targets_.push_back({id.BlockId(), true, 0, 0});
    }
  }
  offsets_ = {};
  if (block_ == dMIN && file->HasBlockId(fXMN) && file->HasBlockId(fYMN)) offsets_ = {fXMN, fYMN};
  if (block_ == dMAX && file->HasBlockId(fXMX) && file->HasBlockId(fYMX)) offsets_ = {fXMX, fYMX};
  return true;
}

void DtmCircularInterpolator::MakeWindow() {
  std::vector<int> blocks;
  blocks.reserve(targets_.size() + 3);
  for (const Target& target : targets_) blocks.push_back(target.block);
  const int hits = hasHits_ ? static_cast<int>(blocks.size()) : -1;
  if (hasHits_) blocks.push_back(iNUM);
  if (UsesOffsets()) blocks.insert(blocks.end(), offsets_.begin(), offsets_.end());
  window_ = std::make_unique<SourceWindow>(own_, radius_, std::move(blocks), hits);
  window_->KeepAreas(keep_);

  reach_.assign(static_cast<std::size_t>(radius_) + 1, 0);
  for (int ring = 1; ring <= radius_; ++ring) {
    int reach = ring;
    while (!UsesOffsets() && PolarOf(ring, reach).distance > radius_) --reach;
    reach_[static_cast<std::size_t>(ring)] = reach;
  }
}

bool DtmCircularInterpolator::Fini() {
  if (window_ != nullptr) window_->Leave();
  return true;
}

// ---- Areas

bool DtmCircularInterpolator::AreAreasEmpty(std::int64_t firstRow, std::int64_t firstCol, std::int64_t lastRow,
                                            std::int64_t lastCol) {
  const auto index = [this](std::int64_t cell) { return std::int64_t{CalcAreaIndex(areaSize_, ToInt(cell))}; };
  for (std::int64_t row = index(firstRow); row <= index(lastRow); ++row) {
    for (std::int64_t col = index(firstCol); col <= index(lastCol); ++col) {
      DtmArea* const area = own_.GetArea(ToInt(row * areaSize_), ToInt(col * areaSize_), false);
      if (area != nullptr && !area->IsEmpty()) return false;
    }
  }
  return true;
}

bool DtmCircularInterpolator::ProcessArea(int row, int col, double& weight) {
  if (window_ != nullptr) window_->StepAside();
  const std::int64_t margin = radius_;
  const std::int64_t last = std::int64_t{areaSize_} - 1 + margin;
  if (AreAreasEmpty(row - margin, col - margin, row + last, col + last)) {
    weight = 0;
    return true;
  }
  MoveWindow(row, col);
  return true;
}

void DtmCircularInterpolator::MoveWindow(int row, int col) {
  const DtmFile* const file = own_.GetDtmFile();
  // Hit counts that are filled change where the sources are with each cell.
  if (file == nullptr || radius_ == 0 || block_ == iNUM || !SourceWindow::Pays(areaSize_, radius_)) return;
  if (row % areaSize_ != 0 || col % areaSize_ != 0) return;
  // Areas that the window touches have rows and columns that the type can tell.
  const std::int64_t farthest = std::int64_t{file->LargestAllowed()} - 2 * (std::int64_t{areaSize_} + radius_);
  if (std::abs(std::int64_t{row}) > farthest || std::abs(std::int64_t{col}) > farthest) return;
  if (window_ == nullptr) MakeWindow();
  window_->MoveTo(row, col);
}

bool DtmCircularInterpolator::DependsOnOrder() {
  if (!hasHits_ || block_ == iNUM) return true;
  if (window_ == nullptr || !window_->Stands()) return true;
  return window_->HasSourceWithout(targets_.size());
}

// ---- Cells

void DtmCircularInterpolator::ClearSums() {
  for (Target& target : targets_) target.sum = target.weights = 0;
}

bool DtmCircularInterpolator::Write(int row, int col) {
  bool any = false;
  for (const Target& target : targets_) {
    if (!(target.weights > 0)) continue;
    if (!access_->SetDoubleValue(row, col, target.block, target.sum / target.weights, target.isZ)) return false;
    any = true;
  }
  (any ? filled_ : left_) += 1;
  return true;
}

bool DtmCircularInterpolator::ProcessCell(int row, int col, double& /*weight*/) {
  if (access_ == nullptr) return true;
  if (window_ == nullptr || !window_->StandsOver(row, col)) return FillCell(row, col);
  if (IsCompleteInWindow(row, col)) return true;
  if (!SearchWindow(window_->RowOf(row), window_->ColOf(col))) {
    ++left_;
    return true;
  }
  return Write(row, col);
}

bool DtmCircularInterpolator::InterpolateCell(int row, int col, double& value) {
  if (access_ == nullptr || IsComplete(row, col) || !Search(row, col, false)) return true;
  for (const Target& target : targets_) {
    if (target.weights > 0) value = target.sum / target.weights;
  }
  return true;
}

// ---- Cell by cell

bool DtmCircularInterpolator::FillCell(int row, int col) {
  if (IsComplete(row, col)) return true;
  if (Search(row, col, hasHits_)) return Write(row, col);
  ++left_;
  return true;
}

bool DtmCircularInterpolator::IsComplete(int row, int col) {
  double value = 0;
  return std::all_of(targets_.begin(), targets_.end(),
                     [&](const Target& target) { return ReadValue(*access_, row, col, target.block, value); });
}

/// Sums up the neighbours. @return whether they cover half a circle.
bool DtmCircularInterpolator::Search(int row, int col, bool needsHits) {
  const std::int64_t r = row;
  const std::int64_t c = col;
  const bool isMissing = access_->GetArea(row, col, false) == nullptr;
  if (isMissing && AreAreasEmpty(r - radius_, c - radius_, r + radius_, c + radius_)) return false;
  ClearSums();
  Arc arc;
  unsigned directions = 0;
  for (int ring = 1; ring <= radius_ && directions != kAllDirections; ++ring) {
    SearchRing(row, col, ring, needsHits, arc, directions);
  }
  return arc.Width() >= kHalfTurn;
}

void DtmCircularInterpolator::SearchRing(int row, int col, int ring, bool needsHits, Arc& arc, unsigned& directions) {
  constexpr struct {
    int row, col;
  } kSides[] = {{0, -1}, {-1, 0}, {0, 1}, {1, 0}};
  int dRow = ring;
  int dCol = ring;
  for (const auto& side : kSides) {
    for (int step = 0; step < 2 * ring; ++step, dRow += side.row, dCol += side.col) {
      double distance = 0;
      if (!IsNeighbour(row, col, dRow, dCol, needsHits, distance)) continue;
      const double angle = TrimAngle(PolarOf(dRow, dCol).angle);
      const unsigned direction = 1U << static_cast<int>(angle / kFullTurn * kDirections);
      if ((directions & direction) != 0) continue;
      directions |= direction;
      arc.Widen(angle);
      for (Target& target : targets_) {
        double value = 0;
        if (!ReadValue(own_, std::int64_t{row} + dRow, std::int64_t{col} + dCol, target.block, value)) continue;
        Add(target, value, distance);
      }
      if (directions == kAllDirections) return;
    }
  }
}

bool DtmCircularInterpolator::IsNeighbour(int row, int col, int dRow, int dCol, bool needsHits, double& distance) {
  const std::int64_t r = std::int64_t{row} + dRow;
  const std::int64_t c = std::int64_t{col} + dCol;
  distance = PolarOf(dRow, dCol).distance;
  double x = 0;
  double y = 0;
  if (UsesOffsets() && ReadValue(*access_, r, c, offsets_[0], x) && ReadValue(*access_, r, c, offsets_[1], y)) {
    distance = DistanceOf(dRow, dCol, x, y);
  }
  double hits = 0;
  return !(distance > radius_) && (!needsHits || (ReadCell(own_, r, c, iNUM, hits) && hits > 0));
}

/// Of a sounding at an offset from its cell's centre, in cells.
double DtmCircularInterpolator::DistanceOf(int dRow, int dCol, double x, double y) const {
  const double dx = dCol * cellSize_ + x;
  const double dy = dRow * cellSize_ + y;
  return std::sqrt(dx * dx + dy * dy) / cellSize_;
}

void DtmCircularInterpolator::Add(Target& target, double value, double distance) {
  target.sum += value / distance;
  target.weights += 1 / distance;
}

// ---- By the window

bool DtmCircularInterpolator::IsCompleteInWindow(int row, int col) {
  double value = 0;
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    if (!window_->ReadOwn(row, col, i, value) || IsEmptyValue(value)) return false;
  }
  return true;
}

bool DtmCircularInterpolator::SearchWindow(int row, int col) {
  window_->Look();
  if (!window_->MaySurround(row, col)) return false;
  std::array<Neighbour, kDirections> found;
  std::size_t count = 0;
  [&]<int... kDirection>(std::integer_sequence<int, kDirection...>) {
    ((count += FindInWindow<kDirection>(row, col, found[count]) ? 1 : 0), ...);
  }(std::make_integer_sequence<int, kDirections>());
  // Sums and arc depend on the order in which the neighbours are found.
  std::sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(count),
            [](const Neighbour& a, const Neighbour& b) { return a.place < b.place; });
  Arc arc;
  for (std::size_t i = 0; i < count; ++i) {
    arc.Widen(TrimAngle(PolarOf(found[i].row - row, found[i].col - col).angle));
  }
  if (arc.Width() < kHalfTurn) return false;
  ClearSums();
  for (std::size_t i = 0; i < count; ++i) AddFromWindow(found[i]);
  return true;
}

void DtmCircularInterpolator::AddFromWindow(const Neighbour& neighbour) {
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    double value = 0;
    if (!window_->Read(neighbour.row, neighbour.col, i, value) || IsEmptyValue(value)) continue;
    Add(targets_[i], value, neighbour.distance);
  }
}

template <int kDirection>
bool DtmCircularInterpolator::FindInWindow(int row, int col, Neighbour& found) {
  constexpr Piece kPiece = kPieces[kDirection];
  const int middle = kPiece.isColumn ? row : col;
  for (int ring = 1; ring <= radius_; ++ring) {
    const int reach = std::min(reach_[static_cast<std::size_t>(ring)], kPiece.hasAxis ? ring - 1 : ring);
    const int nearest = kPiece.hasAxis ? 0 : 1;
    int from = kPiece.isUpper ? middle + nearest : middle - reach;
    int to = kPiece.isUpper ? middle + reach : middle - nearest;
    const int line = (kPiece.isColumn ? col : row) + kPiece.side * ring;
    for (;;) {
      int at = 0;
      if constexpr (kPiece.isColumn) {
        at = kPiece.isDownwards ? window_->HighestInCol(line, from, to) : window_->LowestInCol(line, from, to);
      } else {
        at = kPiece.isDownwards ? window_->HighestInRow(line, from, to) : window_->LowestInRow(line, from, to);
      }
      if (at < 0) break;
      found.row = kPiece.isColumn ? at : line;
      found.col = kPiece.isColumn ? line : at;
      if (IsInCircle(found, found.row - row, found.col - col)) {
        found.place = PlaceInSearch(ring, kDirection, at - middle);
        return true;
      }
      (kPiece.isDownwards ? to : from) = kPiece.isDownwards ? at - 1 : at + 1;
    }
  }
  return false;
}

/// Of a source that was found.
bool DtmCircularInterpolator::IsInCircle(Neighbour& found, int dRow, int dCol) {
  found.distance = PolarOf(dRow, dCol).distance;
  if (!UsesOffsets()) return true;  // the circle was cut out of the ring
  const std::size_t offset = targets_.size() + (hasHits_ ? 1 : 0);
  double x = 0;
  double y = 0;
  const auto read = [&](std::size_t block, double& value) {
    return window_->Read(found.row, found.col, block, value) && !IsEmptyValue(value);
  };
  if (read(offset, x) && read(offset + 1, y)) found.distance = DistanceOf(dRow, dCol, x, y);
  return !(found.distance > radius_);
}

}  // namespace vak
