#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <deque>
#include <limits>
#include <map>
#include <utility>
#include <vector>

#include "vakdtm/frame/AreaExt.h"
#include "vakdtm/frame/DtmPolyClipper.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

/// Contours and outlines as one would trace them with nothing but lists and loops: every piece is compared with every
/// line and every line with every other. It shares no code with the library's tracers, so that these can be held
/// against it, point by point.
namespace vak::test::reference {

struct Point2 {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point2&, const Point2&) = default;
};

struct Point3 {
  double x = 0;
  double y = 0;
  double z = 0;
  friend bool operator==(const Point3&, const Point3&) = default;
};

template <typename P>
using Line = std::deque<P>;
template <typename P>
using Lines = std::vector<Line<P>>;

/// Strings pieces into lines. The run flag is read wherever a loop turns.
template <typename P>
class Joining {
 public:
  explicit Joining(const std::atomic<bool>& running) : running_(running) {}

  bool AddSegment(const P& start, const P& end, bool touches) {
    if (start == end) return false;
    for (std::size_t i = 0; running_ && i < open.size(); ++i) {
      Line<P>& line = open[i];
      if (line.front() == start) {
        line.push_front(end);
      } else if (line.front() == end) {
        line.push_front(start);
      } else if (line.back() == start) {
        line.push_back(end);
      } else if (line.back() == end) {
        line.push_back(start);
      } else {
        continue;
      }
      touching[i] = touching[i] || touches;
      return true;
    }
    open.push_back({start, end});
    touching.push_back(touches);
    return true;
  }

  bool JoinSegments() {
    if (open.empty()) return false;
    ScanOpen();
    bool grown = false;
    for (std::size_t i = 0; running_ && i < open.size(); ++i) {
      if (touching[i]) {
        border.push_back(open[i]);
        grown = true;
      } else {
        interior.push_back(open[i]);
      }
    }
    open.clear();
    touching.clear();
    if (grown) ScanBorder();
    return true;
  }

  void Finish() {
    JoinSegments();
    for (std::size_t i = 0; running_ && i < interior.size(); ++i) border.push_back(interior[i]);
    interior.clear();
  }

  Lines<P> open;
  std::vector<bool> touching;
  Lines<P> interior;
  Lines<P> border;

 private:
  using Index = std::ptrdiff_t;

  /// The joins that both scans have in common. @return whether `j` went into `i`.
  static bool Append(Line<P>& i, Line<P>& j) {
    if (i.back() == j.front()) {
      j.pop_front();
      i.insert(i.end(), j.begin(), j.end());
    } else if (i.back() == j.back()) {
      i.insert(i.end(), j.rbegin() + 1, j.rend());
    } else if (i.front() == j.front()) {
      for (std::size_t k = 1; k < j.size(); ++k) i.push_front(j[k]);
    } else {
      return false;
    }
    return true;
  }

  void ScanOpen() {
    for (std::size_t i = 0; running_ && i < open.size(); ++i) {
      for (std::size_t j = i + 1; j < open.size(); ++j) {
        if (!running_) return;
        std::size_t dropped = j;
        if (!Append(open[i], open[j])) {
          if (open[i].front() != open[j].back()) continue;
          open[j].pop_back();
          open[j].insert(open[j].end(), open[i].begin(), open[i].end());
          dropped = i;
        }
        touching[dropped == j ? i : j] = touching[i] || touching[j];
        open.erase(open.begin() + static_cast<Index>(dropped));
        touching.erase(touching.begin() + static_cast<Index>(dropped));
        j = i;  // and on to the one behind
      }
    }
  }

  void ScanBorder() {
    for (std::size_t i = 0; running_ && i < border.size(); ++i) {
      for (std::size_t j = i + 1; j < border.size(); ++j) {
        if (!running_) return;
        if (!Append(border[i], border[j])) {
          if (border[i].front() != border[j].back()) continue;
          border[j].pop_back();
          border[i].insert(border[i].begin(), border[j].begin(), border[j].end());
        }
        border.erase(border.begin() + static_cast<Index>(j));
        j = i;
      }
    }
  }

  const std::atomic<bool>& running_;
};

/// The corners of a square of four cell centres, anticlockwise from the lower left.
using Corners = std::array<Point3, 4>;

/// What both tracers have of an area, a square and its edges.
class SquareWalk {
 public:
  SquareWalk(DtmAccess& access, int block) : access_(access), block_(block) {}

 protected:
  struct Edge {
    int bit;
    int from, to;  // of the interpolation
    int decision;
  };
  static constexpr std::array<Edge, 4> kEdges = {{{1, 0, 1, 0}, {2, 1, 2, 1}, {4, 3, 2, 2}, {8, 0, 3, 3}}};

  static const Edge& EdgeOf(int bit) { return kEdges[bit == 1 ? 0 : bit == 2 ? 1 : bit == 4 ? 2 : 3]; }

  bool TouchesBorder(int bit, int row, int col) const {
    switch (bit) {
      case 1:
        return row == firstRow_;
      case 2:
        return col + 1 == endCol_;
      case 4:
        return row + 1 == endRow_;
      default:
        return col == firstCol_;
    }
  }

  /// @return false when a cell can't be read.
  bool ReadHeights(int row, int col) {
    bool all = true;
    for (std::size_t i = 0; i < 4; ++i) {
      const auto [r, c] = CellOf(i, row, col);
      all = access_.GetDoubleValue(r, c, block_, corners_[i].z) && all;
    }
    return all;
  }

  void PlaceCorners(int row, int col) {
    for (std::size_t i = 0; i < 4; ++i) {
      const auto [r, c] = CellOf(i, row, col);
      Place(r, c, corners_[i]);
    }
  }

  static std::pair<int, int> CellOf(std::size_t corner, int row, int col) {
    return {row + (corner >= 2 ? 1 : 0), col + (corner == 1 || corner == 2 ? 1 : 0)};
  }

  void Place(int row, int col, Point3& corner) {
    const double cellSize = access_.GetDtmFile()->CellSize();
    corner.x = (col + 0.5) * cellSize;
    corner.y = (row + 0.5) * cellSize;
    if (block_ != dMIN && block_ != dMAX) return;
    double x = 0;
    double y = 0;
    if (!access_.GetDoubleValue(row, col, block_ == dMIN ? fXMN : fXMX, x) || IsEmptyValue(x)) return;
    if (!access_.GetDoubleValue(row, col, block_ == dMIN ? fYMN : fYMX, y) || IsEmptyValue(y)) return;
    corner.x += x;
    corner.y += y;
  }

  void TakeLimits(int row, int col) {
    firstRow_ = row;
    firstCol_ = col;
    endRow_ = row + access_.GetDtmFile()->AreaSize();
    endCol_ = col + access_.GetDtmFile()->AreaSize();
  }

  /// A segment's ends as they become known.
  template <typename P>
  struct Ends {
    P start, end;
    bool haveStart = false;
    bool haveEnd = false;

    void Take(const P& point, bool low) {
      if (!haveStart && (haveEnd || low)) {
        start = point;
        haveStart = true;
      } else {
        end = point;
        haveEnd = true;
      }
    }
  };

  DtmAccess& access_;
  int block_;
  Corners corners_;
  int firstRow_ = 0;
  int firstCol_ = 0;
  int endRow_ = 0;
  int endCol_ = 0;
};

/// Runs a tracer over all areas that aren't empty, as a walk over all cells does. @return whether it came to its end.
template <typename Tracer>
bool WalkAll(Tracer& tracer, DtmFile& file) {
  const int size = file.AreaSize();
  for (int i = 0; i < file.NumAreas(); ++i) {
    DtmArea* const area = file.GetArea(i);
    if (area->IsEmpty()) continue;
    const int bottom = area->BottomLeftRow();
    const int left = area->BottomLeftCol();
    double weight = size * file.CellSize() * (size * file.CellSize());
    tracer.Area(bottom, left, weight);
    if (weight <= 0.0) continue;
    for (int row = bottom; row < bottom + size; ++row) {
      for (int col = left; col < left + size; ++col) {
        if (!tracer.Cell(row, col)) return false;
      }
    }
  }
  tracer.Finish();
  return true;
}

using Ranges = std::map<const DtmArea*, AreaExt>;

class ContourTracer : public SquareWalk {
 public:
  ContourTracer(DtmAccess& access, const PolyClipLine& polygon, double level, int block,
                const std::atomic<bool>& running, Ranges& ranges)
      : SquareWalk(access, block),
        joining(running),
        gate_(polygon, true, false),
        level_(level),
        running_(running),
        ranges_(ranges) {
    gate_.Init(access);
  }

  void Area(int row, int col, double& weight) {
    joining.JoinSegments();
    gate_.ProcessArea(row, col, weight);
    if (weight == 0.0) return;
    current_ = &ranges_[access_.GetArea(row, col, false)];
    widens_ = !current_->IsValid();
    if (!widens_ && !(current_->Min() <= level_ && level_ <= current_->Max())) {
      weight = 0.0;
      return;
    }
    TakeLimits(row, col);
  }

  bool Cell(int row, int col) {
    double weight = 1.0;
    gate_.PipFractionalCell(row + 0.5, col + 0.5, weight);
    if (weight == 0.0) return true;
    if (!running_) return false;
    if (!ReadHeights(row, col)) return true;
    for (const Point3& corner : corners_) {
      if (IsEmptyValue(corner.z)) return true;
    }
    if (corners_[0].z == corners_[1].z && corners_[1].z == corners_[2].z && corners_[2].z == corners_[3].z) return true;
    for (const Point3& corner : corners_) {
      if (current_ != nullptr && widens_) *current_ += corner.z;
    }
    PlaceCorners(row, col);
    seen.insert(seen.end(), corners_.begin(), corners_.end());
    for (Point3& corner : corners_) {
      if (corner.z == level_) corner.z += 1e-7;
    }
    AddPieces(Classify(), row, col);
    return true;
  }

  void Finish() { joining.Finish(); }

  Joining<Point2> joining;
  std::vector<Point3> seen;  ///< every corner of every square that was looked at

 private:
  bool Crosses(int a, int b) const {
    const double za = corners_[static_cast<std::size_t>(a)].z;
    const double zb = corners_[static_cast<std::size_t>(b)].z;
    return (level_ >= za && zb > level_) || (za >= level_ && level_ > zb);
  }

  int Classify() const {
    if (corners_[0].z == corners_[1].z && corners_[0].z == corners_[2].z && corners_[0].z == corners_[3].z) return 0;
    int mask = 0;
    int count = 0;
    for (int i = 0; i < 4; ++i) {
      if (!Crosses(i, (i + 1) % 4)) continue;
      mask |= 1 << i;
      ++count;
    }
    return count == 1 ? 0 : mask;
  }

  void TakeEdge(int bit, Ends<Point2>& ends) const {
    const Edge& edge = EdgeOf(bit);
    const Point3& from = corners_[static_cast<std::size_t>(edge.from)];
    const Point3& to = corners_[static_cast<std::size_t>(edge.to)];
    const double t = (level_ - from.z) / (to.z - from.z);
    ends.Take({from.x + (to.x - from.x) * t, from.y + (to.y - from.y) * t},
              level_ > corners_[static_cast<std::size_t>(edge.decision)].z);
  }

  void AddPieces(int mask, int row, int col) {
    if (mask == 0) return;
    if (mask == 15) {
      AddSaddle(row, col);
      return;
    }
    Ends<Point2> ends;
    bool touches = false;
    for (const int bit : {1, 2, 4, 8}) {
      if ((mask & bit) == 0) continue;
      TakeEdge(bit, ends);
      if (TouchesBorder(bit, row, col)) touches = true;
    }
    joining.AddSegment(ends.start, ends.end, touches);
  }

  void AddSaddle(int row, int col) {
    const double odd = std::fabs((corners_[1].z - level_) + (corners_[3].z - level_));
    const double even = std::fabs((corners_[0].z - level_) + (corners_[2].z - level_));
    if (odd > even) {
      AddPair(1, 8, row, col);
      AddPair(2, 4, row, col);
    } else {
      AddPair(4, 8, row, col);
      AddPair(1, 2, row, col);
    }
  }

  void AddPair(int first, int second, int row, int col) {
    Ends<Point2> ends;
    TakeEdge(first, ends);
    TakeEdge(second, ends);
    const bool touches = TouchesBorder(first, row, col) || TouchesBorder(second, row, col);
    joining.AddSegment(ends.start, ends.end, touches);
  }

  DtmPolyClipper gate_;
  double level_;
  const std::atomic<bool>& running_;
  Ranges& ranges_;
  AreaExt* current_ = nullptr;
  bool widens_ = false;
};

class OutlineTracer : public SquareWalk {
 public:
  OutlineTracer(DtmAccess& access, const PolyClipLine& polygon, int block, const std::atomic<bool>& running,
                Ranges& ranges)
      : SquareWalk(access, block), joining(running), gate_(polygon, false, false), running_(running), ranges_(ranges) {
    gate_.Init(access);
  }

  void Area(int row, int col, double& weight) {
    joining.JoinSegments();
    gate_.ProcessArea(row, col, weight);
    if (weight == 0.0) return;
    const AreaExt& range = ranges_[access_.GetArea(row, col, false)];
    if (range.IsValid() && !(range.Min() <= 0.0 && 0.0 <= range.Max())) {
      weight = 0.0;
      return;
    }
    TakeLimits(row, col);
  }

  bool Cell(int row, int col) {
    if (!running_) return false;
    const int side = access_.GetDtmFile()->AreaSize();
    if (row % side == 0 && col % side == 0) {
      if (access_.GetArea(row - 1, col, false) == nullptr) {
        for (int k = 0; k <= side - 2; ++k) Square(row - 1, col + k);
      }
      if (access_.GetArea(row, col - 1, false) == nullptr) {
        for (int k = 0; k <= side - 1; ++k) Square(row + k, col - 1);
      }
    }
    Square(row, col);
    return true;
  }

  void Finish() { joining.Finish(); }

  Joining<Point3> joining;
  std::vector<Point3> seen;
  int squares = 0;  ///< those that were looked at

 private:
  bool IsEmpty(int corner) const { return IsEmptyValue(corners_[static_cast<std::size_t>(corner)].z); }

  void Square(int row, int col) {
    ++squares;
    ReadHeights(row, col);
    if (!IsEmpty(0) && !IsEmpty(1) && !IsEmpty(2) && !IsEmpty(3)) return;
    PlaceCorners(row, col);
    seen.insert(seen.end(), corners_.begin(), corners_.end());
    int mask = 0;
    for (int i = 0; i < 4; ++i) {
      if (IsEmpty(i) != IsEmpty((i + 1) % 4)) mask |= 1 << i;
    }
    AddPieces(mask, row, col);
  }

  void TakeEdge(int bit, Ends<Point3>& ends) const {
    const Edge& edge = EdgeOf(bit);
    const Point3& from = corners_[static_cast<std::size_t>(edge.from)];
    const Point3& to = corners_[static_cast<std::size_t>(edge.to)];
    ends.Take({from.x + (to.x - from.x) * 0.5, from.y + (to.y - from.y) * 0.5, IsEmpty(edge.from) ? to.z : from.z},
              IsEmpty(edge.decision));
  }

  void AddPieces(int mask, int row, int col) {
    if (mask == 0) return;
    if (mask == 15 && IsEmpty(0)) {
      AddPair(1, 8, row, col);
      AddPair(2, 4, row, col);
      return;
    }
    if (mask == 15) {
      AddPair(4, 8, row, col);
      AddPair(1, 2, row, col);
      return;
    }
    Ends<Point3> ends;
    bool touches = false;
    for (const int bit : {1, 2, 4, 8}) {
      if ((mask & bit) == 0) continue;
      TakeEdge(bit, ends);
      if (TouchesBorder(bit, row, col)) touches = true;
    }
    joining.AddSegment(ends.start, ends.end, touches);
  }

  void AddPair(int first, int second, int row, int col) {
    Ends<Point3> ends;
    TakeEdge(first, ends);
    TakeEdge(second, ends);
    const bool touches = TouchesBorder(first, row, col) || TouchesBorder(second, row, col);
    joining.AddSegment(ends.start, ends.end, touches);
  }

  DtmPolyClipper gate_;
  const std::atomic<bool>& running_;
  Ranges& ranges_;
};

}  // namespace vak::test::reference
