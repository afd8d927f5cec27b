#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

#include "vakdtm/frame/DtmAllAreasCellProcessor.h"
#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/frame/DtmRectProcessor.h"
#include "vakdtm/repair/DtmCircularInterpolator.h"

#include "repair/LiteralInterpolator.h"
#include "repair/RandomModel.h"
#include "support/LongForm.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// The interpolator beside a literal one, over the same models and by the same walkers.
class InterpolationPropertyTest : public testing::Test {
 protected:
  int Pick(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }

  static void Walk(TestGrid& grid, int walker, std::unique_ptr<DtmProcessor> processor, const PolyClipLine& polygon) {
    if (!polygon.IsEmpty()) {
      auto chain = std::make_unique<DtmMultiProcessor>();
      chain->AddProcessor(new DtmPolyClipper(polygon, true, false));
      chain->AddProcessor(processor.release());
      processor = std::move(chain);
    }
    if (walker == 0) {
      ASSERT_TRUE(DtmCellProcessor(&grid.Access(), processor.get(), false).Process());
    } else if (walker == 1) {
      const double c = grid.File().CellSize();
      ASSERT_TRUE(processor->ProcessRect(grid.Access(), Page(-21.5 * c, -23 * c, 25 * c, 22.25 * c)));
    } else {
      DtmExtentsProcessor extents(0);
      ASSERT_TRUE(extents.ProcessAllCells(grid.Access()));
      ASSERT_TRUE(DtmAllAreasCellProcessor(&grid.Access(), processor.get(), &extents, false).Process());
    }
  }

  std::mt19937 random_{411};
};

TEST_F(InterpolationPropertyTest, EveryCellIsThatOfTheLiteralInterpolator) {
  std::int64_t changed = 0;
  const int runs = LongForm(150, 10000);
  for (int run = 0; run < runs && !HasFailure(); ++run) {
    const RandomModel model(random_);
    const int radius = Pick(0, 4) == 0 ? Pick(5, 18) : Pick(0, 4);
    const int block = model.PickBlock(random_);
    const int walker = Pick(0, 2);
    PolyClipLine polygon;
    if (Pick(0, 3) == 0) {
      const double c = model.CellSize();
      for (const Point& vertex : {Point(-9.3 * c, -8 * c), Point(11 * c, -12.5 * c), Point(3.25 * c, 14 * c)}) {
        polygon.AddElem(vertex);
      }
    }
    SCOPED_TRACE(testing::Message() << "run " << run << " radius " << radius << " block " << block << " walker "
                                    << walker << " area size " << model.AreaSize());
    const std::unique_ptr<TestGrid> before = model.Make();
    const std::unique_ptr<TestGrid> expected = model.Make();
    const std::unique_ptr<TestGrid> filled = model.Make();
    if (Pick(0, 2) == 0) {
      expected->Reopen();
      filled->Reopen();
    }
    Walk(*expected, walker, std::make_unique<LiteralInterpolator>(block, radius), polygon);
    Walk(*filled, walker, std::make_unique<DtmCircularInterpolator>(block, radius), polygon);
    EXPECT_TRUE(CellsOf(*filled) == CellsOf(*expected));
    if (CellsOf(*before, false) != CellsOf(*expected, false)) ++changed;
  }
  EXPECT_GT(changed, runs / 3) << "most models have to have something to fill";
}

TEST_F(InterpolationPropertyTest, EveryQueryIsThatOfTheLiteralInterpolator) {
  int answered = 0;
  for (int run = 0; run < LongForm(60, 2000) && !HasFailure(); ++run) {
    const RandomModel model(random_);
    const int radius = Pick(0, 8);
    const int block = model.PickBlock(random_);
    SCOPED_TRACE(testing::Message() << "run " << run << " radius " << radius << " block " << block);
    const std::unique_ptr<TestGrid> grid = model.Make();
    const std::vector<std::uint64_t> before = CellsOf(*grid);
    DtmCircularInterpolator interpolator(block, radius);
    LiteralInterpolator literal(block, radius);
    ASSERT_TRUE(interpolator.Init(grid->Access()));
    DtmAccess other(&grid->File());
    ASSERT_TRUE(literal.Init(other));
    for (int i = 0; i < 200; ++i) {
      const int row = Pick(-24, 24);
      const int col = Pick(-24, 24);
      double value = 7;
      double expected = 7;
      EXPECT_TRUE(interpolator.InterpolateCell(row, col, value));
      literal.InterpolateCell(row, col, expected);
      ASSERT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(expected));
      answered += value != 7 ? 1 : 0;
    }
    EXPECT_EQ(CellsOf(*grid), before);
  }
  EXPECT_GT(answered, 300);
}

}  // namespace
}  // namespace vak::test
