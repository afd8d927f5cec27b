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
  const int runs = LongForm(150, 10000, 50);
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

/// An interpolator beside a literal one on the same model, whatever is asked of them and whatever others change
/// between.
class SideBySide {
 public:
  SideBySide(const RandomModel& model, int block, int radius, bool reopened, std::mt19937& random)
      : random_(random),
        size_(model.AreaSize()),
        grid_(model.Make()),
        expected_(model.Make()),
        interpolator_(std::make_unique<DtmCircularInterpolator>(block, radius)),
        literal_(block, radius) {
    if (reopened) {
      grid_->Reopen();
      expected_->Reopen();
    }
    other_ = std::make_unique<DtmAccess>(&grid_->File());
    otherExpected_ = std::make_unique<DtmAccess>(&expected_->File());
    Init();
  }

  void Step() {
    const int kind = Pick(0, 19);
    const int row = Pick(-22, 22);
    const int col = Pick(-22, 22);
    if (kind < 3) {
      Announce(row, col);
    } else if (kind < 11) {
      Process(bottom_ + Pick(0, size_ - 1), left_ + Pick(0, size_ - 1));
    } else if (kind < 13) {
      Process(row, col);
    } else if (kind < 15) {
      Query(row, col);
    } else if (kind < 17) {
      Change(row, col);
    } else if (kind == 17) {
      EXPECT_EQ(other_->MakeCellEmpty(row, col), otherExpected_->MakeCellEmpty(row, col));
    } else if (kind == 18) {
      interpolator_.reset(static_cast<DtmCircularInterpolator*>(interpolator_->Clone()));
    } else {
      Init();
    }
  }

  void ExpectSame() {
    EXPECT_TRUE(interpolator_->Fini());
    EXPECT_TRUE(CellsOf(*grid_) == CellsOf(*expected_));
  }

 private:
  int Pick(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }

  void Init() {
    EXPECT_TRUE(interpolator_->Init(grid_->Access()));
    EXPECT_TRUE(literal_.Init(expected_->Access()));
  }
  void Announce(int row, int col) {
    bottom_ = CalcAreaIndex(size_, row) * size_;
    left_ = CalcAreaIndex(size_, col) * size_;
    double weight = 1;
    EXPECT_TRUE(interpolator_->ProcessArea(bottom_, left_, weight));
    if (Pick(0, 1) == 0) interpolator_->DependsOnOrder();
  }
  void Process(int row, int col) {
    double weight = 1;
    EXPECT_EQ(interpolator_->ProcessCell(row, col, weight), literal_.ProcessCell(row, col, weight));
  }
  void Query(int row, int col) {
    double value = 7;
    double expected = 7;
    EXPECT_TRUE(interpolator_->InterpolateCell(row, col, value));
    literal_.InterpolateCell(row, col, expected);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(expected));
  }
  void Change(int row, int col) {
    const int id = grid_->File().GetBlockId(Pick(0, grid_->File().NumBlockIds() - 1));
    double value = Pick(0, 4) == 0 ? EmptyDouble() : -Pick(1, 20);
    if (id == iNUM) value = Pick(-1, 2);
    EXPECT_TRUE(other_->SetDoubleValue(row, col, id, value, id != iNUM));
    EXPECT_TRUE(otherExpected_->SetDoubleValue(row, col, id, value, id != iNUM));
  }

  std::mt19937& random_;
  int size_;
  std::unique_ptr<TestGrid> grid_, expected_;
  std::unique_ptr<DtmAccess> other_, otherExpected_;  // of somebody else
  std::unique_ptr<DtmCircularInterpolator> interpolator_;
  LiteralInterpolator literal_;
  int bottom_ = 0;
  int left_ = 0;
};

TEST_F(InterpolationPropertyTest, WhateverIsAskedAndChangedInBetweenIsAsOfTheLiteralInterpolator) {
  for (int run = 0; run < LongForm(60, 5000, 20) && !HasFailure(); ++run) {
    const RandomModel model(random_);
    const int radius = Pick(0, 7);
    const int block = model.PickBlock(random_);
    SCOPED_TRACE(testing::Message() << "run " << run << " radius " << radius << " block " << block << " area size "
                                    << model.AreaSize());
    SideBySide both(model, block, radius, Pick(0, 1) == 0, random_);
    for (int step = 0; step < 150 && !HasFailure(); ++step) both.Step();
    both.ExpectSame();
  }
}

/// Some cells of one area with sparse data around, as they are when both have filled them.
void FillWide(int areaSize, int radius, bool hasOffsets, std::mt19937& random, std::int64_t& filled) {
  const auto pick = [&](int lowest, int highest) {
    return std::uniform_int_distribution<int>(lowest, highest)(random);
  };
  GridSettings settings{.cellSize = 1.0, .areaSize = areaSize, .blockIds = {dMIN, iNUM}};
  if (hasOffsets) settings.blockIds.insert(settings.blockIds.end(), {fXMN, fYMN});
  TestGrid grid(settings);
  TestGrid expected(settings);
  const int count = (areaSize + 2 * radius) * (areaSize + 2 * radius) * 10 / (radius * radius);
  for (int i = 0; i < count; ++i) {
    const int row = pick(-radius, areaSize + radius - 1);
    const int col = pick(-radius, areaSize + radius - 1);
    const int z = pick(-999, 0);
    const int hits = pick(0, 3);
    const int offset = pick(-50, 50);
    for (TestGrid* const each : {&grid, &expected}) {
      each->Set(row, col, dMIN, z / 7.0);
      each->Set(row, col, iNUM, hits);
      each->Set(row, col, fXMN, offset / 90.0);
      each->Set(row, col, fYMN, offset / -95.0);
    }
  }
  DtmCircularInterpolator interpolator(dMIN, radius);
  LiteralInterpolator literal(dMIN, radius);
  ASSERT_TRUE(interpolator.Init(grid.Access()));
  ASSERT_TRUE(literal.Init(expected.Access()));
  double weight = 1;
  ASSERT_TRUE(interpolator.ProcessArea(0, 0, weight));
  for (int i = 0; i < 40; ++i) {
    const int row = pick(0, areaSize - 1);
    const int col = pick(0, areaSize - 1);
    ASSERT_TRUE(interpolator.ProcessCell(row, col, weight));
    ASSERT_TRUE(literal.ProcessCell(row, col, weight));
    ASSERT_EQ(std::bit_cast<std::uint64_t>(grid.Get(row, col, dMIN)),
              std::bit_cast<std::uint64_t>(expected.Get(row, col, dMIN)))
        << row << ", " << col;
  }
  filled += interpolator.NumFilled();
}

TEST_F(InterpolationPropertyTest, WindowsOfSeveralWordsAreAsTheLiteralInterpolator) {
  constexpr struct {
    int areaSize, radius;
  } kCases[] = {{64, 10}, {64, 4}, {130, 7}, {45, 12}, {100, 45}, {20, 60}};
  const int rounds = LongForm(1, 50);
  std::int64_t filled = 0;
  for (int run = 0; run < rounds; ++run) {
    for (const auto& c : kCases) {
      for (const bool hasOffsets : {false, true}) {
        SCOPED_TRACE(testing::Message() << "areas of " << c.areaSize << ", radius " << c.radius << ", offsets "
                                        << hasOffsets);
        FillWide(c.areaSize, c.radius, hasOffsets, random_, filled);
        if (HasFatalFailure()) return;
      }
    }
  }
  EXPECT_GT(filled, rounds * 200);
}

}  // namespace
}  // namespace vak::test
