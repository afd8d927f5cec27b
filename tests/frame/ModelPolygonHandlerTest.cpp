#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "vakdtm/frame/ModelPolygonHandler.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

using test::TestFolder;

PolyClipLine Rectangle(double x0, double y0, double x1, double y1) {
  PolyClipLine polygon;
  polygon.AddRing({{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}, false);
  return polygon;
}

TEST(ModelPolygonHandler, NullPolygonHoldsEveryPoint) {
  const ModelPolygonHandler handler(nullptr);
  EXPECT_TRUE(handler.IsPointInPolygon(0, 0, 0));
  EXPECT_TRUE(handler.IsPointInPolygon(-1e9, 1e9, 5));
}

TEST(ModelPolygonHandler, PolygonWithoutRingsHoldsEveryPoint) {
  const PolyClipLine none;
  EXPECT_TRUE(ModelPolygonHandler(&none).IsPointInPolygon(3, 4, 5));
}

TEST(ModelPolygonHandler, PlaneFormJudgesModelCoordinates) {
  const PolyClipLine polygon = Rectangle(10, 10, 20, 20);
  const ModelPolygonHandler handler(&polygon);
  EXPECT_TRUE(handler.IsPointInPolygon(15, 15, -1e6));
  EXPECT_FALSE(handler.IsPointInPolygon(25, 15, 0));
}

TEST(ModelPolygonHandler, PolygonIsCopied) {
  PolyClipLine polygon = Rectangle(10, 10, 20, 20);
  const ModelPolygonHandler handler(&polygon);
  polygon.Clear();
  EXPECT_FALSE(handler.IsPointInPolygon(25, 15, 0));
}

TEST(ModelPolygonHandler, ExcludePolygonsTakeAwayAndBadFilesAreLeftOut) {
  const TestFolder folder;
  folder.Write("a.txt", "0,0\n2,0\n2,2\n0,2\n0,0\n");
  folder.Write("bad.txt", "this is no polygon\n");
  folder.Write("b.json", R"({"type":"Polygon","coordinates":[[[4,4],[6,4],[6,6],[4,6],[4,4]]]})");
  const std::vector<std::wstring> paths = {folder.WideFile("a.txt"), folder.WideFile("missing.txt"),
                                           folder.WideFile("bad.txt"), folder.WideFile("b.json")};
  ModelPolygonHandler everywhere(nullptr);
  everywhere.SetExcludePolygons(paths);
  EXPECT_FALSE(everywhere.IsPointInPolygon(1, 1, 0));
  EXPECT_FALSE(everywhere.IsPointInPolygon(5, 5, 0));
  EXPECT_TRUE(everywhere.IsPointInPolygon(3, 3, 0));

  const PolyClipLine polygon = Rectangle(0, 0, 5, 5);
  ModelPolygonHandler limited(&polygon);
  limited.SetExcludePolygons(paths);
  EXPECT_FALSE(limited.IsPointInPolygon(1, 1, 0));
  EXPECT_TRUE(limited.IsPointInPolygon(3, 3, 0));
  EXPECT_FALSE(limited.IsPointInPolygon(7, 7, 0));
  limited.SetExcludePolygons({});
  EXPECT_TRUE(limited.IsPointInPolygon(1, 1, 0));
}

}  // namespace
}  // namespace vak
