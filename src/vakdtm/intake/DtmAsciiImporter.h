#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string_view>

#include "vakdtm/intake/ImportTally.h"
#include "vakdtm/intake/LineReader.h"
#include "vakdtm/intake/SoundingScanner.h"
#include "vakdtm/services/files/FileName.h"
#include "vakdtm/services/jobs/Processor.h"
#include "vakdtm/store/DtmAccess.h"

namespace vak {

class DtmUpdateFile;
struct SoundingBatch;
struct SoundingLine;

/// Job that reads soundings from a text file into an open grid model, a line a sounding: x, y and z, parted by commas
/// or by blanks. Every sounding is stamped with the moment of its import.
///
/// The first line that holds three numbers fixes the format of the whole file, so that headings in front of the data do
/// no harm; lines that don't scan are skipped. A line that scans to three numbers and holds the text "-nan", or whose z
/// isn't a number, counts but isn't inserted. A line at a place that can't have a cell is refused, and the run goes on.
///
/// Runs once. What was inserted before a stop or a failure stays in the model. `Process` runs on any one thread;
/// `GetProgress` and `Stop` may be called from others.
class DtmAsciiImporter final : public Processor {
 public:
  /// @param model   must outlive the importer. @param source  seekable; owned: closed by the destructor.
  /// @param clearCellFirst  empties the cell before each sounding, so that the last line in a cell wins.
  /// @param backup  writes the model out, copies its file to its name with "bk1" for extension, and a "bk1" that was
  ///   there to "bk2", at once. @param negateZ  flips the sign of every z.
  DtmAsciiImporter(DtmUpdateFile* model, std::FILE* source, bool clearCellFirst, bool backup, bool negateZ);
  ~DtmAsciiImporter() override;

  /// @return true when the end of the source was reached; false after a stop, when the source couldn't be read or when
  /// a sounding couldn't be stored (`InsertFailed`; with a backup, a message then tells which file to replace by
  /// which).
  bool Process() override;
  /// Position in the source as a fraction of its size; 0 while that isn't known.
  double GetProgress() const override;

  /// How many areas besides the current one the importer keeps in memory (`DtmAccess::SetCacheSize`). Before `Process`.
  void SetCacheSize(std::uint64_t areas) { access_.SetCacheSize(areas); }
  /// Where to add up what is done; not owned; null: nowhere. Before `Process`.
  void SetTally(ImportTally* tally) { tally_ = tally; }

  /// Lines that scanned and lay where a cell can be, those whose z isn't a number included.
  std::int64_t LinesTaken() const { return linesTaken_; }
  bool InsertFailed() const { return insertFailed_; }
  bool ReadFailed() const { return lines_.Failed(); }
  /// Number of the line last read, from 1.
  std::int64_t CurrentLine() const { return currentLine_; }

  /// Finds the format of a text: that of the first line that yields three numbers. @return false, and the comma format,
  /// when no line does. The reader stands behind the line found.
  /// @param stop  asked now and then; true ends the search. May be empty.
  static bool DetectFormat(LineReader& lines, SoundingFormat& format, ScannedSounding* first = nullptr,
                           const std::function<bool()>& stop = {});

 private:
  bool BackupDTM();
  /// @return false when a sounding couldn't be stored.
  bool TakeLine(const SoundingLine& line, const SoundingBatch& batch);
  void TellWhereBackupIs() const;

  DtmAccess access_;
  std::FILE* source_;
  LineReader lines_;
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
