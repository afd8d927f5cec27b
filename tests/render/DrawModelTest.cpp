#include <algorithm>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/frame/DtmLinearRectProcessor.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/frame/DtmRectProcessor.h"
#include "vakdtm/render/DrawModel.h"
#include "vakdtm/render/DtmDrawProcessor.h"
#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/device/ImageDevice.h"

#include "support/LongForm.h"
#include "support/RandomSeed.h"
#include "support/RecordingDevice.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::RecordingDevice;
using test::TestGrid;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// How a picture is set up, but for what it is drawn on.
struct Look {
  int block = dVAL;
  bool sun = false;
  double azimuth = 135;
  double elevation = 30;
  bool gradient = false;
  bool frames = false;

  void PutInto(DtmDrawProcessor& processor, const ColorTable& table) const {
    processor.SetCellInfo(block, &table);
    processor.SetSunIllumination(sun, azimuth, elevation, 2.0);
    processor.SetGradientMode(gradient);
    processor.SetMarkInfo(nullptr, 250, frames);
  }
};

ColorTable TableFor(const Look& look) {
  ColorTable table;
  EXPECT_TRUE(MakeColorTable("depth", look.block == dVAL ? -40 : 0, look.block == dVAL ? 0 : 30, table));
  return table;
}

/// A model of 1 m cells, with holes and areas that aren't there, around (0, 0).
std::unique_ptr<TestGrid> MakeModel(std::mt19937_64& random, int areaSize, int reach) {
  auto grid = std::make_unique<TestGrid>(GridSettings{.cellSize = 1.0, .areaSize = areaSize, .blockIds = {dVAL, iNUM}});
  const auto holes = random() % 4;
  for (int bottom = -reach; bottom < reach; bottom += areaSize) {
    for (int left = -reach; left < reach; left += areaSize) {
      if (random() % 5 == 0) continue;
      for (int row = bottom; row < bottom + areaSize; ++row) {
        for (int col = left; col < left + areaSize; ++col) {
          if (random() % 10 < holes) continue;
          grid->Set(row, col, dVAL, -20 + 15 * std::sin(row * 0.21) * std::cos(col * 0.17));
          if (random() % 3 != 0) grid->Set(row, col, iNUM, static_cast<double>(random() % 30));
        }
      }
    }
  }
  grid->Reopen();
  return grid;
}

/// Draws into an image of the view. @param walk  does it, given the processor.
template <typename Walk>
void Draw(ImageDevice& image, const Look& look, const Page& view, int width, int height, Walk walk) {
  ASSERT_TRUE(image.Create(width, height));
  const CoordinateSystem system(view, width, height);
  const ColorTable table = TableFor(look);
  DtmDrawProcessor processor;
  processor.SetDrawInfo(&image, system, view);
  look.PutInto(processor, table);
  ASSERT_TRUE(walk(processor, system));
}

/// @param edge  how many columns at the left and rows at the bottom aren't compared.
/// @return where two images first differ; empty when they don't.
std::string Difference(const ImageDevice& one, const ImageDevice& other, int width, int height, int edge) {
  for (int y = 0; y < height - edge; ++y) {
    for (int x = edge; x < width; ++x) {
      if (one.GetPixel(x, y) != other.GetPixel(x, y)) return std::to_string(x) + ", " + std::to_string(y);
    }
  }
  return "";
}

int CountPainted(const ImageDevice& image, int width, int height) {
  int painted = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) painted += image.GetPixel(x, y) != 0xFFFFFF ? 1 : 0;
  }
  return painted;
}

/// However a model is walked, every pixel is the same.
TEST(DrawModel, ThePictureIsTheSameInEveryWay) {
  const std::uint64_t seed = RandomSeed();
  std::mt19937_64 random(seed);
  const auto pick = [&](double low, double high) {
    return low + (high - low) * static_cast<double>(random() % 100000) / 100000;
  };
  int painted = 0;
  int far = 0;
  for (int round = 0; round < LongForm(40, 1500, 12); ++round) {
    SCOPED_TRACE("rerun with --gtest_random_seed=" + std::to_string(seed) + ", round " + std::to_string(round));
    const int areaSize = 4 << random() % 3;
    const auto grid = MakeModel(random, areaSize, areaSize * static_cast<int>(2 + random() % 4));
    for (int picture = 0; picture < 4; ++picture) {
      const int step = picture == 0 ? 1 : static_cast<int>(1 + random() % 14);
      const Look look{.block = random() % 4 == 0 ? iNUM : dVAL,
                      .sun = random() % 3 != 0,
                      .azimuth = pick(0, 360),
                      .elevation = pick(10, 80),
                      .gradient = random() % 5 == 0};
      // Cells a pixel: just the step, or up to a cell more. Views on the grid of steps, or anywhere.
      const bool aligned = random() % 2 == 0;
      const double perPixel = step == 1 && picture == 0 ? pick(0.15, 0.9) : aligned ? step : step + pick(0, 0.9);
      const int width = static_cast<int>(20 + random() % 30);
      const int height = static_cast<int>(20 + random() % 30);
      const double left = aligned ? -step * static_cast<double>(random() % 20) : pick(-40, 10);
      const double bottom = aligned ? -step * static_cast<double>(random() % 20) : pick(-40, 10);
      const Page view(left, bottom, left + width * perPixel, bottom + height * perPixel);

      ImageDevice plain;
      ImageDevice byAreas;
      ImageDevice all;
      Draw(plain, look, view, width, height, [&](DtmDrawProcessor& processor, const CoordinateSystem& system) {
        return DrawModel(processor, grid->Access(), system, view, false);
      });
      EXPECT_FALSE(grid->Access().SetSparseReading(false)) << "as it was";
      Draw(byAreas, look, view, width, height, [&](DtmDrawProcessor& processor, const CoordinateSystem& system) {
        return DrawModel(processor, grid->Access(), system, view, true);
      });
      // All cells of the steps, and more than the view shows, from whole blocks.
      const double more = 3 * step;
      const Page wide(view.left() - more, view.bottom() - more, view.right() + more, view.top() + more);
      Draw(all, look, view, width, height, [&](DtmDrawProcessor& processor, const CoordinateSystem& /*system*/) {
        return processor.ProcessLinearRect(grid->Access(), wide);
      });
      EXPECT_EQ(Difference(plain, all, width, height, 0), "") << perPixel << " cells a pixel";
      // A cell that stands for the first ones of a view may lie in an area that the view doesn't show.
      EXPECT_EQ(Difference(byAreas, all, width, height, aligned || step == 1 ? 0 : 1), "")
          << perPixel << " cells a pixel";
      painted += CountPainted(all, width, height);
      far += step >= 8 ? 1 : 0;
      if (testing::Test::HasFailure()) return;
    }
  }
  EXPECT_GT(painted, 1000);
  EXPECT_GT(far, 5);
}

/// The operations themselves, frames and all, are those of the walk by areas.
TEST(DrawModel, FarOutAreasAreShownAsByTheWalkThatShowsAllCells) {
  std::mt19937_64 random(1);
  const auto grid = MakeModel(random, 8, 32);
  for (const int step : {2, 3, 8, 11, 40}) {
    SCOPED_TRACE(step);
    const Page view(-3 * step, -3 * step, 4 * step, 4 * step);
    const CoordinateSystem system(view, 7, 7);
    const Look look{.sun = true, .frames = true};
    const ColorTable table = TableFor(look);
    std::vector<std::string> drawn[2];
    for (int way = 0; way < 2; ++way) {
      RecordingDevice device;
      DtmDrawProcessor processor;
      processor.SetDrawInfo(&device, system, view);
      look.PutInto(processor, table);
      ASSERT_TRUE(way == 0 ? DrawModel(processor, grid->Access(), system, view, true)
                           : processor.ProcessRect(grid->Access(), view));
      for (const std::string& line : device.Lines()) drawn[way].push_back(line);
    }
    EXPECT_EQ(drawn[0], drawn[1]);
    EXPECT_GT(drawn[0].size(), 10u);
  }
}

TEST(DrawModel, APolygonLimitsAPictureFarOutToo) {
  std::mt19937_64 random(2);
  const auto grid = MakeModel(random, 8, 64);
  for (const double perPixel : {0.5, 3.0, 9.0}) {
    SCOPED_TRACE(perPixel);
    const Page view(-54, -54, 54, 54);
    const int side = static_cast<int>(108 / perPixel);
    const CoordinateSystem system(view, side, side);
    const ColorTable table = TableFor({});
    double triangle[] = {-50.3, -40.1, 44.7, -20.2, 5.1, 48.9};
    ImageDevice images[2];
    for (int way = 0; way < 2; ++way) {
      ASSERT_TRUE(images[way].Create(side, side));
      DtmMultiProcessor chain;
      auto clipper = std::make_unique<DtmPolyClipper>(PolyClipLine(), true, false);
      ASSERT_TRUE(clipper->Set2D(triangle, 3));
      chain.AddProcessor(clipper.release());
      auto processor = std::make_unique<DtmDrawProcessor>();
      processor->SetDrawInfo(&images[way], system, view);
      processor->SetCellInfo(dVAL, &table);
      chain.AddProcessor(processor.release());
      ASSERT_TRUE(way == 0 ? DrawModel(chain, grid->Access(), system, view, true)
                           : chain.ProcessRect(grid->Access(), view));
    }
    EXPECT_EQ(Difference(images[0], images[1], side, side, 0), "");
    const int painted = CountPainted(images[0], side, side);
    EXPECT_GT(painted, side * side / 10);
    EXPECT_LT(painted, side * side / 2);
  }
}

/// What is read of the file, in bytes, and how many cells are looked at.
struct Cost {
  std::uint64_t bytes = 0;
  int fills = 0;
};

Cost CostOf(TestGrid& grid, double cells, int pixels, bool sun, bool showAreas) {
  grid.Reopen();
  const Page view(0, 0, cells, cells);
  const CoordinateSystem system(view, pixels, pixels);
  const Look look{.sun = sun};
  const ColorTable table = TableFor(look);
  RecordingDevice device;
  DtmDrawProcessor processor;
  processor.SetDrawInfo(&device, system, view);
  look.PutInto(processor, table);
  const std::uint64_t before = grid.Memory().counts.bytesRead;
  EXPECT_TRUE(DrawModel(processor, grid.Access(), system, view, showAreas));
  Cost cost{.bytes = grid.Memory().counts.bytesRead - before};
  for (const std::string& line : device.Lines()) cost.fills += line.rfind("fill", 0) == 0 ? 1 : 0;
  return cost;
}

TEST(DrawModel, AViewFarOutCostsItsPixels) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL}});
  for (int row = 0; row < 256; ++row) {
    for (int col = 0; col < 256; ++col) grid.Set(row, col, dVAL, -row - col);
  }
  constexpr std::uint64_t kAllCells = 256 * 256 * sizeof(double);
  for (const bool showAreas : {false, true}) {
    const Cost near = CostOf(grid, 256, 256, false, showAreas);
    EXPECT_EQ(near.fills, 256 * 256);
    EXPECT_LT(near.bytes, kAllCells + 4096) << "each block once";
    const Cost far = CostOf(grid, 256, 16, false, showAreas);
    EXPECT_EQ(far.fills, 16 * 16);
    EXPECT_LT(far.bytes, kAllCells / 16 + 4096) << "a row of each sixteen";
    const Cost lit = CostOf(grid, 256, 16, true, showAreas);
    EXPECT_LT(lit.bytes, 2 * kAllCells / 16 + 4096) << "and those beside them, once";
  }
}

TEST(DrawModel, LeavesNoBlockInMemoryBehindAViewFarOut) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL}});
  for (int at = 0; at < 256; ++at) grid.Set(at, at, dVAL, -at);
  CostOf(grid, 256, 16, true, false);
  for (int at = 0; at < 256; at += 64) {
    DtmArea* const area = grid.Area(at, at);
    const std::scoped_lock lock(area->Mutex());
    EXPECT_EQ(area->FindDataBlockAt(0)->CellData(), nullptr);
  }
}

TEST(DrawModel, AViewWithoutEndShowsTheWholeModel) {
  std::mt19937_64 random(3);
  const auto grid = MakeModel(random, 8, 24);
  const Page endless(-kInfinity, -kInfinity, kInfinity, kInfinity);
  for (const double perPixel : {1.0, 4.0}) {
    const int side = static_cast<int>(48 / perPixel);
    const CoordinateSystem system(Page(-24, -24, 24, 24), side, side);
    const ColorTable table = TableFor({});
    for (const bool showAreas : {false, true}) {
      RecordingDevice device;
      DtmDrawProcessor processor;
      processor.SetDrawInfo(&device, system, endless);
      processor.SetCellInfo(dVAL, &table);
      EXPECT_TRUE(DrawModel(processor, grid->Access(), system, endless, showAreas));
      EXPECT_GT(device.Lines().size(), 50u);
    }
  }
}

TEST(DrawModel, AViewThatIsNoneShowsNothing) {
  TestGrid grid;
  grid.Draw("-1 -2");
  const CoordinateSystem system(Page(0, 0, 100, 100), 10, 10);
  const ColorTable table = TableFor({});
  for (const bool showAreas : {false, true}) {
    RecordingDevice device;
    DtmDrawProcessor processor;
    const Page none;
    processor.SetDrawInfo(&device, system, none);
    processor.SetCellInfo(dVAL, &table);
    EXPECT_TRUE(DrawModel(processor, grid.Access(), system, none, showAreas));
    EXPECT_EQ(device.Text(), "pen 0 1 #fa0000\npen 0 1 #000000\npen 0 1 #fa0000\npen 0 1 #000000\nbk #ffffff\n");
  }
}

TEST(DrawModel, AnswersAsTheWalkDoes) {
  TestGrid grid;
  grid.Draw("-1 -2");
  const Page view(0, 0, 100, 100);
  for (const int side : {10, 1000}) {
    const CoordinateSystem system(view, side, side);
    const ColorTable table = TableFor({});
    for (const bool showAreas : {false, true}) {
      RecordingDevice device;
      DtmDrawProcessor processor;
      EXPECT_FALSE(DrawModel(processor, grid.Access(), system, view, showAreas)) << "nothing to draw";
      processor.SetDrawInfo(&device, system, view);
      processor.SetCellInfo(dVAL, &table);
      DtmAccess nowhere(nullptr);
      EXPECT_FALSE(DrawModel(processor, nowhere, system, view, showAreas)) << "no model";
      EXPECT_TRUE(DrawModel(processor, grid.Access(), system, view, showAreas));
      processor.SetStop(true);
      if (side == 10 && !showAreas) {
        EXPECT_FALSE(DrawModel(processor, grid.Access(), system, view, showAreas)) << "stopped";
      }
    }
  }
}

}  // namespace
}  // namespace vak
