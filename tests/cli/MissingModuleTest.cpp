#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "Command.h"
#include "support/CommandModels.h"

namespace vak {
namespace {

TEST(MissingModule, FormatsOfGdalNameThePackageAndGeoJsonWorksWithoutIt) {
  const test::CommandModels models;
  models.Make("a.dtm", "0.5,0.5,-1\n1.5,0.5,-2\n0.5,1.5,-1\n1.5,1.5,-2\n");
  // A copy of the command that has nothing beside it, and nothing where modules are installed.
  std::filesystem::create_directory(models.File("bin"));
  std::filesystem::copy_file(VAKDTM_COMMAND, models.File("bin/vakdtm"));
  for (const char* name : {"a.gpkg", "a.shp", "a.dxf", "a.fgb"}) {
    SCOPED_TRACE(name);
    const test::CommandResult result = test::RunCommand({models.File("bin/vakdtm"), "contour", models.File("a.dtm"),
                                                         "--interval", "0.5", "-o", models.File(name)})
                                           .Wait();
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_THAT(result.err,
                testing::StartsWith("vakdtm contour: " + models.File(name) +
                                    ": this format takes the module vakdtm_gdal.so, which is neither in " +
                                    models.File("bin") + " nor in " + models.Folder().Path().string() + "/lib"));
    EXPECT_THAT(result.err, testing::EndsWith(" - install the package libgdal-dev and build and install the command "
                                              "again, or write .geojson\n"));
    EXPECT_FALSE(models.Folder().Has(name));
  }
  const test::CommandResult plain = test::RunCommand({models.File("bin/vakdtm"), "contour", models.File("a.dtm"),
                                                      "--levels", "-1.5", "-o", models.File("a.geojson")})
                                        .Wait();
  EXPECT_EQ(plain.status, kDone);
  EXPECT_EQ(plain.err, "");
  EXPECT_TRUE(models.Folder().Has("a.geojson"));
  const test::CommandResult unchecked =
      test::RunCommand({models.File("bin/vakdtm"), "contour", models.File("a.dtm"), "--levels", "-1.5", "-o",
                        models.File("b.geojson"), "--crs", "EPSG:25831"})
          .Wait();
  EXPECT_EQ(unchecked.status, kDone);
  EXPECT_EQ(unchecked.err,
            "vakdtm contour: warning: --crs: without the module vakdtm_gdal.so nothing tells whether there is an "
            "EPSG:25831 - check the number\n");
  EXPECT_THAT(models.Folder().Text("b.geojson"), testing::HasSubstr("EPSG::25831"));
}

}  // namespace
}  // namespace vak
