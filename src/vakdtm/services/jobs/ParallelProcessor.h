#pragma once

#include <memory>
#include <vector>

#include "vakdtm/services/jobs/Processor.h"

namespace vak {

/// Runs a group of processors at the same time, as one.
///
/// A member's exception counts as its answering false and goes no further.
class ParallelProcessor : public Processor {
 public:
  ParallelProcessor() = default;

  /// Deletes the members.
  ~ParallelProcessor() override = default;

  /// Adds a member, owned from now on. Before `Initialize` only, by the thread that will call it. Null is no member.
  void AddProcessor(Processor* processor);

  /// Initialises all members on this thread, in the order of adding, also those behind one that can't be: each may
  /// count on it. @return true when all could be; otherwise none is to be processed.
  bool Initialize() override;

  /// Runs `Process` of each member on a thread of its own and returns when all have ended. A member for which no thread
  /// can be had runs on this one.
  ///
  /// A member that fails ends the others as a `Stop` of each would, since what they do is of no use without it; this
  /// group isn't stopped by that, so `IsStopped` tells a failure from a stop. A member that is stopped by itself leaves
  /// the others alone.
  /// @return true when all answered true, or there are none; false, without running any, when the group is stopped.
  bool Process() override;

  /// The members' progress added up, at most 1: each tells what part of the whole work it has done. 0 without any.
  double GetProgress() const override;

  /// Stops the group and all members that allow it. Without effect on any while the group doesn't allow it.
  void Stop() override;

 private:
  bool Run(Processor& member);
  void StopMembers();

  std::vector<std::unique_ptr<Processor>> members_;  // unchanged once initialised
};

}  // namespace vak
