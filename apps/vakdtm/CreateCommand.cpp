#include <memory>
#include <utility>

#include "Command.h"
#include "ModelFile.h"

namespace vak {
namespace {

struct CreateOptions {
  std::string model;
  double cellSize = 0;
  std::uint64_t areaSize = 64;
  std::string blocks;
  bool force = false;
};

int Create(const CreateOptions& options, const CommandContext& context) {
  std::vector<int> blocks = DefaultBlocks();
  std::string error;
  if (!options.blocks.empty() && !ParseBlocksToCreate(options.blocks, blocks, error)) {
    return context.Misuse("--blocks: " + error, "name them as in --blocks VAL,NUM");
  }
  using Existing = UnfinishedFile::Existing;
  const WhenThere whenThere{options.force ? Existing::kReplace : Existing::kRefuse, "exists already",
                            "name another file, or say --force to replace it"};
  const ModelSettings settings{options.cellSize, static_cast<int>(options.areaSize), std::move(blocks)};
  return CreateModel(context, options.model, settings, whenThere) ? kDone : kCouldNotBeDone;
}

}  // namespace

void AddCreateCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<CreateOptions>();
  CLI::App* command = AddSubcommand(
      app, context,
      {"create", "Makes a new, empty model.", "vakdtm create harbour.dtm --cell-size 0.5 --blocks VAL,NUM,SDV"},
      [options, &context] { return Create(*options, context); });
  Required(AddText(*command, "model", options->model, "MODEL", "File to make"));
  Required(AddNumber(*command, "--cell-size", options->cellSize, "Side of a cell in metres",
                     std::numeric_limits<double>::min()));
  AddWholeNumber(*command, "--area-size", options->areaSize, "Cells on a side of an area (default 64)", 1, 46340);
  AddText(*command, "--blocks", options->blocks, "LIST",
          "Kinds of value to record, by mnemonic, in this order; MIN and MAX bring their positions (default "
          "NUM,VAL,SDV,MIN,MAX,TIM)");
  AddFlag(*command, "--force", options->force, "Replace a file that exists");
}

}  // namespace vak
