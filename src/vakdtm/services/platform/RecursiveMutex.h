#pragma once

#include <atomic>
#include <cassert>
#include <cstdint>

namespace vak {

/// A mutex that its thread may take again while it holds it; a sounding takes one. Meets the standard's Lockable, so
/// `std::scoped_lock` and `std::unique_lock` take it.
///
/// Each `lock` and each successful `try_lock` is given back by one `unlock` of the same thread. Nobody is served in
/// order: a thread that comes by may overtake those that wait. Destroy it only when no thread is inside any of its
/// operations: that another has taken it since doesn't yet say that the one before is out of `unlock`.
///
/// Uncontended it costs one atomic exchange to take and a plain store to give back. The order between "it is free" and
/// "does anybody wait?", which giving back would need a second exchange for, is paid for by those who wait: before they
/// sleep they have the system put a barrier into all threads of the process.
class RecursiveMutex {
 public:
  RecursiveMutex() = default;
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;

  void lock() {
    const std::uintptr_t self = Self();
    if (!TakeOrDeepen(self)) WaitUntilTaken(self);
  }

  /// @return false when another thread holds it.
  bool try_lock() { return TakeOrDeepen(Self()); }

  /// Requires: this thread holds it.
  void unlock() {
    assert(owner_.load(std::memory_order_relaxed) == Self());
    if (depth_ > 0) {
      --depth_;
      return;
    }
    owner_.store(kNobody, std::memory_order_release);
    std::atomic_signal_fence(std::memory_order_seq_cst);  // the compiler keeps the order; see above for the processor
    if (waiters_.load(std::memory_order_relaxed) != 0) WakeOne();
  }

  /// Gives it back however often this thread has taken it, so that others get on while it waits for them.
  /// Requires: this thread holds it. @return what `RelockAll` wants, to take it as often again.
  std::uint32_t UnlockAll() {
    const std::uint32_t depth = depth_;
    depth_ = 0;
    unlock();
    return depth;
  }
  void RelockAll(std::uint32_t depth) {
    lock();
    depth_ = depth;
  }

 private:
  static constexpr std::uintptr_t kNobody = 0;

  /// Any address that no other living thread has names the thread, and costs no call.
  static std::uintptr_t Self() {
    static constinit thread_local char own = 0;
    return reinterpret_cast<std::uintptr_t>(&own);
  }

  bool TakeOrDeepen(std::uintptr_t self) {
    // Only its owner can find its own address here, however stale the value: it alone puts it in and takes it out.
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++depth_;
      return true;
    }
    return Take(self);
  }

  bool Take(std::uintptr_t self) {
    std::uintptr_t expected = kNobody;
    return owner_.compare_exchange_strong(expected, self, std::memory_order_acquire, std::memory_order_relaxed);
  }

  void WaitUntilTaken(std::uintptr_t self);
  void WakeOne();

  std::atomic<std::uintptr_t> owner_{kNobody};
  std::atomic<std::uint32_t> waiters_{0};
  std::uint32_t depth_ = 0;  // how often the owner has taken it beyond the first time; the owner's alone
};

static_assert(sizeof(RecursiveMutex) <= 16, "there is one in every area");

}  // namespace vak
