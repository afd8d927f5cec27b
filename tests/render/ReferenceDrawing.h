#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <numbers>
#include <set>
#include <string>
#include <utility>

#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/color/ColorControl.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/geometry/Line.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/store/DtmBlockId.h"

namespace vak::test {

/// A model as maps of cells: what isn't there has no value.
struct PlainModel {
  using Place = std::pair<int, int>;  ///< row and column

  double cellSize = 1.0;
  int areaSize = 8;
  std::map<int, std::map<Place, double>> blocks;  ///< by id
  std::set<Place> areas;                          ///< bottom-left cells of those that hold a value

  static double Empty() { return std::bit_cast<double>(~std::uint64_t{0}); }

  bool Find(int id, int row, int col, double& value) const {
    value = Empty();
    const auto block = blocks.find(id);
    if (block == blocks.end()) return false;
    const auto cell = block->second.find({row, col});
    if (cell == block->second.end()) return false;
    value = cell->second;
    return true;
  }

  /// The greatest of the four slopes through a cell.
  bool Gradient(int row, int col, double& slope) const {
    double v = 0;
    if (!Find(dVAL, row, col, v)) return false;
    const double c = cellSize;
    slope = PairSlope({row + 1, col}, {row - 1, col}, v, 2 * c, c);
    for (const double other : {PairSlope({row + 1, col + 1}, {row - 1, col - 1}, v, c * 2.828427, c * 1.414213),
                               PairSlope({row, col + 1}, {row, col - 1}, v, c, c),
                               PairSlope({row + 1, col - 1}, {row - 1, col + 1}, v, c * 2.828427, c * 1.414213)}) {
      if (other > slope) slope = other;
    }
    return true;
  }

 private:
  double PairSlope(Place first, Place second, double v, double betweenBoth, double toOne) const {
    double a = 0;
    double b = 0;
    const bool hasA = Find(dVAL, first.first, first.second, a);
    const bool hasB = Find(dVAL, second.first, second.second, b);
    if (hasA && hasB) return std::abs(a - b) / betweenBoth;
    if (hasA) return std::abs(a - v) / toOne;
    return std::abs(b - v) / toOne;
  }
};

/// The drawing of cells as it is said in words, step by step, with nothing kept that could be looked up again. Slow.
class ReferenceDrawing {
 public:
  ReferenceDrawing(const PlainModel& model, CDC& device) : model_(model), device_(device) {}

  // How often each way through a cell or an area was taken, to see that a test takes them all.
  std::map<std::string, int> ways;

  void SetDrawInfo(const CoordinateSystem& system, const Page& view) {
    system_ = &system;
    view_ = &view;
  }
  void SetCellInfo(int block, const ColorTable* table) {
    block_ = block;
    table_ = table;
    blockIsZ_ = block == dVAL || block == dMIN || block == dMAX;
  }
  void SetMarkInfo(DtmProcessor* marks, Color color, bool frameAreas) {
    marks_ = marks;
    markColor_ = color;
    frameAreas_ = frameAreas;
  }
  void SetSpikeInfo(std::set<PlainModel::Place> spikes, Color color, bool keepOthers) {
    spikes_ = std::move(spikes);
    spikeColor_ = color;
    keepOthers_ = keepOthers;
  }
  /// @param azimuth  degrees, any.
  void SetSunIllumination(bool on, double azimuth, double elevation, double heightFactor) {
    sunOn_ = on;
    elevation_ = elevation * (std::numbers::pi / 180.0);
    heightFactor_ = heightFactor;
    double angle = std::fmod(azimuth, 360.0);
    if (angle < 0) angle += 360.0;
    sector_ = static_cast<int>((angle + 22.5) / 45.0);
    if (sector_ > 7) sector_ = 0;
  }
  void SetGradientMode(bool on) { gradientMode_ = on; }
  void SetPresentationUnitFactor(double factor) { factor_ = factor; }
  void SetPresentationUnitOffset(double offset) { offset_ = offset; }
  void SetStop(bool stop) { stop_ = stop; }
  void SetShowNoDesign(bool show) { showNoDesign_ = show; }
  void SetNoValueColor(Color color) { noValueColor_ = color; }
  void SetNow(long long seconds) { now_ = seconds; }

  /// Stands for a subclass's reading of a cell.
  std::function<bool(ReferenceDrawing&, int row, int col, double& value)> getCellValue =
      [](ReferenceDrawing& drawing, int row, int col, double& value) { return drawing.GetCellValue(row, col, value); };

  bool GetCellValue(int row, int col, double& value) const { return model_.Find(block_, row, col, value); }
  bool GetCellValueZ(int row, int col, double& value) const {
    return model_.Find(blockIsZ_ ? block_ : dVAL, row, col, value);
  }

  bool Init(DtmAccess& access) {
    if (marks_ != nullptr && !marks_->Init(access)) marks_ = nullptr;
    if (marks_ == nullptr && block_ == 0 && !frameAreas_) return false;
    // Until an area says otherwise: a walk by rows, which shows no areas, isn't to go by the last one of another walk.
    partlyVisible_ = true;
    backgroundBefore_ = device_.GetBkColor();
    const Color filtered = ColorControl::Instance().GetColor(markColor_, false);
    penBefore_ = device_.SelectPen(CreatePen(0, 1, filtered));
    return true;
  }

  bool Fini() {
    const Pen replaced = device_.SelectPen(CreatePen(0, 1, 0));
    device_.SelectPen(replaced);
    device_.SelectPen(penBefore_);
    device_.SetBkColor(backgroundBefore_);
    return marks_ != nullptr ? marks_->Fini() : true;
  }

  bool ProcessArea(int row, int col, double& weight) {
    if (stop_) return Way("area stopped", false);
    if (!model_.areas.contains({row, col})) return Skip("area without values", weight);
    const double side = model_.areaSize * model_.cellSize;
    Page page(col * model_.cellSize, row * model_.cellSize, col * model_.cellSize + side, row * model_.cellSize + side);
    if (frameAreas_) DrawFrame(page);
    if (block_ == 0) return Skip("area without block", weight);
    if (!view_->ClipRect(page)) return Skip("area out of view", weight);
    weight = page.Area();
    partlyVisible_ = side * side > weight;
    if (marks_ != nullptr) {
      double copy = weight;
      marks_->ProcessArea(row, col, copy);
    }
    return Way(partlyVisible_ ? "area cut" : "area whole", true);
  }

  bool ProcessCell(int row, int col, double& weight) {
    if (stop_) return Way("cell stopped", false);
    if (row % RowStep() != 0 || col % ColStep() != 0) return Way("cell off the steps", true);
    const double c = model_.cellSize;
    Page page(col * c, row * c, (col + ColStep()) * c, (row + RowStep()) * c);
    if (partlyVisible_ && !view_->ClipRect(page)) return Skip("cell out of view", weight);
    const PixelRect pixels = system_->WorldToPixel(page);
    bool marked = false;
    if (marks_ != nullptr) {
      double copy = weight;
      marks_->ProcessCell(row, col, copy);
      if (copy > 0) {
        if (SmallCells()) {
          device_.FillSolidRect(pixels, ColorControl::Instance().GetColor(markColor_, false));
          return Way("small marked cell", true);
        }
        marked = true;
      }
    }
    if (block_ != 0) {
      double value = PlainModel::Empty();
      const bool ok = getCellValue(*this, row, col, value);
      const bool empty = std::bit_cast<std::uint64_t>(value) == ~std::uint64_t{0};
      if (ok || (!empty && showNoDesign_)) {
        if (!spikes_.empty()) {
          if (spikes_.contains({row, col})) {
            device_.FillSolidRect(pixels, keepOthers_ ? spikeColor_ : 255);
            return Way(keepOthers_ ? "spike among others" : "spike", true);
          }
          if (!keepOthers_) {
            device_.FillSolidRect(pixels, 65280);
            return Way("no spike", true);
          }
        }
        device_.FillSolidRect(pixels, ColorOf(row, col, value, ok));
      } else {
        Way(empty ? "cell without value" : "cell without design, not shown", true);
      }
    } else {
      Way("cell without block", true);
    }
    if (marked) {
      Way("mark stroke", true);
      const Line stroke(Point(col * c + 0.2 * c, row * c), Point(col * c + 0.8 * c, row * c + c));
      stroke.DrawLine(&device_, *system_, *view_);
    }
    return true;
  }

 private:
  bool Way(const char* name, bool answer) {
    ++ways[name];
    return answer;
  }
  bool Skip(const char* name, double& weight) {
    weight = 0;
    return Way(name, true);
  }

  bool SmallCells() const {
    const Point scale = system_->GetScale();
    const int h = static_cast<int>(std::abs(scale.y) * model_.cellSize) + 1;
    const int w = static_cast<int>(std::abs(scale.x) * model_.cellSize) + 1;
    return h < 3 || w < 3;
  }
  int RowStep() const {
    const int step = static_cast<int>(1.0 / -system_->GetScale().y / model_.cellSize);
    return step == 0 ? 1 : step;
  }
  int ColStep() const {
    const int step = static_cast<int>(1.0 / system_->GetScale().x / model_.cellSize);
    return step == 0 ? 1 : step;
  }

  void DrawFrame(const Page& area) {
    Page pixels;
    system_->WorldToPixel(area, &pixels);
    if (pixels.Width() < 5.0) {
      Way("small frame", true);
      const Point centre = pixels.GetCenter();
      Page square;
      square.Set(Point(centre.x - 2, centre.y + 2), Point(centre.x + 2, centre.y - 2));
      Page world;
      system_->PixelToWorld(square, &world);
      world.DrawRect(&device_, *system_, *view_);
    } else {
      Way("frame", true);
      area.DrawRect(&device_, *system_, *view_);
    }
  }

  Color ColorOf(int row, int col, double value, bool ok) {
    if (block_ == tTIM) {
      Way(ok ? "time" : "time without design", true);
      const double endOfToday = std::ceil(static_cast<double>(now_) / 86400.0) * 86400.0;
      return ok ? table_->GetColor((endOfToday - value) / 86400.0) : noValueColor_;
    }
    if (gradientMode_) {
      double slope = 0.0;
      if (model_.Gradient(row, col, slope)) {
        Way("gradient", true);
        return table_->GetColor(slope);
      }
      Way("no gradient", true);
      return noValueColor_;
    }
    const Color plain = ok ? table_->GetColor(value * factor_ + offset_) : noValueColor_;
    Way(ok ? "value" : "value without design", true);
    return sunOn_ ? Shaded(row, col, value, ok, plain) : plain;
  }

  Color Shaded(int row, int col, double z, bool ok, Color color) {
    if (!blockIsZ_) {
      if (!ok) {
        color = noValueColor_;
      } else if (!model_.Find(dVAL, row, col, z)) {
        Way("sun without height", true);
        return color;
      }
    }
    struct Neighbours {
      int row, col;  // the sun's side, in steps; the other is opposite
      char distance;
    };
    // The last as the sixth.
    constexpr Neighbours kSectors[] = {{1, 0, 'r'},  {1, 1, 'd'},   {0, 1, 'c'},  {-1, 1, 'd'},
                                       {-1, 0, 'r'}, {-1, -1, 'd'}, {0, -1, 'c'}, {-1, -1, 'd'}};
    const Neighbours& sector = kSectors[sector_];
    const double rowDistance = RowStep() * model_.cellSize;
    const double colDistance = ColStep() * model_.cellSize;
    const double distance = sector.distance == 'r'   ? rowDistance
                            : sector.distance == 'c' ? colDistance
                                                     : std::sqrt(rowDistance * rowDistance + colDistance * colDistance);
    const int rows = sector.row * RowStep();
    const int cols = sector.col * ColStep();
    double neighbour = 0;
    double slope = 0;
    if (GetCellValueZ(row + rows, col + cols, neighbour)) {
      Way(("sun of sector " + std::to_string(sector_)).c_str(), true);
      slope = (z - neighbour) * heightFactor_ / distance;
    } else if (GetCellValueZ(row - rows, col - cols, neighbour)) {
      Way(("sun of sector " + std::to_string(sector_) + " from behind").c_str(), true);
      slope = (neighbour - z) * heightFactor_ / distance;
    } else {
      Way("sun on a single cell", true);
      return color;
    }
    double hue = 0;
    double saturation = 0;
    double lightness = 0;
    ColorTable::RGBtoHSL(color, hue, saturation, lightness);
    double a = (1.570796327 - elevation_) - std::atan(slope);
    if (a < -1.570796327) a = -1.570796327;
    if (a > 1.570796327) a = 1.570796327;
    lightness = std::cos(a) * lightness + std::cos(elevation_) * 0.1;
    if (lightness < 0) lightness = 0;
    if (lightness > 1) lightness = 1;
    return ColorTable::HSLtoRGB(hue, saturation, lightness);
  }

  const PlainModel& model_;
  CDC& device_;
  const CoordinateSystem* system_ = nullptr;
  const Page* view_ = nullptr;
  int block_ = 0;
  bool blockIsZ_ = true;
  const ColorTable* table_ = nullptr;
  DtmProcessor* marks_ = nullptr;
  Color markColor_ = 250;
  bool frameAreas_ = false;
  std::set<PlainModel::Place> spikes_;
  Color spikeColor_ = 0;
  bool keepOthers_ = false;
  bool sunOn_ = false;
  double elevation_ = 30.0 * (std::numbers::pi / 180.0);
  double heightFactor_ = 1.0;
  int sector_ = 3;
  bool gradientMode_ = false;
  double factor_ = 1.0;
  double offset_ = 0.0;
  bool stop_ = false;
  bool showNoDesign_ = false;
  Color noValueColor_ = 12899809;
  long long now_ = 0;
  Color backgroundBefore_ = 0;
  Pen penBefore_;
  bool partlyVisible_ = true;
};

}  // namespace vak::test
