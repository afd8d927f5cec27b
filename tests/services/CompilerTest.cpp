#include <gtest/gtest.h>

namespace vak {
namespace {

struct Place {
  double x = 0;
  double y = 0;
};

/// Where a value lies that is kept in single width beside the middle of its cell, unless that is beyond a limit.
///
/// Two conversions side by side behind a condition: g++ 12.2 makes one operation of the pair at -O2, and loses the
/// narrowing.
bool Find(const double* offsets, const bool* known, const Place& middle, const Place* lowest, Place& found) {
  const bool both = known[0] && known[1];
  const double x = middle.x + (both ? static_cast<double>(static_cast<float>(offsets[0])) : 0.0);
  const double y = middle.y + (both ? static_cast<double>(static_cast<float>(offsets[1])) : 0.0);
  if (both && lowest != nullptr && !(x >= lowest->x && y >= lowest->y)) return false;
  found.x = x;
  found.y = y;
  return true;
}

TEST(Compiler, NarrowsEachOfTwoNeighboursBehindACondition) {
  const double offsets[] = {1.11, 1.59};
  const bool known[] = {true, true};
  // Called by a pointer that may have changed: the function is compiled as it stands, for any arguments.
  const auto volatile find = &Find;
  Place found;
  ASSERT_TRUE(find(offsets, known, {-4.5, -10.5}, nullptr, found));
  EXPECT_EQ(found.x, -3.3899999856948853);
  EXPECT_EQ(found.y, -8.9099999666213989);
}

}  // namespace
}  // namespace vak
