#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <sys/stat.h>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

using Kind = GeoCoordSysDescription::Kind;
using testing::HasSubstr;

std::shared_ptr<VakGeoCoordSysBase> Make(const std::wstring& text) {
  std::wstring error;
  auto system = VakGeoCoordSysBase::FromText(text, &error);
  EXPECT_NE(system, nullptr) << testing::PrintToString(error);
  EXPECT_EQ(error, L"");
  return system;
}

std::wstring ErrorOf(const std::wstring& text) {
  std::wstring error;
  testing::internal::CaptureStderr();
  EXPECT_EQ(VakGeoCoordSysBase::FromText(text, &error), nullptr) << testing::PrintToString(text);
  EXPECT_EQ(VakGeoCoordSysBase::FromText(text), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  return error;
}

TEST(VakGeoCoordSysBase, IsMadeOfAnyFormOfText) {
  for (const std::wstring text :
       {L"EPSG:32614", L"epsg:32614", L"32614", L" 32614\n", L"urn:ogc:def:crs:EPSG::32614", L"WGS 84 / UTM zone 14N",
        L"+proj=utm +zone=14 +datum=WGS84", L"+init=epsg:32614",
        L"PROJCS[\"WGS 84 / UTM zone 14N\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,"
        L"298.257223563]],PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],"
        L"PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",-99],"
        L"PARAMETER[\"scale_factor\",0.9996],PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0],"
        L"UNIT[\"metre\",1]]"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    const auto system = Make(text);
    ASSERT_NE(system, nullptr);
    const GeoCoordSysDescription description = system->Describe();
    EXPECT_EQ(description.kind, Kind::kProjected);
    EXPECT_EQ(description.system.code, 32614);
    EXPECT_EQ(description.geographic.code, 4326);
    EXPECT_EQ(description.unit.size, 1.0);
    double latitude = 0;
    double longitude = 0;
    double height = 0;
    ASSERT_TRUE(system->ConvertToWGS84(500000, 0, 5, latitude, longitude, height, 0));
    EXPECT_NEAR(latitude, 0, 1e-9);
    EXPECT_NEAR(longitude, -99, 1e-9);
    EXPECT_NEAR(height, 5, 1e-6);
    const auto again = Make(system->GetDefinition());
    EXPECT_EQ(again->GetDefinition(), system->GetDefinition());
  }
}

TEST(VakGeoCoordSysBase, WhatIsNoneIsSaidWhy) {
  const struct {
    std::wstring text;
    std::wstring error;
  } cases[] = {
      {L"", L"an empty text is no coordinate system"},
      {L" \n", L"an empty text is no coordinate system"},
      {L"EPSG:99999", L"'EPSG:99999' is no coordinate system: crs not found"},
      {L"EPSG:4978", L"'EPSG:4978' is an earth-centred system"},
      {L"EPSG:5709", L"'EPSG:5709' is a system of heights alone"},
      {L"foo", L"'foo' is no coordinate system"},
      {L"99999", L"'99999' is no coordinate system: crs not found"},
      {L"EPSG:2053", L"'EPSG:2053' is a system whose axes point west and south, where x of a model goes east"},
      {L"EPSG:5513", L"axes point south and west"},
      {L"EPSG:2218", L"axes point north and west"},
      {L"+proj=tmerc +lon_0=9 +x_0=5 +datum=WGS84 +axis=wnu", L"axes point west and north"},
      {L"+proj=longlat +datum=WGS84 +axis=wnu", L"axes point west and north"},
      {L"ENGCRS[\"quay\",EDATUM[\"post\"],CS[Cartesian,2],AXIS[\"x\",west],AXIS[\"y\",north],LENGTHUNIT[\"metre\",1]]",
       L"axes point west and north"},
      {L"+proj=utm +zone=32 +type=crs +step", L"is no coordinate system, but steps of a conversion"},
      {L"+proj=pipeline +step +proj=utm +zone=32", L"steps of a conversion"},
      {L"LOCALLY", L"'LOCALLY' is no coordinate system"},
      {L"+proj=foo", L"Unknown projection"},
      {L"PROJCS[", L"'PROJCS[' is no coordinate system"},
      {L"{\"type\"", L"'{\"type\"' is no coordinate system"},
      {std::wstring(L"32\0"
                    L"614",
                    6),
       L"is no coordinate system"},
      {L"EPSG:\n" + std::wstring(500, L'9'), L"...' is no coordinate system"},
  };
  for (const auto& c : cases) EXPECT_THAT(ErrorOf(c.text), HasSubstr(c.error));
}

TEST(VakGeoCoordSysBase, TextsThatNameFilesAreRefusedAndOpenNone) {
  const test::TestFolder folder;
  const std::string pipe = folder.File("pipe");  // who opens it waits for ever
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string wkt = "BASEGEOGCRS[\"b\",DATUM[\"d\",ELLIPSOID[\"e\",6378137,298]]]";
  const std::string json = R"({"type":"BoundCRS","source_crs":{"type":"GeographicCRS","name":"s","datum":
    {"type":"GeodeticReferenceFrame","name":"d","ellipsoid":{"name":"e","semi_major_axis":6378388,
    "inverse_flattening":297}},"coordinate_system":{"subtype":"ellipsoidal","axis":[{"name":"Longitude",
    "abbreviation":"lon","direction":"east","unit":"degree"},{"name":"Latitude","abbreviation":"lat",
    "direction":"north","unit":"degree"}]}},"target_crs":{"type":"GeographicCRS","name":"WGS 84","datum":
    {"type":"GeodeticReferenceFrame","name":"World Geodetic System 1984","ellipsoid":{"name":"WGS 84",
    "semi_major_axis":6378137,"inverse_flattening":298.257223563}},"coordinate_system":{"subtype":"ellipsoidal",
    "axis":[{"name":"Latitude","abbreviation":"lat","direction":"north","unit":"degree"},{"name":"Longitude",
    "abbreviation":"lon","direction":"east","unit":"degree"}]}},"transformation":{"name":"t","method":
    {"name":"NTv2","id":{"authority":"EPSG","code":9615}},"parameters":[{"name":
    "Latitude and longitude difference file","value":")" +
                           pipe + R"(","id":{"authority":"EPSG","code":8656}}]}})";
  for (const std::string& text :
       {"+proj=utm +zone=32 +ellps=intl +nadgrids=" + pipe, "+proj=utm +zone=32 +nadgrids=@null," + pipe,
        "+proj=utm +zone=32 +datum=WGS84 +geoidgrids=" + pipe, "+proj=hgridshift +grids=" + pipe,
        "+init=" + pipe + ":x", "init=" + pipe + ":1 +type=crs", "+proj=utm +zone=32 +init=" + pipe + ":5",
        std::string("+proj=utm +zone=32 +datum=WGS84 +geoidgrids=egm96_15.gtx"),
        "PROJCRS[\"a\"," + wkt + ",CONVERSION[\"c\",METHOD[\"PROJ hgridshift grids=" + pipe +
            "\"]],CS[Cartesian,2],AXIS[\"x\",east],AXIS[\"y\",north],UNIT[\"metre\",1]]",
        json}) {
    EXPECT_THAT(ErrorOf(FromUtf8(text)), HasSubstr(L"names a file, and systems are read from their texts alone"));
  }
  EXPECT_NE(Make(L"+proj=utm +zone=32 +ellps=GRS80 +nadgrids=@null"), nullptr) << "names none";
  EXPECT_NE(Make(L"+init=EPSG:28992 +type=crs"), nullptr) << "the register";
}

TEST(VakGeoCoordSysBase, NumberCountsOnlyForWhatTheRegisterHasUnderIt) {
  const auto text = [](const std::string& meridian, const std::string& flattening, const std::string& foot) {
    return FromUtf8(
        "PROJCRS[\"WGS 84 / UTM zone 14N\",BASEGEOGCRS[\"WGS 84\",DATUM[\"World Geodetic System 1984\","
        "ELLIPSOID[\"WGS 84\",6378137," +
        flattening +
        ",LENGTHUNIT[\"metre\",1],ID[\"EPSG\",7030]],"
        "ID[\"EPSG\",6326]],ID[\"EPSG\",4326]],CONVERSION[\"UTM zone 14N\",METHOD[\"Transverse Mercator\","
        "ID[\"EPSG\",9807]],PARAMETER[\"Latitude of natural origin\",0],PARAMETER[\"Longitude of natural "
        "origin\"," +
        meridian +
        "],PARAMETER[\"Scale factor at natural origin\",0.9996],PARAMETER[\"False "
        "easting\",500000],PARAMETER[\"False northing\",0]],CS[Cartesian,2],AXIS[\"E\",east],AXIS[\"N\","
        "north],LENGTHUNIT[\"metre\"," +
        foot + ",ID[\"EPSG\",9001]],ID[\"EPSG\",32614]]");
  };
  const struct {
    std::string meridian;
    std::string flattening;
    std::string metre;
    int system;
    int geographic;
    int ellipsoid;
    int unit;
  } cases[] = {{"-99", "298.257223563", "1", 32614, 4326, 7030, 9001},
               {"-97", "298.257223563", "1", 0, 4326, 7030, 9001},
               {"-99", "297", "1", 0, 0, 0, 9001},
               {"-99", "298.257223563", "0.5", 0, 4326, 7030, 0}};
  for (const auto& c : cases) {
    const GeoCoordSysDescription read = Make(text(c.meridian, c.flattening, c.metre))->Describe();
    SCOPED_TRACE(c.meridian + " " + c.flattening + " " + c.metre);
    EXPECT_EQ(read.system.code, c.system);
    EXPECT_EQ(read.geographic.code, c.geographic);
    EXPECT_EQ(read.ellipsoid.code, c.ellipsoid);
    EXPECT_EQ(read.unit.code, c.unit);
  }
}

TEST(VakGeoCoordSysBase, PlacesOutsideOfTheGlobeAreNone) {
  const struct {
    const wchar_t* system;
    double x;
    double y;
    bool isPlace;
    double longitude;
  } cases[] = {{L"EPSG:4326", 5, 90, true, 5},      {L"EPSG:4326", 5, -90, true, 5},
               {L"EPSG:4326", 5, 90.001, false, 0}, {L"EPSG:4326", 5, -95, false, 0},
               {L"EPSG:4326", 190, 50, true, -170}, {L"EPSG:4326", 360, 50, true, 0},
               {L"EPSG:4326", 361, 50, false, 0},   {L"EPSG:4326", -361, 50, false, 0},
               {L"EPSG:4326", 5e5, 5e6, false, 0},  {L"EPSG:4807", 0, 99, true, 2.3365},
               {L"EPSG:4807", 0, 101, false, 0},    {L"+proj=eqc +datum=WGS84", 0, 5e7, false, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.system) + " " + std::to_string(c.x) + " " + std::to_string(c.y));
    double latitude = -1;
    double longitude = -1;
    double height = -1;
    EXPECT_EQ(Make(c.system)->ConvertToWGS84(c.x, c.y, 0, latitude, longitude, height, 0), c.isPlace);
    if (c.isPlace) {
      EXPECT_NEAR(longitude, c.longitude, 0.05);
    } else {
      EXPECT_TRUE(latitude == -1 && longitude == -1 && height == -1);
    }
    EXPECT_LE(std::fabs(latitude), 90);
  }
}

TEST(VakGeoCoordSysBase, OrderOfTheSystemsOwnAxesMakesNoDifference) {
  const struct {
    const wchar_t* system;
    double x;
    double y;
    double latitude;
    double longitude;
  } cases[] = {{L"EPSG:31467", 3500000, 5400000, 48.73, 9.0},  // north, then east
               {L"EPSG:32661", 2000000, 1000000, 81.0, 0.0},   // both to the south, northing first
               {L"EPSG:5041", 2000000, 1000000, 81.0, 0.0},    // the same, easting first
               {L"EPSG:3031", 1000000, 0, -80.8, 90.0}};
  for (const auto& c : cases) {
    double latitude = 0;
    double longitude = 0;
    double height = 0;
    ASSERT_TRUE(Make(c.system)->ConvertToWGS84(c.x, c.y, 0, latitude, longitude, height, 0)) << c.system;
    EXPECT_NEAR(latitude, c.latitude, 0.1) << testing::PrintToString(c.system);
    EXPECT_NEAR(longitude, c.longitude, 0.1) << testing::PrintToString(c.system);
  }
}

TEST(VakGeoCoordSysBase, HeightsGoThroughTheShiftOfTheDatum) {
  const auto system = Make(L"EPSG:28992");
  std::wstring name = L"none";
  EXPECT_TRUE(system->GetProjectionName(name));
  EXPECT_EQ(name, L"RD New");
  EXPECT_EQ(system->GetEllipsoidName(), L"Bessel 1841");
  double latitude = 0;
  double longitude = 0;
  double height = 0;
  ASSERT_TRUE(system->ConvertToWGS84(155000, 463000, -12.34, latitude, longitude, height, 0));
  EXPECT_NEAR(latitude, 52.155172, 1e-5);
  EXPECT_NEAR(longitude, 5.387203, 1e-5);
  EXPECT_NEAR(height, 31.01, 0.01) << "a plane system would pass -12.34 on";
}

TEST(VakGeoCoordSysBase, NoWayIsNoApproximation) {
  // Its ellipsoid is known, but not where it lies.
  const auto unknown = Make(L"+proj=utm +zone=31 +ellps=intl");
  double latitude = 1;
  double longitude = 2;
  double height = 3;
  EXPECT_FALSE(unknown->ConvertToWGS84(500000, 5800000, 0, latitude, longitude, height, 0));
  const auto known = Make(L"EPSG:32631");
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(known->ConvertToWGS84(kNone, 5800000, 0, latitude, longitude, height, 0));
  EXPECT_FALSE(known->ConvertToWGS84(1e30, 1e30, 0, latitude, longitude, height, 0));
  EXPECT_EQ(latitude, 1);
  EXPECT_EQ(longitude, 2);
  EXPECT_EQ(height, 3);
  EXPECT_TRUE(known->ConvertToWGS84(500000, 5800000, 0, latitude, longitude, height, 0)) << "after a failure too";
}

TEST(VakGeoCoordSysBase, GeographicCoordinatesAreLongitudeAndLatitude) {
  const auto system = Make(L"EPSG:4326");
  double latitude = 0;
  double longitude = 0;
  double height = 0;
  ASSERT_TRUE(system->ConvertToWGS84(5, 52, 7, latitude, longitude, height, 0));
  EXPECT_NEAR(latitude, 52, 1e-9);
  EXPECT_NEAR(longitude, 5, 1e-9);
  std::wstring name;
  EXPECT_TRUE(system->GetProjectionName(name));
  EXPECT_EQ(name, L"WGS 84");
  EXPECT_EQ(system->Describe().kind, Kind::kGeographic);
}

TEST(VakGeoCoordSysBase, TextWithANumberInTheRegisterIsKnownByIt) {
  EXPECT_EQ(Make(L"+proj=utm +zone=32 +datum=WGS84 +units=m")->Describe().system.code, 32632);
  EXPECT_EQ(Make(L"+proj=utm +zone=32 +datum=WGS84 +x_0=500001")->Describe().system.code, 0);
  const GeoCoordSysDescription shifted = Make(L"+proj=tmerc +lon_0=9 +ellps=bessel +towgs84=1,2,3,4,5,6,7")->Describe();
  EXPECT_EQ(shifted.system.code, 0);
  EXPECT_THAT(shifted.toWgs84, testing::ElementsAre(1, 2, 3, 4, 5, 6, 7));
}

TEST(VakGeoCoordSysBase, DescriptionHasThePieces) {
  const GeoCoordSysDescription feet = Make(L"EPSG:2263")->Describe();
  EXPECT_NEAR(feet.unit.size, 1200.0 / 3937.0, 1e-12);
  EXPECT_EQ(feet.unit.code, 9003);
  EXPECT_EQ(feet.method.code, 9802);
  EXPECT_EQ(feet.parameters.size(), 6U);
  const GeoCoordSysDescription both = Make(L"EPSG:28992+5709")->Describe();
  EXPECT_EQ(both.system.code, 28992);
  EXPECT_TRUE(both.hasVertical);
  EXPECT_EQ(both.vertical.code, 5709);
  EXPECT_EQ(both.name, L"Amersfoort / RD New + NAP height");
  const GeoCoordSysDescription paris = Make(L"EPSG:4807")->Describe();
  EXPECT_NEAR(paris.primeMeridianLongitude, 2.33722917, 1e-8);
  EXPECT_NEAR(paris.angularUnit.size, 0.015707963267949, 1e-14);
}

TEST(VakGeoCoordSysBase, LocalSystemHasNoPlaceOnTheEarth) {
  const struct {
    std::wstring text;
    std::wstring definition;
    std::wstring name;
  } cases[] = {{L" LOCAL\n", L"LOCAL", L"Local"},
               {L"LOCAL", L"LOCAL", L"Local"},
               {L"local", L"LOCAL", L"Local"},
               {L"Local:Berth 7", L"LOCAL:Berth 7", L"Berth 7"}};
  for (const auto& c : cases) {
    const auto system = Make(c.text);
    EXPECT_EQ(system->GetDefinition(), c.definition);
    EXPECT_EQ(system->Describe().kind, Kind::kLocal);
    EXPECT_EQ(system->Describe().system.name, c.name);
    EXPECT_EQ(system->GetEllipsoidName(), L"");
    std::wstring name = L"as it was";
    EXPECT_FALSE(system->GetProjectionName(name));
    EXPECT_EQ(name, L"as it was");
    double latitude = 1;
    EXPECT_FALSE(system->ConvertToWGS84(0, 0, 0, latitude, latitude, latitude, 0));
    EXPECT_EQ(latitude, 1);
  }
  EXPECT_EQ(VakGeoCoordSysBase::MakeLocal()->GetDefinition(), L"LOCAL");
}

}  // namespace
}  // namespace vak
