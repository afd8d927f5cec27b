#include <array>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/render/DtmDrawProcessor.h"
#include "vakdtm/services/color/ColorControl.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/store/CellValue.h"

#include "support/RecordingDevice.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::RecordingDevice;
using test::TestGrid;
using test::TimeStands;

constexpr long long kNoon = 20000LL * 86400 + 43200;

/// Lets some cells through, which marks them.
class Only : public DtmProcessor {
 public:
  explicit Only(std::set<std::pair<int, int>> cells, bool isUsable = true)
      : cells_(std::move(cells)), isUsable_(isUsable) {}
  bool Init(DtmAccess& /*access*/) override { return isUsable_; }
  bool ProcessCell(int row, int col, double& weight) override {
    if (!cells_.contains({row, col})) weight = 0;
    return true;
  }

 private:
  std::set<std::pair<int, int>> cells_;
  bool isUsable_;
};

/// Tells of some cells what isn't in the model.
class Comparing : public DtmDrawProcessor {
 public:
  using DtmDrawProcessor::SetNoValueColor;
  using DtmDrawProcessor::SetShowNoDesign;

 protected:
  bool GetCellValue(int row, int col, double& value) override {
    if (col == 0) return false;
    value = 7;
    return col == 1 && row >= 0;
  }
};

/// A grid of 1 m cells in areas of 4, drawn at so many pixels a cell, with (0, 0) at the bottom left.
class Drawing {
 public:
  explicit Drawing(double pixelsPerCell = 10, int cells = 8, std::vector<int> blocks = {dVAL, iNUM})
      : grid_({.cellSize = 1.0, .areaSize = 4, .blockIds = std::move(blocks)}),
        view_(0, 0, cells, cells),
        system_(view_, static_cast<int>(pixelsPerCell * cells), static_cast<int>(pixelsPerCell * cells)) {
    // Below -5 blue, to 0 green, above it red.
    table_.SetClasses({{-10, 0xFF0000, 0xFF0000, L""}, {-5, 0x00FF00, 0x00FF00, L""}, {0, 0x0000FF, 0x0000FF, L""}},
                      10.0);
    Use(std::make_unique<DtmDrawProcessor>());
  }

  void Use(std::unique_ptr<DtmDrawProcessor> processor, int block = dVAL) {
    processor_ = std::move(processor);
    processor_->SetDrawInfo(&device_, system_, view_);
    processor_->SetCellInfo(block, &table_);
  }
  void Mark(std::set<std::pair<int, int>> cells, bool frames = false, bool isUsable = true) {
    marks_.AddProcessor(new Only(std::move(cells), isUsable));
    processor_->SetMarkInfo(&marks_, 250, frames);
  }

  TestGrid& Grid() { return grid_; }
  RecordingDevice& Device() { return device_; }
  ColorTable& Table() { return table_; }
  DtmDrawProcessor& Processor() { return *processor_; }
  const Page& View() const { return view_; }

  bool Walk() {
    device_.Clear();
    return processor_->ProcessRect(grid_.Access(), view_);
  }
  /// What is painted: the lines of the device but for its pens and background.
  std::vector<std::string> Painted() {
    EXPECT_TRUE(Walk());
    std::vector<std::string> painted;
    for (const std::string& line : device_.Lines()) {
      if (line.rfind("pen", 0) != 0 && line.rfind("bk", 0) != 0) painted.push_back(line);
    }
    return painted;
  }
  /// The colour of the cell, whatever else is painted.
  Color ColorOf(int row, int col) {
    double x = 0;
    double y = 0;
    system_.WorldToPixel(col + 0.5, row + 0.5, &x, &y);
    return device_.GetPixel(static_cast<int>(x), static_cast<int>(y));
  }

 private:
  TestGrid grid_;
  Page view_;
  CoordinateSystem system_;
  ColorTable table_;
  RecordingDevice device_;
  DtmMultiProcessor marks_;
  std::unique_ptr<DtmDrawProcessor> processor_;
};

using Lines = std::vector<std::string>;

TEST(DtmDrawProcessor, ACellIsARectangleInTheColourOfItsValue) {
  Drawing drawing;
  drawing.Grid().Draw(
      ". 3\n"
      "-7 -2");
  EXPECT_EQ(drawing.Painted(),
            (Lines{"fill 0 70 10 80 #0000ff", "fill 10 70 20 80 #00ff00", "fill 10 60 20 70 #ff0000"}));
}

TEST(DtmDrawProcessor, GivesTheDeviceBackAsItFoundIt) {
  Drawing drawing;
  drawing.Grid().Draw("-7");
  drawing.Device().SelectPen(CreatePen(0, 3, 0xFF));
  drawing.Device().SetBkColor(0x123456);
  ASSERT_TRUE(drawing.Walk());
  EXPECT_EQ(drawing.Device().Text(),
            "pen 0 1 #fa0000\n"
            "fill 0 70 10 80 #0000ff\n"
            "pen 0 1 #000000\n"  // a plain one lets go of ours
            "pen 0 1 #fa0000\n"
            "pen 0 3 #ff0000\n"
            "bk #563412\n");
  EXPECT_EQ(drawing.Device().GetPen(), CreatePen(0, 3, 0xFF));
  EXPECT_EQ(drawing.Device().GetBkColor(), Color{0x123456});
}

TEST(DtmDrawProcessor, CanBeUsedAgain) {
  Drawing drawing;
  drawing.Grid().Draw("-7");
  const Lines first = drawing.Painted();
  EXPECT_EQ(drawing.Painted(), first);
}

TEST(DtmDrawProcessor, DrawsNothingWithoutAnythingToDraw) {
  Drawing drawing;
  drawing.Grid().Draw("-7");
  drawing.Processor().SetCellInfo(0, nullptr);
  EXPECT_FALSE(drawing.Walk());
  EXPECT_EQ(drawing.Device().Text(), "");
}

TEST(DtmDrawProcessor, DrawsNothingWithoutADeviceOrATable) {
  TestGrid grid;
  grid.Draw("-7");
  DtmDrawProcessor without;
  without.SetMarkInfo(nullptr, 0, true);
  EXPECT_FALSE(without.ProcessAllCells(grid.Access()));
  Drawing drawing;
  drawing.Processor().SetCellInfo(dVAL, nullptr);
  EXPECT_FALSE(drawing.Walk());
  EXPECT_EQ(drawing.Device().Text(), "");
}

TEST(DtmDrawProcessor, EmptyCellsAndThoseThatCannotBeReadAreLeftAsTheyWere) {
  Drawing drawing;
  drawing.Grid().Set(0, 0, iNUM, 3);  // an area whose VAL is empty
  EXPECT_EQ(drawing.Painted(), Lines{});
  drawing.Processor().SetCellInfo(dMIN, &drawing.Table());  // which the model doesn't have
  EXPECT_EQ(drawing.Painted(), Lines{});
}

TEST(DtmDrawProcessor, FactorAndOffsetMakeThePresentedValue) {
  Drawing drawing;
  drawing.Grid().Draw("-7");
  drawing.Processor().SetPresentationUnitFactor(-1.0);
  EXPECT_EQ(drawing.Painted(), Lines{"fill 0 70 10 80 #ff0000"});
  drawing.Processor().SetPresentationUnitOffset(-8.0);
  EXPECT_EQ(drawing.Painted(), Lines{"fill 0 70 10 80 #00ff00"});
}

// ---- Marks

TEST(DtmDrawProcessor, AMarkedSmallCellIsInTheMarkColourAlone) {
  Drawing drawing(1.875);  // 15 pixels for 8 cells
  drawing.Grid().Draw("-7 -7");
  drawing.Mark({{0, 1}});
  EXPECT_EQ(drawing.Painted(), (Lines{"fill 0 13 2 15 #0000ff", "fill 2 13 4 15 #fa0000"}));
}

TEST(DtmDrawProcessor, ACellOfTwoPixelsHasRoomForAStroke) {
  Drawing drawing(2);
  drawing.Grid().Draw("-7");
  drawing.Mark({{0, 0}});
  EXPECT_EQ(drawing.Painted(), (Lines{"fill 0 14 2 16 #0000ff", "line 0.4 16 1.6 14"}));
}

TEST(DtmDrawProcessor, AMarkedCellHasAStrokeOverItsValueAndWithoutOne) {
  Drawing drawing;
  drawing.Grid().Draw("-7 . -7");
  drawing.Mark({{0, 0}, {0, 1}});
  EXPECT_EQ(drawing.Painted(),
            (Lines{"fill 0 70 10 80 #0000ff", "line 2 80 8 70", "line 12 80 18 70", "fill 20 70 30 80 #0000ff"}));
}

TEST(DtmDrawProcessor, MarksThatCannotBeginAreForgotten) {
  Drawing drawing;
  drawing.Grid().Draw("-7");
  drawing.Mark({{0, 0}}, false, false);
  EXPECT_EQ(drawing.Painted(), Lines{"fill 0 70 10 80 #0000ff"});
  drawing.Processor().SetCellInfo(0, nullptr);
  EXPECT_FALSE(drawing.Walk()) << "they stay forgotten, and nothing else is to be drawn";
}

TEST(DtmDrawProcessor, MarkColoursGoThroughTheFilterAndValuesDoNot) {
  Drawing drawing(1.875);
  drawing.Grid().Draw("-7 -7");
  drawing.Mark({{0, 1}});
  ColorControl::Instance().SetFilter([](Color color, bool flag) { return flag ? Color{0} : color ^ 0xFFFFFF; });
  const bool walked = drawing.Walk();
  ColorControl::Instance().SetFilter({});
  ASSERT_TRUE(walked);
  EXPECT_EQ(drawing.Device().Lines()[0], "pen 0 1 #05ffff");
  EXPECT_EQ(drawing.Device().Lines()[1], "fill 0 13 2 15 #0000ff");
  EXPECT_EQ(drawing.Device().Lines()[2], "fill 2 13 4 15 #05ffff");
}

// ---- Frames

TEST(DtmDrawProcessor, FramesGoBelowTheCellsOfTheirArea) {
  Drawing drawing;
  drawing.Grid().Draw("-7 . . . . -7");
  drawing.Processor().SetMarkInfo(nullptr, 250, true);
  EXPECT_EQ(drawing.Painted(), (Lines{"line 0 80 40 80 40 40 0 40 0 80", "fill 0 70 10 80 #0000ff",
                                      "line 40 80 80 80 80 40 40 40 40 80", "fill 50 70 60 80 #0000ff"}));
}

TEST(DtmDrawProcessor, WithoutABlockThereAreFramesAlone) {
  Drawing drawing;
  drawing.Grid().Draw("-7");
  drawing.Processor().SetCellInfo(0, nullptr);
  drawing.Processor().SetMarkInfo(nullptr, 250, true);
  EXPECT_EQ(drawing.Painted(), Lines{"line 0 80 40 80 40 40 0 40 0 80"});
  drawing.Mark({{0, 0}}, true);
  EXPECT_EQ(drawing.Painted(), Lines{"line 0 80 40 80 40 40 0 40 0 80"}) << "marks need cells";
}

TEST(DtmDrawProcessor, AnAreaOfFewPixelsHasAFrameThatCanBeSeen) {
  Drawing drawing(1);
  drawing.Grid().Draw("-7");
  drawing.Processor().SetCellInfo(0, nullptr);
  drawing.Processor().SetMarkInfo(nullptr, 250, true);
  // 4 pixels wide, its middle at (2, 6).
  EXPECT_EQ(drawing.Painted(), Lines{"line 0 8 4 8 4 4 0 4 0 8"});
  Drawing smaller(0.5, 16);
  smaller.Grid().Set(5, 5, dVAL, 1);
  smaller.Processor().SetCellInfo(0, nullptr);
  smaller.Processor().SetMarkInfo(nullptr, 250, true);
  // Of 2 pixels, its middle at (3, 5).
  EXPECT_EQ(smaller.Painted(), Lines{"line 1 7 5 7 5 3 1 3 1 7"});
}

// ---- Times

TEST(DtmDrawProcessor, TimesAreAgesInDaysUpToTheMidnightThatComes) {
  const TimeStands now(kNoon);
  Drawing drawing(10, 8, {dVAL, tTIM});
  drawing.Table().SetClasses({{0, 0x010101, 0x010101, L""}, {1, 0x020202, 0x020202, L""}}, std::nullopt);
  drawing.Table().SetBelowColor(0x030303);
  drawing.Processor().SetCellInfo(tTIM, &drawing.Table());
  drawing.Grid().Set(0, 0, tTIM, kNoon);
  drawing.Grid().Set(0, 1, tTIM, kNoon - 43200);  // this morning at 0 o'clock
  drawing.Grid().Set(0, 2, tTIM, kNoon - 43199);
  drawing.Grid().Set(0, 3, tTIM, kNoon + 43201);  // tomorrow
  drawing.Processor().SetPresentationUnitFactor(100);
  drawing.Processor().SetPresentationUnitOffset(100);
  drawing.Processor().SetGradientMode(true);
  EXPECT_EQ(drawing.Painted(), (Lines{"fill 0 70 10 80 #010101", "fill 10 70 20 80 #020202", "fill 20 70 30 80 #010101",
                                      "fill 30 70 40 80 #030303"}));
}

TEST(DtmDrawProcessor, AtMidnightTheDayEndsNow) {
  const TimeStands now(kNoon - 43200);
  Drawing drawing(10, 8, {dVAL, tTIM});
  drawing.Table().SetClasses({{0, 0x010101, 0x010101, L""}, {0.5, 0x020202, 0x020202, L""}}, std::nullopt);
  drawing.Processor().SetCellInfo(tTIM, &drawing.Table());
  drawing.Grid().Set(0, 0, tTIM, kNoon - 43200);
  EXPECT_EQ(drawing.Painted(), Lines{"fill 0 70 10 80 #010101"});
}

// ---- Slopes

TEST(DtmDrawProcessor, GradientsAreShownAsTheyAre) {
  Drawing drawing;
  drawing.Grid().Draw(
      "0 3 6\n"
      "0 3 6");
  drawing.Table().SetClasses(
      {{0, 0x010101, 0x010101, L""}, {5.5, 0x020202, 0x020202, L""}, {6.5, 0x030303, 0x030303, L""}}, std::nullopt);
  drawing.Processor().SetGradientMode(true);
  drawing.Processor().SetPresentationUnitFactor(100);
  drawing.Processor().SetSunIllumination(true, 90, 10, 10);
  ASSERT_TRUE(drawing.Walk());
  EXPECT_EQ(drawing.ColorOf(0, 1), Color{0x020202});
  EXPECT_EQ(drawing.ColorOf(0, 0), Color{0x010101}) << "one neighbour alone";
}

TEST(DtmDrawProcessor, WithoutAGradientThereIsTheColourForNoValue) {
  Drawing drawing;
  drawing.Grid().Set(0, 0, iNUM, 2);
  drawing.Processor().SetCellInfo(iNUM, &drawing.Table());
  drawing.Processor().SetGradientMode(true);
  EXPECT_EQ(drawing.Painted(), Lines{"fill 0 70 10 80 #e1d5c4"});
}

TEST(DtmDrawProcessor, ASubclassSaysOfWhichCellsThereIsNothingToTell) {
  Drawing drawing;
  drawing.Grid().Draw("1 1 1");
  auto comparing = std::make_unique<Comparing>();
  Comparing& shown = *comparing;
  drawing.Use(std::move(comparing));
  EXPECT_EQ(drawing.Painted()[0], "fill 10 70 20 80 #ff0000") << "neither empty nor told";
  shown.SetShowNoDesign(true);
  const Lines painted = drawing.Painted();
  EXPECT_EQ(painted[0], "fill 10 70 20 80 #ff0000");
  EXPECT_EQ(painted[1], "fill 20 70 30 80 #e1d5c4") << "an empty value is left unpainted all the same";
  shown.SetNoValueColor(0x0A0B0C);
  EXPECT_EQ(drawing.Painted()[1], "fill 20 70 30 80 #0c0b0a");
}

// ---- Spikes

SPIKE SpikeAt(int row, int col) {
  SPIKE spike;
  spike.row = row;
  spike.col = col;
  return spike;
}

TEST(DtmDrawProcessor, SpikesAreRedAndTheOthersGreen) {
  Drawing drawing;
  drawing.Grid().Draw("-7 . -7 3");
  const auto spikes = std::make_shared<std::set<SPIKE>>();
  drawing.Processor().SetSpikeInfo(spikes, 0xABCDEF, false);
  EXPECT_EQ(drawing.Painted()[0], "fill 0 70 10 80 #0000ff") << "no spikes, no difference";
  spikes->insert(SpikeAt(0, 2));
  spikes->insert(SpikeAt(0, 1));  // without a value it isn't painted
  drawing.Processor().SetSunIllumination(true, 90, 10, 10);
  EXPECT_EQ(drawing.Painted(),
            (Lines{"fill 0 70 10 80 #00ff00", "fill 20 70 30 80 #ff0000", "fill 30 70 40 80 #00ff00"}));
}

TEST(DtmDrawProcessor, SpikesAmongCellsInTheirOwnColours) {
  Drawing drawing;
  drawing.Grid().Draw("-7 -7 3");
  const auto spikes = std::make_shared<std::set<SPIKE>>();
  spikes->insert(SpikeAt(0, 1));
  drawing.Processor().SetSpikeInfo(spikes, 0xABCDEF, true);
  drawing.Mark({{0, 1}});
  EXPECT_EQ(drawing.Painted(),
            (Lines{"fill 0 70 10 80 #0000ff", "fill 10 70 20 80 #efcdab", "fill 20 70 30 80 #ff0000"}))
      << "a spike has no stroke";
  drawing.Processor().SetSpikeInfo(nullptr, 0, false);
  EXPECT_EQ(drawing.Painted()[1], "fill 10 70 20 80 #0000ff");
}

TEST(Spike, IsKeptByRowAndThenColumn) {
  SPIKE told = SpikeAt(0, 2);
  told.z = 3.0;
  const std::set<SPIKE> spikes = {SpikeAt(1, -5), SpikeAt(0, 9), told, SpikeAt(0, 2)};
  std::vector<std::pair<int, int>> order;
  for (const SPIKE& spike : spikes) order.emplace_back(spike.row, spike.col);
  EXPECT_EQ(order, (std::vector<std::pair<int, int>>{{0, 2}, {0, 9}, {1, -5}}));
}

// ---- Sun

constexpr double kElevation = 40.0;
constexpr double kDegree = 0.017453292519943295;

/// What a colour becomes on a slope that rises from the sun side, seen by the formula of the page.
Color Lit(Color color, double slope, double elevation = kElevation) {
  double hue = 0;
  double saturation = 0;
  double lightness = 0;
  ColorTable::RGBtoHSL(color, hue, saturation, lightness);
  const double high = elevation * kDegree;
  const double angle = std::min(std::max(1.570796327 - high - std::atan(slope), -1.570796327), 1.570796327);
  const double lit = std::cos(angle) * lightness + std::cos(high) * 0.1;
  return ColorTable::HSLtoRGB(hue, saturation, std::min(std::max(lit, 0.0), 1.0));
}

double LightnessOf(Color color) {
  double hue = 0;
  double saturation = 0;
  double lightness = 0;
  ColorTable::RGBtoHSL(color, hue, saturation, lightness);
  return lightness;
}

struct Compass {
  const char* name;
  double azimuth;
  int rows;  // where the sun-side neighbour is
  int cols;
};

// The sun in the north-west lights from the south-west: as every picture so far.
constexpr std::array<Compass, 8> kSuns = {{{"north", 0, 1, 0},
                                           {"north-east", 45, 1, 1},
                                           {"east", 90, 0, 1},
                                           {"south-east", 135, -1, 1},
                                           {"south", 180, -1, 0},
                                           {"south-west", 225, -1, -1},
                                           {"west", 270, 0, -1},
                                           {"north-west", 315, -1, -1}}};

constexpr Color kPlain = 0x507090;

TEST(DtmDrawProcessor, PlanesTiltedEachWayAreLitFromTheSunsSector) {
  for (const Compass& sun : kSuns) {
    for (const Compass& fall : kSuns) {
      SCOPED_TRACE(std::string("sun in the ") + sun.name + ", plane falling towards " + fall.name);
      Drawing drawing(4, 4);
      drawing.Table().SetClasses({{-100, kPlain, kPlain, L""}}, 100.0);
      for (int row = 0; row < 4; ++row) {
        for (int col = 0; col < 4; ++col)
          drawing.Grid().Set(row, col, dVAL, -0.25 * (row * fall.rows + col * fall.cols));
      }
      drawing.Processor().SetSunIllumination(true, sun.azimuth, kElevation, 2.0);
      ASSERT_TRUE(drawing.Walk());
      const int steps = sun.rows * fall.rows + sun.cols * fall.cols;
      const double distance = sun.rows != 0 && sun.cols != 0 ? std::sqrt(2.0) : 1.0;
      const Color expected = Lit(kPlain, 0.25 * steps * 2.0 / distance);
      for (int row = 0; row < 4; ++row) {
        for (int col = 0; col < 4; ++col) {
          // Two corners have neither neighbour of a diagonal.
          const auto isIn = [](int at) { return at >= 0 && at < 4; };
          const bool any =
              (isIn(row + sun.rows) && isIn(col + sun.cols)) || (isIn(row - sun.rows) && isIn(col - sun.cols));
          EXPECT_EQ(drawing.ColorOf(row, col), any ? expected : kPlain) << row << ", " << col;
        }
      }
      const double flat = LightnessOf(Lit(kPlain, 0));
      const double lit = LightnessOf(drawing.ColorOf(1, 1));
      EXPECT_EQ(lit > flat, steps > 0) << "what falls towards the sun is light";
      EXPECT_EQ(lit < flat, steps < 0) << "what falls away from it is dark";
    }
  }
}

TEST(DtmDrawProcessor, AzimuthsBelongToTheNearestOfEightSectors) {
  struct Case {
    double azimuth;
    int sector;
  };
  constexpr std::array<Case, 16> kCases = {{{0, 0},
                                            {22.4, 0},
                                            {22.5, 1},
                                            {67.4, 1},
                                            {67.5, 2},
                                            {112.5, 3},
                                            {157.5, 4},
                                            {202.5, 5},
                                            {247.5, 6},
                                            {292.5, 7},
                                            {337.4, 7},
                                            {337.5, 0},
                                            {359, 0},
                                            {360, 0},
                                            {-90, 6},
                                            {765, 1}}};
  for (const Case& each : kCases) {
    SCOPED_TRACE(each.azimuth);
    Drawing drawing(4, 4);
    drawing.Table().SetClasses({{-100, kPlain, kPlain, L""}}, 100.0);
    // Every neighbour of (1, 1) is another height below it.
    const auto height = [&](int row, int col) { return 1.0 * (row * 3 + col); };
    for (int row = 0; row < 3; ++row) {
      for (int col = 0; col < 3; ++col)
        drawing.Grid().Set(row, col, dVAL, row == 1 && col == 1 ? 10.0 : height(row, col));
    }
    drawing.Processor().SetSunIllumination(true, each.azimuth, kElevation, 0.1);
    ASSERT_TRUE(drawing.Walk());
    const Compass& sun = kSuns[static_cast<std::size_t>(each.sector)];
    const double distance = sun.rows != 0 && sun.cols != 0 ? std::sqrt(2.0) : 1.0;
    EXPECT_EQ(drawing.ColorOf(1, 1), Lit(kPlain, (10.0 - height(1 + sun.rows, 1 + sun.cols)) * 0.1 / distance));
  }
}

TEST(DtmDrawProcessor, AtTheEdgeTheOppositeNeighbourTakesOver) {
  Drawing drawing;
  drawing.Table().SetClasses({{-100, kPlain, kPlain, L""}}, 100.0);
  drawing.Grid().Draw("0 -1 -2 . 5");
  drawing.Processor().SetSunIllumination(true, 90, kElevation, 1.0);
  ASSERT_TRUE(drawing.Walk());
  EXPECT_EQ(drawing.ColorOf(0, 1), Lit(kPlain, 1.0));
  EXPECT_EQ(drawing.ColorOf(0, 2), Lit(kPlain, 1.0)) << "from the other side, the sign turned";
  EXPECT_EQ(drawing.ColorOf(0, 4), kPlain) << "alone";
}

TEST(DtmDrawProcessor, TheSunStandsAtThirtyDegreesInTheSouthEastUntilTold) {
  Drawing drawing;
  drawing.Table().SetClasses({{-100, kPlain, kPlain, L""}}, 100.0);
  drawing.Grid().Draw("0");
  drawing.Processor().SetSunIllumination(true, 135, 30, 1.0);
  const Lines told = drawing.Painted();
  drawing.Processor().SetSunIllumination(false, 135, 30, 1.0);
  EXPECT_EQ(drawing.Painted(), told) << "alone, a cell keeps its colour";
}

TEST(DtmDrawProcessor, LightnessStaysWithinItsBounds) {
  struct Case {
    const char* name;
    Color color;
    double elevation;
    double height;  // of the neighbour towards the sun
  };
  constexpr std::array<Case, 4> kCases = {{{"a cliff towards the sun", 0xFFFFFF, 5, -1e9},
                                           {"a cliff away from it", 0xFFFFFF, 5, 1e9},
                                           {"a sun below the horizon", 0x808080, -80, 1e9},
                                           {"a sun behind the zenith", 0xF0F0F0, 170, -5}}};
  for (const Case& each : kCases) {
    SCOPED_TRACE(each.name);
    Drawing drawing;
    drawing.Table().SetClasses({{-1e10, each.color, each.color, L""}}, 1e10);
    drawing.Grid().Set(0, 0, dVAL, 0);
    drawing.Grid().Set(0, 1, dVAL, each.height);
    drawing.Processor().SetSunIllumination(true, 90, each.elevation, 1.0);
    ASSERT_TRUE(drawing.Walk());
    EXPECT_EQ(drawing.ColorOf(0, 0), Lit(each.color, -each.height, each.elevation));
  }
}

TEST(DtmDrawProcessor, WhatIsNoHeightIsShadedByTheMean) {
  Drawing drawing;
  drawing.Table().SetClasses({{-100, kPlain, kPlain, L""}}, 100.0);
  drawing.Grid().Draw("0 -1 . -3");
  for (int col = 0; col < 4; ++col) drawing.Grid().Set(0, col, iNUM, 10 * (col + 1));
  drawing.Processor().SetCellInfo(iNUM, &drawing.Table());
  drawing.Processor().SetSunIllumination(true, 90, kElevation, 1.0);
  ASSERT_TRUE(drawing.Walk());
  EXPECT_EQ(drawing.ColorOf(0, 0), Lit(kPlain, 1.0));
  EXPECT_EQ(drawing.ColorOf(0, 2), kPlain) << "no height, though both neighbours have one";
  EXPECT_EQ(drawing.ColorOf(0, 3), kPlain) << "no neighbour with a height";
}

TEST(DtmDrawProcessor, TheColourForNoValueIsShadedByTheValueAtHand) {
  Drawing drawing;
  drawing.Grid().Draw(". 7 9 8");
  auto comparing = std::make_unique<Comparing>();
  comparing->SetShowNoDesign(true);
  drawing.Use(std::move(comparing));
  drawing.Processor().SetSunIllumination(true, 90, kElevation, 1.0);
  ASSERT_TRUE(drawing.Walk());
  EXPECT_EQ(drawing.ColorOf(0, 2), Lit(12899809, 7.0 - 8.0));
}

TEST(DtmDrawProcessor, NeighboursLieAStepAway) {
  Drawing drawing(0.5, 16);
  drawing.Table().SetClasses({{-100, kPlain, kPlain, L""}}, 100.0);
  for (int col = 0; col < 8; ++col) drawing.Grid().Set(0, col, dVAL, col % 2 == 0 ? -col : 99);
  drawing.Processor().SetSunIllumination(true, 90, kElevation, 1.0);
  ASSERT_TRUE(drawing.Walk());
  EXPECT_EQ(drawing.Device().GetPixel(1, 7), Lit(kPlain, 2.0 / 2.0));
}

// ---- Which cells

TEST(DtmDrawProcessor, FarOutCellsOfTheStepGridStandForTheOthers) {
  Drawing drawing(0.5, 16);  // two cells a pixel, each way
  for (int row = 0; row < 4; ++row) {
    for (int col = 0; col < 6; ++col) drawing.Grid().Set(row, col, dVAL, row % 2 == 0 && col % 2 == 0 ? -7 : 3);
  }
  EXPECT_EQ(drawing.Painted(), (Lines{"fill 0 7 1 8 #0000ff", "fill 1 7 2 8 #0000ff", "fill 0 6 1 7 #0000ff",
                                      "fill 1 6 2 7 #0000ff", "fill 2 7 3 8 #0000ff", "fill 2 6 3 7 #0000ff"}));
}

TEST(DtmDrawProcessor, TheStepGridGoesThroughZeroOnBothSides) {
  TestGrid grid;
  for (int col = -6; col < 6; ++col) grid.Set(-3, col, dVAL, -7);
  for (int col = -6; col < 6; ++col) grid.Set(-1, col, dVAL, -7);
  ColorTable table;
  table.SetRange(-10, 10, 2, false, false);
  RecordingDevice device;
  const Page view(-8, -8, 8, 8);
  const CoordinateSystem system(view, 5, 5);  // 3.2 cells a pixel: steps of 3
  DtmDrawProcessor processor;
  processor.SetDrawInfo(&device, system, view);
  processor.SetCellInfo(dVAL, &table);
  ASSERT_TRUE(processor.ProcessRect(grid.Access(), view));
  int fills = 0;
  for (const std::string& line : device.Lines()) fills += line.rfind("fill", 0) == 0 ? 1 : 0;
  EXPECT_EQ(fills, 4) << "row -3 at columns -6, -3, 0 and 3";
}

TEST(DtmDrawProcessor, CellsAtTheEdgeOfTheViewAreCut) {
  TestGrid grid;
  grid.Draw(
      "1 1 1 1\n"
      "1 1 1 1");
  ColorTable table;
  table.SetRange(0, 10, 1, false, false);
  RecordingDevice device;
  const Page view(0.5, 0.25, 2.5, 1.5);
  const CoordinateSystem system(Page(0, 0, 4, 4), 40, 40);
  DtmDrawProcessor processor;
  processor.SetDrawInfo(&device, system, view);
  processor.SetCellInfo(dVAL, &table);
  ASSERT_TRUE(processor.ProcessRect(grid.Access(), view));
  EXPECT_EQ(device.Text(),
            "pen 0 1 #fa0000\n"
            "fill 5 30 10 38 #000000\nfill 10 30 20 38 #000000\nfill 20 30 25 38 #000000\n"
            "fill 5 25 10 30 #000000\nfill 10 25 20 30 #000000\nfill 20 25 25 30 #000000\n"
            "pen 0 1 #000000\npen 0 1 #fa0000\npen 0 1 #000000\nbk #ffffff\n");
}

TEST(DtmDrawProcessor, ACellOutsideTheViewHasNoWeight) {
  Drawing drawing;
  drawing.Grid().Draw("-7");
  ASSERT_TRUE(drawing.Processor().Init(drawing.Grid().Access()));
  double weight = 1;
  EXPECT_TRUE(drawing.Processor().ProcessCell(100, 0, weight));
  EXPECT_EQ(weight, 0.0);
  weight = 1;
  EXPECT_TRUE(drawing.Processor().ProcessCell(0, 0, weight));
  EXPECT_EQ(weight, 1.0);
  EXPECT_TRUE(drawing.Processor().Fini());
}

TEST(DtmDrawProcessor, AreasWeighWhatTheViewShowsOfThem) {
  struct Case {
    const char* name;
    int row, col;
    double weight;
  };
  constexpr std::array<Case, 5> kCases = {{{"wholly in view", 0, 0, 16},
                                           {"partly in view", 0, 4, 8},
                                           {"without data", 4, 0, 0},
                                           {"none there", -4, 0, 0},
                                           {"out of view", 0, 8, 0}}};
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  grid.Set(0, 4, dVAL, 1);
  grid.Set(0, 8, dVAL, 1);
  grid.Access().GetArea(4, 0, true);
  ColorTable table;
  table.SetRange(0, 10, 1, false, false);
  RecordingDevice device;
  const Page view(0, 0, 6, 8);
  const CoordinateSystem system(view, 60, 80);
  DtmDrawProcessor processor;
  processor.SetDrawInfo(&device, system, view);
  processor.SetCellInfo(dVAL, &table);
  ASSERT_TRUE(processor.Init(grid.Access()));
  for (const Case& each : kCases) {
    SCOPED_TRACE(each.name);
    double weight = 123;
    EXPECT_TRUE(processor.ProcessArea(each.row, each.col, weight));
    EXPECT_EQ(weight, each.weight);
  }
  EXPECT_TRUE(processor.Fini());
}

TEST(DtmDrawProcessor, AStopEndsTheWalkAndStays) {
  Drawing drawing;
  drawing.Grid().Draw("-7 -7");
  drawing.Processor().SetStop(true);
  ASSERT_TRUE(drawing.Processor().Init(drawing.Grid().Access()));
  double weight = 1;
  EXPECT_FALSE(drawing.Processor().ProcessArea(0, 0, weight));
  EXPECT_FALSE(drawing.Processor().ProcessCell(0, 0, weight));
  EXPECT_TRUE(drawing.Processor().Fini());
  EXPECT_FALSE(drawing.Processor().ProcessLinearRect(drawing.Grid().Access(), drawing.View()));
  drawing.Processor().SetStop(false);
  EXPECT_EQ(drawing.Painted().size(), 2U);
}

TEST(DtmDrawProcessor, IsNotRunInParallel) {
  DtmDrawProcessor processor;
  EXPECT_EQ(processor.Clone(), nullptr);
}

}  // namespace
}  // namespace vak
