#pragma once

#include <cstdint>
#include <string>

#include "Command.h"

namespace vak {

/// How numbers for people are shown: by a project file, and by options that say it for this once.
struct ProjectOptions {
  static constexpr std::uint64_t kNotGiven = ~std::uint64_t{0};

  /// What `units` is the unit of.
  enum class UnitsOf { kEverything, kHeights };

  std::string project;  ///< a file; empty: metres and three decimals
  std::string units;    ///< empty: as the project has them
  std::uint64_t decimals = kNotGiven;
};

/// Adds `--project` and `--units`, for what finds its decimals by itself. `options` must live until the command line
/// has been parsed.
void AddUnitOptions(CLI::App& command, ProjectOptions& options);

/// Adds these and `--decimals`, likewise.
void AddProjectOptions(CLI::App& command, ProjectOptions& options);

/// Makes them the current project of the process. Prints why when it can't.
[[nodiscard]] bool UseProject(const CommandContext& context, const ProjectOptions& options,
                              ProjectOptions::UnitsOf unitsOf);

}  // namespace vak
