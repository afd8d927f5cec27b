#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace vak {

/// The one object of a kind that an application has installed for the process. Any thread may call any operation.
template <typename T>
class Installed {
 public:
  std::shared_ptr<T> Get() const {
    const std::scoped_lock lock(mutex_);
    return object_;
  }

  /// @return the one before, so that it ends with the caller and not under the lock.
  std::shared_ptr<T> Exchange(std::shared_ptr<T> object) {
    const std::scoped_lock lock(mutex_);
    return std::exchange(object_, std::move(object));
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<T> object_;  // guarded by mutex_
};

}  // namespace vak
