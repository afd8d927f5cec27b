#pragma once

#include <string>

#include "vakdtm/services/files/FileObject.h"

namespace vak {

/// A file of the suite by its kind: finds it where files of that kind lie (`DataSearch`), reads it and writes it.
///
/// The way to read: `FileOpen`, then what the file holds reads itself from `GetFileObject()`. The way to write:
/// `FileClose`, then what is to be written puts itself into `GetFileObject()`, then `FileSave`. For one thread at a
/// time.
class SmartFileImpl {
 public:
  /// Reads a file. @param kind  see `FileKind`. @return false, with nothing changed, when it isn't there or can't be
  /// read.
  bool FileOpen(unsigned kind, const std::wstring& path);

  /// Writes what stands in the file object, see `FileObject::FileSave`. @return false when it couldn't be written.
  bool FileSave(unsigned kind, const std::wstring& path);

  /// Empties the file object.
  void FileClose() { file_.FileClose(); }

  /// Lives as long as this object; `FileClose` empties it and leaves it where it is.
  FileObject& GetFileObject() { return file_; }
  const FileObject& GetFileObject() const { return file_; }

 private:
  FileObject file_;
};

}  // namespace vak
