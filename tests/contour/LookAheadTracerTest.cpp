#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "vakdtm/contour/LookAheadTracer.h"
#include "vakdtm/frame/AreaExtMap.h"
#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/store/DtmAccess.h"

#include "contour/RandomModel.h"
#include "contour/TracedLines.h"
#include "support/LongForm.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

const std::atomic<bool> kRunning{true};

template <typename Tracer>
reference::Lines<reference::Point2> Trace(TestGrid& grid, const PolyClipLine& polygon, double level, int block,
                                          AreaExtMap& map) {
  Tracer tracer(polygon, level, block, kRunning);
  tracer.SetAreaExtMap(&map);
  DtmCellProcessor(&grid.Access(), &tracer, false).Process();
  return Plain(tracer.GetList());
}

TEST(LookAheadTracer, GivesTheLinesOfTheTracerThatGoesThroughEverySquare) {
  std::size_t found = 0;
  const int rounds = LongForm(600, 20000);
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    RandomModel random(static_cast<unsigned>(7000 + round));
    const int block = std::vector<int>{dVAL, dMIN, dMAX}[static_cast<std::size_t>(round % 3)];
    const ModelPlan plan = random.Plan(block, round % 2 == 0 ? RandomModel::Values::kPlain : RandomModel::Values::kOdd);
    const PolyClipLine polygon = random.Polygon(plan);
    const std::unique_ptr<TestGrid> grid = plan.Make();
    AreaExtMap plainMap;
    AreaExtMap aheadMap;
    // The first level learns ranges, looking at every square; the others look ahead.
    for (int level = 0; level < 4; ++level) {
      const double height = random.Level(plan);
      const auto wanted = Trace<DtmContourLevelProc>(*grid, polygon, height, block, plainMap);
      EXPECT_EQ(Difference(Trace<LookAheadTracer>(*grid, polygon, height, block, aheadMap), wanted), "");
      if (level > 0) found += wanted.size();
    }
  }
  EXPECT_GT(found, static_cast<std::size_t>(rounds));
}

TEST(LookAheadTracer, PassesRowsThatTheLevelMissesAndOnlyThose) {
  TestGrid grid;
  grid.Draw(
      "1 1 1 1\n"
      "1 1 1 1\n"
      "5 5 5 5\n"
      "5 5 5 5\n");
  const int size = grid.File().AreaSize();
  AreaExtMap map;
  Trace<LookAheadTracer>(grid, PolyClipLine(), 3, dVAL, map);
  LookAheadTracer tracer(PolyClipLine(), 3, dVAL, kRunning);
  tracer.SetAreaExtMap(&map);
  ASSERT_TRUE(tracer.Init(grid.Access()));
  double weight = 1.0;
  ASSERT_TRUE(tracer.ProcessArea(0, 0, weight));
  // Where its cells are isn't known before the first square of the area was read.
  EXPECT_TRUE(tracer.InitRow(0, 0, size));
  EXPECT_TRUE(tracer.ProcessCell(0, 0, weight));
  EXPECT_TRUE(tracer.InitRow(1, 0, size)) << "the level lies in between";
  EXPECT_FALSE(tracer.InitRow(2, 0, size));
  EXPECT_TRUE(tracer.InitRow(3, 0, size)) << "it needs the cells of the area above";
  EXPECT_FALSE(tracer.InitRow(0, 0, size));
}

TEST(LookAheadTracer, StopsWhereTheOtherWouldAlsoAmongSquaresThatItHasSeen) {
  TestGrid grid;
  grid.Draw(
      "1 1 1 1\n"
      "1 1 1 1\n"
      "1 1 1 1\n"
      "1 1 5 1\n");
  AreaExtMap map;
  Trace<LookAheadTracer>(grid, PolyClipLine(), 3, dVAL, map);
  std::atomic<bool> running{true};
  LookAheadTracer tracer(PolyClipLine(), 3, dVAL, running);
  tracer.SetAreaExtMap(&map);
  ASSERT_TRUE(tracer.Init(grid.Access()));
  double weight = 1.0;
  ASSERT_TRUE(tracer.ProcessArea(0, 0, weight));
  EXPECT_TRUE(tracer.ProcessCell(1, 0, weight));
  EXPECT_TRUE(tracer.ProcessCell(1, 0, weight));
  running = false;
  EXPECT_TRUE(tracer.InitRow(2, 0, grid.File().AreaSize())) << "so that a square is asked for";
  EXPECT_FALSE(tracer.ProcessCell(1, 1, weight));
}

}  // namespace
}  // namespace vak::test
