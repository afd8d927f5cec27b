#include <chrono>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/vfs.h>

#include "vakdtm/services/platform/FileEvents.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

namespace fs = std::filesystem;
using test::TestFolder;

TEST(FileEvents, OnlyFileSystemsThatAreThisMachinesAloneAreTrusted) {
  const struct {
    const char* name;
    std::uint32_t type;
    bool own;
  } kCases[] = {
      {"ext4", 0xEF53, true},      {"xfs", 0x58465342, true},      {"btrfs", 0x9123683E, true},
      {"tmpfs", 0x01021994, true}, {"fat", 0x4D44, true},          {"nfs", 0x6969, false},
      {"smb", 0x517B, false},      {"cifs", 0xFF534D42, false},    {"smb2", 0xFE534D42, false},
      {"fuse", 0x65735546, false}, {"9p", 0x01021997, false},      {"ceph", 0x00C36400, false},
      {"gfs2", 0x01161970, false}, {"overlay", 0x794C7630, false}, {"one that nobody knows", 0x12345678, false},
      {"none", 0, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(IsOwnFileSystem(c.type), c.own);
  }
}

TEST(FileEvents, FolderIsAskedForItsFileSystem) {
  const TestFolder folder;
  struct statfs info{};
  ASSERT_EQ(statfs(folder.Path().c_str(), &info), 0);
  EXPECT_EQ(DeliversEvents(folder.File("")), IsOwnFileSystem(static_cast<std::uint32_t>(info.f_type)));
  EXPECT_FALSE(DeliversEvents("/proc/self/"));
  EXPECT_FALSE(DeliversEvents(folder.File("not-there/")));
  {
    const ScopedDeliversEvents all(true);
    EXPECT_TRUE(DeliversEvents("/proc/self/"));
  }
  {
    const ScopedDeliversEvents none(false);
    EXPECT_FALSE(DeliversEvents(folder.File("")));
  }
  EXPECT_FALSE(DeliversEvents("/proc/self/"));
}

TEST(FileEvents, StampTellsWhatChanges) {
  const TestFolder folder;
  const std::string file = folder.Write("a", "one");
  EXPECT_FALSE(LookAtFile(folder.File("not-there")).there);
  EXPECT_EQ(LookAtFile(folder.File("not-there")), FileStamp());
  const FileStamp before = LookAtFile(file);
  EXPECT_TRUE(before.there);
  EXPECT_EQ(before.size, 3u);
  EXPECT_EQ(LookAtFile(file), before);
  folder.Write("a", "more");
  EXPECT_EQ(LookAtFile(file).size, 4u);
  fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
  EXPECT_LT(LookAtFile(file).modified, before.modified);
  folder.Write("b", "more");
  fs::last_write_time(folder.File("b"), fs::last_write_time(file));
  const FileStamp other = LookAtFile(folder.File("b"));
  EXPECT_EQ(other.modified, LookAtFile(file).modified);
  EXPECT_NE(other.file, before.file);
}

}  // namespace
}  // namespace vak
