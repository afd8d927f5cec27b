#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/render/DtmDrawProcessor.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CoordinateSystem.h"

#include "support/RecordingDevice.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::RecordingDevice;
using test::TestGrid;

/// A drawing with what is a subclass's alone in the open.
class OpenDrawing : public DtmDrawProcessor {
 public:
  using DtmDrawProcessor::Access;
};

/// Marks every cell.
class All : public DtmProcessor {
 public:
  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*weight*/) override { return true; }
};

/// A model drawn a cell at a time, where sizes, steps and angles are as large as they get. Values are blue below 0 and
/// red above.
class DrawingLimits : public testing::Test {
 protected:
  DrawingLimits() { table_.SetClasses({{-1e6, 0xC08080, 0xC08080, L""}, {0, 0x8080C0, 0x8080C0, L""}}, 1e6); }

  void Look(const Page& view, int width, int height) {
    view_ = view;
    system_ = CoordinateSystem(view, width, height);
    drawing_.SetDrawInfo(&device_, system_, view_);
    drawing_.SetCellInfo(dVAL, &table_);
  }
  /// What happens to the device at a cell, in a walk that shows no areas.
  std::vector<std::string> DrawnAt(TestGrid& grid, int row, int col) {
    EXPECT_TRUE(drawing_.Init(grid.Access()));
    device_.Clear();
    double weight = 1.0;
    EXPECT_TRUE(drawing_.ProcessCell(row, col, weight));
    const std::vector<std::string> drawn = device_.Lines();
    EXPECT_TRUE(drawing_.Fini());
    return drawn;
  }

  RecordingDevice device_;
  ColorTable table_;
  Page view_;
  CoordinateSystem system_;
  OpenDrawing drawing_;
};

using Lines = std::vector<std::string>;

TEST_F(DrawingLimits, TheAccessIsHeldForTheWalkAlone) {
  TestGrid grid;
  Look({0, 0, 4, 4}, 40, 40);
  EXPECT_EQ(drawing_.Access(), nullptr);
  ASSERT_TRUE(drawing_.Init(grid.Access()));
  EXPECT_EQ(drawing_.Access(), &grid.Access());
  ASSERT_TRUE(drawing_.Fini());
  EXPECT_EQ(drawing_.Access(), nullptr);
}

TEST_F(DrawingLimits, AnAzimuthThatIsNoneIsNorth) {
  TestGrid grid;
  grid.Draw(
      "1 9\n"
      "5 2");
  Look({0, 0, 2, 2}, 20, 20);
  drawing_.SetSunIllumination(true, 0, 45, 1);
  const Lines north = DrawnAt(grid, 0, 0);
  drawing_.SetSunIllumination(true, 90, 45, 1);
  EXPECT_NE(DrawnAt(grid, 0, 0), north);
  for (const double azimuth : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity()}) {
    drawing_.SetSunIllumination(true, azimuth, 45, 1);
    EXPECT_EQ(DrawnAt(grid, 0, 0), north) << azimuth;
  }
}

TEST_F(DrawingLimits, CellsOfMorePixelsThanCanBeCountedAreNotSmall) {
  TestGrid grid;
  grid.Draw("5");
  DtmMultiProcessor marks;
  marks.AddProcessor(new All);
  drawing_.SetMarkInfo(&marks, 250, false);
  // A cell in the corner of which the whole picture lies, without the stroke across its middle.
  Look({0, 0, 1e-9, 1e-9}, 100, 100);
  EXPECT_EQ(DrawnAt(grid, 0, 0), Lines({"fill 0 0 100 100 #c08080"}));
}

TEST_F(DrawingLimits, MoreCellsInAPixelThanCanBeCountedAreOneCell) {
  TestGrid grid;
  grid.Draw(
      "3 7\n"
      "5 2");
  Look({0, 0, 1e12, 1e12}, 1, 1);
  EXPECT_EQ(DrawnAt(grid, 1, 0), Lines());
  EXPECT_EQ(DrawnAt(grid, 0, 1), Lines());
  EXPECT_EQ(DrawnAt(grid, 0, 0).size(), 1U) << "nothing of so large a picture, but painted";
}

/// Two steps beyond the largest row there is, counted on, would be a row below 0.
TEST_F(DrawingLimits, NeighboursBeyondTheLastRowAreNone) {
  constexpr int kStep = 3 << 29;
  constexpr int kWrapped = -(1 << 30);
  static_assert(kWrapped == static_cast<int>(2U * kStep));
  TestGrid grid;
  for (const int far : {kStep, kWrapped}) {
    ASSERT_TRUE(grid.Set(far, 0, dVAL, far));
    ASSERT_TRUE(grid.Set(0, far, dVAL, far));
  }
  const double side = kStep + 0.5;
  Look({0, 0, 2, 2 * side}, 2, 2);
  drawing_.SetSunIllumination(true, 0, 45, 1);
  EXPECT_EQ(DrawnAt(grid, kStep, 0), Lines({"fill 0 0 1 1 #c08080"}));
  Look({0, 0, 2 * side, 2}, 2, 2);
  drawing_.SetSunIllumination(true, 90, 45, 1);
  EXPECT_EQ(DrawnAt(grid, 0, kStep), Lines({"fill 1 1 2 2 #c08080"}));
}

/// By the scale first, then by the cell size: a product of the two may lie on the other side of a whole number.
TEST_F(DrawingLimits, StepsAreCutOffAsTheyAreDivided) {
  TestGrid grid({.cellSize = 0.1, .areaSize = 16, .blockIds = {dVAL}});
  for (int cell = 0; cell < 16; ++cell) ASSERT_TRUE(grid.Set(cell, cell, dVAL, 5));
  Look({0, 0, 36 * 0.1, 36 * 0.1}, 4, 4);
  EXPECT_EQ(DrawnAt(grid, 8, 8).size(), 1U);
  EXPECT_EQ(DrawnAt(grid, 9, 9).size(), 0U);
}

}  // namespace
}  // namespace vak
