#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "vakdtm/services/jobs/Processor.h"

namespace vak {

class DtmAccess;
class DtmFile;
class DtmProcessor;

/// What the walkers have in common: whom they show the cells of which model, and how far they are.
///
/// A walker is run once, on one thread; `Stop` and `GetProgress` may be called by others meanwhile. The processor's
/// `Init` is called before the walker looks at the file, and may attach one to the access. Without a processor, an
/// access, or a file in it behind `Init`, `Process` answers false. What has been done to cells stays done when a walk
/// fails.
class DtmWalker : public Processor {
 public:
  ~DtmWalker() override;

  /// The part of the cells that is done; 0 while it isn't known how many there are.
  double GetProgress() const override;

 protected:
  /// @param owns  both are deleted with the walker, the processor first; also when the walk never begins.
  DtmWalker(DtmAccess* access, DtmProcessor* processor, bool owns);

  /// Calls the processor's `Init`. @return the file to walk on; null when the walk must not go on.
  DtmFile* Begin();

  /// @return null without an access or a file in it.
  DtmFile* File() const;
  DtmAccess* Access() const { return access_; }
  /// Not null behind `Begin`.
  DtmProcessor& Shown() const { return *processor_; }

  std::int64_t Done() const { return done_.load(std::memory_order_relaxed); }
  std::int64_t Total() const { return total_.load(std::memory_order_relaxed); }
  void SetDone(std::int64_t done) { done_.store(done, std::memory_order_relaxed); }
  /// Rows times columns, or areas times the cells of one; none of them below 0. The type's end when there are more: all
  /// cells that rows and columns of 32 bits can tell are one too many for 64.
  void SetTotal(std::int64_t rows, std::int64_t cols);
  /// No read-modify-write: the thread of the walk alone writes, and it does so for every cell.
  void AddDone(std::int64_t cells) { SetDone(Done() + cells); }

 private:
  DtmAccess* const access_;
  DtmProcessor* const processor_;
  const std::unique_ptr<DtmAccess> ownedAccess_;
  const std::unique_ptr<DtmProcessor> ownedProcessor_;
  // On a cache line of its own: it is written for every cell, and a neighbour may be what another thread works with.
  alignas(64) std::atomic<std::int64_t> done_{0};  // cells
  std::atomic<std::int64_t> total_{0};             // cells
};

}  // namespace vak
