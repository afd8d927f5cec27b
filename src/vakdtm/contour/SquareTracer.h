#pragma once

#include <array>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <vector>

#include "vakdtm/contour/CellSquares.h"
#include "vakdtm/contour/LineJoiner.h"
#include "vakdtm/frame/AreaExt.h"
#include "vakdtm/frame/AreaExtMap.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/services/geometry/GtlExtents3D.h"
#include "vakdtm/services/geometry/GtlPolyline.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

/// A short line across a square.
template <typename Point>
struct SquareSegment {
  Point start;
  Point end;
};

/// What the tracers of contours and outlines have in common: a walk over squares of four cell centres, which strings
/// the pieces that each square gives into polylines.
///
/// `Tracer` derives from this and says how a square is cut, by operations of these names:
///
/// - `bool IsCrossed(int a, int b) const`: whether a line crosses the edge between two vertices, in this order;
/// - `bool CutsOffLowerLeft() const`: of a square with all edges crossed, whether two pieces cut off vertices 0 and 2,
///   or else 1 and 3;
/// - `void Cross(const SquareEdge&, Segment&, bool& haveStart, bool& haveEnd)`: computes where a line crosses the edge,
///   and makes that the segment's start or its end.
///
/// The life of a tracer: `Init`, by a walker, or `InitNoAccess`; then `ProcessArea` and `ProcessCell`, or
/// `ProcessCellData`; then `Fini`. A run that was stopped leaves lines behind that aren't in the result; such a tracer
/// isn't used again. `Init` clears the result alone: extents go on from the run before, and the area that squares count
/// to stays what it was until `ProcessArea` names another. For one thread; `Clone` gives a plain clipper, so that it
/// isn't run by several walkers.
template <typename Tracer, typename Point>
class SquareTracer : public DtmPolyClipper {
 public:
  using Line = GTL::Polyline<Point>;
  using Vertex = CellSquares::Vertex;

  /// Drops the result of a run before. @return false when the polygon isn't valid or there is no file.
  bool Init(DtmAccess& access) override {
    joiner_.ClearBorder();
    squares_.SetAccess(&access);
    return DtmPolyClipper::Init(access);
  }

  /// The same for a caller with values of its own: no model, no areas, no polygon. @return true.
  bool InitNoAccess() {
    joiner_.ClearBorder();
    squares_.SetAccess(nullptr);
    return true;
  }

  /// Traces one square with the caller's vertices, anticlockwise from the lower left. All squares until `Fini` count as
  /// one area's. Also after `Init` it is the caller's vertices alone that count: a polygon is in the model's cells, of
  /// which these need not be, so that it isn't asked. From here on there is no access, until the next `Init`.
  /// @return as `ProcessCell`.
  bool ProcessCellData(int row, int col, const Vertex& p0, const Vertex& p1, const Vertex& p2, const Vertex& p3) {
    squares_.Vertices() = {p0, p1, p2, p3};
    squares_.SetAccess(nullptr);
    double weight = 1.0;
    return this->ProcessCell(row, col, weight);
  }

  /// Closes the area before, then has the walker skip the area when the polygon leaves it out, or when the map knows
  /// that it doesn't hold the level. Requires: an access and a map. @return true.
  bool ProcessArea(int row, int col, double& weight) override;

  /// Closes what is open and completes the result. @return true.
  bool Fini() override {
    joiner_.Finish();
    return true;
  }

  /// Whether `Extents` are to be widened by the squares that are looked at; false at first.
  void SetUpdateExtents(bool update) { updateExtents_ = update; }
  bool GetUpdateExtents() const { return updateExtents_; }
  const GTL::Extents3D<double>& Extents() const { return extents_; }

  /// Sets the map of the areas' ranges, which is read and added to. Not owned; to be set before a walker runs.
  void SetAreaExtMap(AreaExtMap* map) { areaExtMap_ = map; }

  /// Has the areas counted that a walk comes to, for who watches from another thread. Not owned; null: nobody does.
  void SetAreaCounter(std::atomic<int>* areas) { areaCounter_ = areas; }

  /// The result: lines that reach the border of an area they were in, then the others in the order in which they were
  /// finished. Complete after `Fini`; before that, and after a stop, what has been joined so far.
  const std::vector<Line>& GetList() const { return joiner_.GetList(); }

 protected:
  using Segment = SquareSegment<Point>;

  bool IsRunning() const { return running_->load(std::memory_order_relaxed); }
  DtmAccess* Access() const { return squares_.Access(); }
  const Vertex& At(int vertex) const { return squares_.Vertices()[static_cast<std::size_t>(vertex)]; }
  Vertex& At(int vertex) { return squares_.Vertices()[static_cast<std::size_t>(vertex)]; }
  CellSquares& Squares() { return squares_; }

  /// Whether the current area's range isn't known yet.
  bool UpdatesAreaExt() const { return areaExt_ != nullptr && updateAreaExt_; }
  /// Adds the heights of the square to it.
  void UpdateAreaExt() {
    // Most squares widen nothing.
    if (areaExt_->Inside(At(0).z) && areaExt_->Inside(At(1).z) && areaExt_->Inside(At(2).z) &&
        areaExt_->Inside(At(3).z)) {
      return;
    }
    for (const Vertex& vertex : squares_.Vertices()) *areaExt_ += vertex.z;
  }
  void UpdateExtents() {
    for (const Vertex& vertex : squares_.Vertices()) extents_.Update(vertex);
  }

  /// The edges that a line crosses, as a mask; 0 when it is a single one, which makes no piece.
  int ClassifyCell() const;
  /// Adds the pieces of a square whose edges in the mask are crossed. @return false for none.
  bool AddSegment(int mask, int row, int col);
  /// @return false for a piece without length.
  bool AddSegment(const Segment& segment, bool touches) { return joiner_.Add(segment.start, segment.end, touches); }

 private:
  friend Tracer;

  /// @param level    what an area's known range must hold for the area to be walked.
  /// @param running  true while work may go on; must outlive the tracer.
  SquareTracer(const PolyClipLine& polygon, bool centrePoint, double level, int block, const std::atomic<bool>& running)
      : DtmPolyClipper(polygon, centrePoint, false),
        areaLevel_(level),
        squares_(block),
        joiner_(running),
        running_(&running) {}
  SquareTracer(const SquareTracer& other) = default;
  SquareTracer& operator=(const SquareTracer& other) = default;

  Tracer& Self() { return static_cast<Tracer&>(*this); }
  const Tracer& Self() const { return static_cast<const Tracer&>(*this); }

  bool HandleDoubleContour(int row, int col);
  void AddPair(std::array<int, 2> edges, int row, int col);
  void Cross(int edge, Segment& segment, bool& haveStart, bool& haveEnd) {
    Self().Cross(kSquareEdges[static_cast<std::size_t>(edge)], segment, haveStart, haveEnd);
  }
  bool JoinSegments() { return joiner_.Join(); }

  double areaLevel_;
  CellSquares squares_;
  LineJoiner<Point> joiner_;
  const std::atomic<bool>* running_;
  GTL::Extents3D<double> extents_;
  bool updateExtents_ = false;
  AreaExtMap* areaExtMap_ = nullptr;
  std::atomic<int>* areaCounter_ = nullptr;
  AreaExt* areaExt_ = nullptr;  // the current area's
  bool updateAreaExt_ = false;
};

template <typename Tracer, typename Point>
bool SquareTracer<Tracer, Point>::ProcessArea(int row, int col, double& weight) {
  // The area before is complete by now, whatever comes of this one.
  JoinSegments();
  if (areaCounter_ != nullptr) areaCounter_->fetch_add(1, std::memory_order_relaxed);
  DtmPolyClipper::ProcessArea(row, col, weight);
  if (weight == 0.0) return true;
  assert(areaExtMap_ != nullptr);
  areaExt_ = &(*areaExtMap_)[Access()->GetArea(row, col, false)];
  updateAreaExt_ = !areaExt_->IsValid();
  if (!updateAreaExt_ && !areaExt_->Inside(areaLevel_)) {
    weight = 0.0;
    return true;
  }
  squares_.SetArea(row, col, Access()->GetDtmFile()->AreaSize());
  return true;
}

template <typename Tracer, typename Point>
int SquareTracer<Tracer, Point>::ClassifyCell() const {
  int mask = 0;
  if (Self().IsCrossed(0, 1)) mask |= kSquareEdges[kLowerEdge].bit;
  if (Self().IsCrossed(1, 2)) mask |= kSquareEdges[kRightEdge].bit;
  if (Self().IsCrossed(2, 3)) mask |= kSquareEdges[kUpperEdge].bit;
  if (Self().IsCrossed(3, 0)) mask |= kSquareEdges[kLeftEdge].bit;
  const bool isSingle = (mask & (mask - 1)) == 0;
  return isSingle ? 0 : mask;
}

template <typename Tracer, typename Point>
bool SquareTracer<Tracer, Point>::AddSegment(int mask, int row, int col) {
  if (mask == 0) return false;
  if (mask == kAllEdges) return HandleDoubleContour(row, col);
  Segment segment;
  bool haveStart = false;
  bool haveEnd = false;
  bool touches = false;
  for (int edge = 0; edge < 4; ++edge) {
    if ((mask & kSquareEdges[static_cast<std::size_t>(edge)].bit) == 0) continue;
    Cross(edge, segment, haveStart, haveEnd);
    touches = squares_.TouchesBorder(edge, row, col) || touches;
  }
  AddSegment(segment, touches);
  return true;
}

/// Two pieces for a saddle.
template <typename Tracer, typename Point>
bool SquareTracer<Tracer, Point>::HandleDoubleContour(int row, int col) {
  if (Self().CutsOffLowerLeft()) {
    AddPair({kLowerEdge, kLeftEdge}, row, col);
    AddPair({kRightEdge, kUpperEdge}, row, col);
  } else {
    AddPair({kUpperEdge, kLeftEdge}, row, col);
    AddPair({kLowerEdge, kRightEdge}, row, col);
  }
  return true;
}

template <typename Tracer, typename Point>
void SquareTracer<Tracer, Point>::AddPair(std::array<int, 2> edges, int row, int col) {
  Segment segment;
  bool haveStart = false;
  bool haveEnd = false;
  bool touches = false;
  for (const int edge : edges) {
    Cross(edge, segment, haveStart, haveEnd);
    touches = squares_.TouchesBorder(edge, row, col) || touches;
  }
  AddSegment(segment, touches);
}

}  // namespace vak
