#include "vakdtm/services/device/PageDevice.h"

#include <cerrno>
#include <system_error>

#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

std::wstring Text(int error) { return FromUtf8(std::error_code(error, std::generic_category()).message()); }

/// Asks viewers not to smooth the images of an SVG, which the drawing library doesn't, whatever it is told. The first
/// word is SVG's own, the second what browsers know; of two, the last one known counts.
constexpr std::string_view kTag = "<image ";
constexpr std::string_view kSharp = "style=\"image-rendering:optimizeSpeed;image-rendering:pixelated\" ";

}  // namespace

std::string PageDevice::Sharpened(std::string_view piece) {
  std::string sharpened;
  for (const char c : piece) {
    if (c != kTag[tagLength_]) {
      // The tag's first character stands in it only once.
      sharpened += kTag.substr(0, tagLength_);
      tagLength_ = 0;
    }
    if (c != kTag[tagLength_]) {
      sharpened += c;
    } else if (++tagLength_ == kTag.size()) {
      sharpened += kTag;
      sharpened += kSharp;
      tagLength_ = 0;
    }
  }
  return sharpened;
}

bool PageDevice::IsStopped() {
  if (running_ == nullptr || *running_) return false;
  if (error_ == 0) error_ = ECANCELED;
  return true;
}

bool PageDevice::WritePiece(std::string_view piece) {
  if (!IsStopped() && error_ == 0 && !file_.Write(piece.data(), static_cast<unsigned>(piece.size()))) error_ = errno;
  return error_ == 0;
}

PageDevice::~PageDevice() { GiveUp(); }

void PageDevice::GiveUp() {
  // The library would write the rest, and what nobody finished would look whole.
  error_ = ECANCELED;
  Drop();
}

bool PageDevice::Create(const std::wstring& path, Format format, int width, int height, double dotsPerInch,
                        const std::wstring& title) {
  GiveUp();
  path_ = path;
  error_ = 0;
  errno = 0;
  const Settings settings{format == Format::kPdf ? Surface::kPdf : Surface::kSvg, width, height, dotsPerInch, title};
  if (!IsPossible(settings)) return false;
  if (!file_.Open(path)) return Refuse(path + L": " + Text(errno));
  tagLength_ = 0;
  const auto sink = [this, format](const unsigned char* bytes, unsigned count) {
    const std::string_view piece(reinterpret_cast<const char*>(bytes), count);
    return format == Format::kSvg ? WritePiece(Sharpened(piece)) : WritePiece(piece);
  };
  const bool opened = Open(settings, sink);
  if (!opened) {
    file_.Close();
    return false;
  }
  // Where nothing is drawn a viewer may show what lies behind an SVG.
  FillOnPage({0, 0, width, height}, kWhite);
  return true;
}

bool PageDevice::Finish() {
  const bool finished = FinishPage();
  if (error_ == 0 && file_.IsOpen() && !file_.Close()) error_ = errno;
  return error_ == 0 ? finished : Refuse(path_ + L": " + Text(error_));
}

void PageDevice::FillSolidRect(const PixelRect& rect, Color color) {
  CDC::SetBkColor(color);
  FillOnPage(rect, color);
}

Color PageDevice::GetPixel(int /*x*/, int /*y*/) const { return kWhite; }

/// @param rect  on the page.
void PageDevice::DrawWhole(const PixelRect& rect, const ImageDevice& image) {
  DrawImageOnPage(rect, image, [this] { return !IsStopped(); });
}

void PageDevice::DrawImage(const PixelRect& rect, const ImageDevice& image) {
  const PixelRect seen = Cut(rect);
  if (seen.IsEmpty() || image.Width() == 0) return;
  if (seen == rect) {
    DrawWhole(rect, image);
    return;
  }
  // What is beyond the page stays out of the file, and no viewer has to follow coordinates that are far away.
  const auto shifted = [&seen](const PixelRect& r) {
    return PixelRect{r.left - seen.left, r.top - seen.top, r.right - seen.left, r.bottom - seen.top};
  };
  ImageDevice part;
  if (!part.Create(seen.right - seen.left, seen.bottom - seen.top)) {
    if (error_ == 0) error_ = ENOMEM;
    return;
  }
  part.DrawImage(shifted(rect), image);
  DrawWhole(seen, part);
}

}  // namespace vak
