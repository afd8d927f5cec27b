#pragma once

#include "vakdtm/render/ChartLayout.h"
#include "vakdtm/render/TextMeasure.h"

namespace vak {

class CDC;
class ColorTable;

/// The sizes of texts on a device, in its plain font. The device has to outlive what is answered; its selected font is
/// put back.
TextMeasure MeasureOn(CDC& device);

/// Draws what stands around the map of a chart, in the places of a layout, and what of it reaches into the map: small
/// crosses where ticks meet. All colours but those of the legend's bar pass through the filter of the process.
///
/// Puts back what it selects. For the thread of the device.
class ChartFurniture {
 public:
  /// Both are kept by reference.
  ChartFurniture(CDC& device, const ChartLayout& layout) : device_(device), layout_(layout) {}

  /// The paper, white, under everything.
  void DrawPaper() const;
  /// Neatline, ticks and their labels. After the map.
  void DrawFrame() const;
  void DrawTitle() const;
  /// @param table  whose colours the legend's bar has.
  void DrawLegend(const ColorTable& table) const;
  void DrawScaleBar() const;
  void DrawNorthArrow() const;

 private:
  void DrawAxes() const;
  void DrawCrosses() const;
  void Fill(int left, int top, int right, int bottom, unsigned long color) const;
  void Print(const std::wstring& text, const PixelRect& box, int fontHeight, bool upwards) const;
  void DrawOpenEnds(const ColorTable& table) const;
  void DrawLegendOutline() const;

  CDC& device_;
  const ChartLayout& layout_;
};

}  // namespace vak
