// A process that inserts soundings is killed at a random moment, again and again, in one model. Whatever the moment,
// what it had told to be synced is there.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <signal.h>
#include <string>
#include <thread>

#include "LiveModel.h"
#include "support/LongForm.h"
#include "support/RandomSeed.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

namespace fs = std::filesystem;

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr double kRate = 60000;

/// Faults that a file may have which a writer has left in the middle of its work.
bool IsOfAMissingOrStaleIndex(const DtmFault& fault) {
  switch (fault.kind) {
    case DtmFaultKind::kNoIndex:
    case DtmFaultKind::kIndexTorn:
    case DtmFaultKind::kCellOutside:  // of the range that the index has
      return true;
    default:
      return false;
  }
}

/// When to kill: at any moment, or around a sync, when the file is being written.
class Moments {
 public:
  explicit Moments(std::uint32_t seed) : random_(seed) {}

  void Await(LiveSurveyProcess& survey, int round) {
    if (round % 3 == 0) {
      Sleep(0, 1700000);
      return;
    }
    survey.AwaitSync();
    // The next sync is half a second after the end of this one.
    if (round % 3 == 1) {
      Sleep(480000, 560000);
    } else {
      Sleep(0, 50000);
    }
  }
  std::uint64_t Seed() { return random_() % 1000; }
  /// Wide surveys make many areas, narrow ones go over the same again.
  double Hint() { return 1 << (random_() % 3); }

 private:
  void Sleep(int from, int to) {
    std::this_thread::sleep_for(microseconds(std::uniform_int_distribution<int>(from, to)(random_)));
  }

  std::mt19937 random_;
};

/// What the rounds came to, for the report.
struct Tally {
  std::uint64_t synced = 0;
  std::uint64_t survived = 0;
  int withoutSync = 0;
  std::map<std::string, int> faults;
};

/// Compares the cells of the killed writer's file with all that they have been.
/// @return how many of the survey's soundings are in the cells.
std::uint64_t CheckCells(const std::string& path, const CellHistories& histories, std::uint64_t synced) {
  OtherModel model(path, false);
  DtmAccess access(&*model);
  std::uint64_t survived = 0;
  int wrong = 0;
  for (const auto& [cell, history] : histories.Cells()) {
    const CellHistories::State found = CellHistories::Read(access, cell, 0);
    // The last state that had to be on the disk, and all later ones.
    std::size_t first = 0;
    while (first + 1 < history.size() && history[first + 1].sounding <= synced) ++first;
    for (int kind = 0; kind < CellHistories::kKinds; ++kind) {
      bool known = false;
      for (std::size_t i = first; i < history.size() && !known; ++i) {
        known =
            std::bit_cast<std::uint64_t>(history[i].values[kind]) == std::bit_cast<std::uint64_t>(found.values[kind]);
        if (known && kind == 0) survived += i;
      }
      if (known || ++wrong > 5) continue;
      ADD_FAILURE() << "row " << cell.first << ", column " << cell.second << ", kind " << kind << ": "
                    << found.values[kind] << ", synced " << history[first].values[kind];
    }
  }
  EXPECT_EQ(wrong, 0);
  return survived;
}

/// A model that writers are killed in, one after the other, while a reader follows.
class Victim {
 public:
  Victim()
      : made_(RunCommand({VAKDTM_COMMAND, "create", Path(), "--cell-size", "1"}).Wait().status),
        watch_({VAKDTM_COMMAND, "watch", Path(), "--sync", "500", "--json"}) {}

  bool IsMade() const { return made_ == 0; }

  /// Kills one more writer and looks at what it left.
  void Kill(Moments& moments, int round, Tally& tally) {
    const std::string before = folder_.File("before.dtm");
    fs::copy_file(Path(), before, fs::copy_options::overwrite_existing);
    SurveySimulator::Options options{moments.Seed(), 0, moments.Hint()};
    const auto start = Clock::now();
    LiveSurveyProcess survey(Path(), options.seed, kRate, {"--cell-size-hint", std::to_string(options.cellSizeHint)});
    moments.Await(survey, round);
    ASSERT_FALSE(survey.Command().HasEnded()) << survey.Command().Wait().err;
    survey.Command().Signal(SIGKILL);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    ASSERT_EQ(survey.Command().Wait().signal, SIGKILL);
    const std::uint64_t synced = survey.Synced();
    tally.synced += synced;
    tally.withoutSync += synced == 0 ? 1 : 0;
    for (const DtmFault& fault : Verified(Path())) {
      EXPECT_TRUE(IsOfAMissingOrStaleIndex(fault)) << fault.offset << ": " << fault.Text();
      ++tally.faults[fault.Text().substr(0, 24)];
    }
    // More than this it can't have inserted.
    options.count = static_cast<std::uint64_t>(kRate * seconds) + 1;
    tally.survived += CheckCells(Path(), CellHistories(before, options), synced);
    ASSERT_FALSE(watch_.HasEnded()) << watch_.Wait().err;
  }

  /// The reader that followed all along still does, and so does the next writer.
  void ExpectToGoOn() {
    // It may have told nothing yet: while a survey breaks new ground, the file is without an index most of the time.
    const std::string output = watch_.OutputSoFar();
    const auto told = static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n'));
    // Longer than a second: changes within the second that the reader has seen show only when the time moves.
    const CommandResult next =
        RunCommand({VAKDTM_COMMAND, "simulate", "--live", Path(), "--rate", "100", "--count", "150", "--sync", "500"})
            .Wait();
    EXPECT_EQ(next.status, 0) << next.err;
    EXPECT_GT(watch_.AwaitLines(told + 1).size(), told);
    for (const DtmFault& fault : Verified(Path())) {
      // Of areas that nobody has been in since: only their own cells could tell that the index knows less than they do.
      EXPECT_EQ(fault.kind, DtmFaultKind::kCellOutside) << fault.offset << ": " << fault.Text();
    }
  }

 private:
  std::string Path() const { return folder_.File("live.dtm"); }

  TestFolder folder_;
  int made_;
  RunCommand watch_;
};

TEST(KilledWriter, LosesNothingThatWasSyncedAndTheModelGoesOn) {
  const int models = LongForm(2, 40, 1);
  constexpr int kKills = 5;  // of a model, which grows and is gone over again
  const std::uint32_t seed = RandomSeed();
  Moments moments(seed);
  Tally tally;
  for (int model = 0; model < models; ++model) {
    Victim victim;
    ASSERT_TRUE(victim.IsMade());
    for (int kill = 0; kill < kKills; ++kill) {
      SCOPED_TRACE("kill " + std::to_string(kill) + " in model " + std::to_string(model) +
                   ", rerun with --gtest_random_seed=" + std::to_string(seed));
      victim.Kill(moments, model * kKills + kill, tally);
      if (HasFailure()) return;
    }
    victim.ExpectToGoOn();
  }
  EXPECT_GT(tally.synced, 0U);
  std::printf("%d kills, %d before the first sync; %llu soundings synced, %llu found\n", models * kKills,
              tally.withoutSync, static_cast<unsigned long long>(tally.synced),
              static_cast<unsigned long long>(tally.survived));
  for (const auto& [text, count] : tally.faults) std::printf("%6d  %s...\n", count, text.c_str());
}

}  // namespace
}  // namespace vak::test
