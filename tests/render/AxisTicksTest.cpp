#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/render/AxisTicks.h"

#include "PlainMeasure.h"
#include "support/RandomSeed.h"

namespace vak {
namespace {

using test::PlainMeasure;
using testing::ElementsAre;

std::vector<std::wstring> Labels(const AxisTicks& ticks) {
  std::vector<std::wstring> labels;
  for (const AxisTick& tick : ticks.ticks) {
    if (!tick.label.empty()) labels.push_back(tick.label);
  }
  return labels;
}

AxisTicks::Span SpanOf(double start, double end, int length) {
  AxisTicks::Span span;
  span.start = start;
  span.end = end;
  span.length = length;
  span.fontHeight = 10;
  return span;
}

TEST(AxisTicks, StandAtRoundNumbers) {
  AxisTicks::Span span = SpanOf(499980, 500430, 900);
  span.before = span.behind = 20;
  const AxisTicks found = AxisTicks::Find(span, PlainMeasure);
  EXPECT_EQ(found.step, 50);
  EXPECT_FALSE(found.across);
  EXPECT_THAT(Labels(found), ElementsAre(L"500000", L"500050", L"500100", L"500150", L"500200", L"500250", L"500300",
                                         L"500350", L"500400"));
  EXPECT_DOUBLE_EQ(found.ticks.front().at, 40);
  EXPECT_EQ(found.Depth(), 12);
}

TEST(AxisTicks, WhoseLabelWouldBeCutHaveNone) {
  const AxisTicks found = AxisTicks::Find(SpanOf(0, 100, 500), PlainMeasure);
  ASSERT_EQ(found.step, 10);
  ASSERT_EQ(found.ticks.size(), 11U);
  EXPECT_EQ(found.ticks.front().label, L"") << "half of it would stick out in front";
  EXPECT_EQ(found.ticks.back().label, L"");
  EXPECT_EQ(found.NumLabels(), 9);
}

TEST(AxisTicks, AnEndThatIsRoundButForRoundingHasOne) {
  const AxisTicks::Span span = SpanOf(0.3, std::nextafter(1000.0, 0.0), 1000);
  const AxisTicks found = AxisTicks::Find(span, PlainMeasure);
  EXPECT_EQ(found.ticks.back().value, 1000);
  EXPECT_LE(found.ticks.back().at, 1000);
}

TEST(AxisTicks, ThinOutWhereLabelsAreWide) {
  AxisTicks::Span span = SpanOf(5000000, 5001000, 400);
  span.lie = AxisTicks::Lie::kAlong;
  const AxisTicks found = AxisTicks::Find(span, PlainMeasure);
  // 42 pixels wide and 12 apart: 100 m have 40 pixels, 200 m 80.
  EXPECT_EQ(found.step, 200);
}

TEST(AxisTicks, LieAcrossWhereFewerThanTwoHaveRoomAlong) {
  const AxisTicks found = AxisTicks::Find(SpanOf(5000000, 5000100, 90), PlainMeasure);
  EXPECT_TRUE(found.across);
  EXPECT_GE(found.NumLabels(), 2);
  EXPECT_EQ(found.Depth(), 42);
  AxisTicks::Span span = SpanOf(5000000, 5000100, 90);
  span.lie = AxisTicks::Lie::kAlong;
  EXPECT_FALSE(AxisTicks::Find(span, PlainMeasure).across);
}

TEST(AxisTicks, BetweenTwoRoundNumbersFinerOnesAreFound) {
  // No multiple of a step that suits 40 pixels lies in there.
  const AxisTicks found = AxisTicks::Find(SpanOf(1003, 1017, 40), PlainMeasure);
  EXPECT_GE(found.NumLabels(), 1);
}

TEST(AxisTicks, OfAnAxisThatFallsRiseAsWell) {
  AxisTicks::Span span = SpanOf(-5, -20, 300);
  span.lie = AxisTicks::Lie::kAcross;
  span.before = span.behind = 10;
  const AxisTicks found = AxisTicks::Find(span, PlainMeasure);
  ASSERT_GE(found.ticks.size(), 2U);
  EXPECT_LT(found.ticks.front().value, found.ticks.back().value);
  EXPECT_GT(found.ticks.front().at, found.ticks.back().at);
  for (const AxisTick& tick : found.ticks) EXPECT_NEAR(tick.at, (-5 - tick.value) / 15 * 300, 1e-9);
}

TEST(AxisTicks, NoStepIsBelowTheSmallestThatIsAskedFor) {
  AxisTicks::Span span = SpanOf(0, 1000, 1000);
  span.smallestStep = 200;
  EXPECT_EQ(AxisTicks::Find(span, PlainMeasure).step, 200);
}

TEST(AxisTicks, ThereAreNoneWhereThereIsNoAxis) {
  EXPECT_TRUE(AxisTicks::Find(SpanOf(1, 1, 100), PlainMeasure).ticks.empty());
  EXPECT_TRUE(AxisTicks::Find(SpanOf(0, 1, 0), PlainMeasure).ticks.empty());
  EXPECT_TRUE(AxisTicks::Find(SpanOf(1e17, 1e17 + 32, 500), PlainMeasure).ticks.size() < 10);
  EXPECT_TRUE(AxisTicks::Find(SpanOf(0, std::numeric_limits<double>::infinity(), 500), PlainMeasure).ticks.empty());
}

TEST(AxisTicks, LabelsHaveTheDecimalsOfTheStepAndATrueMinus) {
  EXPECT_EQ(TickLabel(-12.5, 0.5), L"\u221212.5");
  EXPECT_EQ(TickLabel(-12, 0.5), L"\u221212.0");
  EXPECT_EQ(TickLabel(500000, 200), L"500000");
  EXPECT_EQ(TickLabel(0.125, 0.005), L"0.125");
  EXPECT_EQ(TickLabel(-0.0, 1), L"0");
  EXPECT_EQ(TickLabel(-1e-18, 0.1), L"0.0");
}

/// Whatever the axis: round multiples of one step in the range, and labels with room between them.
TEST(AxisTicks, OfAnyAxisNeitherOverlapNorStickOut) {
  const std::uint32_t seed = RandomSeed();
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> exponent(-3, 7);
  std::uniform_int_distribution<int> pixels(20, 3000);
  int labelled = 0;
  for (int round = 0; round < 400; ++round) {
    AxisTicks::Span span;
    span.start = std::pow(10.0, exponent(rng)) * (round % 3 - 1);
    span.end = span.start + std::pow(10.0, exponent(rng)) * (round % 2 == 0 ? 1 : -1);
    span.length = pixels(rng);
    span.before = pixels(rng) / 100;
    span.behind = pixels(rng) / 100;
    span.fontHeight = 8 + pixels(rng) / 100;
    span.lie = static_cast<AxisTicks::Lie>(round % 3);
    SCOPED_TRACE(std::to_string(seed) + ", round " + std::to_string(round));
    const AxisTicks found = AxisTicks::Find(span, PlainMeasure);
    std::vector<std::pair<double, double>> reaches;
    for (const AxisTick& tick : found.ticks) {
      EXPECT_GE(tick.at, -1e-6);
      EXPECT_LE(tick.at, span.length + 1e-6);
      EXPECT_NEAR(std::remainder(tick.value, found.step) / found.step, 0,
                  1e-6 + 1e-15 * std::fabs(tick.value) / found.step);
      if (tick.label.empty()) continue;
      const double half = (found.across ? tick.size.height : tick.size.width) / 2.0;
      reaches.push_back({tick.at - half, tick.at + half});
    }
    std::sort(reaches.begin(), reaches.end());
    labelled += static_cast<int>(reaches.size());
    for (std::size_t i = 0; i < reaches.size(); ++i) {
      EXPECT_GE(reaches[i].first, -span.before);
      EXPECT_LE(reaches[i].second, span.length + span.behind);
      if (i > 0) {
        EXPECT_GT(reaches[i].first, reaches[i - 1].second);
      }
    }
  }
  EXPECT_GT(labelled, 1000);
}

}  // namespace
}  // namespace vak
