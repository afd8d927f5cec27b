#include <gtest/gtest.h>
#include <string>

#include "LineFormat.h"

namespace vak {
namespace {

TEST(LineFormat, IsChosenByTheEndingInLargeLettersOrSmall) {
  const struct {
    const char* path;
    const char* driver;
  } cases[] = {{"a.geojson", ""},
               {"a.json", ""},
               {"-", ""},
               {"a.gpkg", "GPKG"},
               {"a.shp", "ESRI Shapefile"},
               {"a.dxf", "DXF"},
               {"a.fgb", "FlatGeobuf"},
               {"dir.x/A.GPKG", "GPKG"},
               {"./.a.Shp", "ESRI Shapefile"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    const LineFormat* const format = FindLineFormat(c.path);
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(format->driver, c.driver);
  }
}

TEST(LineFormat, OtherNamesHaveNone) {
  for (const char* path : {"", "a", "a.tif", "gpkg", ".gpkg", "dir/.shp", "a.shp/", "a.gpkg.bak", "--"}) {
    EXPECT_EQ(FindLineFormat(path), nullptr) << path;
  }
}

TEST(LineFormat, AllEndingsAreNamed) { EXPECT_EQ(LineFormatEndings(), ".geojson, .json, .gpkg, .shp, .dxf or .fgb"); }

}  // namespace
}  // namespace vak
