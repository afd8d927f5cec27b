#include "vakdtm/intake/DtmAsciiTimeImporter.h"

#include <ctime>
#include <limits>
#include <string>
#include <utility>

#include "vakdtm/intake/DtmImportException.h"
#include "vakdtm/intake/SoundingAhead.h"
#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/platform/Platform.h"

namespace vak {
namespace {

constexpr const wchar_t* kUpdateFailedText =
    L"Error occured during DTM update.\nPlease close acquisition and replace the active DTM file:\n%s\nby its "
    L"backup:\n%s";

constexpr int kFirstYear = 1970;

std::string Text(const ScannedDate& date) {
  return std::to_string(date.day) + "-" + std::to_string(date.month) + "-" + std::to_string(date.year);
}

/// What is wrong with a date.
struct DateFault {
  std::uint32_t code;
  std::string text;
};

/// Midnight, local time. @return what is wrong, or nothing.
std::optional<DateFault> FindMidnight(const ScannedDate& date, std::int64_t& midnight) {
  if (date.year < kFirstYear || date.month < 1 || date.month > 12 || date.day < 1 || date.day > 31) {
    return DateFault{DtmImportException::kFail, "no sounding can be of " + Text(date)};
  }
  std::tm parts{};
  parts.tm_mday = date.day;
  parts.tm_mon = date.month - 1;
  parts.tm_year = date.year - 1900;
  parts.tm_isdst = -1;
  const std::time_t time = std::mktime(&parts);
  if (time == -1) {
    return DateFault{DtmImportException::kInvalidArgument, "the system knows no time of " + Text(date)};
  }
  midnight = time;
  return std::nullopt;
}

}  // namespace

DtmAsciiTimeImporter::DtmAsciiTimeImporter(DtmUpdateFile* model, TextFile* source, PolyClipLine* polygon,
                                           bool clearCellFirst, bool backup, bool negateZ)
    : DtmTextImporter(model, polygon, clearCellFirst, backup, negateZ), source_(source) {}

bool DtmAsciiTimeImporter::FindFault(const ScannedDate& date, std::string& fault) {
  std::int64_t midnight = 0;
  auto found = FindMidnight(date, midnight);
  if (!found) return false;
  fault = std::move(found->text);
  return true;
}

bool DtmAsciiTimeImporter::DetectFormat(std::string_view line, DatedFormat& format, ScannedSounding* sounding,
                                        ScannedDate* date) {
  for (const bool dated : {true, false}) {
    for (const SoundingFormat columns : {SoundingFormat::kComma, SoundingFormat::kBlank}) {
      const DatedFormat candidate{columns, dated};
      ScannedSounding scanned;
      ScannedDate day;
      const int fields = DatedSoundingScanner(candidate).Scan(line.data(), line.data() + line.size(), scanned, day);
      if (fields != candidate.Fields()) continue;
      format = candidate;
      if (sounding) *sounding = scanned;
      if (date) *date = day;
      return true;
    }
  }
  return false;
}

bool DtmAsciiTimeImporter::Process() {
  std::string_view line;
  if (!source_->SeekToBegin() || !source_->ReadLine(line, kLongestPiece)) return false;
  if (!DetectFormat(line, format_)) {
    ShowMessage(MessageIcon::kError, L"Unknown file format");
    return false;
  }
  if (!source_->SeekToEnd()) return false;
  SetSize(source_->GetPosition());
  if (!source_->SeekToBegin()) return false;

  // What a line lacks is that of the line before it.
  ScannedSounding sounding;
  ScannedDate date;
  SoundingAhead ahead([this, &sounding, &date](SoundingBatch& batch) { return FillBatch(batch, sounding, date); });
  return TakeLines(ahead) && !source_->Failed();
}

bool DtmAsciiTimeImporter::FillBatch(SoundingBatch& batch, ScannedSounding& sounding, ScannedDate& date) {
  const DatedSoundingScanner scanner(format_);
  std::string_view line;
  while (!batch.IsFull()) {
    if (!source_->ReadLine(line, kLongestPiece)) return false;
    if (scanner.Scan(line.data(), line.data() + line.size(), sounding, date) != format_.Fields()) ++linesIncomplete_;
    batch.Add(sounding, JudgeNumbers(sounding, HoldsMarker(sounding, "#QNAN")), source_->LineNumber(),
              source_->GetPosition(), line);
    batch.lines.back().date = date;
  }
  return true;
}

std::int64_t DtmAsciiTimeImporter::TimeOf(const SoundingLine& line) {
  if (!format_.dated) return _time64(nullptr);
  if (line.date != date_) {
    if (const auto fault = FindMidnight(line.date, timeOfDate_)) {
      throw DtmImportException(fault->code, line.number, fault->text);
    }
    date_ = line.date;
    const bool beyond = timeOfDate_ > std::numeric_limits<std::int32_t>::max();
    if (beyond && firstLineBeyondTime_ == 0) firstLineBeyondTime_ = line.number;
  }
  return timeOfDate_;
}

void DtmAsciiTimeImporter::TellWhereBackupIs() const { ShowMessage(MessageIcon::kError, WithNames(kUpdateFailedText)); }

}  // namespace vak
