#pragma once

#include <functional>
#include <thread>

namespace vak {

/// How a thread stands against others when there aren't processors for all.
///
/// `kLowest` still gets its share, small as it is: the thread may hold locks that others wait for, so it must not be
/// one that runs in idle time only.
enum class ThreadPriority { kNormal, kBelowNormal, kLowest };

/// A thread with a priority, joined by its destructor.
class Thread {
 public:
  /// Starts `work` on a new thread. Throws `std::system_error` when there is none to be had. An exception out of `work`
  /// ends the process.
  Thread(ThreadPriority priority, std::function<void()> work);

  /// Waits for the thread to end.
  ~Thread();

  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Waits for the thread to end; at once when it has been joined before. Not from the thread itself.
  void Join();

  /// Whether the caller is this thread.
  bool IsCurrent() const { return thread_.get_id() == std::this_thread::get_id(); }

 private:
  std::thread thread_;
};

/// Sets the calling thread's priority. A thread without privileges can go down but not up again.
/// @return false when the system refused.
bool SetThreadPriority(ThreadPriority priority);

}  // namespace vak
