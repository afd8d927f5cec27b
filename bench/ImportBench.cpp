// Loads:
//   Import/text             1,000,000 lines "x,y,z" of a survey in swath order into a model that holds their cells
//                           already, file and model in the page cache; parsed and inserted as the command does
//   Import/dated_text       the same with a date on each line, which changes every 1,000 lines, by the importer of
//   dated
//                           texts
//   Import/text/bare_loop   finds the same lines and runs std::from_chars three times on each; inserts nothing
#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/intake/DtmAsciiImporter.h"
#include "vakdtm/intake/DtmAsciiTimeImporter.h"
#include "vakdtm/intake/ImportTally.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"

namespace vak {
namespace {

constexpr int kLines = 1000000;

class SurveyText {
 public:
  explicit SurveyText(bool dated = false)
      : path_(std::filesystem::temp_directory_path() / ("vakdtm-bench-" + std::to_string(std::random_device{}()))) {
    std::mt19937_64 random(20261);
    std::uniform_real_distribution<double> wobble(-0.2, 0.2);
    std::normal_distribution<double> depth(-14.0, 0.5);
    std::FILE* const file = std::fopen(path_.c_str(), "wb");
    for (int i = 0; file && i < kLines; ++i) {
      const int ping = i / 128;
      const int line = ping / 1024;
      const double x = 500000.0 + line * 45.0 + i % 128 * 0.5 + wobble(random);
      const double y = 5800000.0 + ping % 1024 * 0.6 + wobble(random);
      std::fprintf(file, "%.3f,%.3f,%.3f", x, y, depth(random));
      std::fprintf(file, dated ? ",%02d-07-2015\n" : "\n", 1 + i / 1000 % 28);
    }
    if (file) std::fclose(file);
  }
  ~SurveyText() {
    std::error_code error;
    std::filesystem::remove(path_, error);
  }
  SurveyText(const SurveyText&) = delete;
  SurveyText& operator=(const SurveyText&) = delete;

  std::FILE* Open() const { return std::fopen(path_.c_str(), "rb"); }

 private:
  std::filesystem::path path_;
};

bool ImportOnce(const SurveyText& text, DtmUpdateFile* model, bool dated) {
  ImportTally tally(model->AreaSize());
  TextFile source(dated ? text.Open() : nullptr);
  std::unique_ptr<DtmTextImporter> importer;
  if (dated) {
    importer = std::make_unique<DtmAsciiTimeImporter>(model, &source, nullptr, false, false, false);
  } else {
    importer = std::make_unique<DtmAsciiImporter>(model, text.Open(), nullptr, false, false, false);
  }
  importer->SetCacheSize(1200);
  importer->SetTally(&tally);
  return importer->Process() && tally.Taken() == kLines;
}

void ImportText(benchmark::State& state, bool dated) {
  const SurveyText text(dated);
  DtmManager::create_params params;
  params.blockIds = {iNUM, dVAL, dSDV, dMIN, fXMN, fYMN, dMAX, fXMX, fYMX, tTIM};
  DtmUpdateFile* const model = DtmManager::GetDtmManager().OpenDtm(L"", true, &params);
  if (!ImportOnce(text, model, dated)) state.SkipWithError("lines were not taken");
  for (auto _ : state) ImportOnce(text, model, dated);
  model->Close();
  state.SetItemsProcessed(state.iterations() * kLines);
}

void ImportBare(benchmark::State& state) {
  const SurveyText text;
  std::vector<char> block(std::size_t{1} << 20);
  for (auto _ : state) {
    std::FILE* const file = text.Open();
    double sum = 0;
    std::size_t held = 0;
    for (std::size_t got = 0; (got = std::fread(block.data() + held, 1, block.size() - held, file)) > 0;) {
      const char* at = block.data();
      const char* const end = block.data() + held + got;
      while (const void* newline = std::memchr(at, '\n', static_cast<std::size_t>(end - at))) {
        const char* const lineEnd = static_cast<const char*>(newline);
        double x = 0;
        double y = 0;
        double z = 0;
        const char* next = std::from_chars(at, lineEnd, x).ptr;
        next = std::from_chars(next + 1, lineEnd, y).ptr;
        std::from_chars(next + 1, lineEnd, z);
        sum += x + y + z;
        at = lineEnd + 1;
      }
      held = static_cast<std::size_t>(end - at);
      std::memmove(block.data(), at, held);
    }
    std::fclose(file);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kLines);
}

BENCHMARK_CAPTURE(ImportText, undated, false)->Name("Import/text")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(ImportText, dated, true)->Name("Import/dated_text")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ImportBare)->Name("Import/text/bare_loop")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace vak
