#include "vakdtm/services/platform/Thread.h"

#include <functional>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace vak {
namespace {

int NicenessOf(ThreadPriority priority) {
  switch (priority) {
    case ThreadPriority::kNormal:
      return 0;
    case ThreadPriority::kBelowNormal:
      return 5;
    case ThreadPriority::kLowest:
      return 19;
  }
  return 0;
}

}  // namespace

Thread::Thread(ThreadPriority priority, std::function<void()> work)
    : thread_([priority, run = std::move(work)] {
        // Where the system refuses, the work is done all the same, only less considerately. A normal thread keeps what
        // the process was started with.
        if (priority != ThreadPriority::kNormal) SetThreadPriority(priority);
        run();
      }) {}

Thread::~Thread() { Join(); }

void Thread::Join() {
  if (thread_.joinable()) thread_.join();
}

bool SetThreadPriority(ThreadPriority priority) {
  // Niceness is a thread's own on Linux, and 0 as the id means the caller.
  return setpriority(PRIO_PROCESS, 0, NicenessOf(priority)) == 0;
}

}  // namespace vak
