// Cursors of several threads on one model. Every test ends by a count.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <latch>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "vakdtm/store/DtmAccess.h"
#include "vakdtm/store/DtmFile.h"

#include "support/GridStreamLog.h"
#include "support/LongForm.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

// A height that tells its cell, so that a torn one or a foreign one shows.
double HeightOf(int row, int col) { return 1000.0 * row + col + 0.25; }

TEST(DtmFileThreadTest, GetAreaMapWithNothingNewTakesNoLock) {
  const auto memory = std::make_shared<MemoryFile>();
  const auto log = std::make_shared<StreamLog>();
  DtmFile file(new LoggedStream(memory, log), true);
  ASSERT_TRUE(file.Open());
  ASSERT_NE(file.GetArea(0, 0, true), nullptr);
  std::map<DtmAreaPos, DtmArea*> map;
  file.GetAreaMap(map);
  // While an area is made, the file lock is held: another thread asks in the middle of it.
  std::future<void> asking;
  bool answered = false;
  log->before = [&](const StreamCall& call) {
    if (call.what != 'w' || asking.valid()) return;
    asking = std::async(std::launch::async, [&] { file.GetAreaMap(map); });
    answered = asking.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  };
  ASSERT_NE(file.GetArea(9999, 0, true), nullptr);
  log->before = nullptr;
  asking.wait();
  EXPECT_TRUE(answered);
  EXPECT_EQ(map.size(), 1u);
  file.Close();
}

/// A file whose threads change over with every call of its stream: what isn't done under one lock comes apart.
struct RestlessFile {
  static constexpr int kSide = 2;

  RestlessFile(const std::shared_ptr<MemoryFile>& memory, bool create) : file(new LoggedStream(memory, log), create) {
    log->before = [](const StreamCall&) { std::this_thread::yield(); };
    file.SetAreaSize(kSide);
    if (!file.Open()) throw std::runtime_error("no model");
  }
  ~RestlessFile() { file.Close(); }

  std::shared_ptr<StreamLog> log = std::make_shared<StreamLog>();
  DtmFile file;
};

/// Areas one above the other, each with one height that tells which.
bool SetHeight(DtmAccess& access, int area) {
  const int row = RestlessFile::kSide * area;
  return access.SetDoubleValue(row, 0, dVAL, HeightOf(row, 0), true);
}

bool HasHeight(DtmAccess& access, int area) {
  const int row = RestlessFile::kSide * area;
  double value = 0;
  return access.GetDoubleValue(row, 0, dVAL, value) && value == HeightOf(row, 0);
}

TEST(DtmFileThreadTest, AreasAreMadeInPlacesOfTheirOwnWhileOthersReadAndSync) {
  const int areas = LongForm(60, 2000);
  const auto memory = std::make_shared<MemoryFile>();
  {
    RestlessFile model(memory, true);
    std::atomic<bool> done{false};
    std::atomic<int> made{0};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
      while (!done.load()) EXPECT_TRUE(model.file.SyncWrite());
    });
    threads.emplace_back([&] {
      DtmAccess access(&model.file);
      access.SetCacheSize(0);
      while (!done.load()) {
        for (int i = 0; i < made.load(); ++i) EXPECT_TRUE(HasHeight(access, i));
      }
    });
    DtmAccess access(&model.file);
    access.SetCacheSize(0);
    for (int i = 0; i < areas; ++i) {
      EXPECT_TRUE(SetHeight(access, i));
      ++made;
    }
    done = true;
    for (std::thread& thread : threads) thread.join();
  }
  TestGrid grid(memory->bytes);
  EXPECT_EQ(grid.File().NumAreas(), areas);
  for (int i = 0; i < areas; ++i) EXPECT_TRUE(HasHeight(grid.Access(), i));
}

TEST(DtmFileThreadTest, AreasThatSeveralThreadsMeetForTheFirstTimeAreReadWhole) {
  constexpr int kThreads = 3;
  const int areas = LongForm(60, 3000);
  const auto memory = std::make_shared<MemoryFile>();
  {
    RestlessFile model(memory, true);
    DtmAccess access(&model.file);
    for (int i = 0; i < areas; ++i) ASSERT_TRUE(SetHeight(access, i));
  }
  RestlessFile model(memory, false);  // the headers of an area are read with its first cell
  std::latch start(kThreads);
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      DtmAccess access(&model.file);
      start.arrive_and_wait();
      for (int i = t; i < areas; i += kThreads) right += HasHeight(access, i) ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, areas);
}

TEST(DtmAccessThreadTest, WhoeverHoldsTheAreaLockNeverSeesAHitCountWithoutItsMean) {
  const int looks = LongForm(200, 5000);  // in the midst of the writing
  TestGrid grid;
  grid.File().GetArea(0, 0, true);
  std::atomic<bool> done{false};
  std::atomic<int> seen{0};
  std::thread reader([&] {
    DtmAccess access(&grid.File());
    DtmArea* const area = access.GetArea(0, 0, false);
    do {
      const std::scoped_lock lock(area->Mutex());
      double count = 0;
      double mean = 0;
      if (!access.GetDoubleValue(0, 0, iNUM, count) || !access.GetDoubleValue(0, 0, dVAL, mean)) continue;
      if (IsEmptyValue(count)) continue;
      // Sounding n has height n, so the mean of the first n is (n + 1) / 2.
      if (std::abs(mean - (count + 1) / 2) > 0.1) ADD_FAILURE() << count << " " << mean;
      ++seen;
    } while (!done.load());
  });
  int soundings = 0;
  while (seen.load() < looks) EXPECT_TRUE(grid.Sound(0.5, 0.5, ++soundings));
  done = true;
  reader.join();
  EXPECT_EQ(grid.Get(0, 0, iNUM), soundings);
}

TEST(DtmAccessThreadTest, WhoeverHoldsTheAreaLockSeesACellReplacedOrEmptiedInAllItsBlocks) {
  const int looks = LongForm(20, 1000);  // that find the cell otherwise than the one before
  // The two blocks that are compared are the first and the last to be changed, with as much between them as there is.
  TestGrid grid({.cellSize = 1.0,
                 .areaSize = 4,
                 .blockIds = {iNUM, dVAL, dSDV, dMIN, fXMN, fYMN, dMAX, fXMX, fYMX, tTIM, dTVU, dTHU, uFCT}});
  ASSERT_TRUE(grid.Access().SetValue(0.5, 0.5, -1.0, 0, nullptr, nullptr, 1));
  std::atomic<bool> done{false};
  std::atomic<int> seen{0};
  std::thread reader([&] {
    DtmAccess access(&grid.File());
    DtmArea* const area = access.GetArea(0, 0, false);
    bool wasEmpty = false;
    do {
      const std::scoped_lock lock(area->Mutex());
      double count = 0;
      double bits = 0;
      float lowest = 0;
      float highest = 0;
      EXPECT_TRUE(access.GetDoubleValue(0, 0, iNUM, count));
      EXPECT_TRUE(access.GetDoubleValue(0, 0, uFCT, bits));
      EXPECT_EQ(IsEmptyValue(count), IsEmptyValue(bits));
      EXPECT_TRUE(area->GetMinMaxZ(lowest, highest));
      // The heights go down one by one, and the range is to be as wide as the cell that is seen asks for.
      double height = 0;
      EXPECT_TRUE(access.GetDoubleValue(0, 0, dVAL, height));
      EXPECT_TRUE(IsEmptyValue(height) || lowest <= static_cast<float>(height));
      if (std::exchange(wasEmpty, IsEmptyValue(count)) != wasEmpty) ++seen;
    } while (!done.load());
  });
  for (int i = 2; seen.load() < looks; ++i) {
    EXPECT_TRUE(grid.Access().SetValue(0.5, 0.5, -i, 0, nullptr, nullptr, 1));
    EXPECT_TRUE(grid.Access().MakeCellEmpty(0, 0));
  }
  done = true;
  reader.join();
}

TEST(DtmAccessThreadTest, RangeOfAnAreaCoversWhatSeveralThreadsStore) {
  constexpr int kThreads = 2;
  const int heights = LongForm(2000, 100000);
  using Store = bool (*)(DtmAccess& access, int col, double z);
  static constexpr std::pair<const char*, Store> kWays[] = {
      {"InsertValue", [](DtmAccess& access, int col,
                         double z) { return access.InsertValue(col + 0.5, 0.5, z, 0, nullptr, nullptr, 0); }},
      {"SetValue",
       [](DtmAccess& access, int col, double z) { return access.SetValue(col + 0.5, 0.5, z, 0, nullptr, nullptr, 0); }},
      {"SetDoubleValue",
       [](DtmAccess& access, int col, double z) { return access.SetDoubleValue(0, col, dVAL, z, true); }},
  };
  for (const auto& way : kWays) {
    SCOPED_TRACE(way.first);
    TestGrid grid;
    ASSERT_NE(grid.File().GetArea(0, 0, true), nullptr);
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        DtmAccess access(&grid.File());
        EXPECT_TRUE(way.second(access, t, 0));  // what has to be opened is open then, and no other lock is met
        start.arrive_and_wait();
        for (int i = 1; i <= heights; ++i) {
          EXPECT_TRUE(way.second(access, t, i + 0.5 * t));
          EXPECT_TRUE(way.second(access, t, -i - 0.5 * t));
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    float lowest = 0;
    float highest = 0;
    EXPECT_TRUE(grid.Area(0, 0)->GetMinMaxZ(lowest, highest));
    EXPECT_EQ(lowest, -(heights + 0.5));
    EXPECT_EQ(highest, heights + 0.5);
  }
}

// A run of one writer and some readers over cells that prove themselves; the same scaffold without threads first.
void WriteAll(DtmFile& file, int side) {
  DtmAccess access(&file);
  access.SetCacheSize(1);
  for (int row = -side; row < side; ++row) {
    for (int col = -side; col < side; ++col) {
      ASSERT_TRUE(access.SetDoubleValue(row, col, dVAL, HeightOf(row, col), true));
    }
  }
}

int ReadAll(DtmFile& file, int side) {
  DtmAccess access(&file);
  access.SetCacheSize(2);
  int found = 0;
  for (int row = -side; row < side; ++row) {
    for (int col = -side; col < side; ++col) {
      double value = 0;
      if (!access.GetDoubleValue(row, col, dVAL, value) || IsEmptyValue(value)) continue;
      EXPECT_EQ(value, HeightOf(row, col));
      ++found;
    }
  }
  return found;
}

TEST(DtmAccessThreadTest, OneThreadReadsWhatItWrote) {
  TestGrid grid;
  WriteAll(grid.File(), 8);
  EXPECT_EQ(ReadAll(grid.File(), 8), 256);
}

TEST(DtmAccessThreadTest, ReadersSeeWholeValuesOfTheRightCellsWhileOneWritesAndSyncs) {
  const int passes = LongForm(20, 500);  // of the readers, in the midst of the writing
  TestGrid grid;
  std::atomic<bool> done{false};
  std::atomic<int> read{0};
  std::atomic<int> synced{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!done.load()) {
        ReadAll(grid.File(), 8);
        ++read;
      }
    });
  }
  threads.emplace_back([&] {
    while (!done.load()) {
      EXPECT_TRUE(grid.File().SyncWrite());
      ++synced;
    }
  });
  do {  // the others may have done their passes over an empty model before the first one
    WriteAll(grid.File(), 8);
  } while (read.load() < passes || synced.load() < passes);
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ReadAll(grid.File(), 8), 256);
  grid.Reopen();
  EXPECT_EQ(ReadAll(grid.File(), 8), 256);
}

TEST(DtmAccessThreadTest, WritersInTheSameAreasLoseNoSounding) {
  constexpr int kThreads = 4;
  const int soundings = LongForm(20000, 500000);
  TestGrid grid({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL, iNUM, dMIN, dMAX}});
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      DtmAccess access(&grid.File());
      start.arrive_and_wait();
      access.SetCacheSize(static_cast<std::uint64_t>(t));
      for (int i = 0; i < soundings; ++i) {
        ASSERT_TRUE(access.InsertValue(i % 6, i % 5, -10.0 - t, 0, nullptr, nullptr, 0));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  double total = 0;
  for (int row = 0; row < 5; ++row) {
    for (int col = 0; col < 6; ++col) {
      total += grid.Get(row, col, iNUM);
      EXPECT_EQ(grid.Get(row, col, dMIN), -10 - (kThreads - 1));
      EXPECT_EQ(grid.Get(row, col, dMAX), -10);
    }
  }
  EXPECT_EQ(total, double{kThreads} * soundings);
}

TEST(DtmAccessThreadTest, CopiesGoToOtherThreadsAndAreClosedThere) {
  TestGrid grid;
  WriteAll(grid.File(), 8);
  double value = 0;
  ASSERT_TRUE(grid.Access().GetDoubleValue(0, 0, dVAL, value));
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&right, copy = std::make_unique<DtmAccess>(grid.Access())] {
      for (int at = -8; at < 8; ++at) {
        double own = 0;
        if (copy->GetDoubleValue(at, at, dVAL, own) && own == HeightOf(at, at)) ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 64);
}

TEST(DtmAccessThreadTest, RefreshingGoesOverCellsThatAnotherThreadLooksAt) {
  const int rounds = LongForm(200, 5000);
  TestGrid writer({.cellSize = 1.0, .areaSize = 2, .blockIds = {dVAL}});
  for (int col = 0; col < 4; ++col) ASSERT_TRUE(writer.Set(0, col, dVAL, HeightOf(0, col)));
  ASSERT_TRUE(writer.File().SyncWrite());
  DtmFile reader(new MemoryStream(writer.Shared()), false);
  ASSERT_TRUE(reader.Open());
  {
    DtmAccess access(&reader);
    double value = 0;
    // From here on both areas are resident: the other thread never touches the stream.
    for (int col = 0; col < 4; ++col) ASSERT_TRUE(access.GetDoubleValue(0, col, dVAL, value));
    std::atomic<bool> done{false};
    std::thread looking([&] {
      while (!done.load()) {
        for (int col = 0; col < 4; ++col) {
          double seen = 0;
          EXPECT_TRUE(access.GetDoubleValue(0, col, dVAL, seen));
          EXPECT_TRUE(seen == HeightOf(0, col) || seen == HeightOf(0, col) + 100) << seen;
        }
      }
    });
    for (int i = 1; i <= rounds; ++i) {
      for (int col = 0; col < 4; ++col) EXPECT_TRUE(writer.Set(0, col, dVAL, HeightOf(0, col) + i % 2 * 100));
      EXPECT_TRUE(writer.File().SyncWrite());
      for (int area = 0; area < 2; ++area) EXPECT_TRUE(reader.GetArea(area)->SyncRead(i));
    }
    done = true;
    looking.join();
    for (int col = 0; col < 4; ++col) {
      ASSERT_TRUE(access.GetDoubleValue(0, col, dVAL, value));
      EXPECT_EQ(value, HeightOf(0, col) + rounds % 2 * 100);
    }
    ASSERT_TRUE(writer.Set(0, 0, dVAL, 77));
    ASSERT_TRUE(writer.File().SyncWrite());
    ASSERT_TRUE(reader.GetArea(0)->SyncRead(0));
    ASSERT_TRUE(access.GetDoubleValue(0, 0, dVAL, value));
    EXPECT_EQ(value, 77);
  }
  reader.Close();
}

TEST(DtmAccessThreadTest, ChangesOfACellWaitForTheAreaLock) {
  TestGrid grid;
  ASSERT_TRUE(grid.Sound(0.5, 0.5, -1));
  DtmArea* const area = grid.Area(0, 0);
  const std::pair<const char*, std::function<bool(DtmAccess&)>> cases[] = {
      {"InsertValue", [](DtmAccess& access) { return access.InsertValue(0.5, 0.5, -2, 0, nullptr, nullptr, 0); }},
      {"SetValue", [](DtmAccess& access) { return access.SetValue(0.5, 0.5, -2, 0, nullptr, nullptr, 0); }},
      {"SetDoubleValue", [](DtmAccess& access) { return access.SetDoubleValue(0, 0, iNUM, 7, false); }},
      {"MakeCellEmpty", [](DtmAccess& access) { return access.MakeCellEmpty(0, 0); }},
      {"ClearCellData", [](DtmAccess& access) { return access.ClearCellData(0, 0, dVAL); }}};
  for (const auto& [name, change] : cases) {
    SCOPED_TRACE(name);
    // All blocks are open before, so that nothing but the change itself needs the lock.
    DtmAccess access(&grid.File());
    ASSERT_TRUE(access.InsertValue(0.5, 0.5, -1, 0, nullptr, nullptr, 0));
    std::unique_lock lock(area->Mutex());
    std::latch running(1);
    std::future<bool> changing = std::async(std::launch::async, [&, act = &change] {
      running.count_down();
      return (*act)(access);
    });
    running.wait();
    EXPECT_EQ(changing.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    lock.unlock();
    EXPECT_TRUE(changing.get());
  }
}

TEST(DtmAccessThreadTest, SoundingsInAnAreaGoOnWhileAnotherThreadMakesOne) {
  const auto memory = std::make_shared<MemoryFile>();
  const auto log = std::make_shared<StreamLog>();
  DtmFile file(new LoggedStream(memory, log), true);
  ASSERT_TRUE(file.Open());
  {
    DtmAccess access(&file);
    ASSERT_TRUE(access.InsertValue(0.5, 0.5, 1, 0, nullptr, nullptr, 0));
    // File lock and stream lock are held for as long as the write takes.
    std::future<int> sounding;
    bool finished = false;
    log->before = [&](const StreamCall& call) {
      if (call.what != 'w' || sounding.valid()) return;
      sounding = std::async(std::launch::async, [&] {
        int taken = 0;
        for (int i = 0; i < 100; ++i) taken += access.InsertValue(i % 64, i % 7, i, 0, nullptr, nullptr, 0) ? 1 : 0;
        return taken;
      });
      finished = sounding.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    };
    ASSERT_NE(file.GetArea(9999, 0, true), nullptr);
    log->before = nullptr;
    EXPECT_EQ(sounding.get(), 100);
    EXPECT_TRUE(finished);
  }
  file.Close();
}

TEST(DtmFileThreadTest, TwoThreadsThatWriteOutWhileAThirdSetsAndClearsComeToAnEnd) {
  constexpr int kCols = 8;
  const int rounds = LongForm(400, 10000);
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL, iNUM}});
  std::latch start(3);
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      for (int round = 0; round < rounds; ++round) EXPECT_TRUE(grid.File().SyncWrite());
    });
  }
  std::vector<double> wanted(kCols, EmptyDouble());
  threads.emplace_back([&] {
    DtmAccess access(&grid.File());
    access.SetCacheSize(1);
    start.arrive_and_wait();
    for (int round = 0; round < rounds; ++round) {
      const int set = round % kCols;
      const int cleared = (round * 5 + 3) % kCols;
      ASSERT_TRUE(access.SetDoubleValue(0, set, dVAL, round, true));
      wanted[static_cast<std::size_t>(set)] = round;
      ASSERT_TRUE(access.MakeCellEmpty(0, cleared));
      wanted[static_cast<std::size_t>(cleared)] = EmptyDouble();
    }
  });
  for (std::thread& thread : threads) thread.join();
  const auto expectAll = [&] {
    for (int col = 0; col < kCols; ++col) {
      const double value = wanted[static_cast<std::size_t>(col)];
      EXPECT_TRUE(IsEmptyValue(value) ? IsEmptyValue(grid.Get(0, col)) : grid.Get(0, col) == value) << col;
    }
  };
  expectAll();
  EXPECT_TRUE(grid.File().SyncWrite());
  grid.Reopen();
  expectAll();
}

TEST(DtmFileThreadTest, AreaThatIsMadeWhileAnEmptiedOneIsRemovedIsNeverLost) {
  constexpr int kCols = 8;
  const int rounds = LongForm(400, 5000);
  TestGrid grid({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL}});
  for (int col = 0; col < kCols; ++col) ASSERT_TRUE(grid.Set(0, col, dVAL, HeightOf(0, col)));
  for (int round = 0; round < rounds; ++round) {
    const int emptied = round % kCols;
    ASSERT_TRUE(grid.Clear(0, emptied));
    grid.Leave();
    std::latch start(2);
    std::thread maker([&] {
      DtmAccess access(&grid.File());
      start.arrive_and_wait();
      EXPECT_TRUE(access.SetDoubleValue(1, round, dVAL, HeightOf(1, round), true));
    });
    start.arrive_and_wait();
    EXPECT_TRUE(grid.File().SyncWrite());
    maker.join();
    ASSERT_TRUE(grid.Set(0, emptied, dVAL, HeightOf(0, emptied)));
    if (round % 16 == 0) grid.Reopen();
  }
  grid.Reopen();
  EXPECT_EQ(grid.File().NumAreas(), kCols + rounds);
  int found = 0;
  for (int col = 0; col < kCols; ++col) found += grid.Get(0, col) == HeightOf(0, col) ? 1 : 0;
  for (int round = 0; round < rounds; ++round) found += grid.Get(1, round) == HeightOf(1, round) ? 1 : 0;
  EXPECT_EQ(found, kCols + rounds);
}

}  // namespace
}  // namespace vak::test
