#pragma once

#include <cstdint>
#include <string>

#include "Command.h"
#include "SurveySimulator.h"

namespace vak {

/// What `simulate --live` is asked for.
struct LiveSurveyOptions {
  std::string model;
  double cellSize = 0;         ///< metres, of a model to be made; 0: not given
  double rate = 0;             ///< soundings a second; 0: as fast as it goes
  std::uint64_t syncTime = 0;  ///< milliseconds between two syncs
  bool json = false;           ///< tell after each sync how many soundings are on the disk
  SurveySimulator::Options survey;
};

/// Inserts a made-up survey into a model at a steady rate, as an acquisition does, until it is complete or the user
/// stops it. Then all of it is on the disk, or a line tells what isn't. @return the exit status.
int RunLiveSurvey(const LiveSurveyOptions& options, const CommandContext& context);

}  // namespace vak
