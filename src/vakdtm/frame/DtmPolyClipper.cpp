#include "vakdtm/frame/DtmPolyClipper.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

/// Adds up what rings have of a surface. Rings that meet in it, a hole and what bounds it, say, leave nothing or all of
/// it but for rounding: that is then nothing, or all.
class DtmPolyClipper::Weight {
 public:
  explicit Weight(double surface) : surface_(surface) {}

  void AddWhole(int rings) { whole_ += rings; }
  void Add(const PolyClipper& clipper) {
    if (clipper.GetCover() == PolyClipper::Cover::kPartly) {
      AddPart(clipper.Area());
    } else if (clipper.GetCover() == PolyClipper::Cover::kInside) {
      AddWhole(clipper.Area() < 0 ? -1 : 1);
    }
  }

  double Value() const {
    if (parts_ == 0) return std::max(0, whole_) * surface_;
    const double value = whole_ * surface_ + sum_;
    if (parts_ + std::abs(whole_) == 1) return std::max(0.0, value);
    const double rounding = 64 * std::numeric_limits<double>::epsilon() * surface_ * (parts_ + std::abs(whole_));
    if (value <= rounding) return 0;  // also where a hole isn't within its ring: nothing is taken off nothing
    return std::fabs(value - surface_) <= rounding ? surface_ : value;
  }

 private:
  void AddPart(double part) {
    // Where the page is rounded to more than the surface, or the ring to more than the page.
    sum_ += std::clamp(part, -surface_, surface_);
    ++parts_;
  }

  double surface_;
  double sum_ = 0;
  int whole_ = 0;
  int parts_ = 0;
};

DtmPolyClipper::Ring& DtmPolyClipper::Rings::Add() {
  if (count == list.size()) list.emplace_back();
  return list[count++];
}

DtmPolyClipper::DtmPolyClipper(const PolyClipLine& polygon, bool centrePoint, bool inverted)
    : centrePoint_(centrePoint), inverted_(inverted) {
  polygon_ = polygon;
  TakeExtents();
}

DtmProcessor* DtmPolyClipper::Clone() { return new DtmPolyClipper(*this); }

void DtmPolyClipper::TakeExtents() {
  extents_.Invalidate();
  polygon_.GetExtents(extents_);
  hasArea_ = false;
  hasRow_ = false;
}

bool DtmPolyClipper::Init(DtmAccess& access) {
  if (!polygon_.IsValid() || access.GetDtmFile() == nullptr) return false;
  // Until an area is announced every cell is tested: there are walkers that announce none.
  partlyCovered_ = true;
  hasArea_ = false;
  hasRow_ = false;
  file_ = access.GetDtmFile();
  cellSize_ = file_->CellSize();
  areaSize_ = file_->AreaSize();
  areaSide_ = areaSize_ * cellSize_;
  cellSurface_ = cellSize_ * cellSize_;
  areaSurface_ = areaSide_ * areaSide_;
  return true;
}

bool DtmPolyClipper::Set2D(double* xy, int count) {
  if (xy == nullptr) return false;
  polygon_.Clear();
  for (int i = 0; i < count; ++i, xy += 2) polygon_.AddElem({xy[0], xy[1]});
  TakeExtents();
  return true;
}

bool DtmPolyClipper::ProcessArea(int row, int col, double& weight) {
  if (!polygon_.IsEmpty()) {
    Weight sum(areaSurface_);
    CutArea(row, col, sum);
    weight = sum.Value();
  }
  if (inverted_) weight = areaSurface_ - weight;
  partlyCovered_ = areaSurface_ > weight;
  notCovered_ = 0.0 >= weight;
  return true;
}

/// Cuts the rings to an area; those that an edge takes into it are kept for its cells.
void DtmPolyClipper::CutArea(int row, int col, Weight& weight) {
  areaRow_ = row;
  areaCol_ = col;
  hasArea_ = true;
  hasRow_ = false;
  rings_.count = 0;
  rings_.whole = 0;
  const double x = col * cellSize_;
  const double y = row * cellSize_;
  const Page page(x, y, x + areaSide_, y + areaSide_);
  if (!extents_.IsRectInPage(page)) return;
  const PolyClipLine* ring = nullptr;
  for (bool more = polygon_.GetFirstPolyClipLine(ring); more; more = polygon_.GetNextPolyClipLine(ring)) {
    Ring& kept = rings_.Add();
    kept.area.SetPage(page);
    const bool partly = ring->FillPolyClipper(kept.area) && kept.area.GetCover() == PolyClipper::Cover::kPartly;
    weight.Add(kept.area);
    if (partly) continue;
    --rings_.count;
    if (kept.area.GetCover() == PolyClipper::Cover::kInside) rings_.whole += kept.area.Area() < 0 ? -1 : 1;
  }
}

bool DtmPolyClipper::ProcessCell(int row, int col, double& weight) {
  if (!partlyCovered_) {
    if (notCovered_) weight = 0;
    return true;
  }
  if (centrePoint_) {
    TestPoint(row, col, weight);
    return true;
  }
  if (!polygon_.IsEmpty()) {
    Weight sum(cellSurface_);
    WeighCell(row, col, sum);
    weight = sum.Value();
  }
  if (inverted_) weight = cellSurface_ - weight;
  return true;
}

void DtmPolyClipper::TestPoint(double row, double col, double& weight) const {
  const Point centre((col + 0.5) * cellSize_, (row + 0.5) * cellSize_);
  const bool inside = polygon_.IsEmpty() || polygon_.IsPointInPoly(centre);
  if (inside == inverted_) weight = 0;
}

bool DtmPolyClipper::IsInArea(int row, int col) const {
  const auto within = [this](int cell, int first) {
    return cell >= first && static_cast<long long>(cell) - first < areaSize_;
  };
  return hasArea_ && within(row, areaRow_) && within(col, areaCol_);
}

void DtmPolyClipper::WeighCell(int row, int col, Weight& weight) {
  const double x = col * cellSize_;
  const double y = row * cellSize_;
  const Page page(x, y, x + cellSize_, y + cellSize_);
  if (!extents_.IsRectInPage(page)) return;
  if (hasArea_ && !IsInArea(row, col)) {
    hasArea_ = false;
    hasRow_ = false;
  }
  if (!hasRow_ || row_ != row) CutRow(row);
  weight.AddWhole(rowWhole_);
  for (std::size_t i = 0; i < rings_.count; ++i) {
    const Ring& ring = rings_.list[i];
    if (!ring.inRow) continue;
    clipper_.SetPage(page);
    clipper_.ClipResultOf(ring.row);
    weight.Add(clipper_);
  }
}

/// Cuts the rings to a row of cells: of the area, or, when none was announced, all across the polygon.
void DtmPolyClipper::CutRow(int row) {
  if (hasArea_) {
    CutRowOfArea(row);
  } else {
    CutRowOfPolygon(row);
  }
  row_ = row;
  hasRow_ = true;
}

void DtmPolyClipper::CutRowOfArea(int row) {
  const double x = areaCol_ * cellSize_;
  const double y = row * cellSize_;
  const Page page(x, y, x + areaSide_, y + cellSize_);
  rowWhole_ = rings_.whole;
  for (std::size_t i = 0; i < rings_.count; ++i) {
    Ring& ring = rings_.list[i];
    ring.row.SetPage(page);
    ring.row.ClipResultOf(ring.area);
    ring.inRow = ring.row.GetCover() == PolyClipper::Cover::kPartly;
    if (ring.row.GetCover() == PolyClipper::Cover::kInside) rowWhole_ += ring.row.Area() < 0 ? -1 : 1;
  }
}

void DtmPolyClipper::CutRowOfPolygon(int row) {
  // Beyond the polygon on both sides, so that no ring ever covers all of it.
  const double y = row * cellSize_;
  const Page page(extents_.left() - cellSize_, y, extents_.right() + cellSize_, y + cellSize_);
  rowWhole_ = 0;
  rings_.count = 0;
  rings_.whole = 0;
  const PolyClipLine* ring = nullptr;
  for (bool more = polygon_.GetFirstPolyClipLine(ring); more; more = polygon_.GetNextPolyClipLine(ring)) {
    Ring& kept = rings_.Add();
    kept.row.SetPage(page);
    kept.inRow = ring->FillPolyClipper(kept.row);
    if (!kept.inRow) --rings_.count;
  }
}

}  // namespace vak
