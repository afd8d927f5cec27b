// One model writes, another over the same bytes follows.
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmCell.h"
#include "vakdtm/store/DtmFile.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

class AreaList final : public DtmUpdater {
 public:
  DtmUpdater* Clone() const override { return new AreaList(*this); }
  void UpdateCell(int, int, bool) override { calls.emplace_back("cell"); }
  void UpdateArea(int row, int col, bool flag) override {
    calls.push_back(std::to_string(row) + " " + std::to_string(col) + (flag ? " changed" : " added"));
  }
  std::vector<std::string> Take() { return std::exchange(calls, {}); }
  std::vector<std::string> calls;
};

using Calls = std::vector<std::string>;

// A writer with areas of one cell each, and a reader that has seen them.
class Pair {
 public:
  explicit Pair(int count) : time_(1000), writer({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL, iNUM}}) {
    for (int col = 0; col < count; ++col) writer.Sound(col + 0.5, 0.5, col + 1);
    Publish();
    reader = std::make_unique<DtmFile>(new MemoryStream(writer.Shared()), false);
    if (!reader->Open()) throw std::runtime_error("the reader can't open");
    access = std::make_unique<DtmAccess>(reader.get());
  }
  ~Pair() {
    access.reset();
    writer.Close();
    reader->Close();
  }
  void Publish() {
    writer.Leave();
    if (!writer.File().SyncWrite()) throw std::runtime_error("the writer can't write");
    time_.At(++second_);
  }
  bool Follow() { return reader->SyncRead(&list); }
  double Read(int col) {
    double value = 0;
    return access->GetDoubleValue(0, col, dVAL, value) ? value : EmptyDouble();
  }

 private:
  long long second_ = 1000;
  TimeStands time_;

 public:
  TestGrid writer;
  std::unique_ptr<DtmFile> reader;
  std::unique_ptr<DtmAccess> access;
  AreaList list;
};

TEST(DtmFileSync, FileThatIsntOpenAnswersFalse) {
  DtmFile file(new MemoryStream, false);
  EXPECT_FALSE(file.SyncWrite());
  EXPECT_FALSE(file.SyncRead(nullptr));
}

TEST(DtmFileSync, NothingNewTellsNobody) {
  Pair pair(3);
  EXPECT_TRUE(pair.Follow());
  EXPECT_TRUE(pair.list.calls.empty());
  EXPECT_TRUE(pair.reader->SyncRead(nullptr));
}

TEST(DtmFileSync, ResidentBlocksOfAreasWhoseTimeMovedAreRefreshed) {
  Pair pair(3);
  EXPECT_EQ(pair.Read(1), 2);
  ASSERT_TRUE(pair.writer.Set(0, 1, dVAL, 20));
  pair.Publish();
  EXPECT_EQ(pair.Read(1), 2) << "until it is asked to follow";
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.list.Take(), (Calls{"0 1 changed"}));
  EXPECT_EQ(pair.Read(1), 20);
  float lo = 0;
  float hi = 0;
  ASSERT_TRUE(pair.reader->GetArea(0, 1, false)->GetMinMaxZ(lo, hi));
  EXPECT_EQ(hi, 20);
  EXPECT_EQ(pair.reader->GetArea(0, 1, false)->LastWritten(), pair.writer.Area(0, 1)->LastWritten());
  ASSERT_TRUE(pair.Follow());
  EXPECT_TRUE(pair.list.calls.empty());
}

TEST(DtmFileSync, BlocksThatNobodyHoldsCostNothing) {
  Pair pair(2);
  ASSERT_TRUE(pair.writer.Set(0, 1, dVAL, 20));
  pair.Publish();
  const std::uint64_t before = pair.writer.Memory().counts.bytesRead;
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.writer.Memory().counts.bytesRead - before, 2 * (8u + 8 + 2 * 32 + 8))
      << "the index alone, twice, with another look at its tail each time";
  EXPECT_EQ(pair.Read(1), 20);
}

TEST(DtmFileSync, NewAreasAreAddedWithoutTheFlag) {
  Pair pair(1);
  EXPECT_TRUE(IsEmptyValue(pair.Read(7)));
  pair.writer.Sound(7.5, 0.5, -3);
  pair.Publish();
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.list.Take(), (Calls{"0 7 added"}));
  EXPECT_EQ(pair.reader->NumAreas(), 2);
  EXPECT_EQ(pair.Read(7), -3);
  EXPECT_EQ(pair.reader->FileSize(), static_cast<long long>(pair.writer.Bytes().size()));
}

TEST(DtmFileSync, MovedAreaIsFoundAtItsNewPlaceAndTheRemovedOneIsAnEmptyShell) {
  Pair pair(3);
  EXPECT_EQ(pair.Read(0), 1);
  EXPECT_EQ(pair.Read(2), 3);
  ASSERT_TRUE(pair.writer.Clear(0, 0));
  pair.Publish();
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.list.Take(), (Calls{"0 2 changed", "0 0 changed"}));
  EXPECT_TRUE(IsEmptyValue(pair.Read(0))) << "also where the cells were resident";
  EXPECT_EQ(pair.Read(2), 3);
  EXPECT_EQ(pair.reader->NumAreas(), 3);
  const DtmArea* const shell = pair.reader->GetArea(0, 0, false);
  EXPECT_FALSE(shell->IsWritten());
  EXPECT_EQ(shell->BlockPosition(), -1);
  EXPECT_EQ(pair.reader->GetArea(0, 2, false)->BlockPosition(), pair.writer.Area(0, 2)->BlockPosition());
  ASSERT_TRUE(pair.Follow());
  EXPECT_TRUE(pair.list.calls.empty()) << "a shell isn't told of again";
}

TEST(DtmFileSync, ShellThatTheWriterFillsAgainComesBack) {
  Pair pair(2);
  EXPECT_EQ(pair.Read(0), 1);
  ASSERT_TRUE(pair.writer.Clear(0, 0));
  pair.Publish();
  ASSERT_TRUE(pair.Follow());
  pair.list.Take();
  pair.writer.Sound(0.5, 0.5, -9);
  pair.Publish();
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.list.Take(), (Calls{"0 0 changed"}));
  EXPECT_EQ(pair.Read(0), -9);
  EXPECT_TRUE(pair.reader->GetArea(0, 0, false)->IsWritten());
}

TEST(DtmFileSync, WithoutAGoodIndexTheModelStaysAsItWas) {
  Pair pair(2);
  EXPECT_EQ(pair.Read(1), 2);
  ASSERT_TRUE(pair.writer.Set(0, 1, dVAL, 20));
  pair.Publish();
  std::vector<std::uint8_t>& bytes = pair.writer.Memory().bytes;
  bytes[bytes.size() - 8] ^= 0xFF;
  EXPECT_FALSE(pair.Follow());
  EXPECT_TRUE(pair.list.calls.empty());
  EXPECT_EQ(pair.Read(1), 2);
  EXPECT_EQ(pair.reader->NumAreas(), 2);
  bytes[bytes.size() - 8] ^= 0xFF;
  EXPECT_TRUE(pair.Follow());
  EXPECT_EQ(pair.Read(1), 20);
}

TEST(DtmFileSync, FailedReadOfAnAreaAnswersFalseAndIsTriedAgain) {
  Pair pair(2);
  EXPECT_EQ(pair.Read(1), 2);
  ASSERT_TRUE(pair.writer.Set(0, 1, dVAL, 20));
  pair.Publish();
  // Tail, head and entries go well, the cells don't.
  pair.writer.Memory().failReadsFrom = pair.writer.Memory().counts.reads + 3;
  EXPECT_FALSE(pair.Follow());
  pair.writer.Memory().failReadsFrom = ~std::uint64_t{0};
  EXPECT_TRUE(pair.Follow());
  EXPECT_EQ(pair.Read(1), 20);
}

TEST(DtmFileSync, StreamIsSyncedBeforeTheIndexIsRead) {
  Pair pair(1);
  const std::uint64_t syncs = pair.writer.Memory().counts.syncs;
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.writer.Memory().counts.syncs, syncs + 1);
}

TEST(DtmFileSync, TwoWritingsInOneSecondShowWhenTheTimeMoves) {
  Pair pair(1);
  EXPECT_EQ(pair.Read(0), 1);
  ASSERT_TRUE(pair.writer.Set(0, 0, dVAL, 5));
  pair.writer.Leave();
  ASSERT_TRUE(pair.writer.File().SyncWrite());
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.Read(0), 5);
  ASSERT_TRUE(pair.writer.Set(0, 0, dVAL, 6));
  pair.writer.Leave();
  ASSERT_TRUE(pair.writer.File().SyncWrite());
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.Read(0), 5) << "the price of whole seconds";
  pair.Publish();
  ASSERT_TRUE(pair.writer.Set(0, 0, dVAL, 7));
  pair.Publish();
  ASSERT_TRUE(pair.Follow());
  EXPECT_EQ(pair.Read(0), 7);
}

TEST(DtmFileSync, HowTheFileWasOpenedStaysSaid) {
  TestGrid grid;
  grid.Set(0, 0, dVAL, 1);
  grid.ReopenByWalk();
  ASSERT_TRUE(grid.File().SyncWrite());
  ASSERT_TRUE(grid.File().SyncRead(nullptr));
  EXPECT_EQ(grid.File().OpenedBy(), DtmOpenedBy::kWalk);
}

// ---- An index that lies to a follower

// What stands where the index says that the area of column 0 has gone to; `at` is the chunk's body.
struct Lie {
  const char* name;
  void (*tell)(std::uint8_t* at);
};
const Lie kLies[] = {{"another area", [](std::uint8_t*) {}},
                     {"no area", [](std::uint8_t* at) { at[-8] ^= 0xFF; }},
                     {"a chunk too short for the blocks", [](std::uint8_t* at) { at[-4] = 59; }},
                     {"an area of its own without the first block",
                      [](std::uint8_t* at) {
                        at[28] = 0;
                        at[32] ^= 0xFF;
                      }},
                     {"an area of its own without the second block",
                      [](std::uint8_t* at) {
                        at[28] = 0;
                        at[48] ^= 0xFF;
                      }},
                     {"an area of its own with a block too long", [](std::uint8_t* at) {
                        at[28] = 0;
                        at[52] = 5;
                      }}};

// Three areas, of which the follower holds the first; then the index sends it to the place of the third.
class MisledPair : public Pair {
 public:
  explicit MisledPair(const Lie& lie) : Pair(3), honest(writer.Bytes()) {
    EXPECT_EQ(Read(0), 1);
    area = reader->GetArea(0, 0, false);
    formerTime = area->LastWritten();
    auto entries = TakeIndex(honest);
    entries[0].position = entries[2].position;
    entries[0].lastWritten += 5;
    entries.pop_back();
    std::vector<std::uint8_t>& bytes = writer.Memory().bytes;
    lie.tell(bytes.data() + entries[0].position);
    PutIndex(bytes, entries);
  }

  std::vector<std::uint8_t> honest;
  DtmArea* area;
  long long formerTime;
};

TEST(DtmFileSync, AreaSentToAPlaceThatIsntItsChunkIsNotReadAfreshAndTakesNothing) {
  for (const Lie& lie : kLies) {
    SCOPED_TRACE(lie.name);
    MisledPair pair(lie);
    const std::vector<std::uint8_t> before = pair.writer.Bytes();
    EXPECT_TRUE(pair.Follow());
    EXPECT_EQ(pair.list.Take(), (Calls{"0 2 changed"})) << "the third isn't listed any more";
    EXPECT_EQ(pair.area->LastWritten(), pair.formerTime);
    EXPECT_TRUE(pair.area->HasReadError());
    EXPECT_EQ(pair.Read(1), 2);

    // Through blocks that were open before, and through new ones.
    DtmAccess fresh(pair.reader.get());
    double value = 0;
    EXPECT_FALSE(fresh.GetDoubleValue(0, 0, dVAL, value));
    EXPECT_TRUE(IsEmptyValue(value));
    for (DtmAccess* const access : {pair.access.get(), &fresh}) {
      SCOPED_TRACE(access == &fresh ? "new cursor" : "old cursor");
      EXPECT_FALSE(access->InsertValue(0.5, 0.5, -7, 0, nullptr, nullptr, 0));
      EXPECT_FALSE(access->SetValue(0.5, 0.5, -7, 0, nullptr, nullptr, 0));
      EXPECT_FALSE(access->SetDoubleValue(0, 0, dVAL, -7, true));
      EXPECT_FALSE(access->SetDoubleValue(0, 0, iNUM, 7, false));
      EXPECT_FALSE(access->MakeCellEmpty(0, 0));
      EXPECT_FALSE(access->ClearCellData(0, 0, dVAL));
    }
    pair.access.reset();
    EXPECT_EQ(pair.writer.Bytes(), before);
  }
}

TEST(DtmFileSync, CellsHeldForAnAreaThatWasSentAwayAreWrittenNowhere) {
  for (const Lie& lie : kLies) {
    SCOPED_TRACE(lie.name);
    MisledPair pair(lie);
    ASSERT_TRUE(pair.access->SetDoubleValue(0, 0, dVAL, 77, true));
    ASSERT_TRUE(pair.access->SetDoubleValue(0, 0, iNUM, 78, false));
    const std::vector<std::uint8_t> before = pair.writer.Bytes();
    EXPECT_TRUE(pair.Follow());
    EXPECT_FALSE(pair.area->SyncWrite());
    pair.access.reset();
    EXPECT_EQ(pair.writer.Bytes(), before);
  }
}

TEST(DtmFileSync, AreaThatWasSentAwayIsBackWithAGoodIndex) {
  for (const Lie& lie : kLies) {
    SCOPED_TRACE(lie.name);
    MisledPair pair(lie);
    EXPECT_TRUE(pair.Follow());
    pair.writer.Memory().bytes = pair.honest;
    EXPECT_TRUE(pair.Follow());
    EXPECT_FALSE(pair.area->HasReadError());
    EXPECT_EQ(pair.Read(0), 1);
    EXPECT_EQ(pair.Read(2), 3);

    EXPECT_TRUE(pair.writer.Set(0, 0, dVAL, 20));
    pair.Publish();
    pair.list.Take();
    EXPECT_TRUE(pair.Follow());
    EXPECT_EQ(pair.list.Take(), (Calls{"0 0 changed"}));
    EXPECT_EQ(pair.Read(0), 20);
    EXPECT_TRUE(pair.access->InsertValue(0.5, 0.5, 30, 0, nullptr, nullptr, 0));
    EXPECT_EQ(pair.Read(0), 25);
  }
}

}  // namespace
}  // namespace vak::test
