#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "UnfinishedFile.h"
#include "support/TestFolder.h"

namespace vak {
namespace {

namespace fs = std::filesystem;
using Existing = UnfinishedFile::Existing;

class UnfinishedFileTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.File(name); }

  std::size_t Files() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_.Path()), fs::directory_iterator()));
  }

  static bool Fill(UnfinishedFile& file, const std::string& target, const std::string& text) {
    const int descriptor = file.Make(target);
    if (descriptor < 0) return false;
    const bool written = write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    return close(descriptor) == 0 && written;
  }

  test::TestFolder folder_;
};

TEST_F(UnfinishedFileTest, TakesTheTargetsPlaceWhenItIsCommitted) {
  for (const Existing existing : {Existing::kReplace, Existing::kRefuse}) {
    fs::remove(Path("a"));
    UnfinishedFile file;
    ASSERT_TRUE(Fill(file, Path("a"), "new"));
    EXPECT_FALSE(folder_.Has("a"));
    EXPECT_TRUE(file.Commit(existing));
    EXPECT_EQ(folder_.Text("a"), "new");
    EXPECT_EQ(file.Path(), "");
    EXPECT_EQ(Files(), 1u);
  }
}

TEST_F(UnfinishedFileTest, WhatAppearedMeanwhileStaysWhenItIsRefused) {
  {
    UnfinishedFile file;
    ASSERT_TRUE(Fill(file, Path("a"), "new"));
    folder_.Write("a", "another's");
    EXPECT_FALSE(file.Commit(Existing::kRefuse));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(folder_.Text("a"), "another's");
  }
  EXPECT_EQ(Files(), 1u) << "the unfinished one is gone";
}

TEST_F(UnfinishedFileTest, ALinkThatAppearedMeanwhileIsRefusedToo) {
  UnfinishedFile file;
  ASSERT_TRUE(Fill(file, Path("a"), "new"));
  fs::create_symlink("nowhere", Path("a"));
  EXPECT_FALSE(file.Commit(Existing::kRefuse));
  EXPECT_TRUE(fs::is_symlink(Path("a")));
}

TEST_F(UnfinishedFileTest, OneThatAKilledProcessLeftIsPassedOverAndStays) {
  // The name that this process would take first.
  const std::string left = ".vakdtm-" + std::to_string(getpid()) + "-0.part";
  folder_.Write(left, "left");
  UnfinishedFile file;
  ASSERT_TRUE(Fill(file, Path("a"), "new"));
  EXPECT_NE(file.Path(), Path(left));
  EXPECT_TRUE(file.Commit(Existing::kReplace));
  EXPECT_EQ(folder_.Text("a"), "new");
  EXPECT_EQ(folder_.Text(left), "left");
}

TEST_F(UnfinishedFileTest, WhereThereCanBeNoFileNothingIsMade) {
  UnfinishedFile file;
  EXPECT_LT(file.Make(Path("none/a")), 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(file.Path(), "");
  EXPECT_EQ(Files(), 0u);
}

}  // namespace
}  // namespace vak
