#include "vakdtm/services/files/OutputFile.h"

#include <cstdio>
#include <string>

#include "vakdtm/services/text/Utf8.h"

namespace vak {

bool OutputFile::Open(const std::wstring& path, bool append) {
  file_.reset();
  ClearFailed();
  // 'e': a process that is started meanwhile doesn't inherit the file.
  file_.reset(std::fopen(ToUtf8(path).c_str(), append ? "abe" : "wbe"));
  return file_ != nullptr;
}

bool OutputFile::Write(const void* from, unsigned count) {
  if (!file_ || Failed()) return Fail();
  if (count == 0) return true;
  return std::fwrite(from, 1, count, file_.get()) == count || Fail();
}

bool OutputFile::Close() {
  if (!file_) return false;
  const bool closed = std::fclose(file_.release()) == 0;
  return (closed || Fail()) && !Failed();
}

}  // namespace vak
