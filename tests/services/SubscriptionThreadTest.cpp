#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/services/notify/SubscriptionManager.h"
#include "vakdtm/services/platform/Event.h"

namespace vak {
namespace {

class Listener : public Subscriber {
 public:
  explicit Listener(std::function<void()> work = [] {}) : work_(std::move(work)) {}

  void OnNotify(int kind, const std::wstring& name, const NotificationInfo* info) override {
    {
      const std::scoped_lock lock(mutex_);
      kind_ = kind;
      name_ = name;
      info_ = info;
    }
    work_();
    ++calls;
  }

  std::atomic<int> calls{0};
  int kind_ = -1;
  std::wstring name_;
  const NotificationInfo* info_ = nullptr;

 private:
  std::mutex mutex_;  // several threads may notify at once
  std::function<void()> work_;
};

/// A listener with its subscription, as a view has them.
struct View {
  explicit View(
      std::function<void()> work = [] {}, int kind = 1, const std::wstring& name = L"a.dtm")
      : listener(std::move(work)), subscription(kind) {
    subscription.SetSubscriber(&listener, false);
    subscription.Subscribe(name);
  }

  Listener listener;
  Subscription subscription;
};

void Notify(int kind = 1, const std::wstring& name = L"a.dtm", const NotificationInfo* info = nullptr,
            Subscriber* except = nullptr) {
  SubscriptionManager::Instance().Notify(kind, name, info, except);
}

TEST(SubscriptionThreadTest, OnlyTheSameKindAndNameAreCalled) {
  const View same;
  const View otherKind([] {}, 0);
  const View otherName([] {}, 1, L"A.dtm");
  const NotificationInfo info;
  Notify(1, L"a.dtm", &info);
  EXPECT_EQ(same.listener.calls, 1);
  EXPECT_EQ(same.listener.kind_, 1);
  EXPECT_EQ(same.listener.name_, L"a.dtm");
  EXPECT_EQ(same.listener.info_, &info);
  EXPECT_EQ(otherKind.listener.calls, 0);
  EXPECT_EQ(otherName.listener.calls, 0);
}

TEST(SubscriptionThreadTest, ExceptIsLeftOut) {
  View first;
  View second;
  Notify(1, L"a.dtm", nullptr, &first.listener);
  EXPECT_EQ(first.listener.calls, 0);
  EXPECT_EQ(second.listener.calls, 1);
}

TEST(SubscriptionThreadTest, CallsComeInTheOrderOfSubscribing) {
  std::string order;
  const View a([&order] { order += 'a'; });
  const View b([&order] { order += 'b'; });
  const View c([&order] { order += 'c'; });
  Notify();
  EXPECT_EQ(order, "abc");
}

TEST(SubscriptionThreadTest, UnsubscribedOrMovedToAnotherNameIsNotCalled) {
  View view;
  view.subscription.Unsubscribe();
  view.subscription.Unsubscribe();
  Notify();
  EXPECT_EQ(view.listener.calls, 0);
  view.subscription.Subscribe(L"a.dtm");
  view.subscription.Subscribe(L"b.dtm");
  Notify();
  EXPECT_EQ(view.listener.calls, 0);
  Notify(1, L"b.dtm");
  EXPECT_EQ(view.listener.calls, 1);
}

TEST(SubscriptionThreadTest, NobodySubscribesNothing) {
  Subscription subscription(1);
  subscription.Subscribe(L"a.dtm");
  Notify();
  subscription.SetSubscriber(nullptr, false);
  subscription.Subscribe(L"a.dtm");
  Notify();
}

class Counted : public Listener {
 public:
  explicit Counted(int& alive) : alive_(alive) { ++alive_; }
  ~Counted() override { --alive_; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  int& alive_;
};

TEST(SubscriptionThreadTest, OwnedSubscriberEndsWhenReplacedAndWithTheSubscription) {
  int alive = 0;
  {
    Subscription subscription(1);
    subscription.SetSubscriber(std::make_unique<Counted>(alive).release(), true);
    subscription.Subscribe(L"a.dtm");
    subscription.SetSubscriber(std::make_unique<Counted>(alive).release(), true);
    EXPECT_EQ(alive, 1);
    subscription.Subscribe(L"a.dtm");
    Notify();
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);
}

TEST(SubscriptionThreadTest, MemberFunctionIsCalledForEachNotification) {
  struct Model {
    void OnFileModified() { ++modified; }
    int modified = 0;
  } model;
  Subscription subscription(0);
  subscription.SetSubscriber(std::make_unique<MemFunNoInfoSubscriber<Model>>(&model, &Model::OnFileModified).release(),
                             true);
  subscription.Subscribe(L"a.dtm");
  Notify(0);
  Notify(0);
  EXPECT_EQ(model.modified, 2);
}

TEST(SubscriptionThreadTest, SubscriberMayEndItselfAndOthersWithinItsCall) {
  std::unique_ptr<View> victim;
  std::unique_ptr<View> suicide;
  suicide = std::make_unique<View>([&] {
    suicide->subscription.Unsubscribe();
    victim.reset();
  });
  victim = std::make_unique<View>([] { FAIL() << "called after its end"; });
  const View last;
  Notify();
  Notify();
  EXPECT_EQ(suicide->listener.calls, 1);
  EXPECT_EQ(last.listener.calls, 2);
}

TEST(SubscriptionThreadTest, SubscriberMayNotifyAndSubscribeWithinItsCall) {
  const View inner([] {}, 2);
  std::unique_ptr<View> later;
  const View outer([&] {
    Notify(2);
    if (!later) later = std::make_unique<View>();
  });
  Notify();
  EXPECT_EQ(inner.listener.calls, 1);
  EXPECT_EQ(later->listener.calls, 0);
  Notify();
  EXPECT_EQ(later->listener.calls, 1);
}

TEST(SubscriptionThreadTest, CallerMayHoldALockThatTheSubscriberTakesAgain) {
  std::recursive_mutex rectLock;
  const View view([&rectLock] { const std::scoped_lock lock(rectLock); });
  const std::scoped_lock lock(rectLock);
  Notify();
  EXPECT_EQ(view.listener.calls, 1);
}

TEST(SubscriptionThreadTest, DestructionWaitsForTheCallInAnotherThread) {
  Event inside;
  std::atomic<bool> left{false};
  std::atomic<bool> mayLeave{false};
  auto view = std::make_unique<View>([&] {
    inside.Set();
    while (!mayLeave) std::this_thread::yield();
    left = true;
  });
  std::thread notifier([] { Notify(); });
  inside.Wait();
  std::thread releaser([&mayLeave] { mayLeave = true; });
  view.reset();
  EXPECT_TRUE(left);
  notifier.join();
  releaser.join();
}

TEST(SubscriptionThreadTest, TwoThatEndEachOtherDoNotWaitForEver) {
  Event firstInside;
  Event secondInside;
  std::unique_ptr<View> first;
  std::unique_ptr<View> second;
  first = std::make_unique<View>(
      [&] {
        firstInside.Set();
        secondInside.Wait();
        second->subscription.Unsubscribe();
      },
      1, L"first");
  second = std::make_unique<View>(
      [&] {
        secondInside.Set();
        firstInside.Wait();
        first->subscription.Unsubscribe();
      },
      1, L"second");
  std::thread one([] { Notify(1, L"first"); });
  std::thread two([] { Notify(1, L"second"); });
  one.join();
  two.join();
  EXPECT_EQ(first->listener.calls, 1);
  EXPECT_EQ(second->listener.calls, 1);
}

TEST(SubscriptionThreadTest, PostedNotificationsArriveLaterInOrderOnOneOtherThread) {
  std::vector<std::wstring> order;
  std::vector<std::thread::id> threads;
  Event all;
  const View a([&] {
    order.emplace_back(L"a");
    threads.push_back(std::this_thread::get_id());
  });
  const View b(
      [&] {
        order.emplace_back(L"b");
        threads.push_back(std::this_thread::get_id());
        all.Set();
      },
      1, L"b.dtm");
  SubscriptionManager::Instance().NotifyPost(1, L"a.dtm");
  SubscriptionManager::Instance().NotifyPost(1, L"a.dtm");
  SubscriptionManager::Instance().NotifyPost(1, L"b.dtm");
  ASSERT_TRUE(all.Wait(std::chrono::milliseconds(60000)));
  EXPECT_EQ(order, (std::vector<std::wstring>{L"a", L"a", L"b"}));
  EXPECT_EQ(threads[0], threads[2]);
  EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(SubscriptionThreadTest, PostingWaitsForNoSubscriber) {
  std::mutex modelLock;
  Event called;
  const View view([&] {
    const std::scoped_lock lock(modelLock);
    called.Set();
  });
  {
    const std::scoped_lock lock(modelLock);
    SubscriptionManager::Instance().NotifyPost(1, L"a.dtm");
    SubscriptionManager::Instance().NotifyPost(1, L"a.dtm");
    EXPECT_FALSE(called.Wait(std::chrono::milliseconds(0)));
  }
  EXPECT_TRUE(called.Wait(std::chrono::milliseconds(60000)));
}

TEST(SubscriptionThreadTest, InfoIsCopiedByWhoeverNeedsItLonger) {
  struct AreaInfo : NotificationInfo {
    int row = 0;
  };
  AreaInfo info;
  info.row = 7;
  AreaInfo kept;
  class Keeper : public Subscriber {
   public:
    explicit Keeper(AreaInfo& kept) : kept_(kept) {}
    void OnNotify(int /*kind*/, const std::wstring& /*name*/, const NotificationInfo* given) override {
      const auto* area = dynamic_cast<const AreaInfo*>(given);
      ASSERT_NE(area, nullptr);
      kept_ = *area;
    }

   private:
    AreaInfo& kept_;
  } keeper(kept);
  Subscription subscription(1);
  subscription.SetSubscriber(&keeper, false);
  subscription.Subscribe(L"a.dtm");
  Notify(1, L"a.dtm", &info);
  EXPECT_EQ(kept.row, 7);
}

TEST(SubscriptionThreadTest, ViewsComeAndGoWhileOthersNotify) {
  constexpr int kRounds = 1000;
  std::atomic<bool> ended{false};
  std::vector<std::thread> notifiers;
  for (int i = 0; i < 2; ++i) {
    notifiers.emplace_back([&ended] {
      while (!ended) Notify();
    });
  }
  long long calls = 0;
  for (int round = 0; round < kRounds || calls == 0; ++round) {
    View view;
    Notify();
    calls += view.listener.calls;
  }
  ended = true;
  for (std::thread& notifier : notifiers) notifier.join();
  EXPECT_GE(calls, kRounds);
}

}  // namespace
}  // namespace vak
