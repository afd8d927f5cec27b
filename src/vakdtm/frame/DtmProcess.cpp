#include "vakdtm/frame/DtmProcess.h"

#include <utility>

#include "vakdtm/frame/AtomicCounter.h"
#include "vakdtm/frame/DtmAllAreasCellProcessor.h"
#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmMultiProcessor.h"
#include "vakdtm/frame/DtmRectProcessor.h"
#include "vakdtm/frame/SharedCellRange.h"
#include "vakdtm/services/jobs/ParallelProcessor.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/StringTable.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBufferedUpdater.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {
namespace {

constexpr unsigned long kUpdateInterval = 125;  // ms

/// @return null when there can't be one.
std::unique_ptr<DtmProcessor> MakeClone(DtmProcessor& processor) {
  try {
    return std::unique_ptr<DtmProcessor>(processor.Clone());
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

struct DtmProcess::process_step {
  /// What copies of a job share, until one of them is started and takes it: there is no access then.
  struct Parts {
    std::unique_ptr<DtmAccess> access;
    std::unique_ptr<DtmProcessor> processor;  // a DtmMultiProcessor as soon as there is more than one; goes first
  };

  std::shared_ptr<Parts> held = std::make_shared<Parts>();
  std::wstring name;
  Page rectangle;  // invalid: not limited to one
  bool allCells = false;
  DtmExtentsProcessor* extents = nullptr;
  bool allowStop = true;
  bool allowParallel = false;
};

DtmProcess::DtmProcess() = default;
DtmProcess::DtmProcess(const DtmProcess&) = default;
DtmProcess& DtmProcess::operator=(const DtmProcess&) = default;
DtmProcess::~DtmProcess() = default;

int DtmProcess::AddProcessStep(DtmUpdateFile* file, unsigned int nameId, const Page* rect, bool allCells,
                               DtmExtentsProcessor* extents) {
  process_step step;
  step.held->access = std::make_unique<DtmAccess>(file);
  if (step.held->access->GetDtmFile() != nullptr) {
    step.held->access->SetUpdater(std::make_unique<DtmBufferedUpdater>(file, kUpdateInterval).release());
  }
  step.name = LoadString(static_cast<int>(nameId));
  if (rect != nullptr) step.rectangle = *rect;
  step.allCells = allCells;
  step.extents = extents;
  steps_.push_back(std::move(step));
  return static_cast<int>(steps_.size()) - 1;
}

DtmProcess::process_step* DtmProcess::FindStep(int step) {
  const auto place = static_cast<std::size_t>(step);
  return step >= 0 && place < steps_.size() ? &steps_[place] : nullptr;
}

void DtmProcess::AddProcessor(int step, DtmProcessor* processor) {
  std::unique_ptr<DtmProcessor> added(processor);
  process_step* const found = FindStep(step);
  // Null isn't added: it would make a group of a lone processor, which then isn't told of rows any more.
  if (found == nullptr || added == nullptr) return;
  std::unique_ptr<DtmProcessor>& present = found->held->processor;
  if (present == nullptr) {
    present = std::move(added);
    return;
  }
  auto* group = dynamic_cast<DtmMultiProcessor*>(present.get());
  if (group == nullptr) {
    auto made = std::make_unique<DtmMultiProcessor>();
    group = made.get();
    group->AddProcessor(present.release());
    present = std::move(made);
  }
  group->AddProcessor(added.release());
}

void DtmProcess::SetAllowStop(int step, bool allow) {
  if (process_step* const found = FindStep(step)) found->allowStop = allow;
}

void DtmProcess::SetAllowParallel(int step, bool allow) {
  if (process_step* const found = FindStep(step)) found->allowParallel = allow;
}

void* DtmProcess::StartThread(void* parent, bool flag) {
  auto thread = std::make_unique<ProcessThread>(std::wstring(), parent, flag, nullptr, false);
  Init(thread.get());
  return ProcessThread::StartAlone(std::move(thread));
}

int DtmProcess::DoModal() {
  ProcessThread thread(std::wstring(), nullptr, false, nullptr, false);
  Init(&thread);
  return thread.DoModal();
}

void DtmProcess::Init(ProcessThread* thread) {
  if (thread == nullptr) return;
  const std::vector<process_step> steps = std::exchange(steps_, {});
  for (const process_step& step : steps) {
    if (step.held->access == nullptr) continue;
    std::unique_ptr<Processor> walker = CreateWalker(step);
    walker->SetAllowStop(step.allowStop);
    thread->AddProcessor(walker.release(), step.name);
  }
}

std::unique_ptr<Processor> DtmProcess::CreateWalker(const process_step& step) {
  process_step::Parts& parts = *step.held;
  if (step.allCells) {
    return std::make_unique<DtmAllAreasCellProcessor>(parts.access.release(), parts.processor.release(), step.extents,
                                                      true);
  }
  if (step.rectangle.IsValid()) return std::unique_ptr<Processor>(CreateRectProcessor(step));
  return std::make_unique<DtmCellProcessor>(parts.access.release(), parts.processor.release(), true);
}

Processor* DtmProcess::CreateRectProcessor(const process_step& step) {
  DtmAccess* const access = step.held->access.release();
  DtmProcessor* const processor = step.held->processor.release();
  auto first = std::make_unique<DtmRectProcessor>(step.rectangle, access, processor, true);
  const unsigned long cores = GetTotalNumberOfCores();
  if (!step.allowParallel || cores < 2 || processor == nullptr) return first.release();

  std::vector<std::unique_ptr<DtmRectProcessor>> walkers;
  walkers.push_back(std::move(first));
  for (unsigned long i = 1; i < cores; ++i) {
    std::unique_ptr<DtmProcessor> clone = MakeClone(*processor);
    if (clone == nullptr) return walkers.front().release();
    auto copy = std::make_unique<DtmAccess>(*access);
    walkers.push_back(std::make_unique<DtmRectProcessor>(step.rectangle, copy.release(), clone.release(), true));
  }
  const auto counter = std::make_shared<AtomicCounter>();
  const auto range = std::make_shared<SharedCellRange>();
  auto group = std::make_unique<ParallelProcessor>();
  for (auto& walker : walkers) {
    walker->SetSharedCounter(counter);
    walker->SetSharedRange(range);
    group->AddProcessor(walker.release());
  }
  return group.release();
}

}  // namespace vak
