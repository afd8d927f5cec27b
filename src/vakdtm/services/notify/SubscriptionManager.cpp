#include "vakdtm/services/notify/SubscriptionManager.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vak {

using Topic = std::pair<int, std::wstring>;

/// A subscriber's place in the hub. Topic and subscriber never change, the rest is guarded by the hub's lock.
struct Registration {
  Registration(Topic about, const std::shared_ptr<Subscriber>& who)
      : topic(std::move(about)), subscriber(who.get()), owner(who) {}

  const Topic topic;
  Subscriber* const subscriber;
  std::shared_ptr<Subscriber> owner;  // calls in progress keep it alive
  bool active = true;
  std::vector<std::thread::id> callers;  // the threads that are inside the subscriber, one entry a call
};

class SubscriptionManager::Hub {
 public:
  using Registrations = std::vector<std::shared_ptr<Registration>>;

  void Register(Topic topic, const std::shared_ptr<Subscriber>& subscriber, std::shared_ptr<Registration>& slot) {
    const auto made = std::make_shared<Registration>(std::move(topic), subscriber);
    const std::scoped_lock lock(mutex_);
    topics_[made->topic].push_back(made);
    slot = made;
  }

  void Unregister(std::shared_ptr<Registration>& slot) {
    // Both outlive the lock, since the subscriber may end with them.
    std::shared_ptr<Registration> gone;
    std::shared_ptr<Subscriber> owner;
    std::unique_lock lock(mutex_);
    gone = std::exchange(slot, nullptr);
    if (!gone) return;
    gone->active = false;
    const auto topic = topics_.find(gone->topic);
    std::erase(topic->second, gone);
    if (topic->second.empty()) topics_.erase(topic);
    WaitForCallsElsewhere(lock, *gone);
    if (gone->callers.empty()) owner = std::move(gone->owner);
  }

  void Notify(const Topic& topic, const NotificationInfo* info, const Subscriber* except) {
    for (const auto& registration : Subscribed(topic)) {
      if (registration->subscriber != except) Call(*registration, info);
    }
  }

  void Post(Topic topic) {
    const std::scoped_lock lock(mutex_);
    posted_.push_back(std::move(topic));
    // The hub lives as long as the process, and so may the thread.
    if (!std::exchange(delivering_, true)) std::thread([this] { DeliverPosted(); }).detach();
    changed_.notify_all();
  }

 private:
  /// Notes for its lifetime that this thread is inside a subscriber. Converts to false when it may not go in any more.
  class Visit {
   public:
    Visit(Hub& hub, Registration& registration) : hub_(hub), registration_(registration) {
      const std::scoped_lock lock(hub_.mutex_);
      inside_ = registration_.active;
      if (inside_) registration_.callers.push_back(std::this_thread::get_id());
    }

    ~Visit() {
      if (!inside_) return;
      const std::scoped_lock lock(hub_.mutex_);
      auto& callers = registration_.callers;
      callers.erase(std::find(callers.begin(), callers.end(), std::this_thread::get_id()));
      hub_.changed_.notify_all();
    }

    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    explicit operator bool() const { return inside_; }

   private:
    Hub& hub_;
    Registration& registration_;
    bool inside_;
  };

  Registrations Subscribed(const Topic& topic) {
    const std::scoped_lock lock(mutex_);
    const auto found = topics_.find(topic);
    return found == topics_.end() ? Registrations() : found->second;
  }

  void Call(Registration& registration, const NotificationInfo* info) {
    const Visit visit(*this, registration);
    if (visit) registration.subscriber->OnNotify(registration.topic.first, registration.topic.second, info);
  }

  void WaitForCallsElsewhere(std::unique_lock<std::mutex>& lock, const Registration& registration) {
    const std::thread::id self = std::this_thread::get_id();
    const auto elsewhere = [self, &registration] {
      return std::any_of(registration.callers.begin(), registration.callers.end(),
                         [self](std::thread::id caller) { return caller != self; });
    };
    if (!elsewhere() || WaitsForThread(registration, self)) return;
    waiting_[self] = &registration;
    changed_.wait(lock, [&elsewhere] { return !elsewhere(); });
    waiting_.erase(self);
  }

  /// @return true when a thread inside `registration` waits, perhaps through others, for `thread` to leave a
  /// subscriber: if `thread` waited for it in turn, neither would ever go on. Nobody waits in a ring, so this ends.
  /// Requires: mutex_ held.
  bool WaitsForThread(const Registration& registration, std::thread::id thread) const {
    return std::any_of(registration.callers.begin(), registration.callers.end(),
                       [this, thread](std::thread::id caller) {
                         const auto waiting = waiting_.find(caller);
                         if (caller == thread || waiting == waiting_.end()) return false;
                         const auto& callers = waiting->second->callers;
                         return std::find(callers.begin(), callers.end(), thread) != callers.end() ||
                                WaitsForThread(*waiting->second, thread);
                       });
  }

  void DeliverPosted() {
    for (;;) Notify(NextPosted(), nullptr, nullptr);
  }

  Topic NextPosted() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !posted_.empty(); });
    Topic next = std::move(posted_.front());
    posted_.pop_front();
    return next;
  }

  std::mutex mutex_;
  std::condition_variable changed_;                         // something was posted, or a call has ended
  std::map<Topic, Registrations> topics_;                   // guarded by mutex_
  std::map<std::thread::id, const Registration*> waiting_;  // guarded by mutex_: which thread waits for whose calls
  std::deque<Topic> posted_;                                // guarded by mutex_
  bool delivering_ = false;                                 // guarded by mutex_
};

SubscriptionManager::SubscriptionManager() : hub_(std::make_unique<Hub>()) {}

SubscriptionManager::~SubscriptionManager() = default;

SubscriptionManager& SubscriptionManager::Instance() {
  // Never destroyed: objects that end with the process may still unsubscribe, and the delivering thread still waits.
  static SubscriptionManager& manager = *new SubscriptionManager;
  return manager;
}

void SubscriptionManager::Notify(int kind, const std::wstring& name, const NotificationInfo* info, Subscriber* except) {
  hub_->Notify({kind, name}, info, except);
}

void SubscriptionManager::NotifyPost(int kind, const std::wstring& name) { hub_->Post({kind, name}); }

void SubscriptionManager::Register(int kind, const std::wstring& name, const std::shared_ptr<Subscriber>& subscriber,
                                   std::shared_ptr<Registration>& slot) {
  hub_->Register({kind, name}, subscriber, slot);
}

void SubscriptionManager::Unregister(std::shared_ptr<Registration>& slot) { hub_->Unregister(slot); }

}  // namespace vak
