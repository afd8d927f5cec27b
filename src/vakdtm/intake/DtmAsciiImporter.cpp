#include "vakdtm/intake/DtmAsciiImporter.h"

#include <cmath>
#include <string>

#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/StringTable.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/DtmRectUpdater.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {
namespace {

constexpr int kCannotUpdateText = 9477;

std::wstring WithExtension(FileName name, const wchar_t* extension) {
  name.SetExtension(extension);
  return name.c_str();
}

/// Puts the values in the places of "%s", in order.
std::wstring FillIn(std::wstring text, std::initializer_list<std::wstring> values) {
  std::size_t from = 0;
  for (const std::wstring& value : values) {
    const std::size_t at = text.find(L"%s", from);
    if (at == std::wstring::npos) break;
    text.replace(at, 2, value);
    from = at + value.size();
  }
  return text;
}

}  // namespace

DtmAsciiImporter::DtmAsciiImporter(DtmUpdateFile* model, std::FILE* source, bool clearCellFirst, bool backup,
                                   bool negateZ)
    : access_(model),
      source_(source),
      lines_(source),
      clearCellFirst_(clearCellFirst),
      backup_(backup),
      negateZ_(negateZ) {
  access_.SetUpdater(new DtmRectUpdater(model));
  modelName_.Set(model->FileName());
  if (backup_) BackupDTM();
}

DtmAsciiImporter::~DtmAsciiImporter() { std::fclose(source_); }

bool DtmAsciiImporter::BackupDTM() {
  const std::wstring latest = WithExtension(modelName_, L"bk1");
  // Whether the copies succeed isn't looked at: before the first import there is no older generation to keep.
  CopyFileW(latest, WithExtension(modelName_, L"bk2"), true);
  CopyFileW(modelName_.c_str(), latest, true);
  return true;
}

bool DtmAsciiImporter::DetectFormat(LineReader& lines, SoundingFormat& format, ScannedSounding* first) {
  std::string_view line;
  while (lines.Next(line)) {
    for (const SoundingFormat candidate : {SoundingFormat::kComma, SoundingFormat::kBlank}) {
      ScannedSounding sounding;
      if (SoundingScanner(candidate).Scan(line.data(), line.data() + line.size(), sounding) != 3) continue;
      format = candidate;
      if (first) *first = sounding;
      return true;
    }
  }
  format = SoundingFormat::kComma;
  return false;
}

bool DtmAsciiImporter::Process() {
  SoundingFormat format = SoundingFormat::kComma;
  DetectFormat(lines_, format);
  scanner_ = SoundingScanner(format);
  size_.store(lines_.Size(), std::memory_order_relaxed);
  if (!lines_.Rewind()) return false;

  ScannedSounding sounding;
  std::string_view line;
  while (lines_.Next(line)) {
    if (IsStopped()) return false;
    if (TakeLine(line, sounding) == Step::kFailed) {
      insertFailed_ = true;
      if (backup_) TellWhereBackupIs();
      return false;
    }
    position_.store(lines_.Position(), std::memory_order_relaxed);
  }
  return !lines_.Failed();
}

DtmAsciiImporter::Step DtmAsciiImporter::TakeLine(std::string_view line, ScannedSounding& sounding) {
  const int fields = scanner_.Scan(line.data(), line.data() + line.size(), sounding);
  if (fields != 3 || !std::isfinite(sounding.x) || !std::isfinite(sounding.y) || std::isinf(sounding.z)) {
    if (tally_) tally_->CountSkipped(lines_.LineNumber(), line);
    return Step::kGoOn;
  }
  const double z = negateZ_ ? -sounding.z : sounding.z;
  const DtmFile& model = *access_.GetDtmFile();
  int row = 0;
  int col = 0;
  model.CalcRowCol(sounding.x, sounding.y, row, col);
  if (!model.IsAllowed(row) || !model.IsAllowed(col)) {
    if (tally_) tally_->CountRefused(lines_.LineNumber(), line);
    return Step::kGoOn;
  }
  if (clearCellFirst_) access_.MakeCellEmpty(row, col);
  ++linesTaken_;
  if (std::isnan(z) || HoldsMarker(sounding)) {
    if (tally_) tally_->CountNotANumber();
    return Step::kGoOn;
  }
  if (!access_.InsertValue(sounding.x, sounding.y, z, _time64(nullptr), nullptr, nullptr, 0)) return Step::kFailed;
  if (tally_) tally_->CountTaken(row, col, z);
  return Step::kGoOn;
}

void DtmAsciiImporter::TellWhereBackupIs() const {
  ShowMessage(MessageIcon::kError,
              FillIn(LoadString(kCannotUpdateText), {modelName_.c_str(), WithExtension(modelName_, L"bk1")}));
}

double DtmAsciiImporter::GetProgress() const {
  const std::int64_t size = size_.load(std::memory_order_relaxed);
  if (size <= 0) return 0.0;
  return static_cast<double>(position_.load(std::memory_order_relaxed)) / static_cast<double>(size);
}

}  // namespace vak
