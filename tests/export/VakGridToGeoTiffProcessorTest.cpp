#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <numbers>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "vakdtm/export/VakGridToGeoTiffProcessor.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"
#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/geometry/PolyClipLine.h"
#include "vakdtm/services/text/CVakUnitCnv.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmBlockId.h"

#include "support/LongForm.h"
#include "support/RandomSeed.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"
#include "support/TiffImage.h"

namespace vak {
namespace {

using test::TestFolder;
using test::TestGrid;
using test::TiffImage;
using testing::ElementsAre;
using Job = VakGridToGeoTiffProcessor;

/// The project of the process, put back at the end.
class ProjectWith {
 public:
  explicit ProjectWith(const std::wstring& system, LengthUnit unit = LengthUnit::kMetre) {
    ProjectDefinition project = before_;
    project.SetUnitCnv(CVakUnitCnv(unit, unit, unit));
    project.SetGeoCoordSys(system.empty() ? nullptr : VakGeoCoordSysBase::FromText(system));
    SetCurrentProjectDefinition(project);
  }
  ~ProjectWith() { SetCurrentProjectDefinition(before_); }

  ProjectWith(const ProjectWith&) = delete;
  ProjectWith& operator=(const ProjectWith&) = delete;

 private:
  ProjectDefinition before_ = *GetCurrentProjectDefinition();
};

/// A model as a file, and images of it.
class GridImages : public testing::Test {
 protected:
  GridSettings settings_{.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}};

  void Draw(std::string_view drawing) {
    TestGrid grid(settings_);
    grid.Draw(drawing);
    Save(grid);
  }
  void Save(TestGrid& grid) {
    grid.Close();
    folder_.Write("a.dtm", {reinterpret_cast<const char*>(grid.Bytes().data()), grid.Bytes().size()});
  }
  /// Prepares a job for the model.
  void SetInitInfo(Job& job, PolyClipLine* polygon = nullptr, bool worldFile = false,
                   const std::string& image = "a.tif") const {
    job.SetInitInfo(folder_.WideFile(image), table_, folder_.WideFile("a.dtm"), polygon, worldFile);
  }
  static bool Run(Job& job) { return job.Initialize() && job.Process(); }
  TiffImage Image(const std::string& name = "a.tif") const { return TiffImage(folder_.File(name)); }
  /// The floats of a raster of the model.
  std::vector<float> Raster(const std::function<void(Job&)>& change = {}, PolyClipLine* polygon = nullptr) const {
    Job job(dVAL, false, 9999.0F);
    SetInitInfo(job, polygon);
    if (change) change(job);
    EXPECT_TRUE(Run(job));
    return Image().Floats();
  }

  TestFolder folder_;
  ColorTable table_;
  ProjectWith project_{L"LOCAL"};
};

PolyClipLine Square(double left, double bottom, double right, double top) {
  PolyClipLine polygon;
  for (const Point& point : {Point(left, bottom), Point(right, bottom), Point(right, top), Point(left, top)}) {
    polygon.AddElem(point);
  }
  return polygon;
}

using VakGridToGeoTiffProcessorTest = GridImages;

TEST_F(VakGridToGeoTiffProcessorTest, RasterHasTheHighestRowFirstAndSpansWholeAreas) {
  Draw("1 2 .\n3 . 4\n");
  EXPECT_THAT(Raster(),
              ElementsAre(9999, 9999, 9999, 9999, 9999, 9999, 9999, 9999, 1, 2, 9999, 9999, 3, 9999, 4, 9999));
}

TEST_F(VakGridToGeoTiffProcessorTest, SizeIsAMultipleOfTheAreasWithoutAPolygon) {
  TestGrid grid(settings_);
  ASSERT_TRUE(grid.Set(-5, 2, dVAL, -1) && grid.Set(6, 9, dVAL, -2));
  Save(grid);
  Raster();
  const TiffImage image = Image();
  EXPECT_EQ(image.Width(), 12);
  EXPECT_EQ(image.Height(), 16);
  EXPECT_THAT(image.Numbers(33922), ElementsAre(0, 0, 0, 0, 8, 0));
  EXPECT_THAT(image.Numbers(33550), ElementsAre(1, 1, 0));
}

TEST_F(VakGridToGeoTiffProcessorTest, FieldsOfARaster) {
  Draw("1 2\n");
  Raster();
  const TiffImage image = Image();
  const std::vector<std::pair<unsigned, int>> wanted = {{0x100, 4}, {0x101, 4}, {0x102, 32}, {0x103, 1},
                                                        {0x106, 1}, {0x112, 1}, {0x115, 1},  {0x116, 1},
                                                        {0x11C, 1}, {0x128, 1}, {0x153, 3}};
  for (const auto& [tag, value] : wanted) EXPECT_EQ(image.Number(tag), value) << tag;
  // Besides them, where the strips are, and where the image lies.
  EXPECT_THAT(image.Tags(), ElementsAre(0x100, 0x101, 0x102, 0x103, 0x106, 0x111, 0x112, 0x115, 0x116, 0x117, 0x11C,
                                        0x128, 0x153, 33550, 33922, 34735, 34737));
}

TEST_F(VakGridToGeoTiffProcessorTest, FieldsOfAColourImage) {
  Draw("1 2\n");
  Job job;
  SetInitInfo(job);
  ASSERT_TRUE(Run(job));
  const TiffImage image = Image();
  const std::vector<std::pair<unsigned, int>> wanted = {{0x100, 4}, {0x101, 4}, {0x102, 8}, {0x103, 5},
                                                        {0x106, 2}, {0x112, 1}, {0x115, 4}, {0x116, 1},
                                                        {0x11C, 1}, {0x128, 1}, {0x153, 1}};
  for (const auto& [tag, value] : wanted) EXPECT_EQ(image.Number(tag), value) << tag;
  EXPECT_FALSE(image.Has(0x152)) << "what the fourth sample is";
}

TEST_F(VakGridToGeoTiffProcessorTest, ReadersAreToldWhenAskedFor) {
  Draw("1 2\n");
  Raster([](Job& job) { job.SetTellsReaders(true); });
  EXPECT_EQ(Image().Text(42113), std::string("9999\0", 5));
  Job job;
  SetInitInfo(job);
  job.SetTellsReaders(true);
  ASSERT_TRUE(Run(job));
  EXPECT_THAT(Image().Numbers(0x152), ElementsAre(2));
}

TEST_F(VakGridToGeoTiffProcessorTest, EmptyCellsHaveTheRastersValueOrTheOneForCellsWithoutOne) {
  Draw("1 .\n");
  TestGrid grid(settings_);
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(0, 8, dVAL, 2));
  Save(grid);
  std::vector<float> line = Raster();
  line.erase(line.begin(), line.end() - 12);
  EXPECT_THAT(line, ElementsAre(1, 9999, 9999, 9999, 9999, 9999, 9999, 9999, 2, 9999, 9999, 9999));
  line = Raster([](Job& job) { job.SetEmptyCellValue(-7.5); });
  line.erase(line.begin(), line.end() - 12);
  // Where there is no area, nothing can be read.
  EXPECT_THAT(line, ElementsAre(1, -7.5, -7.5, -7.5, 9999, 9999, 9999, 9999, 2, -7.5, -7.5, -7.5));
}

TEST_F(VakGridToGeoTiffProcessorTest, PolygonGivesTheExtentsAndLeavesOutCentresOutside) {
  Draw("1 2 3 4\n5 6 7 8\n9 10 11 12\n");
  PolyClipLine polygon = Square(1.2, 0.7, 2.6, 2.2);
  EXPECT_THAT(Raster({}, &polygon), ElementsAre(9999, 9999, 6, 7, 9999, 9999));
  EXPECT_THAT(Image().Numbers(33922), ElementsAre(0, 0, 0, 1, 3, 0));
}

TEST_F(VakGridToGeoTiffProcessorTest, PolygonBeyondTheModelMakesEmptyPixels) {
  Draw("1\n");
  PolyClipLine polygon = Square(-2, -1, 2, 1.5);
  EXPECT_THAT(Raster({}, &polygon), ElementsAre(9999, 9999, 9999, 9999, 9999,  // its upper edge lies in this row
                                                9999, 9999, 1, 9999, 9999,     //
                                                9999, 9999, 9999, 9999, 9999));
}

TEST_F(VakGridToGeoTiffProcessorTest, PolygonOfTooManyCellsIsRefused) {
  Draw("1\n");
  constexpr double kMost = 2147483647;
  const struct {
    const char* name;
    double left, bottom, right, top;
    Job::Fault fault;
  } cases[] = {
      {"wide", 0, 0, 1e11, 1, Job::Fault::kSize},
      {"high", 0, 0, 1, 1e11, Job::Fault::kSize},
      {"far to the right", 3e9, 0, 3e9 + 1, 1, Job::Fault::kSize},
      {"far to the left", -3e9, 0, 1 - 3e9, 1, Job::Fault::kSize},
      {"far up", 0, 3e9, 1, 3e9 + 1, Job::Fault::kSize},
      {"of more columns than an int counts", -1.5e9, 0, 1.5e9, 1, Job::Fault::kSize},
      {"of one column more than an int counts", 0, 0, kMost + 0.5, 1, Job::Fault::kSize},
      {"as far as it goes", kMost - 1, 0, kMost + 0.5, 0.5, Job::Fault::kNone},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    PolyClipLine polygon = Square(c.left, c.bottom, c.right, c.top);
    Job job(dVAL, false, 0);
    SetInitInfo(job, &polygon);
    EXPECT_EQ(Run(job), c.fault == Job::Fault::kNone);
    EXPECT_EQ(job.LastFault(), c.fault);
    EXPECT_EQ(job.LastError().find(L"the polygon is too large") == 0, c.fault != Job::Fault::kNone);
    EXPECT_EQ(folder_.Has("a.tif"), c.fault == Job::Fault::kNone);
  }
}

TEST_F(VakGridToGeoTiffProcessorTest, LinesBeyondTheMemoryAreRefusedBeforeTheImageIsMade) {
  Draw("1 2\n");
  // Eight bytes for a value, thrice as many when it is shaded, and four times the four bytes of a sample.
  const struct {
    bool colour;
    bool sun;
    std::uint64_t needed;
  } cases[] = {{false, false, 4 * 24}, {true, false, 4 * 24}, {true, true, 4 * 48}};
  for (const auto& c : cases) {
    for (const std::uint64_t lacking : {std::uint64_t{1}, std::uint64_t{0}}) {
      Job job(dVAL, c.colour, 0);
      SetInitInfo(job);
      job.SetSunIllumination(c.sun, 0, 30, 1);
      job.SetLineMemory(c.needed - lacking);
      EXPECT_EQ(Run(job), lacking == 0);
      EXPECT_EQ(job.LastFault(), lacking == 0 ? Job::Fault::kNone : Job::Fault::kSize);
      EXPECT_EQ(job.LastError(), lacking == 0 ? L"" : L"there isn't the memory for lines of so many pixels");
      EXPECT_EQ(folder_.Has("a.tif"), lacking == 0);
    }
    std::filesystem::remove(folder_.Path() / "a.tif");
  }
}

TEST_F(VakGridToGeoTiffProcessorTest, PolygonWithoutVerticesIsNone) {
  Draw("1 2\n");
  PolyClipLine polygon;
  EXPECT_THAT(Raster({}, &polygon), testing::SizeIs(16));
  EXPECT_EQ(Image().Floats()[12], 1);
}

TEST_F(VakGridToGeoTiffProcessorTest, ModelWithoutAreasIsRefused) {
  TestGrid grid(settings_);
  Save(grid);
  Job job;
  SetInitInfo(job);
  ASSERT_TRUE(job.Initialize());
  EXPECT_FALSE(job.Process());
  EXPECT_EQ(job.LastError(), L"the model has no areas");
  EXPECT_EQ(job.LastFault(), Job::Fault::kModel);
}

TEST_F(VakGridToGeoTiffProcessorTest, WhatIsMissingIsSaidBeforeTheImageIsMade) {
  Draw("1\n");
  Job noModel;
  noModel.SetInitInfo(folder_.WideFile("a.tif"), L"", folder_.WideFile("b.dtm"), nullptr, false);
  EXPECT_FALSE(noModel.Initialize());
  EXPECT_FALSE(noModel.Process());
  EXPECT_EQ(noModel.LastError(), L"the model can't be opened");
  EXPECT_EQ(noModel.LastFault(), Job::Fault::kModel);
  Job noTable;
  noTable.SetInitInfo(folder_.WideFile("a.tif"), folder_.WideFile("b.txt"), folder_.WideFile("a.dtm"), nullptr, false);
  EXPECT_FALSE(noTable.Initialize());
  EXPECT_EQ(noTable.LastError(), L"the colour table can't be read");
  EXPECT_EQ(noTable.LastFault(), Job::Fault::kColors);
  folder_.Write("b.txt", "no table");
  EXPECT_FALSE(noTable.Initialize());
  EXPECT_NE(noTable.LastError(), L"the colour table can't be read");
  EXPECT_FALSE(folder_.Has("a.tif"));
}

TEST_F(VakGridToGeoTiffProcessorTest, ColourTableIsReadFromItsFile) {
  Draw("1 2\n");
  folder_.Write("t.txt", "[COLORTABLE]\nClasses=2\n1=0,#102030,,\n2=1.5,#405060,,\n");
  Job job;
  job.SetInitInfo(folder_.WideFile("a.tif"), folder_.WideFile("t.txt"), folder_.WideFile("a.dtm"), nullptr, false);
  ASSERT_TRUE(Run(job));
  EXPECT_THAT(Image().Line(3),
              ElementsAre(0x10, 0x20, 0x30, 255, 0x40, 0x50, 0x60, 255, 255, 255, 255, 0, 255, 255, 255, 0));
}

TEST_F(VakGridToGeoTiffProcessorTest, TableThatIsGivenTakesThePlaceOfANamedOne) {
  Draw("1 2\n");
  Job job;
  job.SetInitInfo(folder_.WideFile("b.tif"), folder_.WideFile("none.txt"), folder_.WideFile("b.dtm"), nullptr, true);
  ASSERT_TRUE(table_.SetClasses({{0, 0x010203, 0x010203, L""}}, {}));
  SetInitInfo(job);
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(Image().Line(3)[0], 3);
  EXPECT_FALSE(folder_.Has("b.tif"));
  EXPECT_FALSE(folder_.Has("a.tfw")) << "none was asked for";
  SetInitInfo(job, nullptr, true);
  ASSERT_TRUE(Run(job));
  EXPECT_TRUE(folder_.Has("a.tfw"));
}

TEST_F(VakGridToGeoTiffProcessorTest, MissingSystemFailsAndLeavesTheImageWithoutKeys) {
  const ProjectWith none(L"");
  Draw("1 2\n");
  Page extents;
  {
    Job job(dVAL, false, 9999.0F);
    SetInitInfo(job, nullptr, true);
    job.SetExtentsPage(&extents);
    EXPECT_FALSE(Run(job));
    EXPECT_EQ(job.LastError(), L"the project has no coordinate system");
    EXPECT_EQ(job.LastFault(), Job::Fault::kSystem);
  }
  EXPECT_FALSE(extents.IsValid());
  EXPECT_FALSE(folder_.Has("a.tfw"));
  const TiffImage image = Image();
  EXPECT_FALSE(image.Has(34735) || image.Has(33922));
  EXPECT_EQ(image.Floats()[12], 1.0F);
}

TEST_F(VakGridToGeoTiffProcessorTest, SystemIsWrittenInTheProjectsUnit) {
  Draw("1 2\n");
  constexpr int kProjectedUnit = 3076;
  {
    const ProjectWith feet(L"EPSG:25831", LengthUnit::kFoot);
    Raster();
    EXPECT_EQ(Image().Keys().at(kProjectedUnit), 9002);
  }
  const ProjectWith metres(L"EPSG:25831");
  Raster();
  EXPECT_EQ(Image().Keys().at(3072), 25831);
}

TEST_F(VakGridToGeoTiffProcessorTest, SystemThatTheFormatLacksIsAWarning) {
  const ProjectWith mollweide(L"ESRI:54009");
  Draw("1 2\n");
  Job job;
  SetInitInfo(job);
  EXPECT_TRUE(Run(job));
  EXPECT_NE(job.LastWarning(), L"");
  EXPECT_EQ(job.LastError(), L"");
}

TEST_F(VakGridToGeoTiffProcessorTest, WorldFileHasTheOuterCornerWithSixDecimals) {
  settings_.cellSize = 0.25;
  TestGrid grid(settings_);
  ASSERT_TRUE(grid.Set(9, -3, dVAL, 1));
  Save(grid);
  Job job(dVAL, false, 9999.0F);
  Page extents;
  SetInitInfo(job, nullptr, true, "a.tif.b.tif");
  job.SetExtentsPage(&extents);
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(folder_.Text("a.tfw.b.tfw"), "0.250000\n0.0\n0.0\n-0.250000\n-1.000000\n3.000000\n");
  EXPECT_EQ(extents.left(), -1);
  EXPECT_EQ(extents.bottom(), 2);
  EXPECT_EQ(extents.right(), 0);
  EXPECT_EQ(extents.top(), 3);
}

TEST_F(VakGridToGeoTiffProcessorTest, WorldFileOverwritesAnImageWithoutTifInItsPath) {
  Draw("1\n");
  Job job(dVAL, false, 9999.0F);
  SetInitInfo(job, nullptr, true, "image");
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(folder_.Text("image"), "1.000000\n0.0\n0.0\n-1.000000\n0.000000\n4.000000\n");
}

TEST_F(VakGridToGeoTiffProcessorTest, WorldFileThatCantBeWrittenFailsTheJob) {
  Draw("1\n");
  std::filesystem::create_directory(folder_.Path() / "a.tfw");
  Job job(dVAL, false, 9999.0F);
  SetInitInfo(job, nullptr, true);
  EXPECT_FALSE(Run(job));
  EXPECT_EQ(job.LastError(), L"the world file can't be written");
  EXPECT_EQ(job.LastFault(), Job::Fault::kImage);
  EXPECT_TRUE(Image().Has(34735)) << "the image itself is whole";
}

TEST_F(VakGridToGeoTiffProcessorTest, ImageThatCantBeMadeTellsWhy) {
  Draw("1\n");
  Job job(dVAL, false, 9999.0F);
  SetInitInfo(job, nullptr, false, "no/a.tif");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(Run(job));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(job.LastError(), L"No such file or directory");
}

TEST_F(VakGridToGeoTiffProcessorTest, DiskThatIsFullFailsTheJobWhereverItIs) {
  Draw("1 2 3\n4 5 6\n");
  for (const bool colour : {false, true}) {
    ASSERT_TRUE(table_.SetRange(0, 7, 7, true, false));
    Job job(dVAL, colour, -1.0F);
    SetInitInfo(job, nullptr, true);
    ASSERT_TRUE(Run(job));
    const test::Bytes whole = folder_.Content("a.tif");
    // Up to one byte too few, and to none too few.
    for (std::size_t room = (whole.size() - 1) % 19; room <= whole.size(); room += room + 1 == whole.size() ? 1 : 19) {
      SCOPED_TRACE(testing::Message() << room << " of " << whole.size() << " bytes");
      std::filesystem::remove(folder_.Path() / "a.tfw");
      Page extents;
      job.SetExtentsPage(&extents);
      ASSERT_TRUE(job.Initialize());
      bool done = false;
      {
        const test::FullDisk disk(room);
        done = job.Process();
      }
      const bool fits = room == whole.size();
      ASSERT_EQ(done, fits);
      ASSERT_EQ(job.LastFault(), fits ? Job::Fault::kNone : Job::Fault::kImage);
      ASSERT_EQ(job.LastError(), fits ? L"" : L"File too large");
      ASSERT_EQ(extents.IsValid(), fits) << "an image that isn't whole has no extents";
      ASSERT_EQ(folder_.Has("a.tfw"), fits);
      ASSERT_EQ(folder_.Content("a.tif") == whole, fits);
    }
  }
}

TEST_F(VakGridToGeoTiffProcessorTest, LineOfManyThatCantBeWrittenEndsTheJob) {
  // Without a system, so that a job that went on would tell of that.
  const ProjectWith none(L"");
  TestGrid grid({.cellSize = 1.0, .areaSize = 64, .blockIds = {dVAL}});
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(1023, 1023, dVAL, 1));
  Save(grid);
  Job job(dVAL, false, 0);
  SetInitInfo(job);
  ASSERT_TRUE(job.Initialize());
  {
    const test::FullDisk disk(300'000);
    EXPECT_FALSE(job.Process());
  }
  EXPECT_EQ(job.LastError(), L"File too large");
  EXPECT_LT(job.GetProgress(), 0.5);
}

TEST_F(VakGridToGeoTiffProcessorTest, LastLinesThatCantBeWrittenFailTheJob) {
  const ProjectWith none(L"");
  Draw("1 2\n");
  // Few lines are written together, at the end.
  Job job(dVAL, false, 0);
  SetInitInfo(job);
  ASSERT_TRUE(job.Initialize());
  {
    const test::FullDisk disk(20);
    EXPECT_FALSE(job.Process());
  }
  EXPECT_EQ(job.GetProgress(), 1.0);
  EXPECT_EQ(job.LastError(), L"File too large");
}

TEST_F(VakGridToGeoTiffProcessorTest, StoppedRunLeavesWhatThereIsAndIsNotDone) {
  Draw("1 2\n");
  Job job(dVAL, false, 9999.0F);
  SetInitInfo(job);
  ASSERT_TRUE(job.Initialize());
  job.Stop();
  EXPECT_FALSE(job.Process());
  EXPECT_EQ(job.GetProgress(), 0.0);
  const TiffImage image = Image();
  EXPECT_EQ(image.Height(), 4);
  EXPECT_FALSE(image.Has(0x111)) << "not a strip was written";
  EXPECT_TRUE(image.Has(34735));
}

TEST_F(VakGridToGeoTiffProcessorTest, ProgressIsTheShareOfPixels) {
  TestGrid grid(settings_);
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(0, 9, dVAL, 1));
  Save(grid);
  Job job(dVAL, false, 9999.0F);
  SetInitInfo(job);
  EXPECT_EQ(job.GetProgress(), 0.0);
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(job.GetProgress(), 1.0) << "of 12 columns and 4 rows";
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(job.GetProgress(), 1.0) << "of the second run";
  EXPECT_EQ(job.PixelsWithValue(), 2);
}

TEST_F(VakGridToGeoTiffProcessorTest, RasterTellsCellsThatLookEmpty) {
  Draw("1 9999 .\n");
  Job job(dVAL, false, 9999.0F);
  SetInitInfo(job);
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(job.PixelsLikeEmpty(), 1);
}

TEST_F(VakGridToGeoTiffProcessorTest, RasterTellsCellsThatNoFloatReaches) {
  // Half way from the largest float to the next, which there isn't, is infinite; what lies below that is the largest.
  constexpr double kBeyond = 0x1.ffffffp127;
  const double values[] = {kBeyond,
                           -kBeyond,
                           1.0e300,
                           std::nextafter(kBeyond, 0.0),
                           std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::denorm_min(),
                           9999.0};
  TestGrid grid(settings_);
  int col = 0;
  for (const double value : values) ASSERT_TRUE(grid.Set(0, col++, dVAL, value));
  Save(grid);
  Job job(dVAL, false, 9999.0F);
  SetInitInfo(job);
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(job.PixelsWithValue(), 7);
  EXPECT_EQ(job.PixelsBeyondFloats(), 3) << "what was infinite before doesn't become so";
  ASSERT_TRUE(Run(job));
  EXPECT_EQ(job.PixelsBeyondFloats(), 3) << "of the second run";
}

TEST_F(VakGridToGeoTiffProcessorTest, TimesAreColouredByAgeAndNeverShaded) {
  settings_.blockIds = {tTIM, dVAL};
  TestGrid grid(settings_);
  const test::TimeStands clock(10 * 86400 + 5);
  ASSERT_TRUE(grid.Set(0, 0, tTIM, 10 * 86400 + 1) && grid.Set(0, 1, tTIM, 8 * 86400));
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(0, 1, dVAL, 9));
  Save(grid);
  ASSERT_TRUE(table_.SetClasses(
      {{0, 0x010203, 0x010203, L""}, {1, 0x040506, 0x040506, L""}, {3, 0x070809, 0x070809, L""}}, {}));
  Job job(tTIM, true, 0);
  SetInitInfo(job);
  job.SetSunIllumination(true, 90, 20, 5);
  job.SetPresentationUnitFactor(1000);
  ASSERT_TRUE(Run(job));
  const std::vector<std::uint8_t> line = Image().Line(3);
  EXPECT_THAT(std::vector<std::uint8_t>(line.begin(), line.begin() + 8), ElementsAre(3, 2, 1, 255, 9, 8, 7, 255));
}

TEST_F(VakGridToGeoTiffProcessorTest, DirectionIsTakenToTheNearestStepAndEightIsNorth) {
  Draw("3 2 8\n7 5 1\n4 9 6\n");
  ASSERT_TRUE(table_.SetRange(0, 10, 64, true, false));
  const auto at = [&](double direction) {
    Job job;
    SetInitInfo(job);
    job.SetSunIllumination(true, direction, 40, 2);
    EXPECT_TRUE(Run(job));
    return Image().Samples();
  };
  EXPECT_EQ(at(350), at(0));
  EXPECT_EQ(at(337.5), at(0));
  EXPECT_EQ(at(-10), at(0));
  EXPECT_EQ(at(382.4), at(0));
  EXPECT_NE(at(337.4), at(0));
  EXPECT_EQ(at(337.4), at(315));
  for (int step = 0; step < 8; ++step) {
    for (int other = 0; other < step; ++other) EXPECT_NE(at(45 * step), at(45 * other)) << step << " " << other;
  }
}

TEST_F(VakGridToGeoTiffProcessorTest, BigImagesMayBeBigTiffs) {
  // Of 40000 lines of 30000 pixels: 4.8 GB, of which the hole is never written since the job is stopped.
  TestGrid grid(settings_);
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(39999, 29999, dVAL, 1));
  Save(grid);
  Job job(dVAL, false, 0);
  SetInitInfo(job);
  ASSERT_TRUE(job.Initialize());
  job.Stop();
  EXPECT_FALSE(job.Process());
  EXPECT_TRUE(Image().IsBig());
}

TEST_F(VakGridToGeoTiffProcessorTest, ImagesThatCompressingMayMakeBigAreBigTiffs) {
  // 30000 lines of 30000 pixels are 3.6 GB, of which the worst of lines would make more than 4 GiB.
  TestGrid grid(settings_);
  ASSERT_TRUE(grid.Set(0, 0, dVAL, 1) && grid.Set(29999, 29999, dVAL, 1));
  Save(grid);
  for (const bool colour : {false, true}) {
    Job job(dVAL, colour, 0);
    SetInitInfo(job);
    ASSERT_TRUE(job.Initialize());
    job.Stop();
    EXPECT_FALSE(job.Process());
    EXPECT_EQ(Image().IsBig(), colour);
  }
}

TEST_F(VakGridToGeoTiffProcessorTest, RightAngleOfShadingHasTenDigits) {
  // Two heights between which the colour changes are found by halving; of a right angle with more digits they would
  // both lie on one side of the change.
  constexpr double kElevation = 30 * std::numbers::pi / 180;
  constexpr Color kGrey = 0xC0C0C0;
  ASSERT_TRUE(table_.SetClasses({{-1000, kGrey, kGrey, L""}}, {}));
  const auto colourOf = [&](double height) {
    double hue = 0;
    double saturation = 0;
    double lightness = 0;
    ColorTable::RGBtoHSL(kGrey, hue, saturation, lightness);
    const double angle = (1.570796327 - kElevation) - std::atan(height);
    lightness = std::clamp(std::cos(angle) * lightness + std::cos(kElevation) * 0.1, 0.0, 1.0);
    return ColorTable::HSLtoRGB(hue, saturation, lightness) & 0xFFU;
  };
  double low = 0;
  double high = 0.5;
  const Color dark = colourOf(low);
  ASSERT_NE(colourOf(high), dark);
  while (high - low > 1e-12) {
    const double middle = (low + high) / 2;
    (colourOf(middle) == dark ? low : high) = middle;
  }
  for (const double height : {low, high}) {
    TestGrid grid(settings_);
    ASSERT_TRUE(grid.Set(0, 0, dVAL, height) && grid.Set(1, 0, dVAL, 0));
    Save(grid);
    Job job;
    SetInitInfo(job);
    job.SetSunIllumination(true, 0, 30, 1);
    ASSERT_TRUE(Run(job));
    EXPECT_EQ(Image().Line(3)[0], colourOf(height)) << (height == low ? "below" : "above");
  }
  EXPECT_NE(colourOf(low), colourOf(high));
}

// ---- the rules pixel by pixel, said anew, cell by cell

/// What a random image is asked for.
struct Wish {
  int block = dVAL;
  bool colour = true;
  float empty = 9999.0F;
  std::optional<double> emptyCell;
  bool sun = false;
  double direction = 0;
  double elevation = 30;
  double strength = 1;
  double factor = 1;
  double offset = 0;
};

class LiteralImage {
 public:
  LiteralImage(DtmAccess& access, const Wish& wish, const ColorTable& table, const PolyClipLine* polygon,
               double endOfToday)
      : access_(access),
        wish_(wish),
        table_(table),
        polygon_(polygon),
        endOfToday_(endOfToday),
        size_(access.GetDtmFile()->CellSize()) {}

  std::array<std::uint8_t, 4> Pixel(int row, int col) {
    double value = 0;
    if (!IsThere(row, col) || !Read(row, col, wish_.block, value)) return Empty();
    if (!wish_.colour) return Raster(static_cast<float>(value));
    const Color color = wish_.block == tTIM ? table_.GetColor((endOfToday_ - value) / 86400)
                                            : table_.GetColor(value * wish_.factor + wish_.offset);
    if (!wish_.sun || wish_.block == tTIM) return Opaque(color);
    const int heights = DtmBlockId(wish_.block).IsZ() ? wish_.block : dVAL;
    double h = value;
    double slope = 0;
    if (heights != wish_.block && !Read(row, col, dVAL, h)) return Opaque(color);
    if (!Slope(row, col, heights, h, slope)) return Opaque(color);
    double hue = 0;
    double saturation = 0;
    double lightness = 0;
    ColorTable::RGBtoHSL(color, hue, saturation, lightness);
    const double elevation = wish_.elevation * std::numbers::pi / 180;
    const double ambient = std::cos(elevation) * 0.1;
    const double angle = std::clamp((1.570796327 - elevation) - std::atan(slope), -1.570796327, 1.570796327);
    lightness = std::clamp(std::cos(angle) * lightness + ambient, 0.0, 1.0);
    return Opaque(ColorTable::HSLtoRGB(hue, saturation, lightness));
  }

 private:
  bool IsThere(int row, int col) const {
    return polygon_ == nullptr || polygon_->IsPointInPoly(Point((col + 0.5) * size_, (row + 0.5) * size_));
  }
  bool Read(int row, int col, int block, double& value) {
    if (!access_.GetDoubleValue(row, col, block, value)) return false;
    if (!IsEmptyValue(value)) return true;
    if (!wish_.emptyCell) return false;
    value = *wish_.emptyCell;
    return true;
  }
  bool Slope(int row, int col, int block, double h, double& slope) {
    constexpr int kRows[] = {1, 1, 0, -1, -1, -1, 0, 1};
    constexpr int kCols[] = {0, 1, 1, 1, 0, -1, -1, -1};
    const double turned = std::fmod(wish_.direction, 360);
    const int octant = static_cast<int>(std::trunc((turned + 22.5) / 45.0)) % 8;
    const double distance = octant % 2 == 0 ? size_ : std::sqrt(size_ * size_ + size_ * size_);
    double n = 0;
    if (Read(row + kRows[octant], col + kCols[octant], block, n)) {
      slope = (h - n) * wish_.strength / distance;
      return true;
    }
    if (!Read(row - kRows[octant], col - kCols[octant], block, n)) return false;
    slope = (n - h) * wish_.strength / distance;
    return true;
  }
  std::array<std::uint8_t, 4> Empty() const {
    return wish_.colour ? std::array<std::uint8_t, 4>{255, 255, 255, 0} : Raster(wish_.empty);
  }
  static std::array<std::uint8_t, 4> Raster(float sample) { return std::bit_cast<std::array<std::uint8_t, 4>>(sample); }
  static std::array<std::uint8_t, 4> Opaque(Color color) {
    return {static_cast<std::uint8_t>(color), static_cast<std::uint8_t>(color >> 8),
            static_cast<std::uint8_t>(color >> 16), 255};
  }

  DtmAccess& access_;
  const Wish& wish_;
  const ColorTable& table_;
  const PolyClipLine* polygon_;
  double endOfToday_;
  double size_;
};

TEST_F(VakGridToGeoTiffProcessorTest, EveryPixelIsAsTheRulesHaveItCellByCell) {
  const std::uint32_t seed = RandomSeed();
  std::mt19937 random(seed);
  const auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  constexpr long long kNow = 1'700'000'000;
  const test::TimeStands clock(kNow);
  const double endOfToday = std::ceil(kNow / 86400.0) * 86400;
  int shaded = 0;
  int empties = 0;
  const int rounds = LongForm(60, 2000);
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round));
    settings_.cellSize = std::array{1.0, 0.3, 2.5}[static_cast<std::size_t>(pick(0, 2))];
    settings_.areaSize = pick(1, 9);
    settings_.blockIds = {iNUM, dVAL, dSDV, fBKS, tTIM, dMIN, cOIL, uFCT};
    TestGrid grid(settings_);
    for (int i = pick(1, 400); i > 0; --i) {
      const int block = settings_.blockIds[static_cast<std::size_t>(pick(0, 6))];
      const double value = block == tTIM ? static_cast<double>(kNow - pick(0, 40) * 20000) : pick(-300, 300) / 10.0;
      ASSERT_TRUE(grid.Set(pick(-13, 13), pick(-13, 13), block, value));
    }
    Wish wish;
    wish.block = settings_.blockIds[static_cast<std::size_t>(pick(0, 7))];
    wish.colour = pick(0, 3) != 0;
    wish.empty = static_cast<float>(pick(-3, 3));
    if (pick(0, 2) == 0) wish.emptyCell = pick(-20, 20);
    wish.sun = pick(0, 3) != 0;
    wish.direction = pick(0, 719) / 2.0;
    wish.elevation = pick(0, 5) == 0 ? pick(-90, 180) : pick(0, 90);
    wish.strength = pick(0, 40) / 4.0;
    wish.factor = pick(0, 2) == 0 ? 3.25 : 1.0;
    wish.offset = pick(0, 2) == 0 ? -4.5 : 0.0;
    ASSERT_TRUE(table_.SetRange(-25, 25, pick(1, 300), pick(0, 3) != 0, pick(0, 1) == 0));
    PolyClipLine polygon;
    const bool clips = pick(0, 2) == 0;
    if (clips) {
      for (int i = pick(3, 6); i > 0; --i) polygon.AddElem(Point(pick(-30, 30) / 2.0, pick(-30, 30) / 2.0));
    }
    Save(grid);
    Job job(wish.block, wish.colour, wish.empty);
    SetInitInfo(job, clips ? &polygon : nullptr);
    if (wish.emptyCell) job.SetEmptyCellValue(*wish.emptyCell);
    job.SetSunIllumination(wish.sun, wish.direction, wish.elevation, wish.strength);
    job.SetPresentationUnitFactor(wish.factor);
    job.SetPresentationUnitOffset(wish.offset);
    Page extents;
    job.SetExtentsPage(&extents);
    ASSERT_TRUE(Run(job)) << "no image";
    grid.Open();
    const int left = static_cast<int>(std::lround(extents.left() / settings_.cellSize));
    const int top = static_cast<int>(std::lround(extents.top() / settings_.cellSize)) - 1;
    LiteralImage literal(grid.Access(), wish, table_, clips ? &polygon : nullptr, endOfToday);
    const TiffImage image = Image();
    for (int line = 0; line < image.Height(); ++line) {
      const std::vector<std::uint8_t> samples = image.Line(line);
      ASSERT_EQ(samples.size(), static_cast<std::size_t>(image.Width()) * 4);
      for (int col = 0; col < image.Width(); ++col) {
        const auto wanted = literal.Pixel(top - line, left + col);
        const auto* const got = samples.data() + static_cast<std::size_t>(col) * 4;
        ASSERT_TRUE(std::equal(wanted.begin(), wanted.end(), got))
            << "line " << line << ", column " << col << ": " << int{got[0]} << " " << int{got[1]} << " " << int{got[2]}
            << " " << int{got[3]} << " in place of " << int{wanted[0]} << " " << int{wanted[1]} << " " << int{wanted[2]}
            << " " << int{wanted[3]};
        empties += wish.colour && got[3] == 0 ? 1 : 0;
        shaded += wish.colour && wish.sun && got[3] != 0 ? 1 : 0;
      }
    }
  }
  EXPECT_GT(shaded, rounds * 10);
  EXPECT_GT(empties, rounds * 10);
}

}  // namespace
}  // namespace vak
