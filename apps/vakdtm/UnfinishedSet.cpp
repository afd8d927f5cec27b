#include "UnfinishedSet.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "UnfinishedFile.h"

namespace vak {
namespace {

constexpr int kMostNamesTried = 1000;
constexpr const char* kMain = "lines";  // the name of the set in its folder: short, whatever the target's is

bool IsThere(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

std::string InLargeLetters(std::string_view text) {
  std::string large(text);
  for (char& letter : large) {
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
  return large;
}

}  // namespace

bool UnfinishedSet::Make(const std::string& target, const LineFormat& format) {
  format_ = &format;
  target_ = FollowLinks(target);
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
  if (!MakeFolder()) return false;
  path_ = folder_ + kMain + std::string(format.ending);
  return true;
}

bool UnfinishedSet::MakeFolder() {
  const std::size_t slash = target_.rfind('/');
  const std::string parent = slash == std::string::npos ? std::string() : target_.substr(0, slash + 1);
  for (int number = 0; number < kMostNamesTried; ++number) {
    folder_ = parent + ".vakdtm-" + std::to_string(getpid()) + "-" + std::to_string(number) + ".part/";
    if (mkdir(folder_.c_str(), 0700) == 0) return true;
    if (errno != EEXIST) break;
  }
  folder_.clear();
  return false;
}

bool UnfinishedSet::Move(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) return false;
  moves_.emplace_back(from, to);
  return true;
}

bool UnfinishedSet::MoveOldAway(const std::string& companion, int& count) {
  if (!IsThere(companion)) return true;
  return Move(companion, folder_ + "old-" + std::to_string(count++));
}

bool UnfinishedSet::MoveAll() {
  int count = 0;
  for (const std::string_view ending : format_->companions) {
    if (!MoveOldAway(stem_ + std::string(ending), count)) return false;
    if (!MoveOldAway(stem_ + InLargeLetters(ending), count)) return false;
    const std::string made = folder_ + kMain + std::string(ending);
    if (IsThere(made) && !Move(made, stem_ + std::string(ending))) return false;
  }
  for (const std::string_view ending : format_->appendices) {
    if (!MoveOldAway(target_ + std::string(ending), count)) return false;
  }
  return std::rename(path_.c_str(), target_.c_str()) == 0;
}

void UnfinishedSet::MoveBack() {
  for (; !moves_.empty(); moves_.pop_back()) {
    std::rename(moves_.back().second.c_str(), moves_.back().first.c_str());
  }
}

bool UnfinishedSet::Commit() {
  struct stat status = {};
  if (stat(target_.c_str(), &status) == 0 && chmod(path_.c_str(), status.st_mode & 07777) != 0) return false;
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
  std::error_code ignored;
  if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
  folder_.clear();
}

}  // namespace vak
