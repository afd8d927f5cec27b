#include <gtest/gtest.h>
#include <limits>
#include <vector>

#include "vakdtm/services/device/CoordinateSystem.h"

namespace vak {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

testing::AssertionResult Is(const PixelRect& rect, int left, int top, int right, int bottom) {
  if (rect == PixelRect{left, top, right, bottom}) return testing::AssertionSuccess();
  return testing::AssertionFailure() << rect.left << ' ' << rect.top << ' ' << rect.right << ' ' << rect.bottom;
}

TEST(CoordinateSystem, RowsGrowDownwards) {
  const CoordinateSystem system(Page(1000, 500, 1100, 550), 200, 50);
  ASSERT_TRUE(system.IsValid());
  EXPECT_EQ(system.GetScale(), Point(2.0, -1.0));
  EXPECT_TRUE(Is(system.WorldToPixel(Page(1000, 500, 1100, 550)), 0, 0, 200, 50));
  EXPECT_TRUE(Is(system.WorldToPixel(Page(1000, 540, 1001, 550)), 0, 0, 2, 10));
  double x = 0;
  double y = 0;
  system.WorldToPixel(1025.0, 510.0, &x, &y);
  EXPECT_EQ(x, 50.0);
  EXPECT_EQ(y, 40.0);
  system.PixelToWorld(50.0, 40.0, &x, &y);
  EXPECT_EQ(x, 1025.0);
  EXPECT_EQ(y, 510.0);
}

TEST(CoordinateSystem, ShowsAPageInAPartOfAPicture) {
  const CoordinateSystem system(Page(0, 0, 10, 10), PixelRect{100, 20, 150, 70});
  EXPECT_TRUE(Is(system.WorldToPixel(Page(0, 0, 10, 10)), 100, 20, 150, 70));
  double x = 0;
  double y = 0;
  system.PixelToWorld(100.0, 70.0, &x, &y);
  EXPECT_EQ(x, 0.0);
  EXPECT_EQ(y, 0.0);
}

TEST(CoordinateSystem, RoundsEachEdgeByItselfUpwardsFromTheMiddle) {
  const CoordinateSystem system(Page(0, 0, 10, 10), 10, 10);
  EXPECT_TRUE(Is(system.WorldToPixel(Page(0.5, 0, 1.4, 9.5)), 1, 1, 1, 10));
  EXPECT_TRUE(Is(system.WorldToPixel(Page(-0.5, 0, 1.6, 10.5)), 0, 0, 2, 10));
  EXPECT_TRUE(Is(system.WorldToPixel(Page(-1.5, -1.5, -0.6, 10.6)), -1, -1, -1, 12));
}

TEST(CoordinateSystem, NeighbouringCellsMeetWithoutGapOrOverlap) {
  // Scales at which edges fall onto, just before and just behind the middles of pixels.
  for (const double cell : {0.1, 0.25, 1.0 / 3.0, 0.7, 1.0, 1.5, 5.0}) {
    SCOPED_TRACE(cell);
    const int kCells = 200;
    const CoordinateSystem system(Page(-100 * cell, 311 * cell, 100 * cell, 511 * cell), 317, 523);
    std::vector<int> columns(317, 0);
    std::vector<int> rows(523, 0);
    for (int i = 0; i < kCells; ++i) {
      const int col = i - 100;
      const int row = i + 311;
      const PixelRect rect = system.WorldToPixel(Page(col * cell, row * cell, (col + 1) * cell, (row + 1) * cell));
      for (int x = rect.left; x < rect.right; ++x) ++columns.at(static_cast<std::size_t>(x));
      for (int y = rect.top; y < rect.bottom; ++y) ++rows.at(static_cast<std::size_t>(y));
    }
    EXPECT_EQ(columns, std::vector<int>(317, 1));
    EXPECT_EQ(rows, std::vector<int>(523, 1));
  }
}

TEST(CoordinateSystem, GoesBothWaysInDoublesWithPixelPagesInOrder) {
  const CoordinateSystem system(Page(1000, 500, 1100, 550), 200, 50);
  Page pixels;
  system.WorldToPixel(Page(1010.1, 520.25, 1030.3, 530.75), &pixels);
  ASSERT_TRUE(pixels.IsValid());
  EXPECT_NEAR(pixels.left(), 20.2, 1e-9);
  EXPECT_NEAR(pixels.bottom(), 19.25, 1e-9);  // the upper row
  EXPECT_NEAR(pixels.right(), 60.6, 1e-9);
  EXPECT_NEAR(pixels.top(), 29.75, 1e-9);
  EXPECT_NEAR(pixels.Width(), 40.4, 1e-9);
  system.PixelToWorld(pixels, &pixels);
  EXPECT_NEAR(pixels.left(), 1010.1, 1e-9);
  EXPECT_NEAR(pixels.bottom(), 520.25, 1e-9);
  EXPECT_NEAR(pixels.right(), 1030.3, 1e-9);
  EXPECT_NEAR(pixels.top(), 530.75, 1e-9);
}

TEST(CoordinateSystem, TakesPixelsFromTheLowerLeftToTheUpperRight) {
  const CoordinateSystem system(Page(0, 0, 100, 100), 100, 100);
  Page square;
  square.Set(Point(48, 52), Point(52, 48));  // in pixels: two to the left and two downwards first
  Page world;
  system.PixelToWorld(square, &world);
  EXPECT_TRUE(world.IsValid());
  EXPECT_EQ(system.WorldToPixel(world), (PixelRect{48, 48, 52, 52}));
}

TEST(CoordinateSystem, KeepsWhatIsFarAwayWithinAnInt) {
  const CoordinateSystem system(Page(0, 0, 1, 1), 1000, 1000);
  constexpr int kFarthest = 1 << 30;
  for (const double far : {1e7, 1e100, 1e308, kInfinity}) {
    SCOPED_TRACE(far);
    EXPECT_TRUE(Is(system.WorldToPixel(Page(-far, -far, far, far)), -kFarthest, -kFarthest, kFarthest, kFarthest));
  }
}

TEST(CoordinateSystem, AnInvalidPageIsNoPixel) {
  const CoordinateSystem system(Page(0, 0, 10, 10), 10, 10);
  for (const Page& page : {Page(), Page(3, 0, 1, 1), Page(0, kNan, 1, 1)}) {
    EXPECT_TRUE(system.WorldToPixel(page).IsEmpty());
    Page pixels(1, 2, 3, 4);
    system.WorldToPixel(page, &pixels);
    EXPECT_FALSE(pixels.IsValid());
  }
  Page world(1, 2, 3, 4);
  system.PixelToWorld(Page(), &world);
  EXPECT_FALSE(world.IsValid());
}

TEST(CoordinateSystem, WithoutAreaOrPixelsItIsOneOfOneByOne) {
  const struct {
    const char* name;
    CoordinateSystem system;
  } kCases[] = {
      {"default", CoordinateSystem()},
      {"no page", CoordinateSystem(Page(), 10, 10)},
      {"no width", CoordinateSystem(Page(1, 1, 1, 5), 10, 10)},
      {"no pixels", CoordinateSystem(Page(0, 0, 1, 1), 0, 10)},
      {"fewer", CoordinateSystem(Page(0, 0, 1, 1), 10, -3)},
      {"endless", CoordinateSystem(Page(0, 0, kInfinity, 1), 10, 10)},
      {"beyond doubles", CoordinateSystem(Page(-1.5e308, 0, 1.5e308, 1), 10, 10)},
      {"too small", CoordinateSystem(Page(0, 0, 5e-324, 1), 10, 10)},
      {"not a number", CoordinateSystem(Page(0, 0, kNan, 1), 10, 10)},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(c.system.IsValid());
    EXPECT_EQ(c.system.GetScale(), Point(1, -1));
    EXPECT_TRUE(Is(c.system.WorldToPixel(Page(0, 0, 1, 1)), 0, 0, 1, 1));
  }
}

}  // namespace
}  // namespace vak
