#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak::test {

/// A device that lists what is done to it, an operation a line: "fill 3 4 5 6 #ff0000", "pen 0 1 #fa0000",
/// "line 0 0 10.5 3", "text 7 8 12.5". Colours are written red first, as on the web, so that pure red, 255, is #ff0000.
///
/// Nothing is left out, fills without pixels neither. What a fill does to the background colour has no line of its own.
class RecordingDevice final : public CDC {
 public:
  explicit RecordingDevice(int dotsPerInch = 96) : dotsPerInch_(dotsPerInch) {}

  const std::vector<std::string>& Lines() const { return lines_; }

  /// All of them, with a line feed after each.
  std::string Text() const {
    std::string text;
    for (const std::string& line : lines_) text += line + '\n';
    return text;
  }

  void Clear() { lines_.clear(); }

  void FillSolidRect(const PixelRect& rect, Color color) override {
    CDC::SetBkColor(color);
    fills_.push_back({rect, color});
    Add("fill" + Words(rect) + ' ' + Web(color));
  }

  Color SetBkColor(Color color) override {
    Add("bk " + Web(color));
    return CDC::SetBkColor(color);
  }

  Pen SelectPen(const Pen& pen) override {
    Add("pen " + std::to_string(pen.style) + ' ' + std::to_string(pen.width) + ' ' + Web(pen.color));
    return CDC::SelectPen(pen);
  }

  void DrawPolyline(std::span<const PixelPoint> points) override { Add("line" + Words(points)); }

  void FillPolygon(std::span<const PixelPoint> points, Color color) override {
    Add("polygon " + Web(color) + Words(points));
  }

  Color SetTextColor(Color color) override {
    Add("textcolor " + Web(color));
    return CDC::SetTextColor(color);
  }

  unsigned SetTextAlign(unsigned align) override {
    Add("align " + std::to_string(align));
    return CDC::SetTextAlign(align);
  }

  VakFont SelectFont(const VakFont& font) override {
    Add("font " + std::to_string(font.height) + ' ' + std::to_string(font.weight) + ' ' +
        std::to_string(font.escapement) + (font.italic ? " italic " : " ") + ToUtf8(font.name));
    return CDC::SelectFont(font);
  }

  /// Each character is half as wide as high.
  TextExtent GetTextExtent(const std::wstring& text) override {
    return {static_cast<int>(text.size()) * GetFont().height / 2, GetFont().height};
  }

  /// What the last fill over it left there.
  Color GetPixel(int x, int y) const override {
    for (auto fill = fills_.rbegin(); fill != fills_.rend(); ++fill) {
      const PixelRect& rect = fill->rect;
      if (rect.left <= x && x < rect.right && rect.top <= y && y < rect.bottom) return fill->color;
    }
    return 0xFFFFFF;
  }

  int GetDeviceCaps(int what) const override {
    return what == kHorizontalDotsPerInch || what == kVerticalDotsPerInch ? dotsPerInch_ : 0;
  }

  void DrawImage(const PixelRect& rect, const ImageDevice& /*image*/) override { Add("image" + Words(rect)); }

 protected:
  void PrintText(int x, int y, const std::wstring& text, const PixelRect* clip) override {
    Add("text " + std::to_string(x) + ' ' + std::to_string(y) + (clip != nullptr ? " within" + Words(*clip) : "") +
        ' ' + ToUtf8(text));
  }

 private:
  struct Fill {
    PixelRect rect;
    Color color;
  };

  static std::string Words(const PixelRect& rect) {
    return ' ' + std::to_string(rect.left) + ' ' + std::to_string(rect.top) + ' ' + std::to_string(rect.right) + ' ' +
           std::to_string(rect.bottom);
  }

  static std::string Words(std::span<const PixelPoint> points) {
    std::string words;
    for (const PixelPoint& point : points) {
      char word[80];
      std::snprintf(word, sizeof word, " %.9g %.9g", point.x, point.y);
      words += word;
    }
    return words;
  }

  static std::string Web(Color color) {
    char word[16];
    std::snprintf(word, sizeof word, "#%02x%02x%02x", static_cast<unsigned>(color & 255),
                  static_cast<unsigned>(color >> 8 & 255), static_cast<unsigned>(color >> 16 & 255));
    return word;
  }

  void Add(std::string line) { lines_.push_back(std::move(line)); }

  int dotsPerInch_;
  std::vector<std::string> lines_;
  std::vector<Fill> fills_;
};

}  // namespace vak::test
