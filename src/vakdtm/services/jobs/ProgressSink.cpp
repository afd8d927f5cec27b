#include "vakdtm/services/jobs/ProgressSink.h"

#include <memory>
#include <utility>

#include "vakdtm/services/jobs/Installed.h"

namespace vak {
namespace {

Installed<ProgressSink>& ProgressSinks() {
  static Installed<ProgressSink> sink;
  return sink;
}

}  // namespace

std::shared_ptr<ProgressSink> InstallProgressSink(std::shared_ptr<ProgressSink> sink) {
  return ProgressSinks().Exchange(std::move(sink));
}

std::shared_ptr<ProgressSink> GetProgressSink() { return ProgressSinks().Get(); }

}  // namespace vak
