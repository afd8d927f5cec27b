#pragma once

#include <string>

#include "DiscardOnKill.h"

namespace vak {

/// A file that is made under a hidden name beside its target and takes the target's place when it is complete.
///
/// Without `Commit` it is removed when this goes, or by the signal that kills the process, and what was there stays as
/// it was. Only a process that is killed without a warning leaves one behind; it is in nobody's way, since a name that
/// is taken is passed over. Failures are told by `errno`. For one thread at a time.
class UnfinishedFile {
 public:
  /// What becomes of a file that has the target's name.
  enum class Existing { kReplace, kRefuse };

  UnfinishedFile() = default;
  ~UnfinishedFile() { Abandon(); }

  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

  /// Makes it, empty, with the permissions of a file that is there. A link is followed, and the link stays. To be
  /// called once.
  /// @return a descriptor to write to, the caller's; -1 when there can be no file.
  [[nodiscard]] int Make(const std::string& target);

  /// Puts it in its place, in one step: nobody ever sees half of it, and of several that refuse what exists one alone
  /// gets the name.
  /// @return false, with everything as it was, when that failed; `errno` is `EEXIST` for what was refused.
  [[nodiscard]] bool Commit(Existing existing);

  /// Removes it. To be called at any time.
  void Abandon();

  /// @return the hidden path; empty when there is no such file.
  [[nodiscard]] const std::string& Path() const { return path_; }

  /// @return the target with its links followed.
  [[nodiscard]] const std::string& Target() const { return target_; }

 private:
  std::string target_;
  std::string path_;
  DiscardOnKill discard_;
};

/// The file that a link stands for, or `path` itself when it is none or leads nowhere.
std::string FollowLinks(const std::string& path);

}  // namespace vak
