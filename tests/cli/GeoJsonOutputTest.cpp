#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "GeoJsonOutput.h"
#include "support/DecimalComma.h"
#include "support/RunGdal.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

class GeoJsonOutputTest : public testing::Test {
 protected:
  std::string Written(const std::vector<LineShape>& lines, const std::string& crs = {}, bool hasZ = false) const {
    GeoJsonOutput output;
    EXPECT_TRUE(output.Open({folder_.File("a.geojson"), "contours", crs, hasZ, {}}));
    for (const LineShape& line : lines) EXPECT_TRUE(output.Write(line));
    EXPECT_TRUE(output.Complete());
    EXPECT_FALSE(folder_.Has("a.geojson")) << "it appears when it is committed";
    EXPECT_TRUE(output.Commit());
    return folder_.Text("a.geojson");
  }

  /// The numbers that a script tells of the file, to the last bit.
  std::vector<double> ReadBy(const std::string& script) const {
    const test::CommandResult result = test::RunGdal(
        "def tell(*values): print(*(float(value).hex() for value in values))\n" + script, folder_.File("a.geojson"));
    EXPECT_EQ(result.err, "");
    std::istringstream words(result.out);
    std::vector<double> numbers;
    for (std::string word; words >> word;) numbers.push_back(std::strtod(word.c_str(), nullptr));
    return numbers;
  }

  test::TestFolder folder_;
};

TEST_F(GeoJsonOutputTest, EachPolylineIsAFeatureInALine) {
  EXPECT_EQ(Written({{-12.25, 2.5, false, {500000, 500001.5}, {5800000, 5800002}, {}},
                     {-12, 0.1, true, {1, 2, 1}, {1e-7, -3, 1e-7}, {}}}),
            "{\n"
            "\"type\":\"FeatureCollection\",\n"
            "\"name\":\"contours\",\n"
            "\"features\":[\n"
            "{\"type\":\"Feature\",\"properties\":{\"level\":-12.25,\"closed\":false,\"length\":2.5},\"geometry\":"
            "{\"type\":\"LineString\",\"coordinates\":[[500000,5800000],[500001.5,5800002]]}},\n"
            "{\"type\":\"Feature\",\"properties\":{\"level\":-12.0,\"closed\":true,\"length\":0.1},\"geometry\":"
            "{\"type\":\"LineString\",\"coordinates\":[[1,1e-07],[2,-3],[1,1e-07]]}}\n"
            "]\n"
            "}\n");
}

TEST_F(GeoJsonOutputTest, WithoutLinesItIsACollectionOfNone) {
  EXPECT_EQ(Written({}), "{\n\"type\":\"FeatureCollection\",\n\"name\":\"contours\",\n\"features\":[\n]\n}\n");
}

TEST_F(GeoJsonOutputTest, TheCoordinateSystemIsNamedInFrontOfTheLines) {
  EXPECT_EQ(Written({}, "EPSG:25831"),
            "{\n\"type\":\"FeatureCollection\",\n\"name\":\"contours\",\n"
            "\"crs\":{\"type\":\"name\",\"properties\":{\"name\":\"urn:ogc:def:crs:EPSG::25831\"}},\n"
            "\"features\":[\n]\n}\n");
}

TEST_F(GeoJsonOutputTest, OtherProgramsReadTheSameDoubles) {
  const double third = 1.0 / 3;
  const std::vector<double> x = {third,      500000 + third, std::nextafter(0.3, 1), -0.0, 1e300,
                                 5e-324,     1e17,           123456789.12345679,     1e-6, 9007199254740993.0,
                                 -1e-300 / 3};
  std::vector<double> y = x;
  for (double& value : y) value = -value * 1.1;
  std::vector<double> z(x.rbegin(), x.rend());
  {
    const test::DecimalComma comma;  // numbers have a point for the decimals all the same
    Written({{third, 2 * third, true, x, y, z}}, "EPSG:25831", true);
  }
  std::vector<double> expected = {third, 2 * third, 1};
  for (std::size_t i = 0; i < x.size(); ++i) expected.insert(expected.end(), {x[i], y[i], z[i]});
  EXPECT_EQ(ReadBy(R"(
import json
one, = json.load(open(sys.argv[1], encoding='utf-8'))['features']
tell(one['properties']['level'], one['properties']['length'], one['properties']['closed'])
for point in one['geometry']['coordinates']: tell(*point)
)"),
            expected);
  EXPECT_EQ(ReadBy(R"(
data = ogr.Open(sys.argv[1])
layer = data.GetLayer(0)
assert layer.GetSpatialRef().GetAuthorityCode(None) == '25831', layer.GetSpatialRef()
one, = layer
line = one.GetGeometryRef()
tell(one.GetField('level'), one.GetField('length'), one.GetField('closed'))
for i in range(line.GetPointCount()): tell(*line.GetPoint(i))
)"),
            expected);
}

TEST_F(GeoJsonOutputTest, WhatCannotBeWrittenIsToldAndLeavesNothing) {
  GeoJsonOutput full;
  ASSERT_TRUE(full.Open({"/dev/full", "contours", "", false, {}}));
  EXPECT_TRUE(full.Complete());
  EXPECT_FALSE(full.Commit());
  EXPECT_EQ(full.Error(), "no space left on the device");
  EXPECT_EQ(full.Remedy(), "make room, or name another file with -o");
  GeoJsonOutput nowhere;
  EXPECT_FALSE(nowhere.Open({folder_.File("nowhere/a.geojson"), "contours", "", false, {}}));
  EXPECT_EQ(nowhere.Error(), "there is no such folder");
  EXPECT_EQ(nowhere.Remedy(), "name another file with -o");
}

}  // namespace
}  // namespace vak
