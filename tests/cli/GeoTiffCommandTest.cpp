#include <csignal>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Command.h"
#include "ImageTarget.h"
#include "support/CommandModels.h"
#include "support/RunGdal.h"
#include "support/TiffImage.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using test::CommandModels;
using test::CommandResult;
using test::TiffImage;
using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

/// Two rows of cells of 1 m; the north row has a gap.
constexpr const char* kCells =
    "1000.5,2000.5,-1.25\n1001.5,2000.5,-2\n1002.5,2000.5,-3.1\n1000.5,2001.5,-4\n1002.7,2001.6,-6\n";

class GeoTiffCommand : public testing::Test {
 protected:
  CommandResult Export(const Words& words) const {
    Words all = {"export", "geotiff", models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return models_.Run(all);
  }
  /// Exports to `a.tif` without a word.
  void Make(Words words = {}) const {
    words.insert(words.end(), {"-o", models_.File("a.tif")});
    const CommandResult result = Export(words);
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.out + result.err, "");
  }
  TiffImage Image() const { return TiffImage(models_.File("a.tif")); }
  /// What a script prints that has the image as `image`.
  std::string Gdal(const std::string& script) const {
    const CommandResult result = test::RunGdal(
        "import numpy\nfrom osgeo import osr\nosr.UseExceptions()\nimage = gdal.Open(sys.argv[1])\n" + script,
        models_.File("a.tif"));
    EXPECT_EQ(result.status, 0);
    return result.out + result.err;
  }
  void ExpectFails(const Words& words, int status, const std::string& error) const {
    const Words before = models_.Names();
    const CommandResult result = Export(words);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm export geotiff: " + error + "\n");
    EXPECT_EQ(models_.Names(), before) << "something was left behind";
  }

  test::CommandModels models_;
};

TEST_F(GeoTiffCommand, GdalReadsTheRasterBitForBit) {
  models_.MakeWaves("a.dtm", 50);
  const test::FileState state(models_.Folder(), "a.dtm");
  Make({"--raster", "--crs", "EPSG:25831"});
  EXPECT_TRUE(state.IsUnchanged());
  models_.Folder().Write("cells", models_.Cells("a.dtm"));
  EXPECT_EQ(Gdal(R"(
band = image.GetRasterBand(1)
values = band.ReadAsArray()
x0, dx, _, y0, _, dy = image.GetGeoTransform()
cells = [tuple(map(float, line.split())) for line in open(sys.argv[1][:-5] + 'cells')]
expected = numpy.full(values.shape, 9999, numpy.float32)
for x, y, z in cells:
    expected[int((y0 - y) / -dy), int((x - x0) / dx)] = z
print(image.RasterXSize, image.RasterYSize, x0, dx, y0, dy, band.GetNoDataValue(), gdal.GetDataTypeName(band.DataType))
print(len(cells), values.dtype == numpy.float32, values.tobytes() == expected.tobytes())
print(image.GetSpatialRef().GetAuthorityCode(None), image.GetSpatialRef().GetName())
print(int((values == band.GetNoDataValue()).sum()))
)"),
            "128 64 499968.0 1.0 5800064.0 -1.0 9999.0 Float32\n2499 True True\n25831 ETRS89 / UTM zone 31N\n5693\n");
}

TEST_F(GeoTiffCommand, NoDataIsTheValueForEmptyCells) {
  models_.Make("a.dtm", kCells);
  const struct {
    const char* value;
    const char* read;
  } cases[] = {
      {"-9999", "-9999.0"}, {"0", "0.0"}, {"0.1", "0.10000000149011612"}, {"3.4028235e38", "3.4028234663852886e+38"}};
  for (const auto& c : cases) {
    Make({"--raster", "--empty", c.value});
    EXPECT_EQ(
        Gdal("band = image.GetRasterBand(1)\nprint(band.GetNoDataValue(), int((band.ReadAsArray() == "
             "numpy.float32(band.GetNoDataValue())).sum()), int((band.GetMaskBand().ReadAsArray() == 0).sum()))\n"),
        std::string(c.read) + " 4091 4091\n");
  }
  const CommandResult result = Export({"--raster", "--empty", "-2", "-o", models_.File("a.tif")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err,
            "vakdtm export geotiff: warning: " + models_.File("a.tif") +
                ": 1 cell with a value of -2 can't be told from those without one - give another --empty\n");
}

TEST_F(GeoTiffCommand, CellsThatNoFloatReachesAreInfiniteWithAWarning) {
  models_.Make("a.dtm", "0.5 0.5 1e39\n1.5 0.5 -1e300\n2.5 0.5 3.4028234663852886e38\n");
  const std::string image = models_.File("a.tif");
  const CommandResult result = Export({"--raster", "-o", image});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm export geotiff: warning: " + image +
                            ": 2 cells became infinite: beyond the numbers that a raster of 32-bit floats can hold - "
                            "export them with \"vakdtm export csv\"\n");
  EXPECT_EQ(Gdal("print(image.GetRasterBand(1).ReadAsArray()[-1, :3].tolist())\n"),
            "[inf, -inf, 3.4028234663852886e+38]\n");
  EXPECT_EQ(Export({"-o", image}).err, "") << "colours hold no values";
}

TEST_F(GeoTiffCommand, ColoursAreTheTables) {
  models_.Make("a.dtm", kCells);
  models_.Folder().Write("t.txt",
                         "[COLORTABLE]\nClasses=3\nEnd=0\n1=-5,#102030,,\n2=-3.5,#405060,,\n3=-2.5,#708090,,\n"
                         "Below=#ff0000\n");
  Make({"--colors", models_.File("t.txt")});
  const auto pixel = [&](int line, int col) {
    const std::vector<std::uint8_t> samples = Image().Line(line);
    return std::vector<int>(samples.begin() + col * 4, samples.begin() + col * 4 + 4);
  };
  const int top = 2048 - 2002;
  const int left = 1000 - 960;
  EXPECT_THAT(pixel(top, left), ElementsAre(0x10, 0x20, 0x30, 255));
  EXPECT_THAT(pixel(top, left + 1), ElementsAre(255, 255, 255, 0));
  EXPECT_THAT(pixel(top, left + 2), ElementsAre(255, 0, 0, 255));
  EXPECT_THAT(pixel(top + 1, left), ElementsAre(0x70, 0x80, 0x90, 255));
  EXPECT_THAT(pixel(top + 1, left + 2), ElementsAre(0x40, 0x50, 0x60, 255));
  // The other reader, which takes the fourth sample for what it is.
  EXPECT_EQ(Gdal("print([gdal.GetColorInterpretationName(image.GetRasterBand(i).GetColorInterpretation()) for i in "
                 "range(1, 5)])\nprint(image.ReadAsArray()[:, 46, 40:43].T.tolist())\n"),
            "['Red', 'Green', 'Blue', 'Alpha']\n[[16, 32, 48, 255], [255, 255, 255, 0], [255, 0, 0, 255]]\n");
}

TEST_F(GeoTiffCommand, BuiltInTablesLieOverTheModelsRange) {
  models_.Make("a.dtm", kCells);
  Make();
  const std::vector<std::uint8_t> plain = Image().Samples();
  Make({"--colors", "depth", "--range", "-6,-1.25"});
  EXPECT_EQ(Image().Samples(), plain);
  Make({"--range", "-10,0"});
  EXPECT_NE(Image().Samples(), plain);
  Make({"--colors", "slope"});
  EXPECT_NE(Image().Samples(), plain);
  Make({"--block", "NUM"});
  const std::vector<std::uint8_t> hits = Image().Samples();
  Make({"--block", "NUM", "--colors", "hits", "--range", "1,2"});
  EXPECT_NE(hits, plain);
  Make({"--block", "TIM"});
}

TEST_F(GeoTiffCommand, SunShades) {
  models_.MakeWaves("a.dtm", 20);
  Make();
  const std::vector<std::uint8_t> plain = Image().Samples();
  Make({"--sun", "45,45,3"});
  const std::vector<std::uint8_t> shaded = Image().Samples();
  EXPECT_NE(shaded, plain);
  Make({"--sun", "45"});
  EXPECT_EQ(Image().Samples(), shaded);
  Make({"--sun", "225"});
  EXPECT_NE(Image().Samples(), shaded);
}

TEST_F(GeoTiffCommand, TimesAreNotShaded) {
  models_.Make("a.dtm", kCells);
  const CommandResult result = Export({"--block", "TIM", "--sun", "45", "-o", models_.File("a.tif")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.err, HasSubstr("times aren't shaded, --sun did nothing"));
}

TEST_F(GeoTiffCommand, PolygonLimitsTheImage) {
  models_.Make("a.dtm", kCells);
  models_.Folder().Write("p.txt", "1000.2,2000.1\n1001.9,2000.1\n1001.9,2001.9\n1000.2,2001.9\n1000.2,2000.1\n");
  Make({"--raster", "--polygon", models_.File("p.txt")});
  EXPECT_THAT(Image().Floats(), ElementsAre(-4, 9999, -1.25, -2));
  EXPECT_THAT(Image().Numbers(33922), ElementsAre(0, 0, 0, 1000, 2002, 0));
  models_.Folder().Write("p.txt", "1001.2,2001.1\n1001.9,2001.1\n1001.9,2001.9\n1001.2,2001.9\n1001.2,2001.1\n");
  const CommandResult result = Export({"--raster", "--polygon", models_.File("p.txt"), "-o", models_.File("a.tif")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm export geotiff: warning: " + models_.File("p.txt") +
                            ": the centre of no cell with a VAL lies in it, the image is empty - check its "
                            "coordinates\n");
}

TEST_F(GeoTiffCommand, WithoutASystemItIsLocalAndLiesWhereItIsAllTheSame) {
  models_.Make("a.dtm", kCells);
  Make({"--raster", "--world-file"});
  EXPECT_EQ(models_.Folder().Text("a.tfw"), "1.000000\n0.0\n0.0\n-1.000000\n960.000000\n2048.000000\n");
  EXPECT_EQ(Gdal("srs = image.GetSpatialRef()\nprint(srs.IsLocal(), srs.GetName(), srs.GetLinearUnits(), "
                 "image.GetGeoTransform())\n"),
            "1 Local 1.0 (960.0, 1.0, 0.0, 2048.0, 0.0, -1.0)\n");
}

TEST_F(GeoTiffCommand, SystemComesFromTheProjectOrGoesBeforeIt) {
  models_.Make("a.dtm", kCells);
  models_.Folder().Write("p.ini", "[UNITS]\nSystem Units=Foot\n[GEODESY]\nCoordinate System=EPSG:2263\n");
  Make({"--project", models_.File("p.ini")});
  EXPECT_EQ(Gdal("print(image.GetSpatialRef().GetAuthorityCode(None), image.GetSpatialRef().GetLinearUnitsName())\n"),
            "2263 US survey foot\n");
  Make({"--project", models_.File("p.ini"), "--crs", "28992"});
  EXPECT_EQ(Gdal("print(image.GetSpatialRef().GetAuthorityCode(None))\n"), "28992\n");
  Make({"--crs", "+proj=utm +zone=31 +ellps=intl +units=m"});
  EXPECT_EQ(Gdal("print(image.GetSpatialRef().GetSemiMajor(), image.GetSpatialRef().GetUTMZone())\n"),
            "6378388.0 31\n");
}

TEST_F(GeoTiffCommand, SystemThatTheFormatLacksIsAName) {
  models_.Make("a.dtm", kCells);
  const CommandResult result = Export({"--crs", "ESRI:54009", "-o", models_.File("a.tif")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_THAT(result.err, HasSubstr("it lacks a part of its coordinate system: the format can't express the "
                                    "projection 'Mollweide'"));
  EXPECT_EQ(Image().KeyText(1026), "World_Mollweide");
}

TEST_F(GeoTiffCommand, ImageAndWorldFileAppearTogetherAndTakeTheOldOnesAway) {
  models_.Make("a.dtm", kCells);
  Make({"--world-file"});
  EXPECT_THAT(models_.Names(), ElementsAre("a.dtm", "a.tfw", "a.tif"));
  models_.Folder().Write("a.tif.ovr", "small");
  models_.Folder().Write("a.tif.aux.xml", "<a/>");
  Make();
  EXPECT_THAT(models_.Names(), ElementsAre("a.dtm", "a.tif"));
  EXPECT_EQ(Export({"--raster", "-o", models_.File("b.TIFF"), "--world-file"}).status, kDone);
  EXPECT_THAT(models_.Names(), ElementsAre("a.dtm", "a.tif", "b.TIFF", "b.tfw"));
}

TEST_F(GeoTiffCommand, StandardOutputAndOtherNamesGetTheSameImage) {
  models_.Make("a.dtm", kCells);
  Make({"--raster"});
  EXPECT_EQ(Export({"--raster", "-o", "-"}).out, models_.Folder().Text("a.tif"));
  EXPECT_EQ(Export({"--raster", "-o", models_.File("image")}).status, kDone);
  EXPECT_EQ(models_.Folder().Text("image"), models_.Folder().Text("a.tif"));
}

TEST_F(GeoTiffCommand, WrongUseIsMisuse) {
  models_.Make("a.dtm", kCells);
  const struct {
    Words words;
    const char* error;
  } cases[] = {
      {{"--block", "VAL,NUM"}, "--block: an image has one kind of value - name one as in --block VAL"},
      {{"--empty", "5"},
       "--empty is for rasters: an empty pixel of colours is transparent - give --raster as well, or leave it out"},
      {{"--raster", "--empty", "3.4028236e38"},
       "--empty: beyond the numbers that a raster of 32-bit floats can hold - give one as -9999"},
      {{"--sun", "a"}, "--sun: 'a' is no sun AZ,EL,FACTOR - give one as 45,45,3"},
      {{"--sun", "1,2,3,4"}, "--sun: '1,2,3,4' is no sun AZ,EL,FACTOR - give one as 45,45,3"},
      {{"--sun", "1,95"}, "--sun: a sun stands from 0 to 90 degrees high - give one as 45,45,3"},
      {{"--range", "1"}, "--range: '1' is no range LOW,HIGH - give one as -20,-5"},
      {{"--range", "2,1"}, "--range: '2,1' doesn't rise - give the lower end first"},
      {{"--crs", "EPSG:99999"},
       "--crs: 'EPSG:99999' is no coordinate system: crs not found - give one as EPSG:25831, as WKT or as LOCAL"},
  };
  for (const auto& c : cases) {
    Words words = c.words;
    words.insert(words.end(), {"-o", models_.File("a.tif")});
    ExpectFails(words, kUsedWrongly, c.error);
  }
  ExpectFails({"-o", models_.File("a.dat"), "--world-file"}, kUsedWrongly,
              "--world-file: an image of that name can have none - let -o end in .tif");
  ExpectFails({"-o", models_.File("a.dtm")}, kUsedWrongly,
              "the model would be replaced by its own export - name another file with -o");
  for (const char* const option : {"--colors", "--sun", "--range"}) {
    EXPECT_EQ(Export({"--raster", option, "1,2", "-o", models_.File("a.tif")}).status, kUsedWrongly) << option;
  }
  const CommandResult none = models_.Run({"export", "geotiff", models_.File("a.dtm")});
  EXPECT_EQ(none.status, kUsedWrongly) << "an output has to be named";
}

TEST_F(GeoTiffCommand, InputsAreNotReplaced) {
  models_.Make("a.dtm", kCells);
  models_.Folder().Write("a.tfw", "[COLORTABLE]\nClasses=0\n");
  ExpectFails({"-o", models_.File("a.tif"), "--colors", models_.File("a.tfw")}, kUsedWrongly,
              "the colour table would be replaced by the export - name another file with -o");
  ExpectFails({"-o", models_.File("a.tif"), "--project", models_.File("a.tfw")}, kUsedWrongly,
              "the project file would be replaced by the export - name another file with -o");
  ExpectFails({"-o", models_.File("a.tif"), "--polygon", models_.File("a.tfw")}, kUsedWrongly,
              "the polygon would be replaced by the export - name another file with -o");
}

TEST_F(GeoTiffCommand, WhatCantBeDoneIsToldAndLeavesNothing) {
  models_.Make("a.dtm", kCells, {"--blocks", "NUM"});
  const std::string model = models_.File("a.dtm");
  const std::string image = models_.File("a.tif");
  ExpectFails({"-o", image}, kCouldNotBeDone, model + ": records no VAL - ask \"vakdtm info\" which kinds it has");
  ExpectFails({"-o", image, "--block", "NUM", "--sun", "45"}, kCouldNotBeDone,
              model + ": records no VAL, which --sun goes by - leave --sun out");
  ExpectFails({"-o", models_.File("no/a.tif"), "--block", "NUM"}, kCouldNotBeDone,
              models_.File("no/a.tif") + ": cannot write: there is no such folder - name another file with -o");
  fs::create_directory(image);
  ExpectFails({"-o", image, "--block", "NUM"}, kCouldNotBeDone,
              image + ": cannot write: it is a folder - name another file with -o");
  models_.Folder().Write("t.txt", "");
  EXPECT_EQ(Export({"-o", models_.File("b.tif"), "--block", "NUM", "--colors", models_.File("t.txt")}).status,
            kCouldNotBeDone);
  EXPECT_FALSE(models_.Folder().Has("b.tif"));
  models_.Run({"create", models_.File("b.dtm"), "--cell-size", "1"});
  const CommandResult empty = models_.Run({"export", "geotiff", models_.File("b.dtm"), "-o", models_.File("b.tif")});
  EXPECT_EQ(empty.status, kCouldNotBeDone);
  EXPECT_THAT(empty.err, HasSubstr("has no areas, and an image of none has no extents"));
}

TEST_F(GeoTiffCommand, ImageBeyondTheRoomIsRefusedBeforeItIsBegun) {
  // Farther apart than any disk has room for, also for colours.
  models_.Make("a.dtm", "0.5,0.5,1\n500000000.5,500000000.5,2\n");
  const CommandResult result = Export({"--raster", "-o", models_.File("a.tif")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, HasSubstr("the image has 500000064 x 500000064 pixels and takes 1000000260 GB at least"));
  EXPECT_THAT(Export({"-o", models_.File("a.tif")}).err, HasSubstr("GB at least, with room for"));
  EXPECT_THAT(models_.Names(), ElementsAre("a.dtm"));
}

TEST_F(GeoTiffCommand, PolygonMakesAnImageOfAFarModelSmall) {
  models_.Make("a.dtm", "0.5,0.5,1\n10000000.5,10000000.5,2\n");
  models_.Folder().Write("p.txt", "0.1,0.1\n3.1,0.1\n3.1,3.1\n0.1,3.1\n0.1,0.1\n");
  Make({"--raster", "--polygon", models_.File("p.txt")});
  EXPECT_EQ(Image().Width(), 4);
  EXPECT_EQ(Image().Height(), 4);
  EXPECT_EQ(Image().Floats()[12], 1);
}

TEST_F(GeoTiffCommand, LinesBeyondTheMemoryAreRefused) {
  models_.Make("a.dtm", kCells);
  models_.Folder().Write("p.txt", "0.5,2000.1\n2000000000.5,2000.1\n2000000000.5,2000.9\n0.5,2000.9\n0.5,2000.1\n");
  ExpectFails({"--sun", "45", "--polygon", models_.File("p.txt"), "-o", models_.File("a.tif")}, kCouldNotBeDone,
              models_.File("a.tif") +
                  ": the image has 2000000001 x 1 pixels: there isn't the memory for lines of so many pixels - export "
                  "a part of it with --polygon");
}

TEST_F(GeoTiffCommand, ModelIsTheOneThatThePathLeadsToOverALink) {
  fs::create_directories(models_.Folder().Path() / "one");
  fs::create_directories(models_.Folder().Path() / "two/deep");
  fs::create_directory_symlink("../two/deep", models_.Folder().Path() / "one/link");
  models_.Make("one/a.dtm", "0.5,0.5,-1\n");
  models_.Make("two/a.dtm", "0.5,0.5,-2\n");
  models_.Folder().Write("p.txt", "0.1,0.1\n0.9,0.1\n0.9,0.9\n0.1,0.9\n0.1,0.1\n");
  const CommandResult result = CommandModels::Run({"export", "geotiff", models_.File("one/link/../a.dtm"), "--raster",
                                                   "--polygon", models_.File("p.txt"), "-o", models_.File("a.tif")});
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(Image().Floats(), ElementsAre(-2));
}

TEST(SizeText, IsInTheUnitThatShowsIt) {
  EXPECT_EQ(SizeText(0), "0 bytes");
  EXPECT_EQ(SizeText(98304.9), "98304 bytes");
  EXPECT_EQ(SizeText(9999999), "9999999 bytes");
  EXPECT_EQ(SizeText(1e7), "10 MB");
  EXPECT_EQ(SizeText(9999999999.0), "9999 MB");
  EXPECT_EQ(SizeText(1e10), "10 GB");
}

TEST_F(GeoTiffCommand, FullDiskLeavesWhatWasThere) {
  models_.MakeWaves("a.dtm", 100);
  models_.Folder().Write("a.tif", "as it was");
  const CommandResult result =
      test::RunCommand({"sh", "-c", "ulimit -f 20; exec \"$0\" \"$@\"", VAKDTM_COMMAND, "export", "geotiff",
                        models_.File("a.dtm"), "-o", models_.File("a.tif"), "--raster"})
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm export geotiff: " + models_.File("a.tif") +
                            ": cannot write: File too large - make room, or name another file with -o\n");
  EXPECT_EQ(models_.Folder().Text("a.tif"), "as it was");
  EXPECT_THAT(models_.Names(), ElementsAre("a.dtm", "a.tif"));
}

TEST_F(GeoTiffCommand, StopLeavesNothing) {
  // Of 100,000 by 100,000 pixels, so that it takes its time.
  models_.Make("a.dtm", "0.5,0.5,1\n100000.5,100000.5,2\n");
  test::RunCommand command({VAKDTM_COMMAND, "export", "geotiff", models_.File("a.dtm"), "-o", models_.File("a.tif")});
  const auto hasBegun = [&] { return models_.Names().size() > 1; };
  while (!hasBegun() && !command.HasEnded()) std::this_thread::yield();
  command.Signal(SIGINT);
  const CommandResult& result = command.Wait();
  EXPECT_EQ(result.status, kStopped);
  EXPECT_THAT(result.err, HasSubstr("nothing was kept"));
  EXPECT_THAT(models_.Names(), ElementsAre("a.dtm"));
}

TEST_F(GeoTiffCommand, DamagedModelIsRefused) {
  models_.MakeWaves("a.dtm", 20);
  models_.Damage("a.dtm");
  const CommandResult result = Export({"-o", models_.File("a.tif")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(models_.Names(), ElementsAre("a.dtm"));
}

}  // namespace
}  // namespace vak
