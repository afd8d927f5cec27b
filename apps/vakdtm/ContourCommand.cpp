#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vakdtm/contour/Contour.h"
#include "vakdtm/contour/ContourList.h"
#include "vakdtm/contour/DtmContourCreator.h"
#include "vakdtm/store/DtmAccess.h"

#include "Command.h"
#include "ContourLevels.h"
#include "LineExport.h"

namespace vak {
namespace {

using Point = GTL::Point2D<double>;

struct ContourOptions : LineOptions {
  double interval = 0;  // 0: not given
  std::optional<double> base;
  std::string levels;
};

/// The levels that are asked for. @return a status.
int FindLevels(const ContourOptions& options, const CommandContext& context, LineExport& work, DtmAccess& access,
               std::vector<double>& levels) {
  // Named ones take no range.
  if (!options.levels.empty()) return kDone;
  LineExport::Range range;
  if (const int status = work.FindRange(access, range); status != kDone || range.IsEmpty()) return status;
  std::string error;
  if (SpreadLevels(options.interval, options.base.value_or(0.0), range.lowest, range.highest, levels, error)) {
    return kDone;
  }
  return context.Fail("", error, "give a greater --interval");
}

int Contours(const ContourOptions& options, const CommandContext& context) {
  if ((options.interval == 0) == options.levels.empty()) {
    return context.Misuse("one of --interval and --levels has to be given", "say --interval 0.5, or --levels -10,-12");
  }
  if (options.base && options.interval == 0) {
    return context.Misuse("--base is for --interval", "leave it out, or say --interval");
  }
  std::vector<double> levels;
  std::string error;
  if (!options.levels.empty() && !ParseLevels(options.levels, levels, error)) {
    return context.Misuse("--levels: " + error, "give them as in --levels -10,-12.5");
  }
  LineExport work(options, context, "contours");
  if (const int status = work.LookAtInputs(); status != kDone) return status;
  DtmAccess access(&work.Model());
  work.KeepCells(access);
  if (const int status = FindLevels(options, context, work, access, levels); status != kDone) return status;

  DtmContourCreator creator(&access, work.Block());
  creator.SetAreaCounter(&work.Areas());
  if (work.HasPolygon()) creator.SetPoly(work.Polygon());
  ContourList contours;
  return work.Run<Point>(
      levels, [&](std::size_t step, const std::atomic<bool>& running, std::vector<TracedLine<Point>>& lines) {
        contours.Clear();
        creator.AddLevel(levels[step], contours, running);
        lines.reserve(static_cast<std::size_t>(contours.Size()));
        for (int i = 0; i < contours.Size(); ++i) {
          const Contour& contour = contours[i];
          lines.push_back({contour.Level(), contour.Line()});
        }
      });
}

}  // namespace

void AddContourCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<ContourOptions>();
  CLI::App* command = AddSubcommand(app, context,
                                    {"contour", "Traces lines of equal height, into a file for GIS or CAD.",
                                     "vakdtm contour harbour.dtm --interval 0.5 -o harbour.gpkg --crs EPSG:25831\n"
                                     "vakdtm contour harbour.dtm --levels -12,-14.5 -o depths.geojson"},
                                    [options, &context] { return Contours(*options, context); });
  AddLineOptions(*command, *options);
  CLI::Option* const levels =
      AddText(*command, "--levels", options->levels, "LIST", "Heights of the lines, in metres: -10,-12.5");
  Exclude(AddNumber(*command, "--interval", options->interval, "From line to line, in metres",
                    std::numeric_limits<double>::min()),
          levels);
  AddNumberIfGiven(*command, "--base", options->base, "Height that one line has, if it is in range (default 0)");
}

}  // namespace vak
