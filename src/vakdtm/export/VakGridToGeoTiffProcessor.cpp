#include "vakdtm/export/VakGridToGeoTiffProcessor.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <numbers>
#include <unistd.h>
#include <utility>

#include "vakdtm/export/ImageLines.h"
#include "vakdtm/export/ScanLineWriter.h"
#include "vakdtm/export/WorldFile.h"
#include "vakdtm/frame/DtmAreaExtentsProcessor.h"
#include "vakdtm/render/EndOfToday.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/geometry/TrimAngle.h"
#include "vakdtm/services/tiff/GeoTiffFile.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {
namespace {

constexpr double kRadiansInDegree = std::numbers::pi / 180.0;
constexpr double kUsualElevation = 30.0;  // degrees
constexpr double kAmbientShare = 0.1;     // of the light that comes from everywhere, with the sun on the horizon
constexpr float kUsualEmptyRasterValue = 9999.0F;
constexpr unsigned kReadColorTable = 0x20;  // the mode in which a file of colours is opened
constexpr std::uint64_t kPixelBytes = 4;
constexpr const wchar_t* kNoMemory = L"there isn't the memory for lines of so many pixels";

/// The unit's name in a project's section of units.
constexpr const wchar_t* kSystemUnitsKey = L"System Units";

/// Of the eight steps from the north over the east, the one that a direction in degrees is nearest to.
int CompassStep(double direction) {
  const double angle = TrimAngle(direction);
  if (!(angle >= 0)) return 0;
  const int step = static_cast<int>(std::trunc((angle + 22.5) / 45.0));
  return step == 8 ? 0 : step;
}

struct TiffField {
  unsigned tag;
  int colourImage;
  int raster;
};

/// What an image says of its form, in this order, behind its width and height.
constexpr TiffField kFields[] = {
    {0x116, 1, 1},   // rows in a strip
    {0x128, 1, 1},   // no unit of resolution
    {0x112, 1, 1},   // the first line is at the top
    {0x11C, 1, 1},   // the samples of a pixel lie together
    {0x103, 5, 1},   // LZW, or not compressed
    {0x106, 2, 1},   // red, green and blue, or a small value is black
    {0x102, 8, 32},  // bits of a sample
    {0x115, 4, 1},   // samples of a pixel
    {0x153, 1, 3},   // whole numbers without a sign, or IEEE floats
};

/// An upper bound: what compressing makes of the worst of lines, and the places and lengths of all strips.
std::uint64_t MostBytes(std::uint64_t width, std::uint64_t height, bool compressed) {
  const std::uint64_t line = width * kPixelBytes;
  return height * (line + (compressed ? line / 2 + 16 : 0) + 16);
}

/// Half of the machine's memory.
std::uint64_t UsualLineMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(pages) / 2 * static_cast<std::uint64_t>(pageSize);
}

/// Whether rows or columns from here to there can be counted by an int.
bool IsCountable(double first, double last) {
  constexpr double kMost = std::numeric_limits<int>::max();
  return first >= -kMost && last <= kMost && last - first < kMost;
}

}  // namespace

VakGridToGeoTiffProcessor::VakGridToGeoTiffProcessor()
    : VakGridToGeoTiffProcessor(dVAL, true, kUsualEmptyRasterValue) {}

VakGridToGeoTiffProcessor::VakGridToGeoTiffProcessor(int blockId, bool colourImage, float emptyRasterValue)
    : blockId_(blockId),
      sunElevation_(kUsualElevation * kRadiansInDegree),
      isHeight_(DtmBlockId(blockId).IsZ()),
      colourImage_(colourImage),
      emptyRasterValue_(emptyRasterValue),
      lineMemory_(UsualLineMemory()) {}

VakGridToGeoTiffProcessor::~VakGridToGeoTiffProcessor() = default;

void VakGridToGeoTiffProcessor::SetInitInfo(std::wstring imagePath, std::wstring colorTable, std::wstring gridPath,
                                            PolyClipLine* polygon, bool worldFile) {
  imagePath_ = std::move(imagePath);
  colorTableName_ = std::move(colorTable);
  gridPath_ = std::move(gridPath);
  polygon_ = polygon;
  worldFile_ = worldFile;
}

void VakGridToGeoTiffProcessor::SetInitInfo(std::wstring imagePath, ColorTable table, std::wstring gridPath,
                                            PolyClipLine* polygon, bool worldFile) {
  SetInitInfo(std::move(imagePath), std::wstring(), std::move(gridPath), polygon, worldFile);
  colorTable_ = std::move(table);
}

void VakGridToGeoTiffProcessor::SetSunIllumination(bool on, double direction, double elevation, double strength) {
  sun_ = on;
  sunElevation_ = elevation * kRadiansInDegree;
  sunStrength_ = strength;
  sunDirection_ = CompassStep(direction);
}

void VakGridToGeoTiffProcessor::SetEmptyCellValue(double value) {
  emptyCellValue_ = value;
  hasEmptyCellValue_ = true;
}

bool VakGridToGeoTiffProcessor::Initialize() {
  return Processor::Initialize() && Init(gridPath_, imagePath_, colorTableName_);
}

bool VakGridToGeoTiffProcessor::Init(const std::wstring& gridPath, const std::wstring& imagePath,
                                     const std::wstring& colorTable) {
  lastFault_ = Fault::kNone;
  lastError_.clear();
  lastWarning_.clear();
  image_ = std::make_unique<GeoTiffFile>();
  imagePath_ = imagePath;
  if (!colorTable.empty() && !ReadColorTable(colorTable)) return false;
  std::wstring path = gridPath;
  if (!DataSearch::GetDataSearch().GetFullPath(kGridModelFile, path))
    return FailWith(Fault::kModel, L"there is no model of no name");
  DtmUpdateFile* const model = DtmManager::GetDtmManager().OpenDtm(path, false, nullptr);
  if (model == nullptr) return FailWith(Fault::kModel, L"the model can't be opened");
  access_ = std::make_unique<DtmAccess>(model);
  // The access keeps the model open by a count of its own.
  model->Close();
  cellSizeX_ = access_->GetDtmFile()->CellSize();
  cellSizeY_ = cellSizeX_;
  cellDiagonal_ = std::sqrt(cellSizeX_ * cellSizeX_ + cellSizeY_ * cellSizeY_);
  ambientLight_ = std::cos(sunElevation_) * kAmbientShare;
  endOfToday_ = EndOfToday();
  return true;
}

bool VakGridToGeoTiffProcessor::ReadColorTable(std::wstring name) {
  FileObject file;
  if (!DataSearch::GetDataSearch().GetFullPath(kColorTableFile, name) || !file.FileOpen(name, kReadColorTable)) {
    return FailWith(Fault::kColors, L"the colour table can't be read");
  }
  ColorTable read;
  if (!read.FileOpen(file)) return FailWith(Fault::kColors, read.LastError());
  colorTable_ = std::move(read);
  return true;
}

bool VakGridToGeoTiffProcessor::FailWith(Fault fault, const std::wstring& reason) {
  if (lastFault_ != Fault::kNone) return false;
  lastFault_ = fault;
  lastError_ = reason;
  return false;
}

bool VakGridToGeoTiffProcessor::Process() {
  if (!access_ || !image_) return FailWith(Fault::kModel, L"there is no model");
  lastFault_ = Fault::kNone;
  lastError_.clear();
  lastWarning_.clear();
  if (!FindExtents()) return false;
  if (!HasMemoryForLines()) return FailWith(Fault::kSize, kNoMemory);
  image_->SetExpectedSize(
      MostBytes(static_cast<std::uint64_t>(width_), static_cast<std::uint64_t>(height_), colourImage_));
  if (image_->CreateNewGeoTiffFile(imagePath_.c_str()) == nullptr) return FailWith(Fault::kImage, image_->LastError());
  SetFields();
  try {
    if (!WriteDtmToTiff()) return FailWith(Fault::kImage, image_->LastError());
  } catch (const std::bad_alloc&) {
    return FailWith(Fault::kSize, kNoMemory);
  }
  const auto project = GetCurrentProjectDefinition();
  VakGeoCoordSysBase* const system = project->GetGeoCoordSys();
  if (system == nullptr) return FailWith(Fault::kSystem, L"the project has no coordinate system");
  std::wstring unit;
  project->GetAttribute(UNITS_SECTION, kSystemUnitsKey, unit);
  const double left = firstCol_ * cellSizeX_;
  const double top = (lastRow_ + 1.0) * cellSizeY_;
  image_->SetGeographicGeoKeys(system);
  // An image in a system that can't be written in full is still an image, with its name.
  if (!image_->SetProjectionGeoKeys(system, unit)) lastWarning_ = image_->LastError();
  image_->SetTiepoint(0, 0, left, top);
  image_->SetScale(cellSizeX_, cellSizeY_);
  if (!image_->Close()) return FailWith(Fault::kImage, image_->LastError());
  if (extentsPage_ != nullptr) extentsPage_->Set(left, top - height_ * cellSizeY_, left + width_ * cellSizeX_, top);
  if (worldFile_ && !WriteWorldFile(WorldFilePath(imagePath_), cellSizeX_, left, top)) {
    return FailWith(Fault::kImage, L"the world file can't be written");
  }
  return !IsStopped();
}

bool VakGridToGeoTiffProcessor::FindExtents() {
  if (polygon_ == nullptr || polygon_->IsEmpty()) {
    DtmAreaExtentsProcessor areas;
    if (!areas.ProcessAllCells(*access_) || !areas.GetExtents(firstRow_, firstCol_, lastRow_, lastCol_)) {
      return FailWith(Fault::kModel, L"the model has no areas");
    }
    if (!IsCountable(firstRow_, lastRow_) || !IsCountable(firstCol_, lastCol_)) {
      return FailWith(Fault::kSize, L"the image would have too many pixels");
    }
  } else {
    Page extents;
    polygon_->GetExtents(extents);
    const double bottom = std::floor(extents.bottom() / cellSizeY_);
    const double top = std::floor(extents.top() / cellSizeY_);
    const double left = std::floor(extents.left() / cellSizeX_);
    const double right = std::floor(extents.right() / cellSizeX_);
    if (!IsCountable(bottom, top) || !IsCountable(left, right)) {
      return FailWith(Fault::kSize, L"the polygon is too large for an image of these cells");
    }
    firstRow_ = static_cast<int>(bottom);
    lastRow_ = static_cast<int>(top);
    firstCol_ = static_cast<int>(left);
    lastCol_ = static_cast<int>(right);
  }
  width_ = lastCol_ - firstCol_ + 1;
  height_ = lastRow_ - firstRow_ + 1;
  return true;
}

bool VakGridToGeoTiffProcessor::HasMemoryForLines() const {
  // Of a long line the writer has two, and the TIFF library has it compressed.
  constexpr std::uint64_t kWritten = 4 * kPixelBytes;
  return static_cast<std::uint64_t>(width_) <= lineMemory_ / (ImageLines::MemoryOfPixel(Rules()) + kWritten);
}

void VakGridToGeoTiffProcessor::SetFields() {
  image_->ExtTIFFSetField(0x100, width_);
  image_->ExtTIFFSetField(0x101, height_);
  for (const TiffField& each : kFields)
    image_->ExtTIFFSetField(each.tag, colourImage_ ? each.colourImage : each.raster);
  if (!tellsReaders_) return;
  if (colourImage_) {
    image_->SetAlpha();
  } else {
    image_->SetNoData(static_cast<double>(emptyRasterValue_));
  }
}

double VakGridToGeoTiffProcessor::SunDistance() const {
  if (sunDirection_ % 2 != 0) return cellDiagonal_;
  return sunDirection_ % 4 == 0 ? cellSizeX_ : cellSizeY_;
}

ImageRules VakGridToGeoTiffProcessor::Rules() const {
  ImageRules rules;
  rules.blockId = blockId_;
  rules.isHeight = isHeight_;
  rules.noValue = hasEmptyCellValue_ ? emptyCellValue_ : EmptyDouble();
  rules.cellSize = cellSizeX_;
  rules.polygon = polygon_ != nullptr && !polygon_->IsEmpty() ? polygon_ : nullptr;
  rules.colourImage = colourImage_;
  rules.emptyRasterValue = emptyRasterValue_;
  rules.table = &colorTable_;
  rules.factor = presentationFactor_;
  rules.offset = presentationOffset_;
  rules.endOfToday = endOfToday_;
  rules.shaded = sun_;
  rules.elevation = sunElevation_;
  rules.ambientLight = ambientLight_;
  rules.strength = sunStrength_;
  rules.sunStep = sunDirection_;
  rules.sunDistance = SunDistance();
  return rules;
}

bool VakGridToGeoTiffProcessor::WriteDtmToTiff() {
  pixelsDone_ = 0;
  pixelsWithValue_ = 0;
  pixelsLikeEmpty_ = 0;
  pixelsBeyondFloats_ = 0;
  totalPixels_ = static_cast<long long>(width_) * height_;
  const ImageRules rules = Rules();
  ImageLines lines(*access_, rules, firstCol_, lastCol_);
  ScanLineWriter writer(*image_, lines.LineBytes());
  for (std::int64_t row = lastRow_; row >= firstRow_ && !IsStopped(); --row) {
    std::byte* const line = writer.NextLine();
    if (line == nullptr) return false;
    lines.Make(row, line);
    pixelsWithValue_ = lines.PixelsWithValue();
    pixelsLikeEmpty_ = lines.PixelsLikeEmpty();
    pixelsBeyondFloats_ = lines.PixelsBeyondFloats();
    pixelsDone_.fetch_add(width_, std::memory_order_relaxed);
  }
  return writer.Finish();
}

double VakGridToGeoTiffProcessor::GetProgress() const {
  const long long done = pixelsDone_.load(std::memory_order_relaxed);
  return done == 0 ? 0.0
                   : static_cast<double>(done) / static_cast<double>(totalPixels_.load(std::memory_order_relaxed));
}

}  // namespace vak
