#include <gtest/gtest.h>

#include "LineProgress.h"

namespace vak {
namespace {

TEST(LineProgress, IsThatOfTracingAndOfWriting) {
  LineProgress progress(10, 4);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 0);
  progress.Traced(0, 5);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 0.5 * 0.5 / 4);
  progress.Traced(2, 0);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 0.25);
  progress.Written(1, 3, 4);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 0.25 + 0.5 * 1.75 / 4);
  progress.Traced(4, 0);
  progress.Written(4, 0, 0);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 1);
}

TEST(LineProgress, OfASingleStepMovesWithItsAreasAndItsLines) {
  LineProgress progress(100, 1);
  double before = -1;
  for (int areas = 0; areas <= 100; areas += 20) {
    progress.Traced(0, areas);
    EXPECT_GT(progress.Fraction(), before);
    before = progress.Fraction();
  }
  EXPECT_DOUBLE_EQ(before, 0.5);
  for (std::size_t lines = 1; lines <= 7; ++lines) {
    progress.Written(0, lines, 7);
    EXPECT_GT(progress.Fraction(), before);
    before = progress.Fraction();
  }
  EXPECT_DOUBLE_EQ(before, 1);
}

TEST(LineProgress, ReadingComesFirstWhereThereIsAny) {
  LineProgress progress(4, 1);
  progress.Read(2);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 0.1);
  progress.Read(4);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 0.2);
  progress.SetSteps(2);
  progress.Traced(1, 0);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 0.2 + 0.8 * 0.25);
}

TEST(LineProgress, NeverPassesTheEnd) {
  LineProgress progress(0, 0);
  progress.Traced(0, 3);
  progress.Written(0, 0, 0);
  EXPECT_DOUBLE_EQ(progress.Fraction(), 1);
  LineProgress grown(2, 1);
  grown.Traced(0, 3);
  EXPECT_DOUBLE_EQ(grown.Fraction(), 0.5) << "somebody adds areas meanwhile";
}

}  // namespace
}  // namespace vak
