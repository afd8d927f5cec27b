#include "vakdtm/frame/DtmEsriPolyClipper.h"

#include "vakdtm/store/CellValue.h"

namespace vak {

DtmProcessor* DtmEsriPolyClipper::Clone() { return new DtmEsriPolyClipper(*this); }

bool DtmEsriPolyClipper::ProcessArea(int row, int col, double& weight) {
  const double before = weight;
  if (!DtmPolyClipper::ProcessArea(row, col, weight)) return false;
  weight = before;
  return true;
}

bool DtmEsriPolyClipper::ProcessCell(int row, int col, double& weight) {
  if (!DtmPolyClipper::ProcessCell(row, col, weight)) return false;
  if (weight == 0.0) weight = EmptyDouble();
  return true;
}

}  // namespace vak
