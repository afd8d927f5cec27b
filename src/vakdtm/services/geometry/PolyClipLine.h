#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/Point.h"

namespace vak {

class FileObject;
class PolyClipper;

/// What is wrong with a polygon, and where.
struct PolyClipFault {
  enum class Kind {
    kNone,
    kNotFinite,
    kTooFewPoints,
    kNotClosed,
    kSelfIntersecting,
    kCrossing,     ///< the ring crosses another one of its polygon, or lies on it over a length
    kHoleOutside,  ///< the ring is a hole, but not within the ring that it takes its surface off
    kHoleInHole,   ///< the ring is a hole within another hole
    kOverlap       ///< the ring holds surface that another one holds too: no fault, but both count
  };

  Kind kind = Kind::kNone;
  std::wstring ring;   ///< which one: L"line 12" of a text, L"polygon 2, ring 1" otherwise; counted from 1
  std::wstring other;  ///< the one that it crosses, is in or overlaps
  Point at;            ///< the vertex, the ring's first vertex, or where two edges meet
  Point end;           ///< the ring's last vertex, when it isn't closed

  /// One sentence in English for a message, as "polygon 1, ring 1: intersects itself at 512030.125, 5401200.5".
  std::wstring Text() const;
};

/// A polygon: any number of rings, of which some may be holes.
///
/// A ring is closed by itself, from its last vertex to its first. Its direction doesn't matter. It may touch itself and
/// others. A hole takes its surface off, an island in it counts again; rings that are no holes add up, even where they
/// overlap. A polygon without rings is valid: it limits nothing.
///
/// (1) A point lies in the polygon when more rings than holes are around it. (2) A point on an edge belongs to a ring
/// on its right or upper side: the lower and left ends are inside. So, whatever the directions, a point is in exactly
/// one of two polygons that meet along an edge, or of a polygon with a hole and what fills the hole. The test is exact,
/// without rounding, for points between 1e-100 and 1e100. (3) What holds for points holds for surfaces:
/// `GetArea` and the clipper count holes the same way.
///
/// Each ring is a polygon itself, `GetFirstPolyClipLine`. A ring that is a hole says so by `IsHole` and by a negative
/// `GetArea`; its `IsPointInPoly` tells whether the point lies within the ring, which is then not in the polygon.
///
/// Copies share their vertices and the index over them, until one is changed. Any number of threads may ask one polygon
/// that nobody changes; the index is made by the first that needs it.
class PolyClipLine {
 public:
  /// No file is read with more vertices.
  static constexpr std::size_t kMaxPoints = 10'000'000;

  PolyClipLine();
  PolyClipLine(const PolyClipLine& other);
  PolyClipLine(PolyClipLine&& other) noexcept;
  PolyClipLine& operator=(const PolyClipLine& other);
  PolyClipLine& operator=(PolyClipLine&& other) noexcept;
  ~PolyClipLine();

  /// Appends a vertex to the last ring, beginning the first when there is none. An x or y below 1e-100 is taken as 0,
  /// here and wherever vertices come from.
  void AddElem(const Point& point);

  /// Appends a ring. One that repeats its first vertex at the end is taken without the repetition.
  void AddRing(const std::vector<Point>& points, bool hole);

  void Clear();

  /// Whether there is no ring.
  bool IsEmpty() const;

  /// Whether it can be used for clipping: every ring has at least three different points and finite coordinates (none
  /// beyond 1e12). A self-intersection is for `FindFault` to find.
  bool IsValid() const;

  // The rings in order. The pointer is the state of the walk, so that any number of them can be under way; it stays
  // good as long as this polygon isn't changed. False, with the pointer null, when there are no more.
  bool GetFirstPolyClipLine(const PolyClipLine*& ring) const;
  bool GetNextPolyClipLine(const PolyClipLine*& ring) const;
  std::size_t NumRings() const;

  /// The vertices of all rings in order. @param index  below `NumPoints`.
  std::size_t NumPoints() const;
  const Point& GetPoint(std::size_t index) const;

  /// Whether this is a ring that is a hole.
  bool IsHole() const;

  /// Cuts the ring, or all of them, to the clipper's page, as a stream.
  /// @return true when the clipper holds a result, that is, anything is left.
  bool FillPolyClipper(PolyClipper& clipper) const;

  /// Whether the point lies in the polygon, see (1) and (2); never in one without rings.
  /// @param ring  unless null gets, on true, the smallest ring around the point that is no hole.
  /// The cost is that of the edges at the point's height: few, but for rings that go up and down all the time.
  bool IsPointInPoly(const Point& point, const PolyClipLine** ring = nullptr) const;

  /// Widens a page to hold the polygon. @return false, with nothing changed, when there are no vertices.
  bool GetExtents(Page& page) const;

  /// The surface in square model units: that of the rings less that of the holes.
  double GetArea() const;

  /// Whether a ring crosses itself or lies on itself over a length, or does so with a ring that it makes a polygon with
  /// holes with. A ring that touches itself or its holes in points doesn't; one that runs forth and back along a line
  /// does. n log n in the vertices.
  bool IsSelfIntersecting() const;

  /// Finds the first thing that is wrong: rings in order, of each whether it is finite, has three different points and
  /// was closed in its file; then self-intersections, polygon by polygon; then holes that aren't within their rings.
  /// @return false when nothing is.
  bool FindFault(PolyClipFault& fault) const;

  /// Finds a place where rings overlap that are no holes, or where an island reaches over the edge of its hole: nothing
  /// wrong, but what they have in common counts twice. Of a polygon without faults.
  /// @param overlap  gets both rings and where they begin to overlap.
  /// @return false, with nothing changed, when there is no such place. n log n in the vertices.
  bool FindOverlap(PolyClipFault& overlap) const;

  /// Reads a polygon file, in place of what was here before.
  ///
  /// GeoJSON: a Polygon, a MultiPolygon, or any collection or feature with such in it; other geometries are passed
  /// over. Rings of a polygon after its first are holes. Or text: a vertex "x,y" or "x y" a line, with a z or without,
  /// rings parted by empty lines, lines that begin with '#' left out; a ring within an odd number of others is a hole;
  /// one that goes across another isn't within it. Numbers have a point, whatever the locale. A ring needn't be closed;
  /// `FindFault` tells.
  ///
  /// @param error  unless null gets, on false, one sentence that says what is wrong, with the line where there is one.
  /// @return false, with nothing changed, when the file holds no polygon or isn't such a file.
  bool FileOpen(const FileObject& file, std::wstring* error = nullptr);

  /// The file's title, without folder and extension; empty for a polygon that wasn't read from one.
  const std::wstring& GetTitle() const { return title_; }

  /// Cuts the polygon to a rectangle, ring by ring. What is left of a ring in several places stays one ring, joined
  /// along the rectangle's edges: right for surfaces and points, but `IsSelfIntersecting`.
  /// @param cut  gets the polygon; no rings when nothing is left, which limits nothing, so that false must be heeded.
  /// @return false when no surface is left, be it that a hole takes all of it.
  bool ClipToPage(const Page& page, PolyClipLine& cut) const;

 private:
  struct Body;

  Body& Own();
  PolyClipLine& AppendRing();
  bool FindIntersection(PolyClipFault& fault) const;
  bool FindStrayHole(PolyClipFault& fault) const;
  std::wstring RingName(std::size_t ring) const;

  std::shared_ptr<Body> body_;  // null: no rings. Shared ones aren't changed.
  std::wstring title_;
};

}  // namespace vak
