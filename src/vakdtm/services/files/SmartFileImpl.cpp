#include "vakdtm/services/files/SmartFileImpl.h"

#include "vakdtm/services/files/DataSearch.h"

namespace vak {

bool SmartFileImpl::FileOpen(unsigned kind, const std::wstring& path) {
  std::wstring full = path;
  return DataSearch::GetDataSearch().GetFullPath(kind, full) && file_.FileOpen(full);
}

bool SmartFileImpl::FileSave(unsigned kind, const std::wstring& path) {
  std::wstring full = path;
  return DataSearch::GetDataSearch().GetFullPath(kind, full) && file_.FileSave(full);
}

}  // namespace vak
