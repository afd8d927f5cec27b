#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/services/jobs/ParallelProcessor.h"
#include "vakdtm/services/platform/Event.h"

namespace vak {
namespace {

/// A member made of functions, that notes when it has gone.
class Member : public Processor {
 public:
  using Work = std::function<bool(Member&)>;

  explicit Member(
      Work process, Work initialize = [](Member&) { return true; }, int* gone = nullptr)
      : process_(std::move(process)), initialize_(std::move(initialize)), gone_(gone) {}

  ~Member() override {
    if (gone_ != nullptr) ++*gone_;
  }

  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  bool Initialize() override { return initialize_(*this); }
  bool Process() override { return process_(*this); }

  /// Ends when it is stopped, and only then.
  static bool RunUntilStopped(Member& self) {
    while (!self.IsStopped()) std::this_thread::yield();
    return false;
  }

 private:
  Work process_;
  Work initialize_;
  int* gone_;
};

class ParallelProcessorThreadTest : public testing::Test {
 protected:
  template <typename... Arguments>
  Member& Add(Arguments&&... arguments) {
    auto member = std::make_unique<Member>(std::forward<Arguments>(arguments)...);
    Member& added = *member;
    group_.AddProcessor(member.release());
    return added;
  }

  ParallelProcessor group_;
};

TEST_F(ParallelProcessorThreadTest, MembersRunAtTheSameTimeEachOnAThreadOfItsOwn) {
  constexpr int kMembers = 4;
  std::atomic<int> inside{0};
  std::vector<std::thread::id> threads(kMembers);
  for (int i = 0; i < kMembers; ++i) {
    Add([&, i](Member&) {
      threads[static_cast<std::size_t>(i)] = std::this_thread::get_id();
      ++inside;
      while (inside < kMembers) std::this_thread::yield();  // none ends before all have begun
      return true;
    });
  }
  ASSERT_TRUE(group_.Initialize());
  EXPECT_TRUE(group_.Process());
  EXPECT_EQ(inside, kMembers);
  const std::set<std::thread::id> different(threads.begin(), threads.end());
  EXPECT_EQ(different.size(), std::size_t{kMembers});
  EXPECT_FALSE(different.contains(std::this_thread::get_id()));
}

TEST_F(ParallelProcessorThreadTest, AllAreInitializedBeforeAnyRuns) {
  int initialized = 0;
  std::atomic<int> early{0};
  for (int i = 0; i < 3; ++i) {
    Add(
        [&](Member&) {
          if (initialized < 3) ++early;
          return true;
        },
        [&](Member&) {
          ++initialized;
          return true;
        });
  }
  ASSERT_TRUE(group_.Initialize());
  EXPECT_EQ(initialized, 3);
  EXPECT_TRUE(group_.Process());
  EXPECT_EQ(early, 0);
}

TEST_F(ParallelProcessorThreadTest, OneThatCannotBeInitializedFailsTheGroupAndTheOthersAreInitializedAllTheSame) {
  int initialized = 0;
  const auto count = [&initialized](Member&) { return ++initialized > 0; };
  const auto done = [](Member&) { return true; };
  Add(done, count);
  Add(done, [](Member&) { return false; });
  Add(done, [](Member&) -> bool { throw std::runtime_error("no"); });
  Add(done, count);
  EXPECT_FALSE(group_.Initialize());
  EXPECT_EQ(initialized, 2);
}

TEST_F(ParallelProcessorThreadTest, FailingMemberEndsTheOthersWithoutStoppingTheGroup) {
  Event running;
  Member& other = Add([&running](Member& self) {
    running.Set();
    return Member::RunUntilStopped(self);
  });
  Add([&running](Member&) {
    running.Wait();
    return false;
  });
  ASSERT_TRUE(group_.Initialize());
  EXPECT_FALSE(group_.Process());
  EXPECT_TRUE(other.IsStopped());
  EXPECT_FALSE(group_.IsStopped());
}

TEST_F(ParallelProcessorThreadTest, ExceptionOfAMemberIsAFailureAndGoesNoFurther) {
  Add(Member::RunUntilStopped);
  Add([](Member&) -> bool { throw std::runtime_error("no"); });
  ASSERT_TRUE(group_.Initialize());
  EXPECT_FALSE(group_.Process());
  EXPECT_FALSE(group_.IsStopped());
}

TEST_F(ParallelProcessorThreadTest, MemberThatIsStoppedByItselfLeavesTheOthersAlone) {
  Event ended;
  Add([&ended](Member& self) {
    self.Stop();
    ended.Set();
    return false;
  });
  Member& other = Add([&ended](Member& self) {
    ended.Wait();
    return !self.IsStopped();
  });
  ASSERT_TRUE(group_.Initialize());
  EXPECT_FALSE(group_.Process());
  EXPECT_FALSE(other.IsStopped());
}

TEST_F(ParallelProcessorThreadTest, StopEndsAllFromAnotherThread) {
  constexpr int kMembers = 3;
  std::atomic<int> running{0};
  Event allRun;
  for (int i = 0; i < kMembers; ++i) {
    Add([&](Member& self) {
      if (++running == kMembers) allRun.Set();
      return Member::RunUntilStopped(self);
    });
  }
  ASSERT_TRUE(group_.Initialize());
  std::thread stopper([&] {
    allRun.Wait();
    group_.Stop();
  });
  EXPECT_FALSE(group_.Process());
  stopper.join();
  EXPECT_TRUE(group_.IsStopped());
}

TEST_F(ParallelProcessorThreadTest, StopWithoutEffectOnAGroupThatDoesNotAllowIt) {
  group_.SetAllowStop(false);
  const Member& member = Add([this](Member& self) {
    group_.Stop();
    return !self.IsStopped();
  });
  ASSERT_TRUE(group_.Initialize());
  EXPECT_TRUE(group_.Process());
  EXPECT_FALSE(member.IsStopped());
  EXPECT_FALSE(group_.IsStopped());
}

TEST_F(ParallelProcessorThreadTest, MemberThatDoesNotAllowItRunsOnToItsEnd) {
  bool ended = false;
  Member& steady = Add([&](Member& self) {
    group_.Stop();
    ended = !self.IsStopped();
    return true;
  });
  steady.SetAllowStop(false);
  Add(Member::RunUntilStopped);
  ASSERT_TRUE(group_.Initialize());
  EXPECT_FALSE(group_.Process());
  EXPECT_TRUE(ended);
}

TEST_F(ParallelProcessorThreadTest, StoppedGroupRunsNone) {
  bool ran = false;
  Add([&ran](Member&) { return ran = true; });
  ASSERT_TRUE(group_.Initialize());
  group_.Stop();
  EXPECT_FALSE(group_.Process());
  EXPECT_FALSE(ran);
}

TEST_F(ParallelProcessorThreadTest, ProgressIsThatOfTheMembersAddedUpAndAtMostAll) {
  EXPECT_EQ(group_.GetProgress(), 0.0);
  Member& first = Add([](Member&) { return true; });
  Member& second = Add([](Member&) { return true; });
  EXPECT_EQ(group_.GetProgress(), 0.0);
  first.SetProgress(0.5);
  EXPECT_EQ(group_.GetProgress(), 0.5);
  second.SetProgress(0.25);
  EXPECT_EQ(group_.GetProgress(), 0.75);
  second.SetProgress(1.0);
  EXPECT_EQ(group_.GetProgress(), 1.0);
}

TEST_F(ParallelProcessorThreadTest, ProgressIsReadWhileMembersRun) {
  constexpr int kSteps = 5000;
  for (int i = 0; i < 2; ++i) {
    Add([](Member& self) {
      for (int step = 0; step <= kSteps; ++step) self.SetProgress(0.5 * step / kSteps);
      return true;
    });
  }
  ASSERT_TRUE(group_.Initialize());
  std::atomic<bool> ended{false};
  std::thread watcher([&] {
    double last = 0.0;
    while (!ended) {
      const double now = group_.GetProgress();
      EXPECT_GE(now, last);
      last = now;
    }
  });
  EXPECT_TRUE(group_.Process());
  ended = true;
  watcher.join();
  EXPECT_EQ(group_.GetProgress(), 1.0);
}

TEST_F(ParallelProcessorThreadTest, GroupWithoutMembersIsDone) {
  group_.AddProcessor(nullptr);
  EXPECT_TRUE(group_.Initialize());
  EXPECT_TRUE(group_.Process());
}

TEST(ParallelProcessorEndThreadTest, MembersAreOwned) {
  int gone = 0;
  const Member::Work done = [](Member&) { return true; };
  {
    ParallelProcessor group;
    for (int i = 0; i < 3; ++i) group.AddProcessor(std::make_unique<Member>(done, done, &gone).release());
    EXPECT_EQ(gone, 0);
  }
  EXPECT_EQ(gone, 3);
}

}  // namespace
}  // namespace vak
