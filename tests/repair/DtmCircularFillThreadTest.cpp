#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

#include "vakdtm/repair/DtmCircularFill.h"
#include "vakdtm/store/DtmAreaPos.h"

#include "repair/LiteralInterpolator.h"
#include "repair/RandomModel.h"
#include "support/LongForm.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr double kFar = 1e6;

/// How a fill is limited.
struct Limits {
  bool gaps = false;
  std::optional<Page> rect;
  PolyClipLine polygon;
};

/// The whole fill on one thread, by a literal interpolator and with all areas in the rectangle of those that there are.
void FillLiterally(TestGrid& grid, int block, int radius, const Limits& limits) {
  LiteralInterpolator literal(block, radius);
  ASSERT_TRUE(literal.Init(grid.Access()));
  const int size = grid.File().AreaSize();
  std::vector<DtmAreaPos> present;
  for (int i = 0; const DtmArea* const area = grid.File().GetArea(i); ++i) present.emplace_back(area);
  if (present.empty()) return;
  int left = present.front().AreaCol();
  int right = left;
  for (const DtmAreaPos& pos : present) {
    left = std::min(left, pos.AreaCol());
    right = std::max(right, pos.AreaCol());
  }
  std::sort(present.begin(), present.end());
  const auto isIn = [&](int row, int col) {
    const Point middle((col + 0.5) * grid.File().CellSize(), (row + 0.5) * grid.File().CellSize());
    return (!limits.rect || (middle.x >= limits.rect->left() && middle.x <= limits.rect->right() &&
                             middle.y >= limits.rect->bottom() && middle.y <= limits.rect->top())) &&
           (limits.polygon.IsEmpty() || limits.polygon.IsPointInPoly(middle));
  };
  for (int areaRow = present.front().AreaRow(); areaRow <= present.back().AreaRow(); ++areaRow) {
    for (int areaCol = left; areaCol <= right; ++areaCol) {
      const DtmAreaPos pos(size, areaRow * size, areaCol * size);
      if (!limits.gaps && !std::binary_search(present.begin(), present.end(), pos)) continue;
      double weight = 1;
      for (int row = areaRow * size; row < (areaRow + 1) * size; ++row) {
        for (int col = areaCol * size; col < (areaCol + 1) * size; ++col) {
          if (!isIn(row, col)) continue;
          ASSERT_TRUE(literal.ProcessCell(row, col, weight));
        }
      }
    }
  }
}

class DtmCircularFillThreadTest : public testing::Test {
 protected:
  int Pick(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }

  Limits PickLimits(double c) {
    Limits limits;
    limits.gaps = Pick(0, 1) == 0;
    if (Pick(0, 3) == 0) limits.rect = Page(Pick(-30, 0) * c / 2, Pick(-30, 0) * c / 2, Pick(1, 30) * c / 2, kFar);
    if (Pick(0, 3) == 0) {
      for (const Point& vertex : {Point(-9.3 * c, -8 * c), Point(11 * c, -12.5 * c), Point(3.25 * c, 14 * c)}) {
        limits.polygon.AddElem(vertex);
      }
    }
    return limits;
  }

  static void Fill(TestGrid& grid, int block, int radius, const Limits& limits, unsigned long threads) {
    DtmCircularFill fill(grid.Access(), block, radius);
    fill.SetThreads(threads);
    fill.SetFillGaps(limits.gaps);
    if (limits.rect) fill.SetRect(*limits.rect);
    fill.SetPolygon(limits.polygon);
    ASSERT_TRUE(fill.Process());
  }

  std::mt19937 random_{1789};
};

TEST_F(DtmCircularFillThreadTest, AnyNumberOfThreadsMakesWhatOneMakesLiterally) {
  const int runs = LongForm(60, 5000);
  int changed = 0;
  for (int run = 0; run < runs && !HasFailure(); ++run) {
    const RandomModel model(random_);
    const int radius = Pick(0, 4) == 0 ? Pick(5, 18) : Pick(1, 4);
    const int block = model.PickBlock(random_);
    const Limits limits = PickLimits(model.CellSize());
    SCOPED_TRACE(testing::Message() << "run " << run << " radius " << radius << " block " << block << " gaps "
                                    << limits.gaps << " area size " << model.AreaSize());
    const std::unique_ptr<TestGrid> before = model.Make();
    const std::unique_ptr<TestGrid> expected = model.Make();
    FillLiterally(*expected, block, radius, limits);
    for (const unsigned long threads : {1UL, 3UL}) {
      const std::unique_ptr<TestGrid> filled = model.Make();
      Fill(*filled, block, radius, limits, threads);
      EXPECT_TRUE(CellsOf(*filled, false) == CellsOf(*expected, false)) << threads << " threads";
    }
    if (CellsOf(*before, false) != CellsOf(*expected, false)) ++changed;
  }
  EXPECT_GT(changed, runs / 4) << "most models have to have something to fill";
}

/// A band of areas in which measured cells lack what is filled, between others in which none does.
TEST_F(DtmCircularFillThreadTest, MeasuredHolesAreFilledInOrderAndFeedOthers) {
  const auto make = [] {
    auto grid =
        std::make_unique<TestGrid>(GridSettings{.cellSize = 1.0, .areaSize = 8, .blockIds = {dVAL, iNUM, dMIN}});
    std::mt19937 random(5);
    for (int row = 0; row < 64; ++row) {
      for (int col = 0; col < 64; ++col) {
        if (random() % 3 == 0) continue;
        grid->Set(row, col, iNUM, 1);
        grid->Set(row, col, dVAL, -static_cast<double>(random() % 1000));
        if (row / 8 != 3 || random() % 2 == 0) grid->Set(row, col, dMIN, -static_cast<double>(random() % 1000));
      }
    }
    return grid;
  };
  const std::unique_ptr<TestGrid> expected = make();
  FillLiterally(*expected, 0, 3, {});
  for (int run = 0; run < LongForm(5, 200); ++run) {
    const std::unique_ptr<TestGrid> filled = make();
    Fill(*filled, 0, 3, {}, 4);
    ASSERT_TRUE(CellsOf(*filled) == CellsOf(*expected));
  }
}

TEST_F(DtmCircularFillThreadTest, CountsAreThoseOfOneThread) {
  const auto counts = [](unsigned long threads) {
    TestGrid grid(GridSettings{.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}});
    for (int cell = 0; cell < 32; cell += 2) {
      for (int row = 0; row < 12; ++row) {
        grid.Set(row, cell, dVAL, -cell);
        grid.Set(row, cell, iNUM, 1);
      }
    }
    DtmCircularFill fill(grid.Access(), dVAL, 1);
    fill.SetThreads(threads);
    EXPECT_TRUE(fill.Process());
    EXPECT_EQ(fill.GetProgress(), 1.0);
    return std::pair(fill.NumFilled(), fill.NumLeft());
  };
  EXPECT_EQ(counts(1), std::pair(std::int64_t{15 * 12}, std::int64_t{12}));
  EXPECT_EQ(counts(4), counts(1));
}

TEST_F(DtmCircularFillThreadTest, StoppedFillAnswersFalseAndLeavesWhatItDid) {
  for (const unsigned long threads : {1UL, 2UL}) {
    TestGrid grid;
    grid.Draw("-1 . -1");
    grid.Set(0, 0, iNUM, 1);
    grid.Set(0, 2, iNUM, 1);
    grid.Set(40, 40, iNUM, 1);
    DtmCircularFill fill(grid.Access(), dVAL, 1);
    fill.SetThreads(threads);
    fill.Stop();
    EXPECT_FALSE(fill.Process());
    EXPECT_TRUE(fill.IsStopped());
    EXPECT_TRUE(IsEmptyValue(grid.Get(0, 1)));
  }
}

TEST_F(DtmCircularFillThreadTest, FailedWriteEndsAllThreads) {
  TestGrid grid(GridSettings{.cellSize = 1.0, .areaSize = 2, .blockIds = {uFCT, iNUM}});
  for (int col = 0; col < 40; col += 2) {
    for (const int row : {0, 1, 2, 3})
      ASSERT_TRUE(grid.Access().InsertValue(col + 0.5, row + 0.5, -1, 0, nullptr, nullptr, 3));
  }
  for (const unsigned long threads : {1UL, 3UL}) {
    DtmCircularFill fill(grid.Access(), uFCT, 1);
    fill.SetThreads(threads);
    EXPECT_FALSE(fill.Process());
    EXPECT_FALSE(fill.IsStopped());
  }
}

TEST_F(DtmCircularFillThreadTest, WithoutAFileThereIsNothingToFill) {
  DtmAccess none(nullptr);
  EXPECT_FALSE(DtmCircularFill(none, dVAL, 1).Process());
}

TEST_F(DtmCircularFillThreadTest, ModelWithoutAreasIsDoneAtOnce) {
  TestGrid grid;
  DtmCircularFill fill(grid.Access(), dVAL, 1);
  fill.SetFillGaps(true);
  EXPECT_TRUE(fill.Process());
  EXPECT_EQ(fill.NumFilled(), 0);
  EXPECT_EQ(grid.File().NumAreas(), 0);
}

TEST_F(DtmCircularFillThreadTest, GapsFarFromAllDataAreNotEvenLookedAt) {
  // Two areas some 2e9 cells apart: an area for each place between them wouldn't end.
  TestGrid grid;
  const int far = 1000000000;
  for (const int corner : {-far, far}) {
    for (const int col : {-1, 1}) {
      grid.Set(corner, corner + col, dVAL, -4);
      grid.Set(corner, corner + col, iNUM, 1);
    }
  }
  DtmCircularFill fill(grid.Access(), dVAL, 2);
  fill.SetFillGaps(true);
  EXPECT_TRUE(fill.Process());
  EXPECT_EQ(fill.NumFilled(), 2);
}

TEST_F(DtmCircularFillThreadTest, GapsAreFilledAsFarAsTheRadiusReaches) {
  for (const unsigned long threads : {1UL, 2UL}) {
    TestGrid grid(GridSettings{.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM}});
    for (const int col : {1, 8}) {
      grid.Set(0, col, dVAL, -4);
      grid.Set(0, col, iNUM, 1);
    }
    DtmCircularFill fill(grid.Access(), dVAL, 4);
    fill.SetFillGaps(true);
    fill.SetThreads(threads);
    EXPECT_TRUE(fill.Process());
    EXPECT_EQ(fill.NumFilled(), 2) << "columns 4 and 5, two areas from the nearest";
    EXPECT_EQ(grid.Get(0, 4), -4.0);
    EXPECT_EQ(grid.Get(0, 5), -4.0);
  }
}

TEST_F(DtmCircularFillThreadTest, RectangleTakesCellsByTheirCentre) {
  for (const double shift : {0.0, -1000.0}) {
    TestGrid grid(GridSettings{.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL, iNUM}});
    const int first = static_cast<int>(shift * 2);
    for (int col = 0; col < 8; ++col) {
      for (const int row : {0, 2}) {
        grid.Set(row, first + col, dVAL, -4);
        grid.Set(row, first + col, iNUM, 1);
      }
    }
    DtmCircularFill fill(grid.Access(), dVAL, 1);
    fill.SetRect(Page(shift + 0.75, 0.75, shift + 2.74, 7));  // centres at 0.25, 0.75, ... 2.75
    EXPECT_TRUE(fill.Process());
    for (int col = 0; col < 8; ++col) {
      EXPECT_EQ(!IsEmptyValue(grid.Get(1, first + col)), col >= 1 && col <= 4) << col;
    }
  }
}

}  // namespace
}  // namespace vak::test
