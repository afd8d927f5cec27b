#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "vakdtm/intake/DtmAsciiImporter.h"
#include "vakdtm/intake/DtmAsciiTimeImporter.h"
#include "vakdtm/intake/DtmImportException.h"
#include "vakdtm/services/files/FileName.h"
#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmBlockId.h"

#include "Command.h"
#include "ModelFile.h"
#include "PolygonInput.h"
#include "ResultFile.h"
#include "SoundingSource.h"
#include "StopSignals.h"

namespace vak {
namespace {

struct ImportOptions {
  std::string model;
  std::vector<std::string> files;
  double cellSize = 0;         // 0: not given
  std::uint64_t areaSize = 0;  // 0: not given
  std::string blocks;
  std::string polygon;
  bool dated = false;
  bool clearFirst = false;
  bool negate = false;
  bool backup = false;
  bool json = false;
  std::uint64_t memory = std::uint64_t{256} << 20;
};

/// Cells of half a metre make a grid of one cell out of a chart in degrees.
constexpr double kTooLargeForDegrees = 0.5;

constexpr int kUsualAreaSize = 64;

std::string Text(double value) {
  std::string text;
  AppendNumber(text, value);
  return text;
}

/// The import of one source, with what it reads from; keeps what it throws.
class ImportJob final : public Processor {
 public:
  ImportJob(std::unique_ptr<TextFile> text, std::unique_ptr<DtmTextImporter> importer)
      : text_(std::move(text)), importer_(std::move(importer)) {}

  bool Process() override {
    try {
      return importer_->Process();
    } catch (const DtmImportException& fault) {
      fault_ = fault;
      return false;
    }
  }
  double GetProgress() const override { return importer_->GetProgress(); }
  void Stop() override {
    Processor::Stop();
    importer_->Stop();
  }

  const DtmTextImporter& Importer() const { return *importer_; }
  const std::optional<DtmImportException>& Fault() const { return fault_; }

 private:
  std::unique_ptr<TextFile> text_;  // null: the importer has its own
  std::unique_ptr<DtmTextImporter> importer_;
  std::optional<DtmImportException> fault_;
};

/// What one call does: the sources, the model, and what came of it.
class Import {
 public:
  Import(const ImportOptions& options, const CommandContext& context) : options_(options), context_(context) {}

  int Run() {
    const auto start = std::chrono::steady_clock::now();
    if (const int status = LookAtEverything(); status != kDone) return status;
    if (std::none_of(sources_.begin(), sources_.end(), [](const auto& source) { return source.parses; })) {
      const ImportTally tally = CountUnparsable();
      return StopRequested() ? context_.Stopped("nothing was changed") : PrintSummary(tally, 0);
    }
    if (const int status = OpenModel(); status != kDone) return status;
    ImportTally tally(model_->AreaSize());
    const int status = Finish(ReadSources(tally));
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    WarnOfRejected(tally);
    if (tally.OutsidePolygon() > 0 && tally.Taken() + tally.NotANumber() == 0) {
      context_.Warn(options_.polygon, "no sounding lies in it, all were left out", "check its coordinates");
    }
    if (status == kCouldNotBeDone) return status;  // what the counts say isn't all in the model
    const int printed = PrintSummary(tally, seconds.count());
    return status == kDone ? printed : status;
  }

 private:
  /// Nothing is changed before all of this is known to be good.
  int LookAtEverything() {
    std::string error;
    blocks_ = DefaultBlocks();
    if (!options_.blocks.empty() && !ParseBlocksToCreate(options_.blocks, blocks_, error)) {
      return context_.Misuse("--blocks: " + error, "name them as in --blocks VAL,NUM");
    }
    if (std::count(options_.files.begin(), options_.files.end(), "-") > 1) {
      return context_.Misuse("standard input is named twice", "name it once");
    }
    if (!options_.polygon.empty() && !LoadPolygon(context_, options_.polygon, polygon_)) return kCouldNotBeDone;
    if (options_.model.empty()) return context_.Fail("''", "is no name for a model", "name a file");
    std::error_code code;
    // What can't be looked at, or is a link to nothing, isn't made either: opening it tells why.
    exists_ = std::filesystem::status(options_.model, code).type() != std::filesystem::file_type::not_found ||
              std::filesystem::is_symlink(options_.model, code);
    if (!exists_ && options_.cellSize == 0) {
      return context_.Fail(options_.model, "no such file", "give --cell-size to make it");
    }
    if (exists_) {
      held_ = HoldForWriting(context_, options_.model);
      if (!held_) return kCouldNotBeDone;
      if (const int status = CompareSettings(); status != kDone) return status;
    }
    for (const std::string& file : options_.files) {
      if (exists_ && IsSameFile(file, options_.model)) {
        return context_.Misuse("the model is named as its own input", "name a text of soundings");
      }
      if (!LookAtSource(context_, file, options_.dated, sources_.emplace_back())) {
        return StopRequested() ? context_.Stopped("nothing was changed") : kCouldNotBeDone;
      }
      const SoundingSource& source = sources_.back();
      if (options_.dated && !source.parses && !source.isEmpty) {
        return context_.Fail(source.name + ":1", "unknown file format: \"" + source.firstLine + "\"",
                             "begin with a line x,y,z,dd-mm-yyyy, or the same parted by blanks");
      }
      if (!source.firstDateFault.empty() && IsInserted(source)) {
        return context_.Fail(source.name + ":1", source.firstDateFault, "mend the line; nothing was changed");
      }
    }
    for (const SoundingSource& source : sources_) WarnOfStrange(source);
    return kDone;
  }

  /// Whether a text's first sounding is one for the model: what is left out may have any date.
  bool IsInserted(const SoundingSource& source) const {
    if (!source.firstIsSounding) return false;
    const double cellSize = exists_ ? held_.CellSize() : options_.cellSize;
    const Point point(source.first.x, source.first.y);
    const double farthest = std::max(std::abs(point.x), std::abs(point.y)) / cellSize;
    return farthest < std::numeric_limits<int>::max() &&
           (options_.polygon.empty() || polygon_.IsPointInPoly(point, nullptr));
  }

  /// Settings that were given for a model that is there have to be its own.
  int CompareSettings() const {
    if (options_.cellSize != 0 && options_.cellSize != held_.CellSize()) {
      return context_.Fail(options_.model, "has cells of " + Text(held_.CellSize()) + " m", "leave --cell-size out");
    }
    if (options_.areaSize != 0 && static_cast<int>(options_.areaSize) != held_.AreaSize()) {
      return context_.Fail(options_.model, "has areas of " + Counted(held_.AreaSize(), "cell") + " on a side",
                           "leave --area-size out");
    }
    // Their order is how the file was laid out, nothing that a user who repeats the kinds wants changed.
    if (options_.blocks.empty() ||
        std::is_permutation(blocks_.begin(), blocks_.end(), held_.Blocks().begin(), held_.Blocks().end())) {
      return kDone;
    }
    std::string labels;
    for (const int id : held_.Blocks()) labels += (labels.empty() ? "" : ",") + BlockLabel(id);
    return context_.Fail(options_.model, "records " + labels, "leave --blocks out");
  }

  void WarnOfStrange(const SoundingSource& source) const {
    const double cellSize = exists_ ? held_.CellSize() : options_.cellSize;
    if (!source.parses && source.isEmpty) {
      context_.Warn(source.name, "is empty", "");
    } else if (!source.parses) {
      context_.Warn(source.name, "no line holds three numbers; the first is \"" + source.firstLine + "\"",
                    "give x, y and z parted by commas or blanks");
    } else if (source.looksLikeDegrees && cellSize >= kTooLargeForDegrees) {
      context_.Warn(source.name,
                    "the coordinates look like degrees, and a cell is " + Text(cellSize) +
                        (cellSize == 1 ? " unit wide" : " units wide"),
                    "project them first, or use a small cell size");
    }
    if (options_.dated && source.parses && !source.dated) {
      context_.Warn(source.name, "the first line holds no date, its soundings get the time of import", "");
    }
  }

  int OpenModel() {
    if (exists_) {
      model_ = held_.Open(context_);
      return model_ ? kDone : kCouldNotBeDone;
    }
    const int areaSize = options_.areaSize != 0 ? static_cast<int>(options_.areaSize) : kUsualAreaSize;
    const WhenThere whenThere{UnfinishedFile::Existing::kRefuse,
                              "somebody else has made it meanwhile, nothing was changed", "import again"};
    if (!CreateModel(context_, options_.model, {options_.cellSize, areaSize, blocks_}, whenThere)) {
      return kCouldNotBeDone;
    }
    model_ = OpenForWriting(context_, options_.model);
    return model_ ? kDone : kCouldNotBeDone;
  }

  /// What went wrong while the sources were read; told when it is known what became of the model.
  struct Outcome {
    int status = kDone;
    std::string where;
    std::string what;
    std::string remedy;
  };

  Outcome ReadSources(ImportTally& tally) {
    for (std::size_t i = 0; i < sources_.size(); ++i) {
      if (StopRequested()) return {kStopped, "", "", ""};
      SoundingSource& source = sources_[i];
      tally.BeginSource();
      if (options_.dated && source.isEmpty) continue;
      FilePointer file = TakeFile(source);
      if (!file) return {kCouldNotBeDone, source.name, "cannot be opened any more", "check the file"};
      const bool backup = options_.backup && exists_ && i == 0;
      auto importer = MakeJob(std::move(file), backup, tally);
      if (backup && !HasBackup()) {
        return {kCouldNotBeDone, BackupName(), "no backup can be made, nothing was imported", "check its folder"};
      }
      const ImportJob& job = *importer;
      ProcessThread thread(L"vakdtm import", nullptr, false, nullptr, false);
      thread.AddProcessor(importer.release(), FromUtf8(source.name));
      const int result = thread.DoModal();
      if (result == ProcessThread::kStopped) return {kStopped, "", "", ""};
      WarnOfRepeated(source, job);
      WarnOfLateDates(source, job);
      if (result == ProcessThread::kDone) continue;
      if (const auto& fault = job.Fault()) {
        return {kCouldNotBeDone, source.name + ":" + std::to_string(fault->Line()), fault->what(),
                "mend the line; what stands before it is in the model"};
      }
      if (!job.Importer().InsertFailed())
        return {kCouldNotBeDone, source.name, "cannot be read to its end", "check the file"};
      const bool full = model_->LastStreamError() == StreamError::kNoSpace;
      return {kCouldNotBeDone, source.name + ":" + std::to_string(job.Importer().CurrentLine()),
              full ? "the sounding cannot be stored, no space left on the disk" : "the sounding cannot be stored",
              WhatToDo()};
    }
    return {};
  }

  std::unique_ptr<ImportJob> MakeJob(FilePointer file, bool backup, ImportTally& tally) {
    // Each importer has its own, whose copies share what makes them large.
    auto polygon = options_.polygon.empty() ? nullptr : std::make_unique<PolyClipLine>(polygon_);
    std::unique_ptr<TextFile> text;
    std::unique_ptr<DtmTextImporter> importer;
    if (options_.dated) {
      text = std::make_unique<TextFile>(file.release());
      importer = std::make_unique<DtmAsciiTimeImporter>(&*model_, text.get(), polygon.release(), options_.clearFirst,
                                                        backup, options_.negate);
    } else {
      importer = std::make_unique<DtmAsciiImporter>(&*model_, file.release(), polygon.release(), options_.clearFirst,
                                                    backup, options_.negate);
    }
    importer->SetCacheSize(AreasInMemory());
    importer->SetTally(&tally);
    return std::make_unique<ImportJob>(std::move(text), std::move(importer));
  }

  /// A blank line at the end of a dated text is easily overlooked, and counts.
  void WarnOfRepeated(const SoundingSource& source, const ImportJob& job) const {
    const auto* const dated = dynamic_cast<const DtmAsciiTimeImporter*>(&job.Importer());
    if (!dated || dated->LinesIncomplete() == 0) return;
    const bool one = dated->LinesIncomplete() == 1;
    context_.Warn(source.name,
                  Counted(dated->LinesIncomplete(), "line") + (one ? " lacks" : " lack") + " a number, and took what " +
                      (one ? "it lacks" : "they lack") + " from the line before",
                  "look for blank lines and for NULs at the end, which insert a sounding once more");
  }

  void WarnOfLateDates(const SoundingSource& source, const ImportJob& job) const {
    const auto* const dated = dynamic_cast<const DtmAsciiTimeImporter*>(&job.Importer());
    if (!dated || dated->FirstLineBeyondTime() == 0 || !model_->HasBlockId(tTIM)) return;
    context_.Warn(source.name + ":" + std::to_string(dated->FirstLineBeyondTime()),
                  "a model's times end on 19-01-2038, a later date is stored as a wrong one", "check the date");
  }

  std::string BackupName() const {
    vak::FileName name;
    name.Set(model_->FileName());
    name.SetExtension(L"bk1");
    return ToUtf8(name.c_str());
  }

  /// Whether the backup is there: the copy has the time of what it was made of.
  bool HasBackup() const {
    namespace fs = std::filesystem;
    std::error_code code;
    const fs::path model = ToUtf8(model_->FileName());
    const fs::path backup = BackupName();
    return backup != model && fs::file_size(backup, code) == fs::file_size(model, code) && !code &&
           fs::last_write_time(backup, code) == fs::last_write_time(model, code) && !code;
  }

  /// When the model couldn't be written.
  std::string WhatToDo() const {
    return options_.backup && exists_
               ? "put " + BackupName() + " in the place of the model"
               : "make room or check the disk, then run \"vakdtm verify " + options_.model + "\"";
  }

  std::uint64_t AreasInMemory() const {
    return std::max<std::uint64_t>(1, options_.memory / static_cast<std::uint64_t>(model_->SmallestBody()));
  }

  /// Writes the model out, whatever came before, and tells what went wrong in one line.
  int Finish(Outcome outcome) {
    const bool written = model_->SyncWrite();
    const bool lost = model_->HasLostData();
    if (outcome.status != kCouldNotBeDone && (!written || lost)) {
      const bool full = model_->LastStreamError() == StreamError::kNoSpace;
      outcome = {kCouldNotBeDone, options_.model,
                 std::string(lost ? "cells were lost because they cannot be written" : "cannot be written to the end") +
                     (full ? ", no space left on the disk" : ""),
                 WhatToDo()};
    }
    model_.Close();
    if (outcome.status == kStopped) return context_.Stopped("the model holds what was imported so far");
    return outcome.status == kDone ? kDone : context_.Fail(outcome.where, outcome.what, outcome.remedy);
  }

  /// Counts texts of which no line holds three numbers.
  ImportTally CountUnparsable() {
    ImportTally tally(1);
    for (SoundingSource& source : sources_) {
      tally.BeginSource();
      if (options_.dated && source.isEmpty) continue;  // a byte order mark is no line of it
      const FilePointer file = TakeFile(source);
      if (!file) {
        context_.Warn(source.name, "cannot be opened any more", "check the file");
        continue;
      }
      LineReader lines(file.get());
      for (std::string_view line; !StopRequested() && lines.Next(line);) tally.CountSkipped(lines.LineNumber(), line);
    }
    return tally;
  }

  void WarnOfRejected(const ImportTally& tally) const {
    for (const ImportTally::RejectedLine& line : tally.RejectedLines()) {
      const std::string& name = sources_[static_cast<std::size_t>(line.source)].name;
      const bool outside = line.reason == ImportTally::Reason::kOutside;
      context_.Warn(
          name + ":" + std::to_string(line.line),
          (outside ? "refused, no cell can lie there: \"" : "skipped, three numbers wanted: \"") + line.text + "\"",
          "");
    }
    const auto more = tally.Skipped() + tally.Refused() - static_cast<std::int64_t>(tally.RejectedLines().size());
    if (more > 0)
      context_.Warn(options_.model,
                    std::to_string(more) + (more == 1 ? " more line was not taken" : " more lines were not taken"), "");
  }

  int PrintSummary(const ImportTally& tally, double seconds) const {
    if (options_.json) return context_.PrintResult(JsonOf(tally, seconds));
    if (context_.quiet) return kDone;
    std::string line =
        std::to_string(tally.Taken()) + " of " + Counted(tally.Lines(), "line") + " taken (" +
        std::to_string(tally.Skipped()) + " skipped, " + std::to_string(tally.Refused()) + " refused, " +
        std::to_string(tally.NotANumber()) + " not a number" +
        (options_.polygon.empty() ? std::string() : ", " + std::to_string(tally.OutsidePolygon()) + " outside") +
        ") into " + Counted(tally.Cells(), "cell") + " in " + Counted(tally.Areas(), "area");
    if (tally.Taken() > 0) line += ", z " + Text(tally.LowestZ()) + " to " + Text(tally.HighestZ());
    line += ", ";
    AppendFixed(line, seconds, 2);
    return context_.PrintResult(line + " s\n");
  }

  static std::string JsonOf(const ImportTally& tally, double seconds) {
    nlohmann::ordered_json json;
    json["lines"] = tally.Lines();
    json["taken"] = tally.Taken();
    json["skipped"] = tally.Skipped();
    json["refused"] = tally.Refused();
    json["not_a_number"] = tally.NotANumber();
    json["outside_polygon"] = tally.OutsidePolygon();
    json["cells"] = tally.Cells();
    json["areas"] = tally.Areas();
    json["z_range"] = nullptr;
    if (tally.Taken() > 0) json["z_range"] = {tally.LowestZ(), tally.HighestZ()};
    json["seconds"] = seconds;
    return json.dump() + "\n";
  }

  const ImportOptions& options_;
  const CommandContext& context_;
  std::vector<int> blocks_;
  PolyClipLine polygon_;
  std::vector<SoundingSource> sources_;
  bool exists_ = false;
  HeldModel held_;  // while it exists and isn't open yet
  ModelFile model_;
};

}  // namespace

void AddImportCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<ImportOptions>();
  CLI::App* command = AddSubcommand(
      app, context,
      {"import", "Adds soundings from text files (a line x,y,z or x y z) to a model's cells.",
       "vakdtm import harbour.dtm survey.xyz --cell-size 1\nzcat lines.xyz.gz | vakdtm import harbour.dtm -"},
      [options, &context] { return Import(*options, context).Run(); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to add to"));
  Required(AddTexts(*command, "files", options->files, "FILE", "Texts to read; - for standard input"));
  AddNumber(*command, "--cell-size", options->cellSize,
            "Makes the model, with cells of this many metres, if it isn't there", std::numeric_limits<double>::min());
  AddWholeNumber(*command, "--area-size", options->areaSize,
                 "Of a model to be made: cells on a side of an area (default 64)", 1, 46340);
  AddText(*command, "--blocks", options->blocks, "LIST",
          "Of a model to be made: kinds of value to record, by mnemonic");
  AddText(*command, "--polygon", options->polygon, "FILE",
          "Leaves out what lies outside a polygon: GeoJSON, or a text with a vertex a line");
  AddFlag(*command, "--dated", options->dated, "Takes the time of a sounding from a date dd-mm-yyyy behind z");
  AddFlag(*command, "--clear-first", options->clearFirst, "Empties a cell before each sounding: the last one wins");
  AddFlag(*command, "--negate", options->negate, "Flips the sign of z, for depths that are positive downwards");
  AddFlag(*command, "--backup", options->backup, "Keeps the model as it was under its name with the ending bk1");
  AddByteCount(*command, "--memory", options->memory, "Memory for cells at the most (default 256M)", 1);
  AddFlag(*command, "--json", options->json, "Prints the summary as JSON");
}

}  // namespace vak
