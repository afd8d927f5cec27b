#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vakdtm/intake/DatedSoundingScanner.h"
#include "vakdtm/intake/DtmTextImporter.h"
#include "vakdtm/services/files/TextFile.h"

namespace vak {

/// Job that reads soundings from a text file into an open grid model, a line a sounding: x, y and z, parted by commas
/// or by blanks, and a date behind them, "03-07-2015" for the third of July. A sounding is stamped with midnight, local
/// time, of its date. A file without dates is taken too; then every sounding is stamped with the moment of its import.
///
/// The first line alone fixes the format of the whole file. A line that doesn't scan, such as a blank one, leaves the
/// numbers of the line before it in place and goes all the way with them: the sounding before it is inserted once more
/// (`LinesIncomplete` counts them). The tail of a line of more than 255 characters is a line of its own. A line that
/// holds the text "#QNAN", or whose z isn't a number, counts but isn't inserted. Outside the polygon, and at a place
/// that can't have a cell, as `DtmAsciiImporter`.
class DtmAsciiTimeImporter final : public DtmTextImporter {
 public:
  /// The most characters of a line that are taken at once.
  static constexpr std::size_t kLongestPiece = 255;

  /// @param source  must outlive the importer; not owned. The others as with `DtmAsciiImporter`.
  DtmAsciiTimeImporter(DtmUpdateFile* model, TextFile* source, PolyClipLine* polygon, bool clearCellFirst, bool backup,
                       bool negateZ);

  /// @return true when the end of the source was reached; false for an empty one; for one whose first line has none of
  /// the formats, which a message then tells; after a stop, when the source couldn't be read, or when a sounding
  /// couldn't be stored (`InsertFailed`; with a backup, a message then tells which file to replace by which).
  /// @throws DtmImportException  at a date before 1970, of no month from 1 to 12 or no day from 1 to 31.
  bool Process() override;

  /// Lines that didn't hold all that the first line holds. After `Process`.
  std::int64_t LinesIncomplete() const { return linesIncomplete_; }

  /// The line of the first sounding whose time is beyond 03:14:07 UTC of 19 January 2038, the last that a model's
  /// 32 bits hold: what a cell has of it then is wrong. 0: there is none. After `Process`.
  std::int64_t FirstLineBeyondTime() const { return firstLineBeyondTime_; }

  /// What an import says of a date that ends it.
  /// @return false for a date that a sounding can have; `fault` is as it was then.
  static bool FindFault(const ScannedDate& date, std::string& fault);

  /// Finds the format of a line: dated with commas, dated with blanks, then both without a date.
  /// @param line  `DatedSoundingScanner::kPadding` bytes behind it must be readable.
  /// @param sounding,date  get what the line holds, when not null.
  /// @return false when it has none of them.
  static bool DetectFormat(std::string_view line, DatedFormat& format, ScannedSounding* sounding = nullptr,
                           ScannedDate* date = nullptr);

 private:
  std::int64_t TimeOf(const SoundingLine& line) override;
  void TellWhereBackupIs() const override;
  bool FillBatch(SoundingBatch& batch, ScannedSounding& sounding, ScannedDate& date);

  TextFile* source_;
  DatedFormat format_;
  std::int64_t linesIncomplete_ = 0;
  std::int64_t firstLineBeyondTime_ = 0;
  std::optional<ScannedDate> date_;  // whose time is known
  std::int64_t timeOfDate_ = 0;
};

}  // namespace vak
