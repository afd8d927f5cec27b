#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

#include <string_view>

#include "vakdtm/services/geodesy/LocalCoordSys.h"

namespace vak {

std::shared_ptr<VakGeoCoordSysBase> VakGeoCoordSysBase::FromText(const std::wstring& text, std::wstring* error) {
  if (auto local = LocalCoordSys::FromText(text)) return local;
  if (error != nullptr) *error = L"'" + text + L"' is no coordinate system that is known here";
  return nullptr;
}

std::shared_ptr<VakGeoCoordSysBase> VakGeoCoordSysBase::MakeLocal(const std::wstring& name) {
  return std::make_shared<LocalCoordSys>(name);
}

}  // namespace vak
