#include "vakdtm/frame/DtmPolyClipper3D.h"

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

DtmPolyClipper3D::DtmPolyClipper3D(const PolyClipLine& polygon, const Point& origin, int block)
    : handler_(polygon, origin), block_(block) {}

bool DtmPolyClipper3D::Init(DtmAccess& access) {
  access_ = &access;
  file_ = access.GetDtmFile();
  lastZ_ = 0;  // each walk gives the same
  return true;
}

bool DtmPolyClipper3D::ProcessCell(int row, int col, double& weight) {
  double z = 0;
  if (access_->GetDoubleValue(row, col, block_, z) && !IsEmptyValue(z)) lastZ_ = z;
  const double cellSize = file_->CellSize();
  if (!handler_.IsPointInPolygon((col + 0.5) * cellSize, (row + 0.5) * cellSize, lastZ_)) weight = 0;
  return true;
}

}  // namespace vak
