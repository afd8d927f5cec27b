#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "Command.h"
#include "support/CommandModels.h"
#include "support/RunGdal.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

using test::CommandResult;
using testing::HasSubstr;
using Words = std::vector<std::string>;

/// What stands in a file of lines, told by GDAL to the last bit: a line of text for each feature.
constexpr const char* kTell = R"(
def tell(*values): print(*(float(value).hex() for value in values), end=' ')
data = ogr.Open(sys.argv[1])
for one in data.GetLayer(0):
    tell(one.GetField('level'), one.GetField('closed'), one.GetField('length'))
    line = one.GetGeometryRef()
    for i in range(line.GetPointCount()): tell(*(line.GetPoint(i) if line.Is3D() else line.GetPoint_2D(i)))
    print()
)";

/// Files of lines in GDAL's formats, as the module of the command writes them.
class GdalLines : public testing::Test {
 protected:
  static CommandResult Run(Words words) { return test::CommandModels::Run(std::move(words)); }

  /// Writes lines of the model to the file.
  void Write(const std::string& command, const std::string& name, Words words) const {
    words.insert(words.begin(), {command, models_.File("a.dtm"), "-o", models_.File(name)});
    const CommandResult result = Run(words);
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.out + result.err, "");
  }
  std::string Told(const std::string& name, const std::string& script = kTell) const {
    const CommandResult result = test::RunGdal(script, models_.File(name));
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  test::CommandModels models_;
};

TEST_F(GdalLines, FormatsHoldTheSameDoublesInTheSameOrderAsGeoJson) {
  models_.MakeWaves("a.dtm", 70);
  const struct {
    const char* command;
    Words words;
    std::size_t fewest;
  } cases[] = {{"contour", {"--interval", "0.1"}, 100}, {"outline", {}, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    Write(c.command, "lines.geojson", c.words);
    const std::string wanted = Told("lines.geojson");
    EXPECT_GT(static_cast<std::size_t>(std::count(wanted.begin(), wanted.end(), '\n')), c.fewest - 1);
    for (const char* name : {"lines.gpkg", "lines.fgb"}) {
      SCOPED_TRACE(name);
      Write(c.command, name, c.words);
      EXPECT_TRUE(Told(name) == wanted) << "read differently";
    }
  }
}

TEST_F(GdalLines, ShapefileHoldsTheSameCoordinatesAndLevels) {
  models_.MakeWaves("a.dtm", 70);
  // Lengths have fifteen decimals in it.
  const std::string script = std::string(kTell).replace(std::string(kTell).find(", one.GetField('length')"), 24, "");
  const struct {
    const char* command;
    Words words;
  } cases[] = {{"contour", {"--interval", "0.1"}},
               {"contour", {"--levels", "-12.5,-10,-9.4"}},
               {"contour", {"--interval", "0.3333333333333333", "--base", "0.1"}},
               {"outline", {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    Write(c.command, "lines.geojson", c.words);
    Write(c.command, "lines.shp", c.words);
    EXPECT_TRUE(Told("lines.shp", script) == Told("lines.geojson", script)) << "read differently";
  }
  EXPECT_EQ(Told("lines.shp",
                 "data = ogr.Open(sys.argv[1])\n"
                 "for one in data.GetLayer(0):\n"
                 "    z = [p[2] for p in one.GetGeometryRef().GetPoints()]\n"
                 "    length = one.GetGeometryRef().Length()\n"
                 "    assert one.GetField('length') > length > 0 and max(z) > min(z)\n"),
            "")
      << "lengths are those in space";
}

TEST_F(GdalLines, LayersHaveAttributesOfTheirKindAndACoordinateSystem) {
  models_.MakeWaves("a.dtm", 20);
  const std::string script = R"(
data = ogr.Open(sys.argv[1])
layer = data.GetLayer(0)
fields = layer.GetLayerDefn()
print(layer.GetName(), ogr.GeometryTypeToName(layer.GetGeomType()),
      layer.GetSpatialRef().GetAuthorityCode(None) if layer.GetSpatialRef() else 'none')
for i in range(fields.GetFieldCount()):
    field = fields.GetFieldDefn(i)
    print(field.GetName(), field.GetTypeName(), ogr.GetFieldSubTypeName(field.GetSubType()))
)";
  const struct {
    const char* name;
    const char* command;
    Words words;
    const char* told;
  } cases[] = {
      {"a.gpkg",
       "contour",
       {"--interval", "1", "--crs", "EPSG:25831"},
       "contours Line String 25831\nlevel Real None\nclosed Integer Boolean\nlength Real None\n"},
      {"a.fgb",
       "contour",
       {"--interval", "1", "--crs", "EPSG:25831"},
       "contours Line String 25831\nlevel Real None\nclosed Integer Boolean\nlength Real None\n"},
      {"a.shp",
       "contour",
       {"--interval", "1", "--crs", "EPSG:25831"},
       "a Line String 25831\nlevel Real None\nclosed Integer None\nlength Real None\n"},
      {"b.shp",
       "contour",
       {"--interval", "1"},
       "b Line String none\nlevel Real None\nclosed Integer None\nlength Real None\n"},
      {"b.gpkg",
       "outline",
       {"--crs", "EPSG:25831"},
       "outlines 3D Line String 25831\nlevel Real None\nclosed Integer Boolean\nlength Real None\n"},
      {"b.geojson",
       "contour",
       {"--interval", "1", "--crs", "EPSG:25831"},
       "contours Line String 25831\nlevel Real None\nclosed Integer Boolean\nlength Real None\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Write(c.command, c.name, c.words);
    EXPECT_EQ(Told(c.name, script), c.told);
  }
  EXPECT_TRUE(models_.Folder().Has("a.prj"));
  EXPECT_FALSE(models_.Folder().Has("b.prj"));
}

TEST_F(GdalLines, WithoutLinesAFileIsAWholeOneOfNone) {
  models_.MakeWaves("a.dtm", 20);
  const struct {
    const char* name;
    const char* told;
  } cases[] = {{"n.geojson", "0 25831"},
               {"n.gpkg", "0 25831 level Real closed Integer length Real"},
               {"n.shp", "0 25831 level Real closed Integer length Real"},
               {"n.fgb", "0 25831 level Real closed Integer length Real"}};
  const std::string script = R"(
layer = (data := ogr.Open(sys.argv[1])).GetLayer(0)
fields = [layer.GetLayerDefn().GetFieldDefn(i) for i in range(layer.GetLayerDefn().GetFieldCount())]
assert layer.GetGeomType() in (ogr.wkbLineString, ogr.wkbUnknown), layer.GetGeomType()
print(len(list(layer)), layer.GetSpatialRef().GetAuthorityCode(None),
      *(word for field in fields for word in (field.GetName(), field.GetTypeName())))
)";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const CommandResult result =
        Run({"contour", models_.File("a.dtm"), "--levels", "5", "-o", models_.File(c.name), "--crs", "EPSG:25831"});
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.err, "vakdtm contour: warning: " + models_.File("a.dtm") + ": there are no contours\n");
    EXPECT_EQ(Told(c.name, script), c.told + std::string("\n"));
  }
  EXPECT_EQ(Run({"contour", models_.File("a.dtm"), "--levels", "5", "-o", models_.File("n.dxf")}).status, kDone);
  EXPECT_EQ(Told("n.dxf", "data = ogr.Open(sys.argv[1])\nprint(len(list(data.GetLayer(0))))"), "0\n");
}

TEST_F(GdalLines, AShapefileTakesLevelsThatNoFieldHoldsAsLongAsTheyHaveNoLines) {
  models_.MakeWaves("a.dtm", 20);
  Write("contour", "few.shp", {"--levels", "-10,-9.25"});
  Write("contour", "all.shp", {"--levels", "-1e300,-10,-9.25,1e-300,1e300"});
  EXPECT_NE(Told("few.shp"), "");
  EXPECT_EQ(Told("all.shp"), Told("few.shp"));
  models_.Make("b.dtm", "0.5,0.5,-1\n1.5,0.5,1\n0.5,1.5,-1\n1.5,1.5,1\n");
  const CommandResult result =
      Run({"contour", models_.File("b.dtm"), "--levels", "0.5,1e-300", "-o", models_.File("b.shp")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm contour: " + models_.File("b.shp") +
                            ": cannot write: level 1e-300 has too many digits for a Shapefile - name another format, "
                            "as .geojson\n");
  EXPECT_FALSE(models_.Folder().Has("b.shp"));
}

TEST_F(GdalLines, WhatGdalRefusesForOtherReasonsThanRoomIsToldWithWhatHelps) {
  models_.MakeWaves("a.dtm", 20);
  const CommandResult result = test::RunCommand({"env", "GDAL_DATA=/nowhere", VAKDTM_COMMAND, "contour",
                                                 models_.File("a.dtm"), "--levels", "-10", "-o", models_.File("a.dxf")})
                                   .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, HasSubstr(" is GDAL_DATA set properly? - install the package gdal-data, or name another "));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '?'), 1) << "a line break isn't told as a question mark";
  EXPECT_EQ(models_.Names(), (Words{"a.dtm"}));
}

TEST_F(GdalLines, GeoPackageHasASpatialIndexAndNoJournalIsLeft) {
  models_.MakeWaves("a.dtm", 70);
  Write("contour", "a.gpkg", {"--interval", "0.5"});
  EXPECT_EQ(Told("a.gpkg", R"(
data = gdal.OpenEx(sys.argv[1])
index = data.ExecuteSQL('SELECT COUNT(*) FROM rtree_contours_geom')
print(index.GetNextFeature().GetField(0) == data.GetLayer(0).GetFeatureCount() > 10)
)"),
            "True\n");
  EXPECT_EQ(models_.Names(), (Words{"a.dtm", "a.gpkg"}));
}

TEST_F(GdalLines, DrawingHasALayerForEachLevelAndItsHeight) {
  models_.MakeWaves("a.dtm", 20);
  const std::string script = R"(
data = ogr.Open(sys.argv[1])
for one in data.GetLayer(0):
    line = one.GetGeometryRef()
    heights = {line.GetZ(i) for i in range(line.GetPointCount())}
    print(one.GetField('Layer'), line.GetGeometryName(), sorted(heights) if len(heights) == 1 else 'many')
)";
  Write("contour", "c.dxf", {"--levels", "-10.25,-9"});
  const std::string told = Told("c.dxf", script);
  EXPECT_THAT(told, HasSubstr("CONTOUR_-10.25 LINESTRING [-10.25]\n"));
  EXPECT_THAT(told, HasSubstr("CONTOUR_-9 LINESTRING [-9.0]\n"));
  Write("outline", "o.dxf", {});
  EXPECT_THAT(Told("o.dxf", script), HasSubstr("OUTLINE LINESTRING many\n"));
  // Fifteen digits, as its driver writes them.
  Write("contour", "c.geojson", {"--levels", "-10.25,-9"});
  const std::string coordinates = R"(
data = ogr.Open(sys.argv[1])
for one in data.GetLayer(0):
    print(*('%.6f %.6f' % point[:2] for point in one.GetGeometryRef().GetPoints()))
)";
  EXPECT_EQ(Told("c.dxf", coordinates), Told("c.geojson", coordinates));
  const CommandResult warned =
      Run({"contour", models_.File("a.dtm"), "--levels", "-10", "-o", models_.File("c.dxf"), "--crs", "EPSG:25831"});
  EXPECT_EQ(warned.status, kDone);
  EXPECT_EQ(warned.err, "vakdtm contour: warning: " + models_.File("c.dxf") +
                            ": this format has no place for a coordinate system, EPSG:25831 isn't kept - leave --crs "
                            "out, or name another format\n");
}

TEST_F(GdalLines, ClosedLinesOfADrawingAreClosedAndHaveNoVertexTwice) {
  models_.MakeWaves("a.dtm", 70);
  // What stands between the names of the entities, as far as it is of interest: 70 is 1 for a closed one and 9 for one
  // in space, 90 the number of vertices in the plane, a VERTEX one in space.
  const std::string entities = R"(
words = open(sys.argv[1]).read().split('ENTITIES')[1].split('OBJECTS')[0].split('\n')
pairs = list(zip((word.strip() for word in words[1::2]), (word.strip() for word in words[2::2])))
for code, value in pairs:
    if code == '0' and value in ('LWPOLYLINE', 'POLYLINE'): print(end='\n' + value)
    if code == '90' or code == '70' and value != '32': print(end=' ' + value)
    if code == '0' and value == 'VERTEX': print(end=' v')
print()
)";
  const std::string vertices = R"(
data = ogr.Open(sys.argv[1])
for one in data.GetLayer(0):
    count, closed = one.GetGeometryRef().GetPointCount(), one.GetField('closed')
    flat = one.GetGeometryRef().GetCoordinateDimension() == 2
    print(end='\nLWPOLYLINE %d %d' % (closed, count - closed) if flat else
              '\nPOLYLINE %d' % (8 + closed) + (count - closed) * ' v')
print()
)";
  for (const char* command : {"contour", "outline"}) {
    SCOPED_TRACE(command);
    const Words words = *command == 'c' ? Words{"--levels", "-10.25,-9"} : Words{};
    Write(command, "c.dxf", words);
    Write(command, "c.geojson", words);
    const std::string wanted = Told("c.geojson", vertices);
    EXPECT_THAT(wanted, HasSubstr(*command == 'c' ? "LWPOLYLINE 1 " : "POLYLINE 9 v"));
    EXPECT_EQ(Told("c.dxf", entities), wanted);
  }
}

TEST_F(GdalLines, AFileIsReplacedWithAllThatBelongsToIt) {
  models_.MakeWaves("a.dtm", 20);
  Write("contour", "a.shp", {"--interval", "1", "--crs", "EPSG:25831"});
  Write("contour", "a.shp", {"--interval", "1"});
  EXPECT_EQ(models_.Names(), (Words{"a.cpg", "a.dbf", "a.dtm", "a.shp", "a.shx"}))
      << "the old coordinate system is gone";
  for (const char* name : {"a.gpkg", "a.fgb", "a.dxf"}) {
    models_.Folder().Write(name, "something else");
    Write("contour", name, {"--interval", "1"});
    EXPECT_NE(Told(name, "data = ogr.Open(sys.argv[1])\nprint(data.GetLayer(0).GetFeatureCount())"), "0\n");
  }
}

TEST_F(GdalLines, StoppedInTheMiddleNothingIsLeftAndTheOldFileStays) {
  models_.MakeWaves("a.dtm", 300);
  for (const char* name : {"c.gpkg", "c.shp", "c.dxf", "c.fgb"}) {
    SCOPED_TRACE(name);
    models_.Folder().Write(name, "old");
    const Words before = models_.Names();
    test::RunCommand command(
        {VAKDTM_COMMAND, "contour", models_.File("a.dtm"), "--interval", "0.0001", "-o", models_.File(name)});
    // It has begun to write when the hidden folder is there.
    while (models_.Names() == before && !command.HasEnded()) std::this_thread::yield();
    command.Signal(SIGINT);
    const CommandResult& result = command.Wait();
    EXPECT_EQ(result.status, kStopped);
    EXPECT_EQ(result.err, "vakdtm contour: stopped - nothing was kept\n");
    EXPECT_EQ(models_.Names(), before);
    EXPECT_EQ(models_.Folder().Text(name), "old");
  }
}

TEST_F(GdalLines, AFullDiskIsToldInOneLineAndLeavesNothing) {
  models_.MakeWaves("a.dtm", 70);
  const Words before = models_.Names();
  for (const char* blocks : {"1", "64"}) {
    for (const char* name : {"c.gpkg", "c.shp", "c.dxf", "c.fgb"}) {
      SCOPED_TRACE(std::string(name) + " with " + blocks + " blocks");
      // On a terminal, since the files that catch its words may not grow either.
      CommandResult result =
          test::RunCommand(
              {"sh", "-c", "trap '' XFSZ; ulimit -f $3; exec \"$0\" contour \"$1\" -q --interval 0.001 -o \"$2\"",
               VAKDTM_COMMAND, models_.File("a.dtm"), models_.File(name), blocks},
              {}, test::RunCommand::StandardError::kTerminal)
              .Wait();
      EXPECT_EQ(result.status, kCouldNotBeDone);
      EXPECT_THAT(result.err, testing::MatchesRegex("vakdtm contour: .*/c\\.[a-z]+: cannot write: .* - make room, or "
                                                    "name another file with -o\r\n"));
      EXPECT_EQ(models_.Names(), before);
    }
  }
}

TEST_F(GdalLines, WhatCannotBeReplacedIsRefused) {
  models_.MakeWaves("a.dtm", 20);
  fs::create_directory(models_.File("folder.shp"));
  const struct {
    std::string target;
    const char* error;
  } cases[] = {{models_.File("folder.shp"), "it is a folder"},
               {models_.File("nowhere/a.gpkg"), "there is no such folder"}};
  for (const auto& c : cases) {
    const CommandResult result = Run({"contour", models_.File("a.dtm"), "--interval", "1", "-o", c.target});
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.err,
              "vakdtm contour: " + c.target + ": cannot write: " + c.error + " - name another file with -o\n");
  }
  fs::create_directories(models_.File("b.prj/deep"));
  const CommandResult beside = Run({"contour", models_.File("a.dtm"), "--interval", "1", "-o", models_.File("b.shp")});
  EXPECT_EQ(beside.status, kCouldNotBeDone);
  EXPECT_EQ(beside.err, "vakdtm contour: " + models_.File("b.shp") + ": cannot write: " + models_.File("b.prj") +
                            ", a name that goes with it, is a folder - name another file with -o\n");
  models_.Folder().Write("c.shp", "old");
  const CommandResult twin = Run({"contour", models_.File("a.dtm"), "--interval", "1", "-o", models_.File("c.SHP")});
  EXPECT_EQ(twin.status, kCouldNotBeDone);
  EXPECT_EQ(twin.err, "vakdtm contour: " + models_.File("c.SHP") + ": cannot write: " + models_.File("c.shp") +
                          " has that name in other letters, and would share its files - name another file with -o\n");
  const CommandResult unknown =
      Run({"contour", models_.File("a.dtm"), "--interval", "1", "-o", models_.File("a.gpkg"), "--crs", "EPSG:99999"});
  EXPECT_EQ(unknown.status, kCouldNotBeDone);
  EXPECT_EQ(unknown.err, "vakdtm contour: --crs: GDAL knows no EPSG:99999 - check the number\n");
}

TEST_F(GdalLines, AFolderWhoseNameLooksLikeAnAddressIsAFolder) {
  models_.MakeWaves("a.dtm", 20);
  fs::create_directory(models_.File("file:x"));
  for (const char* name : {"file:x/a.gpkg", "file:x/a.shp", "file:x/a.dxf", "file:x/a.fgb"}) {
    const CommandResult result =
        test::RunCommand({"sh", "-c", R"(cd "$1" && exec "$0" contour a.dtm --interval 1 -o "$2")", VAKDTM_COMMAND,
                          models_.Folder().Path().string(), name})
            .Wait();
    EXPECT_EQ(result.status, kDone);
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(models_.Folder().Has(name)) << name;
  }
}

TEST_F(GdalLines, ACoordinateSystemIsLookedUpForEveryFormatThatKeepsOne) {
  models_.MakeWaves("a.dtm", 20);
  const struct {
    const char* crs;
    int status;
    const char* error;
  } cases[] = {
      {"EPSG:25831", kDone, ""},
      {"EPSG:7415", kDone, ""},
      {"EPSG:99999", kCouldNotBeDone, "vakdtm contour: --crs: GDAL knows no EPSG:99999 - check the number\n"},
      {"EPSG:5709", kCouldNotBeDone,
       "vakdtm contour: --crs: EPSG:5709, NAP height, is for heights alone - give the one of X and Y\n"},
      {"EPSG:4978", kCouldNotBeDone,
       "vakdtm contour: --crs: EPSG:4978, WGS 84, counts from the middle of the Earth - give the one of the model's "
       "plane\n"},
      {"EPSG:4294967295", kUsedWrongly,
       "vakdtm contour: --crs: 'EPSG:4294967295' is no coordinate system - give one as EPSG:25831\n"}};
  for (const char* name : {"a.geojson", "a.gpkg", "a.shp", "a.fgb"}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(name) + " " + c.crs);
      const CommandResult result =
          Run({"contour", models_.File("a.dtm"), "--levels", "-10", "-o", models_.File(name), "--crs", c.crs});
      EXPECT_EQ(result.status, c.status);
      EXPECT_EQ(result.err, c.error);
    }
  }
}

TEST_F(GdalLines, WithoutTheTableOfCoordinateSystemsThatIsToldAndGeoJsonGoesOn) {
  models_.MakeWaves("a.dtm", 20);
  const struct {
    const char* name;
    int status;
    const char* kind;
  } cases[] = {{"a.gpkg", kCouldNotBeDone, ""}, {"a.geojson", kDone, "warning: "}};
  for (const auto& c : cases) {
    const CommandResult result =
        test::RunCommand({"env", "PROJ_LIB=/nowhere", "PROJ_DATA=/nowhere", VAKDTM_COMMAND, "contour",
                          models_.File("a.dtm"), "--levels", "-10", "-o", models_.File(c.name), "--crs", "EPSG:25831"})
            .Wait();
    EXPECT_EQ(result.status, c.status);
    EXPECT_EQ(result.err, std::string("vakdtm contour: ") + c.kind +
                              "--crs: proj.db, the table of coordinate systems, isn't found, to look up EPSG:25831 - "
                              "install the package proj-data, or let PROJ_LIB name its folder\n");
    EXPECT_EQ(models_.Folder().Has(c.name), c.status == kDone);
  }
}

TEST_F(GdalLines, AModuleOfAnotherKindIsRefusedWithWhatToDo) {
  models_.MakeWaves("a.dtm", 20);
  const std::string copy = models_.CopyForStrangers();
  models_.Folder().Write("vakdtm_gdal.so", "no library");
  const CommandResult result =
      test::RunCommand({copy, "contour", models_.File("a.dtm"), "--interval", "1", "-o", models_.File("a.gpkg")})
          .Wait();
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_THAT(result.err, HasSubstr("vakdtm_gdal.so cannot be loaded: "));
  EXPECT_THAT(result.err, HasSubstr(" - install the package libgdal32, or write .geojson\n"));
}

}  // namespace
}  // namespace vak
