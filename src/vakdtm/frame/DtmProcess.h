#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vakdtm/services/geometry/Page.h"

namespace vak {

class DtmAccess;
class DtmExtentsProcessor;
class DtmProcessor;
class DtmUpdateFile;
class Processor;
class ProcessThread;

/// A job on grid models: a list of steps, each one or more processors on a model. Built, filled, and started once, by
/// one thread; after the start its list is empty.
///
/// A step that fails ends the job; nothing is retried. A step without a processor fails when it is its turn. Each step
/// holds its model open from `AddProcessStep` until the job has ended, or the `DtmProcess` if it isn't started.
///
/// Copies share the steps with their source: one of them is started, the others have nothing left to run then.
class DtmProcess {
 public:
  DtmProcess();
  DtmProcess(const DtmProcess&);
  DtmProcess& operator=(const DtmProcess&);
  /// Deletes processors and accesses of a job that wasn't started, with the last copy.
  ~DtmProcess();

  /// Adds a step. Changes that its processors make reach the model's views at most every 125 ms.
  /// @param file      the model, not owned; held open as said above. With null, or one that can't be opened, the step
  ///                  fails when it is its turn, unless its processor's `Init` attaches a model to the access.
  /// @param nameId    of the text that is shown while it runs (`LoadString`).
  /// @param rect      what to walk, in model units (metres); null or invalid: all cells of areas that aren't empty.
  /// @param allCells  every cell of `extents`, in place of the rectangle.
  /// @param extents   not owned; may be filled by a step before this one.
  /// @return the step's number, from 0.
  int AddProcessStep(DtmUpdateFile* file, unsigned int nameId, const Page* rect, bool allCells,
                     DtmExtentsProcessor* extents);

  /// Gives a step a processor, owned from now on (deleted when there is no such step). A second one makes a
  /// `DtmMultiProcessor` of both; to a `DtmMultiProcessor` it is added as a member.
  void AddProcessor(int step, DtmProcessor* processor);

  /// At first a step can be stopped.
  void SetAllowStop(int step, bool allow);

  /// Lets the rectangle of a step be walked by as many threads as there are cores; at first it isn't. Without effect on
  /// a step without a valid rectangle or with `allCells`. To be set when the processor's `Clone` works, and its cells
  /// don't depend on what others do to their neighbours. A processor that can't be cloned, be it that its `Clone`
  /// throws, is run by one thread all the same. Clones do their part of the work on their own; what becomes of their
  /// results is theirs to arrange. When one of them answers false, or throws, the others are ended before their next
  /// cell, without their `Fini`, and the step has failed.
  void SetAllowParallel(int step, bool allow);

  /// Starts the job in the background.
  /// @param parent,flag  passed on to the `ProcessThread`.
  /// @return the `ProcessThread`, which deletes itself with the steps when the job has ended, see
  /// `ProcessThread::StartAlone`. Null when it couldn't be started; the steps are gone then.
  void* StartThread(void* parent, bool flag);

  /// Runs the job, telling the installed progress sink. @return a `ProcessThread::Result`.
  int DoModal();

  /// Gives the steps to a thread that the caller has made and not started.
  void Init(ProcessThread* thread);

 private:
  struct process_step;

  process_step* FindStep(int step);
  static std::unique_ptr<Processor> CreateWalker(const process_step& step);
  static Processor* CreateRectProcessor(const process_step& step);

  std::vector<process_step> steps_;
};

}  // namespace vak
