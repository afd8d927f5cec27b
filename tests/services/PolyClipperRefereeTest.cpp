// What the clipper measures, against two referees that have nothing in common with it: exact fractions, and GEOS.

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <geos_c.h>
#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/geometry/PolyClipper.h"

#include "support/LongForm.h"

namespace vak {
namespace {

using Ring = std::vector<Point>;
using Cover = PolyClipper::Cover;
__extension__ using Wide = __int128;

/// A fraction, reduced, with a positive denominator.
struct Fraction {
  Wide above = 0;
  Wide below = 1;

  static Fraction Of(Wide above, Wide below) {
    if (below < 0) return Of(-above, -below);
    const Wide divisor = Divisor(above < 0 ? -above : above, below);
    return {above / divisor, below / divisor};
  }
  static Wide Divisor(Wide a, Wide b) {
    while (b != 0) {
      const Wide rest = a % b;
      a = b;
      b = rest;
    }
    return a;
  }
  double Value() const {
    return static_cast<double>(static_cast<long double>(above) / static_cast<long double>(below));
  }
};

Fraction operator+(const Fraction& a, const Fraction& b) {
  return Fraction::Of(a.above * b.below + b.above * a.below, a.below * b.below);
}
Fraction operator-(const Fraction& a, const Fraction& b) { return a + Fraction{-b.above, b.below}; }
Fraction operator*(const Fraction& a, const Fraction& b) { return Fraction::Of(a.above * b.above, a.below * b.below); }
Fraction operator/(const Fraction& a, const Fraction& b) { return Fraction::Of(a.above * b.below, a.below * b.above); }

struct Whole {
  int x, y;
};

/// The surface under an edge, as far as it is in the page: the integral over x of the edge's height, cut off at the
/// page's lower and upper edge. Summed over a ring, the surface of its part in the page: no clipping at all, and so
/// nothing that could be wrong in the same way.
Fraction SurfaceUnder(const Whole& from, const Whole& to, int x0, int y0, int x1, int y1) {
  if (from.x == to.x) return {};
  const bool forward = from.x < to.x;
  const Whole a = forward ? from : to;
  const Whole b = forward ? to : from;
  const int left = std::max(a.x, x0);
  const int right = std::min(b.x, x1);
  if (left >= right) return {};
  // The height, less the page's lower edge, is linear between the places where it is cut off.
  const auto height = [&](const Fraction& x) {
    return Fraction{a.y - y0, 1} + Fraction::Of(b.y - a.y, b.x - a.x) * (x - Fraction{a.x, 1});
  };
  std::vector<Fraction> places = {{left, 1}, {right, 1}};
  for (const int level : {0, y1 - y0}) {
    if (a.y == b.y) break;
    const Fraction x = Fraction{a.x, 1} + Fraction::Of(b.x - a.x, b.y - a.y) * Fraction{level + y0 - a.y, 1};
    const auto less = [](const Fraction& p, const Fraction& q) { return (q - p).above > 0; };
    if (less(places.front(), x) && less(x, places.back())) places.insert(places.end() - 1, x);
  }
  if (places.size() == 4 && (places[2] - places[1]).above < 0) std::swap(places[1], places[2]);
  Fraction sum;
  for (std::size_t i = 0; i + 1 < places.size(); ++i) {
    const auto cut = [&](Fraction h) {
      if (h.above < 0) return Fraction{};
      return (Fraction{y1 - y0, 1} - h).above < 0 ? Fraction{y1 - y0, 1} : h;
    };
    // Linear pieces: cutting the ends off is cutting all of the piece off.
    sum = sum + (places[i + 1] - places[i]) * (cut(height(places[i])) + cut(height(places[i + 1]))) / Fraction{2, 1};
  }
  return forward ? sum : Fraction{-sum.above, sum.below};
}

Fraction ExactArea(const std::vector<Whole>& ring, int x0, int y0, int x1, int y1) {
  Fraction sum;
  for (std::size_t i = 0; i < ring.size(); ++i) {
    sum = sum + SurfaceUnder(ring[i], ring[(i + 1) % ring.size()], x0, y0, x1, y1);
  }
  return sum.above < 0 ? Fraction{-sum.above, sum.below} : sum;
}

/// A ring around a point that never crosses itself: vertices by their angle. Some have the same angle, so that edges
/// run along rays; many are concave.
std::vector<Whole> RandomRing(std::mt19937_64& random, int size, int most) {
  const auto number = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  const Whole centre{number(0, size), number(0, size)};
  std::vector<Whole> ring;
  const int count = number(3, most);
  for (int i = 0; i < count; ++i) ring.push_back({number(0, size) - centre.x, number(0, size) - centre.y});
  std::erase_if(ring, [](const Whole& p) { return p.x == 0 && p.y == 0; });
  const auto upper = [](const Whole& p) { return p.y > 0 || (p.y == 0 && p.x > 0); };
  std::sort(ring.begin(), ring.end(), [&](const Whole& p, const Whole& q) {
    if (upper(p) != upper(q)) return upper(p);
    const int cross = p.x * q.y - p.y * q.x;
    return cross != 0 ? cross > 0 : p.x * p.x + p.y * p.y < q.x * q.x + q.y * q.y;
  });
  for (Whole& p : ring) p = {p.x + centre.x, p.y + centre.y};
  if (number(0, 1) == 1) std::reverse(ring.begin(), ring.end());
  return ring;
}

struct Differences {
  double largest = 0;
  int partly = 0;
  int inside = 0;
  int outside = 0;

  void Count(Cover cover) { ++(cover == Cover::kPartly ? partly : cover == Cover::kInside ? inside : outside); }
};

TEST(PolyClipperReferee, AHundredThousandPairsAgreeWithExactFractions) {
  std::mt19937_64 random(20260101);
  Differences all;
  const int rings = LongForm(4'400, 44'000, 1'100);
  for (int i = 0; i < rings; ++i) {
    const int size = 4 << (i % 5);  // 4 to 64: the smaller, the more vertices lie on edges and corners of cells
    const std::vector<Whole> whole = RandomRing(random, size, 24);
    if (whole.size() < 3) continue;
    Ring ring;
    for (const Whole& p : whole) ring.push_back({static_cast<double>(p.x), static_cast<double>(p.y)});
    const int cell = 1 << (i % 3);
    for (int pair = 0; pair < 25; ++pair) {
      const int x = std::uniform_int_distribution<int>(-1, size / cell)(random) * cell;
      const int y = std::uniform_int_distribution<int>(-1, size / cell)(random) * cell;
      const double exact = ExactArea(whole, x, y, x + cell, y + cell).Value();
      PolyClipLine polygon;
      polygon.AddRing(ring, false);
      PolyClipper clipper;
      clipper.SetPage(Page(x, y, x + cell, y + cell));
      const bool left = polygon.FillPolyClipper(clipper);
      const double area = clipper.Area();
      all.Count(clipper.GetCover());
      const double surface = cell * cell;
      if (exact == 0 || exact == surface) {
        ASSERT_EQ(area, exact) << "ring " << i;
      } else {
        ASSERT_TRUE(left) << "ring " << i;
        all.largest = std::max(all.largest, std::fabs(area - exact) / exact);
      }
    }
  }
  std::printf("%d pairs partly, %d inside, %d outside; largest relative difference %.3g\n", all.partly, all.inside,
              all.outside, all.largest);
  EXPECT_LT(all.largest, 1e-9);
  EXPECT_GE(all.partly + all.inside + all.outside, rings * 24);
  EXPECT_GT(all.partly, rings * 2);
  EXPECT_GT(all.inside, rings / 2);
  EXPECT_GT(all.outside, rings * 2);
}

void Silent(const char* /*format*/, ...) {}

/// GEOS, for as long as a test runs.
class Geos {
 public:
  Geos() : handle_(GEOS_init_r()) { GEOSContext_setNoticeHandler_r(handle_, Silent); }
  ~Geos() { GEOS_finish_r(handle_); }
  Geos(const Geos&) = delete;
  Geos& operator=(const Geos&) = delete;

  struct Destroy {
    GEOSContextHandle_t handle;
    void operator()(GEOSGeometry* geometry) const { GEOSGeom_destroy_r(handle, geometry); }
  };
  using Geometry = std::unique_ptr<GEOSGeometry, Destroy>;

  Geometry Take(GEOSGeometry* geometry) const { return {geometry, Destroy{handle_}}; }

  GEOSGeometry* Line(const Ring& ring, double dx, double dy) const {
    GEOSCoordSequence* points = GEOSCoordSeq_create_r(handle_, static_cast<unsigned>(ring.size() + 1), 2);
    for (unsigned i = 0; i <= ring.size(); ++i) {
      const Point& point = ring[i % ring.size()];
      GEOSCoordSeq_setXY_r(handle_, points, i, point.x - dx, point.y - dy);
    }
    return GEOSGeom_createLinearRing_r(handle_, points);
  }

  /// A polygon, moved by (-dx, -dy).
  Geometry Polygon(const Ring& ring, const std::vector<Ring>& holes, double dx, double dy) const {
    std::vector<GEOSGeometry*> inner;
    for (const Ring& hole : holes) inner.push_back(Line(hole, dx, dy));
    return Take(
        GEOSGeom_createPolygon_r(handle_, Line(ring, dx, dy), inner.data(), static_cast<unsigned>(inner.size())));
  }

  bool IsValid(const Geometry& geometry) const { return GEOSisValid_r(handle_, geometry.get()) == 1; }

  double CommonArea(const Geometry& a, const Geometry& b) const {
    const Geometry common = Take(GEOSIntersection_r(handle_, a.get(), b.get()));
    double area = -1;
    if (common) GEOSArea_r(handle_, common.get(), &area);
    return area;
  }

  GEOSContextHandle_t Handle() const { return handle_; }

 private:
  GEOSContextHandle_t handle_;
};

// Coordinates are multiples of 2^-10 m, about 1 mm, beyond 5,000 km: doubles hold them and their differences exactly.
// GEOS gets them moved to the origin, where it loses nothing; the clipper gets them as they are.
TEST(PolyClipperReferee, AHundredThousandPairsWithHolesFarFromTheOriginAgreeWithGeos) {
  constexpr double kStep = 1.0 / 1024;
  constexpr double kFarX = 512'000;
  constexpr double kFarY = 5'402'000;
  const Geos geos;
  std::mt19937_64 random(20260102);
  double largest = 0;        // of the cell's surface
  double largestOfArea = 0;  // of the common surface, where that is at least a thousandth of the cell's
  int pairs = 0;
  int holes = 0;
  const int rings = LongForm(4'400, 44'000, 1'100);
  for (int i = 0; i < rings; ++i) {
    const auto shape = [&](int size, double scale, double x, double y) {
      Ring ring;
      for (const Whole& p : RandomRing(random, size, 24)) {
        ring.push_back({kFarX + x + p.x * scale, kFarY + y + p.y * scale});
      }
      return ring;
    };
    const bool onCorners = i % 4 == 0;  // vertices on the edges and corners of cells
    const Ring ring = onCorners ? shape(16, 1.0, 0, 0) : shape(16 * 1024, kStep, 0, 0);
    if (ring.size() < 3) continue;
    // A hole anywhere: where it sticks out of the ring GEOS says so, and the pair has none.
    std::vector<Ring> inner;
    if (i % 2 == 0) inner.push_back(onCorners ? shape(4, 1.0, 6, 6) : shape(4 * 1024, kStep, 6, 6));
    if (!inner.empty() && inner.front().size() < 3) inner.clear();
    Geos::Geometry polygon = geos.Polygon(ring, inner, kFarX, kFarY);
    if (!geos.IsValid(polygon)) {
      inner.clear();
      polygon = geos.Polygon(ring, inner, kFarX, kFarY);
      if (!geos.IsValid(polygon)) continue;  // two vertices on one ray: the ring runs back along itself
    }
    PolyClipLine ours;
    ours.AddRing(ring, false);
    for (const Ring& hole : inner) ours.AddRing(hole, true);
    ASSERT_FALSE(ours.IsSelfIntersecting()) << "ring " << i;
    for (int pair = 0; pair < 30; ++pair) {
      const int x = std::uniform_int_distribution<int>(-1, 16)(random);
      const int y = std::uniform_int_distribution<int>(-1, 16)(random);
      const Ring square = {{kFarX + x, kFarY + y},
                           {kFarX + x + 1, kFarY + y},
                           {kFarX + x + 1, kFarY + y + 1},
                           {kFarX + x, kFarY + y + 1}};
      const double wanted = geos.CommonArea(polygon, geos.Polygon(square, {}, kFarX, kFarY));
      PolyClipper clipper;
      clipper.SetPage(Page(square[0].x, square[0].y, square[2].x, square[2].y));
      ours.FillPolyClipper(clipper);
      const double area = clipper.Area();
      const double difference = std::fabs(area - wanted);
      largest = std::max(largest, difference);
      if (wanted > 1e-3) largestOfArea = std::max(largestOfArea, difference / wanted);
      ASSERT_LT(difference, 1e-9) << "ring " << i << " cell " << x << ' ' << y << " of " << wanted;
      ++pairs;
      holes += inner.empty() ? 0 : 1;
    }
  }
  std::printf("%d pairs, %d of them with a hole; largest difference %.3g of the cell, %.3g of the surface\n", pairs,
              holes, largest, largestOfArea);
  EXPECT_LT(largestOfArea, 1e-9);
  EXPECT_GE(pairs, rings * 20);
  EXPECT_GT(holes, rings);
}

/// The points of a lattice of half steps, so that many lie on vertices and edges, and between.
TEST(PolyClipperReferee, PointsAgreeWithGeosUnlessTheyLieOnAnEdge) {
  const Geos geos;
  std::mt19937_64 random(20260103);
  int inside = 0;
  int onEdges = 0;
  int all = 0;
  for (int i = 0; i < LongForm(400, 4'000); ++i) {
    Ring ring;
    for (const Whole& p : RandomRing(random, 12, 16)) ring.push_back({p.x + 512'000.0, p.y + 5'402'000.0});
    if (ring.size() < 3) continue;
    const Geos::Geometry polygon = geos.Polygon(ring, {}, 0, 0);
    if (!geos.IsValid(polygon)) continue;
    const GEOSPreparedGeometry* prepared = GEOSPrepare_r(geos.Handle(), polygon.get());
    PolyClipLine ours;
    ours.AddRing(ring, false);
    for (int step = 0; step < 27 * 27; ++step) {
      const Point point(512'000 - 0.5 + 0.5 * (step % 27), 5'402'000 - 0.5 + 0.5 * (step / 27.0));
      const Geos::Geometry place = geos.Take(GEOSGeom_createPointFromXY_r(geos.Handle(), point.x, point.y));
      const bool within = GEOSPreparedContains_r(geos.Handle(), prepared, place.get()) == 1;
      const bool touched = GEOSPreparedIntersects_r(geos.Handle(), prepared, place.get()) == 1;
      ++all;
      if (within != touched) {
        ++onEdges;
        continue;
      }
      const bool in = ours.IsPointInPoly(point);
      ASSERT_EQ(in, within) << "ring " << i << " at " << point.x << ' ' << point.y;
      inside += in ? 1 : 0;
    }
    GEOSPreparedGeom_destroy_r(geos.Handle(), prepared);
  }
  EXPECT_GT(inside, all / 20);
  EXPECT_GT(onEdges, all / 200);
}

/// A ring through random lattice points in any order: most cross themselves. GEOS calls touching invalid as well, so
/// that only one direction can be compared.
TEST(PolyClipperReferee, WhatGeosCallsValidIsntSelfIntersecting) {
  const Geos geos;
  std::mt19937_64 random(20260104);
  int valid = 0;
  int crossing = 0;
  for (int i = 0; i < LongForm(20'000, 200'000); ++i) {
    Ring ring;
    const int count = std::uniform_int_distribution<int>(3, 8)(random);
    const int size = std::uniform_int_distribution<int>(2, 6)(random);
    for (int k = 0; k < count; ++k) {
      ring.push_back({static_cast<double>(std::uniform_int_distribution<int>(0, size)(random)),
                      static_cast<double>(std::uniform_int_distribution<int>(0, size)(random))});
    }
    PolyClipLine ours;
    ours.AddRing(ring, false);
    const bool crosses = ours.IsSelfIntersecting();
    crossing += crosses ? 1 : 0;
    if (!geos.IsValid(geos.Polygon(ring, {}, 0, 0))) continue;
    ++valid;
    ASSERT_FALSE(crosses) << "ring " << i;
  }
  EXPECT_GT(valid, 1000);
  EXPECT_GT(crossing, 1000);
}

}  // namespace
}  // namespace vak
