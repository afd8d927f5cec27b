#include "ModelFile.h"

#include <algorithm>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"

namespace vak {
namespace {

struct Words {
  const char* what;
  const char* remedy;
};

Words Explain(DtmOpenError error, bool create) {
  switch (error) {
    case DtmOpenError::kMissing:
      return create ? Words{"no such folder", "make the folder first"} : Words{"no such file", "check the name"};
    case DtmOpenError::kNotReadable:
      return {"cannot be read", "check the file's permissions"};
    case DtmOpenError::kNotWritable:
      return {"cannot be written", "check the permissions of the file and its folder"};
    case DtmOpenError::kFolder:
      return {"is a folder", "name a file"};
    case DtmOpenError::kNoModel:
      return {"is no grid model, or its header is damaged", "check the name"};
    case DtmOpenError::kHeldByWriter:
      return {"another process is writing it", "wait until that has ended"};
    case DtmOpenError::kNoSpace:
      return {"no space left on the disk", "make room and try again"};
    case DtmOpenError::kInUse:
      return {"is in use", "close it first"};
    case DtmOpenError::kNoName:
      return {"is no name for a model", "name a file"};
    case DtmOpenError::kBadSettings:
      return {"no model can have this cell size, area size and blocks", "areas must stay below 2 GiB"};
    default:
      return {"cannot be opened", "check the file"};
  }
}

ModelFile Opened(const CommandContext& context, const std::string& path, DtmUpdateFile* model, bool create) {
  if (model) return ModelFile(model);
  const Words words = Explain(DtmManager::LastOpenError(), create);
  context.Fail(path, words.what, words.remedy);
  return {};
}

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t from = 0;;) {
    const std::size_t comma = text.find(',', from);
    parts.push_back(text.substr(from, comma - from));
    if (comma == std::string::npos) return parts;
    from = comma + 1;
  }
}

std::string AllMnemonics() {
  std::string all;
  for (int i = 0; i < DtmBlockId::NumBlockIds(); ++i) {
    DtmBlockId id(0);
    id.SetFromIndex(i);
    all += (i == 0 ? "" : ", ") + ToUtf8(id.Mnemonic());
  }
  return all;
}

}  // namespace

ModelFile& ModelFile::operator=(ModelFile&& other) noexcept {
  Close();
  model_ = std::exchange(other.model_, nullptr);
  return *this;
}

void ModelFile::Close() {
  if (model_) std::exchange(model_, nullptr)->Close();
}

ModelFile OpenForReading(const CommandContext& context, const std::string& path) {
  return Opened(context, path, DtmManager::GetDtmManager().OpenDtmUntouched(FromUtf8(path)), false);
}

HeldModel::HeldModel(std::string path, double cellSize, std::unique_ptr<HugeFileStream> stream)
    : path_(std::move(path)), cellSize_(cellSize), stream_(std::move(stream)) {}
HeldModel::~HeldModel() = default;
HeldModel::HeldModel(HeldModel&& other) noexcept = default;
HeldModel& HeldModel::operator=(HeldModel&& other) noexcept = default;

ModelFile HeldModel::Open(const CommandContext& context) {
  stream_.reset();  // the model's own stream takes the lock
  return Opened(context, path_, DtmManager::GetDtmManager().OpenDtm(FromUtf8(path_), true, nullptr), false);
}

HeldModel HoldForWriting(const CommandContext& context, const std::string& path) {
  // Looked at without being able to write, so that a damaged file stays as it is.
  const ModelFile looked = OpenForReading(context, path);
  if (!looked) return {};
  auto stream = std::make_unique<HugeFileStream>(looked->FileName().c_str(), false, true);
  if (!stream->IsOpen()) {
    const bool held = stream->LastError() == StreamError::kHeldByWriter;
    const Words words = Explain(held ? DtmOpenError::kHeldByWriter : DtmOpenError::kNotWritable, false);
    context.Fail(path, words.what, words.remedy);
    return {};
  }
  if (looked->WalkStoppedAt() >= 0) {
    context.Fail(path, "damaged at offset " + std::to_string(looked->WalkStoppedAt()) + ", nothing was changed",
                 "run \"vakdtm verify --repair " + path + "\" first");
    return {};
  }
  return {path, looked->CellSize(), std::move(stream)};
}

ModelFile CreateModel(const CommandContext& context, const std::string& path, double cellSize, int areaSize,
                      const std::vector<int>& blocks) {
  if (path.empty()) {
    context.Fail("''", "is no name for a model", "name a file");
    return {};
  }
  const DtmManager::create_params params{areaSize, cellSize, blocks};
  return Opened(context, path, DtmManager::GetDtmManager().OpenDtm(FromUtf8(path), true, &params), true);
}

std::vector<int> DefaultBlocks() { return {iNUM, dVAL, dSDV, dMIN, fXMN, fYMN, dMAX, fXMX, fYMX, tTIM}; }

bool ParseBlockList(const std::string& text, std::vector<int>& blocks, std::string& error) {
  std::vector<int> parsed;
  for (const std::string& name : SplitAtCommas(text)) {
    DtmBlockId id(0);
    id.SetFromMnemonic(FromUtf8(name));
    if (!id) {
      error = "no kind of value is called \"" + name + "\"; there are " + AllMnemonics();
      return false;
    }
    if (std::find(parsed.begin(), parsed.end(), id.BlockId()) != parsed.end()) {
      error = name + " is named twice";
      return false;
    }
    parsed.push_back(id.BlockId());
  }
  blocks = std::move(parsed);
  return true;
}

bool ParseBlocksToCreate(const std::string& text, std::vector<int>& blocks, std::string& error) {
  std::vector<int> named;
  if (!ParseBlockList(text, named, error)) return false;
  blocks.clear();
  const auto bring = [&](int id) {
    if (std::find(named.begin(), named.end(), id) == named.end()) blocks.push_back(id);
  };
  for (const int id : named) {
    blocks.push_back(id);
    if (id == dMIN) {
      bring(fXMN);
      bring(fYMN);
    } else if (id == dMAX) {
      bring(fXMX);
      bring(fYMX);
    }
  }
  return true;
}

std::string BlockLabel(int id) {
  const DtmBlockId known(id);
  if (known.IsValid()) return ToUtf8(known.Mnemonic());
  std::string letters;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto letter = static_cast<unsigned char>(static_cast<unsigned>(id) >> shift);
    letters += letter >= 0x20 && letter < 0x7F ? static_cast<char>(letter) : '?';
  }
  return letters;
}

}  // namespace vak
