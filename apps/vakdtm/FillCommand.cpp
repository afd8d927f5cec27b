#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "vakdtm/repair/DtmCircularFill.h"
#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/platform/FileHandle.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"

#include "Command.h"
#include "ModelFile.h"
#include "PolygonInput.h"
#include "ResultFile.h"
#include "StopSignals.h"
#include "UnfinishedFile.h"

namespace vak {
namespace {

/// The search's table has four million entries then.
constexpr std::uint64_t kLargestRadius = 1000;

struct FillOptions {
  std::string model;
  std::uint64_t radius = 0;
  std::string block;  // empty: all heights
  std::string polygon;
  std::optional<Page> rect;
  bool gaps = false;
  bool inPlace = false;
  std::string output;
  bool json = false;
};

/// What a fill writes to: the model itself, or a copy of it that appears under its name when it is complete.
class FillTarget {
 public:
  FillTarget(const CommandContext& context, const std::string& model, const std::string& output)
      : context_(context), model_(model), output_(output) {}

  /// Finds the model good and kept from other writers, and the output's name free. Nothing is changed. @return a
  /// status.
  int LookAt() {
    if (IsCopy()) {
      original_ = OpenWholeForReading(context_, model_);
      if (!original_) return kCouldNotBeDone;
      struct stat status = {};
      if (lstat(output_.c_str(), &status) != 0) return kDone;
      if (IsSameFile(output_, model_)) return context_.Misuse("-o names the model itself", "say --in-place");
      return context_.Fail(output_, "exists already", "name another file with -o");
    }
    held_ = HoldForWriting(context_, model_);
    if (!held_) return kCouldNotBeDone;
    original_ = OpenForReading(context_, model_);
    return original_ ? kDone : kCouldNotBeDone;
  }

  /// The model as it is, before `Open`.
  DtmUpdateFile& Original() const { return *original_; }

  /// @return what is to be changed; none, with a status and what there is to say said, when there is none.
  ModelFile Open(int& status) {
    status = kCouldNotBeDone;
    original_.Close();
    if (!IsCopy()) return held_.Open(context_);
    status = Copy();
    return status == kDone ? OpenForWriting(context_, copy_.Path()) : ModelFile();
  }

  /// The name for messages.
  const std::string& Name() const { return IsCopy() ? output_ : model_; }

  /// What a stop or a failure leaves.
  std::string State() const { return IsCopy() ? "nothing was kept" : "the model holds what was filled so far"; }

  /// Lets the copy appear. @return a status.
  int Commit() {
    if (!IsCopy() || copy_.Commit(UnfinishedFile::Existing::kRefuse)) return kDone;
    const int error = errno;
    if (error == EEXIST) {
      return context_.Fail(output_, "somebody else has made it meanwhile, nothing was kept", "name another file");
    }
    return FailWriting(error);
  }

 private:
  bool IsCopy() const { return !output_.empty(); }

  int FailWriting(int error) const {
    return context_.Fail(output_, "cannot write: " + WriteErrorText(error),
                         IsLackOfRoom(error) ? "make room, or name another file with -o" : "name another file with -o");
  }

  int Copy() {
    const FileHandle from = OpenDescriptor(model_.c_str(), O_RDONLY);
    if (!from.IsOpen()) return context_.Fail(model_, "cannot be opened any more", "check the file");
    const FileHandle to(copy_.Make(output_));
    if (!to.IsOpen()) return FailWriting(errno);
    struct stat before = {};
    struct stat after = {};
    if (fstat(from.Get(), &before) != 0) return context_.Fail(model_, "cannot be read", "check the file");
    std::vector<char> buffer(std::size_t{1} << 20);
    for (;;) {
      if (StopRequested()) return context_.Stopped(State());
      const ssize_t count = read(from.Get(), buffer.data(), buffer.size());
      if (count == 0) break;
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return context_.Fail(model_, "cannot be read to its end", "check the file");
      for (ssize_t done = 0; done < count;) {
        const ssize_t written = write(to.Get(), buffer.data() + done, static_cast<std::size_t>(count - done));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return FailWriting(errno);
        done += written;
      }
    }
    // A half-written sounding would do no harm, half an index would.
    const bool isSame = fstat(from.Get(), &after) == 0 && before.st_size == after.st_size &&
                        before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
                        before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
    if (isSame) return kDone;
    return context_.Fail(model_, "was changed by another process while it was copied", "try again");
  }

  const CommandContext& context_;
  const std::string& model_;
  const std::string& output_;
  HeldModel held_;
  ModelFile original_;
  UnfinishedFile copy_;
};

/// One call of `fill circular`.
class CircularFill {
 public:
  CircularFill(const FillOptions& options, const CommandContext& context)
      : options_(options), context_(context), target_(context, options.model, options.output) {}

  int Run() {
    const auto start = Clock::now();
    if (const int status = LookAtEverything(); status != kDone) return status;
    if (StopRequested()) return context_.Stopped("nothing was changed");
    int status = kCouldNotBeDone;
    model_ = target_.Open(status);
    if (!model_) return status;
    status = Fill();
    if (status != kDone && status != kStopped) return status;
    const std::chrono::duration<double> seconds = Clock::now() - start;
    if (status == kStopped) return context_.Stopped(target_.State());
    status = target_.Commit();
    return status == kDone ? PrintSummary(seconds.count()) : status;
  }

 private:
  using Clock = std::chrono::steady_clock;

  /// Nothing is changed before all of this is known to be good.
  int LookAtEverything() {
    if (options_.inPlace == !options_.output.empty()) {
      return context_.Misuse(options_.inPlace ? "--in-place and -o exclude each other" : "--in-place or -o is missing",
                             "say --in-place to change the model, or -o for a filled copy");
    }
    if (options_.output == "-") return context_.Misuse("-o: a model is a file", "name one");
    if (IsSameFile(options_.output, options_.polygon)) {
      return context_.Misuse("the polygon would be replaced by the filled model", "name another file with -o");
    }
    std::string error;
    std::vector<int> blocks;
    if (!options_.block.empty() && (!ParseBlockList(options_.block, blocks, error) || blocks.size() != 1)) {
      return context_.Misuse("--block: " + (error.empty() ? "names more than one kind" : error), "name one, as VAL");
    }
    if (!blocks.empty()) block_ = blocks.front();
    if (block_ == iNUM || block_ == uFCT) {
      return context_.Misuse("--block: " + options_.block + " is counted, not measured",
                             "name a kind that is measured");
    }
    if (!options_.polygon.empty() && !LoadPolygon(context_, options_.polygon, polygon_)) return kCouldNotBeDone;
    if (const int status = target_.LookAt(); status != kDone) return status;
    return LookAtModel();
  }

  int LookAtModel() const {
    DtmUpdateFile& model = target_.Original();
    if (block_ != 0 && !model.HasBlockId(block_)) {
      return context_.Fail(options_.model, "records no " + options_.block, "ask \"vakdtm info\" which kinds it has");
    }
    if (block_ == 0 && !model.HasBlockId(dVAL) && !model.HasBlockId(dMIN) && !model.HasBlockId(dMAX)) {
      return context_.Fail(options_.model, "records no height", "name what is to be filled with --block");
    }
    if (options_.rect && !MeetsModel(context_, "the rectangle", *options_.rect, model)) return kCouldNotBeDone;
    if (!options_.polygon.empty() && !MeetsModel(context_, options_.polygon, polygon_, model)) return kCouldNotBeDone;
    if (!model.HasBlockId(iNUM)) {
      context_.Warn(options_.model, "records no NUM, so that filled cells count as measured ones",
                    "holes of any size are filled, and the edge grows outwards");
    }
    return kDone;
  }

  int Fill() {
    DtmAccess access(&*model_);
    auto fill = std::make_unique<DtmCircularFill>(access, block_, static_cast<int>(options_.radius));
    if (options_.rect) fill->SetRect(*options_.rect);
    if (!options_.polygon.empty()) fill->SetPolygon(polygon_);
    fill->SetFillGaps(options_.gaps);
    const DtmCircularFill& figures = *fill;
    const int areas = model_->NumAreas();
    const auto start = Clock::now();
    int result = ProcessThread::kFailed;
    {
      ProcessThread thread(L"vakdtm fill circular", nullptr, false, nullptr, false);
      thread.AddProcessor(fill.release(), L"");
      result = thread.DoModal();
      filled_ = figures.NumFilled();
      left_ = figures.NumLeft();
    }
    fillSeconds_ = std::chrono::duration<double>(Clock::now() - start).count();
    newAreas_ = model_->NumAreas() - areas;
    return Finish(result);
  }

  /// Writes the model out, whatever came before, and closes it.
  int Finish(int result) {
    const bool written = model_->SyncWrite() && !model_->HasLostData();
    const bool isFull = model_->LastStreamError() == StreamError::kNoSpace;
    const bool isWhole = IsWholeRead(*model_);
    model_.Close();
    if (result == ProcessThread::kFailed && !isWhole) {
      return context_.Fail(options_.model, "an area cannot be read, " + target_.State(),
                           "run \"vakdtm verify " + options_.model + "\"");
    }
    if (!written || result == ProcessThread::kFailed) {
      return context_.Fail(target_.Name(), isFull ? "no space left on the disk" : "cannot be written to the end",
                           isFull ? "make room and try again" : "check the disk");
    }
    return result == ProcessThread::kStopped ? kStopped : kDone;
  }

  int PrintSummary(double seconds) const {
    if (options_.json) {
      nlohmann::ordered_json json;
      json["filled"] = filled_;
      json["left"] = left_;
      json["new_areas"] = newAreas_;
      json["fill_seconds"] = fillSeconds_;
      json["seconds"] = seconds;
      return context_.PrintResult(json.dump() + "\n");
    }
    if (context_.quiet) return kDone;
    std::string line = Counted(filled_, "cell") + " filled";
    if (newAreas_ > 0) line += " (" + Counted(newAreas_, "new area") + ")";
    line += ", " + Counted(left_, "hole") + " left, ";
    AppendFixed(line, seconds, 2);
    return context_.PrintResult(line + " s\n");
  }

  const FillOptions& options_;
  const CommandContext& context_;
  FillTarget target_;
  int block_ = 0;
  PolyClipLine polygon_;
  ModelFile model_;
  std::int64_t filled_ = 0;
  std::int64_t left_ = 0;
  int newAreas_ = 0;
  double fillSeconds_ = 0;
};

}  // namespace

void AddFillCommand(CLI::App& app, CommandContext& context) {
  CLI::App* const group =
      AddSubcommandGroup(app, {"fill", "Fills gaps.", "vakdtm fill circular harbour.dtm --radius 10 --in-place"});
  const auto options = std::make_shared<FillOptions>();
  CLI::App* command = AddSubcommand(*group, context,
                                    {"fill circular", "Fills holes with the mean of the measured cells around them.",
                                     "vakdtm fill circular harbour.dtm --radius 10 --block VAL -o filled.dtm"},
                                    [options, &context] { return CircularFill(*options, context).Run(); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to fill"));
  Required(AddWholeNumber(*command, "--radius", options->radius, "How far a measured cell may be, in cells", 1,
                          kLargestRadius));
  AddText(*command, "--block", options->block, "KIND", "The kind of value to fill (default: VAL, MIN and MAX)");
  AddText(*command, "--polygon", options->polygon, "FILE",
          "Fills the cells whose centre lies in a polygon: GeoJSON, or a text with a vertex a line");
  AddRect(*command, "--rect", options->rect, "Fills the cells whose centre lies in a rectangle, in metres");
  AddFlag(*command, "--gaps", options->gaps, "Fills areas that the model lacks, too");
  AddFlag(*command, "--in-place", options->inPlace, "Changes the model itself");
  AddText(*command, "-o,--output", options->output, "FILE", "Leaves the model as it is and makes a filled copy");
  AddFlag(*command, "--json", options->json, "Prints the summary as JSON");
}

}  // namespace vak
