// Loads:
//   Latency/sync_500, Latency/sync_2000  from InsertValue in this process to the notification in another one that
//   follows
//                                        the model, both with this sync time; half a minute to two minutes each
//
// The floor is set by the two ticks: the sounding waits for one of the writer's and the news for one of the reader's,
// which stand to each other as it comes: up to twice the sync time, once on average. An area's time is in whole
// seconds, so that the soundings come more than a second apart.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "vakdtm/services/notify/Subscriber.h"
#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/DtmRectUpdater.h"

namespace vak {
namespace {

constexpr const char* kReaderOf = "VAKDTM_LATENCY_READER_OF";
constexpr const char* kSyncTime = "VAKDTM_LATENCY_SYNC_TIME";
constexpr int kSamples = 25;

/// The same in all processes.
double Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Says on standard output when it is told.
class Teller final : public Subscriber {
 public:
  void OnNotify(int, const std::wstring&, const NotificationInfo*) override {
    const double now = Now();
    if (write(STDOUT_FILENO, &now, sizeof now) != sizeof now) std::_Exit(0);
  }
};

[[noreturn]] void Read(const std::filesystem::path& path, std::uint16_t syncTime) {
  DtmManager& manager = DtmManager::GetDtmManager();
  manager.SetDtmSyncTime(syncTime);
  const DtmUpdateFile* const model = manager.OpenDtm(path.wstring(), false, nullptr);
  if (!model) std::_Exit(1);
  Teller teller;
  Subscription subscription(1);
  subscription.SetSubscriber(&teller, false);
  subscription.Subscribe(model->FileName());
  teller.OnNotify(1, {}, nullptr);  // ready
  // The other end of the pipe goes with the process that reads.
  char nothing = 0;
  while (read(STDIN_FILENO, &nothing, 1) > 0) {
  }
  std::_Exit(0);
}

/// Before anything else: this program started anew is the reader.
const bool kIsReader = [] {
  const char* const path = std::getenv(kReaderOf);
  const char* const syncTime = std::getenv(kSyncTime);
  if (path && syncTime) Read(path, static_cast<std::uint16_t>(std::strtoul(syncTime, nullptr, 10)));
  return false;
}();

void Sound(DtmAccess& access) {
  if (!access.InsertValue(0.5, 0.5, -1, 0, nullptr, nullptr, 0)) std::abort();
}

class Reader {
 public:
  Reader(const std::filesystem::path& path, int syncTime) {
    int in[2];
    int out[2];
    if (pipe(in) != 0 || pipe(out) != 0) std::abort();
    setenv(kReaderOf, path.c_str(), 1);
    setenv(kSyncTime, std::to_string(syncTime).c_str(), 1);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, in[1]);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    char self[] = "/proc/self/exe";
    char* arguments[] = {self, nullptr};
    if (posix_spawn(&process_, self, &actions, nullptr, arguments, environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    toReader_ = in[1];
    fromReader_ = out[0];
    Await();
  }
  ~Reader() {
    close(toReader_);
    waitpid(process_, nullptr, 0);
    close(fromReader_);
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// When it was told the next time.
  double Await() const {
    double told = 0;
    if (read(fromReader_, &told, sizeof told) != sizeof told) std::abort();
    return told;
  }

 private:
  pid_t process_ = 0;
  int toReader_ = -1;
  int fromReader_ = -1;
};

void Latency(benchmark::State& state, int syncTime) {
  const auto path =
      std::filesystem::temp_directory_path() / ("vakdtm-bench-" + std::to_string(std::random_device{}()) + ".dtm");
  DtmManager& manager = DtmManager::GetDtmManager();
  manager.SetDtmSyncTime(static_cast<std::uint16_t>(syncTime));
  const DtmManager::create_params params;
  DtmUpdateFile* const model = manager.OpenDtm(path.wstring(), true, &params);
  std::vector<double> latencies;
  {
    DtmAccess access(model);
    access.SetUpdater(new DtmRectUpdater(model));
    Sound(access);
    model->Sync();
    const Reader reader(path, syncTime);
    std::mt19937 random(1);
    for (auto _ : state) {
      // At any moment of both ticks.
      const auto pause = std::chrono::milliseconds(1100 + random() % static_cast<unsigned>(2 * syncTime));
      std::this_thread::sleep_for(pause);
      const double start = Now();
      Sound(access);
      latencies.push_back(reader.Await() - start);
      state.SetIterationTime(latencies.back());
    }
  }
  model->Close();
  std::error_code error;
  std::filesystem::remove(path, error);
  std::sort(latencies.begin(), latencies.end());
  state.counters["median_s"] = latencies[latencies.size() / 2];
  state.counters["worst_s"] = latencies.back();
}

BENCHMARK_CAPTURE(Latency, sync_500, 500)->UseManualTime()->Iterations(kSamples)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Latency, sync_2000, 2000)->UseManualTime()->Iterations(kSamples)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vak
