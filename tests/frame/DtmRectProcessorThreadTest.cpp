#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/frame/DtmRectProcessor.h"
#include "vakdtm/services/jobs/ParallelProcessor.h"

#include "frame/WalkLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// A group of walkers over 12 x 10 positions of areas of 2 x 2 cells.
class DtmRectProcessorThreadTest : public testing::Test {
 protected:
  static constexpr int kWalkers = 4;

  DtmRectProcessorThreadTest() {
    const auto counter = std::make_shared<AtomicCounter>();
    const auto range = std::make_shared<SharedCellRange>();
    for (int i = 0; i < kWalkers; ++i) {
      logs_.push_back(std::make_unique<WalkLog>());
      accesses_.push_back(std::make_unique<DtmAccess>(grid_.Access()));
      auto walker = std::make_unique<DtmRectProcessor>(Page(-11.5, -9.5, 11.5, 9.5), accesses_.back().get(),
                                                       logs_.back().get(), false);
      walker->SetSharedCounter(counter);
      walker->SetSharedRange(range);
      logs_.back()->SetWalker(walker.get());
      walkers_.push_back(walker.get());
      group_.AddProcessor(walker.release());
    }
  }

  /// How often each position was announced, and how often each cell shown, by all walkers.
  std::map<std::pair<int, int>, int> Count(Call::Kind kind) const {
    std::map<std::pair<int, int>, int> counts;
    for (const auto& log : logs_) {
      for (const Call& call : log->Of(kind)) ++counts[{call.row, call.col}];
    }
    return counts;
  }

  TestGrid grid_{GridSettings{.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL}}};
  std::vector<std::unique_ptr<WalkLog>> logs_;
  std::vector<std::unique_ptr<DtmAccess>> accesses_;
  ParallelProcessor group_;
  std::vector<DtmRectProcessor*> walkers_;
};

TEST_F(DtmRectProcessorThreadTest, EachPositionIsWalkedByOneAndAllEnd) {
  ASSERT_TRUE(group_.Initialize());
  EXPECT_TRUE(group_.Process());
  const auto positions = Count(Call::kArea);
  EXPECT_EQ(positions.size(), 120U);
  for (const auto& [place, count] : positions) EXPECT_EQ(count, 1);
  const auto cells = Count(Call::kCell);
  EXPECT_EQ(cells.size(), 480U);
  for (const auto& [place, count] : cells) EXPECT_EQ(count, 1);
  for (const auto& log : logs_) EXPECT_EQ(log->Of(Call::kFini).size(), 1U);
  EXPECT_DOUBLE_EQ(group_.GetProgress(), 1.0);
}

TEST_F(DtmRectProcessorThreadTest, GroupThatIsInitialisedAgainRunsAgain) {
  for (int i = 1; i <= 2; ++i) {
    ASSERT_TRUE(group_.Initialize());
    EXPECT_EQ(group_.GetProgress(), 0.0);
    EXPECT_TRUE(group_.Process());
    for (const auto& [place, count] : Count(Call::kCell)) EXPECT_EQ(count, i);
  }
}

TEST_F(DtmRectProcessorThreadTest, StopOfOneWalkerEndsThatOneAlone) {
  std::latch claimed(1);
  logs_[0]->react = [&](const Call& call, double&) {
    if (call.kind != Call::kArea) return true;
    walkers_[0]->Stop();
    claimed.count_down();
    return true;
  };
  for (std::size_t i = 1; i < logs_.size(); ++i) {
    logs_[i]->react = [&](const Call& call, double&) {
      if (call.kind == Call::kInit) claimed.wait();
      return true;
    };
  }
  ASSERT_TRUE(group_.Initialize());
  EXPECT_FALSE(group_.Process());
  EXPECT_FALSE(group_.IsStopped());
  EXPECT_EQ(logs_[0]->Of(Call::kArea).size(), 1U);
  EXPECT_EQ(logs_[0]->Of(Call::kCell), Calls());
  EXPECT_EQ(Count(Call::kArea).size(), 120U);
  EXPECT_EQ(Count(Call::kCell).size(), 476U) << "the cells of the position that the stopped one had claimed are left";
  for (std::size_t i = 1; i < logs_.size(); ++i) EXPECT_EQ(logs_[i]->Of(Call::kFini).size(), 1U);
}

TEST_F(DtmRectProcessorThreadTest, StopOfTheGroupEndsAll) {
  for (const auto& log : logs_) {
    log->react = [this](const Call& call, double&) {
      if (call.kind != Call::kCell) return true;
      group_.Stop();
      return true;
    };
  }
  ASSERT_TRUE(group_.Initialize());
  EXPECT_FALSE(group_.Process());
  EXPECT_TRUE(group_.IsStopped());
  for (const auto& log : logs_) {
    EXPECT_LE(log->Of(Call::kCell).size(), 1U);
    EXPECT_EQ(log->Of(Call::kFini).size(), 0U);
  }
}

TEST_F(DtmRectProcessorThreadTest, ProgressIsReadMeanwhile) {
  // Each waits in its tenth cell until the progress has been read.
  std::latch far(kWalkers);
  std::latch read(1);
  for (const auto& log : logs_) {
    log->react = [&, cells = 0](const Call& call, double&) mutable {
      if (call.kind == Call::kCell && ++cells == 10) {
        far.count_down();
        read.wait();
      }
      return true;
    };
  }
  ASSERT_TRUE(group_.Initialize());
  std::atomic<bool> ended{false};
  double middle = 0;
  bool falls = false;
  std::thread watcher([&] {
    far.wait();
    middle = group_.GetProgress();
    read.count_down();
    double before = middle;
    while (!ended) {
      const double now = group_.GetProgress();
      falls |= now < before;
      before = now;
    }
  });
  EXPECT_TRUE(group_.Process());
  ended = true;
  watcher.join();
  EXPECT_DOUBLE_EQ(middle, kWalkers * 9.0 / 480) << "nine cells of each are done";
  EXPECT_FALSE(falls);
}

}  // namespace
}  // namespace vak::test
