#pragma once

namespace vak {

/// Somewhere that bytes are written to, one behind the other: a file (`OutputFile`) or memory (`memfile`).
///
/// Belongs to one thread at a time. Errors stick: after a write that failed nothing more is written, `Failed` answers
/// true, and what arrived before is whole. So a writer of many lines may ask once, at the end.
class CFile {
 public:
  virtual ~CFile() = default;

  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  /// Appends bytes.
  /// @param from   read during the call only, not the file's own bytes; may be null when there are none.
  /// @param count  in bytes.
  /// @return false when they could not all be written, now or in an earlier call.
  virtual bool Write(const void* from, unsigned count) = 0;

  /// Whether any write has failed.
  bool Failed() const { return failed_; }

 protected:
  CFile() = default;

  /// Marks the file as failed. @return false, which is what the write that failed answers.
  bool Fail() {
    failed_ = true;
    return false;
  }

  /// Makes the file one that has not failed: for one that is opened anew.
  void ClearFailed() { failed_ = false; }

 private:
  bool failed_ = false;
};

}  // namespace vak
