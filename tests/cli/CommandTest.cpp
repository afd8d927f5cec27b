#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sstream>
#include <string>
#include <time.h>
#include <vector>

#include "Command.h"
#include "ProgressBar.h"
#include "StopSignals.h"
#include "support/RunCommand.h"

namespace vak {
namespace {

using test::CommandResult;
using test::RunCommand;
using testing::HasSubstr;

CommandResult Vakdtm(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), VAKDTM_COMMAND);
  return RunCommand(std::move(arguments)).Wait();
}

/// The names that the help lists.
std::vector<std::string> Subcommands() {
  std::istringstream help(Vakdtm({"--help"}).out);
  std::vector<std::string> names;
  bool listed = false;
  for (std::string line; std::getline(help, line);) {
    if (listed && line.empty()) break;
    if (listed && line.size() > 2 && line[2] != ' ') names.push_back(line.substr(2, line.find(' ', 2) - 2));
    if (line == "Subcommands:") listed = true;
  }
  return names;
}

TEST(Command, VersionIsOneLineOnStandardOutput) {
  const CommandResult result = Vakdtm({"--version"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.out, testing::MatchesRegex("vakdtm [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_EQ(result.err, "");
}

TEST(Command, HelpOfEverySubcommandHasAnExampleOfIt) {
  const std::vector<std::string> names = Subcommands();
  EXPECT_THAT(names, testing::Contains("simulate"));
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const CommandResult result = Vakdtm({name, "--help"});
    EXPECT_EQ(result.status, kDone);
    EXPECT_THAT(result.out, HasSubstr("Example:\n  vakdtm " + name + " "));
    EXPECT_EQ(result.err, "");
  }
}

TEST(Command, WrongUseIsOneLineThatNamesTheHelp) {
  const struct {
    const char* name;
    std::vector<std::string> arguments;
    const char* error;
  } cases[] = {
      {"nothing", {}, "vakdtm: a subcommand is missing - see 'vakdtm --help'\n"},
      {"unknown subcommand", {"sail"}, "vakdtm: there is no subcommand or option 'sail' - see 'vakdtm --help'\n"},
      {"unknown option", {"--fast"}, "vakdtm: there is no subcommand or option '--fast' - see 'vakdtm --help'\n"},
      {"unknown option of a subcommand",
       {"simulate", "-o", "-", "--count", "1", "--fast"},
       "vakdtm simulate: the following argument was not expected: --fast - see 'vakdtm simulate --help'\n"},
      {"missing option",
       {"simulate", "--count", "1"},
       "vakdtm simulate: either --output or --live is required - see 'vakdtm simulate --help'\n"},
      {"line break in an argument",
       {"sa\nil"},
       "vakdtm: there is no subcommand or option 'sa?il' - see 'vakdtm --help'\n"},
      {"list in brackets", {"[a,b]"}, "vakdtm: there is no subcommand or option '[a,b]' - see 'vakdtm --help'\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const CommandResult result = Vakdtm(c.arguments);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, c.error);
  }
}

TEST(Command, ControlCharactersOfBothSetsAreShownAsQuestionMarks) {
  const struct {
    const char* name;
    const char* text;
    const char* shown;
  } cases[] = {
      {"first set and delete", "\t\x1b[2J\x7f!", "??[2J?!"},
      {"second set",
       "\xc2\x80\xc2\x9b"
       "2J\xc2\x9f!",
       "??2J?!"},
      {"what lies behind it", "\xc2\xa0\xc3\x9f\xe2\x80\x93\xf0\x9f\x8c\x8a",
       "\xc2\xa0\xc3\x9f\xe2\x80\x93\xf0\x9f\x8c\x8a"},
      {"bytes that are no UTF-8",
       "\x9b"
       "2J\xe4\xff",
       "?2J\xe4\xff"},
      {"characters that break off", "\xe2\x80\xc2", "\xe2?\xc2"},
      {"a beginning before a control character", "\xc3\x1b[2J", "\xc3?[2J"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Vakdtm({"info", c.text}).err,
              std::string("vakdtm info: ") + c.shown + ": no such file - check the name\n");
  }
}

TEST(Command, NumbersOutOfRangeAreWrongUse) {
  const struct {
    const char* option;
    const char* text;
    const char* error;
  } cases[] = {
      {"--count", "0", "'0' is no whole number from 1 up"},
      {"--count", "-5", "'-5' is no whole number from 1 up"},
      {"--count", "1e3", "'1e3' is no whole number from 1 up"},
      {"--count", "18446744073709551616", "'18446744073709551616' is no whole number from 1 up"},
      {"--seed", "x", "'x' is no whole number"},
      {"--cell-size-hint", "nan", "'nan' is no number from 0.05 to 1000"},
      {"--cell-size-hint", "inf", "'inf' is no number from 0.05 to 1000"},
      {"--cell-size-hint", "1,5", "'1,5' is no number from 0.05 to 1000"},
      {"--cell-size-hint", "0.01", "'0.01' is no number from 0.05 to 1000"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.option) + "=" + c.text);
    std::vector<std::string> arguments = {"simulate", "-o", "-", std::string(c.option) + "=" + c.text};
    if (std::string(c.option) != "--count") arguments.insert(arguments.end(), {"--count", "1"});
    const CommandResult result = Vakdtm(arguments);
    EXPECT_EQ(result.status, kUsedWrongly);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              std::string("vakdtm simulate: ") + c.option + ": " + c.error + " - see 'vakdtm simulate --help'\n");
  }
}

TEST(Command, HelpThatCannotBeWrittenIsAFailure) {
  const CommandResult result = RunCommand({"sh", "-c", "\"$0\" --help > /dev/full", VAKDTM_COMMAND}).Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm: cannot write to standard output\n");
}

TEST(Command, QuietStandsBeforeOrBehindTheSubcommand) {
  // An empty text gets a warning and makes no model.
  const std::vector<std::string> loud = {"import", "/nowhere/a.dtm", "-", "--cell-size", "1"};
  EXPECT_THAT(Vakdtm(loud).err, HasSubstr("warning: standard input: is empty"));
  EXPECT_NE(Vakdtm(loud).out, "");
  for (const char* option : {"-q", "--quiet"}) {
    for (const bool before : {true, false}) {
      SCOPED_TRACE(std::string(option) + (before ? " before" : " behind"));
      std::vector<std::string> arguments = loud;
      arguments.insert(before ? arguments.begin() : arguments.end(), option);
      const CommandResult result = Vakdtm(arguments);
      EXPECT_EQ(result.status, kDone);
      EXPECT_EQ(result.out, "");
      EXPECT_EQ(result.err, "");
    }
  }
}

TEST(Command, BytesAreCountedInPowersOf1024) {
  const struct {
    const char* text;
    std::uint64_t bytes;
  } cases[] = {
      {"0", 0},
      {"268435456", 268435456},
      {"512B", 512},
      {"1k", 1024},
      {"256M", 268435456},
      {"256MB", 268435456},
      {"1GiB", 1073741824},
      {"2t", 2199023255552},
      {"18446744073709551615", 18446744073709551615u},
      {"16777215T", 18446742974197923840u},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::uint64_t bytes = 1;
    EXPECT_TRUE(ParseByteCount(c.text, bytes));
    EXPECT_EQ(bytes, c.bytes);
  }
}

TEST(Command, WhatIsNoNumberOfBytesLeavesTheValueAlone) {
  for (const char* text : {"", "M", "-1", "+1", " 1", "1 M", "1.5G", "1X", "1iB", "1MM", "1MiBB", "0x10", "16777216T",
                           "18446744073709551616"}) {
    SCOPED_TRACE(text);
    std::uint64_t bytes = 77;
    EXPECT_FALSE(ParseByteCount(text, bytes));
    EXPECT_EQ(bytes, 77u);
  }
}

TEST(ProgressBar, LineShowsPercentBarAndTime) {
  EXPECT_EQ(ProgressLine("vakdtm import", 0.0, 0, 40), "vakdtm import    0 % [           ]  0:00");
  EXPECT_EQ(ProgressLine("vakdtm import", 0.5, 75, 40), "vakdtm import   50 % [#####      ]  1:15");
  EXPECT_EQ(ProgressLine("vakdtm import", 1.0, 3725, 42), "vakdtm import  100 % [##########]  1:02:05");
}

TEST(ProgressBar, LineNeverPromisesMoreThanIsTrue) {
  EXPECT_THAT(ProgressLine("x", 0.9999, 0, 60), HasSubstr(" 99 %"));
  EXPECT_THAT(ProgressLine("x", 7.0, 0, 60), HasSubstr(" 100 %"));
  EXPECT_THAT(ProgressLine("x", -1.0, 0, 60), HasSubstr(" 0 %"));
  EXPECT_THAT(ProgressLine("x", std::numeric_limits<double>::quiet_NaN(), 0, 60), HasSubstr(" 0 %"));
}

TEST(ProgressBar, LineFitsTheTerminal) {
  for (const int width : {0, 1, 10, 27, 28, 29, 30, 31, 80, 200}) {
    SCOPED_TRACE(width);
    EXPECT_LE(ProgressLine("vakdtm import", 0.3, 10, width).size(), static_cast<std::size_t>(width));
  }
}

TEST(ProgressBar, IsDrawnOnATerminalAndErasedAtTheEnd) {
  RunCommand command({VAKDTM_COMMAND, "simulate", "-o", "-", "--count", "200000"}, "",
                     RunCommand::StandardError::kTerminal);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.err, HasSubstr("\rvakdtm simulate"));
  EXPECT_THAT(result.err, testing::EndsWith("\r\033[K"));
}

TEST(ProgressBar, IsNotDrawnWhenQuietOrNotOnATerminal) {
  EXPECT_EQ(Vakdtm({"simulate", "-o", "-", "--count", "200000"}).err, "");
  RunCommand quiet({VAKDTM_COMMAND, "simulate", "-o", "-", "--count", "200000", "--quiet"}, "",
                   RunCommand::StandardError::kTerminal);
  EXPECT_EQ(quiet.Wait().err, "");
}

/// Passes the time by which two signals are taken for one wish.
void OutwaitOneWish() {
  timespec start = {};
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &start);
  do clock_gettime(CLOCK_MONOTONIC, &now);
  while ((now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / 1000000 < 350);
}

TEST(StopSignalsDeathTest, TheFirstAsksAndALaterOneKills) {
  EXPECT_EXIT(
      {
        CatchStopSignals();
        raise(SIGINT);
        _exit(StopRequested() ? 42 : 43);
      },
      testing::ExitedWithCode(42), "");
  EXPECT_EXIT(
      {
        CatchStopSignals();
        raise(SIGINT);
        OutwaitOneWish();
        raise(SIGINT);
        _exit(44);
      },
      testing::KilledBySignal(SIGINT), "");
}

TEST(StopSignalsDeathTest, TwoAtOnceAreOneWish) {
  EXPECT_EXIT(
      {
        CatchStopSignals();
        raise(SIGTERM);
        raise(SIGTERM);
        _exit(StopRequested() ? 42 : 43);
      },
      testing::ExitedWithCode(42), "");
}

TEST(StopSignalsDeathTest, WhatTheParentIgnoresStaysIgnored) {
  EXPECT_EXIT(
      {
        signal(SIGINT, SIG_IGN);
        CatchStopSignals();
        raise(SIGINT);
        _exit(StopRequested() ? 43 : 42);
      },
      testing::ExitedWithCode(42), "");
}

}  // namespace
}  // namespace vak
