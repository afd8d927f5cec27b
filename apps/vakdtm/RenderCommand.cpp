#include <algorithm>
#include <atomic>
#include <cctype>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/contour/Contour.h"
#include "vakdtm/contour/ContourList.h"
#include "vakdtm/contour/DtmContourCreator.h"
#include "vakdtm/render/ChartContour.h"
#include "vakdtm/render/ChartFurniture.h"
#include "vakdtm/render/DtmChart.h"
#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/services/device/PageDevice.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/jobs/Processor.h"
#include "vakdtm/services/text/Multiples.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmDataBlock.h"

#include "ColorOptions.h"
#include "Command.h"
#include "ExportTarget.h"
#include "ModelFile.h"
#include "PolygonInput.h"
#include "ProjectOptions.h"
#include "ResultFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

constexpr std::uint64_t kSmallestWidth = 200;
constexpr std::uint64_t kGreatestWidth = 20000;
constexpr std::size_t kMostContours = 1000;
// How much of the model's cells stay in memory between the levels.
constexpr std::uint64_t kCellMemory = std::uint64_t{256} << 20;
constexpr double kScreenDots = 96;
constexpr double kLongestPage = 199;  // inches; PDF knows no longer ones than 200

struct RenderOptions {
  std::string model;
  std::string output;
  std::string block = "VAL";
  std::string colors;
  std::string range;
  std::optional<std::string> sun;
  bool slope = false;
  std::uint64_t width = 1600;
  std::optional<Page> rect;
  std::string polygon;
  double contours = 0;  // 0: none
  bool frameAreas = false;
  bool legend = false;
  bool scaleBar = false;
  std::string title;
  bool bare = false;
  ProjectOptions project;
};

enum class Format { kPng, kPdf, kSvg };

std::optional<Format> FindFormat(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  std::string ending = dot == std::string::npos ? "" : path.substr(dot);
  for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (ending == ".png") return Format::kPng;
  if (ending == ".pdf") return Format::kPdf;
  return ending == ".svg" ? std::optional(Format::kSvg) : std::nullopt;
}

/// One call of `render`.
class Rendering {
 public:
  Rendering(const RenderOptions& options, const CommandContext& context) : options_(options), context_(context) {}

  /// Looks at everything before anything is made. @return a status.
  int LookAtInputs() {
    if (const int status = LookAtWords(); status != kDone) return status;
    if (const int status = LookAtColors(); status != kDone) return status;
    if (!UseProject(context_, options_.project, ProjectOptions::UnitsOf::kHeights)) return kCouldNotBeDone;
    TakeUnits();
    if (HasPolygon() && !LoadPolygon(context_, options_.polygon, settings_.polygon)) return kCouldNotBeDone;
    model_ = OpenWholeForReading(context_, options_.model);
    if (!model_) return kCouldNotBeDone;
    if (IsSameFile(options_.output, options_.model)) {
      return context_.Misuse("the model would be replaced by its own picture", "name another file with -o");
    }
    return LookAtModel();
  }

  /// Opens the output, when all else is known to be good. @return a status.
  int Prepare() {
    if (!target_.Open(options_.output)) return FailWriting();
    access_ = std::make_unique<DtmAccess>(&*model_);
    chart_ = std::make_unique<DtmChart>(*access_, settings_);
    return kDone;
  }

  /// Makes the picture: the step of a job. @return whether it is there.
  bool Make() {
    ImageDevice scratch;
    if (!scratch.Create(1, 1)) return FailDrawing(scratch.LastError());
    phase_ = Phase::kLooking;
    fault_ = chart_->Look(MeasureOn(scratch));
    if (fault_ != DtmChart::Fault::kNone) return false;
    phase_ = Phase::kSpreading;
    if (HasContours() && !FindLevels()) return false;
    phase_ = Phase::kPainting;
    return Draw();
  }

  /// Ends `Make` early, also before it has begun. Any thread may call it, and the next.
  void Stop() {
    running_ = false;
    chart_->Stop();
  }
  double Progress() const {
    const double painting = HasContours() ? 0.2 : 0.5;
    switch (phase_.load()) {
      case Phase::kWaiting:
        return 0;
      case Phase::kLooking:
        return 0.3 * chart_->Progress();
      case Phase::kSpreading:
        return 0.3;
      case Phase::kPainting:
        return 0.3 + painting * chart_->Progress();
      case Phase::kTracing:
        return 0.5 + 0.3 * traced_;
      case Phase::kSaving:
        return 0.8;
    }
    return 0;
  }

  /// Tells how the job ended, and puts the picture in its place. @return a status.
  int Finish(int result);

 private:
  enum class Phase { kWaiting, kLooking, kSpreading, kPainting, kTracing, kSaving };

  bool HasContours() const { return options_.contours > 0; }
  bool HasPolygon() const { return !options_.polygon.empty(); }
  int LookAtWords();
  int LookAtColors();
  int LookAtModel() const;
  void TakeUnits();
  bool FindLevels();
  bool TraceContours(const std::function<void(const ChartContour&)>& draw);
  bool Draw();
  bool FailDrawing(const std::wstring& error) {
    drawError_ = ToUtf8(error);
    return false;
  }
  int FailWriting() const;
  int TellFault() const;

  const RenderOptions& options_;
  const CommandContext& context_;
  Format format_ = Format::kPng;
  ChartSettings settings_;
  ModelFile model_;
  std::unique_ptr<DtmAccess> access_;
  std::unique_ptr<DtmChart> chart_;
  ExportTarget target_;
  std::vector<double> levels_;  // of contours
  std::atomic<bool> running_{true};
  std::atomic<Phase> phase_{Phase::kWaiting};
  std::atomic<double> traced_{0};
  DtmChart::Fault fault_ = DtmChart::Fault::kNone;
  std::string contourError_;
  std::string drawError_;
};

int Rendering::LookAtWords() {
  const std::optional<Format> format = FindFormat(options_.output);
  if (!format) {
    return context_.Misuse("-o: the ending of '" + options_.output + "' names no format",
                           "let it end in .png, .pdf or .svg");
  }
  format_ = *format;
  std::vector<int> blocks;
  std::string error;
  if (!ParseBlockList(options_.block, blocks, error)) {
    return context_.Misuse("--block: " + error, "name one as in --block VAL");
  }
  if (blocks.size() != 1) {
    return context_.Misuse("--block: a picture is of one kind of value", "name one as in --block VAL");
  }
  settings_.block = blocks.front();
  if (options_.slope && settings_.block != dVAL) {
    return context_.Misuse("--slope shows the slope of VAL and no other kind", "leave --block out");
  }
  if (options_.bare && (options_.legend || options_.scaleBar || !options_.title.empty())) {
    const char* const what = options_.legend ? "--legend" : options_.scaleBar ? "--scale-bar" : "--title";
    return context_.Misuse(std::string("--bare leaves no room for ") + what, "leave one of them out");
  }
  for (const auto& [input, what] :
       {std::pair(&options_.polygon, "polygon"), std::pair(&options_.colors, "colour table"),
        std::pair(&options_.project.project, "project file")}) {
    if (!IsSameFile(options_.output, *input)) continue;
    return context_.Misuse(std::string("the ") + what + " would be replaced by the picture",
                           "name another file with -o");
  }
  settings_.isSlope = options_.slope;
  if (options_.rect) settings_.rect = *options_.rect;
  settings_.frameAreas = options_.frameAreas;
  settings_.width = static_cast<int>(options_.width);
  settings_.isBare = options_.bare;
  settings_.hasLegend = options_.legend;
  settings_.hasScaleBar = options_.scaleBar;
  settings_.title = FromUtf8(options_.title);
  return kDone;
}

int Rendering::LookAtColors() {
  ColorOptions colors;
  const int status = colors.Look(context_, options_.colors, options_.range, options_.sun.value_or(""));
  if (status != kDone) return status;
  settings_.sun = colors.GetSun();
  settings_.range = colors.GetRange();
  settings_.table = colors.GetTable();
  if (!settings_.table) settings_.colors = options_.colors;
  return kDone;
}

void Rendering::TakeUnits() {
  const auto project = GetCurrentProjectDefinition();
  const CVakUnitCnv& units = project->GetUnitCnv();
  settings_.lengthFactor = units.ConvertUnit(kUnitHorizontalLength, 1.0);
  settings_.lengthUnit = units.GetUnitMnem(kUnitHorizontalLength);
  settings_.heightFactor = units.ConvertUnit(kUnitHeight, 1.0);
  settings_.heightUnit = units.GetUnitMnem(kUnitHeight);
}

int Rendering::LookAtModel() const {
  if (!model_->HasBlockId(settings_.block)) {
    return context_.Fail(options_.model, "records no " + BlockLabel(settings_.block),
                         "ask \"vakdtm info\" which kinds it has");
  }
  const bool needsMeans = (options_.contours > 0 || settings_.sun) && !DtmBlockId(settings_.block).IsZ();
  if (needsMeans && !model_->HasBlockId(dVAL)) {
    return context_.Fail(options_.model,
                         std::string("records no VAL, which ") + (settings_.sun ? "--sun" : "--contours") + " goes by",
                         std::string("leave ") + (settings_.sun ? "--sun" : "--contours") + " out");
  }
  if (options_.rect && !MeetsModel(context_, "the rectangle", *options_.rect, *model_)) return kCouldNotBeDone;
  if (HasPolygon() && !MeetsModel(context_, options_.polygon, settings_.polygon, *model_)) return kCouldNotBeDone;
  return kDone;
}

// ---- contours

/// Contours are of the heights shown, or of the mean heights under any other kind of value.
bool Rendering::FindLevels() {
  double lowest = 0;
  double highest = 0;
  fault_ = chart_->FindContourRange(lowest, highest);
  if (fault_ == DtmChart::Fault::kNoValue) {
    fault_ = DtmChart::Fault::kNone;
    return true;
  }
  if (fault_ != DtmChart::Fault::kNone) return false;
  switch (SpreadMultiples(options_.contours, 0, lowest, highest, kMostContours, levels_)) {
    case MultiplesFault::kTooMany:
      contourError_ = "--contours: that makes more than " + std::to_string(kMostContours) + " levels";
      return false;
    case MultiplesFault::kTooFine:
      contourError_ = "--contours: the interval is too small beside the heights";
      return false;
    case MultiplesFault::kNone:
      break;
  }
  return true;
}

/// Hands each line on as soon as its level is traced, and keeps none.
bool Rendering::TraceContours(const std::function<void(const ChartContour&)>& draw) {
  phase_ = Phase::kTracing;
  const int block = chart_->ContourBlock();
  const auto side = static_cast<std::uint64_t>(model_->AreaSize());
  const auto cellBytes = static_cast<std::uint64_t>(DtmDataBlock::GetBytesPerCell(DtmDataBlock::GetDataType(block)));
  access_->SetCacheSize(std::max(DtmAccess::kDefaultCacheSize, kCellMemory / std::max(side * side * cellBytes, side)));
  DtmContourCreator creator(access_.get(), block);
  creator.SetPoly(chart_->ContourPolygon());
  const std::vector<bool> isIndex = FindIndexLevels(levels_, options_.contours);
  ContourList traced;
  for (std::size_t i = 0; i < levels_.size() && running_; ++i) {
    traced.Clear();
    creator.AddLevel(levels_[i] / settings_.heightFactor, traced, running_);
    for (int k = 0; k < traced.Size() && running_; ++k) draw({levels_[i], isIndex[i], traced[k].Line()});
    traced_ = static_cast<double>(i + 1) / static_cast<double>(levels_.size());
  }
  access_->SetCacheSize(DtmAccess::kDefaultCacheSize);
  return running_;
}

// ---- the picture

bool Rendering::Draw() {
  const ChartLayout& layout = chart_->Layout();
  ContourSource contours;
  if (HasContours()) contours = [this](const auto& draw) { return TraceContours(draw); };
  if (format_ == Format::kPng) {
    ImageDevice image;
    if (!image.Create(layout.width, layout.height, kScreenDots)) return FailDrawing(image.LastError());
    fault_ = chart_->Paint(image, contours);
    if (fault_ != DtmChart::Fault::kNone) return false;
    std::vector<PictureNote> notes;
    if (!settings_.title.empty()) notes.push_back({"Title", settings_.title});
    phase_ = Phase::kSaving;
    return image.SavePng(target_.Path(), notes, &running_) || FailDrawing(image.LastError());
  }
  const bool isPdf = format_ == Format::kPdf;
  const double longest = std::max(layout.width, layout.height);
  PageDevice page;
  page.SetRunning(&running_);
  if (!page.Create(target_.Path(), isPdf ? PageDevice::Format::kPdf : PageDevice::Format::kSvg, layout.width,
                   layout.height, isPdf ? std::max(kScreenDots, longest / kLongestPage) : kScreenDots,
                   settings_.title)) {
    return FailDrawing(page.LastError());
  }
  fault_ = chart_->Paint(page, contours);
  if (fault_ != DtmChart::Fault::kNone) return false;
  phase_ = Phase::kSaving;
  return page.Finish() || FailDrawing(page.LastError());
}

int Rendering::FailWriting() const {
  if (StopRequested()) return context_.Stopped("nothing was kept");
  if (target_.ReaderGone()) return kCouldNotBeDone;
  return context_.Fail(target_.Name(), "cannot write: " + target_.Error(), target_.Remedy());
}

int Rendering::TellFault() const {
  const std::string where = options_.rect ? " in the rectangle" : HasPolygon() ? " in the polygon" : "";
  switch (fault_) {
    case DtmChart::Fault::kNone:
      break;
    case DtmChart::Fault::kStopped:
      return context_.Stopped("nothing was kept");
    case DtmChart::Fault::kNoValue:
      if (options_.slope) {
        return context_.Fail(options_.model, "no cell has a slope" + where + ", which takes values above or below it",
                             "leave --slope out");
      }
      return context_.Fail(options_.model,
                           "no cell has a " + BlockLabel(settings_.block) + where + ", and there is nothing to show",
                           where.empty() ? "ask \"vakdtm info\" what it has" : "check its coordinates");
    case DtmChart::Fault::kNoneShown:
      return context_.Fail(options_.model,
                           "its cells with a " + BlockLabel(settings_.block) + " are too few to be seen at this scale",
                           "give a greater --width, or a smaller --rect");
    case DtmChart::Fault::kTooNarrow:
      if (options_.bare) {
        return context_.Misuse(
            "the picture would be more than " + std::to_string(ChartLayout::kMostPixels) + " pixels high",
            "give a smaller --width");
      }
      return context_.Misuse(
          "--width: " + std::to_string(options_.width) + " pixels are too few for the map and what stands around it",
          "give a greater one, or say --bare");
    case DtmChart::Fault::kNoMemory:
      return context_.Fail("", kMemoryText, "give a smaller --width");
    case DtmChart::Fault::kUnreadable:
      return FailReading(context_, options_.model, *model_);
  }
  if (!contourError_.empty()) return context_.Fail("", contourError_, "give a greater interval");
  return context_.Fail(target_.Name(), "cannot be made: " + drawError_, "give a smaller --width, or make room");
}

int Rendering::Finish(int result) {
  if (StopRequested()) return context_.Stopped("nothing was kept");
  if (!IsWholeRead(*model_)) return FailReading(context_, options_.model, *model_);
  if (result != ProcessThread::kDone) return TellFault();
  return target_.Commit() ? static_cast<int>(kDone) : FailWriting();
}

/// The making of a picture as a step of a job.
class RenderStep final : public Processor {
 public:
  explicit RenderStep(Rendering& rendering) : rendering_(rendering) {}

  bool Process() override { return rendering_.Make(); }
  double GetProgress() const override { return rendering_.Progress(); }
  void Stop() override {
    Processor::Stop();
    rendering_.Stop();
  }

 private:
  Rendering& rendering_;
};

int Render(const RenderOptions& options, const CommandContext& context) {
  Rendering rendering(options, context);
  if (const int status = rendering.LookAtInputs(); status != kDone) return status;
  if (const int status = rendering.Prepare(); status != kDone) return status;
  ProcessThread thread(L"vakdtm render", nullptr, false, nullptr, false);
  thread.AddProcessor(std::make_unique<RenderStep>(rendering).release(), L"");
  return rendering.Finish(thread.DoModal());
}

}  // namespace

void AddRenderCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<RenderOptions>();
  CLI::App* command = AddSubcommand(
      app, context,
      {"render", "Draws a model as a picture: a map with coordinates, for a report.",
       "vakdtm render harbour.dtm -o harbour.png --legend --scale-bar --title 'Harbour, inner basin'\n"
       "vakdtm render harbour.dtm -o berth.pdf --rect 500000,5800000,500200,5800100 --sun 45,30 --contours 0.5"},
      [options, &context] { return Render(*options, context); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to draw"));
  Required(AddText(*command, "-o,--output", options->output, "FILE",
                   "Picture to write, its format by the ending: .png, .pdf or .svg"));
  AddText(*command, "--block", options->block, "NAME", "Kind of value, by mnemonic (default VAL)");
  AddText(*command, "--colors", options->colors, "TABLE",
          "Table of colours: " + ColorMapList() + ", or a file (default: the one that suits the kind)");
  AddText(*command, "--range", options->range, "LOW,HIGH",
          "Where the colours begin and end (default: so that 99 % of the cells shown lie between)");
  AddTextOrNone(
      *command, "--sun", options->sun, "AZ,EL,FACTOR",
      "Shades by a sun: azimuth and elevation in degrees, and by how much slopes are exaggerated. It stands in "
      "the nearest of eight directions; one in the north-west lights from the south-west",
      "45,45,3");
  AddFlag(*command, "--slope", options->slope, "Colours by the slope in place of the height");
  AddWholeNumber(*command, "--width", options->width, "Pixels from side to side (default 1600)", kSmallestWidth,
                 kGreatestWidth);
  AddRect(*command, "--rect", options->rect, "Shows a rectangle, in metres");
  AddText(*command, "--polygon", options->polygon, "FILE",
          "Shows the cells whose centre lies in a polygon: GeoJSON, or a text with a vertex a line");
  AddNumber(*command, "--contours", options->contours, "Draws contours, from line to line in the unit of heights",
            std::numeric_limits<double>::min());
  AddFlag(*command, "--frame-areas", options->frameAreas, "Frames the areas of the model");
  AddFlag(*command, "--legend", options->legend, "Adds a bar of the colours with their values");
  AddFlag(*command, "--scale-bar", options->scaleBar, "Adds a bar of a round length");
  AddText(*command, "--title", options->title, "TEXT", "Adds a title");
  AddFlag(*command, "--bare", options->bare, "The map alone: no frame, no coordinates");
  AddUnitOptions(*command, options->project);
}

}  // namespace vak
