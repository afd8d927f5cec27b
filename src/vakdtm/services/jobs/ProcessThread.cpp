#include "vakdtm/services/jobs/ProcessThread.h"

#include <atomic>
#include <cassert>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/services/jobs/Processor.h"
#include "vakdtm/services/jobs/ProgressSink.h"

namespace vak {
namespace {

constexpr std::chrono::milliseconds kReportInterval{100};

struct Step {
  std::unique_ptr<Processor> processor;
  std::wstring name;
};

/// @return true when the step ran to its end. What a processor throws ends its job, not the process.
bool RunStep(Processor& processor) {
  try {
    return processor.Initialize() && processor.Process();
  } catch (...) {
    return false;
  }
}

}  // namespace

class ProcessThread::Job {
 public:
  explicit Job(std::wstring title) : title_(std::move(title)) {}

  ~Job() {
    Stop();
    if (!worker_.joinable()) return;
    if (worker_.get_id() == std::this_thread::get_id()) {
      worker_.detach();  // the job ends itself
    } else {
      worker_.join();
    }
  }

  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  bool IsStarted() const { return worker_.joinable(); }

  void Add(Step step) { steps_.push_back(std::move(step)); }

  /// @param atEnd  called last on the worker, when the job has ended; it may delete the job.
  bool Start(std::function<void()> atEnd = [] {}) {
    try {
      worker_ = std::thread([this, atEnd = std::move(atEnd)] {
        Finish(Run());
        atEnd();
      });
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  }

  void Stop() {
    for (const Step& step : steps_) step.processor->Stop();
  }

  Result WaitAndReport() {
    const std::shared_ptr<ProgressSink> sink = GetProgressSink();
    if (!sink) return Wait();
    sink->Begin(Progress());
    std::optional<Result> result;
    // Asked before the first wait too: of many short jobs, each would otherwise be over before anybody asks.
    for (bool stopping = false; !result;) {
      if (!stopping && sink->WantsStop()) {
        stopping = true;
        Stop();
      }
      result = WaitAWhile();
      if (!result) sink->Show(Progress());
    }
    sink->Show(Progress());
    sink->End(*result == kDone);
    return *result;
  }

 private:
  Result Run() {
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      current_.store(i, std::memory_order_relaxed);
      Processor& processor = *steps_[i].processor;
      if (processor.IsStopped()) return kStopped;
      if (!RunStep(processor)) return processor.IsStopped() ? kStopped : kFailed;
    }
    current_.store(steps_.size(), std::memory_order_relaxed);
    return kDone;
  }

  void Finish(Result result) {
    const std::scoped_lock lock(mutex_);
    result_ = result;
    ended_.notify_all();
  }

  Result Wait() {
    std::unique_lock lock(mutex_);
    ended_.wait(lock, [this] { return result_.has_value(); });
    return result_.value_or(kFailed);
  }

  std::optional<Result> WaitAWhile() {
    std::unique_lock lock(mutex_);
    ended_.wait_for(lock, kReportInterval, [this] { return result_.has_value(); });
    return result_;
  }

  JobProgress Progress() const {
    JobProgress progress;
    progress.title = title_;
    progress.stepCount = steps_.size();
    const std::size_t current = current_.load(std::memory_order_relaxed);
    if (current >= steps_.size()) {
      progress.stepIndex = steps_.empty() ? 0 : steps_.size() - 1;
      progress.step = steps_.empty() ? std::wstring() : steps_.back().name;
      progress.stepFraction = progress.fraction = 1.0;
      return progress;
    }
    progress.stepIndex = current;
    progress.step = steps_[current].name;
    progress.stepFraction = steps_[current].processor->GetProgress();
    progress.fraction = (static_cast<double>(current) + progress.stepFraction) / static_cast<double>(steps_.size());
    return progress;
  }

  const std::wstring title_;
  std::vector<Step> steps_;  // unchanged once started
  std::atomic<std::size_t> current_{0};
  std::mutex mutex_;
  std::condition_variable ended_;
  std::optional<Result> result_;  // guarded by mutex_
  std::thread worker_;
};

/// The jobs that nobody waits for.
class ProcessThread::Alone {
 public:
  static Alone& Instance() {
    // Never deleted: a worker may still be on its way out of here when the process ends.
    static Alone& alone = *std::make_unique<Alone>().release();
    return alone;
  }

  ProcessThread* Start(std::unique_ptr<ProcessThread> job) {
    // Not before there is a job: what the jobs work on goes after it then.
    static const AtExit atExit{*this};
    ProcessThread* const started = job.get();
    // The worker comes to `End` only when all is entered.
    const std::scoped_lock lock(mutex_);
    if (started->job_->IsStarted() || !started->job_->Start([this, started] { End(started); })) return nullptr;
    running_.emplace(started, std::move(job));
    ++count_;
    return started;
  }

  bool Stop(const void* job) {
    const std::scoped_lock lock(mutex_);
    const auto found = running_.find(job);
    if (found == running_.end()) return false;
    found->second->Stop();
    return true;
  }

  void WaitForAll() {
    std::unique_lock lock(mutex_);
    ended_.wait(lock, [this] { return count_ == 0; });
  }

 private:
  struct AtExit {
    ~AtExit() {
      alone.StopAll();
      alone.WaitForAll();
    }
    Alone& alone;
  };

  void StopAll() {
    const std::scoped_lock lock(mutex_);
    for (const auto& job : running_) job.second->Stop();
  }

  void End(const ProcessThread* job) {
    std::unique_ptr<ProcessThread> ended;
    {
      const std::scoped_lock lock(mutex_);
      const auto found = running_.find(job);
      ended = std::move(found->second);
      running_.erase(found);
    }
    ended.reset();  // without the lock: models may be closed by this
    const std::scoped_lock lock(mutex_);
    --count_;
    ended_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable ended_;
  std::map<const void*, std::unique_ptr<ProcessThread>> running_;  // guarded by mutex_
  std::size_t count_ = 0;                                          // guarded by mutex_; of jobs that aren't deleted yet
};

ProcessThread::ProcessThread(const std::wstring& title, void* /*parentWindow*/, bool /*flag*/,
                             const Point* /*position*/, bool /*flag2*/)
    : job_(std::make_unique<Job>(title)) {}

ProcessThread::~ProcessThread() = default;

void ProcessThread::AddProcessor(Processor* processor, const std::wstring& name) {
  Step step{std::unique_ptr<Processor>(processor), name};
  assert(!job_->IsStarted());
  if (!job_->IsStarted()) job_->Add(std::move(step));
}

bool ProcessThread::StartThread(bool /*flag*/) { return !job_->IsStarted() && job_->Start(); }

int ProcessThread::DoModal() {
  if (!job_->IsStarted() && !job_->Start()) return kFailed;
  return job_->WaitAndReport();
}

void ProcessThread::Stop() { job_->Stop(); }

ProcessThread* ProcessThread::StartAlone(std::unique_ptr<ProcessThread> job) {
  return job != nullptr ? Alone::Instance().Start(std::move(job)) : nullptr;
}

bool ProcessThread::StopAlone(const void* job) { return Alone::Instance().Stop(job); }

void ProcessThread::WaitForAllAlone() { Alone::Instance().WaitForAll(); }

}  // namespace vak
