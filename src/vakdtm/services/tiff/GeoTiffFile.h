#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct tiff;

namespace vak {

class VakGeoCoordSysBase;
struct GeoCoordSysDescription;

/// A GeoTIFF image that is written: fields first, then scan lines from the top, then where the image lies, then
/// `Close`.
///
/// Nothing is printed: what the TIFF library has to say is kept for `LastError`. Belongs to one thread at a time.
class GeoTiffFile {
 public:
  GeoTiffFile();
  /// Closes an image that is still open, with what it has.
  ~GeoTiffFile();

  GeoTiffFile(const GeoTiffFile&) = delete;
  GeoTiffFile& operator=(const GeoTiffFile&) = delete;

  /// How many bytes the image may have, told before `CreateNewGeoTiffFile`: one that may pass 4 GiB is made a BigTIFF,
  /// which older programs can't read. At first 0.
  void SetExpectedSize(std::uint64_t bytes) { expectedSize_ = bytes; }

  /// Begins an image, in place of a file of that name and of an image that was open.
  /// @return the handle of the TIFF library, owned by this and good until `Close`; null on failure.
  tiff* CreateNewGeoTiffFile(const wchar_t* path);

  // What the TIFF library answers: 1 for done; 0 or negative on failure, and without an image.

  /// Sets a field of the image. @param tag  one of a single whole number that says how an image of scan lines is made
  /// up: its size, bits, samples, compression and the like. Any other is refused, as is a number that the field can't
  /// have.
  int ExtTIFFSetField(unsigned tag, int value);
  /// Writes a scan line. @param buffer  a line of samples, in this machine's order of bytes; its contents may be
  /// changed by that. @param row  from 0 at the top, each behind the one before: another is refused.
  /// @param sample  without effect: samples lie together.
  int ExtTIFFWriteScanline(void* buffer, unsigned long row, unsigned short sample);

  /// Notes the value that stands for "no value", as GDAL and what is built on it look for it. @return false without an
  /// image, or when the TIFF library refuses it.
  bool SetNoData(double value);
  /// Notes that the sample behind red, green and blue is how opaque a pixel is. @return as `SetNoData`.
  bool SetAlpha();

  // Where the image lies. False on failure: no image, or a null system.

  /// Writes what the system stands on, in place of all keys that there were: the kind of system, its name, and for one
  /// on the earth the geographic system.
  bool SetGeographicGeoKeys(VakGeoCoordSysBase* system);
  /// Writes the whole system, in place of all keys that there were: what it stands on; its plane, by its number in the
  /// EPSG register, else by its projection with all parameters; and the heights, when it has them.
  /// @param units  the name of the unit of x and y: "Metre", "Foot" or "US Survey Foot". Where the system has another
  /// one of these, the image gets the system's projection in this unit. Any other name counts as the system's own unit,
  /// as do all with a system in a fourth unit or in degrees.
  /// @return also false for a system that the format can't express, and `LastError` says what is missing until keys are
  /// set again: without its projection the image has the system's name alone, without its heights the plane.
  bool SetProjectionGeoKeys(VakGeoCoordSysBase* system, std::wstring& units);
  /// Pins the outer corner of a pixel, counted from the top left, to x and y.
  bool SetTiepoint(int column, int row, double x, double y);
  /// The size of a pixel in units of x and y.
  bool SetScale(double x, double y);

  /// Writes what is pending and closes the file. @return false when anything of the image couldn't be written, now or
  /// before, when lines of it are missing, and without an image.
  bool Close();

  /// What went wrong first since the image was begun, one sentence; empty when nothing did. Warnings aren't errors.
  const std::wstring& LastError() const;

 private:
  struct Image;

  std::uint64_t expectedSize_ = 0;
  std::unique_ptr<Image> image_;
};

}  // namespace vak
