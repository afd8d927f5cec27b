#pragma once

#include <memory>
#include <string>

#include "vakdtm/services/notify/Subscriber.h"

namespace vak {

struct Registration;

/// Subscribes one subscriber to the notifications of one kind about one name.
///
/// Belongs to one thread at a time, but any thread, and any subscriber from within its call, may `Unsubscribe`.
class Subscription {
 public:
  explicit Subscription(int kind);

  /// Unsubscribes.
  ~Subscription();

  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  /// Sets who is called, unsubscribing the one before.
  /// @param owned  true: deleted when it is replaced or this subscription goes, after its last call. Null: nobody.
  void SetSubscriber(Subscriber* subscriber, bool owned);

  /// Begins to receive the notifications about `name`, compared letter by letter, and ends those about a name before.
  /// Does nothing without a subscriber.
  void Subscribe(const std::wstring& name);

  /// Ends receiving. When it returns, the subscriber is not being called and won't be again, so that it may be
  /// destroyed.
  ///
  /// It waits for calls on other threads to end; the caller holds no lock that the subscriber takes. Called from within
  /// the subscriber itself, it doesn't wait for that very call. Two subscribers that unsubscribe each other from within
  /// calls at the same moment can't both wait: the second returns at once, while the first is still inside its call.
  void Unsubscribe();

 private:
  const int kind_;
  std::shared_ptr<Subscriber> subscriber_;
  std::shared_ptr<Registration> registration_;  // guarded by the hub's lock
};

}  // namespace vak
