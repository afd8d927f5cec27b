#pragma once

#include <array>
#include <string>
#include <vector>

#include "vakdtm/render/PixelLines.h"
#include "vakdtm/render/TextMeasure.h"

namespace vak {

/// A label on a contour.
struct ContourLabel {
  std::wstring text;
  PixelPoint centre{};
  double angle = 0;  ///< radians, anticlockwise on the picture; upright, so above -90 to 90 degrees
  std::array<PixelPoint, 4> box{};
};

/// Finds places for labels on contours: where a line runs straight enough to carry its number, with the whole label on
/// the map and none overlapping another, one after a while of line. A line that has no such place gets none.
class ContourLabels {
 public:
  /// @param map  where labels may be.
  ContourLabels(const PixelRect& map, int fontHeight, const TextMeasure& measure)
      : map_(map), fontHeight_(fontHeight), measure_(measure) {}

  /// Labels a line, on the map as a whole.
  void Add(const PixelLine& line, const std::wstring& text);

  const std::vector<ContourLabel>& Labels() const { return labels_; }

 private:
  bool TryPlace(const PixelLine& line, const std::vector<double>& lengths, double from, double width, double height,
                ContourLabel& label) const;
  bool IsFree(const ContourLabel& label) const;

  PixelRect map_;
  int fontHeight_;
  const TextMeasure& measure_;
  std::vector<ContourLabel> labels_;
  double longest_ = 0;  // from corner to corner
};

}  // namespace vak
