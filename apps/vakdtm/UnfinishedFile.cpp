#include "UnfinishedFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace vak {
namespace {

constexpr int kMostNamesTried = 1000;

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

/// Renames where nothing has the new name.
bool RenameToNew(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system that can't do this in one step can mostly give a second name, which never replaces either.
  if (link(from, to) != 0) return false;
  unlink(from);
  return true;
}

}  // namespace

std::string FollowLinks(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  return real ? std::string(real.get()) : path;
}

int UnfinishedFile::Make(const std::string& target) {
  target_ = FollowLinks(target);
  // Short whatever the target is called: a name that is as long as names may be leaves no room for an ending.
  const std::string stem = FolderOf(target_) + ".vakdtm-" + std::to_string(getpid()) + "-";
  int descriptor = -1;
  for (int number = 0; number < kMostNamesTried && descriptor < 0; ++number) {
    path_ = stem + std::to_string(number) + ".part";
    descriptor = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0 && errno != EEXIST) break;
  }
  struct stat status = {};
  if (descriptor < 0) {
    path_.clear();
    return -1;
  }
  discard_.Name(path_);
  if (stat(target_.c_str(), &status) == 0 && fchmod(descriptor, status.st_mode & 07777) != 0) {
    const int error = errno;
    close(descriptor);
    Abandon();
    errno = error;
    return -1;
  }
  return descriptor;
}

bool UnfinishedFile::Commit(Existing existing) {
  const bool done = existing == Existing::kReplace ? std::rename(path_.c_str(), target_.c_str()) == 0
                                                   : RenameToNew(path_.c_str(), target_.c_str());
  if (done) {
    path_.clear();
    discard_.Forget();
  }
  return done;
}

void UnfinishedFile::Abandon() {
  if (!path_.empty()) unlink(path_.c_str());
  path_.clear();
  discard_.Forget();
}

}  // namespace vak
