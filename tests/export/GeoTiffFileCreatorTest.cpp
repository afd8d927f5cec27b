#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "vakdtm/export/GeoTiffFileCreator.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

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
