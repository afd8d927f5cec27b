// Counts this program's allocations, thread by thread.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <vector>

#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "support/TestGrid.h"

namespace {

constinit thread_local std::uint64_t allocations = 0;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  void* const memory = std::malloc(size > 0 ? size : 1);
  if (!memory) throw std::bad_alloc();
  return memory;
}

// With it, whatever this program's own form of deletion meets came from its own form of allocation.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  ++allocations;
  return std::malloc(size > 0 ? size : 1);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace vak {
namespace {

TEST(DtmPolyClipper, SecondWalkAllocatesNothing) {
  test::TestGrid grid({.cellSize = 1.0, .areaSize = 16, .blockIds = {dVAL}});
  std::vector<Point> ring;
  for (int i = 0; i < 500; ++i) {
    const double radius = i % 2 == 0 ? 60 : 50;
    ring.push_back({radius * std::cos(i * 0.01256637), radius * std::sin(i * 0.01256637)});
  }
  PolyClipLine polygon;
  polygon.AddRing(ring, false);
  polygon.AddRing({{-5, -5}, {5, -5}, {0, 5}}, true);
  for (const bool centrePoint : {false, true}) {
    DtmPolyClipper clipper(polygon, centrePoint, false);
    const auto walk = [&](bool areas) {
      double sum = 0;
      if (!clipper.Init(grid.Access())) return sum;
      for (int area = 0; area < 64; ++area) {
        const int row = (area / 8 - 4) * 16;
        const int col = (area % 8 - 4) * 16;
        double weight = 256;
        if (areas) clipper.ProcessArea(row, col, weight);
        for (int cell = 0; weight > 0 && cell < 256; ++cell) {
          double one = 1;
          clipper.ProcessCell(row + cell / 16, col + cell % 16, one);
          sum += one;
        }
      }
      return sum;
    };
    const std::uint64_t atFirst = allocations;
    const double sum = walk(true) + walk(false);
    const std::uint64_t before = allocations;
    EXPECT_GT(before, atFirst) << "lists grow at first, so they are counted";
    EXPECT_EQ(walk(true) + walk(false), sum);
    EXPECT_EQ(allocations, before);
    EXPECT_GT(sum, 1000);
  }
}

}  // namespace
}  // namespace vak
