#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vakdtm/services/files/DataStream.h"

namespace vak {

/// Why an operation of a file stream failed.
enum class StreamError {
  kNone,          ///< Nothing has failed since the last `Open`. Reading beyond the end is no failure of the file.
  kMissing,       ///< No file of that name, or no such folder.
  kNotReadable,   ///< The system doesn't let this user read it.
  kNotWritable,   ///< Not let write: by the system, by `RefuseWriting`, or because the stream is read-only.
  kFolder,        ///< The name is a folder's.
  kHeldByWriter,  ///< Another stream, of this process or another, has the file read-write.
  kLinkNowhere,   ///< The name is a link's that leads to no file, or round in a loop.
  kNameTooLong,   ///< The name is longer than names may be.
  kNoSpace,       ///< The disk, the quota or the largest file size is used up.
  kOther          ///< Something else; `LastErrno` tells what.
};

/// A regular file as a stream, of any length.
///
/// At most one stream in all processes of the machine has a file read-write; it holds a lock that the system gives back
/// when the process ends, however it ends. Read-only streams take no lock and open and read beside the writer. They see
/// what it writes at once, and may see half of it.
///
/// Not thread safe beyond `Lock`: see `DataStream`.
class HugeFileStream : public DataStream {
 public:
  /// Opens at once, as `Open` does. Whether that worked is seen by `IsOpen`, and by every read and write.
  HugeFileStream(const wchar_t* name, bool create, bool readWrite);

  /// Closes. What was written but not synced is still written by the system, though a power cut may take it.
  ~HugeFileStream() override;

  /// Read-write: puts all that was written on the disk; after making a file, its name too. Without anything new this
  /// costs nothing. Once the disk has refused data for good (not for lack of space), every later call answers false
  /// until the file is opened anew, since nobody can say any more what arrived. Read-only: true; nothing is buffered
  /// here.
  bool Sync() override;
  bool Read(void* buffer, std::uint64_t count) override;
  bool Write(const void* buffer, std::uint64_t count) override;
  bool Seek(std::int64_t offset, int origin) override;
  std::int64_t Position() override;
  bool SetSize(std::int64_t size) override;

  /// Closes what was open and opens `name`, at offset 0.
  ///
  /// @param name       path; ends at the first NUL.
  /// @param create     makes the file, or empties the one that is there, and opens it read-write whatever `readWrite`
  /// says. The writer's lock is taken before anything is cut. A file made by a call that then fails is removed again.
  /// @param readWrite  opens an existing file read-write; false when another stream has it so.
  /// @return false when nothing is open now; `LastError` tells why.
  virtual bool Open(const wchar_t* name, bool create, bool readWrite);

  /// Closes the file and gives up the writer's lock. @return false when nothing was open, or the system reported a
  /// failed write only now; it is closed in any case.
  virtual bool Close();

  virtual bool IsOpen() const;

  /// @return the name as given to the last `Open`, valid until the next one. A file that was renamed since keeps it.
  virtual const wchar_t* FileName() const;

  /// @param size  gets the length in bytes. @return false when nothing is open.
  virtual bool GetSize(long long& size);

  /// Seconds since 1970-01-01 UTC, with fractions. `modified` differs after another process has written the file, as
  /// finely as the file system keeps times. `created` is the time of the last change of the file's record where the
  /// file system doesn't know the making. @return false when nothing is open.
  virtual bool GetFileTimes(double& created, double& accessed, double& modified);

  /// @param crc  gets the CRC-32 (polynomial 0xEDB88320, as in ZIP) of the whole content. The offset isn't moved.
  /// @return false when nothing is open or the file couldn't be read to its end.
  virtual bool GetFileCrc32(unsigned int& crc);

  /// Whether a name leads to the open file, perhaps by another way than the one it was opened by.
  bool IsFileOf(const wchar_t* name) const;

  bool IsReadWrite() const;

  /// Changes the mode of the open file. It stays the same file, also when it was renamed or removed meanwhile, and the
  /// offset stays.
  ///
  /// To read-write: false while another stream has it so, when the system doesn't let us write, when the name has
  /// become another file's, or after `RefuseWriting`. To read-only: syncs first and then gives up the lock; false when
  /// the sync failed.
  /// @return false when nothing has changed; `LastError` tells why.
  bool MakeReadWrite(bool readWrite);

  /// From now on this stream can't become writable: `Open` for writing and `MakeReadWrite(true)` answer false. For
  /// users that only look and must leave no trace. Called on a read-only stream, before it is handed on.
  void RefuseWriting();

  /// Why the last failed operation since the last `Open` failed.
  StreamError LastError() const;

  /// The system's number for it (`errno`), 0 when there is none.
  int LastErrno() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vak
