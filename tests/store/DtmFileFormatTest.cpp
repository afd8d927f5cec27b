// The bytes of small models, written out by hand.
#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

#include "support/GridStreamLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr long long kSecond = 0x6553F100;  // 14 November 2023

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes NewAndEmpty() {
  return Hex(R"(56 41 4B 34 31 30 30 20 44 54 4D 00    ; magic
                72 74 74 61 2C 00 00 00                ; attr, 36 + 4 x 2
                7A 69 73 63 08 00 00 00 00 00 00 00 00 00 F0 3F   ; csiz 1.0
                7A 69 73 61 04 00 00 00 40 00 00 00    ; asiz 64
                73 64 69 62 08 00 00 00                ; bids
                4C 41 56 64 4D 55 4E 69                ; dVAL iNUM
                64 33 6E 69 09 00 00 00                ; head of the index, one too long
                64 33 6E 69 08 00 00 00                ; tail
             )");
}

// Cell size 0.5, area size 2, dVAL and iNUM.
Bytes HeaderOfTwoByTwo() {
  return Hex(R"(56 41 4B 34 31 30 30 20 44 54 4D 00
                72 74 74 61 2C 00 00 00
                7A 69 73 63 08 00 00 00 00 00 00 00 00 00 E0 3F
                7A 69 73 61 04 00 00 00 02 00 00 00
                73 64 69 62 08 00 00 00 4C 41 56 64 4D 55 4E 69
             )");
}

// At 64: the area of rows 0 and 1, columns -2 and -1. Cell (0, -1) has one sounding of -12.5.
Bytes OneArea() {
  return Hex(R"(61 65 72 61 60 00 00 00                ; area, 32 + 40 + 24
                72 74 74 61 18 00 00 00                ; attr
                77 72 6C 62 04 00 00 00 00 00 00 00    ; blrw 0
                6C 63 6C 62 04 00 00 00 FE FF FF FF    ; blcl -2
                4C 41 56 64 20 00 00 00                ; dVAL
                FF FF FF FF FF FF FF FF                ; (0, -2)
                00 00 00 00 00 00 29 C0                ; (0, -1)
                FF FF FF FF FF FF FF FF                ; (1, -2)
                FF FF FF FF FF FF FF FF                ; (1, -1)
                4D 55 4E 69 10 00 00 00                ; iNUM
                00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00
             )");
}

Bytes IndexOfOneArea() {
  return Hex(R"(64 33 6E 69 29 00 00 00                ; head, 32 + 9
                00 00 00 00 FE FF FF FF                ; row 0, column -2
                48 00 00 00 00 00 00 00                ; the body's offset, 72
                00 F1 53 65 00 00 00 00                ; last written
                00 00 48 C1 00 00 48 C1                ; lowest and highest -12.5
                64 33 6E 69 28 00 00 00                ; tail, 32 + 8
             )");
}

Bytes OldIndexOfOneArea() {
  return Hex(R"(78 64 6E 69 21 00 00 00                ; head, 24 + 9
                00 00 00 00 FE FF FF FF
                48 00 00 00 00 00 00 00
                00 F1 53 65 00 00 00 00
                78 64 6E 69 20 00 00 00                ; tail, 24 + 8
             )");
}

// Cell size 1, area size 1, dVAL alone: an area's chunk is 56 bytes.
Bytes HeaderOfSingleCells() {
  return Hex(R"(56 41 4B 34 31 30 30 20 44 54 4D 00
                72 74 74 61 28 00 00 00
                7A 69 73 63 08 00 00 00 00 00 00 00 00 00 F0 3F
                7A 69 73 61 04 00 00 00 01 00 00 00
                73 64 69 62 04 00 00 00 4C 41 56 64
             )");
}

Bytes SingleCellZeroZero() {  // at 60: cell (0, 0), -1.0
  return Hex(R"(61 65 72 61 30 00 00 00 72 74 74 61 18 00 00 00
                77 72 6C 62 04 00 00 00 00 00 00 00 6C 63 6C 62 04 00 00 00 00 00 00 00
                4C 41 56 64 08 00 00 00 00 00 00 00 00 00 F0 BF
             )");
}

Bytes SingleCellZeroFive() {  // cell (0, 5), -2.0
  return Hex(R"(61 65 72 61 30 00 00 00 72 74 74 61 18 00 00 00
                77 72 6C 62 04 00 00 00 00 00 00 00 6C 63 6C 62 04 00 00 00 05 00 00 00
                4C 41 56 64 08 00 00 00 00 00 00 00 00 00 00 C0
             )");
}

Bytes IndexOfBothCells() {
  return Hex(R"(64 33 6E 69 49 00 00 00
                00 00 00 00 00 00 00 00 44 00 00 00 00 00 00 00 00 F1 53 65 00 00 00 00 00 00 80 BF 00 00 80 BF
                00 00 00 00 05 00 00 00 7C 00 00 00 00 00 00 00 00 F1 53 65 00 00 00 00 00 00 00 C0 00 00 00 C0
                64 33 6E 69 48 00 00 00
             )");
}

// After the area of (0, 0) was emptied: the other one lies in its place, written a minute later.
Bytes IndexOfTheMovedCell() {
  return Hex(R"(64 33 6E 69 29 00 00 00
                00 00 00 00 05 00 00 00 44 00 00 00 00 00 00 00 3C F1 53 65 00 00 00 00 00 00 00 C0 00 00 00 C0
                64 33 6E 69 28 00 00 00
             )");
}

const GridSettings kTwoByTwo{.cellSize = 0.5, .areaSize = 2, .blockIds = {dVAL, iNUM}};
const GridSettings kSingleCells{.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL}};

TEST(DtmFileFormat, NewFileClosedAtOnceIsHeaderAndEmptyIndex) {
  auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  ASSERT_TRUE(file.Open());
  EXPECT_EQ(memory->bytes.size(), 64u) << "no index yet";
  EXPECT_EQ(file.FileSize(), 64);
  file.Close();
  EXPECT_EQ(HexDump(memory->bytes), HexDump(NewAndEmpty()));
  EXPECT_EQ(file.FileSize(), 80);
}

TEST(DtmFileFormat, NewAndEmptyFileOpensWithZeroAreas) {
  TestGrid grid(NewAndEmpty());
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(grid.File().NumAreas(), 0);
  EXPECT_EQ(grid.File().CellSize(), 1.0);
  EXPECT_EQ(grid.File().AreaSize(), 64);
  EXPECT_EQ(grid.File().NumBlockIds(), 2);
  EXPECT_EQ(grid.File().FileSize(), 80);
}

TEST(DtmFileFormat, HeaderHas56BytesAndFourForEachBlockId) {
  for (const std::size_t count : {1u, 2u, 13u, 30u}) {
    TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = std::vector<int>(count, dVAL)});
    EXPECT_EQ(grid.Bytes().size(), 56 + 4 * count);
    EXPECT_EQ(grid.File().FileSize(), static_cast<long long>(56 + 4 * count));
    grid.Close();
    EXPECT_EQ(grid.Bytes().size(), 56 + 4 * count + 16);
  }
}

TEST(DtmFileFormat, OneAreaIsWrittenByteForByte) {
  const TimeStands time(kSecond);
  TestGrid grid(kTwoByTwo);
  ASSERT_TRUE(grid.Sound(-0.25, 0.25, -12.5));
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea()));
}

TEST(DtmFileFormat, OneAreaIsReadFieldForField) {
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea());
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(grid.File().CellSize(), 0.5);
  EXPECT_EQ(grid.File().AreaSize(), 2);
  ASSERT_EQ(grid.File().NumAreas(), 1);
  const DtmArea& area = *grid.File().GetArea(0);
  EXPECT_EQ(area.BottomLeftRow(), 0);
  EXPECT_EQ(area.BottomLeftCol(), -2);
  EXPECT_EQ(area.BlockPosition(), 72);
  EXPECT_EQ(area.BlockSize(), 0) << "not known before the blocks are needed";
  EXPECT_EQ(area.LastWritten(), kSecond);
  float lo = 0;
  float hi = 0;
  EXPECT_TRUE(area.GetMinMaxZ(lo, hi));
  EXPECT_EQ(lo, -12.5F);
  EXPECT_EQ(hi, -12.5F);
  EXPECT_EQ(grid.Get(0, -1, dVAL), -12.5);
  EXPECT_EQ(grid.Get(0, -1, iNUM), 1);
  for (const int row : {0, 1}) EXPECT_TRUE(IsEmptyValue(grid.Get(row, -2, dVAL)));
  EXPECT_TRUE(IsEmptyValue(grid.Get(1, -1, iNUM)));
  EXPECT_EQ(area.BlockSize(), 96);
}

TEST(DtmFileFormat, ReadingAModelLeavesEveryByte) {
  const Bytes golden = HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea();
  TestGrid grid(golden);
  EXPECT_EQ(grid.Get(0, -1), -12.5);
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(golden));
  EXPECT_EQ(grid.Memory().changes, 0) << "no write, no size, no sync";
}

TEST(DtmFileFormat, TwoAreasAreWrittenByteForByteWithEntriesByPosition) {
  const TimeStands time(kSecond);
  TestGrid grid(kSingleCells);
  ASSERT_TRUE(grid.Sound(0.5, 0.5, -1));
  ASSERT_TRUE(grid.Sound(5.5, 0.5, -2));
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()),
            HexDump(HeaderOfSingleCells() + SingleCellZeroZero() + SingleCellZeroFive() + IndexOfBothCells()));
}

TEST(DtmFileFormat, RemovedAreasPlaceIsTakenByTheLastOne) {
  TimeStands time(kSecond + 60);
  TestGrid grid(HeaderOfSingleCells() + SingleCellZeroZero() + SingleCellZeroFive() + IndexOfBothCells());
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(HeaderOfSingleCells() + SingleCellZeroFive() + IndexOfTheMovedCell()));
}

TEST(DtmFileFormat, StreamThatCantBeCutGetsAFillerBehindTheNewTail) {
  TimeStands time(kSecond + 60);
  const Bytes before = HeaderOfSingleCells() + SingleCellZeroZero() + SingleCellZeroFive() + IndexOfBothCells();
  TestGrid grid(before);
  grid.Memory().canShorten = false;
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Close();
  Bytes expected = before;
  const Bytes start =
      HeaderOfSingleCells() + SingleCellZeroFive() + IndexOfTheMovedCell() + Hex("00 00 00 00 FF FF FF 7F");
  std::copy(start.begin(), start.end(), expected.begin());
  std::fill(expected.end() - 8, expected.end(), std::uint8_t{0});
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(expected));

  grid.Open();
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kWalk);
  EXPECT_EQ(grid.File().WalkStoppedAt(), -1) << "an index and a filler belong at an end";
  EXPECT_EQ(grid.File().NumAreas(), 1);
  EXPECT_EQ(grid.Get(0, 5), -2);
  EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0)));
}

TEST(DtmFileFormat, StreamThatCantBeCutIsWrittenAgainAndAgain) {
  TestGrid grid(kSingleCells);
  grid.Memory().canShorten = false;
  for (int col = 0; col < 6; ++col) grid.Set(0, col, dVAL, col + 1);
  grid.Reopen();
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex) << "never shorter: no filler";
  for (int col = 0; col < 4; ++col) grid.Clear(0, col);
  grid.Reopen();
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kWalk);
  EXPECT_EQ(grid.File().NumAreas(), 2);
  grid.Clear(0, 4);
  grid.Reopen();
  EXPECT_EQ(grid.File().NumAreas(), 1);
  for (int col = 10; col < 20; ++col) grid.Set(0, col, dVAL, col + 1);
  grid.Reopen();
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex) << "grown beyond the old end, the tail is last again";
  EXPECT_EQ(grid.File().NumAreas(), 11);
  EXPECT_EQ(grid.Get(0, 5), 6);
  for (int col = 10; col < 20; ++col) EXPECT_EQ(grid.Get(0, col), col + 1);
}

TEST(DtmFileFormat, FillerIsNotWrittenWhereTheNewTailIsLastAnyway) {
  TestGrid grid(kSingleCells);
  grid.Memory().canShorten = false;
  grid.Set(0, 0, dVAL, 1);
  grid.Reopen();
  grid.Set(0, 0, dVAL, 2);  // the same count of areas, the index as long as before
  grid.Close();
  EXPECT_EQ(grid.Bytes().size(), 60u + 56 + 48);
  grid.Open();
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex);
}

TEST(DtmFileFormat, OldIndexIsReadWithoutRangesAndKeptWhileNothingChanges) {
  const Bytes golden = HeaderOfTwoByTwo() + OneArea() + OldIndexOfOneArea();
  TestGrid grid(golden);
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kOldIndex);
  ASSERT_EQ(grid.File().NumAreas(), 1);
  DtmArea& area = *grid.File().GetArea(0);
  EXPECT_EQ(area.BottomLeftCol(), -2);
  EXPECT_EQ(area.BlockPosition(), 72);
  EXPECT_EQ(area.LastWritten(), kSecond);
  float lo = 0;
  float hi = 0;
  EXPECT_FALSE(area.GetMinMaxZ(lo, hi));
  EXPECT_EQ(grid.Get(0, -1), -12.5);
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(golden));
}

TEST(DtmFileFormat, OldIndexTurnsIntoTheNewFormAtTheClosingWithAChange) {
  const TimeStands time(kSecond + 5);
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + OldIndexOfOneArea());
  ASSERT_TRUE(grid.Set(0, -1, dVAL, -12.5));
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(HeaderOfTwoByTwo() + OneArea() + Hex(R"(64 33 6E 69 29 00 00 00
                                                             00 00 00 00 FE FF FF FF
                                                             48 00 00 00 00 00 00 00
                                                             05 F1 53 65 00 00 00 00
                                                             FF FF FF FF FF FF FF FF   ; the range isn't known
                                                             64 33 6E 69 28 00 00 00)")));
}

TEST(DtmFileFormat, UpdateMinMaxZOfAnAreaFromAnOldIndexChangesNothing) {
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + OldIndexOfOneArea());
  DtmArea& area = *grid.File().GetArea(0);
  float lo = 0;
  float hi = 0;
  area.GetMinMaxZ(lo, hi);
  EXPECT_EQ(lo, 3.4028235e38F);
  EXPECT_EQ(hi, -3.4028235e38F);
  area.UpdateMinMaxZ(-3);
  EXPECT_FALSE(area.GetMinMaxZ(lo, hi));
  EXPECT_EQ(lo, 3.4028235e38F);
  EXPECT_EQ(hi, -3.4028235e38F);
}

TEST(DtmFileFormat, RangeOfAnEntryIsKnownOnlyWhenBothFieldsAre) {
  for (const std::size_t field : {24u, 28u}) {
    Bytes bytes = HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea();
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(64 + 104 + 8 + field), 4, std::uint8_t{0xFF});
    TestGrid grid(bytes);
    float lo = 0;
    float hi = 0;
    EXPECT_FALSE(grid.File().GetArea(0)->GetMinMaxZ(lo, hi)) << field;
  }
}

TEST(DtmFileFormat, RangeOfAnAreaWithoutHeightsIsWrittenAsItsStartValues) {
  const TimeStands time(kSecond);
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL, iNUM}});
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, iNUM, 3, false));
  grid.Close();
  const std::vector<grid::IndexEntry> index = TakeIndex(grid.Bytes());
  ASSERT_EQ(index.size(), 1U);
  EXPECT_EQ(index[0].lowestZ, 0x7F7FFFFFU);
  EXPECT_EQ(index[0].highestZ, 0xFF7FFFFFU);
}

TEST(DtmFileFormat, EveryKindOfCellLiesInTheFileAsItsType) {
  const TimeStands time(kSecond);
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {cOIL, dTVU, fBKS, iPRI, tTIM, uFCT}});
  ASSERT_TRUE(grid.Set(0, 0, cOIL, 200));
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, dTVU, 1.5, false));
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, fBKS, -0.75, false));
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, iPRI, -2, false));
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, tTIM, 0x12345678, false));
  ASSERT_TRUE(grid.Access().InsertValue(0.5, 0.5, 0, 0x12345679, nullptr, nullptr, 9));
  grid.Close();
  const Bytes area(grid.Bytes().begin() + 56 + 24, grid.Bytes().end() - 48);
  EXPECT_EQ(HexDump(area), HexDump(Hex(R"(61 65 72 61 69 00 00 00 72 74 74 61 18 00 00 00
                                          77 72 6C 62 04 00 00 00 00 00 00 00
                                          6C 63 6C 62 04 00 00 00 00 00 00 00
                                          4C 49 4F 63 01 00 00 00 C8
                                          55 56 54 64 08 00 00 00 00 00 00 00 00 00 F8 3F
                                          53 4B 42 66 04 00 00 00 00 00 40 BF
                                          49 52 50 69 04 00 00 00 FE FF FF FF
                                          4D 49 54 74 04 00 00 00 79 56 34 12
                                          54 43 46 75 04 00 00 00 00 02 00 00
                                       )")));
}

TEST(DtmFileFormat, EmptyCellsAreAllOnesInFloatingKindsAndZeroInOthers) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {cOIL, dTVU, fBKS, iPRI, tTIM, uFCT}});
  ASSERT_NE(grid.File().GetArea(0, 0, true), nullptr);
  const Bytes cells(grid.Bytes().begin() + 56 + 24 + 40, grid.Bytes().end());
  EXPECT_EQ(HexDump(cells), HexDump(Hex(R"(4C 49 4F 63 01 00 00 00 00
                                           55 56 54 64 08 00 00 00 FF FF FF FF FF FF FF FF
                                           53 4B 42 66 04 00 00 00 FF FF FF FF
                                           49 52 50 69 04 00 00 00 00 00 00 00
                                           4D 49 54 74 04 00 00 00 00 00 00 00
                                           54 43 46 75 04 00 00 00 00 00 00 00
                                        )")));
}

TEST(DtmFileFormat, CellsLieRowByRowFromTheBottomInFileOrder) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 3, .blockIds = {iNUM}});
  for (int row = 3; row < 6; ++row) {
    for (int col = -3; col < 0; ++col) grid.Access().SetDoubleValue(row, col, iNUM, 10 * row + (col + 3), false);
  }
  grid.Close();
  const std::size_t cells = 60 + 8 + 32 + 8;
  const std::int32_t expected[] = {30, 31, 32, 40, 41, 42, 50, 51, 52};
  std::int32_t got[9];
  std::memcpy(got, grid.Bytes().data() + cells, sizeof got);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(got[i], expected[i]) << i;
}

TEST(DtmFileFormat, BlocksAreUpdatedInPlace) {
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea());
  const std::size_t size = grid.Bytes().size();
  ASSERT_TRUE(grid.Access().SetDoubleValue(1, -1, dVAL, 1.0, false));
  grid.Close();
  ASSERT_EQ(grid.Bytes().size(), size);
  double cell = 0;
  std::memcpy(&cell, grid.Bytes().data() + 64 + 40 + 8 + 24, 8);
  EXPECT_EQ(cell, 1.0);
}

TEST(DtmFileFormat, IndexIsntRewrittenWhileItSaysTheSame) {
  const TimeStands time(kSecond);
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea());
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.Memory().changes, 0);
  // Cells change, time and range don't: the cells go out, the index stays.
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, -1, dVAL, -12.5, true));
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.Memory().counts.writes, 1u);
  EXPECT_EQ(grid.Memory().counts.bytesWritten, 32u);
}

TEST(DtmFileFormat, IndexIsRewrittenWhenOnlyATimeOrARangeMoved) {
  TimeStands time(kSecond);
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea());
  grid.File().GetArea(0)->SetMinMaxZ(-12.5F, -12.0F);
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.Memory().counts.bytesWritten, 48u);
  time.At(kSecond + 1);
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, -1, dVAL, -12.5, false));
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.Memory().counts.bytesWritten, 48u + 32 + 48);
}

TEST(DtmFileFormat, CellsAreOnTheDiskBeforeTheIndexAndTheIndexBeforeTheAnswer) {
  auto memory = std::make_shared<MemoryFile>();
  memory->bytes = HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea();
  auto log = std::make_shared<StreamLog>();
  DtmFile file(new LoggedStream(memory, log), false);
  ASSERT_TRUE(file.Open());
  {
    DtmAccess access(&file);
    ASSERT_TRUE(access.SetDoubleValue(0, -1, dVAL, 3, true));
    ASSERT_TRUE(access.SetDoubleValue(0, 0, dVAL, 4, true));  // a new area over the old index
    log->calls.clear();
    ASSERT_TRUE(file.SyncWrite());
    // Two blocks in place, the index but for its tail and nothing there, sync, the tail by which it is believed, size,
    // sync.
    EXPECT_EQ(log->Order(), "wwwwswzs");
    EXPECT_EQ(log->calls[2].at, 64 + 2 * 104);
    EXPECT_EQ(log->calls[2].count, 8u + 2 * 32);
    EXPECT_EQ(log->calls[3].at, 64 + 2 * 104 + 72);
    EXPECT_EQ(log->calls[5].at, 64 + 2 * 104 + 72);
    EXPECT_EQ(log->calls[5].count, 8u);
    EXPECT_EQ(log->calls[6].at, 64 + 2 * 104 + 80);
  }
  file.Close();
}

TEST(DtmFileFormat, FailedIndexWriteAnswersFalseAndIsTriedAgain) {
  TestGrid grid(kSingleCells);
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  grid.Leave();
  for (std::int64_t fail = 0; fail < 2; ++fail) {  // the sync in front, then the index itself
    grid.Memory().failFrom = grid.Memory().changes + fail;
    EXPECT_FALSE(grid.File().SyncWrite()) << fail;
    grid.Memory().failFrom = MemoryFile::kNever;
  }
  EXPECT_TRUE(grid.File().SyncWrite());
  grid.Reopen();
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(grid.Get(0, 0), 1);
}

TEST(DtmFileFormat, NextAreaGoesOverTheIndexThatIsThere) {
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea());
  const DtmArea* const area = grid.File().GetArea(50, 50, true);
  ASSERT_NE(area, nullptr);
  EXPECT_EQ(area->BlockPosition(), 64 + 104 + 8);
  // A crash now: the chunks alone tell what the model holds.
  TestGrid after(grid.Bytes());
  EXPECT_EQ(after.File().OpenedBy(), DtmOpenedBy::kWalk);
  EXPECT_EQ(after.File().NumAreas(), 2);
  EXPECT_EQ(after.Get(0, -1), -12.5);
}

TEST(DtmFileFormat, IndexIsWrittenAgainWhenAnAreaWentOverItAndLeftNoTrace) {
  // The new area is emptied before the index is due, so that the entries are those of the index which it destroyed.
  TimeStands time(kSecond);
  const Bytes golden = HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea();
  TestGrid grid(golden);
  ASSERT_NE(grid.File().GetArea(50, 50, true), nullptr);
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(golden));
}

TEST(DtmFileFormat, IndexIsWrittenAgainWhenAnAreaThatFailedTornWentOverIt) {
  const TimeStands time(kSecond);
  const Bytes golden = HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea();
  TestGrid grid(golden);
  grid.Memory().failFrom = grid.Memory().changes;
  grid.Memory().tornWrite = true;
  EXPECT_EQ(grid.File().GetArea(50, 50, true), nullptr);
  ASSERT_NE(grid.Bytes(), golden);
  grid.Memory().failFrom = MemoryFile::kNever;
  grid.Close();
  EXPECT_EQ(HexDump(grid.Bytes()), HexDump(golden));
}

TEST(DtmFileFormat, FailedSyncBehindTheIndexIsTriedAgain) {
  TestGrid grid(kSingleCells);
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  grid.Leave();
  grid.Memory().failFrom = grid.Memory().changes + 3;  // sync, index, size, sync
  EXPECT_FALSE(grid.File().SyncWrite());
  EXPECT_FALSE(grid.File().SyncWrite()) << "it can't be known what reached the disk";
  grid.Memory().failFrom = MemoryFile::kNever;
  EXPECT_TRUE(grid.File().SyncWrite());
}

TEST(DtmFileFormat, CellsThatLeaveTheIndexAsItWasAreSyncedToo) {
  const TimeStands time(kSecond);
  TestGrid grid(HeaderOfTwoByTwo() + OneArea() + IndexOfOneArea());
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, -1, dVAL, -12.5, true));
  grid.Leave();  // writes the cells
  const std::uint64_t syncs = grid.Memory().counts.syncs;
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.Memory().counts.syncs, syncs + 1);
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.Memory().counts.syncs, syncs + 1) << "nothing new";
}

TEST(DtmFileFormat, LastWrittenMovesWithTheAreasThatWereWrittenAlone) {
  TimeStands time(kSecond);
  TestGrid grid(kSingleCells);
  grid.Set(0, 0, dVAL, 1);
  grid.Set(0, 5, dVAL, 2);
  grid.Close();
  time.At(kSecond + 100);
  grid.Open();
  EXPECT_EQ(grid.Area(0, 0)->LastWritten(), kSecond);
  grid.Set(0, 5, dVAL, 3);
  grid.Reopen();
  EXPECT_EQ(grid.Area(0, 0)->LastWritten(), kSecond);
  EXPECT_EQ(grid.Area(0, 5)->LastWritten(), kSecond + 100);
}

TEST(GridFormat, TagsHaveTheirValuesAndReadBackwardsInTheFile) {
  struct Case {
    std::int32_t tag;
    std::int32_t value;
    const char* bytes;
  };
  const Case cases[] = {{grid::kAttributes, 0x61747472, "rtta"},    {grid::kCellSize, 0x6373697A, "zisc"},
                        {grid::kAreaSize, 0x6173697A, "zisa"},      {grid::kBlockIds, 0x62696473, "sdib"},
                        {grid::kArea, 0x61726561, "aera"},          {grid::kBottomLeftRow, 0x626C7277, "wrlb"},
                        {grid::kBottomLeftCol, 0x626C636C, "lclb"}, {grid::kIndex, 0x696E3364, "d3ni"},
                        {grid::kOldIndex, 0x696E6478, "xdni"},      {dVAL, 0x6456414C, "LAVd"}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.bytes);
    EXPECT_EQ(one.tag, one.value);
    EXPECT_EQ(std::memcmp(&one.tag, one.bytes, 4), 0);
  }
}

}  // namespace
}  // namespace vak::test
