#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "vakdtm/services/files/CFile.h"

namespace vak {

/// A file on the disk that is written from its beginning.
///
/// Writes are gathered, so that a full disk may show only in a later write or in `Close`.
class OutputFile final : public CFile {
 public:
  OutputFile() = default;

  /// Closes without an answer: call `Close` to know that everything arrived.
  ~OutputFile() override = default;

  /// Opens a file for writing, emptying one that is there; closes the one before.
  /// @param append  true: what is there stays, and writing goes on behind it.
  /// @return false when it can't be opened; `errno` says why. The object is closed then.
  bool Open(const std::wstring& path, bool append = false);

  bool IsOpen() const { return file_ != nullptr; }

  /// @return false as well while no file is open.
  bool Write(const void* from, unsigned count) override;

  /// Hands everything to the system and closes. @return false when any byte did not arrive, or no file was open.
  bool Close();

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace vak
