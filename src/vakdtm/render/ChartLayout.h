#pragma once

#include <string>

#include "vakdtm/render/AxisTicks.h"
#include "vakdtm/render/FittedText.h"
#include "vakdtm/render/TextMeasure.h"
#include "vakdtm/services/device/CDC.h"
#include "vakdtm/services/geometry/Page.h"

namespace vak {

/// What is to be on a chart.
struct ChartPlan {
  int width = 1600;         ///< of the whole picture, pixels
  Page data;                ///< what has to be seen, m; with a surface
  bool hasMargin = true;    ///< leave a little room around the data
  bool isBare = false;      ///< the map alone, and none of what follows
  double lengthFactor = 1;  ///< from metres to the unit in which coordinates are told
  std::wstring lengthUnit = L"m";
  std::wstring title;  ///< empty: none
  bool hasLegend = false;
  std::wstring legendTitle;
  double legendLow = 0;  ///< the ends of the colours; low below high
  double legendHigh = 1;
  double legendStep = 0;     ///< ticks are no closer than this, unless none were left
  bool isOpenBelow = false;  ///< there are values beyond that end
  bool isOpenAbove = false;
  bool hasScaleBar = false;
};

/// A bar of a round length.
struct ScaleBarPlan {
  PixelRect bar{};
  int segments = 4;        ///< black and white by turns, of equal length
  std::wstring start;      ///< label at the left end
  std::wstring end;        ///< label at the right end, with the unit
  PixelRect startLabel{};  ///< their boxes
  PixelRect endLabel{};
};

/// A bar of colours with its numbers.
struct LegendPlan {
  PixelRect bar{};
  bool isUpright = true;
  int lowPoint = 0;   ///< pixels of the open end below, a triangle; 0: closed
  int highPoint = 0;  ///< the same above
  AxisTicks ticks;    ///< from the low end of what lies between the points
  FittedText title;   ///< reads upwards where the bar is upright
  PixelRect titleBox{};
};

/// Where everything on a chart goes: sizes of texts in, rectangles out, pixels.
///
/// Nothing overlaps anything else and nothing is cut: labels that would are left out, a title is shrunk and then ended
/// by an ellipsis. North is up, and a metre has as many pixels in x as in y. The map has the shape of the data, but
/// for data many times as wide as high, or as high as wide: there the view is wider or higher than they are.
struct ChartLayout {
  static constexpr int kMostPixels = 32767;  ///< on a side: devices have no more

  /// @return false when the picture is too narrow for all that is to be on it, or, when bare, would be too high.
  [[nodiscard]] static bool Make(const ChartPlan& plan, const TextMeasure& measure, ChartLayout& layout);

  int width = 0;
  int height = 0;
  int fontHeight = 0;  ///< of labels
  int lineWidth = 1;   ///< of thin lines
  PixelRect map{};     ///< within the neatline
  Page view;           ///< what the map shows, m
  FittedText title;
  PixelRect titleBox{};
  AxisTicks x;  ///< from the map's left edge
  AxisTicks y;  ///< from the map's bottom edge
  int tickLength = 0;
  int labelGap = 0;  ///< from the map's edge to the labels
  bool hasLegend = false;
  LegendPlan legend;
  bool hasScaleBar = false;
  ScaleBarPlan scaleBar;
  bool hasNorthArrow = false;
  PixelRect northArrow{};

  /// The box of a label of the axes.
  PixelRect XLabelBox(const AxisTick& tick) const;
  PixelRect YLabelBox(const AxisTick& tick) const;
  /// The box of a label of the legend.
  PixelRect LegendLabelBox(const AxisTick& tick) const;
  /// Where a place of the legend's bar lies: x of a lying bar, y of an upright one. @param at  as the ticks count.
  double LegendPlace(double at) const;
};

}  // namespace vak
