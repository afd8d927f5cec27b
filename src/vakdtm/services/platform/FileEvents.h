#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/platform/FileHandle.h"

namespace vak {

/// What has happened to a file or folder that `FileEvents` watches.
struct FileEvent {
  enum Kind {
    kModified,  ///< The file's bytes or size.
    kRenamed,   ///< What is watched may not be what stands under its name any more; or its attributes changed.
    kEntry,     ///< A name in the folder has come or gone.
    kEnded,     ///< The system has ended the watch itself.
    kLost       ///< Events of any watches had to be dropped.
  };

  Kind kind = kModified;
  int watch = -1;    ///< Which one; -1 with `kLost`.
  std::string name;  ///< The last component, with `kEntry`.
};

/// The events that the system delivers about files and folders, and the sleep of the one thread that takes them.
///
/// `Read`, `Wait` and `Pause` belong to that thread, the rest to any.
class FileEvents {
 public:
  FileEvents();

  FileEvents(const FileEvents&) = delete;
  FileEvents& operator=(const FileEvents&) = delete;

  /// @return false when the system had none to give: nothing can be watched then, but waiting works all the same.
  bool IsOpen() const { return events_.IsOpen() && wake_.IsOpen(); }

  /// Watches what is under this path now, whatever it is called later. The same file again gives the same number.
  /// @return the watch's number; -1 when it can't be watched, `errno` tells why.
  int WatchFile(const std::string& path);

  /// Watches which names come and go in a folder, and the folder's own fate.
  int WatchFolder(const std::string& path);

  void Unwatch(int watch);

  /// Takes the events that have gathered, without waiting. Many at once may be left for the next time.
  std::vector<FileEvent> Read();

  /// Waits for an event, for `Wake`, or until the limit is over. Without a limit: for as long as it takes.
  void Wait(std::optional<std::chrono::milliseconds> limit);

  /// Waits for `Wake` or until the limit is over; events gather meanwhile and wake nobody.
  void Pause(std::chrono::milliseconds limit);

  /// Lets one `Wait` or `Pause` through, the present or the next.
  void Wake();

 private:
  void Sleep(bool events, int milliseconds);

  FileHandle events_;
  FileHandle wake_;
  Event woken_;  // instead of the descriptors, where there are none
};

/// What the system knows of a file at one moment. Two that differ stand for a change; two that don't may hide one that
/// came within the grain of the file's times.
struct FileStamp {
  bool there = false;
  std::uint64_t device = 0;
  std::uint64_t file = 0;
  std::uint64_t size = 0;
  std::int64_t modified = 0;  ///< Nanoseconds since 1970-01-01 UTC.
  std::int64_t changed = 0;   ///< The same, of the attributes too.

  bool operator==(const FileStamp&) const = default;
};

/// Asks for a file's stamp; on a network file system that means its server and not what was heard of it a while ago.
FileStamp LookAtFile(const std::string& path);

/// @param type  a file system's magic number, as `statfs` tells it.
/// @return true for the ones that are this machine's alone, so that nothing changes there but through this system,
/// which then delivers an event. One that isn't known isn't trusted.
bool IsOwnFileSystem(std::uint32_t type);

/// @return true when every change of a file in this folder comes with an event, as `IsOwnFileSystem` says.
bool DeliversEvents(const std::string& folder);

/// Settles for a scope what `DeliversEvents` answers for any folder, so that a test can have either kind of file
/// system anywhere. One at a time.
class ScopedDeliversEvents {
 public:
  explicit ScopedDeliversEvents(bool delivers);
  ~ScopedDeliversEvents();

  ScopedDeliversEvents(const ScopedDeliversEvents&) = delete;
  ScopedDeliversEvents& operator=(const ScopedDeliversEvents&) = delete;
};

}  // namespace vak
