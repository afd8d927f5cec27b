#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "vakdtm/services/color/ColorControl.h"

namespace vak {
namespace {

TEST(ColorControlThreadTest, IsAskedByManyWhileTheFilterChanges) {
  ColorControl& control = ColorControl::Instance();
  std::atomic<bool> done{false};
  std::vector<std::thread> askers;
  std::atomic<int> wrong{0};
  for (int i = 0; i < 3; ++i) {
    askers.emplace_back([&] {
      while (!done.load()) {
        const Color got = control.GetColor(5, false);
        if (got != 5 && got != 6) ++wrong;
      }
    });
  }
  for (int round = 0; round < 2000; ++round) {
    control.SetFilter([](Color wanted, bool) { return wanted + 1; });
    control.SetFilter({});
  }
  done.store(true);
  for (std::thread& asker : askers) asker.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace vak
