#include <cstddef>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "vakdtm/frame/AtomicCounter.h"

namespace vak::test {
namespace {

TEST(AtomicCounterThreadTest, NumbersFromNoughtEachForOne) {
  constexpr int kThreads = 4;
  constexpr int kClaims = 100000;
  AtomicCounter counter;
  std::vector<std::vector<int>> claimed(kThreads);
  {
    std::vector<std::jthread> threads;
    threads.reserve(kThreads);
    for (std::vector<int>& mine : claimed) {
      threads.emplace_back([&counter, &mine] {
        for (int i = 0; i < kClaims; ++i) mine.push_back(counter.Increment());
      });
    }
  }
  std::vector<bool> given(std::size_t{kThreads} * kClaims);
  for (const std::vector<int>& mine : claimed) {
    for (const int number : mine) {
      ASSERT_TRUE(number >= 0 && number < kThreads * kClaims);
      ASSERT_FALSE(given[static_cast<std::size_t>(number)]) << number << " was given twice";
      given[static_cast<std::size_t>(number)] = true;
    }
  }
  counter.Reset();
  EXPECT_EQ(counter.Increment(), 0);
}

}  // namespace
}  // namespace vak::test
