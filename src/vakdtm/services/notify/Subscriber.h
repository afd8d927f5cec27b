#pragma once

#include <string>

namespace vak {

/// What a notification can carry; derived by whoever has something to tell.
class NotificationInfo {
 public:
  NotificationInfo() = default;
  NotificationInfo(const NotificationInfo&) = default;
  NotificationInfo& operator=(const NotificationInfo&) = default;
  virtual ~NotificationInfo() = default;
};

/// Receives the notifications of a `Subscription`.
class Subscriber {
 public:
  virtual ~Subscriber() = default;

  /// Called on the thread of whoever notifies, with the locks that it holds, perhaps on several threads at once.
  /// @param info  null when there is nothing to carry. Read during the call only.
  virtual void OnNotify(int kind, const std::wstring& name, const NotificationInfo* info) = 0;

 protected:
  Subscriber() = default;
  Subscriber(const Subscriber&) = default;
  Subscriber& operator=(const Subscriber&) = default;
};

/// Calls a member function without arguments for every notification. The object isn't owned.
template <typename T>
class MemFunNoInfoSubscriber final : public Subscriber {
 public:
  MemFunNoInfoSubscriber(T* object, void (T::*function)()) : object_(object), function_(function) {}

  void OnNotify(int /*kind*/, const std::wstring& /*name*/, const NotificationInfo* /*info*/) override {
    (object_->*function_)();
  }

 private:
  T* object_;
  void (T::*function_)();
};

}  // namespace vak
