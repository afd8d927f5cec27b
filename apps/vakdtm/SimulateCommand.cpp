#include <charconv>
#include <limits>
#include <memory>
#include <string_view>

#include "Command.h"
#include "LiveSurvey.h"
#include "ProgressBar.h"
#include "ResultFile.h"
#include "StopSignals.h"
#include "SurveySimulator.h"

namespace vak {
namespace {

struct SimulateOptions {
  std::string output;
  LiveSurveyOptions live;
};

constexpr double kUsualRate = 1000;
constexpr std::uint64_t kUsualSyncTime = 2000;
constexpr std::uint64_t kShortestSyncTime = 500;
constexpr std::uint64_t kLongestSyncTime = 65535;

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
bool WriteLine(ResultFile& output, const SoundingMillimetres& sounding) {
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

int FailWriting(const CommandContext& context, const ResultFile& output) {
  if (StopRequested()) return context.Stopped("nothing was kept");
  if (output.ReaderGone()) return kCouldNotBeDone;
  return context.Fail(output.Name(), "cannot write: " + output.Error(), "name another file with -o");
}

int WriteText(const SimulateOptions& options, const CommandContext& context) {
  const SurveySimulator::Options& survey = options.live.survey;
  ResultFile output;
  if (!output.Open(options.output)) return FailWriting(context, output);
  ProgressBar bar(context);
  SurveySimulator simulator(survey);
  SoundingMillimetres sounding;
  while (simulator.Next(sounding)) {
    if (!WriteLine(output, sounding)) return FailWriting(context, output);
    if (simulator.Made() % kSoundingsAStep != 0) continue;
    if (StopRequested()) return context.Stopped("nothing was kept");
    bar.Show(static_cast<double>(simulator.Made()) / static_cast<double>(survey.count));
  }
  return output.Commit() ? kDone : FailWriting(context, output);
}

}  // namespace

void AddSimulateCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<SimulateOptions>();
  LiveSurveyOptions& live = options->live;
  live.rate = kUsualRate;
  live.syncTime = kUsualSyncTime;
  CLI::App* command = AddSubcommand(app, context,
                                    {"simulate",
                                     "Makes up a lifelike multibeam survey: a text of x,y,z in metres, z upwards "
                                     "positive, or soundings that go into a "
                                     "model while it is watched.",
                                     "vakdtm simulate -o survey.xyz --count 1000000 --seed 7\n"
                                     "vakdtm simulate --live harbour.dtm --cell-size 1 --rate 5000"},
                                    [options, &context] {
                                      const std::string help = "see '" + context.Label() + " --help'";
                                      const bool isLive = !options->live.model.empty();
                                      if (isLive == !options->output.empty()) {
                                        return context.Misuse("either --output or --live is required", help);
                                      }
                                      if (isLive) return RunLiveSurvey(options->live, context);
                                      if (options->live.survey.count == 0)
                                        return context.Misuse("--count is required with --output", help);
                                      return WriteText(*options, context);
                                    });
  CLI::Option* output =
      AddText(*command, "-o,--output", options->output, "FILE", "File to write; - for standard output");
  AddText(*command, "--live", live.model, "MODEL", "Model to insert into, as an acquisition does");
  AddWholeNumber(*command, "--count", live.survey.count, "Number of soundings; with --live without end by default", 1);
  AddWholeNumber(*command, "--seed", live.survey.seed,
                 "The same seed makes the same survey, and a longer one begins with it (default 1)");
  AddNumber(*command, "--cell-size-hint", live.survey.cellSizeHint,
            "Cell size in metres to make it for: 2 to 3 soundings a cell (default 1)", SurveySimulator::kLowestHint,
            SurveySimulator::kHighestHint);
  Exclude(output, AddNumber(*command, "--cell-size", live.cellSize,
                            "Makes the model, with cells of this many metres, if it isn't there",
                            std::numeric_limits<double>::min()));
  Exclude(output,
          AddNumber(*command, "--rate", live.rate, "Soundings a second (default 1000); 0: as fast as it goes", 0));
  Exclude(output,
          AddWholeNumber(*command, "--sync", live.syncTime, "Milliseconds between two syncs to the disk (default 2000)",
                         kShortestSyncTime, kLongestSyncTime));
  Exclude(output, AddFlag(*command, "--json", live.json, "Prints after each sync how many soundings are on the disk"));
}

}  // namespace vak
