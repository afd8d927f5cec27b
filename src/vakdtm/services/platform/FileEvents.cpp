#include "vakdtm/services/platform/FileEvents.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <vector>

namespace vak {
namespace {

constexpr std::uint32_t kFileMask = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;
constexpr std::uint32_t kNameMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t kFolderMask = kNameMask | IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR;

/// What a `ScopedDeliversEvents` has settled: -1 nothing, 0 no, 1 yes.
std::atomic<int> settled{-1};

FileEvent::Kind KindOf(std::uint32_t mask) {
  if ((mask & IN_Q_OVERFLOW) != 0) return FileEvent::kLost;
  if ((mask & (IN_IGNORED | IN_UNMOUNT)) != 0) return FileEvent::kEnded;
  if ((mask & kNameMask) != 0) return FileEvent::kEntry;
  return (mask & IN_MODIFY) != 0 ? FileEvent::kModified : FileEvent::kRenamed;
}

/// Appends the events that a read has put into `bytes`.
void Append(const char* bytes, std::size_t count, std::vector<FileEvent>& events) {
  for (std::size_t at = 0; at + sizeof(inotify_event) <= count;) {
    inotify_event raw{};
    std::memcpy(&raw, bytes + at, sizeof raw);
    const char* name = bytes + at + sizeof raw;
    events.push_back({KindOf(raw.mask), raw.wd, std::string(name, strnlen(name, raw.len))});
    at += sizeof raw + raw.len;
  }
}

std::int64_t Nanoseconds(const statx_timestamp& time) { return time.tv_sec * 1'000'000'000 + time.tv_nsec; }

}  // namespace

FileEvents::FileEvents()
    : events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

// Both add to the mask, so that a path which is watched as a file and as others' folder keeps both.
int FileEvents::WatchFile(const std::string& path) {
  return inotify_add_watch(events_.Get(), path.c_str(), kFileMask | IN_MASK_ADD);
}

int FileEvents::WatchFolder(const std::string& path) {
  return inotify_add_watch(events_.Get(), path.c_str(), kFolderMask | IN_MASK_ADD);
}

void FileEvents::Unwatch(int watch) { inotify_rm_watch(events_.Get(), watch); }

std::vector<FileEvent> FileEvents::Read() {
  constexpr int kReads = 16;  // more wait for the next time, or an endless stream of them would hold the thread here
  std::vector<FileEvent> events;
  std::array<char, std::size_t{16} * 1024> buffer;
  for (int i = 0; i < kReads && IsOpen(); ++i) {
    const ssize_t count = read(events_.Get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    Append(buffer.data(), static_cast<std::size_t>(count), events);
  }
  return events;
}

void FileEvents::Wait(std::optional<std::chrono::milliseconds> limit) {
  Sleep(true, limit ? static_cast<int>(limit->count()) : -1);
}

void FileEvents::Pause(std::chrono::milliseconds limit) { Sleep(false, static_cast<int>(limit.count())); }

void FileEvents::Sleep(bool events, int milliseconds) {
  if (!IsOpen()) {
    if (milliseconds < 0) {
      woken_.Wait();
    } else {
      woken_.Wait(std::chrono::milliseconds(milliseconds));
    }
    return;
  }
  std::array<pollfd, 2> wanted{pollfd{wake_.Get(), POLLIN, 0}, pollfd{events_.Get(), POLLIN, 0}};
  // A signal in between only ends the wait early.
  if (poll(wanted.data(), events ? 2 : 1, milliseconds) <= 0 || wanted[0].revents == 0) return;
  eventfd_t used = 0;
  eventfd_read(wake_.Get(), &used);
}

void FileEvents::Wake() {
  if (IsOpen()) {
    eventfd_write(wake_.Get(), 1);
  } else {
    woken_.Set();
  }
}

FileStamp LookAtFile(const std::string& path) {
  constexpr unsigned kWanted = STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME;
  struct statx info{};
  if (statx(AT_FDCWD, path.c_str(), AT_STATX_FORCE_SYNC, kWanted, &info) != 0) return {};
  FileStamp stamp;
  stamp.there = true;
  stamp.device = std::uint64_t{info.stx_dev_major} << 32 | info.stx_dev_minor;
  stamp.file = info.stx_ino;
  stamp.size = info.stx_size;
  stamp.modified = Nanoseconds(info.stx_mtime);
  stamp.changed = Nanoseconds(info.stx_ctime);
  return stamp;
}

bool IsOwnFileSystem(std::uint32_t type) {
  // Named are those that are ours rather than those that aren't: one that is wrongly looked at costs next to nothing,
  // one that is wrongly trusted never tells. Left out on purpose: all of the network, FUSE (anything may be behind it),
  // what a virtual machine's host shares, disks that several machines mount, and overlays, whose layers may be changed
  // from elsewhere.
  constexpr std::uint32_t kOwn[] = {
      0x0000EF53,  // ext2, ext3, ext4
      0x58465342,  // xfs
      0x9123683E,  // btrfs
      0x01021994,  // tmpfs
      0x858458F6,  // ramfs
      0xF2F52010,  // f2fs
      0x2FC12FC1,  // zfs
      0xCA451A4E,  // bcachefs
      0x3153464A,  // jfs
      0x52654973,  // reiserfs
      0x00003434,  // nilfs2
      0x00004D44,  // fat
      0x2011BAB0,  // exfat
      0x7366746E,  // ntfs
      0x0000482B,  // hfs+
      0x15013346,  // udf
  };
  return std::find(std::begin(kOwn), std::end(kOwn), type) != std::end(kOwn);
}

bool DeliversEvents(const std::string& folder) {
  if (const int answer = settled.load(); answer >= 0) return answer != 0;
  struct statfs info{};
  while (statfs(folder.c_str(), &info) != 0) {
    if (errno != EINTR) return false;
  }
  return IsOwnFileSystem(static_cast<std::uint32_t>(info.f_type));
}

ScopedDeliversEvents::ScopedDeliversEvents(bool delivers) { settled.store(delivers ? 1 : 0); }

ScopedDeliversEvents::~ScopedDeliversEvents() { settled.store(-1); }

}  // namespace vak
