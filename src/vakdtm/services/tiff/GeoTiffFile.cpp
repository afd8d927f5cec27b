#include "vakdtm/services/tiff/GeoTiffFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <geotiffio.h>
#include <limits>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>
#include <xtiffio.h>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/services/tiff/GeoKeys.h"

namespace vak {
namespace {

/// A TIFF's places are 32-bit numbers; what is beside the samples is counted in generously.
constexpr std::uint64_t kMostOfSmallTiff = (std::uint64_t{1} << 32) - (std::uint64_t{1} << 24);

/// Where GDAL and what is built on it look for the value of "no value": a text.
constexpr unsigned kNoDataTag = 42113;

std::string Formatted(const char* format, va_list arguments) {
  std::array<char, 512> text{};
  const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
  return length < 0 ? std::string(format) : std::string(text.data());
}

/// Lets the TIFF library know the fields of georeferencing, once in a process.
void KnowGeoFields() {
  static std::once_flag once;
  std::call_once(once, XTIFFInitialize);
}

/// What an image that is being written has gathered.
struct Reasons {
  std::wstring first;  // what went wrong first

  void Note(const std::wstring& reason) {
    if (first.empty()) first = reason;
  }
};

/// The TIFF library's handler of errors: keeps the system's reason where there is one, else what it says itself.
int KeepError(TIFF* /*image*/, void* reasons, const char* module, const char* format, va_list arguments) {
  const int cause = errno;
  std::string text = Formatted(format, arguments);
  if (module != nullptr && *module != '\0') text = std::string(module) + ": " + text;
  if (cause != 0) text = std::generic_category().message(cause);
  static_cast<Reasons*>(reasons)->Note(FromUtf8(text));
  return 1;
}

/// Its warnings are about nothing that a reader of the image would miss.
int DropWarning(TIFF* /*image*/, void* /*reasons*/, const char* /*module*/, const char* /*format*/,
                va_list /*arguments*/) {
  return 1;
}

/// What the library of the keys has to say about them, which its answers tell too.
void DropKeyMessage(gtiff* /*keys*/, int /*level*/, const char* /*format*/, ...) {}

/// A field of one whole number, and which ones it takes.
struct NumberField {
  unsigned tag;
  int least;
  int most;
};

constexpr int kMostOfShort = 65535;

/// The library reads as many arguments as a field has, of the type that it has: others would be read from nowhere.
constexpr std::array kNumberFields{NumberField{TIFFTAG_SUBFILETYPE, 0, 7},
                                   NumberField{TIFFTAG_IMAGEWIDTH, 1, std::numeric_limits<int>::max()},
                                   NumberField{TIFFTAG_IMAGELENGTH, 1, std::numeric_limits<int>::max()},
                                   NumberField{TIFFTAG_BITSPERSAMPLE, 1, 64},
                                   NumberField{TIFFTAG_COMPRESSION, 1, kMostOfShort},
                                   NumberField{TIFFTAG_PHOTOMETRIC, 0, kMostOfShort},
                                   NumberField{TIFFTAG_THRESHHOLDING, 1, 3},
                                   NumberField{TIFFTAG_FILLORDER, 1, 2},
                                   NumberField{TIFFTAG_ORIENTATION, 1, 8},
                                   NumberField{TIFFTAG_SAMPLESPERPIXEL, 1, kMostOfShort},
                                   NumberField{TIFFTAG_ROWSPERSTRIP, 1, std::numeric_limits<int>::max()},
                                   NumberField{TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG, PLANARCONFIG_CONTIG},
                                   NumberField{TIFFTAG_RESOLUTIONUNIT, 1, 3},
                                   NumberField{TIFFTAG_PREDICTOR, 1, 3},
                                   NumberField{TIFFTAG_SAMPLEFORMAT, 1, 6}};

/// Whether a field takes a number, else why it doesn't.
std::wstring FaultOfField(TIFF* image, unsigned tag, int value) {
  const auto* const found = std::find_if(kNumberFields.begin(), kNumberFields.end(),
                                         [&](const NumberField& each) { return each.tag == tag; });
  // A method of compression brings fields of its own.
  if (found == kNumberFields.end() || TIFFFindField(image, tag, TIFF_ANY) == nullptr) {
    return L"field " + std::to_wstring(tag) + L" isn't one of a single whole number";
  }
  const bool taken = value >= found->least && value <= found->most;
  if (taken && (tag != TIFFTAG_COMPRESSION || TIFFIsCODECConfigured(static_cast<std::uint16_t>(value)) != 0)) return {};
  return L"field " + std::to_wstring(tag) + L" can't be " + std::to_wstring(value);
}

struct FreeOptions {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};
struct FreeKeys {
  void operator()(GTIF* keys) const { GTIFFree(keys); }
};

TIFF* OpenForWriting(const std::string& path, bool big, Reasons& reasons) {
  KnowGeoFields();
  const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
  if (!options) return nullptr;
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), KeepError, &reasons);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), DropWarning, nullptr);
  errno = 0;
  TIFF* const image = TIFFOpenExt(path.c_str(), big ? "w8" : "w", options.get());
  if (image == nullptr) return nullptr;
  static constexpr TIFFFieldInfo kNoDataField[] = {
      {kNoDataTag, TIFF_VARIABLE, TIFF_VARIABLE, TIFF_ASCII, FIELD_CUSTOM, 1, 0, const_cast<char*>("NoData")}};
  TIFFMergeFieldInfo(image, kNoDataField, 1);
  return image;
}

/// @return false when the library took one of them not.
bool WriteKeys(TIFF* image, const GeoKeys& keys) {
  const std::unique_ptr<GTIF, FreeKeys> written(GTIFNewEx(image, DropKeyMessage, nullptr));
  if (!written) return false;
  if (keys.revised) {
    GTIFSetVersionNumbers(written.get(), GEOTIFF_SPEC_1_1_VERSION, GEOTIFF_SPEC_1_1_KEY_REVISION,
                          GEOTIFF_SPEC_1_1_MINOR_REVISION);
  }
  bool good = true;
  for (const auto& [key, value] : keys.numbers) {
    good &=
        GTIFKeySet(written.get(), static_cast<geokey_t>(key), TYPE_SHORT, 1, static_cast<unsigned short>(value)) != 0;
  }
  for (const auto& [key, values] : keys.reals) {
    // One number is given as it is, several by their address.
    good &= (values.size() == 1 ? GTIFKeySet(written.get(), static_cast<geokey_t>(key), TYPE_DOUBLE, 1, values.front())
                                : GTIFKeySet(written.get(), static_cast<geokey_t>(key), TYPE_DOUBLE,
                                             static_cast<int>(values.size()), values.data())) != 0;
  }
  for (const auto& [key, text] : keys.texts) {
    good &= GTIFKeySet(written.get(), static_cast<geokey_t>(key), TYPE_ASCII, 0, text.c_str()) != 0;
  }
  return good && GTIFWriteKeys(written.get()) != 0;
}

}  // namespace

struct GeoTiffFile::Image {
  Reasons reasons;
  TIFF* tiff = nullptr;
  GeoKeys keys;
  bool hasKeys = false;
  std::wstring keyFault;       // what the keys can't say of the system
  bool failed = false;         // something of it couldn't be written
  std::uint32_t rowsDone = 0;  // scan lines written, from the top

  Image() = default;
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image() { Close(); }

  /// @return `done`, whose falseness is remembered.
  bool Note(bool done) {
    failed |= !done;
    return done;
  }

  bool Close() {
    if (tiff == nullptr) return !failed;
    LookAtRows();
    if (hasKeys && !Note(WriteKeys(tiff, keys))) reasons.Note(L"the coordinate system couldn't be written");
    errno = 0;
    // Closing alone wouldn't tell whether the rest could be written.
    Note(TIFFFlush(tiff) != 0);
    XTIFFClose(std::exchange(tiff, nullptr));
    return !failed;
  }

  std::uint32_t Rows() const {
    std::uint32_t rows = 0;
    return TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &rows) != 0 ? rows : 0;
  }

  /// An image without all of its lines can't be opened, or is short.
  void LookAtRows() {
    const std::uint32_t rows = Rows();
    if (Note(rows > 0 && rowsDone == rows)) return;
    reasons.Note(std::to_wstring(rowsDone) + L" of " + std::to_wstring(rows) + L" lines of the image were written");
  }
};

GeoTiffFile::GeoTiffFile() = default;
GeoTiffFile::~GeoTiffFile() = default;

tiff* GeoTiffFile::CreateNewGeoTiffFile(const wchar_t* path) {
  image_ = std::make_unique<Image>();
  image_->tiff = OpenForWriting(ToUtf8(path), expectedSize_ > kMostOfSmallTiff, image_->reasons);
  image_->Note(image_->tiff != nullptr);
  return image_->tiff;
}

int GeoTiffFile::ExtTIFFSetField(unsigned tag, int value) {
  if (!image_ || image_->tiff == nullptr) return 0;
  if (const std::wstring fault = FaultOfField(image_->tiff, tag, value); !fault.empty()) {
    image_->reasons.Note(fault);
    return image_->Note(false) ? 1 : 0;
  }
  errno = 0;
  return image_->Note(TIFFSetField(image_->tiff, tag, value) != 0) ? 1 : 0;
}

int GeoTiffFile::ExtTIFFWriteScanline(void* buffer, unsigned long row, unsigned short sample) {
  if (!image_ || image_->tiff == nullptr) return -1;
  if (row != image_->rowsDone || row >= image_->Rows()) {
    image_->reasons.Note(L"line " + std::to_wstring(row) + L" of the image isn't the next one of its " +
                         std::to_wstring(image_->Rows()));
    image_->Note(false);
    return -1;
  }
  errno = 0;
  const int written = TIFFWriteScanline(image_->tiff, buffer, image_->rowsDone, sample);
  if (image_->Note(written >= 0)) ++image_->rowsDone;
  return written;
}

bool GeoTiffFile::SetNoData(double value) {
  if (!image_ || image_->tiff == nullptr) return false;
  std::string text;
  AppendNumber(text, value);
  return image_->Note(TIFFSetField(image_->tiff, kNoDataTag, text.c_str()) != 0);
}

bool GeoTiffFile::SetAlpha() {
  if (!image_ || image_->tiff == nullptr) return false;
  constexpr std::uint16_t kKinds[] = {EXTRASAMPLE_UNASSALPHA};
  return image_->Note(TIFFSetField(image_->tiff, TIFFTAG_EXTRASAMPLES, 1, kKinds) != 0);
}

bool GeoTiffFile::SetGeographicGeoKeys(VakGeoCoordSysBase* system) {
  if (!image_ || image_->tiff == nullptr || system == nullptr) return false;
  image_->keys = GeographicKeys(system->Describe());
  image_->keyFault.clear();
  image_->hasKeys = true;
  return true;
}

bool GeoTiffFile::SetProjectionGeoKeys(VakGeoCoordSysBase* system, std::wstring& units) {
  if (!image_ || image_->tiff == nullptr || system == nullptr) return false;
  image_->keyFault.clear();
  image_->hasKeys = true;
  std::wstring fault;
  if (MakeGeoKeys(system->Describe(), units, image_->keys, fault)) return true;
  image_->keyFault = L"the format can't express " + fault;
  return false;
}

bool GeoTiffFile::SetTiepoint(int column, int row, double x, double y) {
  if (!image_ || image_->tiff == nullptr) return false;
  const std::array<double, 6> tie{static_cast<double>(column), static_cast<double>(row), 0, x, y, 0};
  return image_->Note(TIFFSetField(image_->tiff, TIFFTAG_GEOTIEPOINTS, static_cast<int>(tie.size()), tie.data()) != 0);
}

bool GeoTiffFile::SetScale(double x, double y) {
  if (!image_ || image_->tiff == nullptr) return false;
  const std::array<double, 3> scale{x, y, 0};
  return image_->Note(TIFFSetField(image_->tiff, TIFFTAG_GEOPIXELSCALE, static_cast<int>(scale.size()), scale.data()) !=
                      0);
}

bool GeoTiffFile::Close() {
  if (!image_ || image_->tiff == nullptr) return false;
  return image_->Close();
}

const std::wstring& GeoTiffFile::LastError() const {
  static const std::wstring none;
  if (!image_) return none;
  return image_->reasons.first.empty() ? image_->keyFault : image_->reasons.first;
}

}  // namespace vak
