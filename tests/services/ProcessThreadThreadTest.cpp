#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/jobs/Processor.h"
#include "vakdtm/services/jobs/ProgressSink.h"
#include "vakdtm/services/platform/Event.h"

namespace vak {
namespace {

/// A processor made of two functions.
class TestProcessor : public Processor {
 public:
  explicit TestProcessor(
      std::function<bool(TestProcessor&)> process, std::function<bool()> initialize = [] { return true; })
      : process_(std::move(process)), initialize_(std::move(initialize)) {}

  bool Initialize() override { return initialize_(); }
  bool Process() override { return process_(*this); }

  bool RunUntilStopped() const {
    while (!IsStopped()) std::this_thread::yield();
    return false;
  }

 private:
  std::function<bool(TestProcessor&)> process_;
  std::function<bool()> initialize_;
};

/// Keeps what it is told and stops when asked to.
class TestProgress : public ProgressSink {
 public:
  void Begin(const JobProgress& progress) override {
    threads_.push_back(std::this_thread::get_id());
    begun_.push_back(progress);
  }
  void Show(const JobProgress& progress) override {
    threads_.push_back(std::this_thread::get_id());
    shown_.push_back(progress);
    onShow();
  }
  bool WantsStop() override { return wantsStop; }
  void End(bool done) override { ended_.push_back(done); }

  std::atomic<bool> wantsStop{false};
  std::function<void()> onShow = [] {};
  std::vector<JobProgress> begun_;
  std::vector<JobProgress> shown_;
  std::vector<bool> ended_;
  std::vector<std::thread::id> threads_;
};

class ProcessThreadThreadTest : public testing::Test {
 protected:
  ProcessThreadThreadTest() { InstallProgressSink(sink_); }
  ~ProcessThreadThreadTest() override { InstallProgressSink(nullptr); }

  void Add(std::function<bool(TestProcessor&)> process, const std::wstring& name = L"step") {
    job_->AddProcessor(std::make_unique<TestProcessor>(std::move(process)).release(), name);
  }

  std::shared_ptr<TestProgress> sink_ = std::make_shared<TestProgress>();
  std::unique_ptr<ProcessThread> job_ = std::make_unique<ProcessThread>(L"job", nullptr, false, nullptr, false);
};

TEST_F(ProcessThreadThreadTest, StepsRunInOrderOnAnotherThread) {
  std::vector<int> order;
  std::thread::id worker;
  for (int i = 0; i < 3; ++i) {
    Add([&order, &worker, i](TestProcessor&) {
      order.push_back(i);
      worker = std::this_thread::get_id();
      return true;
    });
  }
  EXPECT_EQ(job_->DoModal(), ProcessThread::kDone);
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
  EXPECT_NE(worker, std::this_thread::get_id());
}

TEST_F(ProcessThreadThreadTest, FailingStepEndsTheJob) {
  bool later = false;
  Add([](TestProcessor&) { return false; });
  Add([&later](TestProcessor&) { return later = true; });
  EXPECT_EQ(job_->DoModal(), ProcessThread::kFailed);
  EXPECT_FALSE(later);
  EXPECT_EQ(sink_->ended_, std::vector<bool>{false});
}

TEST_F(ProcessThreadThreadTest, StepThatCannotInitializeIsNotProcessed) {
  bool processed = false;
  auto step =
      std::make_unique<TestProcessor>([&processed](TestProcessor&) { return processed = true; }, [] { return false; });
  job_->AddProcessor(step.release(), L"step");
  EXPECT_EQ(job_->DoModal(), ProcessThread::kFailed);
  EXPECT_FALSE(processed);
}

TEST_F(ProcessThreadThreadTest, ExceptionFailsTheJobAndGoesNoFurther) {
  Add([](TestProcessor&) -> bool { throw std::runtime_error("no"); });
  EXPECT_EQ(job_->DoModal(), ProcessThread::kFailed);
}

TEST_F(ProcessThreadThreadTest, ProgressComesFromTheCallingThreadWithTheRunningStep) {
  Event shown;
  sink_->onShow = [&shown] { shown.Set(); };
  Add([](TestProcessor&) { return true; }, L"first");
  Add(
      [&shown](TestProcessor& self) {
        self.SetProgress(0.5);
        shown.Wait();  // one that may have been shown before the progress was set
        shown.Wait();
        return true;
      },
      L"second");
  EXPECT_EQ(job_->DoModal(), ProcessThread::kDone);
  ASSERT_EQ(sink_->begun_.size(), 1u);
  EXPECT_EQ(sink_->begun_[0].title, L"job");
  EXPECT_EQ(sink_->begun_[0].stepCount, 2u);
  ASSERT_GE(sink_->shown_.size(), 3u);
  const JobProgress& during = sink_->shown_[sink_->shown_.size() - 2];
  EXPECT_EQ(during.step, L"second");
  EXPECT_EQ(during.stepIndex, 1u);
  EXPECT_EQ(during.stepFraction, 0.5);
  EXPECT_EQ(during.fraction, 0.75);
  EXPECT_EQ(sink_->shown_.back().fraction, 1.0);
  EXPECT_EQ(sink_->ended_, std::vector<bool>{true});
  for (const std::thread::id thread : sink_->threads_) EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(ProcessThreadThreadTest, SinkThatWantsItStopsTheJob) {
  bool later = false;
  sink_->wantsStop = true;
  Add([](TestProcessor& self) { return self.RunUntilStopped(); });
  Add([&later](TestProcessor&) { return later = true; });
  EXPECT_EQ(job_->DoModal(), ProcessThread::kStopped);
  EXPECT_FALSE(later);
  EXPECT_EQ(sink_->ended_, std::vector<bool>{false});
}

TEST_F(ProcessThreadThreadTest, StepThatEndsAllTheSameIsFollowedByNone) {
  bool later = false;
  Add([this](TestProcessor&) {
    job_->Stop();
    return true;
  });
  Add([&later](TestProcessor&) { return later = true; });
  EXPECT_EQ(job_->DoModal(), ProcessThread::kStopped);
  EXPECT_FALSE(later);
}

TEST_F(ProcessThreadThreadTest, RunsWithoutASink) {
  InstallProgressSink(nullptr);
  Add([](TestProcessor&) { return true; });
  EXPECT_EQ(job_->DoModal(), ProcessThread::kDone);
  EXPECT_TRUE(sink_->shown_.empty());
}

TEST_F(ProcessThreadThreadTest, JobWithoutStepsIsDone) { EXPECT_EQ(job_->DoModal(), ProcessThread::kDone); }

TEST_F(ProcessThreadThreadTest, StartDoesNotWaitAndTheDestructorStops) {
  Event running;
  bool stopped = false;
  Add([&](TestProcessor& self) {
    running.Set();
    self.RunUntilStopped();
    stopped = true;
    return false;
  });
  ASSERT_TRUE(job_->StartThread(false));
  running.Wait();
  EXPECT_FALSE(job_->StartThread(false));
  job_.reset();
  EXPECT_TRUE(stopped);
}

TEST_F(ProcessThreadThreadTest, StepsAreOwnedWhetherTheyRanOrNot) {
  const auto held = std::make_shared<int>(0);
  Add([held](TestProcessor&) { return false; });
  Add([held](TestProcessor&) { return true; });
  EXPECT_EQ(held.use_count(), 3);
  EXPECT_EQ(job_->DoModal(), ProcessThread::kFailed);
  EXPECT_EQ(held.use_count(), 3);
  job_.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(ProcessThreadThreadTest, StepIsInitializedOnTheWorkerWhenItsTurnComes) {
  std::string order;
  std::thread::id worker;
  for (const char name : {'a', 'b'}) {
    auto step = std::make_unique<TestProcessor>(
        [&order, name](TestProcessor&) {
          order += name;
          return true;
        },
        [&] {
          order += 'i';
          worker = std::this_thread::get_id();
          return true;
        });
    job_->AddProcessor(step.release(), L"step");
  }
  EXPECT_EQ(job_->DoModal(), ProcessThread::kDone);
  EXPECT_EQ(order, "iaib");
  EXPECT_NE(worker, std::this_thread::get_id());
}

TEST_F(ProcessThreadThreadTest, StartedJobCanBeWaitedFor) {
  Add([](TestProcessor&) { return true; });
  ASSERT_TRUE(job_->StartThread(false));
  EXPECT_EQ(job_->DoModal(), ProcessThread::kDone);
}

/// Counts itself.
class Counted : public TestProcessor {
 public:
  Counted(std::function<bool(TestProcessor&)> process, std::atomic<int>& alive)
      : TestProcessor(std::move(process)), alive_(alive) {
    ++alive_;
  }
  ~Counted() override { --alive_; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  std::atomic<int>& alive_;
};

TEST_F(ProcessThreadThreadTest, JobsThatNobodyWaitsForDeleteThemselvesAtTheirEnd) {
  std::atomic<int> alive{0};
  std::atomic<int> ran{0};
  const auto run = [&ran](TestProcessor&) { return ++ran > 0; };
  for (int i = 0; i < 20; ++i) {
    auto job = std::make_unique<ProcessThread>(L"", nullptr, false, nullptr, false);
    for (int step = 0; step < 2; ++step) job->AddProcessor(std::make_unique<Counted>(run, alive).release(), L"");
    EXPECT_NE(ProcessThread::StartAlone(std::move(job)), nullptr);
  }
  ProcessThread::WaitForAllAlone();
  EXPECT_EQ(ran, 40);
  EXPECT_EQ(alive, 0);
  EXPECT_TRUE(sink_->begun_.empty());
}

TEST_F(ProcessThreadThreadTest, JobThatNobodyWaitsForIsStoppedWhileItIsThere) {
  std::atomic<int> alive{0};
  std::atomic<bool> stopped{false};
  Event running;
  const auto run = [&](TestProcessor& self) {
    running.Set();
    self.RunUntilStopped();
    stopped = self.IsStopped();
    return false;
  };
  job_->AddProcessor(std::make_unique<Counted>(run, alive).release(), L"");
  const void* const job = ProcessThread::StartAlone(std::move(job_));
  ASSERT_NE(job, nullptr);
  running.Wait();
  EXPECT_FALSE(ProcessThread::StopAlone(this));
  EXPECT_TRUE(ProcessThread::StopAlone(job));
  ProcessThread::WaitForAllAlone();
  EXPECT_TRUE(stopped);
  EXPECT_EQ(alive, 0);
  EXPECT_FALSE(ProcessThread::StopAlone(job));
}

TEST_F(ProcessThreadThreadTest, JobThatWasStartedBeforeIsNotLeftAlone) {
  std::atomic<int> alive{0};
  const auto run = [](TestProcessor& self) { return self.RunUntilStopped(); };
  job_->AddProcessor(std::make_unique<Counted>(run, alive).release(), L"");
  ASSERT_TRUE(job_->StartThread(false));
  EXPECT_EQ(ProcessThread::StartAlone(std::move(job_)), nullptr);
  EXPECT_EQ(alive, 0);
  EXPECT_EQ(ProcessThread::StartAlone(nullptr), nullptr);
}

class Collected : public MessageSink {
 public:
  struct Message {
    MessageIcon icon;
    std::wstring title;
    std::wstring text;
  };

  void ShowMessage(MessageIcon icon, const std::wstring& title, const std::wstring& text) override {
    const std::scoped_lock lock(mutex_);
    messages_.push_back({icon, title, text});
  }

  std::mutex mutex_;
  std::vector<Message> messages_;
};

TEST(MessageSinkThreadTest, MessagesGoToTheInstalledSinkAndNowhereWithoutOne) {
  const auto sink = std::make_shared<Collected>();
  ShowMessage(MessageIcon::kError, L"dropped");
  EXPECT_EQ(InstallMessageSink(sink), nullptr);
  ShowMessage(MessageIcon::kWarning, L"one");
  ShowMessage(MessageIcon::kInformation, L"title", L"two\nlines");
  EXPECT_EQ(InstallMessageSink(nullptr), sink);
  ShowMessage(MessageIcon::kError, L"dropped");
  ASSERT_EQ(sink->messages_.size(), 2u);
  EXPECT_EQ(sink->messages_[0].icon, MessageIcon::kWarning);
  EXPECT_EQ(sink->messages_[0].title, L"");
  EXPECT_EQ(sink->messages_[0].text, L"one");
  EXPECT_EQ(sink->messages_[1].icon, MessageIcon::kInformation);
  EXPECT_EQ(sink->messages_[1].title, L"title");
  EXPECT_EQ(sink->messages_[1].text, L"two\nlines");
}

TEST(MessageSinkThreadTest, SinksMayBeExchangedWhileMessagesCome) {
  std::vector<std::shared_ptr<Collected>> sinks;
  std::atomic<bool> ended{false};
  std::thread talker([&ended] {
    for (int i = 0; i < 2000; ++i) ShowMessage(MessageIcon::kInformation, L"text");
    ended = true;
  });
  while (!ended) {
    sinks.push_back(std::make_shared<Collected>());
    InstallMessageSink(sinks.back());
  }
  talker.join();
  InstallMessageSink(nullptr);
  std::size_t total = 0;
  for (const auto& sink : sinks) total += sink->messages_.size();
  EXPECT_LE(total, 2000u);
}

}  // namespace
}  // namespace vak
