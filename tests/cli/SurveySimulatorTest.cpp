#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <utility>
#include <vector>

#include "SurveySimulator.h"

namespace vak {
namespace {

constexpr int kBeams = 64;

std::vector<Sounding> Survey(std::uint64_t seed, std::uint64_t count, double hint = 1.0) {
  SurveySimulator simulator({seed, count, hint});
  std::vector<Sounding> soundings;
  soundings.reserve(count);
  for (Sounding s; simulator.Next(s);) soundings.push_back(s);
  return soundings;
}

bool Same(const Sounding& a, const Sounding& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }

/// FNV-1a over the millimetres of the first soundings.
std::uint64_t Checksum(std::uint64_t seed, std::uint64_t count, double hint) {
  SurveySimulator simulator({seed, count, hint});
  std::uint64_t sum = 14695981039346656037u;
  for (SoundingMillimetres s; simulator.Next(s);) {
    for (const std::int64_t value : {s.x, s.y, s.z}) {
      for (int shift = 0; shift < 64; shift += 8) {
        sum = (sum ^ (static_cast<std::uint64_t>(value) >> shift & 0xFF)) * 1099511628211u;
      }
    }
  }
  return sum;
}

using Cell = std::pair<long long, long long>;

Cell CellOf(const Sounding& s, double size) {
  return {static_cast<long long>(std::floor(s.y / size)), static_cast<long long>(std::floor(s.x / size))};
}

std::map<Cell, int> Counts(const std::vector<Sounding>& soundings, double size) {
  std::map<Cell, int> counts;
  for (const Sounding& s : soundings) ++counts[CellOf(s, size)];
  return counts;
}

/// Steps of the neighbouring beams of one ping away from the line between them.
double Roughness(const std::vector<Sounding>& soundings, int beam) {
  std::vector<double> steps;
  for (std::size_t i = static_cast<std::size_t>(beam); i + 1 < soundings.size(); i += kBeams) {
    steps.push_back(std::fabs(soundings[i].z - (soundings[i - 1].z + soundings[i + 1].z) / 2.0));
  }
  std::nth_element(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2), steps.end());
  return steps[steps.size() / 2];
}

TEST(SurveySimulator, EqualSeedsMakeEqualSurveysAndOthersDoNot) {
  const auto first = Survey(7, 5000);
  const auto again = Survey(7, 5000);
  const auto other = Survey(8, 5000);
  ASSERT_EQ(first.size(), 5000u);
  EXPECT_TRUE(std::equal(first.begin(), first.end(), again.begin(), again.end(), Same));
  int equal = 0;
  for (std::size_t i = 0; i < first.size(); ++i) equal += Same(first[i], other[i]);
  EXPECT_LT(equal, 5);
}

TEST(SurveySimulator, ALongerSurveyBeginsWithTheShorterOne) {
  const auto shorter = Survey(3, 40000);
  SurveySimulator endless({3, 0, 1.0});
  for (const Sounding& s : shorter) {
    Sounding next;
    ASSERT_TRUE(endless.Next(next));
    ASSERT_TRUE(Same(s, next));
  }
}

TEST(SurveySimulator, TheSurveyOfASeedNeverChanges) {
  // Benchmarks and killed writers are compared with surveys made earlier or on another machine.
  EXPECT_EQ(Checksum(1, 1000, 1.0), 1721827894782326287u);
  EXPECT_EQ(Checksum(20, 300000, 0.5), 4902372806560973471u);
}

TEST(SurveySimulator, TheEndLeavesTheSoundingAsItWas) {
  SurveySimulator simulator({1, 2, 1.0});
  Sounding s;
  ASSERT_TRUE(simulator.Next(s));
  ASSERT_TRUE(simulator.Next(s));
  const Sounding last = s;
  EXPECT_FALSE(simulator.Next(s));
  EXPECT_TRUE(Same(s, last));
  EXPECT_EQ(simulator.Made(), 2u);
}

TEST(SurveySimulator, BothKindsOfSoundingAreOneSequence) {
  SurveySimulator metres({5, 100, 1.0});
  SurveySimulator whole({5, 100, 1.0});
  SoundingMillimetres w;
  for (Sounding m; metres.Next(m);) {
    ASSERT_TRUE(whole.Next(w));
    EXPECT_EQ(m.x, static_cast<double>(w.x) / 1000.0);
    EXPECT_EQ(m.y, static_cast<double>(w.y) / 1000.0);
    EXPECT_EQ(m.z, static_cast<double>(w.z) / 1000.0);
  }
}

TEST(SurveySimulator, TwoToThreeSoundingsFallIntoAHintedCell) {
  for (const double hint : {0.05, 0.5, 1.0, 10.0, 1000.0}) {
    for (const std::uint64_t count : {std::uint64_t{30000}, std::uint64_t{400000}}) {
      SCOPED_TRACE(std::to_string(hint) + " m, " + std::to_string(count));
      // In coarse squares, half of which lie within the swaths at least, so that single holes don't matter.
      const auto counts = Counts(Survey(11, count, hint), 5.0 * hint);
      std::vector<int> sorted;
      for (const auto& [cell, number] : counts) sorted.push_back(number);
      std::sort(sorted.begin(), sorted.end());
      EXPECT_GT(sorted[sorted.size() / 2], 2.0 * 25);
      EXPECT_LT(sorted[sorted.size() / 2], 3.0 * 25);
    }
  }
}

TEST(SurveySimulator, TheTrenchHasAFlatBottom) {
  const auto soundings = Survey(2, 400000);
  std::size_t bottom = 0;
  std::size_t below = 0;
  for (const Sounding& s : soundings) {
    bottom += std::fabs(s.z + 16.5) < 0.12;
    below += s.z < -16.7;
  }
  EXPECT_GT(bottom, soundings.size() / 12);
  EXPECT_LT(below, soundings.size() / 5000);
}

TEST(SurveySimulator, TheBedBesideTheTrenchHasWavesAndBanks) {
  const auto soundings = Survey(2, 400000);
  const auto above = [&](double height) {
    return static_cast<double>(
               std::count_if(soundings.begin(), soundings.end(), [&](const Sounding& s) { return s.z > height; })) /
           static_cast<double>(soundings.size());
  };
  EXPECT_GT(above(-12.0), 0.6);
  EXPECT_GT(above(-8.0), 0.02);
  EXPECT_LT(above(-4.0), 0.01);
}

TEST(SurveySimulator, SpikesAreRare) {
  const auto soundings = Survey(4, 400000);
  int spikes = 0;
  for (std::size_t i = 1; i + 1 < soundings.size(); ++i) {
    if (i % kBeams == 0 || i % kBeams == kBeams - 1) continue;
    const double before = soundings[i].z - soundings[i - 1].z;
    const double after = soundings[i].z - soundings[i + 1].z;
    spikes += std::fabs(before) > 0.6 && std::fabs(after) > 0.6 && (before > 0) == (after > 0);
  }
  EXPECT_GT(spikes, 5);
  EXPECT_LT(spikes, 60);
}

TEST(SurveySimulator, NoiseIsCentimetresAndGrowsOutwards) {
  const auto soundings = Survey(6, 300000);
  const double inner = Roughness(soundings, kBeams / 2);
  const double outer = Roughness(soundings, 1);
  EXPECT_GT(inner, 0.004);
  EXPECT_GT(outer, 1.5 * inner);
  EXPECT_LT(outer, 0.06);
}

TEST(SurveySimulator, NeighbouringLinesOverlap) {
  const auto soundings = Survey(9, 300000);
  // A square is passed within seconds by one line; whoever comes back much later is another line.
  std::map<Cell, std::size_t> first;
  std::size_t again = 0;
  for (std::size_t i = 0; i < soundings.size(); ++i) {
    const auto [at, isNew] = first.emplace(CellOf(soundings[i], 1.0), i);
    again += !isNew && i - at->second > 20 * kBeams;
  }
  EXPECT_GT(again, soundings.size() / 40);
  EXPECT_LT(again, soundings.size() / 4);
}

TEST(SurveySimulator, GapsAreLeftBetweenLines) {
  const auto counts = Counts(Survey(9, 1000000), 2.0);
  // An empty run of 2 to 20 cells from south to north with soundings at both of its ends.
  std::map<long long, std::vector<long long>> columns;
  for (const auto& [cell, number] : counts) columns[cell.second].push_back(cell.first);
  int gaps = 0;
  for (const auto& [column, rows] : columns) {
    for (std::size_t i = 1; i < rows.size(); ++i) gaps += rows[i] - rows[i - 1] > 2 && rows[i] - rows[i - 1] < 20;
  }
  EXPECT_GT(gaps, 100);
}

TEST(SurveySimulator, CoordinatesAreProjectedMetresAndHeightsLieBelowTheWater) {
  for (const double hint : {0.05, 1.0, 10.0}) {
    SCOPED_TRACE(hint);
    for (const Sounding& s : Survey(12, 200000, hint)) {
      ASSERT_NEAR(s.x, 500000.0, 1500.0 * hint);
      ASSERT_NEAR(s.y, 5800000.0, 1500.0 * hint);
      ASSERT_LT(s.z, 0.0);
      ASSERT_GT(s.z, -22.0 * std::min(1.0, hint) - 0.2);
    }
  }
}

}  // namespace
}  // namespace vak
