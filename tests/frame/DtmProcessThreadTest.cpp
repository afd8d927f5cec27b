#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <limits>
#include <memory>
#include <mutex>
#include <sched.h>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/frame/DtmProcess.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/platform/Platform.h"

#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

/// What all clones of a processor add to.
struct Tally {
  bool throws = false;  // `Clone`
  std::atomic<int> clones{0};
  std::atomic<int> finis{0};
  std::atomic<int> alive{0};
  std::mutex mutex;
  std::multiset<std::pair<int, int>> cells;  // guarded by mutex, like all below
  std::set<DtmAccess*> accesses;
  std::set<std::thread::id> threads;
  int updaters = 0;
};

/// Raises each cell by one, and adds to the tally.
class Adding final : public DtmProcessor {
 public:
  Adding(Tally& tally, bool clonable) : tally_(tally), clonable_(clonable) { ++tally_.alive; }
  ~Adding() override { --tally_.alive; }
  Adding(const Adding&) = delete;
  Adding& operator=(const Adding&) = delete;

  DtmProcessor* Clone() override {
    if (!clonable_) return nullptr;
    if (tally_.throws) throw std::runtime_error("no");
    ++tally_.clones;
    return std::make_unique<Adding>(tally_, true).release();
  }
  bool Init(DtmAccess& access) override {
    const std::scoped_lock lock(tally_.mutex);
    access_ = &access;
    tally_.accesses.insert(&access);
    tally_.threads.insert(std::this_thread::get_id());
    if (access.GetUpdater() != nullptr) ++tally_.updaters;
    return true;
  }
  bool Fini() override {
    ++tally_.finis;
    return true;
  }
  bool ProcessCell(int row, int col, double& /*area*/) override {
    double value = 0;
    if (!access_->GetDoubleValue(row, col, dVAL, value)) return false;
    const std::scoped_lock lock(tally_.mutex);
    tally_.cells.emplace(row, col);
    return access_->SetDoubleValue(row, col, dVAL, value + 1, true);
  }

 private:
  Tally& tally_;
  bool clonable_;
  DtmAccess* access_ = nullptr;
};

class DtmProcessThreadTest : public testing::Test {
 protected:
  static constexpr int kSide = 24;

  DtmProcessThreadTest() {
    const DtmManager::create_params params{4, 1.0, {dVAL}};
    model_ = CreateShared(folder_.WideFile("a.dtm"), params);
    DtmAccess access(model_.get());
    for (int cell = 0; cell < kSide * kSide; ++cell) {
      access.SetDoubleValue(cell / kSide, cell % kSide, dVAL, cell, true);
    }
  }

  void AddStep(bool parallel, bool clonable = true) {
    const int step = process_.AddProcessStep(model_.get(), 0, &rect_, false, nullptr);
    process_.AddProcessor(step, std::make_unique<Adding>(tally_, clonable).release());
    process_.SetAllowParallel(step, parallel);
  }

  void ExpectAllRaised() {
    EXPECT_EQ(tally_.cells.size(), std::size_t{kSide * kSide});
    DtmAccess access(model_.get());
    for (int cell = 0; cell < kSide * kSide; ++cell) {
      double value = 0;
      ASSERT_TRUE(access.GetDoubleValue(cell / kSide, cell % kSide, dVAL, value));
      ASSERT_EQ(value, cell + 1.0);
    }
  }

  TestFolder folder_;
  SharedModel model_;
  const Page rect_{0.5, 0.5, kSide - 0.5, kSide - 0.5};
  Tally tally_;
  DtmProcess process_;
};

TEST_F(DtmProcessThreadTest, ParallelStepRunsAWalkerForEachCoreWithItsOwnProcessorAndAccess) {
  const auto cores = static_cast<int>(GetTotalNumberOfCores());
  const int before = model_->OpenCount();
  AddStep(true);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(tally_.clones, cores - 1);
  EXPECT_EQ(tally_.finis, cores);
  EXPECT_EQ(tally_.accesses.size(), static_cast<std::size_t>(cores));
  EXPECT_EQ(tally_.updaters, cores);
  EXPECT_EQ(tally_.alive, 0);
  EXPECT_EQ(model_->OpenCount(), before);
  ExpectAllRaised();
}

TEST_F(DtmProcessThreadTest, ParallelIsWhatAStepMustAskFor) {
  AddStep(false);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(tally_.clones, 0);
  EXPECT_EQ(tally_.finis, 1);
  ExpectAllRaised();
}

TEST_F(DtmProcessThreadTest, ProcessorThatCannotBeClonedIsRunByOneThread) {
  AddStep(true, false);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(tally_.finis, 1);
  EXPECT_EQ(tally_.alive, 0);
  ExpectAllRaised();
}

TEST_F(DtmProcessThreadTest, GroupOfProcessorsRunsInParallelToo) {
  AddStep(true);
  process_.AddProcessor(0, std::make_unique<DtmMultiProcessor>().release());
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(tally_.finis, static_cast<int>(GetTotalNumberOfCores()));
  ExpectAllRaised();
}

TEST_F(DtmProcessThreadTest, OnOneCoreAParallelStepIsOneWalker) {
  cpu_set_t former;
  ASSERT_EQ(sched_getaffinity(0, sizeof former, &former), 0);
  int core = 0;
  while (!CPU_ISSET(core, &former)) ++core;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(core, &one);
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  // A step before it that shows no cell, but tells the job's thread.
  const Page flat(0.5, 0.5, 0.5, 0.5);
  process_.AddProcessStep(model_.get(), 0, &flat, false, nullptr);
  process_.AddProcessor(0, std::make_unique<Adding>(tally_, true).release());
  AddStep(true);
  const int result = process_.DoModal();
  ASSERT_EQ(sched_setaffinity(0, sizeof former, &former), 0);
  EXPECT_EQ(result, ProcessThread::kDone);
  EXPECT_EQ(tally_.clones, 0);
  EXPECT_EQ(tally_.finis, 2);
  EXPECT_EQ(tally_.threads.size(), 1U) << "no group, which would run even one walker on a thread of its own";
  ExpectAllRaised();
}

TEST_F(DtmProcessThreadTest, ParallelWithoutARectangleHasNoEffect) {
  process_.AddProcessStep(model_.get(), 0, nullptr, false, nullptr);
  process_.AddProcessor(0, std::make_unique<Adding>(tally_, true).release());
  process_.SetAllowParallel(0, true);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  EXPECT_EQ(tally_.clones, 0);
  ExpectAllRaised();
}

/// The first goes on without end; its clones answer false, or throw, as soon as it has begun.
class FailingClones final : public DtmProcessor {
 public:
  struct Story {
    bool throws;
    std::latch begun{1};
    std::atomic<int> finis{0};
  };

  explicit FailingClones(Story& story, bool isClone = false) : story_(story), isClone_(isClone) {}

  DtmProcessor* Clone() override { return std::make_unique<FailingClones>(story_, true).release(); }
  bool Init(DtmAccess& /*access*/) override {
    if (!isClone_) return true;
    story_.begun.wait();
    if (story_.throws) throw std::runtime_error("no");
    return false;
  }
  bool ProcessArea(int /*row*/, int /*col*/, double& area) override {
    if (!story_.begun.try_wait()) story_.begun.count_down();
    area = 0;
    return true;
  }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return true; }
  bool Fini() override {
    ++story_.finis;
    return true;
  }

 private:
  Story& story_;
  bool isClone_;
};

TEST_F(DtmProcessThreadTest, FailureOfACloneEndsTheOthersAndFailsTheStep) {
  // More positions than could be walked while anybody waits; on one core, where there are no clones, a few.
  const bool cloned = GetTotalNumberOfCores() > 1;
  const double side = cloned ? 160000 : 16;
  const Page wide(0, 0, side, side);
  for (const bool throws : {false, true}) {
    FailingClones::Story story{throws};
    DtmProcess process;
    process.AddProcessStep(model_.get(), 0, &wide, false, nullptr);
    process.AddProcessor(0, std::make_unique<FailingClones>(story).release());
    process.SetAllowParallel(0, true);
    EXPECT_EQ(process.DoModal(), cloned ? ProcessThread::kFailed : ProcessThread::kDone);
    EXPECT_EQ(story.finis, cloned ? 0 : 1) << "the first was ended";
  }
}

TEST_F(DtmProcessThreadTest, ProcessorWhoseCloneThrowsIsRunByOneThread) {
  for (const bool inGroup : {false, true}) {
    tally_.finis = 0;
    AddStep(true, true);
    tally_.throws = true;
    if (inGroup) process_.AddProcessor(0, std::make_unique<DtmMultiProcessor>().release());
    EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
    EXPECT_EQ(tally_.finis, 1);
    EXPECT_EQ(tally_.alive, 0);
  }
  EXPECT_EQ(tally_.cells.size(), std::size_t{2 * kSide * kSide});
}

/// What `Growing` and its clones wait for.
struct Growth {
  explicit Growth(int clones) : claimed(clones) {}
  std::latch begun{1};
  std::latch claimed;
  std::mutex mutex;
  std::multiset<std::pair<int, int>> places;  // guarded by mutex
};

/// Notes the positions it is shown. The first of them waits at its first position until each clone has come to one, or
/// to its end, and each clone adds an area at the lower left before it begins.
class Growing final : public DtmProcessor {
 public:
  explicit Growing(Growth& growth, int number = 0) : growth_(growth), number_(number) {}

  DtmProcessor* Clone() override { return std::make_unique<Growing>(growth_, number_ + ++clones_).release(); }
  bool Init(DtmAccess& access) override {
    if (number_ == 0) return true;
    growth_.begun.wait();
    return access.SetDoubleValue(-100 * number_, -100 * number_, dVAL, 1, true);
  }
  bool ProcessArea(int row, int col, double& area) override {
    {
      const std::scoped_lock lock(growth_.mutex);
      growth_.places.emplace(row, col);
    }
    area = 0;
    Begin();
    return true;
  }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return true; }
  bool Fini() override {
    Begin();
    return true;
  }

 private:
  void Begin() {
    if (std::exchange(hasBegun_, true)) return;
    if (number_ != 0) {
      growth_.claimed.count_down();
      return;
    }
    growth_.begun.count_down();
    growth_.claimed.wait();
  }

  Growth& growth_;
  int number_;
  int clones_ = 0;
  bool hasBegun_ = false;
};

TEST_F(DtmProcessThreadTest, AreasThatComeMeanwhileDoNotShiftWhatTheWalkersDivide) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const Page everything(-kInfinity, -kInfinity, kInfinity, kInfinity);
  Growth growth(static_cast<int>(GetTotalNumberOfCores()) - 1);
  process_.AddProcessStep(model_.get(), 0, &everything, false, nullptr);
  process_.AddProcessor(0, std::make_unique<Growing>(growth).release());
  process_.SetAllowParallel(0, true);
  EXPECT_EQ(process_.DoModal(), ProcessThread::kDone);
  std::multiset<std::pair<int, int>> expected;
  for (int row = 0; row < kSide; row += 4) {
    for (int col = 0; col < kSide; col += 4) expected.emplace(row, col);
  }
  EXPECT_EQ(growth.places, expected);
}

TEST_F(DtmProcessThreadTest, JobInTheBackgroundLooksAfterItself) {
  const int before = model_->OpenCount();
  AddStep(true);
  EXPECT_NE(process_.StartThread(nullptr, false), nullptr);
  ProcessThread::WaitForAllAlone();
  EXPECT_EQ(tally_.alive, 0);
  EXPECT_EQ(model_->OpenCount(), before);
  ExpectAllRaised();
}

/// Wants no cell, and so has a long way to go.
class Endless final : public DtmProcessor {
 public:
  Endless(Event& reached, std::atomic<int>& ended) : reached_(reached), ended_(ended) {}
  ~Endless() override { ++ended_; }
  Endless(const Endless&) = delete;
  Endless& operator=(const Endless&) = delete;

  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessArea(int /*row*/, int /*col*/, double& area) override {
    reached_.Set();
    area = 0;
    return true;
  }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return true; }

 private:
  Event& reached_;
  std::atomic<int>& ended_;
};

TEST_F(DtmProcessThreadTest, JobInTheBackgroundIsStoppedByWhatItsStartAnswered) {
  Event reached;
  std::atomic<int> ended{0};
  const Page wide(0, 0, 1e5, 1e5);
  process_.AddProcessStep(model_.get(), 0, &wide, false, nullptr);
  process_.AddProcessor(0, std::make_unique<Endless>(reached, ended).release());
  const void* const job = process_.StartThread(nullptr, false);
  ASSERT_NE(job, nullptr);
  reached.Wait();
  ProcessThread::StopAlone(job);
  ProcessThread::WaitForAllAlone();
  EXPECT_EQ(ended, 1);
  EXPECT_FALSE(ProcessThread::StopAlone(job));
}

}  // namespace
}  // namespace vak::test
