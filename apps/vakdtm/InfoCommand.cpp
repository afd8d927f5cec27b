#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>

#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/store/DtmBlockId.h"

#include "Command.h"
#include "ModelFile.h"

namespace vak {
namespace {

struct InfoOptions {
  std::string model;
  bool json = false;
};

struct ZRange {
  float lo = kNoLowestZ;
  float hi = kNoHighestZ;
  /// Not where nothing was seen, nor where a height is beyond what the file's floats hold.
  bool IsKnown() const { return lo <= hi && std::isfinite(lo) && std::isfinite(hi); }
  void Add(float low, float high) {
    lo = std::min(lo, low);
    hi = std::max(hi, high);
  }
};

/// The ranges that the areas keep, and for those that keep none, what their heights say; nothing is stored.
ZRange FindZRange(DtmUpdateFile& model) {
  ZRange range;
  for (int i = 0; DtmArea* area = model.GetArea(i); ++i) {
    float lo = 0;
    float hi = 0;
    if (area->GetMinMaxZ(lo, hi)) {
      range.Add(lo, hi);
      continue;
    }
    for (int slot = 0; slot < model.NumBlockIds(); ++slot) {
      if (!DtmBlockId(model.GetBlockId(slot)).IsZ()) continue;
      DtmDataBlock* const block = area->OpenDataBlockAt(slot);
      if (!block) continue;
      block->FindMinMax(range.lo, range.hi);
      block->Close();
    }
  }
  return range;
}

const char* OpenedByText(DtmOpenedBy openedBy) {
  switch (openedBy) {
    case DtmOpenedBy::kIndex:
      return "index";
    case DtmOpenedBy::kOldIndex:
      return "old index";
    default:
      return "walk";
  }
}

/// As the file keeps it: the shortest text that reads back to the same float.
std::string FloatText(float value) {
  std::array<char, 64> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr};
}

std::string Text(double value) {
  std::string text;
  AppendNumber(text, value);
  return text;
}

std::string JsonOf(DtmUpdateFile& model) {
  nlohmann::ordered_json json;
  json["cell_size"] = model.CellSize();
  json["area_size"] = model.AreaSize();
  json["blocks"] = nlohmann::ordered_json::array();
  for (int i = 0; i < model.NumBlockIds(); ++i) json["blocks"].push_back(BlockLabel(model.GetBlockId(i)));
  json["areas"] = model.NumAreas();
  json["extents"] = nullptr;
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  if (model.GetAreaExtents(x0, y0, x1, y1)) {
    json["extents"] = {{"x0", x0}, {"y0", y0}, {"x1", x1}, {"y1", y1}};
  }
  const ZRange range = FindZRange(model);
  json["z_range"] = nullptr;
  if (range.IsKnown()) json["z_range"] = {range.lo, range.hi};
  json["opened_by"] = OpenedByText(model.OpenedBy());
  json["file_size"] = model.FileSize();
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string TextOf(DtmUpdateFile& model) {
  std::string blocks;
  for (int i = 0; i < model.NumBlockIds(); ++i) blocks += (i == 0 ? "" : " ") + BlockLabel(model.GetBlockId(i));
  std::string text = "cell size   " + Text(model.CellSize()) + " m\narea size   " + std::to_string(model.AreaSize()) +
                     " cells\nblocks      " + blocks + "\nareas       " + std::to_string(model.NumAreas()) + "\n";
  double x0 = 0;
  double y0 = 0;
  double x1 = 0;
  double y1 = 0;
  if (model.GetAreaExtents(x0, y0, x1, y1)) {
    text += "extents     x " + Text(x0) + " to " + Text(x1) + ", y " + Text(y0) + " to " + Text(y1) + "\n";
  }
  const ZRange range = FindZRange(model);
  if (range.IsKnown()) text += "z range     " + FloatText(range.lo) + " to " + FloatText(range.hi) + "\n";
  return text + "opened by   " + OpenedByText(model.OpenedBy()) + "\nfile size   " + std::to_string(model.FileSize()) +
         " bytes\n";
}

int Info(const InfoOptions& options, const CommandContext& context) {
  const ModelFile model = OpenForReading(context, options.model);
  if (!model) return kCouldNotBeDone;
  if (model->WalkStoppedAt() >= 0) {
    context.Warn(options.model,
                 "damaged at offset " + std::to_string(model->WalkStoppedAt()) + ", what lies behind is not shown",
                 "run \"vakdtm verify " + options.model + "\"");
  }
  return context.PrintResult(options.json ? JsonOf(*model) : TextOf(*model));
}

}  // namespace

void AddInfoCommand(CLI::App& app, CommandContext& context) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* command = AddSubcommand(app, context,
                                    {"info", "Tells what a model is like: cell size, blocks, areas, extents, heights.",
                                     "vakdtm info harbour.dtm --json"},
                                    [options, &context] { return Info(*options, context); });
  Required(AddText(*command, "model", options->model, "MODEL", "Model to look at"));
  AddFlag(*command, "--json", options->json, "Prints JSON");
}

}  // namespace vak
