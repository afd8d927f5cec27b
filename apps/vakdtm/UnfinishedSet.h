#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DiscardOnKill.h"
#include "LineFormat.h"

namespace vak {

/// One file, or several that belong together, made in a hidden folder beside the target and put in its place when they
/// are complete.
///
/// The members of a set are renamed one by one: first the old file that was asked for goes, then the rest of the old
/// set, and the new file that is asked for comes last. So there is no moment at which it has another set's companions;
/// there is one at which it isn't there, and a process that is killed then leaves the old set in the hidden folder. A
/// file that comes alone takes the old one's place in a single step. Of several runs with one target the set is that
/// of one, wherever the file system has locks.
///
/// What an earlier set of the same name had goes with it, files and links alone. A failure puts everything back;
/// without `Commit` the folder is removed, also by the signal that kills the process. Failures are told by `errno`. For
/// one thread at a time.
class UnfinishedSet {
 public:
  UnfinishedSet() = default;
  ~UnfinishedSet() { Abandon(); }

  UnfinishedSet(const UnfinishedSet&) = delete;
  UnfinishedSet& operator=(const UnfinishedSet&) = delete;

  /// All names that a set with this target has, or takes away when it is replaced; links of the target are followed.
  /// The target's own is the first.
  static std::vector<std::string> Names(const std::string& target, const LineFormat& format);

  /// Makes the folder. A link is followed, and the link stays. To be called once.
  /// @param format  of the target, whose name ends as the format's do; outlives this.
  /// @return false when there can be no file: the target, or what has a name of its set, is a folder or something else
  /// that can't be replaced, `access` forbids it, or another file has the target's name but for the size of its
  /// ending's letters (`EEXIST`), so that their sets would be one.
  [[nodiscard]] bool Make(const std::string& target, const LineFormat& format);

  /// Where the file is to be made; the others of its set beside it.
  [[nodiscard]] const std::string& Path() const { return path_; }

  /// @return what was in the way, by its path, when that was something else than the target; else empty.
  [[nodiscard]] const std::string& Obstacle() const { return obstacle_; }

  /// Puts the set in its place, waiting a little for another run that does the same (`EBUSY`). @return false, with
  /// everything as it was, when that failed.
  [[nodiscard]] bool Commit();

  /// Removes what there is. To be called at any time.
  void Abandon();

 private:
  bool FindObstacle();
  bool MakeFolder();
  bool Move(const std::string& from, const std::string& to);
  bool MoveOldAway(const std::string& path);
  std::vector<std::string_view> MadeCompanions() const;
  bool MoveAll();
  void MoveBack();

  const LineFormat* format_ = nullptr;
  std::string target_;  // links followed
  std::string stem_;    // the same without its ending
  std::string folder_;  // ends in '/'; empty when there is none
  std::string path_;
  std::string obstacle_;
  std::vector<std::pair<std::string, std::string>> moves_;
  bool keepsOld_ = false;  // what couldn't be put back lies in the folder
  DiscardOnKill discard_;
};

}  // namespace vak
