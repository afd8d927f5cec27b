#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/jobs/Processor.h"
#include "vakdtm/services/jobs/ProgressSink.h"

#include "Command.h"
#include "CommandSinks.h"
#include "StopSignals.h"

namespace vak {
namespace {

/// Has Ctrl-C pressed while it runs. Ends when it is stopped then, and only then.
class Endless final : public Processor {
 public:
  explicit Endless(bool& ran) : ran_(ran) {}
  bool Process() override {
    if (IsStopped()) return false;
    ran_ = true;
    raise(SIGINT);
    while (!IsStopped()) std::this_thread::yield();
    return false;
  }
  double GetProgress() const override { return 0.5; }

 private:
  bool& ran_;
};

CommandContext Importing(bool quiet) {
  CommandContext context;
  context.quiet = quiet;
  context.subcommand = "import";
  return context;
}

/// What a message of the library looks like on standard error.
std::string Printed(bool quiet, MessageIcon icon, const std::wstring& text, const std::wstring& title = {}) {
  const CommandContext context = Importing(quiet);
  const CommandSinks sinks(context);
  testing::internal::CaptureStderr();
  ShowMessage(icon, title, text);
  return testing::internal::GetCapturedStderr();
}

TEST(CommandSinks, MessagesOfTheLibraryAreOneLineEach) {
  EXPECT_EQ(Printed(false, MessageIcon::kError, L"No space\non \u00e4"), "vakdtm import: No space on \xc3\xa4\n");
  EXPECT_EQ(Printed(false, MessageIcon::kWarning, L"odd"), "vakdtm import: warning: odd\n");
}

TEST(CommandSinks, TitleStandsBeforeTheText) {
  EXPECT_EQ(Printed(false, MessageIcon::kError, L"gone\nfor good", L"Model"), "vakdtm import: Model: gone for good\n");
}

TEST(CommandSinks, QuietLeavesErrors) {
  EXPECT_EQ(Printed(true, MessageIcon::kError, L"bad"), "vakdtm import: bad\n");
  EXPECT_EQ(Printed(true, MessageIcon::kWarning, L"odd"), "");
}

TEST(CommandSinks, NothingIsInstalledAfterwards) {
  const CommandContext context = Importing(false);
  {
    const CommandSinks sinks(context);
    EXPECT_NE(GetProgressSink(), nullptr);
  }
  EXPECT_EQ(GetProgressSink(), nullptr);
}

TEST(CommandSinksDeathTest, CtrlCStopsAJob) {
  EXPECT_EXIT(
      {
        CatchStopSignals();
        const CommandContext context = Importing(true);
        const CommandSinks sinks(context);
        ProcessThread job(L"", nullptr, false, nullptr, false);
        bool ran = false;
        job.AddProcessor(std::make_unique<Endless>(ran).release(), L"");
        alarm(60);  // ends a job that nobody stops
        const bool stopped = job.DoModal() == ProcessThread::kStopped;
        _exit(stopped && ran ? 42 : 43);
      },
      testing::ExitedWithCode(42), "");
}

}  // namespace
}  // namespace vak
