#include "vakdtm/services/notify/FileWatcher.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/services/files/FileName.h"
#include "vakdtm/services/notify/SubscriptionManager.h"
#include "vakdtm/services/platform/FileEvents.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kFileChanged = 0;

/// How long it is quiet after telling.
constexpr milliseconds kPause{50};

/// How often files are looked at that come without events: well below the 500 ms that a model is synced at most often.
constexpr milliseconds kLookPeriod{200};

/// No file system's times are coarser.
constexpr milliseconds kGrain{2000};

}  // namespace

class FileWatcher::Watcher {
 public:
  bool Add(const std::wstring& path);
  void Remove(const std::wstring& path);

  /// Ends the thread for good; the process is ending. What is still watched may be removed as ever.
  void Stop();

 private:
  /// What a path stands for. Neither changes while it is watched.
  struct Place {
    std::string folder;
    std::string file;  // with its folder
    std::string name;  // without
  };

  /// A path that is watched.
  struct Watch {
    Place place;
    int count = 1;
    bool changed = false;   // there is something to tell
    bool byEvents = false;  // or looked at
    bool delivers = false;  // its file system delivers events, as far as is known
    int folderWatch = -1;
    int fileWatch = -1;  // -1 while there is no file
    FileStamp stamp;     // while it is looked at
    std::optional<Clock::time_point> tellAgain;
  };

  /// What is found at a place; found without the lock, since a server that doesn't answer takes its time.
  struct Finding {
    FileStamp stamp;
    bool delivers = false;
  };

  static bool FindPlace(const std::wstring& path, Place& place);
  static Finding LookAt(const Watch& watch);

  /// Requires, all of these: mutex_ held.
  bool StartThread();
  bool Attach(Watch& watch);
  void Detach(Watch& watch);
  bool IsUsed(int number) const;
  void Replace(int& number, int by);
  void Take(const FileEvent& event);
  void Compare(Watch& watch, const Finding& finding, Clock::time_point now);

  void Run();
  bool GoesOn();
  std::optional<milliseconds> TimeToLook();
  bool TakeEvents();
  void LookAround();
  bool Tell();
  bool IsWatched(const std::wstring& path);

  std::mutex mutex_;
  std::map<std::wstring, Watch> watches_;  // guarded by mutex_
  bool stopped_ = false;                   // guarded by mutex_
  bool running_ = false;                   // guarded by mutex_: the thread goes on, or is about to begin
  std::thread thread_;                     // guarded by mutex_
  std::unique_ptr<FileEvents> events_;     // there while running_; set and reset under mutex_
  Clock::time_point nextLook_;             // the thread's own
};

bool FileWatcher::Watcher::Add(const std::wstring& path) {
  Watch fresh;
  if (!FindPlace(path, fresh.place)) return false;
  const Finding finding = LookAt(fresh);
  fresh.delivers = finding.delivers;
  fresh.stamp = finding.stamp;
  const std::scoped_lock lock(mutex_);
  if (stopped_) return false;
  if (const auto found = watches_.find(path); found != watches_.end()) {
    ++found->second.count;
    return true;
  }
  if (!running_ && !StartThread()) return false;
  Watch& watch = watches_.emplace(path, std::move(fresh)).first->second;
  if (Attach(watch)) return true;
  // The next change may come within the grain of a time that has been seen already.
  watch.tellAgain = Clock::now() + kGrain;
  events_->Wake();
  return true;
}

void FileWatcher::Watcher::Remove(const std::wstring& path) {
  const std::scoped_lock lock(mutex_);
  const auto found = watches_.find(path);
  if (found == watches_.end() || --found->second.count > 0) return;
  if (running_) Detach(found->second);
  watches_.erase(found);
  if (running_ && watches_.empty()) events_->Wake();
}

void FileWatcher::Watcher::Stop() {
  std::thread ending;
  {
    const std::scoped_lock lock(mutex_);
    stopped_ = true;
    if (running_) events_->Wake();
    ending = std::move(thread_);
  }
  if (!ending.joinable()) return;
  if (ending.get_id() == std::this_thread::get_id()) {
    ending.detach();  // a subscriber is ending the process
  } else {
    ending.join();
  }
}

bool FileWatcher::Watcher::FindPlace(const std::wstring& path, Place& place) {
  place.file = ToUtf8(GetCanonicalPath(path));
  const std::size_t slash = place.file.rfind('/');
  if (slash == std::string::npos || slash + 1 == place.file.size()) return false;
  place.folder = place.file.substr(0, slash + 1);
  place.name = place.file.substr(slash + 1);
  return true;
}

FileWatcher::Watcher::Finding FileWatcher::Watcher::LookAt(const Watch& watch) {
  Finding finding{LookAtFile(watch.place.file)};
  // A file that lies on a network stays there, and its server needn't be asked each time.
  const bool ask = watch.delivers || !watch.stamp.there;
  finding.delivers = ask && DeliversEvents(watch.place.folder);
  return finding;
}

bool FileWatcher::Watcher::StartThread() {
  if (thread_.joinable()) thread_.join();  // it has said that it ends, and needs nothing of us for that
  events_ = std::make_unique<FileEvents>();
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    events_ = nullptr;
    return false;
  }
  return running_ = true;
}

/// Watches, by events, what is under the watch's name now. @return false when that can't be; it is looked at then.
bool FileWatcher::Watcher::Attach(Watch& watch) {
  const bool wanted = watch.delivers && events_->IsOpen();
  // The folder first: what comes up in it after that is told.
  const int folder = wanted ? events_->WatchFolder(watch.place.folder) : -1;
  const int file = folder >= 0 ? events_->WatchFile(watch.place.file) : -1;
  const bool nothingThere = file < 0 && errno == ENOENT;
  watch.byEvents = folder >= 0 && (file >= 0 || nothingThere);
  Replace(watch.folderWatch, folder);
  Replace(watch.fileWatch, file);
  if (!watch.byEvents) Detach(watch);
  return watch.byEvents;
}

void FileWatcher::Watcher::Detach(Watch& watch) {
  watch.byEvents = false;
  Replace(watch.folderWatch, -1);
  Replace(watch.fileWatch, -1);
}

bool FileWatcher::Watcher::IsUsed(int number) const {
  return std::any_of(watches_.begin(), watches_.end(), [number](const auto& entry) {
    return entry.second.folderWatch == number || entry.second.fileWatch == number;
  });
}

void FileWatcher::Watcher::Replace(int& number, int by) {
  const int former = std::exchange(number, by);
  if (former >= 0 && former != by && !IsUsed(former)) events_->Unwatch(former);
}

void FileWatcher::Watcher::Take(const FileEvent& event) {
  for (auto& [path, watch] : watches_) {
    const bool ofFolder = watch.folderWatch == event.watch;
    const bool ofFile = watch.fileWatch == event.watch;
    const bool ofName = event.kind != FileEvent::kEntry || event.name == watch.place.name;
    const bool concerned = event.kind == FileEvent::kLost || ofFile || (ofFolder && ofName);
    if (!watch.byEvents || !concerned) continue;
    watch.changed = true;
    if (event.kind == FileEvent::kModified || Attach(watch)) continue;
    watch.stamp = LookAtFile(watch.place.file);
    watch.tellAgain = Clock::now() + kGrain;
  }
}

void FileWatcher::Watcher::Compare(Watch& watch, const Finding& finding, Clock::time_point now) {
  watch.delivers = finding.delivers;
  if (Attach(watch)) {
    watch.changed = true;  // perhaps, before it was watched
    watch.tellAgain.reset();
    return;
  }
  if (finding.stamp != watch.stamp) {
    watch.stamp = finding.stamp;
    watch.changed = true;
    watch.tellAgain = now + kGrain;
  } else if (watch.tellAgain && *watch.tellAgain <= now) {
    watch.changed = true;
    watch.tellAgain.reset();
  }
}

void FileWatcher::Watcher::Run() {
  while (GoesOn()) {
    events_->Wait(TimeToLook());
    const bool happened = TakeEvents();
    LookAround();
    const bool told = Tell();
    // Events that come during the pause, be it about others' names in the folder, gather in the system and wake nobody.
    if (happened || told) events_->Pause(kPause);
  }
}

bool FileWatcher::Watcher::GoesOn() {
  const std::scoped_lock lock(mutex_);
  if (!stopped_ && !watches_.empty()) return true;
  running_ = false;
  events_ = nullptr;
  return false;
}

std::optional<milliseconds> FileWatcher::Watcher::TimeToLook() {
  const std::scoped_lock lock(mutex_);
  const bool looks =
      std::any_of(watches_.begin(), watches_.end(), [](const auto& entry) { return !entry.second.byEvents; });
  if (!looks) return std::nullopt;
  return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(nextLook_ - Clock::now()));
}

bool FileWatcher::Watcher::TakeEvents() {
  const std::scoped_lock lock(mutex_);
  const std::vector<FileEvent> events = events_->Read();
  for (const FileEvent& event : events) Take(event);
  return !events.empty();
}

void FileWatcher::Watcher::LookAround() {
  const Clock::time_point now = Clock::now();
  if (now < nextLook_) return;
  nextLook_ = now + kLookPeriod;
  std::vector<std::pair<std::wstring, Watch>> looked;
  {
    const std::scoped_lock lock(mutex_);
    std::copy_if(watches_.begin(), watches_.end(), std::back_inserter(looked),
                 [](const auto& entry) { return !entry.second.byEvents; });
  }
  for (const auto& [path, watch] : looked) {
    const Finding finding = LookAt(watch);
    const std::scoped_lock lock(mutex_);
    const auto found = watches_.find(path);
    if (found != watches_.end() && !found->second.byEvents) Compare(found->second, finding, now);
  }
}

bool FileWatcher::Watcher::Tell() {
  std::vector<std::wstring> paths;
  {
    const std::scoped_lock lock(mutex_);
    for (auto& [path, watch] : watches_) {
      if (std::exchange(watch.changed, false)) paths.push_back(path);
    }
  }
  for (const std::wstring& path : paths) {
    // A subscriber before may have ended it.
    if (IsWatched(path)) SubscriptionManager::Instance().Notify(kFileChanged, path, nullptr, nullptr);
  }
  return !paths.empty();
}

bool FileWatcher::Watcher::IsWatched(const std::wstring& path) {
  const std::scoped_lock lock(mutex_);
  return watches_.contains(path);
}

FileWatcher::FileWatcher() : watcher_(std::make_unique<Watcher>()) {}

FileWatcher::~FileWatcher() = default;

FileWatcher& FileWatcher::Instance() {
  // Never destroyed: objects that end with the process may still remove their watches. The thread ends, though.
  static FileWatcher& watcher = *new FileWatcher;
  static const std::unique_ptr<Watcher, void (*)(Watcher*)> ender(watcher.watcher_.get(),
                                                                  [](Watcher* ending) { ending->Stop(); });
  return watcher;
}

bool FileWatcher::AddFileWatch(const std::wstring& path) { return watcher_->Add(path); }

void FileWatcher::RemoveFileWatch(const std::wstring& path) { watcher_->Remove(path); }

}  // namespace vak
