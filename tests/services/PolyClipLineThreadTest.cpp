#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "vakdtm/services/geometry/PolyClipLine.h"

namespace vak {
namespace {

// What is worked out at the first question is worked out once, whoever asks, in copies too.
TEST(PolyClipLineThreadTest, ManyThreadsMayAskOnePolygonForTheFirstTime) {
  for (int round = 0; round < 50; ++round) {
    PolyClipLine polygon;
    polygon.AddRing({{0, 0}, {10, 0}, {10, 10}, {0, 10}}, false);
    polygon.AddRing({{2, 2}, {4, 2}, {4, 4}, {2, 4}}, true);
    std::atomic<int> right{0};
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&polygon, &right, i] {
        const PolyClipLine copy = polygon;
        const PolyClipLine& asked = i % 2 == 0 ? polygon : copy;
        const bool inside = asked.IsPointInPoly({1, 1}) && !asked.IsPointInPoly({3, 3});
        if (inside && asked.IsValid() && asked.GetArea() == 96) ++right;
      });
    }
    threads.clear();
    ASSERT_EQ(right, 4);
  }
}

// A copy that is asked and dropped on its thread while the owner changes its own.
TEST(PolyClipLineThreadTest, OwnerMayChangeItsOwnWhileACopyIsDropped) {
  for (int round = 0; round < 200; ++round) {
    PolyClipLine polygon;
    polygon.AddRing({{0, 0}, {4, 0}, {4, 4}}, false);
    std::atomic<bool> right{false};
    std::jthread thread([copy = PolyClipLine(polygon), &right]() mutable {
      right = copy.IsPointInPoly({2, 1}) && copy.GetArea() == 8;
      copy.Clear();
    });
    // As many changes as are under way while the copy goes.
    for (int i = 0; i < 20; ++i) {
      polygon.AddElem({0, 4.0 + i});
      ASSERT_TRUE(polygon.IsPointInPoly({1, 3}));
    }
    thread.join();
    ASSERT_TRUE(right);
  }
}

}  // namespace
}  // namespace vak
