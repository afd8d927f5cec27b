#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "vakdtm/services/geometry/GtlPoint.h"
#include "vakdtm/services/geometry/GtlPolyline.h"

namespace vak {

/// Strings short pieces into polylines, area by area. `Point` is `GTL::Point2D<double>` or `GTL::Point3D<double>`.
///
/// Three lists of lines: the *open* one, of the area that is being walked; the *border* one, of lines that reach the
/// border of their area and may go on in another; the *interior* one, of lines that don't and are finished. `Add` puts
/// a piece onto the first open line that it fits, `Join` closes an area, `Finish` closes all.
///
/// What comes out, point by point and line by line, is what a search through a list gives that holds the lines in the
/// order in which they began, and looks at each line's first and last point in turn; joining compares each pair of a
/// list, in order, until no two lines share an end. Points are equal when their coordinates are. Ends are found by
/// hashing all the same, and lines are chains of links that can be put together at any of their ends without being
/// copied or turned round: a piece costs the same however long the lines are, a join of two lines too. Each also costs
/// a look at every line of the list that ends in the same point: nothing in a tracer's areas, but the square of their
/// number where thousands of lines meet in one point.
///
/// While the run flag reads false nothing is joined: pieces stay lines of their own, and closing an area or all drops
/// what hasn't reached the border list by then. The flag is read once for each comparison of a line with the others. Of
/// an area whose closing found it down the rest is dropped though it be raised again; the lines of the border list that
/// weren't compared then are so the next time that it grows.
///
/// For one thread; the flag may be lowered by any. A copy stands alone but shares the flag, which must outlive both.
/// Up to 2^32 - 2 points at a time, and 2^31 - 1 lines that were ever appended to the border list since it was last
/// empty; neither is checked. The points of the border list are kept beside the finished polylines, so that work can go
/// on: 24 bytes for each point in the plane, 40 in space.
template <typename Point>
class LineJoiner {
 public:
  using Line = GTL::Polyline<Point>;

  /// @param running  true while work may go on.
  explicit LineJoiner(const std::atomic<bool>& running) : running_(&running) {}

  /// Adds a piece to the open list.
  /// @param touches  whether it reaches the border of its area.
  /// @return false, with nothing done, for a piece without length.
  bool Add(const Point& start, const Point& end, bool touches);

  /// Joins the open lines with one another, shares them out to border and interior list, and joins the border list.
  /// @return false, with nothing done, when there are no open lines.
  bool Join();

  /// Closes the last area and appends the interior list to the border list.
  void Finish();

  /// Empties the border list, and no other.
  void ClearBorder();

  /// The border list as it stands; all lines after `Finish`. Good until the next call of another operation.
  const std::vector<Line>& GetList() const;

 private:
  using Index = std::uint32_t;
  static constexpr Index kNone = ~Index{0};
  enum Side : unsigned char { kFirst, kLast };

  /// A point of a line and its neighbours there, in no order; at a line's end one of them is kNone.
  struct Node {
    Point point;
    std::array<Index, 2> links;
  };
  /// A line of two points or more: the nodes at its ends, and how many points it has.
  struct Chain {
    std::array<Index, 2> ends{kNone, kNone};
    Index count = 0;
    bool touches = false;
  };

  /// Lines and their ends. A line's number is its place in the list that was specified: they stay in the order in which
  /// they were appended, and one that was merged into another leaves a gap.
  class Lines {
   public:
    Index Size() const { return static_cast<Index>(chains_.size()); }
    const Chain& operator[](Index line) const { return chains_[line]; }
    bool IsGone(Index line) const { return chains_[line].count == 0; }
    const Point& EndOf(Index line, Side side) const { return ends_[EndIndex(line, side)].point; }

    void Append(const Chain& chain, const Point& first, const Point& last);
    void Remove(Index line);
    /// Sets the chain of a line that is gone.
    void Restore(Index line, const Chain& chain, const Point& first, const Point& last);
    /// Moves an end of a line to a node that was added there.
    void Extend(Index line, Side side, Index node, const Point& point, bool touches);
    void Clear();

    /// The first of the lines from `from` on that ends at the point; kNone when there is none.
    Index Find(const Point& point, Index from) const;
    /// Shows each line that ends at the point.
    template <typename Show>
    void ForEachAt(const Point& point, const Show& show) const;

   private:
    /// An end of a line. Those with the same hash are a list in both directions.
    struct End {
      Point point;
      Index next = kNone;
      Index before = kNone;
    };

    static Index EndIndex(Index line, Index side) { return 2 * line + side; }
    /// Where a search for a point that equals itself begins.
    Index& Bucket(const Point& point) { return buckets_[static_cast<std::size_t>(Hash(point) >> shift_)]; }
    Index First(const Point& point) const;
    void Enter(Index end, const Point& point);
    void Leave(Index end);
    void Grow();

    std::vector<Chain> chains_;
    std::vector<End> ends_;
    std::vector<Index> buckets_ = std::vector<Index>(kFewBuckets, kNone);  // the first end of each
    int shift_ = 64 - std::countr_zero(kFewBuckets);
  };
  static constexpr std::size_t kFewBuckets = 64;

  static std::uint64_t Hash(const GTL::Point2D<double>& point) { return Mix(Bits(point.x), Bits(point.y)); }
  static std::uint64_t Hash(const GTL::Point3D<double>& point) {
    return Mix(Mix(Bits(point.x), Bits(point.y)), Bits(point.z));
  }
  /// Adding 0 makes 0 of -0, which equals it.
  static std::uint64_t Bits(double value) { return std::bit_cast<std::uint64_t>(value + 0.0); }
  /// Its high bits are those to use. Multipliers: odd, with as many ones as zeros.
  static std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
    std::uint64_t hash = a * 0x9E3779B97F4A7C15U + std::rotl(b * 0xC2B2AE3D27D4EB4FU, 31);
    hash ^= hash >> 29;
    return hash * 0xD6E8FEB86659FD93U;
  }
  /// Whether it can equal any.
  static bool IsNumber(const Point& point) {
    const Point same = point;
    return same == point;
  }

  bool IsRunning() const { return running_->load(std::memory_order_relaxed); }
  Index NewNode(const Point& point, Index neighbour);
  void FreeNode(Index node);
  void FreeChain(const Chain& chain);
  Index Next(Index node, Index before) const {
    const auto& links = nodes_[node].links;
    return links[0] == before ? links[1] : links[0];
  }
  void Relink(Index node, Index from, Index to) {
    auto& links = nodes_[node].links;
    links[links[0] == from ? 0 : 1] = to;
  }

  void Begin(const Point& start, const Point& end, bool touches);
  void Extend(Index line, const Point& start, const Point& end, bool touches);
  void AddPoint(Index line, Side side, const Point& point, bool touches);
  bool JoinOpen();
  void ShareOut(bool running);
  void JoinBorder(Index firstNew);
  bool JoinLine(Lines& lines, Index line);
  void Merge(Lines& lines, Index line, Index other);
  void AppendToBorder(const Chain& chain);
  Line MakeLine(const Chain& chain) const;

  const std::atomic<bool>* running_;
  std::vector<Node> nodes_;
  Index unused_ = kNone;  // the first of the unused nodes; their first link leads to the next
  Lines open_;
  Lines border_;
  std::vector<Chain> interior_;
  bool borderIsJoined_ = true;     // no two border lines share an end
  std::vector<Index> candidates_;  // border lines that may have something to be joined to

  mutable std::vector<Line> list_;
  mutable bool listIsCurrent_ = true;
};

// ---- Lines

template <typename Point>
void LineJoiner<Point>::Lines::Append(const Chain& chain, const Point& first, const Point& last) {
  const Index line = Size();
  chains_.emplace_back();
  ends_.resize(ends_.size() + 2);
  if (ends_.size() > buckets_.size()) Grow();
  Restore(line, chain, first, last);
}

template <typename Point>
void LineJoiner<Point>::Lines::Restore(Index line, const Chain& chain, const Point& first, const Point& last) {
  chains_[line] = chain;
  Enter(EndIndex(line, kFirst), first);
  Enter(EndIndex(line, kLast), last);
}

template <typename Point>
void LineJoiner<Point>::Lines::Remove(Index line) {
  Leave(EndIndex(line, kFirst));
  Leave(EndIndex(line, kLast));
  chains_[line] = Chain();
}

template <typename Point>
void LineJoiner<Point>::Lines::Extend(Index line, Side side, Index node, const Point& point, bool touches) {
  Chain& chain = chains_[line];
  chain.ends[side] = node;
  ++chain.count;
  chain.touches = chain.touches || touches;
  const Index end = EndIndex(line, side);
  Leave(end);
  Enter(end, point);
}

template <typename Point>
void LineJoiner<Point>::Lines::Clear() {
  for (const End& end : ends_) {
    if (IsNumber(end.point)) Bucket(end.point) = kNone;
  }
  ends_.clear();
  chains_.clear();
}

template <typename Point>
typename LineJoiner<Point>::Index LineJoiner<Point>::Lines::First(const Point& point) const {
  return IsNumber(point) ? buckets_[static_cast<std::size_t>(Hash(point) >> shift_)] : kNone;
}

template <typename Point>
typename LineJoiner<Point>::Index LineJoiner<Point>::Lines::Find(const Point& point, Index from) const {
  Index found = kNone;
  for (Index end = First(point); end != kNone; end = ends_[end].next) {
    const Index line = end / 2;
    if (line >= from && line < found && ends_[end].point == point) found = line;
  }
  return found;
}

template <typename Point>
template <typename Show>
void LineJoiner<Point>::Lines::ForEachAt(const Point& point, const Show& show) const {
  for (Index end = First(point); end != kNone; end = ends_[end].next) {
    if (ends_[end].point == point) show(end / 2);
  }
}

template <typename Point>
void LineJoiner<Point>::Lines::Enter(Index end, const Point& point) {
  ends_[end].point = point;
  if (!IsNumber(point)) return;
  Index& first = Bucket(point);
  ends_[end].before = kNone;
  ends_[end].next = first;
  if (first != kNone) ends_[first].before = end;
  first = end;
}

template <typename Point>
void LineJoiner<Point>::Lines::Leave(Index end) {
  const End& place = ends_[end];
  if (!IsNumber(place.point)) return;
  (place.before == kNone ? Bucket(place.point) : ends_[place.before].next) = place.next;
  if (place.next != kNone) ends_[place.next].before = place.before;
}

template <typename Point>
void LineJoiner<Point>::Lines::Grow() {
  buckets_.assign(2 * buckets_.size(), kNone);
  --shift_;
  for (Index end = 0; end < static_cast<Index>(ends_.size()); ++end) {
    if (!IsGone(end / 2)) Enter(end, Point(ends_[end].point));
  }
}

// ---- Nodes

/// A node beside another, or with no neighbour.
template <typename Point>
typename LineJoiner<Point>::Index LineJoiner<Point>::NewNode(const Point& point, Index neighbour) {
  Index node = unused_;
  if (node == kNone) {
    node = static_cast<Index>(nodes_.size());
    nodes_.emplace_back();
  } else {
    unused_ = nodes_[node].links[0];
  }
  nodes_[node] = {point, {neighbour, kNone}};
  if (neighbour != kNone) Relink(neighbour, kNone, node);
  return node;
}

template <typename Point>
void LineJoiner<Point>::FreeNode(Index node) {
  nodes_[node].links[0] = unused_;
  unused_ = node;
}

template <typename Point>
void LineJoiner<Point>::FreeChain(const Chain& chain) {
  Index before = kNone;
  for (Index node = chain.ends[kFirst]; node != kNone;) {
    const Index next = Next(node, before);
    // Freed one behind: the next node's way on is told by where it was come from.
    if (before != kNone) FreeNode(before);
    before = node;
    node = next;
  }
  FreeNode(before);
}

// ---- Adding

template <typename Point>
bool LineJoiner<Point>::Add(const Point& start, const Point& end, bool touches) {
  if (start == end) return false;
  const Index line = IsRunning() ? std::min(open_.Find(start, 0), open_.Find(end, 0)) : kNone;
  if (line == kNone) {
    Begin(start, end, touches);
  } else {
    Extend(line, start, end, touches);
  }
  return true;
}

template <typename Point>
void LineJoiner<Point>::Begin(const Point& start, const Point& end, bool touches) {
  const Index first = NewNode(start, kNone);
  const Index last = NewNode(end, first);
  open_.Append({{first, last}, 2, touches}, start, end);
}

template <typename Point>
void LineJoiner<Point>::Extend(Index line, const Point& start, const Point& end, bool touches) {
  const Point& first = open_.EndOf(line, kFirst);
  if (first == start) {
    AddPoint(line, kFirst, end, touches);
  } else if (first == end) {
    AddPoint(line, kFirst, start, touches);
  } else if (open_.EndOf(line, kLast) == start) {
    AddPoint(line, kLast, end, touches);
  } else {
    AddPoint(line, kLast, start, touches);
  }
}

template <typename Point>
void LineJoiner<Point>::AddPoint(Index line, Side side, const Point& point, bool touches) {
  open_.Extend(line, side, NewNode(point, open_[line].ends[side]), point, touches);
}

// ---- Joining

template <typename Point>
bool LineJoiner<Point>::Join() {
  if (open_.Size() == 0) return false;
  const Index firstNew = border_.Size();
  ShareOut(JoinOpen());
  open_.Clear();
  if (border_.Size() > firstNew) JoinBorder(firstNew);
  return true;
}

/// @return false when it was stopped.
template <typename Point>
bool LineJoiner<Point>::JoinOpen() {
  for (Index line = 0; line < open_.Size(); ++line) {
    if (!JoinLine(open_, line)) return false;
  }
  return true;
}

/// Moves the open lines to the other lists, dropping what is left when it is stopped.
/// @param running  false: it was stopped before.
template <typename Point>
void LineJoiner<Point>::ShareOut(bool running) {
  for (Index line = 0; line < open_.Size(); ++line) {
    if (open_.IsGone(line)) continue;
    const Chain& chain = open_[line];
    running = running && IsRunning();
    if (!running) {
      FreeChain(chain);
    } else if (chain.touches) {
      AppendToBorder(chain);
    } else {
      interior_.push_back(chain);
    }
  }
}

/// Joins the border list: what is new in it doesn't share ends among itself, nor what is old, so that only the old
/// lines need to be looked at that share an end with a new one. Lines that these lead on to share theirs with one, too.
template <typename Point>
void LineJoiner<Point>::JoinBorder(Index firstNew) {
  candidates_.clear();
  if (borderIsJoined_) {
    const auto note = [&](Index line) {
      if (line < firstNew) candidates_.push_back(line);
    };
    for (Index line = firstNew; line < border_.Size(); ++line) {
      border_.ForEachAt(border_.EndOf(line, kFirst), note);
      border_.ForEachAt(border_.EndOf(line, kLast), note);
    }
    std::sort(candidates_.begin(), candidates_.end());
  } else {
    for (Index line = 0; line < border_.Size(); ++line) candidates_.push_back(line);
  }
  borderIsJoined_ = false;
  for (const Index line : candidates_) {
    if (!JoinLine(border_, line)) return;
  }
  borderIsJoined_ = true;
}

/// Merges a line with lines behind it until none of them shares an end with it, or it is gone.
/// @return false when it was stopped.
template <typename Point>
bool LineJoiner<Point>::JoinLine(Lines& lines, Index line) {
  while (!lines.IsGone(line)) {
    if (!IsRunning()) return false;
    const Index other =
        std::min(lines.Find(lines.EndOf(line, kFirst), line + 1), lines.Find(lines.EndOf(line, kLast), line + 1));
    if (other == kNone) return true;
    Merge(lines, line, other);
  }
  return true;
}

/// Merges a line with one behind it that shares an end with it. The common point stays as this line has it, and so does
/// this line's direction.
template <typename Point>
void LineJoiner<Point>::Merge(Lines& lines, Index line, Index other) {
  const bool atLast =
      lines.EndOf(line, kLast) == lines.EndOf(other, kFirst) || lines.EndOf(line, kLast) == lines.EndOf(other, kLast);
  const Side here = atLast ? kLast : kFirst;
  const Side there = lines.EndOf(line, here) == lines.EndOf(other, kFirst) ? kFirst : kLast;
  const Side away = there == kFirst ? kLast : kFirst;
  const Chain kept = lines[line];
  const Chain added = lines[other];
  const Point first = here == kLast ? lines.EndOf(line, kFirst) : lines.EndOf(other, away);
  const Point last = here == kLast ? lines.EndOf(other, away) : lines.EndOf(line, kLast);

  const Index doubled = added.ends[there];
  const Index beside = Next(doubled, kNone);
  Relink(beside, doubled, kept.ends[here]);
  Relink(kept.ends[here], kNone, beside);
  FreeNode(doubled);

  Chain merged = kept;
  merged.ends[here] = added.ends[away];
  merged.count += added.count - 1;
  merged.touches = kept.touches || added.touches;
  // Where an open line goes on in front of another's start, the other is the one that grows.
  const bool intoOther = &lines == &open_ && here == kFirst && there == kLast;
  lines.Remove(line);
  lines.Remove(other);
  lines.Restore(intoOther ? other : line, merged, first, last);
}

template <typename Point>
void LineJoiner<Point>::AppendToBorder(const Chain& chain) {
  border_.Append(chain, nodes_[chain.ends[kFirst]].point, nodes_[chain.ends[kLast]].point);
  listIsCurrent_ = false;
}

template <typename Point>
void LineJoiner<Point>::Finish() {
  Join();
  bool running = true;
  for (const Chain& chain : interior_) {
    running = running && IsRunning();
    if (running) {
      AppendToBorder(chain);
      borderIsJoined_ = false;
    } else {
      FreeChain(chain);
    }
  }
  interior_.clear();
  GetList();  // so that a list that was asked for before is complete now
}

template <typename Point>
void LineJoiner<Point>::ClearBorder() {
  for (Index line = 0; line < border_.Size(); ++line) {
    if (!border_.IsGone(line)) FreeChain(border_[line]);
  }
  border_.Clear();
  borderIsJoined_ = true;
  list_.clear();
  listIsCurrent_ = true;
}

// ---- Result

template <typename Point>
const std::vector<typename LineJoiner<Point>::Line>& LineJoiner<Point>::GetList() const {
  if (listIsCurrent_) return list_;
  list_.clear();
  for (Index line = 0; line < border_.Size(); ++line) {
    if (!border_.IsGone(line)) list_.push_back(MakeLine(border_[line]));
  }
  listIsCurrent_ = true;
  return list_;
}

template <typename Point>
typename LineJoiner<Point>::Line LineJoiner<Point>::MakeLine(const Chain& chain) const {
  std::vector<Point> points;
  points.reserve(chain.count);
  Index before = kNone;
  for (Index node = chain.ends[kFirst]; node != kNone;) {
    points.push_back(nodes_[node].point);
    const Index next = Next(node, before);
    before = node;
    node = next;
  }
  return Line(std::move(points));
}

}  // namespace vak
