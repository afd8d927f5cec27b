// Reads the input as a polygon file and asks all that can be asked of the polygon; stops the process where two ways to
// an answer differ.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/geometry/PolyClipper.h"
#include "vakdtm/services/text/Utf8.h"

namespace {

using vak::Page;
using vak::Point;
using vak::PolyClipLine;
using vak::PolyClipper;

void Expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

/// The input as a file of this process.
class InputFile {
 public:
  InputFile(const std::uint8_t* data, std::size_t size)
      : path_(std::filesystem::temp_directory_path() / ("vakdtm-polygon-fuzz-" + std::to_string(getpid()))) {
    std::ofstream out(path_, std::ios::binary);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  ~InputFile() {
    std::error_code error;
    std::filesystem::remove(path_, error);
  }
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  std::wstring Path() const { return vak::FromUtf8(path_.native()); }

 private:
  std::filesystem::path path_;
};

/// Whether rings and holes are around a point, counted ring by ring.
bool IsAround(const PolyClipLine& polygon, const Point& point) {
  int around = 0;
  const PolyClipLine* ring = nullptr;
  for (bool more = polygon.GetFirstPolyClipLine(ring); more; more = polygon.GetNextPolyClipLine(ring)) {
    if (ring->IsPointInPoly(point)) around += ring->IsHole() && polygon.NumRings() > 1 ? -1 : 1;
  }
  return around > 0;
}

void ClipRing(const PolyClipLine& ring, const Page& page) {
  PolyClipper clipper;
  clipper.SetPage(page);
  const bool left = ring.FillPolyClipper(clipper);
  const double area = std::fabs(clipper.Area());
  Expect(left == (clipper.GetCover() != PolyClipper::Cover::kOutside), "something is left");
  Expect(area <= page.Area(), "no more than the page");
  Expect(left || area == 0, "nothing of nothing");
  for (int i = 0; i < clipper.GetOutputSize(); ++i) {
    const Point point = clipper.GetOutputPoint(i);
    Expect(page.IsPointInPage(point.x, point.y), "within the page");
  }
}

void Ask(const PolyClipLine& polygon) {
  vak::PolyClipFault fault;
  const bool faulty = polygon.FindFault(fault);
  Expect(faulty == !fault.Text().empty(), "a fault has a text");
  Expect(faulty || polygon.IsValid(), "no fault, then valid");
  Page extents;
  if (!polygon.IsValid() || !polygon.GetExtents(extents)) return;
  const double width = extents.right() - extents.left();
  const double height = extents.top() - extents.bottom();
  for (int i = -1; i <= 5; ++i) {
    for (int k = -1; k <= 5; ++k) {
      const Point point(extents.left() + width * i / 4, extents.bottom() + height * k / 4);
      Expect(polygon.IsPointInPoly(point) == IsAround(polygon, point), "the index and the rings");
    }
  }
  const Page page(extents.left() + width / 4, extents.bottom() + height / 4, extents.left() + width / 2,
                  extents.bottom() + height / 2);
  const PolyClipLine* ring = nullptr;
  for (bool more = polygon.GetFirstPolyClipLine(ring); more; more = polygon.GetNextPolyClipLine(ring)) {
    if (page.Area() > 0) ClipRing(*ring, page);
  }
}

}  // namespace

// The name is the fuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const InputFile input(data, size);
  vak::FileObject file;
  if (!file.FileOpen(input.Path())) return 0;
  file.FileSave(input.Path());
  Expect(file.GetText() == file.GetContent(), "what isn't changed stays");
  PolyClipLine polygon;
  std::wstring error;
  const bool read = polygon.FileOpen(file, &error);
  Expect(read == error.empty(), "either read or an error");
  if (read) Ask(polygon);
  return 0;
}
