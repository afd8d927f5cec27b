#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "vakdtm/services/geometry/Page.h"
#include "vakdtm/services/notify/Subscription.h"
#include "vakdtm/services/platform/RecursiveMutex.h"
#include "vakdtm/store/DtmFile.h"

namespace vak {

class HugeFileStream;
enum class StreamError;

/// Hears when a model is synced, for those who must know what is on the disk.
///
/// Called on the thread that syncs, under the manager lock: no opening, closing or waiting here.
class DtmSyncObserver {
 public:
  virtual ~DtmSyncObserver() = default;
  /// What was changed before this is called is part of the pass.
  virtual void OnSyncBegin() = 0;
  /// @param done  all of it is on the disk (of a read-only model: the file was followed).
  virtual void OnSyncEnd(bool done) = 0;

 protected:
  DtmSyncObserver() = default;
  DtmSyncObserver(const DtmSyncObserver&) = default;
  DtmSyncObserver& operator=(const DtmSyncObserver&) = default;
};

/// A grid model as a process shares it: one object for everybody who opened the same file, counted.
///
/// Made and owned by `DtmManager`; whoever got it from `OpenDtm` gives it back by `Close` and must not touch it after
/// that. It gathers the rectangle of what changed and announces it to this process's views: notification of kind 1
/// under the file's name, at most one in 126 ms.
///
/// At most one process holds a model read-write; the others hold it read-only, watch the file and follow. Any thread
/// may call.
/// Lock order: manager lock, file lock, area lock, rectangle lock and stream lock.
class DtmUpdateFile final : public DtmFile {
 public:
  /// @param stream  owned from now on. @param create  the first `Open` writes a new file.
  DtmUpdateFile(HugeFileStream* stream, bool create);
  ~DtmUpdateFile() override;

  bool Open() override;
  /// The last holder goes to read-write before the final writing, so that a reader's changes get into the file if no
  /// other process is writing; then the model is deleted.
  int Close() override;

  /// Title of the path, for display.
  std::wstring Name() const { return name_; }
  /// Full path.
  std::wstring FileName() const { return fileName_; }
  bool IsReadWrite() const;
  /// Changes the mode. To read-write fails, with nothing changed, while another process has it, when another file has
  /// come to stand under the name, or when what was written meanwhile can't be followed; a model that becomes
  /// writable first catches up with what was written meanwhile. Going to read-only writes nothing: call `Sync` before.
  bool MakeReadWrite(bool readWrite);
  /// Why the stream's last failed operation failed.
  StreamError LastStreamError() const;

  /// Marks the model as one that the next pass of syncing has work for.
  void OnFileModified() { modified_.store(true, std::memory_order_relaxed); }
  bool IsModified() const { return modified_.load(std::memory_order_relaxed); }
  void ResetModified() { modified_.store(false, std::memory_order_relaxed); }

  /// Of a read-only model whose file couldn't be watched: tries again, and looks whether it has changed.
  void LookIfUnwatched();
  /// Whether a name leads to this model's file.
  bool IsFileOf(const std::wstring& name) const;

  /// Adds a rectangle (metres) to the one gathered, marks the model modified, and announces if it is time to.
  /// @param flag  existing data changed or went away.
  void AddUpdateRect(const Page& rect, bool flag);
  /// Announces what is gathered. Subscribers are called on this thread, within the rectangle's lock, and fetch the
  /// rectangle by `GetUpdateRect`. They may read and open models, but not close the last count of one, nor change this
  /// one: a rectangle that they add goes with the one announced.
  void FlushUpdateRect();
  /// @return false when nothing is gathered.
  bool GetUpdateRect(Page& rect, bool& flag) const;

  /// Writes a read-write model out or reads a read-only one in. Failures aren't told here: the pass that follows the
  /// next change tries again.
  void Sync();
  /// Sets who hears of every `Sync`; null: nobody. Not owned; when this returns the former one isn't called any more.
  void SetSyncObserver(DtmSyncObserver* observer);

  /// Whether a temporary model's file stays after its last `Close`.
  void SetTmpFilePersist(bool persist) { persists_.store(persist, std::memory_order_relaxed); }
  bool GetFilePersis() const { return persists_.load(std::memory_order_relaxed); }

 private:
  static constexpr std::uint32_t kNotifyInterval = 126;  // ms
  static constexpr int kFileChanged = 0;                 // kind of notification

  double ReadFileTime() const;
  /// Whether the file may differ from what was last seen of it. @param time  its last-modified time.
  bool MayHaveChanged(double time) const;
  /// Whether another file has come to stand under the name.
  bool IsReplaced() const;
  bool BecomeWriter();
  bool BecomeReader();
  void BeginWatching();
  void EndWatching();
  void FlushUpdateRectUnlessBusy();

  HugeFileStream* hugeStream_;  // the stream that DtmFile owns
  std::wstring fileName_;
  std::wstring name_;
  bool rectPending_ = false;      // guarded by rectMutex_, like the three members below
  std::uint32_t lastNotify_ = 0;  // ms
  bool rectFlag_ = false;
  Page updateRect_;
  mutable RecursiveMutex rectMutex_;
  Subscription subscription_{kFileChanged};
  bool watching_ = false;  // guarded by the manager lock, like the two members below
  DtmSyncObserver* observer_ = nullptr;
  std::atomic<bool> modified_{false};
  double fileTime_ = 0;  // the file's last-modified time as last seen
  std::atomic<bool> persists_{false};
};

}  // namespace vak
