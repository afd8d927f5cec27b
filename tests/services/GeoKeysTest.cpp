#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/services/tiff/GeoKeys.h"

namespace vak {
namespace {

using Reals = std::map<int, std::vector<double>>;

GeoCoordSysDescription Described(const std::string& text) {
  std::wstring error;
  const auto system = VakGeoCoordSysBase::FromText(FromUtf8(text), &error);
  EXPECT_NE(system, nullptr) << text << ToUtf8(error);
  return system ? system->Describe() : GeoCoordSysDescription();
}

/// The keys of a projection's parameters alone.
Reals ParametersOf(const GeoKeys& keys) { return {keys.reals.lower_bound(3077), keys.reals.end()}; }

TEST(GeoKeys, MethodsHaveEachOfTheirParametersInItsKey) {
  // No two numbers of a system are equal, so that none can stand in for another.
  const std::string at = " +x_0=1100 +y_0=2200 +datum=WGS84";
  const struct {
    std::string text;
    int transformation;
    Reals parameters;
  } cases[] = {
      {"+proj=tmerc +lat_0=48 +lon_0=11 +k=0.997", 1, {{3081, {48}}, {3080, {11}}, {3092, {0.997}}}},
      {"+proj=merc +lon_0=11 +k=0.98", 7, {{3081, {0}}, {3080, {11}}, {3092, {0.98}}}},
      {"+proj=merc +lon_0=11 +lat_ts=41", 7, {{3078, {41}}, {3080, {11}}}},
      {"+proj=lcc +lat_1=46 +lat_0=46 +lon_0=11 +k_0=0.998", 9, {{3081, {46}}, {3080, {11}}, {3092, {0.998}}}},
      {"+proj=sterea +lat_0=52 +lon_0=5 +k=0.9999", 16, {{3081, {52}}, {3080, {5}}, {3092, {0.9999}}}},
      {"+proj=stere +lat_0=52 +lon_0=5 +k=0.9999", 14, {{3089, {52}}, {3088, {5}}, {3092, {0.9999}}}},
      {"+proj=stere +lat_0=90 +lon_0=-45 +k=0.994", 15, {{3081, {90}}, {3095, {-45}}, {3092, {0.994}}}},
      {"+proj=stere +lat_0=-90 +lat_ts=-71 +lon_0=15", 15, {{3081, {-71}}, {3095, {15}}, {3092, {1}}}},
      {"+proj=omerc +no_uoff +lat_0=4 +lonc=102 +alpha=53 +gamma=54 +k=0.998",
       3,
       {{3089, {4}}, {3088, {102}}, {3094, {53}}, {3096, {54}}, {3093, {0.998}}}},
      {"+proj=omerc +lat_0=4 +lonc=102 +alpha=53 +gamma=54 +k=0.998",
       9815,
       {{3089, {4}}, {3088, {102}}, {3094, {53}}, {3096, {54}}, {3093, {0.998}}}},
      {"+proj=aea +lat_1=29 +lat_2=45 +lat_0=37 +lon_0=-96",
       11,
       {{3078, {29}}, {3079, {45}}, {3081, {37}}, {3080, {-96}}}},
      {"+proj=eqdc +lat_1=29 +lat_2=45 +lat_0=37 +lon_0=-96",
       13,
       {{3078, {29}}, {3079, {45}}, {3081, {37}}, {3080, {-96}}}},
      {"+proj=laea +lat_0=52 +lon_0=10", 10, {{3089, {52}}, {3088, {10}}}},
      {"+proj=aeqd +lat_0=52 +lon_0=10", 12, {{3089, {52}}, {3088, {10}}}},
      {"+proj=cass +lat_0=52 +lon_0=10", 18, {{3081, {52}}, {3080, {10}}}},
      {"+proj=poly +lat_0=52 +lon_0=10", 22, {{3081, {52}}, {3080, {10}}}},
      {"+proj=nzmg +lat_0=-41 +lon_0=173", 26, {{3081, {-41}}, {3080, {173}}}},
      {"+proj=ortho +lat_0=52 +lon_0=10", 21, {{3089, {52}}, {3088, {10}}}},
      {"+proj=gnom +lat_0=52 +lon_0=10", 19, {{3089, {52}}, {3088, {10}}}},
      {"+proj=eqc +lat_ts=30 +lat_0=5 +lon_0=10", 17, {{3078, {30}}, {3089, {5}}, {3088, {10}}}},
      {"+proj=cea +lat_ts=30 +lon_0=10", 28, {{3078, {30}}, {3080, {10}}}},
      {"+proj=sinu +lon_0=10", 24, {{3088, {10}}}},
      {"+proj=robin +lon_0=10", 23, {{3088, {10}}}},
      {"+proj=vandg +lon_0=10", 25, {{3088, {10}}}},
      {"+proj=mill +lon_0=10", 20, {{3088, {10}}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    GeoKeys keys;
    std::wstring fault;
    EXPECT_TRUE(MakeGeoKeys(Described(c.text + at), L"", keys, fault)) << ToUtf8(fault);
    Reals wanted = c.parameters;
    wanted[3082] = {1100};
    wanted[3083] = {2200};
    EXPECT_EQ(ParametersOf(keys), wanted);
    EXPECT_EQ(keys.numbers[3075], c.transformation);
    // What it stands on is there in pieces as well, since readers don't know all numbers.
    EXPECT_EQ(keys.numbers[2048], 4326);
    EXPECT_EQ(keys.numbers[2050], 6326);
    EXPECT_EQ(keys.numbers[2051], 8901);
    EXPECT_EQ(keys.numbers[2056], 7030);
    EXPECT_EQ(keys.reals[2057], std::vector<double>{6378137});
    EXPECT_EQ(keys.reals[2059], std::vector<double>{298.257223563});
  }
  GeoKeys keys;
  std::wstring fault;
  EXPECT_TRUE(MakeGeoKeys(Described("+proj=lcc +lat_1=49 +lat_2=44 +lat_0=46 +lon_0=3" + at), L"", keys, fault));
  EXPECT_EQ(ParametersOf(keys),
            (Reals{{3078, {49}}, {3079, {44}}, {3084, {3}}, {3085, {46}}, {3086, {1100}}, {3087, {2200}}}));
  EXPECT_TRUE(MakeGeoKeys(Described("+proj=tmerc +lon_0=11" + at), L"Foot", keys, fault));
  EXPECT_NEAR(keys.reals[3082].front(), 1100 / 0.3048, 1e-9);
  EXPECT_EQ(keys.numbers[3076], 9002);
}

TEST(GeoKeys, AnglesWithoutANumberHaveTheOneOfTheirSize) {
  const struct {
    std::string unit;
    int code;
    double meridian;
  } cases[] = {{"\"grad\",0.015707963267949", 9105, 2.5},
               {"\"deg\",0.017453292519943295", 9102, 2.25},
               {"\"rad\",1", 9101, 0.0392699081698724}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.unit);
    GeoCoordSysDescription system = Described(
        "GEOGCRS[\"mine\",DATUM[\"mine\",ELLIPSOID[\"mine\",6378249,293]],PRIMEM["
        "\"mine\",2.25,ANGLEUNIT[\"degree\",0.017453292519943295]],CS[ellipsoidal"
        ",2],AXIS[\"lat\",north],AXIS[\"lon\",east],ANGLEUNIT[" +
        c.unit + "]]");
    GeoKeys keys = GeographicKeys(system);
    EXPECT_EQ(keys.numbers[2048], 32767);
    EXPECT_EQ(keys.numbers[2054], c.code);
    EXPECT_NEAR(keys.reals[2061].front(), c.meridian, 1e-12);
  }
}

TEST(GeoKeys, APlaneByItsNumberHasTheUnitOfAnglesThatItStandsOn) {
  for (const auto& [text, code] : {std::pair("EPSG:25831", 9102), std::pair("EPSG:27561", 9105)}) {
    GeoKeys keys;
    std::wstring fault;
    ASSERT_TRUE(MakeGeoKeys(Described(text), L"", keys, fault)) << text;
    EXPECT_EQ(keys.numbers[2054], code) << text;
    EXPECT_EQ(keys.reals.size(), 0u) << text;
  }
}

TEST(GeoKeys, HeightsThatCantBeToldLeaveThePlane) {
  const auto heights = [](const std::string& datum, const std::string& axis) {
    return "COMPOUNDCRS[\"both\",PROJCRS[\"ETRS89 / UTM zone 32N\",BASEGEOGCRS[\"ETRS89\",DATUM[\"European Terrestrial "
           "Reference System 1989\",ELLIPSOID[\"GRS "
           "1980\",6378137,298.257222101]]],CONVERSION[\"c\",METHOD[\"Transverse "
           "Mercator\",ID[\"EPSG\",9807]],PARAMETER[\"Latitude of natural origin\",0],PARAMETER[\"Longitude of natural "
           "origin\",9],PARAMETER[\"Scale factor at natural origin\",0.9996],PARAMETER[\"False easting\",500000],"
           "PARAMETER[\"False northing\",0]],CS[Cartesian,2],AXIS[\"E\",east],AXIS[\"N\",north],LENGTHUNIT[\"metre\",1]"
           "],VERTCRS[\"NAP height\",VDATUM[\"" +
           datum + "\"],CS[vertical,1],AXIS[" + axis + "]]]]";
  };
  const struct {
    std::string text;
    std::wstring fault;
    int vertical;  // 0: none
    int datum;
    int unit;
  } cases[] = {
      {"EPSG:25832+5709", L"", 5709, 5109, 9001},
      {"EPSG:25832+5861", L"", 5861, 1080, 9001},
      {"EPSG:25832+6360", L"", 6360, 5103, 9003},
      {heights("Normaal Amsterdams Peil", "\"h\",up,LENGTHUNIT[\"metre\",1"), L"", 5709, 5109, 9001},
      {heights("Quay", "\"h\",up,LENGTHUNIT[\"metre\",1"), L"the heights: 'Quay' isn't in the EPSG register", 0, 0, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const GeoCoordSysDescription system = Described(c.text);
    GeoKeys keys;
    std::wstring fault;
    EXPECT_EQ(MakeGeoKeys(system, L"", keys, fault), c.fault.empty());
    EXPECT_EQ(fault, c.fault);
    EXPECT_EQ(keys.numbers[3072], 25832);
    EXPECT_EQ(keys.numbers.contains(4096) ? keys.numbers[4096] : 0, c.vertical);
    EXPECT_EQ(keys.numbers.contains(4098) ? keys.numbers[4098] : 0, c.datum);
    EXPECT_EQ(keys.numbers.contains(4099) ? keys.numbers[4099] : 0, c.unit);
  }
  GeoCoordSysDescription odd = Described("EPSG:25832+5709");
  odd.vertical.code = 0;
  odd.verticalUnit = {{L"cubit", 0}, 0.5};
  GeoKeys keys;
  std::wstring fault;
  EXPECT_FALSE(MakeGeoKeys(odd, L"", keys, fault));
  EXPECT_EQ(fault, L"the heights: their unit 'cubit' isn't in the EPSG register");
  odd.verticalUnit.size = 1.8288;
  EXPECT_TRUE(MakeGeoKeys(odd, L"", keys, fault));
  EXPECT_EQ(keys.numbers[4099], 9014);
  odd.verticalIsDown = true;
  EXPECT_FALSE(MakeGeoKeys(odd, L"", keys, fault));
}

}  // namespace
}  // namespace vak
