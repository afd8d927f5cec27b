#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/contour/CellSquares.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"

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

TEST_F(CellSquaresInModel, AnotherAccessIsFollowedThoughItGaveUpAsManyAreas) {
  TestGrid other;
  for (TestGrid* grid : {&grid_, &other}) {
    for (int row = 0; row < 2; ++row) {
      for (int col = 0; col < 2; ++col) grid->Set(row, col, dVAL, grid == &other ? 7 : 1);
    }
  }
  DtmAccess access(&grid_.File());
  DtmAccess next(&other.File());
  CellSquares squares(dVAL);
  squares.SetAccess(&access);
  ASSERT_TRUE(squares.ReadHeights(0, 0));
  ASSERT_EQ(access.NumReleases(), next.NumReleases());
  squares.SetAccess(&next);
  ASSERT_TRUE(squares.ReadHeights(0, 0));
  for (const auto& vertex : squares.Vertices()) EXPECT_EQ(vertex.z, 7);
}

TEST_F(CellSquaresInModel, NothingIsReadOfAnAccessThatIsGone) {
  CellSquares squares(dVAL);
  {
    DtmAccess access(&grid_.File());
    squares.SetAccess(&access);
    ReadFast(squares, 0, 0);
    ReadFast(squares, 3, 3);
  }
  DtmAccess detached(nullptr);
  squares.SetAccess(&detached);
  for (int row = -4; row < 8; ++row) {
    for (int col = -4; col < 8; ++col) {
      EXPECT_FALSE(squares.ReadHeights(row, col));
      for (const auto& vertex : squares.Vertices()) EXPECT_TRUE(IsEmptyValue(vertex.z));
    }
  }
}

/// A model of 5 x 5 areas of 4 x 4 cells in which nobody holds a block but the access that is tested, so that blocks go
/// whenever it gives up an area.
class CellSquaresInModelThatNobodyHolds : public testing::TestWithParam<std::uint64_t> {
 protected:
  static constexpr int kSide = 20;

  CellSquaresInModelThatNobodyHolds() {
    for (int row = 0; row < kSide; ++row) {
      for (int col = 0; col < kSide; ++col) {
        grid_.Set(row, col, dVAL, Height(row, col));
        grid_.Set(row, col, iNUM, 1 + row * kSide + col);
      }
    }
    grid_.Leave();
    grid_.Access().SetCacheSize(GetParam());
  }

  static double Height(int row, int col) { return 0.5 + 100 * row + col; }

  /// Whether the square was read, and rightly.
  testing::AssertionResult Reads(CellSquares& squares, int row, int col, int block) {
    const bool read = squares.ReadHeights(row, col);
    constexpr std::array<std::array<int, 2>, 4> kPlaces{{{0, 0}, {0, 1}, {1, 1}, {1, 0}}};
    bool all = true;
    for (std::size_t i = 0; i < 4; ++i) {
      const int r = row + kPlaces[i][0];
      const int c = col + kPlaces[i][1];
      const double z = squares.Vertices()[i].z;
      const bool isIn = r >= 0 && c >= 0 && r < kSide && c < kSide;
      all = all && isIn;
      const double expected = block == dVAL ? Height(r, c) : 1 + r * kSide + c;
      if (isIn ? z != expected : !IsEmptyValue(z)) {
        return testing::AssertionFailure() << "square " << row << ' ' << col << ", vertex " << i << ": " << z;
      }
    }
    if (read != all) return testing::AssertionFailure() << "square " << row << ' ' << col << ": answered " << read;
    return testing::AssertionSuccess();
  }

  TestGrid grid_{{.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}}};
};

TEST_P(CellSquaresInModelThatNobodyHolds, EverySquareIsReadInAnyOrder) {
  for (const int block : {dVAL, iNUM}) {
    SCOPED_TRACE(block);
    CellSquares squares(block);
    squares.SetAccess(&grid_.Access());
    for (int row = -1; row < kSide; ++row) {
      for (int col = -1; col < kSide; ++col) ASSERT_TRUE(Reads(squares, row, col, block));
    }
    for (int col = kSide - 1; col >= -1; --col) {
      for (int row = kSide - 1; row >= -1; --row) ASSERT_TRUE(Reads(squares, row, col, block));
    }
    std::mt19937_64 random(7);
    const auto place = [&] { return static_cast<int>(random() % (kSide + 1)) - 1; };
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(Reads(squares, place(), place(), block));
  }
  EXPECT_GT(grid_.Access().NumReleases(), 50U);
}

TEST_P(CellSquaresInModelThatNobodyHolds, SquaresAreReadRightlyThoughTheAccessWentElsewhere) {
  CellSquares squares(dVAL);
  squares.SetAccess(&grid_.Access());
  for (int row = 0; row < kSide - 1; ++row) {
    for (int col = 0; col < kSide - 1; ++col) {
      ASSERT_TRUE(Reads(squares, row, col, dVAL));
      // Through more areas than any of the caches holds.
      for (int away = 0; away < 5; ++away) {
        double z = 0;
        const int other = (col + 4 * away) % kSide;
        ASSERT_TRUE(grid_.Access().GetDoubleValue(kSide - 1 - row, other, dVAL, z));
        ASSERT_EQ(z, Height(kSide - 1 - row, other));
      }
      ASSERT_TRUE(Reads(squares, row, col, dVAL));
    }
  }
}

// Area by area and, with a cache for a row of areas, row by row.
TEST_P(CellSquaresInModelThatNobodyHolds, NoMoreAreasAreOpenedThanCellByCell) {
  const auto count = [&](const auto& read) {
    grid_.Leave();
    grid_.Access().SetCacheSize(GetParam());
    const std::uint64_t before = grid_.Access().NumReleases();
    for (int area = 0; area < 25; ++area) {
      for (int cell = 0; cell < 16; ++cell) read(area / 5 * 4 + cell / 4, area % 5 * 4 + cell % 4);
    }
    const std::uint64_t byAreas = grid_.Access().NumReleases() - before;
    grid_.Leave();
    grid_.Access().SetCacheSize(5);
    for (int row = 0; row < kSide; ++row) {
      for (int col = 0; col < kSide; ++col) read(row, col);
    }
    return std::array<std::uint64_t, 2>{byAreas, grid_.Access().NumReleases()};
  };
  const auto plain = count([&](int row, int col) {
    double z = 0;
    for (const auto& [r, c] : {std::array{row, col}, {row, col + 1}, {row + 1, col + 1}, {row + 1, col}}) {
      grid_.Access().GetDoubleValue(r, c, dVAL, z);
    }
  });
  CellSquares squares(dVAL);
  const auto opened = count([&](int row, int col) {
    if (squares.Access() != &grid_.Access() || (row == 0 && col == 0)) squares.SetAccess(&grid_.Access());
    squares.ReadHeights(row, col);
  });
  EXPECT_GT(plain[0], 10U);
  EXPECT_LE(opened[0], plain[0]);
  EXPECT_LE(opened[1], plain[1]);
}

INSTANTIATE_TEST_SUITE_P(Cache, CellSquaresInModelThatNobodyHolds, testing::Values(0, 1, 2, 3, 9));

TEST(CellSquares, AreasAtTheEndsOfWhatIsAllowedAreRead) {
  for (const int block : {dVAL, iNUM}) {
    for (const int areaSize : {1, 2, 4, 7}) {
      TestGrid grid({.cellSize = 1.0, .areaSize = areaSize, .blockIds = {dVAL, iNUM}});
      const int largest = grid.File().LargestAllowed();
      for (const int row : {-largest, 0, largest - 2}) {
        for (const int col : {-largest, 0, largest - 2}) {
          for (int i = 0; i < 9; ++i) ASSERT_TRUE(grid.Set(row + i / 3, col + i % 3, block, 1 + i));
        }
      }
      DtmAccess other(&grid.File());
      CellSquares squares(block);
      squares.SetAccess(&grid.Access());
      int read = 0;
      for (const int row : {-largest, 0, largest - 2}) {
        for (const int col : {-largest, 0, largest - 2}) {
          for (int i = 0; i < 25; ++i) {
            const int r = row - 1 + i / 5;
            const int c = col - 1 + i % 5;
            const Reading reading = ReadFast(squares, r, c);
            ASSERT_EQ(reading, ReadSlowly(other, r, c, block)) << r << ' ' << c << " areas of " << areaSize;
            if (reading.read) ++read;
          }
        }
      }
      EXPECT_GE(read, 9 * 4);
    }
  }
}

TEST(CellSquares, CellsOfAnAreaThatAreNotAllowedAreNotRead) {
  TestGrid grid;
  for (const int end : {-grid.File().LargestAllowed(), grid.File().LargestAllowed()}) {
    // Its block holds heights where the access has no cells.
    ASSERT_TRUE(grid.Set(end, end, dVAL, 1));
    DtmDataBlock* const block = grid.Area(end, end)->OpenDataBlock(dVAL);
    ASSERT_NE(block, nullptr);
    for (int cell = 0; cell < 16; ++cell) reinterpret_cast<double*>(block->CellData())[cell] = 3;
    DtmAccess other(&grid.File());
    CellSquares squares(dVAL);
    squares.SetAccess(&grid.Access());
    for (int row = end - 4; row < end + 4; ++row) {
      for (int col = end - 4; col < end + 4; ++col) {
        ASSERT_EQ(ReadFast(squares, row, col), ReadSlowly(other, row, col, dVAL)) << row << ' ' << col;
      }
    }
    block->Close();
  }
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
