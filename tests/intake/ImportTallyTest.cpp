#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "vakdtm/intake/ImportTally.h"

namespace vak {
namespace {

TEST(ImportTally, StartsAtNothing) {
  const ImportTally tally(4);
  EXPECT_EQ(tally.Lines(), 0);
  EXPECT_EQ(tally.Cells(), 0);
  EXPECT_EQ(tally.Areas(), 0);
  EXPECT_THAT(tally.RejectedLines(), testing::IsEmpty());
}

TEST(ImportTally, EveryLineIsCountedOnce) {
  ImportTally tally(4);
  tally.BeginSource();
  for (int i = 0; i < 5; ++i) tally.CountTaken(0, 0, -1.0);
  for (int i = 0; i < 3; ++i) tally.CountSkipped(i, "");
  for (int i = 0; i < 2; ++i) tally.CountRefused(i, "");
  tally.CountNotANumber();
  EXPECT_EQ(tally.Taken(), 5);
  EXPECT_EQ(tally.Skipped(), 3);
  EXPECT_EQ(tally.Refused(), 2);
  EXPECT_EQ(tally.NotANumber(), 1);
  EXPECT_EQ(tally.Lines(), 11);
}

TEST(ImportTally, ACellCountsOnceHoweverOftenAndInWhateverOrder) {
  ImportTally tally(4);
  const struct {
    int row, col;
  } cells[] = {{0, 0}, {3, 3}, {4, 0}, {0, 0}, {-1, -1}, {-4, -4}, {3, 3}, {-5, 0}, {-1, -1}, {0, 3}};
  for (const auto& cell : cells) tally.CountTaken(cell.row, cell.col, 0.0);
  EXPECT_EQ(tally.Cells(), 7);
  EXPECT_EQ(tally.Areas(), 4);
}

TEST(ImportTally, CellsAtTheEndsOfTheLatticeAreToldApart) {
  constexpr int kEdge = 2147483647 - 2 * 64;
  ImportTally tally(64);
  for (const int row : {kEdge, -kEdge, 0}) {
    for (const int col : {kEdge, -kEdge, 0}) tally.CountTaken(row, col, 0.0);
  }
  EXPECT_EQ(tally.Cells(), 9);
  EXPECT_EQ(tally.Areas(), 9);
}

TEST(ImportTally, ManyAreasKeepTheirCells) {
  ImportTally tally(1);
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 1000; ++i) tally.CountTaken(i, -i, 0.0);
  }
  EXPECT_EQ(tally.Cells(), 1000);
  EXPECT_EQ(tally.Areas(), 1000);
}

TEST(ImportTally, TheRangeIsOfTheHeightsTaken) {
  ImportTally tally(4);
  tally.CountTaken(0, 0, -5.0);
  EXPECT_EQ(tally.LowestZ(), -5.0);
  EXPECT_EQ(tally.HighestZ(), -5.0);
  tally.CountTaken(0, 0, 2.5);
  tally.CountTaken(9, 9, -7.25);
  EXPECT_EQ(tally.LowestZ(), -7.25);
  EXPECT_EQ(tally.HighestZ(), 2.5);
}

TEST(ImportTally, TheFirstTenRejectedLinesAreNotedWithoutTheirEnds) {
  ImportTally tally(4);
  tally.BeginSource();
  tally.CountSkipped(3, "heading\r\n");
  tally.BeginSource();
  tally.CountRefused(7, "1e300,0,0\n");
  for (int i = 0; i < 20; ++i) tally.CountSkipped(100 + i, "x");
  const auto& lines = tally.RejectedLines();
  ASSERT_EQ(lines.size(), 10u);
  EXPECT_EQ(lines[0].source, 0);
  EXPECT_EQ(lines[0].line, 3);
  EXPECT_EQ(lines[0].reason, ImportTally::Reason::kNotParsed);
  EXPECT_EQ(lines[0].text, "heading");
  EXPECT_EQ(lines[1].source, 1);
  EXPECT_EQ(lines[1].line, 7);
  EXPECT_EQ(lines[1].reason, ImportTally::Reason::kOutside);
  EXPECT_EQ(lines[1].text, "1e300,0,0");
  EXPECT_EQ(lines[9].line, 107);
  EXPECT_EQ(tally.Skipped(), 21);
}

}  // namespace
}  // namespace vak
