#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "vakdtm/services/text/CVakCsvString.h"
#include "vakdtm/services/text/LocaleSeparators.h"

namespace vak {
namespace {

class CVakCsvStringMarks : public testing::Test {
 protected:
  ~CVakCsvStringMarks() override { SetLocaleSeparators({}); }

  static CVakCsvString LineWith(const std::wstring& decimal, const std::wstring& list) {
    SetLocaleSeparators(LocaleSeparators{decimal, list});
    return {};
  }
};

TEST_F(CVakCsvStringMarks, ItemsAreJoinedInOrderWhateverTheOrderOfSetting) {
  CVakCsvString line = LineWith(L".", L",");
  EXPECT_EQ(line.GetString(), L"");
  line.SetItem(2, L"c");
  line.SetItem(0, L"a");
  EXPECT_EQ(line.GetString(), L"a,,c");
  line.SetItem(2, L"");
  EXPECT_EQ(line.GetString(), L"a,,");
  line.Clear();
  EXPECT_EQ(line.GetString(), L"");
  line.Set(0, L"1");
  EXPECT_EQ(line.GetString(), L"1");
}

TEST_F(CVakCsvStringMarks, NumbersGetTheLocalMarkAndTextsStay) {
  CVakCsvString line = LineWith(L",", L";");
  line.SetItem(0, L"harbour v1.2");
  line.Set(1, L"-12.345");
  line.Set(2, line.AdjustToLocalDecimal(L"-12.345"));
  EXPECT_EQ(line.GetString(), L"harbour v1.2;-12,345;-12,345");
  EXPECT_EQ(line.AdjustToLocalDecimal(L"1.5"), L"1,5");
}

TEST_F(CVakCsvStringMarks, ItemThatCouldBeTakenForTwoIsQuoted) {
  CVakCsvString line = LineWith(L",", L";");
  line.SetItem(0, L"a;b");
  line.SetItem(1, L"say \"c\"");
  line.SetItem(2, L"d\ne");
  line.SetItem(3, L"f,g h\t");
  line.SetItem(4, L"i\rj");
  EXPECT_EQ(line.GetString(), L"\"a;b\";\"say \"\"c\"\"\";\"d\ne\";f,g h\t;\"i\rj\"");
  // A mark that parts items as well makes numbers be quoted.
  CVakCsvString same = LineWith(L",", L",");
  same.Set(0, L"1.5");
  same.Set(1, L"2");
  EXPECT_EQ(same.GetString(), L"\"1,5\",2");
}

TEST_F(CVakCsvStringMarks, ItemsBeyondTheMostAreNotSet) {
  CVakCsvString line = LineWith(L".", L",");
  line.SetItem(0, L"a");
  for (const std::size_t index : {CVakCsvString::kMostItems, std::numeric_limits<std::size_t>::max()}) {
    line.SetItem(index, L"b");
    line.Set(index, L"1");
  }
  EXPECT_EQ(line.GetString(), L"a");
  line.SetItem(CVakCsvString::kMostItems - 1, L"b");
  EXPECT_EQ(line.GetString(), L"a" + std::wstring(CVakCsvString::kMostItems - 1, L',') + L"b");
}

TEST_F(CVakCsvStringMarks, SeparatorMayBeLongOrMissing) {
  CVakCsvString longer = LineWith(L".", L" | ");
  longer.SetItem(0, L"a|b");
  longer.SetItem(1, L"c | d");
  EXPECT_EQ(longer.GetString(), L"a|b | \"c | d\"");
  CVakCsvString none = LineWith(L".", L"");
  none.SetItem(0, L"a");
  none.SetItem(1, L"b");
  EXPECT_EQ(none.GetString(), L"ab");
}

TEST_F(CVakCsvStringMarks, LineKeepsTheMarksThatItWasBuiltWith) {
  CVakCsvString line = LineWith(L",", L";");
  SetLocaleSeparators(LocaleSeparators{L".", L","});
  line.Set(0, L"1.5");
  line.Set(1, L"2.5");
  EXPECT_EQ(line.GetString(), L"1,5;2,5");
}

}  // namespace
}  // namespace vak
