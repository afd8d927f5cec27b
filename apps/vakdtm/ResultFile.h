#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "UnfinishedFile.h"

namespace vak {

/// @return whether two paths, neither of them "-", lead to one file that is there.
[[nodiscard]] bool IsSameFile(const std::string& one, const std::string& other);

/// @return what a refusal to write means, by its error number: "no space left on the device".
[[nodiscard]] std::string WriteErrorText(int error);

/// Whether more room would have helped.
[[nodiscard]] bool IsLackOfRoom(int error);

/// What a command writes: a file that appears under its name only when it is complete, or standard output.
///
/// A regular file is written beside its target, under a hidden name, and renamed by `Commit`; without that, what was
/// there before stays as it was and the unfinished file is removed. A link is followed, and the link stays. A
/// target that is no regular file (a device, a named pipe) and standard output are written as they are, at once.
/// Nothing is flushed to the disk: what a command writes here can be written again.
///
/// Every write is checked. After a failure all later calls answer false; `Error` says what happened, in words for the
/// user. For one thread at a time.
class ResultFile {
 public:
  ResultFile() = default;
  ~ResultFile();

  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;

  /// Opens `path` for writing; "-" is standard output. To be called once.
  /// @return false when it can't be written: a folder, no permission, no such folder. The target is as it was.
  [[nodiscard]] bool Open(const std::string& path);

  /// Appends `text`, buffered. @return false when the system refused it, or the user stopped a wait for the reader.
  [[nodiscard]] bool Write(std::string_view text);

  /// Writes what is buffered, closes, and puts the file in its place. @return false when any of it failed; the target
  /// is then as it was, unless it is written directly.
  [[nodiscard]] bool Commit();

  /// @return the target for messages: the path as given, or "standard output".
  [[nodiscard]] const std::string& Name() const { return name_; }

  /// @return the path of the hidden file, for somebody else to write to before `Commit`; empty when the target is
  /// written directly.
  [[nodiscard]] const std::string& HiddenPath() const { return unfinished_.Path(); }

  /// @return what failed, as "no space left on the device"; empty when nothing has.
  [[nodiscard]] const std::string& Error() const { return error_; }

  /// Whether what failed wouldn't have, had there been more room.
  [[nodiscard]] bool LacksRoom() const { return lacksRoom_; }

  /// True when the reader of a pipe has gone (as `head` does). No cause for a message: whoever closed it knows.
  [[nodiscard]] bool ReaderGone() const { return readerGone_; }

 private:
  [[nodiscard]] bool OpenBeside();
  [[nodiscard]] bool OpenDirectly();
  [[nodiscard]] bool WriteOut(const char* from, std::size_t count);
  bool FailWith(int error);
  void Abandon();

  std::string name_;
  std::string target_;  // where it is to appear; empty when it is written directly
  UnfinishedFile unfinished_;
  std::string buffer_;
  std::string error_;
  int descriptor_ = -1;
  bool closes_ = false;  // the descriptor is ours
  bool readerGone_ = false;
  bool lacksRoom_ = false;
};

}  // namespace vak
