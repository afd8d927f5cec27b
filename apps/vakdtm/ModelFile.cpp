#include "ModelFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/platform/FileHandle.h"
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
      return {"cannot be read", "check the permissions of the file and its folder"};
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
    case DtmOpenError::kNotPermitted:
      return {"a folder on the way to it may not be entered", "check the permissions of the folders"};
    case DtmOpenError::kLinkNowhere:
      return {"is a link that leads nowhere", "mend the link, or name a file"};
    case DtmOpenError::kNameTooLong:
      return {"the name is too long", "check the name"};
    case DtmOpenError::kBadSettings:
      return {"no model can have this cell size, area size and blocks", "areas must stay below 2 GiB"};
    default:
      return {"cannot be opened", "check the file"};
  }
}

/// @return false, for what couldn't be done.
bool Tell(const CommandContext& context, const std::string& path, DtmOpenError error, bool create) {
  const Words words = Explain(error, create);
  context.Fail(path, words.what, words.remedy);
  return false;
}

ModelFile Opened(const CommandContext& context, const std::string& path, DtmUpdateFile* model) {
  if (!model) Tell(context, path, DtmManager::LastOpenError(), false);
  return ModelFile(model);
}

/// Locks a file that can be read against other writers. Prints why when it can't.
std::unique_ptr<HugeFileStream> Hold(const CommandContext& context, const std::string& path, const std::wstring& file) {
  auto stream = std::make_unique<HugeFileStream>(file.c_str(), false, true);
  if (stream->IsOpen()) return stream;
  const bool held = stream->LastError() == StreamError::kHeldByWriter;
  Tell(context, path, held ? DtmOpenError::kHeldByWriter : DtmOpenError::kNotWritable, false);
  return nullptr;
}

DtmOpenError ReasonNotMade(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return DtmOpenError::kMissing;
    case ENOSPC:
    case EDQUOT:
      return DtmOpenError::kNoSpace;
    case EACCES:
    case EPERM:
    case EROFS:
      return DtmOpenError::kNotWritable;
    default:
      return DtmOpenError::kOther;
  }
}

/// Makes one new model, step by step.
class Creation {
 public:
  Creation(const CommandContext& context, const std::string& path, const ModelSettings& settings,
           const WhenThere& whenThere)
      : context_(context), path_(path), settings_(settings), whenThere_(whenThere) {}

  bool Run() {
    if (!LookAtName()) return false;
    const int descriptor = unfinished_.Make(path_);
    if (descriptor < 0) return FailBeside(errno);
    close(descriptor);
    if (!Write(unfinished_.Path())) return false;
    if (!unfinished_.Commit(whenThere_.existing)) return FailBeside(errno);
    // The rename is to survive a power cut as well; where a folder can't be synced it does in its own time.
    const std::string folder = std::filesystem::path(unfinished_.Target()).parent_path().native();
    const FileHandle handle = OpenDescriptor(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (handle.IsOpen()) fsync(handle.Get());
    return true;
  }

 private:
  /// Looks at what has the name, and holds what is to be replaced.
  bool LookAtName() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_status found = fs::status(path_, error);
    if (found.type() == fs::file_type::not_found && !fs::is_symlink(path_, error)) return true;
    const bool replaces = whenThere_.existing == UnfinishedFile::Existing::kReplace;
    if (fs::exists(found) && !fs::is_directory(found) && !replaces) return FailThere();
    if (fs::is_regular_file(found)) {
      replaced_ = Hold(context_, path_, FromUtf8(path_));
      return replaced_ != nullptr;
    }
    // A folder, a device, a link to nowhere: opening tells it.
    const ModelFile opened(DtmManager::GetDtmManager().OpenDtmUntouched(FromUtf8(path_)));
    return opened ? FailThere() : Tell(context_, path_, DtmManager::LastOpenError(), true);
  }

  bool FailThere() const {
    context_.Fail(path_, whenThere_.what, whenThere_.remedy);
    return false;
  }

  /// Where the way by a second file is closed, a file that may be written is still replaced, by cutting it: its folder
  /// takes no new file, or it is mounted by itself. Then a full disk costs the old model, as everywhere else it
  /// doesn't.
  bool FailBeside(int error) {
    if (error == EEXIST) return FailThere();
    const bool closed = error == EACCES || error == EPERM || error == EBUSY;
    if (!replaced_ || !closed) return Tell(context_, path_, ReasonNotMade(error), true);
    unfinished_.Abandon();
    replaced_.reset();  // the new model takes the lock before it cuts
    return Write(path_);
  }

  bool Write(const std::string& file) const {
    const DtmManager::create_params params{settings_.areaSize, settings_.cellSize, settings_.blocks};
    const ModelFile model(DtmManager::GetDtmManager().OpenDtm(FromUtf8(file), true, &params));
    if (!model) return Tell(context_, path_, DtmManager::LastOpenError(), true);
    // The last closing writes the index too, but keeps quiet about it.
    if (model->SyncWrite()) return true;
    const bool full = model->LastStreamError() == StreamError::kNoSpace;
    if (full) return Tell(context_, path_, DtmOpenError::kNoSpace, true);
    context_.Fail(path_, "cannot be written to the end", "check the disk");
    return false;
  }

  const CommandContext& context_;
  const std::string& path_;
  const ModelSettings& settings_;
  const WhenThere& whenThere_;
  std::unique_ptr<HugeFileStream> replaced_;
  UnfinishedFile unfinished_;
};

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
  return Opened(context, path, DtmManager::GetDtmManager().OpenDtmUntouched(FromUtf8(path)));
}

ModelFile OpenWholeForReading(const CommandContext& context, const std::string& path) {
  ModelFile model = OpenForReading(context, path);
  if (model && model->WalkStoppedAt() >= 0) {
    context.Fail(path, "damaged at offset " + std::to_string(model->WalkStoppedAt()),
                 "run \"vakdtm verify " + path + "\"");
    model.Close();
  }
  return model;
}

bool IsWholeRead(const DtmUpdateFile& model) {
  for (int i = 0; const DtmArea* area = model.GetArea(i); ++i) {
    if (area->HasReadError()) return false;
  }
  return true;
}

int FailReading(const CommandContext& context, const std::string& path, const DtmUpdateFile& model) {
  const char* const what = IsWholeRead(model) ? "cannot be read to its end" : "an area cannot be read";
  return context.Fail(path, what, "run \"vakdtm verify " + path + "\"");
}

HeldModel::HeldModel(std::string path, ModelSettings settings, std::unique_ptr<HugeFileStream> stream)
    : path_(std::move(path)), settings_(std::move(settings)), stream_(std::move(stream)) {}
HeldModel::~HeldModel() = default;
HeldModel::HeldModel(HeldModel&& other) noexcept = default;
HeldModel& HeldModel::operator=(HeldModel&& other) noexcept = default;

ModelFile HeldModel::Open(const CommandContext& context) {
  stream_.reset();  // the model's own stream takes the lock
  return OpenForWriting(context, path_);
}

HeldModel HoldForWriting(const CommandContext& context, const std::string& path) {
  // Looked at without being able to write, so that a damaged file stays as it is.
  const ModelFile looked = OpenForReading(context, path);
  if (!looked) return {};
  auto stream = Hold(context, path, looked->FileName());
  if (!stream) return {};
  if (looked->WalkStoppedAt() >= 0) {
    context.Fail(path, "damaged at offset " + std::to_string(looked->WalkStoppedAt()) + ", nothing was changed",
                 "run \"vakdtm verify --repair " + path + "\" first");
    return {};
  }
  ModelSettings settings{looked->CellSize(), looked->AreaSize(), {}};
  for (int i = 0; i < looked->NumBlockIds(); ++i) settings.blocks.push_back(looked->GetBlockId(i));
  return {path, std::move(settings), std::move(stream)};
}

ModelFile OpenForWriting(const CommandContext& context, const std::string& path) {
  return Opened(context, path, DtmManager::GetDtmManager().OpenDtm(FromUtf8(path), true, nullptr));
}

bool CreateModel(const CommandContext& context, const std::string& path, const ModelSettings& settings,
                 const WhenThere& whenThere) {
  if (path.empty()) return Tell(context, "''", DtmOpenError::kNoName, true);
  return Creation(context, path, settings, whenThere).Run();
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
