#include "vakdtm/analysis/DtmMinMaxZ.h"

#include <array>
#include <limits>
#include <mutex>
#include <utility>

#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/files/SmartFileImpl.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {
namespace {

constexpr int kColorSteps = 256;
constexpr std::array kHeightKinds = {dVAL, dMIN, dMAX};

}  // namespace

DtmMinMaxZ::DtmMinMaxZ(DtmFile* file, std::wstring colorTablePath)
    : file_(file && file->Open() ? file : nullptr), colorTablePath_(std::move(colorTablePath)) {}

DtmMinMaxZ::~DtmMinMaxZ() {
  if (file_) file_->Close();
}

bool DtmMinMaxZ::Process() {
  if (!file_) return false;
  SetProgress(0.0);
  float low = std::numeric_limits<float>::max();
  float high = -std::numeric_limits<float>::max();
  const int count = file_->NumAreas();
  for (int i = 0; i < count && !IsStopped(); ++i) {
    if (!AddArea(*file_, i, low, high)) return false;
    SetProgress(static_cast<double>(i + 1) / count);
  }
  return low > high || SaveTable(low, high);
}

bool DtmMinMaxZ::AddArea(DtmFile& file, int index, float& low, float& high) {
  DtmArea* const area = file.GetArea(index);
  if (!area) return false;
  const std::scoped_lock lock(area->Mutex());
  float areaLow = 0;
  float areaHigh = 0;
  if (!area->GetMinMaxZ(areaLow, areaHigh)) {
    area->FindMinMaxZ(kHeightKinds.data(), static_cast<int>(kHeightKinds.size()));
    if (!area->GetMinMaxZ(areaLow, areaHigh)) return false;
  }
  if (areaLow > areaHigh) return true;
  if (areaLow < low) low = areaLow;
  if (areaHigh > high) high = areaHigh;
  return true;
}

bool DtmMinMaxZ::SaveTable(float low, float high) const {
  ColorTable table;
  // Heights beyond what a float holds have no bounds: a table that was there is better than one without classes.
  if (!table.SetRange(static_cast<double>(low), static_cast<double>(high), kColorSteps, true, false)) return false;
  SmartFileImpl file;
  file.FileClose();
  return table.FileSave(file.GetFileObject()) && file.FileSave(kColorTableFile, colorTablePath_);
}

}  // namespace vak
