// Loads:
//   Render/far/side:n/sun:0 or 1   opens a model of n x n cells, stored on the disk, and draws it on an image of 1000 x
//   1000
//                                  pixels, without and with a sun; `read` is the bytes that this reads of the file, of
//                                  the `stored` ones. 20,000 cells a side, a file of 4.8 GB, with VAKDTM_LONG=1 alone
//   Render/near/pixels:p, near_sun draws 1000 x 1000 cells in memory, each p x p pixels large
//   Render/bare_fill/pixels:p      two nested loops that fill the same rectangles
#include <array>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/render/DrawModel.h"
#include "vakdtm/render/DtmDrawProcessor.h"
#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/device/CoordinateSystem.h"
#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "NoStream.h"

namespace vak {
namespace {

constexpr int kAreaSize = 64;
constexpr int kPixels = 1000;

double HeightAt(int row, int col) {
  return -20 + 9 * std::sin(row * 0.011) * std::cos(col * 0.007) + 0.3 * std::sin(row * 0.9);
}

/// An area's heights, written over those of `block`, which isn't closed.
void FillArea(DtmDataBlock& block, int bottom, int left) {
  auto* const cells = reinterpret_cast<double*>(block.CellData());
  std::array<double, kAreaSize> along;
  for (int col = 0; col < kAreaSize; ++col) along[static_cast<std::size_t>(col)] = HeightAt(bottom, left + col);
  for (int row = 0; row < kAreaSize; ++row) {
    for (int col = 0; col < kAreaSize; ++col) {
      cells[row * kAreaSize + col] = along[static_cast<std::size_t>(col)] + 0.02 * ((row * 7 + col * 3) % 11);
    }
  }
  block.SetModified();
}

/// A stream that counts what is read of it.
class CountingStream final : public HugeFileStream {
 public:
  using HugeFileStream::HugeFileStream;
  bool Read(void* buffer, std::uint64_t count) override {
    read_ += count;
    return HugeFileStream::Read(buffer, count);
  }
  std::uint64_t BytesRead() const { return read_; }

 private:
  std::uint64_t read_ = 0;
};

/// A model of VAL and NUM on the disk, gone with the object.
class StoredModel {
 public:
  explicit StoredModel(int side)
      : path_(std::filesystem::temp_directory_path() / ("vakdtm-bench-" + std::to_string(std::random_device{}()))) {
    DtmFile model(new HugeFileStream(path_.wstring().c_str(), true, true), true);
    model.SetAreaSize(kAreaSize);
    model.Open();
    for (int row = 0; row < side; row += kAreaSize) {
      for (int col = 0; col < side; col += kAreaSize) {
        DtmDataBlock* const block = model.GetArea(row, col, true)->OpenDataBlock(dVAL);
        FillArea(*block, row, col);
        block->Close();
      }
    }
    model.Close();
  }
  ~StoredModel() {
    std::error_code error;
    std::filesystem::remove(path_, error);
  }
  StoredModel(const StoredModel&) = delete;
  StoredModel& operator=(const StoredModel&) = delete;

  std::wstring Name() const { return path_.wstring(); }
  double Size() const { return static_cast<double>(std::filesystem::file_size(path_)); }

 private:
  std::filesystem::path path_;
};

/// The model of this side. One at a time: the one before is deleted.
const StoredModel& ModelOf(int side) {
  static std::unique_ptr<StoredModel> model;
  static int held = 0;
  if (held != side) {
    model.reset();
    model = std::make_unique<StoredModel>(side);
    held = side;
  }
  return *model;
}

/// What is needed to draw so many cells a side on an image.
class Picture {
 public:
  Picture(int side, int pixels, bool sun) : view_(0, 0, side, side), system_(view_, pixels, pixels) {
    image_.Create(pixels, pixels);
    MakeColorTable("depth", -32, -10, table_);
    processor_.SetDrawInfo(&image_, system_, view_);
    processor_.SetCellInfo(dVAL, &table_);
    processor_.SetSunIllumination(sun, 45, 45, 3);
  }

  bool Draw(DtmAccess& access) { return DrawModel(processor_, access, system_, view_, false); }
  ImageDevice& Image() { return image_; }
  const CoordinateSystem& System() const { return system_; }

 private:
  Page view_;
  CoordinateSystem system_;
  ImageDevice image_;
  ColorTable table_;
  DtmDrawProcessor processor_;
};

void FarView(benchmark::State& state) {
  const int side = static_cast<int>(state.range(0));
  const bool sun = state.range(1) != 0;
  const StoredModel& model = ModelOf(side);
  Picture picture(side, kPixels, sun);
  std::uint64_t read = 0;
  for (auto _ : state) {
    // With the opening of the file, whose index is read.
    auto stream = std::make_unique<CountingStream>(model.Name().c_str(), false, false);
    const CountingStream& counted = *stream;
    DtmFile file(stream.release(), false);
    DtmAccess access(&file);
    if (!picture.Draw(access)) state.SkipWithError("not drawn");
    read = counted.BytesRead();
  }
  state.counters["read"] = benchmark::Counter(static_cast<double>(read), benchmark::Counter::kDefaults);
  state.counters["stored"] = benchmark::Counter(model.Size(), benchmark::Counter::kDefaults);
  state.SetItemsProcessed(state.iterations() * kPixels * kPixels);
}

constexpr int kNearSide = 1000;  // cells

/// 1000 x 1000 cells, all blocks in memory.
class ModelInMemory {
 public:
  ModelInMemory() : file_(new NoStream, true) {
    file_.SetAreaSize(kAreaSize);
    file_.Open();
    for (int row = 0; row < kNearSide; row += kAreaSize) {
      for (int col = 0; col < kNearSide; col += kAreaSize) {
        held_.push_back(file_.GetArea(row, col, true)->OpenDataBlock(dVAL));
        FillArea(*held_.back(), row, col);
      }
    }
  }
  ~ModelInMemory() {
    for (DtmDataBlock* block : held_) block->Close();
    file_.Close();
  }
  ModelInMemory(const ModelInMemory&) = delete;
  ModelInMemory& operator=(const ModelInMemory&) = delete;

  DtmFile& File() { return file_; }

 private:
  DtmFile file_;
  std::vector<DtmDataBlock*> held_;
};

void NearView(benchmark::State& state, bool sun) {
  static ModelInMemory model;
  Picture picture(kNearSide, static_cast<int>(state.range(0)) * kNearSide, sun);
  DtmAccess access(&model.File());
  for (auto _ : state) {
    if (!picture.Draw(access)) state.SkipWithError("not drawn");
  }
  state.SetItemsProcessed(state.iterations() * kNearSide * kNearSide);
}

void BareFill(benchmark::State& state) {
  const int pixels = static_cast<int>(state.range(0));
  Picture picture(kNearSide, pixels * kNearSide, false);
  CDC* device = &picture.Image();
  benchmark::DoNotOptimize(device);  // hides from the compiler what the device is
  for (auto _ : state) {
    for (int row = kNearSide - 1; row >= 0; --row) {
      for (int col = 0; col < kNearSide; ++col) {
        device->FillSolidRect({col * pixels, row * pixels, (col + 1) * pixels, (row + 1) * pixels},
                              static_cast<Color>(row) * 31 + static_cast<Color>(col));
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * kNearSide * kNearSide);
}

/// By size, so that each model is made once.
void FarViews(benchmark::internal::Benchmark* views) {
  std::vector<int> sides = {1250, 2500, 5000, 10000};
  const char* const asked = std::getenv("VAKDTM_LONG");
  if (asked != nullptr && std::string_view(asked) == "1") sides.push_back(20000);
  for (const int side : sides) views->Args({side, 0})->Args({side, 1});
}

void NearPlain(benchmark::State& state) { NearView(state, false); }
void NearSun(benchmark::State& state) { NearView(state, true); }

BENCHMARK(BareFill)->Name("Render/bare_fill")->ArgName("pixels")->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(NearPlain)->Name("Render/near")->ArgName("pixels")->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(NearSun)->Name("Render/near_sun")->ArgName("pixels")->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(FarView)
    ->Name("Render/far")
    ->ArgNames({"side", "sun"})
    ->Apply(FarViews)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vak
