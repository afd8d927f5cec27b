#include <atomic>
#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include "vakdtm/services/device/ImageDevice.h"
#include "vakdtm/services/device/PageDevice.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/RunGdal.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

constexpr auto kPdf = PageDevice::Format::kPdf;
constexpr auto kSvg = PageDevice::Format::kSvg;
constexpr Color kRed = 0x0000FF;
constexpr Color kBlue = 0xFF0000;

using Points = std::vector<PixelPoint>;

std::wstring Reason(int error) { return FromUtf8(std::error_code(error, std::generic_category()).message()); }

/// A bit of everything.
void Draw(PageDevice& page) {
  ImageDevice image;
  ASSERT_TRUE(image.Create(4, 3));
  image.FillSolidRect({0, 0, 2, 3}, kRed);
  page.DrawImage({10, 20, 50, 50}, image);
  // What happens to an image after it was drawn doesn't change what was drawn.
  image.FillSolidRect({0, 0, 4, 3}, 0);
  page.FillSolidRect({60, 20, 80, 40}, kBlue);
  page.SelectPen(CreatePen(0, 2, 0x336699));
  page.DrawLine(10, 60, 90, 60);
  page.FillPolygon(Points{{60, 50}, {80, 50}, {70, 70}}, 0x00FF00);
  page.TextOut(10, 70, L"Tiefe -12.34 m \x00D6l");
}

TEST(PageDevice, StoppedItWritesNoMore) {
  const test::TestFolder folder;
  for (const auto format : {kPdf, kSvg}) {
    SCOPED_TRACE(format == kPdf ? "pdf" : "svg");
    std::atomic<bool> running = true;
    PageDevice page;
    page.SetRunning(&running);
    ASSERT_TRUE(page.Create(folder.WideFile("a"), format, 200, 100));
    Draw(page);
    ASSERT_TRUE(page.Finish()) << ToUtf8(page.LastError());
    const std::string whole = folder.Text("a");
    ASSERT_TRUE(page.Create(folder.WideFile("a"), format, 200, 100));
    Draw(page);
    running = false;
    EXPECT_FALSE(page.Finish());
    EXPECT_LT(folder.Text("a").size(), 100U);
    // An image isn't packed any more either, and says so though all goes on.
    ASSERT_TRUE(page.Create(folder.WideFile("a"), format, 200, 100));
    Draw(page);
    running = true;
    EXPECT_EQ(page.Finish(), format == kPdf);
    page.SetRunning(nullptr);
    ASSERT_TRUE(page.Create(folder.WideFile("a"), format, 200, 100));
    Draw(page);
    EXPECT_TRUE(page.Finish()) << ToUtf8(page.LastError());
    EXPECT_EQ(folder.Text("a").size(), whole.size());
  }
}

TEST(PageDevice, PdfHasItsSizeItsImageAndItsTextAsText) {
  const test::TestFolder folder;
  PageDevice page;
  ASSERT_TRUE(page.Create(folder.WideFile("a.pdf"), kPdf, 200, 100, 144.0,
                          L"Gr\x00FC\x00DF"
                          L"e"));
  EXPECT_EQ(page.GetDeviceCaps(90), 144);
  Draw(page);
  ASSERT_TRUE(page.Finish()) << ToUtf8(page.LastError());
  const std::string pdf = folder.Text("a.pdf");
  EXPECT_EQ(pdf.substr(0, 5), "%PDF-");
  EXPECT_EQ(pdf.substr(pdf.size() - 6), "%%EOF\n");
  EXPECT_NE(pdf.find("/MediaBox [ 0 0 100 50 ]"), std::string::npos);
  EXPECT_NE(pdf.find("/Width 4"), std::string::npos);
  EXPECT_NE(pdf.find("/Height 3"), std::string::npos);
  EXPECT_NE(pdf.find("/Interpolate false"), std::string::npos);
  EXPECT_EQ(pdf.find("/Interpolate true"), std::string::npos);
  // The text is read as a viewer reads it that copies it: by the page's codes and the font's table of characters.
  const test::CommandResult result = test::RunGdal(
      "import re, zlib\n"
      "pdf = open(sys.argv[1], 'rb').read()\n"
      "streams = [zlib.decompress(s) for s in re.findall(rb'FlateDecode.*?stream\\n(.*?)endstream', pdf, re.S)]\n"
      "cmap = [s for s in streams if b'begincmap' in s]\n"
      "assert len(cmap) == 1, len(cmap)\n"
      "known = {}\n"
      "for block in re.findall(rb'beginbfchar(.*?)endbfchar', cmap[0], re.S):\n"
      "    for code, text in re.findall(rb'<(\\w+)> *<(\\w+)>', block):\n"
      "        known[int(code, 16)] = bytes.fromhex(text.decode()).decode('utf-16-be')\n"
      "for first, last, text in re.findall(rb'<(\\w+)> <(\\w+)> <(\\w+)>', cmap[0].split(b'endcodespacerange')[1]):\n"
      "    for i in range(int(first, 16), int(last, 16) + 1):\n"
      "        known[i] = chr(int(text, 16) + i - int(first, 16))\n"
      "content = [s for s in streams if b'BT' in s and b'Tf' in s]\n"
      "assert len(content) == 1, len(content)\n"
      "text = ''\n"
      "wide = b'/Identity-H' in pdf\n"
      "for hexed, plain in re.findall(rb'<([0-9a-f]+)>|\\(((?:[^()\\\\]|\\\\.)*)\\)', content[0]):\n"
      "    octal = lambda m: bytes([int(m[1], 8)])\n"
      "    codes = bytes.fromhex(hexed.decode()) if hexed else re.sub(rb'\\\\([0-7]{3})', octal, plain)\n"
      "    step = 2 if wide else 1\n"
      "    for i in range(0, len(codes), step):\n"
      "        text += known[int.from_bytes(codes[i:i + step], 'big')]\n"
      "image = [s for s in streams if len(s) == 36]\n"
      "assert b''.join([b'\\xff\\0\\0' * 2 + b'\\xff' * 6] * 3) in image, image\n"
      "assert 'Gr\\u00fc\\u00dfe'.encode('utf-16-be').hex() in pdf.decode('latin1').lower(), 'title'\n"
      "sys.stdout.buffer.write(text.encode())\n",
      folder.File("a.pdf"));
  EXPECT_EQ(result.out, "Tiefe -12.34 m \xC3\x96l") << result.err;
}

TEST(PageDevice, SvgIsWellFormedWithItsShapesAndASharpImage) {
  const test::TestFolder folder;
  PageDevice page;
  ASSERT_TRUE(page.Create(folder.WideFile("a.svg"), kSvg, 200, 100, 96.0));
  Draw(page);
  ASSERT_TRUE(page.Finish()) << ToUtf8(page.LastError());
  const test::CommandResult result = test::RunGdal(
      "import xml.etree.ElementTree as tree, base64\n"
      "root = tree.parse(sys.argv[1]).getroot()\n"
      "svg = '{http://www.w3.org/2000/svg}'\n"
      "assert root.tag == svg + 'svg'\n"
      "assert (root.get('width'), root.get('height')) == ('150pt', '75pt'), root.attrib\n"
      "images = list(root.iter(svg + 'image'))\n"
      "assert len(images) == 1\n"
      "assert images[0].get('style') == 'image-rendering:optimizeSpeed;image-rendering:pixelated'\n"
      "assert (images[0].get('width'), images[0].get('height')) == ('4', '3')\n"
      "png = base64.b64decode(images[0].get('{http://www.w3.org/1999/xlink}href').split(',')[1])\n"
      "gdal.FileFromMemBuffer('/vsimem/a.png', png)\n"
      "a = gdal.Open('/vsimem/a.png').ReadAsArray()\n"
      "assert a[:3].tolist() == [[[255] * 4] * 3] + [[[0, 0, 255, 255]] * 3] * 2, a\n"
      "styles = ' '.join(e.get('style', '') for e in root.iter())\n"
      "assert 'fill:rgb(0%,0%,100%)' in styles\n"
      "assert 'fill:rgb(0%,100%,0%)' in styles\n"
      "assert 'stroke-width:2' in styles and 'stroke:rgb(60%,40%,20%)' in styles, styles\n"
      "glyphs = [e for e in root.iter(svg + 'use') if "
      "e.get('{http://www.w3.org/1999/xlink}href').startswith('#glyph')]\n"
      "assert len(glyphs) >= 14, len(glyphs)\n"
      "print('well')\n",
      folder.File("a.svg"));
  EXPECT_EQ(result.out, "well\n") << result.err;
}

TEST(PageDevice, TextsTakeAsMuchRoomAsOnAnImage) {
  const test::TestFolder folder;
  PageDevice page;
  ASSERT_TRUE(page.Create(folder.WideFile("a.pdf"), kPdf, 200, 100, 300.0));
  ImageDevice image;
  ASSERT_TRUE(image.Create(200, 100, 300.0));
  VakFont font;
  font.height = 30;
  page.SelectFont(font);
  image.SelectFont(font);
  const TextExtent onPage = page.GetTextExtent(L"-1234.56 m");
  const TextExtent onImage = image.GetTextExtent(L"-1234.56 m");
  EXPECT_EQ(onPage.height, onImage.height);
  // On an image each character begins on a whole pixel.
  EXPECT_NEAR(onPage.width, onImage.width, 10);
  EXPECT_TRUE(page.Finish());
}

TEST(PageDevice, NoCoordinateHarms) {
  const test::TestFolder folder;
  constexpr double kLargest = std::numeric_limits<double>::max();
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const auto format : {kPdf, kSvg}) {
    PageDevice page;
    ASSERT_TRUE(page.Create(folder.WideFile("a"), format, 50, 30));
    ImageDevice image;
    ASSERT_TRUE(image.Create(4, 3, 96.0, kRed));
    const double values[] = {0, -25, 1e9, -1e300, kLargest, kInfinity, kNan};
    for (const double a : values) {
      for (const double b : values) {
        page.DrawLine(a, b, b, a);
        page.FillPolygon(Points{{a, 5}, {b, 5}, {25, a}, {b, b}}, kBlue);
      }
    }
    for (const int far : {INT_MIN, -1'000'000'000, 1'000'000'000, INT_MAX}) {
      page.TextOut(far, far, L"text");
      page.FillSolidRect({0, 0, far, far}, kRed);
      page.FillSolidRect({far, far, 5, 5}, kRed);
      page.DrawImage({far, far, 5, 5}, image);
      page.DrawImage({0, 0, far, far}, image);
    }
    page.DrawImage({0, 0, 5, 5}, ImageDevice());
    EXPECT_TRUE(page.Finish()) << ToUtf8(page.LastError());
    // Nothing in the file is as far away as what was drawn.
    const test::CommandResult result = test::RunGdal(
        "import re, zlib\n"
        "text = open(sys.argv[1], 'rb').read()\n"
        "if text[:5] == b'%PDF-':\n"
        "    parts = [zlib.decompress(s) for s in re.findall(rb'FlateDecode.*?stream\\n(.*?)endstream', text, re.S)]\n"
        "    text = [p for p in parts if b' re' in p][0]\n"
        "else:\n"
        "    text = re.sub(rb'base64,[^\"]*|#[a-z0-9-]*|http[^\"]*', b'', text)\n"
        "numbers = [abs(float(n)) for n in re.findall(rb'(?<![a-zA-Z0-9.])-?[0-9]+(?:\\.[0-9]+)?', text)]\n"
        "assert len(numbers) > 100, len(numbers)\n"
        "assert max(numbers) < 1000, max(numbers)\n"
        "print('near')\n",
        folder.File("a"));
    EXPECT_EQ(result.out, "near\n") << result.err;
  }
}

TEST(PageDevice, TellsWhyItCannotBeBegun) {
  const test::TestFolder folder;
  PageDevice page;
  const std::wstring path = folder.WideFile("none/a.pdf");
  for (const auto format : {kPdf, kSvg}) {
    EXPECT_FALSE(page.Create(path, format, 10, 10));
    EXPECT_EQ(page.LastError(), path + L": " + Reason(ENOENT));
    EXPECT_FALSE(page.Create(folder.WideFile("a"), format, 40'000, 10, 1000.0));
    EXPECT_EQ(page.LastError(), L"a picture of 40000 x 10 pixels is too large: a side has 32767 at most");
    EXPECT_EQ(page.Width(), 0);
    EXPECT_FALSE(folder.Has("a"));
  }
  EXPECT_FALSE(page.Create(folder.WideFile("a"), kPdf, 20'001, 10, 100.0));
  EXPECT_EQ(page.LastError(),
            L"a page of 20001 x 10 pixels at these dots per inch is too large: a side of a PDF page has 200 inches at "
            L"most");
  EXPECT_TRUE(page.Create(folder.WideFile("a"), kSvg, 20'001, 10, 100.0));
  EXPECT_TRUE(page.Finish());
  EXPECT_TRUE(page.Create(folder.WideFile("a"), kPdf, 20'000, 10, 100.0));
  EXPECT_TRUE(page.Finish());
}

TEST(PageDevice, TellsWhyItCouldNotBeWritten) {
  for (const auto format : {kPdf, kSvg}) {
    PageDevice page;
    ASSERT_TRUE(page.Create(L"/dev/full", format, 200, 100)) << ToUtf8(page.LastError());
    Draw(page);
    EXPECT_FALSE(page.Finish());
    EXPECT_EQ(page.LastError(), L"/dev/full: " + Reason(ENOSPC));
    EXPECT_FALSE(page.Finish());
  }
}

TEST(PageDevice, IsOverWhenItIsFinished) {
  const test::TestFolder folder;
  PageDevice page;
  EXPECT_FALSE(page.Finish());
  EXPECT_EQ(page.LastError(), L"there is no page");
  ASSERT_TRUE(page.Create(folder.WideFile("a.svg"), kSvg, 20, 10));
  EXPECT_TRUE(page.Finish());
  const std::string text = folder.Text("a.svg");
  Draw(page);
  EXPECT_EQ(page.GetTextExtent(L"text"), TextExtent());
  EXPECT_FALSE(page.Finish());
  EXPECT_EQ(page.LastError(), L"there is no page");
  EXPECT_EQ(folder.Text("a.svg"), text);
}

TEST(PageDevice, ThatWasNotFinishedLeavesNoWholeFile) {
  const test::TestFolder folder;
  for (const auto format : {kPdf, kSvg}) {
    {
      PageDevice page;
      ASSERT_TRUE(page.Create(folder.WideFile("a"), format, 200, 100));
      Draw(page);
    }
    const std::string text = folder.Text("a");
    EXPECT_EQ(text.find("%%EOF"), std::string::npos);
    EXPECT_EQ(text.find("</svg>"), std::string::npos);
  }
}

TEST(PageDevice, HasNoPixelsToBeRead) {
  const test::TestFolder folder;
  PageDevice page;
  ASSERT_TRUE(page.Create(folder.WideFile("a.svg"), kSvg, 20, 10));
  page.FillSolidRect({0, 0, 20, 10}, kRed);
  EXPECT_EQ(page.GetBkColor(), kRed);
  EXPECT_EQ(page.GetPixel(5, 5), 0xFFFFFFU);
  EXPECT_TRUE(page.Finish());
}

}  // namespace
}  // namespace vak
