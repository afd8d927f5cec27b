#include "GdalLineWriter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cpl_conv.h>
#include <cpl_error.h>
#include <cpl_string.h>
#include <cstdio>
#include <cstdlib>
#include <gdal.h>
#include <ogr_api.h>
#include <ogr_srs_api.h>
#include <ogrsf_frmts.h>
#include <string_view>

#include "WatchedFiles.h"

namespace vak {
namespace {

// A field of a dBASE table has no more characters.
constexpr int kWidestField = 255;
// What GDAL gives a number that it knows nothing about.
constexpr int kLengthWidth = 24;
constexpr int kLengthDecimals = 15;

using Options = std::unique_ptr<char*, void (*)(char**)>;
using SpatialReference = std::unique_ptr<void, void (*)(void*)>;

OGRLayerH LayerOf(void* layer) { return static_cast<OGRLayerH>(layer); }
OGRFeatureH FeatureOf(void* feature) { return static_cast<OGRFeatureH>(feature); }

Options MakeOptions(std::initializer_list<const char*> settings) {
  char** list = nullptr;
  for (const char* setting : settings) list = CSLAddString(list, setting);
  return {list, CSLDestroy};
}

std::string Shortest(double value) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

std::string Fixed(double value, int decimals) {
  char text[kWidestField + 400];
  const auto [end, code] = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
  return code == std::errc() ? std::string(text, end) : std::string(kWidestField + 1, '9');
}

bool ReadsBack(double value, int decimals) {
  const std::string text = Fixed(value, decimals);
  double read = 0;
  std::from_chars(text.data(), text.data() + text.size(), read);
  return read == value;
}

struct FieldSize {
  int width = 1;
  int decimals = 1;  // without any, a reader would take them for whole numbers
};

/// @return null when it isn't known.
SpatialReference MakeCrs(const char* text) {
  SpatialReference crs(OSRNewSpatialReference(nullptr), OSRDestroySpatialReference);
  OSRSetAxisMappingStrategy(crs.get(), OAMS_TRADITIONAL_GIS_ORDER);
  if (OSRSetFromUserInput(crs.get(), text) != OGRERR_NONE) crs.reset();
  return crs;
}

/// The smallest field of digits in which every level reads back to the same double.
/// @return false when no field is wide enough.
bool FindSize(const double* levels, std::size_t count, FieldSize& size) {
  for (std::size_t i = 0; i < count; ++i) {
    while (size.decimals < kWidestField && !ReadsBack(levels[i], size.decimals)) ++size.decimals;
  }
  // More decimals are nearer to the number, but at a power of two a nearer one may read back to its neighbour.
  for (std::size_t i = 0; i < count && size.decimals < kWidestField;) {
    if (ReadsBack(levels[i], size.decimals)) {
      ++i;
    } else {
      ++size.decimals;
      i = 0;
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    size.width = std::max(size.width, static_cast<int>(Fixed(levels[i], size.decimals).size()));
  }
  return size.width < kWidestField;
}

GDALDriverH FindDriver(const char* name) {
  // One driver is registered in a tenth of the time that all of them take.
  const std::string_view wanted = name;
  if (wanted == "ESRI Shapefile") RegisterOGRShape();
  if (wanted == "GPKG") RegisterOGRGeoPackage();
  if (wanted == "DXF") RegisterOGRDXF();
  if (wanted == "FlatGeobuf") RegisterOGRFlatGeobuf();
  return GDALGetDriverByName(name);
}

Options LayerOptions(std::string_view driver) {
  if (driver == "ESRI Shapefile") return MakeOptions({"ENCODING=UTF-8"});
  // An index would put the lines into its own order, and hold all their boxes until the end.
  if (driver == "FlatGeobuf") return MakeOptions({"SPATIAL_INDEX=NO"});
  return MakeOptions({});
}

}  // namespace

/// Keeps what GDAL says on this thread to the writer, for as long as it lives.
class GdalLineWriter::Listening {
 public:
  explicit Listening(GdalLineWriter& writer) { CPLPushErrorHandlerEx(Hear, &writer); }
  ~Listening() { CPLPopErrorHandler(); }

  Listening(const Listening&) = delete;
  Listening& operator=(const Listening&) = delete;

 private:
  static void CPL_STDCALL Hear(CPLErr kind, CPLErrorNum /*number*/, const char* text) {
    GdalLineWriter& writer = *static_cast<GdalLineWriter*>(CPLGetErrorHandlerUserData());
    std::string& kept = kind == CE_Warning ? writer.warning_ : writer.error_;
    // The first one is the cause, the others follow from it.
    if (kind >= CE_Warning && kept.empty()) kept = text;
  }
};

bool GdalLineWriter::KnowsCrs(const char* crs) {
  CPLPushErrorHandler(CPLQuietErrorHandler);
  const bool known = MakeCrs(crs) != nullptr;
  CPLPopErrorHandler();
  return known;
}

std::unique_ptr<GdalLineWriter> GdalLineWriter::Create(const VakDtmLineFile& file, std::string& error) {
  std::unique_ptr<GdalLineWriter> writer(new GdalLineWriter(file));
  if (writer->Open(file)) return writer;
  error = writer->Error();
  return nullptr;
}

GdalLineWriter::GdalLineWriter(const VakDtmLineFile& file)
    : isDrawing_(std::string_view(file.driver) == "DXF"),
      isShapefile_(std::string_view(file.driver) == "ESRI Shapefile"),
      isDatabase_(std::string_view(file.driver) == "GPKG"),
      hasZ_(file.hasZ != 0) {
  watched::Install();
  watched::Forget();
}

GdalLineWriter::~GdalLineWriter() {
  const Listening listening(*this);
  Close();
}

bool GdalLineWriter::Open(const VakDtmLineFile& file) {
  const Listening listening(*this);
  GDALDriverH driver = FindDriver(file.driver);
  if (!driver) {
    error_ = std::string("this GDAL has no driver ") + file.driver;
    return false;
  }
  SpatialReference crs(nullptr, OSRDestroySpatialReference);
  if (file.crs) crs = MakeCrs(file.crs);
  if (file.crs && !crs) {
    error_ = std::string("GDAL doesn't know ") + file.crs;
    return false;
  }
  // The file is a new one that nobody else knows: whole in the end, or removed. What keeps a database whole over a
  // crash would be for nothing.
  CPLSetThreadLocalConfigOption("OGR_SQLITE_SYNCHRONOUS", "OFF");
  CPLSetThreadLocalConfigOption("OGR_SQLITE_JOURNAL", "MEMORY");
  // SQLite tells every failure itself; by another way than its own it would be slower.
  const std::string path = isDatabase_ ? std::string(file.path) : watched::Path(file.path);
  // The drawing's entities wait in a file of their own for what stands in front of them.
  const std::string folder = path.substr(0, path.rfind('/'));
  CPLSetThreadLocalConfigOption("CPL_TMPDIR", folder.c_str());
  dataset_ = GDALCreate(driver, path.c_str(), 0, 0, 0, GDT_Unknown, nullptr);
  if (!dataset_) return Fail();
  const OGRwkbGeometryType type = hasZ_ || isDrawing_ ? wkbLineString25D : wkbLineString;
  const Options options = LayerOptions(file.driver);
  layer_ = GDALDatasetCreateLayer(dataset_, file.layer, crs.get(), type, options.get());
  if (!layer_ || !AddFields(file)) return Fail();
  feature_ = OGR_F_Create(OGR_L_GetLayerDefn(LayerOf(layer_)));
  if (OGR_F_SetGeometryDirectly(FeatureOf(feature_), OGR_G_CreateGeometry(type)) != OGRERR_NONE) return Fail();
  if (isDatabase_ && GDALDatasetStartTransaction(dataset_, FALSE) != OGRERR_NONE) return Fail();
  return error_.empty() || Fail();
}

bool GdalLineWriter::AddFields(const VakDtmLineFile& file) {
  if (isDrawing_) {
    layerField_ = OGR_FD_GetFieldIndex(OGR_L_GetLayerDefn(LayerOf(layer_)), "Layer");
    return layerField_ >= 0;
  }
  FieldSize size;
  if (isShapefile_ && !FindSize(file.levels, file.levelCount, size)) {
    error_ = "a level has too many digits for a field of a Shapefile";
    return false;
  }
  if (!isShapefile_) size = {0, 0};
  if (!AddField("level", OFTReal, size.width, size.decimals)) return false;
  if (!AddField("closed", OFTInteger, isShapefile_ ? 1 : 0, 0)) return false;
  if (!AddField("length", OFTReal, isShapefile_ ? kLengthWidth : 0, isShapefile_ ? kLengthDecimals : 0)) return false;
  OGRFeatureDefnH fields = OGR_L_GetLayerDefn(LayerOf(layer_));
  levelField_ = OGR_FD_GetFieldIndex(fields, "level");
  closedField_ = OGR_FD_GetFieldIndex(fields, "closed");
  lengthField_ = OGR_FD_GetFieldIndex(fields, "length");
  return levelField_ >= 0 && closedField_ >= 0 && lengthField_ >= 0;
}

bool GdalLineWriter::AddField(const char* name, int type, int width, int decimals) {
  OGRFieldDefnH field = OGR_Fld_Create(name, static_cast<OGRFieldType>(type));
  // A Shapefile's table has no such kind of number.
  if (type == OFTInteger && !isShapefile_) OGR_Fld_SetSubType(field, OFSTBoolean);
  OGR_Fld_SetWidth(field, width);
  OGR_Fld_SetPrecision(field, decimals);
  const OGRErr made = OGR_L_CreateField(LayerOf(layer_), field, FALSE);
  OGR_Fld_Destroy(field);
  return made == OGRERR_NONE;
}

bool GdalLineWriter::Write(const VakDtmLine& line) {
  const Listening listening(*this);
  const double* z = hasZ_ ? line.z : nullptr;
  if (isDrawing_ && !hasZ_) {
    elevations_.assign(line.count, line.level);
    z = elevations_.data();
  }
  constexpr int kStride = sizeof(double);
  OGR_G_SetPoints(OGR_F_GetGeometryRef(FeatureOf(feature_)), static_cast<int>(line.count), line.x, kStride, line.y,
                  kStride, z, z ? kStride : 0);
  SetFields(line);
  OGR_F_SetFID(FeatureOf(feature_), OGRNullFID);
  const bool written = OGR_L_CreateFeature(LayerOf(layer_), FeatureOf(feature_)) == OGRERR_NONE;
  return (written && error_.empty() && watched::Failure() == 0) || Fail();
}

void GdalLineWriter::SetFields(const VakDtmLine& line) {
  if (isDrawing_) return SetLayer(line.level);
  OGR_F_SetFieldDouble(FeatureOf(feature_), levelField_, line.level);
  OGR_F_SetFieldInteger(FeatureOf(feature_), closedField_, line.closed != 0 ? 1 : 0);
  OGR_F_SetFieldDouble(FeatureOf(feature_), lengthField_, line.length);
}

void GdalLineWriter::SetLayer(double level) {
  if (layerName_.empty() || level != layerLevel_) {
    layerName_ = hasZ_ ? std::string("OUTLINE") : "CONTOUR_" + Shortest(level);
    layerLevel_ = level;
  }
  OGR_F_SetFieldString(FeatureOf(feature_), layerField_, layerName_.c_str());
}

bool GdalLineWriter::Finish() {
  const Listening listening(*this);
  if (isDatabase_ && GDALDatasetCommitTransaction(dataset_) != OGRERR_NONE) return Fail();
  // Its spatial index is made here.
  if (isDatabase_ && OGR_L_SyncToDisk(LayerOf(layer_)) != OGRERR_NONE) return Fail();
  Close();
  return (error_.empty() && watched::Failure() == 0) || Fail();
}

bool GdalLineWriter::Fail() {
  errorNumber_ = watched::Failure();
  if (error_.empty()) error_ = errorNumber_ != 0 ? "it cannot be written to the end" : "GDAL refuses it";
  return false;
}

void GdalLineWriter::Close() {
  if (feature_) OGR_F_Destroy(FeatureOf(feature_));
  feature_ = nullptr;
  if (dataset_) GDALClose(dataset_);
  dataset_ = nullptr;
}

}  // namespace vak
