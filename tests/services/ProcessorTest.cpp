#include <gtest/gtest.h>

#include "vakdtm/services/jobs/Processor.h"

namespace vak {
namespace {

class IdleProcessor : public Processor {
 public:
  bool Process() override { return true; }
};

TEST(Processor, StopCountsOnlyWhileStoppingIsAllowed) {
  IdleProcessor processor;
  EXPECT_FALSE(processor.IsStopped());
  processor.SetAllowStop(false);
  processor.Stop();
  EXPECT_FALSE(processor.IsStopped());
  processor.SetAllowStop(true);
  EXPECT_FALSE(processor.IsStopped());
  processor.Stop();
  EXPECT_TRUE(processor.IsStopped());
  processor.SetAllowStop(false);
  EXPECT_FALSE(processor.IsStopped());
}

TEST(Processor, ProgressStaysBetweenNoneAndAll) {
  IdleProcessor processor;
  EXPECT_EQ(processor.GetProgress(), 0.0);
  processor.SetProgress(0.25);
  EXPECT_EQ(processor.GetProgress(), 0.25);
  processor.SetProgress(1.5);
  EXPECT_EQ(processor.GetProgress(), 1.0);
  processor.SetProgress(-1.0);
  EXPECT_EQ(processor.GetProgress(), 0.0);
  processor.SetProgress(0.5);
  processor.ResetProgress();
  EXPECT_EQ(processor.GetProgress(), 0.0);
  EXPECT_TRUE(processor.Initialize());
}

}  // namespace
}  // namespace vak
