#include <atomic>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

#include "Command.h"
#include "DiscardOnKill.h"
#include "LineExport.h"
#include "StopSignals.h"
#include "support/CommandModels.h"

namespace vak {
namespace {

namespace fs = std::filesystem;
using Point = GTL::Point2D<double>;
using Lines = std::vector<TracedLine<Point>>;

/// What the folder holds but for the model.
std::size_t CountBeside(const test::TestFolder& folder) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder.Path())) {
    if (entry.path().filename() != "a.dtm") ++count;
  }
  return count;
}

TEST(LineExport, WithoutMemoryInTheMiddleOfATraceNothingIsKept) {
  const test::CommandModels models;
  LineOptions options;
  options.model = models.Make("a.dtm", "0.5,0.5,-1\n1.5,0.5,-2\n");
  CommandContext context;
  context.quiet = true;
  context.subcommand = "contour";
  for (const char* name : {"c.geojson", "c.json"}) {
    SCOPED_TRACE(name);
    options.output = models.File(name);
    LineExport work(options, context, "contours");
    ASSERT_EQ(work.LookAtInputs(), kDone);
    testing::internal::CaptureStderr();
    const int status = work.Run<Point>({1, 2, 3}, [](std::size_t step, const std::atomic<bool>&, Lines&) {
      if (step == 1) throw std::bad_alloc();
    });
    EXPECT_EQ(status, kCouldNotBeDone);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "vakdtm contour: there is not enough memory - end other programs, or ask for less at a time\n");
  }
  EXPECT_EQ(CountBeside(models.Folder()), 0u);
}

TEST(DiscardOnKill, RemovesAFileOrAFolderWithItsFilesAndNoFolderWithin) {
  const test::TestFolder folder;
  folder.Write("file", "x");
  fs::create_directory(folder.File("flat"));
  for (int i = 0; i < 300; ++i) folder.Write("flat/with a long name " + std::to_string(i), "x");
  fs::create_directories(folder.File("deep/in"));
  folder.Write("deep/in/x", "mine");
  folder.Write("deep/x", "x");
  for (const char* name : {"file", "flat/", "deep/", "nothing"}) RemoveFlat(folder.File(name).c_str());
  EXPECT_FALSE(folder.Has("file"));
  EXPECT_FALSE(folder.Has("flat"));
  EXPECT_FALSE(folder.Has("deep/x"));
  EXPECT_EQ(folder.Text("deep/in/x"), "mine");
}

TEST(DiscardOnKill, TheSecondSignalRemovesWhatIsNamedAndNothingElse) {
  const test::TestFolder folder;
  for (const char* name : {"named", "finished", "other"}) folder.Write(name, "x");
  EXPECT_EXIT(
      {
        CatchStopSignals();
        DiscardOnKill finished;
        finished.Name(folder.File("finished"));
        finished.Forget();
        DiscardOnKill named;
        named.Name(folder.File("named"));
        // Those of the first moment are one wish.
        while (true) raise(SIGTERM);
      },
      testing::KilledBySignal(SIGTERM), "");
  EXPECT_FALSE(folder.Has("named"));
  EXPECT_TRUE(folder.Has("finished"));
  EXPECT_TRUE(folder.Has("other"));
}

}  // namespace
}  // namespace vak
