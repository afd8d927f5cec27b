#pragma once

#include <cstddef>
#include <vector>

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/Point.h"

namespace vak {

/// Cuts rings down to a rectangle, the page, and measures what is left.
///
/// Two ways lead there. A stream, for a long ring: `SetPage`, `InitPoly`, `AddPoint` for each vertex, `ProcessPoly`,
/// which ends the cut at the page's lower and upper edge, `ClipOtherSides`, which cuts at the left and right one; only
/// what comes near the page between its lower and upper edge is kept meanwhile. And a list, for what is short already:
/// `SetPage`, `ResetOutputList`, `StoreOutputPoint` for each vertex, `DoPolyClip`. Either way the result is the output
/// list. The result of one clipper can be cut further by another, `ClipResultOf`: the area, then the row, then the
/// cell.
///
/// A ring is closed by itself, whether its first vertex is repeated at the end or not; its direction doesn't matter. It
/// may touch itself and the page in any way. What is left of a concave ring in several places stays one part, joined
/// along the page's edges; these joints have no surface.
///
/// (1) An edge that reaches into the page by no more than a few units in the last place of the coordinates doesn't
/// enter it. Page edges are products of a count and a cell size, and rounded. (2) When no edge enters the page the
/// result is nothing, or the page: the surface is exactly 0 or exactly `Page::Area`, and `GetCover` tells which.
/// (3) Otherwise the surface of a ring lies between 0 and `Page::Area`, and is right to some units in the last place of
/// the page's own size, however far away the page is: all is computed relative to its lower left corner. Where an edge
/// that is much longer than the page crosses it, these are units in the last place of the edge's length.
/// What does not hold: (3) for a ring that crosses itself. Parts that it runs round the other way count negative.
///
/// Allocates nothing once its lists have grown to what is asked of them. For one thread at a time; a copy stands alone.
class PolyClipper {
 public:
  /// Coordinates beyond count as not finite. So far away a double still tells tenths of a millimetre apart, so that a
  /// vertex there doesn't blur what an edge does near the origin.
  static constexpr double kLargestCoordinate = 1e12;
  /// Coordinates below count as 0: products of them must not underflow.
  static constexpr double kSmallestCoordinate = 1e-100;

  /// How the last result covers the page.
  enum class Cover {
    kOutside,  ///< not at all; the output list is empty
    kPartly,   ///< in part, by more and less than rounding can make
    kInside    ///< all of it: no edge enters, or none that bounds a surface
  };

  /// Sets the rectangle to cut to. An invalid one, or one without surface, lets nothing through.
  void SetPage(const Page& page);
  const Page& GetPage() const { return page_; }

  /// Says that the vertices to come stem from edges that reached as far as the extents. What was cut before has lost
  /// that, and with it how exact it can be; see (1). Holds until the next `SetPage`.
  void SetReach(const Page& extents);

  /// Whether the rings to come are holes, whose surface counts negative. False at first.
  void SetHole(bool hole) { hole_ = hole; }

  /// Begins a stream, dropping the former result. @return false when the page lets nothing through.
  bool InitPoly();

  /// Adds a vertex. @param first  begins a ring; the one before is closed. The first vertex begins one in any case.
  /// @return false, with the vertex left out, when x or y isn't finite or no stream was begun.
  bool AddPoint(const Point& point, bool first);

  /// Closes the last ring and cuts at the lower and upper edge. @return false when nothing is left.
  bool ProcessPoly();

  /// Cuts at the left and right edge; the result is in the output list then. New vertices have z 0.
  /// @return false when nothing is left.
  bool ClipOtherSides();

  /// Empties the output list.
  void ResetOutputList();

  /// Appends a vertex to the output list. @param first  begins a ring; it is a hole when `SetHole` says so now.
  void StoreOutputPoint(const Point& point, bool first);

  /// Replaces the output list by what the page leaves of it.
  /// @param withZ  vertices that are new on the page's edges get z from their edge, in proportion; else 0.
  /// @return false, with an empty list, when the page lets nothing through or a coordinate isn't finite. True also when
  /// nothing is left.
  bool DoPolyClip(bool withZ);

  /// Replaces the output list by what the page leaves of another clipper's result, keeping the digits that this has.
  /// @return false when nothing is left.
  bool ClipResultOf(const PolyClipper& wider);

  /// The output list: the vertices of the result, without repetitions, rings not closed.
  int GetOutputSize() const { return static_cast<int>(output_.size()); }
  /// Whether the vertex begins a ring. @param index  from 0 to below `GetOutputSize`, here and below.
  bool GetOutputFlag(int index) const { return output_[static_cast<std::size_t>(index)].mark != Mark::kNone; }
  /// The vertex, its coordinates rounded to what so large a number can hold. On the page's edges they are the page's.
  Point GetOutputPoint(int index) const;

  Cover GetCover() const { return cover_; }

  /// The surface of the last result in square model units: holes negative; 0 before there is any.
  double Area() const { return area_; }

 private:
  enum class Mark : unsigned char { kNone, kRing, kHole };
  /// Relative to a corner.
  struct Vertex {
    double x, y, z;
    Mark mark;
  };
  using Vertices = std::vector<Vertex>;

  bool IsOpen() const { return width_ > 0 && height_ > 0; }
  void BeginClip();
  void Feed(const Vertex& vertex);
  void Keep(const Vertex& vertex);
  void CloseRing();
  void LookAtEdge(const Vertex& from, const Vertex& to);
  bool Enters(const Vertex& from, const Vertex& to) const;
  bool CutBelowAndAbove(bool withZ);
  bool CutAside(bool withZ);
  bool ClipList(const Vertices& list, Point origin, bool withZ);
  void TidyOutput();
  double MeasureOutput(double whole) const;

  Page page_;
  double width_ = 0;
  double height_ = 0;
  Point reach_;        // the largest coordinates in the game
  bool hole_ = false;  // of rings to come
  bool streaming_ = false;

  // Of the cut that is under way.
  bool entered_ = false;  // an edge enters the page
  int overCentre_ = 0;    // rings over the page's centre, holes negative
  bool ringOverCentre_ = false;
  Mark ringMark_ = Mark::kNone;  // none: no ring has begun
  Vertex ringFirst_{};
  Vertex ringLast_{};
  std::size_t ringStart_ = 0;  // its first vertex in kept_
  Vertices kept_;
  Vertices scratch_;

  Vertices output_;
  Point origin_;  // what output_ is relative to
  Cover cover_ = Cover::kOutside;
  double area_ = 0;
};

}  // namespace vak
