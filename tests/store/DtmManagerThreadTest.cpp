// Threads that open, change and close the models of the one manager. Every test ends by a count.
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "vakdtm/services/geometry/Page.h"

#include "support/LongForm.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

constexpr int kThreads = 4;

void InThreads(const std::function<void(int)>& work) {
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      work(t);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(DtmManagerThreadTest, ThreadsThatOpenOneFileShareOneModel) {
  const int rounds = LongForm(20, 500);
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  ASSERT_NE(CreateShared(path), nullptr);
  // The model comes and goes: whoever closes it last writes it, and the next one reads it again.
  InThreads([&](int) {
    for (int i = 0; i < rounds; ++i) {
      const SharedModel model = OpenShared(path, true);
      ASSERT_NE(model, nullptr);
      EXPECT_TRUE(Sound(*model, 0.5, 0.5, -1.0));
    }
  });
  const SharedModel model = OpenShared(path, false);
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(model->OpenCount(), 1);
  EXPECT_EQ(ValueAt(*model, 0.5, 0.5, iNUM), kThreads * rounds);
}

TEST(DtmUpdateFileThreadTest, RectanglesOfSeveralThreadsAreAllAnnounced) {
  const int rects = LongForm(2000, 100000);
  const TestFolder folder;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  ASSERT_NE(model, nullptr);
  RectListener views(*model);  // heard under the rectangle's lock
  InThreads([&](int t) {
    for (int i = 0; i < rects; ++i) {
      const double left = t * rects + i;
      model->AddUpdateRect(Page(left, 0, left + 1, 1), i == 0);
    }
  });
  model->FlushUpdateRect();
  ASSERT_FALSE(views.heard.empty());
  Page all = views.heard.front().rect;
  bool flag = false;
  for (const RectListener::Heard& one : views.heard) {
    EXPECT_TRUE(one.pending);
    all |= one.rect;
    flag = flag || one.flag;
  }
  EXPECT_EQ(all.left(), 0);
  EXPECT_EQ(all.right(), kThreads * rects);
  EXPECT_TRUE(flag);
}

}  // namespace
}  // namespace vak::test
