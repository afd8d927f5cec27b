#pragma once

#include <cstdint>
#include <gtest/gtest.h>

#include "support/LongForm.h"

namespace vak {

/// The seed of a test's random choices: the same in every short run, so that a change is judged by what it changes, and
/// another each time in the long form, which looks for what no run has met yet. `--gtest_random_seed` rules over both.
inline std::uint32_t RandomSeed() {
  constexpr int kShortForm = 1;
  const bool isGiven = GTEST_FLAG_GET(random_seed) != 0;
  const int own = testing::UnitTest::GetInstance()->random_seed();
  return static_cast<std::uint32_t>(isGiven ? own : LongForm(kShortForm, own));
}

}  // namespace vak
