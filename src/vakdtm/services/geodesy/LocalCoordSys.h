#pragma once

#include <memory>
#include <string>
#include <utility>

#include "vakdtm/services/geodesy/VakGeoCoordSysBase.h"

namespace vak {

/// An engineering system: coordinates in metres that nobody has tied to the earth.
class LocalCoordSys final : public VakGeoCoordSysBase {
 public:
  /// @param name  of the system; empty: it is called "Local".
  explicit LocalCoordSys(std::wstring name) : name_(std::move(name)) {}

  /// @param given  "LOCAL" or "LOCAL:NAME", in capitals or not, with blanks round it or not. @return null for any
  /// other.
  static std::shared_ptr<LocalCoordSys> FromText(const std::wstring& given);

  std::wstring GetDefinition() const override;
  /// Has none.
  bool GetProjectionName(std::wstring& name) const override;
  std::wstring GetEllipsoidName() const override { return {}; }
  /// Can't.
  bool ConvertToWGS84(double x, double y, double z, double& latitude, double& longitude, double& height,
                      int flags) const override;
  GeoCoordSysDescription Describe() const override;

 private:
  std::wstring name_;
};

}  // namespace vak
