#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace vak {

/// A few things on their way from one thread to another: who makes them waits while as many lie there as it takes, or
/// while they weigh as much. What was taken out weighs until its taker asks for the next. For one taker.
template <typename T>
class BoundedQueue {
 public:
  /// @param weight  in whatever `Push` is told it in.
  BoundedQueue(std::size_t limit, std::size_t weight) : limit_(limit), weightLimit_(weight) {}

  /// Puts something in, waiting for room; one that is too heavy by itself, until nothing else is on its way.
  /// @return false, with nothing put in, once it is closed.
  bool Push(T&& item, std::size_t weight) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this, weight] { return closed_ || HasRoomFor(weight); });
    if (closed_) return false;
    items_.push_back({std::move(item), weight});
    weight_ += weight;
    changed_.notify_all();
    return true;
  }

  /// Takes the oldest out, waiting for one up to `limit`. @return nothing when there is none by then.
  std::optional<T> Pop(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    weight_ -= std::exchange(takenWeight_, 0);
    changed_.notify_all();
    changed_.wait_for(lock, limit, [this] { return closed_ || !items_.empty(); });
    if (items_.empty()) return std::nullopt;
    std::optional<T> item(std::move(items_.front().item));
    takenWeight_ = items_.front().weight;
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
  struct Entry {
    T item;
    std::size_t weight;
  };

  bool HasRoomFor(std::size_t weight) const {
    return items_.size() < limit_ && (weight_ == 0 || (weight <= weightLimit_ && weight_ <= weightLimit_ - weight));
  }

  const std::size_t limit_;
  const std::size_t weightLimit_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Entry> items_;  // guarded by mutex_, as are the next
  std::size_t weight_ = 0;   // of those, and of what was taken last
  std::size_t takenWeight_ = 0;
  bool closed_ = false;
};

}  // namespace vak
