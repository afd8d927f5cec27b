#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "vakdtm/render/PixelLines.h"

namespace vak {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const PixelRect kMap{10, 10, 20, 20};

TEST(PixelLines, OfALineWithinAllIsKept) {
  const PixelLine line = {{11, 11}, {15, 12}, {19, 19}};
  EXPECT_THAT(Clipped(line, kMap), ElementsAre(line));
}

TEST(PixelLines, ALineIsCutWhereItLeavesAndBeginsAnewWhereItComesBack) {
  const PixelLine line = {{12, 12}, {12, 4}, {16, 4}, {16, 14}, {24, 14}};
  EXPECT_THAT(Clipped(line, kMap), ElementsAre(PixelLine{{12, 12}, {12, 10}}, PixelLine{{16, 10}, {16, 14}, {20, 14}}));
}

TEST(PixelLines, ALineThatCrossesWithoutAPointInsideIsCutAtBothEdges) {
  EXPECT_THAT(Clipped({{5, 15}, {25, 15}}, kMap), ElementsAre(PixelLine{{10, 15}, {20, 15}}));
  EXPECT_THAT(Clipped({{0, 10}, {20, 30}}, kMap), ElementsAre(PixelLine{{10, 20}, {10, 20}})) << "touches a corner";
}

TEST(PixelLines, OfALineBesideNothingIsLeft) {
  EXPECT_THAT(Clipped({{0, 0}, {9, 30}, {30, 30}}, kMap), IsEmpty());
  EXPECT_THAT(Clipped({{12, 0}, {18, 0}}, kMap), IsEmpty());
  EXPECT_THAT(Clipped({}, kMap), IsEmpty());
  EXPECT_THAT(Clipped({{12, 12}}, kMap), IsEmpty());
}

TEST(PixelLines, ThinningKeepsTheEndsAndWhatIsFarEnough) {
  EXPECT_EQ(Thinned({{0, 0}, {0.3, 0}, {0.6, 0}, {2, 0}, {2.1, 0}}, 0.5),
            (PixelLine{{0, 0}, {0.6, 0}, {2, 0}, {2.1, 0}}));
  EXPECT_EQ(Thinned({{0, 0}, {0.1, 0}}, 0.5), (PixelLine{{0, 0}, {0.1, 0}}));
  EXPECT_EQ(Thinned({}, 0.5), PixelLine());
}

}  // namespace
}  // namespace vak
