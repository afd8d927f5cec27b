// One writer after another, and readers between: what the one that comes must not believe, and must not go over.
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>

#include "support/OtherWriter.h"
#include "support/SharedModel.h"
#include "support/TestFolder.h"
#include "support/TestGrid.h"

namespace vak::test {
namespace {

/// Reads a file that is written to between two readings.
class HookedStream final : public DataStream {
 public:
  explicit HookedStream(std::shared_ptr<MemoryFile> file) : in_(std::move(file)) {}
  bool Sync() override { return in_.Sync(); }
  bool Read(void* buffer, std::uint64_t count) override {
    if (before) before(count);
    return in_.Read(buffer, count);
  }
  bool Write(const void* buffer, std::uint64_t count) override { return in_.Write(buffer, count); }
  bool Seek(std::int64_t offset, int origin) override { return in_.Seek(offset, origin); }
  std::int64_t Position() override { return in_.Position(); }
  bool SetSize(std::int64_t size) override { return in_.SetSize(size); }
  std::function<void(std::uint64_t)> before;

 private:
  MemoryStream in_;
};

TEST(DtmChangeOfWriter, AnIndexThatIsGoneOverWhileItIsReadIsNone) {
  constexpr int kAreas = 100;
  TestGrid writer({.cellSize = 1.0, .areaSize = 1, .blockIds = {dVAL}});
  for (int col = 0; col < kAreas; ++col) ASSERT_TRUE(writer.Set(0, col, dVAL, col + 1));
  ASSERT_TRUE(writer.File().SyncWrite());
  auto stream = std::make_unique<HookedStream>(writer.Shared());
  HookedStream& hooked = *stream;
  DtmFile reader(stream.release(), false);
  ASSERT_TRUE(reader.Open());
  {
    DtmAccess view(&reader);
    view.SetCacheSize(2 * kAreas);
    for (int col = 0; col < kAreas; ++col) ASSERT_EQ(Get(view, 0, col), col + 1);
    bool done = false;
    hooked.before = [&](std::uint64_t count) {
      if (done || count != 32 * kAreas) return;  // the entries; head and tail have been read
      done = true;
      for (int col = kAreas; col < kAreas + 30; ++col) ASSERT_TRUE(writer.Set(0, col, dVAL, col + 1));
    };
    EXPECT_FALSE(reader.SyncRead(nullptr));
    ASSERT_TRUE(done);
    for (int col = 0; col < kAreas; ++col) EXPECT_EQ(Get(view, 0, col), col + 1) << "the model is as it was";
    ASSERT_TRUE(writer.File().SyncWrite());
    EXPECT_TRUE(reader.SyncRead(nullptr));
    for (int col = 0; col < kAreas + 30; ++col) EXPECT_EQ(Get(view, 0, col), col + 1);
  }
  reader.Close();
}

TEST(DtmChangeOfWriter, AShellThatHasItsPlaceAgainIsReadAfreshWhateverItsTime) {
  const TimeStands time(1000);
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  auto writer = std::make_unique<OtherWriter>(path, true);
  writer->Set(0, 0, 1);
  writer->Set(0, 100, 4);
  writer->Publish();
  SharedModel reader = OpenShared(path, false);
  ASSERT_NE(reader, nullptr);
  {
    DtmAccess view(reader.get());
    ASSERT_EQ(Get(view, 0, 0), 1);
    writer->Clear(0, 0);
    writer->Publish();
    reader->Sync();
    EXPECT_TRUE(IsEmptyValue(Get(view, 0, 0)));
    writer->Set(0, 0, 11);
    writer->Publish();
    reader->Sync();
    EXPECT_EQ(Get(view, 0, 0), 11);
    EXPECT_FALSE(reader->GetArea(0, 0, false)->IsModified());
    writer.reset();
    // One that has only looked takes over: nothing of what it holds goes over the file.
    ASSERT_TRUE(reader->MakeReadWrite(true));
    EXPECT_TRUE(reader->SyncWrite());
  }
  reader.reset();
  EXPECT_EQ(InTheFile(path, 0, 0), 11);
}

TEST(DtmChangeOfWriter, WhatWasWrittenInTheSecondOfTheLastLookIsReadBeforeAnythingIsWritten) {
  const TimeStands time(1000);
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  auto writer = std::make_unique<OtherWriter>(path, true);
  writer->Set(0, 0, 1);
  writer->Publish();
  SharedModel reader = OpenShared(path, false);
  ASSERT_NE(reader, nullptr);
  {
    DtmAccess view(reader.get());
    ASSERT_EQ(Get(view, 0, 0), 1);
    writer->Set(1, 1, 2);
    writer->Publish();
    writer.reset();
    ASSERT_TRUE(reader->MakeReadWrite(true));
    EXPECT_EQ(Get(view, 1, 1), 2);
    ASSERT_TRUE(view.SetDoubleValue(2, 2, dVAL, 3, true));
  }
  reader.reset();
  EXPECT_EQ(InTheFile(path, 1, 1), 2);
  EXPECT_EQ(InTheFile(path, 2, 2), 3);
}

TEST(DtmChangeOfWriter, AReaderThatChangedNothingLeavesTheIndexAsTheWriterMadeIt) {
  const TimeStands time(1000);
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  auto writer = std::make_unique<OtherWriter>(path, true);
  writer->Set(0, 0, 1);
  writer->Publish();
  SharedModel reader = OpenShared(path, false);
  ASSERT_NE(reader, nullptr);
  writer->Set(1, 1, 50);  // the range moves, the time doesn't
  writer.reset();
  const auto before = folder.Content("a.dtm");
  reader->Sync();
  reader.reset();
  EXPECT_EQ(folder.Content("a.dtm"), before);
}

TEST(DtmChangeOfWriter, AModelWhoseFileWasReplacedDoesntBecomeWritable) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  {
    OtherWriter(path, true).Set(0, 0, 1);
  }
  {
    OtherWriter(folder.WideFile("backup.dtm"), true).Set(0, 0, 7);
  }
  const SharedModel reader = OpenShared(path, false);
  ASSERT_NE(reader, nullptr);
  std::filesystem::rename(folder.Path() / "backup.dtm", folder.Path() / "a.dtm");
  EXPECT_FALSE(reader->MakeReadWrite(true));
  EXPECT_EQ(OpenShared(path, true), nullptr);
  EXPECT_EQ(reader->OpenCount(), 1);
  EXPECT_EQ(InTheFile(path, 0, 0), 7);
}

TEST(DtmChangeOfWriter, AFileIsOneModelByEveryNameAndTwoFilesAreTwo) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("a.dtm");
  {
    OtherWriter(path, true).Set(0, 0, 1);
  }
  std::filesystem::create_hard_link(folder.Path() / "a.dtm", folder.Path() / "b.dtm");
  const SharedModel model = OpenShared(path, false);
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(OpenShared(folder.WideFile("b.dtm"), false).get(), model.get());
  std::filesystem::remove(folder.Path() / "a.dtm");
  {
    OtherWriter(folder.WideFile("A.dtm"), true).Set(0, 0, 2);
  }
  const SharedModel other = OpenShared(folder.WideFile("A.dtm"), false);
  ASSERT_NE(other, nullptr);
  EXPECT_NE(other.get(), model.get());
  EXPECT_EQ(ValueAt(*other, 0.5, 0.5), 2);
}

}  // namespace
}  // namespace vak::test
