#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

#include "vakdtm/services/device/CairoDevice.h"
#include "vakdtm/services/files/OutputFile.h"

namespace vak {

/// A page of a PDF file, or an SVG file. Lines, polygons and fills stay what they are, at any magnification; images are
/// embedded with their own pixels, which no viewer is to smooth; texts in PDF can be searched and copied, in SVG they
/// are outlines, so that they look the same without the font.
///
/// A viewer may leave a hairline between fills that touch: what has many cells is better drawn on an `ImageDevice` and
/// put on the page as one image.
///
/// Coordinates are pixels as on an image; the page is as large as an image with these dots per inch. It has no pixels
/// to be read: `GetPixel` gives white.
class PageDevice final : public CairoDevice {
 public:
  enum class Format { kPdf, kSvg };

  PageDevice() = default;
  /// Gives up a page that wasn't finished: its file is not whole.
  ~PageDevice() override;

  /// Begins the file, in place of one that is there. What is selected stays.
  /// @param width,height  in pixels, 1 to `kLongestSide`; of a PDF page 200 inches at most.
  /// @param dotsPerInch   1 to 100,000.
  /// @param title         of the PDF document; empty: none.
  /// @return false when it can't be that large, which leaves the file alone, or when that can't be written; `LastError`
  /// says why. There is no page then.
  bool Create(const std::wstring& path, Format format, int width, int height, double dotsPerInch = 96.0,
              const std::wstring& title = {});

  /// Has a flag looked at from the next page on: when it falls, what takes long ends early and the page can't be
  /// finished. Of a PDF, packing an image doesn't end early. Not owned; null, as at first: nobody stops it.
  void SetRunning(const std::atomic<bool>* running) { running_ = running; }

  /// Ends the page and its file; nothing more can be drawn.
  /// @return false when not all of it could be written, or there is no page; `LastError` says why.
  bool Finish();

  void FillSolidRect(const PixelRect& rect, Color color) override;
  Color GetPixel(int x, int y) const override;
  void DrawImage(const PixelRect& rect, const ImageDevice& image) override;

 private:
  void GiveUp();
  bool IsStopped();
  bool WritePiece(std::string_view piece);
  void DrawWhole(const PixelRect& rect, const ImageDevice& image);
  /// What of an SVG goes into the file for its next piece.
  std::string Sharpened(std::string_view piece);

  std::wstring path_;
  OutputFile file_;
  const std::atomic<bool>* running_ = nullptr;
  int error_ = 0;              // why a piece of the file wasn't written
  std::size_t tagLength_ = 0;  // how much of an image's tag the pieces so far end with, not yet written
};

}  // namespace vak
