#include <algorithm>
#include <atomic>
#include <cstddef>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "vakdtm/contour/DtmContourLevelProc.h"

#include "contour/RandomModel.h"
#include "contour/TracedLines.h"
#include "support/LongForm.h"

namespace vak::test {
namespace {

using reference::Line;
using reference::Lines;
using reference::Point2;

bool IsBefore(const Point2& a, const Point2& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); }
struct Before {
  bool operator()(const Point2& a, const Point2& b) const { return IsBefore(a, b); }
  bool operator()(const Line<Point2>& a, const Line<Point2>& b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), IsBefore);
  }
};
bool IsClosed(const Line<Point2>& line) { return line.front() == line.back(); }

/// Where a level meets the line between two neighbouring cells.
struct Crossing {
  Point2 low;       ///< the position of the cell below the level
  int squares = 0;  ///< how many of the two squares at it have four values
};
using Crossings = std::map<Point2, Crossing, Before>;

/// The cells of a block by themselves.
class Cells {
 public:
  Cells(const ModelPlan& plan, int block) : cellSize_(plan.settings.cellSize) {
    for (const auto& [row, col, id, value] : plan.cells) {
      if (id == block) heights_[{row, col}] = value;
      if (id == fXMN || id == fXMX) offsets_[{row, col}].first.push_back(static_cast<float>(value));
      if (id == fYMN || id == fYMX) offsets_[{row, col}].second.push_back(static_cast<float>(value));
    }
  }

  /// The crossings of all edges of squares with four values.
  Crossings FindCrossings(double level) const {
    Crossings crossings;
    for (const auto& [cell, height] : heights_) {
      const auto [row, col] = cell;
      const int above = IsSquare(row, col) ? 1 : 0;
      Cross(cell, {row, col + 1}, level, above + (IsSquare(row - 1, col) ? 1 : 0), crossings);
      Cross(cell, {row + 1, col}, level, above + (IsSquare(row, col - 1) ? 1 : 0), crossings);
    }
    return crossings;
  }

 private:
  using Cell = std::pair<int, int>;

  bool IsSquare(int row, int col) const {
    return heights_.count({row, col}) != 0 && heights_.count({row, col + 1}) != 0 &&
           heights_.count({row + 1, col}) != 0 && heights_.count({row + 1, col + 1}) != 0;
  }
  Point2 Place(const Cell& cell) const {
    Point2 place{(cell.second + 0.5) * cellSize_, (cell.first + 0.5) * cellSize_};
    const auto offset = offsets_.find(cell);
    if (offset == offsets_.end() || offset->second.first.empty() || offset->second.second.empty()) return place;
    place.x += static_cast<double>(offset->second.first[0]);
    place.y += static_cast<double>(offset->second.second[0]);
    return place;
  }
  double Raised(const Cell& cell, double level) const {
    const double height = heights_.at(cell);
    return height == level ? height + 1e-7 : height;
  }
  void Cross(const Cell& first, const Cell& second, double level, int squares, Crossings& crossings) const {
    if (squares == 0) return;
    const double z1 = Raised(first, level);
    const double z2 = Raised(second, level);
    if ((z1 < level) == (z2 < level)) return;
    const Point2 a = Place(first);
    const Point2 b = Place(second);
    const double part = (level - z1) / (z2 - z1);
    const Point2 at{a.x + (b.x - a.x) * part, a.y + (b.y - a.y) * part};
    EXPECT_TRUE(crossings.emplace(at, Crossing{z1 < level ? a : b, squares}).second) << "two crossings at one place";
  }

  double cellSize_;
  std::map<Cell, double> heights_;
  std::map<Cell, std::pair<std::vector<float>, std::vector<float>>> offsets_;
};

/// Contours of random models as a map maker sees them.
class ContourPropertyTest : public testing::Test {
 protected:
  static Lines<Point2> Trace(const ModelPlan& plan, int block, double level) {
    const auto grid = plan.Make();
    const std::atomic<bool> running{true};
    DtmContourLevelProc tracer({}, level, block, running);
    AreaExtMap ranges;
    tracer.SetAreaExtMap(&ranges);
    EXPECT_TRUE(tracer.ProcessAllCells(grid->Access()));
    return Plain(tracer.GetList());
  }

  /// Whether the ground below the level is on the left of a piece at one of its ends.
  static bool IsLowOnLeft(const Point2& from, const Point2& to, const Point2& end, const Point2& low) {
    return (to.x - from.x) * (low.y - end.y) - (to.y - from.y) * (low.x - end.x) > 0;
  }
};

TEST_F(ContourPropertyTest, EachCrossedEdgeIsUsedOnceAtItsPlaceAndLinesEndAtTheDataAlone) {
  const int rounds = LongForm(600, 30000, 200);
  std::size_t found = 0;
  std::size_t ends = 0;
  std::size_t rings = 0;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    RandomModel random(static_cast<unsigned>(round));
    const int block = std::vector<int>{dVAL, dMIN, dMAX}[static_cast<std::size_t>(round % 3)];
    const ModelPlan plan = random.Plan(block, RandomModel::Values::kPlain);
    const double level = random.Level(plan);
    Crossings crossings = Cells(plan, block).FindCrossings(level);
    found += crossings.size();
    for (Line<Point2> line : Trace(plan, block, level)) {
      ASSERT_GE(line.size(), 2U);
      const bool closed = IsClosed(line);
      if (closed) line.pop_back();
      rings += closed ? 1 : 0;
      ends += closed ? 0 : 2;
      for (std::size_t i = 0; i < line.size(); ++i) {
        const auto crossing = crossings.find(line[i]);
        ASSERT_NE(crossing, crossings.end()) << "no crossing, or used before: " << line[i].x << ' ' << line[i].y;
        const bool isEnd = !closed && (i == 0 || i + 1 == line.size());
        ASSERT_EQ(crossing->second.squares, isEnd ? 1 : 2) << line[i].x << ' ' << line[i].y;
        crossings.erase(crossing);
      }
    }
    ASSERT_TRUE(crossings.empty()) << crossings.size() << " crossings have no line";
  }
  EXPECT_GT(found, static_cast<std::size_t>(rounds) * 50);
  EXPECT_GT(ends, static_cast<std::size_t>(rounds) * 4);
  EXPECT_GT(rings, static_cast<std::size_t>(rounds));
}

TEST_F(ContourPropertyTest, LowerGroundIsOnTheLeft) {
  const int rounds = LongForm(300, 15000, 100);
  std::size_t pieces = 0;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    RandomModel random(static_cast<unsigned>(round));
    const ModelPlan plan = random.Plan(dVAL, RandomModel::Values::kPlain);
    const double level = random.Level(plan);
    const Crossings crossings = Cells(plan, dVAL).FindCrossings(level);
    for (const Line<Point2>& line : Trace(plan, dVAL, level)) {
      for (std::size_t i = 1; i < line.size(); ++i) {
        for (const Point2& end : {line[i - 1], line[i]}) {
          ASSERT_TRUE(IsLowOnLeft(line[i - 1], line[i], end, crossings.at(end).low)) << end.x << ' ' << end.y;
        }
        ++pieces;
      }
    }
  }
  EXPECT_GT(pieces, static_cast<std::size_t>(rounds) * 30);
}

/// The lines without what depends on the order of areas: closed ones from their first point in the plane, all in the
/// order of their points.
Lines<Point2> Ordered(Lines<Point2> lines) {
  for (Line<Point2>& line : lines) {
    if (!IsClosed(line)) continue;
    line.pop_back();
    std::rotate(line.begin(), std::min_element(line.begin(), line.end(), IsBefore), line.end());
    line.push_back(line.front());
  }
  std::sort(lines.begin(), lines.end(), Before());
  return lines;
}

TEST_F(ContourPropertyTest, OrderAndSizeOfAreasDecideTheOrderOfLinesAlone) {
  const int rounds = LongForm(300, 15000, 100);
  int different = 0;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    RandomModel random(static_cast<unsigned>(round));
    const int block = std::vector<int>{dVAL, dMIN, dMAX}[static_cast<std::size_t>(round % 3)];
    ModelPlan plan = random.Plan(block, RandomModel::Values::kPlain);
    const double level = random.Level(plan);
    const Lines<Point2> lines = Trace(plan, block, level);
    random.Shuffle(plan.areas);
    random.Shuffle(plan.cells);
    const Lines<Point2> shuffled = Trace(plan, block, level);
    ASSERT_EQ(Difference(Ordered(shuffled), Ordered(lines)), "");
    different += Difference(shuffled, lines).empty() ? 0 : 1;
    plan.areas.clear();
    plan.settings.areaSize = random.Pick(1, 40);
    ASSERT_EQ(Difference(Ordered(Trace(plan, block, level)), Ordered(lines)), "");
  }
  EXPECT_GT(different, rounds / 3);
}

}  // namespace
}  // namespace vak::test
