#pragma once

#include <memory>
#include <string>

#include "vakdtm/services/notify/Subscriber.h"

namespace vak {

struct Registration;

/// The hub of the process that carries notifications to subscribers.
///
/// A notification has a kind and a name: kind 0 says that the file of this name has changed, kind 1 that the grid model
/// of this file name has an update rectangle. Any thread may call any operation. No lock of the hub is held while a
/// subscriber runs, so a caller may hold locks of its own and a subscriber may notify, subscribe and unsubscribe.
class SubscriptionManager {
 public:
  static SubscriptionManager& Instance();

  SubscriptionManager(const SubscriptionManager&) = delete;
  SubscriptionManager& operator=(const SubscriptionManager&) = delete;

  /// Calls, on this thread and before it returns, every subscriber to this kind and name in the order of subscribing.
  /// One that is unsubscribed before its turn isn't called, nor is one that subscribes meanwhile.
  /// @param info    may be null.
  /// @param except  is left out; null: nobody is.
  void Notify(int kind, const std::wstring& name, const NotificationInfo* info, Subscriber* except);

  /// The same with neither `info` nor `except`, later, on a thread of the hub's own. Returns at once. What is posted is
  /// delivered in the order of posting; what isn't delivered when the process ends is dropped.
  void NotifyPost(int kind, const std::wstring& name);

 private:
  friend class Subscription;
  class Hub;

  SubscriptionManager();
  ~SubscriptionManager();

  /// Puts a new registration into the hub and into `slot`.
  void Register(int kind, const std::wstring& name, const std::shared_ptr<Subscriber>& subscriber,
                std::shared_ptr<Registration>& slot);

  /// Takes what `slot` holds out of the hub, and waits as `Subscription::Unsubscribe` says.
  void Unregister(std::shared_ptr<Registration>& slot);

  std::unique_ptr<Hub> hub_;
};

}  // namespace vak
