#pragma once

#include <string>
#include <vector>

namespace vak::test {

/// What a test runs as a process of its own: the test program itself, started anew with this to do instead of the
/// tests.
///
///     const Worker kReader("reader", [](const Worker::Words& arguments) { ...; return 0; });
///     RunCommand reader(kReader.Line({path}));
///
/// At the top level of a test's source, one a name.
class Worker {
 public:
  using Words = std::vector<std::string>;
  using Work = int (*)(const Words& arguments);

  Worker(std::string name, Work work);

  /// The command line that starts it.
  Words Line(Words arguments) const;

  /// Does the work that the command line asks for. @return false when it asks for the tests; `status` otherwise gets
  /// what the process is to end with.
  static bool RunIfAsked(int argc, char** argv, int& status);

 private:
  std::string name_;
};

}  // namespace vak::test
