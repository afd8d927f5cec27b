#pragma once

#include <atomic>
#include <span>
#include <string>

#include "vakdtm/services/device/CairoDevice.h"

namespace vak {

/// A word about a picture that is kept in its file: a key that PNG knows ("Title", "Author", "Description",
/// "Software") or one of one's own, and any text.
struct PictureNote {
  std::string key;  ///< 1 to 79 printable ASCII characters, with no blank at its ends nor two in a row
  std::wstring text;
};

/// An image in memory: red, green and blue of 8 bits each, 4 bytes a pixel.
///
/// A fill writes into the pixels directly, and all colours come back as they went in.
class ImageDevice final : public CairoDevice {
 public:
  ImageDevice() = default;
  ~ImageDevice() override = default;

  /// Makes an image of one colour, in place of the one before. What is selected stays.
  /// @param width,height  in pixels, 1 to `kLongestSide`.
  /// @param dotsPerInch   1 to 100,000.
  /// @return false when it can't be that large, or memory doesn't suffice; `LastError` says so. There is no image then.
  bool Create(int width, int height, double dotsPerInch = 96.0, Color background = 0xFFFFFF);

  /// Writes the image as a PNG file with its resolution, in place of a file that is there. More may be drawn
  /// afterwards.
  /// @param running  looked at between pieces of the file; when it falls, this ends early. Null: nobody stops it.
  /// @return false when it couldn't be written whole, or a note's key isn't as it should be; `LastError` says why. The
  /// file may have been begun then.
  bool SavePng(const std::wstring& path, std::span<const PictureNote> notes = {},
               const std::atomic<bool>* running = nullptr);

  void FillSolidRect(const PixelRect& rect, Color color) override;
  Color GetPixel(int x, int y) const override;
  /// Each pixel takes the colour of the one that lies under its middle.
  void DrawImage(const PixelRect& rect, const ImageDevice& image) override;
  /// The part has these dots per inch. @return false also when `part` is this image.
  bool LendPixels(const PixelRect& rect, ImageDevice& part) override;
};

}  // namespace vak
