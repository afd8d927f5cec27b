// A job on a model that another thread writes to.
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <string>
#include <thread>

#include "vakdtm/analysis/DtmMinMaxZ.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/GridStreamLog.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr int kAreas = 8;
constexpr int kSide = 16;

TEST(DtmMinMaxZThreadTest, NoHeightIsLostBesideAWriter) {
  TestGrid grid({.cellSize = 1.0, .areaSize = kSide, .blockIds = {dVAL, iNUM}});
  for (int i = 0; i < kAreas; ++i) grid.Set(i * kSide, 0, dVAL, -100.0);
  grid.ReopenByWalk();  // the ranges aren't known
  const TestFolder folder;
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  std::latch start(2);
  bool done = false;
  std::thread runner([&] {
    start.arrive_and_wait();
    done = job.Process();
  });
  start.arrive_and_wait();
  // Each cell a height of its own, ever deeper and ever higher; the last to be written are the limits.
  for (int cell = 1; cell < kSide * kSide; ++cell) {
    for (int i = 0; i < kAreas; ++i) {
      const double z = -100.0 + (cell % 2 == 0 ? cell : -cell) - i;
      const int row = i * kSide + cell / kSide;
      ASSERT_TRUE(grid.Sound(cell % kSide + 0.5, row + 0.5, z));
    }
  }
  runner.join();
  ASSERT_TRUE(done);
  for (int i = 0; i < kAreas; ++i) {
    SCOPED_TRACE("area " + std::to_string(i));
    float low = 0;
    float high = 0;
    ASSERT_TRUE(grid.Area(i * kSide, 0)->GetMinMaxZ(low, high));
    EXPECT_EQ(low, static_cast<float>(-100 - (kSide * kSide - 1) - i));
    EXPECT_EQ(high, static_cast<float>(-100 + (kSide * kSide - 2) - i));
  }
  SmartFileImpl file;
  ColorTable table;
  ASSERT_TRUE(file.FileOpen(kColorTableFile, folder.WideFile("table")));
  ASSERT_TRUE(table.FileOpen(file.GetFileObject()));
  // As many of the heights as were there when the job came by, those from before the start among them.
  EXPECT_LE(table.Classes().front().lower, -100.0);
  EXPECT_GE(table.Classes().front().lower, -100.0 - kSide * kSide - kAreas);
  EXPECT_GE(table.End(), -100.0);
}

}  // namespace
}  // namespace vak::test
