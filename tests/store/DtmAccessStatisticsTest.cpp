// Soundings and given values against the formulas written out once more, to the last bit.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmCell.h"
#include "vakdtm/store/DtmFile.h"

#include "support/TestGrid.h"

namespace vak::test {
namespace {

const std::vector<int> kAll = {dVAL, iNUM, dSDV, tTIM, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX, dTVU, dTHU, uFCT};

std::vector<int> Without(std::initializer_list<int> left) {
  std::vector<int> ids = kAll;
  for (const int id : left) std::erase(ids, id);
  return ids;
}

// One cell as plain fields, all of them as they are stored.
struct Fields {
  double val = EmptyDouble(), sdv = EmptyDouble(), min = EmptyDouble(), max = EmptyDouble(), tvu = EmptyDouble(),
         thu = EmptyDouble();
  std::int32_t num = 0, tim = 0;
  float xmn = EmptyFloat(), ymn = EmptyFloat(), xmx = EmptyFloat(), ymx = EmptyFloat();
  std::uint32_t fct = 0;
};

struct Sounding {
  double x, y, z;
  long long time;
  const float* tvu;
  const float* thu;
  int file;
};

bool Has(const std::vector<int>& ids, int id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); }

// The formulas, with no eye on how the cursor does it.
void Insert(Fields& f, const std::vector<int>& ids, double c, const Sounding& s) {
  double n = 0;
  if (Has(ids, iNUM)) {
    n = f.num < 0 ? 0 : f.num;
    f.num = static_cast<std::int32_t>(n) + 1;
  }
  if (Has(ids, dVAL)) {
    const double m = f.val;
    if (n == 0 || IsEmptyValue(m)) {
      f.val = s.z;
    } else {
      const double product = n * m;
      const double sum = product + s.z;
      const double mean = sum / (n + 1);
      f.val = mean;
      if (Has(ids, dSDV)) {
        double q = 0;
        if (n == 1 || IsEmptyValue(f.sdv)) {
          q = m * m;
        } else {
          double first = f.sdv * f.sdv;
          first = first * (n - 1);
          double second = m * m;
          second = second * n;
          q = first + second;
        }
        const double plus = s.z * s.z;
        double minus = mean * mean;
        minus = minus * (n + 1);
        q = q + plus;
        q = q - minus;
        f.sdv = std::sqrt((q > 0 ? q : 0.0) / n);
      }
    }
  }
  const auto dx = static_cast<float>(s.x - (std::floor(s.x / c) + 0.5) * c);
  const auto dy = static_cast<float>(s.y - (std::floor(s.y / c) + 0.5) * c);
  if (Has(ids, dMIN) && (IsEmptyValue(f.min) || f.min > s.z)) {
    f.min = s.z;
    if (Has(ids, fXMN) && Has(ids, fYMN)) {
      f.xmn = dx;
      f.ymn = dy;
    }
  }
  if (Has(ids, dMAX) && (IsEmptyValue(f.max) || f.max < s.z)) {
    f.max = s.z;
    if (Has(ids, fXMX) && Has(ids, fYMX)) {
      f.xmx = dx;
      f.ymx = dy;
    }
  }
  if (Has(ids, tTIM) && s.time > static_cast<long long>(f.tim)) {
    f.tim = static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<unsigned long long>(s.time)));
  }
  const auto mix = [&](double& u, const float* given) {
    if (!given) return;
    u = u == 0.0 || IsEmptyValue(u) ? static_cast<double>(*given) : (n * u + *given) / (n + 1);
  };
  if (Has(ids, dTVU)) mix(f.tvu, s.tvu);
  if (Has(ids, dTHU)) mix(f.thu, s.thu);
  if (Has(ids, uFCT)) f.fct |= 1U << (std::llabs(static_cast<long long>(s.file)) % 32);
}

void Replace(Fields& f, const std::vector<int>& ids, double c, const Sounding& s) {
  const auto dx = static_cast<float>(s.x - (std::floor(s.x / c) + 0.5) * c);
  const auto dy = static_cast<float>(s.y - (std::floor(s.y / c) + 0.5) * c);
  const bool minOffsets = Has(ids, dMIN) && Has(ids, fXMN) && Has(ids, fYMN);
  const bool maxOffsets = Has(ids, dMAX) && Has(ids, fXMX) && Has(ids, fYMX);
  if (Has(ids, iNUM)) f.num = 1;
  if (Has(ids, dVAL)) f.val = s.z;
  f.sdv = f.min = f.max = EmptyDouble();
  if (minOffsets) f.xmn = dx;
  if (minOffsets) f.ymn = dy;
  if (maxOffsets) f.xmx = dx;
  if (maxOffsets) f.ymx = dy;
  if (Has(ids, tTIM)) f.tim = static_cast<std::int32_t>(s.time);
  if (Has(ids, dTVU)) f.tvu = s.tvu ? *s.tvu : EmptyDouble();
  if (Has(ids, dTHU)) f.thu = s.thu ? *s.thu : EmptyDouble();
  if (Has(ids, uFCT)) f.fct = 1U << (std::llabs(static_cast<long long>(s.file)) % 32);
}

class Statistics : public TestGrid {
 public:
  explicit Statistics(std::vector<int> ids = kAll, double cellSize = 0.7)
      : TestGrid({.cellSize = cellSize, .areaSize = 2, .blockIds = ids}), ids_(std::move(ids)) {}

  bool Insert(const Sounding& s) { return Access().InsertValue(s.x, s.y, s.z, s.time, s.tvu, s.thu, s.file); }
  bool SetValue(const Sounding& s) { return Access().SetValue(s.x, s.y, s.z, s.time, s.tvu, s.thu, s.file); }

  // The cell's bits in the blocks that there are; the others as they start.
  Fields Read(int row, int col) {
    Fields f;
    Take(row, col, dVAL, f.val);
    Take(row, col, iNUM, f.num);
    Take(row, col, dSDV, f.sdv);
    Take(row, col, tTIM, f.tim);
    Take(row, col, dMIN, f.min);
    Take(row, col, dMAX, f.max);
    Take(row, col, fXMN, f.xmn);
    Take(row, col, fYMN, f.ymn);
    Take(row, col, fXMX, f.xmx);
    Take(row, col, fYMX, f.ymx);
    Take(row, col, dTVU, f.tvu);
    Take(row, col, dTHU, f.thu);
    Take(row, col, uFCT, f.fct);
    return f;
  }
  template <typename T>
  void Put(int row, int col, int id, T value) {
    DtmArea* const area = File().GetArea(row, col, true);
    DtmDataBlock* const block = area->OpenDataBlock(id);
    *DtmCell<T>(block, area->CalcCell(row, col)) = value;
    block->SetModified();
    block->Close();
  }
  bool IsModified(int id) {
    DtmDataBlock* const block = Area(0, 0)->OpenDataBlock(id);
    const bool modified = block->IsModified();
    block->Close();
    return modified;
  }

 private:
  template <typename T>
  void Take(int row, int col, int id, T& value) {
    if (!Has(ids_, id)) return;
    DtmArea* const area = Area(row, col);
    DtmDataBlock* const block = area->OpenDataBlock(id);
    value = *DtmCell<T>(block, area->CalcCell(row, col));
    block->Close();
  }

  std::vector<int> ids_;
};

template <typename T>
std::string Bits(T value) {
  std::string text = std::to_string(value) + " ";
  for (const std::uint8_t byte : std::bit_cast<std::array<std::uint8_t, sizeof(T)>>(value)) {
    text += std::to_string(byte) + ".";
  }
  return text;
}

void ExpectSame(const Fields& got, const Fields& expected) {
  EXPECT_EQ(got.num, expected.num);
  EXPECT_EQ(Bits(got.val), Bits(expected.val));
  EXPECT_EQ(Bits(got.sdv), Bits(expected.sdv));
  EXPECT_EQ(Bits(got.min), Bits(expected.min));
  EXPECT_EQ(Bits(got.max), Bits(expected.max));
  EXPECT_EQ(got.tim, expected.tim);
  EXPECT_EQ(Bits(got.xmn), Bits(expected.xmn));
  EXPECT_EQ(Bits(got.ymn), Bits(expected.ymn));
  EXPECT_EQ(Bits(got.xmx), Bits(expected.xmx));
  EXPECT_EQ(Bits(got.ymx), Bits(expected.ymx));
  EXPECT_EQ(Bits(got.tvu), Bits(expected.tvu));
  EXPECT_EQ(Bits(got.thu), Bits(expected.thu));
  EXPECT_EQ(got.fct, expected.fct);
}

// ---- InsertValue, sentence by sentence

TEST(DtmAccessInsertValue, FirstSoundingInANewCell) {
  Statistics grid;
  ASSERT_TRUE(grid.Insert({0.3, 0.6, -7.5, 100, nullptr, nullptr, 0}));
  const Fields f = grid.Read(0, 0);
  EXPECT_EQ(f.num, 1);
  EXPECT_EQ(f.val, -7.5);
  EXPECT_TRUE(IsEmptyValue(f.sdv));
  EXPECT_EQ(f.min, -7.5);
  EXPECT_EQ(f.max, -7.5);
  for (const float x : {f.xmn, f.xmx}) EXPECT_EQ(x, static_cast<float>(0.3 - 0.35));
  for (const float y : {f.ymn, f.ymx}) EXPECT_EQ(y, static_cast<float>(0.6 - 0.35));
  EXPECT_EQ(f.tim, 100);
  EXPECT_TRUE(IsEmptyValue(f.tvu));
  EXPECT_TRUE(IsEmptyValue(f.thu));
  EXPECT_EQ(f.fct, 1u);
}

TEST(DtmAccessInsertValue, SecondSoundingGivesTheDeviationOfBoth) {
  for (const auto& [z1, z2] : {std::pair(-7.5, -7.25), {3.0, 3.0}, {-1e8, -1e8 + 1}, {0.1, 0.2}}) {
    Statistics grid;
    ASSERT_TRUE(grid.Insert({0.3, 0.6, z1, 0, nullptr, nullptr, 0}));
    ASSERT_TRUE(grid.Insert({0.3, 0.6, z2, 0, nullptr, nullptr, 0}));
    const double mean = (1.0 * z1 + z2) / 2.0;
    const Fields f = grid.Read(0, 0);
    EXPECT_EQ(f.num, 2);
    EXPECT_EQ(f.val, mean);
    EXPECT_EQ(f.sdv, std::sqrt(std::max(0.0, z1 * z1 + z2 * z2 - mean * mean * 2.0)));
  }
}

TEST(DtmAccessInsertValue, DeviationIsThatOfTheSampleWithDivisorN) {
  Statistics grid;
  std::vector<double> zs;
  for (int i = 0; i < 50; ++i) {
    zs.push_back(-20 + std::sin(i) * 0.5);
    ASSERT_TRUE(grid.Insert({0.3, 0.6, zs.back(), 0, nullptr, nullptr, 0}));
  }
  double mean = 0;
  for (const double z : zs) mean += z / 50;
  double squares = 0;
  for (const double z : zs) squares += (z - mean) * (z - mean);
  EXPECT_NEAR(grid.Get(0, 0, dVAL), mean, 1e-12);
  EXPECT_NEAR(grid.Get(0, 0, dSDV), std::sqrt(squares / 49), 1e-9);
}

TEST(DtmAccessInsertValue, AModelWithoutHitCountOverwritesTheMean) {
  Statistics grid(Without({iNUM}));
  for (const double z : {-3.0, -5.0, -4.0}) {
    ASSERT_TRUE(grid.Insert({0.3, 0.6, z, 0, nullptr, nullptr, 0}));
    EXPECT_EQ(grid.Get(0, 0, dVAL), z);
    EXPECT_TRUE(IsEmptyValue(grid.Get(0, 0, dSDV))) << "and there is never a deviation";
  }
  EXPECT_EQ(grid.Get(0, 0, dMIN), -5);
  EXPECT_EQ(grid.Get(0, 0, dMAX), -3);
}

TEST(DtmAccessInsertValue, NegativeHitCountOfAFilledCellCountsAsNone) {
  Statistics grid;
  grid.Put(0, 0, iNUM, -1);
  grid.Put(0, 0, dVAL, -9.0);
  ASSERT_TRUE(grid.Insert({0.3, 0.6, -2, 0, nullptr, nullptr, 0}));
  EXPECT_EQ(grid.Get(0, 0, iNUM), 1);
  EXPECT_EQ(grid.Get(0, 0, dVAL), -2);
}

TEST(DtmAccessInsertValue, OlderAndEqualTimesLeaveTheTimeAsItWas) {
  Statistics grid;
  const auto at = [&](long long time) {
    EXPECT_TRUE(grid.Insert({0.3, 0.6, 0, time, nullptr, nullptr, 0}));
    return grid.Read(0, 0).tim;
  };
  EXPECT_EQ(at(-5), 0) << "an empty cell holds 0";
  EXPECT_EQ(at(1000), 1000);
  EXPECT_EQ(at(999), 1000);
  EXPECT_EQ(at(1000), 1000);
  EXPECT_EQ(at(1001), 1001);
  EXPECT_EQ(at(0x100000005LL), 5) << "compared in 64 bits, the low 32 stored";
  grid.Put(0, 0, tTIM, -100);
  EXPECT_EQ(at(-101), -100) << "the stored one as a signed value";
  EXPECT_EQ(at(-99), -99);
}

TEST(DtmAccessInsertValue, TimeThatDidntMoveDoesntMarkTheBlock) {
  Statistics grid;
  ASSERT_TRUE(grid.Insert({0.3, 0.6, 0, 50, nullptr, nullptr, 0}));
  ASSERT_TRUE(grid.Area(0, 0)->SyncWrite());
  ASSERT_TRUE(grid.Insert({0.3, 0.6, 0, 50, nullptr, nullptr, 0}));
  for (const int id : {iNUM, dVAL, dSDV, uFCT}) EXPECT_TRUE(grid.IsModified(id)) << DtmBlockId(id).BlockIndex();
  for (const int id : {tTIM, dMIN, dMAX, fXMN, fYMN, fXMX, fYMX, dTVU, dTHU}) {
    EXPECT_FALSE(grid.IsModified(id)) << DtmBlockId(id).BlockIndex();
  }
}

TEST(DtmAccessInsertValue, FileIndexSetsTheBitOfItsAbsoluteValueModulo32) {
  struct Case {
    int file;
    std::uint32_t bits;
  };
  const Case cases[] = {{-3, 1U << 3},
                        {0, 1},
                        {31, 1U << 31},
                        {32, 1},
                        {33, 2},
                        {-32, 1},
                        {std::numeric_limits<int>::min(), 1},
                        {std::numeric_limits<int>::max(), 1U << 31}};
  for (const Case& one : cases) {
    Statistics grid;
    ASSERT_TRUE(grid.Insert({0.3, 0.6, 0, 0, nullptr, nullptr, one.file}));
    EXPECT_EQ(grid.Read(0, 0).fct, one.bits) << one.file;
  }
  Statistics grid;
  for (const int file : {1, 5, 5, 37, -9}) ASSERT_TRUE(grid.Insert({0.3, 0.6, 0, 0, nullptr, nullptr, file}));
  EXPECT_EQ(grid.Read(0, 0).fct, (1U << 1) | (1U << 5) | (1U << 9));
  EXPECT_EQ(grid.Get(0, 0, uFCT), 3);
}

TEST(DtmAccessInsertValue, UncertaintiesAreMeansWithTheHitCountAsWeight) {
  Statistics grid;
  const float half = 0.5F;
  const float two = 2.0F;
  const float none = 0.0F;
  ASSERT_TRUE(grid.Insert({0.3, 0.6, 0, 0, nullptr, &none, 0}));
  EXPECT_TRUE(IsEmptyValue(grid.Read(0, 0).tvu));
  ASSERT_TRUE(grid.Insert({0.3, 0.6, 0, 0, &half, &two, 0}));
  EXPECT_EQ(grid.Read(0, 0).tvu, 0.5) << "the first one as it is";
  EXPECT_EQ(grid.Read(0, 0).thu, 2.0) << "a stored 0 counts as no value";
  ASSERT_TRUE(grid.Insert({0.3, 0.6, 0, 0, &two, nullptr, 0}));
  EXPECT_EQ(grid.Read(0, 0).tvu, (2 * 0.5 + 2.0) / 3) << "all soundings so far have weight";
  EXPECT_EQ(grid.Read(0, 0).thu, 2.0);
}

TEST(DtmAccessInsertValue, EqualExtremesKeepTheOffsetsOfTheFirst) {
  Statistics grid;
  ASSERT_TRUE(grid.Insert({0.1, 0.1, -3, 0, nullptr, nullptr, 0}));
  const Fields first = grid.Read(0, 0);
  ASSERT_TRUE(grid.Insert({0.6, 0.6, -3, 0, nullptr, nullptr, 0}));
  EXPECT_EQ(grid.Read(0, 0).xmn, first.xmn);
  EXPECT_EQ(grid.Read(0, 0).ymx, first.ymx);
  ASSERT_TRUE(grid.Insert({0.6, 0.6, -4, 0, nullptr, nullptr, 0}));
  EXPECT_NE(grid.Read(0, 0).xmn, first.xmn);
  EXPECT_EQ(grid.Read(0, 0).xmx, first.xmx);
}

TEST(DtmAccessInsertValue, OffsetsNeedBothOfTheirBlocks) {
  for (const int left : {fXMN, fYMN, fXMX, fYMX}) {
    Statistics grid(Without({left}));
    ASSERT_TRUE(grid.Insert({0.1, 0.1, -3, 0, nullptr, nullptr, 0}));
    const Fields f = grid.Read(0, 0);
    const bool lowest = left == fXMN || left == fYMN;
    EXPECT_EQ(IsEmptyValue(f.xmn) && IsEmptyValue(f.ymn), lowest);
    EXPECT_EQ(IsEmptyValue(f.xmx) && IsEmptyValue(f.ymx), !lowest);
  }
}

TEST(DtmAccessInsertValue, RangeOfTheAreaIsWidenedByTheNarrowedHeight) {
  Statistics grid;
  float lo = 0;
  float hi = 0;
  ASSERT_TRUE(grid.Insert({0.1, 0.1, -3.1, 0, nullptr, nullptr, 0}));
  ASSERT_TRUE(grid.Insert({0.9, 0.1, 2.7, 0, nullptr, nullptr, 0}));
  ASSERT_TRUE(grid.Area(0, 0)->GetMinMaxZ(lo, hi));
  EXPECT_EQ(lo, static_cast<float>(-3.1));
  EXPECT_EQ(hi, static_cast<float>(2.7));
}

TEST(DtmAccessInsertValue, NothingReachesTheFileBeforeTheBlocksAreReleased) {
  Statistics grid;
  ASSERT_TRUE(grid.Insert({0.1, 0.1, -3.1, 5, nullptr, nullptr, 0}));
  const std::uint64_t writes = grid.Memory().counts.writes;
  ASSERT_TRUE(grid.Insert({0.1, 0.1, -3.2, 0, nullptr, nullptr, 0}));
  EXPECT_EQ(grid.Memory().counts.writes, writes);
  grid.Leave();
  EXPECT_EQ(grid.Memory().counts.writes, writes + 11) << "all but the two uncertainties, in which nothing was stored";
}

TEST(DtmAccessInsertValue, EverySequenceGivesTheBitsOfTheFormulas) {
  std::mt19937_64 rng(4711);
  const auto random = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
  std::vector<std::pair<std::string, std::vector<int>>> models = {{"all", kAll}};
  for (const int id : kAll)
    models.emplace_back("without " + std::to_string(DtmBlockId(id).BlockIndex()), Without({id}));
  for (const int id : kAll) models.emplace_back("only " + std::to_string(DtmBlockId(id).BlockIndex()), std::vector{id});
  models.emplace_back("the ten defaults", Without({dTVU, dTHU, uFCT}));
  std::vector<int> backwards(kAll.rbegin(), kAll.rend());
  models.emplace_back("backwards", backwards);
  int soundings = 0;
  for (const auto& [name, ids] : models) {
    SCOPED_TRACE(name);
    Statistics grid(ids);
    std::map<std::pair<int, int>, Fields> model;
    for (int i = 0; i < 400; ++i) {
      const float tvu = rng() % 5 == 0 ? 0.0F : static_cast<float>(random(0, 2));
      const float thu = static_cast<float>(random(0, 5));
      const Sounding s{random(-1.4, 1.4),
                       random(-1.4, 1.4),
                       rng() % 7 == 0 ? -10.0 : random(-11, -9),
                       static_cast<long long>(rng() % 100),
                       rng() % 3 == 0 ? nullptr : &tvu,
                       rng() % 3 == 0 ? nullptr : &thu,
                       static_cast<int>(rng() % 80) - 40};
      ASSERT_TRUE(grid.Insert(s));
      const std::pair cell(static_cast<int>(std::floor(s.y / 0.7)), static_cast<int>(std::floor(s.x / 0.7)));
      Insert(model[cell], ids, 0.7, s);
      ExpectSame(grid.Read(cell.first, cell.second), model[cell]);
      ++soundings;
      if (testing::Test::HasFailure()) return;
      if (i == 200) grid.Reopen();
    }
    EXPECT_GE(model.size(), 12u);
  }
  EXPECT_EQ(soundings, 400 * 29);
}

TEST(DtmAccessInsertValue, StoredStatesThatSoundingsNeverLeaveFollowTheFormulasToo) {
  struct Case {
    const char* name;
    int num;
    double val, sdv;
  };
  const Case cases[] = {{"count without mean", 5, EmptyDouble(), 1},
                        {"mean without count", 0, -9, 1},
                        {"count without deviation", 5, -9, EmptyDouble()},
                        {"deviation with one sounding", 1, -9, 3},
                        {"deviation no number", 5, -9, std::numeric_limits<double>::quiet_NaN()},
                        {"deviation too large", 5, -9, 1e200},
                        {"count negative", -7, -9, 1}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Statistics grid;
    grid.Put(0, 0, iNUM, one.num);
    grid.Put(0, 0, dVAL, one.val);
    grid.Put(0, 0, dSDV, one.sdv);
    Fields expected;
    expected.num = one.num;
    expected.val = one.val;
    expected.sdv = one.sdv;
    const Sounding s{0.1, 0.1, -8, 3, nullptr, nullptr, 2};
    ASSERT_TRUE(grid.Insert(s));
    Insert(expected, kAll, 0.7, s);
    ExpectSame(grid.Read(0, 0), expected);
  }
}

// ---- What is refused

TEST(DtmAccessInsertValue, WhatIsNotFiniteOrOutsideIsRefusedAndChangesNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  const double end = 2147483647.0 - 4;  // area size 2, cell size 1
  struct Case {
    const char* name;
    double x, y, z;
  };
  const Case cases[] = {
      {"x no number", nan, 0, 0},          {"y no number", 0, nan, 0},      {"z no number", 0, 0, nan},
      {"x infinite", infinity, 0, 0},      {"y infinite", 0, -infinity, 0}, {"z infinite", 0, 0, infinity},
      {"x outside", end + 1, 0, 0},        {"y outside", 0, end + 1, 0},    {"x outside below", -end - 1, 0, 0},
      {"y outside below", 0, -end - 1, 0}, {"x far outside", 1e300, 0, 0},  {"y far outside", 0, -1e300, 0}};
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Statistics grid(kAll, 1.0);
    const std::size_t size = grid.Bytes().size();
    EXPECT_FALSE(grid.Insert({one.x, one.y, one.z, 0, nullptr, nullptr, 0}));
    EXPECT_FALSE(grid.SetValue({one.x, one.y, one.z, 0, nullptr, nullptr, 0}));
    EXPECT_EQ(grid.File().NumAreas(), 0);
    EXPECT_EQ(grid.Bytes().size(), size);
  }
  Statistics grid(kAll, 1.0);
  EXPECT_TRUE(grid.Insert({end, -end, -1, 0, nullptr, nullptr, 0})) << "the last ones allowed";
}

TEST(DtmAccessInsertValue, AreaWhoseBlocksCantAllBeReadIsRefusedAndChangesNothing) {
  for (int reads = 0; reads < 14; ++reads) {
    Statistics grid;
    ASSERT_TRUE(grid.Insert({0.1, 0.1, -3, 0, nullptr, nullptr, 0}));
    const float u = 1;
    ASSERT_TRUE(grid.Insert({0.1, 0.1, -4, 9, &u, &u, 0}));
    grid.Reopen();
    const Fields before = grid.Read(0, 0);
    grid.Reopen();
    grid.Memory().failReadsFrom = grid.Memory().counts.reads + static_cast<std::uint64_t>(reads);
    const bool done = grid.Insert({0.1, 0.1, -5, 0, nullptr, nullptr, 0});
    const bool failed = grid.Memory().counts.reads > grid.Memory().failReadsFrom;
    EXPECT_EQ(done, !failed);
    grid.Memory().failReadsFrom = ~std::uint64_t{0};
    if (done) continue;
    grid.Reopen();
    ExpectSame(grid.Read(0, 0), before);
  }
}

// ---- SetValue

TEST(DtmAccessSetValue, ReplacesEveryStatistic) {
  Statistics grid;
  const float u = 0.25F;
  for (const double z : {-3.0, -5.0}) ASSERT_TRUE(grid.Insert({0.1, 0.1, z, 1000, &u, &u, 4}));
  ASSERT_TRUE(grid.SetValue({0.5, 0.2, -8, 10, &u, nullptr, -33}));
  const Fields f = grid.Read(0, 0);
  EXPECT_EQ(f.num, 1);
  EXPECT_EQ(f.val, -8);
  EXPECT_TRUE(IsEmptyValue(f.sdv));
  EXPECT_TRUE(IsEmptyValue(f.min)) << "z is not stored as an extreme";
  EXPECT_TRUE(IsEmptyValue(f.max));
  for (const float x : {f.xmn, f.xmx}) EXPECT_EQ(x, static_cast<float>(0.5 - 0.35));
  for (const float y : {f.ymn, f.ymx}) EXPECT_EQ(y, static_cast<float>(0.2 - 0.35));
  EXPECT_EQ(f.tim, 10) << "whatever was there";
  EXPECT_EQ(f.tvu, 0.25);
  EXPECT_TRUE(IsEmptyValue(f.thu));
  EXPECT_EQ(f.fct, 2u) << "exactly the one bit";
}

TEST(DtmAccessSetValue, StoresLowBitsOfTheTime) {
  Statistics grid;
  ASSERT_TRUE(grid.SetValue({0.1, 0.1, 0, 0x1FFFFFFFELL, nullptr, nullptr, 0}));
  EXPECT_EQ(grid.Read(0, 0).tim, -2);
}

TEST(DtmAccessSetValue, EveryModelGivesTheBitsOfTheFormulas) {
  std::mt19937_64 rng(99);
  std::vector<std::vector<int>> models = {kAll};
  for (const int id : kAll) models.push_back(id == dMAX ? Without({dMAX, dTVU, dTHU}) : Without({id}));
  for (const std::vector<int>& ids : models) {
    Statistics grid(ids);
    Fields expected;
    for (int i = 0; i < 40; ++i) {
      const float u = static_cast<float>(rng() % 100);
      const Sounding s{0.01 * static_cast<double>(rng() % 70),
                       0.01 * static_cast<double>(rng() % 70),
                       -0.1 * static_cast<double>(rng() % 100),
                       static_cast<long long>(rng() % 1000),
                       rng() % 2 ? &u : nullptr,
                       rng() % 2 ? &u : nullptr,
                       static_cast<int>(rng() % 64) - 32};
      if (rng() % 2) {
        ASSERT_TRUE(grid.SetValue(s));
        Replace(expected, ids, 0.7, s);
      } else {
        ASSERT_TRUE(grid.Insert(s));
        Insert(expected, ids, 0.7, s);
      }
      ExpectSame(grid.Read(0, 0), expected);
    }
  }
}

TEST(DtmAccessSetValue, MarkForUncertaintiesGoesOnTheBlockOfTheHighest) {
  Statistics grid({dMAX, dTVU, dTHU});
  grid.File().GetArea(0, 0, true);
  const float u = 1;
  ASSERT_TRUE(grid.SetValue({0.1, 0.1, 0, 0, &u, &u, 0}));
  EXPECT_TRUE(grid.IsModified(dMAX));
  EXPECT_FALSE(grid.IsModified(dTVU));
  EXPECT_FALSE(grid.IsModified(dTHU));
}

// Nobody can tell that the block holds something: where all that is marked is cleared, the area goes, and that with it.
TEST(DtmAccessSetValue, AnAreaWithoutAnythingElseGoesWithItsUncertainties) {
  Statistics grid({dMAX, dTHU});
  const float u = 1;
  ASSERT_TRUE(grid.SetValue({0.1, 0.1, 0, 0, nullptr, &u, 0}));
  ASSERT_TRUE(grid.Access().ClearCellData(1, 1, dMAX));
  EXPECT_FALSE(grid.Area(0, 0)->IsEmpty()) << "the cursor is still in it";
  ASSERT_TRUE(grid.SetValue({-0.1, 0.1, 0, 0, nullptr, nullptr, 0}));
  EXPECT_TRUE(grid.Area(0, 0)->IsEmpty());
  EXPECT_EQ(grid.Read(0, 0).thu, 1.0) << "in memory";
}

TEST(DtmAccessSetValue, MarksEveryOtherBlock) {
  Statistics grid;
  ASSERT_TRUE(grid.SetValue({0.1, 0.1, 0, 0, nullptr, nullptr, 0}));
  for (const int id : Without({dTVU, dTHU})) EXPECT_TRUE(grid.IsModified(id)) << DtmBlockId(id).BlockIndex();
}

TEST(DtmAccessSetValue, WithUncertaintiesAndNoHighestAnswersFalseBeforeChangingAnything) {
  for (const std::vector<int>& ids : {Without({dMAX}), Without({dMAX, dTVU}), Without({dMAX, dTHU})}) {
    Statistics grid(ids);
    const std::size_t size = grid.Bytes().size();
    EXPECT_FALSE(grid.SetValue({0.1, 0.1, 0, 0, nullptr, nullptr, 0}));
    EXPECT_EQ(grid.File().NumAreas(), 0);
    EXPECT_EQ(grid.Bytes().size(), size);
    EXPECT_TRUE(grid.Insert({0.1, 0.1, 0, 0, nullptr, nullptr, 0})) << "soundings are no matter";
  }
  Statistics without(Without({dMAX, dTVU, dTHU}));
  EXPECT_TRUE(without.SetValue({0.1, 0.1, 0, 0, nullptr, nullptr, 0}));
}

TEST(DtmAccessSetValue, RangeOfTheAreaIsWidened) {
  Statistics grid;
  ASSERT_TRUE(grid.SetValue({0.1, 0.1, -6.3, 0, nullptr, nullptr, 0}));
  float lo = 0;
  float hi = 0;
  ASSERT_TRUE(grid.Area(0, 0)->GetMinMaxZ(lo, hi));
  EXPECT_EQ(lo, static_cast<float>(-6.3));
  EXPECT_EQ(hi, static_cast<float>(-6.3));
}

}  // namespace
}  // namespace vak::test
