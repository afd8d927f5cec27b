#include <cmath>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmAllAreasCellProcessor.h"
#include "vakdtm/frame/DtmAreaCellProcessor.h"
#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmLinearRectProcessor.h"
#include "vakdtm/frame/DtmRectProcessor.h"

#include "frame/WalkLog.h"
#include "support/LongForm.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// Every walker beside a plain loop over the same model, with something happening at random calls. Sizes and edges are
/// multiples of powers of two, so that plan areas are exact.
class WalkPropertyTest : public testing::Test {
 protected:
  int Pick(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }

  /// A model with some cells, in some of the areas all of them emptied again.
  void MakeModel() {
    cellSize_ = std::ldexp(1.0, Pick(-2, 2));
    areaSize_ = Pick(1, 5);
    grid_ = std::make_unique<TestGrid>(GridSettings{.cellSize = cellSize_, .areaSize = areaSize_, .blockIds = {dVAL}});
    for (int i = Pick(0, 12); i > 0; --i) ASSERT_TRUE(grid_->Set(Pick(-12, 12), Pick(-12, 12), dVAL, 1.0));
    for (int i = Pick(0, 3); i > 0 && grid_->File().NumAreas() > 0; --i) {
      const DtmArea* const area = grid_->File().GetArea(Pick(0, grid_->File().NumAreas() - 1));
      for (int cell = 0; cell < areaSize_ * areaSize_; ++cell) {
        int row = 0;
        int col = 0;
        area->CalcRowCol(cell, row, col);
        grid_->Clear(row, col);
      }
      grid_->Leave();
    }
  }

  /// Edges on cells' ones, or a quarter, half or three quarters of a cell off.
  Page PickRect() {
    const auto edges = [this] {
      const int one = Pick(-60, 60);
      const int length = Pick(0, 3) == 0 ? Pick(0, 4) : Pick(0, 60);
      return std::pair(one * cellSize_ / 4, (one + length) * cellSize_ / 4);
    };
    const auto [x0, x1] = edges();
    const auto [y0, y1] = edges();
    return {x0, y0, x1, y1};
  }

  Deeds PickDeeds() {
    Deeds deeds;
    for (int i = Pick(0, 3); i > 0; --i) {
      const auto at = static_cast<std::size_t>(Pick(0, 2) == 0 ? Pick(0, 4) : Pick(0, 250));
      deeds[at] = static_cast<Deed>(Pick(0, 2));
    }
    return deeds;
  }

  /// Runs the walker, which shows cells to `log`, and compares.
  void Compare(Processor& walker, WalkLog& log, const PlainWalk& plain, bool answer) {
    log.SetWalker(&walker);
    ASSERT_TRUE(walker.Initialize());
    EXPECT_EQ(walker.Process(), answer);
    ASSERT_EQ(log.calls, plain.calls);
    const double progress = plain.total == 0 ? 0.0 : static_cast<double>(plain.done) / static_cast<double>(plain.total);
    EXPECT_EQ(walker.GetProgress(), progress);
    cells_ += log.Of(Call::kCell).size();
    ended_ += log.Of(Call::kFini).size();
  }

  int FloorDivide(double value, double by) const { return static_cast<int>(std::floor(value / by)); }
  static double Overlap(double low0, double high0, double low1, double high1) {
    return std::max(0.0, std::min(high0, high1) - std::max(low0, low1));
  }
  /// What a rectangle leaves of a square of cells.
  double PlanArea(const Page& rect, int row, int col, int size) const {
    return Overlap(rect.left(), rect.right(), col * cellSize_, (col + size) * cellSize_) *
           Overlap(rect.bottom(), rect.top(), row * cellSize_, (row + size) * cellSize_);
  }

  /// @return what the walk answers.
  bool PlainCells(PlainWalk& plain) {
    const DtmFile& file = grid_->File();
    if (!plain.Show(Init())) return false;
    plain.total = std::int64_t{areaSize_} * areaSize_ * file.NumAreas();
    for (int i = 0; i < file.NumAreas(); ++i) {
      if (plain.stopped) return false;
      DtmArea* const area = file.GetArea(i);
      const int bottom = area->BottomLeftRow();
      const int left = area->BottomLeftCol();
      double weight = 0;
      if (!area->IsEmpty()) {
        if (!plain.Show(Area(bottom, left, std::pow(areaSize_ * cellSize_, 2)), &weight)) return false;
      }
      if (weight == 0) plain.done += std::int64_t{areaSize_} * areaSize_;
      for (int row = bottom; weight > 0 && row < bottom + areaSize_; ++row) {
        if (!plain.Show(Row(row, left, left + areaSize_))) continue;
        for (int col = left; col < left + areaSize_; ++col) {
          if (plain.stopped || !plain.Show(Cell(row, col, cellSize_ * cellSize_))) return false;
          ++plain.done;
        }
      }
    }
    return plain.Show(Fini());
  }

  bool PlainAreas(PlainWalk& plain, const std::vector<int>& places) {
    if (!plain.Show(Init())) return false;
    for (const int place : places) {
      const DtmArea* const area = grid_->File().GetArea(place);
      double weight = 0;
      const int bottom = area->BottomLeftRow();
      const int left = area->BottomLeftCol();
      if (!plain.Show(Area(bottom, left, std::pow(areaSize_ * cellSize_, 2)), &weight)) return false;
      for (int cell = 0; weight > 0 && cell < areaSize_ * areaSize_; ++cell) {
        if (!plain.Show(Cell(bottom + cell / areaSize_, left + cell % areaSize_, cellSize_ * cellSize_))) return false;
      }
    }
    return plain.Show(Fini());
  }

  bool PlainRect(PlainWalk& plain, const Page& rect) {
    const int row0 = FloorDivide(rect.bottom(), cellSize_);
    const int row1 = FloorDivide(rect.top(), cellSize_);
    const int col0 = FloorDivide(rect.left(), cellSize_);
    const int col1 = FloorDivide(rect.right(), cellSize_);
    plain.total = std::int64_t{row1 - row0 + 1} * (col1 - col0 + 1);
    if (!plain.Show(Init())) return false;
    for (int areaRow = FloorDivide(row0, areaSize_); areaRow <= FloorDivide(row1, areaSize_); ++areaRow) {
      for (int areaCol = FloorDivide(col0, areaSize_); areaCol <= FloorDivide(col1, areaSize_); ++areaCol) {
        if (plain.stopped) return false;
        const int bottom = areaRow * areaSize_;
        const int left = areaCol * areaSize_;
        double weight = 0;
        if (!plain.Show(Area(bottom, left, PlanArea(rect, bottom, left, areaSize_)), &weight)) continue;
        for (int row = bottom; row < bottom + areaSize_; ++row) {
          if (row < row0 || row > row1) continue;
          const int first = std::max(left, col0);
          const int last = std::min(left + areaSize_ - 1, col1);
          if (weight > 0 && !plain.Show(Row(row, first, last))) continue;
          for (int col = first; col <= last; ++col, ++plain.done) {
            if (weight > 0 && plain.stopped) return false;
            const double cellArea = PlanArea(rect, row, col, 1);
            if (weight > 0 && cellArea > 0 && !plain.Show(Cell(row, col, cellArea))) return false;
          }
        }
      }
    }
    return plain.Show(Fini());
  }

  bool PlainRows(PlainWalk& plain, const Page& rect, int rowStep, int colStep) {
    if (!plain.Show(Init())) return false;
    const auto first = [](int low, int step) { return low / step * step; };
    const auto end = [](int high, int step) { return high / step * step + step; };
    const int row0 = first(FloorDivide(rect.bottom(), cellSize_), rowStep);
    const int row1 = end(FloorDivide(rect.top(), cellSize_), rowStep);
    const int col0 = first(FloorDivide(rect.left(), cellSize_), colStep);
    const int col1 = end(FloorDivide(rect.right(), cellSize_), colStep);
    plain.total = std::int64_t{row1 - row0} * (col1 - col0);
    for (int row = row0; row < row1; row += rowStep) {
      if (!plain.Show(Row(row, col0, col1))) continue;
      for (int col = col0; col < col1; col += colStep, ++plain.done) {
        if (plain.stopped || !plain.Show(Cell(row, col, cellSize_ * cellSize_))) return false;
      }
    }
    return plain.Show(Fini());
  }

  bool PlainRaster(PlainWalk& plain, const DtmExtentsProcessor& extents) const {
    if (!plain.Show(Init())) return false;
    if (extents.Count() > 0) {
      plain.total =
          std::int64_t{extents.MaxRow() - extents.MinRow() + 1} * (extents.MaxCol() - extents.MinCol() + 1) * 100;
      for (int row = extents.MaxRow(); row >= extents.MinRow(); --row) {
        for (int col = extents.MinCol(); col <= extents.MaxCol(); ++col) {
          if (plain.stopped || !plain.Show(Cell(row, col, cellSize_ * cellSize_))) return false;
          plain.done += 100;
        }
      }
    }
    return plain.Show(Fini());
  }

  /// Repeats with other numbers each time.
  template <typename Test>
  void Repeat(Test test) {
    const auto rounds = static_cast<std::size_t>(LongForm(2000, 100000));
    for (std::size_t seed = 0; seed < rounds && !HasFailure(); ++seed) {
      SCOPED_TRACE("seed " + std::to_string(seed));
      random_.seed(static_cast<unsigned>(seed));
      MakeModel();
      test(PickDeeds());
    }
    EXPECT_GT(ended_, rounds / 2) << "too many walks end early";
    EXPECT_GT(cells_, rounds * 5) << "the walks are too small";
  }

  std::mt19937 random_;
  std::size_t cells_ = 0;
  std::size_t ended_ = 0;
  std::unique_ptr<TestGrid> grid_;
  double cellSize_ = 1;
  int areaSize_ = 1;
};

TEST_F(WalkPropertyTest, AllCellsOfAreasAreShownAsByAPlainLoop) {
  Repeat([this](const Deeds& deeds) {
    WalkLog log(deeds);
    PlainWalk plain(deeds);
    const bool answer = PlainCells(plain);
    DtmCellProcessor walker(&grid_->Access(), &log, false);
    Compare(walker, log, plain, answer);
  });
}

TEST_F(WalkPropertyTest, ListedAreasAreShownAsByAPlainLoop) {
  Repeat([this](const Deeds& deeds) {
    std::vector<int> places;
    const int areas = grid_->File().NumAreas();
    for (int i = Pick(0, 4); i > 0 && areas > 0; --i) places.push_back(Pick(0, areas - 1));
    WalkLog log(deeds);
    PlainWalk plain(deeds);
    const bool answer = PlainAreas(plain, places);
    DtmAreaCellProcessor walker(&grid_->Access(), &log, places);
    Compare(walker, log, plain, answer);
  });
}

TEST_F(WalkPropertyTest, RectanglesAreShownByAreasAsByAPlainLoop) {
  Repeat([this](const Deeds& deeds) {
    const Page rect = PickRect();
    WalkLog log(deeds);
    PlainWalk plain(deeds);
    const bool answer = PlainRect(plain, rect);
    DtmRectProcessor walker(rect, &grid_->Access(), &log, false);
    Compare(walker, log, plain, answer);
  });
}

TEST_F(WalkPropertyTest, RectanglesAreShownByRowsAsByAPlainLoop) {
  Repeat([this](const Deeds& deeds) {
    const Page rect = PickRect();
    const int rowStep = Pick(1, 4);
    const int colStep = Pick(1, 4);
    WalkLog log(deeds);
    PlainWalk plain(deeds);
    const bool answer = PlainRows(plain, rect, rowStep, colStep);
    DtmLinearRectProcessor walker(rect, &grid_->Access(), &log, false);
    // Half a cell more a pixel than the step, which is cut off.
    walker.SetDrawScale({1 / ((colStep + 0.5) * cellSize_), -1 / ((rowStep + 0.5) * cellSize_)});
    Compare(walker, log, plain, answer);
  });
}

TEST_F(WalkPropertyTest, RastersAreShownAsByAPlainLoop) {
  Repeat([this](const Deeds& deeds) {
    DtmExtentsProcessor extents(dVAL);
    ASSERT_TRUE(extents.ProcessAllCells(grid_->Access()));
    WalkLog log(deeds);
    PlainWalk plain(deeds);
    const bool answer = PlainRaster(plain, extents);
    if (plain.total > 0) {
      // In whole per cents.
      plain.done = plain.done / (plain.total / 100);
      plain.total = 100;
    }
    DtmAllAreasCellProcessor walker(&grid_->Access(), &log, &extents, false);
    Compare(walker, log, plain, answer);
  });
}

TEST_F(WalkPropertyTest, PlanAreasOfARectangleAddUpToIt) {
  Repeat([this](const Deeds&) {
    const Page rect = PickRect();
    WalkLog log;
    ASSERT_TRUE(log.ProcessRect(grid_->Access(), rect));
    cells_ += log.Of(Call::kCell).size();
    ++ended_;
    double areas = 0;
    double cells = 0;
    for (const Call& call : log.calls) (call.kind == Call::kArea ? areas : cells) += call.weight;
    EXPECT_EQ(areas, rect.Area());
    EXPECT_EQ(cells, rect.Area());
  });
}

}  // namespace
}  // namespace vak::test
