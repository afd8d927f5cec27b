#include "LineExport.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"

#include "BoundedQueue.h"
#include "GdalOutput.h"
#include "GeoJsonOutput.h"
#include "PolygonInput.h"
#include "ProgressBar.h"
#include "ResultFile.h"
#include "StopSignals.h"
#include "UnfinishedSet.h"
#include "gdal/LineModule.h"

namespace vak {
namespace {

// How much of the model's cells stay in memory between the walks of the levels.
constexpr std::uint64_t kCellMemory = std::uint64_t{256} << 20;
// How many steps wait for the writer, and how many bytes of vertices with the one that it writes: enough that a long
// one and short ones even out. A step is traced as a whole, so that a single one may have more.
constexpr std::size_t kStepsWaiting = 4;
constexpr std::size_t kBytesWaiting = std::size_t{64} << 20;
constexpr std::chrono::milliseconds kGlance(50);

// EPSG's numbers have four digits at least, and no end is known: this is as many as a number of theirs can hold.
constexpr std::size_t kFewestDigits = 4;
constexpr std::size_t kMostDigits = 9;

bool IsCrs(const std::string& text) {
  constexpr std::string_view kAuthority = "EPSG:";
  if (!text.starts_with(kAuthority)) return false;
  const std::string_view digits = std::string_view(text).substr(kAuthority.size());
  return digits.size() >= kFewestDigits && digits.size() <= kMostDigits && digits.front() != '0' &&
         digits.find_first_not_of("0123456789") == std::string_view::npos;
}

void Split(const GTL::Polyline<GTL::Point2D<double>>& line, LineShape& shape) {
  const auto count = static_cast<std::size_t>(line.NumPoints());
  shape.x.resize(count);
  shape.y.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    const GTL::Point2D<double>& point = line[static_cast<int>(i)];
    shape.x[i] = point.x;
    shape.y[i] = point.y;
  }
}

void Split(const GTL::Polyline<GTL::Point3D<double>>& line, LineShape& shape) {
  const auto count = static_cast<std::size_t>(line.NumPoints());
  shape.x.resize(count);
  shape.y.resize(count);
  shape.z.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    const GTL::Point3D<double>& point = line[static_cast<int>(i)];
    shape.x[i] = point.x;
    shape.y[i] = point.y;
    shape.z[i] = point.z;
  }
}

/// Whether writing to the target, with all that belongs to such a file, would take the other file away.
bool Replaces(const std::string& target, const std::string& other) {
  const LineFormat* const format = FindLineFormat(target);
  if (!format || target == "-") return IsSameFile(target, other);
  const std::vector<std::string> names = UnfinishedSet::Names(target, *format);
  return std::any_of(names.begin(), names.end(), [&other](const std::string& name) { return IsSameFile(name, other); });
}

bool AreFinite(const std::vector<double>& numbers) {
  return std::all_of(numbers.begin(), numbers.end(), [](double number) { return std::isfinite(number); });
}

void Widen(LineExport::Range& range, double value) {
  // A not-a-number is neither above nor below.
  if (!std::isfinite(value)) return;
  range.lowest = std::min(range.lowest, value);
  range.highest = std::max(range.highest, value);
}

template <typename T>
void WidenByCells(LineExport::Range& range, const std::byte* cells, std::size_t count) {
  const T* const values = reinterpret_cast<const T*>(cells);
  for (std::size_t i = 0; i < count; ++i) Widen(range, static_cast<double>(LoadCell(values + i)));
}

/// For the kinds that aren't stored as they read.
void WidenByReading(LineExport::Range& range, const std::byte* cells, int block, int count) {
  for (int i = 0; i < count; ++i) {
    double value = EmptyDouble();
    if (LoadAsDouble(cells, block, i, value)) Widen(range, value);
  }
}

/// @return false when the area's cells can't be read.
bool ReadArea(DtmAccess& access, const DtmArea& area, int block, LineExport::Range& range) {
  const std::byte* const cells = access.FindCell(area.BottomLeftRow(), area.BottomLeftCol(), block);
  if (!cells) return false;
  const int count = area.AreaSize() * area.AreaSize();
  switch (DtmDataBlock::GetDataType(block)) {
    case 'd':
      WidenByCells<double>(range, cells, static_cast<std::size_t>(count));
      return true;
    case 'f':
      WidenByCells<float>(range, cells, static_cast<std::size_t>(count));
      return true;
    default:
      WidenByReading(range, cells, block, count);
      return true;
  }
}

/// The corners of a square of neighbouring cells, if its middle lies in the polygon.
void ReadSquare(DtmAccess& access, DtmPolyClipper& clipper, int row, int col, int block, LineExport::Range& range) {
  double weight = 1;
  clipper.PipFractionalCell(row + 0.5, col + 0.5, weight);
  if (weight == 0) return;
  double value = EmptyDouble();
  for (int corner = 0; corner < 4; ++corner) {
    if (access.GetDoubleValue(row + corner / 2, col + corner % 2, block, value)) Widen(range, value);
  }
}

/// What the last squares of an area take from those above it and on its right. Requires: the area shown to the clipper.
void ReadNeighbours(DtmAccess& access, DtmPolyClipper& clipper, const DtmArea& area, int block,
                    LineExport::Range& range) {
  const int lastRow = area.BottomLeftRow() + area.AreaSize() - 1;
  const int lastCol = area.BottomLeftCol() + area.AreaSize() - 1;
  for (int i = 0; i < area.AreaSize(); ++i) {
    ReadSquare(access, clipper, lastRow, area.BottomLeftCol() + i, block, range);
    ReadSquare(access, clipper, area.BottomLeftRow() + i, lastCol, block, range);
  }
}

template <typename Point>
std::size_t BytesOf(const std::vector<TracedLine<Point>>& lines) {
  std::size_t bytes = 0;
  for (const TracedLine<Point>& traced : lines) {
    bytes += sizeof traced + static_cast<std::size_t>(traced.line.NumPoints()) * sizeof(Point);
  }
  return bytes;
}

std::string Text(double value) {
  std::string text;
  AppendNumber(text, value);
  return text;
}

}  // namespace

void AddLineOptions(CLI::App& command, LineOptions& options) {
  Required(AddText(command, "model", options.model, "MODEL", "Model to read"));
  AddText(command, "-o,--output", options.output, "FILE",
          "File to write, its format by the ending: " + LineFormatEndings() + "; - for GeoJSON on standard output");
  AddText(command, "--block", options.block, "NAME", "Kind of value, by mnemonic (default VAL)");
  AddText(command, "--polygon", options.polygon, "FILE",
          "Limits it to a polygon: GeoJSON, or a text with a vertex a line");
  AddText(command, "--crs", options.crs, "EPSG:N", "Coordinate system of the model, to be told in the file");
  AddFlag(command, "--json", options.json, "Prints what was found as JSON; the file may be left out then");
}

LineExport::LineExport(const LineOptions& options, const CommandContext& context, std::string things)
    : options_(options), context_(context), things_(std::move(things)) {}

LineExport::~LineExport() = default;

int LineExport::LookAtInputs() {
  if (const int status = LookAtNames(); status != kDone) return status;
  if (const int status = FindOutput(); status != kDone) return status;
  if (HasPolygon() && !LoadPolygon(context_, options_.polygon, polygon_)) return kCouldNotBeDone;
  model_ = OpenWholeForReading(context_, options_.model);
  if (!model_) return kCouldNotBeDone;
  if (Replaces(options_.output, options_.model)) {
    return context_.Misuse("the model would be replaced by its own " + things_, "name another file with -o");
  }
  if (!model_->HasBlockId(block_)) {
    return context_.Fail(options_.model, "records no " + BlockLabel(block_), "ask \"vakdtm info\" which kinds it has");
  }
  if (HasPolygon() && !MeetsModel(context_, options_.polygon, polygon_, *model_)) return kCouldNotBeDone;
  progress_ = LineProgress(model_->NumAreas(), 0);
  bar_ = std::make_unique<ProgressBar>(context_);
  return kDone;
}

int LineExport::LookAtNames() const {
  if (options_.output.empty() && !options_.json) {
    return context_.Misuse("-o is missing", "name a file that ends in " + LineFormatEndings());
  }
  if (options_.output == "-" && options_.json) {
    return context_.Misuse("--json and -o - would both write to standard output", "name a file with -o");
  }
  if (!options_.crs.empty() && !IsCrs(options_.crs)) {
    return context_.Misuse("--crs: '" + options_.crs + "' is no coordinate system", "give one as EPSG:25831");
  }
  if (Replaces(options_.output, options_.polygon)) {
    return context_.Misuse("the polygon would be replaced by the " + things_, "name another file with -o");
  }
  return kDone;
}

int LineExport::FindOutput() {
  std::vector<int> blocks;
  std::string error;
  if (!ParseBlockList(options_.block, blocks, error)) {
    return context_.Misuse("--block: " + error, "name one as in --block VAL");
  }
  if (blocks.size() != 1)
    return context_.Misuse("--block: lines are of one kind of value", "name one as in --block VAL");
  block_ = blocks.front();
  if (options_.output.empty()) return kDone;
  const LineFormat* const format = FindLineFormat(options_.output);
  if (!format) {
    return context_.Misuse("-o: the ending of '" + options_.output + "' names no format",
                           "let it end in " + LineFormatEndings());
  }
  if (!options_.crs.empty() && !format->keepsCrs) {
    context_.Warn(options_.output, "this format has no place for a coordinate system, " + options_.crs + " isn't kept",
                  "leave --crs out, or name another format");
  }
  const bool isOurs = format->driver.empty();
  const bool tellsCrs = !options_.crs.empty() && format->keepsCrs;
  std::string remedy;
  const VakDtmLineModule* const module = !isOurs || tellsCrs ? LoadLineModule(error, remedy) : nullptr;
  if (!isOurs && !module) return context_.Fail(options_.output, error, remedy);
  if (tellsCrs) {
    if (const int status = LookAtCrs(module, isOurs); status != kDone) return status;
  }
  if (isOurs) {
    output_ = std::make_unique<GeoJsonOutput>();
  } else {
    output_ = std::make_unique<GdalOutput>(*module, *format);
  }
  return kDone;
}

/// @param goesUnchecked  whether the file can be made all the same where nothing is known of any system.
int LineExport::LookAtCrs(const VakDtmLineModule* module, bool goesUnchecked) const {
  const std::string& crs = options_.crs;
  if (!module) {
    context_.Warn("", "--crs: without the module vakdtm_gdal.so nothing tells whether there is an " + crs,
                  "check the number");
    return kDone;
  }
  char name[256] = {};
  switch (module->lookUpCrs(crs.c_str(), name, sizeof name)) {
    case kVakDtmCrsFits:
      return kDone;
    case kVakDtmCrsUnknown:
      return context_.Fail("", "--crs: GDAL knows no " + crs, "check the number");
    case kVakDtmCrsOfHeights:
      return context_.Fail("", "--crs: " + crs + ", " + name + ", is for heights alone", "give the one of X and Y");
    case kVakDtmCrsGeocentric:
      return context_.Fail("", "--crs: " + crs + ", " + name + ", counts from the middle of the Earth",
                           "give the one of the model's plane");
    case kVakDtmCrsNoData:
      break;
  }
  const std::string error = "--crs: proj.db, the table of coordinate systems, isn't found, to look up " + crs;
  constexpr const char* kRemedy = "install the package proj-data, or let PROJ_LIB name its folder";
  if (!goesUnchecked) return context_.Fail("", error, kRemedy);
  context_.Warn("", error, kRemedy);
  return kDone;
}

void LineExport::KeepCells(DtmAccess& access) const {
  const auto side = static_cast<std::uint64_t>(model_->AreaSize());
  const auto cellBytes = static_cast<std::uint64_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(block_)));
  access.SetCacheSize(std::max(DtmAccess::kDefaultCacheSize, kCellMemory / std::max(side * side * cellBytes, side)));
}

int LineExport::FindRange(DtmAccess& access, Range& range) {
  DtmPolyClipper clipper(polygon_, true, false);
  clipper.Init(access);
  for (int i = 0; DtmArea* const area = model_->GetArea(i); ++i) {
    if (StopRequested()) return context_.Stopped("nothing was kept");
    progress_.Read(i);
    bar_->Show(progress_.Fraction());
    double surface = 1;
    if (HasPolygon()) clipper.ProcessArea(area->BottomLeftRow(), area->BottomLeftCol(), surface);
    if (area->IsEmpty() || surface == 0) continue;
    if (!ReadArea(access, *area, block_, range)) {
      return context_.Fail(options_.model, "an area cannot be read", "run \"vakdtm verify " + options_.model + "\"");
    }
    if (HasPolygon()) ReadNeighbours(access, clipper, *area, block_, range);
  }
  return kDone;
}

template <typename Point>
int LineExport::Run(const std::vector<double>& levels, const Tracer<Point>& trace) {
  using Lines = std::vector<TracedLine<Point>>;
  LineShape shape;
  if (const int status = OpenOutput(levels, sizeof(Point) > sizeof(GTL::Point2D<double>)); status != kDone) {
    return status;
  }
  progress_.SetSteps(levels.size());
  std::atomic<bool> running{true};
  std::atomic<std::size_t> traced{0};
  BoundedQueue<Lines> queue(kStepsWaiting, kBytesWaiting);
  bool lacksMemory = false;  // the tracer's until it has ended
  std::thread tracer([&] {
    try {
      for (std::size_t step = 0; step < levels.size() && running; ++step) {
        Lines lines;
        trace(step, running, lines);
        areas_ = 0;
        ++traced;
        const std::size_t bytes = BytesOf(lines);
        if (!queue.Push(std::move(lines), bytes)) break;
      }
    } catch (const std::bad_alloc&) {
      // Out of here it would end the process, and what is unfinished would stay.
      lacksMemory = true;
    }
    queue.Close();
  });
  bool written = true;
  {
    const auto end = [&](std::thread* thread) {
      running = false;
      queue.Close();
      thread->join();
    };
    // Also where memory ends in here.
    const std::unique_ptr<std::thread, decltype(end)> ending(&tracer, end);
    for (std::size_t step = 0; written && !StopRequested() && !queue.IsAtEnd();) {
      progress_.Traced(traced, areas_);
      bar_->Show(progress_.Fraction());
      std::optional<Lines> lines = queue.Pop(kGlance);
      if (lines) written = Take(step++, *lines, shape);
    }
  }
  if (!written) return FailWriting();
  return lacksMemory ? context_.Fail("", kMemoryText, kMemoryRemedy) : Finish();
}

template int LineExport::Run(const std::vector<double>& levels, const Tracer<GTL::Point2D<double>>& trace);
template int LineExport::Run(const std::vector<double>& levels, const Tracer<GTL::Point3D<double>>& trace);

int LineExport::OpenOutput(const std::vector<double>& levels, bool hasZ) {
  if (!output_) return kDone;
  return output_->Open({options_.output, things_, options_.crs, hasZ, levels}) ? kDone : FailWriting();
}

/// @return false when the output failed, or the user stopped it.
template <typename Point>
bool LineExport::Take(std::size_t step, std::vector<TracedLine<Point>>& lines, LineShape& shape) {
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (StopRequested()) return false;
    progress_.Written(step, i, lines.size());
    bar_->Show(progress_.Fraction());
    const TracedLine<Point> traced = std::exchange(lines[i], {});
    shape.level = traced.level;
    shape.length = traced.line.Length(false);
    shape.closed = traced.line.IsClosed();
    Split(traced.line, shape);
    if (!Take(shape)) return false;
  }
  progress_.Written(step + 1, 0, 0);
  return true;
}

bool LineExport::Take(const LineShape& shape) {
  if (!AreFinite(shape.x) || !AreFinite(shape.y) || !AreFinite(shape.z)) {
    fault_ = "a line of level " + Text(shape.level) + " has a vertex that is no finite number";
    return false;
  }
  if (!std::isfinite(tally_.length + shape.length)) {
    fault_ = "its " + things_ + " are longer than a number can tell";
    return false;
  }
  if (tally_.levels.empty() || tally_.levels.back().level != shape.level) tally_.levels.push_back({shape.level, 0, 0});
  ++tally_.levels.back().lines;
  tally_.levels.back().length += shape.length;
  ++tally_.lines;
  tally_.closed += shape.closed ? 1 : 0;
  tally_.vertices += static_cast<std::int64_t>(shape.x.size());
  tally_.length += shape.length;
  return !output_ || output_->Write(shape);
}

int LineExport::Finish() {
  if (StopRequested()) return context_.Stopped("nothing was kept");
  if (!IsWholeRead(*model_)) return FailReading(context_, options_.model, *model_);
  if (output_ && !output_->Complete()) return FailWriting();
  if (StopRequested()) return context_.Stopped("nothing was kept");
  if (output_ && !output_->Commit()) return FailWriting();
  if (output_ && !output_->Warning().empty()) context_.Warn(options_.output, output_->Warning(), "");
  if (tally_.lines == 0) {
    context_.Warn(HasPolygon() ? options_.polygon : options_.model, "there are no " + things_, "");
  }
  return Report();
}

int LineExport::FailWriting() const {
  if (StopRequested()) return context_.Stopped("nothing was kept");
  if (!fault_.empty()) return context_.Fail(options_.model, fault_, "look for such values with \"vakdtm cells\"");
  if (!output_ || output_->ReaderGone()) return kCouldNotBeDone;
  return context_.Fail(output_->Name(), "cannot write: " + output_->Error(), output_->Remedy());
}

int LineExport::Report() const { return options_.json ? context_.PrintResult(JsonText()) : static_cast<int>(kDone); }

std::string LineExport::JsonText() const {
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start_;
  std::string text = "{\"lines\":" + std::to_string(tally_.lines) + ",\"closed\":" + std::to_string(tally_.closed) +
                     ",\"vertices\":" + std::to_string(tally_.vertices) + ",\"length\":" + Text(tally_.length) +
                     ",\"levels\":[";
  for (std::size_t i = 0; i < tally_.levels.size(); ++i) {
    const LineTally::Level& level = tally_.levels[i];
    text += (i == 0 ? "{\"level\":" : ",{\"level\":") + Text(level.level) +
            ",\"lines\":" + std::to_string(level.lines) + ",\"length\":" + Text(level.length) + "}";
  }
  return text + "],\"seconds\":" + Text(seconds.count()) + "}\n";
}

}  // namespace vak
