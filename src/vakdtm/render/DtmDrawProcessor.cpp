#include "vakdtm/render/DtmDrawProcessor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include "vakdtm/frame/DrawStep.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/render/EndOfToday.h"
#include "vakdtm/services/color/ColorControl.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/geometry/Line.h"
#include "vakdtm/services/geometry/TrimAngle.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

constexpr double kDegree = 0.017453292519943295;
constexpr double kRightAngle = 1.570796327;  // with nine decimals, which every picture so far was shaded with
constexpr double kUsualElevation = 30.0;
constexpr double kAmbientShare = 0.1;  // of the light that comes from everywhere, with the sun in the zenith

constexpr Color kEdge = 0;
constexpr Color kSpikeAmongOthers = 255;
constexpr Color kNoSpike = 65280;

/// A cell smaller than this, in pixels, has no room for a stroke in it.
constexpr int kRoomForStroke = 3;
/// An area narrower than this, in pixels, is framed by a square of a fixed size, which can still be seen.
constexpr double kRoomForFrame = 5.0;
constexpr double kHalfSmallFrame = 2.0;
/// Where the stroke of a mark begins, in cells from the left edge; it ends as far from the right one.
constexpr double kStrokeBegin = 0.2;
constexpr double kStrokeEnd = 0.8;

/// Where the sun-side neighbour of a cell is, in steps; the opposite one is on the other side.
struct Sector {
  int rows;
  int cols;
};

/// By azimuth, from north over east. The last one looks wrong and is meant so: pictures with a sun in the north-west
/// are lit from the south-west, and are compared with older ones that were.
constexpr std::array<Sector, 8> kSectors = {{{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {-1, -1}}};

/// A division only where there is something to divide by: this is the first thing done for every cell.
bool IsOnStepGrid(int rowOrCol, int step) { return step == 1 || rowOrCol % step == 0; }

/// Whole pixels of a cell and one more, for the part of one.
int CalcPixels(double scale, double cellSize) {
  const double pixels = std::abs(scale) * cellSize;
  constexpr double kMost = std::numeric_limits<int>::max() - 1;
  return pixels < kMost ? static_cast<int>(pixels) + 1 : std::numeric_limits<int>::max();
}

}  // namespace

DtmDrawProcessor::DtmDrawProcessor()
    : sunElevation_(kUsualElevation * kDegree), spikes_(std::make_shared<std::set<SPIKE>>()) {}

DtmDrawProcessor::~DtmDrawProcessor() = default;

void DtmDrawProcessor::SetDrawInfo(CDC* device, const CoordinateSystem& system, const Page& view) {
  device_ = device;
  system_ = &system;
  view_ = &view;
}

void DtmDrawProcessor::SetCellInfo(int block, const ColorTable* table) {
  block_ = block;
  table_ = table;
  blockIsZ_ = DtmBlockId(block).IsZ();
}

void DtmDrawProcessor::SetMarkInfo(DtmMultiProcessor* marks, Color color, bool frameAreas) {
  marks_ = marks;
  markColor_ = color;
  frameAreas_ = frameAreas;
}

void DtmDrawProcessor::SetSpikeInfo(std::shared_ptr<std::set<SPIKE>> spikes, Color color, bool keepOthers) {
  spikes_ = spikes != nullptr ? std::move(spikes) : std::make_shared<std::set<SPIKE>>();
  spikeColor_ = color;
  spikesKeepOthers_ = keepOthers;
}

void DtmDrawProcessor::SetSunIllumination(bool on, double azimuth, double elevation, double heightFactor) {
  constexpr double kSectorWidth = 45.0;
  sunOn_ = on;
  sunElevation_ = elevation * kDegree;
  heightFactor_ = heightFactor;
  const double trimmed = std::isfinite(azimuth) ? TrimAngle(azimuth) : 0.0;
  const int sector = static_cast<int>((trimmed + kSectorWidth / 2) / kSectorWidth);
  sunSector_ = sector > 7 ? 0 : sector;
}

bool DtmDrawProcessor::Init(DtmAccess& access) {
  const DtmFile* const file = access.GetDtmFile();
  if (!HasDevice() || file == nullptr || (block_ != 0 && table_ == nullptr)) return false;
  if (marks_ != nullptr && !marks_->Init(access)) marks_ = nullptr;
  cellSize_ = file->CellSize();
  areaSide_ = cellSize_ * file->AreaSize();
  areaSurface_ = areaSide_ * areaSide_;
  FindSteps();
  ambientLight_ = std::cos(sunElevation_) * kAmbientShare;
  // A walk that shows no areas clips every cell, whatever the last area of the walk before was.
  areaPartlyVisible_ = true;
  if (marks_ == nullptr && block_ == 0 && !frameAreas_) return false;
  access_ = &access;
  backgroundBefore_ = device_->GetBkColor();
  pen_ = CreatePen(Pen::kSolid, 1, Filtered(markColor_));
  penBefore_ = device_->SelectPen(pen_);
  endOfToday_ = EndOfToday();
  return true;
}

void DtmDrawProcessor::FindSteps() {
  const Point scale = system_->GetScale();
  smallCells_ = CalcPixels(scale.y, cellSize_) < kRoomForStroke || CalcPixels(scale.x, cellSize_) < kRoomForStroke;
  rowStep_ = CalcDrawStep(-scale.y, cellSize_);
  colStep_ = CalcDrawStep(scale.x, cellSize_);
  rowDistance_ = rowStep_ * cellSize_;
  colDistance_ = colStep_ * cellSize_;
  diagonalDistance_ = std::sqrt(rowDistance_ * rowDistance_ + colDistance_ * colDistance_);
}

bool DtmDrawProcessor::Fini() {
  access_ = nullptr;
  // A plain pen in between, so that a device which holds on to what is selected lets go of ours first.
  const Pen ours = device_->SelectPen(CreatePen(Pen::kSolid, 1, kEdge));
  device_->SelectPen(ours);
  device_->SelectPen(penBefore_);
  device_->SetBkColor(backgroundBefore_);
  return marks_ == nullptr || marks_->Fini();
}

bool DtmDrawProcessor::ProcessArea(int row, int col, double& weight) {
  if (stop_.load(std::memory_order_relaxed)) return false;
  DtmArea* const area = access_->GetArea(row, col, false);
  if (area == nullptr || area->IsEmpty()) {
    weight = 0.0;
    return true;
  }
  const double left = col * cellSize_;
  const double bottom = row * cellSize_;
  Page page(left, bottom, left + areaSide_, bottom + areaSide_);
  if (frameAreas_) DrawFrame(page);
  if (block_ == 0 || !view_->ClipRect(page)) {
    weight = 0.0;
    return true;
  }
  weight = page.Area();
  areaPartlyVisible_ = areaSurface_ > weight;
  if (marks_ != nullptr) {
    double shown = weight;
    marks_->ProcessArea(row, col, shown);
  }
  return true;
}

void DtmDrawProcessor::DrawFrame(const Page& area) {
  Page pixels;
  system_->WorldToPixel(area, &pixels);
  Page frame = area;
  if (pixels.Width() < kRoomForFrame) {
    const Point centre = pixels.GetCenter();
    pixels.Set(centre + Point(-kHalfSmallFrame, kHalfSmallFrame), centre + Point(kHalfSmallFrame, -kHalfSmallFrame));
    system_->PixelToWorld(pixels, &frame);
  }
  frame.DrawRect(device_, *system_, *view_);
}

bool DtmDrawProcessor::ProcessCell(int row, int col, double& weight) {
  if (stop_.load(std::memory_order_relaxed)) return false;
  if (!IsOnStepGrid(row, rowStep_) || !IsOnStepGrid(col, colStep_)) return true;
  Page page(col * cellSize_, row * cellSize_, (static_cast<double>(col) + colStep_) * cellSize_,
            (static_cast<double>(row) + rowStep_) * cellSize_);
  if (areaPartlyVisible_ && !view_->ClipRect(page)) {
    weight = 0.0;
    return true;
  }
  const PixelRect rect = system_->WorldToPixel(page);
  bool marked = false;
  if (marks_ != nullptr && !MarkCell(row, col, weight, rect, marked)) return true;
  if (block_ != 0 && !PaintCell(row, col, rect)) return true;
  if (marked) DrawMarkStroke(row, col);
  return true;
}

bool DtmDrawProcessor::MarkCell(int row, int col, double weight, const PixelRect& rect, bool& marked) {
  marks_->ProcessCell(row, col, weight);
  if (!(weight > 0.0)) return true;
  marked = true;
  if (!smallCells_) return true;
  device_->FillSolidRect(rect, Filtered(markColor_));
  return false;
}

bool DtmDrawProcessor::PaintCell(int row, int col, const PixelRect& rect) {
  double value = EmptyDouble();
  const bool ok = GetCellValue(row, col, value);
  if (!ok && (IsEmptyValue(value) || !showNoDesign_)) return true;
  if (PaintSpike(row, col, rect)) return false;
  device_->FillSolidRect(rect, FindColor(row, col, value, ok));
  return true;
}

bool DtmDrawProcessor::PaintSpike(int row, int col, const PixelRect& rect) {
  if (spikes_->empty()) return false;
  SPIKE wanted;
  wanted.row = row;
  wanted.col = col;
  const bool found = spikes_->contains(wanted);
  if (!found && spikesKeepOthers_) return false;
  device_->FillSolidRect(rect, !found ? kNoSpike : spikesKeepOthers_ ? spikeColor_ : kSpikeAmongOthers);
  return true;
}

Color DtmDrawProcessor::FindColor(int row, int col, double value, bool ok) {
  if (block_ == tTIM) return ok ? table_->GetColor((endOfToday_ - value) / kSecondsOfDay) : noValueColor_;
  if (gradientMode_) return FindGradientColor(row, col);
  const Color color = ok ? table_->GetColor(value * unitFactor_ + unitOffset_) : noValueColor_;
  return sunOn_ ? Shade(row, col, value, ok, color) : color;
}

Color DtmDrawProcessor::FindGradientColor(int row, int col) {
  double gradient = 0.0;
  return access_->GetGradientValue(row, col, dVAL, gradient) ? table_->GetColor(gradient) : noValueColor_;
}

Color DtmDrawProcessor::Shade(int row, int col, double value, bool ok, Color color) {
  double z = value;
  double slope = 0.0;
  if (!blockIsZ_ && ok && !GetCellValueZ(row, col, z)) return color;
  if (!FindSlope(row, col, z, slope)) return color;
  const ColorShade& shade = shades_(color);
  const double angle = std::clamp((kRightAngle - sunElevation_) - std::atan(slope), -kRightAngle, kRightAngle);
  const double lightness = std::clamp(std::cos(angle) * shade.Lightness() + ambientLight_, 0.0, 1.0);
  return shade.WithLightness(lightness);
}

bool DtmDrawProcessor::FindSlope(int row, int col, double z, double& slope) {
  const Sector& sector = kSectors[static_cast<std::size_t>(sunSector_)];
  const double distance = sector.rows == 0 ? colDistance_ : sector.cols == 0 ? rowDistance_ : diagonalDistance_;
  double neighbour = 0.0;
  if (GetNeighbourZ(row, col, sector.rows, sector.cols, neighbour)) {
    slope = (z - neighbour) * heightFactor_ / distance;
    return true;
  }
  if (GetNeighbourZ(row, col, -sector.rows, -sector.cols, neighbour)) {
    slope = (neighbour - z) * heightFactor_ / distance;
    return true;
  }
  return false;
}

bool DtmDrawProcessor::GetNeighbourZ(int row, int col, int rowSteps, int colSteps, double& value) {
  // A step may be as large as the type, far beyond any cell.
  const std::int64_t otherRow = row + std::int64_t{rowSteps} * rowStep_;
  const std::int64_t otherCol = col + std::int64_t{colSteps} * colStep_;
  return std::in_range<int>(otherRow) && std::in_range<int>(otherCol) &&
         GetCellValueZ(static_cast<int>(otherRow), static_cast<int>(otherCol), value);
}

void DtmDrawProcessor::DrawMarkStroke(int row, int col) {
  const double left = col * cellSize_;
  const double bottom = row * cellSize_;
  const Line stroke(Point(left + kStrokeBegin * cellSize_, bottom),
                    Point(left + kStrokeEnd * cellSize_, bottom + cellSize_));
  stroke.DrawLine(device_, *system_, *view_);
}

bool DtmDrawProcessor::GetCellValue(int row, int col, double& value) {
  return access_->GetDoubleValue(row, col, block_, value) && !IsEmptyValue(value);
}

bool DtmDrawProcessor::GetCellValueZ(int row, int col, double& value) {
  return access_->GetDoubleValue(row, col, blockIsZ_ ? block_ : dVAL, value) && !IsEmptyValue(value);
}

}  // namespace vak
