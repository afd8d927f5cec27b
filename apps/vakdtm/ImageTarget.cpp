#include "ImageTarget.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "vakdtm/services/text/FormatNumber.h"
#include "vakdtm/services/text/Utf8.h"

#include "ResultFile.h"

namespace vak {
namespace {

constexpr std::string_view kWorldFile = ".tfw";

/// The name's ending, and what lies beside such a file.
const std::array<LineFormat, 2>& Formats() {
  static const std::vector<std::string_view> gathered = {".aux.xml", ".ovr", ".msk", ".msk.ovr"};
  static const std::array<LineFormat, 2> formats = {LineFormat{".tif", "", true, {kWorldFile}, gathered},
                                                    LineFormat{".tiff", "", true, {kWorldFile}, gathered}};
  return formats;
}

const LineFormat* FormatOf(const std::string& path) {
  for (const LineFormat& format : Formats()) {
    if (path.size() <= format.ending.size() || path[path.size() - format.ending.size() - 1] == '/') continue;
    const bool ends = std::equal(
        format.ending.begin(), format.ending.end(), path.end() - static_cast<std::ptrdiff_t>(format.ending.size()),
        [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? static_cast<char>(b - 'A' + 'a') : b); });
    if (ends) return &format;
  }
  return nullptr;
}

/// A pipe or a device of such a name is written as it is.
bool IsNoRegularFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

std::string ObstacleText(const std::string& path, int error) {
  if (error == EEXIST) return path + " has that name in other letters, and would share its files";
  return path + ", a name that goes with it, is " + (error == EISDIR ? "a folder" : "no regular file");
}

}  // namespace

bool ImageTarget::IsTiffName(const std::string& path) { return FormatOf(path) != nullptr && !IsNoRegularFile(path); }

std::vector<std::string> ImageTarget::Names(const std::string& path) {
  const LineFormat* const format = FormatOf(path);
  return format != nullptr && !IsNoRegularFile(path) ? UnfinishedSet::Names(path, *format)
                                                     : std::vector<std::string>{path};
}

bool ImageTarget::Open(const std::string& path) {
  name_ = path;
  isSet_ = IsTiffName(path);
  if (!isSet_) return alone_.Open(path);
  return set_.Make(path, *FormatOf(path)) || FailWith(errno);
}

std::wstring ImageTarget::Path() const { return isSet_ ? FromUtf8(set_.Path()) : alone_.Path(); }

std::wstring ImageTarget::WorldFilePath() const {
  const std::string& path = set_.Path();
  return FromUtf8(path.substr(0, path.rfind('.')) + std::string(kWorldFile));
}

bool ImageTarget::Commit() {
  if (!isSet_) return alone_.Commit();
  return set_.Commit() || FailWith(errno);
}

bool ImageTarget::FailWith(int error) {
  if (!set_.Obstacle().empty()) {
    error_ = ObstacleText(set_.Obstacle(), error);
  } else if (error == EBUSY) {
    error_ = "somebody else has the folder locked";
  } else {
    error_ = error == EINVAL ? "it is no regular file" : WriteErrorText(error);
  }
  remedy_ = IsLackOfRoom(error) ? "make room, or name another file with -o" : "name another file with -o";
  set_.Abandon();
  return false;
}

std::string SizeText(double bytes) {
  constexpr double kGigabyte = 1e9;
  constexpr double kMegabyte = 1e6;
  const double unit = bytes >= 10 * kGigabyte ? kGigabyte : bytes >= 10 * kMegabyte ? kMegabyte : 1;
  std::string text;
  AppendFixed(text, std::floor(bytes / unit), 0);
  return text + (unit == kGigabyte ? " GB" : unit == kMegabyte ? " MB" : " bytes");
}

}  // namespace vak
