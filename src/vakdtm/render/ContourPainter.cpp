#include "vakdtm/render/ContourPainter.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <utility>

#include "vakdtm/render/ChartFurniture.h"
#include "vakdtm/render/ContourLabels.h"
#include "vakdtm/render/PixelLines.h"
#include "vakdtm/services/color/ColorControl.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/text/FormatNumber.h"

namespace vak {
namespace {

constexpr Color kDark = 0x303030;
constexpr Color kLight = 0xE8E8E8;
constexpr Color kPlate = 0xFAFAFA;
constexpr double kFinest = 0.4;  // pixels

std::wstring LevelText(double level) {
  std::string text;
  AppendNumber(text, level);
  std::wstring wide(text.begin(), text.end());
  if (wide.front() == L'-') wide.front() = L'\u2212';
  return wide;
}

PixelLine ToPixels(const GTL::Polyline<GTL::Point2D<double>>& line, const CoordinateSystem& system) {
  PixelLine pixels;
  pixels.reserve(static_cast<std::size_t>(line.NumPoints()));
  for (int i = 0; i < line.NumPoints(); ++i) {
    PixelPoint point;
    system.WorldToPixel(line[i].x, line[i].y, &point.x, &point.y);
    if (std::isfinite(point.x) && std::isfinite(point.y)) pixels.push_back(point);
  }
  return pixels;
}

void DrawLabel(CDC& device, const ContourLabel& label, int fontHeight) {
  device.FillPolygon(label.box, Filtered(kPlate));
  VakFont font;
  font.height = fontHeight;
  const VakFont flat = device.SelectFont(font);
  const TextExtent extent = device.GetTextExtent(label.text);
  font.escapement = static_cast<int>(std::lround(label.angle * 1800 / std::numbers::pi));
  device.SelectFont(font);
  const Color color = device.SetTextColor(Filtered(kDark));
  const unsigned align = device.SetTextAlign(CDC::kLeft | CDC::kTop);
  const double dx = std::cos(label.angle);
  const double dy = -std::sin(label.angle);
  const double x = label.centre.x - dx * extent.width / 2 + dy * extent.height / 2;
  const double y = label.centre.y - dy * extent.width / 2 - dx * extent.height / 2;
  device.TextOut(static_cast<int>(std::lround(x)), static_cast<int>(std::lround(y)), label.text);
  device.SetTextAlign(align);
  device.SetTextColor(color);
  device.SelectFont(flat);
}

PixelRect Common(const PixelRect& a, const PixelRect& b) {
  return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

}  // namespace

ContourPainter::ContourPainter(CDC& device, const ChartLayout& layout, std::function<Color(double level)> colorAt,
                               const Page& shown)
    : device_(device),
      layout_(layout),
      colorAt_(std::move(colorAt)),
      system_(layout.view, layout.map),
      area_(shown.IsValid() ? Common(layout.map, system_.WorldToPixel(shown)) : layout.map),
      labelHeight_(std::max(9, static_cast<int>(std::lround(layout.fontHeight * 0.8)))),
      measure_(MeasureOn(device)),
      labels_(area_, labelHeight_, measure_) {}

Color ContourPainter::InkOf(double level) const {
  const bool isDark = colorAt_ && ColorTable::GetContrastColor(colorAt_(level)) != 0;
  return Filtered(isDark ? kLight : kDark);
}

void ContourPainter::Draw(const ChartContour& contour) {
  const int width = contour.isIndex ? layout_.lineWidth + 1 : layout_.lineWidth;
  const Pen before = device_.SelectPen(CreatePen(Pen::kSolid, width, InkOf(contour.level)));
  for (const PixelLine& part : Clipped(Thinned(ToPixels(contour.line, system_), kFinest), area_)) {
    device_.DrawPolyline(part);
    if (contour.isIndex) labels_.Add(part, LevelText(contour.level));
  }
  device_.SelectPen(before);
}

void ContourPainter::DrawLabels() const {
  for (const ContourLabel& label : labels_.Labels()) DrawLabel(device_, label, labelHeight_);
}

}  // namespace vak
