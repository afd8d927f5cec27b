#include "StopSignals.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <signal.h>
#include <time.h>

#include "DiscardOnKill.h"

namespace vak {
namespace {

std::atomic<bool> stopRequested{false};
std::atomic<std::int64_t> stopRequestedAt{0};  // milliseconds of the monotonic clock
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free,
              "a signal handler may write them");

// One wish to stop can come as two signals at once: to the process and, by its group, once more.
constexpr std::int64_t kSameWishMilliseconds = 300;

std::int64_t Milliseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

extern "C" void OnStopSignal(int number) {
  const int savedError = errno;
  const std::int64_t now = Milliseconds();
  if (!stopRequested.load(std::memory_order_relaxed)) {
    stopRequestedAt.store(now, std::memory_order_relaxed);
    stopRequested.store(true, std::memory_order_relaxed);
  } else if (now - stopRequestedAt.load(std::memory_order_relaxed) > kSameWishMilliseconds) {
    DiscardNamed();
    // Its usual, deadly effect, as soon as this handler has returned.
    signal(number, SIG_DFL);
    raise(number);
  }
  errno = savedError;
}

// For signals that come with a failed write, whose answer says the same. Unlike SIG_IGN, a handler isn't handed down to
// the programs that this one starts.
extern "C" void OnFailedWrite(int /*signal*/) {}

void Catch(int number, void (*handler)(int), int flags) {
  struct sigaction action = {};
  if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) return;
  action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

}  // namespace

void CatchStopSignals() {
  Catch(SIGINT, OnStopSignal, 0);
  Catch(SIGTERM, OnStopSignal, 0);
  Catch(SIGPIPE, OnFailedWrite, SA_RESTART);
  Catch(SIGXFSZ, OnFailedWrite, SA_RESTART);
}

bool StopRequested() { return stopRequested.load(std::memory_order_relaxed); }

}  // namespace vak
