#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LineFormat.h"

namespace vak {

/// One file, or several that belong together, made in a hidden folder beside the target and put in its place when they
/// are complete.
///
/// The members of a set are renamed one by one, the one that is asked for last, so that whoever opens it finds all of
/// it. What an earlier set of the same name had goes with it. A failure puts everything back; without `Commit` the
/// folder is removed. Failures are told by `errno`. For one thread at a time.
class UnfinishedSet {
 public:
  UnfinishedSet() = default;
  ~UnfinishedSet() { Abandon(); }

  UnfinishedSet(const UnfinishedSet&) = delete;
  UnfinishedSet& operator=(const UnfinishedSet&) = delete;

  /// Makes the folder. A link is followed, and the link stays. To be called once.
  /// @param format  of the target, whose name ends as the format's do; outlives this.
  /// @return false when there can be no file: the target is a folder or something else that can't be replaced, or
  /// `access` forbids it.
  [[nodiscard]] bool Make(const std::string& target, const LineFormat& format);

  /// Where the file is to be made; the others of its set beside it.
  [[nodiscard]] const std::string& Path() const { return path_; }

  /// Puts the set in its place. @return false, with everything as it was, when that failed.
  [[nodiscard]] bool Commit();

  /// Removes what there is. To be called at any time.
  void Abandon();

 private:
  bool MakeFolder();
  bool Move(const std::string& from, const std::string& to);
  bool MoveOldAway(const std::string& companion, int& count);
  bool MoveAll();
  void MoveBack();

  const LineFormat* format_ = nullptr;
  std::string target_;  // links followed
  std::string stem_;    // the same without its ending
  std::string folder_;  // ends in '/'; empty when there is none
  std::string path_;
  std::vector<std::pair<std::string, std::string>> moves_;
};

}  // namespace vak
