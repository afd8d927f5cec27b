#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Command.h"
#include "support/CommandModels.h"

namespace vak {
namespace {

using test::CommandResult;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

class OutlineCommand : public testing::Test {
 protected:
  CommandResult Outline(const Words& words) const {
    Words all = {"outline", models_.File("a.dtm")};
    all.insert(all.end(), words.begin(), words.end());
    return test::CommandModels::Run(all);
  }

  test::CommandModels models_;
};

std::string Collection(const std::string& features) {
  return "{\n\"type\":\"FeatureCollection\",\n\"name\":\"outlines\",\n\"features\":[\n" + features + "\n]\n}\n";
}

TEST_F(OutlineCommand, LineRunsHalfwayAroundTheDataAtTheHeightOfItsCells) {
  models_.Make("a.dtm", "10.5,20.5,-1\n11.5,20.5,-2\n");
  const test::FileState state(models_.Folder(), "a.dtm");
  const CommandResult result = Outline({"-o", "-"});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("\"closed\":true"));
  for (const char* point :
       {"[10.5,20,-1]", "[10,20.5,-1]", "[10.5,21,-1]", "[11.5,21,-2]", "[12,20.5,-2]", "[11.5,20,-2]"}) {
    EXPECT_THAT(result.out, HasSubstr(point));
  }
  EXPECT_TRUE(state.IsUnchanged());
}

TEST_F(OutlineCommand, LengthIsThatInSpace) {
  models_.Make("a.dtm", "10.5,20.5,-1\n");
  EXPECT_EQ(
      Outline({"-o", "-"}).out,
      Collection("{\"type\":\"Feature\",\"properties\":{\"level\":0.0,\"closed\":true,\"length\":2.8284271247461903},"
                 "\"geometry\":{\"type\":\"LineString\",\"coordinates\":[[10.5,21,-1],[11,20.5,-1],[10.5,20,-1],"
                 "[10,20.5,-1],[10.5,21,-1]]}}"));
}

TEST_F(OutlineCommand, AKindOfValueHasItsOwnOutline) {
  // A deviation has only the cell that was hit twice.
  models_.Make("a.dtm", "10.5,20.5,-1\n11.5,20.5,-2\n11.6,20.5,-3\n");
  EXPECT_THAT(Outline({"--block", "SDV", "--json"}).out, StartsWith("{\"lines\":1,\"closed\":1,\"vertices\":5,"));
  EXPECT_THAT(Outline({"--json"}).out, StartsWith("{\"lines\":1,\"closed\":1,\"vertices\":7,"));
}

TEST_F(OutlineCommand, APolygonLimitsItByWholeAreas) {
  models_.Make("a.dtm", "10.5,20.5,-1\n200.5,20.5,-2\n");
  const std::string polygon = models_.Folder().Write("p.txt", "1,1\n2,1\n2,2\n1,1\n");
  const std::string all = Outline({"-o", "-"}).out;
  EXPECT_THAT(all, HasSubstr(",-2]"));
  const std::string some = Outline({"-o", "-", "--polygon", polygon}).out;
  EXPECT_THAT(some, HasSubstr("[10.5,21,-1]"));
  EXPECT_THAT(some, testing::Not(HasSubstr(",-2]")));
}

TEST_F(OutlineCommand, LengthsThatNoNumberHoldsAreRefused) {
  models_.Make("a.dtm", "10.5,20.5,1e308\n11.5,20.5,-1e308\n", {"--blocks", "VAL"});
  for (const Words& words : {Words{"-o", models_.File("o.geojson")}, Words{"-o", models_.File("o.fgb")}, {"--json"}}) {
    const CommandResult result = Outline(words);
    EXPECT_EQ(result.status, kCouldNotBeDone);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "vakdtm outline: " + models_.File("a.dtm") +
                              ": its outlines are longer than a number can tell - look for such values with \"vakdtm "
                              "cells\"\n");
  }
  EXPECT_FALSE(models_.Folder().Has("o.geojson"));
  EXPECT_FALSE(models_.Folder().Has("o.fgb"));
}

TEST_F(OutlineCommand, AnAreaThatCannotBeReadEndsItWithoutAFile) {
  models_.Make("a.dtm", "0.5,0.5,-3\n100.5,0.5,-4\n", {"--blocks", "VAL"});
  std::string bytes = models_.Folder().Text("a.dtm");
  // The length of the second area's first block, behind the tags of the area and the block.
  const std::size_t block = bytes.find("LAVd", bytes.rfind("aera"));
  ASSERT_NE(block, std::string::npos);
  bytes[block + 4] = static_cast<char>(bytes[block + 4] ^ 0x40);
  models_.Folder().Write("a.dtm", bytes);
  const CommandResult result = Outline({"-o", models_.File("o.geojson")});
  EXPECT_EQ(result.status, kCouldNotBeDone);
  EXPECT_EQ(result.err, "vakdtm outline: " + models_.File("a.dtm") + ": an area cannot be read - run \"vakdtm verify " +
                            models_.File("a.dtm") + "\"\n");
  EXPECT_FALSE(models_.Folder().Has("o.geojson"));
}

TEST_F(OutlineCommand, ModelWithoutDataHasNone) {
  models_.Run({"create", models_.File("a.dtm"), "--cell-size", "1"});
  const CommandResult result = Outline({"-o", models_.File("o.geojson")});
  EXPECT_EQ(result.status, kDone);
  EXPECT_EQ(result.err, "vakdtm outline: warning: " + models_.File("a.dtm") + ": there are no outlines\n");
}

TEST_F(OutlineCommand, WrongUseAndInputsAreToldAsForContours) {
  models_.Make("a.dtm", "10.5,20.5,-1\n", {"--blocks", "VAL"});
  const struct {
    Words words;
    int status;
    std::string error;
  } cases[] = {
      {{}, kUsedWrongly, "-o is missing - name a file that ends in .geojson, .json, .gpkg, .shp, .dxf or .fgb"},
      {{"-o", "o.kml"},
       kUsedWrongly,
       "-o: the ending of 'o.kml' names no format - let it end in .geojson, .json, .gpkg, .shp, .dxf or .fgb"},
      {{"-o", "-", "--block", "MIN"},
       kCouldNotBeDone,
       models_.File("a.dtm") + ": records no MIN - ask \"vakdtm info\" which kinds it has"},
      {{"-o", models_.File("a.dtm")},
       kUsedWrongly,
       "-o: the ending of '" + models_.File("a.dtm") +
           "' names no format - let it end in .geojson, .json, .gpkg, "
           ".shp, .dxf or .fgb"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    const CommandResult result = Outline(c.words);
    EXPECT_EQ(result.status, c.status);
    EXPECT_EQ(result.err, "vakdtm outline: " + c.error + "\n");
  }
}

}  // namespace
}  // namespace vak
