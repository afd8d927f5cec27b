#include "vakdtm/services/platform/RecursiveMutex.h"

#include <atomic>
#include <bit>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vak {
namespace {

static_assert(sizeof(std::atomic<std::uintptr_t>) == sizeof(std::uintptr_t), "the system looks at the word itself");

/// The system watches 32 bits of the owner. Two threads whose addresses differ only in the others would be taken for
/// one, which costs a sleeper nothing but a longer sleep: whoever gives the mutex back wakes one.
void* WatchedPart(std::atomic<std::uintptr_t>& owner) {
  constexpr bool kLowLast = std::endian::native == std::endian::big && sizeof(std::uintptr_t) == 8;
  return reinterpret_cast<std::uint32_t*>(&owner) + (kLowLast ? 1 : 0);
}

bool Registered() {
  static const bool registered = syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
  return registered;
}

/// Puts a full barrier into every running thread of the process: what each has written before is seen here afterwards,
/// and each sees from then on what was written here before. @return false where the system doesn't offer that.
bool BarrierInAllThreads() {
  return Registered() && syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
}

}  // namespace

void RecursiveMutex::WaitUntilTaken(std::uintptr_t self) {
  // Holders keep it for the length of a cell's update, less than going to sleep takes: look a few times first.
  for (int look = 0; look < 100; ++look) {
    if (owner_.load(std::memory_order_relaxed) == kNobody && Take(self)) return;
  }
  waiters_.fetch_add(1, std::memory_order_relaxed);
  // Behind the barrier, whoever gives the mutex back either has done so visibly, and it is taken below, or will see
  // that somebody waits. Without one a wake-up can be missed, so the sleep is a short one then.
  constexpr timespec kShort{0, 1000000};
  const timespec* limit = BarrierInAllThreads() ? nullptr : &kShort;
  while (!Take(self)) {
    const std::uintptr_t holder = owner_.load(std::memory_order_relaxed);
    if (holder == kNobody) continue;
    syscall(SYS_futex, WatchedPart(owner_), FUTEX_WAIT_PRIVATE, static_cast<std::uint32_t>(holder), limit, nullptr, 0);
  }
  waiters_.fetch_sub(1, std::memory_order_relaxed);
}

void RecursiveMutex::WakeOne() { syscall(SYS_futex, WatchedPart(owner_), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0); }

}  // namespace vak
