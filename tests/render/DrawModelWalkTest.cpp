#include <gtest/gtest.h>
#include <set>
#include <utility>

#include "vakdtm/render/DrawModel.h"
#include "vakdtm/services/device/CoordinateSystem.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// What a walk for a drawing shows: a model of 32 x 32 cells of 2 m around (0, 0), in areas of 8, through a view from
/// column -9 to 12 and from row -7 to 10.
class DrawModelWalk : public testing::Test {
 protected:
  static constexpr double kSize = 2.0;

  DrawModelWalk() {
    for (int row = -16; row < 16; ++row) {
      for (int col = -16; col < 16; ++col) grid_.Set(row, col, dVAL, row + col);
    }
    grid_.Leave();
  }

  /// @param rows,cols  that a pixel shows.
  bool Walk(WalkLog& log, double rows, double cols, bool showAreas) {
    const Page view(-9 * kSize, -7 * kSize, 13 * kSize, 11 * kSize);
    const CoordinateSystem system(Page(0, 0, 100 * cols * kSize, 100 * rows * kSize), 100, 100);
    return DrawModel(log, grid_.Access(), system, view, showAreas);
  }

  TestGrid grid_{{.cellSize = kSize, .areaSize = 8, .blockIds = {dVAL}}};
};

TEST_F(DrawModelWalk, OnlyCellsOfTheStepsAreShownEachOnceAndOfTheViewAll) {
  const std::pair<int, int> kSteps[] = {{3, 2}, {1, 2}, {4, 1}, {8, 8}};
  for (const auto& [rowStep, colStep] : kSteps) {
    for (const bool showAreas : {false, true}) {
      SCOPED_TRACE(testing::Message() << rowStep << " x " << colStep << (showAreas ? ", by areas" : ""));
      WalkLog log;
      ASSERT_TRUE(Walk(log, rowStep, colStep, showAreas));
      std::set<std::pair<int, int>> shown;
      for (const Call& call : log.Of(Call::kCell)) {
        EXPECT_EQ(call.row % rowStep, 0) << call;
        EXPECT_EQ(call.col % colStep, 0) << call;
        EXPECT_EQ(call.weight, kSize * kSize) << call;
        // Those that stand for the first row and column may lie before them by less than a step.
        EXPECT_TRUE(-7 - rowStep < call.row && call.row <= 11) << call;
        EXPECT_TRUE(-9 - colStep < call.col && call.col <= 13) << call;
        EXPECT_TRUE(shown.insert({call.row, call.col}).second) << call;
      }
      for (int row = -7; row <= 10; ++row) {
        for (int col = -9; col <= 12; ++col) {
          if (row % rowStep == 0 && col % colStep == 0) {
            EXPECT_TRUE(shown.contains({row, col})) << row << ' ' << col;
          }
        }
      }
      EXPECT_EQ(log.Of(Call::kArea).empty(), !showAreas);
      for (const Call& call : log.Of(Call::kArea)) EXPECT_EQ(call.weight, 64 * kSize * kSize) << call;
    }
  }
}

TEST_F(DrawModelWalk, AViewOfWholeCellsGoesByAreas) {
  WalkLog log;
  ASSERT_TRUE(Walk(log, 1, 1, false));
  EXPECT_EQ(log.Of(Call::kArea).size(), 3U * 4U);
  EXPECT_EQ(log.Of(Call::kCell).size(), 22U * 18U);
}

TEST_F(DrawModelWalk, ARowThatIsNotWantedIsPassedOver) {
  WalkLog log;
  log.react = [](const Call& call, double& /*weight*/) { return call.kind != Call::kRow || call.row != 3; };
  ASSERT_TRUE(Walk(log, 3, 2, true));
  int others = 0;
  for (const Call& call : log.Of(Call::kCell)) {
    EXPECT_NE(call.row, 3);
    ++others;
  }
  EXPECT_GT(others, 10);
}

TEST_F(DrawModelWalk, ACellThatEndsTheWalkEndsIt) {
  for (const bool showAreas : {false, true}) {
    WalkLog log;
    log.react = [&](const Call& call, double& /*weight*/) {
      return call.kind != Call::kCell || call.row < 0 || call.col < 0;
    };
    EXPECT_FALSE(Walk(log, 3, 2, showAreas));
    EXPECT_TRUE(log.Of(Call::kFini).empty());
    EXPECT_EQ(log.calls.back().kind, Call::kCell);
  }
}

}  // namespace
}  // namespace vak::test
