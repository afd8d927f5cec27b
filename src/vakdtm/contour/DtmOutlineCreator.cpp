#include "vakdtm/contour/DtmOutlineCreator.h"

#include "vakdtm/contour/DtmOutlineProc.h"

namespace vak {

DtmOutlineCreator::DtmOutlineCreator(DtmAccess* access, int block) : access_(access), block_(block) {}

int DtmOutlineCreator::AddLevel([[maybe_unused]] double level, OutlineList& out, const std::atomic<bool>& running) {
  outlines_.clear();
  if (extents_.IsValid() || access_ == nullptr) return 0;
  DtmOutlineProc proc(polygon_, block_, running);
  proc.SetAreaExtMap(&ranges_);
  proc.SetAreaCounter(areaCounter_);
  proc.SetUpdateExtents(true);
  proc.ProcessAllCells(*access_);
  extents_ = proc.Extents();
  if (!proc.GetList().empty()) {
    ConnectSegments(proc.GetList(), 0.0);
    out.Add(outlines_);
  }
  return static_cast<int>(outlines_.size());
}

void DtmOutlineCreator::SetPoly(const PolyClipLine& polygon) {
  polygon_ = polygon;
  extents_.Reset();
}

/// The lines are whole: nothing is connected, each becomes an outline that shares its points.
void DtmOutlineCreator::ConnectSegments(const std::vector<GTL::Polyline<GTL::Point3D<double>>>& lines, double level) {
  for (const GTL::Polyline<GTL::Point3D<double>>& line : lines) {
    outlines_.emplace_back(level).Line() = line;
  }
}

}  // namespace vak
