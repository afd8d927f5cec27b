#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <vector>

#include "vakdtm/export/ImageLines.h"
#include "vakdtm/services/color/ColorTable.h"
#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "support/GridStreamLog.h"
#include "support/TestGrid.h"

namespace vak {
namespace {

ImageRules ShadedRules(int blockId, const ColorTable& table) {
  ImageRules rules;
  rules.blockId = blockId;
  rules.isHeight = DtmBlockId(blockId).IsZ();
  rules.noValue = EmptyDouble();
  rules.table = &table;
  rules.shaded = true;
  return rules;
}

TEST(ImageLines, NothingIsReadTwiceWhateverIsShaded) {
  test::TestGrid grid({.cellSize = 1.0, .areaSize = 4, .blockIds = {dVAL, iNUM}});
  for (int row = 0; row < 16; ++row) {
    for (int col = 0; col < 8; ++col) ASSERT_TRUE(grid.Set(row, col, dVAL, row * col) && grid.Set(row, col, iNUM, 1));
  }
  grid.Close();
  ColorTable table;
  ASSERT_TRUE(table.SetRange(0, 100, 8, true, false));
  for (const int block : {dVAL, iNUM}) {
    for (const int firstRow : {15, 11, 9}) {
      SCOPED_TRACE(testing::Message() << "block " << block << " from row " << firstRow);
      const auto log = std::make_shared<test::StreamLog>();
      DtmFile file(new test::LoggedStream(grid.Shared(), log), false);
      ASSERT_TRUE(file.Open());
      DtmAccess access(&file);
      log->calls.clear();
      const ImageRules rules = ShadedRules(block, table);
      ImageLines lines(access, rules, 0, 7);
      std::vector<std::byte> line(lines.LineBytes());
      for (int row = firstRow; row >= 0; --row) lines.Make(row, line.data());
      std::set<std::int64_t> places;
      for (const test::StreamCall& call : log->calls) {
        EXPECT_TRUE(places.insert(call.at).second) << "again at " << call.at;
      }
      EXPECT_GE(places.size(), 4U) << "nothing was read";
    }
  }
}

TEST(ImageLines, MemoryIsThatOfTheRowsThatAreKept) {
  const ColorTable table;
  ImageRules rules = ShadedRules(dVAL, table);
  EXPECT_EQ(ImageLines::MemoryOfPixel(rules), 4 * sizeof(double));
  rules.blockId = tTIM;
  EXPECT_EQ(ImageLines::MemoryOfPixel(rules), sizeof(double)) << "times aren't shaded";
  rules = ShadedRules(dVAL, table);
  rules.colourImage = false;
  EXPECT_EQ(ImageLines::MemoryOfPixel(rules), sizeof(double));
}

}  // namespace
}  // namespace vak
