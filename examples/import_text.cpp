// Imports a text of soundings as a job on a thread of its own, with progress, and tells what became of its lines.
//
//   import_text FOLDER      the text is FOLDER/lines.xyz, the model FOLDER/lines.dtm; both are made anew
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "vakdtm/intake/DtmAsciiImporter.h"
#include "vakdtm/intake/ImportTally.h"
#include "vakdtm/services/jobs/ProcessThread.h"
#include "vakdtm/services/jobs/ProgressSink.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmManager.h"

namespace {

namespace fs = std::filesystem;

constexpr int kLines = 20000;

/// Prints where a job is. An application with a window would move a bar here, and answer `WantsStop` by its button.
class PrintedProgress final : public vak::ProgressSink {
 public:
  void Begin(const vak::JobProgress& progress) override { Print(progress); }
  void Show(const vak::JobProgress& progress) override { Print(progress); }
  bool WantsStop() override { return false; }
  void End(bool done) override { std::puts(done ? "done" : "not done"); }

 private:
  static void Print(const vak::JobProgress& progress) {
    std::printf("%s: %3.0f %%\n", vak::ToUtf8(progress.title).c_str(), 100 * progress.fraction);
  }
};

/// Writes a heading, soundings along a slope of 1 in 100, one line that is no sounding and one at no place that a model
/// can reach. @return whether all of it is in the file.
bool WriteText(const fs::path& path) {
  std::FILE* const text = std::fopen(path.c_str(), "wb");
  if (text == nullptr) return false;
  bool written = std::fputs("easting northing height\n", text) >= 0;
  for (int i = 0; i < kLines; ++i) {
    const int row = i / 200;
    const double x = i % 200 * 0.5;
    written = std::fprintf(text, "%.2f %.2f %.3f\n", 1000 + x, 2000 + row * 0.5, -10 - x / 100) > 0 && written;
  }
  written = std::fputs("end of line 1\n1e30 2000 -10\n", text) >= 0 && written;
  return std::fclose(text) == 0 && written;
}

/// Imports the text and closes its file. @return what `ProcessThread` says.
int Import(vak::DtmUpdateFile* model, const fs::path& text, vak::ImportTally& tally) {
  std::FILE* const source = std::fopen(text.c_str(), "rb");
  if (source == nullptr) return vak::ProcessThread::kFailed;
  auto importer = std::make_unique<vak::DtmAsciiImporter>(model, source, nullptr, false, false, false);
  importer->SetTally(&tally);
  vak::ProcessThread job(L"import", nullptr, false, nullptr, false);
  job.AddProcessor(importer.release(), L"lines.xyz");  // the job owns it now, and it the source
  return job.DoModal();
}

void PrintTally(const vak::ImportTally& tally) {
  std::printf("%lld lines: %lld taken, %lld skipped, %lld refused; %lld cells, heights %.3f to %.3f m\n",
              static_cast<long long>(tally.Lines()), static_cast<long long>(tally.Taken()),
              static_cast<long long>(tally.Skipped()), static_cast<long long>(tally.Refused()),
              static_cast<long long>(tally.Cells()), tally.LowestZ(), tally.HighestZ());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("import_text FOLDER\n", stderr);
    return 2;
  }
  const fs::path folder = argv[1];
  const fs::path text = folder / "lines.xyz";
  if (!WriteText(text)) return 1;

  const vak::DtmManager::create_params params{64, 1.0, {vak::iNUM, vak::dVAL}};
  const std::wstring name = vak::FromUtf8((folder / "lines.dtm").string());
  vak::DtmUpdateFile* model = vak::DtmManager::GetDtmManager().OpenDtm(name, true, &params);
  if (model == nullptr) return 1;

  const auto former = vak::InstallProgressSink(std::make_shared<PrintedProgress>());
  vak::ImportTally tally(model->AreaSize());
  const int result = Import(model, text, tally);
  vak::InstallProgressSink(former);
  const bool written = model->SyncWrite();
  model->Close();
  PrintTally(tally);
  const bool asExpected = tally.Taken() == kLines && tally.Skipped() == 2 && tally.Refused() == 1;
  return result == vak::ProcessThread::kDone && written && asExpected ? 0 : 1;
}
