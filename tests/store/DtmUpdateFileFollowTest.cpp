// A model that follows a file which somebody else writes: here another stream, as another process has it.
#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/notify/FileWatcher.h"
#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/SharedModel.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// For its lifetime the thread that syncs makes no pass: the test makes them.
class NoTicks {
 public:
  NoTicks() : former_(DtmManager::GetDtmManager().SetDtmSyncTime(65535)) {}
  ~NoTicks() { DtmManager::GetDtmManager().SetDtmSyncTime(former_); }
  NoTicks(const NoTicks&) = delete;
  NoTicks& operator=(const NoTicks&) = delete;

 private:
  std::uint16_t former_;
};

/// A writer and a model of the manager's that reads the same file. The writer has areas (0, 0) and (0, 64) of 64 cells
/// of 1 m, with a sounding each, which the reader knows. Time stands.
struct Followed {
  Followed() {
    writer = std::make_unique<DtmFile>(new HugeFileStream(path.c_str(), true, true), true);
    if (!writer->Open()) throw std::runtime_error("no writer");
    Write(0.5, 0.5, -5);
    Write(64.5, 0.5, -6);
    Publish();
    reader = OpenShared(path, false);
    if (!reader) throw std::runtime_error("no reader");
    reader->ResetModified();
    views = std::make_unique<RectListener>(*reader);
  }
  ~Followed() {
    views.reset();
    reader.reset();
    writer->Close();
  }
  Followed(const Followed&) = delete;
  Followed& operator=(const Followed&) = delete;

  void Write(double x, double y, double z) const {
    if (!Sound(*writer, x, y, z, 1)) throw std::runtime_error("not written");
  }
  void Empty(double x, double y) const {
    if (!DtmAccess(writer.get()).MakeCellEmpty(x, y)) throw std::runtime_error("not emptied");
  }
  void Publish() const {
    if (!writer->SyncWrite()) throw std::runtime_error("not published");
  }
  /// What the thread that syncs does once the watcher has marked the model.
  void Follow() {
    views->heard.clear();
    reader->OnFileModified();
    DtmManager::GetDtmManager().SyncModified();
  }
  /// The one rectangle that was announced.
  void ExpectRect(double left, double bottom, double right, double top, bool flag) const {
    ASSERT_EQ(views->heard.size(), 1U);
    const RectListener::Heard& one = views->heard[0];
    EXPECT_TRUE(one.pending);
    EXPECT_EQ(one.rect.left(), left);
    EXPECT_EQ(one.rect.bottom(), bottom);
    EXPECT_EQ(one.rect.right(), right);
    EXPECT_EQ(one.rect.top(), top);
    EXPECT_EQ(one.flag, flag);
  }

  TestFolder folder;
  NoTicks noTicks;
  TimeStands time{1000};
  std::wstring path = folder.WideFile("a.dtm");
  std::unique_ptr<DtmFile> writer;
  SharedModel reader;
  std::unique_ptr<RectListener> views;
};

TEST(DtmUpdateFileFollow, ANewAreaIsThereAndAnnouncedWithoutTheFlag) {
  Followed followed;
  followed.Write(-0.5, 200.5, -9);
  followed.Publish();
  followed.Follow();
  EXPECT_EQ(followed.reader->NumAreas(), 3);
  EXPECT_EQ(ValueAt(*followed.reader, -0.5, 200.5), -9);
  followed.ExpectRect(-64, 192, 0, 256, false);
}

TEST(DtmUpdateFileFollow, AChangedAreaIsRefreshedWhereItIsHeldAndAnnouncedWithTheFlag) {
  Followed followed;
  DtmAccess held(followed.reader.get());
  double value = 0;
  ASSERT_TRUE(held.GetDoubleValue(0, 64, dVAL, value));
  EXPECT_EQ(value, -6);
  followed.time.At(1001);
  followed.Write(64.5, 0.5, -8);
  followed.Publish();
  followed.Follow();
  ASSERT_TRUE(held.GetDoubleValue(0, 64, dVAL, value));
  EXPECT_EQ(value, -7);
  followed.ExpectRect(64, 0, 128, 64, true);
  float lo = 0;
  float hi = 0;
  ASSERT_TRUE(followed.reader->GetArea(0, 64, false)->GetMinMaxZ(lo, hi));
  EXPECT_EQ(lo, -8);
  EXPECT_EQ(hi, -6);
}

TEST(DtmUpdateFileFollow, SeveralAreasAreAnnouncedAsTheRectangleOfAll) {
  Followed followed;
  followed.time.At(1001);
  followed.Write(0.5, 0.5, -7);
  followed.Write(500.5, 100.5, -9);
  followed.Publish();
  followed.Follow();
  followed.ExpectRect(0, 0, 512, 128, true);
}

TEST(DtmUpdateFileFollow, ARemovedAreaIsAnEmptyShellAndAnnouncedWithTheFlag) {
  Followed followed;
  DtmAccess held(followed.reader.get());
  double value = 0;
  ASSERT_TRUE(held.GetDoubleValue(0, 64, dVAL, value));
  followed.Empty(64.5, 0.5);
  followed.Publish();
  EXPECT_EQ(TakeIndex(followed.folder.Content("a.dtm")).size(), 1U);
  followed.Follow();
  EXPECT_EQ(followed.reader->NumAreas(), 2);
  DtmArea* const shell = followed.reader->GetArea(0, 64, false);
  ASSERT_NE(shell, nullptr);
  EXPECT_FALSE(shell->IsWritten());
  EXPECT_TRUE(shell->IsEmpty());
  ASSERT_TRUE(held.GetDoubleValue(0, 64, dVAL, value));
  EXPECT_TRUE(IsEmptyValue(value));
  followed.ExpectRect(64, 0, 128, 64, true);
}

TEST(DtmUpdateFileFollow, AnAreaThatMovedIntoTheHoleOfARemovedOneIsFoundThere) {
  Followed followed;
  followed.Empty(0.5, 0.5);
  followed.Publish();
  followed.Follow();
  EXPECT_EQ(ValueAt(*followed.reader, 64.5, 0.5), -6);
  EXPECT_TRUE(IsEmptyValue(ValueAt(*followed.reader, 0.5, 0.5)));
  EXPECT_EQ(followed.reader->GetArea(0, 64, false)->BlockPosition(),
            followed.writer->GetArea(0, 64, false)->BlockPosition());
}

TEST(DtmUpdateFileFollow, AnAreaRewrittenInTheSameSecondIsNotReadAgainUntilTheTimeMoves) {
  Followed followed;
  DtmAccess held(followed.reader.get());
  double value = 0;
  ASSERT_TRUE(held.GetDoubleValue(0, 0, dVAL, value));
  followed.time.At(1001);
  followed.Write(0.5, 0.5, -7);
  followed.Publish();
  followed.Follow();
  ASSERT_TRUE(held.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -6);

  followed.Write(0.5, 0.5, -9);
  followed.Publish();
  followed.Follow();
  ASSERT_TRUE(held.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -6) << "its time in the index is the same";
  EXPECT_TRUE(followed.views->heard.empty());

  followed.time.At(1002);
  followed.Write(1.5, 0.5, -1);
  followed.Publish();
  followed.Follow();
  ASSERT_TRUE(held.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -7) << "(-5 - 7 - 9) / 3";
  followed.ExpectRect(0, 0, 64, 64, true);
}

TEST(DtmUpdateFileFollow, BetweenTheWritersAreaAndItsIndexTheModelStaysAsItWas) {
  Followed followed;
  DtmAccess held(followed.reader.get());
  double value = 0;
  ASSERT_TRUE(held.GetDoubleValue(0, 0, dVAL, value));
  followed.time.At(1001);
  followed.Write(0.5, 0.5, -7);     // its cells are in the file already, its time isn't
  followed.Write(1000.5, 0.5, -9);  // a new area is written at once, over the index
  followed.Follow();
  EXPECT_FALSE(followed.reader->SyncRead(nullptr));
  EXPECT_EQ(followed.reader->NumAreas(), 2);
  ASSERT_TRUE(held.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -5);
  EXPECT_TRUE(followed.views->heard.empty());

  followed.Publish();
  followed.Follow();
  EXPECT_EQ(followed.reader->NumAreas(), 3);
  ASSERT_TRUE(held.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -6);
  EXPECT_EQ(ValueAt(*followed.reader, 1000.5, 0.5), -9);
}

TEST(DtmUpdateFileFollow, APassThatFoundSomethingIsFollowedByOneThatFindsNothing) {
  Followed followed;
  followed.Write(500.5, 0.5, -9);
  followed.Publish();
  followed.Follow();
  EXPECT_TRUE(followed.reader->IsModified());
  followed.views->heard.clear();
  // The watch may tell late, and more than once, of what was written.
  int passes = 0;
  do {
    DtmManager::GetDtmManager().SyncModified();
  } while (followed.reader->IsModified() && ++passes < 20);
  EXPECT_LT(passes, 20);
  EXPECT_TRUE(followed.views->heard.empty());
}

TEST(DtmUpdateFileFollow, AModelThatIsNotMarkedIsNotTouched) {
  Followed followed;
  followed.Write(500.5, 0.5, -9);
  followed.Publish();
  followed.reader->ResetModified();
  DtmManager::GetDtmManager().SyncModified();
  EXPECT_EQ(followed.reader->NumAreas(), 2);
}

// ---- Watching

/// Hears of a file's changes as the model does, after it.
class FileListener final : public Subscriber {
 public:
  explicit FileListener(std::wstring path) : path_(std::move(path)) {
    subscription_.SetSubscriber(this, false);
    subscription_.Subscribe(path_);
    if (!FileWatcher::Instance().AddFileWatch(path_)) throw std::runtime_error("no watch");
  }
  ~FileListener() override {
    FileWatcher::Instance().RemoveFileWatch(path_);
    subscription_.Unsubscribe();
  }
  FileListener(const FileListener&) = delete;
  FileListener& operator=(const FileListener&) = delete;

  void OnNotify(int, const std::wstring&, const NotificationInfo*) override { heard_.Set(); }
  bool Hears() { return heard_.Wait(std::chrono::minutes(1)); }

 private:
  std::wstring path_;
  Event heard_;
  Subscription subscription_{0};
};

bool Becomes(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

/// Changes the file's time, as a write does.
void Touch(const std::wstring& path) {
  const std::filesystem::path file = ToUtf8(path);
  std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) + std::chrono::seconds(1));
}

TEST(DtmUpdateFileFollow, AReaderMarksItselfModifiedWhenAnotherStreamWrites) {
  Followed followed;
  ASSERT_FALSE(followed.reader->IsModified());
  followed.Write(500.5, 0.5, -9);
  EXPECT_TRUE(Becomes([&] { return followed.reader->IsModified(); }));
}

TEST(DtmUpdateFileFollow, AReaderThatBecomesAWriterStopsWatchingAndBeginsAgainWhenItIsAReader) {
  Followed followed;
  followed.writer->Close();  // gives the file to whom it may concern
  followed.writer = std::make_unique<DtmFile>(new HugeFileStream(followed.path.c_str(), false, false), false);
  ASSERT_TRUE(followed.writer->Open());
  ASSERT_TRUE(followed.reader->MakeReadWrite(true));
  {
    FileListener listener(followed.path);
    followed.reader->ResetModified();
    Touch(followed.path);
    ASSERT_TRUE(listener.Hears());
    EXPECT_FALSE(followed.reader->IsModified());
  }
  ASSERT_TRUE(followed.reader->MakeReadWrite(false));
  followed.reader->ResetModified();
  Touch(followed.path);
  EXPECT_TRUE(Becomes([&] { return followed.reader->IsModified(); }));
}

TEST(DtmUpdateFileFollow, AWriterDoesNotWatch) {
  const TestFolder folder;
  const NoTicks noTicks;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  FileListener listener(model->FileName());
  model->ResetModified();
  Touch(model->FileName());
  ASSERT_TRUE(listener.Hears());
  EXPECT_FALSE(model->IsModified());
}

TEST(DtmUpdateFileFollow, AModelOpenedUntouchedFollowsToo) {
  Followed followed;
  followed.views.reset();
  followed.reader.reset(DtmManager::GetDtmManager().OpenDtmUntouched(followed.path));
  followed.views = std::make_unique<RectListener>(*followed.reader);
  followed.reader->ResetModified();
  followed.Write(500.5, 0.5, -9);
  followed.Publish();
  EXPECT_TRUE(Becomes([&] { return followed.reader->IsModified(); }));
  followed.Follow();
  EXPECT_EQ(ValueAt(*followed.reader, 500.5, 0.5), -9);
}

}  // namespace
}  // namespace vak::test
