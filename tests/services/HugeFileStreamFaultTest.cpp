// What the system is asked for, and what the stream makes of its moods: short transfers, interruptions, failed syncs.
// The calls are caught here by functions of their names, which the linker prefers to the C library's.

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

#include "vakdtm/services/files/HugeFileStream.h"

#include "support/TestFolder.h"

namespace {

struct System {
  std::size_t mostAtOnce = static_cast<std::size_t>(-1);
  bool interrupts = false;  // every second transfer and sync is interrupted before it begins
  int syncFails = 0;        // with this number
  int dataSyncs = 0;
  int folderSyncs = 0;
  int calls = 0;
  std::function<void()> beforeLocking;
};

System theSystem;

bool Interrupted() {
  if (!theSystem.interrupts || ++theSystem.calls % 2 == 0) return false;
  errno = EINTR;
  return true;
}

}  // namespace

extern "C" {

ssize_t pread(int file, void* buffer, size_t count, off_t offset) {
  if (Interrupted()) return -1;
  return syscall(SYS_pread64, file, buffer, std::min(count, theSystem.mostAtOnce), offset);
}

ssize_t pwrite(int file, const void* buffer, size_t count, off_t offset) {
  if (Interrupted()) return -1;
  return syscall(SYS_pwrite64, file, buffer, std::min(count, theSystem.mostAtOnce), offset);
}

int fcntl(int file, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (command == F_OFD_SETLK && theSystem.beforeLocking) std::exchange(theSystem.beforeLocking, nullptr)();
  return static_cast<int>(syscall(SYS_fcntl, file, command, argument));
}

int fdatasync(int file) {
  if (Interrupted()) return -1;
  ++theSystem.dataSyncs;
  if (theSystem.syncFails == 0) return static_cast<int>(syscall(SYS_fdatasync, file));
  errno = theSystem.syncFails;
  return -1;
}

int fsync(int file) {
  struct stat info{};
  if (fstat(file, &info) == 0 && S_ISDIR(info.st_mode)) ++theSystem.folderSyncs;
  return static_cast<int>(syscall(SYS_fsync, file));
}
}

namespace vak {
namespace {

class HugeFileStreamFault : public testing::Test {
 protected:
  HugeFileStreamFault() { theSystem = {}; }
  ~HugeFileStreamFault() override { theSystem = {}; }

  bool Put(const std::string& text) { return stream_.Write(text.data(), text.size()); }

  std::string TakeFromStart(std::size_t count) {
    std::string text(count, '\0');
    return stream_.Seek(0, DataStream::kFromStart) && stream_.Read(text.data(), count) ? text : "failed";
  }

  test::TestFolder folder_;
  HugeFileStream stream_{folder_.WideFile("a.dtm").c_str(), true, true};
};

TEST_F(HugeFileStreamFault, ShortTransfersAreGoneOnWith) {
  theSystem.mostAtOnce = 3;
  ASSERT_TRUE(Put("abcdefgh"));
  EXPECT_EQ(stream_.Position(), 8);
  EXPECT_EQ(TakeFromStart(8), "abcdefgh");
  unsigned int crc = 0;
  ASSERT_TRUE(stream_.GetFileCrc32(crc));
  EXPECT_EQ(crc, 0xAEEF2A50U);
}

TEST_F(HugeFileStreamFault, InterruptedCallsAreMadeAgain) {
  theSystem.interrupts = true;
  theSystem.mostAtOnce = 3;
  ASSERT_TRUE(Put("abcdefgh"));
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 1);
  EXPECT_EQ(TakeFromStart(8), "abcdefgh");
  unsigned int crc = 0;
  ASSERT_TRUE(stream_.GetFileCrc32(crc));
  EXPECT_EQ(crc, 0xAEEF2A50U);
  EXPECT_EQ(stream_.LastError(), StreamError::kNone);
}

TEST_F(HugeFileStreamFault, SyncGoesToTheDiskOnlyWithSomethingNew) {
  ASSERT_TRUE(Put("abc"));
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 1);
  EXPECT_EQ(theSystem.folderSyncs, 1);  // the file is new, and so is its name
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 1);
  ASSERT_TRUE(stream_.SetSize(1));
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 2);
  EXPECT_EQ(theSystem.folderSyncs, 1);
}

TEST_F(HugeFileStreamFault, SyncOfAnOpenedFileLeavesItsFolder) {
  ASSERT_TRUE(stream_.Open(folder_.WideFile("a.dtm").c_str(), false, true));
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 1) << "for what a former writer left";
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 1);
  ASSERT_TRUE(Put("abc"));
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 2);
  EXPECT_EQ(theSystem.folderSyncs, 0);
}

TEST_F(HugeFileStreamFault, FirstSyncOfOneThatBecameAWriterIsForWhatAFormerWriterLeft) {
  ASSERT_TRUE(stream_.Open(folder_.WideFile("a.dtm").c_str(), false, false));
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 0);
  ASSERT_TRUE(stream_.MakeReadWrite(true));
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 1);
}

TEST_F(HugeFileStreamFault, SyncWithoutSpaceSucceedsOnceThereIsSome) {
  ASSERT_TRUE(Put("abc"));
  theSystem.syncFails = ENOSPC;
  EXPECT_FALSE(stream_.Sync());
  EXPECT_EQ(stream_.LastError(), StreamError::kNoSpace);
  theSystem.syncFails = 0;
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 2);
}

TEST_F(HugeFileStreamFault, DataThatTheDiskLostIsNeverSaidToBeSafe) {
  ASSERT_TRUE(Put("abc"));
  theSystem.syncFails = EIO;
  EXPECT_FALSE(stream_.Sync());
  EXPECT_EQ(stream_.LastError(), StreamError::kOther);
  EXPECT_EQ(stream_.LastErrno(), EIO);
  theSystem.syncFails = 0;
  EXPECT_FALSE(stream_.Sync());
  ASSERT_TRUE(Put("def"));
  EXPECT_FALSE(stream_.Sync());
  EXPECT_FALSE(stream_.MakeReadWrite(false));
  EXPECT_TRUE(stream_.IsReadWrite());
  ASSERT_TRUE(stream_.Open(folder_.WideFile("a.dtm").c_str(), false, true));
  ASSERT_TRUE(Put("abc"));
  EXPECT_TRUE(stream_.Sync());
}

TEST_F(HugeFileStreamFault, AFileReplacedBeforeItIsLockedIsNotWritten) {
  folder_.Write("b.dtm", "old");
  folder_.Write("new", "new");
  for (const bool create : {false, true}) {
    SCOPED_TRACE(create);
    theSystem.beforeLocking = [&] { std::rename(folder_.File("new").c_str(), folder_.File("b.dtm").c_str()); };
    const HugeFileStream late(folder_.WideFile("b.dtm").c_str(), create, true);
    EXPECT_FALSE(late.IsOpen());
    EXPECT_FALSE(late.IsReadWrite());
    EXPECT_EQ(late.LastError(), StreamError::kHeldByWriter);
    EXPECT_EQ(folder_.Text("b.dtm"), "new");
    folder_.Write("new", "new");
  }
}

TEST_F(HugeFileStreamFault, GoingToReadOnlySyncsFirst) {
  ASSERT_TRUE(Put("abc"));
  EXPECT_TRUE(stream_.MakeReadWrite(false));
  EXPECT_EQ(theSystem.dataSyncs, 1);
  EXPECT_TRUE(stream_.Sync());
  EXPECT_EQ(theSystem.dataSyncs, 1);
}

}  // namespace
}  // namespace vak
