#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/store/DtmArea.h"

#include "support/TestGrid.h"

namespace vak::test {

/// A model that can be made more than once, its areas in this order or another.
struct ModelPlan {
  struct Cell {
    int row, col, id;
    double value;
  };

  GridSettings settings;
  std::vector<std::pair<int, int>> areas;  ///< bottom-left cells, in the order of creation
  std::vector<Cell> cells;

  std::unique_ptr<TestGrid> Make() const {
    auto grid = std::make_unique<TestGrid>(settings);
    for (const auto& [row, col] : areas) {
      if (grid->Access().GetArea(row, col, true) == nullptr) throw std::runtime_error("an area can't be made");
    }
    for (const Cell& cell : cells) {
      if (!grid->Set(cell.row, cell.col, cell.id, cell.value)) throw std::runtime_error("a cell can't be set");
    }
    grid->Leave();
    return grid;
  }
};

/// Small models of all shapes, from a seed: areas here and there, holes, heights on whole numbers so that a level meets
/// cells exactly, or rough, or smooth.
class RandomModel {
 public:
  explicit RandomModel(unsigned seed) : random_(seed) {}

  int Pick(int lowest, int highest) { return std::uniform_int_distribution<int>(lowest, highest)(random_); }
  double PickReal(double lowest, double highest) {
    return std::uniform_real_distribution<double>(lowest, highest)(random_);
  }
  bool Chance(double part) { return PickReal(0, 1) < part; }
  template <typename T>
  T PickOf(const std::vector<T>& list) {
    return list[static_cast<std::size_t>(Pick(0, static_cast<int>(list.size()) - 1))];
  }
  template <typename T>
  void Shuffle(std::vector<T>& list) {
    std::shuffle(list.begin(), list.end(), random_);
  }

  /// What a model may hold that isn't found in nature.
  enum class Values { kPlain, kOdd };

  /// @param block   that gets the heights: `dVAL`, or `dMIN` or `dMAX` with their offsets.
  /// @param values  odd: also not-a-numbers, infinities, numbers without fractions, and offsets that make places of
  ///                cells meet.
  ModelPlan Plan(int block, Values values) {
    ModelPlan plan;
    plan.settings.cellSize = PickOf<double>({1.0, 0.5, 0.1, 3.0, 0.3});
    plan.settings.areaSize = Pick(1, 8);
    plan.settings.blockIds = {iNUM, block};
    if (block == dMIN && Chance(0.9)) plan.settings.blockIds.insert(plan.settings.blockIds.end(), {fXMN, fYMN});
    if (block == dMAX && Chance(0.9)) plan.settings.blockIds.insert(plan.settings.blockIds.end(), {fXMX, fYMX});
    PlaceAreas(plan);
    const Terrain terrain = PickTerrain();
    const double gaps = PickOf<double>({0.0, 0.0, 0.03, 0.3});
    for (const auto& [row, col] : plan.areas) {
      if (Chance(0.05)) continue;      // an area without a value
      const bool whole = Chance(0.4);  // one without a gap
      const double areaGaps = whole ? 0.0 : gaps;
      for (int r = row; r < row + plan.settings.areaSize; ++r) {
        for (int c = col; c < col + plan.settings.areaSize; ++c) {
          if (Chance(0.01)) plan.cells.push_back({r, c, iNUM, 1});
          if (Chance(areaGaps)) continue;
          plan.cells.push_back({r, c, block, Height(terrain, r, c, values)});
          AddOffsets(plan, r, c, values);
        }
      }
    }
    return plan;
  }

  /// A level that often meets cells, and hardly ever misses them all.
  double Level(const ModelPlan& plan) {
    std::vector<double> heights;
    for (const ModelPlan::Cell& cell : plan.cells) {
      if (std::isfinite(cell.value) && (cell.id == dVAL || cell.id == dMIN || cell.id == dMAX)) {
        heights.push_back(cell.value);
      }
    }
    if (heights.empty()) return 0.0;
    const double height = PickOf(heights);
    switch (Pick(0, 3)) {
      case 0:
        return height;
      case 1:
        return std::floor(height);
      case 2:
        return std::floor(height) + 0.5;
      default:
        return (height + PickOf(heights)) / 2;
    }
  }

  /// None, a triangle or a star over part of the model.
  PolyClipLine Polygon(const ModelPlan& plan) {
    PolyClipLine polygon;
    if (Chance(0.6)) return polygon;
    const double reach = 16 * plan.settings.cellSize;
    for (int rings = Pick(1, 2); rings > 0; --rings) {
      std::vector<Point> ring;
      for (int i = Pick(3, 7); i > 0; --i) {
        // Often on lines of cells' corners and centres.
        const double step = plan.settings.cellSize / 2;
        ring.push_back(Chance(0.5) ? Point(PickReal(-reach, reach), PickReal(-reach, reach))
                                   : Point(Pick(-30, 30) * step, Pick(-30, 30) * step));
      }
      polygon.AddRing(ring, false);
    }
    return polygon.IsValid() ? polygon : PolyClipLine();
  }

 private:
  struct Terrain {
    int kind = 0;
    int range = 3;
    double phase = 0;
    double scale = 1;
    double base = 0;
  };

  void PlaceAreas(ModelPlan& plan) {
    const int size = plan.settings.areaSize;
    const int side = std::max(2, Pick(8, 24) / size);
    const double density = PickOf<double>({0.3, 0.7, 1.0, 1.0});
    const int row0 = Pick(-side, 0);
    const int col0 = Pick(-side, 0);
    for (int row = row0; row < row0 + side; ++row) {
      for (int col = col0; col < col0 + side; ++col) {
        if (Chance(density)) plan.areas.emplace_back(row * size, col * size);
      }
    }
    Shuffle(plan.areas);
  }

  Terrain PickTerrain() {
    Terrain terrain;
    terrain.kind = Pick(0, 3);
    terrain.range = Pick(1, 5);
    terrain.phase = PickReal(0, 6);
    terrain.scale = Pick(0, 9) == 0 ? 1e10 : 1.0;
    terrain.base = Pick(-3, 0);
    return terrain;
  }

  double Height(const Terrain& terrain, int row, int col, Values values) {
    if (values == Values::kOdd && Chance(0.02)) {
      constexpr double kInfinity = std::numeric_limits<double>::infinity();
      return PickOf<double>({std::numeric_limits<double>::quiet_NaN(), kInfinity, -kInfinity, -0.0, 1e308});
    }
    const double scale = values == Values::kOdd ? terrain.scale : 1.0;
    switch (terrain.kind) {
      case 0:
        return scale * (terrain.base + Pick(0, terrain.range));
      case 1:
        return scale * PickReal(terrain.base, terrain.base + terrain.range);
      case 2:
        return scale * std::round(4 * Wave(terrain, row, col)) / 4;
      default:
        return scale * Wave(terrain, row, col);
    }
  }

  static double Wave(const Terrain& terrain, int row, int col) {
    return terrain.range * std::sin(row * 0.4 + terrain.phase) * std::cos(col * 0.3);
  }

  /// Offsets of the soundings from the cell's centre, less than half a cell.
  void AddOffsets(ModelPlan& plan, int row, int col, Values values) {
    const auto& ids = plan.settings.blockIds;
    if (ids.size() < 4) return;
    const double half = plan.settings.cellSize / 2;
    const auto offset = [&] {
      if (values == Values::kOdd && Chance(0.3)) return PickOf<double>({-half, half, -2 * half, 1e30});
      return PickReal(-0.9 * half, 0.9 * half);
    };
    if (Chance(0.9)) plan.cells.push_back({row, col, ids[2], offset()});
    if (Chance(0.9)) plan.cells.push_back({row, col, ids[3], offset()});
  }

  std::mt19937 random_;
};

}  // namespace vak::test
