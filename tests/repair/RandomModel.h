#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/TestGrid.h"

namespace vak::test {

/// A made-up model around the origin, of everything that a hole may have to do with: cells that weren't hit, cells with
/// hits and without a value, hits below 0, soundings that lie off their cell's centre, numbers that are none, areas
/// that are missing or have lost all their cells.
class RandomModel {
 public:
  explicit RandomModel(std::mt19937& random) {
    const auto pick = [&](int lowest, int highest) {
      return std::uniform_int_distribution<int>(lowest, highest)(random);
    };
    settings_.cellSize = pick(0, 1) == 0 ? 1.0 : 0.3;
    settings_.areaSize = pick(1, 16);
    settings_.blockIds = {dVAL};
    if (pick(0, 4) != 0) settings_.blockIds.push_back(iNUM);
    const bool hasMin = pick(0, 1) == 0;
    const bool hasMax = pick(0, 2) == 0;
    if (hasMin) settings_.blockIds.push_back(dMIN);
    if (hasMin && pick(0, 3) != 0) settings_.blockIds.insert(settings_.blockIds.end(), {fXMN, fYMN});
    if (hasMax) settings_.blockIds.insert(settings_.blockIds.end(), {fXMX, dMAX, fYMX});
    if (pick(0, 2) == 0) settings_.blockIds.push_back(dSDV);
    if (pick(0, 3) == 0) settings_.blockIds.push_back(fBKS);
    if (pick(0, 3) == 0) settings_.blockIds.push_back(iPRI);
    const int patches = pick(1, 4);
    for (int patch = 0; patch < patches; ++patch) {
      const int row = pick(-20, 16);
      const int col = pick(-20, 16);
      const int height = pick(1, 14);
      const int width = pick(1, 14);
      const int density = pick(5, 100);
      const int lacking = pick(0, 3) == 0 ? pick(1, 50) : 0;
      for (int r = row; r < row + height; ++r) {
        for (int c = col; c < col + width; ++c) {
          if (pick(1, 100) <= density) AddCell(r, c, lacking, random);
        }
      }
    }
    for (int i = pick(0, 3); i > 0; --i) emptied_.push_back({pick(-20, 20), pick(-20, 20)});
  }

  double CellSize() const { return settings_.cellSize; }
  int AreaSize() const { return settings_.areaSize; }

  /// One of its kinds, all heights, or now and then one that it lacks.
  int PickBlock(std::mt19937& random) const {
    const auto count = static_cast<int>(settings_.blockIds.size());
    const int pick = std::uniform_int_distribution<int>(-3, count)(random);
    if (pick < 0) return pick == -3 ? dVAL : 0;
    return pick == count ? dTHU : settings_.blockIds[static_cast<std::size_t>(pick)];
  }

  /// A new one each time, the same to the last bit.
  std::unique_ptr<TestGrid> Make() const {
    auto grid = std::make_unique<TestGrid>(settings_);
    for (const Cell& cell : cells_) grid->Set(cell.row, cell.col, cell.block, cell.value);
    for (const Place& place : emptied_) {
      const int bottom = CalcAreaIndex(settings_.areaSize, place.row) * settings_.areaSize;
      const int left = CalcAreaIndex(settings_.areaSize, place.col) * settings_.areaSize;
      for (int r = bottom; r < bottom + settings_.areaSize; ++r) {
        for (int c = left; c < left + settings_.areaSize; ++c) grid->Clear(r, c);
      }
    }
    grid->Leave();
    return grid;
  }

 private:
  struct Cell {
    int row, col, block;
    double value;
  };
  struct Place {
    int row, col;
  };

  void AddCell(int row, int col, int lacking, std::mt19937& random) {
    std::uniform_int_distribution<int> percent(1, 100);
    const int kind = percent(random);
    for (const int block : settings_.blockIds) {
      if (percent(random) <= lacking) continue;
      double value = std::normal_distribution(-12.0, 3.0)(random);
      if (block == iNUM) {
        if (kind <= 8) continue;
        value = kind == 9 ? -1 : kind % 4 + 1;
      } else if (block == fXMN || block == fYMN || block == fXMX || block == fYMX) {
        value = settings_.cellSize * std::uniform_real_distribution(-0.6, 0.6)(random);
      } else if (block == dSDV && kind % 3 == 0) {
        continue;
      } else if (kind == 10) {
        value = std::nan("3");
      }
      cells_.push_back({row, col, block, value});
    }
  }

  GridSettings settings_;
  std::vector<Cell> cells_;
  std::vector<Place> emptied_;
};

/// The places and the bits of all values that a model has around the origin.
/// @param alsoEmpty  those of cells without a value too, where there is an area.
inline std::vector<std::uint64_t> CellsOf(TestGrid& grid, bool alsoEmpty = true) {
  std::vector<std::uint64_t> bits;
  for (int row = -60; row < 60; ++row) {
    for (int col = -60; col < 60; ++col) {
      if (grid.Area(row, col) == nullptr) continue;
      for (int i = 0; i < grid.File().NumBlockIds(); ++i) {
        const double value = grid.Get(row, col, grid.File().GetBlockId(i));
        if (!alsoEmpty && IsEmptyValue(value)) continue;
        bits.push_back(static_cast<std::uint64_t>(((row + 60) * 120 + col + 60) * 100 + i));
        bits.push_back(std::bit_cast<std::uint64_t>(value));
      }
    }
  }
  return bits;
}

}  // namespace vak::test
