#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vector>

#include "vakdtm/services/platform/RecursiveMutex.h"

namespace vak {
namespace {

void RunOnThreads(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

bool OtherThreadGetsIt(RecursiveMutex& mutex) {
  bool got = false;
  RunOnThreads(1, [&](int) {
    got = mutex.try_lock();
    if (got) mutex.unlock();
  });
  return got;
}

TEST(RecursiveMutexThreadTest, ItsThreadTakesItAgainAndOthersWaitForTheLastUnlock) {
  RecursiveMutex mutex;
  mutex.lock();
  mutex.lock();
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
  EXPECT_FALSE(OtherThreadGetsIt(mutex));
  mutex.unlock();
  EXPECT_FALSE(OtherThreadGetsIt(mutex));
  mutex.unlock();
  EXPECT_TRUE(OtherThreadGetsIt(mutex));
}

TEST(RecursiveMutexThreadTest, CountIsRightWithoutOtherThreads) {
  RecursiveMutex mutex;
  int count = 0;
  for (int i = 0; i < 1000; ++i) {
    const std::scoped_lock lock(mutex);
    ++count;
  }
  EXPECT_EQ(count, 1000);
}

TEST(RecursiveMutexThreadTest, PlainCountersAreRightUnderContention) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  RecursiveMutex mutex;
  long long first = 0;
  long long second = 0;
  RunOnThreads(kThreads, [&](int thread) {
    for (int i = 0; i < kRounds; ++i) {
      const std::scoped_lock outer(mutex);
      ++first;
      const std::scoped_lock inner(mutex);
      second += thread;
    }
  });
  EXPECT_EQ(first, kThreads * kRounds);
  EXPECT_EQ(second, kRounds * (0 + 1 + 2 + 3));
}

TEST(RecursiveMutexThreadTest, WhoSleepsForItIsWoken) {
  // The holder gives the processor away while it holds, so that the others run out of looks and go to sleep. A wake-up
  // that is lost leaves the test hanging.
  constexpr int kThreads = 6;
  constexpr int kRounds = 300;
  RecursiveMutex mutex;
  int holders = 0;
  int rounds = 0;
  bool alone = true;
  RunOnThreads(kThreads, [&](int) {
    for (int i = 0; i < kRounds; ++i) {
      const std::scoped_lock lock(mutex);
      alone = alone && holders == 0;
      ++holders;
      for (int pause = 0; pause < 3; ++pause) std::this_thread::yield();
      --holders;
      ++rounds;
    }
  });
  EXPECT_TRUE(alone);
  EXPECT_EQ(rounds, kThreads * kRounds);
}

TEST(RecursiveMutexThreadTest, TwoThreadsHandOverManyTimes) {
  // Each waits for the other's turn, so that nearly every lock meets a holder that is just letting go.
  constexpr int kTurns = 4000;
  RecursiveMutex mutex;
  int turn = 0;
  const auto takeTurn = [&](int me) {
    const std::scoped_lock lock(mutex);
    if (turn < kTurns && turn % 2 == me) ++turn;
    return turn < kTurns;
  };
  RunOnThreads(2, [&](int me) {
    while (takeTurn(me)) std::this_thread::yield();
  });
  EXPECT_EQ(turn, kTurns);
}

TEST(RecursiveMutexThreadTest, TryLockNeverWaits) {
  RecursiveMutex mutex;
  std::atomic<int> taken{0};
  int guarded = 0;
  RunOnThreads(4, [&](int) {
    for (int i = 0; i < 20000; ++i) {
      if (!mutex.try_lock()) continue;
      ++guarded;
      mutex.unlock();
      taken.fetch_add(1, std::memory_order_relaxed);
    }
  });
  EXPECT_EQ(guarded, taken.load());
  EXPECT_GT(guarded, 0);
}

}  // namespace
}  // namespace vak
