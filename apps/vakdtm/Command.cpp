#include "Command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>
#include <system_error>
#include <type_traits>
#include <vector>

#include "CommandSinks.h"
#include "ProgressBar.h"
#include "ResultFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

/// Reads all of `text` as a number that stands in front of its end. @return false when anything is left over.
template <typename Number>
bool ParseAll(std::string_view text, Number& value) {
  Number parsed = {};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  value = parsed;
  return true;
}

/// The parser takes an argument "[a,b]" for a list and splits it, where any number of texts may stand. A mark at its
/// end keeps it whole, since then it ends in no bracket; one that has marks of its own gets one more.
constexpr char kMark = '\x01';

bool IsBracketed(std::string_view text) {
  const std::size_t last = text.find_last_not_of(kMark);
  return text.size() > 1 && text.front() == '[' && last != std::string_view::npos && last > 0 && text[last] == ']';
}

/// Whether a text has nothing in it but marks, or is an option with nothing behind its "=": "--sun=". The parser takes
/// that for an option without a text, and it is mostly a variable of the shell that isn't set. A mark makes it a text,
/// which the option refuses in its own words.
bool IsHollow(std::string_view text) {
  const std::size_t equals = text.starts_with("--") ? text.find('=') : std::string_view::npos;
  if (equals != std::string_view::npos) text.remove_prefix(equals + 1);
  return text.find_first_not_of(kMark) == std::string_view::npos && (equals != std::string_view::npos || !text.empty());
}

/// The arguments as the parser wants them: without the program's name, the last one first.
std::vector<std::string> MarkedArguments(int argc, const char* const* argv) {
  std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
  for (std::string& argument : arguments) {
    if (IsBracketed(argument) || IsHollow(argument)) argument += kMark;
  }
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}

/// The argument as it was given.
std::string Unmarked(std::string text) {
  if ((IsBracketed(text) || IsHollow(text)) && text.back() == kMark) text.pop_back();
  return text;
}

/// Adds an option whose text is handed to `take`, which answers what is wrong with it, or nothing.
CLI::Option* AddChecked(CLI::App& command, const std::string& names, const std::string& description,
                        const std::string& typeName, const std::function<std::string(const std::string&)>& take) {
  CLI::Option* option = command.add_option_function<std::string>(
      names,
      [take, names](const std::string& text) {
        const std::string fault = take(Unmarked(text));
        if (!fault.empty()) throw CLI::ValidationError(names, fault);
      },
      description);
  return option->type_name(typeName);
}

template <typename Number>
std::string Shortest(Number value) {
  char text[64];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

template <typename Number>
std::string RangeText(Number lowest, Number highest) {
  const bool hasLowest = lowest != std::numeric_limits<Number>::lowest();
  const bool hasHighest = highest != std::numeric_limits<Number>::max();
  // The smallest positive double stands for "anything but 0", which is what a user can do something with.
  if (std::is_floating_point_v<Number> && lowest == std::numeric_limits<Number>::min() && !hasHighest) {
    return " above 0";
  }
  if (hasLowest && hasHighest) return " from " + Shortest(lowest) + " to " + Shortest(highest);
  if (hasLowest) return " from " + Shortest(lowest) + " up";
  return hasHighest ? " up to " + Shortest(highest) : std::string();
}

template <typename Number>
CLI::Option* AddRanged(CLI::App& command, const std::string& names, Number& value, const std::string& description,
                       Number lowest, Number highest, const std::string& kind, const std::string& typeName) {
  return AddChecked(command, names, description, typeName, [&value, lowest, highest, kind](const std::string& text) {
    Number parsed = {};
    // Written so that not-a-number is refused as well.
    if (ParseAll(text, parsed) && parsed >= lowest && parsed <= highest) {
      value = parsed;
      return std::string();
    }
    return "'" + text + "' is no " + kind + RangeText(lowest, highest);
  });
}

/// @return what is wrong, or nothing.
std::string ParseRect(const std::string& text, Page& rect) {
  std::vector<double> numbers;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t comma = std::min(text.find(',', from), text.size());
    double number = 0;
    if (!ParseAll(std::string_view(text).substr(from, comma - from), number) || !std::isfinite(number)) break;
    numbers.push_back(number);
    from = comma + 1;
  }
  if (numbers.size() != 4 || std::count(text.begin(), text.end(), ',') != 3) {
    return "'" + text + "' is no rectangle x0,y0,x1,y1";
  }
  rect = Page(numbers[0], numbers[1], numbers[2], numbers[3]);
  if (numbers[0] < numbers[2] && numbers[1] < numbers[3]) return {};
  return "'" + text + "' has no surface, x0 has to be below x1 and y0 below y1";
}

/// Binary exponent of a size's unit letter, or -1 when it is none.
int UnitExponent(char letter) {
  switch (letter) {
    case 'k':
    case 'K':
      return 10;
    case 'm':
    case 'M':
      return 20;
    case 'g':
    case 'G':
      return 30;
    case 't':
    case 'T':
      return 40;
    default:
      return -1;
  }
}

/// @return how many bytes a character of UTF-8 has that begins with `first`; 1 for a byte that can't begin one.
std::size_t CharacterLength(unsigned char first) {
  if (first >= 0xC2 && first <= 0xDF) return 2;
  if (first >= 0xE0 && first <= 0xEF) return 3;
  return first >= 0xF0 && first <= 0xF4 ? 4 : 1;
}

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

/// Whether this is a control character, or a byte that a terminal without UTF-8 takes for one.
bool IsControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20 || (first >= 0x7F && first <= 0x9F);
  return first == 0xC2 && static_cast<unsigned char>(character[1]) <= 0x9F;
}

std::string OneLine(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    std::size_t length = std::min(CharacterLength(static_cast<unsigned char>(text.front())), text.size());
    // A character that isn't whole is taken byte by byte.
    if (!std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length), IsContinuation)) length = 1;
    const std::string_view character = text.substr(0, length);
    line += IsControl(character) ? std::string_view("?") : character;
    text.remove_prefix(length);
  }
  return line;
}

/// Prints what the parser has for the user on standard output: help or the version.
int PrintAnswer(const CLI::App& app, const CLI::Error& answer, const CommandContext& context) {
  std::ostringstream text;
  std::ostringstream errors;
  app.exit(answer, text, errors);
  std::cout << text.str() << std::flush;
  return std::cout ? kDone : context.Fail("", "cannot write to standard output", "");
}

/// What stands at the end of a subcommand's help.
std::string ExampleText(const SubcommandText& text) {
  std::string footer = "Example:";
  std::istringstream lines(text.example);
  for (std::string line; std::getline(lines, line);) footer += "\n  " + line;
  return footer;
}

/// Of a group of which no member was chosen: what was named in its place, and what may be.
std::string GroupMisuseText(const CLI::App& group) {
  std::string all;
  for (const CLI::App* member : group.get_subcommands({})) all += (all.empty() ? "" : "|") + member->get_name();
  for (const std::string& word : group.remaining(true)) {
    if (!word.starts_with('-')) return "'" + Unmarked(word) + "' is none of " + all;
  }
  return "one of " + all + " is missing";
}

/// What is wrong with the command line, in the words of the parser where they are good ones.
std::string MisuseText(const CLI::App& app, const CLI::ParseError& error) {
  if (app.get_subcommands().empty()) {
    const std::vector<std::string> unknown = app.remaining();
    return unknown.empty() ? "a subcommand is missing"
                           : "there is no subcommand or option '" + Unmarked(unknown.front()) + "'";
  }
  const CLI::App& chosen = *app.get_subcommands().front();
  if (chosen.get_require_subcommand_min() > 0 && chosen.get_subcommands().empty()) return GroupMisuseText(chosen);
  std::string text = error.what();
  std::erase(text, kMark);
  if (!text.empty() && text.front() >= 'A' && text.front() <= 'Z')
    text.front() = static_cast<char>(text.front() + 'a' - 'A');
  return text;
}

int ReportMisuse(const CLI::App& app, const CLI::ParseError& error, CommandContext& context) {
  for (auto chosen = app.get_subcommands(); !chosen.empty(); chosen = chosen.front()->get_subcommands()) {
    context.subcommand += (context.subcommand.empty() ? "" : " ") + chosen.front()->get_name();
  }
  return context.Misuse(MisuseText(app, error), "see '" + context.Label() + " --help'");
}

}  // namespace

std::string CommandContext::Label() const { return subcommand.empty() ? "vakdtm" : "vakdtm " + subcommand; }

int CommandContext::Fail(std::string_view where, std::string_view what, std::string_view remedy) const {
  Print("", where, what, remedy);
  return kCouldNotBeDone;
}

int CommandContext::Misuse(std::string_view what, std::string_view remedy) const {
  Print("", "", what, remedy);
  return kUsedWrongly;
}

int CommandContext::Stopped(std::string_view state) const {
  Print("", "", "stopped", state);
  return kStopped;
}

int CommandContext::PrintResult(std::string_view text) const {
  EraseProgressLine();
  const bool taken = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  if (taken) return kDone;
  const int error = errno;
  if (error == EPIPE) return kCouldNotBeDone;  // whoever closed the pipe knows
  return Fail("standard output", "cannot write: " + WriteErrorText(error),
              IsLackOfRoom(error) ? "make room, or send it elsewhere" : "send it elsewhere");
}

void CommandContext::Warn(std::string_view where, std::string_view what, std::string_view remedy) const {
  if (!quiet) Print("warning: ", where, what, remedy);
}

void CommandContext::Print(std::string_view kind, std::string_view where, std::string_view what,
                           std::string_view remedy) const {
  std::string line = Label() + ": ";
  line += kind;
  if (!where.empty()) line.append(where).append(": ");
  line += what;
  if (!remedy.empty()) line.append(" - ").append(remedy);
  EraseProgressLine();
  std::fputs((OneLine(line) + "\n").c_str(), stderr);
}

int RunCommandLine(int argc, const char* const* argv,
                   std::initializer_list<void (*)(CLI::App&, CommandContext&)> adders) {
  CatchStopSignals();
  CommandContext context;
  CLI::App app("Gridded terrain models of the sea bed, made from soundings.", "vakdtm");
  app.set_version_flag("--version", "vakdtm " VAKDTM_VERSION);
  app.add_flag("-q,--quiet", context.quiet, "Print errors only: no progress bar, no warnings");
  app.require_subcommand(1);
  app.footer("Help on one of them, with an example: vakdtm SUBCOMMAND --help");
  for (const auto add : adders) add(app, context);
  try {
    app.parse(MarkedArguments(argc, argv));
  } catch (const CLI::Success& answer) {
    return PrintAnswer(app, answer, context);
  } catch (const CLI::ParseError& error) {
    return ReportMisuse(app, error, context);
  }
  const CommandSinks sinks(context);
  try {
    return context.run();
  } catch (const std::bad_alloc&) {
    // All that was unfinished is removed by now, and there is room for the words.
    return context.Fail("", kMemoryText, kMemoryRemedy);
  } catch (const std::system_error& error) {
    // A thread takes memory too, for its stack.
    if (error.code() != std::errc::resource_unavailable_try_again) throw;
    return context.Fail("", kMemoryText, kMemoryRemedy);
  }
}

CLI::App* AddSubcommand(CLI::App& app, CommandContext& context, const SubcommandText& text, std::function<int()> run) {
  // Of a group's member, the group is `app`.
  const std::size_t blank = text.name.rfind(' ');
  CLI::App* command =
      app.add_subcommand(blank == std::string::npos ? text.name : text.name.substr(blank + 1), text.description);
  command->footer(ExampleText(text));
  command->add_flag("-q,--quiet", context.quiet, "Print errors only: no progress bar, no warnings");
  command->callback([&context, name = text.name, run = std::move(run)] {
    context.subcommand = name;
    context.run = run;
  });
  return command;
}

CLI::App* AddSubcommandGroup(CLI::App& app, const SubcommandText& text) {
  CLI::App* group = app.add_subcommand(text.name, text.description);
  group->require_subcommand(1);
  group->footer("Help on one of them: vakdtm " + text.name + " SUBCOMMAND --help\n\n" + ExampleText(text));
  return group;
}

CLI::Option* Required(CLI::Option* option) { return option->required(); }

void Exclude(CLI::Option* option, CLI::Option* other) { option->excludes(other); }

CLI::Option* AddText(CLI::App& command, const std::string& names, std::string& value, const std::string& typeName,
                     const std::string& description) {
  // An option with nothing in it is mostly a variable of the shell that isn't set, and would go for not given.
  const bool isOption = names.starts_with('-');
  return AddChecked(command, names, description, typeName, [&value, isOption](const std::string& text) {
    if (isOption && text.empty()) return std::string("'' is empty");
    value = text;
    return std::string();
  });
}

CLI::Option* AddTexts(CLI::App& command, const std::string& names, std::vector<std::string>& values,
                      const std::string& typeName, const std::string& description) {
  const auto take = [&values](const std::vector<std::string>& texts) {
    std::transform(texts.begin(), texts.end(), std::back_inserter(values), Unmarked);
  };
  return command.add_option_function<std::vector<std::string>>(names, take, description)->type_name(typeName);
}

CLI::Option* AddTextOrNone(CLI::App& command, const std::string& names, std::optional<std::string>& value,
                           const std::string& typeName, const std::string& description, const std::string& leftOut) {
  CLI::Option* const option = AddChecked(command, names, description, typeName, [&value](const std::string& text) {
    if (text.empty()) return std::string("'' is empty");
    value = text;
    return std::string();
  });
  return option->default_str(leftOut)->expected(0, 1);
}

CLI::Option* AddFlag(CLI::App& command, const std::string& names, bool& value, const std::string& description) {
  return command.add_flag(names, value, description);
}

CLI::Option* AddWholeNumber(CLI::App& command, const std::string& names, std::uint64_t& value,
                            const std::string& description, std::uint64_t lowest, std::uint64_t highest) {
  return AddRanged(command, names, value, description, lowest, highest, "whole number", "N");
}

CLI::Option* AddNumber(CLI::App& command, const std::string& names, double& value, const std::string& description,
                       double lowest, double highest) {
  return AddRanged(command, names, value, description, lowest, highest, "number", "X");
}

CLI::Option* AddNumberIfGiven(CLI::App& command, const std::string& names, std::optional<double>& value,
                              const std::string& description) {
  return AddChecked(command, names, description, "X", [&value](const std::string& text) {
    double parsed = 0;
    if (!ParseAll(text, parsed) || !std::isfinite(parsed)) return "'" + text + "' is no number";
    value = parsed;
    return std::string();
  });
}

CLI::Option* AddChoice(CLI::App& command, const std::string& names, std::string& value,
                       const std::vector<std::string>& words, const std::string& description) {
  std::string all;
  for (const std::string& word : words) all += (all.empty() ? "" : "|") + word;
  return AddChecked(command, names, description, all, [&value, words, all](const std::string& text) {
    if (std::find(words.begin(), words.end(), text) == words.end()) return "'" + text + "' is none of " + all;
    value = text;
    return std::string();
  });
}

CLI::Option* AddRect(CLI::App& command, const std::string& names, std::optional<Page>& rect,
                     const std::string& description) {
  return AddChecked(command, names, description, "X0,Y0,X1,Y1", [&rect](const std::string& text) {
    Page parsed;
    const std::string fault = ParseRect(text, parsed);
    if (fault.empty()) rect = parsed;
    return fault;
  });
}

CLI::Option* AddByteCount(CLI::App& command, const std::string& names, std::uint64_t& bytes,
                          const std::string& description, std::uint64_t lowest) {
  return AddChecked(command, names, description, "SIZE", [&bytes, lowest](const std::string& text) {
    std::uint64_t parsed = 0;
    if (!ParseByteCount(text, parsed)) return "'" + text + "' is no size such as 256M or 1G";
    if (parsed < lowest) return "'" + text + "' is less than " + std::to_string(lowest) + " bytes";
    bytes = parsed;
    return std::string();
  });
}

std::string Counted(std::int64_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

bool ParseByteCount(std::string_view text, std::uint64_t& bytes) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return false;
  std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
  int exponent = 0;
  if (!unit.empty() && UnitExponent(unit.front()) > 0) {
    exponent = UnitExponent(unit.front());
    unit.remove_prefix(1);
    if (unit == "iB") unit = {};
  }
  if (!unit.empty() && unit != "B") return false;
  if (number > std::numeric_limits<std::uint64_t>::max() >> exponent) return false;
  bytes = number << exponent;
  return true;
}

}  // namespace vak
