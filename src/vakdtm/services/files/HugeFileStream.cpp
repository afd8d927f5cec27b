#include "vakdtm/services/files/HugeFileStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

#include "vakdtm/services/platform/FileHandle.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

static_assert(sizeof(off_t) == 8, "positions beyond 2 GiB");

/// The one byte that a writer locks: beyond any file's end, so that no lock on contents ever meets it.
constexpr off_t kLockOffset = off_t{1} << 62;

StreamError ErrorOf(int number) {
  switch (number) {
    case 0:
      return StreamError::kNone;
    case ENOENT:
    case ENOTDIR:
      return StreamError::kMissing;
    case ELOOP:
      return StreamError::kLinkNowhere;
    case ENAMETOOLONG:
      return StreamError::kNameTooLong;
    case EISDIR:
      return StreamError::kFolder;
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
    case EBADF:
      return StreamError::kNotWritable;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return StreamError::kNoSpace;
    default:
      return StreamError::kOther;
  }
}

double SecondsOf(const timespec& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double SecondsOf(const statx_timestamp& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// @return 0, or the number of the reason. The lock belongs to the open file, not to the process: a second stream of
/// the same process is refused like a stranger's, and closing another descriptor of the file doesn't lose it.
int TakeWriterLock(int descriptor) {
  struct flock lock{};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = kLockOffset;
  lock.l_len = 1;
  return fcntl(descriptor, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

bool IsSameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

/// Opens once more, in another mode, the file that `descriptor` is, whatever its name is by now.
FileHandle Reopen(int descriptor, const std::string& name, int flags) {
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  struct stat wanted{};
  struct stat got{};
  if (fstat(descriptor, &wanted) != 0) return {};
  FileHandle again = OpenDescriptor(link.c_str(), flags);
  if (!again.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) {  // no /proc here
    again = OpenDescriptor(name.c_str(), flags | O_NONBLOCK);
  }
  if (!again.IsOpen()) return {};
  if (fstat(again.Get(), &got) == 0 && IsSameFile(wanted, got)) return again;
  errno = ENOENT;
  return {};
}

int SyncFolderOf(const std::string& name) {
  const std::size_t slash = name.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : name.substr(0, slash + 1);
  const FileHandle handle = OpenDescriptor(folder.c_str(), O_RDONLY | O_DIRECTORY);
  if (!handle.IsOpen()) return errno;
  // Some file systems can't sync a folder and say so; they keep names by other means.
  return fsync(handle.Get()) == 0 || errno == EINVAL ? 0 : errno;
}

constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) value = (value & 1) != 0 ? 0xEDB88320U ^ (value >> 1) : value >> 1;
    table[i] = value;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

std::uint32_t AddToCrc(std::uint32_t crc, const unsigned char* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) crc = kCrcTable[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
  return crc;
}

/// One transfer of the system takes no more than this.
constexpr std::uint64_t kMostAtOnce = std::uint64_t{1} << 30;

}  // namespace

struct HugeFileStream::Impl {
  FileHandle file;
  std::wstring name;
  std::string systemName;
  std::int64_t position = 0;
  bool readWrite = false;
  bool refuses = false;       // RefuseWriting was called
  bool unsynced = false;      // written or resized since the last sync
  bool nameUnsynced = false;  // made by us, its folder not synced yet
  bool lost = false;          // the disk refused data that had been taken
  StreamError error = StreamError::kNone;
  int number = 0;

  bool Fail(StreamError why, int systemNumber) {
    error = why;
    number = systemNumber;
    return false;
  }

  bool Fail(int systemNumber) {
    const StreamError why = ErrorOf(systemNumber);
    return Fail(why == StreamError::kMissing && IsLink() ? StreamError::kLinkNowhere : why, systemNumber);
  }

  /// Whether the name itself is a link's, wherever that leads.
  bool IsLink() const {
    struct stat info{};
    return lstat(systemName.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
  }

  bool FailToRead(int systemNumber) {
    const bool denied = systemNumber == EACCES || systemNumber == EPERM;
    return denied ? Fail(StreamError::kNotReadable, systemNumber) : Fail(systemNumber);
  }

  bool FailToLock(int systemNumber) {
    const bool held = systemNumber == EAGAIN || systemNumber == EACCES;
    return held ? Fail(StreamError::kHeldByWriter, systemNumber) : Fail(systemNumber);
  }

  /// Takes the opened file over if it is one that a stream can be made of.
  bool Accept(FileHandle opened) {
    struct stat info{};
    if (fstat(opened.Get(), &info) != 0) return Fail(errno);
    if (S_ISDIR(info.st_mode)) return Fail(StreamError::kFolder, EISDIR);
    if (!S_ISREG(info.st_mode)) return Fail(StreamError::kOther, ESPIPE);
    file = std::move(opened);
    return true;
  }

  // All open without blocking, so that a pipe is found out instead of waited for.

  bool OpenReadOnly() {
    FileHandle opened = OpenDescriptor(systemName.c_str(), O_RDONLY | O_NONBLOCK);
    return opened.IsOpen() ? Accept(std::move(opened)) : FailToRead(errno);
  }

  bool OpenReadWrite() {
    FileHandle opened = OpenDescriptor(systemName.c_str(), O_RDWR | O_NONBLOCK);
    if (!opened.IsOpen()) return FailToWrite(errno);
    return Accept(std::move(opened)) && LockForWriting();
  }

  bool LockForWriting() {
    const int why = TakeWriterLock(file.Get());
    readWrite = why == 0 && IsStillNamed();
    // A former writer may have died before what it wrote was on the disk: the first sync is for that, too.
    unsynced = readWrite;
    if (readWrite) return true;
    file.Close();
    // Whoever replaced the file had it locked for that: it was another's when we came.
    return FailToLock(why == 0 ? EAGAIN : why);
  }

  /// Whether the name still leads to the open file. A file that was replaced between our opening and our locking is
  /// nobody's any more: what is written into it is lost.
  bool IsStillNamed() const {
    struct stat own{};
    struct stat named{};
    return fstat(file.Get(), &own) == 0 && stat(systemName.c_str(), &named) == 0 && IsSameFile(own, named);
  }

  /// Tells a file that may not be written from one that may not even be read.
  bool FailToWrite(int systemNumber) {
    if (systemNumber == EACCES && !OpenDescriptor(systemName.c_str(), O_RDONLY | O_NONBLOCK).IsOpen()) {
      return FailToRead(errno);
    }
    return Fail(systemNumber);
  }

  bool Create() {
    FileHandle made = OpenDescriptor(systemName.c_str(), O_RDWR | O_NONBLOCK | O_CREAT | O_EXCL);
    if (!made.IsOpen() && errno == EEXIST) return OpenReadWrite() && Empty();
    if (!made.IsOpen()) return Fail(errno);
    file = std::move(made);
    nameUnsynced = true;
    if (LockForWriting()) return true;
    // Held by another already: it opened the new file before we locked it, and it is the other's now.
    if (error != StreamError::kHeldByWriter) unlink(systemName.c_str());
    return false;
  }

  bool Empty() {
    if (Resize(0)) return true;
    file.Close();
    readWrite = false;
    return false;
  }

  bool Resize(std::int64_t size) {
    int failed = 0;
    do {
      failed = ftruncate(file.Get(), size) == 0 ? 0 : errno;
    } while (failed == EINTR);
    if (failed != 0) return Fail(failed);
    unsynced = true;
    return true;
  }

  bool Write(const unsigned char* bytes, std::uint64_t count) {
    while (count > 0) {
      const ssize_t done = pwrite(file.Get(), bytes, std::min(count, kMostAtOnce), position);
      if (done < 0 && errno == EINTR) continue;
      if (done < 0) return Fail(errno);
      if (done == 0) return Fail(StreamError::kNoSpace, ENOSPC);
      unsynced = true;
      bytes += done;
      count -= static_cast<std::uint64_t>(done);
      position += done;
    }
    return true;
  }

  bool SyncContent() {
    if (lost) return Fail(StreamError::kOther, EIO);
    if (!unsynced) return true;
    int failed = 0;
    do {
      failed = fdatasync(file.Get()) == 0 ? 0 : errno;
    } while (failed == EINTR);
    unsynced = failed != 0;
    // The system tells once that data was lost and then takes the pages for clean: asking again would answer "done".
    lost = failed == EIO;
    return failed == 0 || Fail(failed);
  }

  bool SyncName() {
    if (!nameUnsynced) return true;
    const int failed = SyncFolderOf(systemName);
    nameUnsynced = failed != 0;
    return failed == 0 || Fail(failed);
  }

  bool MakeReadWrite() {
    if (refuses) return Fail(StreamError::kNotWritable, EROFS);
    if (readWrite) return true;
    FileHandle again = Reopen(file.Get(), systemName, O_RDWR);
    if (!again.IsOpen()) return Fail(errno);
    if (const int why = TakeWriterLock(again.Get()); why != 0) return FailToLock(why);
    file = std::move(again);
    readWrite = true;
    unsynced = true;  // as after LockForWriting
    return true;
  }

  bool MakeReadOnly() {
    if (!readWrite) return true;
    if (!SyncContent() || !SyncName()) return false;
    FileHandle again = Reopen(file.Get(), systemName, O_RDONLY);
    if (!again.IsOpen()) return FailToRead(errno);
    file = std::move(again);  // closes the old one, and the lock goes with it
    readWrite = false;
    return true;
  }
};

HugeFileStream::HugeFileStream(const wchar_t* name, bool create, bool readWrite) : impl_(std::make_unique<Impl>()) {
  HugeFileStream::Open(name, create, readWrite);
}

HugeFileStream::~HugeFileStream() = default;

bool HugeFileStream::Open(const wchar_t* name, bool create, bool readWrite) {
  const bool refuses = impl_->refuses;
  impl_ = std::make_unique<Impl>();
  impl_->refuses = refuses;
  impl_->name = name != nullptr ? name : L"";
  impl_->systemName = ToUtf8(impl_->name);
  if (refuses && (create || readWrite)) return impl_->Fail(StreamError::kNotWritable, EROFS);
  if (create) return impl_->Create();
  return readWrite ? impl_->OpenReadWrite() : impl_->OpenReadOnly();
}

bool HugeFileStream::Close() {
  if (!IsOpen()) return false;
  impl_->readWrite = false;
  impl_->unsynced = false;
  impl_->nameUnsynced = false;
  return impl_->file.Close() || impl_->Fail(errno);
}

bool HugeFileStream::IsOpen() const { return impl_->file.IsOpen(); }

const wchar_t* HugeFileStream::FileName() const { return impl_->name.c_str(); }

bool HugeFileStream::Sync() {
  if (!IsOpen()) return false;
  return !impl_->readWrite || (impl_->SyncContent() && impl_->SyncName());
}

bool HugeFileStream::Read(void* buffer, std::uint64_t count) {
  if (!IsOpen()) return false;
  auto* bytes = static_cast<unsigned char*>(buffer);
  while (count > 0) {
    const ssize_t done = pread(impl_->file.Get(), bytes, std::min(count, kMostAtOnce), impl_->position);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return impl_->FailToRead(errno);
    if (done == 0) return false;
    bytes += done;
    count -= static_cast<std::uint64_t>(done);
    impl_->position += done;
  }
  return true;
}

bool HugeFileStream::Write(const void* buffer, std::uint64_t count) {
  if (!IsOpen()) return false;
  if (!impl_->readWrite) return impl_->Fail(StreamError::kNotWritable, EBADF);
  return impl_->Write(static_cast<const unsigned char*>(buffer), count);
}

bool HugeFileStream::Seek(std::int64_t offset, int origin) {
  long long base = 0;
  if (!IsOpen() || (origin != kFromStart && origin != kFromEnd)) return false;
  if (origin == kFromEnd && !GetSize(base)) return false;
  if (offset > 0 && base > std::numeric_limits<std::int64_t>::max() - offset) return false;
  if (base + offset < 0) return false;
  impl_->position = base + offset;
  return true;
}

std::int64_t HugeFileStream::Position() { return impl_->position; }

bool HugeFileStream::SetSize(std::int64_t size) {
  if (!IsOpen()) return false;
  if (!impl_->readWrite) return impl_->Fail(StreamError::kNotWritable, EBADF);
  return impl_->Resize(size);
}

bool HugeFileStream::GetSize(long long& size) {
  struct stat info{};
  if (!IsOpen()) return false;
  if (fstat(impl_->file.Get(), &info) != 0) return impl_->Fail(errno);
  size = info.st_size;
  return true;
}

bool HugeFileStream::GetFileTimes(double& created, double& accessed, double& modified) {
  struct stat info{};
  if (!IsOpen()) return false;
  if (fstat(impl_->file.Get(), &info) != 0) return impl_->Fail(errno);
  struct statx more{};
  const bool known =
      statx(impl_->file.Get(), "", AT_EMPTY_PATH, STATX_BTIME, &more) == 0 && (more.stx_mask & STATX_BTIME) != 0;
  created = known ? SecondsOf(more.stx_btime) : SecondsOf(info.st_ctim);
  accessed = SecondsOf(info.st_atim);
  modified = SecondsOf(info.st_mtim);
  return true;
}

bool HugeFileStream::GetFileCrc32(unsigned int& crc) {
  if (!IsOpen()) return false;
  std::array<unsigned char, std::size_t{64} * 1024> buffer;
  std::uint32_t value = 0xFFFFFFFFU;
  for (off_t at = 0;;) {
    const ssize_t done = pread(impl_->file.Get(), buffer.data(), buffer.size(), at);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return impl_->FailToRead(errno);
    if (done == 0) break;
    value = AddToCrc(value, buffer.data(), static_cast<std::size_t>(done));
    at += done;
  }
  crc = ~value;
  return true;
}

bool HugeFileStream::IsFileOf(const wchar_t* name) const {
  struct stat own{};
  struct stat named{};
  return IsOpen() && fstat(impl_->file.Get(), &own) == 0 && stat(ToUtf8(name).c_str(), &named) == 0 &&
         IsSameFile(own, named);
}

bool HugeFileStream::IsReadWrite() const { return impl_->readWrite; }

bool HugeFileStream::MakeReadWrite(bool readWrite) {
  if (!IsOpen()) return false;
  return readWrite ? impl_->MakeReadWrite() : impl_->MakeReadOnly();
}

void HugeFileStream::RefuseWriting() { impl_->refuses = true; }

StreamError HugeFileStream::LastError() const { return impl_->error; }

int HugeFileStream::LastErrno() const { return impl_->number; }

}  // namespace vak
