#pragma once

#include <memory>
#include <string>

#include "vakdtm/services/geometry/Point.h"

namespace vak {

class Processor;

/// Runs processors one after the other on a worker thread, each to its end before the next: `Initialize`, then
/// `Process`. The first that answers false, or throws, ends the job; an exception goes no further.
///
/// Belongs to one thread, but for `Stop`. Runs once.
class ProcessThread {
 public:
  /// How a job ended.
  enum Result : int {
    kDone = 0,     ///< All steps ran to their end.
    kStopped = 1,  ///< A step was stopped, or not begun because of that. Steps before it are done.
    kFailed = 2    ///< A step failed. Steps before it are done.
  };

  /// @param title  for the progress sink.
  /// @param parentWindow,flag,position,flag2  what a window of the progress would go by; there is none here, and they
  /// aren't looked at. Nothing is owned.
  ProcessThread(const std::wstring& title, void* parentWindow, bool flag, const Point* position, bool flag2);

  /// Stops the job and waits for its worker.
  ~ProcessThread();

  ProcessThread(const ProcessThread&) = delete;
  ProcessThread& operator=(const ProcessThread&) = delete;

  /// Adds a step, owned from now on. Before the start only: a processor that comes later is deleted and never runs.
  void AddProcessor(Processor* processor, const std::wstring& name);

  /// Starts the job without waiting for it. Nothing is reported to the progress sink.
  /// @param flag  not looked at.
  /// @return false when it had been started before or no thread could be had.
  bool StartThread(bool flag);

  /// Runs the job, started here or before, and returns when it has ended. Meanwhile the calling thread tells the
  /// installed `ProgressSink` how far it is and asks it whether to stop, about ten times a second.
  /// @return a `Result`; `kFailed` also when no thread could be had.
  int DoModal();

  /// Starts the job without waiting for it and leaves the object to itself: when the job has ended it is deleted, with
  /// its steps. A job that still runs when the process ends is stopped and waited for.
  /// @return the job, by which `StopAlone` knows it: it may be gone by then. Null when no thread could be had or it had
  /// been started before; it is deleted then.
  static ProcessThread* StartAlone(std::unique_ptr<ProcessThread> job);

  /// Stops a job that was started so, as `Stop` does. Any thread may call it at any time.
  /// @return false when there is no such job any more.
  static bool StopAlone(const void* job);

  /// Returns when there is no job left that was started so: they have ended and are deleted. Not from one of their
  /// steps.
  static void WaitForAllAlone();

  /// Asks all steps to end early; those that don't allow it run on. Any thread may call it while the object lives.
  void Stop();

 private:
  class Job;
  class Alone;
  std::unique_ptr<Job> job_;
};

}  // namespace vak
