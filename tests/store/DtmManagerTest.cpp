#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/stat.h>
#include <thread>

#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"

#include "support/SharedModel.h"
#include "support/SystemTemp.h"
#include "support/TestFolder.h"

namespace vak::test {
namespace {

namespace fs = std::filesystem;

using create_params = DtmManager::create_params;

DtmManager& Manager() { return DtmManager::GetDtmManager(); }

/// A model file with one sounding, closed. @return its path.
std::wstring MakeModel(const TestFolder& folder, const char* name, double z = -5.0) {
  const SharedModel model = CreateShared(folder.WideFile(name));
  if (!model || !Sound(*model, 0.5, 0.5, z)) throw std::runtime_error("no model");
  return folder.WideFile(name);
}

std::wstring MakeModelWithoutIndex(const TestFolder& folder, const char* name) {
  const std::wstring path = MakeModel(folder, name);
  fs::resize_file(folder.File(name), fs::file_size(folder.File(name)) - 1);
  return path;
}

fs::path SystemTemporaryFolder() { return fs::canonical(fs::temp_directory_path()); }

fs::path TemporaryModelFolder() { return SystemTemporaryFolder() / ("vakdtm-" + std::to_string(geteuid())); }

// ---- One object a file

TEST(DtmManager, IsOneObject) { EXPECT_EQ(&DtmManager::GetDtmManager(), &DtmManager::GetDtmManager()); }

TEST(DtmManager, OpeningTheSameFileTwiceGivesTheSameObjectWithAnOpenCountOfTwo) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const SharedModel first = OpenShared(path, true);
  const SharedModel second = OpenShared(path, true);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_EQ(first->OpenCount(), 2);
}

TEST(DtmManager, TheFileIsReadOnce) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const SharedModel first = OpenShared(path, false);
  folder.Write("a.dtm", "no grid model any more");
  const SharedModel second = OpenShared(path, false);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->NumAreas(), 1);
}

TEST(DtmManager, CloseAnswersTheRemainingCountAndTheLastOneForgetsTheModel) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  SharedModel first = OpenShared(path, true);
  SharedModel second = OpenShared(path, true);
  EXPECT_EQ(second.release()->Close(), 1);
  EXPECT_EQ(first->OpenCount(), 1);
  EXPECT_EQ(first.release()->Close(), 0);
  const create_params params;
  EXPECT_NE(CreateShared(path, params), nullptr) << "nobody has it open any more";
}

TEST(DtmManager, OtherSpellingsOfAPathAreTheSameModel) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  fs::create_directory(folder.Path() / "sub");
  fs::create_symlink(folder.Path() / "a.dtm", folder.Path() / "link.dtm");
  fs::create_directory_symlink(folder.Path(), folder.Path() / "sub" / "up");
  const SharedModel model = OpenShared(path, false);
  ASSERT_NE(model, nullptr);
  const struct {
    const char* name;
    std::string path;
  } cases[] = {
      {"a dot", folder.File("./a.dtm")},
      {"two dots", folder.File("sub/../a.dtm")},
      {"two slashes", folder.Path().string() + "//a.dtm"},
      {"a link to the file", folder.File("link.dtm")},
      {"a link to the folder", folder.File("sub/up/a.dtm")},
      {"relative", fs::relative(folder.Path()).string() + "/a.dtm"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(OpenShared(FromUtf8(c.path), false), model);
  }
  EXPECT_EQ(model->OpenCount(), 1);
}

TEST(DtmManager, NamesAreComparedWithoutRegardToCase) {
  const TestFolder folder;
  const SharedModel model = OpenShared(MakeModel(folder, "Harbour.dtm"), true);
  ASSERT_NE(model, nullptr);
  EXPECT_EQ(OpenShared(folder.WideFile("HARBOUR.DTM"), true), model);
  EXPECT_EQ(CreateShared(folder.WideFile("harbour.dtm")), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kInUse);
  EXPECT_FALSE(folder.Has("harbour.dtm"));
}

TEST(DtmManager, TwoFilesThatDifferOnlyInCaseAreTwoModels) {
  const TestFolder folder;
  const std::wstring lower = MakeModel(folder, "a.dtm", -5.0);
  const std::wstring upper = MakeModel(folder, "A.dtm", -9.0);
  const SharedModel first = OpenShared(lower, false);
  const SharedModel second = OpenShared(upper, false);
  ASSERT_TRUE(first && second);
  EXPECT_NE(first, second);
  EXPECT_EQ(ValueAt(*first, 0.5, 0.5), -5.0);
  EXPECT_EQ(ValueAt(*second, 0.5, 0.5), -9.0);
  EXPECT_EQ(OpenShared(upper, false), second);
}

// ---- Modes

TEST(DtmManager, OpeningReadWriteTurnsTheOneSharedModelIntoReadWrite) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const SharedModel reader = OpenShared(path, false);
  ASSERT_NE(reader, nullptr);
  EXPECT_FALSE(reader->IsReadWrite());
  const SharedModel writer = OpenShared(path, true);
  EXPECT_EQ(writer, reader);
  EXPECT_TRUE(reader->IsReadWrite());
}

TEST(DtmManager, AReaderDoesNotTakeAReadWriteModelDown) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const SharedModel writer = OpenShared(path, true);
  const SharedModel reader = OpenShared(path, false);
  EXPECT_EQ(writer, reader);
  EXPECT_TRUE(writer->IsReadWrite());
}

TEST(DtmManager, SharingForWritingFailsWhileAnotherProcessWrites) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const SharedModel reader = OpenShared(path, false);
  const HugeFileStream other(path.c_str(), false, true);
  EXPECT_EQ(OpenShared(path, true), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kHeldByWriter);
  EXPECT_EQ(reader->OpenCount(), 1);
  EXPECT_FALSE(reader->IsReadWrite());
  EXPECT_NE(OpenShared(path, false), nullptr) << "to read beside a writer is fine";
}

TEST(DtmManager, AModelOpenedUntouchedCannotBeSharedForWriting) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const SharedModel looked(Manager().OpenDtmUntouched(path));
  EXPECT_EQ(OpenShared(path, true), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNotWritable);
}

TEST(DtmManager, TheLastCloseOfAReaderWritesWhatItChanged) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  {
    const SharedModel reader = OpenShared(path, false);
    // Held open, so that the last close finds the change still in memory.
    ASSERT_NE(reader->GetArea(0)->OpenDataBlockAt(0), nullptr);
    EXPECT_TRUE(DtmAccess(reader.get()).SetDoubleValue(0, 0, dVAL, -7.0, true));
  }
  EXPECT_EQ(ValueAt(*OpenShared(path, false), 0.5, 0.5), -7.0);
}

TEST(DtmManager, AReaderWithoutChangesClosesCleanlyWhileAnotherProcessWrites) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const Bytes before = folder.Content("a.dtm");
  const HugeFileStream other(path.c_str(), false, true);
  SharedModel reader = OpenShared(path, false);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader.release()->Close(), 0);
  EXPECT_EQ(folder.Content("a.dtm"), before);
}

TEST(DtmManager, WhatIsOpenedUntouchedKeepsEveryByteAndItsTime) {
  const TestFolder folder;
  const std::wstring path = MakeModelWithoutIndex(folder, "a.dtm");
  const Bytes before = folder.Content("a.dtm");
  const auto time = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(folder.File("a.dtm"), time);
  {
    const SharedModel looked(Manager().OpenDtmUntouched(path));
    ASSERT_NE(looked, nullptr);
    EXPECT_EQ(looked->OpenedBy(), DtmOpenedBy::kWalk);
    EXPECT_EQ(ValueAt(*looked, 0.5, 0.5), -5.0);
    EXPECT_FALSE(looked->MakeReadWrite(true));
  }
  EXPECT_EQ(folder.Content("a.dtm"), before);
  EXPECT_EQ(fs::last_write_time(folder.File("a.dtm")), time);
}

// ---- Creating

TEST(DtmManager, CreatingAFileThatIsOpenAnswersNullAndLeavesTheModelAlone) {
  const TestFolder folder;
  const SharedModel model = OpenShared(MakeModel(folder, "a.dtm"), true);
  EXPECT_EQ(CreateShared(folder.WideFile("a.dtm")), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kInUse);
  EXPECT_EQ(model->OpenCount(), 1);
  EXPECT_EQ(ValueAt(*model, 0.5, 0.5), -5.0);
}

TEST(DtmManager, AModelThatIsNotTemporaryMakesNoFolderForSuch) {
  const TestFolder folder;
  const SystemTemp system;
  MakeModel(folder, "a.dtm");
  OpenShared(folder.WideFile("a.dtm"), false);
  EXPECT_FALSE(std::filesystem::exists(system.Ours()));
  EXPECT_NE(CreateShared(L""), nullptr);
  EXPECT_TRUE(std::filesystem::exists(system.Ours()));
}

TEST(DtmManager, CreatingEmptiesAFileThatExists) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  EXPECT_EQ(CreateShared(path)->NumAreas(), 0);
  EXPECT_EQ(OpenShared(path, false)->NumAreas(), 0);
}

TEST(DtmManager, PositiveSettingsReplaceTheDefaultsAndOthersKeepThem) {
  const TestFolder folder;
  const create_params params{16, 0.25, {iNUM, dMIN}};
  const SharedModel given = CreateShared(folder.WideFile("given.dtm"), params);
  ASSERT_NE(given, nullptr);
  EXPECT_EQ(given->AreaSize(), 16);
  EXPECT_EQ(given->CellSize(), 0.25);
  ASSERT_EQ(given->NumBlockIds(), 2);
  EXPECT_EQ(given->GetBlockId(0), iNUM);
  EXPECT_EQ(given->GetBlockId(1), dMIN);
  for (const create_params& none :
       {create_params{}, create_params{-3, -1.0, {}}, create_params{0, std::numeric_limits<double>::quiet_NaN(), {}}}) {
    const SharedModel kept = CreateShared(folder.WideFile("kept.dtm"), none);
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->AreaSize(), 64);
    EXPECT_EQ(kept->CellSize(), 1.0);
    ASSERT_EQ(kept->NumBlockIds(), 2);
    EXPECT_EQ(kept->GetBlockId(0), dVAL);
    EXPECT_EQ(kept->GetBlockId(1), iNUM);
  }
}

TEST(DtmManager, ACreatedModelIsReadWriteWhateverWasAskedFor) {
  const TestFolder folder;
  const create_params params;
  const SharedModel model(Manager().OpenDtm(folder.WideFile("a.dtm"), false, &params));
  ASSERT_NE(model, nullptr);
  EXPECT_TRUE(model->IsReadWrite());
}

TEST(DtmManager, AFailedCreationLeavesNothingBehind) {
  const TestFolder folder;
  {
    const FullDisk full(16);
    EXPECT_EQ(CreateShared(folder.WideFile("a.dtm")), nullptr);
    EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNoSpace);
  }
  EXPECT_TRUE(fs::is_empty(folder.Path()));
}

TEST(DtmManager, SettingsThatNoModelCanHaveAreFoundBeforeAFileIsTouched) {
  const TestFolder folder;
  folder.Write("old.dtm", "content");
  const struct {
    const char* name;
    create_params params;
  } cases[] = {
      {"infinite cells", {0, std::numeric_limits<double>::infinity(), {}}},
      {"areas beyond 31 bits", {46341, 1.0, {dVAL}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(CreateShared(folder.WideFile("new.dtm"), c.params), nullptr);
    EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kBadSettings);
    EXPECT_EQ(CreateShared(folder.WideFile("old.dtm"), c.params), nullptr);
  }
  EXPECT_FALSE(folder.Has("new.dtm"));
  EXPECT_EQ(folder.Text("old.dtm"), "content");
}

TEST(DtmManager, AFileHeldByAWriterKeepsItsContentWhenItIsToBeCreatedAnew) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  const Bytes before = folder.Content("a.dtm");
  const HugeFileStream other(path.c_str(), false, true);
  EXPECT_EQ(CreateShared(path), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kHeldByWriter);
  EXPECT_EQ(folder.Content("a.dtm"), before);
}

// ---- Temporary models

TEST(DtmManager, AnEmptyNameWithoutSettingsAnswersNull) {
  EXPECT_EQ(OpenShared(L"", false), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNoName);
  EXPECT_EQ(OpenShared(L"", true), nullptr);
}

TEST(DtmManager, AnEmptyNameWithSettingsMakesATemporaryModelThatIsGoneAfterTheLastClose) {
  const create_params params;
  SharedModel model = CreateShared(L"", params);
  ASSERT_NE(model, nullptr);
  const fs::path path = ToUtf8(model->FileName());
  EXPECT_EQ(path.parent_path(), TemporaryModelFolder());
  EXPECT_TRUE(path.filename().string().starts_with("Dtm")) << path;
  struct stat status = {};
  ASSERT_EQ(stat(TemporaryModelFolder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
  SharedModel second = OpenShared(model->FileName(), false);
  EXPECT_EQ(second, model);
  second.reset();
  EXPECT_TRUE(fs::exists(path)) << "not the last close";
  model.reset();
  EXPECT_FALSE(fs::exists(path));
}

TEST(DtmManager, ATemporaryModelStaysWhenThatIsAskedFor) {
  SharedModel model = CreateShared(L"");
  ASSERT_NE(model, nullptr);
  EXPECT_FALSE(model->GetFilePersis());
  model->SetTmpFilePersist(true);
  EXPECT_TRUE(model->GetFilePersis());
  const std::wstring path = model->FileName();
  EXPECT_TRUE(Sound(*model, 0.5, 0.5, -3.0));
  model.reset();
  {
    const SharedModel again = OpenShared(path, false);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(ValueAt(*again, 0.5, 0.5), -3.0);
  }
  EXPECT_FALSE(fs::exists(ToUtf8(path))) << "asked for by the first opening, not by the second";
}

TEST(DtmManager, TwoTemporaryModelsAreTwoFiles) {
  const SharedModel first = CreateShared(L"");
  const SharedModel second = CreateShared(L"");
  ASSERT_TRUE(first && second);
  EXPECT_NE(first->FileName(), second->FileName());
}

TEST(DtmManager, AModelThatAUserNamesInTheTemporaryFolderIsNotDeleted) {
  std::string name = (SystemTemporaryFolder() / "vakdtm-named-XXXXXX").string();
  const int made = mkstemp(name.data());
  ASSERT_GE(made, 0);
  close(made);
  EXPECT_NE(CreateShared(FromUtf8(name)), nullptr);
  EXPECT_TRUE(fs::exists(name));
  fs::remove(name);
}

TEST(DtmManager, ATemporaryModelThatCannotBeWrittenLeavesNothingBehind) {
  CreateShared(L"");  // the folder is there from here on
  const auto count = [] {
    return std::distance(fs::directory_iterator(TemporaryModelFolder()), fs::directory_iterator());
  };
  const auto before = count();
  {
    const FullDisk full(16);
    EXPECT_EQ(CreateShared(L""), nullptr);
    EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNoSpace);
  }
  EXPECT_EQ(count(), before);
}

// ---- Why an open failed

TEST(DtmManager, LastOpenErrorTellsWhy) {
  const TestFolder folder;
  MakeModel(folder, "held.dtm");
  const HugeFileStream holder(folder.WideFile("held.dtm").c_str(), false, true);
  folder.Write("text.dtm", "x,y,z\n");
  folder.Write("empty.dtm", "");
  Bytes damaged = folder.Content("held.dtm");
  damaged[20] ^= 0xFF;
  folder.Write("header.dtm", damaged);
  ASSERT_EQ(mkfifo(folder.File("pipe").c_str(), 0600), 0);
  fs::create_symlink("none.dtm", folder.File("nowhere.dtm"));
  fs::create_symlink("loop", folder.File("loop"));
  const std::wstring tooLong = folder.WideFile(std::string(256, 'n'));
  const create_params params;
  const struct {
    const char* name;
    std::wstring path;
    bool readWrite;
    const create_params* params;
    DtmOpenError why;
  } cases[] = {
      {"no file", folder.WideFile("none.dtm"), false, nullptr, DtmOpenError::kMissing},
      {"no file to write to", folder.WideFile("none.dtm"), true, nullptr, DtmOpenError::kMissing},
      {"no folder to create in", folder.WideFile("none/a.dtm"), true, &params, DtmOpenError::kMissing},
      {"a file where a folder should be", folder.WideFile("text.dtm/a.dtm"), false, nullptr, DtmOpenError::kMissing},
      {"a folder", folder.WideFile("."), false, nullptr, DtmOpenError::kFolder},
      {"a folder to write to", folder.WideFile("."), true, nullptr, DtmOpenError::kFolder},
      {"a folder to create", folder.WideFile("."), true, &params, DtmOpenError::kFolder},
      {"a text", folder.WideFile("text.dtm"), false, nullptr, DtmOpenError::kNoModel},
      {"an empty file", folder.WideFile("empty.dtm"), true, nullptr, DtmOpenError::kNoModel},
      {"a damaged header", folder.WideFile("header.dtm"), false, nullptr, DtmOpenError::kNoModel},
      {"another writer", folder.WideFile("held.dtm"), true, nullptr, DtmOpenError::kHeldByWriter},
      {"a pipe", folder.WideFile("pipe"), false, nullptr, DtmOpenError::kOther},
      {"no name", L"", false, nullptr, DtmOpenError::kNoName},
      {"a link to nothing", folder.WideFile("nowhere.dtm"), false, nullptr, DtmOpenError::kLinkNowhere},
      {"a link to nothing to create", folder.WideFile("nowhere.dtm"), true, &params, DtmOpenError::kLinkNowhere},
      {"a loop of links", folder.WideFile("loop"), false, nullptr, DtmOpenError::kLinkNowhere},
      {"a name too long", tooLong, false, nullptr, DtmOpenError::kNameTooLong},
      {"a name too long to create", tooLong, true, &params, DtmOpenError::kNameTooLong},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(SharedModel(Manager().OpenDtm(c.path, c.readWrite, c.params)), nullptr);
    EXPECT_EQ(DtmManager::LastOpenError(), c.why);
  }
}

TEST(DtmManager, LastOpenErrorTellsWhatTheSystemForbids) {
  const TestFolder folder;
  const std::wstring closed = MakeModel(folder, "closed.dtm");
  const std::wstring readable = MakeModel(folder, "readable.dtm");
  fs::permissions(folder.Path(), fs::perms(0755));
  fs::permissions(folder.File("closed.dtm"), fs::perms::none);
  fs::permissions(folder.File("readable.dtm"), fs::perms(0444));
  const AsStranger stranger;
  EXPECT_EQ(OpenShared(closed, false), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNotReadable);
  EXPECT_EQ(OpenShared(readable, true), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNotWritable);
  EXPECT_NE(SharedModel(Manager().OpenDtmUntouched(readable)), nullptr);
}

TEST(DtmManager, AFolderThatMayNotBeEnteredIsToldFromAFileThatIsNotThere) {
  const TestFolder folder;
  fs::permissions(folder.Path(), fs::perms(0755));
  fs::create_directory(folder.File("closed"));
  MakeModel(folder, "closed/a.dtm");
  fs::permissions(folder.File("closed"), fs::perms::none);
  {
    const AsStranger stranger;
    const create_params params;
    EXPECT_EQ(OpenShared(folder.WideFile("closed/a.dtm"), false), nullptr);
    EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNotPermitted);
    EXPECT_EQ(CreateShared(folder.WideFile("closed/new.dtm"), params), nullptr);
    EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNotPermitted);
  }
  fs::permissions(folder.File("closed"), fs::perms(0755));
}

TEST(DtmManager, LastOpenErrorIsTheCallingThreadsAndGoneAfterASuccess) {
  const TestFolder folder;
  const std::wstring path = MakeModel(folder, "a.dtm");
  EXPECT_EQ(OpenShared(L"", false), nullptr);
  DtmOpenError elsewhere = DtmOpenError::kOther;
  std::thread([&] { elsewhere = DtmManager::LastOpenError(); }).join();
  EXPECT_EQ(elsewhere, DtmOpenError::kNone);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNoName);
  EXPECT_NE(OpenShared(path, false), nullptr);
  EXPECT_EQ(DtmManager::LastOpenError(), DtmOpenError::kNone);
}

// ---- The rest

TEST(DtmManager, SetDtmSyncTimeStoresAtLeast500AndAnswersTheOldValue) {
  EXPECT_EQ(Manager().SetDtmSyncTime(100), 2000);
  EXPECT_EQ(Manager().SetDtmSyncTime(65535), 500);
  EXPECT_EQ(Manager().SetDtmSyncTime(499), 65535);
  EXPECT_EQ(Manager().SetDtmSyncTime(501), 500);
  EXPECT_EQ(Manager().SetDtmSyncTime(2000), 501);
}

TEST(DtmManager, LockIsReentrantAndKeepsOthersOut) {
  EXPECT_TRUE(Manager().Lock());
  EXPECT_TRUE(Manager().Lock());
  bool taken = true;
  const auto tryElsewhere = [&] {
    std::thread([&] {
      taken = Manager().try_lock();
      if (taken) Manager().unlock();
    }).join();
  };
  tryElsewhere();
  EXPECT_FALSE(taken);
  Manager().Unlock();
  tryElsewhere();
  EXPECT_FALSE(taken);
  Manager().Unlock();
  tryElsewhere();
  EXPECT_TRUE(taken);
}

TEST(DtmManager, FileNamesBeyondAsciiAreFoundAndTold) {
  const TestFolder folder;
  const std::wstring path = folder.WideFile("") + L"h\u00e4fen \u6df1.dtm";
  const SharedModel model = CreateShared(path);
  ASSERT_NE(model, nullptr);
  EXPECT_TRUE(
      folder.Has("h\xc3\xa4"
                 "fen \xe6\xb7\xb1.dtm"));
  EXPECT_EQ(model->Name(), L"h\u00e4fen \u6df1");
}

}  // namespace
}  // namespace vak::test
