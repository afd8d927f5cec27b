#include <cairo.h>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Command.h"
#include "support/CommandModels.h"

namespace vak {
namespace {

using test::CommandResult;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

/// Three by three cells of 1 m on a slope that falls to the east.
constexpr const char* kSlope =
    "0.5,0.5,-1\n1.5,0.5,-2\n2.5,0.5,-3\n0.5,1.5,-1\n1.5,1.5,-2\n2.5,1.5,-3\n0.5,2.5,-1\n1.5,2.5,-2\n2.5,2.5,-3\n";

/// A PNG file, read by another library than the one that writes chunks.
class Png {
 public:
  explicit Png(const std::string& path)
      : surface_(cairo_image_surface_create_from_png(path.c_str()), cairo_surface_destroy) {
    if (cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS) throw std::runtime_error("no picture");
  }
  int Width() const { return cairo_image_surface_get_width(surface_.get()); }
  int Height() const { return cairo_image_surface_get_height(surface_.get()); }
  /// As on the web: 0xRRGGBB.
  unsigned At(int x, int y) const {
    const auto* const row = cairo_image_surface_get_data(surface_.get()) +
                            static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(surface_.get());
    return reinterpret_cast<const std::uint32_t*>(row)[x] & 0xFFFFFF;
  }
  /// Pixels that aren't white.
  int Inked() const {
    int count = 0;
    for (int y = 0; y < Height(); ++y) {
      for (int x = 0; x < Width(); ++x) count += At(x, y) != 0xFFFFFF ? 1 : 0;
    }
    return count;
  }

 private:
  std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface_;
};

class RenderCommand : public testing::Test {
 protected:
  CommandResult Render(const Words& words) const {
    Words all = {"render", models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return test::CommandModels::Run(all);
  }
  /// Draws it bare, 300 pixels wide: 100 a cell of three.
  Png Bare(Words words) const {
    words.insert(words.end(), {"--bare", "--width", "300", "-o", models_.File("bare.png")});
    const CommandResult result = Render(words);
    EXPECT_EQ(result.status, kDone) << result.err;
    EXPECT_EQ(result.out + result.err, "");
    return Png(models_.File("bare.png"));
  }
  /// A table with a colour for each metre: red above -1.5, then green, blue below -2.5.
  std::string RedGreenBlue() const {
    return models_.Folder().Write("rgb.cpt",
                                  "-10 0/0/255 -2.5 0/0/255\n-2.5 0/255/0 -1.5 0/255/0\n-1.5 255/0/0 0 255/0/0\n");
  }
  void ExpectFails(const Words& words, int status, const std::string& error) const {
    const Words before = models_.Names();
    const CommandResult result = Render(words);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm render: " + error + "\n");
    EXPECT_EQ(models_.Names(), before) << "something was left behind";
  }
  std::string Picture() const { return models_.File("a.png"); }

  test::CommandModels models_;
};

TEST_F(RenderCommand, CellsAreColouredByTheTable) {
  models_.Make("a.dtm", kSlope);
  const test::FileState state(models_.Folder(), "a.dtm");
  const Png picture = Bare({"--colors", RedGreenBlue()});
  EXPECT_TRUE(state.IsUnchanged());
  ASSERT_EQ(picture.Width(), 300);
  ASSERT_EQ(picture.Height(), 300);
  for (const int y : {0, 99, 100, 299}) {
    EXPECT_EQ(picture.At(0, y), 0xFF0000U);
    EXPECT_EQ(picture.At(99, y), 0xFF0000U);
    EXPECT_EQ(picture.At(100, y), 0x00FF00U);
    EXPECT_EQ(picture.At(199, y), 0x00FF00U);
    EXPECT_EQ(picture.At(200, y), 0x0000FFU);
    EXPECT_EQ(picture.At(299, y), 0x0000FFU);
  }
}

TEST_F(RenderCommand, NorthIsUpAndWhatHasNoValueIsWhite) {
  models_.Make("a.dtm", "0.5,0.5,-1\n1.5,0.5,-2\n2.5,2.5,-3\n");
  const Png picture = Bare({"--colors", RedGreenBlue()});
  EXPECT_EQ(picture.At(50, 250), 0xFF0000U);
  EXPECT_EQ(picture.At(150, 250), 0x00FF00U);
  EXPECT_EQ(picture.At(250, 50), 0x0000FFU);
  EXPECT_EQ(picture.At(50, 50), 0xFFFFFFU);
  EXPECT_EQ(picture.At(250, 250), 0xFFFFFFU);
}

TEST_F(RenderCommand, DarkIsDeep) {
  models_.Make("a.dtm", kSlope);
  const Png picture = Bare({});
  const auto light = [&](int x) {
    const unsigned color = picture.At(x, 150);
    return (color >> 16) + (color >> 8 & 255) + (color & 255);
  };
  EXPECT_GT(light(50), light(150));
  EXPECT_GT(light(150), light(250));
}

TEST_F(RenderCommand, AnotherKindOfValueHasItsOwnTable) {
  models_.Make("a.dtm", "0.5,0.5,-1\n0.5,0.5,-2\n1.5,0.5,-2\n2.5,0.5,-2\n2.5,0.5,-1\n");
  const Png hits = Bare({"--block", "NUM"});
  EXPECT_EQ(hits.At(50, 50), hits.At(250, 50));
  EXPECT_NE(hits.At(50, 50), hits.At(150, 50));
  const Png named = Bare({"--block", "NUM", "--colors", "hits"});
  EXPECT_EQ(named.At(50, 50), hits.At(50, 50));
  EXPECT_NE(Bare({"--block", "NUM", "--colors", "slope"}).At(50, 50), hits.At(50, 50));
}

TEST_F(RenderCommand, ARangeSpreadsTheColours) {
  models_.Make("a.dtm", kSlope);
  const Png all = Bare({"--colors", "slope", "--range", "-3,-1"});
  EXPECT_LT(all.At(50, 50), 0x101010U);
  const Png part = Bare({"--colors", "slope", "--range", "-2.2,-2.1"});
  EXPECT_LT(part.At(50, 50), 0x101010U);
  EXPECT_EQ(part.At(150, 50), part.At(50, 50)) << "above its end as at its end";
  EXPECT_GT(part.At(250, 50), 0xA0A0A0U);
}

TEST_F(RenderCommand, ARectangleAndAPolygonLimitIt) {
  models_.Make("a.dtm", kSlope);
  const std::string table = RedGreenBlue();
  const Png rect = Bare({"--colors", table, "--rect", "1,0,3,1"});
  EXPECT_EQ(rect.Height(), 150);
  EXPECT_EQ(rect.At(0, 75), 0x00FF00U);
  EXPECT_EQ(rect.At(299, 75), 0x0000FFU);
  const std::string polygon = models_.Folder().Write("p.txt", "0,0\n3,0\n3,0.9\n0,0.9\n0,0\n");
  const Png cut = Bare({"--colors", table, "--polygon", polygon});
  EXPECT_EQ(cut.Height(), 90);
  EXPECT_EQ(cut.At(299, 89), 0x0000FFU);
}

TEST_F(RenderCommand, TheSunShadesOnlyWhenAskedForAndStandsInTheNorthEast) {
  models_.Make("a.dtm", kSlope);
  const Png plain = Bare({});
  const Png standing = Bare({"--sun"});
  EXPECT_NE(plain.At(150, 150), standing.At(150, 150));
  for (const char* same : {"45", "45,45", "45,45,3", "50,45,3", "405"}) {
    EXPECT_EQ(Bare({"--sun", same}).At(150, 150), standing.At(150, 150)) << same;
  }
  for (const char* other : {"225", "45,20", "45,45,1"}) {
    EXPECT_NE(Bare({"--sun", other}).At(150, 150), standing.At(150, 150)) << other;
  }
  // A sun in the north-west lights from the south-west.
  EXPECT_EQ(Bare({"--sun", "315"}).At(150, 150), Bare({"--sun", "225"}).At(150, 150));
}

TEST_F(RenderCommand, SlopesAreLightWhereItIsFlatAndYetNoPaper) {
  models_.Make(
      "a.dtm",
      "0.5,0.5,-1\n1.5,0.5,-1\n2.5,0.5,-1\n0.5,1.5,-1\n1.5,1.5,-1\n2.5,1.5,-1\n0.5,2.5,-9\n1.5,2.5,-9\n2.5,2.5,-9\n");
  const Png picture = Bare({"--slope"});
  const unsigned flat = picture.At(150, 250);
  EXPECT_GT(flat >> 8 & 255, 0xD0U);
  EXPECT_LT(flat >> 16 & 255, 0xE0U);
  EXPECT_LT(picture.At(150, 50), 0x404040U);
}

TEST_F(RenderCommand, ContoursAndFramesAreDrawnOverTheCells) {
  models_.Make("a.dtm", kSlope);
  const std::string table = RedGreenBlue();
  const Png contours = Bare({"--colors", table, "--contours", "1.6"});
  // At -1.6, 0.6 cells to the right of the first centre.
  EXPECT_NE(contours.At(110, 150), 0x00FF00U);
  EXPECT_EQ(contours.At(150, 150), 0x00FF00U);
  const Png feet = Bare({"--colors", table, "--contours", "5", "--units", "ft"});
  EXPECT_NE(feet.At(static_cast<int>(50 + (5 * 0.3048 - 1) * 100), 150), feet.At(70, 150)) << "five feet are 1.524 m";
  models_.Make("a.dtm", "30.5,30.5,-1\n70.5,30.5,-2\n", {"--clear-first"});
  EXPECT_GT(Bare({"--frame-areas"}).Inked(), Bare({}).Inked() + 50);
}

TEST_F(RenderCommand, UnitsAreThoseOfTheTable) {
  models_.Make("a.dtm", kSlope);
  // Three metres are 9.84 feet.
  const std::string table = models_.Folder().Write("ft.cpt", "-9.9 0/0/255 -9.8 0/0/255\nB 1/2/3\nF 4/5/6\n");
  const Png picture = Bare({"--colors", table, "--units", "ft"});
  EXPECT_EQ(picture.At(250, 50), 0x0000FFU);
  EXPECT_EQ(picture.At(50, 50), 0x040506U);
}

TEST_F(RenderCommand, AWholeChartHasTheWidthThatIsAskedForAndInkAroundTheMap) {
  models_.Make("a.dtm", kSlope);
  ASSERT_EQ(Render({"-o", Picture(), "--width", "500"}).status, kDone);
  const Png plain(Picture());
  EXPECT_EQ(plain.Width(), 500);
  int inked = plain.Inked();
  for (const Words& words : {Words{"--legend"}, Words{"--scale-bar"}, Words{"--title", "Harbour"}}) {
    SCOPED_TRACE(words.front());
    Words all = {"-o", Picture(), "--width", "500"};
    all.insert(all.end(), words.begin(), words.end());
    ASSERT_EQ(Render(all).status, kDone);
    EXPECT_NE(Png(Picture()).Inked(), inked);
  }
  ASSERT_EQ(Render({"-o", Picture()}).status, kDone);
  EXPECT_EQ(Png(Picture()).Width(), 1600);
}

TEST_F(RenderCommand, PagesHaveTheSizeOfThePicture) {
  models_.Make("a.dtm", kSlope);
  ASSERT_EQ(Render({"-o", Picture(), "--width", "800", "--legend"}).status, kDone);
  const int height = Png(Picture()).Height();
  ASSERT_EQ(Render({"-o", models_.File("a.SVG"), "--width", "800", "--legend", "--contours", "0.5"}).status, kDone);
  const std::string svg = models_.Folder().Text("a.SVG");
  EXPECT_THAT(svg, StartsWith("<?xml"));
  EXPECT_THAT(svg, HasSubstr("viewBox=\"0 0 600 ")) << "800 pixels of 1/96 inch in points";
  EXPECT_THAT(svg, HasSubstr("<image"));
  ASSERT_EQ(Render({"-o", models_.File("a.pdf"), "--width", "800", "--legend", "--title", "Harbour"}).status, kDone);
  const std::string pdf = models_.Folder().Text("a.pdf");
  EXPECT_THAT(pdf, StartsWith("%PDF-"));
  EXPECT_THAT(pdf, HasSubstr("[ 0 0 600 "));
  EXPECT_GT(height, 600);
}

TEST_F(RenderCommand, TheSameTwiceIsTheSameFile) {
  models_.Make("a.dtm", kSlope);
  for (const char* name : {"a.png", "b.png"}) {
    ASSERT_EQ(Render({"-o", models_.File(name), "--legend", "--contours", "0.3", "--sun"}).status, kDone);
  }
  EXPECT_EQ(models_.Folder().Content("a.png"), models_.Folder().Content("b.png"));
}

TEST_F(RenderCommand, WrongWordsAreToldBeforeAnythingIsMade) {
  const std::string model = models_.Make("a.dtm", kSlope);
  const std::string out = Picture();
  const std::string table = RedGreenBlue();
  const std::string maps = "depth, difference, hits, deviation, time, uncertainty, slope";
  const struct {
    Words words;
    int status;
    std::string error;
  } cases[] = {
      {{"-o", "a.bmp"}, kUsedWrongly, "-o: the ending of 'a.bmp' names no format - let it end in .png, .pdf or .svg"},
      {{"-o", "-"}, kUsedWrongly, "-o: the ending of '-' names no format - let it end in .png, .pdf or .svg"},
      {{"-o", out, "--block", "XYZ"}, kUsedWrongly, ""},
      {{"-o", out, "--block", "VAL,NUM"},
       kUsedWrongly,
       "--block: a picture is of one kind of value - name one as in --block VAL"},
      {{"-o", out, "--block", "TVU"},
       kCouldNotBeDone,
       model + ": records no TVU - ask \"vakdtm info\" which kinds it has"},
      {{"-o", out, "--block", "NUM", "--slope"},
       kUsedWrongly,
       "--slope shows the slope of VAL and no other kind - leave --block out"},
      {{"-o", out, "--bare", "--legend"}, kUsedWrongly, "--bare leaves no room for --legend - leave one of them out"},
      {{"-o", out, "--bare", "--scale-bar"},
       kUsedWrongly,
       "--bare leaves no room for --scale-bar - leave one of them out"},
      {{"-o", out, "--bare", "--title", "T"},
       kUsedWrongly,
       "--bare leaves no room for --title - leave one of them out"},
      {{"-o", out, "--sun", "north"}, kUsedWrongly, "--sun: 'north' is no sun AZ,EL,FACTOR - give one as 45,45,3"},
      {{"-o", out, "--sun", "1,2,3,4"}, kUsedWrongly, "--sun: '1,2,3,4' is no sun AZ,EL,FACTOR - give one as 45,45,3"},
      {{"-o", out, "--sun", "45,"}, kUsedWrongly, "--sun: '45,' is no sun AZ,EL,FACTOR - give one as 45,45,3"},
      {{"-o", out, "--sun", "45,91"},
       kUsedWrongly,
       "--sun: a sun stands from 0 to 90 degrees high - give one as 45,45,3"},
      {{"-o", out, "--sun", ""}, kUsedWrongly, "--sun: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--sun="}, kUsedWrongly, "--sun: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--rect="}, kUsedWrongly, "--rect: '' is no rectangle x0,y0,x1,y1 - see 'vakdtm render --help'"},
      {{"-o", out, "--polygon="}, kUsedWrongly, "--polygon: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--colors="}, kUsedWrongly, "--colors: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--range="}, kUsedWrongly, "--range: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--block="}, kUsedWrongly, "--block: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--contours="}, kUsedWrongly, "--contours: '' is no number above 0 - see 'vakdtm render --help'"},
      {{"-o", out, "--title="}, kUsedWrongly, "--title: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--slope="}, kUsedWrongly, "could not convert: --slope =  - see 'vakdtm render --help'"},
      {{"--output="}, kUsedWrongly, "-o,--output: '' is empty - see 'vakdtm render --help'"},
      {{"-o", out, "--range", "-1"}, kUsedWrongly, "--range: '-1' is no range LOW,HIGH - give one as -20,-5"},
      {{"-o", out, "--range", "-1,-2"}, kUsedWrongly, "--range: '-1,-2' doesn't rise - give the lower end first"},
      {{"-o", out, "--range", "1,inf"}, kUsedWrongly, "--range: '1,inf' is no range LOW,HIGH - give one as -20,-5"},
      {{"-o", out, "--range", "1,2", "--colors", table},
       kUsedWrongly,
       "--range is for the built-in tables, and " + table + " is none - leave it out, or name one of " + maps},
      {{"-o", out, "--colors", "rainbow"},
       kCouldNotBeDone,
       "rainbow: neither a built-in table of colours nor a file that can be read - name a file, or one of " + maps},
      {{"-o", out, "--width", "199"},
       kUsedWrongly,
       "--width: '199' is no whole number from 200 to 20000 - see 'vakdtm render --help'"},
      {{"-o", out, "--width", "20001"},
       kUsedWrongly,
       "--width: '20001' is no whole number from 200 to 20000 - see 'vakdtm render --help'"},
      {{"-o", out, "--contours", "0"},
       kUsedWrongly,
       "--contours: '0' is no number above 0 - see 'vakdtm render --help'"},
      {{"-o", out, "--contours", "0.001"},
       kCouldNotBeDone,
       "--contours: that makes more than 1000 levels - give a greater interval"},
      {{"-o", out, "--contours", "1e-300"},
       kCouldNotBeDone,
       "--contours: that makes more than 1000 levels - give a greater interval"},
      {{"-o", out, "--rect", "100,100,200,200"},
       kCouldNotBeDone,
       "the rectangle: lies outside the model, whose areas reach from x 0 to 64 and y 0 to 64 - check its coordinates"},
      {{"-o", out, "--rect", "10,10,20,20"},
       kCouldNotBeDone,
       model + ": no cell has a VAL in the rectangle, and there is nothing to show - check its coordinates"},
      {{"-o", "/nowhere/a.png"},
       kCouldNotBeDone,
       "/nowhere/a.png: cannot write: there is no such folder - name another file with -o"},
      {{"-o", out, "--polygon", "nowhere.txt"},
       kCouldNotBeDone,
       "nowhere.txt: no such file - check the name of the polygon"},
      {{"-o", out, "--title", ""}, kUsedWrongly, "--title: '' is empty - see 'vakdtm render --help'"},
      {{}, kUsedWrongly, "--output is required - see 'vakdtm render --help'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    if (!c.error.empty()) {
      ExpectFails(c.words, c.status, c.error);
    } else {
      EXPECT_EQ(Render(c.words).status, c.status);
    }
  }
}

TEST_F(RenderCommand, NoInputIsReplacedByThePicture) {
  models_.Make("a.dtm", kSlope);
  const std::string polygon = models_.Folder().Write("p.png", "0,0\n3,0\n3,3\n0,3\n0,0\n");
  ExpectFails({"-o", polygon, "--polygon", polygon}, kUsedWrongly,
              "the polygon would be replaced by the picture - name another file with -o");
  const std::string table = models_.Folder().Write("t.png", "0 0/0/0 1 1/1/1\n");
  ExpectFails({"-o", table, "--colors", table}, kUsedWrongly,
              "the colour table would be replaced by the picture - name another file with -o");
  const std::string project = models_.Folder().Write("u.png", "");
  ExpectFails({"-o", project, "--project", project}, kUsedWrongly,
              "the project file would be replaced by the picture - name another file with -o");
  std::filesystem::create_hard_link(models_.File("a.dtm"), models_.File("m.png"));
  ExpectFails({"-o", models_.File("m.png")}, kUsedWrongly,
              "the model would be replaced by its own picture - name another file with -o");
}

TEST_F(RenderCommand, ABadTableIsToldWithItsPlace) {
  models_.Make("a.dtm", kSlope);
  const std::string table = models_.Folder().Write("bad.cpt", "0 0/0/0 1 1/1/1\n5 0/0/0 6 1/1/1\n");
  const CommandResult result = Render({"-o", Picture(), "--colors", table});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, StartsWith("vakdtm render: " + table + ": "));
  EXPECT_THAT(result.err, HasSubstr("line 2"));
  EXPECT_FALSE(models_.Folder().Has("a.png"));
}

TEST_F(RenderCommand, AnEmptyModelHasNoPicture) {
  ASSERT_EQ(test::CommandModels::Run({"create", models_.File("a.dtm"), "--cell-size", "1"}).status, kDone);
  ExpectFails(
      {"-o", Picture()}, kCouldNotBeDone,
      models_.File("a.dtm") + ": no cell has a VAL, and there is nothing to show - ask \"vakdtm info\" what it has");
}

TEST_F(RenderCommand, OneCellAloneHasNoSlope) {
  models_.Make("a.dtm", "0.5,0.5,-4\n");
  ExpectFails(
      {"-o", Picture(), "--slope"}, kCouldNotBeDone,
      models_.File("a.dtm") + ": no cell has a slope, which takes values above or below it - leave --slope out");
}

TEST_F(RenderCommand, APictureThatIsThereStaysWhereThereIsNoNewOne) {
  models_.Make("a.dtm", kSlope);
  models_.Folder().Write("a.png", "old");
  ExpectFails({"-o", Picture(), "--contours", "0.001"}, kCouldNotBeDone,
              "--contours: that makes more than 1000 levels - give a greater interval");
  EXPECT_EQ(models_.Folder().Text("a.png"), "old");
  ASSERT_EQ(Render({"-o", Picture()}).status, kDone);
  EXPECT_NO_THROW(Png{Picture()});
}

TEST_F(RenderCommand, ABarePictureThatWouldBeTooHighIsRefused) {
  models_.Make("a.dtm", "0.5,0.5,-1\n0.5,999.5,-2\n");
  ExpectFails({"-o", Picture(), "--bare", "--width", "200"}, kUsedWrongly,
              "the picture would be more than 32767 pixels high - give a smaller --width");
  EXPECT_EQ(Render({"-o", Picture(), "--width", "200"}).status, kDone) << "with paper beside it";
}

TEST_F(RenderCommand, WhatCannotBeSeenIsTold) {
  models_.Make("a.dtm", "1.5,1.5,-1\n99999.5,99999.5,-2\n");
  ExpectFails({"-o", Picture(), "--width", "200"}, kCouldNotBeDone,
              models_.File("a.dtm") +
                  ": its cells with a VAL are too few to be seen at this scale - give a greater --width, or a smaller "
                  "--rect");
}

TEST_F(RenderCommand, OfADamagedModelThereIsNoPicture) {
  models_.Make("a.dtm", kSlope);
  models_.Damage("a.dtm");
  const CommandResult result = Render({"-o", Picture()});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, HasSubstr("vakdtm verify"));
  EXPECT_FALSE(models_.Folder().Has("a.png"));
}

TEST_F(RenderCommand, StoppedInTheMiddleItLeavesNothing) {
  models_.MakeWaves("a.dtm", 300);
  models_.Folder().Write("a.png", "old");
  const Words before = models_.Names();
  // Contours of that many levels take seconds.
  test::RunCommand command(
      {VAKDTM_COMMAND, "render", models_.File("a.dtm"), "--contours", "0.0065", "--width", "4000", "-o", Picture()});
  while (models_.Names() == before && !command.HasEnded()) std::this_thread::yield();
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_EQ(result.err, "vakdtm render: stopped - nothing was kept\n");
  EXPECT_EQ(models_.Names(), before);
  EXPECT_EQ(models_.Folder().Text("a.png"), "old");
}

}  // namespace
}  // namespace vak
