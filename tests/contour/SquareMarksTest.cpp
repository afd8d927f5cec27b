#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "vakdtm/contour/SquareMarks.h"
#include "vakdtm/store/CellValue.h"

namespace vak::test {
namespace {

struct Square {
  unsigned row;
  unsigned col;
  friend bool operator==(const Square&, const Square&) = default;
};

std::vector<Square> Marked(const SquareMarks& marks, unsigned side) {
  std::vector<Square> squares;
  for (unsigned row = 0; row < side; ++row) {
    marks.ForEach(row, [&](unsigned col) {
      squares.push_back({row, col});
      return true;
    });
  }
  return squares;
}

/// A square that isn't marked must have no edge that the level crosses.
bool IsCrossed(const std::vector<double>& cells, unsigned side, Square at, double level) {
  const double z[] = {cells[at.row * side + at.col], cells[at.row * side + at.col + 1],
                      cells[(at.row + 1) * side + at.col + 1], cells[(at.row + 1) * side + at.col]};
  for (int i = 0; i < 4; ++i) {
    const double a = z[i];
    const double b = z[(i + 1) % 4];
    if ((level >= a && b > level) || (a >= level && level > b) || a == level) return true;
  }
  return false;
}

TEST(SquareMarks, LeaveOutNoSquareThatIsCrossedAndAllThatLieOnOneSide) {
  std::mt19937 random(5);
  const double kinds[] = {0, 1, 1, 2, 2, 2, EmptyDouble(), std::nan(""), std::numeric_limits<double>::infinity(), -0.0};
  SquareMarks marks;
  std::size_t left = 0;
  for (const unsigned side : {1U, 2U, 3U, 63U, 64U, 65U, 127U, 128U, 129U, 7U}) {
    SCOPED_TRACE(side);
    std::vector<double> cells(std::size_t{side} * side, 2.0);
    for (double& cell : cells) {
      if (random() % 4 == 0) cell = kinds[random() % std::size(kinds)];
    }
    marks.Mark(cells.data(), side, 1.0);
    const std::vector<Square> found = Marked(marks, side);
    std::size_t next = 0;
    for (unsigned row = 0; row < side; ++row) {
      for (unsigned col = 0; col < side; ++col) {
        const bool isMarked = next < found.size() && found[next] == Square{row, col};
        if (isMarked) ++next;
        if (row + 1 == side || col + 1 == side) {
          ASSERT_TRUE(isMarked) << "corners in other areas at " << row << ", " << col;
          continue;
        }
        if (IsCrossed(cells, side, {row, col}, 1.0)) {
          ASSERT_TRUE(isMarked) << row << ", " << col;
        }
        const auto corner = [&](unsigned up, unsigned right) { return cells[(row + up) * side + col + right]; };
        const bool above = corner(0, 0) > 1.0 && corner(0, 1) > 1.0 && corner(1, 0) > 1.0 && corner(1, 1) > 1.0;
        const bool below = corner(0, 0) < 1.0 && corner(0, 1) < 1.0 && corner(1, 0) < 1.0 && corner(1, 1) < 1.0;
        if (above || below) {
          ASSERT_FALSE(isMarked) << row << ", " << col;
          ++left;
        }
      }
    }
    EXPECT_EQ(next, found.size()) << "in order, and none outside";
  }
  EXPECT_GT(left, 1000U);
}

TEST(SquareMarks, PassOverWhatIsEmpty) {
  const std::vector<double> cells(std::size_t{5} * 5, EmptyDouble());
  SquareMarks marks;
  marks.Mark(cells.data(), 5, -3.0);
  EXPECT_EQ(Marked(marks, 5).size(), 9U) << "the last row and the last column alone";
}

TEST(SquareMarks, StopWhereTheyAreAskedTo) {
  const std::vector<double> cells = {0, 2, 0, 2, 0, 2, 0, 2, 0};
  SquareMarks marks;
  marks.Mark(cells.data(), 3, 1.0);
  int shown = 0;
  EXPECT_FALSE(marks.ForEach(0, [&](unsigned) { return ++shown < 2; }));
  EXPECT_EQ(shown, 2);
}

}  // namespace
}  // namespace vak::test
