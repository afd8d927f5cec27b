#include <algorithm>
#include <cmath>
#include <locale.h>
#include <memory>
#include <optional>
#include <sys/statvfs.h>
#include <type_traits>
#include <utility>
#include <vector>
#include <wctype.h>

#include "vakdtm/export/DtmAsciiEsriExporter.h"
#include "vakdtm/export/DtmAsciiExporter.h"
#include "vakdtm/export/DtmExport.h"
#include "vakdtm/export/ValueFormat.h"
#include "vakdtm/frame/DtmEsriPolyClipper.h"
#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/frame/DtmProcess.h"
#include "vakdtm/services/files/memfile.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/LocaleSeparators.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"

#include "Command.h"
#include "ExportTarget.h"
#include "ModelFile.h"
#include "PolygonInput.h"
#include "ProjectOptions.h"
#include "ResultFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

constexpr std::uint64_t kNotGiven = ~std::uint64_t{0};

/// What all exports are told.
struct ExportOptions {
  std::string model;
  std::string output;
  std::string polygon;
};

struct CsvOptions : ExportOptions {
  std::string blocks = "VAL";
  bool invert = false;
  bool extremePositions = false;
  bool corners = false;
  std::string decimalMark;
  std::string listSeparator;
  ProjectOptions project;
};

struct EsriOptions : ExportOptions {
  std::string block = "VAL";
  std::string noData = "-9999";
  std::string format;
  std::uint64_t digits = kNotGiven;
  bool corner = false;
};

/// One export: a model, perhaps a polygon, and a file.
class Export {
 public:
  Export(const ExportOptions& options, const CommandContext& context) : options_(options), context_(context) {}

  /// Reads the polygon and opens the model. @return a status.
  int LookAtInputs() {
    if (IsSameFile(options_.output, options_.polygon)) {
      return context_.Misuse("the polygon would be replaced by the export", "name another file with -o");
    }
    if (HasPolygon() && !LoadPolygon(context_, options_.polygon, polygon_)) return kCouldNotBeDone;
    model_ = OpenWholeForReading(context_, options_.model);
    if (!model_) return kCouldNotBeDone;
    if (IsSameFile(options_.output, options_.model)) {
      return context_.Misuse("the model would be replaced by its own export", "name another file with -o");
    }
    if (HasPolygon() && !MeetsModel(context_, options_.polygon, polygon_, *model_)) return kCouldNotBeDone;
    return kDone;
  }

  int LookAtBlocks(const std::vector<int>& blocks) const {
    for (const int id : blocks) {
      if (model_->HasBlockId(id)) continue;
      return context_.Fail(options_.model, "records no " + BlockLabel(id), "ask \"vakdtm info\" which kinds it has");
    }
    return kDone;
  }

  /// Opens the output, when all else is known to be good.
  int OpenOutput() { return target_.Open(options_.output) ? kDone : FailWriting(); }

  bool HasPolygon() const { return !options_.polygon.empty(); }
  const PolyClipLine& Polygon() const { return polygon_; }
  DtmUpdateFile& Model() const { return *model_; }
  ExportTarget& Target() { return target_; }

  /// Tells how a job ended that didn't come to its end.
  int FailJob(int result) const {
    if (result == ProcessThread::kStopped || StopRequested()) return context_.Stopped("nothing was kept");
    if (!IsWholeRead(*model_)) return FailReading(context_, options_.model, *model_);
    return FailWriting();
  }

  /// Puts the file in its place. @param written  whether all of it has arrived.
  int Finish(bool written) {
    if (!IsWholeRead(*model_)) return FailReading(context_, options_.model, *model_);
    return written && target_.Commit() ? kDone : FailWriting();
  }

  int FailWriting() const {
    if (StopRequested()) return context_.Stopped("nothing was kept");
    if (target_.ReaderGone()) return kCouldNotBeDone;
    const std::string error = target_.Error().empty() ? "no room for all of it" : target_.Error();
    return context_.Fail(target_.Name(), "cannot write: " + error, target_.Remedy());
  }

  /// @param what  what becomes of the file: "the list is empty".
  void WarnOfNothing(const std::vector<int>& blocks, const std::string& what) const {
    std::string names;
    for (const int id : blocks) names += (names.empty() ? "" : " or ") + BlockLabel(id);
    if (HasPolygon()) {
      context_.Warn(options_.polygon, "the centre of no cell with a " + names + " lies in it, " + what,
                    "check its coordinates");
    } else {
      context_.Warn(options_.model, "no cell has a " + names + ", " + what, "");
    }
  }

  const ExportOptions& Options() const { return options_; }
  const CommandContext& Context() const { return context_; }

 private:
  const ExportOptions& options_;
  const CommandContext& context_;
  PolyClipLine polygon_;
  ModelFile model_;
  ExportTarget target_;
};

/// Sees whether anything is exported: a cell with a value that a polygon in front of it leaves.
class ValueWatcher final : public DtmProcessor {
 public:
  /// @param found  becomes true; outlives this.
  ValueWatcher(std::vector<int> blocks, bool& found) : blocks_(std::move(blocks)), found_(found) {}

  bool Init(DtmAccess& access) override {
    access_ = &access;
    return true;
  }
  bool ProcessCell(int row, int col, double& area) override {
    if (!found_ && !IsEmptyValue(area)) found_ = HasValue(row, col);
    return true;
  }

 private:
  bool HasValue(int row, int col) const {
    return std::any_of(blocks_.begin(), blocks_.end(), [&](int id) {
      double value = EmptyDouble();
      return access_->GetDoubleValue(row, col, id, value) && !IsEmptyValue(value);
    });
  }

  std::vector<int> blocks_;
  bool& found_;
  DtmAccess* access_ = nullptr;
};

/// The steps of a job with their thread: the processors live as long as this.
class Job {
 public:
  DtmProcess& Steps() { return steps_; }

  /// @return a `ProcessThread::Result`.
  int Run() {
    steps_.Init(&thread_);
    return thread_.DoModal();
  }

 private:
  DtmProcess steps_;
  ProcessThread thread_{L"vakdtm export", nullptr, true, nullptr, false};
};

// ---- csv

/// A mark is one character that can't be a part of a number, a quotation or a word.
bool IsMark(const std::string& text) {
  const std::wstring mark = FromUtf8(text);
  // The last three are blanks that the C library takes for marks since no line may be broken there.
  if (mark.size() != 1 || mark.find_first_of(L"+-\"'\u00A0\u2007\u202F") != std::wstring::npos) return false;
  // Of all the world's characters, whatever the locale. The C library has this one built in.
  const std::unique_ptr<std::remove_pointer_t<locale_t>, void (*)(locale_t)> world(
      newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{}), [](locale_t locale) { freelocale(locale); });
  return world && iswpunct_l(static_cast<wint_t>(mark.front()), world.get()) != 0;
}

/// The locale's, but for what the options say. A decimal mark alone brings the list separator that goes with it.
int SetSeparators(const CsvOptions& options, const CommandContext& context) {
  LocaleSeparators separators = GetLocaleSeparators();
  if (!options.decimalMark.empty()) {
    if (!IsMark(options.decimalMark)) {
      return context.Misuse("--decimal-mark: '" + options.decimalMark + "' is no mark", "give one, as ',' or '.'");
    }
    separators.decimal = FromUtf8(options.decimalMark);
    separators.list = options.decimalMark == "." ? L"," : L";";
  }
  if (!options.listSeparator.empty()) {
    if (!IsMark(options.listSeparator) && options.listSeparator != "\t") {
      return context.Misuse("--list-separator: '" + options.listSeparator + "' is no mark",
                            "give one, as ',' or ';', or a tab");
    }
    separators.list = FromUtf8(options.listSeparator);
  }
  if (separators.decimal == separators.list) {
    return context.Misuse("'" + ToUtf8(separators.list) + "' would be decimal mark and list separator",
                          "give two, as in --decimal-mark , --list-separator ';'");
  }
  SetLocaleSeparators(separators);
  return kDone;
}

/// The list takes every number for a height.
void WarnOfUnits(const CsvOptions& options, const CommandContext& context, const std::vector<int>& blocks) {
  if (GetCurrentProjectDefinition()->GetUnitCnv().Unit(kUnitHeight) == LengthUnit::kMetre) return;
  std::string names;
  int count = 0;
  for (const int id : blocks) {
    if (id == dVAL || id == dSDV || id == dMIN || id == dMAX || id == dTVU || id == dTHU) continue;
    names += (names.empty() ? "" : ", ") + BlockLabel(id);
    ++count;
  }
  if (count == 1) {
    context.Warn(options.model, names + " is converted like a height, which it is not", "export it in metres");
  } else if (count > 1) {
    context.Warn(options.model, names + " are converted like heights, which they are not", "export them in metres");
  }
}

int ExportCsv(const CsvOptions& options, const CommandContext& context) {
  std::vector<int> blocks;
  std::string error;
  if (!ParseBlockList(options.blocks, blocks, error)) {
    return context.Misuse("--blocks: " + error, "name them as in --blocks VAL,NUM");
  }
  if (const int status = SetSeparators(options, context); status != kDone) return status;
  if (IsSameFile(options.output, options.project.project)) {
    return context.Misuse("the project file would be replaced by the export", "name another file with -o");
  }
  if (!UseProject(context, options.project, ProjectOptions::UnitsOf::kEverything)) return kCouldNotBeDone;
  Export work(options, context);
  if (const int status = work.LookAtInputs(); status != kDone) return status;
  if (const int status = work.LookAtBlocks(blocks); status != kDone) return status;
  WarnOfUnits(options, context, blocks);
  if (const int status = work.OpenOutput(); status != kDone) return status;

  auto exporter = std::make_unique<DtmAsciiExporter>(blocks.front(), work.Target().Path().c_str());
  std::for_each(blocks.begin() + 1, blocks.end(), [&](int id) { exporter->AddExtraBlockId(id); });
  exporter->SetInvert(options.invert);
  exporter->SetAddMinMaxPos(options.extremePositions);
  exporter->SetResampleToCenterCellZero(options.corners);

  Job job;
  const int step = job.Steps().AddProcessStep(&work.Model(), 0, nullptr, false, nullptr);
  if (work.HasPolygon()) {
    job.Steps().AddProcessor(step, std::make_unique<DtmPolyClipper>(work.Polygon(), true, false).release());
  }
  bool found = false;
  job.Steps().AddProcessor(step, std::make_unique<ValueWatcher>(blocks, found).release());
  DtmAsciiExporter& list = *exporter;
  job.Steps().AddProcessor(step, exporter.release());
  const int result = job.Run();
  if (result != ProcessThread::kDone) return work.FailJob(result);
  const int status = work.Finish(list.Close());
  if (status == kDone && !found) work.WarnOfNothing(blocks, "the list is empty");
  return status;
}

// ---- esri

std::string FormatOf(const EsriOptions& options) {
  if (options.format.empty()) return "%." + std::to_string(options.digits == kNotGiven ? 3 : options.digits) + "f ";
  const bool separates = options.format.back() == ' ' || options.format.back() == '\t';
  return separates ? options.format : options.format + " ";
}

/// Refuses a grid that is surely larger than the room for it, before anything is written: a model may be sparse, and
/// its grid has every cell.
class RoomGuard final : public DtmProcessor {
 public:
  /// @param extents       has run by the time of `Init`; outlives this. @param smallestCell  bytes of a cell's text.
  RoomGuard(const DtmExtentsProcessor& extents, std::size_t smallestCell, const std::wstring& path,
            std::string& refusal)
      : extents_(extents), smallestCell_(static_cast<double>(smallestCell)), path_(ToUtf8(path)), refusal_(refusal) {}

  bool Init(DtmAccess& /*access*/) override {
    if (extents_.Count() == 0) return true;
    const double rows = static_cast<double>(extents_.MaxRow()) - extents_.MinRow() + 1;
    const double columns = static_cast<double>(extents_.MaxCol()) - extents_.MinCol() + 1;
    const double size = rows * columns * smallestCell_;
    struct statvfs status = {};
    if (statvfs(path_.c_str(), &status) != 0) return true;
    const double room = static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
    if (size <= room) return true;
    refusal_ = "the grid has " + Whole(columns) + " x " + Whole(rows) + " cells and takes " + Whole(size / 1e9) +
               " GB at least, with room for " + Whole(room / 1e9);
    return false;
  }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return true; }

 private:
  static std::string Whole(double value) {
    std::string text;
    AppendFixed(text, std::ceil(value), 0);
    return text;
  }

  const DtmExtentsProcessor& extents_;
  double smallestCell_;
  std::string path_;
  std::string& refusal_;
};

int ExportEsri(const EsriOptions& options, const CommandContext& context) {
  std::vector<int> blocks;
  std::string error;
  if (!ParseBlockList(options.block, blocks, error)) {
    return context.Misuse("--block: " + error, "name one as in --block VAL");
  }
  if (blocks.size() != 1) return context.Misuse("--block: a grid has one kind of value", "name one as in --block VAL");
  const std::wstring format = FromUtf8(FormatOf(options));
  if (!ValueFormat(format.c_str()).IsValid()) {
    return context.Misuse("--format: '" + options.format + "' is no format for one number", "give one such as '%.2f'");
  }
  if (options.noData.empty() || options.noData.find_first_of(" \t\r\n") != std::string::npos) {
    return context.Misuse("--no-data: '" + options.noData + "' is no word", "give one such as -9999");
  }
  Export work(options, context);
  if (const int status = work.LookAtInputs(); status != kDone) return status;
  if (const int status = work.LookAtBlocks(blocks); status != kDone) return status;
  if (const int status = work.OpenOutput(); status != kDone) return status;

  auto finder = std::make_unique<DtmExtentsProcessor>(blocks.front());
  DtmExtentsProcessor& extents = *finder;
  auto exporter = std::make_unique<DtmAsciiEsriExporter>(blocks.front(), &extents, FromUtf8(options.noData).c_str(),
                                                         format.c_str(), options.corner, work.Target().Path().c_str());
  Job job;
  job.Steps().AddProcessor(job.Steps().AddProcessStep(&work.Model(), 0, nullptr, false, nullptr), finder.release());
  const int step = job.Steps().AddProcessStep(&work.Model(), 0, nullptr, true, &extents);
  // A cell takes a character and a blank at least.
  std::string refusal;
  job.Steps().AddProcessor(step, std::make_unique<RoomGuard>(extents, 2, work.Target().Path(), refusal).release());
  if (work.HasPolygon()) {
    job.Steps().AddProcessor(step, std::make_unique<DtmEsriPolyClipper>(work.Polygon()).release());
  }
  bool found = false;
  job.Steps().AddProcessor(step, std::make_unique<ValueWatcher>(blocks, found).release());
  DtmAsciiEsriExporter& grid = *exporter;
  job.Steps().AddProcessor(step, exporter.release());
  const int result = job.Run();
  if (!refusal.empty()) {
    return context.Fail(work.Target().Name(), refusal,
                        "make room, or write the cells alone with \"vakdtm export csv\"");
  }
  if (result != ProcessThread::kDone) return work.FailJob(result);
  if (extents.Count() == 0) {
    return context.Fail(options.model,
                        "no cell has a " + BlockLabel(blocks.front()) + ", and a grid of no cells has no extents",
                        "ask \"vakdtm info\" what it has");
  }
  const int status = work.Finish(grid.Close());
  if (status == kDone && !found) work.WarnOfNothing(blocks, "the grid has no value");
  return status;
}

// ---- stream

int ExportStream(const ExportOptions& options, const CommandContext& context) {
  Export work(options, context);
  if (const int status = work.LookAtInputs(); status != kDone) return status;
  if (const int status = work.LookAtBlocks({dVAL}); status != kDone) return status;
  if (const int status = work.OpenOutput(); status != kDone) return status;

  memfile stream;
  Job job;
  const int step = job.Steps().AddProcessStep(&work.Model(), 0, nullptr, false, nullptr);
  if (work.HasPolygon()) {
    job.Steps().AddProcessor(step, std::make_unique<DtmPolyClipper>(work.Polygon(), true, false).release());
  }
  bool found = false;
  job.Steps().AddProcessor(step, std::make_unique<ValueWatcher>(std::vector<int>{dVAL}, found).release());
  job.Steps().AddProcessor(step, std::make_unique<DtmExport>(&stream).release());
  const int result = job.Run();
  if (result != ProcessThread::kDone) return work.FailJob(result);
  if (stream.Failed()) return context.Fail(options.model, "there is no memory for its stream", "export a part of it");
  const auto* const bytes = reinterpret_cast<const char*>(stream.Bytes().data());
  const int status = work.Finish(work.Target().Write({bytes, stream.Size()}));
  if (status == kDone && !found) work.WarnOfNothing({dVAL}, "the stream has no cells");
  return status;
}

void AddCommon(CLI::App& command, ExportOptions& options) {
  Required(AddText(command, "model", options.model, "MODEL", "Model to read"));
  Required(AddText(command, "-o,--output", options.output, "FILE", "File to write; - for standard output"));
  AddText(command, "--polygon", options.polygon, "FILE",
          "Leaves out cells whose centre isn't in a polygon: GeoJSON, or a text with a vertex a line");
}

void AddCsv(CLI::App& group, CommandContext& context) {
  const auto options = std::make_shared<CsvOptions>();
  CLI::App* command = AddSubcommand(group, context,
                                    {"export csv", "Writes a list for spreadsheets, in the marks of the user's locale.",
                                     "vakdtm export csv harbour.dtm -o harbour.csv --blocks VAL,NUM --units ft"},
                                    [options, &context] { return ExportCsv(*options, context); });
  AddCommon(*command, *options);
  AddText(*command, "--blocks", options->blocks, "LIST", "Kinds of value, by mnemonic (default VAL)");
  AddFlag(*command, "--invert", options->invert, "Flips the sign of heights, so that depths are positive");
  AddFlag(*command, "--extreme-positions", options->extremePositions,
          "Writes in front of MIN and MAX where they were measured");
  AddFlag(*command, "--corners", options->corners, "Writes values at the cells' upper right corners, interpolated");
  AddText(*command, "--decimal-mark", options->decimalMark, "CHARACTER", "In place of the locale's");
  AddText(*command, "--list-separator", options->listSeparator, "CHARACTER", "In place of the locale's");
  AddProjectOptions(*command, options->project);
}

void AddEsri(CLI::App& group, CommandContext& context) {
  const auto options = std::make_shared<EsriOptions>();
  CLI::App* command = AddSubcommand(group, context,
                                    {"export esri", "Writes an Esri ASCII grid, which other programs open as a raster.",
                                     "vakdtm export esri harbour.dtm -o harbour.asc --corner"},
                                    [options, &context] { return ExportEsri(*options, context); });
  AddCommon(*command, *options);
  AddText(*command, "--block", options->block, "NAME", "Kind of value, by mnemonic (default VAL)");
  AddText(*command, "--no-data", options->noData, "TEXT", "What stands for a cell without a value (default -9999)");
  CLI::Option* const digits =
      AddWholeNumber(*command, "--digits", options->digits, "Decimals of every value (default 3)", 0, 99);
  Exclude(AddText(*command, "--format", options->format, "FORMAT", "Of every value, as for printf: '%.2f', '%.17g'"),
          digits);
  AddFlag(*command, "--corner", options->corner, "Gives the grid's corner in the header, not its first cell's centre");
}

void AddStream(CLI::App& group, CommandContext& context) {
  const auto options = std::make_shared<ExportOptions>();
  CLI::App* command = AddSubcommand(group, context,
                                    {"export stream", "Writes the cells with all their values as a compact stream.",
                                     "vakdtm export stream harbour.dtm -o harbour.bin"},
                                    [options, &context] { return ExportStream(*options, context); });
  AddCommon(*command, *options);
}

}  // namespace

void AddExportCommand(CLI::App& app, CommandContext& context) {
  CLI::App* const group = AddSubcommandGroup(
      app, {"export", "Writes a model as a file for another system.", "vakdtm export esri harbour.dtm -o harbour.asc"});
  AddCsv(*group, context);
  AddEsri(*group, context);
  AddStream(*group, context);
  AddExportGeoTiffCommand(*group, context);
}

}  // namespace vak
