#include <gtest/gtest.h>

#include "vakdtm/store/CellValue.h"
#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmBlockId.h"
#include "vakdtm/store/DtmFile.h"

#include "support/MemoryStream.h"

namespace vak::test {
TEST(DtmFile, SmokeRoundTrip) {
  auto file = std::make_shared<MemoryFile>();
  for (int rep = 0; rep < 3; ++rep) {
    DtmFile dtm(new MemoryStream(file), rep == 0);
    ASSERT_TRUE(dtm.Open());
    {
      DtmAccess access(&dtm);
      for (int i = -5; i < 5; ++i) ASSERT_TRUE(access.InsertValue(i * 40.5, i * 33.0, 1.0 * i, 5, nullptr, nullptr, 0));
    }
    EXPECT_EQ(dtm.Close(), 0);
  }
  DtmFile dtm(new MemoryStream(file), false);
  ASSERT_TRUE(dtm.Open());
  EXPECT_EQ(dtm.OpenedBy(), DtmOpenedBy::kIndex);
  DtmAccess access(&dtm);
  double v = 0;
  ASSERT_TRUE(access.GetDoubleValue(-66, -81, iNUM, v));
  EXPECT_EQ(v, 3);
  ASSERT_TRUE(access.GetDoubleValue(-66, -81, dVAL, v));
  EXPECT_EQ(v, -2);
}
}  // namespace vak::test
