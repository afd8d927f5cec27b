#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "vakdtm/services/files/FileName.h"

#include "support/LongForm.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

TEST(GetCanonicalPathThreadTest, FileThatComesAndGoesHasOneNameAllTheTime) {
  const int looks = LongForm(3000, 100000);
  const test::TestFolder folder;
  const std::filesystem::path file = folder.Path() / "a.dtm";
  const std::wstring name = GetCanonicalPath(folder.WideFile("a.dtm"));
  ASSERT_FALSE(name.empty());
  std::atomic<bool> done{false};
  std::thread changing([&] {
    while (!done) {
      folder.Write("a.dtm", "x");
      std::filesystem::remove(file);
    }
  });
  int wrong = 0;
  for (int i = 0; i < looks; ++i) wrong += GetCanonicalPath(folder.WideFile("a.dtm")) == name ? 0 : 1;
  done = true;
  changing.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace vak
