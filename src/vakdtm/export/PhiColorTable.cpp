#include "vakdtm/export/PhiColorTable.h"

#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/files/SmartFileImpl.h"

namespace vak {
namespace {

constexpr const wchar_t* kName = L"phi[bottom-type]";

}  // namespace

PhiColorTable::PhiColorTable() : table_(std::make_unique<ColorTable>()), file_(std::make_unique<SmartFileImpl>()) {
  loaded_ = Load();
}

PhiColorTable::~PhiColorTable() = default;

bool PhiColorTable::Load() {
  return file_->FileOpen(kColorTableFile, kName) && table_->FileOpen(file_->GetFileObject());
}

std::wstring PhiColorTable::GetName(double value) const { return table_->GetName(value); }

}  // namespace vak
