#include <algorithm>
#include <atomic>
#include <cstddef>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/contour/DtmContourLevelProc.h"
#include "vakdtm/contour/DtmOutlineProc.h"

#include "contour/RandomModel.h"
#include "contour/ReferenceTracer.h"
#include "contour/TracedLines.h"
#include "support/LongForm.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

using Values = RandomModel::Values;

/// A library's tracer with the operations of the plain ones.
template <typename Tracer>
class Shown {
 public:
  explicit Shown(Tracer& tracer) : tracer_(tracer) {}
  void Area(int row, int col, double& weight) { EXPECT_TRUE(tracer_.ProcessArea(row, col, weight)); }
  bool Cell(int row, int col) {
    double weight = 1.0;
    return tracer_.ProcessCell(row, col, weight);
  }
  void Finish() { EXPECT_TRUE(tracer_.Fini()); }

 private:
  Tracer& tracer_;
};

/// Lowers the run flag before the call with this number, and goes on with the areas behind it as far as it may.
template <typename Tracer>
class Stopping {
 public:
  Stopping(Tracer& tracer, std::atomic<bool>& running, int at) : tracer_(tracer), running_(running), at_(at) {}
  void Area(int row, int col, double& weight) {
    Count();
    tracer_.Area(row, col, weight);
  }
  bool Cell(int row, int col) {
    Count();
    return tracer_.Cell(row, col);
  }
  void Finish() {
    Count();
    tracer_.Finish();
  }

 private:
  void Count() {
    if (at_-- == 0) running_ = false;
  }

  Tracer& tracer_;
  std::atomic<bool>& running_;
  int at_;
};

void ExpectSameRange(AreaExt& range, const AreaExt& expected) {
  ASSERT_EQ(range.IsValid(), expected.IsValid());
  if (!range.IsValid()) return;
  EXPECT_EQ(range.Min(), expected.Min());
  EXPECT_EQ(range.Max(), expected.Max());
}

void ExpectExtents(const GTL::Extents3D<double>& extents, const std::vector<reference::Point3>& seen) {
  GTL::Extents3D<double> expected;
  for (const auto& [x, y, z] : seen) expected.Update(GTL::Point3D<double>{x, y, z});
  EXPECT_EQ(extents, expected);
}

/// Both tracers beside plain ones that compare everything with everything: the same lines, point by point, in the same
/// order.
class TracingPropertyTest : public testing::TestWithParam<int> {
 protected:
  static int BlockOf(int round) { return std::vector<int>{dVAL, dMIN, dMAX}[static_cast<std::size_t>(round % 3)]; }

  std::size_t lines_ = 0;
  std::size_t closed_ = 0;
  std::size_t long_ = 0;

  template <typename P>
  void Count(const reference::Lines<P>& lines) {
    lines_ += lines.size();
    for (const auto& line : lines) {
      closed_ += line.size() > 2 && line.front() == line.back() ? 1 : 0;
      long_ += line.size() > 20 ? 1 : 0;
    }
  }
};

TEST_F(TracingPropertyTest, ContoursAreThoseOfThePlainTracer) {
  const int rounds = LongForm(400, 20000, 130);
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    RandomModel random(static_cast<unsigned>(round));
    const int block = BlockOf(round);
    const ModelPlan plan = random.Plan(block, round % 2 == 0 ? Values::kPlain : Values::kOdd);
    const auto grid = plan.Make();
    const PolyClipLine polygon = random.Polygon(plan);
    AreaExtMap ranges;
    reference::Ranges plainRanges;
    for (int levels = random.Pick(1, 4); levels > 0; --levels) {
      const double level = random.Level(plan);
      const std::atomic<bool> running{true};
      DtmContourLevelProc tracer(polygon, level, block, running);
      tracer.SetAreaExtMap(&ranges);
      tracer.SetUpdateExtents(random.Chance(0.5));
      ASSERT_TRUE(tracer.ProcessAllCells(grid->Access()));
      reference::ContourTracer plain(grid->Access(), polygon, level, block, running, plainRanges);
      ASSERT_TRUE(reference::WalkAll(plain, grid->File()));
      ASSERT_EQ(Difference(Plain(tracer.GetList()), plain.joining.border), "") << "level " << level;
      if (tracer.GetUpdateExtents()) ExpectExtents(tracer.Extents(), plain.seen);
      Count(plain.joining.border);
    }
    for (const auto& [area, range] : plainRanges) ExpectSameRange(ranges[area], range);
  }
  // It wasn't idle.
  EXPECT_GT(lines_, static_cast<std::size_t>(rounds) * 10);
  EXPECT_GT(closed_, static_cast<std::size_t>(rounds));
  EXPECT_GT(long_, static_cast<std::size_t>(rounds) / 4);
}

TEST_F(TracingPropertyTest, OutlinesAreThoseOfThePlainTracer) {
  const int rounds = LongForm(400, 20000, 130);
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    RandomModel random(static_cast<unsigned>(round));
    const int block = BlockOf(round);
    const ModelPlan plan = random.Plan(block, round % 2 == 0 ? Values::kPlain : Values::kOdd);
    const auto grid = plan.Make();
    const PolyClipLine polygon = random.Polygon(plan);
    AreaExtMap ranges;
    reference::Ranges plainRanges;
    for (const auto& [row, col] : plan.areas) {
      if (!random.Chance(0.1)) continue;
      for (int i = 0; i < 2; ++i) {
        const double value = random.Pick(-2, 2);
        ranges[grid->Area(row, col)] += value;
        plainRanges[grid->Area(row, col)] += value;
      }
    }
    const std::atomic<bool> running{true};
    DtmOutlineProc tracer(polygon, block, running);
    tracer.SetAreaExtMap(&ranges);
    tracer.SetUpdateExtents(true);
    ASSERT_TRUE(tracer.ProcessAllCells(grid->Access()));
    reference::OutlineTracer plain(grid->Access(), polygon, block, running, plainRanges);
    ASSERT_TRUE(reference::WalkAll(plain, grid->File()));
    ASSERT_EQ(Difference(Plain(tracer.GetList()), plain.joining.border), "");
    ExpectExtents(tracer.Extents(), plain.seen);
    Count(plain.joining.border);
  }
  EXPECT_GT(lines_, static_cast<std::size_t>(rounds) * 5);
  EXPECT_GT(closed_, static_cast<std::size_t>(rounds) / 2);
  EXPECT_GT(long_, static_cast<std::size_t>(rounds) / 2);
}

// Where a run ends, what it leaves in its result is the plain tracer's too.
TEST_F(TracingPropertyTest, StoppedRunsLeaveWhatThePlainTracersLeave) {
  const int rounds = LongForm(300, 10000, 100);
  int cut = 0;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    RandomModel random(static_cast<unsigned>(round));
    const int block = BlockOf(round);
    const ModelPlan plan = random.Plan(block, Values::kPlain);
    const auto grid = plan.Make();
    const PolyClipLine polygon = random.Polygon(plan);
    const double level = random.Level(plan);
    const int at = random.Pick(0, 400);
    const auto compare = [&](auto& tracer, auto& plain, std::atomic<bool>& running) {
      AreaExtMap ranges;
      tracer.SetAreaExtMap(&ranges);
      ASSERT_TRUE(tracer.Init(grid->Access()));
      Shown shown(tracer);
      Stopping stopping(shown, running, at);
      const bool ended = reference::WalkAll(stopping, grid->File());
      running = true;
      Stopping plainStopping(plain, running, at);
      ASSERT_EQ(reference::WalkAll(plainStopping, grid->File()), ended);
      ASSERT_EQ(Difference(Plain(tracer.GetList()), plain.joining.border), "");
      if (!ended && !plain.joining.border.empty()) ++cut;
    };
    std::atomic<bool> running{true};
    reference::Ranges contourRanges;
    DtmContourLevelProc contour(polygon, level, block, running);
    reference::ContourTracer plainContour(grid->Access(), polygon, level, block, running, contourRanges);
    compare(contour, plainContour, running);
    running = true;
    reference::Ranges outlineRanges;
    DtmOutlineProc outline(polygon, block, running);
    reference::OutlineTracer plainOutline(grid->Access(), polygon, block, running, outlineRanges);
    compare(outline, plainOutline, running);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(cut, rounds / 4);
}

}  // namespace
}  // namespace vak::test
