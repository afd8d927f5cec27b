#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/statvfs.h>
#include <system_error>
#include <vector>

#include "vakdtm/export/BlockRange.h"
#include "vakdtm/export/VakGridToGeoTiffProcessor.h"
#include "vakdtm/export/WorldFile.h"
#include "vakdtm/frame/DtmAreaExtentsProcessor.h"
#include "vakdtm/render/BlockColorMap.h"
#include "vakdtm/render/EndOfToday.h"
#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"

#include "ColorOptions.h"
#include "Command.h"
#include "ImageTarget.h"
#include "ModelFile.h"
#include "PolygonInput.h"
#include "ProjectOptions.h"
#include "ResultFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

struct GeoTiffOptions {
  std::string model;
  std::string output;
  std::string polygon;
  std::string block = "VAL";
  bool raster = false;
  std::optional<double> empty;
  std::string colors;
  std::string range;
  std::string sun;
  std::string crs;
  std::string project;
  bool worldFile = false;
};

constexpr double kUsualEmpty = 9999;
constexpr std::uint64_t kPixelBytes = 4;
/// A line in which nothing changes is compressed to so much less at the very most.
constexpr double kBestCompression = 1400;
/// Where a strip is and how long, in the image's own lists.
constexpr double kStripBytes = 8;

std::string Whole(double value) {
  std::string text;
  AppendFixed(text, value, 0);
  return text;
}

/// The path of a file as it is on the disk. A path that goes over a link and back doesn't end where its letters do.
std::wstring RealPath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  return FromUtf8(error ? path : real.native());
}

/// What the system said in its own words, in those of the command.
std::string InOwnWords(const std::wstring& reason) {
  std::string said = ToUtf8(reason);
  for (const int error : {ENOSPC, EDQUOT, EFBIG, EACCES, EPERM, EROFS, ENOENT}) {
    if (said == std::generic_category().message(error)) return WriteErrorText(error);
  }
  return said;
}

/// The unit that a project has for the system's x and y; metres where it has none for them.
LengthUnit UnitOf(const GeoCoordSysDescription& system) {
  if (system.kind == GeoCoordSysDescription::Kind::kGeographic) return LengthUnit::kMetre;
  const auto isSize = [&](double size) { return std::fabs(system.unit.size - size) < 1e-10; };
  if (isSize(0.3048)) return LengthUnit::kFoot;
  return isSize(1200.0 / 3937.0) ? LengthUnit::kUsSurveyFoot : LengthUnit::kMetre;
}

/// One call of `export geotiff`.
class GeoTiffExport {
 public:
  GeoTiffExport(const GeoTiffOptions& options, const CommandContext& context) : options_(options), context_(context) {}

  /// Looks at everything before anything is made. @return a status.
  int LookAtInputs() {
    if (const int status = LookAtWords(); status != kDone) return status;
    if (const int status = LookAtColors(); status != kDone) return status;
    if (const int status = LookAtSystem(); status != kDone) return status;
    if (HasPolygon() && !LoadPolygon(context_, options_.polygon, polygon_)) return kCouldNotBeDone;
    model_ = OpenWholeForReading(context_, options_.model);
    if (!model_) return kCouldNotBeDone;
    if (WouldReplace(options_.model)) {
      return context_.Misuse("the model would be replaced by its own export", "name another file with -o");
    }
    return LookAtModel();
  }

  int Run() {
    if (const int status = MakeTable(); status != kDone) return status;
    if (!target_.Open(options_.output)) return FailWriting(target_.Error());
    if (const int status = LookAtRoom(); status != kDone) return status;
    auto owned = std::make_unique<VakGridToGeoTiffProcessor>(block_, !options_.raster, Empty());
    VakGridToGeoTiffProcessor& job = *owned;
    Page extents;
    PolyClipLine* const polygon = HasPolygon() ? &polygon_ : nullptr;
    // The world file is named after the target, which the job doesn't know.
    job.SetInitInfo(target_.Path(), table_, RealPath(options_.model), polygon, false);
    if (const auto& sun = colors_.GetSun()) job.SetSunIllumination(true, sun->azimuth, sun->elevation, sun->factor);
    job.SetExtentsPage(&extents);
    job.SetTellsReaders(true);
    ProcessThread thread(L"vakdtm export", nullptr, true, nullptr, false);
    thread.AddProcessor(owned.release(), L"Creating GeoTIFF image...");
    const int result = thread.DoModal();
    if (result != ProcessThread::kDone) return FailJob(result, job);
    if (!IsWholeRead(*model_)) return FailReading(context_, options_.model, *model_);
    if (options_.worldFile &&
        !WriteWorldFile(target_.WorldFilePath(), model_->CellSize(), extents.left(), extents.top())) {
      return FailWriting("the world file: " + WriteErrorText(errno));
    }
    if (!target_.Commit()) return FailWriting(target_.Error());
    Warn(job);
    return kDone;
  }

 private:
  bool HasPolygon() const { return !options_.polygon.empty(); }
  float Empty() const { return static_cast<float>(options_.empty.value_or(kUsualEmpty)); }

  bool WouldReplace(const std::string& path) const {
    const std::vector<std::string> names = ImageTarget::Names(options_.output);
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) { return IsSameFile(name, path); });
  }

  int LookAtWords() {
    for (const auto& [path, what] :
         {std::pair(&options_.polygon, "polygon"), std::pair(&options_.colors, "colour table"),
          std::pair(&options_.project, "project file")}) {
      if (path->empty() || !WouldReplace(*path)) continue;
      return context_.Misuse(std::string("the ") + what + " would be replaced by the export",
                             "name another file with -o");
    }
    std::vector<int> blocks;
    std::string error;
    if (!ParseBlockList(options_.block, blocks, error)) {
      return context_.Misuse("--block: " + error, "name one as in --block VAL");
    }
    if (blocks.size() != 1) {
      return context_.Misuse("--block: an image has one kind of value", "name one as in --block VAL");
    }
    block_ = blocks.front();
    if (options_.worldFile && !ImageTarget::IsTiffName(options_.output)) {
      return context_.Misuse("--world-file: an image of that name can have none", "let -o end in .tif");
    }
    return LookAtEmpty();
  }

  int LookAtEmpty() const {
    if (!options_.empty) return kDone;
    if (!options_.raster) {
      return context_.Misuse("--empty is for rasters: an empty pixel of colours is transparent",
                             "give --raster as well, or leave it out");
    }
    // What lies nearer to the largest number than to the next one, which isn't there any more, is the largest.
    constexpr double kBeyond = 0x1.ffffffp127;
    if (std::fabs(*options_.empty) < kBeyond) return kDone;
    return context_.Misuse("--empty: beyond the numbers that a raster of 32-bit floats can hold", "give one as -9999");
  }

  int LookAtColors() {
    const int status = colors_.Look(context_, options_.colors, options_.range, options_.sun);
    if (const auto& table = colors_.GetTable(); status == kDone && table) table_ = *table;
    return status;
  }

  /// The model's coordinates are those of the system, in its unit, whatever the project shows numbers in.
  int LookAtSystem() const {
    ProjectOptions projectOptions;
    projectOptions.project = options_.project;
    if (!UseProject(context_, projectOptions, ProjectOptions::UnitsOf::kEverything)) return kCouldNotBeDone;
    ProjectDefinition project = *GetCurrentProjectDefinition();
    if (!options_.crs.empty()) {
      std::wstring error;
      const auto system = VakGeoCoordSysBase::FromText(FromUtf8(options_.crs), &error);
      if (!system) return context_.Misuse("--crs: " + ToUtf8(error), "give one as EPSG:25831, as WKT or as LOCAL");
      project.SetGeoCoordSys(system);
    }
    if (project.GetGeoCoordSys() == nullptr) project.SetGeoCoordSys(VakGeoCoordSysBase::MakeLocal());
    const LengthUnit unit = UnitOf(project.GetGeoCoordSys()->Describe());
    project.SetUnitCnv(CVakUnitCnv(unit, unit, unit));
    SetCurrentProjectDefinition(project);
    return kDone;
  }

  int LookAtModel() {
    const auto lacks = [&](int id) { return !model_->HasBlockId(id); };
    if (lacks(block_)) {
      return context_.Fail(options_.model, "records no " + BlockLabel(block_),
                           "ask \"vakdtm info\" which kinds it has");
    }
    if (!options_.sun.empty() && !DtmBlockId(block_).IsZ() && block_ != tTIM && lacks(dVAL)) {
      return context_.Fail(options_.model, "records no VAL, which --sun goes by", "leave --sun out");
    }
    if (HasPolygon() && !MeetsModel(context_, options_.polygon, polygon_, *model_)) return kCouldNotBeDone;
    Page areas;
    if (!FindExtents(*model_, areas)) {
      return context_.Fail(options_.model, "has no areas, and an image of none has no extents",
                           "ask \"vakdtm info\" what it has");
    }
    if (HasPolygon()) {
      areas = Page();
      polygon_.GetExtents(areas);
    }
    const double cell = model_->CellSize();
    const double wide = HasPolygon() ? 1 : 0;  // a polygon's last cells are those that its edges lie in
    columns_ = std::floor(areas.right() / cell) - std::floor(areas.left() / cell) + wide;
    rows_ = std::floor(areas.top() / cell) - std::floor(areas.bottom() / cell) + wide;
    return kDone;
  }

  /// Refuses an image that is surely larger than the room for it: a model may be sparse, and an image has every cell.
  int LookAtRoom() const {
    const double samples = columns_ * rows_ * static_cast<double>(kPixelBytes);
    const double size = (options_.raster ? samples : samples / kBestCompression) + rows_ * kStripBytes;
    struct statvfs status = {};
    std::string folder = ToUtf8(target_.Path());
    folder.erase(folder.rfind('/') + 1);
    if (statvfs(folder.empty() ? "." : folder.c_str(), &status) != 0) return kDone;
    const double room = static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
    if (size <= room) return kDone;
    return context_.Fail(target_.Name(),
                         "the image has " + Whole(columns_) + " x " + Whole(rows_) + " pixels and takes " +
                             SizeText(size) + " at least, with room for " + SizeText(room),
                         "make room, or export a part of it with --polygon");
  }

  /// Makes a built-in table over the range of the model's values.
  int MakeTable() {
    if (options_.raster || !table_.Classes().empty()) return kDone;
    const std::string_view name = options_.colors.empty() ? DefaultColorMap(block_) : options_.colors;
    double low = 0;
    double high = 0;
    if (const auto& range = colors_.GetRange()) {
      low = range->low;
      high = range->high;
    } else {
      DtmAccess access(&*model_);
      const bool found = FindBlockRange(access, block_, StopRequested, low, high);
      if (StopRequested()) return context_.Stopped("nothing was kept");
      if (found && block_ == tTIM) {
        // Times are coloured by their ages in days.
        const double end = EndOfToday();
        const double youngest = (end - high) / kSecondsOfDay;
        high = (end - low) / kSecondsOfDay;
        low = youngest;
      }
    }
    if (MakeColorTable(name, low, high, table_)) return kDone;
    return context_.Fail(options_.model, "its values have no range that colours can be laid over", "give --range");
  }

  int FailJob(int result, const VakGridToGeoTiffProcessor& job) const {
    if (result == ProcessThread::kStopped || StopRequested()) return context_.Stopped("nothing was kept");
    if (!IsWholeRead(*model_)) return FailReading(context_, options_.model, *model_);
    using Fault = VakGridToGeoTiffProcessor::Fault;
    const std::string error = ToUtf8(job.LastError());
    switch (job.LastFault()) {
      case Fault::kModel:
        return context_.Fail(options_.model, error, "run \"vakdtm verify " + options_.model + "\"");
      case Fault::kSize:
        return context_.Fail(target_.Name(),
                             "the image has " + Whole(columns_) + " x " + Whole(rows_) + " pixels: " + error,
                             "export a part of it with --polygon");
      case Fault::kImage:
        return FailWriting(InOwnWords(job.LastError()));
      default:
        return context_.Fail(target_.Name(),
                             error.empty() ? "the image couldn't be made: out of memory or threads" : error, "");
    }
  }

  int FailWriting(const std::string& error) const {
    if (StopRequested()) return context_.Stopped("nothing was kept");
    if (target_.ReaderGone()) return kCouldNotBeDone;
    return context_.Fail(target_.Name(), "cannot write: " + (error.empty() ? "the image couldn't be finished" : error),
                         target_.Remedy());
  }

  void Warn(const VakGridToGeoTiffProcessor& job) const {
    if (!job.LastWarning().empty()) {
      context_.Warn(options_.output, "it lacks a part of its coordinate system: " + ToUtf8(job.LastWarning()),
                    "name another with --crs, or keep a .prj file with it");
    }
    if (!options_.sun.empty() && block_ == tTIM) {
      context_.Warn(options_.output, "times aren't shaded, --sun did nothing", "leave it out");
    }
    if (job.PixelsLikeEmpty() > 0) {
      std::string value;
      AppendNumber(value, static_cast<double>(Empty()));
      context_.Warn(options_.output,
                    Counted(job.PixelsLikeEmpty(), "cell") + " with a value of " + value +
                        " can't be told from those without one",
                    "give another --empty");
    }
    if (job.PixelsBeyondFloats() > 0) {
      context_.Warn(options_.output,
                    Counted(job.PixelsBeyondFloats(), "cell") +
                        " became infinite: beyond the numbers that a raster of 32-bit floats can hold",
                    "export them with \"vakdtm export csv\"");
    }
    if (job.PixelsWithValue() > 0) return;
    if (HasPolygon()) {
      context_.Warn(options_.polygon,
                    "the centre of no cell with a " + BlockLabel(block_) + " lies in it, the image is empty",
                    "check its coordinates");
    } else {
      context_.Warn(options_.model, "no cell has a " + BlockLabel(block_) + ", the image is empty", "");
    }
  }

  const GeoTiffOptions& options_;
  const CommandContext& context_;
  int block_ = dVAL;
  ColorOptions colors_;
  ColorTable table_;  // without classes until it is known
  PolyClipLine polygon_;
  ModelFile model_;
  double columns_ = 0;
  double rows_ = 0;
  ImageTarget target_;
};

int ExportGeoTiff(const GeoTiffOptions& options, const CommandContext& context) {
  GeoTiffExport work(options, context);
  const int status = work.LookAtInputs();
  return status == kDone ? work.Run() : status;
}

}  // namespace

void AddExportGeoTiffCommand(CLI::App& group, CommandContext& context) {
  const auto options = std::make_shared<GeoTiffOptions>();
  CLI::App* const command =
      AddSubcommand(group, context,
                    {"export geotiff", "Writes a GeoTIFF image of colours, or a raster of values, which any GIS opens.",
                     "vakdtm export geotiff harbour.dtm -o harbour.tif --sun 45,45,3 --crs EPSG:25831\n"
                     "vakdtm export geotiff harbour.dtm -o depths.tif --raster --empty -9999 --world-file"},
                    [options, &context] { return ExportGeoTiff(*options, context); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to read"));
  Required(AddText(*command, "-o,--output", options->output, "FILE", "File to write; - for standard output"));
  AddText(*command, "--polygon", options->polygon, "FILE",
          "Leaves out cells whose centre isn't in a polygon, and ends where it does: GeoJSON, or a text with a vertex "
          "a line");
  AddText(*command, "--block", options->block, "NAME", "Kind of value, by mnemonic (default VAL)");
  CLI::Option* const raster =
      AddFlag(*command, "--raster", options->raster, "Writes the values, as 32-bit floats, in place of colours");
  AddNumberIfGiven(*command, "--empty", options->empty,
                   "Value of a raster's cells without one, recorded as its no-data value (default 9999)");
  Exclude(AddText(*command, "--colors", options->colors, "TABLE",
                  "Table of colours: " + ColorMapList() + ", or a file (default: the one that suits the kind)"),
          raster);
  Exclude(
      AddText(*command, "--range", options->range, "LOW,HIGH",
              "Where the colours of a built-in table begin and end (default: the model's lowest and highest value)"),
      raster);
  Exclude(
      AddText(*command, "--sun", options->sun, "AZ,EL,FACTOR",
              "Shades by a sun: azimuth and elevation in degrees, and by how much slopes are exaggerated. It stands in "
              "the nearest of eight directions"),
      raster);
  AddText(*command, "--crs", options->crs, "CRS",
          "The model's coordinate system: EPSG:25831, WKT, a PROJ text, LOCAL (default: the project's, or LOCAL)");
  AddText(*command, "--project", options->project, "FILE", "Project file with the coordinate system");
  AddFlag(*command, "--world-file", options->worldFile, "Writes a world file (.tfw) beside the image");
}

}  // namespace vak
