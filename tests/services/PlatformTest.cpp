#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <sched.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/SystemTemp.h"
#include "support/TestFolder.h"

namespace {

/// Whom the process takes itself for, unless it is who runs it.
std::optional<uid_t> actingUser;

}  // namespace

// In place of the system's: only root could make a folder another user's.
extern "C" uid_t geteuid() noexcept { return actingUser ? *actingUser : static_cast<uid_t>(syscall(SYS_geteuid)); }

namespace vak {
namespace {

namespace fs = std::filesystem;
using test::SystemTemp;
using test::TestFolder;

unsigned ModeOf(const fs::path& path) {
  struct stat info{};
  return lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0U;
}

TEST(Platform, MillisecondsMoveForwardWithTheSteadyClock) {
  const std::uint32_t start = timeGetTime();
  const auto steady = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - steady < std::chrono::milliseconds(30)) {
  }
  const std::uint32_t passed = timeGetTime() - start;
  EXPECT_GE(passed, 15U);
  EXPECT_LT(passed, 60000U);
}

TEST(Platform, SecondsAreThoseOfTheSystem) {
  const auto before = static_cast<long long>(std::time(nullptr));
  long long stored = 0;
  const long long now = _time64(&stored);
  EXPECT_EQ(stored, now);
  EXPECT_GE(now, before - 1);  // the quick clock may be a tick behind
  EXPECT_LE(now, before + 60);
  EXPECT_GE(_time64(nullptr), now);
}

TEST(Platform, ClockStandsStillAndWrapsForAScope) {
  ManualClock clock;
  clock.SetMilliseconds(std::numeric_limits<std::uint32_t>::max());
  clock.SetSeconds(1'700'000'000'000LL);
  {
    const ScopedClock scope(clock);
    EXPECT_EQ(timeGetTime(), 4294967295U);
    EXPECT_EQ(timeGetTime(), 4294967295U);
    EXPECT_EQ(_time64(nullptr), 1'700'000'000'000LL);
    clock.AdvanceMilliseconds(3);
    EXPECT_EQ(timeGetTime(), 2U);
    ManualClock inner;
    {
      const ScopedClock innerScope(inner);
      EXPECT_EQ(timeGetTime(), 0U);
    }
    EXPECT_EQ(timeGetTime(), 2U);
  }
  EXPECT_NE(_time64(nullptr), 1'700'000'000'000LL);
}

TEST(Platform, TemporaryFolderIsOursAlone) {
  const SystemTemp temp;
  std::wstring path = L"unset";
  ASSERT_TRUE(GetTempPathW(path));
  EXPECT_EQ(path, temp.Ours().wstring() + L"/");
  EXPECT_EQ(ModeOf(temp.Ours()), 0700U);
  std::wstring again;
  ASSERT_TRUE(GetTempPathW(again));
  EXPECT_EQ(again, path);
}

TEST(Platform, TemporaryFolderOpenToOthersIsClosedToThem) {
  const SystemTemp temp;
  fs::create_directory(temp.Ours());
  fs::permissions(temp.Ours(), fs::perms::all);
  std::wstring path;
  ASSERT_TRUE(GetTempPathW(path));
  EXPECT_EQ(ModeOf(temp.Ours()), 0700U);
}

TEST(Platform, TemporaryFolderThatIsALinkIsRefused) {
  const SystemTemp temp;
  fs::create_directory(temp.Path() / "elsewhere");
  fs::create_directory_symlink("elsewhere", temp.Ours());
  std::wstring path = L"unset";
  EXPECT_FALSE(GetTempPathW(path));
  EXPECT_EQ(path, L"unset");
}

TEST(Platform, TemporaryFolderThatIsAFileIsRefused) {
  const SystemTemp temp;
  ASSERT_EQ(mknod(temp.Ours().c_str(), S_IFREG | 0600, 0), 0);
  std::wstring path = L"unset";
  EXPECT_FALSE(GetTempPathW(path));
  EXPECT_EQ(path, L"unset");
}

TEST(Platform, TemporaryFolderOfAnotherUserIsRefused) {
  const SystemTemp temp;
  actingUser = geteuid() + 1;
  const fs::path theirs = temp.Ours();
  EXPECT_TRUE(fs::create_directory(theirs)) << "for the user who runs the test, under another's name";
  std::wstring path = L"unset";
  EXPECT_FALSE(GetTempPathW(path));
  EXPECT_EQ(path, L"unset");
  actingUser.reset();
  EXPECT_TRUE(GetTempPathW(path)) << "one's own is made";
}

TEST(Platform, TemporaryFolderIsRefusedWithoutASystemFolder) {
  const SystemTemp temp;
  setenv("TMPDIR", "/not/there", 1);
  std::wstring path = L"unset";
  EXPECT_FALSE(GetTempPathW(path));
  EXPECT_EQ(path, L"unset");
}

TEST(Platform, TemporaryNamesAreNewEmptyAndPrivateFiles) {
  const TestFolder folder;
  std::wstring first;
  std::wstring second;
  ASSERT_TRUE(GetTempFileNameW(folder.WideFile(""), L"Dtm", first));
  ASSERT_TRUE(GetTempFileNameW(folder.Path().wstring(), L"Dtm", second));
  EXPECT_NE(first, second);
  for (const std::wstring& name : {first, second}) {
    EXPECT_EQ(name.rfind(folder.Path().wstring() + L"/Dtm", 0), 0U);
    EXPECT_EQ(fs::file_size(name), 0U);
    EXPECT_EQ(ModeOf(name), 0600U);
  }
  std::wstring none = L"unset";
  EXPECT_FALSE(GetTempFileNameW(folder.WideFile("not-there"), L"Dtm", none));
  EXPECT_EQ(none, L"unset");
}

TEST(Platform, DeleteRemovesFilesAndNothingElse) {
  const TestFolder folder;
  folder.Write("a", "x");
  fs::create_directory(folder.Path() / "sub");
  EXPECT_TRUE(DeleteFileW(folder.WideFile("a")));
  EXPECT_FALSE(folder.Has("a"));
  EXPECT_FALSE(DeleteFileW(folder.WideFile("a")));
  EXPECT_FALSE(DeleteFileW(folder.WideFile("sub")));
  EXPECT_TRUE(folder.Has("sub"));
}

int CountOfFiles(const TestFolder& folder) {
  return static_cast<int>(std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator()));
}

TEST(Platform, CopyHasContentModeAndTimeAndLeavesNothingBeside) {
  const TestFolder folder;
  std::string content(300000, 'x');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>('a' + i % 23);
  folder.Write("from", content);
  fs::permissions(folder.Path() / "from", fs::perms::owner_read | fs::perms::group_read);
  const auto time = fs::file_time_type::clock::now() - std::chrono::hours(100);
  fs::last_write_time(folder.Path() / "from", time);
  ASSERT_TRUE(CopyFileW(folder.WideFile("from"), folder.WideFile("to"), false));
  EXPECT_EQ(folder.Text("to"), content);
  EXPECT_EQ(ModeOf(folder.Path() / "to"), 0440U);
  EXPECT_EQ(fs::last_write_time(folder.Path() / "to"), time);
  EXPECT_EQ(CountOfFiles(folder), 2);
}

TEST(Platform, CopyOfAnEmptyFileIsEmpty) {
  const TestFolder folder;
  folder.Write("from", "");
  ASSERT_TRUE(CopyFileW(folder.WideFile("from"), folder.WideFile("to"), false));
  EXPECT_EQ(folder.Text("to"), "");
}

TEST(Platform, CopyReplacesOnlyWhenItMay) {
  const TestFolder folder;
  folder.Write("from", "new");
  folder.Write("to", "old");
  EXPECT_FALSE(CopyFileW(folder.WideFile("from"), folder.WideFile("to"), false));
  EXPECT_EQ(folder.Text("to"), "old");
  EXPECT_TRUE(CopyFileW(folder.WideFile("from"), folder.WideFile("to"), true));
  EXPECT_EQ(folder.Text("to"), "new");
  EXPECT_EQ(CountOfFiles(folder), 2);
}

TEST(Platform, CopyThatCannotBeLeavesEverythingAsItWas) {
  const TestFolder folder;
  folder.Write("from", "x");
  folder.Write("old", "old");
  fs::create_directory(folder.Path() / "sub");
  fs::create_hard_link(folder.Path() / "from", folder.Path() / "twin");
  ASSERT_EQ(mkfifo((folder.Path() / "pipe").c_str(), 0600), 0);
  const struct {
    const char* name;
    const char* from;
    const char* to;
  } kCases[] = {
      {"no source", "not-there", "old"},
      {"source is a folder", "sub", "old"},
      {"source is a pipe", "pipe", "old"},
      {"target is a folder", "from", "sub"},
      {"onto itself", "from", "from"},
      {"onto another name of itself", "from", "twin"},
      {"no target folder", "from", "nowhere/to"},
  };
  const int count = CountOfFiles(folder);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_FALSE(CopyFileW(folder.WideFile(c.from), folder.WideFile(c.to), true));
    EXPECT_EQ(folder.Text("from"), "x");
    EXPECT_EQ(folder.Text("old"), "old");
    EXPECT_EQ(CountOfFiles(folder), count);
  }
}

TEST(Platform, CopyTakesNamesOfAnyBytes) {
  const TestFolder folder;
  folder.Write("m\xFCll", "x");
  ASSERT_TRUE(CopyFileW(FromUtf8(folder.File("m\xFCll")), FromUtf8(folder.File("\xE2\x82\xAC")), false));
  EXPECT_EQ(folder.Text("\xE2\x82\xAC"), "x");
}

TEST(Platform, CoresAreThoseThatTheThreadMayRunOn) {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
  EXPECT_EQ(GetTotalNumberOfCores(), static_cast<unsigned long>(CPU_COUNT(&allowed)));
  std::thread([] {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(GetTotalNumberOfCores(), 1U);
  }).join();
}

}  // namespace
}  // namespace vak
