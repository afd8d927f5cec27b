#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vakdtm/services/platform/Event.h"
#include "vakdtm/services/platform/RecursiveMutex.h"
#include "vakdtm/services/platform/Thread.h"
#include "vakdtm/store/DtmUpdateFile.h"

namespace vak {

/// Why `DtmManager::OpenDtm` answered null.
enum class DtmOpenError {
  kNone,
  kMissing,       ///< no such file, or no folder to create it in
  kNotReadable,   ///< not permitted to read, or reading failed
  kNotWritable,   ///< not permitted to write
  kFolder,        ///< the name is a folder's
  kNoModel,       ///< the file isn't a grid model, or its header is damaged
  kHeldByWriter,  ///< another process has the model read-write
  kNoSpace,       ///< the disk is full
  kInUse,         ///< to be created, but open in this process
  kBadSettings,   ///< cell size, area size or block list that no model can have
  kNoName,        ///< an empty name without settings for a temporary model
  kNotPermitted,  ///< not permitted to enter a folder on the way to it
  kLinkNowhere,   ///< the name is a link's that leads to no file, or round in a loop
  kNameTooLong,   ///< the name is longer than names may be
  kOther
};

/// Owner of every grid model that is open in this process, at most one a file.
///
/// While a model is open, one thread of lowest priority syncs: every sync time it writes out what this process changed
/// and reads in what another has written, of the models that are marked as modified.
///
/// One object a process. Any thread may call; only whoever is called within a notification must not close the last
/// count of a model there, since the model is at work.
class DtmManager {
 public:
  /// What a new model is made with. A value that isn't positive, or an empty list, keeps the default: areas of 64
  /// cells, cells of 1 m, `dVAL` and `iNUM`.
  struct create_params {  // NOLINT(readability-identifier-naming): the name that applications know
    int areaSize = 0;
    double cellSize = 0;
    std::vector<int> blockIds;
  };

  static DtmManager& GetDtmManager();
  DtmManager(const DtmManager&) = delete;
  DtmManager& operator=(const DtmManager&) = delete;

  /// Opens a model or shares the one that is open already; the one way to get a model.
  ///
  /// @param name    path of the file; empty together with `params`: a temporary model, whose file is deleted after its
  /// last
  ///   `Close` unless `SetTmpFilePersist` was called.
  /// @param readWrite  false doesn't take an open read-write model down. @param params  not null: create the file anew.
  /// @return a model on which the caller owns one open count, given back by `Close`; null on failure, and
  ///   `LastOpenError` tells why.
  DtmUpdateFile* OpenDtm(const std::wstring& name, bool readWrite, const create_params* params);

  /// The same for one who only reads and must leave no trace: the stream refuses ever to become writable, so that even
  /// the last `Close` leaves every byte and the file's times as they are, also of a damaged file.
  DtmUpdateFile* OpenDtmUntouched(const std::wstring& name);

  /// Why the last `OpenDtm` of the calling thread failed; `kNone` after one that didn't.
  static DtmOpenError LastOpenError();

  /// Sets the time between two passes of syncing, at least 500 ms. A wait that has begun isn't cut short.
  /// @return the old value; 2000 at first.
  std::uint16_t SetDtmSyncTime(std::uint16_t ms);

  /// One pass of syncing on this thread, just as the sync thread makes them: every model that is marked as modified.
  void SyncModified();

  /// Takes the manager lock, which serialises opening, closing and changes of mode. Always true. Re-entrant.
  bool Lock() {
    mutex_.lock();
    return true;
  }
  void Unlock() { mutex_.unlock(); }
  // The same for std::scoped_lock.
  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }
  bool try_lock() { return mutex_.try_lock(); }

 private:
  friend class DtmUpdateFile;
  enum class Access { kRead, kReadOnlyForGood, kReadWrite };

  /// The thread that syncs, with the event that ends it.
  struct Syncer {
    Event stop;
    std::unique_ptr<Thread> thread;
  };

  DtmManager();
  ~DtmManager();

  DtmUpdateFile* Open(const std::wstring& name, Access access, const create_params* params);
  DtmUpdateFile* OpenTemporary(const create_params& params);
  DtmUpdateFile* OpenNew(const std::wstring& name, Access access, const create_params* params);
  DtmUpdateFile* Share(DtmUpdateFile& model, Access access, const create_params* params);
  DtmUpdateFile* FindModel(const std::wstring& name) const;
  void RemoveDtm(DtmUpdateFile* model);
  /// @return false when there is no thread to be had.
  bool StartSyncing();
  void EndSyncing();
  void SyncUntil(Event& stop);

  RecursiveMutex mutex_;
  std::vector<std::unique_ptr<DtmUpdateFile>> models_;  // guarded by mutex_; in order of opening
  std::uint16_t syncTime_ = 2000;                       // guarded by mutex_; ms
  std::unique_ptr<Syncer> syncer_;                      // guarded by mutex_; null while no model is open
};

}  // namespace vak
