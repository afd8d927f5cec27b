#include "vakdtm/store/DtmUpdateFile.h"

#include <filesystem>
#include <memory>
#include <system_error>

#include "vakdtm/services/files/FileName.h"
#include "vakdtm/services/files/HugeFileStream.h"
#include "vakdtm/services/notify/FileWatcher.h"
#include "vakdtm/services/notify/Subscriber.h"
#include "vakdtm/services/notify/SubscriptionManager.h"
#include "vakdtm/services/platform/Platform.h"
#include "vakdtm/services/text/Utf8.h"
#include "vakdtm/store/DtmManager.h"
#include "vakdtm/store/DtmRectUpdater.h"

namespace vak {
namespace {

/// The kind of notification that announces an update rectangle.
constexpr int kRectChanged = 1;

}  // namespace

DtmUpdateFile::DtmUpdateFile(HugeFileStream* stream, bool create)
    : DtmFile(stream, create), hugeStream_(stream), fileName_(stream->FileName()), name_(GetTitleFromPath(fileName_)) {
  using OwnSubscriber = MemFunNoInfoSubscriber<DtmUpdateFile>;
  subscription_.SetSubscriber(std::make_unique<OwnSubscriber>(this, &DtmUpdateFile::OnFileModified).release(), true);
  SetFollowing(!stream->IsReadWrite());
  if (stream->IsOpen() && !stream->IsReadWrite()) BeginWatching();
  fileTime_ = ReadFileTime();
}

DtmUpdateFile::~DtmUpdateFile() { EndWatching(); }

void DtmUpdateFile::BeginWatching() {
  if (watching_) return;
  subscription_.Subscribe(fileName_);
  watching_ = FileWatcher::Instance().AddFileWatch(fileName_);
  if (!watching_) subscription_.Unsubscribe();
}

void DtmUpdateFile::EndWatching() {
  if (!watching_) return;
  FileWatcher::Instance().RemoveFileWatch(fileName_);
  subscription_.Unsubscribe();
  watching_ = false;
}

bool DtmUpdateFile::Open() {
  const std::scoped_lock lock(DtmManager::GetDtmManager());
  return DtmFile::Open();
}

int DtmUpdateFile::Close() {
  DtmManager& manager = DtmManager::GetDtmManager();
  const std::scoped_lock lock(manager);
  if (OpenCount() == 1) MakeReadWrite(true);
  const int remaining = DtmFile::Close();
  if (remaining == 0) manager.RemoveDtm(this);
  return remaining;
}

bool DtmUpdateFile::IsReadWrite() const {
  const StreamLock lock(*hugeStream_);
  return hugeStream_->IsReadWrite();
}

StreamError DtmUpdateFile::LastStreamError() const {
  const StreamLock lock(*hugeStream_);
  return hugeStream_->LastError();
}

bool DtmUpdateFile::IsFileOf(const std::wstring& name) const {
  const StreamLock lock(*hugeStream_);
  return hugeStream_->IsFileOf(name.c_str());
}

double DtmUpdateFile::ReadFileTime() const {
  double created = 0;
  double accessed = 0;
  double modified = 0;
  const StreamLock lock(*hugeStream_);
  hugeStream_->GetFileTimes(created, accessed, modified);
  return modified;
}

bool DtmUpdateFile::MakeReadWrite(bool readWrite) {
  const std::scoped_lock lock(DtmManager::GetDtmManager());
  // A model whose stream could be made writable but not be caught up with is still one that follows.
  if (IsReadWrite() == readWrite && IsFollowing() != readWrite) return true;
  return readWrite ? BecomeWriter() : BecomeReader();
}

bool DtmUpdateFile::BecomeWriter() {
  // What is written into a file that was replaced is lost: whoever comes by the name gets another.
  if (IsReplaced()) return false;
  {
    const StreamLock lock(*hugeStream_);
    if (!hugeStream_->MakeReadWrite(true)) return false;
  }
  const double time = ReadFileTime();
  // Nothing is written before `SetFollowing(false)`, so no thread that inserts meanwhile goes over what isn't known
  // yet.
  if (MayHaveChanged(time)) {
    bool caughtUp = false;
    {
      DtmRectUpdater updater(this);
      caughtUp = CatchUp(&updater);
    }
    if (!caughtUp) {
      const StreamLock lock(*hugeStream_);
      hugeStream_->MakeReadWrite(false);
      return false;
    }
    fileTime_ = time;
    FlushUpdateRect();
  }
  SetFollowing(false);
  EndWatching();
  return true;
}

bool DtmUpdateFile::BecomeReader() {
  SetFollowing(true);
  {
    const StreamLock lock(*hugeStream_);
    if (!hugeStream_->MakeReadWrite(false)) {
      SetFollowing(false);
      return false;
    }
  }
  BeginWatching();
  const double time = ReadFileTime();
  if (time == fileTime_) return true;
  {
    DtmRectUpdater updater(this);
    SyncRead(&updater);
  }
  fileTime_ = time;
  FlushUpdateRect();
  return true;
}

bool DtmUpdateFile::IsReplaced() const {
  std::error_code error;
  return std::filesystem::exists(ToUtf8(fileName_), error) && !IsFileOf(fileName_);
}

bool DtmUpdateFile::MayHaveChanged(double time) const {
  // File systems keep times in steps of some milliseconds: a change right behind the last look can have the same time.
  constexpr double kGrain = 2.0;
  return time != fileTime_ || static_cast<double>(_time64(nullptr)) - time < kGrain;
}

void DtmUpdateFile::LookIfUnwatched() {
  if (watching_ || IsReadWrite()) return;
  BeginWatching();
  if (ReadFileTime() != fileTime_) OnFileModified();
}

void DtmUpdateFile::AddUpdateRect(const Page& rect, bool flag) {
  const std::scoped_lock lock(rectMutex_);
  OnFileModified();
  if (rectPending_) {
    updateRect_ |= rect;
  } else {
    updateRect_ = rect;
    rectPending_ = true;
  }
  rectFlag_ = rectFlag_ || flag;
  const std::uint32_t now = timeGetTime();
  if (now >= lastNotify_ && now - lastNotify_ < kNotifyInterval) return;
  FlushUpdateRect();
}

void DtmUpdateFile::FlushUpdateRect() {
  // Held during the notification: subscribers are called within it and fetch the rectangle.
  const std::scoped_lock lock(rectMutex_);
  if (!rectPending_) return;
  SubscriptionManager::Instance().Notify(kRectChanged, fileName_, nullptr, nullptr);
  rectPending_ = false;
  rectFlag_ = false;
  lastNotify_ = timeGetTime();
}

void DtmUpdateFile::FlushUpdateRectUnlessBusy() {
  // Under the manager lock. Another thread that is notifying may have called somebody who wants that lock, to open the
  // model; it announces what is gathered, and the next tick what comes behind.
  const std::unique_lock lock(rectMutex_, std::try_to_lock);
  if (lock.owns_lock()) {
    FlushUpdateRect();
  } else {
    OnFileModified();
  }
}

bool DtmUpdateFile::GetUpdateRect(Page& rect, bool& flag) const {
  const std::scoped_lock lock(rectMutex_);
  if (!rectPending_) return false;
  rect = updateRect_;
  flag = rectFlag_;
  return true;
}

void DtmUpdateFile::Sync() {
  const std::scoped_lock lock(DtmManager::GetDtmManager());
  if (observer_) observer_->OnSyncBegin();
  const double time = ReadFileTime();
  const bool writes = IsReadWrite();
  bool done = false;
  if (writes) {
    done = SyncWrite();
  } else {
    DtmRectUpdater updater(this);
    done = SyncRead(&updater);
  }
  // What couldn't be followed isn't seen: a model that becomes writable has to catch up with it.
  if (writes || done) fileTime_ = time;
  FlushUpdateRectUnlessBusy();
  if (observer_) observer_->OnSyncEnd(done);
}

void DtmUpdateFile::SetSyncObserver(DtmSyncObserver* observer) {
  const std::scoped_lock lock(DtmManager::GetDtmManager());
  observer_ = observer;
}

}  // namespace vak
