#include "vakdtm/render/DtmChart.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

#include "vakdtm/frame/CellRange.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/render/BlockColorMap.h"
#include "vakdtm/render/ChartFurniture.h"
#include "vakdtm/render/ContourPainter.h"
#include "vakdtm/render/DataExtents.h"
#include "vakdtm/render/DrawModel.h"
#include "vakdtm/render/DtmDrawProcessor.h"
#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

/// The share of the cells that the colours leave out at each end, when nobody says where they begin and end: a spike
/// would stretch them until all the rest has one colour.
constexpr double kSpikes = 0.005;
/// Of fewer cells than this, that share is none.
constexpr std::size_t kFewCells = 200;

constexpr Color kFrameColor = 0x606060;
constexpr Color kNoValueColor = 12899809;  // as the drawing has it

/// Hands a walk on to another processor, which it doesn't own, and watches it: tells how far it is, and ends it early.
class WalkWatch final : public DtmProcessor {
 public:
  WalkWatch(DtmProcessor& shown, const std::atomic<bool>& running) : shown_(shown), running_(running) {}

  /// @param progress  gets the share of the rows that are begun, as long as the walk lasts.
  void Tell(const CellRange& range, std::atomic<double>& progress) {
    range_ = range;
    progress_ = &progress;
  }

  bool Init(DtmAccess& access) override { return shown_.Init(access); }
  bool Fini() override { return shown_.Fini(); }
  bool InitRow(int row, int colBegin, int colEnd) override {
    if (progress_ != nullptr && !range_.IsEmpty()) {
      const double done =
          static_cast<double>(std::int64_t{row} - range_.lowestRow) / static_cast<double>(range_.NumRows());
      if (done > *progress_ && done <= 1) *progress_ = done;
    }
    return shown_.InitRow(row, colBegin, colEnd);
  }
  bool ProcessArea(int row, int col, double& area) override { return shown_.ProcessArea(row, col, area); }
  bool ProcessCell(int row, int col, double& area) override {
    return running_.load(std::memory_order_relaxed) && shown_.ProcessCell(row, col, area);
  }

 private:
  DtmProcessor& shown_;
  const std::atomic<bool>& running_;
  CellRange range_;
  std::atomic<double>* progress_ = nullptr;
};

bool IsHeightLike(int block) {
  return block == dVAL || block == dSDV || block == dMIN || block == dMAX || block == dTVU || block == dTHU;
}

/// Whether its values are whole numbers: counts, priorities, flags.
bool IsWhole(int block) {
  const char type = DtmBlockId(block).DataType();
  return type == 'i' || type == 'u' || type == 'c';
}

bool IsOffset(int block) { return block == fXMN || block == fYMN || block == fXMX || block == fYMX; }

}  // namespace

DtmChart::DtmChart(DtmAccess& access, ChartSettings settings) : access_(access), settings_(std::move(settings)) {}

DtmChart::~DtmChart() = default;

double DtmChart::UnitFactor() const {
  if (IsHeightLike(settings_.block)) return settings_.heightFactor;
  return IsOffset(settings_.block) ? settings_.lengthFactor : 1.0;
}

std::wstring DtmChart::LegendTitle() const {
  std::wstring title = DtmBlockId(settings_.block).BlockName();
  if (settings_.isSlope) {
    title = L"Slope, m/m";
  } else if (settings_.block == tTIM) {
    title = L"Age, days";
  } else if (IsHeightLike(settings_.block)) {
    title += L", " + settings_.heightUnit;
  } else if (IsOffset(settings_.block)) {
    title += L", " + settings_.lengthUnit;
  }
  const bool isOpen = sample_ && !sample_->IsEmpty() && (sample_->Lowest() < low_ || sample_->Highest() > high_);
  if (isOpen && !settings_.table && !settings_.range) title += L" (99 % of the cells)";
  if (settings_.isSlope && sample_ && sample_->HasSlopeless()) title += L", beige where there is none";
  return title;
}

// ---- looking

DtmChart::Fault DtmChart::FindView() {
  Page limit = settings_.rect;
  Page outline;
  if (settings_.polygon.NumRings() > 0 && settings_.polygon.GetExtents(outline)) {
    if (!limit.IsValid()) {
      limit = outline;
    } else if (!outline.ClipRect(limit)) {
      return Fault::kNoValue;
    }
  }
  if (!FindDataExtents(access_, settings_.block, limit, running_, data_)) {
    return running_ ? Fault::kNoValue : Fault::kStopped;
  }
  if (settings_.rect.IsValid()) data_ = settings_.rect;
  return Fault::kNone;
}

bool DtmChart::Arrange(const TextMeasure& measure) {
  ChartPlan plan;
  plan.width = settings_.width;
  plan.data = data_;
  plan.hasMargin = !settings_.rect.IsValid();
  plan.isBare = settings_.isBare;
  plan.lengthFactor = settings_.lengthFactor;
  plan.lengthUnit = settings_.lengthUnit;
  plan.title = settings_.title;
  plan.hasLegend = settings_.hasLegend;
  plan.legendTitle = LegendTitle();
  plan.legendLow = low_;
  plan.legendHigh = high_;
  plan.legendStep = IsWhole(settings_.block) ? 1 : 0;
  plan.isOpenBelow = sample_ && !sample_->IsEmpty() && sample_->Lowest() < low_;
  plan.isOpenAbove = sample_ && !sample_->IsEmpty() && sample_->Highest() > high_;
  plan.hasScaleBar = settings_.hasScaleBar;
  return ChartLayout::Make(plan, measure, layout_);
}

DtmChart::Fault DtmChart::TakeSample(DtmValueSample& sample) {
  const PixelRect& map = layout_.map;
  const CoordinateSystem system(layout_.view, map.right - map.left, map.bottom - map.top);
  if (!Walk(sample, system, false)) return running_ ? Fault::kUnreadable : Fault::kStopped;
  if (!sample.IsEmpty()) return Fault::kNone;
  const double cellPixels = system.GetScale().x * access_.GetDtmFile()->CellSize();
  return cellPixels <= 0.5 ? Fault::kNoneShown : Fault::kNoValue;
}

bool DtmChart::MakeTable() {
  if (settings_.table) {
    table_ = *settings_.table;
  } else {
    std::string_view name = settings_.colors;
    if (name.empty()) name = settings_.isSlope ? "slope" : DefaultColorMap(settings_.block);
    const bool isFew = sample_->Count() < kFewCells;
    low_ = settings_.range ? settings_.range->low : isFew ? sample_->Lowest() : sample_->Quantile(kSpikes);
    high_ = settings_.range ? settings_.range->high : isFew ? sample_->Highest() : sample_->Quantile(1 - kSpikes);
    if (!(low_ < high_)) {
      // All alike: something round about it.
      const double half = std::max(0.5, std::fabs(low_) * 1e-3);
      low_ -= half;
      high_ += half;
    }
    if (!MakeColorTable(name, low_, high_, table_)) return false;
    table_.SetNoValueColor(kNoValueColor);
  }
  if (table_.Classes().empty()) return false;
  low_ = table_.Classes().front().lower;
  high_ = table_.End().value_or(table_.Classes().back().lower);
  if (!(low_ < high_)) high_ = low_ + 1;
  return true;
}

DtmChart::Fault DtmChart::Look(const TextMeasure& measure) {
  progress_ = 0;
  if (const Fault fault = FindView(); fault != Fault::kNone) return fault;
  // The numbers of the legend aren't known before the values are; without them the map is as good as its final size.
  if (!Arrange(measure)) return Fault::kTooNarrow;
  sample_ = std::make_unique<DtmValueSample>(settings_.block, UnitFactor(), settings_.isSlope);
  if (const Fault fault = TakeSample(*sample_); fault != Fault::kNone) return fault;
  if (!MakeTable()) return Fault::kNoValue;
  return Arrange(measure) ? Fault::kNone : Fault::kTooNarrow;
}

// ---- contours

int DtmChart::ContourBlock() const { return DtmBlockId(settings_.block).IsZ() ? settings_.block : dVAL; }

PolyClipLine DtmChart::ContourPolygon() const {
  if (!settings_.rect.IsValid()) return settings_.polygon;
  // The lines run from centre to centre: those of the cells next to the edge come in.
  const double cell = access_.GetDtmFile()->CellSize();
  const Page seen(settings_.rect.left() - cell, settings_.rect.bottom() - cell, settings_.rect.right() + cell,
                  settings_.rect.top() + cell);
  PolyClipLine polygon;
  if (settings_.polygon.NumRings() > 0) {
    (void)settings_.polygon.ClipToPage(seen, polygon);
    return polygon;
  }
  polygon.AddRing({{seen.left(), seen.bottom()},
                   {seen.right(), seen.bottom()},
                   {seen.right(), seen.top()},
                   {seen.left(), seen.top()},
                   {seen.left(), seen.bottom()}},
                  false);
  return polygon;
}

DtmChart::Fault DtmChart::FindContourRange(double& lowest, double& highest) {
  std::unique_ptr<DtmValueSample> heights;
  DtmValueSample* sample = sample_.get();
  if (ContourBlock() != settings_.block || settings_.isSlope) {
    heights = std::make_unique<DtmValueSample>(ContourBlock(), settings_.heightFactor, false);
    sample = heights.get();
    if (const Fault fault = TakeSample(*sample); fault != Fault::kNone) {
      return fault == Fault::kNoneShown ? Fault::kNoValue : fault;
    }
  }
  const double low = sample->Quantile(kSpikes);
  const double high = sample->Quantile(1 - kSpikes);
  lowest = std::max(sample->Lowest(), low - (high - low));
  highest = std::min(sample->Highest(), high + (high - low));
  return Fault::kNone;
}

// ---- painting

const Page& DtmChart::PaintedPart() const {
  // What a rectangle leaves out isn't shown either where the map is wider or higher.
  return settings_.rect.IsValid() ? settings_.rect : layout_.view;
}

bool DtmChart::Walk(DtmProcessor& processor, const CoordinateSystem& system, bool needsAreas) {
  const Page part = PaintedPart();
  const bool hasPolygon = settings_.polygon.NumRings() > 0;
  DtmMultiProcessor chain;
  if (hasPolygon) {
    chain.AddProcessor(std::make_unique<DtmPolyClipper>(settings_.polygon, true, false).release());
    chain.AddProcessor(std::make_unique<WalkWatch>(processor, running_).release());
  }
  WalkWatch watch(hasPolygon ? static_cast<DtmProcessor&>(chain) : processor, running_);
  progress_ = 0;
  if (const auto range = CellRange::Find(*access_.GetDtmFile(), part)) watch.Tell(*range, progress_);
  return DrawModel(watch, access_, system, part, needsAreas || hasPolygon);
}

DtmChart::Fault DtmChart::PaintCells(CDC& device) {
  const PixelRect& map = layout_.map;
  const int width = map.right - map.left;
  const int height = map.bottom - map.top;
  // On the device's own pixels where it has some: a second image of that size would double what a picture takes.
  ImageDevice image;
  const bool isLent = device.LendPixels(map, image);
  if (isLent) {
    image.FillSolidRect({0, 0, width, height}, CDC::kWhite);
  } else if (!image.Create(width, height)) {
    return Fault::kNoMemory;
  }
  const CoordinateSystem system(layout_.view, width, height);
  const Page part = PaintedPart();
  DtmDrawProcessor drawing;
  drawing.SetDrawInfo(&image, system, part);
  drawing.SetCellInfo(settings_.block, &table_);
  drawing.SetMarkInfo(nullptr, kFrameColor, settings_.frameAreas);
  drawing.SetGradientMode(settings_.isSlope);
  drawing.SetPresentationUnitFactor(UnitFactor());
  if (settings_.sun) {
    drawing.SetSunIllumination(true, settings_.sun->azimuth, settings_.sun->elevation, settings_.sun->factor);
  }
  if (!Walk(drawing, system, settings_.frameAreas)) return running_ ? Fault::kUnreadable : Fault::kStopped;
  if (!isLent) device.DrawImage(map, image);
  return Fault::kNone;
}

DtmChart::Fault DtmChart::PaintContours(CDC& device, const ContourSource& contours) {
  if (!contours) return Fault::kNone;
  const bool isOfHeights = DtmBlockId(settings_.block).IsZ() && !settings_.isSlope;
  std::function<Color(double)> colorAt;
  if (isOfHeights) colorAt = [this](double level) { return table_.GetColor(level); };
  ContourPainter painter(device, layout_, std::move(colorAt), PaintedPart());
  if (!contours([&painter](const ChartContour& contour) { painter.Draw(contour); })) {
    return running_ ? Fault::kUnreadable : Fault::kStopped;
  }
  painter.DrawLabels();
  return Fault::kNone;
}

DtmChart::Fault DtmChart::Paint(CDC& device, const ContourSource& contours) {
  if (!running_) return Fault::kStopped;
  const ChartFurniture furniture(device, layout_);
  furniture.DrawPaper();
  if (!running_) return Fault::kStopped;
  if (const Fault fault = PaintCells(device); fault != Fault::kNone) return fault;
  if (const Fault fault = PaintContours(device, contours); fault != Fault::kNone) return fault;
  if (!running_) return Fault::kStopped;
  if (settings_.isBare) return Fault::kNone;
  furniture.DrawFrame();
  furniture.DrawTitle();
  furniture.DrawLegend(table_);
  furniture.DrawScaleBar();
  furniture.DrawNorthArrow();
  return Fault::kNone;
}

}  // namespace vak
