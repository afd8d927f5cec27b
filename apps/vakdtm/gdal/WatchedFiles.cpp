#include "WatchedFiles.h"

#include <algorithm>
#include <cerrno>
#include <cpl_vsi.h>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vak::watched {
namespace {

constexpr const char* kPrefix = "/vsivakdtm/";
constexpr std::size_t kBufferSize = std::size_t{1} << 18;

int failure = 0;
int (*stopWhen)() = nullptr;

void NoteFailure(int error) {
  if (failure == 0) failure = error != 0 ? error : EIO;
}

bool IsStopped() {
  if (!stopWhen || stopWhen() == 0) return false;
  NoteFailure(ECANCELED);
  return true;
}

/// A file with what is next in it to be written in a buffer, and what is around the place that was read in another.
class WatchedFile {
 public:
  explicit WatchedFile(int descriptor) : descriptor_(descriptor) { buffer_.reserve(kBufferSize); }
  ~WatchedFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  WatchedFile(const WatchedFile&) = delete;
  WatchedFile& operator=(const WatchedFile&) = delete;

  std::uint64_t Tell() const { return place_; }

  bool Seek(std::uint64_t offset, int whence) {
    std::uint64_t base = whence == SEEK_CUR ? place_ : 0;
    if (whence == SEEK_END) {
      struct stat status = {};
      if (!Flush() || fstat(descriptor_, &status) != 0) return false;
      base = static_cast<std::uint64_t>(status.st_size);
    }
    place_ = base + offset;
    atEnd_ = false;
    return true;
  }

  /// @return how many bytes there were.
  std::size_t Read(char* to, std::size_t count) {
    if (IsStopped() || !Flush()) return ReadLost(to, count);
    std::size_t done = 0;
    while (done < count && (IsInWindow() || FillWindow())) {
      const char* const from = window_.data() + (place_ - windowStart_);
      const std::size_t part = std::min<std::size_t>(count - done, windowStart_ + window_.size() - place_);
      std::copy_n(from, part, to + done);
      done += part;
      place_ += part;
    }
    atEnd_ = done < count;
    return done;
  }

  bool IsAtEnd() const { return atEnd_; }

  bool Write(const char* from, std::size_t count) {
    const bool follows = place_ == start_ + buffer_.size();
    const bool flushed = (follows && buffer_.size() + count <= kBufferSize) || Flush();
    if (buffer_.empty()) start_ = place_;
    place_ += count;
    end_ = std::max(end_, place_);
    window_.clear();
    if (!flushed || IsStopped()) return false;
    if (count >= kBufferSize) return WriteAt(from, count, place_ - count);
    buffer_.insert(buffer_.end(), from, from + count);
    return true;
  }

  /// @return false as well when any file has lost something before.
  bool Flush() {
    const bool written = WriteAt(buffer_.data(), buffer_.size(), start_);
    buffer_.clear();
    return written && failure == 0;
  }

  bool Truncate(std::uint64_t size) {
    if (!Flush()) return false;
    window_.clear();
    if (ftruncate(descriptor_, static_cast<off_t>(size)) == 0) return true;
    NoteFailure(errno);
    return false;
  }

  bool Close() {
    bool written = Flush();
    if (close(descriptor_) != 0) {
      NoteFailure(errno);
      written = false;
    }
    descriptor_ = -1;
    return written;
  }

 private:
  /// Reads from a file that lacks what couldn't be written: ends of lines, as many as there should be characters. The
  /// writer of drawings looks for one in what it has written before, and not whether it was there to be read.
  std::size_t ReadLost(char* to, std::size_t count) {
    const std::size_t left = end_ > place_ ? static_cast<std::size_t>(end_ - place_) : 0;
    const std::size_t done = std::min(count, left);
    std::fill_n(to, done, '\n');
    place_ += done;
    atEnd_ = done < count;
    return done;
  }

  bool IsInWindow() const { return place_ >= windowStart_ && place_ < windowStart_ + window_.size(); }

  /// Reads what follows in one go. @return false at the end.
  bool FillWindow() {
    window_.resize(kBufferSize);
    ssize_t got = -1;
    do {
      got = pread(descriptor_, window_.data(), window_.size(), static_cast<off_t>(place_));
    } while (got < 0 && errno == EINTR);
    window_.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    windowStart_ = place_;
    return got > 0;
  }

  bool WriteAt(const char* from, std::size_t count, std::uint64_t place) const {
    while (count > 0) {
      const ssize_t done = pwrite(descriptor_, from, count, static_cast<off_t>(place));
      if (done < 0 && errno == EINTR) continue;
      if (done <= 0) {
        NoteFailure(errno);
        return false;
      }
      from += done;
      place += static_cast<std::uint64_t>(done);
      count -= static_cast<std::size_t>(done);
    }
    return true;
  }

  int descriptor_;
  std::uint64_t place_ = 0;
  std::uint64_t end_ = 0;    // of what was written, whether it has arrived or not
  std::uint64_t start_ = 0;  // where the buffer belongs
  std::vector<char> buffer_;
  std::uint64_t windowStart_ = 0;  // of what was read
  std::vector<char> window_;
  bool atEnd_ = false;
};

WatchedFile* FileOf(void* file) { return static_cast<WatchedFile*>(file); }

int FlagsOf(std::string_view access) {
  const bool both = access.find('+') != std::string_view::npos;
  if (access.starts_with('w')) return O_RDWR | O_CREAT | O_TRUNC;
  if (access.starts_with('r')) return both ? O_RDWR : O_RDONLY;
  return -1;
}

void* Open(void* /*data*/, const char* path, const char* access) {
  const int flags = FlagsOf(access);
  if (flags < 0) return nullptr;
  const int descriptor = open(path, flags | O_CLOEXEC, 0666);
  if (descriptor >= 0) return std::make_unique<WatchedFile>(descriptor).release();
  if ((flags & O_CREAT) != 0) NoteFailure(errno);
  return nullptr;
}

int Stat(void* /*data*/, const char* path, VSIStatBufL* status, int /*flags*/) { return stat64(path, status); }
int Unlink(void* /*data*/, const char* path) { return unlink(path); }
int Rename(void* /*data*/, const char* from, const char* to) { return rename(from, to); }
vsi_l_offset Tell(void* file) { return FileOf(file)->Tell(); }
int Seek(void* file, vsi_l_offset offset, int whence) { return FileOf(file)->Seek(offset, whence) ? 0 : -1; }
int Eof(void* file) { return FileOf(file)->IsAtEnd() ? 1 : 0; }
int Flush(void* file) { return FileOf(file)->Flush() ? 0 : -1; }
int Truncate(void* file, vsi_l_offset size) { return FileOf(file)->Truncate(size) ? 0 : -1; }

std::size_t Read(void* file, void* to, std::size_t size, std::size_t count) {
  if (size == 0) return 0;
  return FileOf(file)->Read(static_cast<char*>(to), size * count) / size;
}

std::size_t Write(void* file, const void* from, std::size_t size, std::size_t count) {
  return FileOf(file)->Write(static_cast<const char*>(from), size * count) ? count : 0;
}

int Close(void* file) {
  const std::unique_ptr<WatchedFile> owned(FileOf(file));
  return owned->Close() ? 0 : -1;
}

void InstallOnce() {
  VSIFilesystemPluginCallbacksStruct* const calls = VSIAllocFilesystemPluginCallbacksStruct();
  calls->stat = Stat;
  calls->unlink = Unlink;
  calls->rename = Rename;
  calls->open = Open;
  calls->tell = Tell;
  calls->seek = Seek;
  calls->read = Read;
  calls->eof = Eof;
  calls->write = Write;
  calls->flush = Flush;
  calls->truncate = Truncate;
  calls->close = Close;
  VSIInstallPluginHandler(kPrefix, calls);  // copies them
  VSIFreeFilesystemPluginCallbacksStruct(calls);
}

}  // namespace

void Install() {
  static std::once_flag once;
  std::call_once(once, InstallOnce);
}

std::string Path(const std::string& path) { return kPrefix + path; }
int Failure() { return failure; }
void Forget() { failure = 0; }
void StopWhen(int (*stopped)()) { stopWhen = stopped; }

}  // namespace vak::watched
