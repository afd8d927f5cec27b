#include "vakdtm/store/DtmManager.h"

#include <algorithm>
#include <chrono>
#include <cwctype>
#include <filesystem>
#include <mutex>
#include <system_error>

#include "vakdtm/services/files/FileName.h"
#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/notify/FileWatcher.h"
#include "vakdtm/services/notify/SubscriptionManager.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

namespace fs = std::filesystem;

constexpr std::uint16_t kShortestSyncTime = 500;

thread_local DtmOpenError lastOpenError = DtmOpenError::kNone;

DtmUpdateFile* Failed(DtmOpenError why) {
  lastOpenError = why;
  return nullptr;
}

fs::path PathOf(const std::wstring& name) { return {ToUtf8(name)}; }

bool EqualButForCase(const std::wstring& a, const std::wstring& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) {
    return std::towlower(static_cast<std::wint_t>(x)) == std::towlower(static_cast<std::wint_t>(y));
  });
}

/// Whether a name means an open model. Names are compared without regard to case, but two files that differ only in
/// case are two models, and one file is one model whatever it is called.
bool Means(const std::wstring& name, const DtmUpdateFile& model) {
  if (name == model.FileName()) return true;
  std::error_code error;
  return fs::exists(PathOf(name), error) ? model.IsFileOf(name) : EqualButForCase(name, model.FileName());
}

DtmOpenError ReasonOf(StreamError error) {
  switch (error) {
    case StreamError::kNone:
      return DtmOpenError::kNoModel;  // the stream did all it was asked: the bytes are to blame
    case StreamError::kMissing:
      return DtmOpenError::kMissing;
    case StreamError::kNotReadable:
      return DtmOpenError::kNotReadable;
    case StreamError::kNotWritable:
      return DtmOpenError::kNotWritable;
    case StreamError::kFolder:
      return DtmOpenError::kFolder;
    case StreamError::kHeldByWriter:
      return DtmOpenError::kHeldByWriter;
    case StreamError::kNoSpace:
      return DtmOpenError::kNoSpace;
    case StreamError::kLinkNowhere:
      return DtmOpenError::kLinkNowhere;
    case StreamError::kNameTooLong:
      return DtmOpenError::kNameTooLong;
    default:
      return DtmOpenError::kOther;
  }
}

/// Why the system couldn't say which file a name is.
DtmOpenError ReasonOf(const std::error_code& error) {
  if (error == std::errc::permission_denied) return DtmOpenError::kNotPermitted;
  if (error == std::errc::too_many_symbolic_link_levels) return DtmOpenError::kLinkNowhere;
  if (error == std::errc::filename_too_long) return DtmOpenError::kNameTooLong;
  return error == std::errc::no_such_file_or_directory ? DtmOpenError::kMissing : DtmOpenError::kOther;
}

void ApplySettings(DtmFile& model, const DtmManager::create_params& params) {
  if (params.areaSize > 0) model.SetAreaSize(params.areaSize);
  if (params.cellSize > 0) model.SetCellSize(params.cellSize);
  if (params.blockIds.empty()) return;
  model.ClearBlockIds();
  for (const int id : params.blockIds) model.AddBlockId(id);
}

bool AreUsable(const DtmManager::create_params& params) {
  DtmFile trial(nullptr, true);
  ApplySettings(trial, params);
  return trial.HasUsableSettings();
}

}  // namespace

DtmManager& DtmManager::GetDtmManager() {
  static DtmManager manager;
  return manager;
}

DtmManager::DtmManager() {
  // Models that are still open when the process ends give their subscriptions back: these must go after the manager.
  SubscriptionManager::Instance();
  FileWatcher::Instance();
}

DtmManager::~DtmManager() {
  const std::scoped_lock lock(mutex_);
  // Ended from within a notification of the sync thread, a model is in the middle of its work and must outlive it.
  const bool isAtWork = syncer_ && syncer_->thread->IsCurrent();
  EndSyncing();
  if (!isAtWork) return;
  for (auto& model : models_) [[maybe_unused]]
    const DtmUpdateFile* const forever = model.release();
}

DtmUpdateFile* DtmManager::OpenDtm(const std::wstring& name, bool readWrite, const create_params* params) {
  return Open(name, readWrite ? Access::kReadWrite : Access::kRead, params);
}

DtmUpdateFile* DtmManager::OpenDtmUntouched(const std::wstring& name) {
  return Open(name, Access::kReadOnlyForGood, nullptr);
}

DtmOpenError DtmManager::LastOpenError() { return lastOpenError; }

DtmUpdateFile* DtmManager::Open(const std::wstring& name, Access access, const create_params* params) {
  lastOpenError = DtmOpenError::kNone;
  const std::scoped_lock lock(mutex_);
  if (params && !AreUsable(*params)) return Failed(DtmOpenError::kBadSettings);
  if (name.empty()) return params ? OpenTemporary(*params) : Failed(DtmOpenError::kNoName);
  std::error_code error;
  const std::wstring wanted = GetCanonicalPath(name, error);
  if (wanted.empty()) return Failed(ReasonOf(error));
  if (DtmUpdateFile* const open = FindModel(wanted)) return Share(*open, access, params);
  return OpenNew(wanted, access, params);
}

DtmUpdateFile* DtmManager::OpenTemporary(const create_params& params) {
  std::wstring folder;
  std::wstring name;
  if (!GetTempPathW(folder) || !GetTempFileNameW(folder, L"Dtm", name)) return Failed(DtmOpenError::kOther);
  DtmUpdateFile* const model = OpenNew(name, Access::kReadWrite, &params);
  if (!model) DeleteFileW(name);  // the name was kept for it by an empty file
  return model;
}

DtmUpdateFile* DtmManager::FindModel(const std::wstring& name) const {
  const auto found =
      std::find_if(models_.begin(), models_.end(), [&](const auto& model) { return Means(name, *model); });
  return found == models_.end() ? nullptr : found->get();
}

DtmUpdateFile* DtmManager::Share(DtmUpdateFile& model, Access access, const create_params* params) {
  // A file in use can't be created anew.
  if (params) return Failed(DtmOpenError::kInUse);
  if (access == Access::kReadWrite && !model.IsReadWrite() && !model.MakeReadWrite(true)) {
    const StreamError why = model.LastStreamError();
    return Failed(why == StreamError::kNone ? DtmOpenError::kOther : ReasonOf(why));
  }
  return model.Open() ? &model : Failed(DtmOpenError::kOther);
}

DtmUpdateFile* DtmManager::OpenNew(const std::wstring& name, Access access, const create_params* params) {
  const bool create = params != nullptr;
  std::error_code error;
  const bool existed = fs::exists(PathOf(name), error);
  auto stream = std::make_unique<HugeFileStream>(name.c_str(), create, access == Access::kReadWrite || create);
  if (access == Access::kReadOnlyForGood) stream->RefuseWriting();
  HugeFileStream& watched = *stream;
  auto model = std::make_unique<DtmUpdateFile>(stream.release(), create);
  if (params) ApplySettings(*model, *params);
  const bool opened = model->Open();
  if (opened && StartSyncing()) return models_.emplace_back(std::move(model)).get();
  const DtmOpenError why = opened ? DtmOpenError::kOther : ReasonOf(watched.LastError());
  const bool made = create && !existed && watched.IsOpen();
  model.reset();
  if (made) DeleteFileW(name);
  return Failed(why);
}

void DtmManager::RemoveDtm(DtmUpdateFile* model) {
  const std::wstring name = model->FileName();
  const bool persists = model->GetFilePersis();
  std::erase_if(models_, [&](const auto& owned) { return owned.get() == model; });
  if (!persists && IsInTempPath(name)) DeleteFileW(name);
  if (models_.empty()) EndSyncing();
}

bool DtmManager::StartSyncing() {
  if (syncer_) return true;
  auto syncer = std::make_unique<Syncer>();
  try {
    // Under the manager lock, which the thread needs before it does anything.
    syncer->thread =
        std::make_unique<Thread>(ThreadPriority::kLowest, [this, own = syncer.get()] { SyncUntil(own->stop); });
  } catch (const std::system_error&) {
    return false;  // the system has no more threads to give
  }
  syncer_ = std::move(syncer);
  return true;
}

void DtmManager::EndSyncing() {
  if (!syncer_) return;
  std::unique_ptr<Syncer> ending = std::move(syncer_);
  ending->stop.Set();
  if (ending->thread->IsCurrent()) {
    // The process is ended from within a notification: the thread is at its end, too, and can't wait for itself.
    [[maybe_unused]] const Syncer* const forever = ending.release();
    return;
  }
  // The thread needs the lock to end its pass. Whoever opens a model meanwhile gets a thread of its own.
  const std::uint32_t depth = mutex_.UnlockAll();
  ending->thread->Join();
  mutex_.RelockAll(depth);
}

void DtmManager::SyncUntil(Event& stop) {
  for (;;) {
    std::chrono::milliseconds wait{};
    {
      const std::scoped_lock lock(mutex_);
      wait = std::chrono::milliseconds(syncTime_);
    }
    if (stop.Wait(wait)) return;
    SyncModified();
  }
}

void DtmManager::SyncModified() {
  const std::scoped_lock lock(mutex_);
  // Who is told of a change may open another model, so the list may grow and move meanwhile.
  std::size_t next = 0;
  while (next < models_.size()) {
    DtmUpdateFile& model = *models_[next++];
    model.LookIfUnwatched();
    if (!model.IsModified()) continue;
    model.ResetModified();  // before, so that a change during the pass isn't lost
    model.Sync();
  }
}

std::uint16_t DtmManager::SetDtmSyncTime(std::uint16_t ms) {
  const std::scoped_lock lock(mutex_);
  return std::exchange(syncTime_, std::max(ms, kShortestSyncTime));
}

}  // namespace vak
