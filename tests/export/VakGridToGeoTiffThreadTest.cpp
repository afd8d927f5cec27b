#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "vakdtm/export/VakGridToGeoTiffProcessor.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

#include "support/TestFolder.h"
#include "support/TestGrid.h"
#include "support/TiffImage.h"

namespace vak {
namespace {

TEST(VakGridToGeoTiffThreadTest, ImageIsWrittenBesideItsMakingAndStoppedFromAnyThread) {
  ProjectDefinition project;
  project.SetGeoCoordSys(VakGeoCoordSysBase::MakeLocal());
  SetCurrentProjectDefinition(project);
  const test::TestFolder folder;
  test::TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL}});
  for (int i = 0; i < 1200; ++i) ASSERT_TRUE(grid.Set(i, i * 7 % 1200, dVAL, i));
  grid.Close();
  folder.Write("a.dtm", {reinterpret_cast<const char*>(grid.Bytes().data()), grid.Bytes().size()});
  for (const bool stops : {false, true}) {
    VakGridToGeoTiffProcessor job(dVAL, false, -1.0F);
    job.SetInitInfo(folder.WideFile("a.tif"), L"", folder.WideFile("a.dtm"), nullptr, false);
    ASSERT_TRUE(job.Initialize());
    std::atomic<bool> ended{false};
    bool done = false;
    std::thread worker([&] {
      done = job.Process();
      ended = true;
    });
    double last = 0;
    while (!ended) {
      const double progress = job.GetProgress();
      EXPECT_GE(progress, last);
      last = progress;
      if (stops && progress > 0) job.Stop();
      std::this_thread::yield();
    }
    worker.join();
    // A stop may come when all is done.
    EXPECT_TRUE(done || job.IsStopped());
    if (!done) continue;
    const std::vector<float> samples = test::TiffImage(folder.File("a.tif")).Floats();
    ASSERT_EQ(samples.size(), 1216U * 1216U);
    for (int i = 0; i < 1200; ++i) {
      ASSERT_EQ(samples[static_cast<std::size_t>(1215 - i) * 1216 + static_cast<std::size_t>(i * 7 % 1200)], i);
    }
  }
  SetCurrentProjectDefinition(ProjectDefinition());
}

}  // namespace
}  // namespace vak
