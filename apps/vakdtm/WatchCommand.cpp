#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/ChunkWalk.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/GridSettings.h"

#include "Command.h"
#include "ModelFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

using WallTime = std::chrono::system_clock::time_point;

struct WatchOptions {
  std::string model;
  std::uint64_t syncTime = 2000;
  bool json = false;
};

constexpr std::uint64_t kShortestSyncTime = 500;
constexpr std::uint64_t kLongestSyncTime = 65535;
/// How soon Ctrl-C is noticed.
constexpr std::chrono::milliseconds kLongestWait{100};

/// A rectangle of the model that changed, as the model announced it.
struct Update {
  WallTime time;
  Page rect;
  bool flag = false;
};

/// What the threads that sync and that watch the file have to tell, for the one that prints.
class Inbox final : public Subscriber {
 public:
  explicit Inbox(const DtmUpdateFile& model) : model_(model) {
    for (Subscription* subscription : {&rects_, &file_}) {
      subscription->SetSubscriber(this, false);
      subscription->Subscribe(model.FileName());
    }
  }

  void OnNotify(int kind, const std::wstring& /*name*/, const NotificationInfo* /*info*/) override {
    if (kind == kFileChanged) {
      fileChanged_.store(true, std::memory_order_relaxed);
    } else {
      Update update{std::chrono::system_clock::now(), {}, false};
      if (!model_.GetUpdateRect(update.rect, update.flag)) return;
      const std::scoped_lock lock(mutex_);
      updates_.push_back(update);
    }
    arrived_.Set();
  }

  void Wait(std::chrono::milliseconds limit) { arrived_.Wait(limit); }

  std::vector<Update> TakeUpdates() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(updates_, {});
  }

  /// Whether something happened to the file since the last call.
  bool TakeFileChanged() { return fileChanged_.exchange(false, std::memory_order_relaxed); }

 private:
  static constexpr int kFileChanged = 0;
  static constexpr int kRectChanged = 1;

  const DtmUpdateFile& model_;
  Event arrived_;
  std::atomic<bool> fileChanged_{false};
  std::mutex mutex_;
  std::vector<Update> updates_;  // guarded by mutex_
  // They go first, and wait for calls under way.
  Subscription rects_{kRectChanged};
  Subscription file_{kFileChanged};
};

/// 2026-01-31T12:34:56.789Z
std::string TimeText(WallTime time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time - seconds).count();
  const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
  std::tm parts{};
  gmtime_r(&whole, &parts);
  std::array<char, 32> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "%s.%03dZ", date.data(), static_cast<int>(milliseconds));
  return text.data();
}

std::string JsonOf(const Update& update) {
  nlohmann::ordered_json json;
  json["time"] = TimeText(update.time);
  json["rect"] = {
      {"x0", update.rect.left()}, {"y0", update.rect.bottom()}, {"x1", update.rect.right()}, {"y1", update.rect.top()}};
  json["flag"] = update.flag;
  return json.dump() + "\n";
}

std::string TextOf(const Update& update) {
  std::string text = TimeText(update.time) + "  x ";
  AppendNumber(text, update.rect.left());
  AppendNumber(text += " to ", update.rect.right());
  AppendNumber(text += ", y ", update.rect.bottom());
  AppendNumber(text += " to ", update.rect.top());
  return text + (update.flag ? "  changed\n" : "  added\n");
}

class Watch {
 public:
  Watch(const WatchOptions& options, const CommandContext& context) : options_(options), context_(context) {}

  int Run() {
    DtmManager::GetDtmManager().SetDtmSyncTime(static_cast<std::uint16_t>(options_.syncTime));
    ModelFile model = OpenForReading(context_, options_.model);
    if (!model) return kCouldNotBeDone;
    path_ = ToUtf8(model->FileName());
    opened_ = FileNow();
    Inbox inbox(*model);
    // Once at the start: something may have happened between the opening and the subscribing.
    bool look = true;
    for (;;) {
      for (const Update& update : inbox.TakeUpdates()) {
        const int status = context_.PrintResult(options_.json ? JsonOf(update) : TextOf(update));
        if (status != kDone) return status;
      }
      if (look && !IsSameFile(*model)) return kCouldNotBeDone;
      if (StopRequested()) return kStopped;
      inbox.Wait(kLongestWait);
      look = inbox.TakeFileChanged();
    }
  }

 private:
  /// Which file stands under the name.
  struct FileId {
    dev_t device = 0;
    ino_t number = 0;  ///< 0: none
    bool operator==(const FileId& other) const = default;
  };

  FileId FileNow() const {
    struct stat found{};
    return stat(path_.c_str(), &found) == 0 ? FileId{found.st_dev, found.st_ino} : FileId{};
  }

  /// Prints why when it isn't.
  bool IsSameFile(const DtmUpdateFile& model) const {
    const FileId now = FileNow();
    if (now.number == 0) return Fail("has been removed or renamed");
    if (!(now == opened_)) return Fail("has been replaced by another file");
    return HasSameSettings(model) || Fail("has been made anew, with other cells");
  }

  /// A model that is made anew in the place of another is still the same file.
  bool HasSameSettings(const DtmUpdateFile& model) const {
    HugeFileStream stream(model.FileName().c_str(), false, false);
    long long size = 0;
    if (!stream.GetSize(size)) return true;  // for a moment; there will be another notification
    StreamWindow window(stream, size);
    GridSettings settings;
    // Nor is there anything to compare while it is being made.
    if (!ReadGridSettings(window, settings)) return true;
    if (settings.cellSize != model.CellSize() || settings.areaSize != model.AreaSize()) return false;
    if (settings.blockIds.size() != static_cast<std::size_t>(model.NumBlockIds())) return false;
    for (int i = 0; i < model.NumBlockIds(); ++i) {
      if (settings.blockIds[static_cast<std::size_t>(i)] != model.GetBlockId(i)) return false;
    }
    return true;
  }

  bool Fail(const char* what) const {
    context_.Fail(options_.model, what, "watch it anew");
    return false;
  }

  const WatchOptions& options_;
  const CommandContext& context_;
  std::string path_;
  FileId opened_;
};

}  // namespace

void AddWatchCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<WatchOptions>();
  CLI::App* command = AddSubcommand(
      app, context,
      {"watch", "Follows a model that another process writes, and prints each rectangle that changed, until Ctrl-C.",
       "vakdtm watch harbour.dtm"},
      [options, &context] { return Watch(*options, context).Run(); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to follow"));
  AddWholeNumber(*command, "--sync", options->syncTime, "Milliseconds between two looks at what is new (default 2000)",
                 kShortestSyncTime, kLongestSyncTime);
  AddFlag(*command, "--json", options->json, "Prints each rectangle as a line of JSON");
}

}  // namespace vak
