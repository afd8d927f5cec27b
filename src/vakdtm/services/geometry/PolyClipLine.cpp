#include "vakdtm/services/geometry/PolyClipLine.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <span>
#include <utility>

#include "vakdtm/services/files/FileName.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geometry/Orientation.h"
#include "vakdtm/services/geometry/PolyClipper.h"
#include "vakdtm/services/geometry/PolygonFile.h"
#include "vakdtm/services/geometry/RingSweep.h"
#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

/// What is worked out once, by the first of any number of threads that needs it.
template <typename T>
class Lazy {
 public:
  template <typename Make>
  const T& Get(const Make& make) {
    const T* value = ready_.load(std::memory_order_acquire);
    return value != nullptr ? *value : MakeOnce(make);
  }

  /// Requires: nobody else has it.
  void Reset() {
    ready_.store(nullptr, std::memory_order_relaxed);
    value_.reset();
  }

 private:
  template <typename Make>
  const T& MakeOnce(const Make& make) {
    const std::scoped_lock lock(mutex_);
    if (!value_) {
      value_ = std::make_unique<const T>(make());
      ready_.store(value_.get(), std::memory_order_release);
    }
    return *value_;
  }

  std::mutex mutex_;
  std::unique_ptr<const T> value_;  // guarded by mutex_
  std::atomic<const T*> ready_{nullptr};
};

bool IsUsable(const Point& point) {
  return std::fabs(point.x) <= PolyClipper::kLargestCoordinate && std::fabs(point.y) <= PolyClipper::kLargestCoordinate;
}

/// What a ring keeps of a vertex.
Point Usual(Point point) {
  if (std::fabs(point.x) < PolyClipper::kSmallestCoordinate) point.x = 0;
  if (std::fabs(point.y) < PolyClipper::kSmallestCoordinate) point.y = 0;
  return point;
}

bool HasThreePlaces(std::span<const Point> points) {
  const Point* second = nullptr;
  for (const Point& point : points) {
    if (SamePlace(point, points.front())) continue;
    if (second == nullptr) {
      second = &point;
    } else if (!SamePlace(point, *second)) {
      return true;
    }
  }
  return false;
}

/// Of a ring, relative to its first vertex, so that coordinates far away cost no digits.
double SurfaceOf(std::span<const Point> points) {
  double sum = 0;
  double lost = 0;
  for (std::size_t i = 1; i + 1 < points.size(); ++i) {
    const Point a = points[i] - points[0];
    const Point b = points[i + 1] - points[0];
    const double term = a.x * b.y - a.y * b.x;
    const double next = sum + term;
    lost += std::fabs(sum) >= std::fabs(term) ? (sum - next) + term : (term - next) + sum;
    sum = next;
  }
  return std::fabs(sum + lost) / 2;
}

/// What is asked of a ring, or of all rings, again and again.
struct Measures {
  Page extents;
  double area = 0;
  bool valid = true;
};

/// The edges by bands of Y.
class BandIndex {
 public:
  struct Edge {
    double lowX, lowY, highX, highY;
    std::uint32_t ring;
  };

  void AddRing(std::span<const Point> points, std::uint32_t ring) {
    for (std::size_t i = 0; i < points.size(); ++i) {
      const Point& a = points[i];
      const Point& b = points[i + 1 == points.size() ? 0 : i + 1];
      if (a.y < b.y) edges_.push_back({a.x, a.y, b.x, b.y, ring});
      if (a.y > b.y) edges_.push_back({b.x, b.y, a.x, a.y, ring});
    }
  }

  void Finish() {
    if (edges_.empty()) return;
    bottom_ = edges_.front().lowY;
    top_ = edges_.front().highY;
    for (const Edge& edge : edges_) {
      bottom_ = std::min(bottom_, edge.lowY);
      top_ = std::max(top_, edge.highY);
    }
    // Edges that go up and down all the time lie in many bands each; there are as many bands as keep that in bounds.
    std::size_t bands = std::clamp<std::size_t>(edges_.size() / 2, 1, std::size_t{1} << 20);
    while (true) {
      SetBands(bands);
      std::size_t entries = 0;
      for (const Edge& edge : edges_) entries += BandOf(edge.highY) - BandOf(edge.lowY) + 1;
      if (bands_ == 1 || entries <= 3 * edges_.size()) break;
      bands = (bands + 1) / 2;
    }
    Sort();
  }

  /// The edges near a height, those of a ring behind each other.
  std::span<const Edge> At(double y) const {
    const bool within = y >= bottom_ && y < top_;  // not so for a not-a-number
    if (starts_.empty() || !within) return {};
    const std::size_t band = BandOf(y);
    return std::span(sorted_).subspan(starts_[band], starts_[band + 1] - starts_[band]);
  }

 private:
  void SetBands(std::size_t bands) {
    bands_ = bands;
    scale_ = static_cast<double>(bands) / (top_ - bottom_);
    if (std::isfinite(scale_)) return;
    bands_ = 1;
    scale_ = 0;
  }

  /// Never falls with y, whatever the rounding, so that an edge is in the band of every height between its ends.
  std::size_t BandOf(double y) const {
    const double band = (y - bottom_) * scale_;
    return std::min(bands_ - 1, static_cast<std::size_t>(std::clamp(band, 0.0, static_cast<double>(bands_))));
  }

  void Sort() {
    std::vector<std::size_t> starts(bands_ + 1, 0);
    for (const Edge& edge : edges_) {
      for (std::size_t band = BandOf(edge.lowY); band <= BandOf(edge.highY); ++band) ++starts[band + 1];
    }
    for (std::size_t band = 0; band < bands_; ++band) starts[band + 1] += starts[band];
    sorted_.resize(starts.back());
    std::vector<std::size_t> next(starts.begin(), starts.end() - 1);
    for (const Edge& edge : edges_) {
      for (std::size_t band = BandOf(edge.lowY); band <= BandOf(edge.highY); ++band) sorted_[next[band]++] = edge;
    }
    starts_ = std::move(starts);
    edges_ = std::vector<Edge>();
  }

  double bottom_ = 0;
  double top_ = 0;
  double scale_ = 0;
  std::size_t bands_ = 1;
  std::vector<std::size_t> starts_;
  std::vector<Edge> sorted_;
  std::vector<Edge> edges_;  // until `Finish`
};

/// Whether the edge passes the point on its right side. An edge has its lower end and not its upper one, and a point on
/// the edge is on its right side: so the lower and left ends of a ring are inside.
bool PassesRightOf(const BandIndex::Edge& edge, const Point& point) {
  if (point.y < edge.lowY || point.y >= edge.highY) return false;
  if (point.x < std::min(edge.lowX, edge.highX)) return true;
  if (point.x >= std::max(edge.lowX, edge.highX)) return false;
  return OrientationSign({edge.lowX, edge.lowY}, {edge.highX, edge.highY}, point) > 0;
}

void AppendPlace(std::string& text, const Point& point) {
  AppendNumber(text, point.x);
  text += ", ";
  AppendNumber(text, point.y);
}

/// A ring that is told of within a sentence.
std::string NameInText(const std::wstring& ring) {
  return (ring.starts_with(L"line ") ? "the ring at " : "") + ToUtf8(ring);
}

/// A group of rings, by their numbers.
using Group = std::vector<std::size_t>;

}  // namespace

std::wstring PolyClipFault::Text() const {
  std::string text;
  switch (kind) {
    case Kind::kNone:
      return {};
    case Kind::kNotFinite:
      text = "has a coordinate that is no number or beyond 1e12, in the vertex ";
      AppendPlace(text, at);
      break;
    case Kind::kTooFewPoints:
      text = "has fewer than three different points";
      break;
    case Kind::kNotClosed:
      text = "isn't closed: it begins at ";
      AppendPlace(text, at);
      text += " and ends at ";
      AppendPlace(text, end);
      break;
    case Kind::kSelfIntersecting:
      text = "intersects itself at ";
      AppendPlace(text, at);
      break;
    case Kind::kCrossing:
      text = "crosses " + NameInText(other) + " at ";
      AppendPlace(text, at);
      break;
    case Kind::kHoleOutside:
      text = "is a hole, but not within its ring, at ";
      AppendPlace(text, at);
      break;
    case Kind::kHoleInHole:
      text = "is a hole within another one, " + NameInText(other) + ", at ";
      AppendPlace(text, at);
      break;
    case Kind::kOverlap:
      text = "overlaps " + NameInText(other) + " at ";
      AppendPlace(text, at);
      break;
  }
  return ring + L": " + FromUtf8(text);
}

/// Either one ring, or several, each a polygon of one ring.
struct PolyClipLine::Body {
  std::vector<PolyClipLine> rings;  // of several

  // Of one.
  std::vector<Point> points;
  bool hole = false;
  bool closed = true;  // in its file
  std::wstring place;  // in its file
  int group = 0;       // rings that make a polygon with holes together

  std::atomic<bool> shared{false};  // another polygon has had it too: not to be changed any more

  mutable Lazy<Measures> measures;
  mutable Lazy<BandIndex> index;

  /// A copy to be changed; what was worked out isn't taken along.
  std::shared_ptr<Body> Clone() const {
    auto copy = std::make_shared<Body>();
    copy->rings = rings;
    copy->points = points;
    copy->hole = hole;
    copy->closed = closed;
    copy->place = place;
    copy->group = group;
    return copy;
  }

  std::size_t NumRings() const { return rings.empty() ? 1 : rings.size(); }
  const Body& RingAt(std::size_t i) const { return rings.empty() ? *this : *rings[i].body_; }

  const Measures& Measured() const {
    return measures.Get([this] { return rings.empty() ? MeasureRing() : MeasureAll(); });
  }

  Measures MeasureRing() const {
    Measures result;
    result.valid = std::all_of(points.begin(), points.end(), IsUsable) && HasThreePlaces(points);
    for (const Point& point : points) result.extents |= point;
    result.area = hole ? -SurfaceOf(points) : SurfaceOf(points);
    return result;
  }

  Measures MeasureAll() const {
    Measures result;
    for (const PolyClipLine& ring : rings) {
      const Measures& one = ring.body_->Measured();
      result.valid = result.valid && one.valid;
      result.extents |= one.extents;
      result.area += one.area;
    }
    return result;
  }

  const BandIndex& Indexed() const {
    return index.Get([this] {
      BandIndex made;
      for (std::size_t i = 0; i < NumRings(); ++i) made.AddRing(RingAt(i).points, static_cast<std::uint32_t>(i));
      made.Finish();
      return made;
    });
  }
};

PolyClipLine::PolyClipLine() = default;
PolyClipLine::PolyClipLine(const PolyClipLine& other) : body_(other.body_), title_(other.title_) {
  if (body_) body_->shared.store(true, std::memory_order_relaxed);
}
PolyClipLine::PolyClipLine(PolyClipLine&& other) noexcept = default;
PolyClipLine& PolyClipLine::operator=(const PolyClipLine& other) {
  if (this != &other) *this = PolyClipLine(other);
  return *this;
}
PolyClipLine& PolyClipLine::operator=(PolyClipLine&& other) noexcept = default;
PolyClipLine::~PolyClipLine() = default;

/// The body, to be changed: nobody else's, and without what was worked out of it. That a copy is gone again doesn't
/// make the body one's own: the count of owners tells that it is gone, but not that its thread is done reading.
PolyClipLine::Body& PolyClipLine::Own() {
  if (!body_) {
    body_ = std::make_shared<Body>();
  } else if (body_->shared.load(std::memory_order_relaxed)) {
    body_ = body_->Clone();
  } else {
    body_->measures.Reset();
    body_->index.Reset();
  }
  return *body_;
}

/// A new, empty last ring.
PolyClipLine& PolyClipLine::AppendRing() {
  if (!body_) {
    Own();
    return *this;
  }
  Body& body = Own();
  if (body.rings.empty()) {
    PolyClipLine first;
    first.body_ = std::move(body_);
    body_ = std::make_shared<Body>();
    body_->rings.push_back(std::move(first));
  }
  body_->rings.emplace_back();
  body_->rings.back().Own();
  return body_->rings.back();
}

void PolyClipLine::AddElem(const Point& point) {
  Body& body = Own();
  if (!body.rings.empty()) {
    body.rings.back().AddElem(point);
  } else {
    body.points.push_back(Usual(point));
  }
}

void PolyClipLine::AddRing(const std::vector<Point>& points, bool hole) {
  const int before = IsEmpty() ? 0 : body_->RingAt(NumRings() - 1).group;
  Body& ring = *AppendRing().body_;
  ring.points.resize(points.size());
  std::transform(points.begin(), points.end(), ring.points.begin(), Usual);
  while (ring.points.size() > 1 && SamePlace(ring.points.front(), ring.points.back())) ring.points.pop_back();
  ring.hole = hole;
  ring.group = hole ? before : before + 1;
}

void PolyClipLine::Clear() {
  body_.reset();
  title_.clear();
}

bool PolyClipLine::IsEmpty() const { return !body_; }

bool PolyClipLine::IsValid() const { return !body_ || body_->Measured().valid; }

bool PolyClipLine::GetFirstPolyClipLine(const PolyClipLine*& ring) const {
  ring = nullptr;
  if (body_) ring = body_->rings.empty() ? this : body_->rings.data();
  return ring != nullptr;
}

bool PolyClipLine::GetNextPolyClipLine(const PolyClipLine*& ring) const {
  const bool more = ring != nullptr && body_ && !body_->rings.empty() && ring != &body_->rings.back();
  ring = more ? ring + 1 : nullptr;
  return more;
}

std::size_t PolyClipLine::NumRings() const { return body_ ? body_->NumRings() : 0; }

std::size_t PolyClipLine::NumPoints() const {
  std::size_t count = 0;
  for (std::size_t i = 0; i < NumRings(); ++i) count += body_->RingAt(i).points.size();
  return count;
}

const Point& PolyClipLine::GetPoint(std::size_t index) const {
  std::size_t ring = 0;
  while (index >= body_->RingAt(ring).points.size()) index -= body_->RingAt(ring++).points.size();
  return body_->RingAt(ring).points[index];
}

bool PolyClipLine::IsHole() const { return body_ && body_->rings.empty() && body_->hole; }

bool PolyClipLine::FillPolyClipper(PolyClipper& clipper) const {
  if (!clipper.InitPoly() || !body_) return false;
  const Page& extents = body_->Measured().extents;
  if (!extents.IsRectInPage(clipper.GetPage())) return false;
  clipper.SetReach(extents);
  bool taken = true;
  for (std::size_t i = 0; i < NumRings(); ++i) {
    const Body& ring = body_->RingAt(i);
    clipper.SetHole(ring.hole);
    bool first = true;
    for (const Point& point : ring.points) taken = clipper.AddPoint(point, std::exchange(first, false)) && taken;
  }
  clipper.SetHole(false);
  return taken && clipper.ProcessPoly() && clipper.ClipOtherSides();
}

bool PolyClipLine::IsPointInPoly(const Point& point, const PolyClipLine** ring) const {
  if (!body_) return false;
  const std::span<const BandIndex::Edge> edges = body_->Indexed().At(point.y);
  int around = 0;
  const Body* smallest = nullptr;
  std::size_t smallestRing = 0;
  for (std::size_t i = 0; i < edges.size();) {
    const std::uint32_t at = edges[i].ring;
    bool inside = false;
    for (; i < edges.size() && edges[i].ring == at; ++i) inside ^= PassesRightOf(edges[i], point);
    if (!inside) continue;
    const Body& body = body_->RingAt(at);
    const bool hole = body.hole && !body_->rings.empty();
    around += hole ? -1 : 1;
    if (hole || ring == nullptr) continue;
    if (smallest == nullptr || body.Measured().area < smallest->Measured().area) {
      smallest = &body;
      smallestRing = at;
    }
  }
  if (around > 0 && ring != nullptr) *ring = body_->rings.empty() ? this : &body_->rings[smallestRing];
  return around > 0;
}

bool PolyClipLine::GetExtents(Page& page) const {
  if (!body_ || !body_->Measured().extents.IsValid()) return false;
  page |= body_->Measured().extents;
  return true;
}

double PolyClipLine::GetArea() const { return body_ ? body_->Measured().area : 0; }

bool PolyClipLine::IsSelfIntersecting() const {
  PolyClipFault fault;
  return FindIntersection(fault);
}

/// Looks at the rings that make a polygon with holes together, one such polygon after the other.
bool PolyClipLine::FindIntersection(PolyClipFault& fault) const {
  std::map<int, Group> groups;
  for (std::size_t i = 0; i < NumRings(); ++i) {
    const Body& ring = body_->RingAt(i);
    // Where coordinates are no numbers, nothing crosses; and nothing can be computed.
    if (std::all_of(ring.points.begin(), ring.points.end(), IsUsable)) groups[ring.group].push_back(i);
  }
  for (const auto& [group, members] : groups) {
    std::vector<RingPoints> rings;
    for (const std::size_t i : members) rings.emplace_back(body_->RingAt(i).points);
    RingCrossing crossing;
    if (!FindCrossing(rings, crossing)) continue;
    const bool itself = crossing.ring == crossing.other;
    const std::size_t first = members[std::min(crossing.ring, crossing.other)];
    const std::size_t second = members[std::max(crossing.ring, crossing.other)];
    fault.kind = itself ? PolyClipFault::Kind::kSelfIntersecting : PolyClipFault::Kind::kCrossing;
    fault.ring = RingName(itself ? first : second);
    if (!itself) fault.other = RingName(first);
    fault.at = crossing.at;
    return true;
  }
  return false;
}

/// Looks for holes that aren't within the ring that they belong to. Of rings that don't cross.
bool PolyClipLine::FindStrayHole(PolyClipFault& fault) const {
  std::map<int, Group> groups;
  for (std::size_t i = 0; i < NumRings(); ++i) groups[body_->RingAt(i).group].push_back(i);
  for (const auto& [group, members] : groups) {
    std::vector<RingPoints> rings;
    std::vector<RingRole> roles;
    for (const std::size_t i : members) {
      rings.emplace_back(body_->RingAt(i).points);
      roles.push_back({group, body_->RingAt(i).hole});
    }
    const bool holes = std::any_of(roles.begin(), roles.end(), [](const RingRole& role) { return role.hole; });
    RingOverlap overlap;
    if (!holes || !vak::FindOverlap(rings, roles, overlap)) continue;
    auto ring = static_cast<std::size_t>(overlap.ring);
    auto other = overlap.other < 0 ? ring : static_cast<std::size_t>(overlap.other);
    if (!roles[ring].hole) std::swap(ring, other);
    const bool inHole = ring != other && roles[other].hole;
    fault.kind = inHole ? PolyClipFault::Kind::kHoleInHole : PolyClipFault::Kind::kHoleOutside;
    fault.ring = RingName(members[ring]);
    if (inHole) fault.other = RingName(members[other]);
    fault.at = overlap.at;
    return true;
  }
  return false;
}

bool PolyClipLine::FindOverlap(PolyClipFault& overlap) const {
  std::vector<RingPoints> rings;
  std::vector<RingRole> roles;
  for (std::size_t i = 0; i < NumRings(); ++i) {
    const Body& ring = body_->RingAt(i);
    rings.emplace_back(ring.points);
    roles.push_back({ring.group, ring.hole});
  }
  RingOverlap found;
  if (!IsValid() || !vak::FindOverlap(rings, roles, found) || found.other < 0) return false;
  const auto [first, second] = std::minmax(found.ring, found.other);
  overlap = {PolyClipFault::Kind::kOverlap,
             RingName(static_cast<std::size_t>(second)),
             RingName(static_cast<std::size_t>(first)),
             found.at,
             {}};
  return true;
}

std::wstring PolyClipLine::RingName(std::size_t ring) const {
  const std::wstring& place = body_->RingAt(ring).place;
  return place.empty() ? L"ring " + std::to_wstring(ring + 1) : place;
}

bool PolyClipLine::FindFault(PolyClipFault& fault) const {
  using Kind = PolyClipFault::Kind;
  fault = {};
  for (std::size_t i = 0; i < NumRings(); ++i) {
    const Body& ring = body_->RingAt(i);
    const auto unusable = std::find_if_not(ring.points.begin(), ring.points.end(), IsUsable);
    if (unusable != ring.points.end()) {
      fault = {Kind::kNotFinite, RingName(i), {}, *unusable, {}};
    } else if (!HasThreePlaces(ring.points)) {
      fault = {Kind::kTooFewPoints, RingName(i), {}, ring.points.empty() ? Point() : ring.points.front(), {}};
    } else if (!ring.closed) {
      fault = {Kind::kNotClosed, RingName(i), {}, ring.points.front(), ring.points.back()};
    }
    if (fault.kind != Kind::kNone) return true;
  }
  return FindIntersection(fault) || FindStrayHole(fault);
}

bool PolyClipLine::FileOpen(const FileObject& file, std::wstring* error) {
  std::vector<PolygonFileRing> rings;
  std::wstring fault;
  if (!ReadPolygonFile(file.GetContent(), rings, fault)) {
    if (error != nullptr) *error = fault;
    return false;
  }
  PolyClipLine read;
  for (PolygonFileRing& ring : rings) {
    Body& body = *read.AppendRing().body_;
    body.points = std::move(ring.points);
    body.hole = ring.hole;
    body.closed = ring.closed;
    body.group = ring.group;
    body.place = std::move(ring.place);
  }
  read.title_ = GetTitleFromPath(file.GetPath());
  *this = std::move(read);
  return true;
}

bool PolyClipLine::ClipToPage(const Page& page, PolyClipLine& cut) const {
  PolyClipLine left;
  double surfaces = 0;
  PolyClipper clipper;
  clipper.SetPage(page);
  for (std::size_t i = 0; i < NumRings(); ++i) {
    const PolyClipLine& ring = body_->rings.empty() ? *this : body_->rings[i];
    if (!ring.FillPolyClipper(clipper)) continue;
    surfaces += std::fabs(clipper.Area());
    Body& body = *left.AppendRing().body_;
    for (int at = 0; at < clipper.GetOutputSize(); ++at) body.points.push_back(Usual(clipper.GetOutputPoint(at)));
    body.hole = ring.body_->hole;
    body.group = ring.body_->group;
    body.place = ring.body_->place;
  }
  // Holes may leave nothing of the rings around them, but for rounding.
  if (left.GetArea() <= 64 * std::numeric_limits<double>::epsilon() * surfaces) left.Clear();
  left.title_ = title_;
  cut = std::move(left);
  return !cut.IsEmpty();
}

}  // namespace vak
