#include "ResultFile.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "Command.h"
#include "StopSignals.h"

namespace vak {
namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 18;

}  // namespace

std::string WriteErrorText(int error) {
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
    case ENOMEM:
      return kMemoryText;
    case EROFS:
      return "the file system is read-only";
    default:
      return std::generic_category().message(error);
  }
}

bool IsLackOfRoom(int error) { return error == ENOSPC || error == EDQUOT || error == EFBIG; }

bool IsSameFile(const std::string& one, const std::string& other) {
  std::error_code code;
  return one != "-" && other != "-" && std::filesystem::equivalent(one, other, code) && !code;
}

ResultFile::~ResultFile() { Abandon(); }

bool ResultFile::Open(const std::string& path) {
  buffer_.reserve(kBufferSize);
  if (path == "-") {
    name_ = "standard output";
    descriptor_ = STDOUT_FILENO;
    return true;
  }
  name_ = path.empty() ? "''" : path;
  target_ = FollowLinks(path);
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

bool ResultFile::OpenDirectly() {
  descriptor_ = open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  target_.clear();
  if (descriptor_ < 0) return FailWith(errno);
  closes_ = true;
  return true;
}

bool ResultFile::OpenBeside() {
  descriptor_ = unfinished_.Make(target_);
  if (descriptor_ < 0) return FailWith(errno);
  closes_ = true;
  return true;
}

bool ResultFile::Write(std::string_view text) {
  if (descriptor_ < 0) return false;
  if (buffer_.size() + text.size() > kBufferSize) {
    if (!WriteOut(buffer_.data(), buffer_.size())) return false;
    buffer_.clear();
  }
  if (text.size() >= kBufferSize) return WriteOut(text.data(), text.size());
  buffer_ += text;
  return true;
}

bool ResultFile::WriteOut(const char* from, std::size_t count) {
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

bool ResultFile::Commit() {
  if (descriptor_ < 0 || !WriteOut(buffer_.data(), buffer_.size())) return false;
  buffer_.clear();
  const int descriptor = std::exchange(descriptor_, -1);
  if (closes_ && close(descriptor) != 0) return FailWith(errno);
  if (unfinished_.Path().empty()) return true;
  return unfinished_.Commit(UnfinishedFile::Existing::kReplace) || FailWith(errno);
}

bool ResultFile::FailWith(int error) {
  readerGone_ = error == EPIPE;
  lacksRoom_ = IsLackOfRoom(error);
  error_ = WriteErrorText(error);
  Abandon();
  return false;
}

void ResultFile::Abandon() {
  if (descriptor_ >= 0 && closes_) close(descriptor_);
  descriptor_ = -1;
  unfinished_.Abandon();
}

}  // namespace vak
