#include "vakdtm/intake/DtmAsciiImporter.h"

#include <string>

#include "vakdtm/intake/SoundingAhead.h"
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
  if (!backup_) return;
  // The copy is made of the file, and what the model still has to write belongs to its state before the import. What
  // can't be written is missing from the file and from the copy.
  if (model->IsReadWrite()) model->SyncWrite();
  BackupDTM();
}

DtmAsciiImporter::~DtmAsciiImporter() { std::fclose(source_); }

bool DtmAsciiImporter::BackupDTM() {
  const std::wstring latest = WithExtension(modelName_, L"bk1");
  // Whether the copies succeed isn't looked at: before the first import there is no older generation to keep.
  CopyFileW(latest, WithExtension(modelName_, L"bk2"), true);
  CopyFileW(modelName_.c_str(), latest, true);
  return true;
}

bool DtmAsciiImporter::DetectFormat(LineReader& lines, SoundingFormat& format, ScannedSounding* first,
                                    const std::function<bool()>& stop) {
  constexpr std::int64_t kLinesBetweenQuestions = 4096;
  std::string_view line;
  while (lines.Next(line)) {
    if (stop && lines.LineNumber() % kLinesBetweenQuestions == 0 && stop()) break;
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
  DetectFormat(lines_, format, nullptr, [this] { return IsStopped(); });
  if (IsStopped()) return false;
  size_.store(lines_.Size(), std::memory_order_relaxed);
  if (!lines_.Rewind()) return false;

  SoundingAhead ahead(lines_, SoundingScanner(format));
  while (const SoundingBatch* const batch = ahead.Next()) {
    for (const SoundingLine& line : batch->lines) {
      if (IsStopped()) return false;
      currentLine_ = line.number;
      if (!TakeLine(line, *batch)) {
        insertFailed_ = true;
        if (backup_) TellWhereBackupIs();
        return false;
      }
      position_.store(line.position, std::memory_order_relaxed);
    }
  }
  return !lines_.Failed();
}

bool DtmAsciiImporter::TakeLine(const SoundingLine& line, const SoundingBatch& batch) {
  if (line.kind == SoundingLine::Kind::kNotParsed) {
    if (tally_) tally_->CountSkipped(line.number, batch.TextOf(line));
    return true;
  }
  const DtmFile& model = *access_.GetDtmFile();
  int row = 0;
  int col = 0;
  model.CalcRowCol(line.x, line.y, row, col);
  if (!model.IsAllowed(row) || !model.IsAllowed(col)) {
    if (tally_) tally_->CountRefused(line.number, batch.TextOf(line));
    return true;
  }
  if (clearCellFirst_) access_.MakeCellEmpty(row, col);
  if (line.kind == SoundingLine::Kind::kNotANumber) {
    ++linesTaken_;
    if (tally_) tally_->CountNotANumber();
    return true;
  }
  const double z = negateZ_ ? -line.z : line.z;
  if (!access_.InsertValue(line.x, line.y, z, _time64(nullptr), nullptr, nullptr, 0)) return false;
  ++linesTaken_;
  if (tally_) tally_->CountTaken(row, col, z);
  return true;
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
