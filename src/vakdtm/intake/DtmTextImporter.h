#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "vakdtm/intake/ImportTally.h"
#include "vakdtm/services/files/FileName.h"
#include "vakdtm/services/jobs/Processor.h"
#include "vakdtm/store/DtmAccess.h"

namespace vak {

class DtmUpdateFile;
class PolyClipLine;
class SoundingAhead;
struct SoundingBatch;
struct SoundingLine;

/// What the importers of texts have in common: a job that takes a text's lines, one after the other, into an open grid
/// model.
///
/// Runs once. What was inserted before a stop or a failure stays in the model. `Process` runs on any one thread;
/// `GetProgress` and `Stop` may be called from others.
class DtmTextImporter : public Processor {
 public:
  ~DtmTextImporter() override;

  /// Position in the source as a fraction of its size; 0 while that isn't known.
  double GetProgress() const override;

  /// How many areas besides the current one the importer keeps in memory (`DtmAccess::SetCacheSize`). Before `Process`.
  void SetCacheSize(std::uint64_t areas) { access_.SetCacheSize(areas); }
  /// Where to add up what is done; not owned; null: nowhere. Before `Process`.
  void SetTally(ImportTally* tally) { tally_ = tally; }

  /// Lines whose place may have a cell and isn't outside the polygon, those whose z isn't a number included.
  std::int64_t LinesTaken() const { return linesTaken_; }
  bool InsertFailed() const { return insertFailed_; }
  /// Number of the line last read, from 1.
  std::int64_t CurrentLine() const { return currentLine_; }

 protected:
  /// See the importers.
  DtmTextImporter(DtmUpdateFile* model, PolyClipLine* polygon, bool clearCellFirst, bool backup, bool negateZ);

  /// Takes all lines. @return false after a stop and when a sounding couldn't be stored.
  bool TakeLines(SoundingAhead& ahead);

  void SetSize(std::int64_t bytes) { size_.store(bytes, std::memory_order_relaxed); }
  bool HasBackup() const { return backup_; }

  /// The text with the model's name and its backup's in the places of "%s".
  std::wstring WithNames(std::wstring text) const;

 private:
  /// The time stamp of a line's sounding. May throw, which ends the run.
  virtual std::int64_t TimeOf(const SoundingLine& line) = 0;
  /// Tells the user that a sounding couldn't be stored, and which file to replace by which.
  virtual void TellWhereBackupIs() const = 0;

  bool BackupDTM();
  /// @return false when a sounding couldn't be stored.
  bool TakeLine(const SoundingLine& line, const SoundingBatch& batch);

  DtmAccess access_;
  std::unique_ptr<PolyClipLine> polygon_;
  bool clearCellFirst_;
  bool backup_;
  bool negateZ_;
  FileName modelName_;
  std::atomic<std::int64_t> size_{0};      // bytes
  std::atomic<std::int64_t> position_{0};  // bytes
  std::int64_t currentLine_ = 0;
  std::int64_t linesTaken_ = 0;
  ImportTally* tally_ = nullptr;
  bool insertFailed_ = false;
};

}  // namespace vak
