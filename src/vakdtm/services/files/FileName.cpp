#include "vakdtm/services/files/FileName.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>

#include "vakdtm/services/text/Utf8.h"

namespace vak {
namespace {

/// @return where the extension of a last component begins, its length when it has none.
std::size_t ExtensionOf(const std::wstring& component) {
  const std::size_t dot = component.rfind(L'.');
  if (dot == std::wstring::npos || dot == 0 || component == L"..") return component.size();
  return dot;
}

}  // namespace

void FileName::Set(const std::wstring& path) {
  const std::size_t slash = path.rfind(L'/');
  const std::size_t last = slash == std::wstring::npos ? 0 : slash + 1;
  folder_ = path.substr(0, last);
  SetName(path.substr(last), false);
}

void FileName::SetPath(const std::wstring& folder) {
  folder_ = folder;
  if (!folder_.empty() && folder_.back() != L'/') folder_ += L'/';
  Join();
}

void FileName::SetName(const std::wstring& name, bool titleOnly) {
  const std::size_t end = titleOnly ? name.size() : ExtensionOf(name);
  title_ = name.substr(0, end);
  if (!titleOnly) extension_ = name.substr(end);
  Join();
}

void FileName::SetExtension(const std::wstring& extension) {
  extension_ = extension;
  if (!extension_.empty() && extension_.front() != L'.') extension_.insert(0, 1, L'.');
  Join();
}

std::wstring FileName::Path(bool withName, bool withSeparator) const {
  if (withName) return path_;
  if (withSeparator || folder_.size() <= 1) return folder_;
  return folder_.substr(0, folder_.size() - 1);
}

std::wstring GetTitleFromPath(const std::wstring& path) {
  const std::size_t slash = path.rfind(L'/');
  const std::wstring last = slash == std::wstring::npos ? path : path.substr(slash + 1);
  return last.substr(0, ExtensionOf(last));
}

std::wstring GetCanonicalPath(const std::wstring& path) {
  std::error_code error;
  return GetCanonicalPath(path, error);
}

std::wstring GetCanonicalPath(const std::wstring& path, std::error_code& error) {
  error.clear();
  if (path.empty()) return {};
  const std::filesystem::path absolute = std::filesystem::absolute(ToUtf8(path), error);
  if (error) return {};
  std::filesystem::path canonical;
  // A file that goes between two looks is an error and not a name without a file; looked at again it is the latter.
  for (int attempt = 0; attempt < 8; ++attempt) {
    canonical = std::filesystem::weakly_canonical(absolute, error);
    if (error != std::errc::no_such_file_or_directory) break;
  }
  return error ? std::wstring() : FromUtf8(canonical.native());
}

}  // namespace vak
