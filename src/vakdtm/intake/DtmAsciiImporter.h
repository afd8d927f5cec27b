#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>

#include "vakdtm/intake/DtmTextImporter.h"
#include "vakdtm/intake/LineReader.h"
#include "vakdtm/intake/SoundingScanner.h"

namespace vak {

/// Job that reads soundings from a text file into an open grid model, a line a sounding: x, y and z, parted by commas
/// or by blanks. Every sounding is stamped with the moment of its import.
///
/// The first line that holds three numbers fixes the format of the whole file, so that headings in front of the data do
/// no harm; lines that don't scan are skipped. A line outside the polygon is passed over and neither empties its cell
/// nor counts. A line that scans to three numbers and holds the text "-nan", or whose z isn't a number, counts but
/// isn't inserted. A line at a place that can't have a cell is refused, and the run goes on.
class DtmAsciiImporter final : public DtmTextImporter {
 public:
  /// @param model    must outlive the importer. @param source  seekable; owned: closed by the destructor.
  /// @param polygon  what lies outside is left out; owned; null: everything is taken.
  /// @param clearCellFirst  empties the cell before each sounding, so that the last line in a cell wins.
  /// @param backup   writes the model out, copies its file to its name with "bk1" for extension, and a "bk1" that was
  ///   there to "bk2", at once. @param negateZ  flips the sign of every z.
  DtmAsciiImporter(DtmUpdateFile* model, std::FILE* source, PolyClipLine* polygon, bool clearCellFirst, bool backup,
                   bool negateZ);
  ~DtmAsciiImporter() override;

  /// @return true when the end of the source was reached; false after a stop, when the source couldn't be read or when
  /// a sounding couldn't be stored (`InsertFailed`; with a backup, a message then tells which file to replace by
  /// which).
  bool Process() override;

  bool ReadFailed() const { return lines_.Failed(); }

  /// Finds the format of a text: that of the first line that yields three numbers. @return false, and the comma format,
  /// when no line does. The reader stands behind the line found.
  /// @param stop  asked now and then; true ends the search. May be empty.
  static bool DetectFormat(LineReader& lines, SoundingFormat& format, ScannedSounding* first = nullptr,
                           const std::function<bool()>& stop = {});

 private:
  std::int64_t TimeOf(const SoundingLine& line) override;
  void TellWhereBackupIs() const override;

  std::FILE* source_;
  LineReader lines_;
};

}  // namespace vak
