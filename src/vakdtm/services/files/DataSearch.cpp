#include "vakdtm/services/files/DataSearch.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "vakdtm/services/geodesy/ProjectDefinition.h"
#include "vakdtm/services/text/Utf8.h"

namespace vak {

DataSearch& DataSearch::GetDataSearch() {
  static DataSearch search;
  return search;
}

bool DataSearch::GetFullPath(unsigned kind, std::wstring& path) const {
  if (path.empty()) return false;
  const std::filesystem::path name = ToUtf8(path);
  std::error_code error;
  const std::filesystem::path here = std::filesystem::absolute(name, error);
  if (error) return false;
  std::filesystem::path found = here;
  if (!name.is_absolute() && !std::filesystem::exists(here, error)) {
    const std::scoped_lock lock(mutex_);
    const auto folders = folders_.find(kind);
    if (folders != folders_.end()) {
      for (const std::wstring& folder : folders->second) {
        const std::filesystem::path candidate = std::filesystem::path(ToUtf8(folder)) / name;
        if (!std::filesystem::exists(candidate, error)) continue;
        found = std::filesystem::absolute(candidate, error);
        if (error) return false;
        break;
      }
    }
  }
  // A way up behind a link leads where the link points to: only the system knows.
  const bool goesUp = std::find(found.begin(), found.end(), "..") != found.end();
  path = FromUtf8((goesUp ? found : found.lexically_normal()).native());
  return true;
}

void DataSearch::AddFolder(unsigned kind, const std::wstring& folder) {
  const std::scoped_lock lock(mutex_);
  folders_[kind].push_back(folder);
}

void DataSearch::ClearFolders(unsigned kind) {
  const std::scoped_lock lock(mutex_);
  folders_.erase(kind);
}

std::shared_ptr<const ProjectDefinition> DataSearch::GetProjectDefinition() const {
  return GetCurrentProjectDefinition();
}

}  // namespace vak
