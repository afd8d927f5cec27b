#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

#include "support/TestGrid.h"

namespace vak::test {
namespace {

std::string Page() {
  std::ifstream file(VAKDTM_DOCS "/grid-format.md");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

TEST(GridFormatDoc, DumpIsTheFileOfTheExample) {
  const std::string page = Page();
  const std::size_t start = page.find("```\n", page.find("## An example"));
  ASSERT_NE(start, std::string::npos);
  const std::size_t end = page.find("```", start + 4);
  ASSERT_NE(end, std::string::npos);

  const TimeStands time(1700000000);
  TestGrid grid({.cellSize = 0.5, .areaSize = 2, .blockIds = {dVAL, iNUM}});
  ASSERT_TRUE(grid.Sound(-0.25, 0.25, -12.5));
  grid.Close();
  EXPECT_EQ(grid.Bytes().size(), 216u);
  EXPECT_EQ(page.substr(start + 4, end - start - 4), HexDump(grid.Bytes()));
}

TEST(GridFormatDoc, EveryKindOfTheTableIsNamed) {
  const std::string page = Page();
  for (int index = 0; index < DtmBlockId::NumBlockIds(); ++index) {
    DtmBlockId kind(0);
    kind.SetFromIndex(index);
    std::string id = "`";
    for (const int shift : {24, 16, 8, 0}) id += static_cast<char>(kind.BlockId() >> shift);
    EXPECT_NE(page.find(id + "`"), std::string::npos) << id;
  }
}

}  // namespace
}  // namespace vak::test
