#include "vakdtm/contour/DtmContourCreator.h"

#include <algorithm>
#include <cmath>

#include "vakdtm/contour/ContourList.h"
#include "vakdtm/contour/LookAheadTracer.h"
#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

int DtmContourCreator::AddLevel(double level, ContourList& out, const std::atomic<bool>& running) {
  Contours().clear();
  if (access_ == nullptr) return 0;
  if (extents_.IsValid() && (extents_.MinZ() > level || level > extents_.MaxZ())) return 0;
  LookAheadTracer processor(polygon_, level, block_, running);
  processor.SetAreaExtMap(&areaExtents_);
  processor.SetAreaCounter(areaCounter_);
  processor.SetUpdateExtents(!extents_.IsValid());
  processor.ProcessAllCells(*access_);
  if (!extents_.IsValid()) extents_ = processor.Extents();
  if (!processor.GetList().empty()) {
    ConnectSegments(processor.GetList(), level);
    out.Add(Contours());
  }
  return static_cast<int>(Contours().size());
}

int DtmContourCreator::AddLevels(const std::vector<double>& levels, ContourList& out,
                                 const std::atomic<bool>& running) {
  Contours().clear();
  for (const double level : levels) {
    LookAheadTracer processor(polygon_, level, block_, running);
    processor.SetAreaExtMap(&areaExtents_);
    processor.SetAreaCounter(areaCounter_);
    DtmCellProcessor(access_, &processor, false).Process();
    if (!processor.GetList().empty()) ConnectSegments(processor.GetList(), level);
  }
  out.Add(Contours());
  return static_cast<int>(Contours().size());
}

void DtmContourCreator::SetPoly(const PolyClipLine& polygon) {
  polygon_ = polygon;
  extents_.Reset();
}

/// Makes contours of lines, sharing their points. The tracer has joined them.
void DtmContourCreator::ConnectSegments(const std::vector<GTL::Polyline<GTL::Point2D<double>>>& list, double level) {
  for (const GTL::Polyline<GTL::Point2D<double>>& line : list) {
    Contours().emplace_back(level);
    Contours().back().Line() = line;
  }
}

/// Turns those contours round of which more samples at their left are above their level than below it. Nothing needs
/// it while the tracer gives them their direction.
void DtmContourCreator::SignContours() {
  constexpr int kSamples = 10;
  for (Contour& contour : Contours()) {
    int up = 0;
    int down = 0;
    const int samples = std::min(contour.NumPoints() - 1, kSamples);
    for (int segment = 0; segment < samples; ++segment) {
      const int vote = Vote(contour, segment);
      if (vote > 0) ++up;
      if (vote < 0) ++down;
    }
    if (down < up) contour.Reverse();
  }
}

/// Looks half a cell to the left of the middle of a segment.
/// @return 1 when the ground there is above the contour's level, -1 when it is below; 0 when there is none.
int DtmContourCreator::Vote(const Contour& contour, int segment) const {
  const DtmFile& file = *access_->GetDtmFile();
  const double step = file.CellSize() * 0.5;
  const GTL::Point2D<double>& from = contour[segment];
  const GTL::Point2D<double>& to = contour[segment + 1];
  const double dx = to.x - from.x;
  const double dy = to.y - from.y;
  const double length = std::sqrt(dx * dx + dy * dy);
  int row = 0;
  int col = 0;
  file.CalcRowCol((from.x + to.x) * 0.5 - dy / length * step, (from.y + to.y) * 0.5 + dx / length * step, row, col);
  double value = 0;
  if (!access_->GetDoubleValue(row, col, block_, value) || IsEmptyValue(value)) return 0;
  if (value > contour.Level()) return 1;
  return value < contour.Level() ? -1 : 0;
}

}  // namespace vak
