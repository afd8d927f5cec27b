#include "vakdtm/intake/DtmAsciiImporter.h"

#include "vakdtm/intake/SoundingAhead.h"
#include "vakdtm/services/jobs/MessageSink.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/StringTable.h"

namespace vak {
namespace {

constexpr int kCannotUpdateText = 9477;

}  // namespace

DtmAsciiImporter::DtmAsciiImporter(DtmUpdateFile* model, std::FILE* source, PolyClipLine* polygon, bool clearCellFirst,
                                   bool backup, bool negateZ)
    : DtmTextImporter(model, polygon, clearCellFirst, backup, negateZ), source_(source), lines_(source) {}

DtmAsciiImporter::~DtmAsciiImporter() { std::fclose(source_); }

bool DtmAsciiImporter::DetectFormat(LineReader& lines, SoundingFormat& format, ScannedSounding* first,
                                    const std::function<bool()>& stop) {
  constexpr std::int64_t kLinesBetweenQuestions = 4096;
  std::string_view line;
  while (lines.Next(line)) {
    if (stop && lines.LineNumber() % kLinesBetweenQuestions == 0 && stop()) break;
    for (const SoundingFormat candidate : {SoundingFormat::kComma, SoundingFormat::kBlank}) {
      ScannedSounding sounding;
      if (SoundingScanner(candidate).Scan(line.data(), line.data() + line.size(), sounding) != 3) continue;
      format = candidate;
      if (first) *first = sounding;
      return true;
    }
  }
  format = SoundingFormat::kComma;
  return false;
}

bool DtmAsciiImporter::Process() {
  SoundingFormat format = SoundingFormat::kComma;
  DetectFormat(lines_, format, nullptr, [this] { return IsStopped(); });
  if (IsStopped()) return false;
  SetSize(lines_.Size());
  if (!lines_.Rewind()) return false;
  SoundingAhead ahead(lines_, SoundingScanner(format));
  return TakeLines(ahead) && !lines_.Failed();
}

std::int64_t DtmAsciiImporter::TimeOf(const SoundingLine& /*line*/) { return _time64(nullptr); }

void DtmAsciiImporter::TellWhereBackupIs() const {
  ShowMessage(MessageIcon::kError, WithNames(LoadString(kCannotUpdateText)));
}

}  // namespace vak
