#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "vakdtm/export/DtmExport.h"
#include "vakdtm/frame/DtmProcessor.h"
#include "vakdtm/services/files/memfile.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmCell.h"
#include "vakdtm/store/DtmDataBlock.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::Hex;
using test::HexDump;
using test::TestGrid;

std::string Dump(const memfile& file) {
  const auto bytes = file.Bytes();
  std::vector<std::uint8_t> copy;
  for (const std::byte byte : bytes) copy.push_back(std::to_integer<std::uint8_t>(byte));
  return HexDump(copy);
}

/// What the export of all cells writes, as people read it.
std::string Exported(TestGrid& grid) {
  memfile file;
  DtmExport exporter(&file);
  EXPECT_TRUE(exporter.ProcessAllCells(grid.Access()));
  return Dump(file);
}

TEST(DtmExport, WritesTheKindsAndThenACellAfterTheOther) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {iNUM, dVAL, fBKS, cOIL, tTIM}});
  grid.Set(-1, 2, dVAL, -1.5);
  grid.Set(-1, 2, iNUM, -1);
  grid.Set(-1, 2, fBKS, 0.5);
  grid.Set(-1, 2, cOIL, 200);
  grid.Set(-1, 2, tTIM, 0x01020304);
  grid.Set(-1, 3, dVAL, 2.0);
  grid.Set(-2, 0, iNUM, 7);  // without a height it isn't used
  EXPECT_EQ(Exported(grid), HexDump(Hex(R"(
    05 00 00 00                                          ; five kinds
    4D 55 4E 69  4C 41 56 64  53 4B 42 66  4C 49 4F 63  4D 49 54 74
    FF FF FF FF  02 00 00 00                             ; row -1, column 2
    FF FF FF FF  00 00 00 00 00 00 F8 BF  00 00 00 3F  C8  04 03 02 01
    FF FF FF FF  03 00 00 00                             ; row -1, column 3: the others are empty
    00 00 00 00  00 00 00 00 00 00 00 40  FF FF FF FF  00  00 00 00 00
  )")));
}

TEST(DtmExport, AHeightThatIsNoNumberIsUsed) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL}});
  grid.Set(0, 1, dVAL, std::bit_cast<double>(std::uint64_t{0x7FF8000000000003}));
  EXPECT_EQ(Exported(grid),
            HexDump(Hex("01 00 00 00  4C 41 56 64  00 00 00 00  01 00 00 00  03 00 00 00 00 00 F8 7F")));
}

TEST(DtmExport, ASecondWalkWritesTheSameOnceMore) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {cOIL, dVAL}});
  grid.Set(0, 1, dVAL, 1.0);
  grid.Set(0, 1, cOIL, 9.0);
  memfile file;
  DtmExport exporter(&file);
  ASSERT_TRUE(exporter.ProcessAllCells(grid.Access()));
  ASSERT_TRUE(exporter.ProcessAllCells(grid.Access()));
  const std::string walk =
      "02 00 00 00  4C 49 4F 63  4C 41 56 64  00 00 00 00  01 00 00 00  09  00 00 00 00 00 00 F0 3F ";
  EXPECT_EQ(Dump(file), HexDump(Hex(walk + walk)));
}

TEST(DtmExport, AFileCountStandsInTheHeaderAlone) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {uFCT, dVAL}});
  ASSERT_TRUE(grid.Access().InsertValue(0.5, 0.5, 1.0, 0, nullptr, nullptr, 3));
  EXPECT_EQ(Exported(grid), HexDump(Hex("02 00 00 00  54 43 46 75  4C 41 56 64 "
                                        "00 00 00 00  00 00 00 00  00 00 00 00 00 00 F0 3F")));
}

TEST(DtmExport, AModelWithoutHeightsHasNoRecords) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {iNUM}});
  grid.Set(0, 0, iNUM, 4);
  EXPECT_EQ(Exported(grid), HexDump(Hex("01 00 00 00  4D 55 4E 69")));
}

TEST(DtmExport, AnEmptyModelHasItsKinds) {
  TestGrid grid;
  EXPECT_EQ(Exported(grid), HexDump(Hex("02 00 00 00  4C 41 56 64  4D 55 4E 69")));
}

TEST(DtmExport, EveryBitOfACellArrives) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, fBKS}});
  grid.Set(0, 0, dVAL, 1.0);
  DtmDataBlock* const block = grid.Area(0, 0)->OpenDataBlock(fBKS);
  // A signalling not-a-number, which any conversion makes a quiet one.
  *DtmCell<std::int32_t>(block, 0) = 0x7f812345;
  block->SetModified();
  block->Close();
  EXPECT_EQ(Exported(grid), HexDump(Hex("02 00 00 00  4C 41 56 64  53 4B 42 66 "
                                        "00 00 00 00  00 00 00 00  00 00 00 00 00 00 F0 3F  45 23 81 7F")));
}

TEST(DtmExport, AKindThatCannotBeReadIsEmptyAndKeepsItsWidth) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {iNUM, fBKS, dVAL, dMIN, cOIL}});
  for (const int id : {iNUM, fBKS, dVAL, dMIN, cOIL}) grid.Set(0, 0, id, 1.0);
  grid.Reopen();
  memfile file;
  DtmExport exporter(&file);
  ASSERT_TRUE(exporter.Init(grid.Access()));
  ASSERT_EQ(grid.Get(0, 0, dVAL), 1.0);  // reads that block
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  double weight = 1.0;
  EXPECT_TRUE(exporter.ProcessCell(0, 0, weight));
  EXPECT_EQ(Dump(file), HexDump(Hex(R"(
    05 00 00 00  4D 55 4E 69  53 4B 42 66  4C 41 56 64  4E 49 4D 64  4C 49 4F 63
    00 00 00 00  00 00 00 00
    00 00 00 00  FF FF FF FF  00 00 00 00 00 00 F0 3F  FF FF FF FF FF FF FF FF  00
  )")));
}

TEST(DtmExport, ACellWithoutAnAreaIsNotUsed) {
  TestGrid grid;
  memfile file;
  DtmExport exporter(&file);
  ASSERT_TRUE(exporter.Init(grid.Access()));
  const std::size_t header = file.Size();
  double weight = 1.0;
  EXPECT_TRUE(exporter.ProcessCell(900, 900, weight));
  EXPECT_EQ(file.Size(), header);
}

TEST(DtmExport, WithoutAFileThereIsNoWalk) {
  TestGrid grid;
  DtmExport exporter(nullptr);
  EXPECT_FALSE(exporter.Init(grid.Access()));
}

TEST(DtmExport, GoesOnBehindWhatTheFileHolds) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {iNUM}});
  memfile file;
  file.Write("\x2a", 1);
  DtmExport exporter(&file);
  ASSERT_TRUE(exporter.ProcessAllCells(grid.Access()));
  EXPECT_EQ(Dump(file), HexDump(Hex("2A 01 00 00 00 4D 55 4E 69")));
}

}  // namespace
}  // namespace vak
