#pragma once

#include <algorithm>
#include <atomic>

namespace vak {

/// Something that can be run, watched and stopped.
///
/// `Initialize` and then `Process` are called by one thread; `GetProgress`, `Stop`, `IsStopped` and the setters may be
/// called by any other meanwhile.
class Processor {
 public:
  virtual ~Processor() = default;

  Processor(const Processor&) = delete;
  Processor& operator=(const Processor&) = delete;

  /// Prepares for `Process`. @return false when there is nothing to run; `Process` isn't called then.
  virtual bool Initialize() { return true; }

  /// Does the work. @return true when it was done to the end; false when it failed or was stopped, which `IsStopped`
  /// tells apart.
  virtual bool Process() = 0;

  /// How far `Process` is, 0.0 to 1.0.
  virtual double GetProgress() const { return progress_.load(std::memory_order_relaxed); }

  /// Asks `Process` to end early. Without effect, now and later, while stopping isn't allowed.
  virtual void Stop() {
    if (allowStop_.load()) stopped_.store(true);
  }

  /// True when `Stop` has been called and stopping is allowed. Cheap enough to ask for every cell.
  bool IsStopped() const {
    return stopped_.load(std::memory_order_relaxed) && allowStop_.load(std::memory_order_relaxed);
  }

  /// At first stopping is allowed.
  void SetAllowStop(bool allow) { allowStop_.store(allow); }

  /// @param progress  brought into 0 to 1.
  void SetProgress(double progress) {
    progress_.store(progress >= 0.0 ? std::min(progress, 1.0) : 0.0, std::memory_order_relaxed);
  }

  void ResetProgress() { SetProgress(0.0); }

 protected:
  Processor() = default;

 private:
  std::atomic<bool> stopped_{false};
  std::atomic<bool> allowStop_{true};
  std::atomic<double> progress_{0.0};
};

}  // namespace vak
