#include "UnfinishedSet.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "UnfinishedFile.h"

namespace vak {
namespace {

constexpr int kMostNamesTried = 1000;
constexpr const char* kMain = "lines";  // the name of the set in its folder: short, whatever the target's is
constexpr std::chrono::seconds kPatience(10);
constexpr std::chrono::milliseconds kGlance(2);

bool IsThere(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

/// Whether a file of that name can be taken away: `errno` says why not.
bool IsReplaceable(const std::string& path) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) return true;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return false;
}

char InLarge(char letter) { return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter; }

std::string InLargeLetters(std::string_view text) {
  std::string large(text);
  std::transform(large.begin(), large.end(), large.begin(), InLarge);
  return large;
}

/// The ending with the letters large whose bit is set.
std::string Spelled(std::string_view ending, unsigned bits) {
  std::string spelled(ending);
  for (std::size_t i = 0; i < spelled.size(); ++i) {
    if ((bits >> i & 1U) != 0) spelled[i] = InLarge(spelled[i]);
  }
  return spelled;
}

/// Whether two names are two entries. Where large and small letters are the same to the file system, they are one; a
/// second name that somebody gave it counts as another entry.
bool AreTwo(const std::string& one, const std::string& other) {
  struct stat first = {};
  struct stat second = {};
  if (lstat(one.c_str(), &first) != 0 || lstat(other.c_str(), &second) != 0) return true;
  return first.st_dev != second.st_dev || first.st_ino != second.st_ino || first.st_nlink > 1;
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

/// Keeps the moves of other runs out of a folder. The lock goes with the process, however that ends.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : descriptor_(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~FolderLock() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  /// @return false when somebody else has had it all the while; true as well where there are no locks.
  bool Take() const {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (descriptor_ >= 0 && flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR) return true;
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(kGlance);
    }
    return true;
  }

 private:
  int descriptor_;
};

/// Puts off the signals that stop the command: between two of the moves a set is in pieces.
class StopsPutOff {
 public:
  StopsPutOff() {
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGHUP);
    sigaddset(&stops, SIGQUIT);
    pthread_sigmask(SIG_BLOCK, &stops, &before_);
  }
  ~StopsPutOff() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  StopsPutOff(const StopsPutOff&) = delete;
  StopsPutOff& operator=(const StopsPutOff&) = delete;

 private:
  sigset_t before_ = {};
};

}  // namespace

std::vector<std::string> UnfinishedSet::Names(const std::string& target, const LineFormat& format) {
  std::vector<std::string> names = {FollowLinks(target)};
  const std::string whole = names.front();
  const std::string stem = whole.substr(0, whole.size() - std::min(whole.size(), format.ending.size()));
  for (const std::string_view ending : format.companions) {
    names.push_back(stem + std::string(ending));
    names.push_back(stem + InLargeLetters(ending));
  }
  for (const std::string_view ending : format.appendices) names.push_back(whole + std::string(ending));
  return names;
}

bool UnfinishedSet::Make(const std::string& target, const LineFormat& format) {
  format_ = &format;
  target_ = FollowLinks(target);
  // A path that begins like an address, "file:", could be taken for one.
  if (!target_.starts_with('/')) target_.insert(0, "./");
  struct stat status = {};
  if (stat(target_.c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) {
      errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
      return false;
    }
    // Renaming over a file needs no permission for it, but whoever made it read-only meant it.
    if (access(target_.c_str(), W_OK) != 0) return false;
  }
  stem_ = target_.substr(0, target_.size() - format.ending.size());
  if (FindObstacle() || !MakeFolder()) return false;
  path_ = folder_ + kMain + std::string(format.ending);
  return true;
}

/// @return true, with `errno`, when something is in the way that isn't the target.
bool UnfinishedSet::FindObstacle() {
  for (const std::string& name : Names(target_, *format_)) {
    if (IsReplaceable(name)) continue;
    obstacle_ = name;
    return true;
  }
  if (format_->companions.empty()) return false;
  for (unsigned bits = 0; bits < 1U << format_->ending.size(); ++bits) {
    const std::string other = stem_ + Spelled(format_->ending, bits);
    if (other == target_ || !IsThere(other) || !AreTwo(other, target_)) continue;
    obstacle_ = other;
    errno = EEXIST;
    return true;
  }
  return false;
}

bool UnfinishedSet::MakeFolder() {
  const std::string parent = FolderOf(target_);
  for (int number = 0; number < kMostNamesTried; ++number) {
    folder_ = parent + ".vakdtm-" + std::to_string(getpid()) + "-" + std::to_string(number) + ".part/";
    if (mkdir(folder_.c_str(), 0700) == 0) {
      discard_.Name(folder_);
      return true;
    }
    if (errno != EEXIST) break;
  }
  folder_.clear();
  return false;
}

bool UnfinishedSet::Move(const std::string& from, const std::string& to) {
  moves_.emplace_back(from, to);
  if (std::rename(from.c_str(), to.c_str()) == 0) return true;
  moves_.pop_back();
  return false;
}

bool UnfinishedSet::MoveOldAway(const std::string& path) {
  if (!IsThere(path)) return true;
  const std::string place = folder_ + "old-" + std::to_string(moves_.size());
  // Both before and after: it may have become something else since, and a folder is nobody's to remove.
  if (IsReplaceable(path) && Move(path, place) && IsReplaceable(place)) return true;
  obstacle_ = path == target_ ? std::string() : path;
  return false;
}

std::vector<std::string_view> UnfinishedSet::MadeCompanions() const {
  std::vector<std::string_view> made;
  for (const std::string_view ending : format_->companions) {
    if (IsThere(folder_ + kMain + std::string(ending))) made.push_back(ending);
  }
  return made;
}

bool UnfinishedSet::MoveAll() {
  const std::vector<std::string> names = Names(target_, *format_);
  const std::vector<std::string_view> made = MadeCompanions();
  const bool comesAlone = made.empty() && std::none_of(names.begin() + 1, names.end(), IsThere);
  if (!comesAlone) {
    for (const std::string& name : names) {
      if (!MoveOldAway(name)) return false;
    }
    for (const std::string_view ending : made) {
      if (!Move(folder_ + kMain + std::string(ending), stem_ + std::string(ending))) return false;
    }
  }
  return std::rename(path_.c_str(), target_.c_str()) == 0;
}

void UnfinishedSet::MoveBack() {
  for (; !moves_.empty(); moves_.pop_back()) {
    const auto& [from, to] = moves_.back();
    if (std::rename(to.c_str(), from.c_str()) != 0) keepsOld_ = true;
  }
}

bool UnfinishedSet::Commit() {
  const FolderLock lock(FolderOf(target_));
  if (!lock.Take()) {
    errno = EBUSY;
    return false;
  }
  struct stat status = {};
  if (stat(target_.c_str(), &status) == 0 && chmod(path_.c_str(), status.st_mode & 07777) != 0) return false;
  const StopsPutOff putOff;
  // From here on there are files of the user's in the folder.
  discard_.Forget();
  if (!MoveAll()) {
    const int error = errno;
    MoveBack();
    errno = error;
    return false;
  }
  moves_.clear();
  Abandon();
  return true;
}

void UnfinishedSet::Abandon() {
  if (!folder_.empty() && !keepsOld_) RemoveFlat(folder_.c_str());
  folder_.clear();
  discard_.Forget();
}

}  // namespace vak
