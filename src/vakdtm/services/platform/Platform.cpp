#include "vakdtm/services/platform/Platform.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include "vakdtm/services/platform/FileHandle.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

std::atomic<const Clock*> clockInForce{nullptr};

timespec Now(clockid_t which) {
  timespec now{};
  clock_gettime(which, &now);
  return now;
}

/// @return true when `path` is a folder itself, not a link to one, of this user's own, and closed to others.
bool IsPrivateFolder(const char* path) {
  const FileHandle folder = OpenDescriptor(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  struct stat info{};
  if (!folder.IsOpen() || fstat(folder.Get(), &info) != 0 || info.st_uid != geteuid()) return false;
  return (info.st_mode & 0777) == 0700 || fchmod(folder.Get(), 0700) == 0;
}

/// Makes a new file whose name is `pattern`, six X before its `suffix` replaced. `pattern` becomes the name.
FileHandle MakeUniqueFile(std::string& pattern, int suffix) {
  return FileHandle(mkostemps(pattern.data(), suffix, O_CLOEXEC));
}

bool WriteAll(int descriptor, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(descriptor, bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool CopyThroughBuffer(int from, int to) {
  std::array<char, std::size_t{64} * 1024> buffer;
  for (;;) {
    const ssize_t count = read(from, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    if (!WriteAll(to, buffer.data(), static_cast<std::size_t>(count))) return false;
  }
}

/// Copies from the present offset of `from` to its end. Both offsets move, so the slow way goes on where the quick one
/// stopped: it isn't there between all file systems, and some report an empty file where there is more.
bool CopyContent(int from, int to) {
  constexpr std::size_t kPiece = std::size_t{1} << 30;
  for (;;) {
    const ssize_t count = copy_file_range(from, nullptr, to, nullptr, kPiece, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return CopyThroughBuffer(from, to);
  }
}

/// Gives the complete file `made` the name `to`. Without `overwrite` a file already there wins, also one that came up a
/// moment ago.
bool Rename(const std::string& made, const std::string& to, bool overwrite) {
  if (overwrite) return rename(made.c_str(), to.c_str()) == 0;
  if (renameat2(AT_FDCWD, made.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno == EEXIST) return false;
  return link(made.c_str(), to.c_str()) == 0 && (unlink(made.c_str()), true);  // no such rename on this file system
}

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

/// Opens a regular file for reading; `info` gets what the system knows of it.
FileHandle OpenRegular(const std::string& path, struct stat& info) {
  // Not blocking, so that a pipe is found out instead of waited for.
  FileHandle file = OpenDescriptor(path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file.IsOpen() || fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  return file;
}

/// The folder for temporary models, there or not; empty when the system tells none.
std::filesystem::path TempFolder() {
  std::error_code failed;
  std::filesystem::path folder = std::filesystem::temp_directory_path(failed);
  if (!failed) folder = std::filesystem::canonical(folder, failed);
  return failed ? std::filesystem::path() : folder / ("vakdtm-" + std::to_string(geteuid()));
}

bool CopyInto(int from, const struct stat& info, FileHandle& to) {
  const std::array<timespec, 2> times{info.st_atim, info.st_mtim};
  return CopyContent(from, to.Get()) && fchmod(to.Get(), info.st_mode & 07777) == 0 &&
         futimens(to.Get(), times.data()) == 0 && fsync(to.Get()) == 0 && to.Close();
}

}  // namespace

std::uint32_t timeGetTime() {
  if (const Clock* clock = clockInForce.load(std::memory_order_acquire)) return clock->Milliseconds();
  const timespec now = Now(CLOCK_MONOTONIC_COARSE);
  return static_cast<std::uint32_t>(now.tv_sec) * 1000U + static_cast<std::uint32_t>(now.tv_nsec) / 1000000U;
}

long long _time64(long long* seconds) {
  const Clock* clock = clockInForce.load(std::memory_order_acquire);
  const long long now = clock != nullptr ? clock->Seconds() : static_cast<long long>(Now(CLOCK_REALTIME_COARSE).tv_sec);
  if (seconds != nullptr) *seconds = now;
  return now;
}

ScopedClock::ScopedClock(const Clock& clock) : former_(clockInForce.exchange(&clock)) {}

ScopedClock::~ScopedClock() { clockInForce.store(former_); }

bool GetTempPathW(std::wstring& path) {
  const std::filesystem::path folder = TempFolder();
  if (folder.empty() || (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)) return false;
  if (!IsPrivateFolder(folder.c_str())) return false;
  path = FromUtf8(folder.native()) + L'/';
  return true;
}

bool IsInTempPath(const std::wstring& name) {
  const std::filesystem::path folder = TempFolder();
  return !folder.empty() && name.starts_with(FromUtf8(folder.native()) + L'/');
}

bool GetTempFileNameW(const std::wstring& folder, const std::wstring& prefix, std::wstring& name) {
  constexpr int kSuffixLength = 4;
  std::string pattern = ToUtf8(folder);
  if (!pattern.empty() && pattern.back() != '/') pattern += '/';
  pattern += ToUtf8(prefix) + "XXXXXX.tmp";
  if (!MakeUniqueFile(pattern, kSuffixLength).IsOpen()) return false;
  name = FromUtf8(pattern);
  return true;
}

bool DeleteFileW(const std::wstring& name) { return unlink(ToUtf8(name).c_str()) == 0; }

bool CopyFileW(const std::wstring& from, const std::wstring& to, bool overwrite) {
  const std::string target = ToUtf8(to);
  struct stat info{};
  const FileHandle source = OpenRegular(ToUtf8(from), info);
  if (!source.IsOpen()) return false;
  struct stat there{};
  if (stat(target.c_str(), &there) == 0) {
    const bool same = there.st_dev == info.st_dev && there.st_ino == info.st_ino;
    if (same || !overwrite || S_ISDIR(there.st_mode)) return false;
  }
  std::string made = FolderOf(target) + ".vakdtm-copy-XXXXXX";
  FileHandle copy = MakeUniqueFile(made, 0);
  if (!copy.IsOpen()) return false;
  if (CopyInto(source.Get(), info, copy) && Rename(made, target, overwrite)) {
    const FileHandle folder = OpenDescriptor(FolderOf(target).c_str(), O_RDONLY | O_DIRECTORY);
    if (folder.IsOpen()) fsync(folder.Get());  // the copy is whole either way; this only hastens its name to the disk
    return true;
  }
  unlink(made.c_str());
  return false;
}

unsigned long GetTotalNumberOfCores() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  // Fails on a machine with more processors than the set has room for.
  const int count = sched_getaffinity(0, sizeof allowed, &allowed) == 0 ? CPU_COUNT(&allowed) : 0;
  return count > 0 ? static_cast<unsigned long>(count) : std::max(1U, std::thread::hardware_concurrency());
}

}  // namespace vak
