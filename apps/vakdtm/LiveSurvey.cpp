#include "LiveSurvey.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBufferedUpdater.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/DtmUpdateFile.h"

#include "ModelFile.h"
#include "Pace.h"
#include "ProgressBar.h"
#include "StopSignals.h"

namespace vak {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kAreaSize = 64;
constexpr unsigned long kGatherMilliseconds = 125;
/// Soundings between two looks at the clock and the signals: a millisecond's work.
constexpr std::uint64_t kSoundingsAStep = 4096;
/// A sounder hands its soundings over in pings, not one by one.
constexpr milliseconds kPing{10};
/// How soon Ctrl-C is noticed when the next sounding is far off.
constexpr milliseconds kLongestWait{100};

/// Counts what is on the disk: the thread that syncs calls, the inserting one counts and fetches. It prints nothing by
/// itself, so that nobody who doesn't read can hold up the syncing.
class SyncCounter final : public DtmSyncObserver {
 public:
  struct Pass {
    std::uint64_t inserted = 0;  ///< soundings whose insertion had ended before it began
    bool done = false;
  };

  explicit SyncCounter(DtmUpdateFile& model) : model_(model) { model_.SetSyncObserver(this); }
  ~SyncCounter() override { model_.SetSyncObserver(nullptr); }
  SyncCounter(const SyncCounter&) = delete;
  SyncCounter& operator=(const SyncCounter&) = delete;

  /// One more sounding is in the model's cells.
  void CountInserted() { inserted_.fetch_add(1, std::memory_order_release); }

  void OnSyncBegin() override { begunWith_ = inserted_.load(std::memory_order_acquire); }

  void OnSyncEnd(bool done) override {
    {
      const std::scoped_lock lock(mutex_);
      // Cells that were given up are among those counted.
      passes_.push_back({begunWith_, done && !model_.HasLostData()});
      waiting_.store(true, std::memory_order_relaxed);
    }
    ended_.Set();
  }

  /// @return the passes that have ended since the last call.
  std::vector<Pass> Take() {
    if (!waiting_.load(std::memory_order_relaxed)) return {};
    const std::scoped_lock lock(mutex_);
    waiting_.store(false, std::memory_order_relaxed);
    return std::exchange(passes_, {});
  }

  /// Waits for the end of a pass, this long at most.
  void Wait(milliseconds limit) { ended_.Wait(limit); }

 private:
  DtmUpdateFile& model_;
  std::atomic<std::uint64_t> inserted_{0};
  std::uint64_t begunWith_ = 0;  // guarded by the manager lock, under which it is called
  std::mutex mutex_;
  std::vector<Pass> passes_;  // guarded by mutex_
  std::atomic<bool> waiting_{false};
  Event ended_;
};

class LiveSurvey {
 public:
  LiveSurvey(const LiveSurveyOptions& options, const CommandContext& context) : options_(options), context_(context) {}

  int Run() {
    DtmManager::GetDtmManager().SetDtmSyncTime(static_cast<std::uint16_t>(options_.syncTime));
    if (!OpenModel()) return kCouldNotBeDone;
    counter_ = std::make_unique<SyncCounter>(*model_);
    const auto start = Clock::now();
    const int status = Finish(Insert());
    if (status != kDone || options_.json || context_.quiet) return status;
    std::string line = std::to_string(inserted_) + " soundings inserted in ";
    AppendFixed(line, std::chrono::duration<double>(Clock::now() - start).count(), 2);
    return context_.PrintResult(line + " s\n");
  }

 private:
  bool OpenModel() {
    if (options_.model.empty()) return Fail("''", "is no name for a model", "name a file");
    std::error_code code;
    // What can't be looked at, or is a link to nothing, isn't made either: opening it tells why.
    if (std::filesystem::status(options_.model, code).type() == std::filesystem::file_type::not_found &&
        !std::filesystem::is_symlink(options_.model, code)) {
      return MakeModel();
    }
    HeldModel held = HoldForWriting(context_, options_.model);
    if (!held) return false;
    if (options_.cellSize != 0 && options_.cellSize != held.CellSize()) {
      std::string has = "has cells of ";
      AppendNumber(has, held.CellSize());
      return Fail(options_.model, has + " m", "leave --cell-size out");
    }
    model_ = held.Open(context_);
    return static_cast<bool>(model_);
  }

  bool MakeModel() {
    if (options_.cellSize == 0) return Fail(options_.model, "no such file", "give --cell-size to make it");
    const WhenThere whenThere{UnfinishedFile::Existing::kRefuse,
                              "somebody else has made it meanwhile, nothing was changed", "try again"};
    if (!CreateModel(context_, options_.model, {options_.cellSize, kAreaSize, DefaultBlocks()}, whenThere))
      return false;
    model_ = OpenForWriting(context_, options_.model);
    return static_cast<bool>(model_);
  }

  bool Fail(const std::string& where, const std::string& what, const std::string& remedy) const {
    context_.Fail(where, what, remedy);
    return false;
  }

  /// Why the inserting ended. `kFailed`: the user has been told.
  enum class Outcome { kEnded, kStopped, kFailed };

  Outcome Insert() {
    ProgressBar bar(context_);
    SurveySimulator simulator(options_.survey);
    DtmAccess access(&*model_);
    access.SetUpdater(std::make_unique<DtmBufferedUpdater>(&*model_, kGatherMilliseconds).release());
    Pace pace(options_.rate, Clock::now());
    while (!StopRequested() && !model_->HasLostData()) {
      if (!TellPasses(true)) return Outcome::kFailed;
      const auto now = Clock::now();
      const std::uint64_t due = std::min(pace.Due(now, inserted_), inserted_ + kSoundingsAStep);
      while (inserted_ < due) {
        Sounding sounding;
        if (!simulator.Next(sounding)) return Outcome::kEnded;
        if (!access.InsertValue(sounding.x, sounding.y, sounding.z, _time64(nullptr), nullptr, nullptr, 0)) {
          return FailToStore(sounding);
        }
        ++inserted_;
        counter_->CountInserted();
      }
      if (const std::uint64_t count = options_.survey.count; count != 0) {
        if (inserted_ == count) return Outcome::kEnded;
        bar.Show(static_cast<double>(inserted_) / static_cast<double>(count));
      }
      const auto left = std::chrono::ceil<milliseconds>(pace.UntilNext(Clock::now(), inserted_));
      if (left > milliseconds::zero()) counter_->Wait(std::clamp(left, kPing, kLongestWait));
    }
    return StopRequested() ? Outcome::kStopped : Outcome::kEnded;
  }

  Outcome FailToStore(const Sounding& sounding) const {
    if (model_->HasLostData()) return Outcome::kEnded;  // told at the end, and worse
    const std::string which = "sounding " + std::to_string(inserted_ + 1);
    int row = 0;
    int col = 0;
    model_->CalcRowCol(sounding.x, sounding.y, row, col);
    if (!model_->IsAllowed(row) || !model_->IsAllowed(col)) {
      context_.Fail(options_.model, which + " lies where no cell of this size can", "take larger cells");
    } else {
      context_.Fail(options_.model, which + " cannot be stored" + WhyNot(), WhatToDo());
    }
    return Outcome::kFailed;
  }

  std::string WhyNot() const {
    return model_->LastStreamError() == StreamError::kNoSpace ? ", no space left on the disk" : "";
  }

  std::string WhatToDo() const {
    return "make room or check the disk, then run \"vakdtm verify " + options_.model + "\"";
  }

  /// Tells of the passes of syncing that have ended, and keeps in mind how the last one did.
  /// @return false when standard output doesn't take it.
  bool TellPasses(bool goesOn) {
    for (const SyncCounter::Pass& pass : counter_->Take()) {
      if (goesOn && synced_ && !pass.done) {
        context_.Warn(options_.model, "cannot be written out" + WhyNot(), "trying again");
      }
      synced_ = pass.done;
      if (!pass.done || !options_.json) continue;
      const nlohmann::ordered_json json = {{"synced", pass.inserted}};
      if (context_.PrintResult(json.dump() + "\n") != kDone) return false;
    }
    return true;
  }

  /// Has all that was inserted on the disk, whatever came before, and tells in one line what isn't.
  int Finish(Outcome outcome) {
    model_->Sync();  // now, since closing doesn't tell how it went
    if (outcome != Outcome::kFailed && !TellPasses(false)) outcome = Outcome::kFailed;
    const bool lost = model_->HasLostData();
    const std::string why = WhyNot();
    counter_.reset();
    model_.Close();
    if (outcome == Outcome::kFailed) return kCouldNotBeDone;
    if (lost || !synced_) {
      const char* const what = lost ? "cells were lost because they cannot be written" : "cannot be written to the end";
      return context_.Fail(options_.model, what + why, WhatToDo());
    }
    return outcome == Outcome::kStopped ? context_.Stopped("the model holds what was inserted so far") : kDone;
  }

  const LiveSurveyOptions& options_;
  const CommandContext& context_;
  ModelFile model_;
  std::unique_ptr<SyncCounter> counter_;  // goes before the model
  std::uint64_t inserted_ = 0;
  bool synced_ = true;  // whether the last pass that ended did all its work
};

}  // namespace

int RunLiveSurvey(const LiveSurveyOptions& options, const CommandContext& context) {
  return LiveSurvey(options, context).Run();
}

}  // namespace vak
