#include "vakdtm/export/GeoTiffFileCreator.h"

#include <memory>
#include <utility>

#include "vakdtm/export/VakGridToGeoTiffProcessor.h"
#include "vakdtm/render/DtmColorTableGenerator.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {
namespace {

constexpr int kColorSteps = 256;
constexpr Color kBlack = 0x000000;
constexpr Color kWhite = 0xFFFFFF;
constexpr Color kRed = 0xFF0000;
constexpr Color kBlue = 0x0000FF;

/// Behind a model's name it makes that of its colour table.
constexpr const wchar_t* kTableExtension = L".colors";

/// Makes a colour table over the values of a model and writes it.
/// @param tableName  completed as all names of colour tables are.
/// @param inverted   from red to blue as their numbers are read from the left; else from black to white.
/// @param swap       the two change places.
/// @return false when the model can't be opened.
bool GenerateColorTable(std::wstring gridPath, std::wstring tableName, int blockId, bool inverted, bool swap) {
  const DataSearch& search = DataSearch::GetDataSearch();
  if (!search.GetFullPath(kGridModelFile, gridPath) || !search.GetFullPath(kColorTableFile, tableName)) return false;
  DtmUpdateFile* const model = DtmManager::GetDtmManager().OpenDtm(gridPath, false, nullptr);
  if (model == nullptr) return false;
  DtmAccess access(model);
  model->Close();
  Color low = inverted ? kRed : kBlack;
  Color high = inverted ? kBlue : kWhite;
  if (swap) std::swap(low, high);
  DtmColorTableGenerator generator(blockId, tableName, kColorSteps, low, high);
  generator.ProcessAllCells(access);
  return true;
}

}  // namespace

bool GeoTiffFileCreator::CreateFileFromGridModel(std::wstring gridPath, std::wstring imagePath, std::wstring colorTable,
                                                 int blockId, PolyClipLine* polygon, bool worldFile, bool sun,
                                                 double sunDirection, double sunElevation, double sunStrength,
                                                 bool colourImage, float emptyRasterValue) {
  blockId_ = blockId;
  extents_.Invalidate();
  if (!DataSearch::GetDataSearch().GetFullPath(kImageFile, imagePath)) return false;
  if (colourImage && colorTable.empty()) {
    // Beside the model: under its very name the table would take its place.
    colorTable = gridPath + kTableExtension;
    if (!GenerateColorTable(gridPath, colorTable, blockId_, false, false)) return false;
  }
  auto job = std::make_unique<VakGridToGeoTiffProcessor>(blockId_, colourImage, emptyRasterValue);
  job->SetInitInfo(std::move(imagePath), std::move(colorTable), std::move(gridPath), polygon, worldFile);
  job->SetSunIllumination(sun, sunDirection, sunElevation, sunStrength);
  job->SetExtentsPage(&extents_);
  ProcessThread thread(L"", nullptr, true, nullptr, false);
  thread.AddProcessor(job.release(), L"Creating GeoTIFF image...");
  return thread.DoModal() == ProcessThread::kDone;
}

}  // namespace vak
