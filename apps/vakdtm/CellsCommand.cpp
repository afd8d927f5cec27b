#include <algorithm>
#include <cmath>
#include <memory>

#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"

#include "Command.h"
#include "ModelFile.h"
#include "ProgressBar.h"
#include "ResultFile.h"
#include "StopSignals.h"

namespace vak {
namespace {

constexpr std::uint64_t kShortest = ~std::uint64_t{0};

struct CellsOptions {
  std::string model;
  std::string blocks = "VAL";
  std::uint64_t digits = kShortest;
  std::string output = "-";
};

class CellWriter {
 public:
  CellWriter(DtmUpdateFile& model, std::vector<int> blocks, const CellsOptions& options, ResultFile& output)
      : model_(model), access_(&model), blocks_(std::move(blocks)), options_(options), output_(output) {
    values_.resize(blocks_.size());
  }

  /// @return false when the output failed.
  bool WriteArea(const DtmArea& area) {
    for (int cell = 0; cell < area.AreaSize() * area.AreaSize(); ++cell) {
      int row = 0;
      int col = 0;
      area.CalcRowCol(cell, row, col);
      if (HoldsValue(row, col) && !WriteCell(row, col)) return false;
    }
    return true;
  }

 private:
  bool HoldsValue(int row, int col) {
    bool any = false;
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      access_.GetDoubleValue(row, col, blocks_[i], values_[i]);
      any = any || !IsEmptyValue(values_[i]);
    }
    return any;
  }

  bool WriteCell(int row, int col) {
    double x = 0;
    double y = 0;
    model_.CalcXY(row, col, x, y);
    line_.clear();
    Append(x);
    line_ += ' ';
    Append(y);
    for (const double value : values_) {
      line_ += ' ';
      Append(value);
    }
    line_ += '\n';
    return output_.Write(line_);
  }

  void Append(double value) {
    if (options_.digits == kShortest) {
      AppendNumber(line_, value);
    } else {
      AppendFixed(line_, value, static_cast<int>(options_.digits));
    }
  }

  DtmUpdateFile& model_;
  DtmAccess access_;
  std::vector<int> blocks_;
  const CellsOptions& options_;
  ResultFile& output_;
  std::vector<double> values_;
  std::string line_;
};

std::vector<DtmArea*> AreasInFileOrder(const DtmUpdateFile& model) {
  std::vector<DtmArea*> areas;
  for (int i = 0; DtmArea* area = model.GetArea(i); ++i) areas.push_back(area);
  std::stable_sort(areas.begin(), areas.end(),
                   [](const DtmArea* a, const DtmArea* b) { return a->BlockPosition() < b->BlockPosition(); });
  return areas;
}

int FailWriting(const CommandContext& context, const ResultFile& output) {
  if (StopRequested()) return context.Stopped("nothing was kept");
  if (output.ReaderGone()) return kCouldNotBeDone;
  return context.Fail(output.Name(), "cannot write: " + output.Error(), "name another file with -o");
}

int Cells(const CellsOptions& options, const CommandContext& context) {
  std::vector<int> blocks;
  std::string error;
  if (!ParseBlockList(options.blocks, blocks, error)) {
    return context.Misuse("--blocks: " + error, "name them as in --blocks VAL,NUM");
  }
  const ModelFile model = OpenForReading(context, options.model);
  if (!model) return kCouldNotBeDone;
  for (const int id : blocks) {
    if (!model->HasBlockId(id)) {
      return context.Fail(options.model, "records no " + BlockLabel(id), "ask \"vakdtm info\" which kinds it has");
    }
  }
  if (IsSameFile(options.output, options.model)) {
    return context.Misuse("the model would be replaced by its own cells", "name another file with -o");
  }
  ResultFile output;
  if (!output.Open(options.output)) return FailWriting(context, output);

  ProgressBar bar(context);
  CellWriter writer(*model, blocks, options, output);
  const std::vector<DtmArea*> areas = AreasInFileOrder(*model);
  std::int64_t unreadable = 0;
  for (std::size_t i = 0; i < areas.size(); ++i) {
    if (StopRequested()) return context.Stopped("nothing was kept");
    if (!writer.WriteArea(*areas[i])) return FailWriting(context, output);
    unreadable += areas[i]->HasReadError() ? 1 : 0;
    bar.Show(static_cast<double>(i + 1) / static_cast<double>(areas.size()));
  }
  if (!output.Commit()) return FailWriting(context, output);
  if (unreadable > 0 || model->WalkStoppedAt() >= 0) {
    const std::string what = unreadable > 0 ? Counted(unreadable, "area") + " cannot be read"
                                            : "damaged at offset " + std::to_string(model->WalkStoppedAt());
    return context.Fail(options.model, what + ", the cells of the others were written",
                        "run \"vakdtm verify " + options.model + "\"");
  }
  return kDone;
}

}  // namespace

void AddCellsCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<CellsOptions>();
  CLI::App* command = AddSubcommand(app, context,
                                    {"cells", "Writes x, y and the values of every cell that has one, a line each.",
                                     "vakdtm cells harbour.dtm --blocks VAL,NUM,SDV -o cells.txt"},
                                    [options, &context] { return Cells(*options, context); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to read"));
  AddText(*command, "--blocks", options->blocks, "LIST",
          "Kinds of value, by mnemonic (default VAL); nan where there is none");
  AddWholeNumber(*command, "--digits", options->digits,
                 "Decimals of every number (default: the shortest text that reads back to the same number)", 0, 99);
  AddText(*command, "-o,--output", options->output, "FILE", "File to write; - for standard output (default)");
}

}  // namespace vak
