#pragma once

#include <string>

#include "vakdtm/services/geometry/Page.h"

namespace vak {

class PolyClipLine;

/// Makes a GeoTIFF image of a grid model in one call: prepares a colour table when none is given, and runs the job with
/// its progress shown.
class GeoTiffFileCreator {
 public:
  GeoTiffFileCreator() = default;
  virtual ~GeoTiffFileCreator() = default;

  GeoTiffFileCreator(const GeoTiffFileCreator&) = delete;
  GeoTiffFileCreator& operator=(const GeoTiffFileCreator&) = delete;

  /// The parameters are those of `VakGridToGeoTiffProcessor`. Names are completed as files of their kinds. Without the
  /// name of a colour table a colour image gets one of 256 greys over the model's range, which is written among the
  /// colour tables under the model's name with ".colors" behind it.
  ///
  /// Where the model has no value of that kind, or the table can't be written, one that was there before under this
  /// name is used as it is, whatever kind it was made for; with none the answer is false.
  /// @return false when the model can't be opened, and when the job failed or was stopped.
  bool CreateFileFromGridModel(std::wstring gridPath, std::wstring imagePath, std::wstring colorTable, int blockId,
                               PolyClipLine* polygon, bool worldFile, bool sun, double sunDirection,
                               double sunElevation, double sunStrength, bool colourImage, float emptyRasterValue);

  /// The outer edges of the last image in model units; invalid when there is none.
  Page GetExtents() const { return extents_; }

 private:
  int blockId_ = 0;
  Page extents_;
};

}  // namespace vak
