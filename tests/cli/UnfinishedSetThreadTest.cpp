#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <thread>

#include "LineFormat.h"
#include "UnfinishedSet.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

class UnfinishedSetThreadTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.File(name); }

  /// Replaces the set by one whose files all hold this text.
  bool Replace(const std::string& text) const {
    UnfinishedSet set;
    if (!set.Make(Path("a.shp"), *FindLineFormat("a.shp"))) return false;
    for (const char* ending : {".shp", ".shx", ".dbf"}) {
      std::ofstream(set.Path().substr(0, set.Path().rfind('.')) + ending) << text;
    }
    return set.Commit();
  }

  /// @return the number that the file holds; a high one when it isn't there.
  int Number(const std::string& name) const {
    std::ifstream in(Path(name));
    int number = 1 << 30;
    if (in) in >> number;
    return number;
  }

  test::TestFolder folder_;
};

TEST_F(UnfinishedSetThreadTest, NobodySeesAnOldFileBesideANewCompanionOrTheOtherWayRound) {
  constexpr int kRounds = 150;
  ASSERT_TRUE(Replace("1"));
  std::atomic<bool> done{false};
  std::atomic<int> mixed{0};
  std::atomic<int> looks{0};
  std::thread reader([&] {
    while (!done) {
      for (const char* companion : {"a.shx", "a.dbf"}) {
        // What is read later can't be older.
        const int before = Number(companion);
        const int file = Number("a.shp");
        if (before != 1 << 30 && file < before) ++mixed;
        const int after = Number(companion);
        if (file != 1 << 30 && after < file) ++mixed;
      }
      ++looks;
    }
  });
  while (looks == 0) std::this_thread::yield();
  for (int round = 2; round < kRounds; ++round) EXPECT_TRUE(Replace(std::to_string(round)));
  done = true;
  reader.join();
  EXPECT_EQ(mixed, 0);
}

TEST_F(UnfinishedSetThreadTest, OfTwoThatReplaceOneSetAllFilesAreFromOne) {
  for (int round = 0; round < 60; ++round) {
    std::atomic<int> ready{0};
    const auto replace = [&](const char* text) {
      ++ready;
      while (ready < 2) std::this_thread::yield();
      EXPECT_TRUE(Replace(text));
    };
    std::thread other(replace, "1");
    replace("2");
    other.join();
    EXPECT_EQ(Number("a.shp"), Number("a.dbf"));
    EXPECT_EQ(Number("a.shp"), Number("a.shx"));
  }
}

}  // namespace
}  // namespace vak
