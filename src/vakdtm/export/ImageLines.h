#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "vakdtm/export/CellRows.h"
#include "vakdtm/services/color/Color.h"
#include "vakdtm/services/color/ColorShade.h"

namespace vak {

class ColorTable;
class DtmAccess;
class PolyClipLine;

/// How the cells of a model become the pixels of an image.
struct ImageRules {
  int blockId = 0;                        ///< the kind of value that is shown
  bool isHeight = false;                  ///< whether that is a height
  double noValue = 0;                     ///< what a cell without a value is taken to have; the empty value: nothing
  double cellSize = 1;                    ///< metres
  const PolyClipLine* polygon = nullptr;  ///< null: none

  bool colourImage = true;     ///< red, green, blue, alpha; else floats
  float emptyRasterValue = 0;  ///< of an empty pixel of floats

  const ColorTable* table = nullptr;
  double factor = 1;      ///< on a value before it is coloured
  double offset = 0;      ///< on what that gives
  double endOfToday = 0;  ///< seconds since 1970: times are coloured by the days up to then

  bool shaded = false;
  double elevation = 0;     ///< of the sun, radians
  double ambientLight = 0;  ///< added to the lightness
  double strength = 1;      ///< factor on slopes
  int sunStep = 0;          ///< compass step of the sun, 0 to 7, clockwise from the north
  double sunDistance = 1;   ///< between the centres of neighbours in that direction, metres
};

/// Makes the scan lines of an image, from the top downwards. For the thread that has the access.
class ImageLines {
 public:
  /// @param access,rules  outlive this, with what the rules point to; nobody else uses the access meanwhile.
  /// @param firstCol,lastCol  of the image, both inclusive.
  ImageLines(DtmAccess& access, const ImageRules& rules, int firstCol, int lastCol);

  /// How many bytes of memory making lines takes for each of their pixels.
  static std::uint64_t MemoryOfPixel(const ImageRules& rules);

  /// Bytes of a scan line: four a pixel.
  std::size_t LineBytes() const { return width_ * kPixelBytes; }

  /// Makes a line. @param row  of cells; that below the one before, after the first.
  void Make(std::int64_t row, std::byte* line);

  /// Of the lines so far, how many pixels aren't empty, and how many of these look as if they were.
  std::int64_t PixelsWithValue() const { return pixelsWithValue_; }
  std::int64_t PixelsLikeEmpty() const { return pixelsLikeEmpty_; }
  /// How many have a value that no 32-bit float reaches, and are infinite in a raster.
  std::int64_t PixelsBeyondFloats() const { return pixelsBeyondFloats_; }

 private:
  static constexpr std::size_t kPixelBytes = 4;
  /// The row of heights above a cell's, its own, the one below; each begins one column before the image.
  enum Neighbour : std::size_t { kAbove, kOwn, kBelow };

  bool IsEmpty(std::int64_t row, std::size_t pixel, double value) const;
  void MakeRaster(std::int64_t row, std::byte* line);
  void MakeColours(std::int64_t row, std::byte* line);
  void ReadHeights(std::int64_t row, Neighbour to);
  void ReadOwnHeights(std::int64_t row);
  Color PlainColour(double value) const;
  Color Shaded(std::size_t pixel, Color colour);
  bool FindSlope(std::size_t pixel, double height, double& slope) const;

  const ImageRules& rules_;
  std::int64_t firstCol_;
  std::size_t width_;
  bool shades_;          // whether heights are asked for
  std::size_t heights_;  // their place among the kinds of value
  CellRows rows_;
  std::vector<double> values_;
  std::array<std::vector<double>, 3> neighbours_;
  bool heightsRead_ = false;  // those below the line before, which is to be followed by the one below it
  ColorShades shadesOfColours_;
  std::int64_t pixelsWithValue_ = 0;
  std::int64_t pixelsLikeEmpty_ = 0;
  std::int64_t pixelsBeyondFloats_ = 0;
};

}  // namespace vak
