#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "vakdtm/repair/DtmCircularInterpolator.h"

#include "support/TestGrid.h"

namespace vak {
namespace {

using test::TestGrid;

std::unique_ptr<TestGrid> MakeStripes() {
  auto grid = std::make_unique<TestGrid>();
  for (int row = 0; row < 24; ++row) {
    for (int col = 0; col < 24; col += 3) {
      if ((row + col) % 4 == 0) continue;
      grid->Set(row, col, dVAL, -row - col * 0.5);
      grid->Set(row, col, iNUM, 1);
    }
  }
  return grid;
}

TEST(DtmCircularInterpolatorThreadTest, ClonesFillTheirPartsAtTheSameTime) {
  const std::unique_ptr<TestGrid> together = MakeStripes();
  const std::unique_ptr<TestGrid> alone = MakeStripes();
  EXPECT_TRUE(DtmCircularInterpolator(dVAL, 3).ProcessRect(alone->Access(), Page(0, 0, 24, 24)));

  DtmCircularInterpolator first(dVAL, 3);
  ASSERT_TRUE(first.Init(together->Access()));
  std::vector<std::unique_ptr<DtmProcessor>> clones;
  std::vector<DtmAccess> accesses(2, together->Access());
  std::vector<std::thread> threads;
  for (int part = 0; part < 2; ++part) clones.emplace_back(first.Clone());
  for (int part = 0; part < 2; ++part) {
    const auto place = static_cast<std::size_t>(part);
    threads.emplace_back([&, part, place] {
      EXPECT_TRUE(clones[place]->ProcessRect(accesses[place], Page(part * 12, 0, part * 12 + 12, 24)));
    });
  }
  for (std::thread& thread : threads) thread.join();
  int filled = 0;
  for (int row = 0; row < 24; ++row) {
    for (int col = 0; col < 24; ++col) {
      const double value = alone->Get(row, col);
      const double other = together->Get(row, col);
      EXPECT_EQ(IsEmptyValue(other), IsEmptyValue(value));
      if (IsEmptyValue(value)) continue;
      EXPECT_EQ(other, value) << row << ", " << col;
      filled += IsEmptyValue(alone->Get(row, col, iNUM)) ? 1 : 0;
    }
  }
  EXPECT_GT(filled, 300);
}

}  // namespace
}  // namespace vak
