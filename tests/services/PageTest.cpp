#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/geometry/Page.h"

#include "support/RecordingDevice.h"

namespace vak {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

testing::AssertionResult Is(const Page& page, double x0, double y0, double x1, double y1) {
  if (page.left() == x0 && page.bottom() == y0 && page.right() == x1 && page.top() == y1) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "(" << page.left() << ", " << page.bottom() << ", " << page.right() << ", "
                                     << page.top() << ")";
}

TEST(Page, ValidWhenItsCornersAreInOrder) {
  const struct {
    const char* name;
    Page page;
    bool valid;
  } kCases[] = {
      {"default", Page(), false},
      {"plain", Page(-1, -2, 3, 4), true},
      {"a point", Page(1, 1, 1, 1), true},
      {"no height", Page(0, 1, 2, 1), true},
      {"left and right exchanged", Page(3, 0, 1, 1), false},
      {"bottom and top exchanged", Page(0, 3, 1, 1), false},
      {"not a number", Page(0, 0, kNan, 1), false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.page.IsValid(), c.valid);
  }
}

TEST(Page, InvalidateTakesTheRectangleAway) {
  Page page(0, 0, 1, 1);
  page.Invalidate();
  EXPECT_FALSE(page.IsValid());
  EXPECT_EQ(page.Area(), 0.0);
  EXPECT_EQ(page.Width(), 0.0);
  page.Set(1, 2, 3, 5);
  EXPECT_TRUE(Is(page, 1, 2, 3, 5));
}

TEST(Page, UnionHoldsBothAndAnInvalidSideAddsNothing) {
  Page page;
  page |= Page();
  EXPECT_FALSE(page.IsValid());
  page |= Page(0, 1, 2, 3);
  EXPECT_TRUE(Is(page, 0, 1, 2, 3));
  page |= Page(9, 9, -9, -9);
  EXPECT_TRUE(Is(page, 0, 1, 2, 3));
  page |= Page(-5, 2, -4, 7);
  EXPECT_TRUE(Is(page, -5, 1, 2, 7));
  page |= Page(-1, -1, 5, 0);
  EXPECT_TRUE(Is(page, -5, -1, 5, 7));
}

TEST(Page, UnionWithAPointWidensToIt) {
  Page page;
  page |= Point(3, 4, 99);
  EXPECT_TRUE(Is(page, 3, 4, 3, 4));
  page |= Point(1, 6);
  EXPECT_TRUE(Is(page, 1, 4, 3, 6));
  page |= Point(kNan, 100);
  EXPECT_TRUE(Is(page, 1, 4, 3, 6));
}

TEST(Page, AreaWidthAndCenterOfAPlainPage) {
  const Page page(1, 2, 4, 8);
  EXPECT_EQ(page.Area(), 18.0);
  EXPECT_EQ(page.Width(), 3.0);
  EXPECT_EQ(page.GetCenter(), Point(2.5, 5.0, 0.0));
}

TEST(Page, PointsOnTheEdgesAreInside) {
  const Page page(0, 10, 2, 12);
  const struct {
    const char* name;
    double x, y;
    bool inside;
  } kCases[] = {
      {"middle", 1, 11, true},
      {"left bottom corner", 0, 10, true},
      {"right top corner", 2, 12, true},
      {"left edge", 0, 11, true},
      {"beyond the left", -0.001, 11, false},
      {"beyond the right", 2.001, 11, false},
      {"below", 1, 9.999, false},
      {"above", 1, 12.001, false},
      {"not a number", kNan, 11, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(page.IsPointInPage(c.x, c.y), c.inside);
    EXPECT_FALSE(Page().IsPointInPage(c.x, c.y));
  }
}

TEST(Page, PagesMeetOnTheirEdgesButClipOnlyWithAnArea) {
  const Page page(0, 0, 4, 4);
  const struct {
    const char* name;
    Page other;
    bool meet;
    bool clip;
    Page left;
  } kCases[] = {
      {"inside", Page(1, 1, 2, 3), true, true, Page(1, 1, 2, 3)},
      {"around", Page(-9, -9, 9, 9), true, true, Page(0, 0, 4, 4)},
      {"over the right top corner", Page(3, 2, 8, 9), true, true, Page(3, 2, 4, 4)},
      {"over the left bottom corner", Page(-3, -2, 1, 2), true, true, Page(0, 0, 1, 2)},
      {"touching the right edge", Page(4, 0, 8, 4), true, false, {}},
      {"touching the bottom edge", Page(0, -4, 4, 0), true, false, {}},
      {"touching a corner", Page(4, 4, 8, 8), true, false, {}},
      {"flat, inside", Page(1, 2, 3, 2), true, false, {}},
      {"to the right", Page(5, 0, 8, 4), false, false, {}},
      {"to the left", Page(-5, 0, -1, 4), false, false, {}},
      {"above", Page(0, 5, 4, 8), false, false, {}},
      {"below", Page(0, -5, 4, -1), false, false, {}},
      {"invalid", Page(), false, false, {}},
      {"not a number", Page(kNan, 0, 4, 4), false, false, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(page.IsRectInPage(c.other), c.meet);
    EXPECT_EQ(c.other.IsRectInPage(page), c.meet);
    Page cut = c.other;
    EXPECT_EQ(page.ClipRect(cut), c.clip);
    if (c.clip) {
      EXPECT_TRUE(Is(cut, c.left.left(), c.left.bottom(), c.left.right(), c.left.top()));
    } else if (c.other.IsValid()) {
      EXPECT_TRUE(Is(cut, c.other.left(), c.other.bottom(), c.other.right(), c.other.top()));
    }
    Page none = page;
    EXPECT_EQ(c.other.ClipRect(none), c.clip);
  }
}

TEST(Point, ArithmeticTakesAllThreeCoordinates) {
  EXPECT_EQ(Point(1, 2, 3) + Point(10, 20, 30), Point(11, 22, 33));
  EXPECT_EQ(Point(1, 2, 3) - Point(10, 20, 30), Point(-9, -18, -27));
  EXPECT_EQ(Point(), Point(0, 0, 0));
  EXPECT_NE(Point(1, 2, 3), Point(1, 2, 4));
  EXPECT_NE(Point(1, 2, kNan), Point(1, 2, kNan));
}

TEST(Page, IsSetFromTwoCorners) {
  Page page;
  page.Set(Point(1, 2), Point(3, 5));
  EXPECT_TRUE(Is(page, 1, 2, 3, 5));
  page.Set(Point(1, 5), Point(3, 2));
  EXPECT_FALSE(page.IsValid());
}

TEST(Page, DrawsOfItsFrameWhatIsInTheView) {
  const CoordinateSystem system(Page(0, 0, 100, 100), 100, 100);
  const Page view(0, 0, 100, 100);
  const struct {
    const char* name;
    Page page;
    const char* drawn;
  } kCases[] = {
      {"inside", Page(10, 20, 30, 50), "line 10 80 30 80 30 50 10 50 10 80\n"},
      {"the view itself", view, "line 0 100 100 100 100 0 0 0 0 100\n"},
      {"out to the left", Page(-10, 20, 30, 50), "line 0 80 30 80\nline 30 80 30 50\nline 0 50 30 50\n"},
      {"out at a corner", Page(90, 95, 130, 150), "line 90 5 100 5\nline 90 5 90 0\n"},
      {"a side on the edge", Page(-10, 0, 50, 150), "line 0 100 50 100\nline 50 100 50 0\n"},
      {"touching", Page(100, 20, 120, 30), "line 100 80 100 70\n"},
      {"round the view", Page(-10, -10, 110, 110), ""},
      {"endless", Page(-1e300, 20, 1e300, 1e300), "line 0 80 100 80\n"},
      {"elsewhere", Page(110, 20, 120, 30), ""},
      {"invalid", Page(), ""},
      {"not a number", Page(0, 0, kNan, 1), ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    test::RecordingDevice device;
    c.page.DrawRect(&device, system, view);
    EXPECT_EQ(device.Text(), c.drawn);
    c.page.DrawRect(nullptr, system, view);
    device.Clear();
    c.page.DrawRect(&device, system, Page());
    EXPECT_EQ(device.Text(), "");
  }
}

}  // namespace
}  // namespace vak
