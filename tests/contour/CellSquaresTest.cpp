#include <array>
#include <bit>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/contour/CellSquares.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

/// The heights of a square by their bits, and whether all could be read.
struct Reading {
  bool read = true;
  std::array<std::uint64_t, 4> bits{};
  bool operator==(const Reading&) const = default;
};

Reading ReadFast(CellSquares& squares, int row, int col) {
  Reading reading;
  reading.read = squares.ReadHeights(row, col);
  for (std::size_t i = 0; i < 4; ++i) reading.bits[i] = std::bit_cast<std::uint64_t>(squares.Vertices()[i].z);
  return reading;
}

Reading ReadSlowly(DtmAccess& access, int row, int col, int block) {
  constexpr std::array<std::array<int, 2>, 4> kPlaces{{{0, 0}, {0, 1}, {1, 1}, {1, 0}}};
  Reading reading;
  for (std::size_t i = 0; i < 4; ++i) {
    double z = 0;
    reading.read = access.GetDoubleValue(row + kPlaces[i][0], col + kPlaces[i][1], block, z) && reading.read;
    reading.bits[i] = std::bit_cast<std::uint64_t>(z);
  }
  return reading;
}

/// A model with gaps: areas of 4 x 4, of which some are missing, in rows and columns -8 to 11.
class CellSquaresInModel : public testing::Test {
 protected:
  CellSquaresInModel() {
    std::mt19937_64 random(3);
    for (int row = -8; row < 12; row += 4) {
      for (int col = -8; col < 12; col += 4) {
        if (random() % 3 != 0) Fill(row, col, random);
      }
    }
  }

  void Fill(int row, int col, std::mt19937_64& random) {
    for (int i = 0; i < 16; ++i) {
      if (random() % 5 == 0) continue;
      grid_.Set(row + i / 4, col + i % 4, dVAL, static_cast<double>(random() % 100));
      grid_.Set(row + i / 4, col + i % 4, iNUM, static_cast<double>(random() % 3));
    }
  }

  void ExpectAllAlike(CellSquares& squares, int block) {
    int read = 0;
    for (int row = -10; row < 14; ++row) {
      for (int col = -10; col < 14; ++col) {
        const Reading reading = ReadFast(squares, row, col);
        ASSERT_EQ(reading, ReadSlowly(other_, row, col, block)) << row << ' ' << col;
        if (reading.read) ++read;
      }
    }
    EXPECT_GT(read, 50);
  }

  TestGrid grid_{{.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}}};
  DtmAccess other_{&grid_.File()};
};

TEST_F(CellSquaresInModel, HeightsAreThoseThatTheAccessGivesCellByCell) {
  for (const std::uint64_t cacheSize : {9U, 4U, 3U, 2U, 1U, 0U}) {
    SCOPED_TRACE(cacheSize);
    grid_.Access().SetCacheSize(cacheSize);
    CellSquares squares(dVAL);
    squares.SetAccess(&grid_.Access());
    ExpectAllAlike(squares, dVAL);
  }
}

TEST_F(CellSquaresInModel, HeightsAreThoseOfAnyKindOfBlock) {
  CellSquares squares(iNUM);
  squares.SetAccess(&grid_.Access());
  ExpectAllAlike(squares, iNUM);
}

TEST_F(CellSquaresInModel, HeightsAreRightWhereverTheAccessIsUsedInBetween) {
  std::mt19937_64 random(5);
  const auto place = [&] { return static_cast<int>(random() % 24) - 10; };
  for (const std::uint64_t cacheSize : {9U, 1U}) {
    grid_.Access().SetCacheSize(cacheSize);
    CellSquares squares(dVAL);
    squares.SetAccess(&grid_.Access());
    for (int i = 0; i < 2000; ++i) {
      double z = 0;
      grid_.Access().GetDoubleValue(place(), place(), dVAL, z);
      const int row = place();
      const int col = place();
      ASSERT_EQ(ReadFast(squares, row, col), ReadSlowly(other_, row, col, dVAL)) << row << ' ' << col;
      ASSERT_EQ(ReadFast(squares, row, col + 1), ReadSlowly(other_, row, col + 1, dVAL)) << row << ' ' << col;
    }
  }
}

TEST_F(CellSquaresInModel, HeightsAreThoseOfTheMomentAlsoInAreasThatAppear) {
  TestGrid grid;
  grid.Set(3, 3, dVAL, 1);
  CellSquares squares(dVAL);
  squares.SetAccess(&grid.Access());
  EXPECT_FALSE(squares.ReadHeights(3, 3));
  EXPECT_EQ(squares.Vertices()[0].z, 1);
  EXPECT_TRUE(IsEmptyValue(squares.Vertices()[2].z));
  grid.Set(3, 4, dVAL, 2);
  grid.Set(4, 4, dVAL, 3);
  grid.Set(4, 3, dVAL, 4);
  grid.Set(3, 3, dVAL, 5);
  EXPECT_TRUE(squares.ReadHeights(3, 3));
  EXPECT_EQ(squares.Vertices()[0].z, 5);
  EXPECT_EQ(squares.Vertices()[1].z, 2);
  EXPECT_EQ(squares.Vertices()[2].z, 3);
  EXPECT_EQ(squares.Vertices()[3].z, 4);
}

TEST_F(CellSquaresInModel, AnAccessThatGoesToAnotherModelIsFollowedOnceItIsSetAgain) {
  TestGrid other;
  other.Draw(
      "3 4\n"
      "1 2\n");
  DtmAccess access(&grid_.File());
  CellSquares squares(dVAL);
  squares.SetAccess(&access);
  ReadFast(squares, 0, 0);
  access.SetDtmFile(&other.File());
  squares.SetAccess(&access);
  EXPECT_TRUE(squares.ReadHeights(0, 0));
  EXPECT_EQ(squares.Vertices()[2].z, 4);
}

TEST(CellSquares, AreasOfOneCellAreRead) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL}});
  grid.Draw(
      "3 4\n"
      "1 2\n");
  CellSquares squares(dVAL);
  squares.SetAccess(&grid.Access());
  EXPECT_TRUE(squares.ReadHeights(0, 0));
  EXPECT_EQ(squares.Vertices()[0].z, 1);
  EXPECT_EQ(squares.Vertices()[1].z, 2);
  EXPECT_EQ(squares.Vertices()[2].z, 4);
  EXPECT_EQ(squares.Vertices()[3].z, 3);
  EXPECT_FALSE(squares.ReadHeights(1, 1));
}

TEST(CellSquares, EndsOfTheTypeHaveNoCells) {
  TestGrid grid;
  CellSquares squares(dVAL);
  squares.SetAccess(&grid.Access());
  for (const int row : {std::numeric_limits<int>::min(), -1, 0, std::numeric_limits<int>::max()}) {
    for (const int col : {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
      EXPECT_FALSE(squares.ReadHeights(row, col));
      for (const auto& vertex : squares.Vertices()) EXPECT_TRUE(IsEmptyValue(vertex.z));
    }
  }
}

TEST(CellSquares, EdgesAlongTheBorderOfTheAreaTouchIt) {
  CellSquares squares(dVAL);
  squares.SetArea(-4, 8, 4);
  const auto touched = [&](int row, int col) {
    std::string edges;
    for (int edge = 0; edge < 4; ++edge) edges += squares.TouchesBorder(edge, row, col) ? "lruL"[edge] : '.';
    return edges;
  };
  static_assert(kLowerEdge == 0 && kRightEdge == 1 && kUpperEdge == 2 && kLeftEdge == 3);
  EXPECT_EQ(touched(-4, 8), "l..L");
  EXPECT_EQ(touched(-4, 11), "lr..");
  EXPECT_EQ(touched(-1, 11), ".ru.");
  EXPECT_EQ(touched(-1, 8), "..uL");
  EXPECT_EQ(touched(-3, 9), "....");
  EXPECT_EQ(touched(-4, 9), "l...");
  EXPECT_EQ(touched(-2, 11), ".r..");
}

TEST(CellSquares, NeighboursComputeACommonEdgeInTheSameDirection) {
  // Place of each vertex, X then Y.
  constexpr std::array<std::array<int, 2>, 4> kPlaces{{{0, 0}, {1, 0}, {1, 1}, {0, 1}}};
  for (const SquareEdge& edge : kSquareEdges) {
    const auto& from = kPlaces[static_cast<std::size_t>(edge.from)];
    const auto& to = kPlaces[static_cast<std::size_t>(edge.to)];
    EXPECT_LE(from[0], to[0]) << edge.bit;
    EXPECT_LE(from[1], to[1]) << edge.bit;
  }
}

}  // namespace
}  // namespace vak
