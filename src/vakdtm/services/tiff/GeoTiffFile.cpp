#include "vakdtm/services/tiff/GeoTiffFile.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <geotiffio.h>
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
  bool failed = false;  // something of it couldn't be written

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
    if (hasKeys && !Note(WriteKeys(tiff, keys))) reasons.Note(L"the coordinate system couldn't be written");
    errno = 0;
    // Closing alone wouldn't tell whether the rest could be written.
    Note(TIFFFlush(tiff) != 0);
    XTIFFClose(std::exchange(tiff, nullptr));
    return !failed;
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
  errno = 0;
  return image_->Note(TIFFSetField(image_->tiff, tag, value) != 0) ? 1 : 0;
}

int GeoTiffFile::ExtTIFFWriteScanline(void* buffer, unsigned long row, unsigned short sample) {
  if (!image_ || image_->tiff == nullptr) return -1;
  errno = 0;
  const int written = TIFFWriteScanline(image_->tiff, buffer, static_cast<std::uint32_t>(row), sample);
  image_->Note(written >= 0);
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
  AddGeographicKeys(system->Describe(), image_->keys);
  image_->hasKeys = true;
  return true;
}

bool GeoTiffFile::SetProjectionGeoKeys(VakGeoCoordSysBase* system, std::wstring& units) {
  if (!image_ || image_->tiff == nullptr || system == nullptr) return false;
  image_->hasKeys = true;
  std::wstring fault;
  if (AddProjectionKeys(system->Describe(), units, image_->keys, fault)) return true;
  image_->reasons.Note(L"the format can't express " + fault);
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
  return image_ ? image_->reasons.first : none;
}

}  // namespace vak
