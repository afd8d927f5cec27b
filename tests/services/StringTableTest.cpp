#include <gtest/gtest.h>

#include "vakdtm/resources/StringsEnglish.h"
#include "vakdtm/services/text/StringTable.h"

namespace vak {
namespace {

TEST(StringTable, EveryTextIsFoundByItsId) {
  ASSERT_EQ(resources::kStringsEnglish.size(), 48u);
  for (const auto& entry : resources::kStringsEnglish) EXPECT_EQ(LoadString(entry.id), entry.text) << entry.id;
}

TEST(StringTable, TextsStandAsTheyWereGiven) {
  EXPECT_EQ(LoadString(9460), L"Z Average");
  EXPECT_EQ(LoadString(19289), L"Duration");
  EXPECT_EQ(LoadString(19307), L"File Count");
  EXPECT_EQ(LoadString(9477),
            L"Cannot update grid model.\nPlease exit Acquisition and replace the active grid model file:\n%s\n"
            L"by its backup:\n%s");
  EXPECT_EQ(LoadString(19302),
            L"The action can't be completed because the file is open in a grid model layer.\n\n"
            L"Close the file and try again.\n\n'%s'");
}

TEST(StringTable, UnknownIdHasAnEmptyText) {
  for (const int id : {-1, 0, 9459, 9466, 19303, 19308}) EXPECT_EQ(LoadString(id), L"") << id;
}

}  // namespace
}  // namespace vak
