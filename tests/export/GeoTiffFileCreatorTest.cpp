#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "vakdtm/export/GeoTiffFileCreator.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/DataSearch.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "support/TestFolder.h"
#include "support/TestGrid.h"
#include "support/TiffImage.h"

namespace vak {
namespace {

using test::TestFolder;
using test::TestGrid;
using test::TiffImage;
using testing::ElementsAre;

/// A model of two cells, one deeper than the other, in a project with a local system.
class TwoCells : public testing::Test {
 protected:
  TwoCells() {
    TestGrid grid({.cellSize = 2.0, .areaSize = 2, .blockIds = {dVAL}});
    grid.Draw("-5 -3");
    grid.Close();
    model_ = folder_.Write("a.dtm", {reinterpret_cast<const char*>(grid.Bytes().data()), grid.Bytes().size()});
    ProjectDefinition project = before_;
    project.SetGeoCoordSys(VakGeoCoordSysBase::MakeLocal());
    SetCurrentProjectDefinition(project);
  }
  ~TwoCells() override { SetCurrentProjectDefinition(before_); }

  bool Create(GeoTiffFileCreator& creator, bool colour, const std::wstring& table = L"") const {
    return creator.CreateFileFromGridModel(folder_.WideFile("a.dtm"), folder_.WideFile("a.tif"), table, dVAL, nullptr,
                                           true, false, 0, 0, 0, colour, -1.0F);
  }

  TestFolder folder_;
  std::string model_;
  ProjectDefinition before_ = *GetCurrentProjectDefinition();
};

using GeoTiffFileCreatorTest = TwoCells;

TEST_F(GeoTiffFileCreatorTest, MakesGreysOverTheModelsRangeWhenNoTableIsNamed) {
  const test::Bytes before = folder_.Content("a.dtm");
  GeoTiffFileCreator creator;
  EXPECT_FALSE(creator.GetExtents().IsValid());
  ASSERT_TRUE(Create(creator, true));
  EXPECT_EQ(folder_.Content("a.dtm"), before) << "the table isn't put in the model's place";
  FileObject file;
  ColorTable table;
  ASSERT_TRUE(file.FileOpen(folder_.WideFile("a.dtm.colors")) && table.FileOpen(file));
  EXPECT_EQ(table.Classes().size(), 256U);
  EXPECT_EQ(table.Classes().front().lower, -5);
  EXPECT_EQ(table.End(), -3);
  const TiffImage image(folder_.File("a.tif"));
  EXPECT_THAT(image.Line(1), ElementsAre(0, 0, 0, 255, 255, 255, 255, 255));
  EXPECT_THAT(image.Line(0), ElementsAre(255, 255, 255, 0, 255, 255, 255, 0));
  EXPECT_EQ(creator.GetExtents().right(), 4);
  EXPECT_EQ(creator.GetExtents().top(), 4);
  EXPECT_TRUE(folder_.Has("a.tfw"));
}

TEST_F(GeoTiffFileCreatorTest, MakesARasterWithoutATable) {
  GeoTiffFileCreator creator;
  ASSERT_TRUE(Create(creator, false));
  EXPECT_THAT(TiffImage(folder_.File("a.tif")).Floats(), ElementsAre(-1, -1, -5, -3));
  EXPECT_FALSE(folder_.Has("a.dtm.colors"));
}

TEST_F(GeoTiffFileCreatorTest, PassesEverythingOn) {
  TestGrid grid({.cellSize = 2.0, .areaSize = 2, .blockIds = {dVAL, dMIN}});
  for (int row = 0; row < 2; ++row) {
    for (int col = 0; col < 2; ++col) {
      ASSERT_TRUE(grid.Set(row, col, dVAL, -3) && grid.Set(row, col, dMIN, -7 - row - 3 * col));
    }
  }
  grid.Close();
  folder_.Write("b.dtm", {reinterpret_cast<const char*>(grid.Bytes().data()), grid.Bytes().size()});
  folder_.Write("t.txt", "[COLORTABLE]\nClasses=1\n1=-9,#808080,,\n");
  PolyClipLine polygon;
  for (const Point& point : {Point(0.5, 0.5), Point(1.5, 0.5), Point(1.5, 1.5), Point(0.5, 1.5)})
    polygon.AddElem(point);
  // Of a name without a folder, in a folder of its kind.
  DataSearch& search = DataSearch::GetDataSearch();
  search.AddFolder(kGridModelFile, folder_.WideFile("."));
  search.AddFolder(kColorTableFile, folder_.WideFile("."));
  GeoTiffFileCreator creator;
  const auto make = [&](PolyClipLine* within, bool sun, double direction, double elevation, double strength,
                        bool colour) {
    EXPECT_TRUE(creator.CreateFileFromGridModel(L"b.dtm", folder_.WideFile("b.tif"), L"t.txt", dMIN, within, false, sun,
                                                direction, elevation, strength, colour, -1.0F));
    return TiffImage(folder_.File("b.tif")).Samples();
  };
  make(nullptr, false, 0, 0, 0, false);
  EXPECT_THAT(TiffImage(folder_.File("b.tif")).Floats(), ElementsAre(-8, -11, -7, -10));
  make(&polygon, false, 0, 0, 0, false);
  EXPECT_THAT(TiffImage(folder_.File("b.tif")).Floats(), ElementsAre(-7));
  EXPECT_EQ(creator.GetExtents().right(), 2);
  const auto plain = make(&polygon, false, 0, 30, 1, true);
  EXPECT_THAT(plain, ElementsAre(0x80, 0x80, 0x80, 255));
  const auto shaded = make(&polygon, true, 0, 30, 1, true);
  EXPECT_NE(shaded, plain);
  EXPECT_NE(make(&polygon, true, 90, 30, 1, true), shaded);
  EXPECT_NE(make(&polygon, true, 0, 60, 1, true), shaded);
  EXPECT_NE(make(&polygon, true, 0, 30, 3, true), shaded);
  EXPECT_FALSE(folder_.Has("b.tfw")) << "none was asked for";
  EXPECT_FALSE(folder_.Has("b.dtm.colors"));
  search.ClearFolders(kGridModelFile);
  search.ClearFolders(kColorTableFile);
}

TEST_F(GeoTiffFileCreatorTest, ImageIsFoundAmongImages) {
  folder_.Write("old.tif", "another one");
  DataSearch& search = DataSearch::GetDataSearch();
  search.AddFolder(kImageFile, folder_.WideFile("."));
  GeoTiffFileCreator creator;
  EXPECT_TRUE(creator.CreateFileFromGridModel(folder_.WideFile("a.dtm"), L"old.tif", L"", dVAL, nullptr, false, false,
                                              0, 0, 0, false, -1.0F));
  search.ClearFolders(kImageFile);
  EXPECT_THAT(TiffImage(folder_.File("old.tif")).Floats(), ElementsAre(-1, -1, -5, -3));
}

TEST_F(GeoTiffFileCreatorTest, WithoutValuesAnEarlierTableIsUsedOrThereIsNoImage) {
  TestGrid grid({.cellSize = 2.0, .areaSize = 2, .blockIds = {dVAL, dSDV}});
  grid.Draw("-5 -3");
  grid.Close();
  folder_.Write("a.dtm", {reinterpret_cast<const char*>(grid.Bytes().data()), grid.Bytes().size()});
  const auto makeDeviations = [&] {
    GeoTiffFileCreator creator;
    return creator.CreateFileFromGridModel(folder_.WideFile("a.dtm"), folder_.WideFile("a.tif"), L"", dSDV, nullptr,
                                           false, false, 0, 0, 0, true, -1.0F);
  };
  EXPECT_FALSE(makeDeviations());
  EXPECT_FALSE(folder_.Has("a.tif"));
  GeoTiffFileCreator heights;
  ASSERT_TRUE(Create(heights, true));
  const std::string table = folder_.Text("a.dtm.colors");
  EXPECT_TRUE(makeDeviations());
  EXPECT_EQ(folder_.Text("a.dtm.colors"), table);
}

TEST_F(GeoTiffFileCreatorTest, FailsWithoutAModelOrATable) {
  GeoTiffFileCreator creator;
  ASSERT_TRUE(Create(creator, false));
  EXPECT_FALSE(Create(creator, true, folder_.WideFile("none.txt")));
  EXPECT_FALSE(creator.GetExtents().IsValid()) << "there is no last image";
  std::filesystem::remove(model_);
  EXPECT_FALSE(Create(creator, true));
  EXPECT_FALSE(Create(creator, false));
}

}  // namespace
}  // namespace vak
