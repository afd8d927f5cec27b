#include <algorithm>
#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmCell.h"
#include "vakdtm/store/DtmDataBlock.h"
#include "vakdtm/store/DtmFile.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

// An area of 2 x 2 cells, with a sounding of -1 in cell (0, 0); nobody holds its blocks.
class OneArea : public TestGrid {
 public:
  OneArea() : TestGrid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM, fBKS, cOIL}}) {
    Sound(0.5, 0.5, -1);
    Leave();
  }
  DtmArea& TheArea() { return *Area(0, 0); }
  DtmDataBlock& Block(int id) {
    DtmDataBlock* const block = TheArea().OpenDataBlock(id);
    block->Close();
    return *block;
  }
};

TEST(DtmDataBlock, NewOneIsNotModifiedEmptyAndHasNoCellsAndNoPlace) {
  TestGrid grid;
  DtmArea area(&grid.File(), 0, 0);
  const DtmDataBlock block(&area, dVAL, 128);
  EXPECT_EQ(block.GetArea(), &area);
  EXPECT_EQ(block.BlockId(), dVAL);
  EXPECT_EQ(block.BlockSize(), 128);
  EXPECT_EQ(block.BlockPosition(), -1);
  EXPECT_FALSE(block.IsWritten());
  EXPECT_FALSE(block.IsModified());
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_EQ(block.CellData(), nullptr);
  EXPECT_EQ(block.DataType(), 'd');
  EXPECT_EQ(block.BytesPerCell(), 8);
  EXPECT_EQ(block.FillByte(), 255);
}

TEST(DtmDataBlock, SizeIsThatOfAllCells) {
  OneArea grid;
  EXPECT_EQ(grid.Block(dVAL).BlockSize(), 32);
  EXPECT_EQ(grid.Block(iNUM).BlockSize(), 16);
  EXPECT_EQ(grid.Block(cOIL).BlockSize(), 4);
}

TEST(DtmDataBlock, CountsTheChangesOfItsCellsAndNothingElse) {
  OneArea grid;
  DtmDataBlock* const block = grid.TheArea().OpenDataBlock(iNUM);
  ASSERT_NE(block, nullptr);
  const auto changes = [&](const char* what, bool expected, auto act) {
    const std::uint32_t before = block->NumChanges();
    act();
    EXPECT_EQ(block->NumChanges() != before, expected) << what;
  };
  changes("sounding", true, [&] { EXPECT_TRUE(grid.Sound(0.5, 0.5, -2)); });
  changes("value", true, [&] { EXPECT_TRUE(grid.Set(0, 1, iNUM, 4)); });
  changes("value of another kind", false, [&] { EXPECT_TRUE(grid.Set(0, 1, dVAL, 4)); });
  changes("writing", false, [&] { EXPECT_TRUE(block->SyncWrite()); });
  changes("opening", false, [&] { EXPECT_TRUE(block->Open()); });
  changes("closing", false, [&] { block->Close(); });
  changes("mark of emptiness", false, [&] { grid.TheArea().CheckEmpty(); });
  changes("reading", true, [&] { EXPECT_TRUE(block->SyncRead()); });
  changes("emptying of a cell", true, [&] { EXPECT_TRUE(grid.Clear(0, 1)); });
  changes("emptying", true, [&] { block->MakeEmpty(); });
  EXPECT_TRUE(block->IsEmpty());
  EXPECT_TRUE(block->IsModified());
  block->Close();
}

TEST(DtmDataBlock, OpenOfAnUnwrittenOneFillsTheCells) {
  TestGrid grid;
  DtmArea area(&grid.File(), 0, 0);
  for (const int id : {dVAL, iNUM}) {
    DtmDataBlock* const block = area.OpenDataBlock(id);
    ASSERT_NE(block, nullptr);
    EXPECT_FALSE(block->IsModified());
    EXPECT_TRUE(block->IsEmpty());
    const auto fill = static_cast<std::byte>(block->FillByte());
    EXPECT_TRUE(std::all_of(block->CellData(), block->CellData() + block->BlockSize(),
                            [&](std::byte cell) { return cell == fill; }));
    block->Close();
    EXPECT_EQ(block->CellData(), nullptr) << "not modified: freed";
  }
}

TEST(DtmDataBlock, OpenOfAWrittenOneReadsTheCellsOnce) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  block.SetBlockPosition(grid.File().GetStream(), block.BlockPosition());
  const StreamCounts before = grid.Memory().counts;
  ASSERT_TRUE(block.Open());
  EXPECT_EQ(grid.Memory().counts.bytesRead, before.bytesRead + 32);
  EXPECT_EQ(*DtmCell<double>(&block, 0), -1);
  EXPECT_FALSE(block.IsModified());
  EXPECT_FALSE(block.IsEmpty());
  ASSERT_TRUE(block.Open());
  EXPECT_EQ(grid.Memory().counts.reads, before.reads + 1);
  block.Close();
  EXPECT_NE(block.CellData(), nullptr);
  block.Close();
  EXPECT_EQ(block.CellData(), nullptr);
}

TEST(DtmDataBlock, OpenOfAWrittenOneKnownToBeEmptyReadsNothing) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  block.SetEmpty();
  const std::uint64_t reads = grid.Memory().counts.reads;
  ASSERT_TRUE(block.Open());
  EXPECT_EQ(grid.Memory().counts.reads, reads);
  EXPECT_TRUE(IsEmptyValue(*DtmCell<double>(&block, 0)));
  EXPECT_TRUE(block.IsEmpty());
  block.Close();
}

TEST(DtmDataBlock, FailedReadLeavesOpenCountAndCellsAsTheyWere) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_FALSE(block.Open());
  EXPECT_EQ(block.CellData(), nullptr);
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  ASSERT_TRUE(block.Open());
  block.Close();
  EXPECT_EQ(block.CellData(), nullptr) << "one count was given, one given back";
}

TEST(DtmDataBlock, SetModifiedMarksAndStopsBeingEmptyInOneStep) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(fBKS);
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_FALSE(block.IsModified());
  block.SetModified();
  EXPECT_FALSE(block.IsEmpty());
  EXPECT_TRUE(block.IsModified());
}

TEST(DtmDataBlock, SetEmptyLeavesCellsAndModifiedAlone) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  ASSERT_TRUE(block.Open());
  block.SetModified();
  block.SetEmpty();
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_TRUE(block.IsModified());
  EXPECT_EQ(*DtmCell<double>(&block, 0), -1);
  block.Close();
}

TEST(DtmDataBlock, MakeEmptyFillsWhatIsResidentAndOnlyFlagsWhatIsnt) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  block.MakeEmpty();
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_FALSE(block.IsModified());
  ASSERT_TRUE(grid.TheArea().SyncRead(1));  // clears the flag again
  ASSERT_TRUE(block.Open());
  ASSERT_EQ(*DtmCell<double>(&block, 0), -1);
  block.MakeEmpty();
  for (int cell = 0; cell < 4; ++cell) EXPECT_TRUE(IsEmptyValue(*DtmCell<double>(&block, cell)));
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_TRUE(block.IsModified());
  block.Close();
  double stored = 0;
  std::memcpy(&stored, grid.Bytes().data() + block.BlockPosition(), 8);
  EXPECT_TRUE(IsEmptyValue(stored)) << "an empty modified block is still written";
}

TEST(DtmDataBlock, CloseOfTheLastHolderWritesAModifiedBlockOfAWrittenArea) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(iNUM);
  ASSERT_TRUE(block.Open());
  ASSERT_TRUE(block.Open());
  *DtmCell<int>(&block, 3) = 99;
  block.SetModified();
  const std::uint64_t writes = grid.Memory().counts.writes;
  block.Close();
  EXPECT_EQ(grid.Memory().counts.writes, writes) << "somebody still holds it";
  block.Close();
  EXPECT_EQ(grid.Memory().counts.writes, writes + 1);
  EXPECT_EQ(block.CellData(), nullptr);
  EXPECT_FALSE(block.IsModified());
  EXPECT_EQ(grid.Get(1, 1, iNUM), 99);
}

TEST(DtmDataBlock, ModifiedBlockOfAnUnwrittenAreaStaysInMemory) {
  TestGrid grid;
  DtmArea area(&grid.File(), 0, 0);
  DtmDataBlock* const block = area.OpenDataBlock(iNUM);
  *DtmCell<int>(block, 3) = 99;
  block->SetModified();
  block->Close();
  ASSERT_NE(block->CellData(), nullptr);
  EXPECT_TRUE(block->IsModified());
  ASSERT_TRUE(block->Open());
  EXPECT_EQ(*DtmCell<int>(block, 3), 99);
  block->Close();
}

TEST(DtmDataBlock, FailedWriteOfTheLastHolderKeepsNothingAndTheFileKnows) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(iNUM);
  ASSERT_TRUE(block.Open());
  *DtmCell<int>(&block, 3) = 99;
  block.SetModified();
  EXPECT_FALSE(grid.File().HasLostData());
  grid.Memory().failFrom = grid.Memory().changes;
  block.Close();
  EXPECT_EQ(block.CellData(), nullptr);
  EXPECT_FALSE(block.IsModified());
  EXPECT_TRUE(grid.File().HasLostData());
  grid.Memory().failFrom = MemoryFile::kNever;
  EXPECT_TRUE(IsEmptyValue(grid.Get(1, 1, iNUM)));
}

TEST(DtmDataBlock, SyncWriteWritesInPlaceAndClearsTheFlag) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  ASSERT_TRUE(block.Open());
  *DtmCell<double>(&block, 1) = 2.5;
  block.SetModified();
  const std::size_t size = grid.Bytes().size();
  EXPECT_TRUE(block.SyncWrite());
  EXPECT_FALSE(block.IsModified());
  double stored = 0;
  std::memcpy(&stored, grid.Bytes().data() + block.BlockPosition() + 8, 8);
  EXPECT_EQ(stored, 2.5);
  EXPECT_EQ(grid.Bytes().size(), size);
  EXPECT_NE(block.CellData(), nullptr);
  block.Close();
}

TEST(DtmDataBlock, SyncWriteAnswersFalseWithoutAPlaceAndTrueWithNothingToWrite) {
  OneArea grid;
  DtmArea shell(&grid.File(), 40, 40);
  DtmDataBlock* const unwritten = shell.OpenDataBlock(dVAL);
  EXPECT_FALSE(unwritten->SyncWrite());
  unwritten->Close();
  DtmDataBlock& block = grid.Block(dVAL);
  const std::uint64_t writes = grid.Memory().counts.writes;
  EXPECT_TRUE(block.SyncWrite()) << "not modified";
  block.SetModified();
  EXPECT_TRUE(block.SyncWrite()) << "not resident";
  EXPECT_EQ(grid.Memory().counts.writes, writes);
}

TEST(DtmDataBlock, FailedSyncWriteLeavesTheFlagSet) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  ASSERT_TRUE(block.Open());
  block.SetModified();
  grid.Memory().failFrom = grid.Memory().changes;
  EXPECT_FALSE(block.SyncWrite());
  EXPECT_TRUE(block.IsModified());
  grid.Memory().failFrom = MemoryFile::kNever;
  EXPECT_TRUE(block.SyncWrite());
  block.Close();
}

TEST(DtmDataBlock, SyncReadRefreshesResidentCellsWhereTheyAre) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  ASSERT_TRUE(block.Open());
  const std::byte* const cells = block.CellData();
  const double changed = 8;
  std::memcpy(grid.Memory().bytes.data() + block.BlockPosition(), &changed, 8);
  block.SetModified();
  block.SetEmpty();
  EXPECT_TRUE(block.SyncRead());
  EXPECT_EQ(block.CellData(), cells);
  EXPECT_EQ(*DtmCell<double>(&block, 0), 8);
  EXPECT_FALSE(block.IsModified());
  EXPECT_FALSE(block.IsEmpty());
  block.Close();
  EXPECT_EQ(block.CellData(), nullptr) << "the open count stayed what it was";
}

TEST(DtmDataBlock, SyncReadOfOneThatIsntResidentOnlyClearsTheFlags) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  block.SetEmpty();
  const std::uint64_t reads = grid.Memory().counts.reads;
  EXPECT_TRUE(block.SyncRead());
  EXPECT_FALSE(block.IsEmpty());
  EXPECT_FALSE(block.IsModified());
  EXPECT_EQ(grid.Memory().counts.reads, reads);
  DtmArea shell(&grid.File(), 40, 40);
  DtmDataBlock* const unwritten = shell.OpenDataBlock(dVAL);
  EXPECT_FALSE(unwritten->SyncRead()) << "no place";
  unwritten->Close();
}

TEST(DtmDataBlock, MakeUnwrittenReadsTheCellsAndKeepsThemResident) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  ASSERT_EQ(block.CellData(), nullptr);
  EXPECT_TRUE(block.MakeUnwritten());
  EXPECT_FALSE(block.IsWritten());
  EXPECT_EQ(block.BlockPosition(), -1);
  EXPECT_TRUE(block.IsModified());
  EXPECT_FALSE(block.IsEmpty());
  ASSERT_NE(block.CellData(), nullptr);
  EXPECT_EQ(*DtmCell<double>(&block, 0), -1);
}

TEST(DtmDataBlock, MakeUnwrittenOfAnEmptyOneReadsNothingAndIsNotModified) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  block.SetEmpty();
  const std::uint64_t reads = grid.Memory().counts.reads;
  EXPECT_TRUE(block.MakeUnwritten());
  EXPECT_EQ(grid.Memory().counts.reads, reads);
  EXPECT_FALSE(block.IsModified());
  EXPECT_TRUE(block.IsEmpty());
  EXPECT_EQ(block.CellData(), nullptr);
  EXPECT_EQ(block.BlockPosition(), -1);
}

TEST(DtmDataBlock, MakeUnwrittenAnswersFalseWhenTheCellsCantBeRead) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  const long long position = block.BlockPosition();
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_FALSE(block.MakeUnwritten());
  EXPECT_TRUE(block.IsWritten());
  EXPECT_EQ(block.BlockPosition(), position);
}

TEST(DtmDataBlock, WriteBlockWritesHeaderAndCellsForOneWithoutAPlaceOnly) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {fBKS}});
  DtmArea area(&grid.File(), 0, 0);
  DtmDataBlock block(&area, fBKS, 4);
  MemoryStream stream;
  ASSERT_TRUE(block.WriteBlock(&stream));
  EXPECT_EQ(HexDump(stream.File()->bytes), HexDump(Hex("53 4B 42 66 04 00 00 00 FF FF FF FF")));
  EXPECT_EQ(block.BlockPosition(), 8);
  EXPECT_TRUE(block.IsWritten());
  EXPECT_FALSE(block.IsModified());
  EXPECT_EQ(block.CellData(), nullptr) << "closed again";
  EXPECT_FALSE(block.WriteBlock(&stream));
  EXPECT_EQ(stream.File()->bytes.size(), 12u);
}

TEST(DtmDataBlock, FindMinMaxSkipsEmptyCellsAndKeepsToTheirBits) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  ASSERT_TRUE(block.Open());
  *DtmCell<double>(&block, 1) = 5.3;
  *DtmCell<double>(&block, 2) = std::numeric_limits<double>::quiet_NaN();  // a not-a-number that isn't the empty one
  block.SetModified();
  float lo = 100;
  float hi = -100;
  block.FindMinMax(lo, hi);
  EXPECT_EQ(lo, -1.0F);
  EXPECT_EQ(hi, static_cast<float>(5.3));
  lo = -7;
  hi = 7;
  block.FindMinMax(lo, hi);
  EXPECT_EQ(lo, -7) << "lowers and raises, never narrows";
  EXPECT_EQ(hi, 7);
  block.SetEmpty();
  lo = 100;
  block.FindMinMax(lo, hi);
  EXPECT_EQ(lo, 100) << "a block said to be empty contributes nothing";
  block.Close();
}

TEST(DtmDataBlock, FindMinMaxOfFloatsAndOfOtherKinds) {
  OneArea grid;
  DtmDataBlock& floats = grid.Block(fBKS);
  ASSERT_TRUE(floats.Open());
  *DtmCell<float>(&floats, 0) = 2.5F;
  *DtmCell<float>(&floats, 3) = -2.5F;
  floats.SetModified();
  float lo = 1;
  float hi = 1;
  floats.FindMinMax(lo, hi);
  EXPECT_EQ(lo, -2.5F);
  EXPECT_EQ(hi, 2.5F);
  floats.Close();
  DtmDataBlock& counts = grid.Block(iNUM);
  ASSERT_TRUE(counts.Open());
  lo = 50;
  hi = -50;
  counts.FindMinMax(lo, hi);
  EXPECT_EQ(lo, 50);
  EXPECT_EQ(hi, -50);
  counts.Close();
}

TEST(DtmDataBlock, FindMinMaxWithNoCellFoundChangesNothing) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  ASSERT_TRUE(block.Open());
  *DtmCell<double>(&block, 0) = EmptyDouble();
  block.SetModified();  // no longer known to be empty
  float lo = std::numeric_limits<float>::infinity();
  float hi = -std::numeric_limits<float>::infinity();
  block.FindMinMax(lo, hi);
  EXPECT_EQ(lo, std::numeric_limits<float>::infinity());
  EXPECT_EQ(hi, -std::numeric_limits<float>::infinity());
  block.Close();
}

TEST(DtmDataBlock, BlocksBeyondTheScratchBufferGoInPiecesAndComeBackWhole) {
  // 300 x 300 doubles are 720,000 bytes, nearly three pieces.
  TestGrid grid({.cellSize = 1.0, .areaSize = 300, .blockIds = {dVAL, cOIL}});
  for (const int at : {0, 32767, 32768, 65535, 65536, 89999}) {
    ASSERT_TRUE(grid.Set(at / 300, at % 300, dVAL, at + 0.5));
    ASSERT_TRUE(grid.Set(at / 300, at % 300, cOIL, at % 200 + 1));
  }
  grid.Leave();
  for (const int at : {0, 32767, 32768, 65535, 65536, 89999}) EXPECT_EQ(grid.Get(at / 300, at % 300), at + 0.5);
  ASSERT_TRUE(grid.Area(0, 0)->SyncRead(1));
  for (const int at : {0, 32767, 32768, 65535, 65536, 89999}) {
    EXPECT_EQ(grid.Get(at / 300, at % 300), at + 0.5);
    EXPECT_EQ(grid.Get(at / 300, at % 300, cOIL), at % 200 + 1);
  }
  EXPECT_TRUE(IsEmptyValue(grid.Get(299, 298)));
}

TEST(BlockHold, GivesTheBlockBackOnEveryWayOut) {
  OneArea grid;
  DtmDataBlock& block = grid.Block(dVAL);
  {
    BlockHold hold(&block);
    ASSERT_TRUE(hold);
    EXPECT_NE(hold->CellData(), nullptr);
    const BlockHold moved(std::move(hold));
    EXPECT_TRUE(moved);
  }
  EXPECT_EQ(block.CellData(), nullptr);
  EXPECT_FALSE(BlockHold(nullptr));
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_FALSE(BlockHold(&block));
}

// ---- Typed pointers to cells

template <typename T>
T* AddressOf(DtmDataBlock& block, int cell) {
  return &*DtmCell<T>(&block, cell);
}

TEST(DtmCell, PointsAtTheCellOfEveryType) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM, fBKS, cOIL, tTIM, uFCT}});
  DtmArea* const area = grid.File().GetArea(0, 0, true);
  const auto offset = [&](int id, auto* (*address)(DtmDataBlock&, int)) {
    DtmDataBlock* const block = area->OpenDataBlock(id);
    const auto distance = reinterpret_cast<std::byte*>(address(*block, 5)) - block->CellData();
    block->Close();
    return distance;
  };
  EXPECT_EQ(offset(dVAL, AddressOf<double>), 40);
  EXPECT_EQ(offset(iNUM, AddressOf<int>), 20);
  EXPECT_EQ(offset(fBKS, AddressOf<float>), 20);
  EXPECT_EQ(offset(cOIL, AddressOf<unsigned char>), 5);
  EXPECT_EQ(offset(tTIM, AddressOf<std::int32_t>), 20);
  EXPECT_EQ(offset(uFCT, AddressOf<unsigned int>), 20);
}

TEST(DtmCell, GivesAReferenceAndCopiesThePointer) {
  TestGrid grid;
  DtmDataBlock* const block = grid.File().GetArea(0, 0, true)->OpenDataBlock(dVAL);
  DtmCell<double> first(block, 0);
  const DtmCell<double> second(block, 1);
  *first = 3;
  *second = 4;
  first = second;
  *first = 5;
  EXPECT_EQ(*second, 5);
  EXPECT_EQ(*DtmCell<double>(block, 0), 3);
  static_assert(sizeof(DtmCell<double>) == sizeof(double*));
  block->Close();
}

}  // namespace
}  // namespace vak::test
