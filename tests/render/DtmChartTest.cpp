#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "vakdtm/render/ChartFurniture.h"
#include "vakdtm/render/DtmChart.h"
#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;
using Fault = DtmChart::Fault;

constexpr Color kWhite = 0xFFFFFF;

/// A chart of a model, painted.
struct Picture {
  Picture(TestGrid& grid, const ChartSettings& settings, const std::vector<ChartContour>& contours = {})
      : chart(grid.Access(), settings) {
    ImageDevice scratch;
    if (!scratch.Create(1, 1)) throw std::runtime_error("no image");
    fault = chart.Look(MeasureOn(scratch));
    if (fault != Fault::kNone) return;
    if (!image.Create(chart.Layout().width, chart.Layout().height, 96, 0x123456)) throw std::runtime_error("no image");
    fault = chart.Paint(image, [&](const auto& draw) {
      std::for_each(contours.begin(), contours.end(), draw);
      return true;
    });
  }

  /// The colour of the pixel in which a place of the model lies.
  Color At(double x, double y) const {
    const ChartLayout& layout = chart.Layout();
    const double scale = (layout.map.right - layout.map.left) / layout.view.Width();
    return image.GetPixel(layout.map.left + static_cast<int>((x - layout.view.left()) * scale),
                          layout.map.top + static_cast<int>((layout.view.top() - y) * scale));
  }

  DtmChart chart;
  ImageDevice image;
  Fault fault = Fault::kNone;
};

ChartSettings SettingsOf(int block) {
  ChartSettings settings;
  settings.block = block;
  settings.width = 400;
  return settings;
}

TEST(DtmChart, CellsHaveTheColoursOfTheirValues) {
  TestGrid grid;
  grid.Draw(
      "-1 -2  .\n"
      "-3 -4 -5");
  const Picture picture(grid, SettingsOf(dVAL));
  ASSERT_EQ(picture.fault, Fault::kNone);
  ColorTable table;
  ASSERT_TRUE(MakeColorTable("depth", -5, -1, table));
  EXPECT_TRUE(picture.chart.Table().Classes() == table.Classes()) << "of few cells, none counts as a spike";
  // Beside the crosses, which stand at whole metres.
  EXPECT_EQ(picture.At(0.3, 0.3), table.GetColor(-3));
  EXPECT_EQ(picture.At(1.3, 0.3), table.GetColor(-4));
  EXPECT_EQ(picture.At(2.3, 0.3), table.GetColor(-5));
  EXPECT_EQ(picture.At(0.3, 1.3), table.GetColor(-1));
  EXPECT_EQ(picture.At(1.3, 1.3), table.GetColor(-2));
  EXPECT_EQ(picture.At(2.3, 1.3), kWhite);
  EXPECT_EQ(picture.image.GetPixel(0, 0), kWhite) << "the paper";
}

TEST(DtmChart, ABareOneHasCellsFromEdgeToEdge) {
  TestGrid grid;
  grid.Draw(
      "-1 -2\n"
      "-3 -4");
  ChartSettings settings = SettingsOf(dVAL);
  settings.isBare = true;
  const Picture picture(grid, settings);
  ASSERT_EQ(picture.fault, Fault::kNone);
  EXPECT_EQ(picture.chart.Layout().height, 400);
  const ColorTable& table = picture.chart.Table();
  for (const int edge : {0, 199}) {
    EXPECT_EQ(picture.image.GetPixel(edge, edge), table.GetColor(-1));
    EXPECT_EQ(picture.image.GetPixel(399 - edge, edge), table.GetColor(-2));
    EXPECT_EQ(picture.image.GetPixel(edge, 399 - edge), table.GetColor(-3));
    EXPECT_EQ(picture.image.GetPixel(399 - edge, 399 - edge), table.GetColor(-4));
  }
}

TEST(DtmChart, ASpikeDoesNotTakeTheColoursAway) {
  TestGrid grid;
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(grid.Set(i / 40, i % 40, dVAL, i == 500 ? -9999 : -10 - i / 1000.0));
  const Picture picture(grid, SettingsOf(dVAL));
  ASSERT_EQ(picture.fault, Fault::kNone);
  EXPECT_NEAR(picture.chart.Table().Classes().front().lower, -10.995, 0.002);
  EXPECT_NEAR(picture.chart.Table().End().value_or(0), -10.005, 0.002);
}

TEST(DtmChart, ColoursGoByARangeOrATableThatIsGiven) {
  TestGrid grid;
  grid.Draw("-1 -2");
  ChartSettings settings = SettingsOf(dVAL);
  settings.range = ChartSettings::Range{-4, 0};
  settings.colors = "uncertainty";
  const Picture ranged(grid, settings);
  ColorTable table;
  ASSERT_TRUE(MakeColorTable("uncertainty", -4, 0, table));
  EXPECT_EQ(ranged.At(0.3, 0.3), table.GetColor(-1));
  ASSERT_TRUE(table.SetClasses({{-1.5, 0x00FF00, 0x00FF00, L""}}, 0.0));
  table.SetBelowColor(0xFF00FF);
  settings.range.reset();
  settings.table = table;
  const Picture tabled(grid, settings);
  EXPECT_EQ(tabled.At(0.3, 0.3), 0x00FF00U);
  EXPECT_EQ(tabled.At(1.3, 0.3), 0xFF00FFU);
}

TEST(DtmChart, HeightsAreShownInTheirUnit) {
  TestGrid grid;
  grid.Draw("-1 -2");
  ChartSettings settings = SettingsOf(dVAL);
  settings.heightFactor = 10;
  settings.hasLegend = true;
  settings.heightUnit = L"dm";
  const Picture picture(grid, settings);
  EXPECT_EQ(picture.chart.Table().Classes().front().lower, -20);
  EXPECT_EQ(picture.chart.Layout().legend.title.text, L"Z Average, dm");
  EXPECT_EQ(picture.At(0.3, 0.3), picture.chart.Table().GetColor(-10));
}

TEST(DtmChart, ARectangleShowsItselfAndNothingBeyond) {
  TestGrid grid;
  for (int i = 0; i < 400; ++i) ASSERT_TRUE(grid.Set(i / 20, i % 20, dVAL, -i));
  ChartSettings settings = SettingsOf(dVAL);
  settings.rect = Page(2, 2, 18, 3);  // so flat that the map is higher
  const Picture picture(grid, settings);
  ASSERT_EQ(picture.fault, Fault::kNone);
  EXPECT_NE(picture.At(5.3, 2.3), kWhite);
  EXPECT_EQ(picture.At(5.3, 3.3), kWhite);
  EXPECT_EQ(picture.At(5.3, 1.7), kWhite);
  EXPECT_EQ(picture.chart.Layout().view.left(), 2);
  EXPECT_EQ(picture.chart.Layout().view.right(), 18);
}

TEST(DtmChart, APolygonLeavesTheCellsWhoseCentreLiesInIt) {
  TestGrid grid;
  grid.Draw(
      "-1 -2 -3\n"
      "-4 -5 -6");
  ChartSettings settings = SettingsOf(dVAL);
  settings.polygon.AddRing({{0, 0}, {1.6, 0}, {1.6, 1.4}, {0, 1.4}, {0, 0}}, false);
  const Picture picture(grid, settings);
  ASSERT_EQ(picture.fault, Fault::kNone);
  EXPECT_NE(picture.At(0.3, 0.3), kWhite);
  EXPECT_NE(picture.At(1.3, 0.3), kWhite);
  EXPECT_EQ(picture.At(0.3, 1.2), kWhite) << "its centre lies outside";
  EXPECT_EQ(picture.chart.Table().Classes().front().lower, -5) << "the colours are those of what is shown";
}

TEST(DtmChart, TellsWhyThereIsNone) {
  TestGrid grid;
  EXPECT_EQ(Picture(grid, SettingsOf(dVAL)).fault, Fault::kNoValue);
  grid.Draw("-1 -2");
  ChartSettings settings = SettingsOf(dVAL);
  settings.rect = Page(50, 50, 60, 60);
  EXPECT_EQ(Picture(grid, settings).fault, Fault::kNoValue);
  EXPECT_EQ(Picture(grid, SettingsOf(iNUM)).fault, Fault::kNoValue);
  settings = SettingsOf(dVAL);
  settings.width = 60;
  EXPECT_EQ(Picture(grid, settings).fault, Fault::kTooNarrow);
  // Cells so far apart that none of them stands for a pixel.
  ASSERT_TRUE(grid.Set(99999, 99999, dVAL, -1));
  ASSERT_TRUE(grid.Set(1, 1, dVAL, -1));
  ASSERT_TRUE(grid.Clear(0, 0));
  ASSERT_TRUE(grid.Clear(0, 1));
  EXPECT_EQ(Picture(grid, SettingsOf(dVAL)).fault, Fault::kNoneShown);
}

GTL::Polyline<GTL::Point2D<double>> LineAcross(double y, double length) {
  GTL::Polyline<GTL::Point2D<double>> line;
  line.AddBack({0, y});
  line.AddBack({length, y});
  return line;
}

/// A picture that counts what it lends and what images it is given.
class CountingDevice final : public CDC {
 public:
  explicit CountingDevice(bool lends) : lends_(lends) {}

  ImageDevice image;
  int lent = 0;
  int drawn = 0;
  std::vector<std::wstring> texts;

  void FillSolidRect(const PixelRect& rect, Color color) override { image.FillSolidRect(rect, color); }
  void DrawPolyline(std::span<const PixelPoint> points) override { image.DrawPolyline(points); }
  void FillPolygon(std::span<const PixelPoint> points, Color color) override { image.FillPolygon(points, color); }
  TextExtent GetTextExtent(const std::wstring& text) override {
    image.SelectFont(GetFont());
    return image.GetTextExtent(text);
  }
  Color GetPixel(int x, int y) const override { return image.GetPixel(x, y); }
  int GetDeviceCaps(int what) const override { return image.GetDeviceCaps(what); }
  void DrawImage(const PixelRect& rect, const ImageDevice& other) override {
    ++drawn;
    image.DrawImage(rect, other);
  }
  bool LendPixels(const PixelRect& rect, ImageDevice& part) override {
    if (!lends_ || !image.LendPixels(rect, part)) return false;
    ++lent;
    return true;
  }

 protected:
  void PrintText(int /*x*/, int /*y*/, const std::wstring& text, const PixelRect* /*clip*/) override {
    texts.push_back(text);
  }

 private:
  const bool lends_;
};

TEST(DtmChart, CellsArePaintedOnTheDevicesOwnPixelsWhereItHasSome) {
  TestGrid grid;
  grid.Draw(
      "-1 -2  .\n"
      "-3 -4 -5");
  ChartSettings settings = SettingsOf(dVAL);
  settings.frameAreas = true;
  const Picture expected(grid, settings);
  for (const bool lends : {false, true}) {
    SCOPED_TRACE(lends);
    DtmChart chart(grid.Access(), settings);
    CountingDevice device(lends);
    ASSERT_TRUE(device.image.Create(1, 1));
    ASSERT_EQ(chart.Look(MeasureOn(device)), Fault::kNone);
    const ChartLayout& layout = chart.Layout();
    ASSERT_TRUE(device.image.Create(layout.width, layout.height, 96, 0x123456));
    ASSERT_EQ(chart.Paint(device), Fault::kNone);
    EXPECT_EQ(device.lent, lends ? 1 : 0);
    EXPECT_EQ(device.drawn, lends ? 0 : 1);
    int others = 0;
    for (int y = layout.map.top; y < layout.map.bottom; ++y) {
      for (int x = layout.map.left; x < layout.map.right; ++x) {
        others += device.GetPixel(x, y) == expected.image.GetPixel(x, y) ? 0 : 1;
      }
    }
    EXPECT_EQ(others, 0);
  }
}

TEST(DtmChart, ContoursAreAskedForWhenTheCellsAreThereAndGetTheirLabels) {
  TestGrid grid;
  for (int i = 0; i < 400; ++i) ASSERT_TRUE(grid.Set(i / 20, i % 20, dVAL, -i / 20.0));
  ChartSettings settings = SettingsOf(dVAL);
  settings.isBare = true;
  DtmChart chart(grid.Access(), settings);
  CountingDevice device(true);
  ASSERT_TRUE(device.image.Create(1, 1));
  ASSERT_EQ(chart.Look(MeasureOn(device)), Fault::kNone);
  ASSERT_TRUE(device.image.Create(chart.Layout().width, chart.Layout().height, 96, 0x123456));
  int calls = 0;
  const auto source = [&](const auto& draw) {
    ++calls;
    EXPECT_EQ(device.lent, 1);
    const Color before = device.GetPixel(200, 200);
    draw({-9.5, true, LineAcross(10, 20)});
    EXPECT_NE(device.GetPixel(200, 200), before);
    return true;
  };
  ASSERT_EQ(chart.Paint(device, source), Fault::kNone);
  EXPECT_EQ(calls, 1);
  ASSERT_FALSE(device.texts.empty());
  EXPECT_EQ(device.texts.front(), L"\u22129.5");
  EXPECT_EQ(chart.Paint(device, [](const auto&) { return false; }), Fault::kUnreadable);
}

TEST(DtmChart, AStoppedOneIsNotPainted) {
  TestGrid grid;
  grid.Draw("-1 -2");
  DtmChart chart(grid.Access(), SettingsOf(dVAL));
  ImageDevice image;
  ASSERT_TRUE(image.Create(400, 400));
  chart.Stop();
  EXPECT_EQ(chart.Look(MeasureOn(image)), Fault::kStopped);
  DtmChart late(grid.Access(), SettingsOf(dVAL));
  ASSERT_EQ(late.Look(MeasureOn(image)), Fault::kNone);
  late.Stop();
  image.FillSolidRect({0, 0, 400, 400}, 0x123456);
  EXPECT_EQ(late.Paint(image), Fault::kStopped);
  EXPECT_EQ(image.GetPixel(0, 0), 0x123456U) << "not even the paper";
}

TEST(DtmChart, TheSunComesOnlyWhenAskedFor) {
  TestGrid grid;
  grid.Draw(
      "-1 -2 -3\n"
      "-1 -2 -3\n"
      "-1 -2 -3");
  ChartSettings settings = SettingsOf(dVAL);
  const Picture plain(grid, settings);
  settings.sun = ChartSettings::Sun{90, 45, 1};
  const Picture east(grid, settings);
  settings.sun = ChartSettings::Sun{270, 45, 1};
  const Picture west(grid, settings);
  EXPECT_EQ(plain.At(1.3, 1.3), plain.chart.Table().GetColor(-2));
  const auto light = [](Color color) {
    double hue = 0;
    double saturation = 0;
    double lightness = 0;
    ColorTable::RGBtoHSL(color, hue, saturation, lightness);
    return lightness;
  };
  EXPECT_GT(light(east.At(1.3, 1.3)), light(west.At(1.3, 1.3))) << "the slope falls to the east";
}

TEST(DtmChart, ContoursAreOfHeightsAndSpikesGetNone) {
  TestGrid grid;
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(grid.Set(i / 40, i % 40, dVAL, i == 500 ? -9999 : -10 - i / 1000.0));
  for (int i = 0; i < 40; ++i) ASSERT_TRUE(grid.Set(0, i, iNUM, 3));
  DtmChart chart(grid.Access(), SettingsOf(dVAL));
  ImageDevice image;
  ASSERT_TRUE(image.Create(1, 1));
  ASSERT_EQ(chart.Look(MeasureOn(image)), Fault::kNone);
  double lowest = 0;
  double highest = 0;
  ASSERT_EQ(chart.FindContourRange(lowest, highest), Fault::kNone);
  EXPECT_NEAR(lowest, -11.98, 0.02) << "once more the range of the rest";
  EXPECT_EQ(highest, -10);
  DtmChart hits(grid.Access(), SettingsOf(iNUM));
  ASSERT_EQ(hits.Look(MeasureOn(image)), Fault::kNone);
  EXPECT_EQ(hits.ContourBlock(), dVAL);
  ASSERT_EQ(hits.FindContourRange(lowest, highest), Fault::kNone);
  EXPECT_EQ(highest, -10);
}

/// What a chart of a model is going to be like.
ChartLayout LayoutOf(TestGrid& grid, ChartSettings settings) {
  settings.width = 1600;
  settings.hasLegend = true;
  DtmChart chart(grid.Access(), settings);
  ImageDevice image;
  EXPECT_TRUE(image.Create(1, 1));
  EXPECT_EQ(chart.Look(MeasureOn(image)), Fault::kNone);
  return chart.Layout();
}

TEST(DtmChart, EachEndOfALegendIsOpenWhereThereAreValuesBeyondIt) {
  TestGrid grid;
  grid.Draw("-1 -2 -3\n-1 -2 -3");
  const struct {
    double low, high;
    bool below, above;
  } cases[] = {{-4, 0, false, false}, {-2.5, 0, true, false}, {-4, -1.5, false, true}, {-2.5, -1.5, true, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.low);
    SCOPED_TRACE(c.high);
    ChartSettings settings = SettingsOf(dVAL);
    settings.range = ChartSettings::Range{c.low, c.high};
    const ChartLayout layout = LayoutOf(grid, settings);
    EXPECT_EQ(layout.legend.lowPoint > 0, c.below);
    EXPECT_EQ(layout.legend.highPoint > 0, c.above);
  }
}

TEST(DtmChart, OfFewCellsTheColoursLeaveNoneOut) {
  for (const int count : {199, 200}) {
    SCOPED_TRACE(count);
    TestGrid grid;
    for (int i = 0; i < count; ++i) ASSERT_TRUE(grid.Set(i / 20, i % 20, dVAL, i == 0 ? -9999 : -10 - i / 1000.0));
    const Picture picture(grid, SettingsOf(dVAL));
    ASSERT_EQ(picture.fault, Fault::kNone);
    EXPECT_EQ(picture.chart.Table().Classes().front().lower == -9999, count < 200);
  }
}

TEST(DtmChart, ALegendOfWholeNumbersHasWholeSteps) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}});
  for (int i = 0; i < 12; ++i) {
    ASSERT_TRUE(grid.Set(i / 4, i % 4, dVAL, 1 + i % 3));
    ASSERT_TRUE(grid.Set(i / 4, i % 4, iNUM, 1 + i % 3));
  }
  const AxisTicks counts = LayoutOf(grid, SettingsOf(iNUM)).legend.ticks;
  EXPECT_EQ(counts.step, 1);
  ASSERT_EQ(counts.ticks.size(), 3U);
  EXPECT_EQ(counts.ticks.front().label, L"1");
  EXPECT_LT(LayoutOf(grid, SettingsOf(dVAL)).legend.ticks.step, 1);
}

TEST(DtmChart, ALegendOfSlopesTellsOfCellsWithoutOne) {
  TestGrid grid;
  grid.Draw(
      "-1 -2\n"
      "-1 -3");
  ChartSettings settings = SettingsOf(dVAL);
  settings.isSlope = true;
  EXPECT_EQ(LayoutOf(grid, settings).legend.title.text, L"Slope, m/m");
  ASSERT_TRUE(grid.Set(9, 9, dVAL, -1));
  EXPECT_EQ(LayoutOf(grid, settings).legend.title.text, L"Slope, m/m, beige where there is none");
}

TEST(DtmChart, ALegendTellsWhatTheColoursLeaveOut) {
  TestGrid grid;
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(grid.Set(i / 40, i % 40, dVAL, i == 500 ? -9999 : -10 - i / 1000.0));
  ChartSettings settings = SettingsOf(dVAL);
  settings.width = 1600;
  settings.hasLegend = true;
  DtmChart chart(grid.Access(), settings);
  ImageDevice image;
  ASSERT_TRUE(image.Create(1, 1));
  ASSERT_EQ(chart.Look(MeasureOn(image)), Fault::kNone);
  EXPECT_EQ(chart.Layout().legend.title.text, L"Z Average, m (99 % of the cells)");
  EXPECT_GT(chart.Layout().legend.lowPoint, 0);
  EXPECT_GT(chart.Layout().legend.highPoint, 0);
}

}  // namespace
}  // namespace vak
