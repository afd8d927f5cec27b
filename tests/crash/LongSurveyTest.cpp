// A survey that goes on and on: what grows with the model, and what doesn't.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <string>
#include <vector>

#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmRectUpdater.h"

#include "LiveModel.h"
#include "support/LongForm.h"
#include "support/RunCommand.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

namespace fs = std::filesystem;

using Clock = std::chrono::steady_clock;

#ifdef VAKDTM_SANITIZED
constexpr bool kMemoryIsOurs = false;  // sanitizers have an allocator of their own, and shadows
#else
constexpr bool kMemoryIsOurs = true;
#endif

std::uint64_t AllocatedBytes() {
  const auto all = mallinfo2();
  return all.uordblks + all.hblkhd;
}

/// Memory of a process that holds its own data and no file's, in bytes.
std::uint64_t OwnMemory(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string word; status >> word;) {
    std::uint64_t kilobytes = 0;
    if (word == "RssAnon:" && status >> kilobytes) return kilobytes * 1024;
  }
  return 0;
}

template <typename Work>
double Milliseconds(Work work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// The middle one of several runs.
template <typename Work>
double MedianMilliseconds(Work work) {
  std::vector<double> times;
  for (int i = 0; i < 5; ++i) times.push_back(Milliseconds([&] { work(i); }));
  std::nth_element(times.begin(), times.begin() + 2, times.end());
  return times[2];
}

// ---- What an area costs that nobody is in

/// Small areas, so that many of them fit everywhere: a sounding in each.
constexpr int kAreaSize = 4;
constexpr int kAreasARow = 400;

bool SoundInArea(DtmAccess& access, int area, double z, long long time) {
  const int col = area % kAreasARow * kAreaSize;
  const int row = area / kAreasARow * kAreaSize;
  return access.InsertValue(col + 0.5, row + 0.5, z, time, nullptr, nullptr, 0);
}

TEST(LongSurvey, AnAreaThatNobodyIsInCostsLittleAndATickGrowsWithTheIndexOnly) {
  const int counts[] = {1000, 10000, LongForm(20000, 100000)};
  for (const int count : counts) {
    SCOPED_TRACE(count);
    const TestFolder folder;
    TimeStands time(1000);
    DtmManager::GetDtmManager().SetDtmSyncTime(65535);  // the passes are made here
    const SharedModel writer = CreateShared(folder.WideFile("a.dtm"), {kAreaSize, 1.0, {dVAL, iNUM}});
    ASSERT_NE(writer, nullptr);
    DtmAccess access(writer.get());
    access.SetUpdater(std::make_unique<DtmRectUpdater>(writer.get()).release());
    const std::uint64_t before = AllocatedBytes();
    for (int area = 0; area < count; ++area) ASSERT_TRUE(SoundInArea(access, area, -5, 1000));
    const double firstTick = Milliseconds([&] { writer->Sync(); });
    const auto bytesOfWriter = (AllocatedBytes() - before) / static_cast<std::uint64_t>(count);

    const std::uint64_t beforeReader = AllocatedBytes();
    auto reader = std::make_unique<OtherModel>(folder.File("a.dtm"), false);
    ASSERT_EQ((*reader)->NumAreas(), count);
    const auto bytesOfReader = (AllocatedBytes() - beforeReader) / static_cast<std::uint64_t>(count);

    // A sounding a tick, each in a later second: the index is written anew, and read anew.
    const double tick = MedianMilliseconds([&](int i) {
      time.At(2000 + i);
      ASSERT_TRUE(SoundInArea(access, i, -6, 2000));
      writer->Sync();
    });
    const double follow = MedianMilliseconds([&](int i) {
      time.At(3000 + i);
      ASSERT_TRUE(SoundInArea(access, i, -7, 3000));
      ASSERT_TRUE(writer->SyncWrite());
      ASSERT_TRUE((*reader)->SyncRead(nullptr));
    });
    const double idle = MedianMilliseconds([&](int) { ASSERT_TRUE(writer->SyncWrite()); });
    std::printf(
        "%6d areas: %llu bytes an area in the writer, %llu in a reader; first tick %.1f ms, tick %.1f ms, with a "
        "reader's %.1f ms, without a change %.2f ms\n",
        count, static_cast<unsigned long long>(bytesOfWriter), static_cast<unsigned long long>(bytesOfReader),
        firstTick, tick, follow, idle);
    if (kMemoryIsOurs) {
      EXPECT_LT(bytesOfWriter, 1000U);
      EXPECT_LT(bytesOfReader, 1000U);
    }
    EXPECT_LT(tick, 2000);
    reader.reset();
  }
  DtmManager::GetDtmManager().SetDtmSyncTime(2000);
}

// ---- When the index is written

TEST(LongSurvey, TheIndexIsWrittenOnlyWhenItHasChanged) {
  constexpr int kCount = 1000;
  TimeStands time(1000);
  TestGrid grid;
  for (int area = 0; area < kCount; ++area) ASSERT_TRUE(SoundInArea(grid.Access(), area, -5, 1000));
  ASSERT_TRUE(grid.File().SyncWrite());
  const std::uint64_t index = kCount * grid::kEntrySize;
  const auto written = [&] {
    const std::uint64_t before = grid.Memory().counts.bytesWritten;
    EXPECT_TRUE(grid.File().SyncWrite());
    return grid.Memory().counts.bytesWritten - before;
  };
  EXPECT_EQ(written(), 0U) << "nothing has changed";
  // The same second, the same range of heights: the cells alone.
  ASSERT_TRUE(SoundInArea(grid.Access(), kCount - 1, -5, 1000));
  const std::uint64_t cells = written();
  EXPECT_GT(cells, 0U);
  EXPECT_LT(cells, index / 10);
  time.At(1001);
  ASSERT_TRUE(SoundInArea(grid.Access(), kCount - 1, -5, 1001));
  EXPECT_GE(written(), index);
  EXPECT_EQ(written(), 0U);
}

// ---- Hours of it

TEST(LongSurvey, MemoryStaysFlatInWriterAndReaderWhileTheModelGrows) {
  // Two hours of a sounder of 64 beams that pings 20 times a second come to 9.2 million.
  const std::string count = std::to_string(LongForm(1500000, 64 * 20 * 7200));
  const TestFolder folder;
  const std::string path = folder.File("live.dtm");
  ASSERT_EQ(RunCommand({VAKDTM_COMMAND, "create", path, "--cell-size", "1"}).Wait().status, 0);
  RunCommand watch({VAKDTM_COMMAND, "watch", path, "--sync", "500"});
  // A little slower than it goes, so that there are syncs to look between.
  LiveSurveyProcess survey(path, 1, 600000, {"--count", count});
  struct Sample {
    std::uint64_t file, writer, reader;
  };
  std::vector<Sample> samples;
  for (std::size_t sync = 1; !survey.Command().HasEnded(); ++sync) {
    const Sample sample{fs::file_size(path), OwnMemory(survey.Command().Process()), OwnMemory(watch.Process())};
    if (sample.writer != 0 && sample.reader != 0) samples.push_back(sample);
    try {
      survey.AwaitSync(sync);
    } catch (const std::runtime_error&) {
      break;  // it has ended meanwhile
    }
  }
  EXPECT_EQ(survey.Command().Wait().status, 0) << survey.Command().Wait().err;
  EXPECT_EQ(survey.Synced(), std::stoull(count));
  EXPECT_FALSE(watch.HasEnded());
  ASSERT_GE(samples.size(), 3U);
  Sample most{};
  for (const Sample& sample : samples) {
    most.writer = std::max(most.writer, sample.writer);
    most.reader = std::max(most.reader, sample.reader);
  }
  const std::uint64_t file = fs::file_size(path);
  std::printf(
      "%s soundings, %.1f MB of model; at the most %.1f MB in the writer and %.1f MB in the reader (%.1f and %.1f at "
      "the second sync)\n",
      count.c_str(), static_cast<double>(file) * 1e-6, static_cast<double>(most.writer) * 1e-6,
      static_cast<double>(most.reader) * 1e-6, static_cast<double>(samples[1].writer) * 1e-6,
      static_cast<double>(samples[1].reader) * 1e-6);
  if (!kMemoryIsOurs) return;
  const std::uint64_t allowed = (file - samples[1].file) / 50 + 1000000;
  EXPECT_LT(most.writer - samples[1].writer, allowed);
  EXPECT_LT(most.reader - samples[1].reader, allowed);
}

}  // namespace
}  // namespace vak::test
