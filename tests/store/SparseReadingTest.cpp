#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

#include "support/LongForm.h"
#include "support/OtherWriter.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::OtherWriter;
using test::TestFolder;
using test::TestGrid;

bool SameBits(double a, double b) { return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b); }

const GridSettings kAllLetters = {
    .cellSize = 1.0, .areaSize = 8, .blockIds = {dVAL, iNUM, fBKS, cOIL, tTIM, uFCT, dSDV}};

/// What a cursor reads in either way. @return whether the two agree, to the last bit.
bool ReadsAlike(DtmAccess& sparse, DtmAccess& dense, int row, int col, int id) {
  double one = 1;
  double other = 2;
  const bool found = sparse.GetDoubleValue(row, col, id, one);
  return found == dense.GetDoubleValue(row, col, id, other) && SameBits(one, other);
}

DtmAccess SparseAccess(DtmFile& file) {
  DtmAccess access(&file);
  access.SetSparseReading(true);
  return access;
}

struct HeaderStart {
  DtmArea* area;
  int id;
  std::size_t start;  // in the file
};

/// Where the headers of the blocks are in the first areas of a model.
std::vector<HeaderStart> HeaderStarts(TestGrid& grid, int areas) {
  std::vector<HeaderStart> starts;
  for (int i = 0; i < areas; ++i) {
    DtmArea* const area = grid.File().GetArea(i);
    const std::scoped_lock lock(area->Mutex());
    for (int slot = 0; slot < grid.File().NumBlockIds(); ++slot) {
      const std::int64_t body = area->FindDataBlockAt(slot)->BlockPosition();
      starts.push_back({area, grid.File().GetBlockId(slot), static_cast<std::size_t>(body - grid::kHeaderSize)});
    }
  }
  return starts;
}

TEST(SparseReading, AnswersAsReadingWholeBlocksDoes) {
  TestGrid grid(kAllLetters);
  std::mt19937 random(1);
  for (int i = 0; i < 300; ++i) {
    const int row = static_cast<int>(random() % 24) - 12;
    const int col = static_cast<int>(random() % 24) - 12;
    if (random() % 5 == 0) {
      ASSERT_TRUE(grid.Sound(col + 0.5, row + 0.5, -3.25, static_cast<long long>(random() % 1000)));
    } else {
      ASSERT_TRUE(grid.Set(row, col, kAllLetters.blockIds[random() % 5], static_cast<double>(random() % 90) / 4));
    }
  }
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  DtmAccess dense(&grid.File());
  sparse.SetCacheSize(1);
  for (int round = 0; round < 2; ++round) {  // the second one meets the blocks that `dense` has in memory
    for (int row = -20; row < 20; ++row) {
      for (int col = -20; col < 20; ++col) {
        for (const int id : {dVAL, iNUM, fBKS, cOIL, tTIM, uFCT, dSDV, dMIN}) {
          ASSERT_TRUE(ReadsAlike(sparse, dense, row, col, id)) << row << ' ' << col << ' ' << id;
        }
      }
    }
  }
}

TEST(SparseReading, LeavesBlocksWhereTheyAre) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL, iNUM}});
  for (int row = 0; row < 64; ++row) grid.Set(row, row, dVAL, -row);
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  double value = 0;
  ASSERT_TRUE(sparse.GetDoubleValue(9, 9, dVAL, value));
  EXPECT_EQ(value, -9.0);
  const auto before = grid.Memory().counts.bytesRead;
  ASSERT_TRUE(sparse.GetDoubleValue(10, 10, dVAL, value));
  EXPECT_EQ(value, -10.0);
  EXPECT_EQ(grid.Memory().counts.bytesRead - before, 64 * sizeof(double)) << "a row of the area";
  ASSERT_TRUE(sparse.GetDoubleValue(10, 60, dVAL, value));
  ASSERT_TRUE(sparse.GetDoubleValue(9, 0, dVAL, value));
  EXPECT_EQ(grid.Memory().counts.bytesRead - before, 64 * sizeof(double)) << "both rows are known";
  const std::scoped_lock lock(grid.Area(0, 0)->Mutex());
  EXPECT_EQ(grid.Area(0, 0)->FindDataBlockAt(0)->CellData(), nullptr) << "not resident";
}

TEST(SparseReading, ReadsAPieceOfALongRow) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 2000, .blockIds = {dVAL}});
  grid.Set(0, 1030, dVAL, 4);
  grid.Set(0, 1999, dVAL, 5);
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  double value = 0;
  ASSERT_TRUE(sparse.GetDoubleValue(0, 0, dVAL, value));
  const auto before = grid.Memory().counts.bytesRead;
  ASSERT_TRUE(sparse.GetDoubleValue(0, 1030, dVAL, value));
  EXPECT_EQ(value, 4.0);
  EXPECT_EQ(grid.Memory().counts.bytesRead - before, 4096u);
  ASSERT_TRUE(sparse.GetDoubleValue(0, 1999, dVAL, value));
  EXPECT_EQ(value, 5.0);
  EXPECT_LT(grid.Memory().counts.bytesRead - before, 8192u) << "a piece ends with its row";
}

TEST(SparseReading, SeesWhatAnotherCursorHasJustWritten) {
  TestGrid grid;
  grid.Draw("1 2 3");
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  EXPECT_EQ(test::Get(sparse, 0, 1), 2.0);
  {
    DtmAccess other(&grid.File());
    ASSERT_TRUE(other.SetDoubleValue(0, 1, dVAL, 7, true));
    EXPECT_EQ(test::Get(sparse, 0, 1), 7.0) << "in memory";
    EXPECT_EQ(test::Get(sparse, 0, 2), 3.0);
    ASSERT_TRUE(other.SetDoubleValue(0, 2, dVAL, 8, true));
  }
  EXPECT_EQ(test::Get(sparse, 0, 1), 7.0) << "in the file";
  EXPECT_EQ(test::Get(sparse, 0, 2), 8.0);
  ASSERT_TRUE(DtmAccess(&grid.File()).MakeCellEmpty(0, 2));
  EXPECT_TRUE(IsEmptyValue(test::Get(sparse, 0, 2)));
  EXPECT_EQ(test::Get(sparse, 0, 0), 1.0);
  grid.Area(0, 0)->MakeEmpty();
  EXPECT_TRUE(IsEmptyValue(test::Get(sparse, 0, 0))) << "emptied without being in memory";
}

TEST(SparseReading, SeesItsOwnWriting) {
  TestGrid grid;
  grid.Draw("1 2 3");
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  EXPECT_EQ(test::Get(sparse, 0, 1), 2.0);
  ASSERT_TRUE(sparse.InsertValue(1.5, 0.5, 6, 0, nullptr, nullptr, 0));
  EXPECT_EQ(test::Get(sparse, 0, 1), 6.0) << "no hits were counted before";
  ASSERT_TRUE(sparse.SetDoubleValue(0, 9, dVAL, 5, true));
  EXPECT_EQ(test::Get(sparse, 0, 9), 5.0);
}

TEST(SparseReading, SeesAreasThatAppear) {
  TestGrid grid;
  grid.Draw("1");
  DtmAccess sparse = SparseAccess(grid.File());
  EXPECT_TRUE(IsEmptyValue(test::Get(sparse, 40, 40)));
  ASSERT_TRUE(grid.Set(40, 40, dVAL, 3));
  EXPECT_EQ(test::Get(sparse, 40, 40), 3.0);
}

TEST(SparseReading, FollowsAnotherProcess) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  OtherWriter writer(path, true);
  writer.Set(0, 0, 1);
  writer.Set(0, 1, 2);
  writer.Publish();
  DtmFile file(new HugeFileStream(path.c_str(), false, false), false);
  file.SetFollowing(true);
  ASSERT_TRUE(file.Open());
  {
    DtmAccess sparse = SparseAccess(file);
    EXPECT_EQ(test::Get(sparse, 0, 1), 2.0);
    writer.Set(0, 1, 5);
    writer.Publish();
    ASSERT_TRUE(file.CatchUp(nullptr));
    EXPECT_EQ(test::Get(sparse, 0, 1), 5.0);
    EXPECT_EQ(test::Get(sparse, 0, 0), 1.0);
  }
  file.Close();
}

TEST(SparseReading, ACopyReadsAsTheOriginal) {
  TestGrid grid;
  grid.Draw("1 2 3");
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  EXPECT_EQ(test::Get(sparse, 0, 0), 1.0);
  DtmAccess copy(sparse);
  EXPECT_TRUE(copy.SetSparseReading(true)) << "what it was";
  EXPECT_EQ(test::Get(copy, 0, 2), 3.0);
  EXPECT_TRUE(copy.SetSparseReading(false));
  EXPECT_FALSE(copy.SetSparseReading(false));
  EXPECT_EQ(test::Get(copy, 0, 1), 2.0);
}

TEST(SparseReading, SlopesAndInterpolationAreTheSame) {
  TestGrid grid;
  for (int row = -6; row < 6; ++row) {
    for (int col = -6; col < 6; ++col) grid.Set(row, col, dVAL, row * 0.7 - col * 0.3 + (row * col % 5));
  }
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  DtmAccess dense(&grid.File());
  for (int row = -7; row < 7; ++row) {
    for (int col = -7; col < 7; ++col) {
      double one = 0;
      double other = 0;
      ASSERT_EQ(sparse.GetGradientValue(row, col, dVAL, one), dense.GetGradientValue(row, col, dVAL, other));
      ASSERT_TRUE(SameBits(one, other));
      one = other = 0;
      ASSERT_EQ(sparse.GetInterpolatedValue(col + 0.3, row + 0.8, dVAL, one, true),
                dense.GetInterpolatedValue(col + 0.3, row + 0.8, dVAL, other, true));
      ASSERT_TRUE(SameBits(one, other));
    }
  }
}

/// Every byte of a model is damaged in turn, and its end cut at every place: either way of reading answers the same,
/// but where another block's header alone is harmed. There the cell that the file has is read.
TEST(SparseReading, AnswersOnDamagedFilesAsReadingWholeBlocksDoes) {
  const std::vector<int> ids = {dVAL, iNUM, fBKS};
  TestGrid whole({.cellSize = 1.0, .areaSize = 2, .blockIds = ids});
  whole.Draw(
      "1 2 3\n"
      "4 5 6");
  whole.Close();
  const std::vector<std::uint8_t> bytes = whole.Bytes();
  TestGrid sound(bytes);
  const auto starts = HeaderStarts(sound, 2);
  int refused = 0;
  int beside = 0;
  constexpr std::size_t kList = 56;  // where the file's list of blocks is
  // @param at  the harmed byte. @return whether it belongs to the header of another block in the cell's area, or to the
  // name that the list has for another block, without the letter from which the width follows.
  const auto isBeside = [&](std::size_t at, int row, int col, int id) {
    if (at >= kList && at < kList + 4 * ids.size()) return ids[(at - kList) / 4] != id && at % 4 != 3;
    const auto found = std::find_if(starts.begin(), starts.end(), [&](const HeaderStart& header) {
      return at >= header.start && at < header.start + grid::kHeaderSize;
    });
    return found != starts.end() && found->id != id && found->area->IsInArea(row, col);
  };
  const auto compare = [&](const std::vector<std::uint8_t>& damaged, std::size_t at, bool flipped) {
    if (!test::Opens(damaged)) return;
    TestGrid second(damaged);
    for (const int id : ids) {
      TestGrid first(damaged);  // a new one, since an area whose harmed block was asked for gives nothing any more
      first.Access().SetSparseReading(true);
      for (int row = -1; row < 3; ++row) {
        for (int col = -1; col < 5; ++col) {
          SCOPED_TRACE(testing::Message()
                       << (flipped ? "flipped " : "cut at ") << at << ", cell " << row << ' ' << col);
          double value = 0;
          const bool found = first.Access().GetDoubleValue(row, col, id, value);
          const bool harmless = flipped && isBeside(at, row, col, id);
          double other = 0;
          EXPECT_EQ(found, (harmless ? sound : second).Access().GetDoubleValue(row, col, id, other));
          EXPECT_TRUE(SameBits(value, other));
          refused += found ? 0 : 1;
          beside += harmless && found ? 1 : 0;
        }
      }
    }
  };
  for (std::size_t at = 0; at < bytes.size() && !testing::Test::HasFailure(); ++at) {
    std::vector<std::uint8_t> flipped = bytes;
    flipped[at] ^= 0x41;
    compare(flipped, at, true);
    compare({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(at)}, at, false);
  }
  EXPECT_GT(refused, 20) << "there was damage to be met";
  // Two areas of four cells, of each three blocks with two others: the headers' eight bytes, the names' three.
  EXPECT_EQ(beside, 2 * 4 * 3 * 2 * (8 + 3));
}

/// A file whose areas have their blocks in another order than it says, with chunks that nobody knows.
TEST(SparseReading, FindsBlocksThatAreNotWhereTheyAreWritten) {
  TestGrid usual({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM}});
  for (int cell = 0; cell < 4; ++cell) {
    usual.Set(cell / 2, cell % 2, dVAL, cell + 1);
    usual.Set(cell / 2, cell % 2, iNUM, 10 * cell + 1);
  }
  usual.Close();
  std::vector<std::uint8_t> bytes = usual.Bytes();
  TestGrid sound(bytes);
  const auto starts = HeaderStarts(sound, 1);
  ASSERT_EQ(starts.size(), 2u);
  const auto at = [&](std::size_t offset) { return bytes.begin() + static_cast<std::ptrdiff_t>(offset); };
  // The two change places, headers and all.
  std::rotate(at(starts[0].start), at(starts[1].start), at(starts[1].start + grid::kHeaderSize + 4 * 4));
  TestGrid odd(bytes);
  DtmAccess sparse = SparseAccess(odd.File());
  for (int cell = 0; cell < 4; ++cell) {
    double value = 0;
    ASSERT_TRUE(sparse.GetDoubleValue(cell / 2, cell % 2, iNUM, value));
    EXPECT_EQ(value, 10 * cell + 1);
    ASSERT_TRUE(sparse.GetDoubleValue(cell / 2, cell % 2, dVAL, value));
    EXPECT_EQ(value, cell + 1);
  }
}

TEST(SparseReading, AnAreaCostsItsBeginningAndTheCells) {
  const std::vector<int> ids = {dVAL, iNUM, dSDV, tTIM, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX};
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = ids});
  grid.Set(40, 5, dVAL, 3);
  grid.Set(40, 5, dMAX, 4);
  struct Case {
    int id;
    int row;
    std::uint64_t reads;
    std::uint64_t bytes;  // besides the row
  };
  for (const Case& wanted :
       {Case{dVAL, 40, 2, 48}, Case{dVAL, 1, 1, 48 + 512}, Case{dMAX, 40, 3, 48}, Case{dMAX, 1, 2, 48 + 512}}) {
    SCOPED_TRACE(testing::Message() << wanted.id << ' ' << wanted.row);
    grid.Reopen();
    DtmAccess sparse = SparseAccess(grid.File());
    const auto before = grid.Memory().counts;
    double value = 0;
    ASSERT_TRUE(sparse.GetDoubleValue(wanted.row, 5, wanted.id, value));
    EXPECT_EQ(grid.Memory().counts.reads - before.reads, wanted.reads);
    EXPECT_EQ(grid.Memory().counts.bytesRead - before.bytesRead, wanted.bytes + 512);
    const auto first = grid.Memory().counts;
    ASSERT_TRUE(sparse.GetDoubleValue(60, 5, wanted.id, value));
    EXPECT_EQ(grid.Memory().counts.reads - first.reads, 1u) << "its place is known";
    const auto second = grid.Memory().counts;
    DtmAccess other = SparseAccess(grid.File());
    ASSERT_TRUE(other.GetDoubleValue(wanted.row, 5, wanted.id, value));
    EXPECT_EQ(grid.Memory().counts.reads - second.reads, 1u) << "to every cursor";
    ASSERT_TRUE(other.GetDoubleValue(wanted.row, 5, iNUM, value));
    EXPECT_EQ(grid.Memory().counts.reads - second.reads, 1u + (wanted.row == 40 ? 3 : 2)) << "that of this block";
  }
}

TEST(SparseReading, AnAreasPlaceIsLookedAtAgainWhenItIsKnownAnew) {
  const std::vector<int> ids = {dVAL, iNUM};
  TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = ids});
  grid.Draw(
      "1 2\n"
      "3 4");
  grid.Reopen();
  TestGrid twin(grid.Bytes());
  const HeaderStart val = HeaderStarts(twin, 1).front();
  DtmAccess sparse = SparseAccess(grid.File());
  EXPECT_EQ(test::Get(sparse, 0, 0), 3.0);
  grid.Memory().bytes[val.start] ^= 0x41;
  EXPECT_EQ(test::Get(sparse, 1, 0), 1.0) << "nothing says that it may have changed";
  DtmArea& area = *grid.Area(0, 0);
  ASSERT_TRUE(area.SyncRead(area.LastWritten()));
  double value = 1;
  EXPECT_FALSE(sparse.GetDoubleValue(1, 0, dVAL, value));
}

/// The end of the file is asked for no more than the area's place is.
TEST(SparseReading, CellsThatAreStillThereOutliveALossOfOthers) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM}});
  grid.Draw(
      "1 2\n"
      "3 4");
  grid.Reopen();
  TestGrid twin(grid.Bytes());
  const std::size_t num = HeaderStarts(twin, 1).back().start;
  DtmAccess sparse = SparseAccess(grid.File());
  grid.Memory().bytes.resize(num - 8);
  EXPECT_EQ(test::Get(sparse, 0, 0), 3.0);
  double value = 1;
  EXPECT_FALSE(sparse.GetDoubleValue(1, 1, dVAL, value)) << "the last of the block";
  DtmAccess dense(&grid.File());
  EXPECT_FALSE(dense.GetDoubleValue(0, 0, dVAL, value)) << "as a whole it can't be had";
}

TEST(SparseReading, WhatTheStreamRefusesIsNoValue) {
  TestGrid grid;
  grid.Draw("1 2 3");
  grid.Reopen();
  DtmAccess sparse = SparseAccess(grid.File());
  EXPECT_EQ(test::Get(sparse, 0, 0), 1.0);
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  double value = 1;
  EXPECT_FALSE(sparse.GetDoubleValue(1, 0, dVAL, value));
  EXPECT_TRUE(IsEmptyValue(value));
  EXPECT_EQ(test::Get(sparse, 0, 2), 3.0) << "of the same row";
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  EXPECT_TRUE(sparse.GetDoubleValue(1, 0, dVAL, value));
}

/// Cursors that read sparsely, that read blocks, that write and that empty, in any order: the answers agree all along.
TEST(SparseReading, AnyOrderOfWorkIsSeenAsByReadingWholeBlocks) {
  std::mt19937_64 random(1);
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}});
  DtmAccess sparse = SparseAccess(grid.File());
  int values = 0;
  DtmAccess writer(&grid.File());
  for (int step = 0; step < LongForm(4000, 100000, 1500); ++step) {
    const int row = static_cast<int>(random() % 12) - 6;
    const int col = static_cast<int>(random() % 12) - 6;
    switch (random() % 12) {
      case 0:
        ASSERT_TRUE(writer.SetDoubleValue(row, col, dVAL, static_cast<double>(random() % 100), true));
        break;
      case 1:
        ASSERT_TRUE(writer.MakeCellEmpty(row, col));
        break;
      case 2:
        writer = DtmAccess(&grid.File());  // what it held goes to the file
        writer.SetCacheSize(random() % 3);
        break;
      case 3:
        if (random() % 20 == 0 && grid.Area(row, col)) grid.Area(row, col)->MakeEmpty();
        break;
      case 4:
        if (random() % 20 == 0) {
          ASSERT_TRUE(grid.File().SyncWrite());
        }
        break;
      default: {
        DtmAccess dense(&grid.File());
        ASSERT_TRUE(ReadsAlike(sparse, dense, row, col, random() % 3 == 0 ? iNUM : dVAL)) << step;
        values += IsEmptyValue(test::Get(dense, row, col)) ? 0 : 1;
      }
    }
  }
  EXPECT_GT(values, 100);
}

}  // namespace
}  // namespace vak
