#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "vakdtm/contour/DtmOutlineProc.h"

#include "contour/TracedLines.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

using reference::Lines;
using reference::Point3;

/// Keeps which squares were shown, and lowers the run flag before one of them.
struct Watched final : DtmOutlineProc {
  Watched(int block, std::atomic<bool>& flag) : DtmOutlineProc({}, block, flag), running(flag) {}

  bool ProcessCell(int row, int col, double& weight) override {
    if (static_cast<int>(squares.size()) == stopBefore) running = false;
    squares.emplace_back(row, col);
    return DtmOutlineProc::ProcessCell(row, col, weight);
  }

  std::atomic<bool>& running;
  std::vector<std::pair<int, int>> squares;
  int stopBefore = -1;
};

class DtmOutlineProcInModel : public testing::Test {
 protected:
  void MakeGrid(int areaSize, const std::vector<int>& blocks = {dVAL, iNUM}, double cellSize = 1.0) {
    grid_ = std::make_unique<TestGrid>(GridSettings{.cellSize = cellSize, .areaSize = areaSize, .blockIds = blocks});
  }
  void Fill(int row0, int col0, int row1, int col1, double z = 1.0) {
    for (int row = row0; row < row1; ++row) {
      for (int col = col0; col < col1; ++col) ASSERT_TRUE(grid_->Set(row, col, dVAL, z));
    }
  }
  Lines<Point3> Trace(int block = dVAL, const PolyClipLine& polygon = {}) {
    DtmOutlineProc proc(polygon, block, running_);
    proc.SetAreaExtMap(&ranges_);
    EXPECT_TRUE(proc.ProcessAllCells(grid_->Access()));
    return Plain(proc.GetList());
  }

  std::unique_ptr<TestGrid> grid_;
  AreaExtMap ranges_;
  std::atomic<bool> running_{true};
};

/// Points at one height.
Lines<Point3> AtHeight(double z, const std::vector<std::vector<std::pair<double, double>>>& lines) {
  Lines<Point3> heightened;
  for (const auto& line : lines) {
    auto& points = heightened.emplace_back();
    for (const auto& [x, y] : line) points.push_back({x, y, z});
  }
  return heightened;
}

TEST_F(DtmOutlineProcInModel, FullAreaStaysOpenAtItsLowerCorners) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  const auto expected = AtHeight(1, {{{3.5, 0}, {2.5, 0}, {1.5, 0}, {0.5, 0}},
                                     {{0, 0.5},
                                      {0, 1.5},
                                      {0, 2.5},
                                      {0, 3.5},
                                      {0.5, 4},
                                      {1.5, 4},
                                      {2.5, 4},
                                      {3.5, 4},
                                      {4, 3.5},
                                      {4, 2.5},
                                      {4, 1.5},
                                      {4, 0.5}}});
  EXPECT_EQ(Difference(Trace(), expected), "");
}

TEST_F(DtmOutlineProcInModel, AreasSideBySideHaveAGapInTheirLowerLine) {
  MakeGrid(4);
  Fill(0, 0, 4, 8);
  const Lines<Point3> lines = Trace();
  ASSERT_EQ(lines.size(), 3U);
  const auto lower = AtHeight(1, {{{3.5, 0}, {2.5, 0}, {1.5, 0}, {0.5, 0}}, {{7.5, 0}, {6.5, 0}, {5.5, 0}, {4.5, 0}}});
  EXPECT_EQ(Difference({lines[0], lines[2]}, lower), "");
  EXPECT_EQ(lines[1].size(), 16U);
  EXPECT_EQ(lines[1].front(), (Point3{0, 0.5, 1}));
  EXPECT_EQ(lines[1].back(), (Point3{8, 0.5, 1}));
}

TEST_F(DtmOutlineProcInModel, AreaBelowBringsTheSquareThatTheStripLeavesOut) {
  MakeGrid(4);
  Fill(0, 0, 4, 8);
  ASSERT_NE(grid_->Access().GetArea(-4, 0, true), nullptr);
  ASSERT_TRUE(grid_->Set(-4, 0, iNUM, 1));  // walked, though it has no heights
  const Lines<Point3> lines = Trace();
  std::set<double> lower;
  for (const auto& line : lines) {
    for (const Point3& point : line) {
      if (point.y == 0) lower.insert(point.x);
    }
  }
  EXPECT_EQ(lower, (std::set<double>{0.5, 1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5}));
  EXPECT_EQ(lines.size(), 1U);
}

TEST_F(DtmOutlineProcInModel, EmptyAreaIsPresentAndItsSideHasNoLine) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  ASSERT_NE(grid_->Access().GetArea(0, -4, true), nullptr);
  const auto expected = AtHeight(1, {{{3.5, 0}, {2.5, 0}, {1.5, 0}, {0.5, 0}},
                                     {{0.5, 4}, {1.5, 4}, {2.5, 4}, {3.5, 4}, {4, 3.5}, {4, 2.5}, {4, 1.5}, {4, 0.5}}});
  EXPECT_EQ(Difference(Trace(), expected), "");
  ASSERT_NE(grid_->Access().GetArea(-4, 0, true), nullptr);
  EXPECT_EQ(Difference(Trace(), {expected[1]}), "");
}

TEST_F(DtmOutlineProcInModel, HoleOfOneCellGivesAClosedDiamond) {
  MakeGrid(8);
  Fill(0, 0, 8, 8, 2.5);
  ASSERT_TRUE(grid_->Clear(3, 3));
  DtmOutlineProc proc({}, dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
  ASSERT_EQ(proc.GetList().size(), 3U);
  EXPECT_TRUE(proc.GetList().back().IsClosed());
  // The hole on the left, all the way round.
  EXPECT_EQ(
      Difference({Plain(proc.GetList()).back()}, AtHeight(2.5, {{{4, 3.5}, {3.5, 4}, {3, 3.5}, {3.5, 3}, {4, 3.5}}})),
      "");
}

TEST_F(DtmOutlineProcInModel, FilledCellsStayConnectedAcrossAChequer) {
  struct Case {
    const char* name;
    std::pair<int, int> first, second;
    std::vector<std::pair<double, double>> ring;
  };
  const Case cases[] = {
      {"lower left empty",
       {3, 4},
       {4, 3},
       {{4, 3.5}, {4.5, 3}, {5, 3.5}, {4.5, 4}, {4, 4.5}, {3.5, 5}, {3, 4.5}, {3.5, 4}, {4, 3.5}}},
      {"lower left filled",
       {3, 3},
       {4, 4},
       {{3.5, 3}, {4, 3.5}, {4.5, 4}, {5, 4.5}, {4.5, 5}, {4, 4.5}, {3.5, 4}, {3, 3.5}, {3.5, 3}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MakeGrid(8);
    ASSERT_TRUE(grid_->Set(c.first.first, c.first.second, dVAL, 1));
    ASSERT_TRUE(grid_->Set(c.second.first, c.second.second, dVAL, 1));
    const Lines<Point3> lines = Trace();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].size(), 9U);
    EXPECT_EQ(lines[0].front(), lines[0].back());
    // Clockwise around the filled cells, whichever point comes first.
    std::vector<Point3> ring(lines[0].begin(), lines[0].end() - 1);
    std::vector<Point3> expected;
    for (auto point = c.ring.rbegin(); point + 1 != c.ring.rend(); ++point) {
      expected.push_back({point->first, point->second, 1});
    }
    std::rotate(expected.begin(), std::find(expected.begin(), expected.end(), ring.front()), expected.end());
    EXPECT_EQ(ring, expected);
  }
}

TEST_F(DtmOutlineProcInModel, PointHasTheHeightOfTheFilledCellOnAnyEdge) {
  MakeGrid(8);
  for (const auto& [row, col] : {std::pair(3, 3), {4, 4}}) ASSERT_TRUE(grid_->Set(row, col, dVAL, row * 10.0));
  const Lines<Point3> lines = Trace();
  ASSERT_EQ(lines.size(), 1U);
  for (const Point3& point : lines[0]) {
    // Half a cell to each side of the cell's centre.
    const bool ofLower = std::abs(point.x - 3.5) + std::abs(point.y - 3.5) == 0.5;
    EXPECT_EQ(point.z, ofLower ? 30 : 40) << point.x << ' ' << point.y;
  }
}

TEST_F(DtmOutlineProcInModel, HalfWayIsBetweenThePlacesOfSoundings) {
  MakeGrid(8, {dMIN, fXMN, fYMN});
  ASSERT_TRUE(grid_->Set(3, 3, dMIN, -7));
  ASSERT_TRUE(grid_->Set(3, 3, fXMN, 0.25));
  ASSERT_TRUE(grid_->Set(3, 3, fYMN, -0.25));
  ASSERT_TRUE(grid_->Set(3, 4, fXMN, 0.5));  // without its other offset: stays at its centre
  const auto ring = Trace(dMIN);
  const auto expected =
      AtHeight(-7, {{{4.125, 3.375}, {3.625, 2.875}, {3.125, 3.375}, {3.625, 3.875}, {4.125, 3.375}}});
  ASSERT_EQ(ring.size(), 1U);
  EXPECT_EQ(std::set<double>({ring[0][0].x, ring[0][1].x, ring[0][2].x, ring[0][3].x}),
            (std::set<double>{3.125, 3.625, 4.125}));
  for (const Point3& point : ring[0]) {
    EXPECT_NE(std::find(expected[0].begin(), expected[0].end(), point), expected[0].end()) << point.x << ' ' << point.y;
  }
}

TEST_F(DtmOutlineProcInModel, StripsAreOneSquareShorterBelowThanOnTheLeft) {
  struct Case {
    const char* name;
    int areaSize;
    int row, col;
    std::size_t squares;
  };
  const Case cases[] = {{"at the origin", 4, 0, 0, 16 + 3 + 4},
                        {"left and below of it", 4, -4, -8, 16 + 3 + 4},
                        {"areas of one cell", 1, 0, 0, 1 + 0 + 1},
                        {"areas of one cell, left and below", 1, -3, -5, 1 + 0 + 1},
                        {"areas of two", 2, 2, -2, 4 + 1 + 2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MakeGrid(c.areaSize);
    Fill(c.row, c.col, c.row + c.areaSize, c.col + c.areaSize);
    Watched proc(dVAL, running_);
    proc.SetAreaExtMap(&ranges_);
    ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
    EXPECT_EQ(proc.squares.size(), c.squares);
    // The first cell comes first, then what it brings along: the lower strip, the left one.
    std::vector<std::pair<int, int>> expected = {{c.row, c.col}};
    for (int k = 0; k <= c.areaSize - 2; ++k) expected.emplace_back(c.row - 1, c.col + k);
    for (int k = 0; k <= c.areaSize - 1; ++k) expected.emplace_back(c.row + k, c.col - 1);
    ASSERT_GE(proc.squares.size(), expected.size());
    proc.squares.resize(expected.size());
    EXPECT_EQ(proc.squares, expected);
  }
}

TEST_F(DtmOutlineProcInModel, AreasOfOneCellEnd) {
  MakeGrid(1);
  ASSERT_TRUE(grid_->Set(0, 0, dVAL, 3));
  EXPECT_EQ(Difference(Trace(), AtHeight(3, {{{0, 0.5}, {0.5, 1}, {1, 0.5}}})), "");
}

TEST_F(DtmOutlineProcInModel, PolygonActsByWholeAreas) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  Fill(0, 12, 4, 16);
  const Lines<Point3> all = Trace();
  ASSERT_EQ(all.size(), 4U);
  PolyClipLine corner;
  corner.AddRing({{0.25, 0.25}, {0.75, 0.25}, {0.75, 0.75}}, false);
  EXPECT_EQ(Difference(Trace(dVAL, corner), {all[0], all[1]}), "");
}

TEST_F(DtmOutlineProcInModel, RangeWithoutZeroLeavesAnAreaOut) {
  MakeGrid(4);
  Fill(0, 0, 4, 4, 5);
  const Lines<Point3> whole = Trace();
  ASSERT_EQ(whole.size(), 2U);
  struct Case {
    const char* name;
    double low, high;
    bool walked;
  };
  const Case cases[] = {{"above", 3, 9, false},
                        {"across", -1, 1, true},
                        {"below", -9, -3, false},
                        {"begins at it", 0, 5, true},
                        {"ends at it", -5, 0, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AreaExt& range = ranges_[grid_->Area(0, 0)];
    range = AreaExt();
    range += c.low;
    range += c.high;
    EXPECT_EQ(Trace().size(), c.walked ? 2U : 0U);
    // The values of the area are nothing to it.
    EXPECT_EQ(range.Min(), c.low);
    EXPECT_EQ(range.Max(), c.high);
  }
}

TEST_F(DtmOutlineProcInModel, WalkEntersNoRange) {
  MakeGrid(4);
  Fill(0, 0, 3, 3, 5);
  ASSERT_EQ(Trace().size(), 1U);
  EXPECT_FALSE(ranges_[grid_->Area(0, 0)].IsValid());
  EXPECT_EQ(Trace().size(), 1U);
}

TEST_F(DtmOutlineProcInModel, ExtentsAreThoseOfTheSquaresWithAnEmptyCorner) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  DtmOutlineProc proc({}, dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  EXPECT_FALSE(proc.GetUpdateExtents());
  ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
  EXPECT_FALSE(proc.Extents().IsValid());
  proc.SetUpdateExtents(true);
  EXPECT_TRUE(proc.GetUpdateExtents());
  ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
  ASSERT_TRUE(proc.Extents().IsValid());
  EXPECT_EQ(proc.Extents().MinX(), -0.5);
  EXPECT_EQ(proc.Extents().MinY(), -0.5);
  EXPECT_EQ(proc.Extents().MaxX(), 4.5);
  EXPECT_EQ(proc.Extents().MaxY(), 4.5);
}

TEST_F(DtmOutlineProcInModel, ExtentsHoldTheSquaresThatAreEmptyAltogetherToo) {
  MakeGrid(4);
  ASSERT_TRUE(grid_->Set(1, 1, dVAL, 1));
  DtmOutlineProc proc({}, dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  proc.SetUpdateExtents(true);
  ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(proc.Extents().MinX(), -0.5);
  EXPECT_EQ(proc.Extents().MinY(), -0.5);
  EXPECT_EQ(proc.Extents().MaxX(), 4.5);
  EXPECT_EQ(proc.Extents().MaxY(), 4.5);
}

TEST_F(DtmOutlineProcInModel, AreaAtTheLowestRowAndColumnHasItsLines) {
  MakeGrid(4);
  const int lowest = -grid_->File().LargestAllowed();
  ASSERT_NE(lowest % 4, 0);
  for (int row = lowest; row < lowest + 2; ++row) {
    for (int col = lowest; col < lowest + 2; ++col) ASSERT_TRUE(grid_->Set(row, col, dVAL, 1));
  }
  const Lines<Point3> lines = Trace();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].size(), 9U);
  EXPECT_EQ(lines[0].front(), lines[0].back());
}

TEST_F(DtmOutlineProcInModel, SquareAtTheEndsOfTheTypeIsEmpty) {
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  for (const int areaSize : {1, 4, 10}) {
    SCOPED_TRACE(areaSize);
    MakeGrid(areaSize);
    DtmOutlineProc proc({}, dVAL, running_);
    ASSERT_TRUE(proc.Init(grid_->Access()));
    for (const int row : {kLowest, kHighest / areaSize * areaSize, kHighest}) {
      for (const int col : {kLowest, kHighest / areaSize * areaSize, kHighest}) {
        double weight = 1;
        EXPECT_TRUE(proc.ProcessCell(row, col, weight));
      }
    }
    EXPECT_TRUE(proc.Fini());
    EXPECT_TRUE(proc.GetList().empty());
  }
}

TEST_F(DtmOutlineProcInModel, NextModelMayHaveAreasOfAnotherSize) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  DtmOutlineProc proc({}, dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
  // The last row of the run before, where none of its areas begin, is where one of the next model does.
  TestGrid next({.cellSize = 1.0, .areaSize = 3, .blockIds = {dVAL}});
  for (int row = 3; row < 6; ++row) {
    for (int col = 0; col < 3; ++col) ASSERT_TRUE(next.Set(row, col, dVAL, 1));
  }
  ranges_.Clear();
  ASSERT_TRUE(proc.ProcessAllCells(next.Access()));
  const Lines<Point3> lines = Plain(proc.GetList());
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(Difference({lines[0]}, AtHeight(1, {{{2.5, 3}, {1.5, 3}, {0.5, 3}}})), "");
}

TEST_F(DtmOutlineProcInModel, EachRunBeginsWithAnEmptyResult) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  DtmOutlineProc proc({}, dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
  const Lines<Point3> first = Plain(proc.GetList());
  ASSERT_TRUE(proc.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(Difference(Plain(proc.GetList()), first), "");
  EXPECT_TRUE(proc.InitNoAccess());
  EXPECT_TRUE(proc.GetList().empty());
}

TEST_F(DtmOutlineProcInModel, FlagDownEndsTheWalkAtTheFirstCell) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  running_ = false;
  Watched proc(dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  EXPECT_FALSE(proc.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(proc.squares.size(), 1U);
  EXPECT_TRUE(proc.GetList().empty());
}

TEST_F(DtmOutlineProcInModel, StoppedRunKeepsWhatWasJoinedBetweenAreas) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  Fill(0, 12, 4, 16);
  const Lines<Point3> whole = Trace();
  ASSERT_EQ(whole.size(), 4U);
  Watched proc(dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  proc.stopBefore = 30;  // in the second area, of 23 squares each
  EXPECT_FALSE(proc.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(Difference(Plain(proc.GetList()), {whole[0], whole[1]}), "");
}

TEST_F(DtmOutlineProcInModel, StopWithinAStripEndsAtTheFirstCell) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  Watched proc(dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  proc.stopBefore = 3;
  EXPECT_FALSE(proc.ProcessAllCells(grid_->Access()));
  EXPECT_EQ(proc.squares.back(), (std::pair(0, 1)));
  EXPECT_TRUE(proc.GetList().empty());
}

TEST_F(DtmOutlineProcInModel, CopyGoesOnByItself) {
  MakeGrid(4);
  Fill(0, 0, 4, 8);
  const Lines<Point3> whole = Trace();
  DtmOutlineProc proc({}, dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  ASSERT_TRUE(proc.Init(grid_->Access()));
  const auto walk = [](DtmOutlineProc& shown, int col) {
    double weight = 16;
    shown.ProcessArea(0, col, weight);
    for (int row = 0; row < 4; ++row) {
      for (int c = col; c < col + 4; ++c) shown.ProcessCell(row, c, weight);
    }
  };
  walk(proc, 0);
  DtmOutlineProc copy = proc;
  ASSERT_TRUE(copy.Fini());
  const Lines<Point3> half = Plain(copy.GetList());
  EXPECT_EQ(half.size(), 2U);
  walk(proc, 4);
  ASSERT_TRUE(proc.Fini());
  EXPECT_EQ(Difference(Plain(proc.GetList()), whole), "");
  EXPECT_EQ(Difference(Plain(copy.GetList()), half), "");
}

TEST_F(DtmOutlineProcInModel, CloneIsAPlainClipper) {
  DtmOutlineProc proc({}, dVAL, running_);
  const std::unique_ptr<DtmProcessor> clone(proc.Clone());
  EXPECT_NE(dynamic_cast<DtmPolyClipper*>(clone.get()), nullptr);
  EXPECT_EQ(dynamic_cast<DtmOutlineProc*>(clone.get()), nullptr);
}

TEST_F(DtmOutlineProcInModel, PolygonThatIsNotValidStopsTheWalk) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  PolyClipLine twoPoints;
  twoPoints.AddRing({{0, 0}, {1, 1}}, false);
  DtmOutlineProc proc(twoPoints, dVAL, running_);
  proc.SetAreaExtMap(&ranges_);
  EXPECT_FALSE(proc.ProcessAllCells(grid_->Access()));
  EXPECT_TRUE(proc.GetList().empty());
}

TEST_F(DtmOutlineProcInModel, BlockThatTheModelHasNotIsEmpty) {
  MakeGrid(4);
  Fill(0, 0, 4, 4);
  EXPECT_TRUE(Trace(dMAX).empty());
}

TEST(DtmOutlineProc, TracesSquaresOfItsCallersOwn) {
  const std::atomic<bool> running{true};
  DtmOutlineProc proc({}, dVAL, running);
  ASSERT_TRUE(proc.InitNoAccess());
  // A filled cell at (65, 65), with the four squares around it, which may lie where areas begin elsewhere.
  const auto vertex = [](int row, int col) {
    return GTL::Point3D<double>(col, row, row == 65 && col == 65 ? 9.0 : EmptyDouble());
  };
  for (const auto& [row, col] : {std::pair(64, 64), {64, 65}, {65, 64}, {65, 65}}) {
    if (row == 64 && col == 64) continue;  // shown below: with no access there are no strips to start
    EXPECT_TRUE(proc.ProcessCellData(row, col, vertex(row, col), vertex(row, col + 1), vertex(row + 1, col + 1),
                                     vertex(row + 1, col)));
  }
  EXPECT_TRUE(proc.ProcessCellData(64, 64, vertex(64, 64), vertex(64, 65), vertex(65, 65), vertex(65, 64)));
  EXPECT_TRUE(proc.GetList().empty());
  EXPECT_TRUE(proc.Fini());
  EXPECT_EQ(
      Difference(Plain(proc.GetList()), AtHeight(9, {{{65, 65.5}, {65.5, 65}, {65, 64.5}, {64.5, 65}, {65, 65.5}}})),
      "");
}

}  // namespace
}  // namespace vak::test
