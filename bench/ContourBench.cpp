// Loads:
//   Contour/one_line/N          a level that gives one line through about N squares; time per vertex of the line
//   Contour/further_level/W     a level that crosses W % of the areas of a model of 62 x 62 areas with known ranges
//   Contour/first_level         a level outside the heights of a model of 4000 x 4000 cells of which nothing is known
//   Contour/cells/<surface>     a level through a model of 2000 x 2000 cells with known ranges that crosses every area
#include <atomic>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "vakdtm/contour/DtmContourLevelProc.h"
#include "vakdtm/frame/AreaExtMap.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "NoStream.h"

namespace vak {
namespace {

constexpr int kAreaSize = 64;

/// A model of cells of 1 m with VAL, all blocks in memory.
class Model {
 public:
  Model(int rows, int cols, const std::function<double(int row, int col)>& height) : file_(new NoStream, true) {
    file_.SetAreaSize(kAreaSize);
    file_.ClearBlockIds();
    file_.AddBlockId(dVAL);
    file_.Open();
    for (int row = 0; row < rows; row += kAreaSize) {
      for (int col = 0; col < cols; col += kAreaSize) Fill(*file_.GetArea(row, col, true), rows, cols, height);
    }
  }
  ~Model() {
    for (DtmDataBlock* block : held_) block->Close();
    file_.Close();
  }
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  DtmFile& File() { return file_; }

 private:
  void Fill(DtmArea& area, int rows, int cols, const std::function<double(int row, int col)>& height) {
    DtmDataBlock* const block = area.OpenDataBlock(dVAL);
    auto* const cells = reinterpret_cast<double*>(block->CellData());
    for (int cell = 0; cell < kAreaSize * kAreaSize; ++cell) {
      int row = 0;
      int col = 0;
      area.CalcRowCol(cell, row, col);
      if (row < rows && col < cols) cells[cell] = height(row, col);
    }
    block->SetModified();
    held_.push_back(block);
  }

  DtmFile file_;
  std::vector<DtmDataBlock*> held_;
};

const std::atomic<bool> kRunning{true};

/// A run of one level on ranges that are known, or become so.
struct Run {
  Run(Model& model, double level, AreaExtMap& ranges) : access(&model.File()), tracer({}, level, dVAL, kRunning) {
    tracer.SetAreaExtMap(&ranges);
    done = tracer.ProcessAllCells(access);
  }
  DtmAccess access;
  DtmContourLevelProc tracer;
  bool done = false;
};

void Learn(Model& model, AreaExtMap& ranges) { Run run(model, -1e9, ranges); }

/// Measures what each of so many things takes of an iteration's time on the processor.
class EachTime {
 public:
  void Tell(benchmark::State& state, const char* name, double count) const {
    const double passed = static_cast<double>(std::clock() - start_) / CLOCKS_PER_SEC;
    state.counters[name] = passed / static_cast<double>(state.iterations()) / count;
  }

 private:
  std::clock_t start_ = std::clock();
};

/// A ridge of one cell's width that goes forth and back, so that its foot is one line.
double Serpentine(int row, int col, int cols) {
  const int lane = row % 4;
  if (lane == 1) return col > 0 && col < cols - 1 ? 1.0 : 0.0;
  if (lane == 3) return (row / 4 % 2 == 0 ? col == cols - 2 : col == 1) ? 1.0 : 0.0;
  if (lane == 2) return (row / 4 % 2 == 0 ? col == cols - 2 : col == 1) ? 1.0 : 0.0;
  return row > 0 && (row / 4 % 2 == 1 ? col == cols - 2 : col == 1) ? 1.0 : 0.0;
}

void OneLine(benchmark::State& state) {
  const auto cells = static_cast<double>(state.range(0));
  const int cols = static_cast<int>(std::sqrt(2 * cells)) + 2;
  const int rows = cols / 4 * 4;
  Model model(rows, cols, [&](int row, int col) { return Serpentine(row, col, cols); });
  AreaExtMap ranges;
  Learn(model, ranges);
  std::int64_t vertices = 0;
  std::size_t lines = 0;
  const EachTime time;
  for (auto _ : state) {
    const Run run(model, 0.5, ranges);
    lines = run.tracer.GetList().size();
    vertices = run.tracer.GetList().front().NumPoints();
  }
  state.counters["lines"] = static_cast<double>(lines);
  state.counters["vertices"] = static_cast<double>(vertices);
  time.Tell(state, "per_vertex", static_cast<double>(vertices));
}

/// The lower part of the columns goes up and down through a level of 0.5; the others lie above it.
void FurtherLevel(benchmark::State& state) {
  constexpr int kSide = 62;  // areas
  const int crossedCols = kSide * static_cast<int>(state.range(0)) / 100;
  Model model(kSide * kAreaSize, kSide * kAreaSize, [&](int row, int col) {
    return col < crossedCols * kAreaSize ? std::sin(0.1 * row) + std::sin(0.05 * col) + 0.2 : 10 + 0.001 * row;
  });
  AreaExtMap ranges;
  Learn(model, ranges);
  const EachTime time;
  for (auto _ : state) {
    const Run run(model, 0.5, ranges);
    if (!run.done) state.SkipWithError("stopped");
  }
  constexpr int kAreas = kSide * kSide;
  state.counters["areas"] = kAreas;
  state.counters["crossed"] = crossedCols * kSide;
  time.Tell(state, "per_area", kAreas);
}

void FirstLevel(benchmark::State& state) {
  Model model(4000, 4000, [](int row, int col) { return col + 0.25 * std::sin(0.1 * row); });
  const EachTime time;
  for (auto _ : state) {
    AreaExtMap ranges;
    Learn(model, ranges);
  }
  time.Tell(state, "per_cell", 4000.0 * 4000.0);
}

void Cells(benchmark::State& state, double noise) {
  std::mt19937_64 random(1);
  std::uniform_real_distribution<double> error(-noise, noise);
  Model model(2000, 2000, [&](int row, int col) {
    return 5 * std::sin(0.05 * row) * std::cos(0.04 * col) + (noise > 0 ? error(random) : 0.0);
  });
  AreaExtMap ranges;
  Learn(model, ranges);
  std::int64_t points = 0;
  std::size_t lines = 0;
  const EachTime time;
  for (auto _ : state) {
    const Run run(model, 1.0, ranges);
    lines = run.tracer.GetList().size();
    points = 0;
    for (const auto& line : run.tracer.GetList()) points += line.NumPoints();
  }
  state.counters["lines"] = static_cast<double>(lines);
  state.counters["points"] = static_cast<double>(points);
  time.Tell(state, "per_cell", 2000.0 * 2000.0);
}

BENCHMARK(OneLine)
    ->Name("Contour/one_line")
    ->Arg(250'000)
    ->Arg(500'000)
    ->Arg(1'000'000)
    ->Arg(2'000'000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(FurtherLevel)
    ->Name("Contour/further_level")
    ->Arg(0)
    ->Arg(5)
    ->Arg(10)
    ->Arg(25)
    ->Arg(50)
    ->Arg(100)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(FirstLevel)->Name("Contour/first_level")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Cells, smooth, 0.0)->Name("Contour/cells/smooth")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Cells, noisy, 0.5)->Name("Contour/cells/noisy")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Cells, noise, 10.0)->Name("Contour/cells/noise")->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vak
