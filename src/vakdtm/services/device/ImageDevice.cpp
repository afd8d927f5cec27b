#include "vakdtm/services/device/ImageDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <vector>

#include "vakdtm/services/device/PngChunks.h"
#include "vakdtm/services/files/OutputFile.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

std::wstring FileError(const std::wstring& path, int error) {
  return path + L": " + FromUtf8(std::error_code(error, std::generic_category()).message());
}

/// Which pixel of `from` lies under the middle of pixel `i` of `to`.
int Under(std::int64_t i, std::int64_t from, std::int64_t to) {
  return static_cast<int>((2 * i + 1) * from / (2 * to));
}

}  // namespace

bool ImageDevice::Create(int width, int height, double dotsPerInch, Color background) {
  if (!Open({Surface::kImage, width, height, dotsPerInch, {}}, {})) return false;
  const Color former = GetBkColor();
  FillSolidRect({0, 0, width, height}, background);
  SetBkColor(former);
  return true;
}

void ImageDevice::FillSolidRect(const PixelRect& rect, Color color) {
  CDC::SetBkColor(color);
  FillPixels(rect, color);
}

Color ImageDevice::GetPixel(int x, int y) const {
  if (x < 0 || y < 0 || x >= Width() || y >= Height()) return kWhite;
  return Swapped(Pixels()[static_cast<std::ptrdiff_t>(Stride()) * y + x]);
}

void ImageDevice::DrawImage(const PixelRect& rect, const ImageDevice& image) {
  const PixelRect seen = Cut(rect);
  const std::uint32_t* from = image.Pixels();
  std::uint32_t* to = Pixels();
  if (from == nullptr || to == nullptr || seen.IsEmpty()) return;
  std::vector<std::uint32_t> copy;
  if (from == to) {
    copy.assign(from, from + static_cast<std::ptrdiff_t>(image.Stride()) * image.Height());
    from = copy.data();
  }
  const std::int64_t width = static_cast<std::int64_t>(rect.right) - rect.left;
  const std::int64_t height = static_cast<std::int64_t>(rect.bottom) - rect.top;
  std::vector<int> columns;
  for (int x = seen.left; x < seen.right; ++x) {
    columns.push_back(Under(static_cast<std::int64_t>(x) - rect.left, image.Width(), width));
  }
  for (int y = seen.top; y < seen.bottom; ++y) {
    const int row = Under(static_cast<std::int64_t>(y) - rect.top, image.Height(), height);
    const std::uint32_t* source = from + static_cast<std::ptrdiff_t>(image.Stride()) * row;
    std::uint32_t* target = to + static_cast<std::ptrdiff_t>(Stride()) * y + seen.left;
    for (const int column : columns) *target++ = source[column];
  }
}

bool ImageDevice::LendPixels(const PixelRect& rect, ImageDevice& part) {
  if (&part == this || rect.IsEmpty() || Cut(rect) != rect) return false;
  std::uint32_t* const pixels = Pixels();
  return pixels != nullptr && part.OpenOn(pixels + static_cast<std::ptrdiff_t>(Stride()) * rect.top + rect.left,
                                          Stride(), rect.right - rect.left, rect.bottom - rect.top, DotsPerInch());
}

bool ImageDevice::SavePng(const std::wstring& path, std::span<const PictureNote> notes,
                          const std::atomic<bool>* running) {
  if (Pixels() == nullptr) return Refuse(L"there is no image");
  std::string chunks = PngResolution(DotsPerInch());
  if (!PngNotes(notes, chunks)) return Refuse(L"a note's key is 1 to 79 printable ASCII characters");
  OutputFile file;
  errno = 0;
  if (!file.Open(path)) return Refuse(FileError(path, errno));
  int error = 0;
  const auto write = [&](const void* bytes, std::size_t count) {
    if (file.Write(bytes, static_cast<unsigned>(count))) return true;
    if (error == 0) error = errno;
    return false;
  };
  std::size_t written = 0;  // of what the library encodes
  const bool encoded = EncodePng([&](const unsigned char* bytes, unsigned count) {
    if (running != nullptr && !*running) error = ECANCELED;
    if (error != 0) return false;
    const std::size_t before = std::min<std::size_t>(count, kPngHeaderLength - std::min(kPngHeaderLength, written));
    const bool complete = written < kPngHeaderLength && written + count >= kPngHeaderLength;
    written += count;
    if (!write(bytes, before)) return false;
    if (complete && !write(chunks.data(), chunks.size())) return false;
    return write(bytes + before, count - before);
  });
  if (!encoded && error == 0) return false;  // the library's own reason
  if (error == 0 && !file.Close()) error = errno;
  return error == 0 ? Succeed() : Refuse(FileError(path, error));
}

}  // namespace vak
