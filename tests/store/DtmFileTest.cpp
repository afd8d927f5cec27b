#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

// ---- Settings and counts

TEST(DtmFile, DefaultsAreCellSizeOneAreaSize64MeanAndHitCount) {
  const DtmFile file(new MemoryStream, true);
  EXPECT_EQ(file.CellSize(), 1.0);
  EXPECT_EQ(file.AreaSize(), 64);
  ASSERT_EQ(file.NumBlockIds(), 2);
  EXPECT_EQ(file.GetBlockId(0), dVAL);
  EXPECT_EQ(file.GetBlockId(1), iNUM);
  EXPECT_EQ(file.NumAreas(), 0);
  EXPECT_EQ(file.OpenCount(), 0);
}

TEST(DtmFile, SettingsOfAnOpenFileAreRefusedAndChangeNothing) {
  TestGrid grid;
  EXPECT_FALSE(grid.File().SetCellSize(7.0));
  EXPECT_FALSE(grid.File().SetAreaSize(7));
  EXPECT_FALSE(grid.File().ClearBlockIds());
  EXPECT_FALSE(grid.File().AddBlockId(dMIN));
  EXPECT_EQ(grid.File().CellSize(), 1.0);
  EXPECT_EQ(grid.File().AreaSize(), 4);
  EXPECT_EQ(grid.File().NumBlockIds(), 2);
}

TEST(DtmFile, SetAreaSizeOnAnOpenFileAnswersFalseAndChangesNothing) {
  TestGrid grid;
  EXPECT_FALSE(grid.File().SetAreaSize(64));
  EXPECT_EQ(grid.File().AreaSize(), 4);
}

TEST(DtmFile, SettingsAreTakenWithoutAnyCheckWhileClosed) {
  DtmFile file(new MemoryStream, true);
  EXPECT_TRUE(file.SetCellSize(-3.5));
  EXPECT_EQ(file.CellSize(), -3.5);
  EXPECT_TRUE(file.SetAreaSize(-2));
  EXPECT_EQ(file.AreaSize(), -2);
  EXPECT_TRUE(file.ClearBlockIds());
  EXPECT_EQ(file.NumBlockIds(), 0);
  for (const int id : {dMIN, iNUM, dMIN, 0x41414141}) EXPECT_TRUE(file.AddBlockId(id));
  ASSERT_EQ(file.NumBlockIds(), 4) << "a duplicate is not looked for";
  EXPECT_EQ(file.GetBlockId(2), dMIN);
  EXPECT_TRUE(file.HasBlockId(iNUM));
  EXPECT_FALSE(file.HasBlockId(dVAL));
}

TEST(DtmFile, SettingsStayWhenTheFileIsClosed) {
  auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  file.SetCellSize(0.25);
  file.SetAreaSize(8);
  file.AddBlockId(dMAX);
  ASSERT_TRUE(file.Open());
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(file.CellSize(), 0.25);
  EXPECT_EQ(file.AreaSize(), 8);
  EXPECT_EQ(file.NumBlockIds(), 3);
}

TEST(DtmFile, UnusableSettingsCantBeMade) {
  struct Case {
    const char* name;
    double cellSize;
    int areaSize;
    int blocks;
  };
  const Case cases[] = {{"cell size 0", 0.0, 4, 1},
                        {"cell size below 0", -1.0, 4, 1},
                        {"cell size infinite", std::numeric_limits<double>::infinity(), 4, 1},
                        {"cell size no number", std::numeric_limits<double>::quiet_NaN(), 4, 1},
                        {"area size 0", 1.0, 0, 1},
                        {"area size below 0", 1.0, -4, 1},
                        {"no blocks", 1.0, 4, 0},
                        {"area beyond 31 bits", 1.0, 16384, 1},
                        {"cells beyond 32 bits", 1.0, 65536, 1}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    auto memory = std::make_shared<MemoryFile>();
    DtmFile file(new MemoryStream(memory), true);
    file.SetCellSize(one.cellSize);
    file.SetAreaSize(one.areaSize);
    file.ClearBlockIds();
    for (int i = 0; i < one.blocks; ++i) file.AddBlockId(dVAL);
    EXPECT_FALSE(file.Open());
    EXPECT_EQ(file.OpenCount(), 0);
    EXPECT_TRUE(memory->bytes.empty());
  }
}

TEST(DtmFile, OpenCountsUpAndTheFileIsReadOnce) {
  TestGrid grid;
  ASSERT_TRUE(grid.Sound(0.5, 0.5, -1));
  grid.Reopen();
  const int counted = grid.File().OpenCount();
  EXPECT_EQ(counted, 2) << "the model's own and the cursor's";
  const std::uint64_t reads = grid.Memory().counts.reads;
  EXPECT_TRUE(grid.File().Open());
  EXPECT_EQ(grid.File().OpenCount(), 3);
  EXPECT_EQ(grid.Memory().counts.reads, reads);
  EXPECT_EQ(grid.File().Close(), 2);
}

TEST(DtmFile, CreatingFlagIsClearedByTheFirstOpen) {
  auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  ASSERT_TRUE(file.Open());
  EXPECT_EQ(file.OpenedBy(), DtmOpenedBy::kCreation);
  ASSERT_TRUE(DtmAccess(&file).SetDoubleValue(0, 0, dVAL, 1, true));
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(file.NumAreas(), 0) << "a closed file holds no areas";
  ASSERT_TRUE(file.Open()) << "reads now, writes no new file";
  EXPECT_EQ(file.OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(file.NumAreas(), 1);
  file.Close();
}

TEST(DtmFile, CreatingFlagStaysWhenWritingTheHeaderFails) {
  auto memory = std::make_shared<MemoryFile>();
  memory->failFrom = 0;
  DtmFile file(new MemoryStream(memory), true);
  EXPECT_FALSE(file.Open());
  memory->failFrom = MemoryFile::kNever;
  EXPECT_TRUE(file.Open());
  EXPECT_EQ(file.OpenedBy(), DtmOpenedBy::kCreation);
  file.Close();
}

TEST(DtmFile, BlockIdsThatNoChunkOfAnAreaCanHaveAreRefusedOnCreation) {
  for (const int id : {0, int{grid::kAttributes}}) {
    for (const std::vector<int>& ids : {std::vector{id}, std::vector{id, dVAL}, std::vector{dVAL, id}}) {
      SCOPED_TRACE(id);
      const auto memory = std::make_shared<MemoryFile>();
      DtmFile file(new MemoryStream(memory), true);
      file.ClearBlockIds();
      for (const int one : ids) file.AddBlockId(one);
      EXPECT_FALSE(file.Open());
      EXPECT_EQ(file.OpenCount(), 0);
      EXPECT_TRUE(memory->bytes.empty());
      file.ClearBlockIds();
      file.AddBlockId(dVAL);
      EXPECT_TRUE(file.Open());
      file.Close();
    }
  }
}

TEST(DtmFile, LastCloseThatCantWriteSaysThatDataWasLost) {
  const auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  ASSERT_TRUE(file.Open());
  ASSERT_TRUE(file.Open());
  ASSERT_TRUE(DtmAccess(&file).SetDoubleValue(0, 0, dVAL, 1, true));
  EXPECT_FALSE(file.HasLostData()) << "the cells have gone out, the index hasn't";
  memory->failFrom = memory->changes;
  EXPECT_EQ(file.Close(), 1);
  EXPECT_FALSE(file.HasLostData()) << "not the last one, which alone writes";
  EXPECT_EQ(file.Close(), 0);
  EXPECT_TRUE(file.HasLostData());
  memory->failFrom = MemoryFile::kNever;
  ASSERT_TRUE(file.Open());
  EXPECT_FALSE(file.HasLostData());
  EXPECT_EQ(file.Close(), 0);
  EXPECT_FALSE(file.HasLostData());
}

TEST(DtmFile, CloseOfAFileThatIsntOpenAnswersZero) {
  auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  EXPECT_EQ(file.Close(), 0);
  EXPECT_TRUE(memory->bytes.empty());
}

TEST(DtmFile, OnlyTheLastCloseWrites) {
  TestGrid grid;
  ASSERT_TRUE(grid.Sound(0.5, 0.5, -1));
  const std::uint64_t writes = grid.Memory().counts.writes;
  ASSERT_TRUE(grid.File().Open());
  EXPECT_EQ(grid.File().Close(), 2);
  EXPECT_EQ(grid.Memory().counts.writes, writes);
  EXPECT_EQ(grid.File().NumAreas(), 1);
}

TEST(DtmFile, ACursorOpensAndClosesThroughTheOverriddenOperations) {
  struct Counting : DtmFile {
    using DtmFile::DtmFile;
    bool Open() override {
      ++opens;
      return DtmFile::Open();
    }
    int Close() override {
      ++closes;
      return DtmFile::Close();
    }
    int opens = 0;
    int closes = 0;
  };
  Counting file(new MemoryStream, true);
  {
    const DtmAccess access(&file);
  }
  EXPECT_EQ(file.opens, 1);
  EXPECT_EQ(file.closes, 1);
}

TEST(DtmFile, StreamIsDeletedWithTheFile) {
  struct Watched : DataStream {
    explicit Watched(bool& gone) : gone_(gone) {}
    ~Watched() override { gone_ = true; }
    bool Sync() override { return false; }
    bool Read(void*, std::uint64_t) override { return false; }
    bool Write(const void*, std::uint64_t) override { return false; }
    bool Seek(std::int64_t, int) override { return false; }
    std::int64_t Position() override { return 0; }
    bool SetSize(std::int64_t) override { return false; }
    bool& gone_;
  };
  bool gone = false;
  {
    auto* stream = new Watched(gone);
    const DtmFile file(stream, false);
    EXPECT_EQ(file.GetStream(), stream);
  }
  EXPECT_TRUE(gone);
}

// ---- Arithmetic

TEST(DtmFile, CalcRowColRoundsDownNotTowardsZero) {
  DtmFile file(new MemoryStream, true);
  int row = 0;
  int col = 0;
  file.CalcRowCol(-0.5, -0.5, row, col);
  EXPECT_EQ(row, -1);
  EXPECT_EQ(col, -1);
  const DtmAreaPos pos(64, row, col);
  EXPECT_EQ(pos.AreaRow(), -1);
  EXPECT_EQ(pos.AreaCol(), -1);
  ASSERT_TRUE(file.Open());
  const DtmArea* const area = file.GetArea(row, col, true);
  ASSERT_NE(area, nullptr);
  EXPECT_EQ(area->BottomLeftRow(), -64);
  EXPECT_EQ(area->BottomLeftCol(), -64);
  file.Close();
}

TEST(DtmFile, RowComesFromYAndColumnFromX) {
  DtmFile file(new MemoryStream, true);
  file.SetCellSize(0.5);
  struct Case {
    const char* name;
    double x, y;
    int row, col;
  };
  const Case cases[] = {{"inside", 1.75, -3.25, -7, 3},
                        {"on a corner", 2.0, -2.0, -4, 4},
                        {"just below a corner", std::nextafter(2.0, 0.0), std::nextafter(-2.0, -9.0), -5, 3},
                        {"origin", 0.0, -0.0, 0, 0}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    int row = 99;
    int col = 99;
    file.CalcRowCol(one.x, one.y, row, col);
    EXPECT_EQ(row, one.row);
    EXPECT_EQ(col, one.col);
  }
}

TEST(DtmFile, CalcXYGivesTheCentreOfTheCell) {
  DtmFile file(new MemoryStream, true);
  file.SetCellSize(0.3);
  double x = 0;
  double y = 0;
  file.CalcXY(-5, 7, x, y);
  EXPECT_EQ(x, (7 + 0.5) * 0.3);
  EXPECT_EQ(y, (-5 + 0.5) * 0.3);
}

TEST(DtmFile, CentreOfACellLiesInThatCell) {
  for (const double cellSize : {0.001, 0.1, 1.0, 2.5, 1e6}) {
    DtmFile file(new MemoryStream, true);
    file.SetCellSize(cellSize);
    for (const int row : {-1000001, -64, -1, 0, 1, 63, 64, 999999}) {
      double x = 0;
      double y = 0;
      int gotRow = 0;
      int gotCol = 0;
      file.CalcXY(row, -row, x, y);
      file.CalcRowCol(x, y, gotRow, gotCol);
      EXPECT_EQ(gotRow, row) << cellSize;
      EXPECT_EQ(gotCol, -row) << cellSize;
    }
  }
}

TEST(DtmFile, CalcCellPosIsTheOffsetFromTheCentre) {
  DtmFile file(new MemoryStream, true);
  file.SetCellSize(0.7);
  const double x = -3.21;
  const double y = 12.34;
  float dx = 0;
  float dy = 0;
  file.CalcCellPos(x, y, dx, dy);
  EXPECT_EQ(dx, static_cast<float>(x - (std::floor(x / 0.7) + 0.5) * 0.7));
  EXPECT_EQ(dy, static_cast<float>(y - (std::floor(y / 0.7) + 0.5) * 0.7));
  EXPECT_NEAR(dx, -3.21 + 3.15, 1e-6);
}

// ---- Areas

TEST(DtmFile, NewAreasAreWrittenAtOnceAndCountedInOrderOfAddition) {
  TestGrid grid;
  const std::size_t before = grid.Bytes().size();
  EXPECT_EQ(grid.File().GetArea(5, -3, false), nullptr);
  DtmArea* const first = grid.File().GetArea(5, -3, true);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->BottomLeftRow(), 4);
  EXPECT_EQ(first->BottomLeftCol(), -4);
  EXPECT_EQ(grid.Bytes().size(), before + 8 + 32 + 8 + 16 * 8 + 8 + 16 * 4);
  DtmArea* const second = grid.File().GetArea(-1, 0, true);
  EXPECT_EQ(grid.File().NumAreas(), 2);
  EXPECT_EQ(grid.File().GetArea(0), first);
  EXPECT_EQ(grid.File().GetArea(1), second);
  EXPECT_EQ(grid.File().GetArea(7, -1, true), first) << "the same area for another of its cells";
  EXPECT_EQ(grid.File().GetArea(4, -4, false), first);
  EXPECT_EQ(grid.File().GetArea(8, -4, false), nullptr);
  EXPECT_EQ(grid.File().NumAreas(), 2);
}

TEST(DtmFile, NewAreaIsEmptyAndYetOccupiesAFullSizeChunk) {
  TestGrid grid;
  DtmArea* const area = grid.File().GetArea(0, 0, true);
  ASSERT_NE(area, nullptr);
  EXPECT_TRUE(area->IsEmpty());
  EXPECT_TRUE(area->IsWritten());
  EXPECT_EQ(area->BlockSize(), 32 + 8 + 16 * 8 + 8 + 16 * 4);
  EXPECT_EQ(area->BlockPosition() + area->BlockSize(), static_cast<long long>(grid.Bytes().size()));
}

TEST(DtmFile, AreaThatCantBeWrittenIsntAdded) {
  TestGrid grid;
  ASSERT_NE(grid.File().GetArea(0, 0, true), nullptr);
  grid.Memory().failFrom = grid.Memory().changes + 2;
  EXPECT_EQ(grid.File().GetArea(9, 9, true), nullptr);
  EXPECT_EQ(grid.File().NumAreas(), 1);
  EXPECT_EQ(grid.File().GetArea(9, 9, false), nullptr);
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  ASSERT_TRUE(grid.File().GetAreaExtents(x0, y0, x1, y1));
  EXPECT_EQ(x1, 4.0);
  grid.Memory().failFrom = MemoryFile::kNever;
  const long long end = grid.File().GetArea(0)->BlockPosition() + grid.File().GetArea(0)->BlockSize();
  DtmArea* const again = grid.File().GetArea(9, 9, true);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->BlockPosition(), end + 8) << "over what the failed one left";
}

TEST(DtmFile, AllowedRowsAndColumnsLeaveRoomForTheAreaAndItsNeighbours) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {iNUM}});
  constexpr int kLargest = kHighest - 8;
  struct Case {
    int value;
    bool allowed;
  };
  const Case cases[] = {
      {kLargest, true}, {-kLargest, true}, {kLargest + 1, false}, {-kLargest - 1, false}, {kHighest, false},
      {kLowest, false}, {0, true}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.value);
    EXPECT_EQ(grid.File().IsAllowed(one.value), one.allowed);
    EXPECT_EQ(grid.File().GetArea(one.value, 0, true) != nullptr, one.allowed);
    EXPECT_EQ(grid.File().GetArea(0, one.value, true) != nullptr, one.allowed);
    EXPECT_EQ(grid.Access().SetDoubleValue(one.value, 1, iNUM, 3, false), one.allowed);
    EXPECT_EQ(grid.Access().SetDoubleValue(1, one.value, iNUM, 3, false), one.allowed);
  }
}

TEST(DtmFile, CellsAtTheEndsOfTheAllowedRangeAreReadBack) {
  constexpr int kLargest = kHighest - 8;
  TestGrid grid;
  for (const int row : {kLargest, -kLargest}) {
    for (const int col : {kLargest, -kLargest}) ASSERT_TRUE(grid.Set(row, col, dVAL, row / 2.0 + col));
  }
  for (const bool walk : {false, true}) {
    walk ? grid.ReopenByWalk() : grid.Reopen();
    for (const int row : {kLargest, -kLargest}) {
      for (const int col : {kLargest, -kLargest}) EXPECT_EQ(grid.Get(row, col), row / 2.0 + col) << walk;
    }
  }
}

TEST(DtmFile, AreaExtentsCoverWholeAreasEmptyOnesToo) {
  TestGrid grid({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL}});
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  EXPECT_FALSE(grid.File().GetAreaExtents(x0, y0, x1, y1));
  grid.File().GetArea(9, -5, true);
  ASSERT_TRUE(grid.File().GetAreaExtents(x0, y0, x1, y1));
  EXPECT_EQ(x0, -4.0);
  EXPECT_EQ(y0, 4.0);
  EXPECT_EQ(x1, -2.0);
  EXPECT_EQ(y1, 6.0);
  grid.File().GetArea(-1, 2, true);
  ASSERT_TRUE(grid.File().GetAreaExtents(x0, y0, x1, y1));
  EXPECT_EQ(x0, -4.0);
  EXPECT_EQ(y0, -2.0);
  EXPECT_EQ(x1, 2.0);
  EXPECT_EQ(y1, 6.0);
}

TEST(DtmFile, ExtentsStartAnewWithEachOpening) {
  auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  ASSERT_TRUE(file.Open());
  ASSERT_TRUE(DtmAccess(&file).SetDoubleValue(0, 0, dVAL, 1, true));
  file.Close();
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  EXPECT_FALSE(file.GetAreaExtents(x0, y0, x1, y1));
  ASSERT_TRUE(file.Open());
  ASSERT_TRUE(file.GetAreaExtents(x0, y0, x1, y1));
  EXPECT_EQ(x1, 64.0);
  file.Close();
}

TEST(DtmFile, GetAreaMapGivesAnEmptyCallerTheWholeMap) {
  TestGrid grid;
  DtmArea* const one = grid.File().GetArea(0, 0, true);
  DtmArea* const two = grid.File().GetArea(-9, 5, true);
  std::map<DtmAreaPos, DtmArea*> map;
  grid.File().GetAreaMap(map);
  const std::map<DtmAreaPos, DtmArea*> expected = {{DtmAreaPos(4, 0, 0), one}, {DtmAreaPos(4, -9, 5), two}};
  EXPECT_TRUE(map == expected);
}

TEST(DtmFile, GetAreaMapAddsWhatIsNewAndLeavesTheRest) {
  TestGrid grid;
  DtmArea* const one = grid.File().GetArea(0, 0, true);
  std::map<DtmAreaPos, DtmArea*> map;
  grid.File().GetAreaMap(map);
  map.begin()->second = nullptr;  // to be seen: an entry that is there isn't written again
  DtmArea* const two = grid.File().GetArea(-9, 5, true);
  DtmArea* const three = grid.File().GetArea(30, 5, true);
  grid.File().GetAreaMap(map);
  ASSERT_EQ(map.size(), 3u);
  EXPECT_EQ(map.at(DtmAreaPos(one)), nullptr);
  EXPECT_EQ(map.at(DtmAreaPos(two)), two);
  EXPECT_EQ(map.at(DtmAreaPos(three)), three);
}

TEST(DtmFile, GetAreaMapLeavesACallersMapOfTheSameSizeAlone) {
  TestGrid grid;
  grid.File().GetArea(0, 0, true);
  std::map<DtmAreaPos, DtmArea*> map = {{DtmAreaPos(4, 400, 400), nullptr}};
  grid.File().GetAreaMap(map);
  ASSERT_EQ(map.size(), 1u);
  EXPECT_EQ(map.begin()->first, DtmAreaPos(4, 400, 400));
}

TEST(DtmFile, AreasAreNeverTakenOutOfTheListBeforeTheLastClose) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  grid.Set(0, 4, dVAL, 2);
  DtmArea* const first = grid.Area(0, 0);
  ASSERT_TRUE(grid.Clear(0, 0));
  grid.Leave();
  ASSERT_TRUE(grid.File().SyncWrite());
  EXPECT_EQ(grid.File().NumAreas(), 2);
  EXPECT_EQ(grid.File().GetArea(0), first);
  EXPECT_EQ(grid.Area(0, 0), first);
  EXPECT_FALSE(first->IsWritten());
}

TEST(DtmFile, IdListedTwiceOrWithAnUnknownLetterOpensAndAnswersFalseForWhatCantBeRead) {
  const int unknown = MakeBlockId("xABC");
  TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, unknown, iNUM, dVAL}});
  ASSERT_TRUE(grid.Sound(0.5, 0.5, -3));
  grid.Reopen();
  EXPECT_EQ(grid.Get(0, 0, dVAL), -3);
  EXPECT_EQ(grid.Get(0, 0, iNUM), 1);
  double value = 0;
  EXPECT_FALSE(grid.Access().GetDoubleValue(0, 0, unknown, value));
  EXPECT_TRUE(IsEmptyValue(value));
  EXPECT_FALSE(grid.Access().SetDoubleValue(0, 0, unknown, 1, false));
  EXPECT_FALSE(grid.Access().ClearCellData(0, 0, unknown));
  grid.ReopenByWalk();
  EXPECT_EQ(grid.Get(0, 0, dVAL), -3);
}

}  // namespace
}  // namespace vak::test
