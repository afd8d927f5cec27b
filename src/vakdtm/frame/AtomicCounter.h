#pragma once

#include <atomic>

namespace vak {

/// The number of the position claimed last by the walkers that share a rectangle; -1: none yet. Any thread may claim.
class AtomicCounter {
 public:
  AtomicCounter() = default;

  /// Claims the next. @return its number, which nobody else gets.
  int Increment() { return value_.fetch_add(1, std::memory_order_relaxed) + 1; }

  /// Not while anybody claims.
  void Reset() { value_.store(-1, std::memory_order_relaxed); }

 private:
  std::atomic<int> value_{-1};
};

}  // namespace vak
