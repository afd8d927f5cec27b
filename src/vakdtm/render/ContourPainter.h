#pragma once

#include <functional>
#include <vector>

#include "vakdtm/render/ChartContour.h"
#include "vakdtm/render/ChartLayout.h"
#include "vakdtm/services/color/Color.h"
#include "vakdtm/services/geometry/Page.h"

namespace vak {

class CDC;

/// Draws contours on the map of a chart, cut at its edges: index contours heavier and with labels. A line is dark on
/// light colours and light on dark ones. For the thread of the device.
class ContourPainter {
 public:
  /// @param colorAt  the colour of the map where a level runs; empty: light all over.
  ContourPainter(CDC& device, const ChartLayout& layout, std::function<Color(double level)> colorAt);

  /// @param shown  the part of the world that the map shows, m; invalid: all of it.
  void Draw(const std::vector<ChartContour>& contours, const Page& shown = Page()) const;

 private:
  Color InkOf(double level) const;

  CDC& device_;
  const ChartLayout& layout_;
  std::function<Color(double)> colorAt_;
};

}  // namespace vak
