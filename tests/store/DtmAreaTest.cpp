#include <bit>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <map>

#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmAreaPos.h"
#include "vakdtm/store/DtmCell.h"
#include "vakdtm/store/DtmFile.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr float kStartLow = 3.4028235e38F;
constexpr float kStartHigh = -3.4028235e38F;

struct Range {
  explicit Range(const DtmArea& area) : valid(area.GetMinMaxZ(lo, hi)) {}
  float lo = 0;
  float hi = 0;
  bool valid;
};

// ---- Positions

TEST(DtmAreaPos, NegativeCellsRoundDownNotTowardsZero) {
  struct Case {
    const char* name;
    int areaSize, row, col, areaRow, areaCol;
  };
  const Case cases[] = {
      {"origin", 64, 0, 0, 0, 0},
      {"below", 64, -1, -1, -1, -1},
      {"on the seam", 64, -64, 63, -1, 0},
      {"beyond it", 64, -65, 64, -2, 1},
      {"size 1", 1, -7, 7, -7, 7},
      {"odd size", 5, -6, 9, -2, 1},
      {"lowest", 64, std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), -33554432, 33554431}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const DtmAreaPos pos(one.areaSize, one.row, one.col);
    EXPECT_EQ(pos.AreaRow(), one.areaRow);
    EXPECT_EQ(pos.AreaCol(), one.areaCol);
  }
}

TEST(DtmAreaPos, EveryCellLiesInTheAreaOfItsPosition) {
  for (const int size : {1, 2, 3, 64, 100}) {
    for (int row = -2 * size - 1; row <= 2 * size + 1; ++row) {
      const int areaRow = DtmAreaPos(size, row, 0).AreaRow();
      EXPECT_LE(areaRow * size, row);
      EXPECT_LT(row, (areaRow + 1) * size);
    }
  }
}

TEST(DtmAreaPos, OrderIsByRowThenColumnAndTheDefaultIsTheOrigin) {
  const DtmAreaPos low(1, -1, 5);
  const DtmAreaPos high(1, 0, -5);
  EXPECT_TRUE(low < high);
  EXPECT_FALSE(high < low);
  EXPECT_TRUE(DtmAreaPos(1, 0, -5) < DtmAreaPos(1, 0, -4));
  EXPECT_FALSE(low < low);
  EXPECT_TRUE(DtmAreaPos() == DtmAreaPos(64, 0, 0));
  EXPECT_FALSE(DtmAreaPos(1, 2, 3) == DtmAreaPos(1, 3, 2));
}

TEST(DtmAreaPos, PositionOfAnAreaIsItsBottomLeftCellBySize) {
  TestGrid grid;
  for (const auto& [row, col] : {std::pair(0, 0), {-1, 5}, {-8, -9}, {7, -4}}) {
    const DtmArea* const area = grid.File().GetArea(row, col, true);
    EXPECT_TRUE(DtmAreaPos(area) == DtmAreaPos(4, row, col));
  }
}

// ---- Shape

TEST(DtmArea, BottomLeftCellIsAMultipleOfTheAreaSize) {
  TestGrid grid;
  const DtmArea* const area = grid.File().GetArea(-5, 6, true);
  EXPECT_EQ(area->BottomLeftRow(), -8);
  EXPECT_EQ(area->BottomLeftCol(), 4);
  int row = 0;
  int col = 0;
  area->GetBottomLeft(row, col);
  EXPECT_EQ(row, -8);
  EXPECT_EQ(col, 4);
  EXPECT_EQ(area->AreaSize(), 4);
  EXPECT_EQ(area->GetDtmFile(), &grid.File());
}

TEST(DtmArea, CalcCellCountsFromTheBottomLeftToTheTopRight) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL}});
  const DtmArea* const area = grid.File().GetArea(-1, -1, true);
  EXPECT_EQ(area->CalcCell(-64, -64), 0);
  EXPECT_EQ(area->CalcCell(-64, -63), 1);
  EXPECT_EQ(area->CalcCell(-63, -64), 64);
  EXPECT_EQ(area->CalcCell(-1, -1), 64 * 64 - 1);
}

TEST(DtmArea, CalcRowColIsTheInverseOfCalcCell) {
  TestGrid grid;
  const DtmArea* const area = grid.File().GetArea(-5, 6, true);
  for (int cell = 0; cell < 16; ++cell) {
    int row = 0;
    int col = 0;
    area->CalcRowCol(cell, row, col);
    EXPECT_EQ(area->CalcCell(row, col), cell);
    EXPECT_TRUE(area->IsInArea(row, col));
  }
}

TEST(DtmArea, IsInAreaIsFalseJustOutsideEverySide) {
  TestGrid grid;
  const DtmArea* const area = grid.File().GetArea(-5, 6, true);  // rows -8 to -5, columns 4 to 7
  EXPECT_TRUE(area->IsInArea(-8, 4));
  EXPECT_TRUE(area->IsInArea(-5, 7));
  EXPECT_FALSE(area->IsInArea(-8 + 4, 4)) << "bottom-left row + S";
  EXPECT_FALSE(area->IsInArea(-9, 4));
  EXPECT_FALSE(area->IsInArea(-8, 3));
  EXPECT_FALSE(area->IsInArea(-8, 8));
  for (const int end : {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_FALSE(area->IsInArea(end, 5));
    EXPECT_FALSE(area->IsInArea(-6, end));
  }
}

// ---- New, written, unwritten

TEST(DtmArea, NewOneIsUnwrittenEmptyAndHasAValidRange) {
  TestGrid grid;
  DtmArea area(&grid.File(), 8, -4);
  EXPECT_FALSE(area.IsWritten());
  EXPECT_EQ(area.BlockPosition(), -1);
  EXPECT_EQ(area.BlockSize(), 0);
  EXPECT_EQ(area.LastWritten(), 0);
  EXPECT_TRUE(area.IsEmpty());
  EXPECT_FALSE(area.IsModified());
  EXPECT_FALSE(area.HasReadError());
  const Range range(area);
  EXPECT_TRUE(range.valid);
  EXPECT_EQ(range.lo, kStartLow);
  EXPECT_EQ(range.hi, kStartHigh);
  EXPECT_FALSE(area.SyncWrite()) << "unwritten";
  EXPECT_TRUE(area.Lock());
  EXPECT_TRUE(area.Lock()) << "re-entrant";
  area.Unlock();
  area.Unlock();
}

TEST(DtmArea, OneFromTheIndexHasNoValidRangeUntilOneIsSet) {
  TestGrid grid;
  MemoryStream stream;
  DtmArea area(&grid.File(), 8, -4, &stream, 1000, 55);
  EXPECT_TRUE(area.IsWritten());
  EXPECT_EQ(area.BlockPosition(), 1000);
  EXPECT_EQ(area.LastWritten(), 55);
  EXPECT_FALSE(area.IsEmpty()) << "unknown counts as data";
  EXPECT_FALSE(Range(area).valid);
  area.SetMinMaxZ(-3, 4);
  const Range range(area);
  EXPECT_TRUE(range.valid);
  EXPECT_EQ(range.lo, -3);
  EXPECT_EQ(range.hi, 4);
}

TEST(DtmArea, WriteAreaAnswersFalseForAWrittenOne) {
  TestGrid grid;
  DtmArea* const area = grid.File().GetArea(0, 0, true);
  MemoryStream other;
  EXPECT_FALSE(area->WriteArea(&other));
  EXPECT_TRUE(other.File()->bytes.empty());
}

TEST(DtmArea, WriteAreaSetsPlaceLengthAndTime) {
  const TimeStands time(1234);
  TestGrid grid;
  DtmArea area(&grid.File(), 8, -4);
  MemoryStream stream;
  stream.Seek(100, DataStream::kFromStart);
  ASSERT_TRUE(area.WriteArea(&stream));
  EXPECT_TRUE(area.IsWritten());
  EXPECT_EQ(area.BlockPosition(), 108);
  EXPECT_EQ(area.BlockSize(), 32 + 8 + 128 + 8 + 64);
  EXPECT_EQ(area.LastWritten(), 1234);
  EXPECT_EQ(stream.Position(), 108 + area.BlockSize());
  DtmDataBlock* const block = area.OpenDataBlock(iNUM);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->BlockPosition(), 108 + 32 + 8 + 128 + 8);
  EXPECT_TRUE(block->IsEmpty()) << "writing an empty block leaves it known to be empty";
  block->Close();
}

TEST(DtmArea, FailedWriteLeavesTheAreaUnwrittenWithItsCells) {
  TestGrid grid;
  for (std::int64_t fail = 0; fail < 5; ++fail) {
    DtmArea area(&grid.File(), 8, -4);
    DtmDataBlock* const block = area.OpenDataBlock(dVAL);
    *DtmCell<double>(block, 3) = 7;
    block->SetModified();
    block->Close();
    MemoryStream stream;
    stream.File()->failFrom = fail;
    EXPECT_FALSE(area.WriteArea(&stream));
    EXPECT_FALSE(area.IsWritten());
    EXPECT_EQ(area.BlockPosition(), -1);
    EXPECT_TRUE(area.IsModified());
    stream.File()->failFrom = MemoryFile::kNever;
    EXPECT_TRUE(area.WriteArea(&stream));
    DtmDataBlock* const again = area.OpenDataBlock(dVAL);
    EXPECT_EQ(*DtmCell<double>(again, 3), 7);
    again->Close();
  }
}

TEST(DtmArea, OpenDataBlockGivesOneOpenCountAndNullForAnUnknownId) {
  TestGrid grid;
  DtmArea* const area = grid.File().GetArea(0, 0, true);
  DtmDataBlock* const block = area->OpenDataBlock(iNUM);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->BlockId(), iNUM);
  EXPECT_EQ(block->GetArea(), area);
  EXPECT_NE(block->CellData(), nullptr);
  EXPECT_EQ(area->OpenDataBlock(iNUM), block) << "the same for everybody";
  block->Close();
  EXPECT_NE(block->CellData(), nullptr);
  block->Close();
  EXPECT_EQ(block->CellData(), nullptr);
  EXPECT_EQ(area->OpenDataBlock(dMIN), nullptr);
}

TEST(DtmArea, OpenDataBlockAnswersNullWhenTheCellsCantBeRead) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  grid.Reopen();
  DtmArea* const area = grid.Area(0, 0);
  area->OpenDataBlock(dVAL)->Close();
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_EQ(area->OpenDataBlock(dVAL), nullptr);
  EXPECT_FALSE(area->HasReadError()) << "the headers were good";
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  EXPECT_EQ(grid.Get(0, 0), 1);
}

TEST(DtmArea, BlocksComeIntoBeingWhenTheyAreNeeded) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  grid.Reopen();
  DtmArea* const area = grid.Area(0, 0);
  EXPECT_EQ(area->BlockSize(), 0);
  EXPECT_FALSE(area->IsEmpty()) << "written, blocks not made: unknown counts as data";
  EXPECT_FALSE(area->IsModified());
  EXPECT_EQ(area->BlockSize(), 0) << "asking doesn't make them";
  area->OpenDataBlock(iNUM)->Close();
  EXPECT_EQ(area->BlockSize(), 32 + 8 + 128 + 8 + 64);
}

// ---- Emptiness

TEST(DtmArea, CheckEmptySetsTheFlagsOfBlocksThatHoldOnlyFill) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  grid.Access().ClearCellData(0, 0, dVAL);
  DtmArea* const area = grid.Area(0, 0);
  EXPECT_FALSE(area->IsEmpty());
  area->UpdateMinMaxZ(5);
  area->CheckEmpty();
  EXPECT_TRUE(area->IsEmpty());
  EXPECT_TRUE(area->IsModified()) << "modified flags aren't touched";
  const Range range(*area);
  EXPECT_TRUE(range.valid);
  EXPECT_EQ(range.lo, kStartLow);
  EXPECT_EQ(range.hi, kStartHigh);
}

TEST(DtmArea, CheckEmptyStopsAtTheFirstByteThatDiffers) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM, fBKS}});
  grid.Set(0, 0, dVAL, 1);
  grid.Access().ClearCellData(0, 0, dVAL);
  grid.Access().SetDoubleValue(3, 3, iNUM, 0x01000000, false);  // one byte of the last cell
  grid.Access().SetDoubleValue(0, 0, fBKS, 2, false);
  grid.Access().ClearCellData(0, 0, fBKS);
  DtmArea* const area = grid.Area(0, 0);
  area->SetMinMaxZ(1, 2);
  area->CheckEmpty();
  EXPECT_FALSE(area->IsEmpty());
  EXPECT_EQ(Range(*area).lo, 1) << "nothing further changes";
  DtmDataBlock* const val = area->OpenDataBlock(dVAL);
  DtmDataBlock* const bks = area->OpenDataBlock(fBKS);
  EXPECT_TRUE(val->IsEmpty()) << "passed before the difference";
  EXPECT_FALSE(bks->IsEmpty()) << "behind it";
  val->Close();
  bks->Close();
}

TEST(DtmArea, CheckEmptyReadsBlocksThatArentResident) {
  TestGrid grid;
  grid.File().GetArea(0, 0, true);
  grid.Set(9, 9, dVAL, 1);
  grid.File().SyncWrite();
  // A written area whose cells are all empty, opened afresh.
  TestGrid fresh;
  fresh.Set(0, 0, dVAL, 1);
  fresh.Close();
  std::memset(fresh.Memory().bytes.data() + 64 + 48, 0xFF, 8);
  fresh.Open();
  DtmArea* const area = fresh.Area(0, 0);
  EXPECT_FALSE(area->IsEmpty());
  area->CheckEmpty();
  EXPECT_TRUE(area->IsEmpty());
  const std::uint64_t reads = fresh.Memory().counts.reads;
  area->CheckEmpty();
  EXPECT_EQ(fresh.Memory().counts.reads, reads) << "blocks known to be empty aren't read";
}

TEST(DtmArea, MakeEmptyFillsResidentBlocksAndOnlyFlagsTheOthers) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Reopen();
  DtmArea* const area = grid.Area(0, 0);
  DtmDataBlock* const val = area->OpenDataBlock(dVAL);
  area->MakeEmpty();
  EXPECT_TRUE(IsEmptyValue(*DtmCell<double>(val, 0)));
  EXPECT_TRUE(val->IsModified());
  EXPECT_TRUE(val->IsEmpty());
  EXPECT_TRUE(area->IsEmpty());
  const Range range(*area);
  EXPECT_TRUE(range.valid);
  EXPECT_EQ(range.lo, kStartLow);
  DtmDataBlock* const num = area->OpenDataBlock(iNUM);
  EXPECT_FALSE(num->IsModified()) << "not resident: the flag alone";
  EXPECT_EQ(*DtmCell<int>(num, 0), 0) << "and so it isn't read";
  num->Close();
  val->Close();
}

TEST(DtmArea, MakeEmptyOfAnUnwrittenOneWithoutBlocksDoesNothing) {
  TestGrid grid;
  DtmArea area(&grid.File(), 0, 0);
  area.SetMinMaxZ(1, 2);
  area.MakeEmpty();
  EXPECT_EQ(Range(area).lo, 1);
}

// ---- Z range

TEST(DtmArea, UpdateMinMaxZWidensAValidRangeOnly) {
  TestGrid grid;
  DtmArea area(&grid.File(), 0, 0);
  area.UpdateMinMaxZ(2);
  EXPECT_EQ(Range(area).lo, 2);
  EXPECT_EQ(Range(area).hi, 2);
  area.UpdateMinMaxZ(-1);
  area.UpdateMinMaxZ(1);
  EXPECT_EQ(Range(area).lo, -1);
  EXPECT_EQ(Range(area).hi, 2);
  MemoryStream stream;
  DtmArea known(&grid.File(), 0, 0, &stream, 0, 0);
  known.UpdateMinMaxZ(2);
  EXPECT_FALSE(Range(known).valid);
  EXPECT_EQ(Range(known).lo, kStartLow);
}

TEST(DtmArea, FindMinMaxZTakesTheRangeOfTheKindsAskedFor) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, dMIN, fBKS, iNUM}});
  grid.Access().SetDoubleValue(0, 0, dVAL, -3, false);
  grid.Access().SetDoubleValue(1, 0, dVAL, 4, false);
  grid.Access().SetDoubleValue(0, 0, dMIN, -9, false);
  grid.Access().SetDoubleValue(0, 0, fBKS, 11, false);
  grid.Access().SetDoubleValue(0, 0, iNUM, 500, false);
  DtmArea* const area = grid.Area(0, 0);
  area->SetMinMaxZ(-100, 100);
  const auto find = [&](std::initializer_list<int> ids) {
    area->FindMinMaxZ(std::data(ids), static_cast<int>(ids.size()));
    return Range(*area);
  };
  EXPECT_EQ(find({dVAL}).lo, -3);
  EXPECT_EQ(find({dVAL}).hi, 4);
  EXPECT_EQ(find({dVAL, dMIN}).lo, -9);
  EXPECT_EQ(find({fBKS}).hi, 11);
  EXPECT_EQ(find({iNUM, dMAX}).lo, kStartLow) << "no heights in integers, nothing in a kind that isn't there";
  EXPECT_EQ(find({}).hi, kStartHigh);
  EXPECT_TRUE(find({}).valid);
}

TEST(DtmArea, FindMinMaxZMakesAnUnknownRangeValidAndGivesTheBlocksBack) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, -3);
  grid.ReopenByWalk();
  DtmArea* const area = grid.Area(0, 0);
  ASSERT_FALSE(Range(*area).valid);
  const int id = dVAL;
  area->FindMinMaxZ(&id, 1);
  EXPECT_TRUE(Range(*area).valid);
  EXPECT_EQ(Range(*area).hi, -3);
  DtmDataBlock* const block = area->OpenDataBlock(dVAL);
  block->Close();
  EXPECT_EQ(block->CellData(), nullptr);
}

TEST(DtmArea, FindMinMaxZOfCellsThatCannotBeReadLeavesNoRange) {
  const std::vector<int> ids = {dVAL, dMAX, dMIN};
  const std::vector<int> absent = {dMAX, fBKS};
  // The area's headers can't be read, then its first block, then its second.
  std::uint64_t readable = 0;
  for (bool found = false; !found; ++readable) {
    SCOPED_TRACE("reads that go well: " + std::to_string(readable));
    ASSERT_LT(readable, 20U);
    TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, dMIN}});
    grid.Set(0, 0, dVAL, -3);
    grid.Set(0, 0, dMIN, -4);
    grid.ReopenByWalk();
    DtmArea* const area = grid.Area(0, 0);
    area->SetMinMaxZ(1, 2);
    grid.Memory().failReadsFrom = grid.Memory().counts.reads + readable;
    area->FindMinMaxZ(ids.data(), 3);
    found = grid.Memory().counts.reads <= grid.Memory().failReadsFrom;
    EXPECT_EQ(Range(*area).valid, found);
    EXPECT_EQ(Range(*area).lo, found ? -4 : kStartLow);
    EXPECT_EQ(Range(*area).hi, found ? -3 : kStartHigh);
    area->FindMinMaxZ(absent.data(), 2);
    EXPECT_TRUE(Range(*area).valid) << "what the model doesn't have needs no reading";
  }
  EXPECT_GE(readable, 4U) << "headers and two blocks";
}

// ---- Between file and memory

TEST(DtmArea, SyncWriteWritesModifiedBlocksAndMovesTheTime) {
  TimeStands time(100);
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  DtmArea* const area = grid.Area(0, 0);
  time.At(200);
  const std::uint64_t writes = grid.Memory().counts.writes;
  EXPECT_TRUE(area->IsModified());
  EXPECT_TRUE(area->SyncWrite());
  EXPECT_EQ(grid.Memory().counts.writes, writes + 2);
  EXPECT_EQ(area->LastWritten(), 200);
  EXPECT_FALSE(area->IsModified());
  time.At(300);
  EXPECT_TRUE(area->SyncWrite());
  EXPECT_EQ(grid.Memory().counts.writes, writes + 2) << "nothing modified: nothing changes";
  EXPECT_EQ(area->LastWritten(), 200);
}

TEST(DtmArea, SyncWriteStopsAtTheFirstFailureAndKeepsTheTime) {
  TimeStands time(100);
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  DtmArea* const area = grid.Area(0, 0);
  time.At(200);
  grid.Memory().failFrom = grid.Memory().changes + 1;
  EXPECT_FALSE(area->SyncWrite());
  EXPECT_EQ(area->LastWritten(), 100);
  EXPECT_TRUE(area->IsModified()) << "the second block is still to be written";
  grid.Memory().failFrom = MemoryFile::kNever;
  EXPECT_TRUE(area->SyncWrite());
}

TEST(DtmArea, SyncReadOverwritesResidentBlocksAndTakesTheTime) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Leave();
  DtmArea* const area = grid.Area(0, 0);
  DtmDataBlock* const val = area->OpenDataBlock(dVAL);
  const std::byte* const cells = val->CellData();
  const double changed = 42;
  std::memcpy(grid.Memory().bytes.data() + val->BlockPosition(), &changed, 8);
  *DtmCell<double>(val, 1) = 7;
  val->SetModified();
  EXPECT_TRUE(area->SyncRead(777));
  EXPECT_EQ(val->CellData(), cells) << "at the same address";
  EXPECT_EQ(*DtmCell<double>(val, 0), 42);
  EXPECT_TRUE(IsEmptyValue(*DtmCell<double>(val, 1))) << "without regard to modified";
  EXPECT_FALSE(val->IsModified());
  EXPECT_FALSE(val->IsEmpty());
  EXPECT_EQ(area->LastWritten(), 777);
  val->Close();
}

TEST(DtmArea, SyncReadAnswersFalseForAReadThatFailsAndForABlockWithoutAPlace) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Leave();
  DtmArea* const area = grid.Area(0, 0);
  const long long time = area->LastWritten();
  DtmDataBlock* const val = area->OpenDataBlock(dVAL);
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_FALSE(area->SyncRead(777));
  EXPECT_EQ(area->LastWritten(), time);
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  val->Close();
  DtmArea shell(&grid.File(), 40, 40);
  shell.OpenDataBlock(dVAL)->Close();
  EXPECT_FALSE(shell.SyncRead(777));
  EXPECT_EQ(shell.LastWritten(), 0);
}

TEST(DtmArea, MakeUnwrittenKeepsTheDataInMemory) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Reopen();
  DtmArea* const area = grid.Area(0, 0);
  EXPECT_TRUE(area->MakeUnwritten());
  EXPECT_FALSE(area->IsWritten());
  EXPECT_EQ(area->BlockPosition(), -1);
  EXPECT_TRUE(area->IsModified());
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_EQ(grid.Get(0, 0, dVAL), -1);
  EXPECT_EQ(grid.Get(0, 0, iNUM), 1);
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  EXPECT_TRUE(grid.File().SyncWrite()) << "goes out with the next writing";
  EXPECT_TRUE(area->IsWritten());
  EXPECT_FALSE(area->IsModified());
}

TEST(DtmArea, MakeUnwrittenAnswersFalseWhenACellCantBeRead) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Reopen();
  DtmArea* const area = grid.Area(0, 0);
  area->OpenDataBlock(dVAL)->Close();
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_FALSE(area->MakeUnwritten());
  EXPECT_TRUE(area->IsWritten());
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  EXPECT_EQ(grid.Get(0, 0, dVAL), -1);
}

TEST(DtmArea, SetBlockPositionWithAStreamReadsTheHeadersAfresh) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL}});
  grid.Set(0, 0, dVAL, 1);
  grid.Set(0, 1, dVAL, 2);
  grid.Reopen();
  DtmArea* const area = grid.Area(0, 0);
  const long long home = area->BlockPosition();
  area->OpenDataBlock(dVAL)->Close();
  area->SetBlockPosition(grid.File().GetStream(), grid.Area(0, 1)->BlockPosition());
  EXPECT_TRUE(area->HasReadError()) << "what lies there is another area";
  EXPECT_EQ(area->OpenDataBlock(dVAL), nullptr);
  area->SetBlockPosition(grid.File().GetStream(), home);
  EXPECT_FALSE(area->HasReadError()) << "a success clears the error";
  EXPECT_EQ(area->BlockPosition(), home);
  DtmDataBlock* const block = area->OpenDataBlock(dVAL);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(*DtmCell<double>(block, 0), 1);
  EXPECT_EQ(block->BlockPosition(), home + 32 + 8);
  block->Close();
}

TEST(DtmArea, SetBlockPositionWithoutAStreamTakesThePlaceFromEveryBlock) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Leave();
  DtmArea* const area = grid.Area(0, 0);
  DtmDataBlock* const val = area->OpenDataBlock(dVAL);
  val->SetEmpty();
  area->SetBlockPosition(nullptr, -1);
  EXPECT_FALSE(area->IsWritten());
  EXPECT_EQ(area->BlockPosition(), -1);
  EXPECT_FALSE(val->IsWritten());
  EXPECT_EQ(val->BlockPosition(), -1);
  EXPECT_FALSE(val->IsEmpty());
  val->Close();
}

TEST(DtmArea, ClosingTheLastHolderWritesAllModifiedBlocksOfTheAreaTogether) {
  TimeStands time(100);
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Leave();
  DtmArea* const area = grid.Area(0, 0);
  DtmDataBlock* const val = area->OpenDataBlock(dVAL);
  DtmDataBlock* const num = area->OpenDataBlock(iNUM);
  *DtmCell<double>(val, 5) = 3;
  val->SetModified();
  *DtmCell<int>(num, 5) = 4;
  num->SetModified();
  time.At(200);
  const std::uint64_t writes = grid.Memory().counts.writes;
  val->Close();
  EXPECT_EQ(grid.Memory().counts.writes, writes + 2);
  EXPECT_EQ(area->LastWritten(), 200) << "and the time moves";
  EXPECT_FALSE(num->IsModified());
  EXPECT_NE(num->CellData(), nullptr) << "still held";
  EXPECT_EQ(val->CellData(), nullptr);
  num->Close();
}

TEST(DtmArea, MakeUnwrittenLeavesItWrittenAsAWholeWhenALaterBlockCantBeRead) {
  for (const std::uint64_t good : {0U, 1U, 2U}) {
    SCOPED_TRACE(good);
    TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM, dMIN}});
    grid.Sound(0.5, 0.5, -1);
    grid.Reopen();
    DtmArea* const area = grid.Area(0, 0);
    area->OpenDataBlock(dVAL)->Close();
    const long long place = area->BlockPosition();
    const auto before = grid.Bytes();
    grid.Memory().failReadsFrom = grid.Memory().counts.reads + good;
    EXPECT_FALSE(area->MakeUnwritten());
    grid.Memory().failReadsFrom = ~std::uint64_t{0};
    EXPECT_TRUE(area->IsWritten());
    EXPECT_EQ(area->BlockPosition(), place);
    EXPECT_FALSE(area->IsModified());
    EXPECT_TRUE(area->SyncWrite());
    EXPECT_EQ(grid.Bytes(), before);
    // Each block still goes to its place.
    for (const int id : {dVAL, iNUM, dMIN}) ASSERT_TRUE(grid.Set(1, 1, id, 7));
    EXPECT_TRUE(area->SyncWrite());
    grid.Reopen();
    for (const int id : {dVAL, iNUM, dMIN}) EXPECT_EQ(grid.Get(1, 1, id), 7);
    EXPECT_EQ(grid.Get(0, 0, iNUM), 1);
    EXPECT_EQ(grid.Get(0, 0, dMIN), -1);
  }
}

}  // namespace
}  // namespace vak::test
