#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

#include "vakdtm/services/geodesy/LocalCoordSys.h"
#include "vakdtm/services/geodesy/ProjCoordSys.h"

namespace vak {

std::shared_ptr<VakGeoCoordSysBase> VakGeoCoordSysBase::FromText(const std::wstring& text, std::wstring* error) {
  if (auto local = LocalCoordSys::FromText(text)) return local;
  std::wstring why;
  auto system = ProjCoordSys::FromText(text, why);
  if (!system && error != nullptr) *error = std::move(why);
  return system;
}

std::shared_ptr<VakGeoCoordSysBase> VakGeoCoordSysBase::MakeLocal(const std::wstring& name) {
  return std::make_shared<LocalCoordSys>(name);
}

}  // namespace vak
