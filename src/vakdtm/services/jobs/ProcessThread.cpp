#include "vakdtm/services/jobs/ProcessThread.h"

#include <atomic>
#include <cassert>
#include <chrono>
#include <condition_variable>
#include <cstddef>
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
    if (worker_.joinable()) worker_.join();
  }

  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  bool IsStarted() const { return worker_.joinable(); }

  void Add(Step step) { steps_.push_back(std::move(step)); }

  bool Start() {
    try {
      worker_ = std::thread([this] { Finish(Run()); });
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

}  // namespace vak
