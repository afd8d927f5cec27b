#include "ProgressBar.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vak {
namespace {

constexpr int kUsualWidth = 80;
constexpr int kWidestBar = 40;

std::atomic<bool> barIsDrawn{false};

int TerminalWidth() {
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

std::string TwoDigits(long long value) { return (value < 10 ? "0" : "") + std::to_string(value); }

std::string Elapsed(long long seconds) {
  const long long hours = seconds / 3600;
  const long long minutes = seconds / 60 % 60;
  const std::string tail = ":" + TwoDigits(seconds % 60);
  return hours > 0 ? std::to_string(hours) + ":" + TwoDigits(minutes) + tail : std::to_string(minutes) + tail;
}

}  // namespace

std::string ProgressLine(const std::string& label, double fraction, long long seconds, int width) {
  const double done = fraction > 0.0 ? std::min(fraction, 1.0) : 0.0;
  const std::string percent = std::to_string(static_cast<int>(done * 100.0));
  const std::string head = label + std::string(5 - percent.size(), ' ') + percent + " %";
  const std::string tail = "  " + Elapsed(seconds);
  // Blank and brackets take three columns.
  const int room = width - static_cast<int>(head.size() + tail.size()) - 3;
  std::string line = head;
  if (room > 0) {
    const int columns = std::min(room, kWidestBar);
    const int filled = static_cast<int>(done * columns);
    line += " [" + std::string(static_cast<std::size_t>(filled), '#') +
            std::string(static_cast<std::size_t>(columns - filled), ' ') + "]";
  }
  line += tail;
  if (line.size() > static_cast<std::size_t>(std::max(width, 0)))
    line.resize(static_cast<std::size_t>(std::max(width, 0)));
  return line;
}

void EraseProgressLine() {
  if (barIsDrawn.exchange(false)) std::fputs("\r\033[K", stderr);
}

ProgressBar::ProgressBar(const CommandContext& context)
    : label_(context.Label()),
      draws_(!context.quiet && isatty(STDERR_FILENO) == 1),
      start_(Clock::now()),
      next_(start_) {}

ProgressBar::~ProgressBar() {
  if (draws_) EraseProgressLine();
}

void ProgressBar::Show(double fraction) {
  if (!draws_) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + std::chrono::milliseconds(100);
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - start_).count();
  // One column stays free: a terminal that wraps at once would leave a trail of bars.
  const std::string line = "\r" + ProgressLine(label_, fraction, seconds, TerminalWidth() - 1) + "\033[K";
  std::fputs(line.c_str(), stderr);
  std::fflush(stderr);
  barIsDrawn = true;
}

}  // namespace vak
