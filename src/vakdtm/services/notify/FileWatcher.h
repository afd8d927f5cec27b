#pragma once

#include <memory>
#include <string>

namespace vak {

/// Tells of files that change: while a path is watched, a change of the file by any process, this one included, makes
/// `SubscriptionManager::Instance().Notify(0, path, nullptr, nullptr)` on the watcher's own thread.
///
/// (1) A change that is made after `AddFileWatch` has returned is told, and no change is the last one without a
/// notification that begins after it. (2) Bursts are gathered: after something has happened, the watcher tells nothing
/// more for some 50 ms, so that a file that is written thousands of times a second costs its watchers next to nothing.
/// (3) The name is followed: when another file comes to stand under it, by renaming or by being made anew, that is a
/// change and that file is watched from then on. What does not hold: that every notification stands for a change of the
/// content. A change of permissions or times, the file's removal, and events that the system had to drop are told as
/// well. Nor that a folder above the file's own may be renamed: the file is followed to where it goes, and the name is
/// lost.
///
/// A change reaches the subscribers within those 50 ms where the system delivers events. Where it doesn't, the file is
/// looked at five times a second: on network and other file systems that others can change behind the system's back,
/// where the system has no more watches to give, and while the folder isn't there. A file that is looked at is told of
/// once more about two seconds after its last change, or after its watch began, since a file's time can't tell two
/// changes within its grain apart.
///
/// Any thread may call any operation, with any locks held, also a subscriber from within its call. There is a thread
/// while something is watched, asleep while nothing happens, and none otherwise.
class FileWatcher {
 public:
  static FileWatcher& Instance();

  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;

  /// Begins to watch a file, there or not. Counted: as many `RemoveFileWatch` of the same path end it.
  /// @param path  notifications carry it letter by letter as it is given here. Links in it are followed once, now.
  /// @return false when it can't be watched: an empty path, a loop of links, no thread to be had, or the process is
  /// ending. Nothing has changed then, and no `RemoveFileWatch` is due.
  bool AddFileWatch(const std::wstring& path);

  /// Takes one `AddFileWatch` of this path back; does nothing when there is none. It doesn't wait: a notification that
  /// has begun on the watcher's thread may still be under way when it returns.
  void RemoveFileWatch(const std::wstring& path);

 private:
  class Watcher;

  FileWatcher();
  ~FileWatcher();

  std::unique_ptr<Watcher> watcher_;
};

}  // namespace vak
