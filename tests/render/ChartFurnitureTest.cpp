#include <algorithm>
#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "vakdtm/render/ChartFurniture.h"
#include "vakdtm/render/ContourPainter.h"
#include "vakdtm/services/color/ColorControl.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/device/ImageDevice.h"

#include "support/RecordingDevice.h"

namespace vak {
namespace {

using test::RecordingDevice;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::StartsWith;
using Lines = std::vector<std::string>;

constexpr Color kRed = 255;

ChartPlan FullPlan() {
  ChartPlan plan;
  plan.width = 800;
  plan.data = Page(0, 0, 400, 300);
  plan.title = L"Harbour";
  plan.hasLegend = true;
  plan.legendTitle = L"Z Average, m";
  plan.legendLow = -20;
  plan.legendHigh = -10;
  plan.isOpenBelow = true;
  plan.isOpenAbove = true;
  plan.hasScaleBar = true;
  return plan;
}

ColorTable BlueToRed() {
  ColorTable table;
  EXPECT_TRUE(table.SetClasses({{-20, 0xFF0000, 0xFF0000, L""}, {-15, 0x00FF00, 0x00FF00, L""}}, -10.0));
  table.SetBelowColor(0x00FFFF);
  table.SetAboveColor(0x0000FF);
  return table;
}

/// What was drawn, by the first word of the line.
Lines With(const RecordingDevice& device, const std::string& word) {
  Lines lines;
  for (const std::string& line : device.Lines()) {
    if (line.starts_with(word + ' ')) lines.push_back(line);
  }
  return lines;
}

struct Drawn {
  explicit Drawn(const ChartPlan& plan) {
    if (!ChartLayout::Make(plan, MeasureOn(device), layout)) throw std::runtime_error("no layout");
    device.Clear();
  }
  RecordingDevice device;
  ChartLayout layout;
};

void DrawAll(CDC& device, const ChartLayout& layout, const std::vector<ChartContour>& contours,
             const std::function<Color(double)>& colorAt = {}, const Page& shown = Page()) {
  ContourPainter painter(device, layout, colorAt, shown);
  for (const ChartContour& contour : contours) painter.Draw(contour);
  painter.DrawLabels();
}

TEST(ChartFurniture, MeasuresInTheFontThatIsAskedForAndPutsTheOldOneBack) {
  RecordingDevice device;
  const VakFont before = device.GetFont();
  const TextSize size = MeasureOn(device)(L"1234", 30);
  EXPECT_EQ(size.width, 60);
  EXPECT_EQ(size.height, 30);
  EXPECT_EQ(device.GetFont(), before);
}

TEST(ChartFurniture, EveryLabelOfTheLayoutIsPrintedAtItsPlace) {
  Drawn drawn(FullPlan());
  const ChartFurniture furniture(drawn.device, drawn.layout);
  furniture.DrawFrame();
  furniture.DrawTitle();
  const auto expectText = [&](int x, int y, const std::string& text) {
    EXPECT_THAT(drawn.device.Lines(), Contains("text " + std::to_string(x) + ' ' + std::to_string(y) + ' ' + text));
  };
  const ChartLayout& layout = drawn.layout;
  expectText(layout.titleBox.left, layout.titleBox.top, "Harbour");
  int labels = 1;
  for (const AxisTick& tick : layout.x.ticks) {
    if (tick.label.empty()) continue;
    ++labels;
    expectText(layout.XLabelBox(tick).left, layout.XLabelBox(tick).top, ToUtf8(tick.label));
  }
  for (const AxisTick& tick : layout.y.ticks) {
    if (tick.label.empty()) continue;
    ++labels;
    // Upwards from its lower end.
    ASSERT_FALSE(layout.y.across);
    expectText(layout.YLabelBox(tick).left, layout.YLabelBox(tick).bottom, ToUtf8(tick.label));
  }
  EXPECT_EQ(With(drawn.device, "text").size(), static_cast<std::size_t>(labels));
  EXPECT_THAT(drawn.device.Lines(), Contains(StartsWith("font " + std::to_string(layout.fontHeight) + " 400 900 ")));
}

TEST(ChartFurniture, NeitherTheFrameNorTicksCoverTheMap) {
  Drawn drawn(FullPlan());
  ChartPlan plan = FullPlan();
  drawn.device.FillSolidRect(drawn.layout.map, kRed);
  ChartFurniture(drawn.device, drawn.layout).DrawFrame();
  const PixelRect& map = drawn.layout.map;
  EXPECT_EQ(drawn.device.GetPixel(map.left, map.top), kRed);
  EXPECT_EQ(drawn.device.GetPixel(map.right - 1, map.bottom - 1), kRed);
  EXPECT_NE(drawn.device.GetPixel(map.left - 1, map.top), kRed);
  EXPECT_EQ(drawn.device.GetPixel(map.left - 1, map.top + 3), drawn.device.GetPixel(map.right, map.bottom - 3));
  // A tick, behind the neatline, at its place.
  const AxisTick& tick = drawn.layout.x.ticks.at(1);
  EXPECT_EQ(drawn.device.GetPixel(map.left + static_cast<int>(tick.at), map.bottom + drawn.layout.tickLength - 1),
            0x202020U);
}

TEST(ChartFurniture, TicksStandWhereTheirCoordinatesAre) {
  Drawn drawn(FullPlan());
  const ChartLayout& layout = drawn.layout;
  const PixelRect& map = layout.map;
  const CoordinateSystem system(layout.view, map);
  ChartFurniture(drawn.device, layout).DrawFrame();
  int looked = 0;
  for (const AxisTick& tick : layout.y.ticks) {
    double x = 0;
    double y = 0;
    system.WorldToPixel(layout.view.left(), tick.value, &x, &y);
    const int row = static_cast<int>(std::ceil(y)) - 1;
    for (const int column : {map.left - layout.tickLength, map.right + layout.tickLength - 1}) {
      EXPECT_EQ(drawn.device.GetPixel(column, row), 0x202020U) << tick.value;
      EXPECT_EQ(drawn.device.GetPixel(column, row - layout.lineWidth), 0xFFFFFFU) << tick.value;
      EXPECT_EQ(drawn.device.GetPixel(column, row + layout.lineWidth), 0xFFFFFFU) << tick.value;
    }
    ++looked;
  }
  EXPECT_GT(looked, 1);
}

TEST(ChartFurniture, TicksOfTheLegendStandAtTheirColours) {
  Drawn drawn(FullPlan());
  const LegendPlan& legend = drawn.layout.legend;
  ColorTable table;
  // Every value with a tick begins a class: its tick is where the colour changes.
  ASSERT_TRUE(table.SetClasses({{-20, 1, 1, L""}, {-18, 2, 2, L""}, {-16, 3, 3, L""}, {-14, 4, 4, L""}}, -10.0));
  ChartFurniture(drawn.device, drawn.layout).DrawLegend(table);
  const int middle = (legend.bar.left + legend.bar.right) / 2;
  const int tickEnd = legend.bar.right + std::max(2, drawn.layout.tickLength * 2 / 3) - 1;
  int ticks = 0;
  for (int row = legend.bar.top + legend.highPoint + 4; row < legend.bar.bottom - legend.lowPoint - 4; ++row) {
    if (drawn.device.GetPixel(middle, row) == drawn.device.GetPixel(middle, row + 1)) continue;
    EXPECT_TRUE(drawn.device.GetPixel(tickEnd, row) == 0x202020U ||
                drawn.device.GetPixel(tickEnd, row + 1) == 0x202020U)
        << row;
    ++ticks;
  }
  EXPECT_EQ(ticks, 3);
}

TEST(ChartFurniture, TheLegendRunsFromTheLowColourUpwards) {
  Drawn drawn(FullPlan());
  ChartFurniture(drawn.device, drawn.layout).DrawLegend(BlueToRed());
  const LegendPlan& legend = drawn.layout.legend;
  ASSERT_TRUE(legend.isUpright);
  const int middle = (legend.bar.left + legend.bar.right) / 2;
  EXPECT_EQ(drawn.device.GetPixel(middle, legend.bar.bottom - legend.lowPoint - 2), 0xFF0000U) << "the low end";
  EXPECT_EQ(drawn.device.GetPixel(middle, legend.bar.top + legend.highPoint + 2), 0x00FF00U);
  const Lines polygons = With(drawn.device, "polygon");
  ASSERT_EQ(polygons.size(), 2U);
  EXPECT_THAT(polygons[0], StartsWith("polygon #ffff00")) << "what lies below";
  EXPECT_THAT(polygons[1], StartsWith("polygon #ff0000")) << "what lies above";
  EXPECT_THAT(drawn.device.Lines(), Contains(HasSubstr("Z Average, m")));
  EXPECT_THAT(drawn.device.Lines(), Contains(HasSubstr(" \u221218")));
}

TEST(ChartFurniture, ALyingLegendRunsToTheRight) {
  ChartPlan plan = FullPlan();
  plan.data = Page(0, 0, 4000, 30);
  Drawn drawn(plan);
  ChartFurniture(drawn.device, drawn.layout).DrawLegend(BlueToRed());
  const LegendPlan& legend = drawn.layout.legend;
  ASSERT_FALSE(legend.isUpright);
  EXPECT_EQ(drawn.device.GetPixel(legend.bar.left + legend.lowPoint + 2, legend.bar.top + 2), 0xFF0000U);
  EXPECT_EQ(drawn.device.GetPixel(legend.bar.right - legend.highPoint - 2, legend.bar.top + 2), 0x00FF00U);
}

TEST(ChartFurniture, WhatIsNotAskedForIsNotDrawn) {
  ChartPlan plan = FullPlan();
  plan.hasLegend = false;
  plan.hasScaleBar = false;
  plan.title.clear();
  Drawn drawn(plan);
  const ChartFurniture furniture(drawn.device, drawn.layout);
  furniture.DrawLegend(BlueToRed());
  furniture.DrawScaleBar();
  furniture.DrawTitle();
  EXPECT_EQ(drawn.device.Text(), "");
  furniture.DrawNorthArrow();
  EXPECT_THAT(drawn.device.Lines(), Contains(HasSubstr(" N")));
}

TEST(ChartFurniture, TheScaleBarIsBlackAndWhiteByTurns) {
  Drawn drawn(FullPlan());
  ChartFurniture(drawn.device, drawn.layout).DrawScaleBar();
  const ScaleBarPlan& plan = drawn.layout.scaleBar;
  const int y = (plan.bar.top + plan.bar.bottom) / 2;
  for (int i = 0; i < plan.segments; ++i) {
    const int x = plan.bar.left + (2 * i + 1) * (plan.bar.right - plan.bar.left) / (2 * plan.segments);
    EXPECT_EQ(drawn.device.GetPixel(x, y), i % 2 == 0 ? 0x202020U : 0xFFFFFFU) << i;
  }
}

TEST(ChartFurniture, LeavesTheDeviceAsItWas) {
  Drawn drawn(FullPlan());
  RecordingDevice& device = drawn.device;
  const Pen pen{Pen::kSolid, 7, kRed};
  VakFont font;
  font.height = 33;
  font.italic = true;
  device.SelectPen(pen);
  device.SelectFont(font);
  device.SetTextColor(3);
  device.SetTextAlign(CDC::kCenter);
  device.SetBkColor(5);
  const ChartFurniture furniture(device, drawn.layout);
  furniture.DrawPaper();
  furniture.DrawFrame();
  furniture.DrawTitle();
  furniture.DrawLegend(BlueToRed());
  furniture.DrawScaleBar();
  furniture.DrawNorthArrow();
  GTL::Polyline<GTL::Point2D<double>> line;
  line.AddBack({10, 10});
  line.AddBack({390, 290});
  DrawAll(device, drawn.layout, {{-12, true, line}});
  EXPECT_EQ(device.GetPen(), pen);
  EXPECT_EQ(device.GetFont(), font);
  EXPECT_EQ(device.GetTextColor(), 3U);
  EXPECT_EQ(device.GetTextAlign(), CDC::kCenter);
  EXPECT_EQ(device.GetBkColor(), 5U);
}

TEST(ChartFurniture, ItsColoursPassTheFilterAndThoseOfValuesDont) {
  struct Night {
    Night() {
      ColorControl::Instance().SetFilter([](Color, bool) -> Color { return 0x000080; });
    }
    ~Night() { ColorControl::Instance().SetFilter({}); }
  } night;
  Drawn drawn(FullPlan());
  const ChartFurniture furniture(drawn.device, drawn.layout);
  furniture.DrawPaper();
  furniture.DrawFrame();
  furniture.DrawScaleBar();
  furniture.DrawNorthArrow();
  EXPECT_THAT(With(drawn.device, "fill"), Each(HasSubstr("#800000")));
  EXPECT_THAT(With(drawn.device, "polygon"), Each(HasSubstr("#800000")));
  furniture.DrawLegend(BlueToRed());
  EXPECT_THAT(With(drawn.device, "fill"), Contains(HasSubstr("#00ff00")));
}

// ---- contours

GTL::Polyline<GTL::Point2D<double>> LineOf(std::initializer_list<GTL::Point2D<double>> points) {
  GTL::Polyline<GTL::Point2D<double>> line;
  for (const auto& point : points) line.AddBack(point);
  return line;
}

TEST(ContourPainter, ALineIsDrawnWhenItComesAndItsLabelsBehindAllLines) {
  Drawn drawn(FullPlan());
  ContourPainter painter(drawn.device, drawn.layout, {});
  painter.Draw({-12, true, LineOf({{10, 100}, {390, 100}})});
  EXPECT_EQ(With(drawn.device, "line").size(), 1U);
  painter.Draw({-15, true, LineOf({{10, 200}, {390, 200}})});
  EXPECT_EQ(With(drawn.device, "line").size(), 2U);
  EXPECT_EQ(With(drawn.device, "text").size(), 0U);
  painter.DrawLabels();
  EXPECT_EQ(With(drawn.device, "line").size(), 2U);
  EXPECT_THAT(With(drawn.device, "text"), Contains(HasSubstr("\u221212")));
  EXPECT_THAT(With(drawn.device, "text"), Contains(HasSubstr("\u221215")));
}

TEST(ContourPainter, IndexContoursAreHeavierAndLabelled) {
  Drawn drawn(FullPlan());
  DrawAll(drawn.device, drawn.layout,
          {{-12, false, LineOf({{10, 100}, {390, 100}})}, {-15, true, LineOf({{10, 200}, {390, 200}})}});
  const int thin = drawn.layout.lineWidth;
  const Lines pens = With(drawn.device, "pen");
  ASSERT_EQ(pens.size(), 4U) << "each is put back";
  EXPECT_EQ(pens[0], "pen 0 " + std::to_string(thin) + " #303030");
  EXPECT_EQ(pens[2], "pen 0 " + std::to_string(thin + 1) + " #303030");
  EXPECT_EQ(With(drawn.device, "line").size(), 2U);
  EXPECT_THAT(With(drawn.device, "text"), Each(HasSubstr("\u221215")));
  EXPECT_GE(With(drawn.device, "text").size(), 1U);
  // The plate of a label comes right before its text, behind all lines.
  const Lines& all = drawn.device.Lines();
  const auto lastLine =
      std::find_if(all.rbegin(), all.rend(), [](const std::string& l) { return l.starts_with("line"); });
  const auto firstText =
      std::find_if(all.begin(), all.end(), [](const std::string& l) { return l.starts_with("text "); });
  EXPECT_LT(lastLine.base(), firstText);
}

TEST(ContourPainter, LinesAreLightOnDarkColours) {
  Drawn drawn(FullPlan());
  const auto colorAt = [](double level) -> Color { return level < -14 ? 0x400000 : 0xD0FFFF; };
  DrawAll(drawn.device, drawn.layout,
          {{-12, false, LineOf({{10, 100}, {390, 100}})}, {-15, false, LineOf({{10, 200}, {390, 200}})}}, colorAt);
  const Lines pens = With(drawn.device, "pen");
  ASSERT_EQ(pens.size(), 4U) << "each is put back";
  EXPECT_THAT(pens[0], HasSubstr("#303030"));
  EXPECT_THAT(pens[2], HasSubstr("#e8e8e8"));
}

TEST(ContourPainter, LinesAreCutAtTheMapAndKeepTheirPlace) {
  Drawn drawn(FullPlan());
  const PixelRect& map = drawn.layout.map;
  DrawAll(drawn.device, drawn.layout, {{-12, false, LineOf({{-1000, 150}, {5000, 150}})}});
  char expected[120];
  const double y = (map.top + map.bottom) / 2.0;
  std::snprintf(expected, sizeof expected, "line %d %.9g %d %.9g", map.left, y, map.right, y);
  EXPECT_THAT(drawn.device.Lines(), Contains(expected));
}

TEST(ContourPainter, LinesAreCutWhereTheMapShowsAPartOfTheWorld) {
  Drawn drawn(FullPlan());
  const PixelRect& map = drawn.layout.map;
  const Page& view = drawn.layout.view;
  const double middle = (view.left() + view.right()) / 2;
  DrawAll(drawn.device, drawn.layout, {{-12, false, LineOf({{-1000, 150}, {5000, 150}})}}, {},
          Page(view.left(), view.bottom(), middle, view.top()));
  const int right =
      CoordinateSystem(view, map).WorldToPixel(Page(view.left(), view.bottom(), middle, view.top())).right;
  ASSERT_LT(right, map.right);
  char expected[120];
  const double y = (map.top + map.bottom) / 2.0;
  std::snprintf(expected, sizeof expected, "line %d %.9g %d %.9g", map.left, y, right, y);
  EXPECT_THAT(drawn.device.Lines(), Contains(expected));
}

}  // namespace
}  // namespace vak
