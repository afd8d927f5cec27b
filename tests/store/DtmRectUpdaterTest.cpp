#include <gtest/gtest.h>
#include <memory>

#include "vakdtm/store/DtmRectUpdater.h"

#include "support/QuietModel.h"

namespace vak::test {
namespace {

TEST(DtmRectUpdater, ACellIsTheRectangleFromItsLeftBottomCornerOfOneCellSize) {
  QuietModel quiet;
  DtmRectUpdater updater(quiet.model.get());
  updater.UpdateCell(3, -7, false);
  quiet.Expect(-3.5, 1.5, -3.0, 2.0, false);
}

TEST(DtmRectUpdater, AnAreaSpansItsCells) {
  QuietModel quiet;
  DtmRectUpdater updater(quiet.model.get());
  updater.UpdateArea(-8, 16, true);
  quiet.Expect(8.0, -4.0, 12.0, 0.0, true);
}

TEST(DtmRectUpdater, TheFlagIsHandedOn) {
  QuietModel quiet;
  DtmRectUpdater updater(quiet.model.get());
  updater.UpdateCell(0, 0, true);
  quiet.Expect(0, 0, 0.5, 0.5, true);
  updater.UpdateArea(0, 0, false);
  quiet.Expect(0, 0, 4.0, 4.0, true);
}

TEST(DtmRectUpdater, NothingIsGatheredInTheUpdaterItself) {
  QuietModel quiet;
  DtmRectUpdater updater(quiet.model.get());
  quiet.clock.AdvanceMilliseconds(126);
  updater.UpdateCell(0, 0, false);
  EXPECT_EQ(quiet.listener->heard.size(), 1u);
}

TEST(DtmRectUpdater, ItsEndAnnouncesWhatTheModelHasGathered) {
  QuietModel quiet;
  {
    DtmRectUpdater updater(quiet.model.get());
    updater.UpdateCell(0, 0, false);
    EXPECT_TRUE(quiet.listener->heard.empty());
  }
  EXPECT_EQ(quiet.listener->heard.size(), 1u);
}

TEST(DtmRectUpdater, ACloneTellsTheSameModel) {
  QuietModel quiet;
  std::unique_ptr<DtmUpdater> clone;
  {
    const DtmRectUpdater updater(quiet.model.get());
    clone.reset(updater.Clone());
  }
  clone->UpdateCell(1, 1, false);
  quiet.Expect(0.5, 0.5, 1.0, 1.0, false);
  clone->UpdateArea(8, 8, false);
  quiet.Expect(0.5, 0.5, 8.0, 8.0, false);
}

TEST(DtmRectUpdater, ASoundingIsToldThroughTheCursor) {
  QuietModel quiet;
  DtmAccess access(quiet.model.get());
  access.SetUpdater(new DtmRectUpdater(quiet.model.get()));
  EXPECT_TRUE(access.InsertValue(-0.1, 0.6, -3.0, 0, nullptr, nullptr, 0));
  Page rect;
  bool flag = true;
  ASSERT_TRUE(quiet.model->GetUpdateRect(rect, flag));
  EXPECT_EQ(rect.left(), -0.5);
  EXPECT_EQ(rect.bottom(), 0.5);
  EXPECT_EQ(rect.right(), 0.0);
  EXPECT_EQ(rect.top(), 1.0);
}

}  // namespace
}  // namespace vak::test
