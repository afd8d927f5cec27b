// Loads:
//   Open/100000_areas            opens a model of 100,000 areas of 8 x 8 cells, VAL and NUM, written in swath order,
//   and closes it Open/100000_areas/bare_loop  reads the same index bytes and fills a map from area position to an
//   object of the size of an
//                                area, in file order
#include <benchmark/benchmark.h>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/store/DtmArea.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"
#include "vakdtm/store/GridFormat.h"

namespace vak {
namespace {

constexpr int kAreas = 100000;
constexpr int kAreaSize = 8;

class LargeModel {
 public:
  LargeModel()
      : path_(std::filesystem::temp_directory_path() / ("vakdtm-bench-" + std::to_string(std::random_device{}()))) {
    DtmFile model(new HugeFileStream(path_.wstring().c_str(), true, true), true);
    model.SetAreaSize(kAreaSize);
    model.Open();
    for (int i = 0; i < kAreas; ++i) {
      // Lines of 500 areas, five areas wide, every other one the other way.
      const int along = i / 5 % 500;
      const int line = i / 2500;
      const int row = line % 2 == 0 ? along : 499 - along;
      DtmArea* const area = model.GetArea(row * kAreaSize, (line * 5 + i % 5) * kAreaSize, true);
      DtmDataBlock* const block = area->OpenDataBlock(dVAL);
      *reinterpret_cast<double*>(block->CellData()) = -10.0;
      block->SetModified();
      block->Close();
    }
    model.Close();
  }
  ~LargeModel() {
    std::error_code error;
    std::filesystem::remove(path_, error);
  }
  LargeModel(const LargeModel&) = delete;
  LargeModel& operator=(const LargeModel&) = delete;

  std::wstring Name() const { return path_.wstring(); }

 private:
  std::filesystem::path path_;
};

void OpenModel(benchmark::State& state) {
  const LargeModel large;
  for (auto _ : state) {
    DtmFile model(new HugeFileStream(large.Name().c_str(), false, false), false);
    if (!model.Open() || model.NumAreas() != kAreas) state.SkipWithError("the model was not opened whole");
    state.PauseTiming();
    model.Close();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kAreas);
}

void OpenBare(benchmark::State& state) {
  struct Place {
    int row, col;
    bool operator<(const Place& other) const { return row != other.row ? row < other.row : col < other.col; }
  };
  struct Object {
    unsigned char bytes[sizeof(DtmArea)];
  };
  const LargeModel large;
  for (auto _ : state) {
    HugeFileStream stream(large.Name().c_str(), false, false);
    std::vector<std::byte> bytes(static_cast<std::size_t>(kAreas) * grid::kEntrySize);
    std::map<Place, Object> map;
    bool read = stream.Seek(-static_cast<std::int64_t>(bytes.size()) - grid::kHeaderSize, DataStream::kFromEnd);
    read = read && stream.Read(bytes.data(), bytes.size());
    for (std::size_t i = 0; read && i < kAreas; ++i) {
      const grid::IndexEntry entry = grid::LoadEntry(bytes.data() + i * grid::kEntrySize);
      map[{entry.row / kAreaSize, entry.col / kAreaSize}].bytes[0] = static_cast<unsigned char>(entry.position);
    }
    if (map.size() != kAreas) state.SkipWithError("the index was not read whole");
    state.PauseTiming();
    map.clear();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kAreas);
}

BENCHMARK(OpenModel)->Name("Open/100000_areas")->Unit(benchmark::kMillisecond);
BENCHMARK(OpenBare)->Name("Open/100000_areas/bare_loop")->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vak
