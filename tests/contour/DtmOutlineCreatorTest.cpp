#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "vakdtm/contour/DtmOutlineCreator.h"
#include "vakdtm/store/DtmFile.h"

#include "support/GridStreamLog.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// Areas of 4 x 4 with two full ones, apart from each other: two outlines each.
class DtmOutlineCreatorOnTwoAreas : public testing::Test {
 protected:
  DtmOutlineCreatorOnTwoAreas() {
    for (int row = 0; row < 4; ++row) {
      for (const int col : {0, 1, 2, 3, 12, 13, 14, 15}) grid_.Set(row, col, dVAL, 5);
    }
  }
  static PolyClipLine Around(double x0, double y0, double x1, double y1) {
    PolyClipLine polygon;
    polygon.AddRing({{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}, false);
    return polygon;
  }

  TestGrid grid_;
  OutlineList out_;
  std::atomic<bool> running_{true};
};

TEST_F(DtmOutlineCreatorOnTwoAreas, DeliversAllAtLevelZeroInTheOrderOfTracing) {
  DtmOutlineCreator creator(&grid_.Access(), dVAL);
  EXPECT_EQ(creator.AddLevel(7.5, out_, running_), 4);
  ASSERT_EQ(out_.Size(), 4);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(out_[i].Level(), 0.0);
  EXPECT_EQ(out_[0][0], (GTL::Point3D<double>(3.5, 0, 5)));
  EXPECT_EQ(out_[1][0], (GTL::Point3D<double>(0, 0.5, 5)));
  EXPECT_EQ(out_[2][0], (GTL::Point3D<double>(15.5, 0, 5)));
  EXPECT_EQ(out_[3][0], (GTL::Point3D<double>(12, 0.5, 5)));
}

TEST_F(DtmOutlineCreatorOnTwoAreas, SecondCallAddsNothing) {
  DtmOutlineCreator creator(&grid_.Access(), dVAL);
  ASSERT_EQ(creator.AddLevel(0, out_, running_), 4);
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
  EXPECT_EQ(creator.AddLevel(1, out_, running_), 0);
  EXPECT_EQ(out_.Size(), 4);
}

TEST_F(DtmOutlineCreatorOnTwoAreas, SetPolyMakesItReadyAgain) {
  DtmOutlineCreator creator(&grid_.Access(), dVAL);
  ASSERT_EQ(creator.AddLevel(0, out_, running_), 4);
  creator.SetPoly(Around(12, 0, 13, 1));
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 2);
  // The newer are ahead of the older of the same level.
  ASSERT_EQ(out_.Size(), 6);
  EXPECT_EQ(out_[0][0].x, 15.5);
  EXPECT_EQ(out_[2][0].x, 3.5);
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
  creator.SetPoly({});
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 4);
}

TEST_F(DtmOutlineCreatorOnTwoAreas, RunThatSawNoEmptyPlaceMayBeRepeated) {
  DtmOutlineCreator creator(&grid_.Access(), dVAL);
  PolyClipLine twoPoints;
  twoPoints.AddRing({{0, 0}, {1, 1}}, false);
  creator.SetPoly(twoPoints);
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
  creator.SetPoly(Around(100, 100, 101, 101));
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
  creator.SetPoly({});
  running_ = false;
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
  EXPECT_TRUE(out_.IsEmpty());
  running_ = true;
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 4);
}

TEST(DtmOutlineCreator, RunThatSawEmptyPlacesAloneBlocksFurtherOnes) {
  TestGrid grid;
  ASSERT_TRUE(grid.Set(1, 1, iNUM, 1));  // an area that is walked, without heights
  const std::atomic<bool> running{true};
  OutlineList out;
  DtmOutlineCreator creator(&grid.Access(), dVAL);
  ASSERT_EQ(creator.AddLevel(0, out, running), 0);
  ASSERT_TRUE(grid.Set(1, 1, dVAL, 1));
  EXPECT_EQ(creator.AddLevel(0, out, running), 0);
  creator.SetPoly({});
  EXPECT_EQ(creator.AddLevel(0, out, running), 1);
}

TEST_F(DtmOutlineCreatorOnTwoAreas, RangesOfContoursLeaveOutAreasThatDoNotSpanZero) {
  AreaExtMap ranges;
  (ranges[grid_.Area(0, 0)] += 3) += 9;
  (ranges[grid_.Area(0, 12)] += -1) += 1;
  DtmOutlineCreator creator(&grid_.Access(), dVAL);
  creator.SetExtMap(ranges);
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 2);
  EXPECT_EQ(out_[0][0].x, 15.5);
  AreaExtMap kept = creator.GetExtMap();
  EXPECT_EQ(kept[grid_.Area(0, 0)].Max(), 9);
  EXPECT_EQ(kept[grid_.Area(0, 12)].Max(), 1);
}

TEST_F(DtmOutlineCreatorOnTwoAreas, CopyTakesAlongThatTheWorkIsDone) {
  DtmOutlineCreator creator(&grid_.Access(), dVAL);
  ASSERT_EQ(creator.AddLevel(0, out_, running_), 4);
  DtmOutlineCreator copy(creator);
  EXPECT_EQ(copy.AddLevel(0, out_, running_), 0);
  copy.SetPoly(Around(0, 0, 1, 1));
  EXPECT_EQ(copy.AddLevel(0, out_, running_), 2);
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
  DtmOutlineCreator other(nullptr, iNUM);
  other = creator;
  other.SetPoly({});
  EXPECT_EQ(other.AddLevel(0, out_, running_), 4);
}

TEST_F(DtmOutlineCreatorOnTwoAreas, WithoutAModelThereIsNothing) {
  DtmOutlineCreator without(nullptr, dVAL);
  EXPECT_EQ(without.AddLevel(0, out_, running_), 0);
  DtmAccess detached(nullptr);
  DtmOutlineCreator creator(&detached, dVAL);
  EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
  EXPECT_TRUE(out_.IsEmpty());
}

// The flag falls while the cells of the second area are read in.
TEST_F(DtmOutlineCreatorOnTwoAreas, StoppedRunDeliversWhatWasJoinedAndBlocksFurtherOnes) {
  const DtmArea* const second = grid_.Area(0, 12);
  const long long begin = second->BlockPosition();
  grid_.Close();
  const auto log = std::make_shared<StreamLog>();
  DtmFile file(new LoggedStream(grid_.Shared(), log), false);
  ASSERT_TRUE(file.Open());
  {
    DtmAccess access(&file);
    log->before = [&](const StreamCall& call) {
      if (call.what == 'r' && call.at >= begin) running_ = false;
    };
    DtmOutlineCreator creator(&access, dVAL);
    EXPECT_EQ(creator.AddLevel(0, out_, running_), 2);
    EXPECT_FALSE(running_);
    ASSERT_EQ(out_.Size(), 2);
    EXPECT_EQ(out_[0][0].x, 3.5);
    EXPECT_EQ(out_[0].NumPoints(), 4);
    EXPECT_EQ(out_[1].NumPoints(), 12);
    log->before = nullptr;
    running_ = true;
    EXPECT_EQ(creator.AddLevel(0, out_, running_), 0);
    creator.SetPoly({});
    EXPECT_EQ(creator.AddLevel(0, out_, running_), 4);
  }
  file.Close();
}

}  // namespace
}  // namespace vak::test
