#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmUpdateFile.h"

#include "Command.h"
#include "UnfinishedFile.h"

namespace vak {

class HugeFileStream;

/// A model that a subcommand has opened; closed when this goes.
class ModelFile {
 public:
  ModelFile() = default;
  explicit ModelFile(DtmUpdateFile* model) : model_(model) {}
  ~ModelFile() { Close(); }
  ModelFile(ModelFile&& other) noexcept : model_(std::exchange(other.model_, nullptr)) {}
  ModelFile& operator=(ModelFile&& other) noexcept;
  ModelFile(const ModelFile&) = delete;
  ModelFile& operator=(const ModelFile&) = delete;

  explicit operator bool() const { return model_ != nullptr; }
  DtmUpdateFile* operator->() const { return model_; }
  DtmUpdateFile& operator*() const { return *model_; }

  void Close();

 private:
  DtmUpdateFile* model_ = nullptr;
};

/// Opens a model to look at it: every byte of the file and its times stay as they are. Prints why when it can't.
ModelFile OpenForReading(const CommandContext& context, const std::string& path);

/// The same for work that makes no sense on half a model: one whose areas can't be followed to the file's end is
/// refused too.
ModelFile OpenWholeForReading(const CommandContext& context, const std::string& path);

/// Whether every area could be read that was asked for a cell.
bool IsWholeRead(const DtmUpdateFile& model);

/// Prints that the work ended because of areas that can't be read. @return kCouldNotBeDone.
int FailReading(const CommandContext& context, const std::string& path, const DtmUpdateFile& model);

/// What is settled for good when a model is made.
struct ModelSettings {
  double cellSize = 0;      ///< m
  int areaSize = 0;         ///< cells on a side
  std::vector<int> blocks;  ///< in the order of the file
};

/// A model that is to be changed once everything else has been looked at: found good and kept from other writers, with
/// every byte as it was.
class HeldModel {
 public:
  HeldModel() = default;
  HeldModel(std::string path, ModelSettings settings, std::unique_ptr<HugeFileStream> stream);
  ~HeldModel();
  HeldModel(HeldModel&& other) noexcept;
  HeldModel& operator=(HeldModel&& other) noexcept;

  explicit operator bool() const { return stream_ != nullptr; }
  /// Metres.
  double CellSize() const { return settings_.cellSize; }
  /// Cells on a side of an area.
  int AreaSize() const { return settings_.areaSize; }
  const std::vector<int>& Blocks() const { return settings_.blocks; }
  /// Opens the model read-write and holds it no longer otherwise. Prints why when it can't.
  ModelFile Open(const CommandContext& context);

 private:
  std::string path_;
  ModelSettings settings_;
  std::unique_ptr<HugeFileStream> stream_;  // read-write, for the lock
};

/// Holds a model for changing it. Prints why when it can't, also when the file's chunks couldn't be followed to its
/// end.
HeldModel HoldForWriting(const CommandContext& context, const std::string& path);

/// What to tell where a model is to be made and a file is there.
struct WhenThere {
  UnfinishedFile::Existing existing = UnfinishedFile::Existing::kRefuse;
  std::string what = "exists already";
  std::string remedy;
};

/// Makes a new, empty model and leaves it closed. It appears under its name when it is complete: one that it replaces
/// is kept from other writers until then, and stays as it was when the new one can't be made. Of several that are made
/// at once under one name, without replacing, one alone is. Prints why when it can't.
[[nodiscard]] bool CreateModel(const CommandContext& context, const std::string& path, const ModelSettings& settings,
                               const WhenThere& whenThere);

/// Opens a model to change it. Prints why when it can't.
ModelFile OpenForWriting(const CommandContext& context, const std::string& path);

/// The blocks of a new model that names none.
std::vector<int> DefaultBlocks();

/// Reads a list of mnemonics, "VAL,NUM". @return false, with the reason in `error`, for an unknown, a repeated or no
/// name.
[[nodiscard]] bool ParseBlockList(const std::string& text, std::vector<int>& blocks, std::string& error);

/// The blocks of a new model from a list of mnemonics: MIN brings XMIN and YMIN directly behind it, MAX likewise,
/// unless the list names them itself.
[[nodiscard]] bool ParseBlocksToCreate(const std::string& text, std::vector<int>& blocks, std::string& error);

/// The mnemonic of a block id, or its four letters when the table doesn't know it.
std::string BlockLabel(int id);

}  // namespace vak
