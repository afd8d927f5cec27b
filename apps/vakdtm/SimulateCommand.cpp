#include <charconv>
#include <memory>
#include <string_view>

#include "Command.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "StopSignals.h"
#include "SurveySimulator.h"

namespace vak {
namespace {

struct SimulateOptions {
  std::string output;
  SurveySimulator::Options survey;
};

constexpr std::uint64_t kSoundingsAStep = 4096;

/// Appends whole millimetres as metres with three decimals.
char* AppendMetres(char* at, char* end, std::int64_t millimetres) {
  if (millimetres < 0) *at++ = '-';
  const std::uint64_t size = static_cast<std::uint64_t>(millimetres < 0 ? -millimetres : millimetres);
  at = std::to_chars(at, end, size / 1000).ptr;
  const unsigned rest = static_cast<unsigned>(size % 1000);
  *at++ = '.';
  *at++ = static_cast<char>('0' + rest / 100);
  *at++ = static_cast<char>('0' + rest / 10 % 10);
  *at++ = static_cast<char>('0' + rest % 10);
  return at;
}

/// Writes the line of a sounding. @return false when it could not be written.
bool WriteLine(OutputFile& output, const SoundingMillimetres& sounding) {
  char line[80];
  char* const end = line + sizeof line;
  char* at = AppendMetres(line, end, sounding.x);
  *at++ = ',';
  at = AppendMetres(at, end, sounding.y);
  *at++ = ',';
  at = AppendMetres(at, end, sounding.z);
  *at++ = '\n';
  return output.Write(std::string_view(line, static_cast<std::size_t>(at - line)));
}

int FailWriting(const CommandContext& context, const OutputFile& output) {
  if (StopRequested()) return context.Stopped("nothing was kept");
  if (output.ReaderGone()) return kCouldNotBeDone;
  return context.Fail(output.Name(), "cannot write: " + output.Error(), "name another file with -o");
}

int Simulate(const SimulateOptions& options, const CommandContext& context) {
  OutputFile output;
  if (!output.Open(options.output)) return FailWriting(context, output);
  ProgressBar bar(context);
  SurveySimulator simulator(options.survey);
  SoundingMillimetres sounding;
  while (simulator.Next(sounding)) {
    if (!WriteLine(output, sounding)) return FailWriting(context, output);
    if (simulator.Made() % kSoundingsAStep != 0) continue;
    if (StopRequested()) return context.Stopped("nothing was kept");
    bar.Show(static_cast<double>(simulator.Made()) / static_cast<double>(options.survey.count));
  }
  return output.Commit() ? kDone : FailWriting(context, output);
}

}  // namespace

void AddSimulateCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<SimulateOptions>();
  CLI::App* command =
      AddSubcommand(app, context,
                    {"simulate", "Makes up a lifelike multibeam survey: lines of x,y,z in metres, z upwards positive.",
                     "vakdtm simulate -o survey.xyz --count 1000000 --seed 7"},
                    [options, &context] { return Simulate(*options, context); });
  Required(AddText(*command, "-o,--output", options->output, "FILE", "File to write; - for standard output"));
  Required(AddWholeNumber(*command, "--count", options->survey.count, "Number of soundings", 1));
  AddWholeNumber(*command, "--seed", options->survey.seed,
                 "The same seed makes the same survey, and a longer one begins with it (default 1)");
  AddNumber(*command, "--cell-size-hint", options->survey.cellSizeHint,
            "Cell size in metres to make it for: 2 to 3 soundings a cell (default 1)", SurveySimulator::kLowestHint,
            SurveySimulator::kHighestHint);
}

}  // namespace vak
