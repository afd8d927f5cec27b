#include "GdalLineWriter.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cpl_conv.h>
#include <cpl_error.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <gdal.h>
#include <new>
#include <ogr_api.h>
#include <ogr_srs_api.h>
#include <ogrsf_frmts.h>
#include <string_view>
#include <vector>

#include "WatchedFiles.h"

namespace vak {
namespace {

// A field of a dBASE table has no more characters.
constexpr int kWidestField = 255;
// What GDAL gives a number that it knows nothing about.
constexpr int kLengthWidth = 24;
constexpr int kLengthDecimals = 15;
// Of a database's machine; a line takes some hundreds.
constexpr int kStepsBetweenLooks = 10000;

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

/// @return null when it isn't known.
SpatialReference MakeCrs(const char* text) {
  SpatialReference crs(OSRNewSpatialReference(nullptr), OSRDestroySpatialReference);
  OSRSetAxisMappingStrategy(crs.get(), OAMS_TRADITIONAL_GIS_ORDER);
  if (OSRSetFromUserInput(crs.get(), text) != OGRERR_NONE) crs.reset();
  return crs;
}

/// Lets GDAL say nothing on this thread.
class Quiet {
 public:
  Quiet() { CPLPushErrorHandler(CPLQuietErrorHandler); }
  ~Quiet() { CPLPopErrorHandler(); }

  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;
};

GDALDriverH FindDriver(const char* name) {
  // One driver is registered in a tenth of the time that all of them take.
  const std::string_view wanted = name;
  if (wanted == "ESRI Shapefile") RegisterOGRShape();
  if (wanted == "GPKG") RegisterOGRGeoPackage();
  if (wanted == "DXF") RegisterOGRDXF();
  if (wanted == "FlatGeobuf") RegisterOGRFlatGeobuf();
  return GDALGetDriverByName(name);
}

Options LayerOptions(std::string_view driver, bool hasIndex) {
  if (driver == "ESRI Shapefile") return MakeOptions({"ENCODING=UTF-8"});
  if (driver == "FlatGeobuf") return MakeOptions({hasIndex ? "SPATIAL_INDEX=YES" : "SPATIAL_INDEX=NO"});
  return MakeOptions({});
}

OGRFeatureH MakeFeature(OGRLayerH layer, OGRGeometryH geometry) {
  OGRFeatureH feature = OGR_F_Create(OGR_L_GetLayerDefn(layer));
  OGR_F_SetGeometryDirectly(feature, geometry);
  return feature;
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
    // It has no memory, and would end the process next.
    if (kind == CE_Fatal) throw std::bad_alloc();
    std::string& kept = kind == CE_Warning ? writer.warning_ : writer.error_;
    // The first one is the cause, the others follow from it.
    if (kind < CE_Warning || !kept.empty()) return;
    kept = text;
    // Messages are one line.
    std::replace_if(kept.begin(), kept.end(), [](char letter) { return letter == '\n' || letter == '\r'; }, ' ');
  }
};

VakDtmCrs GdalLineWriter::LookUpCrs(const char* crs, std::string& name) {
  const Quiet quiet;
  const SpatialReference system = MakeCrs(crs);
  // One that everybody has tells whether there are any.
  if (!system) return MakeCrs("EPSG:4326") ? kVakDtmCrsUnknown : kVakDtmCrsNoData;
  const char* const known = OSRGetName(system.get());
  name = known ? known : "";
  if (OSRIsGeocentric(system.get()) != 0) return kVakDtmCrsGeocentric;
  const bool isOfHeights = OSRIsVertical(system.get()) != 0 && OSRIsCompound(system.get()) == 0;
  return isOfHeights ? kVakDtmCrsOfHeights : kVakDtmCrsFits;
}

/// Whether a level reads back to the same double from such a field.
bool GdalLineWriter::Fits(double level, const FieldSize& size) {
  return ReadsBack(level, size.decimals) && static_cast<int>(Fixed(level, size.decimals).size()) <= size.width;
}

/// Widens a field until all the levels read back to the same double.
/// @return false when no field is wide enough; `size` is worth nothing then.
bool GdalLineWriter::Widen(const double* levels, std::size_t count, FieldSize& size) {
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

/// The smallest field for all the levels; where there is none, for as many of them, from the first, as go together.
/// The others may have no lines.
GdalLineWriter::FieldSize GdalLineWriter::FindSize(const double* levels, std::size_t count) {
  FieldSize size;
  if (Widen(levels, count, size)) return size;
  std::vector<double> taken;
  FieldSize wide;
  for (std::size_t i = 0; i < count; ++i) {
    if (Fits(levels[i], wide)) continue;
    taken.push_back(levels[i]);
    size = wide;
    if (Widen(taken.data(), taken.size(), size)) {
      wide = size;
    } else {
      taken.pop_back();
    }
  }
  return wide;
}

std::unique_ptr<GdalLineWriter> GdalLineWriter::Create(const VakDtmLineFile& file, std::string& error,
                                                       int& errorNumber) {
  std::unique_ptr<GdalLineWriter> writer(new GdalLineWriter(file));
  if (writer->Open(file)) return writer;
  error = writer->Error();
  errorNumber = writer->ErrorNumber();
  return nullptr;
}

GdalLineWriter::GdalLineWriter(const VakDtmLineFile& file)
    : isDrawing_(std::string_view(file.driver) == "DXF"),
      isShapefile_(std::string_view(file.driver) == "ESRI Shapefile"),
      isDatabase_(std::string_view(file.driver) == "GPKG"),
      isFlat_(std::string_view(file.driver) == "FlatGeobuf"),
      hasZ_(file.hasZ != 0),
      driver_(file.driver),
      name_(file.layer),
      crs_(nullptr, OSRDestroySpatialReference),
      stopped_(file.stopped) {
  watched::Install();
  watched::Forget();
  watched::StopWhen(file.stopped);
}

GdalLineWriter::~GdalLineWriter() {
  // What GDAL was in the middle of when its memory ended is in no state to be closed.
  if (outOfMemory_) return;
  try {
    const Listening listening(*this);
    Close();
  } catch (const std::bad_alloc&) {
    // What it still holds goes with the process, and the file is to be removed.
    outOfMemory_ = true;
  }
}

bool GdalLineWriter::Open(const VakDtmLineFile& file) {
  const Listening listening(*this);
  if (file.crs) crs_ = MakeCrs(file.crs);
  if (file.crs && !crs_) {
    error_ = std::string("GDAL doesn't know ") + file.crs;
    return false;
  }
  if (isShapefile_) levelSize_ = FindSize(file.levels, file.levelCount);
  // The file is a new one that nobody else knows: whole in the end, or removed. What keeps a database whole over a
  // crash would be for nothing.
  CPLSetThreadLocalConfigOption("OGR_SQLITE_SYNCHRONOUS", "OFF");
  CPLSetThreadLocalConfigOption("OGR_SQLITE_JOURNAL", "MEMORY");
  // SQLite tells every failure itself; by another way than its own it would be slower.
  path_ = isDatabase_ ? std::string(file.path) : watched::Path(file.path);
  // The drawing's entities wait in a file of their own for what stands in front of them.
  const std::string folder = path_.substr(0, path_.rfind('/'));
  CPLSetThreadLocalConfigOption("CPL_TMPDIR", folder.c_str());
  // An index would put the lines into its own order, and hold all their boxes until the end.
  return MakeFile(false);
}

bool GdalLineWriter::MakeFile(bool hasIndex) {
  GDALDriverH driver = FindDriver(driver_.c_str());
  if (!driver) {
    error_ = "this GDAL has no driver " + driver_;
    return false;
  }
  dataset_ = GDALCreate(driver, path_.c_str(), 0, 0, 0, GDT_Unknown, nullptr);
  if (!dataset_) return Fail();
  WatchForStop();
  const OGRwkbGeometryType type = hasZ_ || isDrawing_ ? wkbLineString25D : wkbLineString;
  const Options options = LayerOptions(driver_, hasIndex);
  layer_ = GDALDatasetCreateLayer(dataset_, name_.c_str(), crs_.get(), type, options.get());
  if (!layer_ || !AddFields()) return Fail();
  feature_ = MakeFeature(LayerOf(layer_), OGR_G_CreateGeometry(type));
  if (isDrawing_) ring_ = MakeFeature(LayerOf(layer_), OGR_G_CreateGeometry(wkbLinearRing));
  if (isDatabase_ && GDALDatasetStartTransaction(dataset_, FALSE) != OGRERR_NONE) return Fail();
  return error_.empty() || Fail();
}

bool GdalLineWriter::AddFields() {
  if (isDrawing_) {
    layerField_ = OGR_FD_GetFieldIndex(OGR_L_GetLayerDefn(LayerOf(layer_)), "Layer");
    return layerField_ >= 0;
  }
  const FieldSize size = isShapefile_ ? levelSize_ : FieldSize{0, 0};
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
  if (isShapefile_ && !HasRoomFor(line.level)) return false;
  void* const feature = Fill(line);
  OGR_F_SetFID(FeatureOf(feature), OGRNullFID);
  const bool written = OGR_L_CreateFeature(LayerOf(layer_), FeatureOf(feature)) == OGRERR_NONE;
  isEmpty_ = false;
  return (written && error_.empty() && watched::Failure() == 0) || Fail();
}

bool GdalLineWriter::HasRoomFor(double level) {
  if (hasLevel_ && level == level_) return true;
  if (!Fits(level, levelSize_)) {
    error_ = "level " + Shortest(level) + " has too many digits for a Shapefile";
    return false;
  }
  hasLevel_ = true;
  level_ = level;
  return true;
}

/// @return the feature that holds the line.
void* GdalLineWriter::Fill(const VakDtmLine& line) {
  const double* z = hasZ_ ? line.z : nullptr;
  if (isDrawing_ && !hasZ_) {
    elevations_.assign(line.count, line.level);
    z = elevations_.data();
  }
  // A drawing's closed line goes from the last vertex back to the first by itself.
  const bool isRing = isDrawing_ && line.closed != 0 && line.count > 3;
  void* const feature = isRing ? ring_ : feature_;
  const std::size_t count = isRing ? line.count - 1 : line.count;
  constexpr int kStride = sizeof(double);
  OGR_G_SetPoints(OGR_F_GetGeometryRef(FeatureOf(feature)), static_cast<int>(count), line.x, kStride, line.y, kStride,
                  z, z ? kStride : 0);
  if (isDrawing_) {
    SetLayer(FeatureOf(feature), line.level);
  } else {
    OGR_F_SetFieldDouble(FeatureOf(feature), levelField_, line.level);
    OGR_F_SetFieldInteger(FeatureOf(feature), closedField_, line.closed != 0 ? 1 : 0);
    OGR_F_SetFieldDouble(FeatureOf(feature), lengthField_, line.length);
  }
  return feature;
}

void GdalLineWriter::SetLayer(void* feature, double level) {
  if (!hasLevel_ || level != level_) layerName_ = hasZ_ ? std::string("OUTLINE") : "CONTOUR_" + Shortest(level);
  hasLevel_ = true;
  level_ = level;
  OGR_F_SetFieldString(FeatureOf(feature), layerField_, layerName_.c_str());
}

bool GdalLineWriter::Finish() {
  const Listening listening(*this);
  if (isDatabase_ && GDALDatasetCommitTransaction(dataset_) != OGRERR_NONE) return Fail();
  // Its spatial index is made here.
  if (isDatabase_ && OGR_L_SyncToDisk(LayerOf(layer_)) != OGRERR_NONE) return Fail();
  Close();
  if (isFlat_ && isEmpty_ && error_.empty()) {
    // Its driver writes the head of such a file with the first line, or with an index: without a line, there would be
    // no byte in it.
    VSIUnlink(path_.c_str());
    if (!MakeFile(true)) return false;
    Close();
  }
  return (error_.empty() && watched::Failure() == 0) || Fail();
}

int GdalLineWriter::NoteFailure() {
  if (!error_.empty()) return 0;
  outOfMemory_ = true;
  errorNumber_ = ENOMEM;
  return 0;
}

/// Lets a database ask between its steps: its index is made in one call, which takes as long as it takes.
void GdalLineWriter::WatchForStop() {
  if (!isDatabase_) return;
  void* const database = GDALGetInternalHandle(dataset_, "SQLITE_HANDLE");
  // GDAL brings the library along; where it has another one in itself, there is no way to it.
  void* const library = dlopen("libsqlite3.so.0", RTLD_NOW | RTLD_NOLOAD);
  if (!library) return;
  using Watch = void (*)(void* database, int steps, int (*isStopped)(void*), void* data);
  const auto watch = reinterpret_cast<Watch>(dlsym(library, "sqlite3_progress_handler"));
  if (database && watch) watch(database, kStepsBetweenLooks, IsStopped, this);
  dlclose(library);  // its count alone goes down
}

int GdalLineWriter::IsStopped(void* writer) { return static_cast<GdalLineWriter*>(writer)->stopped_(); }

bool GdalLineWriter::Fail() {
  errorNumber_ = watched::Failure();
  if (error_.empty()) error_ = errorNumber_ != 0 ? "it cannot be written to the end" : "GDAL refuses it";
  return false;
}

void GdalLineWriter::Close() {
  if (feature_) OGR_F_Destroy(FeatureOf(feature_));
  if (ring_) OGR_F_Destroy(FeatureOf(ring_));
  feature_ = nullptr;
  ring_ = nullptr;
  if (dataset_) GDALClose(dataset_);
  dataset_ = nullptr;
}

}  // namespace vak
