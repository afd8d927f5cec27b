// Loads:
//   InsertValue/one_area    soundings anywhere in one area of 64 x 64 cells, the command's ten default blocks
//   InsertValue/one_area_updater  the same, with the updater that an import has
//   InsertValue/swath       pings of 128 beams across 64 m, line after line over 1 km x 1 km
//   InsertValue/random      anywhere in 1 km x 1 km
//   GetDoubleValue/rows     every cell of 1 km x 1 km, row by row
//   .../bare_loop           the same field updates, square roots and divisions on a plain array of structs, without
//   locks
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/DtmRectUpdater.h"

namespace vak {
namespace {

constexpr int kSoundings = 1 << 20;
constexpr int kSide = 1024;  // m, and cells

struct Sounding {
  double x, y, z;
  long long time;
};

enum class Order { kOneArea, kSwath, kRandom };

std::vector<Sounding> MakeSoundings(Order order) {
  std::mt19937_64 random(20260);
  std::uniform_real_distribution<double> anywhere(0.0, order == Order::kOneArea ? 64.0 : kSide);
  std::normal_distribution<double> depth(-14.0, 0.5);
  std::vector<Sounding> soundings(kSoundings);
  for (int i = 0; i < kSoundings; ++i) {
    Sounding& s = soundings[static_cast<std::size_t>(i)];
    if (order == Order::kSwath) {
      const int ping = i / 128;
      const int line = ping / 2048 % 22;
      s.x = line * 45.0 + i % 128 * 0.5 + anywhere(random) * 0.0002;
      s.y = ping % 2048 * 0.5 + anywhere(random) * 0.0002;
    } else {
      s.x = anywhere(random);
      s.y = anywhere(random);
    }
    s.z = depth(random);
    s.time = 1700000000 + i / 4096;
  }
  return soundings;
}

/// A model that is deleted when it is closed.
DtmUpdateFile* MakeModel() {
  DtmManager::create_params params;
  params.areaSize = 64;
  params.cellSize = 1.0;
  params.blockIds = {iNUM, dVAL, dSDV, dMIN, fXMN, fYMN, dMAX, fXMX, fYMX, tTIM};
  return DtmManager::GetDtmManager().OpenDtm(L"", true, &params);
}

bool InsertAll(DtmAccess& access, const std::vector<Sounding>& soundings) {
  for (const Sounding& s : soundings) {
    if (!access.InsertValue(s.x, s.y, s.z, s.time, nullptr, nullptr, 0)) return false;
  }
  return true;
}

void Insert(benchmark::State& state, Order order, bool withUpdater) {
  const std::vector<Sounding> soundings = MakeSoundings(order);
  DtmUpdateFile* const model = MakeModel();
  {
    DtmAccess access(model);
    access.SetCacheSize(1024);
    if (withUpdater) access.SetUpdater(new DtmRectUpdater(model));
    if (!InsertAll(access, soundings)) state.SkipWithError("a sounding was refused");
    for (auto _ : state) InsertAll(access, soundings);
  }
  model->Close();
  state.SetItemsProcessed(state.iterations() * kSoundings);
}

struct Cell {
  double val, sdv, min, max;
  float xmn, ymn, xmx, ymx;
  std::int32_t num, tim;
};

void InsertBare(benchmark::State& state, Order order) {
  const std::vector<Sounding> soundings = MakeSoundings(order);
  const int side = order == Order::kOneArea ? 64 : kSide + 64;
  const volatile double cellSize = 1.0;  // the divisions by it are part of the work
  const double size = cellSize;
  std::vector<Cell> cells(static_cast<std::size_t>(side) * static_cast<std::size_t>(side));
  for (Cell& cell : cells) cell.val = cell.sdv = cell.min = cell.max = EmptyDouble();
  const auto insertAll = [&] {
    for (const Sounding& s : soundings) {
      const int row = static_cast<int>(s.y / size);  // none is negative
      const int col = static_cast<int>(s.x / size);
      Cell& cell =
          cells[static_cast<std::size_t>(row) * static_cast<std::size_t>(side) + static_cast<std::size_t>(col)];
      const double n = cell.num++;
      const double m = cell.val;
      if (n == 0) {
        cell.val = s.z;
      } else {
        const double mNew = (n * m + s.z) / (n + 1);
        const double q = n == 1 || IsEmptyValue(cell.sdv) ? m * m : cell.sdv * cell.sdv * (n - 1) + m * m * n;
        cell.val = mNew;
        cell.sdv = std::sqrt(std::max(0.0, q + s.z * s.z - mNew * mNew * (n + 1)) / n);
      }
      if (!(cell.min <= s.z)) {
        cell.min = s.z;
        cell.xmn = static_cast<float>(s.x - (col + 0.5) * size);
        cell.ymn = static_cast<float>(s.y - (row + 0.5) * size);
      }
      if (!(cell.max >= s.z)) {
        cell.max = s.z;
        cell.xmx = static_cast<float>(s.x - (col + 0.5) * size);
        cell.ymx = static_cast<float>(s.y - (row + 0.5) * size);
      }
      if (s.time > cell.tim) cell.tim = static_cast<std::int32_t>(s.time);
    }
  };
  insertAll();
  for (auto _ : state) {
    insertAll();
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kSoundings);
}

void GetRows(benchmark::State& state) {
  DtmUpdateFile* const model = MakeModel();
  {
    DtmAccess access(model);
    access.SetCacheSize(1024);
    if (!InsertAll(access, MakeSoundings(Order::kRandom))) state.SkipWithError("a sounding was refused");
    for (auto _ : state) {
      double sum = 0;
      double value = 0;
      for (int row = 0; row < kSide; ++row) {
        for (int col = 0; col < kSide; ++col) {
          if (access.GetDoubleValue(row, col, dVAL, value) && !IsEmptyValue(value)) sum += value;
        }
      }
      benchmark::DoNotOptimize(sum);
    }
  }
  model->Close();
  state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

void GetRowsBare(benchmark::State& state) {
  std::vector<Cell> cells(std::size_t{kSide} * kSide);
  for (Cell& cell : cells) cell.val = (&cell - cells.data()) % 3 == 0 ? EmptyDouble() : -14.0;
  for (auto _ : state) {
    double sum = 0;
    for (const Cell& cell : cells) {
      if (!IsEmptyValue(cell.val)) sum += cell.val;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

BENCHMARK_CAPTURE(Insert, one_area, Order::kOneArea, false)->Name("InsertValue/one_area");
BENCHMARK_CAPTURE(Insert, one_area_updater, Order::kOneArea, true)->Name("InsertValue/one_area_updater");
BENCHMARK_CAPTURE(InsertBare, one_area, Order::kOneArea)->Name("InsertValue/one_area/bare_loop");
BENCHMARK_CAPTURE(Insert, swath, Order::kSwath, false)->Name("InsertValue/swath");
BENCHMARK_CAPTURE(InsertBare, swath, Order::kSwath)->Name("InsertValue/swath/bare_loop");
BENCHMARK_CAPTURE(Insert, random, Order::kRandom, false)->Name("InsertValue/random");
BENCHMARK_CAPTURE(InsertBare, random, Order::kRandom)->Name("InsertValue/random/bare_loop");
BENCHMARK(GetRows)->Name("GetDoubleValue/rows");
BENCHMARK(GetRowsBare)->Name("GetDoubleValue/rows/bare_loop");

}  // namespace
}  // namespace vak
