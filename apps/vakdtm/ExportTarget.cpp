#include "ExportTarget.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "vakdtm/services/platform/FileHandle.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

constexpr std::size_t kCopyBlock = std::size_t{1} << 16;

}  // namespace

ExportTarget::~ExportTarget() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

bool ExportTarget::Open(const std::string& path) {
  if (!result_.Open(path)) return false;
  if (!result_.HiddenPath().empty()) return true;
  std::error_code code;
  std::string name = (std::filesystem::temp_directory_path(code) / "vakdtm-export-XXXXXX").native();
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor < 0) {
    error_ = "no temporary file can be made for it";
    return false;
  }
  close(descriptor);
  temporary_ = name;
  return true;
}

std::wstring ExportTarget::Path() const { return FromUtf8(temporary_.empty() ? result_.HiddenPath() : temporary_); }

std::string ExportTarget::Remedy() const {
  if (!error_.empty()) return "check the temporary folder";
  // A job that failed without a word to this couldn't write its file to the end.
  const bool room = result_.Error().empty() || result_.LacksRoom();
  return room ? "make room, or name another file with -o" : "name another file with -o";
}

bool ExportTarget::Commit() { return (temporary_.empty() || CopyOut()) && result_.Commit(); }

bool ExportTarget::CopyOut() {
  const FileHandle file = OpenDescriptor(temporary_.c_str(), O_RDONLY);
  std::vector<char> block(kCopyBlock);
  for (;;) {
    const ssize_t count = file.IsOpen() ? read(file.Get(), block.data(), block.size()) : -1;
    if (count == 0) return true;
    if (count < 0) {
      error_ = "the temporary file cannot be read back";
      return false;
    }
    if (!result_.Write(std::string_view(block.data(), static_cast<std::size_t>(count)))) return false;
  }
}

}  // namespace vak
