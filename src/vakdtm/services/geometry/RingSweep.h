#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "vakdtm/services/geometry/Point.h"

namespace vak {

// What a line that sweeps over rings from left to right sees: n log n in the vertices, whatever the rings look like.
// Rings are closed by themselves; vertices that repeat the one before are passed over. All decisions are exact
// (`OrientationSign`); coordinates are finite.

using RingPoints = std::span<const Point>;

/// Where rings cross.
struct RingCrossing {
  Point at;               ///< rounded, unless it is a vertex
  std::size_t ring = 0;   ///< which, in the order given
  std::size_t other = 0;  ///< the other one; the same when a ring crosses itself
};

/// Finds a place where two edges of the rings cross or lie on each other over a length, or where two rings, or two
/// parts of one, go across each other in a vertex. Touching, in a vertex or along an edge's inside, is none of these.
/// @return false when there is no such place. Of several it is one of those furthest left.
bool FindCrossing(std::span<const RingPoints> rings, RingCrossing& crossing);

/// What a ring is for.
struct RingRole {
  int polygon = 0;    ///< rings with the same number make a polygon with holes together
  bool hole = false;  ///< of that polygon
};

/// Where polygons hold the same surface.
struct RingOverlap {
  Point at;        ///< where it begins; rounded, unless it is a vertex
  int ring = 0;    ///< which, in the order given
  int other = -1;  ///< the one that it overlaps; -1: a hole with nothing around it
};

/// Finds a place where two polygons overlap, or where a hole isn't within its polygon or is within another hole of it.
/// Sharing vertices and edges is none of these. Of rings that cross themselves any answer may come.
/// @param roles  one for each ring.
/// @return false when there is no such place. Of several it is one of those furthest left.
bool FindOverlap(std::span<const RingPoints> rings, std::span<const RingRole> roles, RingOverlap& overlap);

/// How a ring lies among others.
struct RingNesting {
  int depth = 0;    ///< how many rings are around it
  int parent = -1;  ///< the smallest of them; -1: none
};

/// Tells which rings lie in which. Rings may touch and share edges; for those that cross the answer is any.
std::vector<RingNesting> FindNesting(std::span<const RingPoints> rings);

}  // namespace vak
