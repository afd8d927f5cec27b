// Counts this program's allocations, thread by thread.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

#include "vakdtm/store/DtmAccess.h"

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

namespace vak::test {
namespace {

TEST(DtmAccess, SoundingsInOneAreaAllocateNothing) {
  TestGrid grid({.cellSize = 1.0,
                 .areaSize = 8,
                 .blockIds = {dVAL, iNUM, dSDV, tTIM, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX, dTVU, dTHU, uFCT}});
  const float uncertainty = 0.5F;
  const auto sound = [&](int i) {
    return grid.Access().InsertValue(i % 8 + 0.25, i / 8 % 8 + 0.5, i % 11, i, &uncertainty, &uncertainty, i);
  };
  const std::uint64_t atFirst = allocations;
  ASSERT_TRUE(sound(0));
  const std::uint64_t before = allocations;
  EXPECT_GT(before, atFirst) << "an area takes memory, so they are counted";
  bool allTaken = true;
  for (int i = 1; i < 1000; ++i) allTaken = allTaken && sound(i);
  EXPECT_EQ(allocations, before);
  EXPECT_TRUE(allTaken);
}

}  // namespace
}  // namespace vak::test
