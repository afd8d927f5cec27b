// Eight accesses of one process on one model, each on a thread of its own: three insert, two read, two fill and empty
// areas, one syncs.
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "vakdtm/store/DtmBufferedUpdater.h"
#include "vakdtm/store/DtmRectUpdater.h"

#include "support/LongForm.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

constexpr int kSpan = 4;
constexpr int kColumns = 20 * kSpan;  // twenty areas a row
constexpr int kInserting = 3;
constexpr int kReading = 2;
constexpr int kEmptying = 2;
constexpr int kAll = kInserting + kReading + kEmptying + 1;

/// All soundings of a cell have its height, which tells which cell it is.
double HeightOf(int row, int col) { return -(row * 1000.0 + col + 1); }

/// Rows of the thread with this number; no two threads change one cell, but all share areas with another.
int RowOf(int thread) { return 2 * thread; }

void Insert(DtmUpdateFile& model, int thread, int rounds) {
  DtmAccess access(&model);
  access.SetUpdater(thread % 2 == 0 ? static_cast<DtmUpdater*>(new DtmRectUpdater(&model))
                                    : new DtmBufferedUpdater(&model, 1));
  const int row = RowOf(thread);
  for (int i = 0; i < rounds * kColumns; ++i) {
    const int col = i * 7 % kColumns;  // jumps from area to area
    EXPECT_TRUE(access.InsertValue(col + 0.5, row + 0.5, HeightOf(row, col), 0, nullptr, nullptr, 0));
  }
}

void FillAndEmpty(DtmUpdateFile& model, int thread, int rounds) {
  DtmAccess access(&model);
  access.SetUpdater(new DtmRectUpdater(&model));
  const int row = 100 + RowOf(thread) * kSpan;  // areas of its own, which come and go
  for (int i = 0; i < rounds; ++i) {
    for (int col = 0; col < kColumns; col += kSpan) {
      EXPECT_TRUE(access.SetDoubleValue(row, col, dVAL, HeightOf(row, col), true));
    }
    if (i + 1 == rounds) return;
    for (int col = 0; col < kColumns; col += kSpan) EXPECT_TRUE(access.MakeCellEmpty(row, col));
  }
}

void ReadUntil(DtmUpdateFile& model, const std::atomic<bool>& done) {
  DtmAccess access(&model);
  while (!done) {
    for (int row = 0; row < 120; ++row) {
      for (int col = 0; col < kColumns; ++col) {
        double value = 0;
        if (!access.GetDoubleValue(row, col, dVAL, value) || IsEmptyValue(value)) continue;
        EXPECT_EQ(value, HeightOf(row, col));
      }
    }
  }
}

TEST(DtmSharedModelThreadTest, EightAccessesInsertReadEmptyAndSyncAndNothingIsLost) {
  const int rounds = LongForm(20, 1000);
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  {
    const SharedModel model = CreateShared(path, {kSpan, 1.0, {dVAL, iNUM}});
    ASSERT_NE(model, nullptr);
    std::atomic<bool> done{false};
    std::latch start(kAll);
    std::vector<std::jthread> working;
    std::vector<std::jthread> others;
    const auto begin = [&](std::vector<std::jthread>& threads, const std::function<void()>& work) {
      threads.emplace_back([&start, work] {
        start.arrive_and_wait();
        work();
      });
    };
    for (int t = 0; t < kInserting; ++t) begin(working, [&, t] { Insert(*model, t, rounds); });
    for (int t = 0; t < kEmptying; ++t) begin(working, [&, t] { FillAndEmpty(*model, t, rounds); });
    for (int t = 0; t < kReading; ++t) begin(others, [&] { ReadUntil(*model, done); });
    begin(others, [&] {
      while (!done) {
        model->OnFileModified();
        DtmManager::GetDtmManager().SyncModified();
      }
    });
    working.clear();  // joins
    done = true;
  }
  const SharedModel model = OpenShared(path, false);
  ASSERT_NE(model, nullptr);
  DtmAccess access(model.get());
  for (int t = 0; t < kInserting; ++t) {
    for (int col = 0; col < kColumns; ++col) {
      double hits = 0;
      double height = 0;
      ASSERT_TRUE(access.GetDoubleValue(RowOf(t), col, iNUM, hits));
      ASSERT_TRUE(access.GetDoubleValue(RowOf(t), col, dVAL, height));
      EXPECT_EQ(hits, rounds);
      EXPECT_EQ(height, HeightOf(RowOf(t), col));
    }
  }
  for (int t = 0; t < kEmptying; ++t) {
    const int row = 100 + RowOf(t) * kSpan;
    for (int col = 0; col < kColumns; ++col) {
      double height = 0;
      ASSERT_TRUE(access.GetDoubleValue(row, col, dVAL, height));
      if (col % kSpan == 0) {
        EXPECT_EQ(height, HeightOf(row, col));
      } else {
        EXPECT_TRUE(IsEmptyValue(height));
      }
    }
  }
}

}  // namespace
}  // namespace vak::test
