#include "vakdtm/intake/DtmTextImporter.h"

#include "vakdtm/intake/SoundingAhead.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/DtmRectUpdater.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {
namespace {

std::wstring WithExtension(FileName name, const wchar_t* extension) {
  name.SetExtension(extension);
  return name.c_str();
}

}  // namespace

DtmTextImporter::DtmTextImporter(DtmUpdateFile* model, PolyClipLine* polygon, bool clearCellFirst, bool backup,
                                 bool negateZ)
    : access_(model), polygon_(polygon), clearCellFirst_(clearCellFirst), backup_(backup), negateZ_(negateZ) {
  access_.SetUpdater(new DtmRectUpdater(model));
  modelName_.Set(model->FileName());
  if (!backup_) return;
  // The copy is made of the file, and what the model still has to write belongs to its state before the import. What
  // can't be written is missing from the file and from the copy.
  if (model->IsReadWrite()) model->SyncWrite();
  BackupDTM();
}

DtmTextImporter::~DtmTextImporter() = default;

bool DtmTextImporter::BackupDTM() {
  const std::wstring latest = WithExtension(modelName_, L"bk1");
  // Whether the copies succeed isn't looked at: before the first import there is no older generation to keep.
  CopyFileW(latest, WithExtension(modelName_, L"bk2"), true);
  CopyFileW(modelName_.c_str(), latest, true);
  return true;
}

bool DtmTextImporter::TakeLines(SoundingAhead& ahead) {
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
  return true;
}

bool DtmTextImporter::TakeLine(const SoundingLine& line, const SoundingBatch& batch) {
  if (line.kind == SoundingLine::Kind::kNotParsed) {
    if (tally_) tally_->CountSkipped(line.number, batch.TextOf(line));
    return true;
  }
  if (polygon_ && !polygon_->IsPointInPoly(Point(line.x, line.y), nullptr)) {
    if (tally_) tally_->CountOutsidePolygon();
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
  if (!access_.InsertValue(line.x, line.y, z, TimeOf(line), nullptr, nullptr, 0)) return false;
  ++linesTaken_;
  if (tally_) tally_->CountTaken(row, col, z);
  return true;
}

std::wstring DtmTextImporter::WithNames(std::wstring text) const {
  std::size_t from = 0;
  for (const std::wstring& name : {std::wstring(modelName_.c_str()), WithExtension(modelName_, L"bk1")}) {
    const std::size_t at = text.find(L"%s", from);
    if (at == std::wstring::npos) break;
    text.replace(at, 2, name);
    from = at + name.size();
  }
  return text;
}

double DtmTextImporter::GetProgress() const {
  const std::int64_t size = size_.load(std::memory_order_relaxed);
  if (size <= 0) return 0.0;
  return static_cast<double>(position_.load(std::memory_order_relaxed)) / static_cast<double>(size);
}

}  // namespace vak
