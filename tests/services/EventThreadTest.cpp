#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>

#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/platform/Thread.h"

namespace vak {
namespace {

using std::chrono::milliseconds;

TEST(EventThreadTest, SetIsUsedUpByOneWait) {
  Event event;
  EXPECT_FALSE(event.Wait(milliseconds(0)));
  event.Set();
  event.Set();
  EXPECT_TRUE(event.Wait(milliseconds(0)));
  EXPECT_FALSE(event.Wait(milliseconds(0)));
}

TEST(EventThreadTest, WaitWithALimitRunsOut) {
  Event event;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(event.Wait(milliseconds(20)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(20));
}

TEST(EventThreadTest, TwoThreadsTakeTurnsByTwoEvents) {
  constexpr int kTurns = 2000;
  Event there;
  Event back;
  int count = 0;  // touched in turns, which is what is shown
  {
    const Thread other(ThreadPriority::kNormal, [&] {
      for (int i = 0; i < kTurns; ++i) {
        there.Wait();
        ++count;
        back.Set();
      }
    });
    for (int i = 0; i < kTurns; ++i) {
      there.Set();
      ASSERT_TRUE(back.Wait(milliseconds(60000)));
      ASSERT_EQ(count, i + 1);
    }
  }
}

TEST(EventThreadTest, OneSetLetsOneOfTwoWaitersThrough) {
  Event event;
  std::atomic<int> through{0};
  Event passed;
  const auto wait = [&] {
    event.Wait();
    through.fetch_add(1);
    passed.Set();
  };
  Thread first(ThreadPriority::kNormal, wait);
  Thread second(ThreadPriority::kNormal, wait);
  event.Set();
  passed.Wait();
  EXPECT_EQ(through.load(), 1);
  event.Set();
  first.Join();
  second.Join();
  EXPECT_EQ(through.load(), 2);
}

TEST(ThreadThreadTest, PriorityIsTheThreadsOwn) {
  const int mine = getpriority(PRIO_PROCESS, 0);
  int lowest = -100;
  int below = -100;
  int normal = -100;
  Thread(ThreadPriority::kLowest, [&] { lowest = getpriority(PRIO_PROCESS, 0); }).Join();
  Thread(ThreadPriority::kBelowNormal, [&] { below = getpriority(PRIO_PROCESS, 0); }).Join();
  Thread(ThreadPriority::kNormal, [&] { normal = getpriority(PRIO_PROCESS, 0); }).Join();
  EXPECT_EQ(lowest, 19);
  EXPECT_EQ(normal, mine);
  if (mine <= 5) {
    EXPECT_EQ(below, 5);
  }
  EXPECT_EQ(getpriority(PRIO_PROCESS, 0), mine);
}

TEST(ThreadThreadTest, DestructorWaitsForTheEnd) {
  bool done = false;
  Event go;
  {
    const Thread thread(ThreadPriority::kNormal, [&] {
      go.Wait();
      done = true;
    });
    go.Set();
  }
  EXPECT_TRUE(done);
}

}  // namespace
}  // namespace vak
