#include "vakdtm/services/device/CairoDevice.h"

#include <algorithm>
#include <array>
#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <optional>
#include <pango/pangocairo.h>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/services/device/PixelClip.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

constexpr double kPointsPerInch = 72.0;

struct Destroyer {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  void operator()(cairo_t* context) const { cairo_destroy(context); }
  void operator()(cairo_font_options_t* options) const { cairo_font_options_destroy(options); }
  void operator()(PangoFontDescription* description) const { pango_font_description_free(description); }
  void operator()(PangoFontMetrics* metrics) const { pango_font_metrics_unref(metrics); }
  void operator()(PangoContext* context) const { g_object_unref(context); }
  void operator()(PangoFontMap* map) const { g_object_unref(map); }
  void operator()(PangoLayout* layout) const { g_object_unref(layout); }
};
template <typename T>
using Owner = std::unique_ptr<T, Destroyer>;

/// What is set for one drawing and for nothing after it.
class Scope {
 public:
  explicit Scope(cairo_t* context) : context_(context) { cairo_save(context_); }
  ~Scope() { cairo_restore(context_); }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  cairo_t* context_;
};

void SetSource(cairo_t* context, Color color) {
  constexpr double kWhole = 255.0;
  const auto share = [color](int shift) { return static_cast<double>(color >> shift & 255) / kWhole; };
  cairo_set_source_rgb(context, share(0), share(8), share(16));
}

/// Whether `ToUtf8` makes a byte of it that is no character.
bool IsLoneByte(wchar_t c) { return c >= 0xDC80 && c <= 0xDCFF; }

/// Of a text that is going to be one line, what can be printed: the text library refuses a text that is no UTF-8 as a
/// whole, and says so on standard error.
std::string Printable(const std::wstring& text) {
  constexpr wchar_t kReplacement = L'\xFFFD';
  std::wstring clean = text;
  for (wchar_t& c : clean) {
    const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
    if (control || IsLoneByte(c)) c = kReplacement;
  }
  return ToUtf8(clean);
}

/// Lays texts out in one font, in pixels. The glyphs keep their own form at all sizes (no hinting), so that boxes are
/// the same on every system with the same font.
class TextSetter {
 public:
  /// @param wholePixels  each character begins on a whole pixel, as the image's are painted on these anyway. On a page
  /// they stand where the font has them.
  explicit TextSetter(bool wholePixels) : map_(pango_cairo_font_map_new_for_font_type(CAIRO_FONT_TYPE_FT)) {
    // Without that kind of fonts, what the library has.
    if (!map_) map_.reset(pango_cairo_font_map_new());
    context_.reset(pango_font_map_create_context(map_.get()));
    const Owner<cairo_font_options_t> options(cairo_font_options_create());
    cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context_.get(), options.get());
    pango_context_set_round_glyph_positions(context_.get(), wholePixels ? TRUE : FALSE);
    // The user's language decides over forms of characters; a picture is to be the same everywhere.
    pango_context_set_language(context_.get(), pango_language_from_string("en"));
    pango_context_set_base_dir(context_.get(), PANGO_DIRECTION_LTR);
    layout_.reset(pango_layout_new(context_.get()));
    pango_layout_set_single_paragraph_mode(layout_.get(), TRUE);
  }

  void Select(const VakFont& font) {
    if (font_ == font) return;
    font_ = font;
    const Owner<PangoFontDescription> description(pango_font_description_new());
    const std::string families = ToUtf8(Family(font.name)) + ",DejaVu Sans,sans-serif";
    pango_font_description_set_family(description.get(), families.c_str());
    const int height = std::clamp(font.height, 1, CairoDevice::kHighestText);
    pango_font_description_set_absolute_size(description.get(), static_cast<double>(height) * PANGO_SCALE);
    pango_font_description_set_weight(description.get(),
                                      static_cast<PangoWeight>(std::clamp(font.weight, 100, kHeaviest)));
    pango_font_description_set_style(description.get(), font.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    pango_layout_set_font_description(layout_.get(), description.get());
    const Owner<PangoFontMetrics> metrics(pango_context_get_metrics(context_.get(), description.get(), nullptr));
    ascent_ = PANGO_PIXELS_CEIL(pango_font_metrics_get_ascent(metrics.get()));
    descent_ = PANGO_PIXELS_CEIL(pango_font_metrics_get_descent(metrics.get()));
    // Without any font the library paints nothing that could be read, and says nothing.
    hasFont_ = ascent_ + descent_ > 0;
    if (!hasFont_) ascent_ = height;
  }

  /// Makes the text the one that `Width` and `Show` are about.
  void Set(const std::wstring& text) {
    const std::string printable = Printable(text);
    pango_layout_set_text(layout_.get(), printable.data(), static_cast<int>(printable.size()));
  }

  int Width() const {
    PangoRectangle logical;
    pango_layout_get_extents(layout_.get(), nullptr, &logical);
    return PANGO_PIXELS_CEIL(logical.width);
  }
  bool HasFont() const { return hasFont_; }
  int Ascent() const { return ascent_; }
  int Descent() const { return descent_; }

  /// Prints it with its line's left end at the current point.
  void Show(cairo_t* context) const {
    PangoLayoutLine* line = pango_layout_get_line_readonly(layout_.get(), 0);
    if (line != nullptr) pango_cairo_show_layout_line(context, line);
  }

 private:
  static constexpr int kHeaviest = 1000;

  /// A comma would begin the next of several families.
  static std::wstring Family(std::wstring name) {
    for (wchar_t& c : name) {
      if (c == L',' || c < 0x20 || IsLoneByte(c)) c = L' ';
    }
    return name;
  }

  Owner<PangoFontMap>
      map_;  // its own: the one that the library keeps for each thread would not follow a device to another
  Owner<PangoContext> context_;
  Owner<PangoLayout> layout_;
  std::optional<VakFont> font_;
  bool hasFont_ = false;
  int ascent_ = 0;
  int descent_ = 0;
};

cairo_status_t Pass(void* sink, const unsigned char* bytes, unsigned count) {
  const auto& pass = *static_cast<const std::function<bool(const unsigned char*, unsigned)>*>(sink);
  return pass(bytes, count) ? CAIRO_STATUS_SUCCESS : CAIRO_STATUS_WRITE_ERROR;
}

/// Empty: no failure.
std::wstring Reason(cairo_status_t status) {
  return status == CAIRO_STATUS_SUCCESS ? std::wstring() : FromUtf8(cairo_status_to_string(status));
}

/// @return why the pixels didn't all get into the sink as a PNG file; empty: they did.
std::wstring WritePng(cairo_surface_t* surface, const std::function<bool(const unsigned char*, unsigned)>& sink) {
  // The library takes a pointer that isn't to const, and only hands it on.
  auto* const closure = const_cast<std::function<bool(const unsigned char*, unsigned)>*>(&sink);
  return Reason(cairo_surface_write_to_png_stream(surface, Pass, closure));
}

/// Gives a surface its pixels as a PNG file beside them, for one drawing.
class PackedScope {
 public:
  PackedScope(cairo_surface_t* surface, std::string png) : surface_(surface) {
    auto bytes = std::make_unique<std::string>(std::move(png));
    const auto* const data = reinterpret_cast<const unsigned char*>(bytes->data());
    const auto destroy = [](void* owned) { delete static_cast<std::string*>(owned); };
    const cairo_status_t status =
        cairo_surface_set_mime_data(surface_, CAIRO_MIME_TYPE_PNG, data, bytes->size(), destroy, bytes.get());
    // Without it the library packs the pixels itself.
    if (status != CAIRO_STATUS_SUCCESS) return;
    [[maybe_unused]] const std::string* const theLibrarys = bytes.release();
  }
  ~PackedScope() { cairo_surface_set_mime_data(surface_, CAIRO_MIME_TYPE_PNG, nullptr, 0, nullptr, nullptr); }

  PackedScope(const PackedScope&) = delete;
  PackedScope& operator=(const PackedScope&) = delete;

 private:
  cairo_surface_t* surface_;
};

std::wstring SizeText(int width, int height) {
  return std::to_wstring(width) + L" x " + std::to_wstring(height) + L" pixels";
}

void AddPath(cairo_t* context, const std::vector<PixelPoint>& points, bool closed) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i == 0) {
      cairo_move_to(context, points[i].x, points[i].y);
    } else {
      cairo_line_to(context, points[i].x, points[i].y);
    }
  }
  if (closed) cairo_close_path(context);
}

bool IsParallelToAxes(std::span<const PixelPoint> points) {
  for (std::size_t i = 1; i < points.size(); ++i) {
    if (points[i - 1].x != points[i].x && points[i - 1].y != points[i].y) return false;
  }
  return true;
}

void SelectDashes(cairo_t* context, int style, double width, double begin) {
  // In lengths of the pen's width, as the eye sees them in relation to it.
  if (style == Pen::kDashed) {
    const std::array<double, 2> dashes = {6 * width, 4 * width};
    cairo_set_dash(context, dashes.data(), 2, begin);
  } else if (style == Pen::kDotted) {
    const std::array<double, 2> dots = {2 * width, 2 * width};
    cairo_set_dash(context, dots.data(), 2, begin);
  }
}

}  // namespace

struct CairoDevice::Canvas {
  Surface kind = Surface::kImage;
  std::wstring failure;  // what went wrong beside the library
  Sink sink;             // outlives the surface, which writes to it when it goes
  Owner<cairo_surface_t> surface;
  Owner<cairo_t> context;
  std::unique_ptr<TextSetter> setter;  // not before the first text: finding the fonts takes its time
  TextSetter& Text(const VakFont& font) {
    if (!setter) setter = std::make_unique<TextSetter>(kind == Surface::kImage);
    setter->Select(font);
    return *setter;
  }

  /// What went wrong so far; empty: nothing.
  std::wstring Failure() const {
    if (!failure.empty()) return failure;
    const cairo_status_t status = cairo_status(context.get());
    return Reason(status != CAIRO_STATUS_SUCCESS ? status : cairo_surface_status(surface.get()));
  }
};

CairoDevice::CairoDevice() = default;

CairoDevice::~CairoDevice() = default;

void CairoDevice::Drop() {
  canvas_.reset();
  width_ = 0;
  height_ = 0;
  dotsPerInch_ = 0;
  pixels_ = nullptr;
  stride_ = 0;
  touched_ = false;
}

bool CairoDevice::Refuse(std::wstring why) {
  lastError_ = std::move(why);
  return false;
}

bool CairoDevice::Succeed() {
  lastError_.clear();
  return true;
}

bool CairoDevice::IsPossible(const Settings& settings) {
  constexpr double kMostDotsPerInch = 100'000.0;
  constexpr double kLongestPdfSide = 14'400.0;  // points: what readers of PDF go along with
  const int longer = std::max(settings.width, settings.height);
  const std::wstring size = SizeText(settings.width, settings.height);
  if (settings.width < 1 || settings.height < 1) return Refuse(L"a picture of " + size + L" has nothing in it");
  if (longer > kLongestSide) {
    return Refuse(L"a picture of " + size + L" is too large: a side has " + std::to_wstring(kLongestSide) +
                  L" at most");
  }
  const bool resolved = settings.dotsPerInch >= 1.0 && settings.dotsPerInch <= kMostDotsPerInch;
  if (!resolved) {
    return Refuse(L"dots per inch are between 1 and 100000");
  }
  const double points = kPointsPerInch / settings.dotsPerInch;  // a pixel's side
  if (settings.surface == Surface::kPdf && longer * points > kLongestPdfSide) {
    return Refuse(L"a page of " + size +
                  L" at these dots per inch is too large: a side of a PDF page has 200 inches at "
                  L"most");
  }
  return true;
}

bool CairoDevice::Open(const Settings& settings, Sink sink) {
  Drop();
  if (!IsPossible(settings)) return false;
  const double points = kPointsPerInch / settings.dotsPerInch;  // a pixel's side
  auto canvas = std::make_unique<Canvas>();
  canvas->kind = settings.surface;
  canvas->sink = std::move(sink);
  if (settings.surface == Surface::kImage) {
    canvas->surface.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, settings.width, settings.height));
  } else {
    const auto create =
        settings.surface == Surface::kPdf ? cairo_pdf_surface_create_for_stream : cairo_svg_surface_create_for_stream;
    canvas->surface.reset(create(Pass, &canvas->sink, settings.width * points, settings.height * points));
  }
  canvas->context.reset(cairo_create(canvas->surface.get()));
  if (!canvas->Failure().empty())
    return Refuse(L"no picture of " + SizeText(settings.width, settings.height) + L": " + canvas->Failure());
  if (settings.surface == Surface::kImage) {
    // The library aligns its rows for any of its formats.
    pixels_ = reinterpret_cast<std::uint32_t*>(cairo_image_surface_get_data(canvas->surface.get()));
    stride_ = cairo_image_surface_get_stride(canvas->surface.get()) / static_cast<int>(sizeof(std::uint32_t));
  } else {
    cairo_scale(canvas->context.get(), points, points);
  }
  if (settings.surface == Surface::kPdf && !settings.title.empty()) {
    cairo_pdf_surface_set_metadata(canvas->surface.get(), CAIRO_PDF_METADATA_TITLE, Printable(settings.title).c_str());
  }
  canvas_ = std::move(canvas);
  width_ = settings.width;
  height_ = settings.height;
  dotsPerInch_ = settings.dotsPerInch;
  return Succeed();
}

bool CairoDevice::OpenOn(std::uint32_t* pixels, int stride, int width, int height, double dotsPerInch) {
  auto canvas = std::make_unique<Canvas>();
  canvas->surface.reset(cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(pixels),
                                                            CAIRO_FORMAT_RGB24, width, height,
                                                            stride * static_cast<int>(sizeof(std::uint32_t))));
  canvas->context.reset(cairo_create(canvas->surface.get()));
  if (const std::wstring failure = canvas->Failure(); !failure.empty()) return Refuse(failure);
  Drop();
  canvas_ = std::move(canvas);
  pixels_ = pixels;
  stride_ = stride;
  width_ = width;
  height_ = height;
  dotsPerInch_ = dotsPerInch;
  return Succeed();
}

int CairoDevice::GetDeviceCaps(int what) const {
  if (what != kHorizontalDotsPerInch && what != kVerticalDotsPerInch) return 0;
  return static_cast<int>(std::lround(dotsPerInch_));
}

void CairoDevice::SetAntialiasing(bool on) {
  if (canvas_) cairo_set_antialias(canvas_->context.get(), on ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
}

void CairoDevice::FillPixels(const PixelRect& rect, Color color) {
  const PixelRect seen = Cut(rect);
  if (seen.IsEmpty()) return;
  std::uint32_t* row = Pixels();
  if (row == nullptr) return;
  const std::uint32_t pixel = Swapped(static_cast<std::uint32_t>(color));
  row += static_cast<std::ptrdiff_t>(stride_) * seen.top;
  for (int y = seen.top; y < seen.bottom; ++y, row += stride_) {
    for (int x = seen.left; x < seen.right; ++x) row[x] = pixel;
  }
}

/// Draws lines that are parallel to the axes, each as the pixels that it covers. The pen's middle lies on a pixel when
/// its width is odd, between two when it is even.
void CairoDevice::DrawOnPixels(std::span<const PixelPoint> points, int width, Color color) {
  const bool even = width % 2 == 0;
  const double before = even ? width / 2.0 : (width - 1) / 2.0;  // pixels on this side of the middle one
  const auto firstPixel = [even, before](double v) {
    constexpr double kFarthest = 1 << 30;
    const double first = std::floor(even ? v + 0.5 : v) - before;
    return static_cast<int>(std::clamp(first, -kFarthest, kFarthest));
  };
  for (std::size_t i = 1; i < points.size(); ++i) {
    const PixelPoint& from = points[i - 1];
    const PixelPoint& to = points[i];
    if (!IsFinite(from) || !IsFinite(to)) continue;
    FillPixels({firstPixel(std::min(from.x, to.x)), firstPixel(std::min(from.y, to.y)),
                firstPixel(std::max(from.x, to.x)) + width, firstPixel(std::max(from.y, to.y)) + width},
               color);
  }
}

void CairoDevice::DrawPolyline(std::span<const PixelPoint> points) {
  const Pen& pen = GetPen();
  if (!canvas_ || pen.style == Pen::kNone) return;
  const int width = std::clamp(pen.width, 1, kWidestPen);
  const bool solid = pen.style != Pen::kDashed && pen.style != Pen::kDotted;
  const bool parallel = IsParallelToAxes(points);
  const bool onPixels = parallel && pixels_ != nullptr;
  if (onPixels && solid) {
    DrawOnPixels(points, width, pen.color);
    return;
  }
  const double middle = width % 2 == 0 ? 0.0 : 0.5;
  std::vector<PixelPoint> snapped;
  if (onPixels) {
    const auto snap = [middle](double v) { return std::floor(v + 0.5 - middle) + middle; };
    snapped.reserve(points.size());
    for (const PixelPoint& point : points) snapped.push_back({snap(point.x), snap(point.y)});
    points = snapped;
  }
  const double margin = 2.0 * width + 8;  // more than corners and ends of lines reach
  const std::vector<PixelRun> runs = ClipPolyline(points, {-margin, -margin, width_ + margin, height_ + margin});
  if (runs.empty()) return;
  Release();
  cairo_t* context = canvas_->context.get();
  const Scope scope(context);
  SetSource(context, pen.color);
  cairo_set_line_width(context, width);
  cairo_set_line_join(context, parallel ? CAIRO_LINE_JOIN_MITER : CAIRO_LINE_JOIN_ROUND);
  cairo_set_line_cap(context, parallel && solid ? CAIRO_LINE_CAP_SQUARE : CAIRO_LINE_CAP_BUTT);
  // A line from the middle of a pixel begins in the middle of a dash's, so that dashes are whole pixels.
  SelectDashes(context, pen.style, width, onPixels ? middle : 0.0);
  cairo_new_path(context);
  for (const PixelRun& run : runs) AddPath(context, run.points, run.closed);
  cairo_stroke(context);
}

void CairoDevice::FillPolygon(std::span<const PixelPoint> points, Color color) {
  if (!canvas_) return;
  constexpr double kMargin = 8;
  const std::vector<PixelPoint> seen = ClipPolygon(points, {-kMargin, -kMargin, width_ + kMargin, height_ + kMargin});
  if (seen.size() < 3) return;
  Release();
  cairo_t* context = canvas_->context.get();
  const Scope scope(context);
  SetSource(context, color);
  cairo_set_fill_rule(context, CAIRO_FILL_RULE_EVEN_ODD);
  cairo_new_path(context);
  AddPath(context, seen, true);
  cairo_fill(context);
}

TextExtent CairoDevice::GetTextExtent(const std::wstring& text) {
  if (!canvas_) return {};
  TextSetter& setter = canvas_->Text(GetFont());
  setter.Set(text);
  return {setter.Width(), setter.Ascent() + setter.Descent()};
}

void CairoDevice::PrintText(int x, int y, const std::wstring& text, const PixelRect* clip) {
  constexpr int kLongest = 1'000'000;  // pixels; the library's coordinates end at eight times as many
  if (!canvas_ || text.empty()) return;
  const PixelRect seen = Cut(clip != nullptr ? *clip : PixelRect{0, 0, width_, height_});
  if (seen.IsEmpty()) return;
  TextSetter& setter = canvas_->Text(GetFont());
  if (!setter.HasFont()) {
    canvas_->failure = L"no font is installed (the package fonts-dejavu-core has one)";
    return;
  }
  setter.Set(text);
  const int width = setter.Width();
  const int height = setter.Ascent() + setter.Descent();
  // However it is turned and aligned, it reaches no further than this.
  const double reach = static_cast<double>(width) + 2.0 * height;
  const bool near = x + reach > seen.left && x - reach < seen.right && y + reach > seen.top && y - reach < seen.bottom;
  if (width > kLongest || !near) return;

  const unsigned align = GetTextAlign();
  int left = 0;
  if ((align & kCenter) == kCenter) {
    left = -width / 2;
  } else if ((align & kCenter) == kRight) {
    left = -width;
  }
  int baseline = setter.Ascent();
  if ((align & kBaseline) == kBaseline) {
    baseline = 0;
  } else if ((align & kBaseline) == kBottom) {
    baseline = -setter.Descent();
  }
  Release();
  cairo_t* context = canvas_->context.get();
  const Scope scope(context);
  if (clip != nullptr) {
    cairo_rectangle(context, seen.left, seen.top, seen.right - seen.left, seen.bottom - seen.top);
    cairo_clip(context);
  }
  constexpr int kFullTurn = 3600;
  constexpr double kHalfTurn = 1800.0;
  cairo_translate(context, x, y);
  cairo_rotate(context, -(GetFont().escapement % kFullTurn) * std::numbers::pi / kHalfTurn);
  SetSource(context, GetTextColor());
  cairo_move_to(context, left, baseline);
  setter.Show(context);
}

void CairoDevice::FillOnPage(const PixelRect& rect, Color color) {
  const PixelRect seen = Cut(rect);
  if (!canvas_ || seen.IsEmpty()) return;
  Release();
  cairo_t* context = canvas_->context.get();
  const Scope scope(context);
  SetSource(context, color);
  cairo_rectangle(context, seen.left, seen.top, seen.right - seen.left, seen.bottom - seen.top);
  cairo_fill(context);
}

void CairoDevice::DrawImageOnPage(const PixelRect& rect, const CairoDevice& image,
                                  const std::function<bool()>& running) {
  if (!canvas_ || image.pixels_ == nullptr || rect.IsEmpty()) return;
  // The pixels count as they are now: before the next write into them the library is told, and copies them.
  image.Release();
  std::optional<PackedScope> packed;
  if (canvas_->kind == Surface::kSvg) {
    // The library would pack it when the page ends, without asking anybody.
    std::string png;
    std::wstring failure = WritePng(image.canvas_->surface.get(), [&](const unsigned char* bytes, unsigned count) {
      png.append(reinterpret_cast<const char*>(bytes), count);
      return running();
    });
    if (!failure.empty()) {
      canvas_->failure = std::move(failure);
      return;
    }
    packed.emplace(image.canvas_->surface.get(), std::move(png));
  }
  cairo_t* context = canvas_->context.get();
  const Scope scope(context);
  cairo_translate(context, rect.left, rect.top);
  cairo_scale(context, static_cast<double>(rect.right - rect.left) / image.width_,
              static_cast<double>(rect.bottom - rect.top) / image.height_);
  cairo_set_source_surface(context, image.canvas_->surface.get(), 0, 0);
  cairo_pattern_set_filter(cairo_get_source(context), CAIRO_FILTER_NEAREST);
  cairo_paint(context);
}

bool CairoDevice::FinishPage() {
  if (!canvas_) return Refuse(L"there is no page");
  std::wstring failure = canvas_->Failure();
  if (failure.empty()) {
    cairo_show_page(canvas_->context.get());
    cairo_surface_finish(canvas_->surface.get());
    failure = canvas_->Failure();
  }
  Drop();
  return failure.empty() ? Succeed() : Refuse(std::move(failure));
}

// The library is told once before many writes to the pixels and once after them, not for each.

void CairoDevice::Touch() const {
  if (pixels_ == nullptr) return;
  cairo_surface_flush(canvas_->surface.get());
  touched_ = true;
}

void CairoDevice::Release() const {
  if (std::exchange(touched_, false)) cairo_surface_mark_dirty(canvas_->surface.get());
}

bool CairoDevice::EncodePng(const Sink& sink) {
  if (!canvas_ || canvas_->kind != Surface::kImage) return Refuse(L"there is no image");
  Release();
  std::wstring failure = canvas_->Failure();
  if (failure.empty()) failure = WritePng(canvas_->surface.get(), sink);
  return failure.empty() ? Succeed() : Refuse(std::move(failure));
}

}  // namespace vak
