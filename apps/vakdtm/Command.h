#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/services/geometry/Page.h"

// The parser's header costs ten seconds a source: Command.cpp alone includes it, subcommands say what they take by the
// functions below.
namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vak {

/// What the command tells the process that started it.
enum ExitStatus : int { kDone = 0, kCouldNotBeDone = 1, kUsedWrongly = 2, kStopped = 130 };

/// What is told where there is too little memory, and what to do about it.
inline constexpr const char* kMemoryText = "there is not enough memory";
inline constexpr const char* kMemoryRemedy = "end other programs, or ask for less at a time";

/// What all subcommands have in common: the global options, the subcommand that was chosen, and how it speaks.
///
/// Messages are one line each on standard error: "vakdtm import: survey.xyz:1042: 2 columns found - give x, y and z".
/// Control characters in them, as a file name may have, are shown as '?', those of the second set (U+0080 to U+009F)
/// too: a terminal obeys them as well. Parsing sets the fields, on the main thread; any thread may print.
class CommandContext {
 public:
  bool quiet = false;        ///< the user wants to see errors only
  std::string subcommand;    ///< "import"; empty before one was chosen
  std::function<int()> run;  ///< does the subcommand's work and answers the exit status; set by parsing

  /// @return "vakdtm import", or "vakdtm" before a subcommand was chosen.
  [[nodiscard]] std::string Label() const;

  /// Prints what went wrong and what to do about it. `where` is a file or "file:line", or empty; `remedy` may be empty.
  /// @return kCouldNotBeDone, for `return context.Fail(...)`.
  int Fail(std::string_view where, std::string_view what, std::string_view remedy) const;

  /// As `Fail`, for arguments that make no sense together. @return kUsedWrongly.
  int Misuse(std::string_view what, std::string_view remedy) const;

  /// Prints that the user stopped the work, and in `state` what that leaves: "the model holds what was imported so
  /// far".
  /// @return kStopped.
  int Stopped(std::string_view state) const;

  /// Prints a result of the subcommand on standard output, all of it before this returns.
  /// @return kDone, or as `Fail` when standard output doesn't take it; without a word when its reader has gone.
  int PrintResult(std::string_view text) const;

  /// Prints something that the user should look at, though the work goes on. Nothing when quiet.
  void Warn(std::string_view where, std::string_view what, std::string_view remedy) const;

 private:
  void Print(std::string_view kind, std::string_view where, std::string_view what, std::string_view remedy) const;
};

/// Runs the command line and answers the exit status. `adders` are the functions that add a subcommand each.
int RunCommandLine(int argc, const char* const* argv,
                   std::initializer_list<void (*)(CLI::App&, CommandContext&)> adders);

/// A subcommand as the help shows it.
struct SubcommandText {
  std::string name;
  std::string description;  ///< one sentence
  std::string example;      ///< whole command lines, one a line
};

/// Adds a subcommand with `--help` and `--quiet`; `run` is called after the whole command line was understood.
/// @return the subcommand, owned by `app`, for its own options.
CLI::App* AddSubcommand(CLI::App& app, CommandContext& context, const SubcommandText& text, std::function<int()> run);

/// Adds a subcommand that has subcommands of its own, one of which has to be named. They are added to what this
/// answers, by `AddSubcommand` with both names: "export csv".
CLI::App* AddSubcommandGroup(CLI::App& app, const SubcommandText& text);

/// Says that the command line is wrong without it. @return the option.
CLI::Option* Required(CLI::Option* option);

/// Says that two options can't stand in one command line.
void Exclude(CLI::Option* option, CLI::Option* other);

/// Adds an argument or an option whose text is taken as it is; the help calls it `typeName`. An option with an empty
/// text is wrong use. `value` must live until the command line has been parsed; the same holds for what is added below.
CLI::Option* AddText(CLI::App& command, const std::string& names, std::string& value, const std::string& typeName,
                     const std::string& description);

/// The same for any number of texts.
CLI::Option* AddTexts(CLI::App& command, const std::string& names, std::vector<std::string>& values,
                      const std::string& typeName, const std::string& description);

/// Adds an option whose text may be left out; `value` is then the one that stands for it, and the help shows that.
CLI::Option* AddTextOrNone(CLI::App& command, const std::string& names, std::optional<std::string>& value,
                           const std::string& typeName, const std::string& description, const std::string& leftOut);

/// Adds an option without a value; `value` becomes true where it is given.
CLI::Option* AddFlag(CLI::App& command, const std::string& names, bool& value, const std::string& description);

/// Adds an option with a whole number of `lowest` to `highest`. Anything else in the argument is wrong use.
CLI::Option* AddWholeNumber(CLI::App& command, const std::string& names, std::uint64_t& value,
                            const std::string& description, std::uint64_t lowest = 0,
                            std::uint64_t highest = std::numeric_limits<std::uint64_t>::max());

/// Adds an option with a decimal number of `lowest` to `highest`, with a point whatever the locale; never
/// not-a-number or infinity.
CLI::Option* AddNumber(CLI::App& command, const std::string& names, double& value, const std::string& description,
                       double lowest = std::numeric_limits<double>::lowest(),
                       double highest = std::numeric_limits<double>::max());

/// The same where it matters whether it was given.
CLI::Option* AddNumberIfGiven(CLI::App& command, const std::string& names, std::optional<double>& value,
                              const std::string& description);

/// Adds an option with one of a few words.
CLI::Option* AddChoice(CLI::App& command, const std::string& names, std::string& value,
                       const std::vector<std::string>& words, const std::string& description);

/// Adds an option with a rectangle, "x0,y0,x1,y1": four finite numbers with x0 below x1 and y0 below y1.
CLI::Option* AddRect(CLI::App& command, const std::string& names, std::optional<Page>& rect,
                     const std::string& description);

/// Adds an option with a number of bytes as `ParseByteCount` reads it.
CLI::Option* AddByteCount(CLI::App& command, const std::string& names, std::uint64_t& bytes,
                          const std::string& description, std::uint64_t lowest = 0);

/// Reads a number of bytes: digits, then nothing, `B`, or one of K, M, G, T (powers of 1024; small letters too) which
/// `B` or `iB` may follow: "268435456", "256M", "1GiB".
/// @return false, with `bytes` as it was, for anything else and for 2^64 and above.
[[nodiscard]] bool ParseByteCount(std::string_view text, std::uint64_t& bytes);

/// @return the number with its noun: "1 area", "0 areas".
std::string Counted(std::int64_t count, const char* noun);

void AddCellsCommand(CLI::App& app, CommandContext& context);
void AddContourCommand(CLI::App& app, CommandContext& context);
void AddCreateCommand(CLI::App& app, CommandContext& context);
void AddExportCommand(CLI::App& app, CommandContext& context);
/// To the group of `export`.
void AddExportGeoTiffCommand(CLI::App& group, CommandContext& context);
void AddFillCommand(CLI::App& app, CommandContext& context);
void AddImportCommand(CLI::App& app, CommandContext& context);
void AddInfoCommand(CLI::App& app, CommandContext& context);
void AddOutlineCommand(CLI::App& app, CommandContext& context);
void AddRenderCommand(CLI::App& app, CommandContext& context);
void AddSimulateCommand(CLI::App& app, CommandContext& context);
void AddStatsCommand(CLI::App& app, CommandContext& context);
void AddVerifyCommand(CLI::App& app, CommandContext& context);
void AddWatchCommand(CLI::App& app, CommandContext& context);

}  // namespace vak
