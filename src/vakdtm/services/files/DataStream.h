#pragma once

#include <cstdint>

#include "vakdtm/services/platform/RecursiveMutex.h"

namespace vak {

/// Seekable stream of bytes with 64-bit positions and a lock: what a grid model is stored on.
///
/// Positions and sizes are in bytes. A stream is not thread safe by itself: a seek and the transfer behind it belong
/// under one `Lock`. The lock is re-entrant for its thread.
class DataStream {
 public:
  enum Origin : int { kFromStart = 0, kFromEnd = 2 };

  virtual ~DataStream() = default;

  DataStream(const DataStream&) = delete;
  DataStream& operator=(const DataStream&) = delete;

  /// Publishes what was written and drops what was buffered: after it, everything written has gone out to where a
  /// power cut can't take it, and what is read next comes from the file. @return true on success.
  virtual bool Sync() = 0;

  /// Reads `count` bytes at the present offset and moves behind them. @return true only if all of them were read; the
  /// contents of the buffer and the offset are undefined otherwise.
  virtual bool Read(void* buffer, std::uint64_t count) = 0;

  /// Writes `count` bytes at the present offset and moves behind them, lengthening the stream as needed.
  /// @return true only if all of them were written.
  virtual bool Write(const void* buffer, std::uint64_t count) = 0;

  /// Moves to `offset` bytes from the start (`kFromStart`) or the end (`kFromEnd`). @return true on success; a place
  /// before the start is refused and nothing moves.
  virtual bool Seek(std::int64_t offset, int origin) = 0;

  /// @return the present offset from the start.
  virtual std::int64_t Position() = 0;

  /// Cuts or lengthens (with zeros) the stream. @return true when it is now `size` bytes long; a stream that can't
  /// shorten answers false.
  virtual bool SetSize(std::int64_t size) = 0;

  /// Takes the stream's lock for this thread, waiting for it. @return true when it was taken; only then `Unlock` is
  /// due.
  bool Lock() {
    mutex_.lock();
    return true;
  }

  /// Gives one `Lock` of this thread back.
  void Unlock() { mutex_.unlock(); }

 protected:
  DataStream() = default;

 private:
  RecursiveMutex mutex_;
};

/// Holds a stream's lock for a scope.
class StreamLock {
 public:
  explicit StreamLock(DataStream& stream) : stream_(stream), locked_(stream.Lock()) {}
  ~StreamLock() {
    if (locked_) stream_.Unlock();
  }

  StreamLock(const StreamLock&) = delete;
  StreamLock& operator=(const StreamLock&) = delete;

 private:
  DataStream& stream_;
  bool locked_;
};

}  // namespace vak
