#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

namespace vak {

/// A system that PROJ knows.
class ProjCoordSys final : public VakGeoCoordSysBase {
 public:
  /// As `VakGeoCoordSysBase::FromText`, but for local systems.
  static std::shared_ptr<ProjCoordSys> FromText(const std::wstring& text, std::wstring& error);

  std::wstring GetDefinition() const override { return definition_; }
  bool GetProjectionName(std::wstring& name) const override;
  std::wstring GetEllipsoidName() const override { return description_.ellipsoid.name; }
  bool ConvertToWGS84(double x, double y, double z, double& latitude, double& longitude, double& height,
                      int flags) const override;
  GeoCoordSysDescription Describe() const override { return description_; }

 private:
  ProjCoordSys(std::wstring definition, std::string projText, GeoCoordSysDescription description);

  std::wstring definition_;
  std::string projText_;  // as PROJ reads it
  GeoCoordSysDescription description_;
  std::uint64_t number_;  // of no other system that there ever was in this process
};

}  // namespace vak
