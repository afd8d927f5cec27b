#include "vakdtm/services/geometry/RingSweep.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>

#include "vakdtm/services/geometry/Orientation.h"

namespace vak {
namespace {

/// The order in which the line meets points: by x, and by y where x is the same, as if the line leant a little.
bool Before(const Point& a, const Point& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); }

struct Edge {
  Point left;
  Point right;
  std::uint32_t ring;
  std::uint32_t number;
  bool ringAbove;    // the ring's inside is above it, or that of its polygon
  int polygon = -1;  // -1: of no matter
};

/// Of two edges that the line meets at the same time, the lower one first.
struct Lower {
  bool operator()(const Edge* a, const Edge* b) const {
    if (a == b) return false;
    if (!Before(a->left, b->left)) {
      if (const int side = SideOf(*b, *a)) return side < 0;
    } else if (const int side = SideOf(*a, *b)) {
      return side > 0;
    }
    // On one line. The ring below ends before the one above begins; but a hole begins after and ends before its ring.
    const bool samePolygon = a->polygon >= 0 && a->polygon == b->polygon && a->ring != b->ring;
    if (a->ringAbove != b->ringAbove) return samePolygon ? a->ringAbove : b->ringAbove;
    return a->number < b->number;
  }

 private:
  /// On which side of `edge` a later one begins or, beginning on it, goes on.
  static int SideOf(const Edge& edge, const Edge& later) {
    const int side = OrientationSign(edge.left, edge.right, later.left);
    return side != 0 ? side : OrientationSign(edge.left, edge.right, later.right);
  }
};

/// Edges that lie on each other are all in it, even where underflow keeps the order from telling them apart.
using Status = std::multiset<const Edge*, Lower>;

/// The vertices of a ring without those that repeat the one before.
std::vector<Point> Distinct(RingPoints ring) {
  std::vector<Point> points;
  points.reserve(ring.size());
  for (const Point& point : ring) {
    if (points.empty() || !SamePlace(points.back(), point)) points.push_back(point);
  }
  while (points.size() > 1 && SamePlace(points.front(), points.back())) points.pop_back();
  return points;
}

bool RunsLeftTurning(const std::vector<Point>& points) {
  double twice = 0;
  for (std::size_t i = 1; i + 1 < points.size(); ++i) {
    const Point a = points[i] - points[0];
    const Point b = points[i + 1] - points[0];
    twice += a.x * b.y - a.y * b.x;
  }
  return twice > 0;
}

/// The rings and the line over them.
class Sweep {
 public:
  explicit Sweep(std::span<const RingPoints> rings) {
    for (const RingPoints& ring : rings) {
      points_.push_back(Distinct(ring));
      AddEdges(points_.back(), static_cast<std::uint32_t>(points_.size() - 1));
    }
    for (const Edge& edge : edges_) {
      events_.push_back({edge.left, edge.number, true});
      events_.push_back({edge.right, edge.number, false});
    }
    // What ends in a point goes before what begins there comes.
    std::sort(events_.begin(), events_.end(), [](const Event& a, const Event& b) {
      if (!SamePlace(a.at, b.at)) return Before(a.at, b.at);
      return a.begins != b.begins ? b.begins : a.edge < b.edge;
    });
  }

  bool FindCrossing(RingCrossing& crossing) {
    std::vector<Status::iterator> places(edges_.size());
    for (const Event& event : events_) {
      if (event.begins) {
        const auto place = status_.insert(&edges_[event.edge]);
        places[event.edge] = place;
        if (place != status_.begin() && Meet(**std::prev(place), **place)) break;
        if (std::next(place) != status_.end() && Meet(**place, **std::next(place))) break;
      } else {
        const auto above = status_.erase(places[event.edge]);
        if (above != status_.begin() && above != status_.end() && Meet(**std::prev(above), **above)) break;
      }
    }
    if (!found_) CrossInVertices();
    if (found_) crossing = crossing_;
    return found_;
  }

  bool FindOverlap(std::span<const RingRole> roles, RingOverlap& overlap) {
    // From here on what is above an edge isn't its ring's inside but its polygon's.
    for (Edge& edge : edges_) {
      edge.ringAbove = edge.ringAbove != roles[edge.ring].hole;
      edge.polygon = roles[edge.ring].polygon;
    }
    std::vector<Status::iterator> places(edges_.size());
    std::vector<Status::iterator> changed;  // what has a new neighbour
    for (std::size_t i = 0; i < events_.size();) {
      const Point& at = events_[i].at;
      changed.clear();
      // All that ends and begins in a point first: in between, the order says nothing.
      for (; i < events_.size() && SamePlace(events_[i].at, at); ++i) {
        auto& place = places[events_[i].edge];
        if (events_[i].begins) {
          place = status_.insert(&edges_[events_[i].edge]);
          changed.push_back(place);
        } else {
          const auto above = status_.erase(place);
          if (above != status_.end() && !SamePlace((*above)->right, at)) changed.push_back(above);
        }
      }
      for (const auto& place : changed) {
        const auto above = std::next(place);
        if (Overlap(place == status_.begin() ? nullptr : *std::prev(place), *place, at, roles, overlap)) return true;
        if (above != status_.end() && Overlap(*place, *above, at, roles, overlap)) return true;
      }
    }
    return false;
  }

  std::vector<RingNesting> FindNesting() {
    nesting_.assign(points_.size(), {});
    known_.assign(points_.size(), false);
    waits_.assign(points_.size(), false);
    lowest_.assign(points_.size(), status_.end());
    std::vector<Status::iterator> places(edges_.size());
    for (std::size_t i = 0; i < events_.size();) {
      const Point& at = events_[i].at;
      std::vector<std::uint32_t> begun;  // rings whose leftmost vertex this is
      for (; i < events_.size() && SamePlace(events_[i].at, at); ++i) {
        const Event& event = events_[i];
        if (!event.begins) {
          status_.erase(places[event.edge]);
          continue;
        }
        const Edge& edge = edges_[event.edge];
        places[event.edge] = status_.insert(&edge);
        if (known_[edge.ring]) continue;
        auto& lowest = lowest_[edge.ring];
        if (lowest == status_.end()) begun.push_back(edge.ring);
        if (lowest == status_.end() || Lower()(&edge, *lowest)) lowest = places[event.edge];
      }
      for (const std::uint32_t ring : begun) Nest(ring);
    }
    return nesting_;
  }

 private:
  struct Event {
    Point at;
    std::uint32_t edge;
    bool begins;
  };
  /// Two ways out of a vertex that belong together: a ring's edges, or the two ends of an edge that passes through.
  struct Chord {
    Point at;
    Point from;
    Point to;
    std::uint32_t ring;
  };

  void AddEdges(const std::vector<Point>& points, std::uint32_t ring) {
    if (points.size() < 2) return;
    const bool leftTurning = RunsLeftTurning(points);
    for (std::size_t i = 0; i < points.size(); ++i) {
      const Point& from = points[i];
      const Point& to = points[i + 1 == points.size() ? 0 : i + 1];
      const bool forward = Before(from, to);
      edges_.push_back({forward ? from : to, forward ? to : from, ring, static_cast<std::uint32_t>(edges_.size()),
                        forward == leftTurning, -1});
    }
  }

  /// Looks at what lies between two neighbours on the line: nothing, or the inside of one polygon.
  /// @param lower  null: there is none, so that the outside is below.
  bool Overlap(const Edge* lower, const Edge* upper, const Point& at, std::span<const RingRole> roles,
               RingOverlap& overlap) {
    const bool insideOfLower = lower != nullptr && lower->ringAbove;
    const bool insideOfUpper = !upper->ringAbove;
    const bool same = lower == nullptr || roles[lower->ring].polygon == roles[upper->ring].polygon;
    const bool fits = insideOfLower == insideOfUpper && (!insideOfLower || same);
    const bool across = lower != nullptr && GoAcross(*lower, *upper);
    if (fits && !across) return false;
    const int other = lower == nullptr ? -1 : static_cast<int>(lower->ring);
    overlap = {across ? Intersection(*lower, *upper) : Point(at.x, at.y), static_cast<int>(upper->ring), other};
    return true;
  }

  static bool GoAcross(const Edge& a, const Edge& b) {
    return OrientationSign(a.left, a.right, b.left) * OrientationSign(a.left, a.right, b.right) < 0 &&
           OrientationSign(b.left, b.right, a.left) * OrientationSign(b.left, b.right, a.right) < 0;
  }

  bool Cross(const Edge& a, const Edge& b, const Point& at) {
    found_ = true;
    crossing_ = {{at.x, at.y}, a.ring, b.ring};
    return true;
  }

  /// Looks at two neighbours on the line; remembers where one ends on the other. @return whether they cross.
  bool Meet(const Edge& a, const Edge& b) {
    const int leftOfB = OrientationSign(a.left, a.right, b.left);
    const int rightOfB = OrientationSign(a.left, a.right, b.right);
    const int leftOfA = OrientationSign(b.left, b.right, a.left);
    const int rightOfA = OrientationSign(b.left, b.right, a.right);
    if (leftOfB * rightOfB < 0 && leftOfA * rightOfA < 0) return Cross(a, b, Intersection(a, b));
    if (leftOfB == 0 && rightOfB == 0) {
      const Point& begin = Before(a.left, b.left) ? b.left : a.left;
      const Point& end = Before(a.right, b.right) ? a.right : b.right;
      return Before(begin, end) && Cross(a, b, begin);
    }
    if (leftOfB == 0) EndOn(b.left, a);
    if (rightOfB == 0) EndOn(b.right, a);
    if (leftOfA == 0) EndOn(a.left, b);
    if (rightOfA == 0) EndOn(a.right, b);
    return false;
  }

  void EndOn(const Point& end, const Edge& edge) {
    if (Before(edge.left, end) && Before(end, edge.right)) chords_.push_back({end, edge.left, edge.right, edge.ring});
  }

  static Point Intersection(const Edge& a, const Edge& b) {
    const Point alongA = a.right - a.left;
    const Point alongB = b.right - b.left;
    const Point between = b.left - a.left;
    const double t = (between.x * alongB.y - between.y * alongB.x) / (alongA.x * alongB.y - alongA.y * alongB.x);
    const double inside = t > 0 ? std::min(t, 1.0) : 0.0;  // nearly parallel ones may round to anything
    return {a.left.x + inside * alongA.x, a.left.y + inside * alongA.y};
  }

  /// Edges that only touch may still be parts of rings that go across each other where they touch.
  void CrossInVertices() {
    for (std::size_t ring = 0; ring < points_.size(); ++ring) {
      const std::vector<Point>& points = points_[ring];
      const std::size_t count = points.size();
      for (std::size_t i = 0; count >= 2 && i < count; ++i) {
        const Point& from = points[i == 0 ? count - 1 : i - 1];
        chords_.push_back({points[i], from, points[i + 1 == count ? 0 : i + 1], static_cast<std::uint32_t>(ring)});
      }
    }
    const auto before = [](const Chord& a, const Chord& b) {
      if (!SamePlace(a.at, b.at)) return Before(a.at, b.at);
      if (!SamePlace(a.from, b.from)) return Before(a.from, b.from);
      return Before(a.to, b.to);
    };
    std::sort(chords_.begin(), chords_.end(), before);
    const auto same = [](const Chord& a, const Chord& b) {
      return SamePlace(a.at, b.at) && SamePlace(a.from, b.from) && SamePlace(a.to, b.to);
    };
    // An edge meets the same end as often as a neighbour of it comes and goes.
    chords_.erase(std::unique(chords_.begin(), chords_.end(), same), chords_.end());
    for (std::size_t begin = 0; begin < chords_.size() && !found_;) {
      std::size_t end = begin + 1;
      while (end < chords_.size() && SamePlace(chords_[begin].at, chords_[end].at)) ++end;
      if (end - begin > 1) CrossInVertex(begin, end);
      begin = end;
    }
  }

  /// Goes round the vertex once: ways that belong together close like brackets when nothing goes across.
  void CrossInVertex(std::size_t begin, std::size_t end) {
    struct Way {
      Point to;
      std::size_t chord;
    };
    const Point at = chords_[begin].at;
    std::vector<Way> ways;
    for (std::size_t i = begin; i < end; ++i) {
      ways.push_back({chords_[i].from, i});
      ways.push_back({chords_[i].to, i});
    }
    std::sort(ways.begin(), ways.end(), [&at](const Way& a, const Way& b) {
      const bool leftA = Before(a.to, at);
      const bool leftB = Before(b.to, at);
      return leftA != leftB ? leftB : OrientationSign(at, a.to, b.to) > 0;
    });
    std::vector<std::size_t> open;
    for (const Way& way : ways) {
      if (!open.empty() && open.back() == way.chord) {
        open.pop_back();
      } else {
        open.push_back(way.chord);
      }
    }
    if (open.empty()) return;
    found_ = true;
    const std::size_t other = open.size() > 1 ? open[1] : open[0];
    crossing_ = {{at.x, at.y}, chords_[open[0]].ring, chords_[other].ring};
  }

  /// Nests a ring that has just begun by what is below its lowest edge, and before that what has begun in the same
  /// vertex and lies in between.
  void Nest(std::uint32_t ring) {
    std::vector<std::uint32_t> waiting;
    if (!known_[ring]) Wait(ring, waiting);
    while (!waiting.empty()) {
      const std::uint32_t top = waiting.back();
      const auto lowest = lowest_[top];
      const Edge* below = lowest == status_.begin() ? nullptr : *std::prev(lowest);
      // Rings that cross can lead round in a circle.
      const bool circle = below != nullptr && waits_[below->ring];
      if (below != nullptr && !known_[below->ring] && !circle && lowest_[below->ring] != status_.end()) {
        Wait(below->ring, waiting);
        continue;
      }
      if (below != nullptr && known_[below->ring]) {
        const RingNesting& neighbour = nesting_[below->ring];
        nesting_[top] = below->ringAbove ? RingNesting{neighbour.depth + 1, static_cast<int>(below->ring)} : neighbour;
      }
      known_[top] = true;
      waits_[top] = false;
      waiting.pop_back();
    }
  }

  void Wait(std::uint32_t ring, std::vector<std::uint32_t>& waiting) {
    waiting.push_back(ring);
    waits_[ring] = true;
  }

  std::vector<std::vector<Point>> points_;
  std::vector<Edge> edges_;
  std::vector<Event> events_;
  Status status_;
  std::vector<Chord> chords_;
  bool found_ = false;
  RingCrossing crossing_;
  std::vector<RingNesting> nesting_;
  std::vector<bool> known_;
  std::vector<bool> waits_;  // for what is below it to be nested first
  std::vector<Status::iterator> lowest_;
};

}  // namespace

bool FindCrossing(std::span<const RingPoints> rings, RingCrossing& crossing) {
  return Sweep(rings).FindCrossing(crossing);
}

bool FindOverlap(std::span<const RingPoints> rings, std::span<const RingRole> roles, RingOverlap& overlap) {
  return Sweep(rings).FindOverlap(roles, overlap);
}

std::vector<RingNesting> FindNesting(std::span<const RingPoints> rings) { return Sweep(rings).FindNesting(); }

}  // namespace vak
