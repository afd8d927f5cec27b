#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/SharedModel.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

void ExpectPage(const Page& page, double left, double bottom, double right, double top) {
  EXPECT_EQ(page.left(), left);
  EXPECT_EQ(page.bottom(), bottom);
  EXPECT_EQ(page.right(), right);
  EXPECT_EQ(page.top(), top);
}

/// A clock that was never read by anybody stands here, far from the counter's ends.
constexpr std::uint32_t kStart = 1000000;

/// A model under a counter of milliseconds that moves only when told to.
struct WatchedModel {
  explicit WatchedModel(std::uint32_t milliseconds = kStart) : scope(clock) {
    clock.SetMilliseconds(milliseconds);
    model = CreateShared(folder.WideFile("a.dtm"));
    if (!model) throw std::runtime_error("no model");
    listener = std::make_unique<RectListener>(*model);
  }

  void Add(double left, double bottom, double right, double top, bool flag = false) {
    model->AddUpdateRect({left, bottom, right, top}, flag);
  }
  /// Notifies once, so that the next rectangle is gathered until 126 ms from now.
  void NotifyNow() {
    Add(0, 0, 1, 1);
    listener->heard.clear();
  }

  TestFolder folder;
  ManualClock clock;
  ScopedClock scope;
  SharedModel model;
  std::unique_ptr<RectListener> listener;
};

// ---- Names and modes

TEST(DtmUpdateFile, NameIsTheTitleAndFileNameTheFullPath) {
  const TestFolder folder;
  std::filesystem::create_directory(folder.Path() / "sub");
  const SharedModel model = CreateShared(folder.WideFile("sub/../sub/harbour north.2024.dtm"));
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(model->Name(), L"harbour north.2024");
  EXPECT_EQ(ToUtf8(model->FileName()),
            std::filesystem::canonical(folder.Path() / "sub" / "harbour north.2024.dtm").string());
}

TEST(DtmUpdateFile, ItsStreamIsTheOneItWasGiven) {
  const TestFolder folder;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  const auto* const stream = dynamic_cast<HugeFileStream*>(model->GetStream());
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(model->FileName(), stream->FileName());
  EXPECT_EQ(model->IsReadWrite(), stream->IsReadWrite());
}

TEST(DtmUpdateFile, MakeReadWriteInTheSameModeIsTrue) {
  const TestFolder folder;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  EXPECT_TRUE(model->MakeReadWrite(true));
  EXPECT_TRUE(model->IsReadWrite());
  EXPECT_TRUE(model->MakeReadWrite(false));
  EXPECT_TRUE(model->MakeReadWrite(false));
  EXPECT_FALSE(model->IsReadWrite());
}

TEST(DtmUpdateFile, ASecondWriterIsRefusedWithNothingChanged) {
  const TestFolder folder;
  CreateShared(folder.WideFile("a.dtm")).reset();
  const SharedModel model = OpenShared(folder.WideFile("a.dtm"), false);
  {
    const HugeFileStream other(folder.WideFile("a.dtm").c_str(), false, true);
    EXPECT_FALSE(model->MakeReadWrite(true));
    EXPECT_FALSE(model->IsReadWrite());
    EXPECT_EQ(model->LastStreamError(), StreamError::kHeldByWriter);
  }
  EXPECT_TRUE(model->MakeReadWrite(true));
  EXPECT_TRUE(model->IsReadWrite());
}

TEST(DtmUpdateFile, GoingToReadOnlyGivesTheLockBack) {
  const TestFolder folder;
  const SharedModel model = CreateShared(folder.WideFile("a.dtm"));
  model->Sync();
  EXPECT_TRUE(model->MakeReadWrite(false));
  EXPECT_TRUE(HugeFileStream(folder.WideFile("a.dtm").c_str(), false, true).IsOpen());
}

/// Changes a model as another process does: through a stream of its own, and complete when it returns.
void WriteElsewhere(const std::wstring& path, double x, double y, double z) {
  DtmFile other(new HugeFileStream(path.c_str(), false, true), false);
  ASSERT_TRUE(other.Open());
  ASSERT_TRUE(Sound(other, x, y, z));
  other.Close();
  // Whatever the grain of the file system's clock, the time has moved.
  const std::filesystem::path file = ToUtf8(path);
  std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) + std::chrono::seconds(1));
}

TEST(DtmUpdateFile, AModelThatBecomesWritableFirstCatchesUp) {
  WatchedModel watched;
  TimeStands time(1000);
  const std::wstring path = watched.model->FileName();
  EXPECT_TRUE(Sound(*watched.model, 0.5, 0.5, -5.0, 1000));
  watched.model->Sync();
  EXPECT_TRUE(watched.model->MakeReadWrite(false));
  time.At(2000);
  WriteElsewhere(path, 0.5, 0.5, -7.0);
  WriteElsewhere(path, 100.5, 0.5, -9.0);
  watched.listener->heard.clear();

  EXPECT_TRUE(watched.model->MakeReadWrite(true));

  EXPECT_EQ(ValueAt(*watched.model, 0.5, 0.5), -6.0);
  EXPECT_EQ(ValueAt(*watched.model, 100.5, 0.5), -9.0);
  EXPECT_FALSE(watched.listener->heard.empty());
}

TEST(DtmUpdateFile, AReaderCountsWithAWriterAndAWriterDoesNot) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  EXPECT_FALSE(CreateShared(path)->IsFollowing());
  const SharedModel model = OpenShared(path, false);
  ASSERT_NE(model, nullptr);
  EXPECT_TRUE(model->IsFollowing());
  EXPECT_TRUE(model->MakeReadWrite(true));
  EXPECT_FALSE(model->IsFollowing());
  EXPECT_TRUE(model->MakeReadWrite(false));
  EXPECT_TRUE(model->IsFollowing());
}

/// How many areas a model has when it becomes writable behind another writer whose one area left the file's time as it
/// was, `age` before now.
int AreasBehindAWriterUnseen(std::chrono::seconds age) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  const std::filesystem::path file = folder.Path() / "a.dtm";
  EXPECT_NE(CreateShared(path), nullptr);
  const auto time = std::filesystem::file_time_type::clock::now() - age;
  std::filesystem::last_write_time(file, time);
  const SharedModel model = OpenShared(path, false);
  {
    DtmFile other(new HugeFileStream(path.c_str(), false, true), false);
    EXPECT_TRUE(other.Open());
    EXPECT_TRUE(Sound(other, 0.5, 0.5, -5.0));
    other.Close();
  }
  std::filesystem::last_write_time(file, time);
  EXPECT_TRUE(model->MakeReadWrite(true));
  return model->NumAreas();
}

TEST(DtmUpdateFile, AModelThatBecomesWritableReadsNothingWhenTheFilesTimeStoodStill) {
  EXPECT_EQ(AreasBehindAWriterUnseen(std::chrono::seconds(60)), 0);
}

TEST(DtmUpdateFile, ATimeWithinTheGrainOfNowIsNotBelieved) {
  EXPECT_EQ(AreasBehindAWriterUnseen(std::chrono::seconds(0)), 1);
}

// ---- Syncing

TEST(DtmUpdateFile, SyncOfAReadWriteModelWritesOutAndAnnounces) {
  WatchedModel watched;
  watched.NotifyNow();
  EXPECT_TRUE(Sound(*watched.model, 0.5, 0.5, -5.0));
  watched.Add(0, 0, 1, 1);
  watched.model->Sync();
  EXPECT_EQ(watched.listener->heard.size(), 1u);
  DtmFile reader(new HugeFileStream(watched.model->FileName().c_str(), false, false), false);
  ASSERT_TRUE(reader.Open());
  EXPECT_EQ(reader.OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(ValueAt(reader, 0.5, 0.5), -5.0);
}

TEST(DtmUpdateFile, SyncOfAReaderReadsInWhatAnotherProcessWroteAndTellsWhere) {
  TimeStands time(1000);
  WatchedModel watched;
  const std::wstring path = watched.model->FileName();
  EXPECT_TRUE(Sound(*watched.model, 0.5, 0.5, -5.0, 1000));
  watched.model->Sync();
  EXPECT_TRUE(watched.model->MakeReadWrite(false));
  watched.NotifyNow();
  watched.model->ResetModified();
  WriteElsewhere(path, 100.5, -0.5, -9.0);

  watched.model->Sync();

  EXPECT_EQ(ValueAt(*watched.model, 100.5, -0.5), -9.0);
  ASSERT_EQ(watched.listener->heard.size(), 1u);
  ExpectPage(watched.listener->heard[0].rect, 64, -64, 128, 0);
  EXPECT_FALSE(watched.listener->heard[0].flag) << "a new area";
  EXPECT_TRUE(watched.model->IsModified()) << "one more pass follows";
  watched.model->ResetModified();
  watched.model->Sync();
  EXPECT_FALSE(watched.model->IsModified()) << "and finds nothing";
}

TEST(DtmUpdateFile, SyncOfAReaderLeavesTheModelAsItWasWhileTheFileHasNoIndex) {
  WatchedModel watched;
  EXPECT_TRUE(Sound(*watched.model, 0.5, 0.5, -5.0));
  watched.model->Sync();
  EXPECT_TRUE(watched.model->MakeReadWrite(false));
  std::filesystem::resize_file(ToUtf8(watched.model->FileName()),
                               static_cast<std::uintmax_t>(watched.model->FileSize()) - 1);
  watched.model->Sync();
  EXPECT_EQ(watched.model->NumAreas(), 1);
  EXPECT_EQ(ValueAt(*watched.model, 0.5, 0.5), -5.0);
}

TEST(DtmUpdateFile, OnFileModifiedSetsTheFlagAndNothingElse) {
  WatchedModel watched;
  watched.model->ResetModified();
  EXPECT_FALSE(watched.model->IsModified());
  watched.model->OnFileModified();
  EXPECT_TRUE(watched.model->IsModified());
  EXPECT_TRUE(watched.listener->heard.empty());
}

// ---- Update rectangles

TEST(DtmUpdateFile, ARectangleMarksTheModelModified) {
  WatchedModel watched;
  watched.model->ResetModified();
  watched.Add(0, 0, 1, 1);
  EXPECT_TRUE(watched.model->IsModified());
}

TEST(DtmUpdateFile, TheFirstRectangleIsAnnouncedAtOnceUnderTheFilesName) {
  WatchedModel watched;
  watched.Add(1, 2, 3, 4, true);
  ASSERT_EQ(watched.listener->heard.size(), 1u);
  const RectListener::Heard& heard = watched.listener->heard[0];
  EXPECT_EQ(heard.kind, 1);
  EXPECT_EQ(heard.name, watched.model->FileName());
  EXPECT_EQ(heard.thread, std::this_thread::get_id());
  ASSERT_TRUE(heard.pending) << "the subscriber fetches it within the call";
  ExpectPage(heard.rect, 1, 2, 3, 4);
  EXPECT_TRUE(heard.flag);
}

TEST(DtmUpdateFile, RectanglesUniteAndFlagsAddUp) {
  WatchedModel watched;
  watched.NotifyNow();
  watched.Add(10, 10, 11, 11, false);
  watched.Add(-5, 12, -4, 13, true);
  watched.Add(0, 0, 1, 1, false);
  Page rect;
  bool flag = false;
  ASSERT_TRUE(watched.model->GetUpdateRect(rect, flag));
  ExpectPage(rect, -5, 0, 11, 13);
  EXPECT_TRUE(flag);
  EXPECT_TRUE(watched.listener->heard.empty());
}

TEST(DtmUpdateFile, GetUpdateRectDoesNotClear) {
  WatchedModel watched;
  watched.NotifyNow();
  Page rect{7, 7, 8, 8};
  bool flag = true;
  EXPECT_FALSE(watched.model->GetUpdateRect(rect, flag));
  ExpectPage(rect, 7, 7, 8, 8);
  EXPECT_TRUE(flag);
  watched.Add(1, 2, 3, 4);
  EXPECT_TRUE(watched.model->GetUpdateRect(rect, flag));
  EXPECT_TRUE(watched.model->GetUpdateRect(rect, flag));
  ExpectPage(rect, 1, 2, 3, 4);
  EXPECT_FALSE(flag);
}

TEST(DtmUpdateFile, AFlushClearsRectangleAndFlag) {
  WatchedModel watched;
  watched.NotifyNow();
  watched.Add(1, 2, 3, 4, true);
  watched.model->FlushUpdateRect();
  EXPECT_EQ(watched.listener->heard.size(), 1u);
  Page rect;
  bool flag = false;
  EXPECT_FALSE(watched.model->GetUpdateRect(rect, flag));
  watched.Add(5, 6, 7, 8, false);
  ASSERT_TRUE(watched.model->GetUpdateRect(rect, flag));
  ExpectPage(rect, 5, 6, 7, 8);
  EXPECT_FALSE(flag);
}

TEST(DtmUpdateFile, AFlushWithNothingGatheredTellsNobody) {
  WatchedModel watched;
  watched.model->FlushUpdateRect();
  EXPECT_TRUE(watched.listener->heard.empty());
  watched.NotifyNow();
  watched.clock.AdvanceMilliseconds(100);
  watched.model->FlushUpdateRect();
  watched.clock.AdvanceMilliseconds(26);
  watched.Add(0, 0, 1, 1);
  EXPECT_EQ(watched.listener->heard.size(), 1u) << "nor does it put the next announcement off";
}

TEST(DtmUpdateFile, AtMostOneAnnouncementIn126Milliseconds) {
  WatchedModel watched;
  watched.NotifyNow();
  watched.clock.AdvanceMilliseconds(125);
  watched.Add(1, 1, 2, 2);
  EXPECT_TRUE(watched.listener->heard.empty());
  watched.clock.AdvanceMilliseconds(1);
  watched.Add(5, 5, 6, 6);
  ASSERT_EQ(watched.listener->heard.size(), 1u);
  ExpectPage(watched.listener->heard[0].rect, 1, 1, 6, 6);
}

TEST(DtmUpdateFile, AFlushStartsTheWaitAnew) {
  WatchedModel watched;
  watched.NotifyNow();
  watched.clock.AdvanceMilliseconds(100);
  watched.Add(1, 1, 2, 2);
  watched.model->FlushUpdateRect();
  watched.clock.AdvanceMilliseconds(125);
  watched.Add(1, 1, 2, 2);
  EXPECT_EQ(watched.listener->heard.size(), 1u);
  watched.clock.AdvanceMilliseconds(1);
  watched.Add(1, 1, 2, 2);
  EXPECT_EQ(watched.listener->heard.size(), 2u);
}

TEST(DtmUpdateFile, TheFirstRectangleWaitsOnlyInTheCountersFirst126Milliseconds) {
  WatchedModel early(125);
  early.Add(0, 0, 1, 1);
  EXPECT_TRUE(early.listener->heard.empty());
  WatchedModel later(126);
  later.Add(0, 0, 1, 1);
  EXPECT_EQ(later.listener->heard.size(), 1u);
}

TEST(DtmUpdateFile, ACounterThatHasWrappedAnnouncesAtOnce) {
  WatchedModel watched(0xFFFFFFF0U);
  watched.NotifyNow();
  watched.clock.AdvanceMilliseconds(15);
  watched.Add(0, 0, 1, 1);
  EXPECT_TRUE(watched.listener->heard.empty()) << "0xFFFFFFFF, not wrapped yet";
  watched.clock.AdvanceMilliseconds(1);
  watched.Add(0, 0, 1, 1);
  EXPECT_EQ(watched.listener->heard.size(), 1u);
}

TEST(DtmUpdateFile, ASubscriberMayFlushAgainWithinItsCall) {
  WatchedModel watched;
  class Adder final : public Subscriber {
   public:
    explicit Adder(DtmUpdateFile& model) : model_(model) {}
    void OnNotify(int, const std::wstring&, const NotificationInfo*) override {
      if (++calls == 1) model_.FlushUpdateRect();
    }
    int calls = 0;

   private:
    DtmUpdateFile& model_;
  } adder(*watched.model);
  Subscription subscription(1);
  subscription.SetSubscriber(&adder, false);
  subscription.Subscribe(watched.model->FileName());
  watched.Add(1, 2, 3, 4);
  EXPECT_EQ(adder.calls, 2) << "the rectangle's lock is the thread's own";
}

TEST(DtmUpdateFile, NobodyElsesNameIsAnnounced) {
  WatchedModel watched;
  const SharedModel other = CreateShared(watched.folder.WideFile("b.dtm"));
  other->AddUpdateRect({0, 0, 1, 1}, false);
  EXPECT_TRUE(watched.listener->heard.empty());
}

// ---- A file that another writer left without an index

/// Adds areas of a cell each as another process does that ends before it writes an index.
void DieElsewhere(const std::wstring& path) {
  {
    DtmFile other(new HugeFileStream(path.c_str(), false, true), false);
    ASSERT_TRUE(other.Open());
    ASSERT_TRUE(Sound(other, 100.5, 0.5, -9.0));
    ASSERT_TRUE(Sound(other, 300.5, 0.5, -11.0));
  }
  const std::filesystem::path file = ToUtf8(path);
  std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) + std::chrono::seconds(1));
}

std::string BytesOf(const std::wstring& path) {
  std::ifstream in(ToUtf8(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// Changes the second area's `attr` tag, so that a walk has to stop in front of it; and back again.
void ToggleDamage(const std::wstring& path) {
  std::string bytes = BytesOf(path);
  const std::size_t second = bytes.find("aera", bytes.find("aera") + 1);
  ASSERT_NE(second, std::string::npos);
  bytes[second + 8] = static_cast<char>(bytes[second + 8] ^ 1);
  std::ofstream(ToUtf8(path), std::ios::binary) << bytes;
}

TEST(DtmUpdateFile, AModelStaysReadOnlyWhileWhatAnotherWriterLeftCantBeFollowed) {
  WatchedModel watched;
  TimeStands time(1000);
  const std::wstring path = watched.model->FileName();
  EXPECT_TRUE(Sound(*watched.model, 0.5, 0.5, -5.0, 1000));
  watched.model->Sync();
  ASSERT_TRUE(watched.model->MakeReadWrite(false));
  time.At(2000);
  DieElsewhere(path);
  ToggleDamage(path);
  const std::string before = BytesOf(path);

  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_FALSE(watched.model->MakeReadWrite(true));
    EXPECT_FALSE(watched.model->IsReadWrite());
    EXPECT_EQ(ValueAt(*watched.model, 0.5, 0.5), -5.0) << "the model is as it was";
    EXPECT_EQ(watched.model->NumAreas(), 1);
    watched.model->Sync();
    EXPECT_TRUE(BytesOf(path) == before);
    EXPECT_TRUE(HugeFileStream(path.c_str(), false, true).IsOpen()) << "others may write";
  }
  ToggleDamage(path);
  EXPECT_TRUE(watched.model->MakeReadWrite(true));
  EXPECT_EQ(ValueAt(*watched.model, 300.5, 0.5), -11.0);
}

TEST(DtmUpdateFile, WhatAWriterLeftThatDiedWithoutAnIndexIsFoundByAWalk) {
  WatchedModel watched;
  TimeStands time(1000);
  const std::wstring path = watched.model->FileName();
  EXPECT_TRUE(Sound(*watched.model, 0.5, 0.5, -5.0, 1000));
  watched.model->Sync();
  ASSERT_TRUE(watched.model->MakeReadWrite(false));
  DtmAccess holder(watched.model.get());  // the cell stays resident, and yet it is read afresh
  double value = 0;
  ASSERT_TRUE(holder.GetDoubleValue(0, 0, dVAL, value));
  {
    // In the same second as before: the time of the area doesn't tell that it has changed.
    DtmFile other(new HugeFileStream(path.c_str(), false, true), false);
    ASSERT_TRUE(other.Open());
    ASSERT_TRUE(Sound(other, 0.5, 0.5, -7.0));
  }
  DieElsewhere(path);

  watched.listener->heard.clear();
  EXPECT_TRUE(watched.model->MakeReadWrite(true));
  EXPECT_TRUE(watched.model->IsReadWrite());
  EXPECT_FALSE(watched.listener->heard.empty()) << "views hear of it";
  ASSERT_TRUE(holder.GetDoubleValue(0, 0, dVAL, value));
  EXPECT_EQ(value, -6.0);
  EXPECT_EQ(ValueAt(*watched.model, 100.5, 0.5), -9.0);
  EXPECT_EQ(ValueAt(*watched.model, 300.5, 0.5), -11.0);
  EXPECT_TRUE(Sound(*watched.model, 500.5, 0.5, -13.0));
  watched.model->Sync();
  DtmFile reader(new HugeFileStream(path.c_str(), false, false), false);
  ASSERT_TRUE(reader.Open());
  EXPECT_EQ(reader.OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(reader.NumAreas(), 4);
  EXPECT_EQ(ValueAt(reader, 300.5, 0.5), -11.0);
}

TEST(DtmUpdateFile, TheLastCloseGivesAFileWhoseWriterDiedItsIndex) {
  WatchedModel watched;
  const std::wstring path = watched.model->FileName();
  EXPECT_TRUE(Sound(*watched.model, 0.5, 0.5, -5.0));
  watched.model->Sync();
  ASSERT_TRUE(watched.model->MakeReadWrite(false));
  DieElsewhere(path);
  watched.listener.reset();
  watched.model.reset();
  const SharedModel again = OpenShared(path, false);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->OpenedBy(), DtmOpenedBy::kIndex);
  EXPECT_EQ(ValueAt(*again, 0.5, 0.5), -5.0);
  EXPECT_EQ(ValueAt(*again, 300.5, 0.5), -11.0);
}

}  // namespace
}  // namespace vak::test
