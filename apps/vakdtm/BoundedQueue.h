#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace vak {

/// A few things on their way from one thread to another: who makes them waits while as many lie there as it takes.
template <typename T>
class BoundedQueue {
 public:
  explicit BoundedQueue(std::size_t limit) : limit_(limit) {}

  /// Puts something in, waiting for room. @return false, with nothing put in, once it is closed.
  bool Push(T&& item) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return closed_ || items_.size() < limit_; });
    if (closed_) return false;
    items_.push_back(std::move(item));
    changed_.notify_all();
    return true;
  }

  /// Takes the oldest out, waiting for one up to `limit`. @return nothing when there is none by then.
  std::optional<T> Pop(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [this] { return closed_ || !items_.empty(); });
    if (items_.empty()) return std::nullopt;
    std::optional<T> item(std::move(items_.front()));
    items_.pop_front();
    changed_.notify_all();
    return item;
  }

  /// Lets nothing more in and ends all waiting; what is in it can still be taken out.
  void Close() {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
    changed_.notify_all();
  }

  /// Whether it is closed and all was taken out.
  bool IsAtEnd() {
    const std::scoped_lock lock(mutex_);
    return closed_ && items_.empty();
  }

 private:
  const std::size_t limit_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<T> items_;  // guarded by mutex_, as is the next
  bool closed_ = false;
};

}  // namespace vak
