#pragma once

#include <memory>
#include <optional>

#include "vakdtm/services/jobs/ProgressSink.h"

#include "Command.h"
#include "ProgressBar.h"

namespace vak {

/// Draws the library's jobs as a bar, and stops them when the user has asked for it.
class BarProgressSink final : public ProgressSink {
 public:
  explicit BarProgressSink(const CommandContext& context) : context_(context) {}

  void Begin(const JobProgress& progress) override;
  void Show(const JobProgress& progress) override;
  bool WantsStop() override;
  void End(bool done) override;

 private:
  const CommandContext& context_;
  std::optional<ProgressBar> bar_;
};

}  // namespace vak
