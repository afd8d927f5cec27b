#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

#include "vakdtm/store/DtmBufferedUpdater.h"

#include "support/QuietModel.h"

namespace vak::test {
namespace {

constexpr unsigned long kWait = 125;

/// An updater that has just handed something on, so that it gathers for as long as its wait.
std::unique_ptr<DtmBufferedUpdater> MakeGathering(QuietModel& quiet) {
  auto updater = std::make_unique<DtmBufferedUpdater>(quiet.model.get(), kWait);
  updater->UpdateCell(0, 0, false);
  quiet.Announce();
  return updater;
}

TEST(DtmBufferedUpdater, TheFirstChangeIsHandedOnAtOnce) {
  QuietModel quiet;
  DtmBufferedUpdater updater(quiet.model.get(), kWait);
  updater.UpdateCell(3, -7, false);
  quiet.Expect(-3.5, 1.5, -3.0, 2.0, false);
}

TEST(DtmBufferedUpdater, TheFirstChangeWaitsOnlyWhileTheCounterIsWithinTheWait) {
  QuietModel early(kWait);
  DtmBufferedUpdater first(early.model.get(), kWait);
  first.UpdateCell(0, 0, false);
  EXPECT_FALSE(early.HasRect());
  early.clock.AdvanceMilliseconds(1);
  first.UpdateCell(0, 0, false);
  EXPECT_TRUE(early.HasRect());
}

TEST(DtmBufferedUpdater, GathersUntilMoreThanTheWaitHasPassed) {
  QuietModel quiet;
  const auto updater = MakeGathering(quiet);
  updater->UpdateCell(3, -7, false);
  quiet.clock.AdvanceMilliseconds(kWait);
  updater->UpdateCell(-5, 9, false);
  EXPECT_FALSE(quiet.HasRect());
  quiet.clock.AdvanceMilliseconds(1);
  quiet.Announce();
  updater->UpdateCell(0, 0, false);
  quiet.Expect(-3.5, -2.5, 5.0, 2.0, false);
}

TEST(DtmBufferedUpdater, AHandingOnStartsTheWaitAnew) {
  QuietModel quiet;
  const auto updater = MakeGathering(quiet);
  quiet.clock.AdvanceMilliseconds(kWait + 1);
  updater->UpdateCell(0, 0, false);
  quiet.Announce();
  quiet.clock.AdvanceMilliseconds(kWait);
  updater->UpdateCell(0, 0, false);
  EXPECT_FALSE(quiet.HasRect());
  quiet.clock.AdvanceMilliseconds(1);
  quiet.Announce();
  updater->UpdateCell(0, 0, false);
  EXPECT_TRUE(quiet.HasRect());
}

TEST(DtmBufferedUpdater, WhatIsHandedOnIsForgotten) {
  QuietModel quiet;
  const auto updater = MakeGathering(quiet);
  quiet.clock.AdvanceMilliseconds(kWait + 1);
  updater->UpdateCell(100, 100, true);
  quiet.Announce();
  quiet.clock.AdvanceMilliseconds(kWait + 1);
  quiet.Announce();
  updater->UpdateCell(2, 4, false);
  quiet.Expect(2.0, 1.0, 2.5, 1.5, false);
}

TEST(DtmBufferedUpdater, AnAreaSpansItsCells) {
  QuietModel quiet;
  DtmBufferedUpdater updater(quiet.model.get(), kWait);
  updater.UpdateArea(-8, 16, true);
  quiet.Expect(8.0, -4.0, 12.0, 0.0, true);
}

TEST(DtmBufferedUpdater, CellsAndAreasAreGatheredTogether) {
  QuietModel quiet;
  auto updater = MakeGathering(quiet);
  updater->UpdateCell(20, 3, false);
  updater->UpdateArea(-8, 16, false);
  EXPECT_FALSE(quiet.HasRect());
  updater.reset();
  ASSERT_EQ(quiet.listener->heard.size(), 1U);
  const Page rect = quiet.listener->heard[0].rect;
  EXPECT_EQ(rect.left(), 1.5);
  EXPECT_EQ(rect.bottom(), -4.0);
  EXPECT_EQ(rect.right(), 12.0);
  EXPECT_EQ(rect.top(), 10.5);
}

TEST(DtmBufferedUpdater, AFlagAmongManyWithoutSurvivesToTheHandingOn) {
  QuietModel quiet;
  const auto updater = MakeGathering(quiet);
  for (int i = 0; i < 100; ++i) updater->UpdateCell(i, i, i == 50);
  EXPECT_FALSE(quiet.HasRect());
  quiet.clock.AdvanceMilliseconds(kWait + 1);
  quiet.Announce();
  updater->UpdateCell(0, 0, false);
  quiet.Expect(0, 0, 50.0, 50.0, true);
  quiet.Announce();
  quiet.clock.AdvanceMilliseconds(kWait + 1);
  quiet.Announce();
  updater->UpdateCell(0, 0, false);
  quiet.Expect(0, 0, 0.5, 0.5, false);
}

TEST(DtmBufferedUpdater, ACloneReportsWhatItsOriginalHadGatheredAsWell) {
  QuietModel quiet;
  auto updater = MakeGathering(quiet);
  updater->UpdateCell(3, -7, true);
  std::unique_ptr<DtmUpdater> clone(updater->Clone());
  updater->UpdateCell(40, 40, false);
  EXPECT_FALSE(quiet.HasRect());
  clone.reset();
  ASSERT_EQ(quiet.listener->heard.size(), 1U);
  EXPECT_EQ(quiet.listener->heard[0].rect.left(), -3.5);
  EXPECT_EQ(quiet.listener->heard[0].rect.right(), -3.0) << "and nothing that its original gathered since";
  EXPECT_TRUE(quiet.listener->heard[0].flag);
  updater.reset();
  ASSERT_EQ(quiet.listener->heard.size(), 2U);
  EXPECT_EQ(quiet.listener->heard[1].rect.left(), -3.5);
  EXPECT_EQ(quiet.listener->heard[1].rect.right(), 20.5);
  EXPECT_TRUE(quiet.listener->heard[1].flag);
}

TEST(DtmBufferedUpdater, ACloneGathersOnItsOwn) {
  QuietModel quiet;
  auto updater = MakeGathering(quiet);
  std::unique_ptr<DtmUpdater> clone(updater->Clone());
  clone->UpdateCell(7, 7, true);
  updater.reset();
  EXPECT_TRUE(quiet.listener->heard.empty());
}

TEST(DtmBufferedUpdater, ItsEndWithNothingGatheredAddsNothingButAnnouncesWhatTheModelHas) {
  QuietModel quiet;
  auto updater = MakeGathering(quiet);
  quiet.model->ResetModified();
  updater.reset();
  EXPECT_TRUE(quiet.listener->heard.empty());
  EXPECT_FALSE(quiet.model->IsModified()) << "no rectangle was added";

  updater = MakeGathering(quiet);
  quiet.model->AddUpdateRect({1, 2, 3, 4}, true);
  updater.reset();
  ASSERT_EQ(quiet.listener->heard.size(), 1U);
  EXPECT_EQ(quiet.listener->heard[0].rect.left(), 1);
  EXPECT_EQ(quiet.listener->heard[0].rect.top(), 4);
  EXPECT_TRUE(quiet.listener->heard[0].flag);
}

TEST(DtmBufferedUpdater, ItsEndHandsOnAndAnnouncesWhatIsGathered) {
  QuietModel quiet;
  auto updater = MakeGathering(quiet);
  quiet.model->ResetModified();
  updater->UpdateCell(2, 4, true);
  EXPECT_FALSE(quiet.model->IsModified());
  updater.reset();
  EXPECT_TRUE(quiet.model->IsModified());
  ASSERT_EQ(quiet.listener->heard.size(), 1U);
  EXPECT_EQ(quiet.listener->heard[0].rect.left(), 2.0);
  EXPECT_TRUE(quiet.listener->heard[0].flag);
}

TEST(DtmBufferedUpdater, AfterTheCounterHasWrappedTheNextChangeIsHandedOn) {
  QuietModel quiet(0xFFFFFFF0U);
  const auto updater = MakeGathering(quiet);
  quiet.clock.AdvanceMilliseconds(15);
  updater->UpdateCell(0, 0, false);
  EXPECT_FALSE(quiet.HasRect()) << "0xFFFFFFFF, not wrapped yet";
  quiet.clock.AdvanceMilliseconds(1);
  updater->UpdateCell(5, 5, false);
  // The model's own wait has wrapped with the same counter.
  ASSERT_EQ(quiet.listener->heard.size(), 1U);
  EXPECT_EQ(quiet.listener->heard[0].rect.right(), 3.0);
  quiet.listener->heard.clear();
  quiet.clock.AdvanceMilliseconds(kWait);
  updater->UpdateCell(0, 0, false);
  EXPECT_FALSE(quiet.HasRect()) << "and from there on it waits as ever";
}

TEST(DtmBufferedUpdater, AWaitOfNothingHandsEveryChangeOnOnceTheCounterMoves) {
  QuietModel quiet;
  DtmBufferedUpdater updater(quiet.model.get(), 0);
  for (int i = 0; i < 3; ++i) {
    quiet.clock.AdvanceMilliseconds(1);
    quiet.Announce();
    updater.UpdateCell(i, i, false);
    EXPECT_TRUE(quiet.HasRect());
  }
}

TEST(DtmBufferedUpdater, AWaitBeyondTheCountersRangeIsTheLongestOne) {
  QuietModel quiet;
  DtmBufferedUpdater updater(quiet.model.get(), std::numeric_limits<unsigned long>::max());
  quiet.clock.SetMilliseconds(0xFFFFFFFFU);
  quiet.Announce();
  updater.UpdateCell(0, 0, false);
  EXPECT_FALSE(quiet.HasRect());
}

TEST(DtmBufferedUpdater, CellsAtTheLatticesEndsAreToldAsTheyAre) {
  QuietModel quiet;
  const int largest = std::numeric_limits<int>::max() - 16;
  ASSERT_TRUE(quiet.model->IsAllowed(largest));
  auto updater = MakeGathering(quiet);
  updater->UpdateCell(largest, -largest, false);
  updater->UpdateCell(-largest, largest, false);
  updater.reset();
  ASSERT_EQ(quiet.listener->heard.size(), 1U);
  EXPECT_EQ(quiet.listener->heard[0].rect.left(), -largest * 0.5);
  EXPECT_EQ(quiet.listener->heard[0].rect.top(), (largest + 1) * 0.5);
}

TEST(DtmBufferedUpdater, SoundingsAreToldThroughTheCursor) {
  QuietModel quiet;
  DtmAccess access(quiet.model.get());
  access.SetUpdater(std::make_unique<DtmBufferedUpdater>(quiet.model.get(), kWait).release());
  EXPECT_TRUE(access.InsertValue(-0.1, 0.6, -3.0, 0, nullptr, nullptr, 0));
  quiet.Expect(-0.5, 0.5, 0.0, 1.0, false);
}

}  // namespace
}  // namespace vak::test
