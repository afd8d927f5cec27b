#include "SoundingSource.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "vakdtm/intake/DtmAsciiImporter.h"
#include "vakdtm/intake/DtmAsciiTimeImporter.h"
#include "vakdtm/intake/SoundingAhead.h"

#include "StopSignals.h"

namespace vak {
namespace {

constexpr int kLinesLookedAt = 100;

bool FailReading(const CommandContext& context, const SoundingSource& source) {
  context.Fail(source.name, "cannot be read to its end", "check the file");
  return false;
}

bool FailSpooling(const CommandContext& context, const SoundingSource& source) {
  context.Fail(source.name, "the temporary copy cannot be written", "make room in the temporary folder");
  return false;
}

bool FailOpening(const CommandContext& context, const SoundingSource& source, bool standardInput, int error) {
  struct stat status{};
  const bool isLink = !standardInput && lstat(source.name.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
  if (error == EMFILE || error == ENFILE) {
    context.Fail(source.name, "too many files are open", "name fewer at once, or raise the limit (ulimit -n)");
  } else if (standardInput) {
    context.Fail(source.name, "cannot be read", "is it closed?");
  } else if (error == ELOOP || (isLink && (error == ENOENT || error == ENOTDIR))) {
    context.Fail(source.name, "is a link that leads nowhere", "mend the link, or name a file");
  } else if (error == ENOENT || error == ENOTDIR) {
    context.Fail(source.name, "no such file", "check the name");
  } else if (error == ENAMETOOLONG) {
    context.Fail(source.name, "the name is too long", "check the name");
  } else {
    context.Fail(source.name, "cannot be read", "check the permissions of the file and its folder");
  }
  return false;
}

FilePointer OpenForReading(const std::string& path) { return FilePointer(std::fopen(path.c_str(), "rbe")); }

/// A stream of its own on what standard input is, at the place where it stands.
FilePointer OpenStandardInput() {
  const int own = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  if (own < 0) return nullptr;
  FilePointer file(fdopen(own, "rb"));
  if (!file) close(own);
  return file;
}

/// A nameless file in the temporary folder that the user has chosen.
FilePointer MakeTemporaryFile() {
  std::error_code code;
  std::string name = (std::filesystem::temp_directory_path(code) / "vakdtm-XXXXXX").native();
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  unlink(name.c_str());
  FilePointer file(fdopen(descriptor, "w+b"));
  if (!file) close(descriptor);
  return file;
}

bool Spool(const CommandContext& context, SoundingSource& source) {
  FilePointer copy = MakeTemporaryFile();
  if (!copy && (errno == EMFILE || errno == ENFILE)) return FailOpening(context, source, false, errno);
  if (!copy) {
    context.Fail(source.name, "no temporary file can be made for it", "check the temporary folder");
    return false;
  }
  std::vector<char> buffer(1 << 16);
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), source.kept.get())) {
    if (StopRequested()) return false;
    if (std::fwrite(buffer.data(), 1, count, copy.get()) != count) {
      return FailSpooling(context, source);
    }
  }
  if (StopRequested()) return false;
  if (std::ferror(source.kept.get())) return FailReading(context, source);
  if (std::fflush(copy.get()) != 0) return FailSpooling(context, source);
  if (std::fseek(copy.get(), 0, SEEK_SET) != 0) return FailSpooling(context, source);
  source.kept = std::move(copy);
  return true;
}

bool CouldBeDegrees(const ScannedSounding& sounding) {
  return std::abs(sounding.x) <= 360.0 && std::abs(sounding.y) <= 90.0;
}

/// @return false when the text can't be read.
bool LookAtLines(SoundingSource& source) {
  LineReader lines(source.kept.get());
  std::string_view line;
  source.isEmpty = !lines.Next(line);
  if (!source.isEmpty) source.firstLine = line.substr(0, line.find_last_not_of("\r\n") + 1);
  SoundingFormat format = SoundingFormat::kComma;
  ScannedSounding sounding;
  if (!lines.Rewind()) return false;
  source.parses = DtmAsciiImporter::DetectFormat(lines, format, &sounding, StopRequested);
  source.looksLikeDegrees = source.parses && CouldBeDegrees(sounding);
  const SoundingScanner scanner(format);
  for (int i = 0; i < kLinesLookedAt && source.looksLikeDegrees && lines.Next(line); ++i) {
    if (scanner.Scan(line.data(), line.data() + line.size(), sounding) == 3 && !CouldBeDegrees(sounding)) {
      source.looksLikeDegrees = false;
    }
  }
  if (lines.Failed() || StopRequested()) return false;
  return std::fseek(source.kept.get(), 0, SEEK_SET) == 0;
}

/// Looks at a text whose first line settles what it is.
/// @return false when the text can't be read.
bool LookAtDatedLines(SoundingSource& source) {
  TextFile text(source.kept.release());
  std::string_view line;
  source.isEmpty = !text.ReadLine(line, DtmAsciiTimeImporter::kLongestPiece);
  DatedFormat format;
  ScannedSounding sounding;
  ScannedDate date;
  if (!source.isEmpty) {
    source.firstLine = line.substr(0, line.find_last_not_of("\r\n") + 1);
    source.parses = DtmAsciiTimeImporter::DetectFormat(line, format, &sounding, &date);
  }
  source.dated = source.parses && format.dated;
  source.first = sounding;
  source.firstIsSounding =
      source.parses && JudgeNumbers(sounding, HoldsMarker(sounding, "#QNAN")) == SoundingLine::Kind::kSounding;
  if (source.dated) DtmAsciiTimeImporter::FindFault(date, source.firstDateFault);
  source.looksLikeDegrees = source.parses && CouldBeDegrees(sounding);
  const SoundingScanner scanner(format.columns);
  for (int i = 0; i < kLinesLookedAt && source.looksLikeDegrees; ++i) {
    if (!text.ReadLine(line, DtmAsciiTimeImporter::kLongestPiece)) break;
    if (scanner.Scan(line.data(), line.data() + line.size(), sounding) == 3 && !CouldBeDegrees(sounding)) {
      source.looksLikeDegrees = false;
    }
  }
  const bool failed = text.Failed();
  source.kept.reset(text.Release());
  return !failed && !StopRequested() && std::fseek(source.kept.get(), 0, SEEK_SET) == 0;
}

}  // namespace

bool LookAtSource(const CommandContext& context, const std::string& path, bool mayBeDated, SoundingSource& source) {
  const bool standardInput = path == "-";
  source.name = standardInput ? "standard input" : path;
  source.kept = standardInput ? OpenStandardInput() : OpenForReading(path);
  if (!source.kept) return FailOpening(context, source, standardInput, errno);
  struct stat status{};
  if (fstat(fileno(source.kept.get()), &status) != 0 || S_ISDIR(status.st_mode)) {
    context.Fail(source.name, "is a folder", "name a file");
    return false;
  }
  const bool readOnce = standardInput || !S_ISREG(status.st_mode);
  if (readOnce && !Spool(context, source)) return false;
  if (!(mayBeDated ? LookAtDatedLines(source) : LookAtLines(source)))
    return !StopRequested() && FailReading(context, source);
  if (!readOnce) source.kept.reset();
  return true;
}

FilePointer TakeFile(SoundingSource& source) {
  return source.kept ? std::move(source.kept) : OpenForReading(source.name);
}

}  // namespace vak
