#pragma once

#include <string>

namespace vak {

/// Removes a file, or a folder with the files in it; folders within it stay, and it with them. Allocates nothing, and
/// a handler of signals may call it.
void RemoveFlat(const char* path);

/// An unfinished file, or a folder with unfinished files, that nobody will want when a signal kills the process: it is
/// removed on the way out. A process that is killed without a warning (SIGKILL) leaves it. A few can be named at a
/// time; more than that stay behind.
///
/// Any thread may use one, a single thread at a time.
class DiscardOnKill {
 public:
  DiscardOnKill() = default;
  ~DiscardOnKill() { Forget(); }

  DiscardOnKill(const DiscardOnKill&) = delete;
  DiscardOnKill& operator=(const DiscardOnKill&) = delete;

  /// Names it. @param path  of a file or a folder, which need not be there yet.
  void Name(const std::string& path);

  /// It is finished, or removed.
  void Forget();

 private:
  int slot_ = -1;
};

/// Removes all that are named. For the handler of a signal that kills.
void DiscardNamed();

}  // namespace vak
