#include <bit>
#include <cmath>
#include <cstdint>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmCell.h"
#include "vakdtm/store/DtmFile.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

// Whether somebody holds the block.
bool IsResident(DtmArea& area, int id) {
  DtmDataBlock* const block = area.OpenDataBlock(id);
  block->Close();
  return block->CellData() != nullptr;
}

template <typename T>
T Raw(TestGrid& grid, int row, int col, int id) {
  DtmArea* const area = grid.Area(row, col);
  DtmDataBlock* const block = area->OpenDataBlock(id);
  const T value = *DtmCell<T>(block, area->CalcCell(row, col));
  block->Close();
  return value;
}

template <typename T>
void PutRaw(TestGrid& grid, int row, int col, int id, T value) {
  DtmArea* const area = grid.File().GetArea(row, col, true);
  DtmDataBlock* const block = area->OpenDataBlock(id);
  *DtmCell<T>(block, area->CalcCell(row, col)) = value;
  block->SetModified();
  block->Close();
}

// What updaters were told, and how many of them there are.
struct Told {
  std::vector<std::string> calls;
  int alive = 0;
  std::function<void()> during;
};

class ListUpdater final : public DtmUpdater {
 public:
  explicit ListUpdater(Told& told) : told_(told) { ++told_.alive; }
  ListUpdater(const ListUpdater& other) : DtmUpdater(other), told_(other.told_) { ++told_.alive; }
  ~ListUpdater() override { --told_.alive; }
  DtmUpdater* Clone() const override { return new ListUpdater(*this); }
  void UpdateCell(int row, int col, bool flag) override {
    told_.calls.push_back(std::to_string(row) + " " + std::to_string(col) + (flag ? " changed" : " added"));
    if (told_.during) told_.during();
  }
  void UpdateArea(int row, int col, bool flag) override {
    told_.calls.push_back("area " + std::to_string(row) + " " + std::to_string(col) + (flag ? " changed" : " added"));
  }

 private:
  Told& told_;
};

// ---- Files and open counts

TEST(DtmAccess, HoldsOneOpenCountOnTheFile) {
  TestGrid grid;
  const int before = grid.File().OpenCount();
  {
    const DtmAccess access(&grid.File());
    EXPECT_EQ(access.GetDtmFile(), &grid.File());
    EXPECT_EQ(grid.File().OpenCount(), before + 1);
    const DtmAccess copy(access);
    EXPECT_EQ(grid.File().OpenCount(), before + 2);
  }
  EXPECT_EQ(grid.File().OpenCount(), before);
}

TEST(DtmAccess, FindsTheBytesOfACellWhateverItsWidth) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {cOIL, dVAL, fBKS}});
  for (const auto& [col, scale] : {std::pair{-1, 1.0}, {2, 3.0}}) {
    grid.Set(1, col, cOIL, 7 * scale);
    grid.Set(1, col, dVAL, -1.5 * scale);
    grid.Set(1, col, fBKS, 0.25 * scale);
  }
  for (const auto& [col, scale] : {std::pair{-1, 1.0}, {2, 3.0}}) {
    SCOPED_TRACE(col);
    DtmAccess& access = grid.Access();
    ASSERT_NE(access.FindCell(1, col, dVAL), nullptr);
    EXPECT_EQ(LoadCell(reinterpret_cast<const std::uint8_t*>(access.FindCell(1, col, cOIL))), 7 * scale);
    EXPECT_EQ(LoadCell(reinterpret_cast<const double*>(access.FindCell(1, col, dVAL))), -1.5 * scale);
    EXPECT_EQ(LoadCell(reinterpret_cast<const float*>(access.FindCell(1, col, fBKS))), 0.25 * scale);
  }
  EXPECT_EQ(grid.Access().FindCell(1, 2, iNUM), nullptr) << "the model doesn't have it";
  EXPECT_EQ(grid.Access().FindCell(900, 2, dVAL), nullptr) << "no area";
}

TEST(DtmAccess, WithoutAFileEveryOperationAnswersFalse) {
  DtmAccess access(nullptr);
  double value = 5;
  EXPECT_EQ(access.GetDtmFile(), nullptr);
  EXPECT_EQ(access.GetUpdater(), nullptr);
  EXPECT_EQ(access.GetArea(0, 0, true), nullptr);
  EXPECT_FALSE(access.HasBlock(dVAL));
  EXPECT_FALSE(access.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_TRUE(IsEmptyValue(value));
  EXPECT_EQ(access.FindCell(0, 0, dVAL), nullptr);
  EXPECT_FALSE(access.SetDoubleValue(0, 0, dVAL, 1, true));
  EXPECT_FALSE(access.InsertValue(0, 0, 0, 0, nullptr, nullptr, 0));
  EXPECT_FALSE(access.SetValue(0, 0, 0, 0, nullptr, nullptr, 0));
  EXPECT_FALSE(access.GetInterpolatedValue(0, 0, dVAL, value, true));
  EXPECT_FALSE(access.GetInterpolatedExtrapolatedValue(0, 0, dVAL, value));
  EXPECT_FALSE(access.GetGradientValue(0, 0, dVAL, value));
  EXPECT_FALSE(access.MakeCellEmpty(0, 0));
  EXPECT_FALSE(access.MakeCellEmpty(0.5, 0.5));
  EXPECT_FALSE(access.ClearCellData(0, 0, dVAL));
}

TEST(DtmAccess, OpensAFileThatIsntOpenAndClosesItForGood) {
  const auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  {
    DtmAccess access(&file);
    EXPECT_EQ(file.OpenCount(), 1);
    ASSERT_TRUE(access.SetDoubleValue(0, 0, dVAL, 3, true));
  }
  EXPECT_EQ(file.OpenCount(), 0);
  TestGrid grid(memory->bytes);
  EXPECT_EQ(grid.Get(0, 0), 3);
}

TEST(DtmAccess, SetDtmFileGoesOverToAnotherAndGivesUpTheOld) {
  TestGrid one;
  TestGrid two;
  one.Sound(0.5, 0.5, -1);
  two.Sound(0.5, 0.5, -2);
  Told told;
  DtmAccess access(&one.File());
  access.SetUpdater(new ListUpdater(told));
  double value = 0;
  ASSERT_TRUE(access.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -1);
  access.SetDtmFile(&one.File());
  EXPECT_EQ(told.alive, 1) << "the present file: no effect";
  access.SetDtmFile(&two.File());
  EXPECT_EQ(told.alive, 0);
  EXPECT_EQ(access.GetUpdater(), nullptr);
  EXPECT_EQ(one.File().OpenCount(), 2);
  EXPECT_EQ(two.File().OpenCount(), 3);
  ASSERT_TRUE(access.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -2);
  access.SetDtmFile(nullptr);
  EXPECT_EQ(two.File().OpenCount(), 2);
  EXPECT_FALSE(access.GetDoubleValue(0, 0, dVAL, value));
}

TEST(DtmAccess, SetDtmFileTakesSizesAndBlocksOfTheNewFile) {
  TestGrid one;
  TestGrid two({.cellSize = 0.25, .areaSize = 3, .blockIds = {fBKS, dVAL}});
  DtmAccess access(&one.File());
  ASSERT_TRUE(access.InsertValue(0.5, 0.5, 1, 0, nullptr, nullptr, 0));
  access.SetDtmFile(&two.File());
  ASSERT_TRUE(access.InsertValue(1.0, -0.1, 7, 0, nullptr, nullptr, 0));
  EXPECT_EQ(two.Get(-1, 4), 7);
  ASSERT_TRUE(access.SetDoubleValue(-1, 4, fBKS, 2, false));
  EXPECT_FALSE(access.SetDoubleValue(-1, 4, iNUM, 2, false));
}

// ---- Updaters

TEST(DtmAccess, OwnsItsUpdater) {
  Told told;
  TestGrid grid;
  {
    DtmAccess access(&grid.File());
    auto* const first = new ListUpdater(told);
    access.SetUpdater(first);
    EXPECT_EQ(access.GetUpdater(), first);
    access.SetUpdater(new ListUpdater(told));
    EXPECT_EQ(told.alive, 1) << "the old one is deleted";
    access.SetUpdater(nullptr);
    EXPECT_EQ(told.alive, 0);
    access.SetUpdater(new ListUpdater(told));
  }
  EXPECT_EQ(told.alive, 0);
}

TEST(DtmAccess, UpdaterIsToldOfEveryChangeWithItsKind) {
  Told told;
  TestGrid grid;
  grid.Access().SetUpdater(new ListUpdater(told));
  ASSERT_TRUE(grid.Sound(5.5, -0.5, 1));
  ASSERT_TRUE(grid.Access().SetValue(1.5, 2.5, 1, 0, nullptr, nullptr, 0));
  ASSERT_TRUE(grid.Set(3, 4, dVAL, 1));
  ASSERT_TRUE(grid.Access().ClearCellData(3, 4, dVAL));
  ASSERT_TRUE(grid.Clear(2, 1));
  ASSERT_TRUE(grid.Access().MakeCellEmpty(5.5, -0.5));
  EXPECT_EQ(told.calls, (std::vector<std::string>{"-1 5 added", "2 1 added", "3 4 added", "3 4 changed", "2 1 changed",
                                                  "-1 5 changed"}));
}

TEST(DtmAccess, UpdaterIsNotToldOfWhatAnsweredFalseOrChangedNothing) {
  Told told;
  TestGrid grid;
  grid.Access().SetUpdater(new ListUpdater(told));
  EXPECT_FALSE(grid.Sound(0.5, 0.5, std::nan("")));
  EXPECT_FALSE(grid.Set(0, 0, uFCT, 1));
  EXPECT_TRUE(grid.Clear(0, 0)) << "no area there";
  EXPECT_FALSE(grid.Access().SetDoubleValue(0, 0, dMIN, 1, false));
  EXPECT_TRUE(told.calls.empty());
}

TEST(DtmAccess, AreaLockIsntHeldWhileTheUpdaterIsTold) {
  Told told;
  TestGrid grid;
  grid.File().GetArea(0, 0, true);
  int free = 0;
  told.during = [&] {
    // Of another thread: the lock is re-entrant for this one.
    std::async(std::launch::async, [&] {
      RecursiveMutex& mutex = grid.Area(0, 0)->Mutex();
      if (mutex.try_lock()) {
        ++free;
        mutex.unlock();
      }
    }).wait();
  };
  grid.Access().SetUpdater(new ListUpdater(told));
  ASSERT_TRUE(grid.Sound(0.5, 0.5, 1));
  ASSERT_TRUE(grid.Access().SetValue(0.5, 0.5, 1, 0, nullptr, nullptr, 0));
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1));
  ASSERT_TRUE(grid.Access().ClearCellData(0, 0, iNUM));
  ASSERT_TRUE(grid.Clear(0, 0));
  EXPECT_EQ(free, 5);
}

// ---- The current area

TEST(DtmAccess, GetAreaCreatesOnlyWhenAsked) {
  TestGrid grid;
  EXPECT_EQ(grid.Access().GetArea(5, 5, false), nullptr);
  EXPECT_EQ(grid.File().NumAreas(), 0);
  DtmArea* const area = grid.Access().GetArea(5, 5, true);
  ASSERT_NE(area, nullptr);
  EXPECT_EQ(area, grid.Area(5, 5));
  EXPECT_EQ(grid.Access().GetArea(4, 7, false), area);
}

TEST(DtmAccess, ReadingCreatesNothing) {
  TestGrid grid;
  double value = 0;
  EXPECT_FALSE(grid.Access().GetDoubleValue(0, 0, dVAL, value));
  EXPECT_FALSE(grid.Access().GetInterpolatedValue(0.7, 0.7, dVAL, value, true));
  EXPECT_FALSE(grid.Access().GetGradientValue(0, 0, dVAL, value));
  EXPECT_TRUE(grid.Access().ClearCellData(0, 0, dVAL));
  EXPECT_EQ(grid.File().NumAreas(), 0);
}

TEST(DtmAccess, MakeCellEmptyOnACellWithNoAreaAnswersTrueAndCreatesNothing) {
  TestGrid grid;
  const std::size_t size = grid.Bytes().size();
  EXPECT_TRUE(grid.Access().MakeCellEmpty(5, 5));
  EXPECT_TRUE(grid.Access().MakeCellEmpty(5.5, 5.5));
  EXPECT_EQ(grid.File().NumAreas(), 0);
  EXPECT_EQ(grid.Bytes().size(), size);
}

TEST(DtmAccess, ReaderSeesAnAreaAsSoonAsTheFileHasOneMore) {
  TestGrid grid;
  DtmAccess reader(&grid.File());
  double value = 0;
  EXPECT_FALSE(reader.GetDoubleValue(1, 1, dVAL, value));
  EXPECT_FALSE(reader.GetDoubleValue(1, 1, dVAL, value)) << "the position hasn't changed";
  ASSERT_TRUE(grid.Set(1, 1, dVAL, 4));
  ASSERT_TRUE(reader.GetDoubleValue(1, 1, dVAL, value)) << "without any other call";
  EXPECT_EQ(value, 4);
}

TEST(DtmAccess, FailureInCreatingAnAreaIsTriedAgain) {
  TestGrid grid;
  grid.Memory().failFrom = grid.Memory().changes;
  EXPECT_FALSE(grid.Set(1, 1, dVAL, 4));
  EXPECT_FALSE(grid.Sound(1.5, 1.5, 4));
  grid.Memory().failFrom = MemoryFile::kNever;
  EXPECT_TRUE(grid.Set(1, 1, dVAL, 4));
  EXPECT_EQ(grid.Get(1, 1), 4);
}

TEST(DtmAccess, HasBlockTellsWhatTheCurrentAreaOffers) {
  TestGrid grid;
  EXPECT_FALSE(grid.Access().HasBlock(dVAL)) << "no current area";
  grid.Set(0, 0, dVAL, 1);
  EXPECT_TRUE(grid.Access().HasBlock(dVAL));
  EXPECT_TRUE(grid.Access().HasBlock(iNUM));
  EXPECT_FALSE(grid.Access().HasBlock(dMIN));
}

TEST(DtmAccess, SoundingsInOneAreaTouchNoFile) {
  TestGrid grid;
  ASSERT_TRUE(grid.Sound(0.5, 0.5, 1));
  const StreamCounts before = grid.Memory().counts;
  for (int i = 0; i < 100; ++i) {
    const int row = i / 25;
    ASSERT_TRUE(grid.Sound(i % 4 + 0.5, row + 0.5, i));
  }
  EXPECT_EQ(grid.Memory().counts.reads, before.reads);
  EXPECT_EQ(grid.Memory().counts.writes, before.writes);
  EXPECT_EQ(grid.Memory().counts.seeks, before.seeks);
}

// ---- Cache

// Areas of one cell in a row; column n is an area.
class Row : public TestGrid {
 public:
  explicit Row(int count) : TestGrid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL, iNUM}}) {
    for (int col = 0; col < count; ++col) Sound(col + 0.5, 0.5, col + 1);
    Leave();
  }
  void Visit(int col) { EXPECT_EQ(Get(0, col), col + 1); }
  bool Resident(int col, int id = dVAL) { return IsResident(*Area(0, col), id); }
  std::string Held(int count) {
    std::string held;
    for (int col = 0; col < count; ++col) held += Resident(col) ? 'x' : '.';
    return held;
  }
};

TEST(DtmAccess, NineAreasBesidesTheCurrentOneStayResident) {
  Row grid(12);
  for (int col = 0; col < 10; ++col) grid.Visit(col);
  EXPECT_EQ(grid.Held(12), "xxxxxxxxxx..");
  grid.Visit(10);
  EXPECT_EQ(grid.Held(12), ".xxxxxxxxxx.") << "the least recent goes";
  const std::uint64_t reads = grid.Memory().counts.reads;
  for (int col = 2; col < 11; ++col) grid.Visit(col);
  EXPECT_EQ(grid.Memory().counts.reads, reads) << "going back to a cached area costs no file read";
}

TEST(DtmAccess, AreaVisitedAgainBecomesTheMostRecent) {
  Row grid(20);
  for (int col = 0; col < 11; ++col) grid.Visit(col);  // cache 9 ... 1
  grid.Visit(5);                                       // 10 goes in, 1 out
  grid.Visit(11);                                      // 5 to the front
  EXPECT_EQ(grid.Held(20), "..xxxxxxxxxx........");
  for (int col = 12; col < 20; ++col) grid.Visit(col);  // eight more go in
  EXPECT_EQ(grid.Held(20), ".....x.....xxxxxxxxx") << "5 outlives 10";
}

TEST(DtmAccess, CacheEntriesOfOneAreaAreMerged) {
  Row grid(2);
  double value = 0;
  ASSERT_TRUE(grid.Access().GetDoubleValue(0, 0, dVAL, value));
  grid.Visit(1);
  ASSERT_TRUE(grid.Access().GetDoubleValue(0, 0, iNUM, value));
  EXPECT_TRUE(grid.Resident(0, dVAL));
  grid.Visit(1);
  EXPECT_TRUE(grid.Resident(0, dVAL)) << "opened at the first visit";
  EXPECT_TRUE(grid.Resident(0, iNUM)) << "opened at the second";
  EXPECT_FALSE(grid.Resident(1, iNUM));
}

TEST(DtmAccess, CapacityZeroReleasesOnTheSpot) {
  Row grid(3);
  grid.Access().SetCacheSize(0);
  grid.Visit(0);
  EXPECT_EQ(grid.Held(3), "x..");
  grid.Visit(1);
  EXPECT_EQ(grid.Held(3), ".x.");
}

TEST(DtmAccess, CapacityBelowTheCountReleasesAtOnceAndWritesWhatWasModified) {
  Row grid(4);
  for (int col = 0; col < 4; ++col) ASSERT_TRUE(grid.Set(0, col, dVAL, 10 + col));
  const std::uint64_t writes = grid.Memory().counts.writes;
  grid.Access().SetCacheSize(1);
  EXPECT_EQ(grid.Held(4), "..xx");
  EXPECT_EQ(grid.Memory().counts.writes, writes + 2);
  EXPECT_TRUE(grid.Area(0, 2)->IsModified());
  EXPECT_FALSE(grid.Area(0, 1)->IsModified());
  grid.Access().SetCacheSize(5);
  EXPECT_EQ(grid.Held(4), "..xx");
  EXPECT_EQ(grid.Get(0, 0), 10);
  EXPECT_EQ(grid.Held(4), "x.xx");
}

TEST(DtmAccess, LargerCapacityKeepsMore) {
  Row grid(30);
  grid.Access().SetCacheSize(20);
  for (int col = 0; col < 30; ++col) grid.Visit(col);
  EXPECT_EQ(grid.Held(30), ".........xxxxxxxxxxxxxxxxxxxxx");
}

TEST(DtmAccess, ModifiedBlockGoesToTheFileWhenItsEntryIsReleased) {
  Row grid(12);
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 99));
  const std::uint64_t writes = grid.Memory().counts.writes;
  for (int col = 1; col < 10; ++col) grid.Visit(col);
  EXPECT_EQ(grid.Memory().counts.writes, writes);
  grid.Visit(10);
  EXPECT_EQ(grid.Memory().counts.writes, writes + 1);
}

TEST(DtmAccess, DestructorReleasesAndWritesEverything) {
  Row grid(3);
  {
    DtmAccess access(&grid.File());
    for (int col = 0; col < 3; ++col) ASSERT_TRUE(access.SetDoubleValue(0, col, dVAL, 50 + col, false));
    EXPECT_EQ(grid.Held(3), "xxx");
  }
  EXPECT_EQ(grid.Held(3), "...");
  EXPECT_FALSE(grid.Area(0, 2)->IsModified());
  EXPECT_EQ(grid.Get(0, 2), 52);
}

TEST(DtmAccess, AreaWithAClearedCellIsCheckedWhenItIsLeft) {
  Row grid(2);
  ASSERT_TRUE(grid.Clear(0, 0));
  EXPECT_FALSE(grid.Area(0, 0)->IsEmpty());
  grid.Visit(1);
  EXPECT_TRUE(grid.Area(0, 0)->IsEmpty());
  // The flag was reset: entering and leaving again looks at nothing.
  PutRaw(grid, 0, 0, dVAL, EmptyDouble());
  EXPECT_FALSE(grid.Area(0, 0)->IsEmpty());
  EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0)));
  grid.Visit(1);
  EXPECT_FALSE(grid.Area(0, 0)->IsEmpty());
}

TEST(DtmAccess, ClearCellDataMakesTheAreaBeCheckedToo) {
  Row grid(2);
  ASSERT_TRUE(grid.Access().ClearCellData(0, 0, dVAL));
  ASSERT_TRUE(grid.Access().ClearCellData(0, 0, iNUM));
  grid.Visit(1);
  EXPECT_TRUE(grid.Area(0, 0)->IsEmpty());
}

// ---- Copies

TEST(DtmAccess, CopyStandsAlone) {
  Row grid(3);
  Told told;
  auto original = std::make_unique<DtmAccess>(&grid.File());
  original->SetUpdater(new ListUpdater(told));
  double value = 0;
  ASSERT_TRUE(original->GetDoubleValue(0, 0, dVAL, value));
  ASSERT_TRUE(original->GetDoubleValue(0, 1, dVAL, value));
  DtmAccess copy(*original);
  EXPECT_EQ(copy.GetDtmFile(), &grid.File());
  EXPECT_EQ(told.alive, 2) << "the updater is cloned";
  EXPECT_NE(copy.GetUpdater(), original->GetUpdater());
  original.reset();
  EXPECT_EQ(told.alive, 1);
  EXPECT_EQ(grid.Held(3), "xx.") << "open counts of its own, on current and cached blocks";
  const std::uint64_t reads = grid.Memory().counts.reads;
  EXPECT_TRUE(copy.HasBlock(dVAL)) << "the position was copied";
  ASSERT_TRUE(copy.GetDoubleValue(0, 1, dVAL, value));
  ASSERT_TRUE(copy.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, 1);
  EXPECT_EQ(grid.Memory().counts.reads, reads);
  ASSERT_TRUE(copy.SetDoubleValue(0, 0, dVAL, 8, false));
  EXPECT_EQ(told.calls.size(), 1u);
}

TEST(DtmAccess, CopyTakesTheCapacityOver) {
  Row grid(3);
  DtmAccess original(&grid.File());
  original.SetCacheSize(0);
  DtmAccess copy(original);
  DtmAccess assigned(nullptr);
  assigned = original;
  double value = 0;
  for (DtmAccess* access : {&copy, &assigned}) {
    ASSERT_TRUE(access->GetDoubleValue(0, 0, dVAL, value));
    ASSERT_TRUE(access->GetDoubleValue(0, 1, dVAL, value));
    EXPECT_EQ(grid.Held(3), ".x.");
    access->SetDtmFile(nullptr);
  }
}

TEST(DtmAccess, AssignmentGivesUpWhatItHadAndTakesOverTheOther) {
  Row one(2);
  Row two(2);
  Told toldOne;
  Told toldTwo;
  DtmAccess access(&one.File());
  access.SetUpdater(new ListUpdater(toldOne));
  ASSERT_TRUE(access.SetDoubleValue(0, 0, dVAL, 7, false));
  DtmAccess other(&two.File());
  other.SetUpdater(new ListUpdater(toldTwo));
  double value = 0;
  ASSERT_TRUE(other.GetDoubleValue(0, 1, dVAL, value));
  access = other;
  EXPECT_EQ(toldOne.alive, 0);
  EXPECT_EQ(toldTwo.alive, 2);
  EXPECT_EQ(one.File().OpenCount(), 2);
  EXPECT_EQ(two.File().OpenCount(), 4);
  EXPECT_EQ(one.Held(2), "..") << "and what was modified is written";
  EXPECT_EQ(one.Get(0, 0), 7);
  ASSERT_TRUE(access.GetDoubleValue(0, 1, dVAL, value));
  EXPECT_EQ(value, 2);
}

TEST(DtmAccess, AssignmentToItselfAndFromTheOnlyHolderOfTheFileKeepsItOpen) {
  const auto memory = std::make_shared<MemoryFile>();
  DtmFile file(new MemoryStream(memory), true);
  DtmAccess access(&file);
  ASSERT_TRUE(access.SetDoubleValue(0, 0, dVAL, 3, false));
  const DtmAccess& same = access;
  access = same;
  EXPECT_EQ(file.OpenCount(), 1);
  double value = 0;
  ASSERT_TRUE(access.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, 3);
}

// ---- Single values

TEST(DtmAccess, GetDoubleValueReadsEveryKind) {
  const int plainUnsigned = MakeBlockId("uABC");
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, fBKS, cOIL, iNUM, tTIM, uFCT, plainUnsigned}});
  const auto expect = [&](int id, double expected) {
    double value = 0;
    EXPECT_TRUE(grid.Access().GetDoubleValue(1, 1, id, value));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(expected)) << value;
  };
  grid.File().GetArea(0, 0, true);
  for (const int id : {dVAL, fBKS, cOIL, iNUM, tTIM, uFCT, plainUnsigned}) expect(id, EmptyDouble());

  PutRaw(grid, 1, 1, dVAL, -2.25);
  expect(dVAL, -2.25);
  const double otherNan = std::bit_cast<double>(0x7FF8000000000001ULL);
  PutRaw(grid, 1, 1, dVAL, otherNan);
  expect(dVAL, otherNan);
  PutRaw(grid, 1, 1, fBKS, 0.1F);
  expect(fBKS, static_cast<double>(0.1F));
  PutRaw(grid, 1, 1, fBKS, 0.0F);
  expect(fBKS, 0.0);
  PutRaw<unsigned char>(grid, 1, 1, cOIL, 200);
  expect(cOIL, 200);
  PutRaw(grid, 1, 1, iNUM, -5);
  expect(iNUM, -5);
  PutRaw(grid, 1, 1, tTIM, -6);
  expect(tTIM, -6);
  PutRaw(grid, 1, 1, plainUnsigned, 0x80000001U);
  expect(plainUnsigned, 2147483649.0);
  PutRaw(grid, 1, 1, uFCT, 0x80000F01U);
  expect(uFCT, 6);
  PutRaw(grid, 1, 1, uFCT, ~0U);
  expect(uFCT, 32);
}

TEST(DtmAccess, ANotANumberOfAnotherPatternIsAValue) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, fBKS}});
  PutRaw(grid, 1, 1, fBKS, std::bit_cast<float>(0x7FC00001U));
  double value = 0;
  ASSERT_TRUE(grid.Access().GetDoubleValue(1, 1, fBKS, value));
  EXPECT_TRUE(std::isnan(value));
  EXPECT_FALSE(IsEmptyValue(value));
}

TEST(DtmAccess, GetDoubleValueAnswersFalseWithTheEmptyValueWithoutAreaOrBlock) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  for (const auto& [row, id] : {std::pair(99, dVAL), {0, dMIN}, {0, uFCT}, {0, 0}}) {
    double value = 7;
    EXPECT_FALSE(grid.Access().GetDoubleValue(row, 0, id, value));
    EXPECT_TRUE(IsEmptyValue(value));
  }
  double value = 7;
  EXPECT_TRUE(grid.Access().GetDoubleValue(0, 1, dVAL, value)) << "the block is there, the cell has no value";
  EXPECT_TRUE(IsEmptyValue(value));
}

TEST(DtmAccess, SetDoubleValueStoresEveryKind) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, fBKS, cOIL, iNUM, tTIM, uFCT}});
  const auto set = [&](int id, double value) { return grid.Access().SetDoubleValue(1, 1, id, value, false); };
  ASSERT_TRUE(set(dVAL, 1.0 / 3));
  EXPECT_EQ(Raw<double>(grid, 1, 1, dVAL), 1.0 / 3);
  ASSERT_TRUE(set(dVAL, EmptyDouble()));
  EXPECT_TRUE(IsEmptyValue(Raw<double>(grid, 1, 1, dVAL)));
  ASSERT_TRUE(set(fBKS, 1.0 / 3));
  EXPECT_EQ(Raw<float>(grid, 1, 1, fBKS), static_cast<float>(1.0 / 3));
  ASSERT_TRUE(set(fBKS, EmptyDouble()));
  EXPECT_TRUE(IsEmptyValue(Raw<float>(grid, 1, 1, fBKS)));
  ASSERT_TRUE(set(cOIL, 200.9));
  EXPECT_EQ(Raw<unsigned char>(grid, 1, 1, cOIL), 200);
  ASSERT_TRUE(set(cOIL, 260));
  EXPECT_EQ(Raw<unsigned char>(grid, 1, 1, cOIL), 4) << "truncated to int, the low byte of it";
  ASSERT_TRUE(set(iNUM, -3.9));
  EXPECT_EQ(Raw<int>(grid, 1, 1, iNUM), -3) << "towards zero";
  ASSERT_TRUE(set(tTIM, 1700000000.9));
  EXPECT_EQ(Raw<std::int32_t>(grid, 1, 1, tTIM), 1700000000);
  EXPECT_FALSE(set(uFCT, 3)) << "can't be set this way";
  EXPECT_FALSE(set(MakeBlockId("xABC"), 3));
  EXPECT_FALSE(set(dMIN, 3)) << "not in this model";
}

TEST(DtmAccess, SetDoubleValueMarksTheBlockAndOnlyIt) {
  TestGrid grid;
  grid.File().GetArea(0, 0, true);
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, iNUM, 3, false));
  DtmDataBlock* const num = grid.Area(0, 0)->OpenDataBlock(iNUM);
  DtmDataBlock* const val = grid.Area(0, 0)->OpenDataBlock(dVAL);
  EXPECT_TRUE(num->IsModified());
  EXPECT_FALSE(num->IsEmpty());
  EXPECT_FALSE(val->IsModified());
  EXPECT_TRUE(val->IsEmpty());
  num->Close();
  val->Close();
}

TEST(DtmAccess, SetDoubleValueWidensTheRangeWhenAskedAndWhenItIsValid) {
  TestGrid grid;
  float lo = 0;
  float hi = 0;
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, dVAL, 3.1, true));
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 1, dVAL, 99, false));
  ASSERT_TRUE(grid.Area(0, 0)->GetMinMaxZ(lo, hi));
  EXPECT_EQ(lo, static_cast<float>(3.1));
  EXPECT_EQ(hi, static_cast<float>(3.1));
  grid.ReopenByWalk();
  ASSERT_TRUE(grid.Access().SetDoubleValue(0, 0, dVAL, 4, true));
  EXPECT_FALSE(grid.Area(0, 0)->GetMinMaxZ(lo, hi));
}

// ---- Emptying

TEST(DtmAccess, MakeCellEmptyFillsTheCellOfEveryBlockAndMarksEachModified) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM, fBKS, cOIL, tTIM, uFCT}});
  ASSERT_TRUE(grid.Sound(0.5, 0.5, -1, 5));
  ASSERT_TRUE(grid.Sound(1.5, 0.5, -2, 6));
  grid.Set(0, 0, fBKS, 2);
  grid.Set(0, 0, cOIL, 2);
  grid.Reopen();
  float lo = 0;
  float hi = 0;
  grid.Area(0, 0)->SetMinMaxZ(-2, 2);
  ASSERT_TRUE(grid.Clear(0, 0));
  for (const int id : {dVAL, iNUM, fBKS, cOIL, tTIM, uFCT}) {
    EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0, id)));
    DtmDataBlock* const block = grid.Area(0, 0)->OpenDataBlock(id);
    EXPECT_TRUE(block->IsModified());
    block->Close();
  }
  EXPECT_EQ(std::bit_cast<std::uint32_t>(Raw<float>(grid, 0, 0, fBKS)), ~0U);
  EXPECT_EQ(Raw<unsigned char>(grid, 0, 0, cOIL), 0);
  EXPECT_EQ(Raw<unsigned>(grid, 0, 0, uFCT), 0u);
  EXPECT_EQ(grid.Get(0, 1), -2) << "its neighbours stay";
  EXPECT_EQ(grid.Get(0, 1, tTIM), 6);
  grid.Area(0, 0)->GetMinMaxZ(lo, hi);
  EXPECT_EQ(lo, -2) << "the range isn't narrowed";
}

TEST(DtmAccess, MakeCellEmptyByCoordinatesRoundsDown) {
  TestGrid grid({.cellSize = 0.5, .areaSize = 4, .blockIds = {dVAL}});
  grid.Set(-1, 2, dVAL, 5);
  ASSERT_TRUE(grid.Access().MakeCellEmpty(1.2, -0.1));
  EXPECT_TRUE(IsEmptyValue(grid.Get(-1, 2)));
  EXPECT_FALSE(grid.Access().MakeCellEmpty(std::nan(""), 0.5));
  EXPECT_FALSE(grid.Access().MakeCellEmpty(0.5, std::numeric_limits<double>::infinity()));
}

TEST(DtmAccess, MakeCellEmptyAnswersFalseAndChangesNothingWhenABlockCantBeOpened) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  grid.Reopen();
  ASSERT_EQ(grid.Get(0, 0, dVAL), -1);  // dVAL is open, iNUM isn't
  grid.Memory().failReadsFrom = grid.Memory().counts.reads;
  EXPECT_FALSE(grid.Clear(0, 0));
  EXPECT_EQ(grid.Get(0, 0, dVAL), -1);
  grid.Memory().failReadsFrom = ~std::uint64_t{0};
  EXPECT_TRUE(grid.Clear(0, 0));
}

TEST(DtmAccess, ClearCellDataEmptiesOneBlockOnly) {
  TestGrid grid;
  grid.Sound(0.5, 0.5, -1);
  ASSERT_TRUE(grid.Access().ClearCellData(0, 0, iNUM));
  EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0, iNUM)));
  EXPECT_EQ(grid.Get(0, 0, dVAL), -1);
  EXPECT_FALSE(grid.Access().ClearCellData(0, 0, dMIN)) << "no such block";
  EXPECT_TRUE(grid.Access().ClearCellData(50, 50, dVAL)) << "no area";
}

TEST(DtmAccess, CellsStayWhereTheyAreWhileNothingIsReleased) {
  TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL}});
  for (int col = 0; col < 16; col += 4) grid.Set(0, col, dVAL, col);
  grid.Leave();
  DtmAccess& access = grid.Access();
  access.SetCacheSize(3);
  const std::uint64_t before = access.NumReleases();
  const std::byte* const cell = access.FindCell(0, 0, dVAL);
  access.FindCell(0, 4, dVAL);
  access.FindCell(0, 8, dVAL);
  EXPECT_EQ(access.NumReleases(), before);
  EXPECT_EQ(LoadCell(reinterpret_cast<const double*>(cell)), 0);
  EXPECT_EQ(access.FindCell(0, 0, dVAL), cell);
  access.FindCell(0, 12, dVAL);
  EXPECT_EQ(access.NumReleases(), before);
  access.FindCell(0, 100, dVAL);  // no area, but the one before goes to the cache, and another out of it
  EXPECT_EQ(access.NumReleases(), before + 1);
  access.SetCacheSize(0);
  EXPECT_EQ(access.NumReleases(), before + 4);
}

}  // namespace
}  // namespace vak::test
