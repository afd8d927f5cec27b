#include <gtest/gtest.h>

#include "vakdtm/render/BlockColorMap.h"
#include "vakdtm/services/color/ColorMaps.h"
#include "vakdtm/store/DtmBlockId.h"

namespace vak {
namespace {

TEST(BlockColorMap, EveryKindHasATableThatIsThere) {
  for (int index = 0; index < DtmBlockId::NumBlockIds(); ++index) {
    DtmBlockId kind(0);
    kind.SetFromIndex(index);
    EXPECT_TRUE(IsColorMap(DefaultColorMap(kind.BlockId()))) << index;
    if (kind.IsZ()) {
      EXPECT_EQ(DefaultColorMap(kind.BlockId()), "depth");
    }
  }
  EXPECT_EQ(DefaultColorMap(iNUM), "hits");
  EXPECT_EQ(DefaultColorMap(uFCT), "hits");
  EXPECT_EQ(DefaultColorMap(dSDV), "deviation");
  EXPECT_EQ(DefaultColorMap(tTIM), "time");
  EXPECT_EQ(DefaultColorMap(dTVU), "uncertainty");
  EXPECT_EQ(DefaultColorMap(dTHU), "uncertainty");
  EXPECT_EQ(DefaultColorMap(fXMN), "difference");
  EXPECT_EQ(DefaultColorMap(0), "depth");
}

}  // namespace
}  // namespace vak
