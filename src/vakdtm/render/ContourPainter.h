#pragma once

#include <functional>

#include "vakdtm/render/ChartContour.h"
#include "vakdtm/render/ChartLayout.h"
#include "vakdtm/render/ContourLabels.h"
#include "vakdtm/render/TextMeasure.h"
#include "vakdtm/services/color/Color.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/device/PixelRect.h"
#include "vakdtm/services/geometry/Page.h"

namespace vak {

class CDC;

/// Draws contours on the map of a chart, cut at its edges: index contours heavier and with labels. A line is dark on
/// light colours and light on dark ones. Each is drawn when it comes, and none is kept: of a large model they take more
/// memory than the picture. For the thread of the device.
class ContourPainter {
 public:
  /// @param device,layout  kept by reference.
  /// @param colorAt  the colour of the map where a level runs; empty: light all over.
  /// @param shown    the part of the world that the map shows, m; invalid: all of it.
  ContourPainter(CDC& device, const ChartLayout& layout, std::function<Color(double level)> colorAt,
                 const Page& shown = Page());

  ContourPainter(const ContourPainter&) = delete;
  ContourPainter& operator=(const ContourPainter&) = delete;

  /// Draws a line, and finds the places of its labels, beside those of the lines before.
  void Draw(const ChartContour& contour);
  /// Prints the labels, over all lines. Once, behind the last line.
  void DrawLabels() const;

 private:
  Color InkOf(double level) const;

  CDC& device_;
  const ChartLayout& layout_;
  const std::function<Color(double)> colorAt_;
  const CoordinateSystem system_;
  const PixelRect area_;
  const int labelHeight_;
  const TextMeasure measure_;
  ContourLabels labels_;
};

}  // namespace vak
