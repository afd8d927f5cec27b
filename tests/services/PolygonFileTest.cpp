// PolyClipLine::FileOpen: what polygon files may look like, and what of a bad one is said.

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "vakdtm/services/files/FileObject.h"
#include "vakdtm/services/geometry/PolyClipLine.h"

#include "support/DecimalComma.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

using test::TestFolder;
using Kind = PolyClipFault::Kind;

class PolygonFile : public testing::Test {
 protected:
  /// Reads `content` as a file. @return the error, empty when it was read.
  std::wstring Read(std::string_view content, std::string_view name = "area.txt") {
    folder_.Write(name, content);
    FileObject file;
    EXPECT_TRUE(file.FileOpen(folder_.WideFile(name)));
    std::wstring error;
    const bool read = polygon_.FileOpen(file, &error);
    EXPECT_EQ(read, error.empty());
    return error;
  }

  std::wstring Fault() const {
    PolyClipFault fault;
    return polygon_.FindFault(fault) ? fault.Text() : std::wstring();
  }

  TestFolder folder_;
  PolyClipLine polygon_;
};

TEST_F(PolygonFile, TextHasAVertexALine) {
  const std::string_view forms[] = {
      "0,0\n4,0\n4,3\n0,3\n0,0\n",
      "0 0\n4 0\n4 3\n0 3\n0 0",
      "0,0,-5\n4,0,-5\n4,3,7.5\n0,3,0\n0,0,1\n",
      "0 0 -5\r\n4 0 -5\r\n4 3 7.5\r\n0 3 0\r\n0 0 1\r\n",
      "\xEF\xBB\xBF# a remark\n0 , 0\n  4\t0  \n#in between\n +4.0 , 3e0\n0,.3e1\n-0,0\n",
      "\n\n\n0,0\n4,0\n4,3\n0,3\n0,0\n\n \t\r\n\n",
  };
  for (const std::string_view text : forms) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Read(text), L"");
    EXPECT_EQ(polygon_.NumRings(), 1U);
    EXPECT_EQ(polygon_.NumPoints(), 4U);
    EXPECT_EQ(polygon_.GetArea(), 12);
    EXPECT_EQ(Fault(), L"");
  }
  EXPECT_EQ(polygon_.GetTitle(), L"area");
}

TEST_F(PolygonFile, HeightsAreKept) {
  EXPECT_EQ(Read("0,0,-5\n4,0,2.5\n4,3\n0,0,-5\n"), L"");
  EXPECT_EQ(polygon_.GetPoint(0).z, -5);
  EXPECT_EQ(polygon_.GetPoint(1).z, 2.5);
  EXPECT_EQ(polygon_.GetPoint(2).z, 0);
}

TEST_F(PolygonFile, EmptyLinesPartRings) {
  EXPECT_EQ(Read("0,0\n4,0\n4,3\n0,0\n\n\n10,0\n14,0\n14,3\n10,0\n"), L"");
  EXPECT_EQ(polygon_.NumRings(), 2U);
  EXPECT_EQ(polygon_.GetArea(), 12);
}

std::string Square(double x, double y, double side) {
  const auto number = [](double value) { return std::to_string(value); };
  const std::string a = number(x) + "," + number(y) + "\n";
  return a + number(x + side) + "," + number(y) + "\n" + number(x + side) + "," + number(y + side) + "\n" + number(x) +
         "," + number(y + side) + "\n" + a + "\n";
}

TEST_F(PolygonFile, RingsOfATextWithinAnOddNumberOfOthersAreHoles) {
  // In any order in the file.
  EXPECT_EQ(Read(Square(4, 4, 2) + Square(0, 0, 10) + Square(20, 0, 10) + Square(2, 2, 6) + Square(22, 2, 3) +
                 Square(26, 2, 3)),
            L"");
  EXPECT_EQ(polygon_.GetArea(), 100 - 36 + 4 + 100 - 9 - 9);
  EXPECT_TRUE(polygon_.IsPointInPoly({5, 5}));
  EXPECT_FALSE(polygon_.IsPointInPoly({3, 3}));
  EXPECT_FALSE(polygon_.IsPointInPoly({23, 3}));
  EXPECT_TRUE(polygon_.IsPointInPoly({21, 1}));
  EXPECT_EQ(Fault(), L"");
}

TEST_F(PolygonFile, RingsOfATextMayTouchAndShareEdges) {
  // Neighbours with a common edge, one of them with a hole that touches it; a hole from corner to corner.
  EXPECT_EQ(Read(Square(0, 0, 4) + Square(4, 0, 4) + Square(5, 1, 1) + "0,0\n2,1\n1,2\n0,0\n\n" + Square(0, 4, 4) +
                 Square(1, 5, 1)),
            L"");
  EXPECT_EQ(polygon_.GetArea(), 16 + 16 - 1 - 1.5 + 16 - 1);
  EXPECT_EQ(Fault(), L"");
}

TEST_F(PolygonFile, ThousandRingsWithinEachOther) {
  std::string text;
  for (int i = 0; i < 1000; ++i) text += Square(i, i, 2001 - 2 * i);
  EXPECT_EQ(Read(text), L"");
  double area = 0;
  for (int i = 0; i < 1000; ++i) area += (i % 2 == 0 ? 1.0 : -1.0) * (2001.0 - 2 * i) * (2001 - 2 * i);
  EXPECT_EQ(polygon_.GetArea(), area);
  EXPECT_FALSE(polygon_.IsPointInPoly({1000.5, 1000.5}));
  EXPECT_TRUE(polygon_.IsPointInPoly({998.5, 1000.5}));
}

TEST_F(PolygonFile, TextErrorsNameTheLine) {
  const struct {
    const char* name;
    std::string_view text;
    std::wstring_view error;
  } cases[] = {
      {"a word", "0,0\nabc\n", L"line 2: no vertex \"x,y\" or \"x y\", but \"abc\""},
      {"one number", "0,0\n\n5\n", L"line 3: no vertex \"x,y\" or \"x y\", but \"5\""},
      {"decimal commas", "# head\n0,5 1,5\n", L"line 2: no vertex \"x,y\" or \"x y\", but \"0,5 1,5\""},
      {"four numbers", "1,2,3,4\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"1,2,3,4\""},
      {"no number in between", "1,,3\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"1,,3\""},
      {"a number with a tail", "1,2x\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"1,2x\""},
      {"not a number", "1,nan\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"1,nan\""},
      {"endless", "inf,1\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"inf,1\""},
      {"too large for a double", "1,1e400\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"1,1e400\""},
      {"beyond measure", "1,1e101\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"1,1e101\""},
      {"two signs", "+-1,1\n", L"line 1: no vertex \"x,y\" or \"x y\", but \"+-1,1\""},
      {"a long line", "0123456789012345678901234567890123456789x\n",
       L"line 1: no vertex \"x,y\" or \"x y\", but \"0123456789012345678901234567890123456789...\""},
      {"nothing", "", L"it holds no polygon"},
      {"remarks alone", "# one\n\n# two\n", L"it holds no polygon"},
  };
  ASSERT_EQ(Read("0,0\n4,0\n4,3\n0,0\n"), L"");
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(Read(one.text), one.error);
    EXPECT_EQ(polygon_.GetArea(), 6);  // nothing has changed
  }
}

TEST_F(PolygonFile, NumbersDontFollowTheLocale) {
  const test::DecimalComma comma;
  ASSERT_TRUE(comma.Set());
  EXPECT_EQ(Read("0.5,0\n4.5,0\n4.5,3\n0.5,0\n"), L"");
  EXPECT_EQ(polygon_.GetArea(), 6);
  EXPECT_EQ(Read(R"({"type":"Polygon","coordinates":[[[0.5,0],[4.5,0],[4.5,3.5],[0.5,0]]]})"), L"");
  EXPECT_EQ(polygon_.GetArea(), 7);
}

constexpr std::string_view kTriangle = "[[0,0],[4,0],[4,3],[0,0]]";

std::string Json(std::string_view before, std::string_view after) {
  return std::string(before) + std::string(kTriangle) + std::string(after);
}

TEST_F(PolygonFile, GeoJsonHoldsPolygonsAnywhere) {
  const std::string polygon = Json(R"({"type":"Polygon","coordinates":[)", "]}");
  const std::string forms[] = {
      polygon,
      "\xEF\xBB\xBF \r\n\t" + polygon,
      Json(R"({"coordinates":[)", R"(],"bbox":[0,0,4,3],"type":"Polygon"})"),
      Json(R"({"type":"MultiPolygon","coordinates":[[)", "]]}"),
      R"({"type":"Feature","properties":{"name":"x","coordinates":[1,"a"],"type":"Point"},"geometry":)" + polygon + "}",
      R"({"type":"Feature","geometry":)" + polygon + R"(,"properties":null})",
      R"({"type":"FeatureCollection","crs":{"type":"name"},"features":[{"type":"Feature","geometry":null},)"
      R"({"type":"Feature","geometry":)" +
          polygon + "}]}",
      R"({"type":"GeometryCollection","geometries":[{"type":"Point","coordinates":[1,2]},)" + polygon +
          R"(,{"type":"LineString","coordinates":[[1,2],[3,4]]}]})",
      R"({"type":"GeometryCollection","geometries":[{"type":"GeometryCollection","geometries":[)" + polygon + "]}]}",
      R"({"type":"MultiPolygon","coordinates":[]}  )",
  };
  for (const std::string& text : forms) {
    SCOPED_TRACE(text);
    const bool empty = text.find("[]") != std::string::npos;
    EXPECT_EQ(Read(text, "area.geojson"), empty ? L"it holds no polygon" : L"");
    EXPECT_EQ(polygon_.NumRings(), 1U);
    EXPECT_EQ(polygon_.GetArea(), 6);
    EXPECT_EQ(Fault(), L"");
  }
}

TEST_F(PolygonFile, GeoJsonRingsBehindTheFirstAreHolesOfTheirPolygon) {
  const std::string hole = "[[1,1],[2,1],[2,2],[1,2],[1,1]]";
  const std::string square = "[[0,0],[4,0],[4,4],[0,4],[0,0]]";
  EXPECT_EQ(Read(R"({"type":"Polygon","coordinates":[)" + square + "," + hole + "]}"), L"");
  EXPECT_EQ(polygon_.GetArea(), 15);
  EXPECT_EQ(Read(R"({"type":"MultiPolygon","coordinates":[[)" + square + "],[" + hole + "]]}"), L"");
  EXPECT_EQ(polygon_.GetArea(), 17);  // no hole: a polygon of its own, which adds up
}

TEST_F(PolygonFile, GeoJsonPositionsMayHaveMoreNumbers) {
  EXPECT_EQ(Read(R"({"type":"Polygon","coordinates":[[[0,0,5],[4,0,6,7],[4,3],[0,0,5]]]})"), L"");
  EXPECT_EQ(polygon_.GetPoint(0).z, 5);
  EXPECT_EQ(polygon_.GetPoint(1).z, 6);
  EXPECT_EQ(polygon_.GetPoint(2).z, 0);
}

TEST_F(PolygonFile, GeoJsonErrorsSayWhatIsWrong) {
  const auto nested = [](std::string_view open, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += open;
    return text;
  };
  const struct {
    const char* name;
    std::string text;
    std::wstring_view error;
  } cases[] = {
      {"cut off", "{\"type\":\"Polygon\",\n\"coordinates\":[[[0,0]", L"line 2: this is no JSON that can be read"},
      {"something behind it", "{}\n\nx", L"line 3: this is no JSON that can be read"},
      {"an array", "[1,2]", L"a GeoJSON text is an object"},
      {"nothing in it", "{}", L"it holds no polygon"},
      {"lines alone", R"({"type":"LineString","coordinates":[[1,2],[3,4]]})", L"it holds no polygon"},
      {"a ring without its polygon", Json(R"({"type":"Polygon","coordinates":)", "}"),
       L"the coordinates of a Polygon are rings of positions"},
      {"a polygon too deep", Json(R"({"type":"Polygon","coordinates":[[)", "]]}"),
       L"the coordinates of a Polygon are rings of positions"},
      {"several that are one", Json(R"({"type":"MultiPolygon","coordinates":[)", "]}"),
       L"the coordinates of a MultiPolygon are polygons of rings of positions"},
      {"a position of one number", R"({"type":"Polygon","coordinates":[[[0,0],[4],[4,3],[0,0]]]})",
       L"it has a position of fewer than two numbers"},
      {"an empty position", R"({"type":"Polygon","coordinates":[[[0,0],[],[4,3],[0,0]]]})",
       L"it has a position of fewer than two numbers"},
      {"an empty position first", R"({"type":"Polygon","coordinates":[[[],[0,0],[4,3],[0,0]]]})",
       L"the coordinates of a Polygon are rings of positions"},
      {"numbers in two depths", R"({"type":"Polygon","coordinates":[[[0,0],5,[4,3],[0,0]]]})",
       L"its positions aren't all equally deep"},
      {"an array in a position", R"({"type":"Polygon","coordinates":[[[0,0,[]],[4,3],[0,0]]]})",
       L"its positions aren't all equally deep"},
      {"text for a number", R"({"type":"Polygon","coordinates":[[[0,"0"],[4,3],[0,0]]]})",
       L"its coordinates hold something that is no number"},
      {"null for a number", R"({"type":"Polygon","coordinates":[[[0,null],[4,3],[0,0]]]})",
       L"its coordinates hold something that is no number"},
      {"an object for a number", R"({"type":"Polygon","coordinates":[[[0,{}],[4,3],[0,0]]]})",
       L"its coordinates hold something that is no number"},
      {"not a number", R"({"type":"Polygon","coordinates":[[[0,NaN],[4,3],[0,0]]]})",
       L"line 1: this is no JSON that can be read"},
      {"too large for a double", R"({"type":"Polygon","coordinates":[[[0,1e400],[4,3],[0,0]]]})",
       L"line 1: this is no JSON that can be read"},
      {"beyond measure", R"({"type":"Polygon","coordinates":[[[0,1e101],[4,3],[0,0]]]})",
       L"it has a coordinate beyond 1e12"},
      {"arrays without end", R"({"type":"Polygon","coordinates":)" + nested("[", 100'000),
       L"its coordinates are nested too deep"},
      {"arrays without end elsewhere", R"({"properties":)" + nested("[", 100'000),
       L"line 1: this is no JSON that can be read"},
      {"collections without end", nested("{\"geometries\":[", 100'000), L"its collections are nested too deep"},
  };
  ASSERT_EQ(Read("0,0\n4,0\n4,3\n0,0\n"), L"");
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(Read(one.text), one.error);
    EXPECT_EQ(polygon_.GetArea(), 6);
  }
}

// Wherever it stands: the ring behind an outer one that is left out isn't the outer one.
TEST_F(PolygonFile, EmptyRingsAreRefused) {
  for (const std::string& text : {
           Json(R"({"type":"Polygon","coordinates":[)", ",[]]}"),
           Json(R"({"type":"Polygon","coordinates":[[],)", "]}"),
           Json(R"({"type":"MultiPolygon","coordinates":[[)", ",[]]]}"),
           Json(R"({"type":"MultiPolygon","coordinates":[[[],)", "]]}"),
           Json(R"({"type":"MultiPolygon","coordinates":[[],[)", "]]}"),
           Json(R"({"type":"MultiPolygon","coordinates":[[)", "],[]]}"),
       }) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Read(text), L"it has a ring or a polygon that is empty");
    EXPECT_TRUE(polygon_.IsEmpty());
  }
}

TEST_F(PolygonFile, CoordinatesThatUnderflowCountAsZero) {
  // Whether such edges lie on each other can't be told from products of them.
  EXPECT_EQ(Read("0 2.5e-162\n9e-162 0\n2e-300 3e-162\n"), L"");
  EXPECT_EQ(Fault(), L"line 1: has fewer than three different points");
  EXPECT_EQ(Read("0 2e-101\n4 -9e-102\n4 3\n0 -0\n"), L"");
  EXPECT_EQ(polygon_.GetArea(), 6);
  EXPECT_EQ(Fault(), L"");
  EXPECT_EQ(Read(R"({"type":"Polygon","coordinates":[[[0,2e-162],[4,-9e-162],[4,3],[0,0]]]})"), L"");
  EXPECT_EQ(polygon_.GetArea(), 6);
  EXPECT_EQ(Fault(), L"");
}

std::string TwoRings(std::string_view second) {
  return R"({"type":"Polygon","coordinates":[[[0,0],[4,0],[4,4],[0,4],[0,0]],)" + std::string(second) + "]}";
}

// Whichever of them begins further left.
TEST_F(PolygonFile, RingOfATextThatGoesAcrossAnotherIsNoHole) {
  const struct {
    const char* name;
    std::string text;
    double area;
    std::wstring_view overlap;
  } cases[] = {
      {"begins outside", Square(0, 0, 4) + Square(-1, 1, 2), 20, L"line 7: overlaps the ring at line 1 at 0, 1"},
      {"begins inside", Square(0, 0, 4) + Square(3, 1, 2), 20, L"line 7: overlaps the ring at line 1 at 3, 1"},
      {"the other way round", Square(3, 1, 2) + Square(0, 0, 4), 20, L"line 7: overlaps the ring at line 1 at 3, 1"},
      {"begins on the edge", Square(0, 0, 4) + "0,1\n5,1\n5,2\n0,1\n", 18.5,
       L"line 7: overlaps the ring at line 1 at 0, 1"},
      {"along an edge", Square(0, 0, 4) + Square(2, 0, 4), 32, L"line 7: overlaps the ring at line 1 at 2, 0"},
      {"with a hole in one of them", Square(0, 0, 4) + Square(1, 1, 1) + Square(3, 0, 4), 31,
       L"line 13: overlaps the ring at line 1 at 3, 0"},
      {"within both", Square(0, 0, 4) + Square(2, 0, 4) + Square(2.5, 1, 1), 33,
       L"line 7: overlaps the ring at line 1 at 2, 0"},
      {"within one", Square(0, 0, 4) + Square(2, 0, 4) + Square(0.5, 1, 1), 31,
       L"line 7: overlaps the ring at line 1 at 2, 0"},
      {"neighbours", Square(0, 0, 4) + Square(4, 0, 4) + Square(4, 4, 1), 33, L""},
      {"an island", Square(0, 0, 4) + Square(1, 1, 2) + Square(1.5, 1, 1), 13, L""},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(Read(one.text), L"");
    EXPECT_EQ(polygon_.GetArea(), one.area);
    EXPECT_EQ(Fault(), L"");
    PolyClipFault overlap;
    EXPECT_EQ(polygon_.FindOverlap(overlap), !one.overlap.empty());
    EXPECT_EQ(overlap.Text(), one.overlap);
  }
}

TEST_F(PolygonFile, SameRingTwiceInATextIsAHoleOfItself) {
  EXPECT_EQ(Read(Square(0, 0, 4) + Square(9, 9, 2) + Square(10, 9, 2) + Square(0, 0, 4)), L"");
  EXPECT_EQ(polygon_.GetArea(), 8);
  EXPECT_EQ(Fault(), L"line 19: crosses the ring at line 1 at 0, 0");
}

TEST_F(PolygonFile, FaultsNameTheirPlaceInTheFile) {
  const struct {
    const char* name;
    std::string text;
    std::wstring_view fault;
  } cases[] = {
      {"text, not closed", "# head\n0,0\n4,0\n4,3\n", L"line 2: isn't closed: it begins at 0, 0 and ends at 4, 3"},
      {"text, second ring", "0,0\n4,0\n4,3\n0,0\n\n9,9\n8,8\n9,9\n", L"line 6: has fewer than three different points"},
      {"text, crossing", "\n0,0\n2.5,2.5\n2.5,0\n0,2.5\n0,0\n", L"line 2: intersects itself at 1.25, 1.25"},
      {"text, closed but for its height", "0,0,1\n4,0,1\n4,3,1\n0,0,2\n", L""},
      {"GeoJSON, not closed",
       R"({"type":"MultiPolygon","coordinates":[[[[0,0],[4,0],[4,3],[0,0]]],[[[0.5,0],[4,0],[4,3]]]]})",
       L"polygon 2, ring 1: isn't closed: it begins at 0.5, 0 and ends at 4, 3"},
      {"GeoJSON, hole across its ring",
       R"({"type":"Polygon","coordinates":[[[0,0],[4,0],[4,4],[0,4],[0,0]],[[1,1],[6,1],[6,2],[1,2],[1,1]]]})",
       L"polygon 1, ring 2: crosses polygon 1, ring 1 at 4, 1"},
      {"text, ring on its ring", Square(0, 0, 4) + Square(0, 1, 2), L"line 7: crosses the ring at line 1 at 0, 1"},
      {"GeoJSON, hole beside its ring", TwoRings("[[5,5],[6,5],[6,6],[5,5]]"),
       L"polygon 1, ring 2: is a hole, but not within its ring, at 5, 5"},
      {"GeoJSON, hole above its ring", TwoRings("[[1,5],[2,5],[2,6],[1,5]]"),
       L"polygon 1, ring 2: is a hole, but not within its ring, at 1, 5"},
      {"GeoJSON, hole around its ring", TwoRings("[[-1,-1],[6,-1],[6,6],[-1,6],[-1,-1]]"),
       L"polygon 1, ring 2: is a hole, but not within its ring, at -1, -1"},
      {"GeoJSON, hole that touches its ring from outside", TwoRings("[[4,2],[6,1],[6,3],[4,2]]"),
       L"polygon 1, ring 2: is a hole, but not within its ring, at 4, 2"},
      {"GeoJSON, hole within a hole", TwoRings("[[1,1],[3,1],[3,3],[1,3],[1,1]],[[1.5,1.5],[2,1.5],[2,2],[1.5,1.5]]"),
       L"polygon 1, ring 3: is a hole within another one, polygon 1, ring 2, at 1.5, 1.5"},
      {"GeoJSON, holes that touch",
       TwoRings("[[1,1],[2,1],[2,2],[1,1]],[[2,2],[3,2],[3,3],[2,2]],[[0,0],[1,1],[0,1],[0.5,0.75],[0,0]]"), L""},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(Read(one.text), L"");
    EXPECT_EQ(Fault(), one.fault);
  }
}

}  // namespace
}  // namespace vak
