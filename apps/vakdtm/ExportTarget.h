#pragma once

#include <string>
#include <string_view>

#include "ResultFile.h"

namespace vak {

/// Where a job of the library writes a file to, by its path: beside the target, so that it appears there when it is
/// complete. What can't be replaced, standard output or a device, is written at the end, from a temporary file.
class ExportTarget {
 public:
  ExportTarget() = default;
  ~ExportTarget();

  ExportTarget(const ExportTarget&) = delete;
  ExportTarget& operator=(const ExportTarget&) = delete;

  /// Prepares the target; "-" is standard output. To be called once. @return false when it can't be written; the target
  /// is as it was, and `Error` tells why.
  [[nodiscard]] bool Open(const std::string& path);

  /// The file to write, empty at first.
  [[nodiscard]] std::wstring Path() const;

  /// Writes in place of somebody else, what lies in memory.
  [[nodiscard]] bool Write(std::string_view bytes) { return result_.Write(bytes); }

  /// Puts what was written in its place. @return false when that failed.
  [[nodiscard]] bool Commit();

  [[nodiscard]] const std::string& Name() const { return result_.Name(); }
  [[nodiscard]] const std::string& Error() const { return error_.empty() ? result_.Error() : error_; }
  /// What to do about it.
  [[nodiscard]] std::string Remedy() const;
  [[nodiscard]] bool ReaderGone() const { return result_.ReaderGone(); }

 private:
  [[nodiscard]] bool CopyOut();

  ResultFile result_;
  std::string temporary_;  // path; empty where the file is written beside its target
  std::string error_;
};

}  // namespace vak
