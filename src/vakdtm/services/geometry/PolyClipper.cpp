#include "vakdtm/services/geometry/PolyClipper.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace vak {
namespace {

/// An edge that enters a page by less than so many units in the last place of the largest coordinates doesn't. Cutting
/// to an area, a row and a cell moves an edge by some four units each; the rounding of the page's edges adds one.
constexpr double kUnitsThatDontEnter = 16;

bool IsUsable(double x, double y) {
  return std::fabs(x) <= PolyClipper::kLargestCoordinate && std::fabs(y) <= PolyClipper::kLargestCoordinate;
}

double Larger(double a, double b) { return std::max(std::fabs(a), std::fabs(b)); }

/// A running sum that loses no digits while terms of both signs cancel.
class ExactSum {
 public:
  void Add(double term) {
    const double sum = sum_ + term;
    lost_ += std::fabs(sum_) >= std::fabs(term) ? (sum_ - sum) + term : (term - sum) + sum_;
    sum_ = sum;
  }
  double Value() const { return sum_ + lost_; }

 private:
  double sum_ = 0;
  double lost_ = 0;
};

/// Half-plane of an axis-parallel line. `Along` is the coordinate that is compared, `Across` the other one.
template <typename Vertex, double Vertex::* Along, double Vertex::* Across>
struct HalfPlane {
  double limit;
  bool keepAbove;
  bool withZ;

  bool Holds(const Vertex& vertex) const { return keepAbove ? vertex.*Along >= limit : vertex.*Along <= limit; }

  /// Where an edge from one side to the other meets the line: the same whichever end comes first, so that what goes in
  /// and comes out along one line has no surface.
  Vertex Meet(const Vertex& a, const Vertex& b) const {
    const Vertex& low = a.*Along < b.*Along ? a : b;
    const Vertex& high = a.*Along < b.*Along ? b : a;
    const double span = high.*Along - low.*Along;
    const double fromLow = (limit - low.*Along) / span;
    const double fromHigh = (high.*Along - limit) / span;
    const bool nearLow = fromLow <= 0.5;
    const auto between = [&](double atLow, double atHigh) {
      const double value = nearLow ? atLow + (atHigh - atLow) * fromLow : atHigh - (atHigh - atLow) * fromHigh;
      return std::clamp(value, std::min(atLow, atHigh), std::max(atLow, atHigh));
    };
    Vertex meet{};
    meet.*Along = limit;
    meet.*Across = between(low.*Across, high.*Across);
    meet.z = withZ ? between(low.z, high.z) : 0;
    return meet;
  }
};

/// Cuts every ring of a list (after Sutherland and Hodgman, "Reentrant polygon clipping", CACM 17(1), 1974).
template <typename Vertices, typename Side>
void Cut(const Vertices& from, Vertices& to, const Side& side) {
  to.clear();
  for (std::size_t begin = 0; begin < from.size();) {
    std::size_t end = begin + 1;
    while (end < from.size() && from[end].mark == decltype(from[end].mark){}) ++end;
    auto mark = from[begin].mark;
    const auto put = [&](auto vertex) {
      vertex.mark = std::exchange(mark, decltype(mark){});
      to.push_back(vertex);
    };
    bool heldBefore = side.Holds(from[end - 1]);
    for (std::size_t i = begin; i < end; ++i) {
      const bool holds = side.Holds(from[i]);
      if (holds != heldBefore) put(side.Meet(from[i == begin ? end - 1 : i - 1], from[i]));
      if (holds) put(from[i]);
      heldBefore = holds;
    }
    begin = end;
  }
}

}  // namespace

void PolyClipper::SetPage(const Page& page) {
  page_ = page;
  width_ = page.Width();
  height_ = page.IsValid() ? page.top() - page.bottom() : 0;
  if (!IsUsable(page.left(), page.bottom()) || !IsUsable(page.right(), page.top())) width_ = 0;
  reach_ = Point();
  SetReach(page);
  streaming_ = false;
}

void PolyClipper::SetReach(const Page& extents) {
  if (!extents.IsValid()) return;
  reach_.x = std::max(reach_.x, Larger(extents.left(), extents.right()));
  reach_.y = std::max(reach_.y, Larger(extents.bottom(), extents.top()));
}

void PolyClipper::BeginClip() {
  kept_.clear();
  entered_ = false;
  overCentre_ = 0;
  ringMark_ = Mark::kNone;
  cover_ = Cover::kOutside;
  area_ = 0;
}

bool PolyClipper::InitPoly() {
  BeginClip();
  output_.clear();
  streaming_ = IsOpen();
  return streaming_;
}

bool PolyClipper::AddPoint(const Point& point, bool first) {
  if (!streaming_ || !IsUsable(point.x, point.y)) return false;
  const Mark mark = first || ringMark_ == Mark::kNone ? (hole_ ? Mark::kHole : Mark::kRing) : Mark::kNone;
  Feed({point.x - page_.left(), point.y - page_.bottom(), point.z, mark});
  return true;
}

/// Takes a vertex, relative to the page's corner, of the cut that is under way.
void PolyClipper::Feed(const Vertex& vertex) {
  if (vertex.mark != Mark::kNone) {
    CloseRing();
    ringMark_ = vertex.mark;
    ringFirst_ = vertex;
    ringStart_ = kept_.size();
    ringOverCentre_ = false;
  } else {
    LookAtEdge(ringLast_, vertex);
  }
  ringLast_ = vertex;
  Keep(vertex);
}

/// Stores a vertex. Of many behind each other on one side of the page only the first and the last have edges that can
/// come near it.
void PolyClipper::Keep(const Vertex& vertex) {
  const std::size_t count = kept_.size() - ringStart_;
  if (count >= 2) {
    const Vertex& last = kept_[kept_.size() - 1];
    const Vertex& before = kept_[kept_.size() - 2];
    const auto all = [&](auto isOutside) { return isOutside(vertex) && isOutside(last) && isOutside(before); };
    if (all([](const Vertex& v) { return v.y < 0; }) || all([this](const Vertex& v) { return v.y > height_; }) ||
        all([](const Vertex& v) { return v.x < 0; }) || all([this](const Vertex& v) { return v.x > width_; })) {
      kept_.back() = vertex;
      return;
    }
  }
  kept_.push_back(vertex);
}

void PolyClipper::CloseRing() {
  if (ringMark_ == Mark::kNone) return;
  LookAtEdge(ringLast_, ringFirst_);
  if (ringOverCentre_) overCentre_ += ringMark_ == Mark::kHole ? -1 : 1;
}

/// Notes whether an edge enters the page or, as long as none does, passes to the right of its centre.
void PolyClipper::LookAtEdge(const Vertex& from, const Vertex& to) {
  if (entered_) return;
  if (Enters(from, to)) {
    entered_ = true;
    return;
  }
  const double x = width_ / 2;
  const double y = height_ / 2;
  if ((from.y <= y) == (to.y <= y) || (from.x <= x && to.x <= x)) return;
  const Vertex& low = from.y <= y ? from : to;
  const Vertex& high = from.y <= y ? to : from;
  // No edge comes near the centre when none enters the page, so that rounding can't change the answer.
  const bool toTheRight = (high.x - low.x) * (y - low.y) > (x - low.x) * (high.y - low.y);
  if (toTheRight) ringOverCentre_ = !ringOverCentre_;
}

bool PolyClipper::Enters(const Vertex& from, const Vertex& to) const {
  const auto [left, right] = std::minmax(from.x, to.x);
  const auto [bottom, top] = std::minmax(from.y, to.y);
  if (right <= 0 || left >= width_ || top <= 0 || bottom >= height_) return false;
  constexpr double kUnit = kUnitsThatDontEnter * std::numeric_limits<double>::epsilon();
  const double reachX = std::max(reach_.x, Larger(left, right) + std::fabs(page_.left()));
  const double reachY = std::max(reach_.y, Larger(bottom, top) + std::fabs(page_.bottom()));
  const double x0 = std::min(kUnit * reachX, width_ / 4);
  const double y0 = std::min(kUnit * reachY, height_ / 4);
  const double x1 = width_ - x0;
  const double y1 = height_ - y0;
  if (right <= x0 || left >= x1 || top <= y0 || bottom >= y1) return false;
  // Their boxes meet; the edge passes by only when all four corners lie on one side of it.
  const double dx = to.x - from.x;
  const double dy = to.y - from.y;
  const auto side = [&](double x, double y) { return dx * (y - from.y) - dy * (x - from.x); };
  const auto [low, high] = std::minmax({side(x0, y0), side(x1, y0), side(x1, y1), side(x0, y1)});
  return low < 0 && high > 0;
}

bool PolyClipper::ProcessPoly() {
  if (!streaming_) return false;
  CloseRing();
  ringMark_ = Mark::kNone;
  return CutBelowAndAbove(false);
}

bool PolyClipper::ClipOtherSides() {
  if (!streaming_) return false;
  streaming_ = false;
  return CutAside(false);
}

bool PolyClipper::CutBelowAndAbove(bool withZ) {
  using Rows = HalfPlane<Vertex, &Vertex::y, &Vertex::x>;
  if (!entered_ && overCentre_ == 0) kept_.clear();
  Cut(kept_, scratch_, Rows{0.0, true, withZ});
  Cut(scratch_, kept_, Rows{height_, false, withZ});
  return !kept_.empty();
}

/// Ends the cut: what is left goes into the output list.
bool PolyClipper::CutAside(bool withZ) {
  using Columns = HalfPlane<Vertex, &Vertex::x, &Vertex::y>;
  Cut(kept_, scratch_, Columns{0.0, true, withZ});
  Cut(scratch_, kept_, Columns{width_, false, withZ});
  TidyOutput();
  const double whole = page_.Area();
  area_ = entered_ ? MeasureOutput(whole) : overCentre_ * whole;
  // Where a ring runs forth and back along a line, that has no surface but for rounding, nor does it take any away.
  const double rounding = 16 * std::numeric_limits<double>::epsilon() * whole;
  cover_ = entered_ ? Cover::kPartly : Cover::kInside;
  if (output_.empty() || std::fabs(area_) <= rounding) {
    output_.clear();
    area_ = 0;
    cover_ = Cover::kOutside;
  } else if (std::fabs(std::fabs(area_) - whole) <= rounding) {
    area_ = std::copysign(whole, area_);
    cover_ = Cover::kInside;
  }
  return cover_ != Cover::kOutside;
}

/// Moves what was kept into the output list, without repeated vertices, and without rings that are no surface.
void PolyClipper::TidyOutput() {
  output_.clear();
  origin_ = Point(page_.left(), page_.bottom());
  const auto same = [](const Vertex& a, const Vertex& b) { return a.x == b.x && a.y == b.y; };
  for (std::size_t i = 0; i < kept_.size();) {
    const std::size_t begin = output_.size();
    const Mark mark = kept_[i].mark;
    do {
      if (output_.size() == begin || !same(output_.back(), kept_[i])) output_.push_back(kept_[i]);
      ++i;
    } while (i < kept_.size() && kept_[i].mark == Mark::kNone);
    while (output_.size() > begin + 1 && same(output_.back(), output_[begin])) output_.pop_back();
    if (output_.size() < begin + 3) output_.resize(begin);
    if (output_.size() > begin) output_[begin].mark = mark;
  }
}

void PolyClipper::ResetOutputList() {
  output_.clear();
  origin_ = Point();
  cover_ = Cover::kOutside;
  area_ = 0;
}

void PolyClipper::StoreOutputPoint(const Point& point, bool first) {
  const Mark mark = first || output_.empty() ? (hole_ ? Mark::kHole : Mark::kRing) : Mark::kNone;
  output_.push_back({point.x - origin_.x, point.y - origin_.y, point.z, mark});
}

bool PolyClipper::DoPolyClip(bool withZ) {
  const bool usable =
      std::all_of(output_.begin(), output_.end(), [](const Vertex& vertex) { return IsUsable(vertex.x, vertex.y); });
  if (!IsOpen() || !usable) {
    ResetOutputList();
    return false;
  }
  ClipList(output_, origin_, withZ);
  return true;
}

bool PolyClipper::ClipResultOf(const PolyClipper& wider) {
  if (!IsOpen()) {
    ResetOutputList();
    return false;
  }
  reach_.x = std::max(reach_.x, wider.reach_.x);
  reach_.y = std::max(reach_.y, wider.reach_.y);
  return ClipList(wider.output_, wider.origin_, false);
}

/// The list may be the output list itself: it is read to its end before that is written.
bool PolyClipper::ClipList(const Vertices& list, Point origin, bool withZ) {
  BeginClip();
  const double dx = origin.x - page_.left();
  const double dy = origin.y - page_.bottom();
  for (Vertex vertex : list) {
    vertex.x += dx;
    vertex.y += dy;
    Feed(vertex);
  }
  CloseRing();
  ringMark_ = Mark::kNone;
  CutBelowAndAbove(withZ);
  return CutAside(withZ);
}

Point PolyClipper::GetOutputPoint(int index) const {
  const Vertex& vertex = output_[static_cast<std::size_t>(index)];
  Point point(origin_.x + vertex.x, origin_.y + vertex.y, vertex.z);
  if (vertex.x == width_) point.x = page_.right();
  if (vertex.y == height_) point.y = page_.top();
  return point;
}

/// The surface of the output list, rings by their vertices (after Gauss).
double PolyClipper::MeasureOutput(double whole) const {
  double sum = 0;
  for (std::size_t begin = 0; begin < output_.size();) {
    std::size_t end = begin + 1;
    while (end < output_.size() && output_[end].mark == Mark::kNone) ++end;
    ExactSum twice;
    for (std::size_t i = begin; i < end; ++i) {
      const Vertex& from = output_[i];
      const Vertex& to = output_[i + 1 == end ? begin : i + 1];
      twice.Add(from.x * to.y);
      twice.Add(-to.x * from.y);
    }
    const double surface = std::min(std::fabs(twice.Value()) / 2, whole);
    sum += output_[begin].mark == Mark::kHole ? -surface : surface;
    begin = end;
  }
  return sum;
}

}  // namespace vak
