#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace vak {

// What is asked of the operating system, under the names that the rest of the library calls. Everything here may be
// called from any thread.

/// A millisecond counter that wraps at 32 bits, about every 49.7 days. Its origin means nothing; differences taken in
/// 32 bits unsigned do. It moves in steps of the kernel's tick (1 to 10 ms) and costs a few nanoseconds: it is read
/// once a sounding.
std::uint32_t timeGetTime();

/// Seconds since 1970-01-01 UTC, as a file's index and a cell's time hold them.
/// @param seconds  also gets the answer unless it is null.
long long _time64(long long* seconds);

/// Where the two functions above take the time from while a `ScopedClock` holds it.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::uint32_t Milliseconds() const = 0;
  virtual long long Seconds() const = 0;
};

/// A clock that moves only when told to. Any thread may set and read it.
class ManualClock final : public Clock {
 public:
  std::uint32_t Milliseconds() const override { return milliseconds_.load(std::memory_order_relaxed); }
  long long Seconds() const override { return seconds_.load(std::memory_order_relaxed); }

  void SetMilliseconds(std::uint32_t milliseconds) { milliseconds_.store(milliseconds, std::memory_order_relaxed); }
  void SetSeconds(long long seconds) { seconds_.store(seconds, std::memory_order_relaxed); }

  /// Moves the counter alone; it wraps as the real one does.
  void AdvanceMilliseconds(std::uint32_t by) { milliseconds_.fetch_add(by, std::memory_order_relaxed); }

 private:
  std::atomic<std::uint32_t> milliseconds_{0};
  std::atomic<long long> seconds_{0};
};

/// Replaces the clock of the whole process for a scope, so that a test can stand the time still or let it jump. Scopes
/// nest; the inner one ends first. No other thread may be reading the time when one ends.
class ScopedClock {
 public:
  explicit ScopedClock(const Clock& clock);
  ~ScopedClock();

  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;

 private:
  const Clock* former_;
};

/// The folder for temporary models: `vakdtm-<uid>` below the system's temporary folder, made when it isn't there, for
/// its owner alone (mode 0700; one that is ours but open to others is closed to them).
/// @param path  gets the folder's real path (absolute, no links in it), ending in '/'.
/// @return false when it can't be made, or when something of that name is there that isn't a folder of this user's own:
/// a link or another user's folder could send our files elsewhere. `path` is untouched then.
bool GetTempPathW(std::wstring& path);

/// Whether a real path begins with that folder's, compared exactly. Makes nothing.
bool IsInTempPath(const std::wstring& name);

/// Makes a new, empty file for its owner alone, with a name that no file in `folder` had.
/// @param folder  with or without a '/' at the end.
/// @param prefix  what the name begins with; the rest is chosen here and ends in ".tmp".
/// @param name    gets the path.
/// @return false when no file could be made; `name` is untouched then.
bool GetTempFileNameW(const std::wstring& folder, const std::wstring& prefix, std::wstring& name);

/// Removes a file. @return false when there was none, it is a folder, or the system refused.
bool DeleteFileW(const std::wstring& name);

/// Copies a regular file, with its permissions and modification time.
///
/// The copy is made beside `to`, flushed to the disk and renamed when complete, so that under the name `to` there is
/// always a whole file or what was there before. A link at `to` is replaced, not followed.
/// @param overwrite  false: a file at `to` is left alone and the answer is false.
/// @return false when `from` can't be read or isn't a regular file, both are the same file, or the copy could not be
/// completed; nothing has changed then.
bool CopyFileW(const std::wstring& from, const std::wstring& to, bool overwrite);

/// The count of logical processors that the calling thread, and those that it starts, may run on, at least 1: as many
/// as work at once, not as many as the machine has.
unsigned long GetTotalNumberOfCores();

}  // namespace vak
