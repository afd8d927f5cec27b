#include <memory>
#include <string>
#include <vector>

#include "vakdtm/contour/DtmOutlineCreator.h"
#include "vakdtm/contour/Outline.h"
#include "vakdtm/contour/OutlineList.h"
#include "vakdtm/store/DtmAccess.h"

#include "Command.h"
#include "LineExport.h"

namespace vak {
namespace {

using Point = GTL::Point3D<double>;

int Outlines(const LineOptions& options, const CommandContext& context) {
  LineExport work(options, context, "outlines");
  if (const int status = work.LookAtInputs(); status != kDone) return status;
  DtmAccess access(&work.Model());

  DtmOutlineCreator creator(&access, work.Block());
  creator.SetAreaCounter(&work.Areas());
  if (work.HasPolygon()) creator.SetPoly(work.Polygon());
  // The lines are all of one run, and of one level, 0.
  const std::vector<double> levels = {0.0};
  return work.Run<Point>(
      levels, [&](std::size_t /*step*/, const std::atomic<bool>& running, std::vector<TracedLine<Point>>& lines) {
        OutlineList outlines;
        creator.AddLevel(levels.front(), outlines, running);
        lines.reserve(static_cast<std::size_t>(outlines.Size()));
        for (int i = 0; i < outlines.Size(); ++i) lines.push_back({outlines[i].Level(), outlines[i].Line()});
      });
}

}  // namespace

void AddOutlineCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<LineOptions>();
  CLI::App* command = AddSubcommand(app, context,
                                    {"outline", "Traces the border between cells with a value and cells without.",
                                     "vakdtm outline harbour.dtm -o surveyed.gpkg --crs EPSG:25831"},
                                    [options, &context] { return Outlines(*options, context); });
  AddLineOptions(*command, *options);
}

}  // namespace vak
