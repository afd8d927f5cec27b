// Loads:
//   Walk/<walker>             a walk over all cells with a processor that does nothing
//   Walk/bare_loop            two nested loops over as many cells that make the same virtual call for each
//   Walk/sum/threads:n        reads VAL of a rectangle of 4000 x 4000 cells and adds it up, with n walkers at a time
#include <benchmark/benchmark.h>
#include <cstdint>
#include <memory>
#include <vector>

#include "vakdtm/frame/DtmAllAreasCellProcessor.h"
#include "vakdtm/frame/DtmAreaCellProcessor.h"
#include "vakdtm/frame/DtmCellProcessor.h"
#include "vakdtm/frame/DtmExtentsProcessor.h"
#include "vakdtm/frame/DtmLinearRectProcessor.h"
#include "vakdtm/frame/DtmRectProcessor.h"
#include "vakdtm/services/jobs/ParallelProcessor.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "NoStream.h"

namespace vak {
namespace {

constexpr int kAreaSize = 64;
constexpr int kSide = 4000;  // cells

/// A model of 4000 x 4000 cells with VAL, all blocks in memory.
class Model {
 public:
  Model() : file_(new NoStream, true) {
    file_.SetAreaSize(kAreaSize);
    file_.ClearBlockIds();
    file_.AddBlockId(dVAL);
    file_.Open();
    for (int row = 0; row < kSide; row += kAreaSize) {
      for (int col = 0; col < kSide; col += kAreaSize) Fill(*file_.GetArea(row, col, true));
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
  void Fill(DtmArea& area) {
    DtmDataBlock* const block = area.OpenDataBlock(dVAL);
    auto* const cells = reinterpret_cast<double*>(block->CellData());
    for (int cell = 0; cell < kAreaSize * kAreaSize; ++cell) cells[cell] = -10.0 - cell * 0.001;
    block->SetModified();
    held_.push_back(block);
  }

  DtmFile file_;
  std::vector<DtmDataBlock*> held_;
};

Model& TheModel() {
  static Model model;
  return model;
}

/// What a walk costs without anything being done.
class Empty : public DtmProcessor {
 public:
  bool Init(DtmAccess& /*access*/) override { return true; }
  bool ProcessCell(int /*row*/, int /*col*/, double& /*area*/) override { return true; }
};

/// Hides from the compiler what the processor is.
DtmProcessor* Hide(DtmProcessor* processor) {
  benchmark::DoNotOptimize(processor);
  return processor;
}

constexpr std::int64_t kAreaCells = std::int64_t{(kSide + kAreaSize - 1) / kAreaSize} * kAreaSize;

/// Just inside, so that all cells have a plan area.
Page WholeRect() { return {0.5, 0.5, kSide - 0.5, kSide - 0.5}; }

void BareLoop(benchmark::State& state) {
  Empty empty;
  DtmProcessor* const processor = Hide(&empty);
  for (auto _ : state) {
    for (int row = 0; row < kSide; ++row) {
      for (int col = 0; col < kSide; ++col) {
        double area = 1.0;
        if (!processor->ProcessCell(row, col, area)) state.SkipWithError("stopped");
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

/// @param make  a walker on an access and a processor.
template <typename Make>
void Walk(benchmark::State& state, std::int64_t cells, Make make) {
  DtmAccess access(&TheModel().File());
  Empty empty;
  DtmProcessor* const processor = Hide(&empty);
  for (auto _ : state) {
    const std::unique_ptr<Processor> walker = make(access, processor);
    if (!walker->Process()) state.SkipWithError("the walk failed");
  }
  state.SetItemsProcessed(state.iterations() * cells);
}

void CellWalk(benchmark::State& state) {
  Walk(state, kAreaCells * kAreaCells, [](DtmAccess& access, DtmProcessor* processor) {
    return std::make_unique<DtmCellProcessor>(&access, processor, false);
  });
}

void AllAreasWalk(benchmark::State& state) {
  DtmExtentsProcessor extents(0);
  DtmAccess access(&TheModel().File());
  extents.ProcessAllCells(access);
  Walk(state, kAreaCells * kAreaCells, [&extents](DtmAccess& walked, DtmProcessor* processor) {
    return std::make_unique<DtmAllAreasCellProcessor>(&walked, processor, &extents, false);
  });
}

void AreaWalk(benchmark::State& state) {
  std::vector<int> places(static_cast<std::size_t>(TheModel().File().NumAreas()));
  for (std::size_t i = 0; i < places.size(); ++i) places[i] = static_cast<int>(i);
  Walk(state, kAreaCells * kAreaCells, [&places](DtmAccess& access, DtmProcessor* processor) {
    return std::make_unique<DtmAreaCellProcessor>(&access, processor, places);
  });
}

void RectWalk(benchmark::State& state) {
  Walk(state, std::int64_t{kSide} * kSide, [](DtmAccess& access, DtmProcessor* processor) {
    return std::make_unique<DtmRectProcessor>(WholeRect(), &access, processor, false);
  });
}

void LinearRectWalk(benchmark::State& state) {
  Walk(state, std::int64_t{kSide} * kSide, [](DtmAccess& access, DtmProcessor* processor) {
    return std::make_unique<DtmLinearRectProcessor>(WholeRect(), &access, processor, false);
  });
}

/// Adds up VAL. On cache lines of its own, since threads add at the same time.
class alignas(64) Sum final : public DtmProcessor {
 public:
  bool Init(DtmAccess& access) override {
    access_ = &access;
    return true;
  }
  bool ProcessCell(int row, int col, double& area) override {
    double value = 0;
    if (!access_->GetDoubleValue(row, col, dVAL, value)) return false;
    if (!IsEmptyValue(value)) sum_ += value * area;
    return true;
  }
  double Value() const { return sum_; }

 private:
  DtmAccess* access_ = nullptr;
  double sum_ = 0;
};

void SumInParallel(benchmark::State& state) {
  const auto walkers = static_cast<std::size_t>(state.range(0));
  const DtmAccess access(&TheModel().File());
  for (auto _ : state) {
    const auto counter = std::make_shared<AtomicCounter>();
    const auto range = std::make_shared<SharedCellRange>();
    std::vector<Sum> sums(walkers);
    std::vector<std::unique_ptr<DtmAccess>> accesses;
    ParallelProcessor group;
    for (Sum& sum : sums) {
      accesses.push_back(std::make_unique<DtmAccess>(access));
      auto walker = std::make_unique<DtmRectProcessor>(WholeRect(), accesses.back().get(), &sum, false);
      walker->SetSharedCounter(counter);
      walker->SetSharedRange(range);
      group.AddProcessor(walker.release());
    }
    if (!group.Initialize() || !group.Process()) state.SkipWithError("the walk failed");
    double total = 0;
    for (const Sum& sum : sums) total += sum.Value();
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kSide * kSide);
}

BENCHMARK(BareLoop)->Name("Walk/bare_loop")->Unit(benchmark::kMillisecond);
BENCHMARK(CellWalk)->Name("Walk/DtmCellProcessor")->Unit(benchmark::kMillisecond);
BENCHMARK(AllAreasWalk)->Name("Walk/DtmAllAreasCellProcessor")->Unit(benchmark::kMillisecond);
BENCHMARK(AreaWalk)->Name("Walk/DtmAreaCellProcessor")->Unit(benchmark::kMillisecond);
BENCHMARK(RectWalk)->Name("Walk/DtmRectProcessor")->Unit(benchmark::kMillisecond);
BENCHMARK(LinearRectWalk)->Name("Walk/DtmLinearRectProcessor")->Unit(benchmark::kMillisecond);
BENCHMARK(SumInParallel)
    ->Name("Walk/sum")
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vak
