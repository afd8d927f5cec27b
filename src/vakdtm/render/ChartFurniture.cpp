#include "vakdtm/render/ChartFurniture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "vakdtm/services/color/ColorControl.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CDC.h"

namespace vak {
namespace {

constexpr Color kPaper = 0xFFFFFF;
constexpr Color kInk = 0x202020;
constexpr Color kCross = 0x808080;

int Rounded(double value) { return static_cast<int>(std::lround(value)); }

/// Selects a font, and puts the former one back.
class FontScope {
 public:
  FontScope(CDC& device, const VakFont& font) : device_(device), before_(device.SelectFont(font)) {}
  ~FontScope() { device_.SelectFont(before_); }

  FontScope(const FontScope&) = delete;
  FontScope& operator=(const FontScope&) = delete;

 private:
  CDC& device_;
  VakFont before_;
};

VakFont FontOf(int height, int escapement) {
  VakFont font;
  font.height = height;
  font.escapement = escapement;
  return font;
}

}  // namespace

TextMeasure MeasureOn(CDC& device) {
  return [&device](const std::wstring& text, int fontHeight) {
    const FontScope font(device, FontOf(fontHeight, 0));
    const TextExtent extent = device.GetTextExtent(text);
    return TextSize{extent.width, extent.height};
  };
}

void ChartFurniture::Fill(int left, int top, int right, int bottom, Color color) const {
  const Color before = device_.GetBkColor();
  device_.FillSolidRect({left, top, right, bottom}, color);
  device_.SetBkColor(before);
}

void ChartFurniture::Print(const std::wstring& text, const PixelRect& box, int fontHeight, bool upwards) const {
  const FontScope font(device_, FontOf(fontHeight, upwards ? 900 : 0));
  const Color color = device_.SetTextColor(Filtered(kInk));
  const unsigned align = device_.SetTextAlign(CDC::kLeft | CDC::kTop);
  device_.TextOut(box.left, upwards ? box.bottom : box.top, text);
  device_.SetTextAlign(align);
  device_.SetTextColor(color);
}

void ChartFurniture::DrawPaper() const { Fill(0, 0, layout_.width, layout_.height, Filtered(kPaper)); }

void ChartFurniture::DrawFrame() const {
  DrawCrosses();
  DrawAxes();
  const PixelRect& map = layout_.map;
  const int line = layout_.lineWidth + 1;
  const Color ink = Filtered(kInk);
  Fill(map.left - line, map.top - line, map.right + line, map.top, ink);
  Fill(map.left - line, map.bottom, map.right + line, map.bottom + line, ink);
  Fill(map.left - line, map.top, map.left, map.bottom, ink);
  Fill(map.right, map.top, map.right + line, map.bottom, ink);
}

void ChartFurniture::DrawAxes() const {
  const PixelRect& map = layout_.map;
  const int length = layout_.tickLength;
  const int line = layout_.lineWidth;
  const Color ink = Filtered(kInk);
  for (const AxisTick& tick : layout_.x.ticks) {
    const int left = map.left + static_cast<int>(std::floor(tick.at - (line - 1) / 2.0));
    Fill(left, map.bottom, left + line, map.bottom + length, ink);
    Fill(left, map.top - length, left + line, map.top, ink);
    if (!tick.label.empty()) Print(tick.label, layout_.XLabelBox(tick), layout_.fontHeight, layout_.x.across);
  }
  for (const AxisTick& tick : layout_.y.ticks) {
    const int top = map.bottom - 1 - static_cast<int>(std::floor(tick.at + (line - 1) / 2.0));
    Fill(map.left - length, top, map.left, top + line, ink);
    Fill(map.right, top, map.right + length, top + line, ink);
    if (!tick.label.empty()) Print(tick.label, layout_.YLabelBox(tick), layout_.fontHeight, !layout_.y.across);
  }
}

void ChartFurniture::DrawCrosses() const {
  const PixelRect& map = layout_.map;
  const int arm = std::max(2, layout_.tickLength / 2);
  const int line = layout_.lineWidth;
  const Color color = Filtered(kCross);
  for (const AxisTick& x : layout_.x.ticks) {
    const int left = map.left + static_cast<int>(std::floor(x.at - (line - 1) / 2.0));
    for (const AxisTick& y : layout_.y.ticks) {
      const int top = map.bottom - 1 - static_cast<int>(std::floor(y.at + (line - 1) / 2.0));
      Fill(std::max(left - arm, map.left), std::max(top, map.top), std::min(left + line + arm, map.right),
           std::min(top + line, map.bottom), color);
      Fill(std::max(left, map.left), std::max(top - arm, map.top), std::min(left + line, map.right),
           std::min(top + line + arm, map.bottom), color);
    }
  }
}

void ChartFurniture::DrawTitle() const {
  if (layout_.title.text.empty()) return;
  Print(layout_.title.text, layout_.titleBox, layout_.title.fontHeight, false);
}

// ---- legend

void ChartFurniture::DrawLegend(const ColorTable& table) const {
  if (!layout_.hasLegend || table.Classes().empty()) return;
  const LegendPlan& legend = layout_.legend;
  const int length = (legend.isUpright ? legend.bar.bottom - legend.bar.top : legend.bar.right - legend.bar.left) -
                     legend.lowPoint - legend.highPoint;
  const double low = table.Classes().front().lower;
  const double high = table.End().value_or(table.Classes().back().lower);
  const auto colorAt = [&](int pixel) { return table.GetColor(low + (pixel + 0.5) / length * (high - low)); };
  const auto fill = [&](int from, int to, Color color) {
    if (legend.isUpright) {
      const int bottom = legend.bar.bottom - legend.lowPoint;
      Fill(legend.bar.left, bottom - to, legend.bar.right, bottom - from, color);
    } else {
      const int left = legend.bar.left + legend.lowPoint;
      Fill(left + from, legend.bar.top, left + to, legend.bar.bottom, color);
    }
  };
  for (int from = 0; from < length;) {
    const Color color = colorAt(from);
    // To the end, under what is still to come: between fills that only touch, a page may show a hairline.
    fill(from, length, color);
    while (from < length && colorAt(from) == color) ++from;
  }
  DrawOpenEnds(table);
  DrawLegendOutline();
  const int tickLength = std::max(2, layout_.tickLength * 2 / 3);
  for (const AxisTick& tick : legend.ticks.ticks) {
    const int place = static_cast<int>(std::floor(layout_.LegendPlace(tick.at)));
    if (legend.isUpright) {
      Fill(legend.bar.right, place, legend.bar.right + tickLength, place + layout_.lineWidth, Filtered(kInk));
    } else {
      Fill(place, legend.bar.bottom, place + layout_.lineWidth, legend.bar.bottom + tickLength, Filtered(kInk));
    }
    if (!tick.label.empty()) Print(tick.label, layout_.LegendLabelBox(tick), layout_.fontHeight, false);
  }
  if (!legend.title.text.empty()) {
    Print(legend.title.text, legend.titleBox, legend.title.fontHeight, legend.isUpright);
  }
}

void ChartFurniture::DrawOpenEnds(const ColorTable& table) const {
  const LegendPlan& legend = layout_.legend;
  const PixelRect& bar = legend.bar;
  constexpr double kFar = std::numeric_limits<double>::infinity();
  const double middleX = (bar.left + bar.right) / 2.0;
  const double middleY = (bar.top + bar.bottom) / 2.0;
  const auto triangle = [&](PixelPoint a, PixelPoint b, PixelPoint tip, Color color) {
    device_.FillPolygon(std::array<PixelPoint, 3>{a, b, tip}, color);
  };
  const auto left = static_cast<double>(bar.left);
  const auto top = static_cast<double>(bar.top);
  const auto right = static_cast<double>(bar.right);
  const auto bottom = static_cast<double>(bar.bottom);
  if (legend.lowPoint > 0) {
    const double from = legend.isUpright ? bottom - legend.lowPoint : left + legend.lowPoint;
    if (legend.isUpright) {
      triangle({left, from}, {right, from}, {middleX, bottom}, table.GetColor(-kFar));
    } else {
      triangle({from, top}, {from, bottom}, {left, middleY}, table.GetColor(-kFar));
    }
  }
  if (legend.highPoint > 0) {
    const double from = legend.isUpright ? top + legend.highPoint : right - legend.highPoint;
    if (legend.isUpright) {
      triangle({left, from}, {right, from}, {middleX, top}, table.GetColor(kFar));
    } else {
      triangle({from, top}, {from, bottom}, {right, middleY}, table.GetColor(kFar));
    }
  }
}

void ChartFurniture::DrawLegendOutline() const {
  const LegendPlan& legend = layout_.legend;
  const auto left = static_cast<double>(legend.bar.left);
  const auto top = static_cast<double>(legend.bar.top);
  const auto right = static_cast<double>(legend.bar.right);
  const auto bottom = static_cast<double>(legend.bar.bottom);
  std::vector<PixelPoint> outline;
  if (legend.isUpright) {
    outline.push_back({left, bottom - legend.lowPoint});
    if (legend.lowPoint > 0) outline.push_back({(left + right) / 2, bottom});
    outline.push_back({right, bottom - legend.lowPoint});
    outline.push_back({right, top + legend.highPoint});
    if (legend.highPoint > 0) outline.push_back({(left + right) / 2, top});
    outline.push_back({left, top + legend.highPoint});
  } else {
    outline.push_back({left + legend.lowPoint, top});
    if (legend.lowPoint > 0) outline.push_back({left, (top + bottom) / 2});
    outline.push_back({left + legend.lowPoint, bottom});
    outline.push_back({right - legend.highPoint, bottom});
    if (legend.highPoint > 0) outline.push_back({right, (top + bottom) / 2});
    outline.push_back({right - legend.highPoint, top});
  }
  outline.push_back(outline.front());
  const Pen before = device_.SelectPen(CreatePen(Pen::kSolid, layout_.lineWidth, Filtered(kInk)));
  device_.DrawPolyline(outline);
  device_.SelectPen(before);
}

// ---- scale bar, north arrow

void ChartFurniture::DrawScaleBar() const {
  if (!layout_.hasScaleBar) return;
  const ScaleBarPlan& plan = layout_.scaleBar;
  const PixelRect& bar = plan.bar;
  const int line = layout_.lineWidth;
  Fill(bar.left - line, bar.top - line, bar.right + line, bar.bottom + line, Filtered(kInk));
  const int width = bar.right - bar.left;
  for (int i = 1; i < plan.segments; i += 2) {
    Fill(bar.left + Rounded(static_cast<double>(width) * i / plan.segments), bar.top,
         bar.left + Rounded(static_cast<double>(width) * (i + 1) / plan.segments), bar.bottom, Filtered(kPaper));
  }
  Print(plan.start, plan.startLabel, layout_.fontHeight, false);
  Print(plan.end, plan.endLabel, layout_.fontHeight, false);
}

void ChartFurniture::DrawNorthArrow() const {
  if (!layout_.hasNorthArrow) return;
  const PixelRect& box = layout_.northArrow;
  const std::wstring letter = L"N";
  const TextSize size = MeasureOn(device_)(letter, layout_.fontHeight);
  const double middle = (box.left + box.right) / 2.0;
  const int letterLeft = Rounded(middle - size.width / 2.0);
  Print(letter, {letterLeft, box.top, letterLeft + size.width, box.top + size.height}, layout_.fontHeight, false);
  const double top = box.top + size.height * 1.05;
  const auto bottom = static_cast<double>(box.bottom);
  const double half = std::min((box.right - box.left) / 2.0, (bottom - top) * 0.45);
  const PixelPoint tip{middle, top};
  const PixelPoint notch{middle, top + (bottom - top) * 0.72};
  const PixelPoint leftFoot{middle - half, bottom};
  const PixelPoint rightFoot{middle + half, bottom};
  device_.FillPolygon(std::array<PixelPoint, 3>{tip, notch, leftFoot}, Filtered(kInk));
  device_.FillPolygon(std::array<PixelPoint, 3>{tip, notch, rightFoot}, Filtered(kPaper));
  const Pen before = device_.SelectPen(CreatePen(Pen::kSolid, layout_.lineWidth, Filtered(kInk)));
  device_.DrawPolyline(std::array<PixelPoint, 5>{tip, leftFoot, notch, rightFoot, tip});
  device_.SelectPen(before);
}

}  // namespace vak
