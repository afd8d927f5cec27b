#include <atomic>
#include <gtest/gtest.h>
#include <string>

#include "vakdtm/analysis/DtmMinMaxZ.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestFolder;
using test::TestGrid;

/// The table that a file has.
struct TableFile {
  explicit TableFile(const std::wstring& path) {
    SmartFileImpl file;
    EXPECT_TRUE(file.FileOpen(kColorTableFile, path));
    EXPECT_TRUE(table.FileOpen(file.GetFileObject())) << testing::PrintToString(table.LastError());
  }
  ColorTable table;
};

TEST(DtmMinMaxZ, MakesATableForTheHeightsOfAllAreas) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL}});
  for (const auto& [row, z] : {std::pair{0, -5.5}, {100, -20.25}, {-100, 3.5}, {50, -7.0}}) grid.Set(row, 0, dVAL, z);
  const TestFolder folder;
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  EXPECT_EQ(job.GetProgress(), 0.0);
  ASSERT_TRUE(job.Process());
  EXPECT_EQ(job.GetProgress(), 1.0);
  const TableFile file(folder.WideFile("table"));
  ASSERT_EQ(file.table.Classes().size(), 256U);
  EXPECT_EQ(file.table.Classes().front().lower, -20.25);
  EXPECT_EQ(file.table.End(), 3.5);
  ColorTable expected;
  ASSERT_TRUE(expected.SetRange(-20.25, 3.5, 256, true, false));
  EXPECT_EQ(file.table, expected);
}

TEST(DtmMinMaxZ, AnAreaWithoutAKnownRangeIsRead) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, dMIN, dMAX, iNUM}});
  grid.Set(0, 0, dVAL, -5.0);
  grid.Set(0, 1, dMIN, -8.0);
  grid.Set(0, 2, dMAX, -2.0);
  grid.Set(0, 3, iNUM, 1000);
  grid.ReopenByWalk();
  float low = 0;
  float high = 0;
  ASSERT_FALSE(grid.Area(0, 0)->GetMinMaxZ(low, high)) << "found by a walk, which reads no cells";
  const TestFolder folder;
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  ASSERT_TRUE(job.Process());
  const TableFile file(folder.WideFile("table"));
  EXPECT_EQ(file.table.Classes().front().lower, -8.0);
  EXPECT_EQ(file.table.End(), -2.0);
  EXPECT_TRUE(grid.Area(0, 0)->GetMinMaxZ(low, high)) << "and is known from now on";
}

TEST(DtmMinMaxZ, AModelWithoutHeightsHasNoTable) {
  const TestFolder folder;
  TestGrid none;
  DtmMinMaxZ withoutAreas(&none.File(), folder.WideFile("table"));
  EXPECT_TRUE(withoutAreas.Process());
  TestGrid emptied;
  emptied.Set(0, 0, dVAL, -5.0);
  emptied.Area(0, 0)->MakeEmpty();
  DtmMinMaxZ withoutHeights(&emptied.File(), folder.WideFile("table"));
  EXPECT_TRUE(withoutHeights.Process());
  EXPECT_EQ(withoutHeights.GetProgress(), 1.0) << "the empty area is passed over";
  EXPECT_FALSE(folder.Has("table"));
}

TEST(DtmMinMaxZ, AnEmptyAreaDoesNotHideTheOthers) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, -5.0);
  grid.Set(100, 0, dVAL, -6.0);
  grid.Area(0, 0)->MakeEmpty();
  const TestFolder folder;
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  ASSERT_TRUE(job.Process());
  const TableFile file(folder.WideFile("table"));
  EXPECT_EQ(file.table.Classes().front().lower, -6.0);
}

TEST(DtmMinMaxZ, ARangeTheWrongWayRoundIsNone) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, -5.0);
  grid.Set(100, 0, dVAL, -6.0);
  grid.Area(0, 0)->SetMinMaxZ(-50.0F, -60.0F);  // as the index of a damaged file may have it
  const TestFolder folder;
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  ASSERT_TRUE(job.Process());
  const TableFile file(folder.WideFile("table"));
  EXPECT_EQ(file.table.Classes().front().lower, -6.0);
}

TEST(DtmMinMaxZ, AStoppedRunWritesWhatItHasSeenWhichMayBeNothing) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, -5.0);
  const TestFolder folder;
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  job.Stop();
  EXPECT_TRUE(job.Process());
  EXPECT_EQ(job.GetProgress(), 0.0);
  EXPECT_FALSE(folder.Has("table"));
}

TEST(DtmMinMaxZ, ATableThatCannotBeWrittenFails) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, -5.0);
  const TestFolder folder;
  DtmMinMaxZ job(&grid.File(), folder.WideFile("none/table"));
  EXPECT_FALSE(job.Process());
}

TEST(DtmMinMaxZ, HoldsTheModelOpenForAsLongAsItLives) {
  TestGrid grid;
  const int count = grid.File().OpenCount();
  {
    const DtmMinMaxZ job(&grid.File(), L"unused");
    EXPECT_EQ(grid.File().OpenCount(), count + 1);
  }
  EXPECT_EQ(grid.File().OpenCount(), count);
  DtmMinMaxZ without(nullptr, L"unused");
  EXPECT_FALSE(without.Process());
}

}  // namespace
}  // namespace vak
