#pragma once

#include <string>

#include "ExportTarget.h"
#include "UnfinishedSet.h"

namespace vak {

/// Where a GeoTIFF image goes, with its world file if it has one: both are made out of sight and appear together.
///
/// With an image whose name ends in ".tif" or ".tiff" goes what an earlier one of that name had beside it: a world
/// file, and what GDAL and its like have gathered about it, which would be wrong for the new one. Another name, a
/// device or standard output gets the image alone.
class ImageTarget {
 public:
  /// Whether an image of that name can have a world file.
  static bool IsTiffName(const std::string& path);

  /// All names of files that go when an image of that name comes; its own is the first.
  static std::vector<std::string> Names(const std::string& path);

  /// To be called once. @return false when there can be no image; `Error` tells why.
  [[nodiscard]] bool Open(const std::string& path);

  /// The file to write.
  [[nodiscard]] std::wstring Path() const;
  /// The same for the world file; of a name that ends in ".tif" or ".tiff" only.
  [[nodiscard]] std::wstring WorldFilePath() const;

  /// Puts everything in its place. @return false when that failed; what was there is as it was.
  [[nodiscard]] bool Commit();

  [[nodiscard]] const std::string& Name() const { return isSet_ ? name_ : alone_.Name(); }
  [[nodiscard]] const std::string& Error() const { return isSet_ ? error_ : alone_.Error(); }
  /// What to do about it.
  [[nodiscard]] std::string Remedy() const { return isSet_ ? remedy_ : alone_.Remedy(); }
  [[nodiscard]] bool ReaderGone() const { return !isSet_ && alone_.ReaderGone(); }

 private:
  bool FailWith(int error);

  bool isSet_ = false;
  std::string name_;
  std::string error_;
  std::string remedy_ = "make room, or name another file with -o";
  UnfinishedSet set_;
  ExportTarget alone_;
};

/// A size for people: whole gigabytes (1e9 bytes) from ten upwards, else whole megabytes from ten upwards, else bytes;
/// never more than it is.
std::string SizeText(double bytes);

}  // namespace vak
