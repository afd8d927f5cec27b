// Areas that have lost all their data give their space back.
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr long long kHeader = 60;
constexpr long long kChunk = 8 + 32 + 8 + 8;  // one cell of dVAL

// Areas of one cell each; column n holds n + 1.
class Cells : public TestGrid {
 public:
  explicit Cells(int count) : TestGrid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL}}) {
    for (int col = 0; col < count; ++col) Set(0, col, dVAL, col + 1);
    Reopen();
  }
  long long At(int col) { return Area(0, col)->BlockPosition(); }
  static long long Place(int index) { return kHeader + kChunk * index + 8; }
  void ExpectCells(const std::vector<int>& cols) {
    EXPECT_EQ(File().NumAreas(), static_cast<int>(cols.size()));
    for (const int col : cols) EXPECT_EQ(Get(0, col), col + 1) << col;
  }
  std::size_t SizeWith(std::size_t areas) const { return kHeader + kChunk * areas + 16 + 32 * areas; }
};

TEST(DtmFileRemove, LastLiveAreaEndsUpAtTheHoleAndTheFileIsShorterByOneArea) {
  Cells grid(4);
  ASSERT_EQ(grid.Bytes().size(), grid.SizeWith(4));
  ASSERT_TRUE(grid.Clear(0, 1));
  grid.Reopen();
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(3));
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex);
  grid.ExpectCells({0, 3, 2});
  EXPECT_EQ(grid.At(3), Cells::Place(1)) << "the index shows the new position";
  EXPECT_EQ(grid.At(2), Cells::Place(2));
  EXPECT_EQ(grid.File().GetArea(1)->BottomLeftCol(), 3) << "entries by position";
  grid.ReopenByWalk();
  grid.ExpectCells({0, 2, 3});
}

TEST(DtmFileRemove, LastAreaIsSimplyCutOff) {
  Cells grid(3);
  ASSERT_TRUE(grid.Clear(0, 2));
  grid.Reopen();
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(2));
  grid.ExpectCells({0, 1});
  EXPECT_EQ(grid.At(1), Cells::Place(1));
}

TEST(DtmFileRemove, EmptyAreasBehindTheLastLiveOneGoWithTheHole) {
  Cells grid(5);
  for (const int col : {0, 3, 4}) ASSERT_TRUE(grid.Clear(0, col));
  grid.Reopen();
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(2));
  grid.ExpectCells({2, 1});
  EXPECT_EQ(grid.At(2), Cells::Place(0));
  EXPECT_EQ(grid.At(1), Cells::Place(1));
}

TEST(DtmFileRemove, AllAreasEmptiedLeaveAnEmptyModel) {
  Cells grid(4);
  for (const int col : {2, 0, 3, 1}) ASSERT_TRUE(grid.Clear(0, col));
  grid.Reopen();
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(0));
  EXPECT_EQ(grid.File().NumAreas(), 0);
}

TEST(DtmFileRemove, SeveralHolesAreFilledOneAfterTheOther) {
  Cells grid(7);
  for (const int col : {1, 3, 4}) ASSERT_TRUE(grid.Clear(0, col));
  grid.Reopen();
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(4));
  grid.ExpectCells({0, 6, 2, 5});
}

TEST(DtmFileRemove, RemovedAreaStaysAsAShellAndIsWrittenAtTheEndWhenSetAgain) {
  Cells grid(3);
  DtmArea* const shell = grid.Area(0, 0);
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Leave();
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.File().NumAreas(), 3);
  EXPECT_FALSE(shell->IsWritten());
  EXPECT_EQ(shell->BlockPosition(), -1);
  EXPECT_TRUE(shell->IsEmpty());
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(2));
  EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0)));

  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(shell->BlockPosition(), Cells::Place(2));
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(3));
  grid.Reopen();
  grid.ExpectCells({2, 1, 0});
}

TEST(DtmFileRemove, BlockOfAnUnwrittenShellStaysInMemoryWhenItsLastHolderCloses) {
  Cells grid(1);
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Leave();
  ASSERT_TRUE(grid.File().SyncWrite());
  ASSERT_FALSE(grid.Area(0, 0)->IsWritten());
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 9));
  grid.Leave();
  EXPECT_EQ(grid.Get(0, 0), 9) << "the only copy";
  EXPECT_EQ(grid.Bytes().size(), grid.SizeWith(0));
  grid.Reopen();
  EXPECT_EQ(grid.Get(0, 0), 9);
}

TEST(DtmFileRemove, MovedAreaKeepsAllItsBlocksAndWhatHasntBeenWrittenOfThem) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM, dSDV, tTIM, fXMN, cOIL, uFCT}});
  ASSERT_TRUE(grid.Sound(0.5, 0.5, -1, 5));
  for (const double z : {-3.0, -4.0}) ASSERT_TRUE(grid.Sound(9.5, 9.5, z, 77));
  ASSERT_TRUE(grid.Set(9, 9, cOIL, 12));
  grid.Reopen();
  ASSERT_TRUE(grid.Clear(0, 0));
  ASSERT_TRUE(grid.Sound(9.5, 9.5, -5, 78));
  grid.Reopen();
  ASSERT_EQ(grid.File().NumAreas(), 1);
  EXPECT_EQ(grid.Get(9, 9, dVAL), -4);
  EXPECT_EQ(grid.Get(9, 9, iNUM), 3);
  EXPECT_EQ(grid.Get(9, 9, tTIM), 78);
  EXPECT_EQ(grid.Get(9, 9, cOIL), 12);
  EXPECT_EQ(grid.Get(9, 9, uFCT), 1);
  EXPECT_NEAR(grid.Get(9, 9, dSDV), 1.0, 1e-12);
}

TEST(DtmFileRemove, AreaWhoseBlocksWereNeverNeededCountsAsLive) {
  Cells grid(3);
  // Area 2 is empty in the file, but nobody has looked.
  grid.Close();
  std::memset(grid.Memory().bytes.data() + kHeader + 2 * kChunk + 48, 0xFF, 8);
  grid.Open();
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Reopen();
  EXPECT_EQ(grid.File().NumAreas(), 2);
  EXPECT_EQ(grid.Area(0, 2)->BlockPosition(), Cells::Place(0));
}

TEST(DtmFileRemove, EmptiedAreaStaysInPlaceWhenTheLastOneCantBeRead) {
  Cells grid(3);
  grid.FlipByte(kHeader + 2 * kChunk + 40);  // the block's tag of the last area
  grid.Open();
  const std::vector<std::uint8_t> before = grid.Bytes();
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Leave();
  EXPECT_TRUE(grid.File().SyncWrite());
  EXPECT_TRUE(grid.Area(0, 0)->IsWritten());
  EXPECT_EQ(grid.At(2), Cells::Place(2));
  grid.Reopen();
  EXPECT_EQ(grid.File().NumAreas(), 3);
  EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0)));
  EXPECT_EQ(grid.Get(0, 1), 2);
  EXPECT_TRUE(std::equal(before.begin() + kHeader + 2 * kChunk, before.begin() + kHeader + 3 * kChunk,
                         grid.Bytes().begin() + kHeader + 2 * kChunk));
}

TEST(DtmFileRemove, AreasOfDifferentLengthAnswerFalseAndNothingIsLost) {
  Cells grid(2);
  grid.Close();
  // Four bytes of a strange chunk's more in the last area: the index is cut off and the walk finds both.
  std::vector<std::uint8_t>& bytes = grid.Memory().bytes;
  bytes.resize(kHeader + 2 * kChunk);
  const auto last = static_cast<std::size_t>(kHeader + kChunk);
  const std::vector<std::uint8_t> stranger = Hex("65 6D 6F 73 04 00 00 00 01 02 03 04");
  bytes.insert(bytes.end(), stranger.begin(), stranger.end());
  bytes[last + 4] = static_cast<std::uint8_t>(bytes[last + 4] + 12);
  grid.Open();
  ASSERT_EQ(grid.File().NumAreas(), 2);
  ASSERT_EQ(grid.Area(0, 1)->BlockSize(), 48 + 12);
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Leave();
  EXPECT_FALSE(grid.File().SyncWrite());
  EXPECT_EQ(grid.Get(0, 1), 2);
  grid.Reopen();
  EXPECT_EQ(grid.Get(0, 1), 2);
  EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0)));
}

TEST(DtmFileRemove, LastAreaWhoseCellsCantBeReadStopsTheWritingAndLosesNothing) {
  Cells grid(2);
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Leave();
  // The header of the last area is known, its cells aren't resident.
  EXPECT_EQ(grid.Get(0, 1), 2);
  grid.Leave();
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_FALSE(grid.File().SyncWrite());
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  EXPECT_TRUE(grid.File().SyncWrite());
  grid.Reopen();
  grid.ExpectCells({1});
}

TEST(DtmFileRemove, FailureAtAnyChangeKeepsTheOtherAreasCells) {
  int failures = 0;
  for (std::int64_t fail = 0;; ++fail) {
    Cells grid(4);
    ASSERT_TRUE(grid.Clear(0, 1));
    grid.Leave();
    grid.Memory().failFrom = grid.Memory().changes + fail;
    const bool done = grid.File().SyncWrite();
    const bool faulted = grid.Memory().Faulted();
    grid.Memory().failFrom = MemoryFile::kNever;
    if (!done) ++failures;
    for (const int col : {0, 2, 3}) EXPECT_EQ(grid.Get(0, col), col + 1) << fail;
    TestGrid killed(grid.Bytes());  // what another process finds if this one ends here
    for (const int col : {0, 2, 3}) EXPECT_EQ(killed.Get(0, col), col + 1) << fail;
    EXPECT_TRUE(grid.File().SyncWrite()) << fail;
    grid.Reopen();
    for (const int col : {0, 2, 3}) EXPECT_EQ(grid.Get(0, col), col + 1) << fail;
    EXPECT_TRUE(IsEmptyValue(grid.Get(0, 1))) << fail;
    if (!faulted) break;
  }
  EXPECT_GE(failures, 4) << "header and cells of the moved area, sync, index";
}

TEST(DtmFileRemove, ClearedAreaThatStillHoldsACellStays) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  grid.Set(0, 1, dVAL, 2);
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Reopen();
  EXPECT_EQ(grid.File().NumAreas(), 1);
  EXPECT_EQ(grid.Get(0, 1), 2);
  EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0)));
}

TEST(DtmFileRemove, AreaEmptiedAsAWholeIsRemoved) {
  Cells grid(3);
  grid.Area(0, 0)->MakeEmpty();
  grid.Reopen();
  grid.ExpectCells({2, 1});
}

TEST(DtmFileRemove, OtherAreasAreWrittenWhenABlockOfTheLastOneCantBeRead) {
  for (const std::uint64_t good : {0U, 1U}) {
    SCOPED_TRACE(good);
    TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL, iNUM}});
    for (int col = 0; col < 4; ++col) ASSERT_TRUE(grid.Sound(col + 0.5, 0.5, col + 1));
    grid.Reopen();
    EXPECT_EQ(grid.Get(0, 3), 4) << "its headers are known, its cells aren't resident";
    ASSERT_TRUE(grid.Clear(0, 0));
    grid.Leave();
    ASSERT_TRUE(grid.Set(0, 2, dVAL, 30));
    const auto expectOthers = [](TestGrid& model) {
      EXPECT_TRUE(IsEmptyValue(model.Get(0, 0)));
      EXPECT_EQ(model.Get(0, 1), 2);
      EXPECT_EQ(model.Get(0, 2), 30);
      EXPECT_EQ(model.Get(0, 3), 4);
      EXPECT_EQ(model.Get(0, 3, iNUM), 1);
    };
    grid.Memory().failReadsFrom = grid.Memory().counts.reads + good;
    EXPECT_FALSE(grid.File().SyncWrite());
    grid.Memory().failReadsFrom = ~std::uint64_t{0};
    EXPECT_TRUE(grid.Area(0, 3)->IsWritten());
    {
      TestGrid crashed(grid.Bytes());
      EXPECT_EQ(crashed.File().OpenedBy(), DtmOpenedBy::kIndex);
      expectOthers(crashed);
    }
    expectOthers(grid);
    ASSERT_TRUE(grid.Sound(3.5, 0.5, 4));
    EXPECT_TRUE(grid.File().SyncWrite());
    grid.Reopen();
    EXPECT_EQ(grid.Get(0, 3, iNUM), 2);
    ASSERT_TRUE(grid.Set(0, 3, iNUM, 1));
    expectOthers(grid);
    grid.ReopenByWalk();
    expectOthers(grid);
  }
}

}  // namespace
}  // namespace vak::test
