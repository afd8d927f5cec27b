#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmVerifier.h"

#include "Command.h"
#include "ProgressBar.h"
#include "ResultFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

struct VerifyOptions {
  std::string model;
  bool repair = false;
};

struct Words {
  const char* what;
  const char* remedy;
};

Words Explain(StreamError error) {
  switch (error) {
    case StreamError::kMissing:
      return {"there is no such file", "check the name"};
    case StreamError::kNotReadable:
      return {"cannot be read", "check the permissions of the file and its folder"};
    case StreamError::kNotWritable:
      return {"cannot be written", "check the permissions of the file and its folder"};
    case StreamError::kFolder:
      return {"is a folder", "name a file"};
    case StreamError::kHeldByWriter:
      return {"another process is writing it", "wait until that has ended"};
    case StreamError::kLinkNowhere:
      return {"is a link that leads nowhere", "mend the link, or name a file"};
    case StreamError::kNameTooLong:
      return {"the name is too long", "check the name"};
    case StreamError::kNoSpace:
      return {"no space left on the disk", "make room"};
    default:
      return {"cannot be opened", "name a grid model"};
  }
}

const char* SeverityWord(DtmFaultSeverity severity) {
  switch (severity) {
    case DtmFaultSeverity::kFault:
      return "fault";
    case DtmFaultSeverity::kWarning:
      return "warning";
    default:
      return "note";
  }
}

/// Verifies, and repairs if asked to, one file.
class Verification {
 public:
  Verification(const VerifyOptions& options, const CommandContext& context)
      : options_(options), context_(context), stream_(FromUtf8(options.model).c_str(), false, options.repair) {
    if (!options.repair) stream_.RefuseWriting();
  }

  int Run() {
    if (!stream_.IsOpen()) return FailOn(stream_.LastError());
    if (!Look()) return status_;
    if (!options_.repair) return verifier_.Counts().faults > 0 ? kCouldNotBeDone : kDone;
    if (verifier_.Counts().mendable == 0) return FinishUnrepaired();
    return Repair();
  }

 private:
  int FailOn(StreamError error) const {
    const Words words = Explain(error);
    return context_.Fail(options_.model, words.what, words.remedy);
  }

  int FailToPrint() const {
    if (out_->ReaderGone()) return kCouldNotBeDone;
    return context_.Fail(out_->Name(), "cannot write: " + out_->Error(), "");
  }

  bool GiveUp(int status) {
    status_ = status;
    return false;
  }

  bool OpenOutput() {
    out_ = std::make_unique<ResultFile>();
    return out_->Open("-");
  }

  void PrintLine(const std::string& line) {
    EraseProgressLine();
    printed_ = out_->Write(line + "\n") && printed_;
  }

  /// Prints what there is to say about the file as it stands. @return false when the work ends here with `status_`.
  bool Look() {
    bool isModel = true;
    bool finished = false;
    if (!OpenOutput()) return GiveUp(FailToPrint());
    {
      ProgressBar bar(context_);
      verifier_.SetFaultSink([&](const DtmFault& fault) {
        isModel = isModel && fault.kind != DtmFaultKind::kMagic;
        if (isModel) PrintFault(fault);
      });
      verifier_.SetProgressSink([&](double done) {
        bar.Show(done);
        return printed_ && !StopRequested();
      });
      finished = verifier_.Verify();
    }
    if (!isModel) return GiveUp(context_.Fail(options_.model, "is no grid model", "check the name"));
    if (finished && !context_.quiet) PrintLine(Summary());
    if (!out_->Commit() || !printed_) return GiveUp(FailToPrint());
    return finished || GiveUp(context_.Stopped("the file was looked at in part"));
  }

  void PrintFault(const DtmFault& fault) {
    if (context_.quiet && fault.Severity() != DtmFaultSeverity::kFault) return;
    PrintLine(std::to_string(fault.offset) + ": " + SeverityWord(fault.Severity()) + ": " + fault.Text());
  }

  std::string Summary() const {
    const DtmVerifyCounts& counts = verifier_.Counts();
    return Counted(counts.areas, "area") + ", " + Counted(counts.faults, "fault") + ", " +
           Counted(counts.warnings, "warning");
  }

  int FinishUnrepaired() {
    if (verifier_.Counts().faults == 0) {
      if (context_.quiet) return kDone;
      if (!OpenOutput()) return FailToPrint();
      PrintLine("nothing to repair");
      return out_->Commit() ? kDone : FailToPrint();
    }
    if (!verifier_.IsHeaderUsable()) {
      return context_.Fail(options_.model, "the header is damaged, which can't be repaired", "nothing was changed");
    }
    return context_.Fail(options_.model, "can't be repaired", "nothing was changed");
  }

  int Repair() {
    const std::string copy = options_.model + ".before-repair";
    if (!KeepCopy(copy)) return status_;
    DtmRepairReport report;
    bool done = false;
    {
      ProgressBar bar(context_);
      verifier_.SetFaultSink(nullptr);
      verifier_.SetProgressSink([&](double part) {
        bar.Show(part);
        return !StopRequested();
      });
      done = verifier_.Repair(report);
    }
    if (!done && !report.changed && StopRequested())
      return context_.Stopped("nothing was changed, and " + copy + " is a copy");
    if (!done) {
      const bool isFull = stream_.LastError() == StreamError::kNoSpace;
      return context_.Fail(options_.model,
                           isFull ? "no space left for the repair" : "the repair could not be completed",
                           "the file as it was is " + copy);
    }
    if (!OpenOutput()) return FailToPrint();
    PrintRepair(report, copy);
    if (!out_->Commit() || !printed_) return FailToPrint();
    if (!Look()) return status_;
    return verifier_.Counts().faults > 0 ? kCouldNotBeDone : kDone;
  }

  /// Copies the file before anything is changed. An earlier copy is never touched: it may be the only good one.
  bool KeepCopy(const std::string& copy) {
    std::error_code ignored;
    if (std::filesystem::symlink_status(copy, ignored).type() != std::filesystem::file_type::not_found) {
      return GiveUp(context_.Fail(copy, "is there already, from an earlier repair", "move it away or delete it"));
    }
    if (CopyFileW(FromUtf8(options_.model), FromUtf8(copy), false)) return true;
    return GiveUp(context_.Fail(copy, "cannot be written, so nothing was repaired",
                                "make room, or check the folder's permissions"));
  }

  void PrintRepair(const DtmRepairReport& report, const std::string& copy) {
    for (const DtmRepairReport::LostArea& lost : report.lost) {
      const std::string place =
          lost.hasPlace ? "the area at row " + std::to_string(lost.row) + ", column " + std::to_string(lost.col)
                        : std::string("an area without a place");
      PrintLine(std::to_string(lost.offset) + ": given up: " + place +
                (lost.isRepeated ? ", which is there already" : ", which isn't whole"));
    }
    if (context_.quiet) return;
    PrintLine("kept " + Counted(report.kept, "area") + ", moved " + std::to_string(report.moved) + ", put in order " +
              std::to_string(report.rewritten) + ", gave up " + std::to_string(report.lost.size()) + " and " +
              Counted(report.bytesLeftOut, "byte") + " in all");
    PrintLine("the file as it was: " + copy);
  }

  const VerifyOptions& options_;
  const CommandContext& context_;
  HugeFileStream stream_;
  DtmVerifier verifier_{stream_};
  std::unique_ptr<ResultFile> out_;
  bool printed_ = true;
  int status_ = kDone;
};

}  // namespace

void AddVerifyCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<VerifyOptions>();
  CLI::App* command =
      AddSubcommand(app, context,
                    {"verify", "Checks every byte of a model's layout and prints each fault with its offset.",
                     "vakdtm verify harbour.dtm\nvakdtm verify harbour.dtm --repair"},
                    [options, &context] { return Verification(*options, context).Run(); });
  Required(AddText(*command, "model", options->model, "MODEL", "Grid model to look at"));
  AddFlag(*command, "--repair", options->repair,
          "Rebuild a damaged file from its sound areas, after copying it to MODEL.before-repair");
}

}  // namespace vak
