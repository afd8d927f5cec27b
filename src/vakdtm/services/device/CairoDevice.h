#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "vakdtm/services/device/CDC.h"

namespace vak {

/// What images and pages have in common: lines, polygons and texts by way of the drawing library.
///
/// As long as there is no picture, each operation does nothing. What fails while drawing (no memory; a text, and no
/// font is installed) sticks: the picture can't be saved or finished then, which tells why.
class CairoDevice : public CDC {
 public:
  /// A side is no longer than this, in pixels; the drawing library's coordinates don't reach further.
  static constexpr int kLongestSide = 32'767;
  /// Text is at most as high, and a pen as wide; more counts as that.
  static constexpr int kHighestText = 1000;
  static constexpr int kWidestPen = 1000;

  ~CairoDevice() override;

  /// In pixels; 0 without a picture, as are the dots per inch.
  int Width() const { return width_; }
  int Height() const { return height_; }
  double DotsPerInch() const { return dotsPerInch_; }

  /// Whether slanted lines and the edges of polygons have pixels of colours in between on an image; at first they do.
  /// Texts always have them, fills never.
  void SetAntialiasing(bool on);

  void DrawPolyline(std::span<const PixelPoint> points) override;
  void FillPolygon(std::span<const PixelPoint> points, Color color) override;
  TextExtent GetTextExtent(const std::wstring& text) override;
  int GetDeviceCaps(int what) const override;

  /// Why the last operation that answers answered false; empty after true.
  const std::wstring& LastError() const { return lastError_; }

 protected:
  enum class Surface { kImage, kPdf, kSvg };

  struct Settings {
    Surface surface = Surface::kImage;
    int width = 0;
    int height = 0;
    double dotsPerInch = 0;
    std::wstring title;
  };
  /// Takes bytes. @return whether they arrived.
  using Sink = std::function<bool(const unsigned char* bytes, unsigned count)>;

  struct Canvas;

  CairoDevice();

  /// Whether there can be such a picture; `LastError` says why not.
  bool IsPossible(const Settings& settings);
  /// Makes the picture, in place of the one before.
  /// @param sink  where a page goes, piece by piece, until `FinishPage` has returned; not used by an image.
  bool Open(const Settings& settings, Sink sink);
  /// Makes an image of pixels that belong to somebody else, in place of the picture before, with what they show.
  /// @param stride  from one row to the next, in pixels.
  bool OpenOn(std::uint32_t* pixels, int stride, int width, int height, double dotsPerInch);
  /// Gives the picture up, finished or not.
  void Drop();

  void PrintText(int x, int y, const std::wstring& text, const PixelRect* clip) override;

  // Of a page.
  void FillOnPage(const PixelRect& rect, Color color);
  /// @param rect     all of it on the page.
  /// @param running  asked between pieces of work whether to go on.
  void DrawImageOnPage(const PixelRect& rect, const CairoDevice& image, const std::function<bool()>& running);
  bool FinishPage();

  // Of an image.
  /// The pixels, row by row, as 0x00RRGGBB, to be read or written until the next operation of this class; null without
  /// an image.
  std::uint32_t* Pixels() const {
    if (!touched_) Touch();
    return pixels_;
  }
  /// Paints pixels.
  void FillPixels(const PixelRect& rect, Color color);
  /// From one row to the next, in pixels.
  int Stride() const { return stride_; }
  /// @param sink  takes the image as a PNG file.
  bool EncodePng(const Sink& sink);

  /// What of a rectangle is on the picture.
  PixelRect Cut(const PixelRect& rect) const {
    return {rect.left > 0 ? rect.left : 0, rect.top > 0 ? rect.top : 0, rect.right < width_ ? rect.right : width_,
            rect.bottom < height_ ? rect.bottom : height_};
  }
  /// Red and blue change places between a colour and a pixel.
  static std::uint32_t Swapped(std::uint32_t rgb) {
    return (rgb & 0x00FF00U) | (rgb & 0xFFU) << 16 | (rgb >> 16 & 0xFFU);
  }

  bool Refuse(std::wstring why);
  bool Succeed();

 private:
  void DrawOnPixels(std::span<const PixelPoint> points, int width, Color color);
  void Touch() const;
  void Release() const;

  int width_ = 0;
  int height_ = 0;
  double dotsPerInch_ = 0;
  std::wstring lastError_;
  std::unique_ptr<Canvas> canvas_;
  std::uint32_t* pixels_ = nullptr;
  int stride_ = 0;
  mutable bool touched_ = false;  // the pixels were handed out, and the library hasn't drawn since
};

}  // namespace vak
