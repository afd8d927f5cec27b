// At most one process writes a model, and the next one may as soon as that one is gone, whichever way it went.
#include <atomic>
#include <barrier>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <signal.h>
#include <string>
#include <thread>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"

#include "LiveModel.h"
#include "support/CommandModels.h"
#include "support/LongForm.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

constexpr double kQuickRate = 20000;

class SecondWriter : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(CreateShared(Wide(), {64, 1.0, {iNUM, dVAL, dSDV, dMIN, dMAX, tTIM}})); }

  std::string Path() const { return models_.File("live.dtm"); }
  std::wstring Wide() const { return FromUtf8(Path()); }

  void ExpectRefused() const {
    EXPECT_EQ(OpenShared(Wide(), true), nullptr);
    EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kHeldByWriter);
  }

  CommandModels models_;
};

std::uint64_t HitsIn(DtmFile& model, std::uint64_t seed, std::uint64_t count) {
  SurveySimulator simulator({seed, count, 1.0});
  std::set<CellHistories::Cell> cells;
  Sounding s;
  while (simulator.Next(s)) {
    CellHistories::Cell cell;
    model.CalcRowCol(s.x, s.y, cell.first, cell.second);
    cells.insert(cell);
  }
  DtmAccess access(&model);
  double hits = 0;
  for (const auto& [row, col] : cells) {
    double here = 0;
    if (access.GetDoubleValue(row, col, iNUM, here) && !IsEmptyValue(here)) hits += here;
  }
  return static_cast<std::uint64_t>(hits);
}

TEST_F(SecondWriter, IsRefusedWhileTheFirstLivesAndAdmittedWhicheverWayItDied) {
  const struct {
    const char* name;
    int signal;
  } cases[] = {{"killed", SIGKILL}, {"Ctrl-C", SIGINT}, {"terminated", SIGTERM}, {"hung up", SIGHUP}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    LiveSurveyProcess first(Path(), 1, kQuickRate);
    first.AwaitSync();
    ExpectRefused();
    ExpectRefused();
    first.Command().Signal(c.signal);
    first.Command().Wait();
    const SharedModel model = OpenShared(Wide(), true);
    ASSERT_NE(model, nullptr);
    EXPECT_TRUE(Sound(*model, 0.5, 0.5, -1));
    EXPECT_TRUE(model->SyncWrite());
  }
  EXPECT_EQ(RunCommand({VAKDTM_COMMAND, "verify", Path()}).Wait().status, 0);
}

TEST_F(SecondWriter, AReaderBecomesAWriterOnceTheFirstIsKilledAndFindsWhatItHadSynced) {
  const int rounds = LongForm(3, 40);
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    const std::string path = models_.File("reader" + std::to_string(round) + ".dtm");
    ASSERT_TRUE(CreateShared(FromUtf8(path), {64, 1.0, {iNUM, dVAL}}));
    const SharedModel reader = OpenShared(FromUtf8(path), false);
    LiveSurveyProcess first(path, 5, kQuickRate);
    first.AwaitSync();
    EXPECT_FALSE(reader->MakeReadWrite(true));
    EXPECT_FALSE(reader->IsReadWrite());
    // New areas are written over the index at any moment: the file may be left without one.
    std::this_thread::sleep_for(std::chrono::milliseconds(37 * round % 500));
    first.Command().Signal(SIGKILL);
    first.Command().Wait();
    const std::uint64_t synced = first.Synced();
    ASSERT_TRUE(reader->MakeReadWrite(true));
    EXPECT_GE(HitsIn(*reader, 5, synced), synced);
    EXPECT_TRUE(Sound(*reader, 0.5, 0.5, -1));
    EXPECT_TRUE(reader->SyncWrite());
    EXPECT_TRUE(Verified(path).empty());
  }
}

TEST_F(SecondWriter, SharingForWritingIsRefusedTooWhileTheFirstLives) {
  const SharedModel reader = OpenShared(Wide(), false);
  LiveSurveyProcess first(Path(), 1, kQuickRate);
  first.AwaitSync();
  ExpectRefused();
  EXPECT_EQ(reader->OpenCount(), 1);
  EXPECT_FALSE(reader->IsReadWrite());
}

TEST_F(SecondWriter, OfTwoStreamsThatRaceOneWins) {
  const int rounds = LongForm(2000, 20000);
  std::atomic<int> open{0};
  std::vector<std::unique_ptr<HugeFileStream>> streams(2);
  int wrong = 0;
  const auto judge = [&]() noexcept {
    wrong += open == 1 ? 0 : 1;
    open = 0;
    for (auto& stream : streams) stream.reset();
  };
  std::barrier together(2, judge);
  std::barrier<> start(2);
  const auto race = [&](std::size_t self) {
    for (int i = 0; i < rounds; ++i) {
      start.arrive_and_wait();
      streams[self] = std::make_unique<HugeFileStream>(Wide().c_str(), false, true);
      if (streams[self]->IsOpen()) ++open;
      together.arrive_and_wait();
    }
  };
  std::thread other(race, 1);
  race(0);
  other.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(SecondWriter, OfTwoProcessesThatRaceOneWins) {
  const int rounds = LongForm(5, 200);
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    LiveSurveyProcess one(Path(), 1, kQuickRate);
    LiveSurveyProcess other(Path(), 2, kQuickRate);
    // Neither would end by itself.
    while (!one.Command().HasEnded() && !other.Command().HasEnded()) std::this_thread::yield();
    RunCommand& loser = one.Command().HasEnded() ? one.Command() : other.Command();
    RunCommand& winner = one.Command().HasEnded() ? other.Command() : one.Command();
    EXPECT_EQ(loser.Wait().status, 1);
    EXPECT_EQ(loser.Wait().err,
              "vakdtm simulate: " + Path() + ": another process is writing it - wait until that has ended\n");
    winner.AwaitLines(1);
    winner.Signal(SIGINT);
    EXPECT_EQ(winner.Wait().status, 130);
  }
  EXPECT_TRUE(Verified(Path()).empty());
}

TEST_F(SecondWriter, NothingThatMakesOrChangesAModelTouchesOneThatIsHeld) {
  // Its one sounding is synced; from then on it holds the model and does nothing.
  LiveSurveyProcess first(Path(), 1, 0.0001);
  first.AwaitSync();
  const FileState state(models_.Folder(), "live.dtm");
  const DtmManager::create_params params{8, 2.0, {dVAL}};
  EXPECT_EQ(DtmManager::GetDtmManager().OpenDtm(Wide(), true, &params), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kHeldByWriter);
  EXPECT_FALSE(HugeFileStream(Wide().c_str(), true, true).IsOpen());
  const std::vector<std::vector<std::string>> commands = {{"create", Path(), "--cell-size", "2", "--force"},
                                                          {"import", Path(), "-"},
                                                          {"verify", Path(), "--repair"},
                                                          {"simulate", "--live", Path(), "--count", "1"}};
  for (const auto& words : commands) {
    SCOPED_TRACE(words.front());
    const CommandResult result = CommandModels::Run(words, "1.5,2.5,-3\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, testing::HasSubstr("another process is writing it"));
  }
  EXPECT_TRUE(state.IsUnchanged());
  first.Command().Signal(SIGINT);
  EXPECT_EQ(first.Command().Wait().status, 130);
}

}  // namespace
}  // namespace vak::test
