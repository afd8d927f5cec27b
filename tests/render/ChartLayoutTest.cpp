#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/render/ChartLayout.h"

#include "PlainMeasure.h"
#include "support/RandomSeed.h"

namespace vak {
namespace {

using test::PlainMeasure;
using Boxes = std::vector<std::pair<std::string, PixelRect>>;

ChartPlan FullPlan(const Page& data, int width) {
  ChartPlan plan;
  plan.width = width;
  plan.data = data;
  plan.title = L"Harbour, inner basin";
  plan.hasLegend = true;
  plan.legendTitle = L"Z Average, m";
  plan.legendLow = -21.3;
  plan.legendHigh = -4.7;
  plan.isOpenBelow = true;
  plan.isOpenAbove = true;
  plan.hasScaleBar = true;
  return plan;
}

ChartLayout Layout(const ChartPlan& plan) {
  ChartLayout layout;
  EXPECT_TRUE(ChartLayout::Make(plan, PlainMeasure, layout));
  return layout;
}

/// All boxes that must not overlap, and have to lie on the picture.
Boxes BoxesOf(const ChartLayout& layout) {
  const int tick = layout.tickLength;
  const PixelRect& map = layout.map;
  Boxes boxes = {{"map", {map.left - tick, map.top - tick, map.right + tick, map.bottom + tick}}};
  if (!layout.title.text.empty()) boxes.push_back({"title", layout.titleBox});
  for (const AxisTick& t : layout.x.ticks) {
    if (!t.label.empty()) boxes.push_back({"x label", layout.XLabelBox(t)});
  }
  for (const AxisTick& t : layout.y.ticks) {
    if (!t.label.empty()) boxes.push_back({"y label", layout.YLabelBox(t)});
  }
  if (layout.hasLegend) {
    boxes.push_back({"legend", layout.legend.bar});
    if (!layout.legend.title.text.empty()) boxes.push_back({"legend title", layout.legend.titleBox});
    for (const AxisTick& t : layout.legend.ticks.ticks) {
      if (!t.label.empty()) boxes.push_back({"legend label", layout.LegendLabelBox(t)});
    }
  }
  if (layout.hasScaleBar) {
    boxes.push_back({"scale bar", layout.scaleBar.bar});
    boxes.push_back({"scale start", layout.scaleBar.startLabel});
    boxes.push_back({"scale end", layout.scaleBar.endLabel});
  }
  if (layout.hasNorthArrow) boxes.push_back({"arrow", layout.northArrow});
  return boxes;
}

void ExpectLegible(const ChartLayout& layout) {
  const Boxes boxes = BoxesOf(layout);
  for (std::size_t i = 0; i < boxes.size(); ++i) {
    const auto& [name, box] = boxes[i];
    SCOPED_TRACE(name);
    EXPECT_FALSE(box.IsEmpty());
    EXPECT_GE(box.left, 0);
    EXPECT_GE(box.top, 0);
    EXPECT_LE(box.right, layout.width);
    EXPECT_LE(box.bottom, layout.height);
    for (std::size_t k = 0; k < i; ++k) {
      const PixelRect& other = boxes[k].second;
      EXPECT_TRUE(box.right <= other.left || other.right <= box.left || box.bottom <= other.top ||
                  other.bottom <= box.top)
          << "overlaps the " << boxes[k].first;
    }
  }
}

void ExpectSquareAndAllShown(const ChartLayout& layout, const Page& data) {
  const double scaleX = (layout.map.right - layout.map.left) / layout.view.Width();
  const double scaleY = (layout.map.bottom - layout.map.top) / (layout.view.top() - layout.view.bottom());
  EXPECT_NEAR(scaleX / scaleY, 1, 1e-9);
  const double pixel = 1 / scaleX;
  EXPECT_LE(layout.view.left(), data.left() + pixel);
  EXPECT_GE(layout.view.right(), data.right() - pixel);
  EXPECT_LE(layout.view.bottom(), data.bottom() + pixel);
  EXPECT_GE(layout.view.top(), data.top() - pixel);
}

TEST(ChartLayout, TheMapHasTheShapeOfTheData) {
  const Page data(500000, 5800000, 500400, 5800300);
  const ChartLayout layout = Layout(FullPlan(data, 1600));
  EXPECT_EQ(layout.width, 1600);
  const double aspect = static_cast<double>(layout.map.right - layout.map.left) / (layout.map.bottom - layout.map.top);
  // With a margin of a fiftieth of the longer side.
  EXPECT_NEAR(aspect, 416.0 / 316.0, 0.01);
  ExpectLegible(layout);
  ExpectSquareAndAllShown(layout, data);
  EXPECT_TRUE(layout.legend.isUpright);
  EXPECT_GE(layout.x.NumLabels(), 3);
  EXPECT_GE(layout.y.NumLabels(), 3);
  EXPECT_EQ(layout.x.step, layout.y.step);
}

TEST(ChartLayout, ExtremeShapesStayLegible) {
  const struct {
    const char* name;
    Page data;
  } cases[] = {
      {"a river", Page(500000, 5800000, 520000, 5800200)},
      {"a river to the north", Page(500000, 5800000, 500200, 5820000)},
      {"one cell", Page(500000, 5800000, 500001, 5800001)},
      {"a small cell far out", Page(9e8, 9e8, 9e8 + 0.25, 9e8 + 0.25)},
      {"one row", Page(500000, 5800000, 500050, 5800001)},
      {"one column", Page(500000, 5800000, 500001, 5800050)},
      {"below zero", Page(-300, -200, -100, 10)},
      {"a continent", Page(-2e6, -3e6, 3e6, 4e6)},
  };
  for (const auto& c : cases) {
    for (const int width : {200, 300, 800, 1600, 4000, 20000}) {
      SCOPED_TRACE(std::string(c.name) + ", " + std::to_string(width));
      ChartLayout layout;
      if (!ChartLayout::Make(FullPlan(c.data, width), PlainMeasure, layout)) {
        EXPECT_EQ(width, 200) << "narrower than any report";
        continue;
      }
      ExpectLegible(layout);
      ExpectSquareAndAllShown(layout, c.data);
      EXPECT_LE(layout.height, ChartLayout::kMostPixels);
      EXPECT_GE(layout.map.right - layout.map.left, 6 * layout.fontHeight);
      EXPECT_GE(layout.map.bottom - layout.map.top, 6 * layout.fontHeight);
      EXPECT_GE(layout.x.NumLabels(), 1);
      EXPECT_GE(layout.y.NumLabels(), 1);
      EXPECT_GE(layout.legend.ticks.NumLabels(), width == 200 ? 1 : 2);
    }
  }
}

TEST(ChartLayout, AnyPlanIsLegibleOrRefused) {
  const std::uint32_t seed = RandomSeed();
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> exponent(-1, 6);
  const auto chance = [&rng] { return rng() % 2 == 0; };
  int made = 0;
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(std::to_string(seed) + ", round " + std::to_string(round));
    const double x = std::pow(10.0, exponent(rng)) * (chance() ? 1 : -1);
    const double y = std::pow(10.0, exponent(rng)) * (chance() ? 1 : -1);
    const Page data(x, y, x + std::pow(10.0, exponent(rng)), y + std::pow(10.0, exponent(rng)));
    ChartPlan plan = FullPlan(data, 200 + static_cast<int>(rng() % 3000));
    plan.hasMargin = chance();
    plan.hasLegend = chance();
    plan.hasScaleBar = chance();
    if (chance()) plan.title.clear();
    if (chance()) plan.title.assign(300, L'x');
    plan.isOpenBelow = chance();
    plan.isOpenAbove = chance();
    plan.legendLow = -std::pow(10.0, exponent(rng));
    plan.legendHigh = plan.legendLow + std::pow(10.0, exponent(rng) - 3);
    if (chance()) {
      plan.lengthFactor = 1 / 0.3048;
      plan.lengthUnit = L"ft";
    }
    ChartLayout layout;
    if (!ChartLayout::Make(plan, PlainMeasure, layout)) continue;
    ++made;
    ExpectLegible(layout);
    ExpectSquareAndAllShown(layout, data);
  }
  EXPECT_GT(made, 200);
}

TEST(ChartLayout, WhatIsTooNarrowIsRefusedAndNothingChanges) {
  // Labels of the y axis have sixteen digits, and no room to lie along it.
  ChartPlan plan = FullPlan(Page(0, 1234567890.0001, 0.0005, 1234567890.0002), 200);
  ChartLayout layout;
  layout.width = 7;
  EXPECT_FALSE(ChartLayout::Make(plan, PlainMeasure, layout));
  EXPECT_EQ(layout.width, 7);
  plan.width = 1000;
  EXPECT_TRUE(ChartLayout::Make(plan, PlainMeasure, layout));
}

TEST(ChartLayout, ALowMapHasItsLegendBelow) {
  const ChartLayout layout = Layout(FullPlan(Page(0, 0, 20000, 200), 1600));
  EXPECT_FALSE(layout.legend.isUpright);
  EXPECT_GT(layout.legend.bar.top, layout.map.bottom);
  EXPECT_LE(layout.legend.bar.bottom, layout.scaleBar.startLabel.top);
}

TEST(ChartLayout, OpenEndsTakeTheirRoomFromTheBar) {
  ChartPlan plan = FullPlan(Page(0, 0, 400, 300), 1600);
  const ChartLayout open = Layout(plan);
  EXPECT_GT(open.legend.lowPoint, 0);
  EXPECT_GT(open.legend.highPoint, 0);
  EXPECT_EQ(open.LegendPlace(0), open.legend.bar.bottom - open.legend.lowPoint);
  plan.isOpenBelow = false;
  EXPECT_EQ(Layout(plan).legend.lowPoint, 0);
  EXPECT_GT(Layout(plan).legend.highPoint, 0);
}

TEST(ChartLayout, TheScaleBarHasARoundLengthAtTheMapsScale) {
  const struct {
    const char* name;
    Page data;
    double factor;
    const wchar_t* unit;
  } cases[] = {
      {"metres", Page(0, 0, 400, 300), 1, L"m"},      {"kilometres", Page(0, 0, 40000, 30000), 1, L"km"},
      {"centimetres", Page(0, 0, 0.4, 0.3), 1, L"m"}, {"feet", Page(0, 0, 40000, 30000), 1 / 0.3048, L"ft"},
      {"a two", Page(0, 0, 800, 600), 1, L"m"},       {"a one", Page(0, 0, 500, 400), 1, L"m"},
  };
  int ofFour = 0;
  int ofFive = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ChartPlan plan = FullPlan(c.data, 1600);
    plan.lengthFactor = c.factor;
    if (c.factor != 1) plan.lengthUnit = L"ft";
    const ChartLayout layout = Layout(plan);
    const std::wstring& end = layout.scaleBar.end;
    EXPECT_EQ(layout.scaleBar.start, L"0");
    const std::size_t blank = end.find(L'\u00A0');
    ASSERT_NE(blank, std::wstring::npos);
    EXPECT_EQ(end.substr(blank + 1), c.unit);
    const double length = std::stod(end.substr(0, blank)) * (end.ends_with(L"km") ? 1000 : 1) / c.factor;
    const double scale = (layout.map.right - layout.map.left) / layout.view.Width();
    EXPECT_NEAR(layout.scaleBar.bar.right - layout.scaleBar.bar.left, length * scale, 0.51);
    EXPECT_TRUE(end.front() == L'1' || end.front() == L'2' || end.front() == L'5' || end.front() == L'0');
    const int segments = layout.scaleBar.segments;
    EXPECT_EQ(segments, end[end.find_first_of(L"125")] == L'2' ? 4 : 5) << "each is a round number long";
    ++(segments == 4 ? ofFour : ofFive);
  }
  EXPECT_GT(ofFour, 0);
  EXPECT_GT(ofFive, 0);
}

TEST(ChartLayout, CoordinatesAreToldInTheirUnit) {
  ChartPlan plan = FullPlan(Page(0, 0, 304.8, 304.8), 1600);
  plan.hasMargin = false;
  plan.lengthFactor = 1 / 0.3048;
  plan.lengthUnit = L"ft";
  const ChartLayout layout = Layout(plan);
  EXPECT_NEAR(layout.x.ticks.back().value, 1000, 1e-6);
  EXPECT_NEAR(layout.x.ticks.back().at, layout.map.right - layout.map.left, 1e-6);
}

TEST(ChartLayout, ABareMapIsThePicture) {
  ChartPlan plan = FullPlan(Page(10, 20, 30, 25), 800);
  plan.isBare = true;
  const ChartLayout layout = Layout(plan);
  EXPECT_EQ(layout.map, (PixelRect{0, 0, 800, 200}));
  EXPECT_EQ(layout.height, 200);
  EXPECT_EQ(layout.view.left(), 10);
  EXPECT_EQ(layout.view.right(), 30);
  EXPECT_EQ(layout.view.bottom(), 20);
  EXPECT_EQ(layout.view.top(), 25);
  EXPECT_FALSE(layout.hasLegend || layout.hasScaleBar || layout.hasNorthArrow);
  EXPECT_TRUE(layout.x.ticks.empty() && layout.y.ticks.empty());
  plan.data = Page(0, 0, 1, 100);
  ChartLayout tooHigh;
  EXPECT_FALSE(ChartLayout::Make(plan, PlainMeasure, tooHigh)) << "80000 pixels are more than a device has";
}

}  // namespace
}  // namespace vak
