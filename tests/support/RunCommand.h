#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vak::test {

/// What a program left behind.
struct CommandResult {
  int status = -1;  ///< exit status, -1 when a signal killed it
  int signal = 0;   ///< what killed it, 0 for none
  std::string out;
  std::string err;
};

/// A program run as a process of its own, with its output captured.
///
/// Starts at once. Output goes to files in memory, so that any amount of it never blocks the program. Signals are as a
/// terminal leaves them, also when the test run itself ignores some. Throws when the program can't be started: a test
/// that runs nothing is no test. For one thread at a time.
class RunCommand {
 public:
  enum class StandardError { kCaptured, kTerminal };

  /// @param words  the program's path and its arguments.
  /// @param input  what it reads from standard input.
  /// @param standardError  `kTerminal`: a terminal of 80 columns, whose lines end in "\r\n".
  explicit RunCommand(std::vector<std::string> words, const std::string& input = {},
                      StandardError standardError = StandardError::kCaptured);

  /// Kills the program if it still runs.
  ~RunCommand();

  RunCommand(const RunCommand&) = delete;
  RunCommand& operator=(const RunCommand&) = delete;

  /// Sends it a signal.
  void Signal(int signal) const;

  /// Waits for its end. @return what it left; the same on later calls.
  const CommandResult& Wait();

  /// @return what it has written to standard output so far.
  [[nodiscard]] std::string OutputSoFar() const;

  /// Waits until it has written at least this many whole lines to standard output, or, when it ends first or the limit
  /// has passed, throws. @return them and what came with them.
  std::vector<std::string> AwaitLines(std::size_t count, std::chrono::seconds limit = std::chrono::minutes(1));

  /// Whether it has come to its end, by itself or by a signal; true after `Wait`.
  [[nodiscard]] bool HasEnded() const;

  /// @return its process id, until `Wait` has returned.
  [[nodiscard]] pid_t Process() const { return process_; }

 private:
  void Start(const std::vector<std::string>& words, int input, int error);

  pid_t process_ = -1;
  int out_ = -1;
  int err_ = -1;  // file in memory, or the terminal's other end
  bool terminal_ = false;
  CommandResult result_;
};

}  // namespace vak::test
