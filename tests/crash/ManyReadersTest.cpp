// One process writes a model and four others read it all the while.
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmBufferedUpdater.h"

#include "support/LongForm.h"
#include "support/RunCommand.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"
#include "support/Worker.h"

namespace vak::test {
namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr int kAreaSize = 64;
constexpr int kSide = 256;  // cells: 16 areas
constexpr std::uint64_t kGenerations = 1U << 18U;
constexpr int kReaders = 4;

std::uint64_t Mixed(std::uint64_t generation) { return generation * 0x9E3779B97F4A7C15U >> 46U; }

/// What a cell holds from this sweep of the writer's on: it says which cell it is and, twice over, which sweep, so that
/// neither another cell's value nor a mixture of two passes for one. Of 52 bits, hence exact.
double ValueOf(int row, int col, std::uint64_t generation) {
  const auto cell = static_cast<std::uint64_t>(row) * kSide + static_cast<std::uint64_t>(col);
  return static_cast<double>((cell * kGenerations + generation) * kGenerations + Mixed(generation));
}

/// @return the sweep that a value is of; 0 when it is of none.
std::uint64_t GenerationOf(int row, int col, double value) {
  if (!(value > 0) || value >= 0x1p52) return 0;
  const std::uint64_t generation = static_cast<std::uint64_t>(value) / kGenerations % kGenerations;
  return ValueOf(row, col, generation) == value ? generation : 0;
}

double Centre(int rowOrCol) { return rowOrCol + 0.5; }

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void Print(const json& line) {
  std::puts(line.dump().c_str());
  std::fflush(stdout);
}

/// How long the passes of syncing are.
class Ticks final : public DtmSyncObserver {
 public:
  explicit Ticks(DtmUpdateFile& model) : model_(model) { model_.SetSyncObserver(this); }
  ~Ticks() override { model_.SetSyncObserver(nullptr); }
  Ticks(const Ticks&) = delete;
  Ticks& operator=(const Ticks&) = delete;

  void OnSyncBegin() override { begin_ = Clock::now(); }
  void OnSyncEnd(bool done) override {
    milliseconds_.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin_).count());
    failed_ += done ? 0 : 1;
  }

  void PutInto(json& line) {
    const std::scoped_lock lock(DtmManager::GetDtmManager());
    std::sort(milliseconds_.begin(), milliseconds_.end());
    line["ticks"] = milliseconds_.size();
    line["failed_ticks"] = failed_;
    line["median_tick_ms"] = milliseconds_.empty() ? 0 : milliseconds_[milliseconds_.size() / 2];
    line["longest_tick_ms"] = milliseconds_.empty() ? 0 : milliseconds_.back();
  }

 private:
  DtmUpdateFile& model_;
  Clock::time_point begin_;
  std::vector<double> milliseconds_;
  int failed_ = 0;
};

bool Sweep(DtmAccess& access, std::uint64_t generation) {
  for (int row = 0; row < kSide; ++row) {
    for (int col = 0; col < kSide; ++col) {
      if (!access.SetValue(Centre(col), Centre(row), ValueOf(row, col, generation), 1, nullptr, nullptr, 0))
        return false;
    }
  }
  return true;
}

/// Arguments: the path, how many seconds. Makes the model and says so, sweeps over it for that long, publishes a last
/// sweep in a second of its own, says which, and waits to be killed.
const Worker kWriter("many-readers-writer", [](const Worker::Words& arguments) {
  DtmManager& manager = DtmManager::GetDtmManager();
  manager.SetDtmSyncTime(500);
  const SharedModel model = CreateShared(FromUtf8(arguments[0]), {kAreaSize, 1.0, {iNUM, dVAL}});
  if (!model) return 1;
  DtmAccess access(model.get());
  access.SetCacheSize(64);
  access.SetUpdater(std::make_unique<DtmBufferedUpdater>(model.get(), 125).release());
  std::uint64_t generation = 1;
  if (!Sweep(access, generation) || !model->SyncWrite()) return 1;
  Print({{"ready", true}});
  Ticks ticks(*model);
  const double before = ProcessorSeconds();
  const auto end = Clock::now() + std::chrono::seconds(std::stoi(arguments[1]));
  while (Clock::now() < end && generation < kGenerations - 2) {
    if (!Sweep(access, ++generation)) return 1;
  }
  json line;
  line["values"] = (generation - 1) * kSide * kSide;
  line["ns_a_value"] = (ProcessorSeconds() - before) * 1e9 / (static_cast<double>(generation - 1) * kSide * kSide);
  {
    // No pass while this is held: the one before was in an earlier second.
    const std::scoped_lock lock(manager);
    const long long now = _time64(nullptr);
    while (_time64(nullptr) == now) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (!Sweep(access, ++generation)) return 1;
    model->Sync();
  }
  ticks.PutInto(line);
  line["generation"] = generation;
  Print(line);
  for (;;) std::this_thread::sleep_for(std::chrono::seconds(1));
  return 0;
});

/// Arguments: the path, how many areas stay in memory. Reads until a file tells which sweep was the last, and then
/// until it has that in every cell, half a minute at most.
const Worker kReader("many-readers-reader", [](const Worker::Words& arguments) {
  DtmManager::GetDtmManager().SetDtmSyncTime(500);
  const SharedModel model = OpenShared(FromUtf8(arguments[0]), false);
  if (!model) return 1;
  DtmAccess access(model.get());
  access.SetCacheSize(std::stoull(arguments[1]));
  Print({{"ready", true}});
  std::uint64_t checked = 0;
  std::uint64_t wrong = 0;
  std::uint64_t highest = 0;
  std::uint64_t last = 0;
  bool caughtUp = false;
  auto end = Clock::time_point::max();
  while (!caughtUp && Clock::now() < end) {
    if (last == 0 && std::ifstream(arguments[0] + ".last") >> last) end = Clock::now() + std::chrono::seconds(30);
    caughtUp = last != 0;
    for (int row = 0; row < kSide; ++row) {
      for (int col = 0; col < kSide; ++col) {
        double value = 0;
        if (!access.GetDoubleValue(row, col, dVAL, value)) value = EmptyDouble();
        const std::uint64_t generation = GenerationOf(row, col, value);
        ++checked;
        wrong += generation == 0 ? 1 : 0;
        highest = std::max(highest, generation);
        caughtUp = caughtUp && generation == last;
      }
    }
  }
  Print({{"checked", checked}, {"wrong", wrong}, {"highest", highest}, {"caught_up", caughtUp}});
  return 0;
});

/// Its line of this number, once it is there; the long form takes a minute to the second one.
json Line(RunCommand& command, std::size_t number) {
  return json::parse(command.AwaitLines(number, std::chrono::minutes(5))[number - 1]);
}

TEST(ManyReaders, ValuesAreMadeAndTakenApart) {
  EXPECT_EQ(GenerationOf(3, 5, ValueOf(3, 5, 77)), 77U);
  EXPECT_EQ(GenerationOf(kSide - 1, kSide - 1, ValueOf(kSide - 1, kSide - 1, kGenerations - 1)), kGenerations - 1);
  EXPECT_EQ(GenerationOf(3, 6, ValueOf(3, 5, 77)), 0U);
  EXPECT_EQ(GenerationOf(3, 5, EmptyDouble()), 0U);
  // Half of one value and half of the next.
  const auto one = std::bit_cast<std::uint64_t>(ValueOf(200, 5, 255));
  const auto two = std::bit_cast<std::uint64_t>(ValueOf(200, 5, 256));
  for (unsigned bytes = 1; bytes < 8; ++bytes) {
    const std::uint64_t mask = (std::uint64_t{1} << (8 * bytes)) - 1;
    const std::uint64_t mixed = (one & mask) | (two & ~mask);
    if (mixed == one || mixed == two) continue;
    EXPECT_EQ(GenerationOf(200, 5, std::bit_cast<double>(mixed)), 0U) << bytes;
  }
}

TEST(ManyReaders, FourSeeOnlyWhatWasWrittenAndEndWithWhatTheWriterHas) {
  const std::string seconds = std::to_string(LongForm(3, 60));
  json alone;
  {
    const TestFolder folder;
    RunCommand writer(kWriter.Line({folder.File("a.dtm"), seconds}));
    alone = Line(writer, 2);
  }
  const TestFolder folder;
  const std::string path = folder.File("a.dtm");
  RunCommand writer(kWriter.Line({path, seconds}));
  ASSERT_TRUE(Line(writer, 1)["ready"]);
  std::vector<std::unique_ptr<RunCommand>> readers;
  for (int i = 0; i < kReaders; ++i) {
    // Two hold all areas, which are refreshed as the file changes; two hold one and fetch the others ever again.
    readers.push_back(std::make_unique<RunCommand>(kReader.Line({path, i % 2 == 0 ? "64" : "0"})));
  }
  const json written = Line(writer, 2);
  folder.Write("a.dtm.last.new", written["generation"].dump() + "\n");
  std::filesystem::rename(path + ".last.new", path + ".last");
  std::uint64_t checked = 0;
  for (const auto& reader : readers) {
    const json read = Line(*reader, 2);
    EXPECT_EQ(read["wrong"], 0U);
    EXPECT_EQ(read["caught_up"], true);
    EXPECT_EQ(read["highest"], written["generation"]);
    EXPECT_GT(read["checked"], 2 * kSide * kSide);
    checked += read["checked"].get<std::uint64_t>();
  }
  EXPECT_EQ(alone["failed_ticks"], 0);
  EXPECT_EQ(written["failed_ticks"], 0);
  std::printf("writer alone: %s\nwith readers: %s\n%llu cells read\n", alone.dump().c_str(), written.dump().c_str(),
              static_cast<unsigned long long>(checked));
}

}  // namespace
}  // namespace vak::test
