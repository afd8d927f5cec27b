#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <thread>

#include "BoundedQueue.h"

namespace vak {
namespace {

constexpr std::chrono::milliseconds kShort(1);
constexpr std::chrono::minutes kLong(1);

TEST(BoundedQueueThreadTest, GivesEverythingInOrderAndNeverHoldsMoreThanItTakes) {
  const struct {
    const char* name;
    std::size_t limit, weightLimit, weight;
    int first;   // so many go in while nothing was taken
    int behind;  // so many are ahead of what was taken later
  } cases[] = {{"by number", 3, 1000, 1, 3, 3},
               {"by number, without weight", 3, 0, 0, 3, 3},
               {"by weight, with what was taken last", 100, 10, 4, 2, 1},
               {"to the last bit of it", 100, 8, 4, 2, 1},
               {"one that is too heavy goes alone", 100, 10, 11, 1, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    BoundedQueue<std::unique_ptr<int>> queue(c.limit, c.weightLimit);
    constexpr int kCount = 2000;
    std::atomic<int> begun = 0;
    std::atomic<int> pushed = 0;
    std::thread maker([&] {
      for (int i = 0; i < kCount; ++i) {
        ++begun;
        if (!queue.Push(std::make_unique<int>(i), c.weight)) return;
        ++pushed;
      }
      queue.Close();
    });
    int taken = 0;
    int most = 0;
    while (!queue.IsAtEnd()) {
      const int allowed = std::max(c.first, taken + c.behind);
      // The maker stands before the one that has to wait.
      while (begun < std::min(allowed + 1, kCount)) std::this_thread::yield();
      most = std::max(most, pushed - allowed);
      const std::optional<std::unique_ptr<int>> item = queue.Pop(kLong);
      if (!item) continue;
      EXPECT_EQ(**item, taken);
      ++taken;
    }
    maker.join();
    EXPECT_EQ(taken, kCount);
    EXPECT_LE(most, 0) << "that many more than it takes";
  }
}

TEST(BoundedQueueThreadTest, ClosingEndsTheWaitForRoom) {
  BoundedQueue<int> queue(1, 10);
  ASSERT_TRUE(queue.Push(1, 1));
  bool pushed = true;
  std::thread maker([&] { pushed = queue.Push(2, 1); });
  queue.Close();
  maker.join();
  EXPECT_FALSE(pushed);
  EXPECT_EQ(queue.Pop(kShort), 1) << "what was in it can still be taken out";
  EXPECT_TRUE(queue.IsAtEnd());
}

TEST(BoundedQueueThreadTest, ClosingEndsTheWaitForAnItem) {
  BoundedQueue<int> queue(1, 10);
  std::thread closer([&queue] { queue.Close(); });
  EXPECT_EQ(queue.Pop(kLong), std::nullopt);
  closer.join();
}

TEST(BoundedQueueThreadTest, AWaitForAnItemHasAnEnd) {
  BoundedQueue<int> queue(1, 10);
  EXPECT_EQ(queue.Pop(kShort), std::nullopt);
  EXPECT_FALSE(queue.IsAtEnd());
}

}  // namespace
}  // namespace vak
