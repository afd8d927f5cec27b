#pragma once

#include <cstdlib>
#include <string_view>

namespace vak {

/// How often a test repeats its work: `shortCount` in the run that a developer waits for, `longCount` when the
/// environment has VAKDTM_LONG=1, as `scripts/test --full` sets it. Both are the test's own, so that it stays readable
/// at the test what each run covers.
inline int LongForm(int shortCount, int longCount) {
  const char* asked = std::getenv("VAKDTM_LONG");
  return asked != nullptr && std::string_view(asked) == "1" ? longCount : shortCount;
}

/// The same where instrumented code takes several times as long for the short run: `sanitizedCount` is enough there to
/// pass through all the code, and the plain build does the counting.
inline int LongForm([[maybe_unused]] int shortCount, int longCount, [[maybe_unused]] int sanitizedCount) {
#ifdef VAKDTM_SANITIZED
  return LongForm(sanitizedCount, longCount);
#else
  return LongForm(shortCount, longCount);
#endif
}

}  // namespace vak
