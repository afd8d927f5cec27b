// The thread that syncs: when there is one, what it does, and how it ends.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/notify/Subscriber.h"
#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/services/platform/Event.h"

#include "support/LongForm.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

namespace fs = std::filesystem;

using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

DtmManager& Manager() { return DtmManager::GetDtmManager(); }

/// For its lifetime the sync time is this.
class SyncTime {
 public:
  explicit SyncTime(std::uint16_t ms) : former_(Manager().SetDtmSyncTime(ms)) {}
  ~SyncTime() { Manager().SetDtmSyncTime(former_); }
  SyncTime(const SyncTime&) = delete;
  SyncTime& operator=(const SyncTime&) = delete;

 private:
  std::uint16_t former_;
};

/// Waits for a condition, a minute at most. @return whether it came.
bool Becomes(const std::function<bool()>& condition) {
  const auto end = SteadyClock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (SteadyClock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

/// The system's numbers of this process's threads.
std::set<std::string> Threads() {
  // A sanitizer starts one of its own with the first thread of a process; it is there from the beginning like this.
  [[maybe_unused]] static const bool kStarted = [] {
    std::thread([] {}).join();
    return true;
  }();
  std::set<std::string> threads;
  for (const auto& entry : fs::directory_iterator("/proc/self/task")) threads.insert(entry.path().filename());
  return threads;
}

bool BecomeThreads(std::size_t count) {
  return Becomes([&] { return Threads().size() == count; });
}

/// How often a thread has gone to sleep.
long long Sleeps(const std::string& thread) {
  std::ifstream status("/proc/self/task/" + thread + "/status");
  for (std::string word; status >> word;) {
    long long count = 0;
    if (word == "voluntary_ctxt_switches:" && status >> count) return count;
  }
  return -1;
}

/// The thread that there wasn't before, once it sleeps.
std::string AwaitNewThread(const std::set<std::string>& before) {
  std::string thread;
  const bool found = Becomes([&] {
    for (const std::string& one : Threads()) {
      if (!before.contains(one)) thread = one;
    }
    return !thread.empty() && Sleeps(thread) > 0;
  });
  if (!found) throw std::runtime_error("no thread");
  return thread;
}

/// Counts the passes over a model, and tells of each.
class Passes final : public DtmSyncObserver {
 public:
  explicit Passes(DtmUpdateFile& model) : model_(model) { model_.SetSyncObserver(this); }
  ~Passes() override { model_.SetSyncObserver(nullptr); }
  Passes(const Passes&) = delete;
  Passes& operator=(const Passes&) = delete;

  void OnSyncBegin() override {}
  void OnSyncEnd(bool done) override {
    {
      const std::scoped_lock lock(mutex_);
      ends_.push_back({SteadyClock::now(), std::this_thread::get_id(), done});
    }
    ended_.Set();
  }

  struct Pass {
    SteadyClock::time_point end;
    std::thread::id thread;
    bool done = false;
  };

  std::vector<Pass> All() {
    const std::scoped_lock lock(mutex_);
    return ends_;
  }
  /// Marks the model and waits for the pass. @return false when there is none within half a minute.
  bool MarkAndAwait() {
    model_.OnFileModified();
    return ended_.Wait(std::chrono::seconds(30));
  }

 private:
  DtmUpdateFile& model_;
  std::mutex mutex_;
  std::vector<Pass> ends_;
  Event ended_;
};

TEST(DtmSyncThreadTest, TheFirstOpenStartsOneThreadAndTheLastCloseStopsIt) {
  const TestFolder folder;
  const std::size_t before = Threads().size();
  for (int round = 0; round < 3; ++round) {
    SharedModel first = CreateShared(folder.WideFile("a.dtm"));
    EXPECT_TRUE(BecomeThreads(before + 1));
    SharedModel second = CreateShared(folder.WideFile("b.dtm"));
    SharedModel again = OpenShared(folder.WideFile("a.dtm"), true);
    EXPECT_EQ(Threads().size(), before + 1);
    first.reset();
    again.reset();
    EXPECT_EQ(Threads().size(), before + 1);
    second.reset();
    EXPECT_TRUE(BecomeThreads(before));
  }
}

TEST(DtmSyncThreadTest, AFailedOpenLeavesNoThread) {
  const TestFolder folder;
  const std::size_t before = Threads().size();
  EXPECT_EQ(OpenShared(folder.WideFile("none.dtm"), true), nullptr);
  EXPECT_TRUE(BecomeThreads(before));
}

TEST(DtmSyncThreadTest, WritesOutWhatIsMarkedAndNothingElse) {
  const SyncTime half(500);
  const TestFolder folder;
  const SharedModel marked = CreateShared(folder.WideFile("a.dtm"));
  const SharedModel other = CreateShared(folder.WideFile("b.dtm"));
  Passes passes(*marked);
  Passes none(*other);
  other->ResetModified();
  ASSERT_TRUE(Sound(*marked, 0.5, 0.5, -5));
  ASSERT_TRUE(passes.MarkAndAwait());
  EXPECT_NE(passes.All().front().thread, std::this_thread::get_id());
  EXPECT_TRUE(passes.All().front().done);
  EXPECT_TRUE(none.All().empty());
  DtmFile reader(new HugeFileStream(marked->FileName().c_str(), false, false), false);
  ASSERT_TRUE(reader.Open());
  EXPECT_EQ(reader.OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(ValueAt(reader, 0.5, 0.5), -5);
  reader.Close();
}

TEST(DtmSyncThreadTest, AChangeDuringAPassIsSyncedByTheNextOne) {
  const SyncTime half(500);
  const TestFolder folder;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  class Marker final : public DtmSyncObserver {
   public:
    explicit Marker(DtmUpdateFile& model) : model_(model) { model_.SetSyncObserver(this); }
    ~Marker() override { model_.SetSyncObserver(nullptr); }
    void OnSyncBegin() override {
      if (++passes_ == 1) model_.OnFileModified();
    }
    void OnSyncEnd(bool) override {
      if (passes_ == 2) second.Set();
    }
    Event second;

   private:
    DtmUpdateFile& model_;
    int passes_ = 0;
  } marker(*model);
  model->OnFileModified();
  EXPECT_TRUE(marker.second.Wait(std::chrono::minutes(1)));
}

TEST(DtmSyncThreadTest, AWaitThatHasBegunEndsByTheOldSyncTime) {
  const SyncTime half(500);
  const TestFolder folder;
  const std::set<std::string> before = Threads();
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  const std::string thread = AwaitNewThread(before);
  Passes passes(*model);
  ASSERT_TRUE(passes.MarkAndAwait());
  // From the pass on it sleeps only to wait for the next one.
  const long long sleeps = Sleeps(thread);
  ASSERT_TRUE(Becomes([&] { return Sleeps(thread) > sleeps; }));
  EXPECT_EQ(Manager().SetDtmSyncTime(65535), 500);
  EXPECT_TRUE(passes.MarkAndAwait()) << "half a second after the last, not a minute";
}

TEST(DtmSyncThreadTest, TheWaitAfterAChangeOfTheSyncTimeHasTheNewOne) {
  const SyncTime half(500);
  const TestFolder folder;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  Passes passes(*model);
  ASSERT_TRUE(passes.MarkAndAwait());
  Manager().SetDtmSyncTime(1500);
  ASSERT_TRUE(passes.MarkAndAwait());
  ASSERT_TRUE(passes.MarkAndAwait());
  const auto all = passes.All();
  EXPECT_GE(all[2].end - all[1].end, milliseconds(1490));
}

TEST(DtmSyncThreadTest, ClosingTheLastModelDoesNotWaitForATick) {
  const SyncTime minute(65535);
  const TestFolder folder;
  SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  const auto start = SteadyClock::now();
  model.reset();
  EXPECT_LT(SteadyClock::now() - start, std::chrono::seconds(30));
}

TEST(DtmSyncThreadTest, ClosingTheLastModelUnderTheManagersLockLetsAPassThatWaitsForItEnd) {
  const SyncTime half(500);
  const TestFolder folder;
  const std::set<std::string> before = Threads();
  SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  const std::string thread = AwaitNewThread(before);
  Manager().Lock();
  Manager().Lock();
  // It wakes for its tick, and sleeps for the lock.
  const long long sleeps = Sleeps(thread);
  ASSERT_TRUE(Becomes([&] { return Sleeps(thread) > sleeps; }));
  model->OnFileModified();
  model.reset();
  bool taken = true;
  const auto tryElsewhere = [&] {
    std::thread([&] {
      taken = Manager().try_lock();
      if (taken) Manager().unlock();
    }).join();
  };
  tryElsewhere();
  EXPECT_FALSE(taken) << "it is held again, as often as before";
  Manager().Unlock();
  tryElsewhere();
  EXPECT_FALSE(taken);
  Manager().Unlock();
  tryElsewhere();
  EXPECT_TRUE(taken);
}

TEST(DtmSyncThreadTest, StormsOfOpeningAndClosingLoseNothingAndLeaveNoThread) {
  constexpr int kThreads = 8;
  constexpr int kFiles = 3;
  const int rounds = LongForm(40, 1000);
  const SyncTime half(500);
  const TestFolder folder;
  const std::size_t before = Threads().size();
  std::vector<std::wstring> paths;
  for (int i = 0; i < kFiles; ++i) {
    paths.push_back(folder.WideFile(std::to_string(i) + ".dtm"));
    ASSERT_NE(CreateShared(paths.back()), nullptr);
  }
  std::vector<std::atomic<int>> sounded(kFiles);
  std::latch start(kThreads);
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        start.arrive_and_wait();
        for (int i = 0; i < rounds; ++i) {
          const auto file = static_cast<std::size_t>((t + i) % kFiles);
          const bool writes = (t + i / kFiles) % 2 == 0;
          const SharedModel model = OpenShared(paths[file], writes);
          if (!model) {
            ADD_FAILURE() << "not opened";
            return;
          }
          if (writes && Sound(*model, 0.5 + 64 * t, 0.5, -1)) ++sounded[file];
          if (i % 7 == 0) Manager().SyncModified();
        }
      });
    }
  }
  EXPECT_TRUE(BecomeThreads(before));
  for (std::size_t file = 0; file < kFiles; ++file) {
    const SharedModel model = OpenShared(paths[file], false);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(model->OpenCount(), 1);
    double hits = 0;
    for (int t = 0; t < kThreads; ++t) {
      const double here = ValueAt(*model, 0.5 + 64 * t, 0.5, iNUM);
      if (!IsEmptyValue(here)) hits += here;
    }
    EXPECT_EQ(hits, sounded[file].load());
    EXPECT_GT(hits, 0);
  }
}

TEST(DtmSyncThreadTest, ItHasTheLowestPriority) {
  const TestFolder folder;
  const std::set<std::string> before = Threads();
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  ASSERT_NE(model, nullptr);
  const auto isLowest = [&] {
    const std::set<std::string> now = Threads();
    return std::any_of(now.begin(), now.end(), [&](const std::string& thread) {
      return !before.contains(thread) && getpriority(PRIO_PROCESS, static_cast<id_t>(std::stoul(thread))) == 19;
    });
  };
  EXPECT_TRUE(Becomes(isLowest));
}

/// Runs a piece of work at every notification.
class Caller final : public Subscriber {
 public:
  explicit Caller(std::function<void()> work) : work_(std::move(work)) {}
  void OnNotify(int, const std::wstring&, const NotificationInfo*) override { work_(); }

 private:
  std::function<void()> work_;
};

TEST(DtmSyncThreadTest, AViewMayOpenTheModelInANotificationWhilePassesRun) {
  const int passes = LongForm(200, 5000);
  const TestFolder folder;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  ASSERT_NE(model, nullptr);
  std::atomic<int> calls{0};
  Caller view([&] {
    double value = 0;
    DtmAccess(model.get()).GetDoubleValue(0, 0, dVAL, value);  // takes the manager lock, under the rectangle's
    ++calls;
  });
  Subscription subscription(1);
  subscription.SetSubscriber(&view, false);
  subscription.Subscribe(model->FileName());
  std::atomic<bool> done{false};
  std::thread inserting([&] {
    while (!done) {
      model->AddUpdateRect({0, 0, 1, 1}, false);
      model->FlushUpdateRect();
    }
  });
  for (int i = 0; i < passes || calls < passes; ++i) Manager().SyncModified();
  done = true;
  inserting.join();
}

TEST(DtmSyncThreadTest, TheProcessMayBeEndedInANotificationOfTheSyncThread) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  const auto live = [&] {
    const SyncTime half(500);
    static DtmUpdateFile* const model = CreateShared(path).release();
    static const std::thread::id main = std::this_thread::get_id();
    static Caller view([] {
      if (std::this_thread::get_id() != main) std::exit(7);
    });
    static Subscription subscription(1);
    subscription.SetSubscriber(&view, false);
    subscription.Subscribe(model->FileName());
    // The first rectangle is announced at once, the second by the sync thread.
    for (int i = 0; i < 2; ++i) model->AddUpdateRect({0, 0, 1, 1}, false);
    std::this_thread::sleep_for(std::chrono::minutes(1));
    std::_Exit(1);
  };
  // A thread that is still running at the end is what this is about; a sanitizer of threads would call it a leak, in
  // the process that the test starts.
  const char* const former = std::getenv("TSAN_OPTIONS");
  const std::string options = former ? former : "";
  setenv("TSAN_OPTIONS", (options + ":report_thread_leaks=0").c_str(), 1);
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(live(), testing::ExitedWithCode(7), "");
  setenv("TSAN_OPTIONS", options.c_str(), 1);
}

}  // namespace
}  // namespace vak::test
