#pragma once

namespace vak {

class CommandContext;

/// Makes the library's jobs and messages speak through the command, for as long as it lives: a modal job draws a
/// progress bar and ends early when the user asks to stop; messages go to standard error, those that are no errors only
/// unless quiet. `context` must outlive it. One at a time.
class CommandSinks {
 public:
  explicit CommandSinks(const CommandContext& context);

  /// Puts "no sinks" in place.
  ~CommandSinks();

  CommandSinks(const CommandSinks&) = delete;
  CommandSinks& operator=(const CommandSinks&) = delete;
};

}  // namespace vak
