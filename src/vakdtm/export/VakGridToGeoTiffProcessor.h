#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/jobs/Processor.h"

namespace vak {

class DtmAccess;
class GeoTiffFile;
class Page;
class PolyClipLine;
struct ImageRules;

/// The job that turns a grid model into a GeoTIFF image: of colours by a colour table, shaded by a low sun if wanted,
/// or a raster of 32-bit floating-point samples. A pixel is a cell; rows go upwards in the model and downwards in the
/// image, so that its first scan line is the model's last row.
///
/// `SetInitInfo`, the setters, `Initialize`, `Process`. The job opens the model itself and may run on another thread
/// than the one that made it.
///
/// Without a polygon the image spans whole areas; with one, the polygon's extents. A cell is empty when its centre
/// isn't in the polygon, it can't be read, or it has no value and there is no value for empty cells: white and
/// transparent, or the raster's empty value.
///
/// The coordinate system is that of the current project; without one `Process` fails, and leaves the image without it.
///
/// An image may have any number of pixels, but a few of its scan lines are in memory: it is refused, before there is a
/// file, when they would take more than half of what the machine has.
///
/// False doesn't mean that nothing was written: an image that failed or was stopped stays as far as it came.
class VakGridToGeoTiffProcessor : public Processor {
 public:
  /// What a failure is about.
  enum class Fault {
    kNone,    ///< There was none, or it was stopped.
    kModel,   ///< The model can't be opened, or has nothing to show.
    kColors,  ///< The colour table can't be read.
    kSize,    ///< The image has more rows or columns than can be counted, or than there is memory for.
    kSystem,  ///< The project has no coordinate system.
    kImage    ///< The image or its world file can't be written.
  };

  /// An image of heights in colours.
  VakGridToGeoTiffProcessor();
  /// @param blockId           the kind of value that the image shows.
  /// @param colourImage       true: red, green, blue, alpha. False: a raster.
  /// @param emptyRasterValue  what an empty pixel of a raster has.
  VakGridToGeoTiffProcessor(int blockId, bool colourImage, float emptyRasterValue);
  ~VakGridToGeoTiffProcessor() override;

  /// @param imagePath   the file to write.
  /// @param colorTable  the file of the colour table; empty: none is read.
  /// @param gridPath    the model.
  /// @param polygon     limits the image; null: none. The caller keeps it until the job is over.
  /// @param worldFile   whether a world file goes beside the image. Its name is the image's with every ".tif" replaced
  /// by
  ///                    ".tfw"; with none in it, the image's own, which it then overwrites.
  void SetInitInfo(std::wstring imagePath, std::wstring colorTable, std::wstring gridPath, PolyClipLine* polygon,
                   bool worldFile);
  /// The same with the table itself, of which a copy is kept.
  void SetInitInfo(std::wstring imagePath, ColorTable table, std::wstring gridPath, PolyClipLine* polygon,
                   bool worldFile);

  /// Shades a colour image; off at first. Times are never shaded.
  /// @param direction  degrees to the sun, clockwise from the north, taken to the nearest of eight compass steps.
  /// @param elevation  degrees above the horizon.
  /// @param strength   factor on heights.
  void SetSunIllumination(bool on, double direction, double elevation, double strength);
  /// What a cell without a value is taken to have.
  void SetEmptyCellValue(double value);
  /// A value is coloured as value * factor + offset; 1 and 0 at first.
  void SetPresentationUnitFactor(double factor) { presentationFactor_ = factor; }
  void SetPresentationUnitOffset(double offset) { presentationOffset_ = offset; }
  /// Notes in the image what its form doesn't say: the value of a raster's empty pixels, and that the fourth sample of
  /// a colour image is its transparency. Without that, as at first, readers guess.
  void SetTellsReaders(bool tells) { tellsReaders_ = tells; }
  /// How much memory scan lines may take in all, in bytes; at first half of what the machine has.
  void SetLineMemory(std::uint64_t bytes) { lineMemory_ = bytes; }
  /// @param page  gets the image's outer edges in model units when it is done; null: nobody wants them. Not owned.
  void SetExtentsPage(Page* page) { extentsPage_ = page; }

  /// Reads the colour table and opens the model. @return false when either can't be.
  bool Initialize() override;
  bool Process() override;
  /// 0 until a pixel is done, then the share of pixels done.
  double GetProgress() const override;

  /// Why `Initialize` or `Process` answered false, one sentence; empty when there is nothing to say.
  const std::wstring& LastError() const { return lastError_; }
  Fault LastFault() const { return lastFault_; }
  /// What an image lacks that was made all the same: a system that the format can't express; empty when nothing.
  const std::wstring& LastWarning() const { return lastWarning_; }
  /// How many pixels of the last image aren't empty.
  std::int64_t PixelsWithValue() const { return pixelsWithValue_; }
  /// How many of these have, in a raster, just what an empty pixel has.
  std::int64_t PixelsLikeEmpty() const { return pixelsLikeEmpty_; }
  /// How many have, in a raster, become infinite, as their values lie beyond what a 32-bit float can hold.
  std::int64_t PixelsBeyondFloats() const { return pixelsBeyondFloats_; }

 private:
  bool Init(const std::wstring& gridPath, const std::wstring& imagePath, const std::wstring& colorTable);
  bool ReadColorTable(std::wstring name);
  bool FindExtents();
  bool HasMemoryForLines() const;
  void SetFields();
  ImageRules Rules() const;
  bool WriteDtmToTiff();
  double SunDistance() const;
  bool FailWith(Fault fault, const std::wstring& reason);

  ColorTable colorTable_;
  PolyClipLine* polygon_ = nullptr;
  std::wstring imagePath_;
  std::unique_ptr<DtmAccess> access_;
  std::unique_ptr<GeoTiffFile> image_;
  int width_ = 0;
  int height_ = 0;
  std::atomic<long long> pixelsDone_{0};
  int firstRow_ = 0;
  int firstCol_ = 0;
  int lastRow_ = 0;
  int lastCol_ = 0;
  std::atomic<long long> totalPixels_{0};
  int blockId_;
  std::wstring gridPath_;
  std::wstring colorTableName_;
  bool worldFile_ = true;
  bool sun_ = false;
  double sunElevation_;  // radians
  double ambientLight_ = 0;
  double sunStrength_ = 1.0;
  int sunDirection_ = 3;  // compass step
  double cellSizeX_ = 0;
  double cellSizeY_ = 0;
  double cellDiagonal_ = 0;
  bool isHeight_;  // the block's Z flag
  double presentationFactor_ = 1.0;
  double presentationOffset_ = 0;
  double endOfToday_ = 0;  // seconds since 1970
  Page* extentsPage_ = nullptr;
  bool hasEmptyCellValue_ = false;
  double emptyCellValue_ = 0;
  bool colourImage_;
  float emptyRasterValue_;
  bool tellsReaders_ = false;
  std::int64_t pixelsWithValue_ = 0;
  std::int64_t pixelsLikeEmpty_ = 0;
  std::int64_t pixelsBeyondFloats_ = 0;
  std::uint64_t lineMemory_;
  Fault lastFault_ = Fault::kNone;
  std::wstring lastError_;
  std::wstring lastWarning_;
};

}  // namespace vak
