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
  const int rounds = LongForm(600, 20000, 200);
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

/// A grid of two heights with the level between them, and a map that knows its ranges.
class TwoHeights {
 public:
  TwoHeights() {
    grid_.Draw(
        "1 1 1 1\n"
        "1 5 1 1\n"
        "1 1 1 1\n"
        "1 1 1 1\n");
    Trace<LookAheadTracer>(grid_, PolyClipLine(), 3, dVAL, map_);
  }

  /// Announces the area. @return what is left for the walker.
  double Announce(LookAheadTracer& tracer, bool& answer) {
    tracer.SetAreaExtMap(&map_);
    EXPECT_TRUE(tracer.Init(grid_.Access()));
    double weight = 1.0;
    answer = tracer.ProcessArea(0, 0, weight);
    return weight;
  }
  AreaExtMap& Map() { return map_; }

 private:
  TestGrid grid_;
  AreaExtMap map_;
};

TEST(LookAheadTracer, LeavesTheWalkerNothingOfAnAreaWhoseRangeIsKnown) {
  TwoHeights model;
  bool answer = false;
  LookAheadTracer tracer(PolyClipLine(), 3, dVAL, kRunning);
  EXPECT_EQ(model.Announce(tracer, answer), 0.0);
  EXPECT_TRUE(answer);
  EXPECT_TRUE(tracer.Fini());
  ASSERT_EQ(tracer.GetList().size(), 1U);
  EXPECT_EQ(tracer.GetList()[0].NumPoints(), 5);
}

TEST(LookAheadTracer, LeavesTheWalkerTheAreaWhereThereAreRangesToLearn) {
  TwoHeights model;
  bool answer = false;
  LookAheadTracer extents(PolyClipLine(), 3, dVAL, kRunning);
  extents.SetUpdateExtents(true);
  EXPECT_GT(model.Announce(extents, answer), 0.0);
  model.Map().Clear();
  LookAheadTracer tracer(PolyClipLine(), 3, dVAL, kRunning);
  EXPECT_GT(model.Announce(tracer, answer), 0.0);
  EXPECT_TRUE(answer);
}

TEST(LookAheadTracer, LeavesTheStopToTheWalkersFirstSquare) {
  TwoHeights model;
  bool answer = false;
  const std::atomic<bool> stopped{false};
  LookAheadTracer tracer(PolyClipLine(), 3, dVAL, stopped);
  EXPECT_GT(model.Announce(tracer, answer), 0.0);
  EXPECT_TRUE(answer);
  double weight = 1.0;
  EXPECT_FALSE(tracer.ProcessCell(0, 0, weight));
}

}  // namespace
}  // namespace vak::test
