#pragma once

#include <chrono>
#include <string>

#include "Command.h"

namespace vak {

/// Progress on standard error: per cent, a bar and the time since it was made, in one line that is erased at the end.
///
/// Draws only where standard error is a terminal and the user didn't ask for quiet; does nothing otherwise. Redraws at
/// most ten times a second, so `Show` may be called as often as one likes. For one thread at a time.
class ProgressBar {
 public:
  explicit ProgressBar(const CommandContext& context);
  ~ProgressBar();

  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Shows `fraction`, 0.0 to 1.0; what lies outside is cut off there, not-a-number counts as 0.
  void Show(double fraction);

 private:
  using Clock = std::chrono::steady_clock;

  std::string label_;
  bool draws_;
  Clock::time_point start_;
  Clock::time_point next_;  // not drawn again before
};

/// The line that a bar shows: "LABEL  42 % [########            ]  0:12", at most `width` characters long (the bar
/// shrinks first, then the line is cut). `seconds` is the time since the start.
std::string ProgressLine(const std::string& label, double fraction, long long seconds, int width);

/// Takes a bar off the line it is on, so that a message can be printed there. Nothing happens when none is drawn.
void EraseProgressLine();

}  // namespace vak
