#include <array>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/TestFolder.h"

namespace vak {
namespace {

namespace fs = std::filesystem;
using test::TestFolder;

/// A stream on a file of the test folder, with what a test asks of it.
class TestStream : public HugeFileStream {
 public:
  TestStream(const TestFolder& folder, const char* name, bool create, bool readWrite)
      : HugeFileStream(folder.WideFile(name).c_str(), create, readWrite) {}

  bool Put(const std::string& text) { return Write(text.data(), text.size()); }

  std::string Take(std::size_t count) {
    std::string text(count, '\0');
    return Read(text.data(), count) ? text : "failed";
  }

  long long Size() {
    long long size = -1;
    return GetSize(size) ? size : -1;
  }

  double Modified() {
    double created = 0;
    double accessed = 0;
    double modified = 0;
    return GetFileTimes(created, accessed, modified) ? modified : -1;
  }
};

/// Runs `work` in a process of its own. @return true when that answered true.
bool InChild(const std::function<bool()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work() ? 0 : 1);
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Drops root's rights to everything for a scope; does nothing for other users.
class AsNobody {
 public:
  AsNobody() : root_(geteuid() == 0) {
    if (root_ && seteuid(65534) != 0) ADD_FAILURE();
  }
  ~AsNobody() {
    if (root_ && seteuid(0) != 0) ADD_FAILURE();
  }
  AsNobody(const AsNobody&) = delete;
  AsNobody& operator=(const AsNobody&) = delete;

 private:
  bool root_;
};

void SetMode(const fs::path& path, unsigned mode) { fs::permissions(path, static_cast<fs::perms>(mode)); }

TEST(HugeFileStream, WhatIsWrittenIsReadBack) {
  const TestFolder folder;
  TestStream stream(folder, "a.dtm", true, true);
  ASSERT_TRUE(stream.IsOpen());
  EXPECT_TRUE(stream.IsReadWrite());
  EXPECT_EQ(std::wstring(stream.FileName()), folder.WideFile("a.dtm"));
  ASSERT_TRUE(stream.Put("abcdef"));
  EXPECT_EQ(stream.Position(), 6);
  ASSERT_TRUE(stream.Seek(-4, DataStream::kFromEnd));
  EXPECT_EQ(stream.Take(2), "cd");
  EXPECT_EQ(stream.Position(), 4);
  ASSERT_TRUE(stream.Put("XY"));
  EXPECT_TRUE(stream.Sync());
  EXPECT_EQ(folder.Text("a.dtm"), "abcdXY");
  EXPECT_EQ(stream.LastError(), StreamError::kNone);
}

TEST(HugeFileStream, ReadingBeyondTheEndIsFalseButNoFailureOfTheFile) {
  const TestFolder folder;
  folder.Write("a.dtm", "abc");
  TestStream stream(folder, "a.dtm", false, false);
  EXPECT_EQ(stream.Take(4), "failed");
  EXPECT_EQ(stream.LastError(), StreamError::kNone);
  ASSERT_TRUE(stream.Seek(100, DataStream::kFromStart));
  EXPECT_EQ(stream.Take(1), "failed");
  EXPECT_TRUE(stream.Read(nullptr, 0));
}

TEST(HugeFileStream, SeekRefusesPlacesBeforeTheStartAndStaysWhereItWas) {
  const TestFolder folder;
  folder.Write("a.dtm", "abcdef");
  TestStream stream(folder, "a.dtm", false, false);
  ASSERT_TRUE(stream.Seek(2, DataStream::kFromStart));
  EXPECT_FALSE(stream.Seek(-1, DataStream::kFromStart));
  EXPECT_FALSE(stream.Seek(-7, DataStream::kFromEnd));
  EXPECT_FALSE(stream.Seek(std::numeric_limits<std::int64_t>::max(), DataStream::kFromEnd));
  EXPECT_FALSE(stream.Seek(std::numeric_limits<std::int64_t>::min(), DataStream::kFromEnd));
  EXPECT_FALSE(stream.Seek(0, 1));
  EXPECT_EQ(stream.Position(), 2);
  EXPECT_TRUE(stream.Seek(std::numeric_limits<std::int64_t>::max(), DataStream::kFromStart));
}

TEST(HugeFileStream, SetSizeCutsAndLengthensWithZeros) {
  const TestFolder folder;
  TestStream stream(folder, "a.dtm", true, true);
  ASSERT_TRUE(stream.Put("abcdef"));
  ASSERT_TRUE(stream.SetSize(2));
  EXPECT_EQ(stream.Position(), 6);
  EXPECT_EQ(folder.Text("a.dtm"), "ab");
  ASSERT_TRUE(stream.SetSize(4));
  EXPECT_EQ(folder.Text("a.dtm"), std::string("ab\0\0", 4));
  EXPECT_FALSE(stream.SetSize(-1));
  EXPECT_EQ(stream.Size(), 4);
}

TEST(HugeFileStream, PositionsBeyondFourGigabytesAreKept) {
  const TestFolder folder;
  constexpr std::int64_t kFar = (std::int64_t{5} << 30) + 3;
  {
    TestStream stream(folder, "a.dtm", true, true);
    ASSERT_TRUE(stream.Seek(kFar, DataStream::kFromStart));
    ASSERT_TRUE(stream.Put("far"));
    EXPECT_EQ(stream.Position(), kFar + 3);
  }
  TestStream stream(folder, "a.dtm", false, false);
  EXPECT_EQ(stream.Size(), kFar + 3);
  ASSERT_TRUE(stream.Seek(-3, DataStream::kFromEnd));
  EXPECT_EQ(stream.Position(), kFar);
  EXPECT_EQ(stream.Take(3), "far");
  ASSERT_TRUE(stream.Seek(kFar - (std::int64_t{1} << 32), DataStream::kFromStart));
  EXPECT_EQ(stream.Take(3), std::string(3, '\0'));
}

TEST(HugeFileStream, CreateEmptiesTheFileThatIsThereAndKeepsItsIdentity) {
  const TestFolder folder;
  folder.Write("a.dtm", "old content");
  fs::create_hard_link(folder.Path() / "a.dtm", folder.Path() / "twin.dtm");
  TestStream stream(folder, "a.dtm", true, false);
  EXPECT_TRUE(stream.IsReadWrite());
  EXPECT_EQ(stream.Size(), 0);
  EXPECT_EQ(folder.Text("twin.dtm"), "");
}

TEST(HugeFileStream, ReasonOfAFailedOpenIsKept) {
  const TestFolder folder;
  folder.Write("a.dtm", "x");
  fs::create_directory(folder.Path() / "sub");
  ASSERT_EQ(mkfifo((folder.Path() / "pipe").c_str(), 0600), 0);
  fs::create_symlink("no.dtm", folder.Path() / "nowhere.dtm");
  fs::create_symlink("a.dtm/no.dtm", folder.Path() / "below.dtm");
  fs::create_symlink("loop", folder.Path() / "loop");
  const std::string longName(256, 'n');
  const struct {
    const char* name;
    const char* file;
    bool create, readWrite;
    StreamError error;
  } kCases[] = {
      {"missing, to read", "no.dtm", false, false, StreamError::kMissing},
      {"missing, to write", "no.dtm", false, true, StreamError::kMissing},
      {"in a missing folder", "nowhere/a.dtm", true, true, StreamError::kMissing},
      {"below a file", "a.dtm/b.dtm", false, false, StreamError::kMissing},
      {"folder, to read", "sub", false, false, StreamError::kFolder},
      {"folder, to write", "sub", false, true, StreamError::kFolder},
      {"folder, to create", "sub", true, true, StreamError::kFolder},
      {"pipe, to read", "pipe", false, false, StreamError::kOther},
      {"pipe, to write", "pipe", false, true, StreamError::kOther},
      {"link to nothing, to read", "nowhere.dtm", false, false, StreamError::kLinkNowhere},
      {"link to nothing, to write", "nowhere.dtm", false, true, StreamError::kLinkNowhere},
      {"link to nothing, to create", "nowhere.dtm", true, true, StreamError::kLinkNowhere},
      {"link below a file", "below.dtm", false, false, StreamError::kLinkNowhere},
      {"loop of links, to read", "loop", false, false, StreamError::kLinkNowhere},
      {"loop of links, to create", "loop", true, true, StreamError::kLinkNowhere},
      {"name too long", longName.c_str(), false, false, StreamError::kNameTooLong},
      {"name too long, to create", longName.c_str(), true, true, StreamError::kNameTooLong},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TestStream stream(folder, c.file, c.create, c.readWrite);
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_FALSE(stream.IsReadWrite());
    EXPECT_EQ(stream.LastError(), c.error);
    EXPECT_NE(stream.LastErrno(), 0);
    EXPECT_EQ(stream.Take(1), "failed");
    EXPECT_FALSE(stream.Put("x"));
    EXPECT_FALSE(stream.Seek(0, DataStream::kFromStart));
    EXPECT_FALSE(stream.SetSize(0));
    EXPECT_FALSE(stream.Sync());
    EXPECT_FALSE(stream.Close());
    EXPECT_FALSE(stream.MakeReadWrite(true));
    EXPECT_EQ(stream.Size(), -1);
    EXPECT_EQ(stream.LastError(), c.error);
  }
  EXPECT_EQ(HugeFileStream(nullptr, false, false).LastError(), StreamError::kMissing);
}

TEST(HugeFileStream, RightsOfTheFileTellNotReadableFromNotWritable) {
  const TestFolder folder;
  SetMode(folder.Path(), 0755);
  folder.Write("secret.dtm", "x");
  folder.Write("fixed.dtm", "x");
  SetMode(folder.Path() / "secret.dtm", 0);
  SetMode(folder.Path() / "fixed.dtm", 0444);
  const AsNobody user;
  EXPECT_EQ(TestStream(folder, "secret.dtm", false, false).LastError(), StreamError::kNotReadable);
  EXPECT_EQ(TestStream(folder, "secret.dtm", false, true).LastError(), StreamError::kNotReadable);
  EXPECT_EQ(TestStream(folder, "fixed.dtm", false, true).LastError(), StreamError::kNotWritable);
  EXPECT_EQ(TestStream(folder, "fixed.dtm", true, true).LastError(), StreamError::kNotWritable);
  TestStream reader(folder, "fixed.dtm", false, false);
  EXPECT_TRUE(reader.IsOpen());
  EXPECT_FALSE(reader.MakeReadWrite(true));
  EXPECT_EQ(reader.LastError(), StreamError::kNotWritable);
  EXPECT_EQ(reader.Take(1), "x");
}

TEST(HugeFileStream, FolderThatMayNotBeWrittenTakesNoNewFile) {
  const TestFolder folder;
  SetMode(folder.Path(), 0555);
  {
    const AsNobody user;
    EXPECT_EQ(TestStream(folder, "a.dtm", true, true).LastError(), StreamError::kNotWritable);
  }
  SetMode(folder.Path(), 0755);
}

TEST(HugeFileStream, SecondWriterIsRefusedAndTheFirstIsUnharmed) {
  const TestFolder folder;
  TestStream first(folder, "a.dtm", true, true);
  ASSERT_TRUE(first.Put("abc"));
  TestStream second(folder, "a.dtm", false, true);
  EXPECT_FALSE(second.IsOpen());
  EXPECT_EQ(second.LastError(), StreamError::kHeldByWriter);
  EXPECT_TRUE(first.Put("def"));
  EXPECT_EQ(folder.Text("a.dtm"), "abcdef");
  // That the second one has closed its descriptor must not have lost the first one's lock.
  EXPECT_EQ(TestStream(folder, "a.dtm", false, true).LastError(), StreamError::kHeldByWriter);
  EXPECT_TRUE(first.Close());
  EXPECT_TRUE(TestStream(folder, "a.dtm", false, true).IsOpen());
}

TEST(HugeFileStream, WriterInAnotherProcessIsRefusedWhileAReaderIsNot) {
  const TestFolder folder;
  TestStream writer(folder, "a.dtm", true, true);
  ASSERT_TRUE(writer.Put("abc"));
  EXPECT_TRUE(InChild([&] {
    return TestStream(folder, "a.dtm", false, true).LastError() == StreamError::kHeldByWriter &&
           TestStream(folder, "a.dtm", true, true).LastError() == StreamError::kHeldByWriter;
  }));
  EXPECT_TRUE(InChild([&] {
    TestStream reader(folder, "a.dtm", false, false);
    return reader.Take(3) == "abc" && !reader.MakeReadWrite(true) && reader.LastError() == StreamError::kHeldByWriter;
  }));
  ASSERT_TRUE(writer.Put("def"));
  EXPECT_EQ(folder.Text("a.dtm"), "abcdef");
}

TEST(HugeFileStream, ReaderSeesAtOnceWhatTheWriterWrites) {
  const TestFolder folder;
  TestStream writer(folder, "a.dtm", true, true);
  TestStream reader(folder, "a.dtm", false, false);
  ASSERT_TRUE(writer.Put("abc"));
  EXPECT_TRUE(reader.Sync());
  EXPECT_EQ(reader.Take(3), "abc");
  ASSERT_TRUE(writer.Seek(0, DataStream::kFromStart));
  ASSERT_TRUE(writer.Put("X"));
  ASSERT_TRUE(reader.Seek(0, DataStream::kFromStart));
  EXPECT_EQ(reader.Take(3), "Xbc");
}

TEST(HugeFileStream, CreateOfAHeldFileLeavesItsContent) {
  const TestFolder folder;
  TestStream writer(folder, "a.dtm", true, true);
  ASSERT_TRUE(writer.Put("abc"));
  TestStream creator(folder, "a.dtm", true, true);
  EXPECT_FALSE(creator.IsOpen());
  EXPECT_EQ(creator.LastError(), StreamError::kHeldByWriter);
  EXPECT_EQ(folder.Text("a.dtm"), "abc");
}

TEST(HugeFileStream, KilledWriterLeavesNoLock) {
  const TestFolder folder;
  folder.Write("a.dtm", "abc");
  std::array<int, 2> ready{};
  ASSERT_EQ(pipe(ready.data()), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const TestStream writer(folder, "a.dtm", false, true);
    const char told = writer.IsOpen() ? 'y' : 'n';
    if (write(ready[1], &told, 1) != 1) _exit(1);
    for (;;) pause();
  }
  char told = 0;
  ASSERT_EQ(read(ready[0], &told, 1), 1);
  EXPECT_EQ(told, 'y');
  EXPECT_EQ(TestStream(folder, "a.dtm", false, true).LastError(), StreamError::kHeldByWriter);
  ASSERT_EQ(kill(child, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(TestStream(folder, "a.dtm", false, true).IsOpen());
  close(ready[0]);
  close(ready[1]);
}

TEST(HugeFileStream, ModeChangesOnlyWhileNoOtherWrites) {
  const TestFolder folder;
  folder.Write("a.dtm", "abc");
  TestStream first(folder, "a.dtm", false, false);
  TestStream second(folder, "a.dtm", false, false);
  ASSERT_TRUE(first.Seek(1, DataStream::kFromStart));
  EXPECT_FALSE(first.Put("X"));
  EXPECT_EQ(first.LastError(), StreamError::kNotWritable);
  EXPECT_FALSE(first.SetSize(0));
  ASSERT_TRUE(first.MakeReadWrite(true));
  EXPECT_TRUE(first.MakeReadWrite(true));
  EXPECT_EQ(first.Position(), 1);
  EXPECT_FALSE(second.MakeReadWrite(true));
  EXPECT_EQ(second.LastError(), StreamError::kHeldByWriter);
  EXPECT_FALSE(second.IsReadWrite());
  EXPECT_TRUE(second.MakeReadWrite(false));
  ASSERT_TRUE(first.Put("X"));
  ASSERT_TRUE(first.MakeReadWrite(false));
  EXPECT_FALSE(first.IsReadWrite());
  EXPECT_EQ(first.Position(), 2);
  EXPECT_FALSE(first.Put("Y"));
  EXPECT_TRUE(second.MakeReadWrite(true));
  EXPECT_EQ(folder.Text("a.dtm"), "aXc");
}

TEST(HugeFileStream, ModeChangeKeepsTheFileThatWasRenamedOrRemoved) {
  const TestFolder folder;
  folder.Write("a.dtm", "abc");
  TestStream stream(folder, "a.dtm", false, false);
  fs::rename(folder.Path() / "a.dtm", folder.Path() / "b.dtm");
  folder.Write("a.dtm", "another");
  ASSERT_TRUE(stream.MakeReadWrite(true));
  ASSERT_TRUE(stream.Put("X"));
  EXPECT_EQ(folder.Text("b.dtm"), "Xbc");
  EXPECT_EQ(folder.Text("a.dtm"), "another");
  fs::remove(folder.Path() / "b.dtm");
  ASSERT_TRUE(stream.MakeReadWrite(false));
  ASSERT_TRUE(stream.MakeReadWrite(true));
  ASSERT_TRUE(stream.Seek(0, DataStream::kFromStart));
  EXPECT_EQ(stream.Take(3), "Xbc");
}

TEST(HugeFileStream, StreamThatRefusesWritingNeverWrites) {
  const TestFolder folder;
  folder.Write("a.dtm", "abc");
  TestStream stream(folder, "a.dtm", false, false);
  stream.RefuseWriting();
  EXPECT_FALSE(stream.MakeReadWrite(true));
  EXPECT_EQ(stream.LastError(), StreamError::kNotWritable);
  EXPECT_TRUE(stream.MakeReadWrite(false));
  EXPECT_FALSE(stream.Open(folder.WideFile("a.dtm").c_str(), false, true));
  EXPECT_FALSE(stream.Open(folder.WideFile("a.dtm").c_str(), true, true));
  EXPECT_EQ(folder.Text("a.dtm"), "abc");
  EXPECT_TRUE(stream.Open(folder.WideFile("a.dtm").c_str(), false, false));
  EXPECT_FALSE(stream.MakeReadWrite(true));
  EXPECT_TRUE(TestStream(folder, "a.dtm", false, true).IsOpen());
}

TEST(HugeFileStream, OpenClosesWhatWasOpen) {
  const TestFolder folder;
  folder.Write("b.dtm", "bbb");
  TestStream stream(folder, "a.dtm", true, true);
  ASSERT_TRUE(stream.Put("aaa"));
  ASSERT_TRUE(stream.Open(folder.WideFile("b.dtm").c_str(), false, false));
  EXPECT_EQ(stream.Position(), 0);
  EXPECT_FALSE(stream.IsReadWrite());
  EXPECT_EQ(stream.Take(3), "bbb");
  EXPECT_TRUE(TestStream(folder, "a.dtm", false, true).IsOpen());
}

TEST(HugeFileStream, FullDiskIsToldAndWhatWasThereStays) {
  // A limit on the file's size stands in for the disk: the system answers a write beyond it in the same way.
  const TestFolder folder;
  EXPECT_TRUE(InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{8192, 8192};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
    TestStream stream(folder, "a.dtm", true, true);
    const bool wrote = stream.Put(std::string(8000, 'a'));
    const bool beyond = stream.Put(std::string(8000, 'b'));
    return wrote && !beyond && stream.LastError() == StreamError::kNoSpace && !stream.SetSize(100000) &&
           stream.LastError() == StreamError::kNoSpace;
  }));
  EXPECT_EQ(folder.Text("a.dtm").substr(0, 8000), std::string(8000, 'a'));
}

TEST(HugeFileStream, TimesChangeWhenAnotherProcessHasWritten) {
  const TestFolder folder;
  folder.Write("a.dtm", "abc");
  fs::last_write_time(folder.Path() / "a.dtm", fs::file_time_type::clock::now() - std::chrono::seconds(10));
  TestStream reader(folder, "a.dtm", false, false);
  const double before = reader.Modified();
  EXPECT_EQ(reader.Modified(), before);
  EXPECT_TRUE(InChild([&] { return TestStream(folder, "a.dtm", false, true).Put("X"); }));
  EXPECT_GT(reader.Modified(), before + 5);
  double created = 0;
  double accessed = 0;
  double modified = 0;
  ASSERT_TRUE(reader.GetFileTimes(created, accessed, modified));
  EXPECT_GT(created, 1.6e9);
  EXPECT_GT(accessed, 1.6e9);
}

TEST(HugeFileStream, OpeningAndReadingLeavesTheModificationTime) {
  const TestFolder folder;
  folder.Write("a.dtm", "abc");
  const auto time = fs::file_time_type::clock::now() - std::chrono::hours(10);
  fs::last_write_time(folder.Path() / "a.dtm", time);
  {
    TestStream stream(folder, "a.dtm", false, true);
    EXPECT_EQ(stream.Take(3), "abc");
    EXPECT_TRUE(stream.Sync());
    EXPECT_TRUE(stream.MakeReadWrite(false));
  }
  EXPECT_EQ(fs::last_write_time(folder.Path() / "a.dtm"), time);
}

TEST(HugeFileStream, ChecksumIsThatOfZipAndMovesNothing) {
  const TestFolder folder;
  folder.Write("a.dtm", "123456789");
  folder.Write("empty.dtm", "");
  folder.Write("long.dtm", std::string(200000, 'a'));
  TestStream stream(folder, "a.dtm", false, false);
  ASSERT_TRUE(stream.Seek(4, DataStream::kFromStart));
  unsigned int crc = 1;
  ASSERT_TRUE(stream.GetFileCrc32(crc));
  EXPECT_EQ(crc, 0xCBF43926U);
  EXPECT_EQ(stream.Position(), 4);
  ASSERT_TRUE(TestStream(folder, "empty.dtm", false, false).GetFileCrc32(crc));
  EXPECT_EQ(crc, 0U);
  ASSERT_TRUE(TestStream(folder, "long.dtm", false, false).GetFileCrc32(crc));
  EXPECT_EQ(crc, 0xE069539BU);
  EXPECT_FALSE(TestStream(folder, "not-there.dtm", false, false).GetFileCrc32(crc));
}

TEST(HugeFileStream, NamesOfAnyBytesAreTaken) {
  const TestFolder folder;
  for (const char* name : {"\xE2\x82\xAC.dtm", "m\xFCll.dtm"}) {
    HugeFileStream stream(FromUtf8(folder.File(name)).c_str(), true, true);
    EXPECT_TRUE(stream.IsOpen());
    EXPECT_TRUE(folder.Has(name));
  }
}

TEST(HugeFileStream, ChildProgramsDoNotInheritTheFile) {
  const TestFolder folder;
  TestStream stream(folder, "a.dtm", true, true);
  int found = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (fs::read_symlink(entry.path(), gone) != fs::canonical(folder.Path()) / "a.dtm") continue;
    const int descriptor = std::stoi(entry.path().filename());
    EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
    ++found;
  }
  EXPECT_EQ(found, 1);
}

}  // namespace
}  // namespace vak
