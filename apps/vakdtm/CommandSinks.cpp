#include "CommandSinks.h"

#include <memory>
#include <optional>
#include <string>

#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/jobs/ProgressSink.h"
#include "vakdtm/services/text/Utf8.h"

#include "Command.h"
#include "ProgressBar.h"
#include "StopSignals.h"

namespace vak {
namespace {

class BarSink final : public ProgressSink {
 public:
  explicit BarSink(const CommandContext& context) : context_(context) {}

  void Begin(const JobProgress& progress) override {
    bar_.emplace(context_);
    Show(progress);
  }
  void Show(const JobProgress& progress) override {
    if (bar_) bar_->Show(progress.fraction);
  }
  bool WantsStop() override { return StopRequested(); }
  void End(bool /*done*/) override { bar_.reset(); }

 private:
  const CommandContext& context_;
  std::optional<ProgressBar> bar_;
};

class LineSink final : public MessageSink {
 public:
  explicit LineSink(const CommandContext& context) : context_(context) {}

  void ShowMessage(MessageIcon icon, const std::wstring& title, const std::wstring& text) override {
    std::string line = ToUtf8(title.empty() ? text : title + L": " + text);
    for (char& c : line) {
      if (c == '\n' || c == '\r') c = ' ';
    }
    if (icon == MessageIcon::kError) {
      context_.Fail("", line, "");
    } else {
      context_.Warn("", line, "");
    }
  }

 private:
  const CommandContext& context_;
};

}  // namespace

CommandSinks::CommandSinks(const CommandContext& context) {
  InstallProgressSink(std::make_shared<BarSink>(context));
  InstallMessageSink(std::make_shared<LineSink>(context));
}

CommandSinks::~CommandSinks() {
  InstallProgressSink(nullptr);
  InstallMessageSink(nullptr);
}

}  // namespace vak
