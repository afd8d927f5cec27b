#include <atomic>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

#include "vakdtm/contour/ContourList.h"
#include "vakdtm/contour/DtmContourCreator.h"
#include "vakdtm/contour/DtmContourLevelProc.h"

#include "contour/LinesOf.h"
#include "support/TestGrid.h"

namespace vak {

namespace {

using test::TestGrid;
using Point2 = GTL::Point2D<double>;

/// Calls an operation that is private: the language doesn't check access in an explicit instantiation.
template <void (DtmContourCreator::*kOperation)()>
struct SignOf {
  friend void Sign(DtmContourCreator& creator) { (creator.*kOperation)(); }
};
void Sign(DtmContourCreator& creator);
template struct SignOf<&DtmContourCreator::SignContours>;

/// Takes note of what is added.
class NotingList final : public ContourList {
 public:
  using ContourList::Add;
  void Add(const std::deque<Contour>& contours) override {
    added.push_back(contours.size());
    ContourList::Add(contours);
  }
  std::vector<std::size_t> added;
};

/// Shows what is kept between calls.
class OpenCreator : public DtmContourCreator {
 public:
  using ContourCreator::Contours;
  using DtmContourCreator::DtmContourCreator;
};

PolyClipLine Rectangle(double x0, double y0, double x1, double y1) {
  PolyClipLine polygon;
  polygon.AddRing({{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}, false);
  return polygon;
}

class DtmContourCreatorOnModel : public testing::Test {
 protected:
  /// A slope over two areas, from 1 to 8.
  void DrawSlope() {
    grid_.Draw(
        "1 2 3 4 5 6 7 8\n"
        "1 2 3 4 5 6 7 8\n"
        "1 2 3 4 5 6 7 8\n");
  }

  bool IsRangeKnown(int row, int col) const {
    AreaExtMap map = creator_.GetExtMap();
    return map[grid_.File().GetArea(row, col, false)].IsValid();
  }

  mutable TestGrid grid_;
  OpenCreator creator_{&grid_.Access(), dVAL};
  NotingList out_;
  std::atomic<bool> running_{true};
};

TEST_F(DtmContourCreatorOnModel, AddLevelGivesTheLinesOfTheTracerAsContours) {
  DrawSlope();
  EXPECT_EQ(creator_.AddLevel(2.5, out_, running_), 1);
  ASSERT_EQ(out_.Size(), 1);
  EXPECT_EQ(out_[0].Level(), 2.5);
  ASSERT_EQ(out_[0].NumPoints(), 3);
  EXPECT_EQ(out_[0][0], Point2(2, 0.5));
  EXPECT_EQ(out_[0][2], Point2(2, 2.5));
  EXPECT_TRUE(out_[0].Line().SharesPoints(creator_.Contours()[0].Line()));
}

TEST_F(DtmContourCreatorOnModel, LevelOutsideTheKnownExtentsGivesNothingAndLeavesTheListAlone) {
  DrawSlope();
  ASSERT_EQ(creator_.AddLevel(2.5, out_, running_), 1);
  for (const double level : {0.9, 8.1}) {
    EXPECT_EQ(creator_.AddLevel(level, out_, running_), 0);
    EXPECT_TRUE(creator_.Contours().empty());
  }
  EXPECT_EQ(out_.added.size(), 1U);
}

TEST_F(DtmContourCreatorOnModel, LevelOutsideTheModelFindsTheExtentsAndTouchesNoList) {
  DrawSlope();
  EXPECT_EQ(creator_.AddLevel(100, out_, running_), 0);
  EXPECT_TRUE(out_.added.empty());
  EXPECT_TRUE(IsRangeKnown(0, 0));
  // Known now: no later change of the model is seen.
  grid_.Set(0, 0, dVAL, 101);
  EXPECT_EQ(creator_.AddLevel(100, out_, running_), 0);
}

TEST_F(DtmContourCreatorOnModel, HighestValueIsWithinTheExtentsAndGivesATightLine) {
  grid_.Draw(
      "1 1 1\n"
      "1 9 1\n"
      "1 1 1\n");
  ASSERT_EQ(creator_.AddLevel(5, out_, running_), 1);
  EXPECT_EQ(creator_.AddLevel(9, out_, running_), 1);
  ASSERT_EQ(out_.Size(), 2);
  EXPECT_EQ(out_[1].Level(), 9);
  EXPECT_TRUE(out_[1].Line().IsClosed());
  for (int i = 0; i < out_[1].NumPoints(); ++i) {
    EXPECT_NEAR(out_[1][i].x, 1.5, 1e-7);
    EXPECT_NEAR(out_[1][i].y, 1.5, 1e-7);
  }
  EXPECT_EQ(creator_.AddLevel(1, out_, running_), 0);  // the lowest one is within, too, but nothing is below it
}

TEST_F(DtmContourCreatorOnModel, SameLevelTwiceHandsTheContoursOverTwice) {
  DrawSlope();
  EXPECT_EQ(creator_.AddLevel(2.5, out_, running_), 1);
  EXPECT_EQ(creator_.AddLevel(2.5, out_, running_), 1);
  EXPECT_EQ(creator_.Contours().size(), 1U);
  EXPECT_EQ(out_.Size(), 2);
  EXPECT_EQ(out_.added, (std::vector<std::size_t>{1, 1}));
}

TEST_F(DtmContourCreatorOnModel, FurtherLevelReadsOnlyTheAreasThatHoldIt) {
  DrawSlope();
  ASSERT_EQ(creator_.AddLevel(2.5, out_, running_), 1);
  // Not read: a change in the left area isn't seen by a level of the right one.
  for (int row = 0; row < 3; ++row) grid_.Set(row, 1, dVAL, 9);
  EXPECT_EQ(creator_.AddLevel(6.5, out_, running_), 1);
  EXPECT_EQ(creator_.AddLevel(3.5, out_, running_), 3);
}

TEST_F(DtmContourCreatorOnModel, AddLevelsGivesAllLevelsAtOnceInTheOrderAsked) {
  DrawSlope();
  EXPECT_EQ(creator_.AddLevels({6.5, 2.5, 100, 4.5}, out_, running_), 3);
  EXPECT_EQ(out_.added, (std::vector<std::size_t>{3}));
  ASSERT_EQ(creator_.Contours().size(), 3U);
  EXPECT_EQ(creator_.Contours()[0].Level(), 6.5);
  EXPECT_EQ(creator_.Contours()[1].Level(), 2.5);
  EXPECT_EQ(creator_.Contours()[2].Level(), 4.5);
  EXPECT_EQ(out_[0].Level(), 2.5);
  EXPECT_EQ(out_[2].Level(), 6.5);
}

TEST_F(DtmContourCreatorOnModel, NoLevelsStillHandOverOnce) {
  DrawSlope();
  EXPECT_EQ(creator_.AddLevels({}, out_, running_), 0);
  EXPECT_EQ(out_.added, (std::vector<std::size_t>{0}));
}

TEST_F(DtmContourCreatorOnModel, AddLevelsNeitherTestsTheExtentsNorFindsThem) {
  DrawSlope();
  EXPECT_EQ(creator_.AddLevels({100}, out_, running_), 0);
  EXPECT_TRUE(IsRangeKnown(0, 0));  // the full walk took place
  // The extents would be 1 to 8 if they had been found.
  grid_.Set(0, 8, dVAL, 200);
  grid_.Set(1, 8, dVAL, 200);
  EXPECT_EQ(creator_.AddLevel(150, out_, running_), 0);
  AreaExtMap none;
  creator_.SetExtMap(none);
  EXPECT_EQ(creator_.AddLevels({150}, out_, running_), 1);
}

TEST_F(DtmContourCreatorOnModel, AddLevelsSkipsByRangesThatEarlierLevelsFound) {
  DrawSlope();
  EXPECT_EQ(creator_.AddLevels({2.5, 6.5}, out_, running_), 2);
  for (int row = 0; row < 3; ++row) grid_.Set(row, 1, dVAL, 9);
  EXPECT_EQ(creator_.AddLevels({6.5}, out_, running_), 1);
}

TEST_F(DtmContourCreatorOnModel, SetPolyForgetsTheExtentsButKeepsTheRanges) {
  DrawSlope();
  creator_.SetPoly(Rectangle(0, 0, 2.1, 3));
  EXPECT_EQ(creator_.AddLevel(1.5, out_, running_), 1);
  EXPECT_EQ(creator_.AddLevel(6.5, out_, running_), 0);
  creator_.SetPoly({});
  // The left area is only known as far as the old polygon let through; the right one it left out.
  EXPECT_EQ(creator_.AddLevel(3.75, out_, running_), 0);
  EXPECT_EQ(creator_.AddLevel(6.5, out_, running_), 1);
  creator_.SetExtMap({});
  EXPECT_EQ(creator_.AddLevel(3.75, out_, running_), 0);  // outside the extents, which the run before found
  creator_.SetPoly({});
  EXPECT_EQ(creator_.AddLevel(3.75, out_, running_), 1);
}

TEST_F(DtmContourCreatorOnModel, RangesCanBeHandedFromCreatorToCreator) {
  DrawSlope();
  creator_.AddLevel(2.5, out_, running_);
  OpenCreator next(&grid_.Access(), dVAL);
  next.SetExtMap(creator_.GetExtMap());
  for (int row = 0; row < 3; ++row) grid_.Set(row, 1, dVAL, 9);
  EXPECT_EQ(next.AddLevel(6.5, out_, running_), 1);
}

TEST_F(DtmContourCreatorOnModel, CopiesTakePolygonRangesAndExtentsAlong) {
  DrawSlope();
  creator_.SetPoly(Rectangle(0, 0, 4.1, 3));
  ASSERT_EQ(creator_.AddLevel(2.5, out_, running_), 1);
  OpenCreator copy = creator_;
  EXPECT_EQ(copy.Contours().size(), 1U);
  EXPECT_EQ(copy.AddLevel(6.5, out_, running_), 0);
  OpenCreator assigned(nullptr, dMAX);
  assigned = creator_;
  EXPECT_EQ(assigned.AddLevel(6.5, out_, running_), 0);
  EXPECT_EQ(assigned.AddLevel(2.5, out_, running_), 1);
}

TEST_F(DtmContourCreatorOnModel, PolygonThatIsNotValidGivesNothing) {
  DrawSlope();
  PolyClipLine invalid;
  invalid.AddRing({{0, 0}, {1, 1}}, false);
  creator_.SetPoly(invalid);
  EXPECT_EQ(creator_.AddLevel(2.5, out_, running_), 0);
  EXPECT_TRUE(out_.added.empty());
  EXPECT_EQ(creator_.AddLevels({2.5}, out_, running_), 0);
  EXPECT_EQ(out_.added, (std::vector<std::size_t>{0}));
}

TEST_F(DtmContourCreatorOnModel, StoppedOneGivesNothingAndFindsNoExtents) {
  DrawSlope();
  running_ = false;
  EXPECT_EQ(creator_.AddLevel(2.5, out_, running_), 0);
  EXPECT_TRUE(out_.added.empty());
  EXPECT_EQ(creator_.AddLevels({2.5, 3.5}, out_, running_), 0);
  EXPECT_EQ(out_.added, (std::vector<std::size_t>{0}));
  running_ = true;
  EXPECT_EQ(creator_.AddLevel(2.5, out_, running_), 1);
}

TEST_F(DtmContourCreatorOnModel, WorksThroughItsInterfaceAlone) {
  DrawSlope();
  const std::unique_ptr<ContourCreator> creator = std::make_unique<DtmContourCreator>(&grid_.Access(), dVAL);
  EXPECT_EQ(creator->AddLevel(2.5, out_, running_), 1);
  EXPECT_EQ(creator->AddLevels({2.5, 3.5}, out_, running_), 2);
}

TEST_F(DtmContourCreatorOnModel, WithoutAnAccessThereIsNothing) {
  DtmContourCreator creator(nullptr, dVAL);
  EXPECT_EQ(creator.AddLevel(2.5, out_, running_), 0);
  EXPECT_EQ(creator.AddLevels({2.5}, out_, running_), 0);
  EXPECT_EQ(out_.added, (std::vector<std::size_t>{0}));
}

/// Contours of a level of 5 that are to be signed on a model whose left half is low.
class DtmContourCreatorSigns : public DtmContourCreatorOnModel {
 protected:
  DtmContourCreatorSigns() {
    for (int row = 0; row < 20; ++row) {
      for (int col = 0; col < 4; ++col) grid_.Set(row, col, dVAL, col < 2 ? 1 : 9);
    }
  }
  /// Whether a line is turned round.
  bool Turns(const std::vector<Point2>& points, double level = 5) {
    creator_.Contours().clear();
    creator_.Contours().emplace_back(level);
    for (const Point2& point : points) creator_.Contours().back().Line().AddBack(point);
    Sign(creator_);
    const Contour& contour = creator_.Contours().back();
    EXPECT_EQ(contour.NumPoints(), static_cast<int>(points.size()));
    return contour.NumPoints() > 0 && !(contour[0] == points.front());
  }
};

TEST_F(DtmContourCreatorSigns, LowerGroundOnTheLeftStays) {
  EXPECT_FALSE(Turns({{2, 1}, {2, 2}, {2, 3}}));
  EXPECT_TRUE(Turns({{2, 3}, {2, 2}, {2, 1}}));
  EXPECT_TRUE(Turns({{2, 3}, {2, 1}}));  // its only segment votes
}

TEST_F(DtmContourCreatorSigns, SamplesAreHalfACellToTheLeft) {
  // High ground begins at 2; a sample much nearer to the line would still be on low ground.
  EXPECT_TRUE(Turns({{1.8, 3}, {1.8, 1}}));
  EXPECT_FALSE(Turns({{1.4, 3}, {1.4, 1}}));
  EXPECT_TRUE(Turns({{1.6, 3}, {1.6, 1}}));
}

TEST_F(DtmContourCreatorSigns, TracedContoursStay) {
  ASSERT_EQ(creator_.AddLevel(5, out_, running_), 1);
  Sign(creator_);
  EXPECT_TRUE(creator_.Contours()[0].Line().SharesPoints(out_[0].Line()));
}

TEST_F(DtmContourCreatorSigns, WhatHasNoValueOrTheLevelItselfDoesNotVote) {
  EXPECT_FALSE(Turns({}));
  EXPECT_FALSE(Turns({{2, 1}}));
  EXPECT_FALSE(Turns({{2, 3}, {2, 1}}, 9));   // left of it is exactly 9
  EXPECT_FALSE(Turns({{500, 3}, {500, 1}}));  // no area
  EXPECT_FALSE(Turns({{2, 30}, {2, 28}}));    // no area either
  EXPECT_FALSE(Turns({{2, 3}, {2, 3}}));      // no direction
  grid_.Clear(3, 2);
  EXPECT_FALSE(Turns({{2, 4}, {2, 3}}));  // an empty cell
}

TEST_F(DtmContourCreatorSigns, TieStays) {
  // Down with high ground at the left, and up again with low ground there.
  EXPECT_FALSE(Turns({{2, 3}, {2, 1}, {2, 2.9}}));
  EXPECT_TRUE(Turns({{2, 3}, {2, 1}, {2, 2.9}, {2, 0.5}}));
}

TEST_F(DtmContourCreatorSigns, OnlyTheFirstTenSegmentsVote) {
  // Ten upwards that say nothing, on a line beyond the model, then many that would turn it.
  std::vector<Point2> points;
  for (int i = 0; i <= 10; ++i) points.emplace_back(-50, 1.0 * i);
  for (int i = 10; i >= 0; --i) points.emplace_back(2, 1.0 * i);
  EXPECT_FALSE(Turns(points));
  points.erase(points.begin());
  points.erase(points.begin());
  EXPECT_TRUE(Turns(points));
}

}  // namespace
}  // namespace vak
