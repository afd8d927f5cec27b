// Reads the input as a text of soundings, once by LineReader and SoundingScanner and once by fgets and sscanf, and
// stops the process where they differ.

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "vakdtm/intake/LineReader.h"
#include "vakdtm/intake/SoundingScanner.h"

namespace {

// Values that no scan leaves by chance.
constexpr double kUntouched = -123.456e77;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

void Expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "differs: %s\n", what);
  std::abort();
}

bool SameBits(double a, double b) { return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b); }

File OpenBytes(const std::uint8_t* data, std::size_t size) {
  File file(fmemopen(const_cast<std::uint8_t*>(data), size, "r"));  // only read, as the mode says
  if (!file) std::abort();
  return file;
}

void CompareScan(vak::SoundingFormat format, std::string_view line, const char* terminated) {
  double x = kUntouched;
  double y = kUntouched;
  double z = kUntouched;
  // NOLINTBEGIN(cert-err34-c): sscanf is the judge here, whatever it makes of a number.
  const int fields = format == vak::SoundingFormat::kComma ? std::sscanf(terminated, "%lf,%lf,%lf", &x, &y, &z)
                                                           : std::sscanf(terminated, "%lf %lf %lf", &x, &y, &z);
  // NOLINTEND(cert-err34-c)
  vak::ScannedSounding sounding{kUntouched, kUntouched, kUntouched, 0, {}};
  const int scanned = vak::SoundingScanner(format).Scan(line.data(), line.data() + line.size(), sounding);
  Expect(scanned == fields && sounding.fields == fields, "count of fields");
  Expect(SameBits(sounding.x, x) && SameBits(sounding.y, y) && SameBits(sounding.z, z), "numbers");
  Expect(vak::HoldsMarker(sounding) == (std::strstr(terminated, "-nan") != nullptr), "marker");
  if (sounding.RestIsEmpty()) {
    Expect(line.find_first_not_of("0123456789+-.,eE \t\r\n") == std::string_view::npos, "rest of the line");
  }
}

// A line that ends earlier: what stands behind it then looks like more of it.
void CompareCut(vak::SoundingFormat format, std::string_view line) {
  const std::size_t length = static_cast<unsigned char>(line.front()) % line.size();
  CompareScan(format, line.substr(0, length), std::string(line, 0, length).c_str());
}

void CompareText(const std::uint8_t* data, std::size_t size, std::size_t blockSize) {
  const File expected = OpenBytes(data, size);
  const File actual = OpenBytes(data, size);
  vak::LineReader reader(actual.get(), blockSize);
  std::array<char, 256> buffer;
  std::int64_t position = 0;
  std::int64_t number = 1;
  std::string_view line;
  while (true) {
    buffer.fill('\1');  // so that NUL behind the text tells how much fgets has read, whatever it has read
    const bool more = std::fgets(buffer.data(), static_cast<int>(buffer.size()), expected.get()) != nullptr;
    Expect(reader.Next(line) == more, "end of the text");
    if (!more) break;
    const auto length = static_cast<std::size_t>(ftello(expected.get()) - position);
    position += static_cast<std::int64_t>(length);
    Expect(line == std::string_view(buffer.data(), length), "line");
    Expect(reader.Position() == position && reader.LineNumber() == number, "place");
    if (line.back() == '\n') ++number;
    for (const vak::SoundingFormat format : {vak::SoundingFormat::kComma, vak::SoundingFormat::kBlank}) {
      CompareScan(format, line, buffer.data());
      CompareCut(format, line);
    }
  }
  Expect(!reader.Failed() && position == static_cast<std::int64_t>(size), "whole text");
}

}  // namespace

// The name is the fuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;     // fmemopen takes no empty text
  CompareText(data, size, 0);  // the smallest block: many seams
  CompareText(data, size, 4096);
  return 0;
}
