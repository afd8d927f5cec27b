#include <chrono>
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
  BoundedQueue<std::unique_ptr<int>> queue(3);
  constexpr int kCount = 10000;
  std::thread maker([&queue] {
    for (int i = 0; i < kCount; ++i) {
      if (!queue.Push(std::make_unique<int>(i))) return;
    }
    queue.Close();
  });
  int next = 0;
  while (!queue.IsAtEnd()) {
    const std::optional<std::unique_ptr<int>> item = queue.Pop(kLong);
    if (!item) continue;
    EXPECT_EQ(**item, next++);
  }
  maker.join();
  EXPECT_EQ(next, kCount);
}

TEST(BoundedQueueThreadTest, ClosingEndsTheWaitForRoom) {
  BoundedQueue<int> queue(1);
  ASSERT_TRUE(queue.Push(1));
  bool pushed = true;
  std::thread maker([&] { pushed = queue.Push(2); });
  queue.Close();
  maker.join();
  EXPECT_FALSE(pushed);
  EXPECT_EQ(queue.Pop(kShort), 1) << "what was in it can still be taken out";
  EXPECT_TRUE(queue.IsAtEnd());
}

TEST(BoundedQueueThreadTest, ClosingEndsTheWaitForAnItem) {
  BoundedQueue<int> queue(1);
  std::thread closer([&queue] { queue.Close(); });
  EXPECT_EQ(queue.Pop(kLong), std::nullopt);
  closer.join();
}

TEST(BoundedQueueThreadTest, AWaitForAnItemHasAnEnd) {
  BoundedQueue<int> queue(1);
  EXPECT_EQ(queue.Pop(kShort), std::nullopt);
  EXPECT_FALSE(queue.IsAtEnd());
}

}  // namespace
}  // namespace vak
