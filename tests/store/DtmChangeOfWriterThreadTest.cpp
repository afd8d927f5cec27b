#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

#include "support/OtherWriter.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

TEST(DtmChangeOfWriterThreadTest, WhoInsertsWhileTheModelBecomesWritableGoesOverNothing) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  for (int round = 0; round < 20; ++round) {
    auto writer = std::make_unique<OtherWriter>(path, true);
    for (int i = 0; i < 5; ++i) writer->Set(0, kSpan * i, 100 + i);
    writer->Publish();
    SharedModel model = OpenShared(path, false);
    ASSERT_NE(model, nullptr);
    for (int i = 5; i < 30; ++i) writer->Set(0, kSpan * i, 100 + i);
    writer.reset();
    std::atomic<bool> started{false};
    std::thread inserting([&] {
      DtmAccess access(model.get());
      for (int i = 0; i < 5;) {
        if (access.SetDoubleValue(800, kSpan * i, dVAL, 9000 + i, true)) ++i;
        started = true;
      }
    });
    while (!started) std::this_thread::yield();
    EXPECT_TRUE(model->MakeReadWrite(true));
    inserting.join();
    model.reset();
    for (int i = 0; i < 30; ++i) ASSERT_EQ(InTheFile(path, 0, kSpan * i), 100 + i) << "round " << round;
    for (int i = 0; i < 5; ++i) ASSERT_EQ(InTheFile(path, 800, kSpan * i), 9000 + i) << "round " << round;
  }
}

}  // namespace
}  // namespace vak::test
