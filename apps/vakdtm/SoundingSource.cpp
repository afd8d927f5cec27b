#include "SoundingSource.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <sys/stat.h>
#include <vector>

#include "vakdtm/intake/DtmAsciiImporter.h"

#include "StopSignals.h"

namespace vak {
namespace {

constexpr int kLinesLookedAt = 100;

bool Spool(const CommandContext& context, SoundingSource& source) {
  FilePointer copy(std::tmpfile());
  if (!copy) {
    context.Fail(source.name, "no temporary file can be made for it", "check the temporary folder");
    return false;
  }
  std::vector<char> buffer(1 << 16);
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), source.file.get())) {
    if (StopRequested()) return false;
    if (std::fwrite(buffer.data(), 1, count, copy.get()) != count) {
      context.Fail(source.name, "the temporary copy cannot be written", "make room in the temporary folder");
      return false;
    }
  }
  if (StopRequested()) return false;
  if (std::ferror(source.file.get())) {
    context.Fail(source.name, "cannot be read to its end", "check it");
    return false;
  }
  std::rewind(copy.get());
  source.file = std::move(copy);
  return true;
}

bool CouldBeDegrees(const ScannedSounding& sounding) {
  return std::abs(sounding.x) <= 360.0 && std::abs(sounding.y) <= 90.0;
}

void LookAtLines(SoundingSource& source) {
  LineReader lines(source.file.get());
  std::string_view line;
  if (lines.Next(line)) source.firstLine = line.substr(0, line.find_last_not_of("\r\n") + 1);
  SoundingFormat format = SoundingFormat::kComma;
  ScannedSounding sounding;
  if (lines.Rewind()) source.parses = DtmAsciiImporter::DetectFormat(lines, format, &sounding);
  source.looksLikeDegrees = source.parses && CouldBeDegrees(sounding);
  const SoundingScanner scanner(format);
  for (int i = 0; i < kLinesLookedAt && source.looksLikeDegrees && lines.Next(line); ++i) {
    if (scanner.Scan(line.data(), line.data() + line.size(), sounding) == 3 && !CouldBeDegrees(sounding)) {
      source.looksLikeDegrees = false;
    }
  }
  std::rewind(source.file.get());
}

}  // namespace

bool OpenSource(const CommandContext& context, const std::string& path, SoundingSource& source) {
  const bool standardInput = path == "-";
  source.name = standardInput ? "standard input" : path;
  source.file.reset(std::fopen(standardInput ? "/dev/stdin" : path.c_str(), "rbe"));
  if (!source.file) {
    context.Fail(source.name, errno == ENOENT ? "no such file" : "cannot be read",
                 errno == ENOENT ? "check the name" : "check the file's permissions");
    return false;
  }
  struct stat status{};
  if (fstat(fileno(source.file.get()), &status) != 0 || S_ISDIR(status.st_mode)) {
    context.Fail(source.name, "is a folder", "name a file");
    return false;
  }
  if ((standardInput || !S_ISREG(status.st_mode)) && !Spool(context, source)) return false;
  LookAtLines(source);
  return true;
}

}  // namespace vak
