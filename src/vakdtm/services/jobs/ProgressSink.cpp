#include "vakdtm/services/jobs/ProgressSink.h"

#include <memory>
#include <utility>

#include "vakdtm/services/jobs/Installed.h"

namespace vak {
namespace {

Installed<ProgressSink>& Sink() {
  static Installed<ProgressSink> sink;
  return sink;
}

}  // namespace

std::shared_ptr<ProgressSink> InstallProgressSink(std::shared_ptr<ProgressSink> sink) {
  return Sink().Exchange(std::move(sink));
}

std::shared_ptr<ProgressSink> GetProgressSink() { return Sink().Get(); }

}  // namespace vak
