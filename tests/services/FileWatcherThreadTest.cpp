#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "vakdtm/services/notify/FileWatcher.h"
#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/platform/FileEvents.h"
#include "vakdtm/services/platform/FileHandle.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/TestFolder.h"

namespace {

std::atomic<bool> noSources{false};

}  // namespace

// In place of the system's: a process that truly has no descriptors left is none that a sanitizer can work in.
extern "C" int inotify_init1(int flags) noexcept {
  if (!noSources) return static_cast<int>(syscall(SYS_inotify_init1, flags));
  errno = EMFILE;
  return -1;
}

namespace vak {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr milliseconds kBound{60000};

/// Waits, with a bound, until something holds that nobody announces.
bool Becomes(const std::function<bool()>& holds) {
  const auto end = std::chrono::steady_clock::now() + kBound;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

/// Subscribes to a path and watches it, as a model does, and keeps what it is told.
class Follower {
 public:
  explicit Follower(
      std::wstring path, std::function<void()> work = [] {})
      : path_(std::move(path)), work_(std::move(work)) {
    subscription_.SetSubscriber(std::make_unique<MemFunNoInfoSubscriber<Follower>>(this, &Follower::OnTold).release(),
                                true);
    subscription_.Subscribe(path_);
    watched_ = FileWatcher::Instance().AddFileWatch(path_);
  }

  ~Follower() {
    if (watched_) FileWatcher::Instance().RemoveFileWatch(path_);
    subscription_.Unsubscribe();
  }

  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  bool IsWatched() const { return watched_; }

  int Told() const { return told_; }

  /// Waits, with a bound, until something holds after a notification, or does already.
  bool Finds(const std::function<bool()>& holds) const {
    std::unique_lock lock(mutex_);
    return toldSomething_.wait_for(lock, kBound, holds);
  }

  /// Waits until it has been told more than `before` times.
  bool IsToldBeyond(int before) const {
    return Finds([this, before] { return told_ > before; });
  }

  /// Changes the file and waits until that is told, by a notification that finds the file as it is after the change.
  bool IsTold(const std::function<void()>& change) const {
    change();
    return Finds([this, now = LookAtFile(ToUtf8(path_))] { return found_ == now; });
  }

 private:
  void OnTold() {
    work_();
    const std::scoped_lock lock(mutex_);
    found_ = LookAtFile(ToUtf8(path_));
    ++told_;
    toldSomething_.notify_all();
  }

  const std::wstring path_;
  const std::function<void()> work_;
  std::atomic<int> told_{0};
  mutable std::mutex mutex_;
  mutable std::condition_variable toldSomething_;
  FileStamp found_;  // guarded by mutex_: how the last notification found the file
  bool watched_ = false;
  Subscription subscription_{0};
};

void Overwrite(const std::string& file, std::string_view text) {
  const FileHandle handle = OpenDescriptor(file.c_str(), O_WRONLY);
  ASSERT_EQ(pwrite(handle.Get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
}

int CountOfThreads() {
  return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

int CountOfDescriptors() {
  return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// The watcher has its source of events exactly while its thread runs. The one of a test before may be ending still.
int CountOfSources() {
  int count = 0;
  std::error_code gone;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    if (fs::read_symlink(entry.path(), gone) == "anon_inode:inotify") ++count;
  }
  return count;
}

bool NothingRuns() {
  return Becomes([] { return CountOfSources() == 0; });
}

/// Waits until all threads but this one sleep, as the system tells it.
bool OthersSleep() {
  return Becomes([] {
    int awake = 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task")) {
      std::string line;
      std::getline(std::ifstream(task.path() / "stat"), line);
      const std::size_t name = line.rfind(')');
      if (name != std::string::npos && line[name + 2] == 'R') ++awake;
    }
    return awake <= 1;
  });
}

/// Both ways of finding out: by events, and by looking.
class FileWatcherThreadTest : public testing::TestWithParam<bool> {
 protected:
  FileWatcherThreadTest() { folder_.Write("a.dtm", "start"); }

  test::TestFolder folder_;
  const std::string file_ = folder_.File("a.dtm");
  const std::wstring path_ = folder_.WideFile("a.dtm");

 private:
  const ScopedDeliversEvents delivers_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(, FileWatcherThreadTest, testing::Bool(),
                         [](const auto& which) { return which.param ? "Events" : "Looking"; });

TEST_P(FileWatcherThreadTest, EveryKindOfChangeIsTold) {
  const struct {
    const char* name;
    std::function<void()> change;
  } kCases[] = {
      {"written in place", [this] { Overwrite(file_, "start"); }},
      {"lengthened", [this] { fs::resize_file(file_, 5000); }},
      {"shortened", [this] { fs::resize_file(file_, 3); }},
      {"times set", [this] { fs::last_write_time(file_, fs::file_time_type::clock::now() - std::chrono::hours(9)); }},
      {"written anew", [this] { folder_.Write("a.dtm", "again"); }},
      {"removed", [this] { fs::remove(file_); }},
      {"made anew", [this] { folder_.Write("a.dtm", "anew"); }},
      {"written after that", [this] { Overwrite(file_, "more"); }},
      {"renamed over",
       [this] {
         folder_.Write("b.dtm", "other");
         fs::rename(folder_.Path() / "b.dtm", file_);
       }},
      {"written after that too", [this] { Overwrite(file_, "still"); }},
      {"renamed away", [this] { fs::rename(file_, folder_.Path() / "c.dtm"); }},
      {"renamed back", [this] { fs::rename(folder_.Path() / "c.dtm", file_); }},
      {"written by another name",
       [this] {
         fs::create_hard_link(file_, folder_.Path() / "twin");
         Overwrite(folder_.File("twin"), "twins");
       }},
  };
  const Follower follower(path_);
  ASSERT_TRUE(follower.IsWatched());
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_TRUE(follower.IsTold(c.change));
  }
}

TEST_P(FileWatcherThreadTest, ChangeByAnotherProcessIsTold) {
  std::atomic<bool> seen{false};
  const Follower follower(path_, [&] { seen = seen || folder_.Text("a.dtm") == "other"; });
  const pid_t child = fork();
  if (child == 0) {
    const int descriptor = open(file_.c_str(), O_WRONLY);
    _exit(pwrite(descriptor, "other", 5, 0) == 5 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  EXPECT_TRUE(follower.Finds([&seen] { return seen.load(); }));
}

TEST_P(FileWatcherThreadTest, ChangeRightAfterTheWatchBeganIsTold) {
  for (int round = 0; round < (GetParam() ? 200 : 5); ++round) {
    std::atomic<bool> seen{false};
    const std::string text = "r" + std::to_string(1000 + round);
    const Follower follower(path_, [&] { seen = seen || folder_.Text("a.dtm").starts_with(text); });
    Overwrite(file_, text);
    ASSERT_TRUE(follower.Finds([&seen] { return seen.load(); })) << round;
  }
}

TEST_P(FileWatcherThreadTest, FileThatIsNotThereYetIsTold) {
  const Follower follower(folder_.WideFile("new.dtm"));
  ASSERT_TRUE(follower.IsWatched());
  EXPECT_TRUE(follower.IsTold([this] { folder_.Write("new.dtm", "x"); }));
  EXPECT_TRUE(follower.IsTold([this] { Overwrite(folder_.File("new.dtm"), "y"); }));
}

TEST_P(FileWatcherThreadTest, FolderThatIsNotThereYetOrGoesIsFollowed) {
  std::string expected;
  std::mutex mutex;
  std::atomic<bool> seen{false};
  const auto look = [&] {
    std::ifstream in(folder_.Path() / "sub" / "a.dtm");
    std::string text;
    in >> text;
    const std::scoped_lock lock(mutex);
    seen = seen || text == expected;
  };
  const auto expect = [&](const std::string& text) {
    const std::scoped_lock lock(mutex);
    expected = text;
    seen = false;
  };
  const Follower follower(folder_.WideFile("sub/a.dtm"), look);
  for (const char* text : {"one", "two", "three"}) {
    expect(text);
    fs::create_directory(folder_.Path() / "sub");
    folder_.Write("sub/a.dtm", text);
    EXPECT_TRUE(follower.Finds([&seen] { return seen.load(); })) << text;
    const std::string changed = std::string(text) + "!";
    expect(changed);
    folder_.Write("sub/a.dtm", changed);
    EXPECT_TRUE(follower.Finds([&seen] { return seen.load(); })) << changed;
    fs::rename(folder_.Path() / "sub", folder_.Path() / text);
  }
}

TEST_P(FileWatcherThreadTest, LastOfAThousandChangesIsSeenAndBurstsAreGathered) {
  constexpr int kWrites = 20000;
  std::atomic<int> seen{-1};
  const Follower follower(path_, [&] {
    std::ifstream in(file_);
    int number = -1;
    in >> number;
    seen = number;
  });
  const auto start = std::chrono::steady_clock::now();
  const FileHandle handle = OpenDescriptor(file_.c_str(), O_WRONLY);
  for (int i = 0; i <= kWrites; ++i) {
    // All of one length, so that the file's size tells nothing.
    const std::string text = std::to_string(100000 + i);
    ASSERT_EQ(pwrite(handle.Get(), text.data(), text.size(), 0), 6);
  }
  EXPECT_TRUE(follower.Finds([&seen] { return seen == 100000 + kWrites; }));
  const auto passed = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
  EXPECT_LE(follower.Told(), 2 + passed.count() / 50);
}

TEST_P(FileWatcherThreadTest, OnlyTheFileThatChangedIsTold) {
  folder_.Write("b.dtm", "b");
  const Follower first(path_);
  const Follower second(folder_.WideFile("b.dtm"));
  // What a file that is looked at is told of for its beginning must not count.
  if (!GetParam()) {
    ASSERT_TRUE(first.IsToldBeyond(0));
    ASSERT_TRUE(second.IsToldBeyond(0));
  }
  const int before = first.Told();
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(second.IsTold([this, i] { folder_.Write("b.dtm", "b" + std::to_string(i)); }));
    folder_.Write("unwatched", "x");
  }
  EXPECT_EQ(first.Told(), before);
}

TEST_P(FileWatcherThreadTest, TwoWatchesNeedTwoRemovals) {
  FileWatcher& watcher = FileWatcher::Instance();
  const Follower follower(path_);
  ASSERT_TRUE(watcher.AddFileWatch(path_));
  watcher.RemoveFileWatch(path_);
  EXPECT_TRUE(follower.IsTold([this] { Overwrite(file_, "one"); }));
}

TEST_P(FileWatcherThreadTest, WatchStaysWhenOthersOfItsFolderAndFileGo) {
  fs::create_hard_link(file_, folder_.Path() / "twin");
  const Follower follower(path_);
  {
    const Follower neighbour(folder_.WideFile("b.dtm"));
    const Follower twin(folder_.WideFile("twin"));
  }
  EXPECT_TRUE(follower.IsTold([this] { Overwrite(file_, "one"); }));
  folder_.Write("other", "other");
  EXPECT_TRUE(follower.IsTold([this] { fs::rename(folder_.Path() / "other", file_); }));
}

TEST_P(FileWatcherThreadTest, LookingBeginsWhileTheThreadSleeps) {
  const Follower first(path_);
  ASSERT_TRUE(OthersSleep());
  const test::TestFolder elsewhere;  // or the first's events would wake it
  const Follower second(elsewhere.WideFile("sub/b.dtm"));
  fs::create_directory(elsewhere.Path() / "sub");
  EXPECT_TRUE(second.IsTold([&elsewhere] { elsewhere.Write("sub/b.dtm", "b"); }));
}

TEST_P(FileWatcherThreadTest, RemovedWatchTellsNothingMore) {
  folder_.Write("b.dtm", "b");
  const Follower other(folder_.WideFile("b.dtm"));
  auto follower = std::make_unique<Follower>(path_);
  FileWatcher::Instance().RemoveFileWatch(path_);
  // One that had begun may still come; behind another file's it has.
  EXPECT_TRUE(other.IsTold([this] { folder_.Write("b.dtm", "c"); }));
  const int before = follower->Told();
  Overwrite(file_, "x");
  EXPECT_TRUE(other.IsTold([this] { folder_.Write("b.dtm", "d"); }));
  EXPECT_TRUE(other.IsTold([this] { folder_.Write("b.dtm", "e"); }));
  EXPECT_EQ(follower->Told(), before);
  FileWatcher::Instance().RemoveFileWatch(path_);  // of none
}

TEST_P(FileWatcherThreadTest, NotificationCarriesThePathAsItWasGiven) {
  fs::create_directory(folder_.Path() / "sub");
  fs::create_symlink("../a.dtm", folder_.Path() / "sub" / "link");
  const Follower dotted(folder_.WideFile("sub/../a.dtm"));
  const Follower linked(folder_.WideFile("sub/link"));
  const Follower relative(fs::relative(file_).wstring());
  Overwrite(file_, "x");
  EXPECT_TRUE(dotted.IsToldBeyond(0));
  EXPECT_TRUE(linked.IsToldBeyond(0));
  EXPECT_TRUE(relative.IsToldBeyond(0));
}

TEST_P(FileWatcherThreadTest, WhatNamesNoFileIsRefused) {
  fs::create_symlink("loop", folder_.Path() / "loop");
  ASSERT_TRUE(NothingRuns());
  FileWatcher& watcher = FileWatcher::Instance();
  EXPECT_FALSE(watcher.AddFileWatch(L""));
  EXPECT_FALSE(watcher.AddFileWatch(L"/"));
  EXPECT_FALSE(watcher.AddFileWatch(folder_.WideFile("loop")));
  EXPECT_EQ(CountOfSources(), 0);
}

TEST_P(FileWatcherThreadTest, ThereIsAThreadOnlyWhileSomethingIsWatched) {
  std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first
  ASSERT_TRUE(NothingRuns());
  const int descriptors = CountOfDescriptors();
  const int threads = CountOfThreads();
  for (int round = 0; round < 3; ++round) {
    {
      const Follower follower(path_);
      EXPECT_EQ(CountOfSources(), 1);
      EXPECT_TRUE(follower.IsTold([this, round] { folder_.Write("a.dtm", "round " + std::to_string(round)); }));
    }
    EXPECT_TRUE(NothingRuns());
    EXPECT_TRUE(Becomes([threads] { return CountOfThreads() <= threads; }));
    EXPECT_EQ(CountOfDescriptors(), descriptors);
  }
}

TEST_P(FileWatcherThreadTest, DeliveriesComeOnOneThreadOfTheWatchersOwn) {
  std::mutex mutex;
  std::vector<std::thread::id> threads;
  const Follower follower(path_, [&] {
    const std::scoped_lock lock(mutex);
    threads.push_back(std::this_thread::get_id());
  });
  EXPECT_TRUE(follower.IsTold([this] { folder_.Write("a.dtm", "1"); }));
  EXPECT_TRUE(follower.IsTold([this] { folder_.Write("a.dtm", "22"); }));
  const std::scoped_lock lock(mutex);
  EXPECT_NE(threads.front(), std::this_thread::get_id());
  EXPECT_EQ(threads.front(), threads.back());
}

TEST_P(FileWatcherThreadTest, WatchMayBeRemovedUnderALockThatTheSubscriberWaitsFor) {
  std::mutex managerLock;
  std::atomic<bool> waiting{false};
  const Follower follower(path_, [&] {
    waiting = true;
    const std::scoped_lock lock(managerLock);
  });
  {
    const std::scoped_lock lock(managerLock);
    Overwrite(file_, "x");
    ASSERT_TRUE(Becomes([&waiting] { return waiting.load(); }));
    ASSERT_TRUE(FileWatcher::Instance().AddFileWatch(folder_.WideFile("b.dtm")));
    FileWatcher::Instance().RemoveFileWatch(folder_.WideFile("b.dtm"));
    FileWatcher::Instance().RemoveFileWatch(path_);
    ASSERT_TRUE(FileWatcher::Instance().AddFileWatch(path_));
  }
  EXPECT_TRUE(follower.IsToldBeyond(0));
}

TEST_P(FileWatcherThreadTest, SubscriberMayAddAndRemoveWatches) {
  std::atomic<int> calls{0};
  std::unique_ptr<Follower> later;
  Event made;
  const Follower follower(path_, [&] {
    FileWatcher& watcher = FileWatcher::Instance();
    watcher.RemoveFileWatch(path_);
    watcher.AddFileWatch(path_);
    if (calls++ > 0) return;
    later = std::make_unique<Follower>(folder_.WideFile("b.dtm"));
    made.Set();
  });
  Overwrite(file_, "x");
  ASSERT_TRUE(made.Wait(kBound));
  EXPECT_TRUE(later->IsTold([this] { folder_.Write("b.dtm", "b"); }));
  EXPECT_TRUE(follower.IsTold([this] { folder_.Write("a.dtm", "longer"); }));
}

TEST_P(FileWatcherThreadTest, WatchesComeAndGoWhileTheFileIsWritten) {
  std::atomic<bool> ended{false};
  std::thread writer([&] {
    for (int i = 0; !ended; ++i) {
      folder_.Write("a.dtm", std::to_string(i));
      if (i % 50 == 0) fs::remove(file_);
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> followers;
  for (int thread = 0; thread < 3; ++thread) {
    followers.emplace_back([&] {
      for (int i = 0; i < 100; ++i) {
        const Follower follower(path_);
        EXPECT_TRUE(follower.IsWatched());
        if (i % 25 == 0) {
          EXPECT_TRUE(follower.IsToldBeyond(0));
        }
      }
    });
  }
  for (std::thread& follower : followers) follower.join();
  ended = true;
  writer.join();
}

TEST_P(FileWatcherThreadTest, ProcessMayEndWhileFilesAreWatchedAndWritten) {
  const auto live = [this] {
    static const Follower* const follower = std::make_unique<Follower>(path_).release();
    Overwrite(file_, "x");
    follower->IsToldBeyond(0);
    Overwrite(file_, "y");
    std::exit(7);
  };
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(live(), testing::ExitedWithCode(7), "");
}

TEST_P(FileWatcherThreadTest, ProcessMayEndWhileTheThreadSleeps) {
  const auto live = [this] {
    static const Follower* const follower = std::make_unique<Follower>(path_).release();
    std::exit(follower->IsWatched() && OthersSleep() ? 7 : 1);
  };
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(live(), testing::ExitedWithCode(7), "");
}

TEST(FileWatcherLimitsThreadTest, FilesAreLookedAtWhenTheSystemHasNoDescriptorsToGive) {
  const ScopedDeliversEvents delivers(true);
  const test::TestFolder folder;
  folder.Write("a.dtm", "start");
  noSources = true;
  const Follower follower(folder.WideFile("a.dtm"));
  noSources = false;
  ASSERT_TRUE(follower.IsWatched());
  EXPECT_EQ(CountOfSources(), 0);
  EXPECT_TRUE(follower.IsTold([&folder] { folder.Write("a.dtm", "other"); }));
  EXPECT_TRUE(follower.IsTold([&folder] { folder.Write("a.dtm", "another"); }));
}

TEST(FileWatcherLimitsThreadTest, EventsThatTheSystemDroppedAreToldForAll) {
  const ScopedDeliversEvents delivers(true);
  int limit = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
  // A longer queue than any system's own would hold all of these; then all of them are told.
  limit = std::clamp(limit, 1000, 200000);
  const test::TestFolder folder;
  for (const char* name : {"a", "b", "c"}) folder.Write(name, "start");
  Event inside;
  std::atomic<bool> mayLeave{false};
  const Follower a(folder.WideFile("a"), [&] {
    inside.Set();
    while (!mayLeave) std::this_thread::yield();
  });
  const Follower b(folder.WideFile("b"));
  const Follower c(folder.WideFile("c"));
  Overwrite(folder.File("a"), "x");
  ASSERT_TRUE(inside.Wait(kBound));
  // By turns, since what repeats the last event isn't kept twice.
  const FileHandle first = OpenDescriptor(folder.File("a").c_str(), O_WRONLY);
  const FileHandle second = OpenDescriptor(folder.File("b").c_str(), O_WRONLY);
  for (int i = 0; i < limit; ++i) {
    ASSERT_EQ(pwrite(first.Get(), "y", 1, 0), 1);
    ASSERT_EQ(pwrite(second.Get(), "y", 1, 0), 1);
  }
  Overwrite(folder.File("c"), "z");
  // And what stood under a name when the events about it were lost is not watched any more.
  fs::rename(folder.Path() / "b", folder.Path() / "former");
  folder.Write("b", "new");
  EXPECT_EQ(c.Told(), 0);
  mayLeave = true;
  EXPECT_TRUE(c.IsToldBeyond(0));
  EXPECT_TRUE(b.IsTold([&folder] { Overwrite(folder.File("b"), "new"); }));
}

}  // namespace
}  // namespace vak
