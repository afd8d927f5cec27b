#include "OutputFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "StopSignals.h"

namespace vak {
namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 18;
constexpr int kMostNamesTried = 1000;

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

/// The file that a link stands for, or `path` itself when it is none or leads nowhere.
std::string Resolved(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  return real ? std::string(real.get()) : path;
}

std::string Words(int error) {
  switch (error) {
    case ENOSPC:
      return "no space left on the device";
    case EDQUOT:
      return "the disk quota is used up";
    case EISDIR:
      return "it is a folder";
    case ENOENT:
    case ENOTDIR:
      return "there is no such folder";
    case EACCES:
    case EPERM:
      return "permission denied";
    case EROFS:
      return "the file system is read-only";
    default:
      return std::generic_category().message(error);
  }
}

}  // namespace

OutputFile::~OutputFile() { Abandon(); }

bool OutputFile::Open(const std::string& path) {
  buffer_.reserve(kBufferSize);
  if (path == "-") {
    name_ = "standard output";
    descriptor_ = STDOUT_FILENO;
    return true;
  }
  name_ = path.empty() ? "''" : path;
  target_ = Resolved(path);
  struct stat status = {};
  if (stat(target_.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return FailWith(EISDIR);
    // Renaming over a file needs no permission for it, but whoever made it read-only meant it.
    if (access(target_.c_str(), W_OK) != 0) return FailWith(errno);
    if (!S_ISREG(status.st_mode)) return OpenDirectly();
  } else if (target_.empty() || target_.back() == '/') {
    return FailWith(ENOENT);
  }
  return OpenBeside();
}

bool OutputFile::OpenDirectly() {
  descriptor_ = open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  target_.clear();
  if (descriptor_ < 0) return FailWith(errno);
  closes_ = true;
  return true;
}

bool OutputFile::OpenBeside() {
  // Short whatever the target is called: a name that is as long as names may be leaves no room for an ending.
  const std::string stem = FolderOf(target_) + ".vakdtm-" + std::to_string(getpid()) + "-";
  for (int number = 0; number < kMostNamesTried && descriptor_ < 0; ++number) {
    unfinished_ = stem + std::to_string(number) + ".part";
    descriptor_ = open(unfinished_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && errno != EEXIST) break;
  }
  if (descriptor_ < 0) {
    const int error = errno;
    unfinished_.clear();
    return FailWith(error);
  }
  closes_ = true;
  struct stat status = {};
  if (stat(target_.c_str(), &status) == 0 && fchmod(descriptor_, status.st_mode & 07777) != 0) return FailWith(errno);
  return true;
}

bool OutputFile::Write(std::string_view text) {
  if (descriptor_ < 0) return false;
  if (buffer_.size() + text.size() > kBufferSize) {
    if (!WriteOut(buffer_.data(), buffer_.size())) return false;
    buffer_.clear();
  }
  if (text.size() >= kBufferSize) return WriteOut(text.data(), text.size());
  buffer_ += text;
  return true;
}

bool OutputFile::WriteOut(const char* from, std::size_t count) {
  while (count > 0) {
    const ssize_t written = write(descriptor_, from, count);
    if (written < 0 && errno != EINTR) return FailWith(errno);
    const std::size_t done = written > 0 ? static_cast<std::size_t>(written) : 0;
    // A signal ends a wait for the reader of a pipe; what had gone out until then is told as a short write.
    if (done < count && StopRequested()) return FailWith(EINTR);
    from += done;
    count -= done;
  }
  return true;
}

bool OutputFile::Commit() {
  if (descriptor_ < 0 || !WriteOut(buffer_.data(), buffer_.size())) return false;
  buffer_.clear();
  const int descriptor = std::exchange(descriptor_, -1);
  if (closes_ && close(descriptor) != 0) return FailWith(errno);
  if (unfinished_.empty()) return true;
  if (std::rename(unfinished_.c_str(), target_.c_str()) != 0) return FailWith(errno);
  unfinished_.clear();
  return true;
}

bool OutputFile::FailWith(int error) {
  readerGone_ = error == EPIPE;
  error_ = Words(error);
  Abandon();
  return false;
}

void OutputFile::Abandon() {
  if (descriptor_ >= 0 && closes_) close(descriptor_);
  descriptor_ = -1;
  if (!unfinished_.empty()) unlink(unfinished_.c_str());
  unfinished_.clear();
}

}  // namespace vak
