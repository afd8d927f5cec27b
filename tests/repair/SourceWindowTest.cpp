#include <gtest/gtest.h>

#include "vakdtm/repair/SourceWindow.h"

namespace vak {
namespace {

TEST(SourceWindow, PaysUnlessTheAreasAreTooSmallOrTheWindowTooLarge) {
  const struct {
    const char* name;
    int areaSize, margin;
    bool pays;
  } cases[] = {
      {"usual", 64, 10, true},
      {"no margin", 16, 0, true},
      {"areas of a cell, the next ones", 1, 1, true},
      {"areas of a cell, the ones behind them", 1, 2, false},
      {"11 areas on a side of four cells", 4, 20, false},
      {"5 areas on a side of four cells", 4, 8, true},
      {"8192 cells", 4192, 2000, true},
      {"8194 cells", 4194, 2000, false},
      {"more cells than the type can tell", 60000, 2000, false},
  };
  for (const auto& c : cases) EXPECT_EQ(SourceWindow::Pays(c.areaSize, c.margin), c.pays) << c.name;
}

}  // namespace
}  // namespace vak
