#include "support/RunCommand.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace vak::test {
namespace {

[[noreturn]] void Throw(const char* what, int error) { throw std::system_error(error, std::generic_category(), what); }

int Checked(int answer, const char* what) {
  if (answer < 0) Throw(what, errno);
  return answer;
}

int FileInMemory(const std::string& content) {
  const int file = Checked(memfd_create("command", MFD_CLOEXEC), "memfd_create");
  if (pwrite(file, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) Throw("pwrite", errno);
  return file;
}

std::string ContentOf(int file) {
  struct stat state{};
  Checked(fstat(file, &state), "fstat");
  std::string content(static_cast<std::size_t>(state.st_size), '\0');
  if (pread(file, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) Throw("pread", errno);
  return content;
}

/// Reads a terminal until the last process has let go of it, which shows as an error.
std::string Drained(int terminal) {
  std::string content;
  char part[4096];
  for (;;) {
    const ssize_t count = read(terminal, part, sizeof part);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return content;
    content.append(part, static_cast<std::size_t>(count));
  }
}

int OpenTerminal(int& programsEnd) {
  const int ours = Checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
  Checked(grantpt(ours), "grantpt");
  Checked(unlockpt(ours), "unlockpt");
  programsEnd = Checked(open(ptsname(ours), O_RDWR | O_NOCTTY | O_CLOEXEC), "open terminal");
  winsize size = {};
  size.ws_col = 80;
  size.ws_row = 24;
  Checked(ioctl(programsEnd, TIOCSWINSZ, &size), "TIOCSWINSZ");
  return ours;
}

}  // namespace

RunCommand::RunCommand(std::vector<std::string> words, const std::string& input, StandardError standardError)
    : terminal_(standardError == StandardError::kTerminal) {
  const int in = FileInMemory(input);
  out_ = FileInMemory({});
  int error = -1;
  err_ = terminal_ ? OpenTerminal(error) : FileInMemory({});
  Start(words, in, terminal_ ? error : err_);
  close(in);
  if (terminal_) close(error);
}

void RunCommand::Start(const std::vector<std::string>& words, int input, int error) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, out_, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&files, error, STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t usual;
  sigemptyset(&usual);
  for (const int signal : {SIGINT, SIGTERM, SIGPIPE, SIGXFSZ}) sigaddset(&usual, signal);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int failure = posix_spawnp(&process_, arguments.front(), &files, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (failure != 0) {
    process_ = -1;
    Throw(words.front().c_str(), failure);
  }
}

RunCommand::~RunCommand() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  for (const int file : {out_, err_}) {
    if (file >= 0) close(file);
  }
}

void RunCommand::Signal(int signal) const {
  if (process_ > 0) kill(process_, signal);
}

std::string RunCommand::OutputSoFar() const { return process_ > 0 ? ContentOf(out_) : result_.out; }

bool RunCommand::HasEnded() const {
  if (process_ <= 0) return true;
  siginfo_t state = {};
  return waitid(P_PID, static_cast<id_t>(process_), &state, WEXITED | WNOHANG | WNOWAIT) != 0 || state.si_pid != 0;
}

std::vector<std::string> RunCommand::AwaitLines(std::size_t count, std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const bool ended = HasEnded();  // first: what it has written is all there then
    std::istringstream text(OutputSoFar());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line) && !text.eof();) lines.push_back(line);
    if (lines.size() >= count) return lines;
    if (ended || std::chrono::steady_clock::now() > end) {
      throw std::runtime_error(std::to_string(lines.size()) + " lines of " + std::to_string(count) +
                               (ended ? ", and it has ended: " : " within the limit: ") + ContentOf(err_));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

const CommandResult& RunCommand::Wait() {
  if (process_ <= 0) return result_;
  // First: a terminal holds a few thousand characters, and the program waits while it is full.
  if (terminal_) result_.err = Drained(err_);
  int status = 0;
  while (waitpid(process_, &status, 0) < 0) {
    if (errno != EINTR) Throw("waitpid", errno);
  }
  process_ = -1;
  if (WIFEXITED(status)) result_.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result_.signal = WTERMSIG(status);
  result_.out = ContentOf(out_);
  if (!terminal_) result_.err = ContentOf(err_);
  return result_;
}

}  // namespace vak::test
