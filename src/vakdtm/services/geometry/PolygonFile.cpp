#include "vakdtm/services/geometry/PolygonFile.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <system_error>
#include <utility>

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/geometry/PolyClipper.h"
#include "vakdtm/services/geometry/RingSweep.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// What a ring keeps of a coordinate.
double Usual(double value) { return std::fabs(value) < PolyClipper::kSmallestCoordinate ? 0 : value; }

bool IsUsable(double value) { return std::fabs(value) <= PolyClipper::kLargestCoordinate; }

std::wstring AtLine(std::size_t line) { return L"line " + std::to_wstring(line); }

std::wstring TooMany() { return L"it has more than " + std::to_wstring(PolyClipLine::kMaxPoints) + L" vertices"; }

/// Takes the repetition of the first vertex at the end away.
void Close(PolygonFileRing& ring) {
  std::vector<Point>& points = ring.points;
  const auto repeats = [&points] {
    return points.size() > 1 && points.front().x == points.back().x && points.front().y == points.back().y;
  };
  ring.closed = repeats();
  while (repeats()) points.pop_back();
}

// The text form.

/// A number at the front of `text`, taken off it. @return false when there is none.
bool TakeNumber(std::string_view& text, double& value) {
  const bool plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
  const char* const begin = text.data() + (plus ? 1 : 0);
  const auto [end, failed] = std::from_chars(begin, text.data() + text.size(), value);
  if (failed != std::errc() || !IsUsable(value)) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

void TakeBlanks(std::string_view& text) { text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size())); }

/// What parts two numbers: a comma, blanks, or both. @return false when there is neither.
bool TakeSeparator(std::string_view& text) {
  const std::size_t before = text.size();
  TakeBlanks(text);
  if (text.starts_with(',')) {
    text.remove_prefix(1);
    TakeBlanks(text);
  }
  return text.size() < before;
}

/// @param line  without blanks around it.
bool ReadVertex(std::string_view line, Point& vertex) {
  if (!TakeNumber(line, vertex.x) || !TakeSeparator(line) || !TakeNumber(line, vertex.y)) return false;
  vertex.x = Usual(vertex.x);
  vertex.y = Usual(vertex.y);
  if (line.empty()) return true;
  return TakeSeparator(line) && TakeNumber(line, vertex.z) && line.empty();
}

std::wstring NoVertex(std::size_t number, std::string_view line) {
  constexpr std::size_t kShown = 40;
  std::string shown(line.substr(0, kShown));
  if (line.size() > kShown) shown += "...";
  return AtLine(number) + L": no vertex \"x,y\" or \"x y\", but \"" + FromUtf8(shown) + L"\"";
}

/// Tells which rings are within which when some of them may cross: ring by ring, where their extents allow it.
class CrossingRings {
 public:
  explicit CrossingRings(const std::vector<RingPoints>& rings) : rings_(rings) {
    for (const RingPoints& ring : rings) {
      Page& extents = extents_.emplace_back();
      for (const Point& point : ring) extents |= point;
    }
  }

  /// @return false when that would take too long; what is in `nesting` is of no use then.
  bool Nest(std::vector<RingNesting>& nesting) {
    nesting.assign(rings_.size(), {});
    std::vector<std::vector<std::size_t>> around(rings_.size());
    for (std::size_t outer = 0; outer < rings_.size(); ++outer) {
      for (std::size_t inner = 0; inner < rings_.size(); ++inner) {
        if (inner != outer && IsWithin(inner, outer)) around[inner].push_back(outer);
        if (work_ > kMostWork) return false;
      }
    }
    for (std::size_t i = 0; i < rings_.size(); ++i) nesting[i].depth = static_cast<int>(around[i].size());
    for (std::size_t i = 0; i < rings_.size(); ++i) {
      // The smallest around a ring is the one that has most around itself.
      const auto deeper = [&nesting](std::size_t a, std::size_t b) { return nesting[a].depth < nesting[b].depth; };
      const auto parent = std::max_element(around[i].begin(), around[i].end(), deeper);
      if (parent != around[i].end()) nesting[i].parent = static_cast<int>(*parent);
    }
    return true;
  }

 private:
  static constexpr std::size_t kMostWork = 500'000'000;  // in pairs of extents looked at, a few seconds
  static constexpr std::size_t kWorkPerVertex = 100;

  /// Of two that are the same the first is around the second.
  bool IsWithin(std::size_t inner, std::size_t outer) {
    ++work_;
    const Page& a = extents_[inner];
    const Page& b = extents_[outer];
    if (a.left() < b.left() || a.right() > b.right() || a.bottom() < b.bottom() || a.top() > b.top()) return false;
    work_ += kWorkPerVertex * (rings_[inner].size() + rings_[outer].size());
    const std::array<RingPoints, 2> both{rings_[outer], rings_[inner]};
    constexpr std::array<RingRole, 2> kRoles{RingRole{0, false}, RingRole{0, true}};
    RingOverlap overlap;
    if (FindOverlap(both, kRoles, overlap)) return false;
    return outer < inner || !AreSame(both);
  }

  static bool AreSame(const std::array<RingPoints, 2>& rings) {
    const std::array<RingPoints, 2> swapped{rings[1], rings[0]};
    constexpr std::array<RingRole, 2> kRoles{RingRole{0, false}, RingRole{0, true}};
    RingOverlap overlap;
    return !FindOverlap(swapped, kRoles, overlap);
  }

  const std::vector<RingPoints>& rings_;
  std::vector<Page> extents_;
  std::size_t work_ = 0;
};

void TakeNesting(const std::vector<RingNesting>& nesting, std::vector<PolygonFileRing>& rings,
                 std::vector<RingRole>& roles) {
  roles.resize(rings.size());
  for (std::size_t i = 0; i < rings.size(); ++i) {
    roles[i].hole = nesting[i].depth % 2 == 1;
    roles[i].polygon = roles[i].hole ? nesting[i].parent : static_cast<int>(i);
    rings[i].hole = roles[i].hole;
    rings[i].group = roles[i].polygon;
  }
}

/// Rings within an odd number of others are holes, of the polygon that the ring around them bounds. One that goes
/// across another isn't within it.
void NestRings(std::vector<PolygonFileRing>& rings) {
  std::vector<RingPoints> points;
  points.reserve(rings.size());
  for (const PolygonFileRing& ring : rings) points.emplace_back(ring.points);
  std::vector<RingRole> roles;
  TakeNesting(FindNesting(points), rings, roles);
  RingOverlap overlap;
  if (!FindOverlap(points, roles, overlap)) return;
  std::vector<RingNesting> nesting;
  if (CrossingRings(points).Nest(nesting)) {
    TakeNesting(nesting, rings, roles);
    return;
  }
  // As one polygon, of which it is found that its rings cross.
  for (PolygonFileRing& ring : rings) ring.group = 0;
}

bool ReadText(std::string_view content, std::vector<PolygonFileRing>& rings, std::wstring& error) {
  bool parted = true;
  std::size_t vertices = 0;
  for (std::size_t number = 1; !content.empty(); ++number) {
    const std::size_t lineBreak = std::min(content.find('\n'), content.size());
    std::string_view line = content.substr(0, lineBreak);
    content.remove_prefix(std::min(lineBreak + 1, content.size()));
    const std::size_t last = line.find_last_not_of(" \t\r");
    line = line.substr(0, last == std::string_view::npos ? 0 : last + 1);
    TakeBlanks(line);
    if (line.starts_with('#')) continue;
    if (line.empty()) {
      parted = true;
      continue;
    }
    Point vertex;
    if (!ReadVertex(line, vertex)) {
      error = NoVertex(number, line);
      return false;
    }
    if (++vertices > PolyClipLine::kMaxPoints) {
      error = TooMany();
      return false;
    }
    if (std::exchange(parted, false)) {
      rings.emplace_back();
      rings.back().place = AtLine(number);
    }
    rings.back().points.push_back(vertex);
  }
  for (PolygonFileRing& ring : rings) Close(ring);
  NestRings(rings);
  return true;
}

// GeoJSON.

/// The numbers of a "coordinates" member: positions, in rings, in polygons, as deep as they happen to be.
struct Coordinates {
  std::vector<Point> points;
  std::vector<std::size_t> ringEnds;     // in points
  std::vector<std::size_t> polygonEnds;  // in ringEnds
  int positionDepth = 0;                 // of the arrays that hold numbers; 0: none was seen
  int emptyDepth = 0;                    // of the deepest array that held nothing
};

/// Follows a GeoJSON text and keeps the rings of its polygons: nothing else of it is ever in memory.
class GeoJsonReader final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit GeoJsonReader(std::vector<PolygonFileRing>& rings) : rings_(rings) {}

  std::size_t ErrorPosition() const { return errorPosition_; }
  const std::wstring& Error() const { return error_; }

  bool null() override { return Other(); }
  bool boolean(bool /*value*/) override { return Other(); }
  bool number_integer(number_integer_t value) override { return Number(static_cast<double>(value)); }
  bool number_unsigned(number_unsigned_t value) override { return Number(static_cast<double>(value)); }
  bool number_float(number_float_t value, const string_t& /*text*/) override { return Number(value); }
  bool binary(binary_t& /*value*/) override { return Other(); }

  bool string(string_t& value) override {
    if (Listens() && IsObject() && open_.back().key == "type") open_.back().type = value;
    return Other();
  }

  bool key(string_t& name) override {
    if (Listens()) open_.back().key = name;
    return true;
  }

  bool start_object(std::size_t /*size*/) override {
    if (depth_ > 0) return Fail(L"its coordinates hold something that is no number");
    const bool wanted = skipped_ == 0 && (open_.empty() || !IsObject() || open_.back().key == "geometry");
    return Start(wanted, true);
  }

  bool end_object() override {
    if (skipped_ > 0) {
      --skipped_;
      return true;
    }
    const bool taken = TakeGeometry(open_.back());
    open_.pop_back();
    return taken;
  }

  bool start_array(std::size_t /*size*/) override {
    if (open_.empty()) return Fail(L"a GeoJSON text is an object");
    if (depth_ > 0 || (Listens() && IsObject() && open_.back().key == "coordinates")) {
      if (depth_++ == 0) open_.back().coordinates = Coordinates();
      empty_ = true;
      return depth_ <= kDeepest || Fail(L"its coordinates are nested too deep");
    }
    const std::string& key = open_.back().key;
    return Start(skipped_ == 0 && IsObject() && (key == "features" || key == "geometries"), false);
  }

  bool end_array() override {
    if (depth_ > 0) return EndCoordinates();
    if (skipped_ > 0) {
      --skipped_;
    } else {
      open_.pop_back();
    }
    return true;
  }

  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*what*/) override {
    errorPosition_ = position;
    return Fail(L"this is no JSON that can be read");
  }

 private:
  static constexpr int kDeepest = 8;               // arrays of coordinates; polygons have four
  static constexpr std::size_t kDeepestOpen = 64;  // collections within each other

  struct Container {
    bool object = false;
    std::string key;  // of the member at hand
    std::string type;
    Coordinates coordinates;
  };

  bool Fail(const wchar_t* what) {
    error_ = what;
    return false;
  }

  /// Whether what comes belongs to the container at the top.
  bool Listens() const { return skipped_ == 0 && depth_ == 0 && !open_.empty(); }
  bool IsObject() const { return open_.back().object; }

  bool Start(bool wanted, bool object) {
    if (!wanted) {
      ++skipped_;
      return true;
    }
    if (open_.size() >= kDeepestOpen) return Fail(L"its collections are nested too deep");
    open_.emplace_back();
    open_.back().object = object;
    return true;
  }

  bool Other() { return depth_ == 0 || Fail(L"its coordinates hold something that is no number"); }

  bool Number(double value) {
    if (depth_ == 0) return true;
    Coordinates& coordinates = open_.back().coordinates;
    if (!IsUsable(value)) return Fail(L"it has a coordinate beyond 1e12");
    if (coordinates.positionDepth == 0) coordinates.positionDepth = depth_;
    if (coordinates.positionDepth != depth_) return Fail(L"its positions aren't all equally deep");
    if (numbers_ < position_.size()) position_[numbers_] = value;
    ++numbers_;
    empty_ = false;
    return true;
  }

  bool EndCoordinates() {
    Coordinates& coordinates = open_.back().coordinates;
    if (std::exchange(empty_, false)) coordinates.emptyDepth = std::max(coordinates.emptyDepth, depth_);
    const int above = coordinates.positionDepth - depth_;  // 0: a position ends, 1: a ring, 2: a polygon
    --depth_;
    if (coordinates.positionDepth == 0) return true;
    if (above < 0) return Fail(L"its positions aren't all equally deep");
    if (above == 1) coordinates.ringEnds.push_back(coordinates.points.size());
    if (above == 2) coordinates.polygonEnds.push_back(coordinates.ringEnds.size());
    if (above != 0) return true;
    if (std::exchange(numbers_, 0) < 2) return Fail(L"it has a position of fewer than two numbers");
    if (++vertices_ > PolyClipLine::kMaxPoints) {
      error_ = TooMany();
      return false;
    }
    coordinates.points.emplace_back(Usual(position_[0]), Usual(position_[1]), position_[2]);
    position_[2] = 0;
    return true;
  }

  /// Keeps what an object that has ended holds, if it is a polygon or several.
  bool TakeGeometry(Container& geometry) {
    const bool one = geometry.type == "Polygon";
    if (!one && geometry.type != "MultiPolygon") return true;
    Coordinates& from = geometry.coordinates;
    if (from.positionDepth == 0) return true;  // empty, which a geometry may be
    const int wanted = one ? 3 : 4;
    if (from.positionDepth != wanted || from.emptyDepth >= wanted) {
      return Fail(one ? L"the coordinates of a Polygon are rings of positions"
                      : L"the coordinates of a MultiPolygon are polygons of rings of positions");
    }
    // Without its outer ring the next one, a hole, would be taken for it.
    if (from.emptyDepth > 0) return Fail(L"it has a ring or a polygon that is empty");
    if (one) from.polygonEnds = {from.ringEnds.size()};
    std::size_t ring = 0;
    std::size_t point = 0;
    for (const std::size_t polygonEnd : from.polygonEnds) {
      ++polygons_;
      for (std::size_t inPolygon = 0; ring < polygonEnd; ++ring, ++inPolygon) {
        const auto begin = from.points.begin() + static_cast<std::ptrdiff_t>(point);
        const auto end = from.points.begin() + static_cast<std::ptrdiff_t>(from.ringEnds[ring]);
        point = from.ringEnds[ring];
        PolygonFileRing& taken = rings_.emplace_back();
        taken.points.assign(begin, end);
        taken.hole = inPolygon > 0;
        taken.group = polygons_;
        taken.place = L"polygon " + std::to_wstring(polygons_) + L", ring " + std::to_wstring(inPolygon + 1);
        Close(taken);
      }
    }
    return true;
  }

  std::vector<PolygonFileRing>& rings_;
  std::vector<Container> open_;
  std::uint64_t skipped_ = 0;  // how many containers are open that nobody asks for
  int depth_ = 0;              // of arrays in "coordinates"
  bool empty_ = false;         // the innermost of them, so far
  std::array<double, 3> position_{};
  std::size_t numbers_ = 0;
  std::size_t vertices_ = 0;
  int polygons_ = 0;
  std::size_t errorPosition_ = 0;
  std::wstring error_;
};

bool ReadGeoJson(std::string_view content, std::vector<PolygonFileRing>& rings, std::wstring& error) {
  GeoJsonReader reader(rings);
  if (nlohmann::json::sax_parse(content.begin(), content.end(), &reader)) return true;
  error = reader.Error();
  if (reader.ErrorPosition() > 0) {
    const std::string_view before = content.substr(0, std::min(reader.ErrorPosition() - 1, content.size()));
    const auto lineBreaks = std::count(before.begin(), before.end(), '\n');
    error = AtLine(static_cast<std::size_t>(lineBreaks) + 1) + L": " + error;
  }
  return false;
}

}  // namespace

bool ReadPolygonFile(std::string_view content, std::vector<PolygonFileRing>& rings, std::wstring& error) {
  if (content.starts_with(kByteOrderMark)) content.remove_prefix(kByteOrderMark.size());
  const std::size_t first = content.find_first_not_of(" \t\r\n");
  const bool json = first != std::string_view::npos && (content[first] == '{' || content[first] == '[');
  std::vector<PolygonFileRing> read;
  const bool understood = json ? ReadGeoJson(content, read, error) : ReadText(content, read, error);
  if (!understood) return false;
  if (read.empty()) {
    error = L"it holds no polygon";
    return false;
  }
  rings = std::move(read);
  return true;
}

}  // namespace vak
