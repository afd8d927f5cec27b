#include "vakdtm/services/notify/Subscription.h"

#include <memory>
#include <string>

#include "vakdtm/services/notify/SubscriptionManager.h"

namespace vak {
namespace {

std::shared_ptr<Subscriber> Hold(Subscriber* subscriber, bool owned) {
  if (owned) return std::shared_ptr<Subscriber>(subscriber);
  return {std::shared_ptr<void>(), subscriber};  // looks, doesn't own
}

}  // namespace

Subscription::Subscription(int kind) : kind_(kind) {}

Subscription::~Subscription() { Unsubscribe(); }

void Subscription::SetSubscriber(Subscriber* subscriber, bool owned) {
  Unsubscribe();
  subscriber_ = Hold(subscriber, owned);
}

void Subscription::Subscribe(const std::wstring& name) {
  Unsubscribe();
  if (subscriber_ == nullptr) return;
  SubscriptionManager::Instance().Register(kind_, name, subscriber_, registration_);
}

void Subscription::Unsubscribe() { SubscriptionManager::Instance().Unregister(registration_); }

}  // namespace vak
