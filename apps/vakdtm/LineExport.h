#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/services/geometry/GtlPolyline.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "Command.h"
#include "LineOutput.h"
#include "LineProgress.h"
#include "ModelFile.h"

struct VakDtmLineModule;

namespace vak {

class DtmAccess;
class ProgressBar;

/// What the subcommands are told that trace lines.
struct LineOptions {
  std::string model;
  std::string block = "VAL";
  std::string polygon;
  std::string output;
  std::string crs;
  bool json = false;
};

/// Adds them to a subcommand.
void AddLineOptions(CLI::App& command, LineOptions& options);

/// A polyline that was traced.
template <typename Point>
struct TracedLine {
  double level = 0;
  GTL::Polyline<Point> line;
};

/// What came out.
struct LineTally {
  struct Level {
    double level = 0;
    std::int64_t lines = 0;
    double length = 0;
  };
  std::int64_t lines = 0;
  std::int64_t closed = 0;
  std::int64_t vertices = 0;
  double length = 0;          ///< m
  std::vector<Level> levels;  ///< those with lines, in the order in which they came
};

/// Lines of a model on their way to a file: one thread traces them, step by step, another one writes what the step
/// before gave. For the thread that calls.
class LineExport {
 public:
  /// Traces the step with this number, from 0, while the flag reads true, and appends what it found. Counts the areas
  /// that it walks in `Areas`, if it can.
  template <typename Point>
  using Tracer =
      std::function<void(std::size_t step, const std::atomic<bool>& running, std::vector<TracedLine<Point>>& lines)>;

  /// @param things  what is traced, for names and messages: "contours".
  LineExport(const LineOptions& options, const CommandContext& context, std::string things);
  ~LineExport();

  LineExport(const LineExport&) = delete;
  LineExport& operator=(const LineExport&) = delete;

  /// Finds format and module, reads the polygon, opens the model, looks for the block. @return a status.
  int LookAtInputs();

  DtmUpdateFile& Model() const { return *model_; }
  const PolyClipLine& Polygon() const { return polygon_; }
  bool HasPolygon() const { return !options_.polygon.empty(); }
  std::atomic<int>& Areas() { return areas_; }
  int Block() const { return block_; }

  /// Lowest and highest finite value of the block over all cells.
  struct Range {
    double lowest = std::numeric_limits<double>::infinity();
    double highest = -std::numeric_limits<double>::infinity();

    bool IsEmpty() const { return lowest > highest; }
  };

  /// Has the cursor keep the block's cells from walk to walk, as far as there is memory meant for it.
  void KeepCells(DtmAccess& access) const;

  /// Finds the range of what lines can come from: of all areas, or of those that the polygon leaves something of, with
  /// the cells next to them above and on the right. The walks to come find these cells in memory. @return a status.
  int FindRange(DtmAccess& access, Range& range);

  /// Does the whole of it, when all else is known to be good. @return a status.
  /// @param levels  all there may be, one a step.
  template <typename Point>
  int Run(const std::vector<double>& levels, const Tracer<Point>& trace);

 private:
  int LookAtNames() const;
  int FindOutput();
  int LookAtCrs(const VakDtmLineModule* module, bool goesUnchecked) const;
  int OpenOutput(const std::vector<double>& levels, bool hasZ);
  int Finish();
  int FailWriting() const;
  int Report() const;
  std::string JsonText() const;
  template <typename Point>
  bool Take(std::size_t step, std::vector<TracedLine<Point>>& lines, LineShape& shape);
  bool Take(const LineShape& shape);

  const LineOptions& options_;
  const CommandContext& context_;
  const std::string things_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  int block_ = 0;
  PolyClipLine polygon_;
  ModelFile model_;
  std::unique_ptr<LineOutput> output_;  // null where nothing is to be written
  std::unique_ptr<ProgressBar> bar_;
  LineProgress progress_{0, 0};
  std::atomic<int> areas_{0};  // that the step has walked
  LineTally tally_;
  std::string fault_;  // of a line that no file can hold
};

}  // namespace vak
