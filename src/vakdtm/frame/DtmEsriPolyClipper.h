#pragma once

#include "vakdtm/frame/DtmPolyClipper.h"

namespace vak {

/// The polygon's mask of a raster that has to write all of its cells: every area is entered with the weight that it
/// came with, and a cell whose centre lies outside gets the empty value for its weight, which the writer turns into
/// "no data".
class DtmEsriPolyClipper final : public DtmPolyClipper {
 public:
  /// @param polygon  copied.
  explicit DtmEsriPolyClipper(const PolyClipLine& polygon) : DtmPolyClipper(polygon, true, false) {}

  DtmProcessor* Clone() override;
  bool ProcessArea(int row, int col, double& weight) override;
  bool ProcessCell(int row, int col, double& weight) override;
};

}  // namespace vak
