#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "vakdtm/analysis/DtmTotalProcessor.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/frame/DtmProcess.h"
#include "vakdtm/services/files/memfile.h"
#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/platform/FileHandle.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmBlockId.h"

#include "Command.h"
#include "ModelFile.h"
#include "PolygonInput.h"
#include "ProjectOptions.h"
#include "ResultFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

struct StatsOptions {
  std::string model;
  std::string polygon;
  std::optional<Page> rect;
  std::string results;
  bool json = false;
  ProjectOptions project;
};

/// Keeps the reports of its lifetime, which would be boxes elsewhere; all other messages go on as before.
class ReportKeeper {
 public:
  ReportKeeper() : sink_(std::make_shared<Sink>()), former_(InstallMessageSink(sink_)) { sink_->former = former_; }
  ~ReportKeeper() { InstallMessageSink(former_); }
  ReportKeeper(const ReportKeeper&) = delete;
  ReportKeeper& operator=(const ReportKeeper&) = delete;

  const std::string& Text() const { return sink_->text; }

 private:
  struct Sink final : MessageSink {
    void ShowMessage(MessageIcon icon, const std::wstring& title, const std::wstring& message) override {
      if (icon == MessageIcon::kInformation) {
        text += ToUtf8(message) + "\n";
      } else if (former) {
        former->ShowMessage(icon, title, message);
      }
    }
    std::shared_ptr<MessageSink> former;
    std::string text;
  };

  std::shared_ptr<Sink> sink_;
  std::shared_ptr<MessageSink> former_;
};

/// A list of results, of which every run appends a line.
class ResultList {
 public:
  explicit ResultList(std::string path) : path_(std::move(path)) {}

  bool IsWanted() const { return !path_.empty(); }

  /// Before the work. Prints why when nothing can be appended.
  bool LookAt(const CommandContext& context) {
    struct stat status = {};
    const bool exists = stat(path_.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) return Tell(context, EISDIR);
    const std::string folder = std::filesystem::path(path_).parent_path().native();
    if (access(exists ? path_.c_str() : folder.empty() ? "." : folder.c_str(), W_OK) != 0) return Tell(context, errno);
    isNew_ = !exists || status.st_size == 0;
    return isNew_ || LookAtList(context, status.st_size);
  }

  /// Whether the headings are still to be written.
  bool IsNew() const { return isNew_; }

  /// Appends lines, all of them or none. Prints why when it can't.
  bool Append(const CommandContext& context, const memfile& lines) const {
    const FileHandle file = OpenDescriptor(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0666);
    struct stat status = {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return Tell(context, errno);
    const auto* const bytes = reinterpret_cast<const char*>(lines.Bytes().data());
    const std::string text = (endsInALine_ ? "" : "\n") + std::string(bytes, lines.Size());
    std::size_t done = 0;
    while (done < text.size()) {
      const ssize_t written = write(file.Get(), text.data() + done, text.size() - done);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) {
        const int error = errno;
        // Half a line would be taken for a result.
        if (done > 0 && ftruncate(file.Get(), status.st_size) != 0) {
          context.Warn(path_, "ends with half a line", "take it out");
        }
        return Tell(context, error);
      }
      done += static_cast<std::size_t>(written);
    }
    return true;
  }

 private:
  /// Figures under the headings of others would be taken for what they are not.
  bool LookAtList(const CommandContext& context, off_t size) {
    const std::string headings = ToUtf8(DtmTotalProcessor::Headings());
    const FileHandle file = OpenDescriptor(path_.c_str(), O_RDONLY);
    // With the mark and the carriage return that a spreadsheet puts there.
    std::string begin(headings.size() + 5, '\0');
    const ssize_t count = file.IsOpen() ? pread(file.Get(), begin.data(), begin.size(), 0) : -1;
    char last = '\0';
    if (count < 0 || pread(file.Get(), &last, 1, size - 1) != 1) {
      context.Fail(path_, "the headings cannot be read: " + WriteErrorText(errno), "name another file with --results");
      return false;
    }
    endsInALine_ = last == '\n';
    std::string_view line = std::string_view(begin).substr(0, static_cast<std::size_t>(count));
    if (line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
    line = line.substr(0, line.find('\n'));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line == headings) return true;
    context.Fail(path_ + ":1", "these are not the headings of this report, or those of other units or another locale",
                 "name another file with --results");
    return false;
  }

  bool Tell(const CommandContext& context, int error) const {
    context.Fail(
        path_, "the results cannot be written: " + WriteErrorText(error),
        IsLackOfRoom(error) ? "make room, or name another file with --results" : "name another file with --results");
    return false;
  }

  std::string path_;
  bool isNew_ = true;
  bool endsInALine_ = true;
};

nlohmann::ordered_json NumberOrNull(double value) {
  return IsEmptyValue(value) ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(value);
}

nlohmann::ordered_json PointOrNull(double z, double x, double y) {
  if (IsEmptyValue(z)) return nullptr;
  return {{"z", z}, {"x", NumberOrNull(x)}, {"y", NumberOrNull(y)}};
}

std::string JsonOf(const DtmTotalProcessor& total, bool hasPolygon) {
  // A figure that there isn't leaves its variable empty.
  double average = EmptyDouble();
  double deviation = EmptyDouble();
  double cellsDeviation = EmptyDouble();
  struct {
    double z = EmptyDouble();
    double x = EmptyDouble();
    double y = EmptyDouble();
  } lowest, highest;
  float duration = 0;
  total.GetAverage(average);
  total.GetStandardDeviation(deviation);
  total.GetStandardDeviationSd(cellsDeviation);
  total.GetMinimum(lowest.z, lowest.x, lowest.y);
  total.GetMaximum(highest.z, highest.x, highest.y);
  const bool hasDuration = total.TotalDuration(duration);

  nlohmann::ordered_json json;
  json["used_cells"] = total.UsedCells();
  json["used_area"] = total.UsedArea();
  json["empty_area"] = total.EmptyArea();
  json["unused_area"] = NumberOrNull(hasPolygon ? total.UnusedArea() : EmptyDouble());
  json["average"] = NumberOrNull(average);
  json["standard_deviation"] = NumberOrNull(deviation);
  json["cells_standard_deviation"] = NumberOrNull(cellsDeviation);
  json["minimum"] = PointOrNull(lowest.z, lowest.x, lowest.y);
  json["maximum"] = PointOrNull(highest.z, highest.x, highest.y);
  json["total_number"] = total.TotalNumber();
  json["total_duration"] = NumberOrNull(hasDuration ? static_cast<double>(duration) : EmptyDouble());
  json["latest_time"] = nullptr;
  if (total.LatestTime() != 0) json["latest_time"] = total.LatestTime();
  return json.dump() + "\n";
}

class Stats {
 public:
  Stats(const StatsOptions& options, const CommandContext& context)
      : options_(options), context_(context), results_(options.results) {}

  int Run() {
    if (const int status = LookAtNames(); status != kDone) return status;
    if (!LookAtEverything()) return kCouldNotBeDone;
    if (StopRequested()) return context_.Stopped("nothing was written");
    memfile lines;
    std::string report;
    const int status = Walk(lines, report);
    if (status != kDone) return status;
    if (results_.IsWanted() && !results_.Append(context_, lines)) return kCouldNotBeDone;
    return context_.PrintResult(report);
  }

 private:
  int LookAtNames() const {
    if (options_.results == "-") {
      return context_.Misuse("--results: a list is a file to append to", "name one; the report is on standard output");
    }
    const struct {
      const std::string& path;
      const char* name;
    } inputs[] = {{options_.model, "model"}, {options_.polygon, "polygon"}, {options_.project.project, "project file"}};
    for (const auto& input : inputs) {
      if (!IsSameFile(options_.results, input.path)) continue;
      return context_.Misuse(std::string("the results would be appended to the ") + input.name,
                             "name another file with --results");
    }
    return kDone;
  }

  bool LookAtEverything() {
    // Surfaces aren't converted, so that their label has to stay.
    if (!UseProject(context_, options_.project, ProjectOptions::UnitsOf::kHeights)) return false;
    if (!options_.polygon.empty() && !LoadPolygon(context_, options_.polygon, polygon_)) return false;
    WarnOfOverlap(context_, options_.polygon, polygon_);
    model_ = OpenWholeForReading(context_, options_.model);
    if (!model_) return false;
    if (!model_->HasBlockId(dVAL)) {
      context_.Fail(options_.model, "records no VAL", "statistics are those of the mean heights");
      return false;
    }
    if (results_.IsWanted() && !results_.LookAt(context_)) return false;
    if (options_.rect && !MeetsModel(context_, "the rectangle", *options_.rect, *model_)) return false;
    if (options_.polygon.empty()) return true;
    return MeetsModel(context_, options_.polygon, polygon_, *model_) && CutPolygon();
  }

  /// Cells at the rectangle's edges count with what is in both.
  bool CutPolygon() {
    if (!options_.rect) return true;
    PolyClipLine cut;
    if (!polygon_.ClipToPage(*options_.rect, cut)) {
      context_.Fail(options_.polygon, "lies outside the rectangle", "check --rect");
      return false;
    }
    polygon_ = cut;
    return true;
  }

  /// The rectangle without what lies beyond all areas, of which nothing counts.
  Page WalkedRect() const {
    Page walked = options_.rect.value_or(Page());
    Page extents;
    if (FindExtents(*model_, extents)) extents.ClipRect(walked);
    return walked;
  }

  int Walk(memfile& lines, std::string& report) {
    const bool hasPolygon = !options_.polygon.empty();
    const std::wstring clipName = hasPolygon ? PolygonName(options_.polygon) : std::wstring();
    auto total = std::make_unique<DtmTotalProcessor>(!options_.json, clipName, results_.IsWanted() ? &lines : nullptr,
                                                     results_.IsNew());
    if (options_.rect) total->SetRect(*options_.rect);
    DtmProcess process;
    const Page walked = WalkedRect();
    const int step = process.AddProcessStep(&*model_, 0, options_.rect ? &walked : nullptr, false, nullptr);
    if (hasPolygon) {
      total->SetClippingPolygon(polygon_);
      process.AddProcessor(step, std::make_unique<DtmPolyClipper>(polygon_, false, false).release());
    }
    const DtmTotalProcessor& figures = *total;
    process.AddProcessor(step, total.release());

    const ReportKeeper keeper;
    int result = ProcessThread::kFailed;
    {
      ProcessThread thread(L"vakdtm stats", nullptr, true, nullptr, false);
      process.Init(&thread);
      result = thread.DoModal();
      if (result == ProcessThread::kDone && options_.json) report = JsonOf(figures, hasPolygon);
    }  // the processor reports when it goes
    if (result == ProcessThread::kStopped) return context_.Stopped("nothing was written");
    if (result != ProcessThread::kDone || !IsWholeRead(*model_)) return FailReading(context_, options_.model, *model_);
    if (!options_.json) report = keeper.Text();
    return kDone;
  }

  const StatsOptions& options_;
  const CommandContext& context_;
  ResultList results_;
  PolyClipLine polygon_;
  ModelFile model_;
};

}  // namespace

void AddStatsCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<StatsOptions>();
  CLI::App* command = AddSubcommand(app, context,
                                    {"stats", "Reports surface, mean, deviation and extremes of a model's heights.",
                                     "vakdtm stats harbour.dtm --polygon berth.geojson --results berths.csv"},
                                    [options, &context] { return Stats(*options, context).Run(); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to read"));
  AddText(*command, "--polygon", options->polygon, "FILE",
          "Counts what lies in a polygon: GeoJSON, or a text with a vertex a line");
  AddRect(*command, "--rect", options->rect, "Counts what lies in a rectangle, in metres");
  AddText(*command, "--results", options->results, "FILE", "Appends the figures as a line to this list");
  AddProjectOptions(*command, options->project);
  AddFlag(*command, "--json", options->json, "Prints JSON, in metres");
}

}  // namespace vak
