#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/analysis/DtmMinMaxZ.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "support/GridStreamLog.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

using test::LoggedStream;
using test::StreamCall;
using test::StreamLog;
using test::TestFolder;
using test::TestGrid;

bool HasRange(const DtmArea* area) {
  float low = 0;
  float high = 0;
  return area->GetMinMaxZ(low, high);
}

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

/// Three areas of one file, none of which has a range, on a stream that tells of each read.
class AreasOnAStream {
 public:
  AreasOnAStream() {
    TestGrid grid;
    for (const auto& [row, z] : {std::pair{0, -5.0}, {100, -60.0}, {200, -700.0}}) grid.Set(row, 0, dVAL, z);
    grid.ReopenByWalk();
    grid.Close();
    auto memory = grid.Shared();
    memory->bytes.back() ^= 0xFF;  // no index
    file_ = std::make_unique<DtmFile>(std::make_unique<LoggedStream>(memory, log).release(), false);
    EXPECT_TRUE(file_->Open());
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(HasRange(file_->GetArea(i)));
  }
  ~AreasOnAStream() { file_->Close(); }
  AreasOnAStream(const AreasOnAStream&) = delete;
  AreasOnAStream& operator=(const AreasOnAStream&) = delete;

  DtmFile& File() { return *file_; }
  /// How many areas have a range.
  int Known() const {
    int known = 0;
    for (int i = 0; i < file_->NumAreas(); ++i) known += HasRange(file_->GetArea(i)) ? 1 : 0;
    return known;
  }

  const std::shared_ptr<StreamLog> log = std::make_shared<StreamLog>();

 private:
  std::unique_ptr<DtmFile> file_;
};

TEST(DtmMinMaxZ, ARunThatIsStoppedOnItsWayWritesWhatItHasSeen) {
  const TestFolder folder;
  AreasOnAStream areas;
  DtmMinMaxZ job(&areas.File(), folder.WideFile("table"));
  areas.log->before = [&](const StreamCall&) {
    if (areas.Known() == 1) job.Stop();  // in the middle of the second, which is still brought to its end
  };
  EXPECT_TRUE(job.Process());
  areas.log->before = nullptr;
  EXPECT_EQ(areas.Known(), 2);
  EXPECT_EQ(job.GetProgress(), 2.0 / 3.0);
  const TableFile file(folder.WideFile("table"));
  EXPECT_EQ(file.table.Classes().front().lower, -60.0);
  EXPECT_EQ(file.table.End(), -5.0);
}

TEST(DtmMinMaxZ, ProgressIsTheShareOfTheAreasThatAreDone) {
  const TestFolder folder;
  AreasOnAStream areas;
  DtmMinMaxZ job(&areas.File(), folder.WideFile("table"));
  std::vector<double> seen;
  areas.log->before = [&](const StreamCall&) {
    if (seen.empty() || seen.back() != job.GetProgress()) seen.push_back(job.GetProgress());
  };
  ASSERT_TRUE(job.Process());
  areas.log->before = nullptr;
  EXPECT_THAT(seen, testing::ElementsAre(0.0, 1.0 / 3.0, 2.0 / 3.0));
  EXPECT_EQ(job.GetProgress(), 1.0);
  job.Stop();
  EXPECT_TRUE(job.Process());
  EXPECT_EQ(job.GetProgress(), 0.0) << "a run begins with none";
}

TEST(DtmMinMaxZ, AnAreaThatCannotBeReadFailsAndIsNotTakenForAnEmptyOne) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, -5.0);
  grid.Set(100, 0, dVAL, -60.0);
  grid.ReopenByWalk();
  const TestFolder folder;
  {
    grid.Memory().failReadsFrom = grid.Memory().counts.reads;
    DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
    EXPECT_FALSE(job.Process());
    EXPECT_EQ(job.GetProgress(), 0.0);
    grid.Memory().failReadsFrom = std::numeric_limits<std::uint64_t>::max();
  }
  EXPECT_FALSE(folder.Has("table"));
  EXPECT_FALSE(HasRange(grid.Area(0, 0)));
  grid.Set(200, 0, dVAL, -7.0);  // so that there is something to write
  grid.Reopen();
  EXPECT_FALSE(HasRange(grid.Area(0, 0))) << "nor does the file say so";
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  ASSERT_TRUE(job.Process());
  const TableFile file(folder.WideFile("table"));
  EXPECT_EQ(file.table.Classes().front().lower, -60.0);
  EXPECT_EQ(file.table.End(), -5.0);
}

TEST(DtmMinMaxZ, HeightsBeyondAFloatLeaveTheTableThatWasThere) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, -5.0);
  grid.Set(100, 0, dVAL, 1e300);
  const TestFolder folder;
  folder.Write("table", "a table of before");
  DtmMinMaxZ job(&grid.File(), folder.WideFile("table"));
  EXPECT_FALSE(job.Process());
  EXPECT_EQ(folder.Text("table"), "a table of before");
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
