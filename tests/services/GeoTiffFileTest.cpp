#include <cmath>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/tiff/GeoKeys.h"
#include "vakdtm/services/tiff/GeoTiffFile.h"

#include "support/RunGdal.h"
#include "support/TestFolder.h"
#include "support/TiffImage.h"

namespace vak {
namespace {

using test::TestFolder;
using test::TiffImage;
using testing::ElementsAre;

/// An image of two lines of two floats.
class SmallImage {
 public:
  explicit SmallImage(const std::wstring& path) {
    EXPECT_NE(file_.CreateNewGeoTiffFile(path.c_str()), nullptr);
    const std::vector<std::pair<unsigned, int>> fields = {{0x100, 2},  {0x101, 2}, {0x116, 1}, {0x103, 1}, {0x106, 1},
                                                          {0x102, 32}, {0x115, 1}, {0x153, 3}, {0x11C, 1}};
    for (const auto& [tag, value] : fields) EXPECT_EQ(file_.ExtTIFFSetField(tag, value), 1) << tag;
  }
  void WriteLines() {
    for (unsigned long row = 0; row < 2; ++row) {
      float line[] = {static_cast<float>(row), 7};
      EXPECT_GE(file_.ExtTIFFWriteScanline(line, row, 4), 0);
    }
  }
  GeoTiffFile& File() { return file_; }

 private:
  GeoTiffFile file_;
};

/// Writes an image in a system. @return whether all of it could be expressed.
bool WriteIn(const TestFolder& folder, const std::wstring& text, std::wstring units = L"",
             const std::string& name = "a.tif") {
  const auto system = VakGeoCoordSysBase::FromText(text);
  EXPECT_NE(system, nullptr);
  SmallImage image(folder.WideFile(name));
  image.WriteLines();
  EXPECT_TRUE(image.File().SetGeographicGeoKeys(system.get()));
  const bool whole = image.File().SetProjectionGeoKeys(system.get(), units);
  EXPECT_TRUE(image.File().SetTiepoint(0, 0, 100, 200));
  EXPECT_TRUE(image.File().SetScale(0.5, 0.5));
  EXPECT_TRUE(image.File().Close());
  EXPECT_EQ(image.File().LastError().empty(), whole);
  return whole;
}

TEST(GeoTiffFile, WritesSamplesAndWhereTheyLie) {
  const TestFolder folder;
  EXPECT_TRUE(WriteIn(folder, L"EPSG:25831", L"Metre"));
  const TiffImage image(folder.File("a.tif"));
  EXPECT_FALSE(image.IsBig());
  EXPECT_THAT(image.Floats(), ElementsAre(0, 7, 1, 7));
  EXPECT_THAT(image.Numbers(33922), ElementsAre(0, 0, 0, 100, 200, 0));
  EXPECT_THAT(image.Numbers(33550), ElementsAre(0.5, 0.5, 0));
  const std::map<int, int> keys = image.Keys();
  EXPECT_EQ(keys.at(1024), 1) << "projected";
  EXPECT_EQ(keys.at(1025), 1) << "a pixel is an area";
  EXPECT_EQ(keys.at(3072), 25831);
  EXPECT_EQ(keys.at(3076), 9001);
  EXPECT_EQ(image.KeyText(1026), "ETRS89 / UTM zone 31N");
}

TEST(GeoTiffFile, LocalSystemIsUserDefinedWithItsName) {
  const TestFolder folder;
  EXPECT_TRUE(WriteIn(folder, L"LOCAL:Berth 7", L"Foot"));
  const TiffImage image(folder.File("a.tif"));
  const std::map<int, int> keys = image.Keys();
  EXPECT_EQ(keys.at(1024), 32767);
  EXPECT_EQ(keys.at(3076), 9002);
  EXPECT_FALSE(keys.contains(3072));
  EXPECT_EQ(image.KeyText(1026), "Berth 7");
}

TEST(GeoTiffFile, UnitOfTheProjectIsTheOneOfTheImage) {
  const TestFolder folder;
  const struct {
    const wchar_t* system;
    const wchar_t* unit;
    int code;
    int plane;
  } cases[] = {{L"EPSG:2263", L"US Survey Foot", 9003, 2263}, {L"EPSG:2263", L"ftUS", 9003, 2263},
               {L"EPSG:2263", L"Metre", 9001, 32767},         {L"EPSG:2263", L"", 9003, 2263},
               {L"EPSG:25831", L"foot", 9002, 32767},         {L"EPSG:25831", L"Furlong", 9001, 25831},
               {L"EPSG:24500", L"Metre", 9001, 24500},        {L"EPSG:2314", L"Metre", 9005, 2314}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(std::wstring(c.system) + L" " + c.unit));
    EXPECT_TRUE(WriteIn(folder, c.system, c.unit));
    const std::map<int, int> keys = TiffImage(folder.File("a.tif")).Keys();
    EXPECT_EQ(keys.at(3076), c.code);
    EXPECT_EQ(keys.at(3072), c.plane);
  }
}

TEST(GeoTiffFile, WhatTheFormatCantExpressLeavesTheName) {
  const TestFolder folder;
  const auto system = VakGeoCoordSysBase::FromText(L"ESRI:54009");
  ASSERT_NE(system, nullptr);
  GeoKeys keys;
  std::wstring fault;
  EXPECT_FALSE(MakeGeoKeys(system->Describe(), L"", keys, fault));
  EXPECT_EQ(fault, L"the projection 'Mollweide'");
  EXPECT_FALSE(WriteIn(folder, L"ESRI:54009"));
  const TiffImage image(folder.File("a.tif"));
  EXPECT_EQ(image.Keys().at(1024), 32767);
  EXPECT_EQ(image.KeyText(1026), "World_Mollweide");
  EXPECT_FALSE(image.Keys().contains(2048));
}

TEST(GeoTiffFile, ParameterThatMattersAndHasNoKeyIsAFault) {
  GeoCoordSysDescription system = VakGeoCoordSysBase::FromText(L"EPSG:25831")->Describe();
  system.system.code = 0;
  system.parameters.push_back({{L"Height of the viewpoint", 8840}, GeoParameter::Kind::kLength, 0});
  GeoKeys keys;
  std::wstring fault;
  EXPECT_TRUE(MakeGeoKeys(system, L"", keys, fault));
  system.parameters.back().value = 3;
  EXPECT_FALSE(MakeGeoKeys(system, L"", keys, fault));
  EXPECT_EQ(fault, L"'Height of the viewpoint' of the projection 'Transverse Mercator'");
}

TEST(GeoTiffFile, FailuresAreToldAndNeverPrinted) {
  const TestFolder folder;
  testing::internal::CaptureStderr();
  GeoTiffFile none;
  std::wstring units;
  const auto local = VakGeoCoordSysBase::MakeLocal();
  EXPECT_EQ(none.ExtTIFFSetField(0x100, 1), 0);
  EXPECT_LT(none.ExtTIFFWriteScanline(nullptr, 0, 4), 0);
  EXPECT_FALSE(none.SetGeographicGeoKeys(local.get()) || none.SetProjectionGeoKeys(local.get(), units));
  EXPECT_FALSE(none.SetTiepoint(0, 0, 0, 0) || none.SetScale(1, 1) || none.SetNoData(0) || none.SetAlpha());
  EXPECT_FALSE(none.Close());
  EXPECT_EQ(none.LastError(), L"");
  EXPECT_EQ(none.CreateNewGeoTiffFile(folder.WideFile("no/a.tif").c_str()), nullptr);
  EXPECT_EQ(none.LastError(), L"No such file or directory");
  EXPECT_FALSE(none.Close());

  SmallImage image(folder.WideFile("a.tif"));
  EXPECT_EQ(image.File().ExtTIFFSetField(0x9999, 1), 0) << "an unknown field";
  EXPECT_EQ(image.File().LastError(), L"field 39321 isn't one of a single whole number");
  EXPECT_FALSE(image.File().SetGeographicGeoKeys(nullptr) || image.File().SetProjectionGeoKeys(nullptr, units));
  EXPECT_FALSE(image.File().Close()) << "something couldn't be written";
  EXPECT_FALSE(image.File().Close());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(GeoTiffFile, LinesComeOneBehindTheOtherAndAllOfThem) {
  const TestFolder folder;
  const struct {
    std::vector<unsigned long> rows;
    int good;  // how many of them
    std::wstring error;
  } cases[] = {{{0, 1}, 2, L""},
               {{}, 0, L"0 of 2 lines of the image were written"},
               {{0}, 1, L"1 of 2 lines of the image were written"},
               {{1}, 0, L"line 1 of the image isn't the next one of its 2"},
               {{0, 0}, 1, L"line 0 of the image isn't the next one of its 2"},
               {{0, 1, 2}, 2, L"line 2 of the image isn't the next one of its 2"},
               {{0, 1UL << 32}, 1, L"line 4294967296 of the image isn't the next one of its 2"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.rows));
    SmallImage image(folder.WideFile("a.tif"));
    int good = 0;
    for (const unsigned long row : c.rows) {
      float line[] = {1, 7};
      good += image.File().ExtTIFFWriteScanline(line, row, 4) >= 0 ? 1 : 0;
    }
    EXPECT_EQ(good, c.good);
    EXPECT_EQ(image.File().Close(), c.error.empty());
    EXPECT_EQ(image.File().LastError(), c.error);
  }
}

TEST(GeoTiffFile, FieldsOfOtherFormsAndNumbersOutOfRangeAreRefused) {
  const TestFolder folder;
  const struct {
    unsigned tag;
    int value;
  } cases[] = {{34735, 1}, {34736, 1}, {34737, 1}, {33550, 1}, {33922, 1}, {42113, 1}, {305, 1},  {306, 1},  {320, 1},
               {330, 1},   {282, 1},   {338, 1},   {273, 1},   {322, 16},  {0, 1},     {256, 0},  {256, -1}, {257, 0},
               {257, -1},  {258, -5},  {258, 0},   {259, -1},  {259, 999}, {277, 0},   {278, -1}, {284, 2},  {339, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.tag) + " " + std::to_string(c.value));
    SmallImage image(folder.WideFile("a.tif"));
    EXPECT_EQ(image.File().ExtTIFFSetField(c.tag, c.value), 0);
    EXPECT_NE(image.File().LastError().find(L"field " + std::to_wstring(c.tag)), std::wstring::npos);
    EXPECT_FALSE(image.File().Close());
  }
}

TEST(GeoTiffFile, KeysOfOneSystemTakeThePlaceOfAnothers) {
  const TestFolder folder;
  const auto plane = VakGeoCoordSysBase::FromText(L"EPSG:32614");
  const auto globe = VakGeoCoordSysBase::FromText(L"EPSG:4326");
  const auto odd = VakGeoCoordSysBase::FromText(L"ESRI:54009");
  std::wstring units;
  SmallImage image(folder.WideFile("a.tif"));
  image.WriteLines();
  EXPECT_TRUE(image.File().SetProjectionGeoKeys(plane.get(), units)) << "without what it stands on before";
  EXPECT_FALSE(image.File().SetProjectionGeoKeys(odd.get(), units));
  EXPECT_NE(image.File().LastError(), L"");
  EXPECT_TRUE(image.File().SetGeographicGeoKeys(globe.get()) && image.File().SetProjectionGeoKeys(globe.get(), units));
  EXPECT_EQ(image.File().LastError(), L"");
  EXPECT_TRUE(image.File().Close());
  EXPECT_EQ(TiffImage(folder.File("a.tif")).Keys(),
            (std::map<int, int>{{1024, 2}, {1025, 1}, {2048, 4326}, {2054, 9122}}));
}

/// The register has systems of degrees with minutes and letters. What lies in an image are plain numbers of degrees.
TEST(GeoTiffFile, DegreesAreDegreesHoweverARegisterWritesThem) {
  const TestFolder folder;
  const struct {
    int system;
    int unit;
  } cases[] = {{4125, 9102}, {4291, 9102}, {4326, 9122}, {4807, 9105}};
  for (const auto& c : cases) {
    const auto system = VakGeoCoordSysBase::FromText(L"EPSG:" + std::to_wstring(c.system));
    ASSERT_NE(system, nullptr) << c.system;
    SmallImage image(folder.WideFile("a.tif"));
    image.WriteLines();
    ASSERT_TRUE(image.File().SetGeographicGeoKeys(system.get()) && image.File().Close());
    EXPECT_EQ(TiffImage(folder.File("a.tif")).Keys(),
              (std::map<int, int>{{1024, 2}, {1025, 1}, {2048, c.system}, {2054, c.unit}}));
  }
}

TEST(GeoTiffFile, WhatMayPassFourGigabytesIsABigTiff) {
  const TestFolder folder;
  const struct {
    std::uint64_t size;
    bool big;
  } cases[] = {{0, false}, {4'000'000'000, false}, {std::uint64_t{1} << 32, true}};
  for (const auto& c : cases) {
    GeoTiffFile file;
    file.SetExpectedSize(c.size);
    ASSERT_NE(file.CreateNewGeoTiffFile(folder.WideFile("b.tif").c_str()), nullptr);
    for (const unsigned tag : {0x100U, 0x101U, 0x103U, 0x106U, 0x115U, 0x116U, 0x11CU}) file.ExtTIFFSetField(tag, 1);
    file.ExtTIFFSetField(0x102, 8);
    char sample = 1;
    EXPECT_EQ(file.ExtTIFFWriteScanline(&sample, 0, 4), 1);
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(TiffImage(folder.File("b.tif")).IsBig(), c.big) << c.size;
  }
}

// ---- as GDAL reads it

/// Compares what GDAL reads with what it makes of a text itself: a line for each image, its name and the text.
constexpr const char* kCompare = R"(
from osgeo import osr
osr.UseExceptions()
folder = sys.argv[1]
for line in open(folder + '/wanted'):
    name, wanted = line.rstrip('\n').split(' ', 1)
    got = gdal.Open(folder + '/' + name).GetSpatialRef()
    want = osr.SpatialReference()
    want.SetFromUserInput(wanted)
    same = got.IsSame(want, ['IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES', 'CRITERION=EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS'])
    # Of one with axes to the north and to the east an image has the number, and the axes in the other order.
    code = want.GetAuthorityCode(None)
    if not same and (code is None or got.GetAuthorityCode(None) != code):
        print(wanted, 'is read as', got.ExportToWkt())
)";

/// Writes an image in each of the systems. @return which ones GDAL takes for another.
std::string WronglyRead(const std::vector<std::string>& texts, const std::string& suffix = "") {
  const TestFolder folder;
  std::string wanted;
  for (const std::string& text : texts) {
    const std::string name = std::to_string(wanted.size()) + ".tif";
    EXPECT_TRUE(WriteIn(folder, std::wstring(text.begin(), text.end()), L"", name)) << text;
    wanted += name + " " + text + suffix + "\n";
  }
  folder.Write("wanted", wanted);
  const test::CommandResult result = test::RunGdal(kCompare, folder.Path().string());
  EXPECT_EQ(result.status, 0);
  return result.out + result.err;
}

TEST(GeoTiffFileInGdal, IsInTheSystemOfItsNumber) {
  std::vector<std::string> texts;
  for (const char* const code : {"25831", "32614", "28992", "27700", "2056", "2263", "4326", "31370", "3031", "7415",
                                 "3857", "27200", "2193", "5514", "4979", "6933"}) {
    texts.push_back(std::string("EPSG:") + code);
  }
  EXPECT_EQ(WronglyRead(texts), "");
}

TEST(GeoTiffFileInGdal, ProjectionOfItsOwnKeepsTheDatumOfItsBase) {
  EXPECT_EQ(WronglyRead({"+proj=tmerc +lat_0=48 +lon_0=11 +k=0.997 +x_0=1100 +y_0=2200 +datum=NAD27",
                         "+proj=stere +lat_0=52 +lon_0=5 +k=0.9999 +x_0=1100 +y_0=2200 +datum=NAD83",
                         "+proj=eqdc +lat_1=29 +lat_2=45 +lat_0=37 +lon_0=-96 +x_0=1100 +y_0=2200 +datum=NAD83",
                         "+proj=aeqd +lat_0=52 +lon_0=10 +x_0=1100 +y_0=2200 +datum=WGS84",
                         "+proj=mill +lon_0=10 +x_0=1100 +y_0=2200 +datum=WGS84"},
                        " +type=crs"),
            "");
}

TEST(GeoTiffFileInGdal, IsInTheSystemOfATextWithoutANumber) {
  EXPECT_EQ(
      WronglyRead(
          {
              "+proj=utm +zone=31 +ellps=intl +units=m",
              "+proj=tmerc +lat_0=10 +lon_0=7.5 +k=0.9999 +x_0=1234.5 +y_0=-77 +ellps=bessel +units=m",
              "+proj=tmerc +lat_0=10 +lon_0=7.5 +k=0.9999 +x_0=1234.5 +y_0=-77 +ellps=clrk66 +units=us-ft",
              "+proj=tmerc +lon_0=9 +ellps=bessel +towgs84=598.1,73.7,418.2,0.202,0.045,-2.455,6.7 +units=m",
              "+proj=lcc +lat_1=46.8 +lat_0=46.8 +lon_0=2.3 +k_0=0.9998 +x_0=600001 +ellps=clrk80ign +units=m",
              "+proj=lcc +lat_1=51 +lat_2=49 +lat_0=90 +lon_0=4.4 +x_0=150001 +ellps=intl +units=m",
              "+proj=merc +lon_0=3 +k=0.99 +x_0=5 +ellps=WGS84 +units=m",
              "+proj=merc +lat_ts=41 +lon_0=3 +x_0=5 +ellps=WGS84 +units=m",
              "+proj=sterea +lat_0=52.1 +lon_0=5.3 +k=0.9999 +x_0=155001 +y_0=463000 +ellps=bessel +units=m",
              "+proj=somerc +lat_0=46.9 +lon_0=7.4 +k_0=1 +x_0=600001 +y_0=200000 +ellps=bessel +units=m",
              "+proj=omerc +lat_0=4 +lonc=115 +alpha=53.3 +k=0.99984 +x_0=590477 +y_0=442857 +gamma=53.1 "
              "+ellps=evrstSS",
              "+proj=omerc +no_uoff +lat_0=4 +lonc=115 +alpha=53.3 +k=0.99984 +x_0=1 +y_0=2 +gamma=53.1 +ellps=evrstSS",
              "+proj=stere +lat_0=90 +lat_ts=71 +lon_0=-45 +x_0=1 +ellps=WGS84 +units=m",
              "+proj=stere +lat_0=-90 +k=0.994 +lon_0=10 +x_0=2000001 +ellps=WGS84 +units=m",
              "+proj=aea +lat_1=29.5 +lat_2=45.5 +lat_0=23 +lon_0=-96 +x_0=1 +ellps=GRS80 +units=m",
              "+proj=laea +lat_0=52 +lon_0=10 +x_0=4321001 +y_0=3210000 +ellps=GRS80 +units=m",
              "+proj=cass +lat_0=10.4 +lon_0=-61.3 +x_0=86501 +y_0=65379 +ellps=GRS80 +units=m",
              "+proj=poly +lat_0=0 +lon_0=-54 +x_0=5000001 +y_0=10000000 +ellps=aust_SA +units=m",
              "+proj=nzmg +lat_0=-41 +lon_0=173 +x_0=2510001 +y_0=6023150 +ellps=intl +units=m",
              "+proj=utm +zone=31 +a=6378000 +b=6357000 +units=m",
              "+proj=longlat +ellps=intl +pm=paris",
              "+proj=longlat +ellps=intl",
          },
          " +type=crs"),
      "");
}

}  // namespace
}  // namespace vak
