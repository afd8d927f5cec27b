#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace vak {

/// An event that one waiter takes: a `Set` lets one `Wait` through, at once or later, and is used up by it. Setting
/// what is set already changes nothing. At first it is clear. Any thread may call any operation.
class Event {
 public:
  void Set() {
    const std::scoped_lock lock(mutex_);
    set_ = true;
    changed_.notify_one();
  }

  /// Waits for the event without limit.
  void Wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return set_; });
    set_ = false;
  }

  /// Waits at most this long, by a clock that nobody sets. @return true when it took the event, false on time-out.
  bool Wait(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, limit, [this] { return set_; })) return false;
    set_ = false;
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;  // guarded by mutex_
};

}  // namespace vak
