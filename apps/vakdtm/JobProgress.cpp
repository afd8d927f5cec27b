#include "JobProgress.h"

#include "StopSignals.h"

namespace vak {

void BarProgressSink::Begin(const JobProgress& progress) {
  bar_.emplace(context_);
  Show(progress);
}

void BarProgressSink::Show(const JobProgress& progress) { bar_->Show(progress.fraction); }

bool BarProgressSink::WantsStop() { return StopRequested(); }

void BarProgressSink::End(bool /*done*/) { bar_.reset(); }

}  // namespace vak
