#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace vak {

/// How far a job of several steps is.
struct JobProgress {
  std::wstring title;         ///< The job's, as its maker gave it; may be empty.
  std::wstring step;          ///< The running step's name.
  std::size_t stepIndex = 0;  ///< From 0.
  std::size_t stepCount = 0;
  double stepFraction = 0.0;  ///< Of the running step, 0 to 1.
  double fraction = 0.0;      ///< Of the whole job, 0 to 1, each step counting the same.
};

/// Where modal jobs report to: the command draws a bar, a viewer shows a dialog with a stop button.
///
/// All of a job's calls come from the thread that runs it modally, `Begin` first and `End` last.
class ProgressSink {
 public:
  virtual ~ProgressSink() = default;

  virtual void Begin(const JobProgress& progress) = 0;

  /// Called about ten times a second, and once when the last step has ended.
  virtual void Show(const JobProgress& progress) = 0;

  /// Asked as often. True stops the job; it then ends as soon as its step lets it.
  virtual bool WantsStop() = 0;

  /// @param done  true when all steps ran to their end.
  virtual void End(bool done) = 0;
};

/// Installs the one sink of the process, or none (null). A job that has begun keeps reporting to the sink that it began
/// with. Any thread may call it. @return the one before.
std::shared_ptr<ProgressSink> InstallProgressSink(std::shared_ptr<ProgressSink> sink);

/// @return the installed sink, null when there is none.
std::shared_ptr<ProgressSink> GetProgressSink();

}  // namespace vak
