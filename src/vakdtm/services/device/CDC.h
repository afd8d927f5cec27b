#pragma once

#include <span>
#include <string>
#include <utility>

#include "vakdtm/services/color/Color.h"
#include "vakdtm/services/device/Pen.h"
#include "vakdtm/services/device/PixelRect.h"
#include "vakdtm/services/device/VakFont.h"

namespace vak {

class ImageDevice;

/// How many pixels a text takes.
struct TextExtent {
  int width = 0;
  int height = 0;

  friend bool operator==(const TextExtent&, const TextExtent&) = default;
};

/// Something to draw on: an image, a page, or a list of what was drawn.
///
/// All coordinates are pixels, y downwards, with (0, 0) the left upper corner of the picture. What lies beyond the
/// picture isn't drawn; whatever the coordinates (huge, infinite, not a number), no operation harms. What is drawn
/// later covers what was drawn before, fills, lines and texts alike. Of a colour the lowest three bytes count.
///
/// What is selected (pen, font, colours, alignment) is a plain value that the device keeps until another is selected.
/// Each setter gives the former one, for a user who puts it back afterwards.
///
/// A device belongs to one thread at a time; several devices may be drawn on by several threads at once.
class CDC {
 public:
  // For `SetTextAlign`, one of each group: which end of the text, and which of its edges, is put at the point.
  static constexpr unsigned kLeft = 0;
  static constexpr unsigned kRight = 2;
  static constexpr unsigned kCenter = 6;
  static constexpr unsigned kTop = 0;
  static constexpr unsigned kBottom = 8;
  static constexpr unsigned kBaseline = 24;

  // For `GetDeviceCaps`.
  static constexpr int kHorizontalDotsPerInch = 88;
  static constexpr int kVerticalDotsPerInch = 90;

  static constexpr Color kWhite = 0xFFFFFF;

  virtual ~CDC() = default;

  CDC(const CDC&) = delete;
  CDC& operator=(const CDC&) = delete;

  /// Fills a rectangle, each of its pixels and no other; an empty one not at all. The colour becomes the background
  /// colour, also when nothing was filled.
  virtual void FillSolidRect(const PixelRect& rect, Color color) = 0;

  /// White at first. It stands for what a fill leaves behind; texts are drawn without a background.
  Color GetBkColor() const { return bkColor_; }
  virtual Color SetBkColor(Color color) { return std::exchange(bkColor_, color); }

  /// Solid, one pixel wide and black at first.
  const Pen& GetPen() const { return pen_; }
  virtual Pen SelectPen(const Pen& pen) { return std::exchange(pen_, pen); }

  /// Draws the straight lines from each point to the next with the selected pen; closed when the last point equals the
  /// first. A point that isn't finite is no point: the line ends before it and begins anew behind it.
  ///
  /// On an image a polyline whose lines are all parallel to an axis goes through the middles of the pixels that its
  /// points lie in, these included, so that a pen one pixel wide paints whole pixels in its own colour. Others are
  /// drawn just where they are.
  virtual void DrawPolyline(std::span<const PixelPoint> points) = 0;

  /// Draws one such line.
  void DrawLine(double x0, double y0, double x1, double y1);

  /// Fills what a closed polyline encloses an odd number of times. Points that aren't finite are left out.
  virtual void FillPolygon(std::span<const PixelPoint> points, Color color) = 0;

  /// Black at first.
  Color GetTextColor() const { return textColor_; }
  virtual Color SetTextColor(Color color) { return std::exchange(textColor_, color); }

  /// Left and top at first.
  unsigned GetTextAlign() const { return textAlign_; }
  virtual unsigned SetTextAlign(unsigned align) { return std::exchange(textAlign_, align); }

  /// DejaVu Sans, 12 pixels high, at first.
  const VakFont& GetFont() const { return font_; }
  virtual VakFont SelectFont(const VakFont& font) { return std::exchange(font_, font); }

  /// Prints one line of text in the selected font, turned about the given point by the font's escapement. What is no
  /// character that can be printed (a control character, half of a pair) shows as U+FFFD.
  void TextOut(int x, int y, const std::wstring& text) { PrintText(x, y, text, nullptr); }

  /// Prints only what falls into a rectangle, with nothing of the characters beyond it.
  void TextOut(int x, int y, const PixelRect& clip, const std::wstring& text) { PrintText(x, y, text, &clip); }

  /// The size of the box that a text takes in the selected font, unturned: its width, rounded up, and the height of a
  /// line, the same for all texts.
  virtual TextExtent GetTextExtent(const std::wstring& text) = 0;

  /// The colour of a pixel as drawn so far, where the device keeps its pixels; white outside the picture and on a
  /// device that doesn't.
  virtual Color GetPixel(int x, int y) const = 0;

  /// Dots per inch, for one of the two numbers above; 0 for any other.
  virtual int GetDeviceCaps(int what) const = 0;

  /// Draws an image over a rectangle, scaled to it without smoothing, so that what was a sharp edge stays one.
  virtual void DrawImage(const PixelRect& rect, const ImageDevice& image) = 0;

  /// Lends a rectangle of the picture: `part` becomes an image of these very pixels, as they are, so that what is drawn
  /// on it needs no second image and no copy. It mustn't be used when this picture is gone, and while it is drawn on
  /// nothing is drawn here.
  /// @return false where the device doesn't keep its pixels, and where not all of the rectangle is on the picture;
  /// `part` is as it was.
  virtual bool LendPixels(const PixelRect& /*rect*/, ImageDevice& /*part*/) { return false; }

 protected:
  CDC() = default;

  /// @param clip  null: the whole picture.
  virtual void PrintText(int x, int y, const std::wstring& text, const PixelRect* clip) = 0;

 private:
  Color bkColor_ = kWhite;
  Color textColor_ = 0;
  unsigned textAlign_ = kLeft | kTop;
  Pen pen_;
  VakFont font_;
};

}  // namespace vak
