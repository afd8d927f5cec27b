#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

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
  } cases[] = {
      {L"LOCAL", L"LOCAL", L"Local"}, {L"local", L"LOCAL", L"Local"}, {L"Local:Berth 7", L"LOCAL:Berth 7", L"Berth 7"}};
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
